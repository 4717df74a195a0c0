#include "sms_view.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <langinfo.h>
#include <unistd.h>

#include "ctl_output.h"
#include "sent_log.h"

using nlohmann::ordered_json;
using std::string;
using std::string_view;

namespace
{
bool shows_utf8()
{
    static const bool shown = [] {
        if (isatty(STDOUT_FILENO) == 0)
            return true;
        std::setlocale(LC_CTYPE, "");
        return std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
    }();
    return shown;
}

bool is_control(char16_t unit)
{
    const bool turns = unit == 0x061C || unit == 0x200E || unit == 0x200F ||
                       (unit >= 0x202A && unit <= 0x202E) || (unit >= 0x2066 && unit <= 0x2069);
    return turns || (unit < ' ' && unit != u'\n') || (unit >= 0x7F && unit < 0xA0) || unit == 0x2028 ||
           unit == 0x2029;
}

string escaped(char16_t unit)
{
    char text[12];
    std::snprintf(text, sizeof text, unit < 0x80 ? "\\x%02X" : "\\u%04X", static_cast<unsigned>(unit));
    return text;
}

string indented(string_view text)
{
    string lines = "    ";
    for (const char c : text) {
        lines += c;
        if (c == '\n')
            lines += "    ";
    }
    return lines;
}

/// "2026-03-01 10:00:00 +02:00".
string person_time(const sms::timestamp &time)
{
    string text = sms::text_of(time);
    text[10] = ' ';
    return text.insert(19, " ");
}

string local_time(int64_t seconds)
{
    const auto time = static_cast<time_t>(seconds);
    tm parts{};
    char text[40] = "";
    if (localtime_r(&time, &parts) != nullptr)
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    return text;
}

/// Of the parts that are there; a message that is not in a store has none.
std::vector<int64_t> indexes_of(const sms::message &message)
{
    std::vector<int64_t> indexes;
    std::ranges::copy_if(message.places, std::back_inserter(indexes),
                         [](int64_t place) { return place >= 0; });
    return indexes;
}

string joined(const std::vector<int64_t> &numbers)
{
    string text;
    for (const int64_t number : numbers)
        text += (text.empty() ? "" : ",") + std::to_string(number);
    return text;
}

string place_text(const std::vector<int64_t> &indexes, const sms::stored *stored)
{
    return stored == nullptr ? "" : "[" + joined(indexes) + "] " + sms::name_of(stored->status) + ", ";
}

std::vector<int64_t> missing_parts(const sms::message &message)
{
    std::vector<int64_t> missing;
    for (size_t at = 0; at < message.places.size(); at++)
        if (message.places[at] < 0)
            missing.push_back(static_cast<int64_t>(at + 1));
    return missing;
}

string report_text(const sms::pdu &report)
{
    string text = "delivery report: to " + visible_text(sms::text_of(report.peer)) + ", reference " +
                  std::to_string(report.reference) + ": " + sms::text_of_status(report.status);
    if (report.discharge)
        text += ", " + person_time(*report.discharge);
    const auto sent = find_sent(report.reference, report.peer.number);
    if (!sent)
        return text;
    text += "\n    sent " + local_time(sent->time);
    if (sent->parts > 1)
        text += ", part " + std::to_string(sent->part) + " of " + std::to_string(sent->parts);
    return text;
}

void add_report(ordered_json &object, const sms::pdu &report)
{
    constexpr const char *FATES[] = {"delivered", "pending", "failed"};
    object["reference"] = report.reference;
    object["status_code"] = report.status;
    object["fate"] = FATES[static_cast<size_t>(sms::fate_of(report.status))];
    object["status_text"] = sms::text_of_status(report.status);
    if (report.discharge)
        object["discharged"] = sms::text_of(*report.discharge);
    if (const auto sent = find_sent(report.reference, report.peer.number))
        object["sent"] = {{"time", sent->time}, {"part", sent->part}, {"parts", sent->parts}};
}

string heading_of(const sms::message &message)
{
    const sms::pdu &first = message.first;
    const string peer = visible_text(sms::text_of(first.peer));
    string text = (first.type == sms::pdu_type::submit ? "to " : "from ") + (peer.empty() ? "nobody" : peer);
    if (first.type == sms::pdu_type::deliver)
        text += first.time ? ", " + person_time(*first.time) : ", without a time";
    if (first.data.message_class == 0)
        text += ", flash";
    if (first.data.compressed)
        text += ", compressed";
    else if (first.data.coding == sms::alphabet::octets)
        text += ", 8-bit data";
    if (!message.whole())
        text += ", parts missing: " + joined(missing_parts(message)) + " of " +
                std::to_string(message.places.size());
    return text;
}

void add_place(ordered_json &object, const std::vector<int64_t> &indexes, const sms::stored *stored)
{
    if (stored == nullptr)
        return;
    object["index"] = indexes;
    object["status"] = sms::name_of(stored->status);
}
} // namespace

