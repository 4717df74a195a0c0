// vlkctl scan and stop-scan: the networks around, and the end of the search for them.
#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

#include "ctl_commands.h"
#include "ctl_output.h"
#include "ctl_session.h"
#include "ctl_terminal.h"
#include "modem_answers.h"

using nlohmann::ordered_json;
using std::string;
using std::vector;

namespace
{
constexpr int32_t HUB_LIMIT_MS = 5000;
constexpr const char *LIST_COMMAND = "AT+COPS=?";
constexpr const char *VENDOR_COMMAND = "AT^NETSCAN";

enum class stop_result {
    DONE,
    REFUSED, // the modem did not take the command
    FAILED   // report what vlk_last_error says
};

/// Asks the daemon to end a scan. *failure: a vlk_result for FAILED.
stop_result ask_to_stop(const common_options &common, int *failure)
{
    const vlk_place place = common.place();
    vlk_hub *opened = nullptr;
    vlk_packet reply{};
    *failure = vlk_hub_open(&opened, &place);
    const hub_handle hub(opened, vlk_hub_close);
    if (*failure == VLK_OK)
        *failure = vlk_hub_request(hub.get(), VLK_STOP_SCAN_MODULE, VLK_STOP_SCAN_MESSAGE, nullptr, 0, &reply,
                                   HUB_LIMIT_MS);
    if (*failure != VLK_OK)
        return stop_result::FAILED;
    uint32_t done = 0;
    if (reply.value1 != 0 || reply.length != sizeof done)
        return stop_result::REFUSED;
    std::memcpy(&done, reply.data, sizeof done);
    return done == 1 ? stop_result::DONE : stop_result::REFUSED;
}

/// A mark that moves and the seconds so far, on standard error when that is a terminal.
class progress
{
public:
    void show()
    {
        if (!visible_)
            return;
        constexpr char MARKS[] = {'|', '/', '-', '\\'};
        const auto past = std::chrono::duration_cast<std::chrono::seconds>(clock::now() - begin_).count();
        std::fprintf(stderr, "\r%c scanning, %lld s (Ctrl-C stops it) ", MARKS[turn_++ % sizeof MARKS],
                     static_cast<long long>(past));
        std::fflush(stderr);
    }
    void clear() const
    {
        if (visible_)
            std::fputs("\r\x1B[K", stderr);
    }
    double seconds() const { return std::chrono::duration<double>(clock::now() - begin_).count(); }

private:
    using clock = std::chrono::steady_clock;
    clock::time_point begin_ = clock::now();
    bool visible_ = isatty(STDERR_FILENO) == 1;
    size_t turn_ = 0;
};

string padded(const string &text, size_t width)
{
    const auto is_lead = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; };
    const auto columns = static_cast<size_t>(std::ranges::count_if(text, is_lead));
    return text + string(columns < width ? width - columns : 0, ' ');
}

string table_of(const vector<found_network> &networks)
{
    string table = padded("STATE", 11) + padded("OPERATOR", 26) + padded("PLMN", 8) + "TECHNOLOGY";
    for (const found_network &one : networks)
        table += "\n" + padded(network_state_text(one.state), 11) +
                 padded(one.name.empty() ? one.short_name : one.name, 26) + padded(one.plmn, 8) +
                 technology_text(one.technology);
    return table;
}

ordered_json json_of(const vector<found_network> &networks)
{
    ordered_json list = ordered_json::array();
    for (const found_network &one : networks)
        list.push_back({{"state", network_state_text(one.state)},
                        {"name", one.name},
                        {"short_name", one.short_name},
                        {"plmn", one.plmn},
                        {"technology", technology_text(one.technology)}});
    return list;
}

