#include "response_collection.h"

#include <cstring>

#include "bounded.h"

char line_buf[LINE_BUF_SIZE];
char nas_response_buf[MAX_ATCMD_REPORT_SIZE];
uint32_t nas_response_legth = 0;

void collection_append(const char *text, uint32_t n)
{
    if (nas_response_legth <= MAX_ATCMD_REPORT_SIZE)
        memcpy_s(nas_response_buf + nas_response_legth, MAX_ATCMD_REPORT_SIZE - nas_response_legth, text, n);
    nas_response_legth += n;
}

void line_clear()
{
    line_buf[0] = '\0';
}

void line_put_back_end(uint32_t length)
{
    line_buf[length] = '\r';
    line_buf[length + 1] = '\n';
    line_buf[length + 2] = '\0';
}