string visible_text(string_view utf8)
{
    std::u16string units;
    sms::utf16_of(utf8, units);
    string text;
    for (size_t at = 0; at < units.size(); at++) {
        const size_t whole = sms::whole_units(sms::alphabet::ucs2, units[at]);
        if (is_control(units[at]) || (units[at] >= 0x7F && !shows_utf8())) {
            text += units[at] == u'\r' ? "" : escaped(units[at]);
            continue;
        }
        text += sms::text_of(sms::alphabet::ucs2, std::u16string_view(units).substr(at, whole));
        at += whole - 1;
    }
    return text;
}

string message_text(const sms::message &message, const sms::stored *stored)
{
    const string place = place_text(indexes_of(message), stored);
    if (message.first.type == sms::pdu_type::status_report)
        return place + report_text(message.first);
    return place + heading_of(message) + "\n" + indented(visible_text(message.text()));
}

ordered_json message_json(const sms::message &message, const sms::stored *stored)
{
    constexpr const char *TYPES[] = {"received", "outgoing", "report"};
    const sms::pdu &first = message.first;
    ordered_json object;
    object["type"] = TYPES[static_cast<size_t>(first.type)];
    add_place(object, indexes_of(message), stored);
    object[first.type == sms::pdu_type::deliver ? "from" : "to"] = sms::text_of(first.peer);
    if (!first.smsc.number.empty())
        object["smsc"] = sms::text_of(first.smsc);
    if (first.time)
        object["time"] = sms::text_of(*first.time);
    if (first.type == sms::pdu_type::status_report) {
        add_report(object, first);
        return object;
    }
    object["alphabet"] = sms::name_of(first.data.coding);
    if (first.data.message_class >= 0)
        object["class"] = first.data.message_class;
    object["parts"] = message.places.size();
    if (!message.whole())
        object["missing"] = missing_parts(message);
    object[first.data.coding == sms::alphabet::octets ? "data" : "text"] = message.text();
    return object;
}

string unreadable_text(string_view pdu, const char *why, const sms::stored *stored)
{
    const std::vector<int64_t> indexes = {stored == nullptr ? -1 : stored->index};
    return place_text(indexes, stored) + "cannot be read: " + why + "\n" + indented(visible_text(pdu));
}

ordered_json unreadable_json(string_view pdu, const char *why, const sms::stored *stored)
{
    ordered_json object = {{"type", "unreadable"}};
    add_place(object, {stored == nullptr ? -1 : stored->index}, stored);
    object["error"] = why;
    object["pdu"] = pdu;
    return object;
}

string broadcast_text(const sms::broadcast &page)
{
    string text = "cell broadcast on channel " + std::to_string(page.channel);
    if (page.pages > 1)
        text += ", page " + std::to_string(page.page) + " of " + std::to_string(page.pages);
    return text + "\n" + indented(visible_text(page.text));
}

ordered_json broadcast_json(const sms::broadcast &page)
{
    return {{"type", "broadcast"}, {"channel", page.channel}, {"serial", page.serial},
            {"page", page.page},   {"pages", page.pages},     {"text", page.text}};
}

bool print_text(string_view text)
{
    if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fputc('\n', stdout) != EOF &&
        std::fflush(stdout) == 0)
        return true;
    print_error(string("cannot write to standard output: ") + std::strerror(errno));
    return false;
}
