// The fields of one report, and what handlers do with a field: compare its name, convert or copy its value. A missing
// value (nullptr) counts as an empty text everywhere. Main thread only.
#ifndef REPORT_FIELDS_H
#define REPORT_FIELDS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "at_parse.h"
#include "bounded.h"
#include "text_helpers.h"

/// Owns the field list of one report from a successful parse until release() or the end of the block, on every path.
/// A handler releases it before it notifies anybody; names and values are gone then.
class report_fields
{
public:
    report_fields(const char *prefix, const char *line) { parse(prefix, line); }
    ~report_fields()
    {
        if (owned)
            release();
    }
    report_fields(const report_fields &) = delete;
    report_fields &operator=(const report_fields &) = delete;

    /// Parses line as the report that prefix names, in place of what was held.
    void parse(const char *prefix, const char *line);
    void release();

    /// 0 for a parsed report, whose list may be empty, else the parser's error code.
    int32_t status() const { return parse_status; }
    bool empty() const { return list == nullptr; }
    const at_field *head() const { return list; }

    /// The value of the last field with this name, nullptr when it has none or there is no such field.
    const char *value_of(const char *name) const;

    class iterator
    {
    public:
        explicit iterator(const at_field *start) : field(start) {}
        const at_field &operator*() const { return *field; }
        iterator &operator++()
        {
            field = field->next;
            return *this;
        }
        bool operator==(const iterator &) const = default;

    private:
        const at_field *field;
    };
    iterator begin() const { return iterator(list); }
    iterator end() const { return iterator(nullptr); }

private:
    at_field *list = nullptr;
    int32_t parse_status = 0;
    bool owned = false; // a parse succeeded and its list, empty or not, was not released yet
};

/// A text for a trace: nullptr shows as empty.
inline const char *shown(const char *text)
{
    return text != nullptr ? text : "";
}

/// The linker keeps equal texts only once, so most names match without a comparison of their bytes.
inline bool is_named(const at_field &field, const char *name)
{
    const char *const own = shown(field.AtFieldName);
    return own == name || (own[0] == name[0] && strcmp(own, name) == 0);
}

/// Decimal text as the C library's atoi reads it (blanks, a sign, digits), but defined for every text: what does not
/// fit is the nearest 32-bit number, as atoi gives it where a long has 32 bits.
inline int32_t to_int(const char *text)
{
    return safe_atoi(text);
}

/// A sum that wraps around as the processor's does: hostile numbers reach it.
constexpr int32_t wrapping_sum(int32_t a, int32_t b)
{
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

/// Zeroes a record that was sent, so that nothing of a subscriber stays on the stack.
template <typename Record>
void wipe(Record &record)
{
    memset_s(&record, sizeof record, 0, sizeof record);
}

// The three ways of copying a value. Whatever the result, the buffer is terminated and zero behind its text.

/// Cuts a longer value to size - 1 characters. Negative when it was cut.
template <std::size_t size>
int format_cut(char (&buffer)[size], const char *value)
{
    wipe(buffer);
    return snprintf_s(buffer, size, size - 1, "%s", shown(value));
}

/// Refuses a value of size characters or more: the buffer is empty and the result negative.
template <std::size_t size>
int format_whole(char (&buffer)[size], const char *value)
{
    wipe(buffer);
    return snprintf_s(buffer, size, size, "%s", shown(value));
}

/// Refuses a value of size characters or more: the buffer is empty and the result not 0.
template <std::size_t size>
int copy_whole(char (&buffer)[size], const char *value)
{
    wipe(buffer);
    return strncpy_s(buffer, size, shown(value), VLK_strlen_s(value));
}

/// A field's name and the member of a record that takes its value: one row of a report with many fields.
template <typename Record, typename Value>
struct named_member {
    const char *name;
    Value Record::*member;
};

/// The member for this field, nullptr when no row has its name.
template <typename Record, typename Value, std::size_t rows>
Value Record::*member_of(const named_member<Record, Value> (&table)[rows], const at_field &field)
{
    const auto *row = std::ranges::find(table, field.AtFieldName, &named_member<Record, Value>::name);
    if (row == table + rows) // the same name may stand elsewhere in memory
        row = std::ranges::find_if(table, [&](const auto &each) { return is_named(field, each.name); });
    return row != table + rows ? row->member : nullptr;
}

#endif