int print_found(const common_options &common, const modem_answer &answer, bool vendor, double seconds)
{
    vector<found_network> networks;
    for (const string &line : answer.lines)
        for (const found_network &one : networks_of(line))
            networks.push_back(one);
    if (answer.cut)
        print_error(cut_text(VLK_TOO_LONG));
    if (common.json) {
        ordered_json object = {{"command", vendor ? VENDOR_COMMAND : LIST_COMMAND},
                               {"seconds", static_cast<int64_t>(seconds)},
                               {"networks", json_of(networks)}};
        if (vendor)
            object["lines"] = answer.lines;
        object["cut"] = answer.cut;
        if (!print_json(object))
            return EXIT_OTHER;
        return answer.cut ? EXIT_CUT : EXIT_DONE;
    }
    if (!vendor && networks.empty())
        print_error("no network found");
    string lines;
    for (const string &line : answer.lines)
        lines += (lines.empty() ? "" : "\n") + line;
    const string text = vendor ? lines : networks.empty() ? "" : table_of(networks);
    if (!text.empty() && !print_line(text))
        return EXIT_OTHER;
    return answer.cut ? EXIT_CUT : EXIT_DONE;
}

int stop_and_leave(const common_options &common, ctl_session &session, bool vendor)
{
    int failure = VLK_OK;
    const stop_result stopped = vendor ? ask_to_stop(common, &failure) : stop_result::DONE;
    session.close(); // the daemon ends the command of a client that hangs up
    const bool done = stopped == stop_result::DONE;
    print_error(done ? "scan stopped" : "the modem did not take the stop command; the scan goes on");
    if (common.json)
        print_json({{"command", vendor ? VENDOR_COMMAND : LIST_COMMAND}, {"stopped", done}});
    return EXIT_INTERRUPTED;
}
} // namespace

int run_scan(const common_options &common, int32_t timeout, bool vendor)
{
    ctl_session session;
    if (const int failed = session.open(common))
        return report_failure(failed, common.json);
    catch_interrupts();
    progress mark;
    const modem_answer answer = session.ask_until_interrupt(vendor ? VENDOR_COMMAND : LIST_COMMAND, timeout,
                                                            [&mark] { mark.show(); });
    mark.clear();
    if (interrupted() && answer.result == VLK_TIMEOUT)
        return stop_and_leave(common, session, vendor);
    if (answer.result != VLK_OK)
        return report_failure(answer.result, common.json);
    if (answer.succeeded())
        return print_found(common, answer, vendor, mark.seconds());
    const outcome end = outcome_of(answer.ret_val, answer.final_result, true, session.modem());
    return report_refusal(end.code, end.text, common.json);
}

int run_stop_scan(const common_options &common)
{
    const vlk_place place = common.place();
    vlk_status status;
    if (const int failed = vlk_get_status(&place, &status))
        return report_failure(failed, common.json);
    const auto tell = [&common](const string &state, ctl_exit code, const string &text) -> int {
        const bool printed =
            !common.json ||
            print_json({{"command", "stop-scan"}, {"stopped", state == "stopped"}, {"result", state}});
        if (code != EXIT_DONE)
            print_error(text);
        else if (!common.json && !print_line(text))
            return EXIT_OTHER;
        return printed ? code : EXIT_OTHER;
    };
    if (status.modem == VLK_MODEM_ABSENT || status.modem == VLK_MODEM_RELEASED)
        return tell("not possible", EXIT_NO_MODEM,
                    string("not possible: the modem is ") + vlk_modem_text(status.modem));

    string running = status.running;
    std::ranges::transform(running, running.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    if (running == "AT+COPS")
        return tell(
            "not possible", EXIT_OTHER,
            "not possible: AT+COPS ends only when the client that asked leaves (vlkctl scan: Ctrl-C)");
    if (running != VENDOR_COMMAND)
        return tell("nothing", EXIT_DONE, "nothing to stop: no scan is running");
    int failure = VLK_OK;
    switch (ask_to_stop(common, &failure)) {
    case stop_result::DONE:
        return tell("stopped", EXIT_DONE, "stopped");
    case stop_result::REFUSED:
        return tell("not possible", EXIT_OTHER, "not possible: the modem did not take the stop command");
    case stop_result::FAILED:
        break;
    }
    return report_failure(failure, common.json);
}
