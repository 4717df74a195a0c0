#include "sms_commands.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <map>

#include <sys/random.h>
#include <unistd.h>

#include "ctl_output.h"
#include "sent_log.h"
#include "sms_link.h"
#include "sms_view.h"

using nlohmann::ordered_json;
using std::string;

namespace
{
constexpr size_t MAX_TEXT_BYTES = size_t{64} * 1024; // more than 255 parts hold

const char *verb_of(vlk_sms action)
{
    return action == VLK_SMS_SEND ? "sent" : "saved";
}

int refuse(const string &why, bool json)
{
    print_error(why);
    if (json)
        print_json({{"error", why}});
    return EXIT_USAGE;
}

/// Standard input without its last line end. False when there is more than any message holds.
bool read_input(string &text)
{
    char bytes[4096];
    for (ssize_t size; (size = read(STDIN_FILENO, bytes, sizeof bytes)) != 0;) {
        if (size < 0 && errno == EINTR)
            continue;
        if (size < 0)
            break;
        text.append(bytes, static_cast<size_t>(size));
        if (text.size() > MAX_TEXT_BYTES)
            return false;
    }
    if (text.ends_with('\n'))
        text.pop_back();
    if (text.ends_with('\r'))
        text.pop_back();
    return true;
}

uint16_t random_reference()
{
    uint16_t reference = 0;
    if (getrandom(&reference, sizeof reference, GRND_NONBLOCK) != sizeof reference)
        reference = static_cast<uint16_t>(time(nullptr));
    return reference;
}

struct outgoing {
    string to; // empty: unknown, the PDU was given
    std::vector<string> pdus;
};

/// Makes the PDUs of a text. Empty, or why not.
string compose(const sms_options &options, const string &text, outgoing &to)
{
    sms::pdu pdu;
    if (const sms::refusal why = sms::parse_number(options.to, pdu.peer))
        return "--to: " + string(why);
    if (!options.smsc.empty())
        if (const sms::refusal why = sms::parse_number(options.smsc, pdu.smsc))
            return "--smsc: " + string(why);
    pdu.report = options.report;
    if (options.valid_hours) {
        pdu.validity = sms::validity_form::relative;
        pdu.validity_octets[0] = sms::validity_of_minutes(*options.valid_hours * 60);
    }
    std::vector<sms::content> parts;
    const sms::text_form form = {options.flash ? 0 : -1, false, random_reference()};
    if (const sms::refusal why = sms::split_text(text, form, parts))
        return why;
    if (parts.size() > static_cast<size_t>(options.max_parts)) {
        const string count = std::to_string(parts.size());
        return "the text makes " + count + " messages, " + std::to_string(options.max_parts) +
               " are allowed: shorten it, or use --max-parts " + count;
    }
    to.to = sms::text_of(pdu.peer);
    for (const sms::content &part : parts) {
        pdu.data = part;
        if (const sms::refusal why = sms::encode_pdu(pdu, to.pdus.emplace_back()))
            return why;
    }
    return "";
}

/// Checks only what sending the given PDU needs.
int check_pdu(const string &pdu, outgoing &to)
{
    at_cmd_msg record;
    to.pdus = {pdu};
    return vlk_fill_sms(&record, VLK_SMS_SEND, pdu.c_str(), 1);
}

int print_pdus(const outgoing &message, bool json)
{
    if (json)
        return print_json({{"pdus", message.pdus}}) ? EXIT_DONE : EXIT_OTHER;
    const bool printed = std::ranges::all_of(message.pdus, [](const string &pdu) { return print_line(pdu); });
    return printed ? EXIT_DONE : EXIT_OTHER;
}

/// "sent, reference 12", "part 2 of 3 saved, at 7"; for a given PDU what the modem said.
string done_text(const outgoing &message, vlk_sms action, size_t part, int reference)
{
    const size_t parts = message.pdus.size();
    if (message.to.empty() && reference >= 0)
        return (action == VLK_SMS_SEND ? "+CMGS: " : "+CMGW: ") + std::to_string(reference);
    string text = parts > 1 ? "part " + std::to_string(part) + " of " + std::to_string(parts) + " " : "";
    text += verb_of(action);
    if (reference >= 0)
        text += (action == VLK_SMS_SEND ? ", reference " : ", at ") + std::to_string(reference);
    return text;
}

void remember(const sms_options &options, const outgoing &message, size_t part, int reference)
{
    if (!options.report || message.to.empty() || reference < 0)
        return;
    const sent_part sent = {static_cast<uint8_t>(reference), message.to, static_cast<int>(part),
                            static_cast<int>(message.pdus.size()), time(nullptr)};
    if (!remember_sent(sent))
        print_error("cannot remember what was sent, reports will not be matched: " + string(strerror(errno)));
}

ordered_json result_json(const outgoing &message, vlk_sms action, const std::vector<int> &references,
                         bool done)
{
    ordered_json numbers = ordered_json::array();
    for (const int reference : references)
        numbers.push_back(reference >= 0 ? ordered_json(reference) : ordered_json());
    ordered_json object;
    if (!message.to.empty())
        object["to"] = message.to;
    object["parts"] = message.pdus.size();
    object[verb_of(action)] = done;
    object[action == VLK_SMS_SEND ? "references" : "indexes"] = numbers;
    return object;
}

int report_unsent(sms::trouble what, const outgoing &message, vlk_sms action,
                  const std::vector<int> &references, bool json)
{
    ordered_json object = result_json(message, action, references, false);
    if (what.kind == sms::trouble::library)
        what.text = vlk_last_error();
    object["error"] = what.text;
    if (json)
        print_json(object);
    if (message.pdus.size() > 1)
        print_error("part " + std::to_string(references.size() + 1) + " of " +
                    std::to_string(message.pdus.size()) + " was not " + verb_of(action) +
                    (references.empty() ? ", nor any other" : ", nor those behind it"));
    return report_trouble(what, false);
}

int put_all(const common_options &common, const sms_options &options, vlk_sms action, const outgoing &message)
{
    daemon_link link(common, options.limits);
    std::vector<int> references;
    bool printed = true;
    for (const string &pdu : message.pdus) {
        int reference = -1;
        if (const sms::troubles failed = sms::put(link, action, pdu, reference))
            return report_unsent(*failed, message, action, references, common.json);
        references.push_back(reference);
        remember(options, message, references.size(), reference);
        if (!common.json)
            printed = print_line(done_text(message, action, references.size(), reference)) && printed;
    }
    if (common.json)
        printed = print_json(result_json(message, action, references, true));
    return printed ? EXIT_DONE : EXIT_OTHER;
}

// ---- Stored messages

struct shelf {
    std::map<int64_t, const sms::stored *> by_index;
    sms::joiner joiner;
    const common_options &common;
    const sms_options &options;
    bool printed = true;

