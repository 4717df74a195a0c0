#include "report_fields.h"

#include <algorithm>
#include <cstdlib>

void report_fields::parse(const char *prefix, const char *line)
{
    release();
    parse_status = at_cmd_parse(&list, prefix, line, 0, 3);
    owned = parse_status == 0;
    if (!owned)
        list = nullptr; // not a list, whatever it holds
}

void report_fields::release()
{
    if (owned)
        free_at_cmd(list);
    list = nullptr;
    owned = false;
}

int32_t to_int(const char *text)
{
    const long number = strtol(shown(text), nullptr, 10);
    return static_cast<int32_t>(std::clamp<long>(number, INT32_MIN, INT32_MAX));
}
