#include "host_log.h"

#include <cstdarg>
#include <cstdio>

void host_log(int priority, const char *format, ...)
{
    if (priority > LOG_INFO)
        return;
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    fprintf(stderr, "vorlink: %s\n", text);
}
