#include "modem_answers.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

using std::optional;
using std::string;
using std::string_view;

namespace
{
string_view trim(string_view text)
{
    const size_t begin = std::min(text.find_first_not_of(" \t"), text.size());
    return text.substr(begin, text.find_last_not_of(" \t") + 1 - begin);
}

string unquoted(string_view value)
{
    value = trim(value);
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
        value = value.substr(1, value.size() - 2);
    return string(value);
}

/// The parts of the text between commas that are outside quotation marks and parentheses.
std::vector<string_view> parts_of(string_view text)
{
    std::vector<string_view> parts;
    size_t begin = 0;
    int depth = 0;
    bool quoted = false;
    for (size_t at = 0; at < text.size(); at++) {
        const char c = text[at];
        if (c == '"')
            quoted = !quoted;
        if (quoted)
            continue;
        depth += c == '(' ? 1 : 0;
        depth -= c == ')' && depth > 0 ? 1 : 0;
        if (c == ',' && depth == 0) {
            parts.push_back(text.substr(begin, at - begin));
            begin = at + 1;
        }
    }
    parts.push_back(text.substr(begin));
    return parts;
}

/// What stands behind the first colon of a line that begins with a name; the whole line when it does not.
string_view content_of(string_view line)
{
    const size_t colon = line.find(':');
    const bool named = !line.empty() && (line[0] == '+' || line[0] == '^') && colon != string_view::npos;
    return trim(named ? line.substr(colon + 1) : line);
}

struct text_row {
    int number;
    const char *text;
};

template <size_t size>
const char *text_of(optional<int> number, const text_row (&rows)[size], const char *otherwise)
{
    const auto *row = std::ranges::find_if(rows, [number](const text_row &r) { return number == r.number; });
    return row == std::end(rows) ? otherwise : row->text;
}

string value_at(const std::vector<string> &values, size_t index)
{
    return index < values.size() ? values[index] : string();
}

optional<int> number_at(const std::vector<string> &values, size_t index)
{
    return number_in(value_at(values, index));
}

/// offset + step * index for 0 to last; none for anything else.
optional<double> scaled(optional<int> index, int last, double offset, double step)
{
    if (!index || *index < 0 || *index > last)
        return {};
    return offset + step * *index;
}

optional<double> hcsq_level(optional<int> index)
{
    return scaled(index, 96, -121, 1);
} // rssi, rscp
optional<double> hcsq_rsrp(optional<int> index)
{
    return scaled(index, 97, -141, 1);
}
optional<double> hcsq_sinr(optional<int> index)
{
    return scaled(index, 251, -20.2, 0.2);
}
optional<double> hcsq_rsrq(optional<int> index)
{
    return scaled(index, 34, -20, 0.5);
}
optional<double> hcsq_ecio(optional<int> index)
{
    return scaled(index, 65, -32.5, 0.5);
}

constexpr const char *SYSTEM_MODES[] = {"GSM", "WCDMA", "LTE", "CDMA", "EVDO", "TD-SCDMA", "CDMA-EVDO", "5G"};

signal_reading hcsq_reading(string technology, const std::vector<optional<int>> &values)
{
    const auto at = [&values](size_t index) {
        return index < values.size() ? values[index] : optional<int>{};
    };
    signal_reading reading;
    reading.technology = technology == "NR" ? "5G" : std::move(technology);
    if (reading.technology == "LTE") {
        reading.rssi = hcsq_level(at(0));
        reading.rsrp = hcsq_rsrp(at(1));
        reading.sinr = hcsq_sinr(at(2));
        reading.rsrq = hcsq_rsrq(at(3));
    } else if (reading.technology == "5G") {
        reading.rsrp = hcsq_rsrp(at(0));
        reading.sinr = hcsq_sinr(at(1));
        reading.rsrq = hcsq_rsrq(at(2));
    } else if (reading.technology == "WCDMA" || reading.technology == "TD-SCDMA") {
        reading.rssi = hcsq_level(at(0));
        reading.rscp = hcsq_level(at(1));
        reading.ecio = hcsq_ecio(at(2));
    } else if (reading.technology != "NOSERVICE") {
        reading.rssi = hcsq_level(at(0));
    }
    return reading;
}

struct thresholds {
    std::array<double, BARS> dbm; // from here on: one bar, two bars, ...
};

constexpr thresholds RSRP = {{-115, -105, -95, -85}};
constexpr thresholds RSCP = {{-105, -95, -85, -75}};
constexpr thresholds RSSI = {{-107, -95, -85, -75}};

void append_utf8(char32_t c, string &text)
{
    if (c < 0x80) {
        text += static_cast<char>(c);
        return;
    }
    const int more = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    constexpr unsigned char LEADS[] = {0, 0xC0, 0xE0, 0xF0};
    text += static_cast<char>(LEADS[more] | (c >> (6 * more)));
    for (int shift = 6 * (more - 1); shift >= 0; shift -= 6)
        text += static_cast<char>(0x80 | ((c >> shift) & 0x3F));
}

/// The 16-bit units of four hexadecimal digits each; none when the text is anything else.
optional<std::u16string> units_of(string_view text)
{
    std::u16string units;
    if (text.empty() || text.size() % 4 != 0)
        return {};
    for (size_t at = 0; at < text.size(); at += 4) {
        uint16_t unit = 0;
        const auto [end, failed] = std::from_chars(&text[at], &text[at] + 4, unit, 16);
        if (failed != std::errc{} || end != &text[at] + 4)
            return {};
        units += static_cast<char16_t>(unit);
    }
    return units;
}

string utf8_of(const std::u16string &units)
{
    constexpr char32_t REPLACEMENT = 0xFFFD;
    string text;
    for (size_t at = 0; at < units.size(); at++) {
        char32_t c = units[at];
        const bool low_follows = at + 1 < units.size() && (units[at + 1] & 0xFC00) == 0xDC00;
        if ((c & 0xFC00) == 0xD800 && low_follows)
            c = 0x10000 + ((c & 0x3FF) << 10) + (units[++at] & 0x3FF);
        else if ((c & 0xF800) == 0xD800)
            c = REPLACEMENT;
        append_utf8(c, text);
    }
    return text;
}

/// Data coding schemes for cell broadcast, which USSD uses: 0x11 is UCS-2 with a language, 01xx10xx general UCS-2.
bool is_ucs2(int scheme)
{
    return scheme == 0x11 || ((scheme & 0xC0) == 0x40 && (scheme & 0x0C) == 0x08);
}
} // namespace

