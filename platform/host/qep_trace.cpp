#include "qep_trace.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <syslog.h>
#include <unistd.h>

#include "host_start.h"

namespace
{

constexpr size_t TEXT_SIZE = 900; ///< bytes of one message; what is longer is cut
constexpr size_t LINE_SIZE =
    4096; ///< room for a text of which every byte is escaped; one write is whole in a pipe

struct level_name {
    const char *name;
    const char *colour;
    int priority; ///< of syslog
};

level_name name_of(int level)
{
    if (level <= 2)
        return {"error", "\x1b[31m", LOG_ERR};
    if (level <= 4)
        return {"minor", "\x1b[33m", LOG_WARNING};
    if (level <= 8)
        return {"progress", "", LOG_INFO};
    return {"detail", "", LOG_DEBUG};
}

/// A line that is built piece by piece; what does not fit is left out.
struct line_buffer {
    std::array<char, LINE_SIZE> bytes;
    size_t used = 0;

    void add(char c)
    {
        if (used < bytes.size())
            bytes[used++] = c;
    }
    void add(const char *text)
    {
        for (; *text != '\0'; ++text)
            add(*text);
    }

    /// Text from anywhere: nothing in it can end the line or speak to the terminal.
    void add_visible(const char *text)
    {
        constexpr char digits[] = "0123456789abcdef";
        for (; *text != '\0'; ++text) {
            const auto byte = static_cast<unsigned char>(*text);
            if (byte >= ' ' && byte <= '~') {
                add(*text);
                continue;
            }
            add("\\x");
            add(digits[byte >> 4]);
            add(digits[byte & 15]);
        }
    }
};

__attribute__((format(printf, 2, 0))) void format_text(char (&text)[TEXT_SIZE], const char *format,
                                                       va_list arguments)
{
    const int length = vsnprintf(text, sizeof text, format, arguments);
    if (length < 0) {
        text[0] = '\0';
        return;
    }
    if (static_cast<size_t>(length) >= sizeof text)
        memcpy(text + sizeof text - 4, "...", 4);
    else if (length > 0 && text[length - 1] == '\n')
        text[length - 1] = '\0'; // the caller's line end
}

bool wants_colour()
{
    return isatty(STDERR_FILENO) == 1 && getenv("NO_COLOR") == nullptr;
}

void add_time(line_buffer &line)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char text[40];
    const size_t length = strftime(text, sizeof text, "%F %T", &local);
    snprintf(text + length, sizeof text - length, ".%03d ", static_cast<int>(now.tv_nsec / 1'000'000));
    line.add(text);
}

/// Apart from its caller, so that a trace that is not wanted costs a compare and no stack.
__attribute__((noinline, format(printf, 5, 0))) void
print_line(const char *file, int line, const char *module, int level, const char *format, va_list arguments)
{
    char text[TEXT_SIZE];
    format_text(text, format, arguments);

    const level_name name = name_of(level);
    const bool colour = wants_colour() && name.colour[0] != '\0';
    char place[120];
    snprintf(place, sizeof place, "%-8s %.40s/%.40s:%d: ", name.name, module, file, line);

    line_buffer out;
    add_time(out);
    if (colour)
        out.add(name.colour);
    out.add_visible(place);
    out.add_visible(text);
    if (colour)
        out.add("\x1b[0m");
    out.add('\n');
    // A trace that cannot be written has nowhere to be reported.
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, out.bytes.data(), out.used);
}

} // namespace

void QEP_TRACE_PrintInfo(const char *file, int line, int, const char *module, int level, const char *format,
                         ...)
{
    if (level > host_settings().trace_level)
        return;
    if (file == nullptr || module == nullptr || format == nullptr)
        return;
    va_list arguments;
    va_start(arguments, format);
    print_line(file, line, module, level, format, arguments);
    va_end(arguments);
}

void mlog_print(const char *module, int level, const char *format, ...)
{
    if (module == nullptr || format == nullptr)
        return;
    char text[TEXT_SIZE];
    va_list arguments;
    va_start(arguments, format);
    format_text(text, format, arguments);
    va_end(arguments);

    line_buffer out;
    out.add_visible(text);
    out.add('\0');
    syslog(LOG_DAEMON | name_of(level).priority, "%s: %s", module, out.bytes.data());
}
