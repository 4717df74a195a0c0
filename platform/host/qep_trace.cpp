#include "qep_trace.h"

#include <cstdarg>
#include <cstdio>

#include "host_start.h"
#include "log_sink.h"
#include "log_text.h"

namespace
{
struct level_name {
    const char *name;
    int priority; ///< of syslog
};

level_name name_of(int level)
{
    if (level <= 2)
        return {"error", LOG_ERR};
    if (level <= 4)
        return {"minor", LOG_WARNING};
    if (level <= 8)
        return {"progress", LOG_INFO};
    return {"detail", LOG_DEBUG};
}

/// Not part of its caller, so that an unwanted trace costs a comparison and no stack.
__attribute__((noinline, format(printf, 5, 0))) void
print_line(const char *file, int line, const char *module, int level, const char *format, va_list arguments)
{
    char text[LOG_TEXT_SIZE];
    log_format(text, format, arguments);
    char whole[LOG_TEXT_SIZE + 120];
    const level_name name = name_of(level);
    snprintf(whole, sizeof whole, "%-8s %.40s/%.40s:%d: %s", name.name, module, file, line, text);
    log_sink_line(log_kind::TRACE, name.priority, whole);
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
    char text[LOG_TEXT_SIZE];
    if (module == nullptr || format == nullptr)
        return;
    va_list arguments;
    va_start(arguments, format);
    log_format(text, format, arguments);
    va_end(arguments);
    log_sink_syslog(name_of(level).priority, module, text);
}
