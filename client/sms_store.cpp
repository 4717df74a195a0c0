#include "sms_store.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "sms/alphabet.h"

using std::string;
using std::string_view;

namespace sms
{
namespace
{
constexpr int SURE_TO_FIT = 3;     // messages in one answer of at most 1499 bytes
constexpr size_t MAYBE_CUT = 1400; // bytes of an answer
constexpr int INDEXES_WITHOUT_STATE = 255;
constexpr int MAX_INDEX = 65535;
constexpr string_view NO_SUCH_MESSAGE = "+CMS ERROR: 321";

std::optional<int> number_of(string_view text)
{
    const size_t begin = text.find_first_not_of(' ');
    text.remove_prefix(std::min(begin, text.size()));
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole && value >= 0 && value <= MAX_INDEX ? std::optional(value) : std::nullopt;
}

/// The fields between commas; commas inside quotes do not count, quotes and blanks around a field are dropped.
std::vector<string_view> fields_of(string_view line)
{
    std::vector<string_view> fields;
    size_t begin = 0;
    bool quoted = false;
    for (size_t at = 0; at <= line.size(); at++) {
        if (at < line.size() && line[at] == '"')
            quoted = !quoted;
        if (at < line.size() && (line[at] != ',' || quoted))
            continue;
        string_view field = line.substr(begin, at - begin);
        while (field.starts_with(' '))
            field.remove_prefix(1);
        if (field.size() >= 2 && field.starts_with('"') && field.ends_with('"'))
            field = field.substr(1, field.size() - 2);
        fields.push_back(field);
        begin = at + 1;
    }
    return fields;
}

bool is_line_end(char c)
{
    return c == '\r' || c == '\n';
}

/// Cuts a header and the PDU behind it off the text. header: what follows its prefix.
bool take_entry(string_view &text, string_view prefix, string_view &header, string &hex)
{
    hex.clear();
    text.remove_prefix(prefix.size());
    const size_t end = std::min(text.find_first_of("\r\n"), text.size());
    header = text.substr(0, end);
    text.remove_prefix(end);
    while (!text.empty() && !text.starts_with(prefix)) {
        if (!is_line_end(text[0]))
            hex += text[0];
        text.remove_prefix(1);
    }
    string octets;
    return octets_of_hex(hex, octets);
}

/// Whether the PDU has the octets that the modem announced; its service centre's part may have been left out.
bool is_whole(const stored &message)
{
    string octets;
    if (!octets_of_hex(message.hex, octets) || octets.empty())
        return false;
    const auto told = static_cast<size_t>(message.octets);
    return octets.size() == told || octets.size() >= told + 1 + static_cast<uint8_t>(octets[0]);
}

trouble nonsense(const string &command)
{
    return {trouble::nonsense, 0, "the modem's answer to " + command + " cannot be read"};
}

/// Nothing when the answer is OK.
troubles trouble_of(const answer &from, const string &command)
{
    if (from.failed != VLK_OK)
        return trouble{trouble::library, from.failed, ""};
    if (from.result == AT_OK)
        return std::nullopt;
    if (from.result == AT_NONE || from.result == 0)
        return trouble{trouble::silence, from.result, "no answer to " + command + " in time"};
    const string cause = vlk_final_result(from.result);
    const bool has_cause = string_view(from.text).starts_with(cause);
    return trouble{trouble::refused, from.result, has_cause ? from.text : cause};
}

troubles ask_for_pdu_mode(modem &link)
{
    return trouble_of(link.ask("AT+CMGF=0", ""), "AT+CMGF=0");
}

/// A message that is not there leaves `to` empty.
troubles read_one(modem &link, int index, std::optional<stored> &to)
{
    to.reset();
    const string command = "AT+CMGR=" + std::to_string(index);
    for (int tries = 0; tries < 2; tries++) {
        const answer got = link.ask(command, "+CMGR:");
        troubles failed = trouble_of(got, command);
        if (failed && failed->kind == trouble::refused &&
            (failed->result == AT_ERROR || failed->text.starts_with(NO_SUCH_MESSAGE)))
            return std::nullopt;
        if (failed)
            return failed;
        std::vector<stored> messages;
        if (read_stored(got.text, index, messages)) {
            if (!messages.empty())
                to = messages.front();
            return std::nullopt;
        }
        if (troubles refused = ask_for_pdu_mode(link)) // another program may have left PDU mode
            return refused;
    }
    return nonsense(command);
}

/// How a message was marked before the list marked it as read; `listed` is what could be read of that list. A message
/// that is missing from it may have been unread: better seen twice than never.
mark first_mark(const std::vector<stored> &listed, const stored &now)
{
    const auto found = std::ranges::find(listed, now.index, &stored::index);
    if (found != listed.end())
        return found->status;
    return now.status == mark::read ? mark::unread : now.status;
}

troubles list_by_index(modem &link, const store_state &state, std::vector<stored> &to)
{
    const bool known = state.total > 0;
    const int last = known ? state.total : INDEXES_WITHOUT_STATE;
    for (int index = 0; index <= last && (!known || std::ssize(to) < state.used); index++) {
        std::optional<stored> message;
        if (troubles failed = read_one(link, index, message))
            return failed;
        if (!message)
            continue;
        to.push_back(*message);
    }
    if (!known || std::ssize(to) >= state.used)
        return std::nullopt;
    return trouble{trouble::missing, 0,
                   "only " + std::to_string(to.size()) + " of " + std::to_string(state.used) +
                       " messages could be read"};
}

/// Whether an answer certainly holds all messages.
bool is_complete(const answer &from, const store_state &state, const std::vector<stored> &to)
{
    return from.text.size() < MAYBE_CUT && std::ssize(to) >= state.used;
}
} // namespace

const char *name_of(mark status)
{
    constexpr const char *NAMES[] = {"unread", "read", "unsent", "sent"};
    return NAMES[static_cast<size_t>(status) & 3];
}

bool read_stored(string_view text, int index, std::vector<stored> &to)
{
    const bool listing = text.find("+CMGL:") != string_view::npos;
    const string_view prefix = listing ? "+CMGL:" : "+CMGR:";
    const size_t begin = text.find(prefix);
    if (begin == string_view::npos)
        return std::ranges::all_of(text, is_line_end); // no message
    text.remove_prefix(begin);
    while (!text.empty()) {
        string_view header;
        stored message;
        if (!take_entry(text, prefix, header, message.hex))
            return false;
        const std::vector<string_view> fields = fields_of(header);
        const size_t first = listing ? 1 : 0;
        if (fields.size() < first + 2)
            return false;
        const auto number = listing ? number_of(fields[0]) : std::optional(index);
        const auto status = number_of(fields[first]);
        const auto octets = number_of(fields.back());
        if (!number || !status || *status > 3 || !octets)
            return false;
        message.index = *number;
        message.status = static_cast<mark>(*status);
        message.octets = *octets;
        if (!listing && message.octets == 0 && message.hex.empty())
            continue; // an empty place
        if (!is_whole(message))
            return false;
        to.push_back(message);
    }
    return true;
}

troubles ask_state(modem &link, store_state &to)
{
    to = store_state{};
    const answer got = link.ask("AT+CPMS?", "+CPMS:");
    if (troubles failed = trouble_of(got, "AT+CPMS?"))
        return failed;
    string_view text = got.text;
    const size_t begin = text.find("+CPMS:");
    if (begin == string_view::npos)
        return nonsense("AT+CPMS?");
    text = text.substr(begin + 6);
    const std::vector<string_view> fields = fields_of(text.substr(0, text.find_first_of("\r\n")));
    const auto used = fields.size() < 3 ? std::nullopt : number_of(fields[1]);
    const auto total = fields.size() < 3 ? std::nullopt : number_of(fields[2]);
    if (!used || !total)
        return nonsense("AT+CPMS?");
    to = {string(fields[0]), *used, *total};
    return std::nullopt;
}

troubles list(modem &link, std::vector<stored> &to)
{
    to.clear();
    if (troubles failed = ask_for_pdu_mode(link))
        return failed;
    store_state state;
    troubles unknown = ask_state(link, state);
    if (unknown && unknown->kind != trouble::refused && unknown->kind != trouble::nonsense)
        return unknown;
    if (!unknown && state.used > SURE_TO_FIT)
        return list_by_index(link, state, to);
    const answer got = link.ask("AT+CMGL=4", "+CMGL:");
    if (troubles failed = trouble_of(got, "AT+CMGL=4"))
        return failed;
    if (read_stored(got.text, 0, to) && is_complete(got, state, to))
        return std::nullopt;
    const std::vector<stored> listed = std::exchange(to, {});
    troubles failed = list_by_index(link, state, to);
    for (stored &message : to)
        message.status = first_mark(listed, message);
    return failed;
}

troubles read(modem &link, int index, stored &to)
{
    if (troubles failed = ask_for_pdu_mode(link))
        return failed;
    std::optional<stored> message;
    if (troubles failed = read_one(link, index, message))
        return failed;
    if (!message)
        return trouble{trouble::missing, 0, "there is no message at " + std::to_string(index)};
    to = *message;
    return std::nullopt;
}

troubles remove(modem &link, int index)
{
    const string command = "AT+CMGD=" + std::to_string(index);
    troubles failed = trouble_of(link.ask(command, ""), command);
    if (failed && failed->text.starts_with(NO_SUCH_MESSAGE))
        return trouble{trouble::missing, 0, "there is no message at " + std::to_string(index)};
    return failed;
}

troubles remove_read(modem &link, int &count)
{
    count = -1;
    store_state before;
    store_state after;
    const bool counted = !ask_state(link, before);
    if (troubles failed = trouble_of(link.ask("AT+CMGD=1,1", ""), "AT+CMGD=1,1"))
        return failed;
    if (counted && !ask_state(link, after))
        count = std::max(before.used - after.used, 0);
    return std::nullopt;
}

troubles put(modem &link, vlk_sms action, const string &pdu, int &reference)
{
    const string command = action == VLK_SMS_SEND ? "AT+CMGS" : "AT+CMGW";
    reference = -1;
    if (troubles failed = ask_for_pdu_mode(link))
        return failed;
    const answer got = link.write(action, pdu);
    troubles failed = trouble_of(got, command);
    if (failed && failed->kind == trouble::silence && action == VLK_SMS_SEND)
        failed->text += "; the message may have been sent nevertheless";
    if (failed)
        return failed;
    if (got.unasked)
        return trouble{trouble::refused, got.result,
                       "the modem answered " + command +
                           " with OK and did not ask for the message: it was not taken"};
    const string prefix = command.substr(2) + ":";
    const size_t at = got.text.find(prefix);
    if (at == string::npos)
        return std::nullopt;
    const string_view rest = string_view(got.text).substr(at + prefix.size());
    const string_view number = rest.substr(std::min(rest.find_first_not_of(' '), rest.size()));
    std::from_chars(number.data(), number.data() + number.size(), reference); // any number is a reference
    return std::nullopt;
}
} // namespace sms
