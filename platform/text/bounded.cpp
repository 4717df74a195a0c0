#include "bounded.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

static int refuse(void *dest, size_t dest_size)
{
    if (dest != nullptr)
        memset(dest, 0, dest_size);
    return EINVAL;
}

int memcpy_s(void *dest, size_t dest_size, const void *src, size_t count)
{
    if (dest == nullptr || src == nullptr || count > dest_size) [[unlikely]]
        return refuse(dest, dest_size);
    memmove(dest, src, count);
    return 0;
}

int memset_s(void *dest, size_t dest_size, int value, size_t count)
{
    if (dest == nullptr || count > dest_size) [[unlikely]]
        return refuse(dest, dest_size);
    memset(dest, value, count);
    return 0;
}

int strncpy_s(char *dest, size_t dest_size, const char *src, size_t count)
{
    if (dest == nullptr || src == nullptr) [[unlikely]]
        return refuse(dest, dest_size);
    const size_t length = strnlen(src, std::min(count, dest_size));
    if (length >= dest_size) [[unlikely]]
        return refuse(dest, dest_size);
    memmove(dest, src, length);
    dest[length] = '\0';
    return 0;
}

int strncat_s(char *dest, size_t dest_size, const char *src, size_t count)
{
    if (dest == nullptr || src == nullptr) [[unlikely]]
        return refuse(dest, dest_size);
    const size_t used = strnlen(dest, dest_size);
    const size_t room = dest_size - used; // 0: no terminator in dest
    const size_t length = strnlen(src, std::min(count, room));
    if (length >= room) [[unlikely]]
        return refuse(dest, dest_size);
    memmove(dest + used, src, length);
    dest[used + length] = '\0';
    return 0;
}

int strcat_s(char *dest, size_t dest_size, const char *src)
{
    return strncat_s(dest, dest_size, src, SIZE_MAX);
}

/// Like vsnprintf, but quick for "%s", which nearly all formats are.
__attribute__((format(printf, 3, 0))) static int format_text(char *dest, size_t size, const char *format,
                                                             va_list arguments)
{
    if (strcmp(format, "%s") != 0)
        return vsnprintf(dest, size, format, arguments);
    const char *text = va_arg(arguments, const char *);
    text = text != nullptr ? text : "(null)";
    const size_t length = strlen(text);
    const size_t kept = std::min(length, size - 1);
    memmove(dest, text, kept);
    dest[kept] = '\0';
    return static_cast<int>(length);
}

int snprintf_s(char *dest, size_t dest_size, size_t count, const char *format, ...)
{
    if (dest == nullptr || format == nullptr || dest_size == 0 || count > dest_size) [[unlikely]] {
        refuse(dest, dest_size);
        return -1;
    }
    const bool may_cut = count < dest_size;

    va_list arguments;
    va_start(arguments, format);
    const int length = format_text(dest, may_cut ? count + 1 : dest_size, format, arguments);
    va_end(arguments);

    if (length >= 0 && static_cast<size_t>(length) < dest_size && static_cast<size_t>(length) <= count)
        return length;
    if (length < 0 || !may_cut)
        memset(dest, 0, dest_size);
    return -1;
}
