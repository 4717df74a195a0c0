#include "port_text_mode.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

#include "sms/pdu.h"

using std::string;
using std::string_view;

namespace
{
constexpr string_view INVALID_TEXT_PARAMETER = "+CMS ERROR: 305";
constexpr std::array<string_view, 5> STATES = {"REC UNREAD", "REC READ", "STO UNSENT", "STO SENT", "ALL"};
constexpr unsigned ASKS_FOR_REPORT = 0x20; // in the first octet
constexpr unsigned VALIDITY_MASK = 0x18;
constexpr unsigned VALIDITY_RELATIVE = 0x10;
constexpr int INTERNATIONAL = 145;
constexpr int NATIONAL = 129;

string_view unquoted(string_view value)
{
    const size_t begin = value.find('"');
    const size_t end = value.rfind('"');
    return begin == string_view::npos || end <= begin ? value : value.substr(begin + 1, end - begin - 1);
}

string quoted(string_view text)
{
    return '"' + string(text) + '"';
}

int number_or(string_view text, int otherwise)
{
    int number = otherwise;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

string character_set(const port_settings &settings)
{
    return string(unquoted(settings.value(*find_port_setting("+CSCS"))));
}

string hex_of_units(std::u16string_view units)
{
    string octets;
    for (const char16_t unit : units) {
        octets += static_cast<char>(unit >> 8);
        octets += static_cast<char>(unit & 0xFF);
    }
    return sms::hex_of(octets);
}

string hex_of_utf8(string_view utf8)
{
    std::u16string units;
    sms::utf16_of(utf8, units);
    return hex_of_units(units);
}

/// What the program typed as UTF-8. False when it is nothing in its character set.
bool utf8_of(string_view typed, const string &set, string &utf8)
{
    if (set == "UCS2") {
        string octets;
        if (!sms::octets_of_hex(typed, octets) || octets.size() % 2 != 0)
            return false;
        utf8 = sms::text_of(sms::alphabet::ucs2, sms::units_of_octets(octets));
        return true;
    }
    if (set == "UTF-8") {
        utf8 = typed;
        return true;
    }
    std::u16string units; // GSM: septets; else Latin-1, whose first half is IRA
    for (const char c : typed)
        units += static_cast<char16_t>(static_cast<unsigned char>(c));
    utf8 = sms::text_of(set == "GSM" ? sms::alphabet::gsm7 : sms::alphabet::ucs2, units);
    return true;
}

/// A message in the program's character set.
string shown_text(const sms::content &data, const string &set)
{
    string utf8 = sms::text_of(data);
    if (data.coding == sms::alphabet::octets || set == "UTF-8")
        return utf8;
    if (set == "UCS2")
        return hex_of_utf8(utf8);
    if (data.coding == sms::alphabet::ucs2)
        return hex_of_units(data.units);
    string shown;
    if (set == "GSM") {
        for (const char16_t septet : data.units)
            shown += static_cast<char>(septet);
        return shown;
    }
    std::u16string units;
    sms::utf16_of(utf8, units);
    for (const char16_t unit : units)
        shown += unit < (set == "8859-1" ? 0x100 : 0x80) ? static_cast<char>(unit) : '?';
    return shown;
}

string shown_number(const sms::address &number, const string &set)
{
    const string text = sms::text_of(number);
    return quoted(set == "UCS2" ? hex_of_utf8(text) : text);
}

int type_of_address(const sms::address &number)
{
    return 128 + 16 * static_cast<int>(number.type) + number.plan;
}

string shown_time(const std::optional<sms::timestamp> &time)
{
    if (!time)
        return quoted("");
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "\"%02d/%02d/%02d,%02d:%02d:%02d%c%02d\"", time->year % 100,
                  time->month, time->day, time->hour, time->minute, time->second, time->zone < 0 ? '-' : '+',
                  std::abs(time->zone) / 15);
    return text.data();
}

/// What stands behind the index and state in the head of a message.
string head_of(const sms::pdu &message, bool is_list, const port_settings &settings)
{
    const string set = character_set(settings);
    const bool details = settings.number("+CSDH", 0) == 1;
    const string number = shown_number(message.peer, set);
    const string type = std::to_string(type_of_address(message.peer));
    const string length = std::to_string(message.data.units.size());
    if (message.type == sms::pdu_type::status_report)
        return "6," + std::to_string(message.reference) + "," + number + "," + type + "," +
               shown_time(message.time) + "," + shown_time(message.discharge) + "," +
               std::to_string(message.status);
    string head = number + ",";
    if (message.type == sms::pdu_type::deliver)
        head += "," + shown_time(message.time);
    else if (is_list)
        head += ",";
    if (details && is_list)
        head += "," + type + "," + length;
    else if (details)
        head += "," + type + ",4," + std::to_string(message.protocol) + ",0," +
                shown_number(message.smsc, set) + "," + std::to_string(type_of_address(message.smsc)) + "," +
                length;
    return head;
}

string with_line_ends(string_view text)
{
    string out;
    for (const char c : text)
        out += c == '\n' ? string("\r\n") : string(1, c);
    return out;
}

/// Octets that the head names as its last value, -1 without.
int announced_octets(string_view head)
{
    const std::vector<string> values = split_values(head);
    return number_or(values.back(), -1);
}
} // namespace