std::vector<string> values_of(string_view line)
{
    std::vector<string> values;
    for (const string_view part : parts_of(content_of(line)))
        values.push_back(unquoted(part));
    return values;
}

optional<int> number_in(string_view value)
{
    int number = 0;
    const auto [end, failed] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (value.empty() || failed != std::errc{} || end != value.data() + value.size())
        return {};
    return number;
}

optional<double> strength_of(const signal_reading &reading)
{
    if (reading.rsrp)
        return reading.rsrp;
    return reading.rscp ? reading.rscp : reading.rssi;
}

int bars_of(const signal_reading &reading)
{
    const thresholds &steps = reading.rsrp ? RSRP : reading.rscp ? RSCP : RSSI;
    const optional<double> strength = strength_of(reading);
    return static_cast<int>(
        std::ranges::count_if(steps.dbm, [&](double step) { return strength && *strength >= step; }));
}

signal_reading signal_of_csq(string_view line)
{
    const optional<int> index = number_at(values_of(line), 0);
    signal_reading reading;
    reading.rssi = scaled(index, 31, -113, 2);
    if (index && *index >= 100) // TD-SCDMA
        reading.rscp = scaled(*index - 100, 91, -116, 1);
    return reading;
}

signal_reading signal_of_cesq(string_view line)
{
    const std::vector<string> values = values_of(line);
    signal_reading reading;
    reading.rssi = scaled(number_at(values, 0), 63, -111, 1);
    reading.rscp = scaled(number_at(values, 2), 96, -121, 1);
    reading.ecio = scaled(number_at(values, 3), 49, -24.5, 0.5);
    reading.rsrq = scaled(number_at(values, 4), 34, -20, 0.5);
    reading.rsrp = scaled(number_at(values, 5), 97, -141, 1);
    reading.technology = reading.rsrp ? "LTE" : reading.rscp ? "WCDMA" : reading.rssi ? "GSM" : "";
    if (const optional<double> rsrp = scaled(number_at(values, 7), 126, -157, 1)) {
        reading.technology = "5G";
        reading.rsrp = rsrp;
        reading.rsrq = scaled(number_at(values, 6), 126, -43.5, 0.5);
        reading.sinr = scaled(number_at(values, 8), 127, -23.5, 0.5);
    }
    return reading;
}

signal_reading signal_of_hcsq(string_view line)
{
    const std::vector<string> values = values_of(line);
    std::vector<optional<int>> numbers;
    for (size_t at = 1; at < values.size(); at++)
        numbers.push_back(number_in(values[at]));
    return hcsq_reading(value_at(values, 0), numbers);
}

signal_reading signal_of_hcsq(int sysmode, const std::vector<int> &values)
{
    const bool known = sysmode >= 0 && static_cast<size_t>(sysmode) < std::size(SYSTEM_MODES);
    return hcsq_reading(known ? SYSTEM_MODES[sysmode] : "NOSERVICE", {values.begin(), values.end()});
}

