#include "ctl_commands.h"

#include <chrono>
#include <cstdio>
#include <string_view>
#include <thread>

#include "ctl_output.h"
#include "ctl_session.h"

using nlohmann::ordered_json;
using std::string;
using std::string_view;

namespace
{
constexpr int32_t RSSI_LIMIT_MS = 30000;

int exchange(const common_options &common, const request_options &limits, at_cmd_msg &record,
             int32_t limit_ms, string_view what)
{
    const vlk_place place = common.place();
    vlk_client *opened = nullptr;
    int result = vlk_open(&opened, &place);
    const client_handle client(opened, vlk_close);
    if (result == VLK_OK && limits.wait_modem > 0)
        result = vlk_wait_modem(client.get(), static_cast<int32_t>(limits.wait_modem * 1000));
    if (result == VLK_OK)
        result = vlk_exchange(client.get(), &record, &record, limit_ms);
    if (result != VLK_OK)
        return report_failure(result, common.json);
    const bool is_done = record.snd_rcv_msg.ret_val == AT_OK;
    return report_reply(record, is_done ? uint32_t{VLK_MODEM_READY} : vlk_client_modem(client.get()), what,
                        common.json);
}

string status_text(const vlk_status &status)
{
    string text = "daemon:   running, pid " + std::to_string(status.pid) + "\ndevice:   " + status.device +
                  "\nmodem:    " + vlk_modem_text(status.modem) + ", for " +
                  std::to_string(status.modem_seconds) + " s";
    if (status.reason[0] != '\0')
        text += string("\nreason:   ") + status.reason;
    text += string("\nrunning:  ") + (status.running[0] != '\0' ? status.running : "nothing") +
            "\nwaiting:  " + std::to_string(status.waiting) + "\nfolder:   " + status.runtime_dir;
    return text;
}

/// Looks again and again, since neither the daemon nor its files may be there yet, until the modem is ready or the
/// time is up. The last look's result.
int look_until_ready(const vlk_place &place, vlk_status &status, double seconds)
{
    using clock = std::chrono::steady_clock;
    const auto end = clock::now() + std::chrono::duration<double>(seconds);
    for (;;) {
        const int result = vlk_get_status(&place, &status);
        const bool ready = result == VLK_OK && status.modem == VLK_MODEM_READY;
        if (ready || result == VLK_DENIED || clock::now() >= end)
            return result;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}
} // namespace

int run_rssi(const common_options &common)
{
    at_cmd_msg record;
    vlk_fill_rssi(&record);
    return exchange(common, {}, record, RSSI_LIMIT_MS, "rssi");
}

int run_status(const common_options &common, std::optional<double> wait_ready)
{
    const vlk_place place = common.place();
    vlk_status status;
    const int result = look_until_ready(place, status, wait_ready.value_or(0));
    if (result != VLK_OK)
        return report_failure(result, common.json, {{"running", false}, {"runtime_dir", status.runtime_dir}});
    const int done = wait_ready && status.modem != VLK_MODEM_READY ? EXIT_NO_ANSWER : EXIT_DONE;
    if (!common.json)
        return print_line(status_text(status)) ? done : EXIT_OTHER;
    const ordered_json object = {{"running", true},
                                 {"pid", status.pid},
                                 {"modem", vlk_modem_text(status.modem)},
                                 {"modem_seconds", status.modem_seconds},
                                 {"device", status.device},
                                 {"reason", status.reason},
                                 {"command", status.running},
                                 {"waiting", status.waiting},
                                 {"runtime_dir", status.runtime_dir}};
    return print_json(object) ? done : EXIT_OTHER;
}