port_submission submission_of(string_view command, string_view text, const port_settings &settings)
{
    port_submission refused{"", "", string(INVALID_TEXT_PARAMETER)};
    const size_t equals = command.find('=');
    const string name(command.substr(0, equals));
    const std::vector<string> values =
        split_values(equals == string_view::npos ? string_view() : command.substr(equals + 1));
    const string set = character_set(settings);
    sms::pdu message;
    string number;
    string utf8;
    if (!utf8_of(unquoted(values[0]), set, number) || !utf8_of(text, set, utf8))
        return refused;
    if (!number.empty() && sms::parse_number(number, message.peer) != nullptr)
        return refused;
    if (values.size() > 1 && number_or(values[1], NATIONAL) == INTERNATIONAL)
        message.peer.type = sms::number_type::international;

    const std::vector<string> form = split_values(settings.value(*find_port_setting("+CSMP")));
    const auto first_octet = static_cast<unsigned>(number_or(form[0], 17));
    message.report = (first_octet & ASKS_FOR_REPORT) != 0;
    if ((first_octet & VALIDITY_MASK) == VALIDITY_RELATIVE) {
        message.validity = sms::validity_form::relative;
        message.validity_octets[0] = static_cast<uint8_t>(form.size() > 1 ? number_or(form[1], 167) : 167);
    }
    message.protocol = static_cast<uint8_t>(form.size() > 2 ? number_or(form[2], 0) : 0);

    std::vector<sms::content> parts;
    if (sms::split_text(utf8, {}, parts) != nullptr || parts.size() != 1)
        return refused;
    message.data = parts[0];
    port_submission submission;
    if (sms::encode_pdu(message, submission.pdu) != nullptr)
        return refused;
    submission.command = name + "=" + std::to_string(submission.pdu.size() / 2 - 1);
    const auto *const state =
        values.size() > 2 ? std::ranges::find(STATES, unquoted(values[2])) : STATES.end();
    if (state != STATES.end())
        submission.command += "," + std::to_string(state - STATES.begin());
    return submission;
}

string list_in_pdu_mode(string_view parameter)
{
    const string_view wanted = parameter.empty() ? STATES[0] : unquoted(parameter);
    const auto *const state = std::ranges::find(STATES, wanted);
    return state == STATES.end() ? string() : "+CMGL=" + std::to_string(state - STATES.begin());
}

std::vector<string> text_mode_lines(const std::vector<string> &lines, const port_settings &settings)
{
    std::vector<string> shown;
    for (size_t at = 0; at < lines.size(); at++) {
        const string_view head = lines[at];
        const bool is_list = head.starts_with("+CMGL:");
        sms::pdu message;
        const bool is_head = (is_list || head.starts_with("+CMGR:")) && at + 1 < lines.size();
        if (!is_head || sms::decode_pdu(lines[at + 1], announced_octets(head), message) != nullptr) {
            shown.emplace_back(head);
            continue;
        }
        const std::vector<string> values = split_values(head.substr(7));
        const auto state = static_cast<size_t>(number_or(values[is_list && values.size() > 1 ? 1 : 0], 1));
        shown.push_back(string(head.substr(0, 7)) + (is_list ? values[0] + "," : "") +
                        quoted(STATES[std::min(state, STATES.size() - 2)]) + "," +
                        head_of(message, is_list, settings));
        if (message.type != sms::pdu_type::status_report)
            shown.push_back(with_line_ends(shown_text(message.data, character_set(settings))));
        at++;
    }
    return shown;
}

string text_mode_report(string_view report, const port_settings &settings)
{
    const size_t end = report.find("\r\n");
    sms::pdu message;
    const bool is_one = report.starts_with("+CMT:") || report.starts_with("+CDS:");
    if (!is_one || end == string_view::npos ||
        sms::decode_pdu(report.substr(end + 2), announced_octets(report.substr(0, end)), message) != nullptr)
        return string(report);
    if (message.type == sms::pdu_type::status_report)
        return "+CDS: " + head_of(message, false, settings);
    return "+CMT: " + head_of(message, false, settings) + "\r\n" +
           with_line_ends(shown_text(message.data, character_set(settings)));
}
