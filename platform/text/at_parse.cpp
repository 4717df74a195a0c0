// Report parsing: one table of templates, one scanner. A list is one block: its nodes, then a copy of the text behind
// the prefix, in which every value is terminated where it stands.
#include "at_parse.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

#include "text/at_parse_status.h"
#include "text_helpers.h"

namespace
{

constexpr int KIND_REPORT = 3;
constexpr std::size_t MAX_NAMES = 18;

enum class layout {
    fixed,    // at most the named fields
    open,     // any number: the last name serves all further values
    with_pdu, // a header line, then the PDU on the next one; a short header lacks its first values
};

struct report_template {
    std::string_view prefix;
    layout form;
    std::array<const char *, MAX_NAMES> names; // in the order of the report, then null
    std::ptrdiff_t count = std::ranges::find(names, nullptr) - names.begin();

    constexpr std::size_t size() const { return static_cast<std::size_t>(count); }

    /// size() when there is no such name.
    std::size_t index_of(const char *name) const
    {
        std::size_t index = 0;
        while (index != size() && names[index] != name && safe_strcmp(names[index], name) != 0)
            ++index;
        return index;
    }
};

constexpr report_template templates[] = {
    {"+C5GREG", layout::fixed, {"stat", "tac", "ci", "AcT"}},
    {"+CBM", layout::with_pdu, {"length"}},
    {"+CDS", layout::with_pdu, {"length"}},
    {"+CDSI", layout::fixed, {"mem", "index"}},
    {"+CGREG", layout::fixed, {"stat", "lac", "ci", "AcT"}},
    {"+CMT", layout::with_pdu, {"alpha", "length"}},
    {"+CMTI", layout::fixed, {"mem", "index"}},
    {"+CREG", layout::fixed, {"stat", "lac", "ci", "AcT"}},
    {"+CSSI", layout::fixed, {"code1", "index"}},
    {"+CSSU", layout::fixed, {"code2", "index", "number", "type"}},
    {"+CUSD", layout::fixed, {"rspType", "cusdStr", "codeType"}},
    {"^ANLEVEL", layout::fixed, {"level", "rscp", "ecio", "rssi", "rsrp", "rsrq"}},
    {"^APDIALUPRPT", layout::fixed, {"state"}},
    {"^APROAMRPT", layout::fixed, {"roaming_status"}},
    {"^CERSSI",
     layout::fixed,
     {"rssi", "rscp", "ecio", "rsrp", "rsrq", "rssnr", "ri", "cqi0", "cqi1", "rfnum", "rsrp1", "rsrp2",
      "rsrp3", "rsrp4", "sinr1", "sinr2", "sinr3", "sinr4"}},
    {"^CSERSSI", layout::fixed, {"5grsrp", "5grsrq", "5grssnr"}},
    {"^DCONN", layout::fixed, {"cid", "pdp_type"}},
    {"^DEND", layout::fixed, {"cid", "pdp_type"}},
    {"^DSFLOWRPT",
     layout::fixed,
     {"curr_ds_time", "tx_rate", "rx_rate", "curr_tx_flow", "curr_rx_flow", "qos_tx_rate", "qos_rx_rate"}},
    {"^HCMGSF", layout::fixed, {"errCode"}},
    {"^HCMGSS", layout::fixed, {"mr"}},
    {"^HCSQ", layout::fixed, {"sysmode", "value1", "value2", "value3", "value4", "value5"}},
    {"^HFREQINFO",
     layout::fixed,
     {"switch", "sysmode", "band_class", "dl_fcn1", "dl_freq1", "dl_bw1", "ul_fcn1", "ul_freq1", "ul_bw1"}},
    {"^HSRCELLINFO", layout::fixed, {"Rat", "HighSpeedFlg", "CellIdLowBit", "CellIdHighBit"}},
    {"^LENDC", layout::fixed, {"endc_available", "endc_plmn_available", "endc_restricted", "nr_pscell"}},
    {"^LTESIGLEV", layout::fixed, {"level"}},
    {"^MODE", layout::fixed, {"sys_mode", "sys_submode"}},
    {"^NDISSTAT", layout::fixed, {"stat", "err_code", "wx_state", "PDP_type"}},
    {"^NDISSTATEX", layout::fixed, {"cid", "stat", "err_code", "wx_state", "PDP_type"}},
    {"^NETSCAN", layout::fixed, {"5grsrp", "5grssnr"}},
    {"^NWTIME", layout::fixed, {"date", "time"}},
    {"^PLMN", layout::fixed, {"mcc", "mnc"}},
    {"^REJINFO",
     layout::fixed,
     {"plmnid", "srvdomain", "rejectcause", "rattype", "rejectType", "rejectOriginalCause", "rejectLac",
      "rejectRac", "rejectCellId", "rejectEsmCause"}},
    {"^REPORTLINEINDEX",
     layout::open,
     {"name", "index1", "index2", "index3", "index4", "index5", "index6", "index7", "index8", "index9",
      "index10", "index"}},
    {"^REPORTLINERPLMN", layout::fixed, {"plmn"}},
    {"^RRCSTAT", layout::fixed, {"state"}},
    {"^SIMREFRESH", layout::fixed, {"file_type"}},
    {"^SIMST", layout::fixed, {"sim_state", "lock_state"}},
    {"^SMMEMFULL", layout::fixed, {"mem_type"}},
    {"^SRVST", layout::fixed, {"srv_status"}},
    {"^STIN", layout::fixed, {"cmdTpye", "cmdIndex", "isTimeOut"}},
    {"^TEMPPRT", layout::fixed, {"tempprotect_event", "tempprotect_param"}},
    {"^WAKEUPIN", layout::fixed, {"value"}},
};
constexpr uint8_t NO_TEMPLATE = 255;
constexpr uint32_t FACTOR = 2654435853U;

/// A number made from four properties of a prefix of at least two bytes; no two templates share one.
constexpr std::size_t slot_of(std::string_view prefix)
{
    const auto byte = [&](std::size_t at) { return uint32_t{static_cast<unsigned char>(prefix[at])}; };
    const std::size_t size = prefix.size();
    const uint32_t key =
        byte(1) << 24 | byte(size / 2) << 16 | byte(size - 1) << 8 | static_cast<uint8_t>(size);
    return (key * FACTOR) >> 24;
}

constexpr auto TEMPLATE_IN_SLOT = [] {
    std::array<uint8_t, 256> rows{};
    rows.fill(NO_TEMPLATE);
    for (std::size_t row = 0; row < std::size(templates); ++row) {
        uint8_t &slot = rows[slot_of(templates[row].prefix)];
        if (slot != NO_TEMPLATE)
            std::abort(); // two have the same slot: the compiler stops here, try another odd FACTOR
        slot = static_cast<uint8_t>(row);
    }
    return rows;
}();

constexpr const report_template *find_template(std::string_view prefix)
{
    if (prefix.size() < 2)
        return nullptr;
    const std::size_t row = TEMPLATE_IN_SLOT[slot_of(prefix)];
    return row != NO_TEMPLATE && templates[row].prefix == prefix ? &templates[row] : nullptr;
}

/// Finds the values: what stands behind the first occurrence of prefix that a ':' or the line's end follows.
at_parse_status find_values(std::string_view line, std::string_view prefix, std::string_view *values)
{
    at_parse_status status = AT_PARSE_NO_PREFIX;
    for (std::size_t at = line.starts_with(prefix) ? 0 : line.find(prefix); at != line.npos;
         at = line.find(prefix)) {
        line.remove_prefix(at + prefix.size());
        if (line.empty() || line.front() == ':') {
            line.remove_prefix(line.empty() ? 0 : 1);
            *values = line;
            return AT_PARSE_OK;
        }
        status = AT_PARSE_NO_SEPARATOR; // part of a longer word: look further
    }
    return status;
}

constexpr bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

constexpr bool is_line_break(char c)
{
    return c == '\r' || c == '\n';
}

char *skip_blanks(char *text)
{
    while (is_blank(*text))
        ++text;
    return text;
}

/// Takes values out of a text, one after the other, terminating each where it stands.
class value_scanner
{
public:
    value_scanner(char *text, layout form) : next(text), breaks_end(form == layout::with_pdu) {}

