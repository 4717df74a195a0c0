#include "message_service.h"

#include "pdu.h"
#include "text.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace modemsim
{

namespace
{

// Numbers of +CMS ERROR.
enum {
    invalid_pdu = 304,
    invalid_text = 305,
    invalid_index = 321,
    unknown_memory = 301,
    memory_full = 322
};

constexpr std::string_view state_names[] = {"REC UNREAD", "REC READ", "STO UNSENT", "STO SENT", "ALL"};
constexpr unsigned every_state = 4;
constexpr unsigned max_place = 65535;
constexpr unsigned delivered = 0; // status of a message that reached its receiver

std::string_view value_of(const variables &values, std::string_view name)
{
    const auto found = values.find(name);
    return found == values.end() ? std::string_view() : std::string_view(found->second);
}

/// The n-th number of "17,167,0,0"; 0 for an empty or missing one.
unsigned field_of(std::string_view list, int n)
{
    for (; n > 0; --n) {
        const std::size_t comma = list.find(',');
        list = comma == std::string_view::npos ? std::string_view() : list.substr(comma + 1);
    }
    return parse_number(list.substr(0, list.find(',')), 255).value_or(0);
}

bool is_text_mode(const variables &values)
{
    return value_of(values, "cmgf") == "1";
}

bool shows_details(const variables &values)
{
    return value_of(values, "csdh") == "1";
}

/// "4", "ALL" or "REC READ".
std::optional<unsigned> state_number(std::string_view text)
{
    if (const auto number = parse_number(text, every_state))
        return number;
    const auto *const found =
        std::ranges::find_if(state_names, [&](auto name) { return equal_ignoring_case(name, text); });
    if (found == std::end(state_names))
        return std::nullopt;
    return static_cast<unsigned>(found - state_names);
}

std::string quoted(std::string_view text)
{
    return '"' + std::string(text) + '"';
}

std::string type_of(std::string_view address)
{
    return std::to_string(address.size() > 1 ? static_cast<unsigned char>(address[1]) : 0);
}

/// What text mode shows of a status report, which has no text.
std::string report_fields(const short_message &message)
{
    return std::to_string(message.first_octet) + "," + std::to_string(message.reference) + "," +
           quoted(number_of(message.address)) + "," + type_of(message.address) + "," +
           quoted(time_text(message.time)) + "," + quoted(time_text(message.discharge_time)) + "," +
           std::to_string(message.status);
}

std::string service_centre(const short_message &message)
{
    const std::string length(1, static_cast<char>(message.smsc.empty() ? 0 : (message.smsc.size() - 1) * 2));
    return number_of(length + message.smsc);
}

/// `"REC READ","+12025550123","","26/01/01,12:00:00+04"` and what AT+CSDH=1 adds to it.
std::string text_header(const short_message &message, message_state state, bool for_reading, bool details)
{
    const std::string name = quoted(state_names[static_cast<unsigned>(state)]);
    if (message.type == short_message::status_report)
        return name + "," + report_fields(message);
    const bool received = message.type == short_message::deliver;
    const std::string_view gap = for_reading && !received ? "," : ",,";
    std::string header = name + "," + quoted(number_of(message.address)) + std::string(gap);
    header += received ? quoted(time_text(message.time)) : "";
    if (!details)
        return header;
    header += "," + type_of(message.address);
    if (for_reading)
        header += "," + std::to_string(message.first_octet) + "," + std::to_string(message.protocol) + "," +
                  std::to_string(message.coding) + (received ? "" : ",") + "," +
                  quoted(service_centre(message)) + ",145";
    return header + "," + std::to_string(message.length);
}

std::string body_of(const short_message &message, const variables &values)
{
    return message.type == short_message::status_report
               ? std::string()
               : text_of(message, character_set_of(value_of(values, "cscs")));
}

/// One message as AT+CMGR or AT+CMGL shows it.
std::string entry_of(const std::string &prefix, const stored_message &message, bool for_reading,
                     const variables &values, std::string_view line_end)
{
    const std::string end(line_end);
    if (!is_text_mode(values))
        return prefix + std::to_string(static_cast<unsigned>(message.state)) + ",," +
               std::to_string(pdu_length(message.pdu).value_or(0)) + end + message.pdu;
    const auto taken_apart = read_pdu(message.pdu);
    if (!taken_apart) // accepted in PDU mode for its length alone
        return prefix + quoted(state_names[static_cast<unsigned>(message.state)]) + ",\"\",," + end +
               message.pdu;
    const std::string body = body_of(*taken_apart, values);
    return prefix + text_header(*taken_apart, message.state, for_reading, shows_details(values)) +
           (taken_apart->type == short_message::status_report ? "" : end + body);
}

/// The service centre that AT+CSCA named, as a PDU has it.
std::string own_service_centre(const variables &values)
{
    const std::string_view number = value_of(values, "csca");
    return number.empty() ? std::string() : address_of(number).substr(1);
}

/// The report that hands over the message itself.
std::string direct_report(const std::string &pdu, const std::optional<short_message> &message,
                          const variables &values, std::string_view line_end)
{
    const bool is_report = message && message->type == short_message::status_report;
    const std::string prefix = is_report ? "+CDS: " : "+CMT: ";
    if (!is_text_mode(values) || !message)
        return prefix + (is_report ? "" : ",") + std::to_string(pdu_length(pdu).value_or(0)) +
               std::string(line_end) + pdu;
    if (is_report)
        return prefix + report_fields(*message);
    std::string header =
        prefix + quoted(number_of(message->address)) + ",," + quoted(time_text(message->time));
    if (shows_details(values))
        header += "," + type_of(message->address) + "," + std::to_string(message->first_octet) + "," +
                  std::to_string(message->protocol) + "," + std::to_string(message->coding) + "," +
                  quoted(service_centre(*message)) + ",145," + std::to_string(message->length);
    return header + std::string(line_end) + body_of(*message, values);
}

} // namespace

struct message_service::action_row {
    std::string_view name;
    action_function serve;
};

const message_service::action_row message_service::actions[] = {
    {"list", &message_service::list},       {"read", &message_service::read},
    {"delete", &message_service::erase},    {"write", &message_service::write},
    {"compose", &message_service::compose}, {"load", &message_service::load},
    {"sent", &message_service::sent},       {"select", &message_service::select},
};

bool message_service::knows(std::string_view action)
{
    return arrives(action) || std::ranges::find(actions, action, &action_row::name) != std::end(actions);
}

bool message_service::arrives(std::string_view action)
{
    return action == "loop" || action == "report";
}

void message_service::reset(const std::vector<stored_message> &messages, variables &values)
{
    memories_ = {{"SM", message_memory(50)}, {"ME", message_memory(250)}};
    sent_.clear();
    for (const char *const name : {"mem1", "mem2", "mem3"})
        values[name] = "SM";
    for (const stored_message &message : messages)
        memories_.at("SM").add(message);
    tell_usage(values);
}

message_memory &message_service::used_for(const char *purpose, const variables &values)
{
    const auto found = memories_.find(value_of(values, purpose));
    return found == memories_.end() ? memories_.at("SM") : found->second; // somebody set it by hand
}

void message_service::tell_usage(variables &values)
{
    for (const std::string number : {"1", "2", "3"}) {
        const message_memory &memory = used_for(("mem" + number).c_str(), values);
        values["used" + number] = std::to_string(memory.used());
        values["places" + number] = std::to_string(memory.places());
    }
}

message_service::answer message_service::serve(std::string_view action, std::string_view arguments,
                                               variables &values, std::string_view line_end)
{
    const auto *const row = std::ranges::find(actions, action, &action_row::name);
    if (row == std::end(actions))
        return {};
    answer result = (this->*row->serve)(arguments, values, line_end);
    tell_usage(values);
    return result;
}

message_service::answer message_service::list(std::string_view state, variables &values,
                                              std::string_view line_end)
{
    const auto wanted = state_number(state);
    if (!wanted)
        return {{}, invalid_text};
    answer result;
    for (auto &[place, message] : used_for("mem1", values).messages()) {
        if (*wanted != every_state && *wanted != static_cast<unsigned>(message.state))
            continue;
        const std::string prefix = "+CMGL: " + std::to_string(place) + ",";
        result.lines.push_back(entry_of(prefix, message, false, values, line_end));
        if (message.state == message_state::unread)
            message.state = message_state::read;
    }
    return result;
}

message_service::answer message_service::read(std::string_view place, variables &values,
                                              std::string_view line_end)
{
    stored_message *const message = used_for("mem1", values).find(parse_number(place, max_place).value_or(0));
    if (message == nullptr)
        return {{}, invalid_index};
    answer result{{entry_of("+CMGR: ", *message, true, values, line_end)}};
    if (message->state == message_state::unread)
        message->state = message_state::read;
    return result;
}

message_service::answer message_service::erase(std::string_view arguments, variables &values,
                                               std::string_view)
{
    message_memory &memory = used_for("mem1", values);
    const unsigned place = parse_number(take_word(arguments), max_place).value_or(0);
    const unsigned flag = parse_number(arguments, 4).value_or(0);
    if (flag > 0)
        memory.erase_by_flag(flag);
    else if (place == 0 || place > memory.places())
        return {{}, invalid_index};
    else
        memory.erase(place);
    return {};
}

message_service::answer message_service::write(std::string_view state, variables &values, std::string_view)
{
    const unsigned number = state_number(state).value_or(static_cast<unsigned>(message_state::unsent));
    const auto place =
        used_for("mem2", values)
            .add({static_cast<message_state>(number % every_state), std::string(value_of(values, "text"))});
    if (!place)
        return {{}, memory_full};
    values["index"] = std::to_string(*place);
    return {};
}

message_service::answer message_service::compose(std::string_view number, variables &values, std::string_view)
{
    const std::string_view settings = value_of(values, "csmp");
    short_message message;
    message.type = short_message::submit;
    message.first_octet = settings.empty() ? 17 : field_of(settings, 0);
    message.first_octet &= ~0x18U;
    message.first_octet |= 0x10; // the validity is one octet
    message.validity = std::string(1, static_cast<char>(field_of(settings, 1)));
    message.protocol = field_of(settings, 2);
    message.coding = field_of(settings, 3);
    message.address = address_of(number);
    if (!set_text(message, value_of(values, "text"), character_set_of(value_of(values, "cscs"))))
        return {{}, invalid_text};
    values["text"] = write_pdu(message);
    return {};
}

message_service::answer message_service::load(std::string_view arguments, variables &values, std::string_view)
{
    stored_message *const message =
        used_for("mem2", values).find(parse_number(take_word(arguments), max_place).value_or(0));
    auto taken_apart = message == nullptr ? std::nullopt : read_pdu(message->pdu);
    if (!taken_apart || taken_apart->type != short_message::submit)
        return {{}, message == nullptr ? invalid_index : invalid_pdu};
    if (!arguments.empty())
        taken_apart->address = address_of(arguments);
    message->state = message_state::sent;
    values["text"] = write_pdu(*taken_apart);
    return {};
}

message_service::answer message_service::sent(std::string_view, variables &values, std::string_view)
{
    sent_[std::string(value_of(values, "mr"))] = value_of(values, "text");
    while (sent_.size() > 256) // references beyond an octet: somebody set them by hand
        sent_.erase(sent_.begin());
    return {};
}

message_service::answer message_service::select(std::string_view names, variables &values, std::string_view)
{
    variables chosen;
    for (const char *const purpose : {"mem1", "mem2", "mem3"}) {
        const std::string_view name = take_word(names);
        if (name.empty())
            break;
        const auto found = std::ranges::find_if(
            memories_, [&](const auto &entry) { return equal_ignoring_case(entry.first, name); });
        if (found == memories_.end())
            return {{}, unknown_memory};
        chosen[purpose] = found->first;
    }
    for (const auto &[purpose, name] : chosen)
        values[purpose] = name;
    return {};
}

message_service::arrival message_service::serve_arrival(std::string_view action, std::string_view reference,
                                                        variables &values, bool client_listens,
                                                        std::string_view line_end)
{
    const auto found = sent_.find(reference);
    auto message = found == sent_.end() ? std::nullopt : read_pdu(found->second);
    if (!message || message->type != short_message::submit)
        return {};
    if (action == "report")
        return message->wants_report() ? arrive_report(reference, delivered, values, client_listens, line_end)
                                       : arrival{};
    message->type = short_message::deliver;
    message->first_octet = 4 | (message->first_octet & 0x40); // no more messages wait; keep the header's flag
    message->smsc = own_service_centre(values);
    message->time = time_of(value_of(values, "clock"));
    return arrive(write_pdu(*message), values, client_listens, line_end);
}

message_service::arrival message_service::arrive_text(std::string_view number, std::string_view text,
                                                      variables &values, bool client_listens,
                                                      std::string_view line_end)
{
    short_message message;
    message.first_octet = 4;
    message.smsc = own_service_centre(values);
    message.address = address_of(number);
    message.time = time_of(value_of(values, "clock"));
    if (!set_any_text(message, text))
        return {{}, "the text is too long for one message; send its parts with receive-pdu"};
    return arrive(write_pdu(message), values, client_listens, line_end);
}

message_service::arrival message_service::arrive_report(std::string_view reference, unsigned status,
                                                        variables &values, bool client_listens,
                                                        std::string_view line_end)
{
    const auto found = sent_.find(reference);
    const auto message = found == sent_.end() ? std::nullopt : read_pdu(found->second);
    if (!message || message->type != short_message::submit)
        return {{}, "no message was sent under this reference"};
    short_message report;
    report.type = short_message::status_report;
    report.first_octet = 4;
    report.smsc = own_service_centre(values);
    report.reference = parse_number(reference, 255).value_or(0);
    report.address = message->address;
    report.time = report.discharge_time = time_of(value_of(values, "clock"));
    report.status = status;
    return arrive(write_pdu(report), values, client_listens, line_end);
}

message_service::arrival message_service::arrive(std::string_view pdu, variables &values, bool client_listens,
                                                 std::string_view line_end)
{
    if (!pdu_length(pdu))
        return {{}, "that is no PDU in hexadecimal form, service centre first"};
    const auto message = read_pdu(pdu);
    const bool is_report = message && message->type == short_message::status_report;
    const std::string_view asked = value_of(values, "cnmi");
    const bool told = client_listens && field_of(asked, 0) > 0;
    const unsigned how = field_of(asked, is_report ? 3 : 1);
    const bool directly = how == (is_report ? 1 : 2) || (how > 0 && message && message->is_flash());
    if (directly && told)
        return {direct_report(std::string(pdu), message, values, line_end), {}};
    if (is_report && how == 0)
        return {}; // nobody wants it
    const auto place = used_for("mem3", values).add({message_state::unread, std::string(pdu)});
    tell_usage(values);
    if (!place)
        return {{}, "the memory is full; the client must delete messages first"};
    if (!told || how == 0)
        return {};
    return {(is_report ? "+CDSI: " : "+CMTI: ") + quoted(value_of(values, "mem3")) + "," +
                std::to_string(*place),
            {}};
}

} // namespace modemsim
