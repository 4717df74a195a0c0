#include "report_fields.h"

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

const char *report_fields::value_of(const char *name) const
{
    const char *value = nullptr;
    for (const at_field &field : *this) {
        if (is_named(field, name))
            value = field.AtFieldValue;
    }
    return value;
}