    bool at_line_end() const { return ends_line(*skip_blanks(next)); }

    /// Takes one value; true when a comma and so another value follows.
    bool take(const char **value)
    {
        char *start = skip_blanks(next);
        char *end = *start == '"' ? take_quoted(++start) : take_plain(start);
        const char separator = *next;
        if (separator != '\0')
            ++next;
        *end = '\0';
        *value = start;
        return separator == ',';
    }

    /// Takes the first line that is not empty, without the blanks around it.
    const char *take_line()
    {
        while (is_blank(*next) || is_line_break(*next))
            ++next;
        char *start = next;
        while (!ends_line(*next))
            ++next;
        *trim(start, next) = '\0';
        return start;
    }

private:
    bool ends_line(char c) const { return c == '\0' || (breaks_end && is_line_break(c)); }
    bool ends_value(char c) const { return c == ',' || ends_line(c); }

    static char *trim(const char *start, char *end)
    {
        while (end != start && is_blank(end[-1]))
            --end;
        return end;
    }

    char *take_plain(char *start)
    {
        next = start;
        while (!ends_value(*next))
            ++next;
        return trim(start, next);
    }

    /// The closing quote is the first one behind which the value ends. Without one the text ends with its line.
    char *take_quoted(char *start)
    {
        for (char *quote = std::strchr(start, '"'); quote != nullptr; quote = std::strchr(quote + 1, '"')) {
            next = skip_blanks(quote + 1);
            if (ends_value(*next))
                return quote;
        }
        next = start;
        while (!ends_line(*next))
            ++next;
        return next;
    }

    char *next;
    bool breaks_end; // a line break ends a line; otherwise it is text
};

struct field_list {
    at_field *nodes;
    std::size_t capacity;
    std::size_t count = 0;

