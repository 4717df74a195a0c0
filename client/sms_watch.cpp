#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <memory>

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "ctl_output.h"
#include "packet_meaning.h"
#include "sms_commands.h"
#include "sms_link.h"
#include "sms_view.h"

using std::string;

namespace
{
constexpr int32_t SUBSCRIBE_LIMIT_MS = 5000;
constexpr auto PART_PATIENCE = std::chrono::minutes(5);

using clock_type = std::chrono::steady_clock;
using hub_handle = std::unique_ptr<vlk_hub, decltype(&vlk_hub_close)>;

template <size_t size>
string text_of(const char (&bytes)[size])
{
    return string(bytes, strnlen(bytes, size));
}

class watcher
{
public:
    watcher(const common_options &common, const sms_options &options)
        : common_(common), options_(options), link_(common, options.limits)
    {
    }

    void take(const vlk_packet &packet)
    {
        if (packet.missed > 0)
            print_error(std::to_string(packet.missed) + " events were missed: see vlkctl sms list");
        if (packet.code == VLK_EVT_SMS_MEMORY_FULL)
            print_error("the modem's memory is full: it takes no further message until some are deleted");
        const auto index = record_of<vlk_sms_index>(packet, VLK_MODULE_SMS, VLK_EVT_SMS_ARRIVED);
        const auto content = record_of<vlk_sms_content>(packet, VLK_MODULE_SMS, VLK_EVT_SMS_ARRIVED);
        if (index && (index->report_id == VLK_REPORT_CMTI || index->report_id == VLK_REPORT_CDSI))
            read_stored(text_of(index->mem), index->index);
        else if (content && content->report_id <= VLK_REPORT_CBM)
            take_pdu(content->report_id, text_of(content->pdu), content->length);
    }

    /// Shows the parts of messages whose other parts have not come for a long time.
    void give_up_late_parts()
    {
        if (clock_type::now() - last_part_ >= PART_PATIENCE)
            show_rest();
    }
    void show_rest() { show_all(joiner_.take_rest()); }

    bool printed() const { return printed_; }
    bool is_done() const { return !printed_ || (options_.count && shown_ >= *options_.count); }
    uint64_t shown() const { return shown_; }

private:
    void take_pdu(uint32_t id, const string &pdu, int octets)
    {
        if (pdu.empty())
            return print_error("a message came without its text: the modem left it out, or it was too long");
        if (id == VLK_REPORT_CBM)
            return take_broadcast(pdu);
        take_message(pdu, octets, nullptr);
    }
    void take_message(const string &hex, int octets, const sms::stored *stored)
    {
        sms::pdu pdu;
        if (const sms::refusal why = sms::decode_pdu(hex, octets, pdu))
            return print(unreadable_json(hex, why, stored), unreadable_text(hex, why, stored));
        last_part_ = clock_type::now();
        show_all(joiner_.take(pdu, stored == nullptr ? 0 : stored->index));
    }
    void take_broadcast(const string &hex)
    {
        sms::broadcast page;
        if (const sms::refusal why = sms::decode_broadcast(hex, page))
            return print(unreadable_json(hex, why, nullptr), unreadable_text(hex, why, nullptr));
        print(broadcast_json(page), broadcast_text(page));
    }
    /// The store that the modem reads from may be another one than the message's.
    void read_stored(const string &memory, int index)
    {
        const string where = "a message was stored in \"" + memory + "\" at " + std::to_string(index);
        sms::store_state state;
        sms::stored stored;
        sms::troubles failed = sms::ask_state(link_, state);
        if (!failed && state.memory != memory)
            return print_error(where + ", but the modem reads from \"" + state.memory + "\": see AT+CPMS");
        if (!failed)
            failed = sms::read(link_, index, stored);
        if (!failed)
            return take_message(stored.hex, stored.octets, &stored);
        print_error(where + ", but could not be read");
        report_trouble(*failed, common_.json);
    }
    void show_all(const std::vector<sms::message> &messages)
    {
        for (const sms::message &message : messages)
            print(message_json(message, nullptr), message_text(message, nullptr));
    }
    void print(const nlohmann::ordered_json &object, const string &text)
    {
        printed_ = (common_.json ? print_json(object) : print_text(text)) && printed_;
        shown_++;
    }

    const common_options &common_;
    const sms_options &options_;
    daemon_link link_;
    sms::joiner joiner_;
    clock_type::time_point last_part_ = clock_type::now();
    uint64_t shown_ = 0;
    bool printed_ = true;
};

/// The signals that end a watch in good order, as a file: parts that wait are still shown.
int signal_file()
{
    sigset_t ends;
    sigemptyset(&ends);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&ends, number);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    return signalfd(-1, &ends, SFD_CLOEXEC);
}

/// Milliseconds to sleep at most: to the end of --seconds, or until late parts are looked at again.
int sleep_limit(const sms_options &options, clock_type::time_point begin)
{
    constexpr double LOOK_AGAIN_MS = 10000;
    if (!options.seconds)
        return static_cast<int>(LOOK_AGAIN_MS);
    const std::chrono::duration<double, std::milli> past = clock_type::now() - begin;
    return static_cast<int>(std::clamp(*options.seconds * 1000 - past.count() + 1, 0.0, LOOK_AGAIN_MS));
}

/// Watches until the count, the time, a signal or the daemon ends it. A vlk_result; VLK_TIMEOUT: --seconds are over.
int listen(vlk_hub *hub, watcher &watching, const sms_options &options, int signals)
{
    const clock_type::time_point begin = clock_type::now();
    while (!watching.is_done()) {
        vlk_packet packet;
        const int result = vlk_hub_receive(hub, &packet, 0);
        if (result == VLK_OK) {
            watching.take(packet);
            continue;
        }
        if (result != VLK_TIMEOUT)
            return result;
        const int limit = sleep_limit(options, begin);
        if (limit == 0)
            return VLK_TIMEOUT;
        pollfd files[] = {{vlk_hub_fd(hub), POLLIN, 0}, {signals, POLLIN, 0}};
        poll(files, std::size(files), limit);
        if (files[1].revents != 0)
            return VLK_OK;
        watching.give_up_late_parts();
    }
    return VLK_OK;
}
} // namespace

int run_sms_watch(const common_options &common, const sms_options &options)
{
    const vlk_place place = common.place();
    vlk_hub *opened = nullptr;
    int result = vlk_hub_open(&opened, &place);
    const hub_handle hub(opened, vlk_hub_close);
    if (result == VLK_OK)
        result = vlk_hub_take_module(hub.get(), VLK_MODULE_SMS, SUBSCRIBE_LIMIT_MS);
    if (result != VLK_OK)
        return report_failure(result, common.json);

    const int signals = signal_file();
    print_error("listening");
    watcher watching(common, options);
    result = listen(hub.get(), watching, options, signals);
    watching.show_rest();
    close(signals);
    if (!watching.printed())
        return EXIT_OTHER;
    if (result == VLK_TIMEOUT && options.count && watching.shown() < *options.count) {
        print_error("only " + std::to_string(watching.shown()) + " came in time");
        return EXIT_NO_ANSWER;
    }
    return result == VLK_OK || result == VLK_TIMEOUT ? EXIT_DONE : report_failure(result, common.json);
}
