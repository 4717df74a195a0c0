// vlkctl monitor: notifications and bus messages as they leave the daemon.
#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "ctl_clock.h"
#include "ctl_commands.h"
#include "ctl_output.h"
#include "ctl_session.h"
#include "modem_answers.h"
#include "packet_meaning.h"
#include "packet_text.h"

using nlohmann::ordered_json;
using std::string;

namespace
{
constexpr int32_t SUBSCRIBE_LIMIT_MS = 5000;
constexpr int32_t RETRY_MS = 250;

using clock_type = std::chrono::steady_clock;

struct listener {
    const common_options &common;
    const monitor_options &options;
    clock_type::time_point begin = clock_type::now();
    uint64_t printed = 0;
};

/// Milliseconds that --seconds leaves, -1 without it.
int32_t time_left(const listener &self)
{
    if (!self.options.seconds)
        return -1;
    const std::chrono::duration<double, std::milli> past = clock_type::now() - self.begin;
    return static_cast<int32_t>(std::max(0.0, *self.options.seconds * 1000 - past.count()));
}

int subscribe(vlk_hub *hub, const monitor_options &options)
{
    if (options.modules.empty() && options.names.empty())
        return vlk_hub_take_all(hub, SUBSCRIBE_LIMIT_MS);
    for (const int32_t module : options.modules)
        if (const int failed = vlk_hub_take_module(hub, module, SUBSCRIBE_LIMIT_MS))
            return failed;
    for (const string &name : options.names)
        if (const int failed = vlk_hub_take_name(hub, name.c_str(), SUBSCRIBE_LIMIT_MS))
            return failed;
    return VLK_OK;
}

int connect(const listener &self, hub_handle &hub)
{
    const vlk_place place = self.common.place();
    vlk_hub *opened = nullptr;
    const int result = vlk_hub_open(&opened, &place);
    hub.reset(opened);
    return result == VLK_OK ? subscribe(opened, self.options) : result;
}

/// What the modem says of its registration now, in words; empty when it does not answer.
string look_at_registration(const common_options &common)
{
    ctl_session session;
    if (session.open(common) != VLK_OK)
        return "";
    for (const char *command : {"AT+C5GREG?", "AT+CEREG?", "AT+CGREG?", "AT+CREG?"}) {
        const registration state = registration_of(session.line_of(command));
        if (is_registered(state.state) || (string(command) == "AT+CREG?" && state.state))
            return registration_text(state.state) +
                   (state.technology ? string(", ") + technology_text(state.technology) : string()) +
                   (state.cell.empty() ? "" : ", cell " + state.cell);
    }
    return "";
}

bool print_packet(const listener &self, const vlk_packet &packet)
{
    const string now = self.common.json ? time_json() : time_text();
    ordered_json meaning = ordered_json::object();
    add_meaning(packet, meaning);
    if (!self.common.json && packet.missed > 0 &&
        !print_line(now + ' ' + std::to_string(packet.missed) + " missed"))
        return false;
    // Looking uses another connection, so the packet's data stays valid.
    if (self.options.look && asks_to_look(packet))
        if (const string state = look_at_registration(self.common); !state.empty())
            meaning["meaning"] = state;
    if (self.common.json) {
        ordered_json object = {{"time", now}};
        object.update(packet_json(packet));
        object.update(meaning);
        return print_json(object);
    }
    string line = now + ' ' + packet_line(packet);
    if (meaning.contains("meaning")) // in quotation marks, so that a line end inside stays inside
        line += " = " + meaning["meaning"].dump(-1, ' ', false, ordered_json::error_handler_t::replace);
    return print_line(line);
}

/// Prints packets until the daemon, the time or the count ends it. A vlk_result; VLK_TIMEOUT: --seconds are over.
int listen(listener &self, vlk_hub *hub)
{
    while (!self.options.count || self.printed < *self.options.count) {
        vlk_packet packet;
        const int32_t left = time_left(self);
        if (left == 0)
            return VLK_TIMEOUT;
        if (const int failed = vlk_hub_receive(hub, &packet, left))
            return failed;
        if (!print_packet(self, packet))
            return VLK_SYSTEM;
        ++self.printed;
    }
    return VLK_OK;
}

/// Reports the gap and waits for the next daemon. VLK_OK when there is one, VLK_TIMEOUT when --seconds are over.
int wait_for_daemon(const listener &self, hub_handle &hub)
{
    print_error(string(vlk_last_error()) + "; waiting for the next one");
    if (self.common.json &&
        !print_json({{"time", time_json()}, {"kind", "gap"}, {"error", vlk_last_error()}}))
        return VLK_SYSTEM;
    for (;;) {
        const int result = connect(self, hub);
        if (result == VLK_OK || result == VLK_DENIED)
            return result;
        const int32_t left = time_left(self);
        if (left == 0)
            return VLK_TIMEOUT;
        const int32_t pause = left < 0 ? RETRY_MS : std::min(left, RETRY_MS);
        std::this_thread::sleep_for(std::chrono::milliseconds(pause));
    }
}
} // namespace

int run_monitor(const common_options &common, const monitor_options &options)
{
    listener self{common, options};
    hub_handle hub{nullptr, vlk_hub_close};
    int result = connect(self, hub);
    const bool waits = options.reconnect && (result == VLK_NOT_RUNNING || result == VLK_SYSTEM);
    if (result != VLK_OK && !waits)
        return report_failure(result, common.json);
    for (;;) {
        if (result == VLK_OK) {
            print_error("listening");
            result = listen(self, hub.get());
        }
        if (result != VLK_NOT_RUNNING || !options.reconnect)
            break;
        result = wait_for_daemon(self, hub);
    }
    if (result == VLK_OK || (result == VLK_TIMEOUT && !options.count))
        return EXIT_DONE;
    if (result == VLK_TIMEOUT) {
        print_error("only " + std::to_string(self.printed) + " came in time");
        return EXIT_NO_ANSWER;
    }
    return result == VLK_SYSTEM ? EXIT_OTHER : report_failure(result, common.json);
}