    void add(const char *name, const char *value)
    {
        if (count == capacity)
            return;
        at_field *node = new (&nodes[count]) at_field{name, value, 0, nullptr};
        if (count != 0)
            nodes[count - 1].next = node;
        ++count;
    }
};

void scan_fields(const report_template &form, value_scanner scanner, field_list &list)
{
    if (scanner.at_line_end())
        return;
    const std::size_t last_name = form.size() - 1;
    const char *value = nullptr;
    for (bool more = true; more && list.count != list.capacity;) {
        more = scanner.take(&value);
        list.add(form.names[std::min(list.count, last_name)], value);
    }
}

void scan_header_and_pdu(const report_template &form, value_scanner scanner, field_list &list)
{
    std::array<const char *, MAX_NAMES> header{};
    std::size_t count = 0;
    const char *value = nullptr;
    for (bool more = !scanner.at_line_end(); more;) {
        more = scanner.take(&value);
        if (count != form.size())
            header[count++] = value;
    }
    const std::size_t lacking = form.size() - count;
    for (std::size_t i = 0; i < count; ++i)
        list.add(form.names[lacking + i], header[i]);
    const char *pdu = scanner.take_line();
    if (*pdu != '\0')
        list.add("pdu", pdu);
}

/// Upper bound of the number of fields in a report with these values.
std::size_t most_fields(const report_template &form, std::string_view values)
{
    if (form.form == layout::open)
        return static_cast<std::size_t>(std::ranges::count(values, ',')) + 1;
    return form.size() + (form.form == layout::with_pdu ? 1U : 0U);
}

/// A list is put here, or in a heap block when this room is taken or too small.
alignas(at_field) char list_room[1024];
bool list_room_taken = false;

void *take_block(std::size_t size)
{
    if (list_room_taken || size > sizeof list_room)
        return std::malloc(size);
    list_room_taken = true;
    return list_room;
}

void give_back(void *block)
{
    if (block == list_room)
        list_room_taken = false;
    else
        std::free(block);
}

constexpr const report_template *HFREQ_TEMPLATE = find_template("^HFREQINFO");
constexpr std::size_t HFREQ_WORDS = 9;
static_assert(HFREQ_TEMPLATE->size() == HFREQ_WORDS);

} // namespace

int at_cmd_parse(at_field **head, const char *prefix, const char *line, int reserved, int kind)
{
    if (head == nullptr || prefix == nullptr || line == nullptr || reserved != 0 || kind != KIND_REPORT)
        return AT_PARSE_BAD_ARGUMENT;
    const report_template *form = find_template(prefix);
    if (form == nullptr)
        return AT_PARSE_UNKNOWN_REPORT;
    std::string_view values;
    if (const at_parse_status status = find_values(line, form->prefix, &values); status != AT_PARSE_OK)
        return status;

    const std::size_t capacity = most_fields(*form, values);
    void *block = take_block(capacity * sizeof(at_field) + values.size() + 1);
    if (block == nullptr)
        return AT_PARSE_NO_MEMORY;
    field_list list{static_cast<at_field *>(block), capacity};
    char *text = static_cast<char *>(block) + capacity * sizeof(at_field);
    std::memcpy(text, values.data(), values.size());
    text[values.size()] = '\0';

    const value_scanner scanner(text, form->form);
    if (form->form == layout::with_pdu)
        scan_header_and_pdu(*form, scanner, list);
    else
        scan_fields(*form, scanner, list);

    if (list.count == 0) {
        give_back(block);
        *head = nullptr;
        return AT_PARSE_OK;
    }
    *head = list.nodes;
    return AT_PARSE_OK;
}

void free_at_cmd(at_field *head)
{
    give_back(head); // the first node begins the block
}

int ParseHfreqInfoResult(const at_field *fields, hfreq_info_holder *holder)
{
    if (holder == nullptr)
        return AT_PARSE_BAD_ARGUMENT;
    *holder = {};
    std::array<int32_t, HFREQ_WORDS> words{};
    bool found = false; // a value behind the switch
    for (const at_field *field = fields; field != nullptr; field = field->next) {
        const std::size_t index = HFREQ_TEMPLATE->index_of(field->AtFieldName);
        if (index == HFREQ_WORDS)
            continue;
        words[index] = safe_atoi(field->AtFieldValue);
        found = found || (index != 0 && VLK_strlen_s(field->AtFieldValue) != 0);
    }
    if (!found)
        return AT_PARSE_NO_RECORD;
    auto *record = static_cast<int32_t *>(std::malloc(sizeof words));
    if (record == nullptr)
        return AT_PARSE_NO_MEMORY;
    std::memcpy(record, words.data(), sizeof words);
    holder->first = record;
    return AT_PARSE_OK;
}

void HfreqInfoExFree(hfreq_info_holder *holder)
{
    if (holder == nullptr)
        return;
    std::free(const_cast<int32_t *>(holder->first));
    *holder = {};
}
