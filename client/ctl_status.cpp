// vlkctl status: what the daemon says about itself, in words, as JSON, once or again and again.
#include "ctl_status.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include <unistd.h>

#include "ctl_output.h"
#include "ctl_terminal.h"

using nlohmann::ordered_json;
using std::string;

namespace
{
constexpr int REFRESH_MS = 1000;

string value_of(const status_values &all, const string &name, const string &otherwise = "0")
{
    const auto found = all.find(name);
    return found == all.end() ? otherwise : found->second;
}

/// "3 d 4 h", "2 min 5 s", "12 s".
string duration_text(const string &seconds_text)
{
    const long seconds = std::strtol(seconds_text.c_str(), nullptr, 10);
    const auto two = [](long large, const char *unit, long small, const char *small_unit) {
        return std::to_string(large) + unit + (small > 0 ? " " + std::to_string(small) + small_unit : "");
    };
    if (seconds >= 86400)
        return two(seconds / 86400, " d", seconds % 86400 / 3600, " h");
    if (seconds >= 3600)
        return two(seconds / 3600, " h", seconds % 3600 / 60, " min");
    return seconds >= 60 ? two(seconds / 60, " min", seconds % 60, " s") : std::to_string(seconds) + " s";
}

/// "ok 12, timeout 3" from the names with this beginning that are not 0; sums and times are left out.
string counts_text(const status_values &all, const string &beginning)
{
    string text;
    for (const auto &[name, value] : all) {
        const string rest = name.substr(std::min(beginning.size(), name.size()));
        const bool is_other = rest == "all" || rest == "withdrawn" || rest.ends_with("_ms");
        if (!name.starts_with(beginning) || is_other || value == "0")
            continue;
        text += text.empty() ? "" : ", ";
        text.append(rest).append(" ").append(value);
    }
    return text;
}

/// "smsd (pid 812, user 1000)" of "812 1000 smsd".
string client_text(const string &told)
{
    const size_t user = told.find(' ');
    const size_t name = told.find(' ', std::min(user, told.size() - 1) + 1);
    if (user == told.npos || name == told.npos)
        return told;
    return told.substr(name + 1) + " (pid " + told.substr(0, user) + ", user " +
           told.substr(user + 1, name - user - 1) + ")";
}

string waiting_text(const status_values &all)
{
    string text = value_of(all, "clients.waiting");
    for (int number = 1; all.contains("waiting." + std::to_string(number)); number++)
        text += (number == 1 ? ": " : ", ") + client_text(value_of(all, "waiting." + std::to_string(number)));
    return text;
}

string running_text(const status_values &all)
{
    if (!all.contains("running.command"))
        return "nothing";
    return value_of(all, "running.command") + " for " +
           duration_text(std::to_string(std::atol(value_of(all, "running.for_ms").c_str()) / 1000)) +
           ", asked by " + value_of(all, "running.name") + " (pid " + value_of(all, "running.pid") +
           ", user " + value_of(all, "running.user") + ")";
}

string status_text(const vlk_status &status, const status_values &all)
{
    string text = "daemon:    running, pid " + std::to_string(status.pid) + ", for " +
                  duration_text(value_of(all, "daemon.for_s")) + "\ndevice:    " + status.device +
                  "\nmodem:     " + vlk_modem_text(status.modem) + ", for " +
                  duration_text(value_of(all, "modem.for_s"));
    if (status.reason[0] != '\0')
        text += string("\nreason:    ") + status.reason;
    if (all.contains("modem.owes"))
        text += "\nowes:      the answer to " + value_of(all, "modem.owes") + ", for " +
                duration_text(value_of(all, "modem.owes_for_s"));
    const string commands = counts_text(all, "commands.");
    const string reports = counts_text(all, "reports.");
    const string lost = counts_text(all, "lost.");
    const string unknown = value_of(all, "modem.unknown_lines");
    text += "\nrunning:   " + running_text(all) + "\nwaiting:   " + waiting_text(all) +
            "\nlisteners: " + value_of(all, "listeners") + "\ncommands:  " + value_of(all, "commands.all") +
            (commands.empty() ? "" : " (" + commands + ")") + ", mean " + value_of(all, "commands.mean_ms") +
            " ms, slowest " + value_of(all, "commands.slowest_ms") + " ms, " +
            value_of(all, "commands.withdrawn") +
            " withdrawn\nreports:   " + (reports.empty() ? "none" : reports) +
            (unknown == "0" ? "" : "; " + unknown + " unknown lines") +
            "\nlost:      " + (lost.empty() ? "nothing" : lost) +
            "\nrefused:   " + value_of(all, "clients.refused") + " connections, " +
            value_of(all, "requests.refused") + " requests\nmodem was: lost " +
            value_of(all, "modem.losses") + " times, its settings put right " +
            value_of(all, "modem.restorations") + " times\nfolder:    " + status.runtime_dir;
    return text;
}

ordered_json status_json(const vlk_status &status, const status_values &all)
{
    ordered_json details = ordered_json::object();
    for (const auto &[name, value] : all) {
        char *end = nullptr;
        const long long number = std::strtoll(value.c_str(), &end, 10);
        if (!value.empty() && *end == '\0')
            details[name] = number;
        else
            details[name] = value;
    }
    return {{"running", true},
            {"pid", status.pid},
            {"modem", vlk_modem_text(status.modem)},
            {"modem_seconds", status.modem_seconds},
            {"device", status.device},
            {"reason", status.reason},
            {"command", status.running},
            {"waiting", status.waiting},
            {"runtime_dir", status.runtime_dir},
            {"details", details}};
}

/// Prints one status. The exit code.
int show(const common_options &common, const vlk_status &status, const string &text, bool clears)
{
    const status_values all = status_values_of(text);
    if (common.json)
        return print_json(status_json(status, all)) ? EXIT_DONE : EXIT_OTHER;
    if (clears)
        std::fputs("\x1b[H\x1b[2J", stdout);
    return print_line(status_text(status, all)) ? EXIT_DONE : EXIT_OTHER;
}

struct told {
    int result;
    vlk_status status;
    string text;
};

told ask(const vlk_place &place)
{
    told answer{};
    std::array<char, VLK_STATUS_TEXT_SIZE> text{};
    answer.result = vlk_get_status_text(&place, &answer.status, text.data(), text.size());
    answer.text = text.data();
    return answer;
}

/// Asks again and again, since the daemon and its files may not be there yet, until the modem is ready or the time is
/// up. The last answer.
told ask_until_ready(const vlk_place &place, double seconds)
{
    using clock = std::chrono::steady_clock;
    const auto end = clock::now() + std::chrono::duration<double>(seconds);
    for (;;) {
        told answer = ask(place);
        const bool ready = answer.result == VLK_OK && answer.status.modem == VLK_MODEM_READY;
        if (ready || answer.result == VLK_DENIED || clock::now() >= end)
            return answer;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

int fail_status(const common_options &common, const told &answer)
{
    return report_failure(answer.result, common.json,
                          {{"running", false}, {"runtime_dir", answer.status.runtime_dir}});
}
} // namespace

status_values status_values_of(const string &text)
{
    status_values all;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        const size_t blank = text.find(' ', at);
        if (blank < end)
            all[text.substr(at, blank - at)] = text.substr(blank + 1, end - blank - 1);
        at = end + 1;
    }
    return all;
}

int run_status(const common_options &common, std::optional<double> wait_ready)
{
    const told answer = ask_until_ready(common.place(), wait_ready.value_or(0));
    if (answer.result != VLK_OK)
        return fail_status(common, answer);
    const int shown = show(common, answer.status, answer.text, false);
    const bool is_late = wait_ready && answer.status.modem != VLK_MODEM_READY;
    return shown == EXIT_DONE && is_late ? EXIT_NO_ANSWER : shown;
}

int watch_status(const common_options &common)
{
    catch_interrupts();
    const bool clears = isatty(STDOUT_FILENO) == 1;
    while (!interrupted()) {
        const told answer = ask(common.place());
        const int shown = answer.result == VLK_OK ? show(common, answer.status, answer.text, clears)
                                                  : fail_status(common, answer);
        if (shown != EXIT_DONE && shown != EXIT_NOT_RUNNING) // a daemon that restarts is waited for
            return shown;
        wait_readable(-1, REFRESH_MS);
    }
    return EXIT_DONE;
}