registration registration_of(string_view line)
{
    const std::vector<string> values = values_of(line);
    return {number_at(values, 1), value_at(values, 2), value_at(values, 3), number_at(values, 4)};
}

const char *registration_text(optional<int> state)
{
    static constexpr text_row ROWS[] = {{0, "not registered, not searching"},
                                        {1, "registered, home network"},
                                        {2, "not registered, searching"},
                                        {3, "registration denied"},
                                        {4, "unknown, out of coverage"},
                                        {5, "registered, roaming"},
                                        {6, "registered for SMS only, home network"},
                                        {7, "registered for SMS only, roaming"},
                                        {8, "emergency calls only"},
                                        {9, "registered without preferred CSFB, home network"},
                                        {10, "registered without preferred CSFB, roaming"}};
    return text_of(state, ROWS, "not told");
}

bool is_registered(optional<int> state)
{
    constexpr std::array REGISTERED = {1, 5, 6, 7, 9, 10};
    return state && std::ranges::find(REGISTERED, *state) != REGISTERED.end();
}

const char *technology_text(optional<int> act)
{
    static constexpr text_row ROWS[] = {
        {0, "GSM"},           {1, "GSM Compact"}, {2, "WCDMA"},         {3, "EDGE"},       {4, "HSDPA"},
        {5, "HSUPA"},         {6, "HSPA"},        {7, "LTE"},           {8, "EC-GSM-IoT"}, {9, "NB-IoT"},
        {10, "LTE, 5G core"}, {11, "5G"},         {12, "5G, LTE core"}, {13, "LTE and 5G"}};
    return text_of(act, ROWS, "unknown");
}

operator_name operator_of(string_view line)
{
    const std::vector<string> values = values_of(line);
    return {number_at(values, 0) != 1, value_at(values, 2), number_at(values, 3)};
}

std::vector<found_network> networks_of(string_view line)
{
    std::vector<found_network> networks;
    for (const string &part : values_of(line)) {
        if (part.size() < 2 || part.front() != '(' || part.back() != ')')
            continue;
        const std::vector<string> values = values_of(string_view(part).substr(1, part.size() - 2));
        if (values.size() < 4) // the lists of modes and formats at the end
            continue;
        if (values[3].size() >= 5 || !values[1].empty())
            networks.push_back({number_in(values[0]), values[1], values[2], values[3], number_at(values, 4)});
    }
    return networks;
}

const char *network_state_text(optional<int> state)
{
    static constexpr text_row ROWS[] = {{1, "available"}, {2, "current"}, {3, "forbidden"}};
    return text_of(state, ROWS, "unknown");
}

string sim_state_text(string_view line)
{
    struct row {
        string_view code;
        const char *text;
    };
    static constexpr row STATES[] = {
        {"READY", "ready"},
        {"SIM PIN", "locked: the PIN is wanted"},
        {"SIM PUK", "blocked: the PUK is wanted"},
        {"SIM PIN2", "PIN2 is wanted"},
        {"SIM PUK2", "PUK2 is wanted"},
        {"PH-SIM PIN", "the phone is locked to another SIM: its code is wanted"},
        {"PH-NET PIN", "the phone is locked to a network: its code is wanted"},
    };
    static constexpr row ERRORS[] = {
        {"10", "no SIM inserted"}, {"SIM not inserted", "no SIM inserted"},
        {"13", "the SIM failed"},  {"SIM failure", "the SIM failed"},
        {"14", "the SIM is busy"}, {"SIM busy", "the SIM is busy"},
        {"15", "wrong SIM"},       {"SIM wrong", "wrong SIM"},
    };
    const string code(content_of(line));
    const bool error = line.starts_with("+CME ERROR");
    const std::vector<row> rows = error ? std::vector<row>(std::begin(ERRORS), std::end(ERRORS))
                                        : std::vector<row>(std::begin(STATES), std::end(STATES));
    const auto found = std::ranges::find(rows, string_view(code), &row::code);
    return found == rows.end() ? code : found->text;
}

optional<int> tries_of(string_view line)
{
    const std::vector<string> values = values_of(line);
    if (line.starts_with("^CPIN:") && values.size() >= 4 && value_at(values, 1).empty())
        return number_at(values, 3); // nothing is wanted: those of the PIN
    return number_at(values, 1);
}

string digits_of(string_view line)
{
    const std::vector<string> values = values_of(line);
    const string &value = values[0];
    const bool digits = value.size() >= 10 && std::ranges::all_of(value, [](unsigned char c) {
                            return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
                        });
    return digits ? value : string();
}

string ussd_text(string_view text, int scheme)
{
    const optional<std::u16string> units = is_ucs2(scheme) ? units_of(text) : std::nullopt;
    return units ? utf8_of(*units) : string(text);
}
