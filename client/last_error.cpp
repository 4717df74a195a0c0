#include "last_error.h"

#include <array>
#include <cstdarg>
#include <cstdio>

namespace
{
thread_local std::array<char, 512> g_text;
}

int fail(vlk_result result, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(g_text.data(), g_text.size(), format, arguments);
    va_end(arguments);
    return result;
}

const char *vlk_last_error()
{
    return g_text.data();
}