    void show(const sms::message &message)
    {
        const auto known = std::ranges::find_if(message.places, [](int64_t place) { return place >= 0; });
        const sms::stored *stored = by_index[*known];
        for (const int64_t place : message.places) // one unread part makes the whole message unread
            if (place >= 0 && by_index[place]->status < stored->status)
                stored = by_index[place];
        if (!printed || (options.unread && stored->status != sms::mark::unread))
            return;
        printed = common.json ? print_json(message_json(message, stored))
                              : print_text(message_text(message, stored));
    }
    void show_all(const std::vector<sms::message> &messages)
    {
        for (const sms::message &message : messages)
            show(message);
    }
    void take(const sms::stored &stored)
    {
        by_index[stored.index] = &stored;
        sms::pdu pdu;
        const sms::refusal why = sms::decode_pdu(stored.hex, stored.octets, pdu);
        if (why == nullptr)
            return show_all(joiner.take(pdu, stored.index));
        if (!printed || (options.unread && stored.status != sms::mark::unread))
            return;
        printed = common.json ? print_json(unreadable_json(stored.hex, why, &stored))
                              : print_text(unreadable_text(stored.hex, why, &stored));
    }
};

int show_stored(const common_options &common, const sms_options &options,
                const std::vector<sms::stored> &messages)
{
    shelf shelf{{}, {}, common, options};
    for (const sms::stored &message : messages)
        shelf.take(message);
    shelf.show_all(shelf.joiner.take_rest());
    return shelf.printed ? EXIT_DONE : EXIT_OTHER;
}
} // namespace

int run_sms_put(const common_options &common, const sms_options &options, vlk_sms action)
{
    string text = options.text;
    if (!options.has_text && options.to.empty())
        return refuse("a PDU, or --to NUMBER and a text, is needed", common.json);
    if (!options.has_text && !read_input(text))
        return refuse("standard input has more than messages can hold", common.json);
    outgoing message;
    if (options.to.empty()) {
        if (const int failed = check_pdu(text, message))
            return report_failure(failed, common.json);
    } else if (const string why = compose(options, text, message); !why.empty()) {
        return refuse(why, common.json);
    }
    return options.dry_run ? print_pdus(message, common.json) : put_all(common, options, action, message);
}

int run_sms_list(const common_options &common, const sms_options &options)
{
    daemon_link link(common, options.limits);
    std::vector<sms::stored> messages;
    const sms::troubles failed = sms::list(link, messages);
    const int shown = show_stored(common, options, messages); // what could be read is marked as read now
    return failed ? report_trouble(*failed, common.json) : shown;
}

int run_sms_read(const common_options &common, const sms_options &options)
{
    daemon_link link(common, options.limits);
    std::vector<sms::stored> messages;
    sms::troubles failed;
    for (const int index : options.indexes) {
        failed = sms::read(link, index, messages.emplace_back());
        if (!failed)
            continue;
        messages.pop_back();
        break;
    }
    const int shown = show_stored(common, options, messages);
    return failed ? report_trouble(*failed, common.json) : shown;
}

int run_sms_delete(const common_options &common, const sms_options &options)
{
    if (!options.all_read && options.indexes.empty())
        return refuse("the number of a message, or --all-read, is needed", common.json);
    daemon_link link(common, options.limits);
    int count = 0;
    sms::troubles failed;
    if (options.all_read)
        failed = sms::remove_read(link, count);
    for (const int index : options.indexes) {
        failed = sms::remove(link, index);
        if (failed)
            break;
        count++;
    }
    if (failed)
        return report_trouble(*failed, common.json);
    if (common.json)
        return print_json({{"deleted", count >= 0 ? ordered_json(count) : ordered_json()}}) ? EXIT_DONE
                                                                                            : EXIT_OTHER;
    const string what =
        count < 0 ? "all read messages" : std::to_string(count) + (count == 1 ? " message" : " messages");
    return print_line("deleted " + what) ? EXIT_DONE : EXIT_OTHER;
}
