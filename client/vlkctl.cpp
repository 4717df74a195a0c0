// vlkctl: the daemon from the command line. This file holds the command line itself.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include "ctl_commands.h"
#include "ctl_output.h"
#include "ctl_port.h"
#include "ctl_sms.h"
#include "ctl_status.h"
#include "ctl_terminal.h"
#include "daemon_folders.h"

namespace
{
/// Also keeps out "nan", which is in every range.
std::string check_seconds(const std::string &text)
{
    const double seconds = std::strtod(text.c_str(), nullptr);
    return seconds >= 0.001 && seconds <= 1e6 ? "" : "Value " + text + " not in range 0.001 to 1000000";
}

constexpr const char *EXIT_CODES = R"(Exit codes:
  0  done
  1  the modem answered with an error, shown on standard error
  2  wrong usage, nothing was sent
  3  no answer in time
  4  the daemon is not running
  5  permission denied, the message says which group to join
  6  anything else
  7  the modem is not there; nothing was sent
  8  lines of the answer are missing, shown on standard error
  130  Ctrl-C

Response text goes to standard output. With --json every command prints one object
a line there. VLK_RUNTIME_DIR names the daemon's runtime folder as --runtime-dir does;
without them it is that of the one daemon there is.

Examples:
  vlkctl list
  vlkctl signal
  vlkctl at 'AT+CSQ;+COPS?'
  vlkctl --modem ttyUSB2 network
  vlkctl sms send --to +491511234567 'Back at 8'
  vlkctl monitor --module 19 --json
  vlkctl status

vlkctl SUBCOMMAND --help tells more.)";

struct command_line {
    CLI::App app{"vlkctl: AT commands, reports and state of the vorlink daemon", "vlkctl"};
    common_options common;
    request_options limits;
    at_options at;
    monitor_options monitor;
    signal_options signal;
    std::optional<double> wait_ready;
    std::string ussd_code;
    bool last_try = false;
    bool metrics = false;
    bool watch_status = false;
    bool vendor_scan = false;
    int32_t scan_timeout = 0; // seconds
    int32_t ussd_timeout = 0;
    std::function<int()> chosen; // what the given subcommand does
};

void add_limits(command_line &line, CLI::App *command)
{
    command->add_option("--timeout", line.limits.timeout, "seconds that the modem is given")
        ->check(CLI::Range(1, 86400))
        ->capture_default_str();
    command
        ->add_option(
            "--wait", line.limits.wait,
            "seconds to wait for everything, all commands of the line together; by default the timeout of "
            "each and 30 more for requests of others")
        ->check(check_seconds);
    command
        ->add_option(
            "--wait-modem", line.limits.wait_modem,
            "wait up to so many seconds for a modem that is not ready; else the command fails at once")
        ->check(check_seconds);
}

void add_at(command_line &line)
{
    CLI::App *at =
        line.app.add_subcommand("at", "send AT commands and print their answers as a terminal would");
    at->add_option(
          "command", line.at.command,
          "the command, beginning with AT, without line end; several joined by \";\" are sent one by one "
          "until one fails; - reads it from standard input, unseen on a terminal")
        ->required();
    at->add_option("--expect", line.at.expected,
                   "ask by hand: prefix of the response lines, for example +CSQ:");
    CLI::Option *multi_line = at->add_flag("--multi-line", line.at.multi_line,
                                           "ask by hand: print the lines that --expect names one by one");
    at->add_flag(
          "--raw", line.at.raw,
          "ask by hand: print everything that is no report as the modem sent it, final result included")
        ->excludes(multi_line);
    add_limits(line, at);
    at->footer("How to ask is worked out from the command; the options to ask by hand are for commands that\n"
               "answer in an unusual way. With --expect alone lines are joined without a separator.\n"
               "A final result other than OK goes to standard error.\n\nExamples:\n"
               "  vlkctl at AT+CSQ\n"
               "  vlkctl at 'AT+CREG?;+COPS?' --json\n"
               "  vlkctl at 'AT+COPS=?'\n"
               "  echo 'AT+CPIN=\"1234\"' | vlkctl at -");
    at->callback([&line] { line.chosen = [&line] { return run_at(line.common, line.limits, line.at); }; });
}

void add_monitor(command_line &line)
{
    CLI::App *monitor =
        line.app.add_subcommand("monitor", "print notifications and bus messages as they leave the daemon");
    monitor->add_option("--module", line.monitor.modules, "events to this module; may be repeated")
        ->allow_extra_args(false);
    monitor->add_option("--name", line.monitor.names, "bus messages to this destination; may be repeated")
        ->allow_extra_args(false);
    monitor->add_option("--count", line.monitor.count,
                        "end after so many; exit code 3 when --seconds end first");
    monitor->add_option("--seconds", line.monitor.seconds, "end after so many seconds")->check(check_seconds);
    monitor->add_flag("--look", line.monitor.look,
                      "ask the modem for its registration when a notification says that it has changed");
    monitor->add_flag("--reconnect", line.monitor.reconnect, "wait for the next daemon when this one ends");
    monitor->footer(
        "Without --module and --name everything is printed. \"listening\" on standard error says that\n"
        "nothing is missed from then on; \"N missed\" that this program was too slow.\n\nExamples:\n"
        "  vlkctl monitor\n"
        "  vlkctl monitor --module 19 --module 9 --name dialup --json\n"
        "  vlkctl monitor --module 1 --count 1 --seconds 60");
    monitor->callback([&line] { line.chosen = [&line] { return run_monitor(line.common, line.monitor); }; });
}

void add_simple(command_line &line, const char *name, const char *description,
                int (*run)(const common_options &))
{
    CLI::App *command = line.app.add_subcommand(name, description);
    command->footer(std::string("Example:\n  vlkctl ") + name + "\n  vlkctl " + name + " --json");
    command->callback([&line, run] { line.chosen = [&line, run] { return run(line.common); }; });
}

void add_signal(command_line &line)
{
    CLI::App *signal = line.app.add_subcommand("signal", "show technology, reception in dBm, and bars");
    CLI::Option *watch =
        signal->add_flag("--watch", line.signal.watch,
                         "go on with what the modem reports, as a graph on a terminal, until Ctrl-C");
    signal->add_option("--count", line.signal.count, "end after so many readings")->needs(watch);
    signal->footer("Watching asks the modem once, then it only listens to the daemon's notifications.\n\n"
                   "Examples:\n  vlkctl signal\n  vlkctl signal --json\n  vlkctl signal --watch");
    signal->callback([&line] { line.chosen = [&line] { return run_signal(line.common, line.signal); }; });
}

void add_sim(command_line &line)
{
    CLI::App *sim = line.app.add_subcommand("sim", "show the SIM's state and numbers, or unlock it");
    sim->callback([&line, sim] {
        if (sim->get_subcommands().empty())
            line.chosen = [&line] { return run_sim(line.common); };
    });
    CLI::App *unlock = sim->add_subcommand("unlock", "read the PIN from standard input and try it once");
    unlock->add_flag("--last-try", line.last_try, "try it even if a wrong PIN blocks the SIM");
    unlock->footer("On a terminal the PIN is not shown. It is nowhere else: not among the arguments, not in "
                   "JSON.\n\nExamples:\n  vlkctl sim unlock\n  vlkctl sim unlock <pin-file");
    unlock->callback(
        [&line] { line.chosen = [&line] { return run_sim_unlock(line.common, line.last_try); }; });
    sim->footer("Examples:\n  vlkctl sim\n  vlkctl sim unlock");
}

void add_scan(command_line &line)
{
    CLI::App *scan = line.app.add_subcommand("scan", "search for networks; takes minutes, Ctrl-C stops it");
    scan->add_flag("--vendor", line.vendor_scan, "use AT^NETSCAN in place of AT+COPS=? and print its lines");
    line.scan_timeout = 300;
    scan->add_option("--timeout", line.scan_timeout, "seconds that the modem is given")
        ->check(CLI::Range(1, 86400))
        ->capture_default_str();
    scan->footer("Examples:\n  vlkctl scan\n  vlkctl scan --json --timeout 120");
    scan->callback([&line] {
        line.chosen = [&line] { return run_scan(line.common, line.scan_timeout, line.vendor_scan); };
    });
}

void add_ussd(command_line &line)
{
    CLI::App *ussd = line.app.add_subcommand("ussd", "send a code to the network and show its answer");
    ussd->add_option("code", line.ussd_code, "the code, for example '*100#'")->required();
    line.ussd_timeout = 60;
    ussd->add_option("--timeout", line.ussd_timeout,
                     "seconds that modem and network are given for each answer")
        ->check(CLI::Range(1, 86400))
        ->capture_default_str();
    ussd->footer(
        "When the network asks something the answer is read from standard input; an empty one ends.\n\n"
        "Examples:\n  vlkctl ussd '*100#'\n  echo 1 | vlkctl ussd '*100#' --json");
    ussd->callback([&line] {
        line.chosen = [&line] { return run_ussd(line.common, line.ussd_code, line.ussd_timeout); };
    });
}

void add_status(command_line &line)
{
    CLI::App *status =
        line.app.add_subcommand("status", "tell whether the daemon runs, what the modem does, and for whom");
    status
        ->add_option("--wait-ready", line.wait_ready,
                     "wait up to so many seconds until the modem is ready; exit code 3 when it is not")
        ->check(check_seconds);
    status->footer(
        "Examples:\n  vlkctl status\n  vlkctl status --json\n  vlkctl status --wait-ready 20\n  vlkctl status --watch");
    status->add_flag("--metrics", line.metrics, "print everything in the text format of Prometheus");
    status->add_flag("--watch", line.watch_status, "show it again every second, until Ctrl-C");
    status->callback([&line] {
        line.chosen = [&line] {
            if (line.watch_status)
                return watch_status(line.common);
            return line.metrics ? run_metrics(line.common) : run_status(line.common, line.wait_ready);
        };
    });
}

void choose_modem(command_line &line, const std::string &name)
{
    line.common.runtime_dir = folder_of_modem(name);
    if (line.common.runtime_dir.empty())
        throw CLI::ValidationError("--modem",
                                   "there is no modem \"" + name + "\" on this machine: see vlkctl list");
}

void set_up(command_line &line)
{
    line.app.require_subcommand(1);
    line.app.fallthrough();
    line.app.set_version_flag("--version", "vlkctl " VLK_VERSION);
    line.app.footer(EXIT_CODES);
    line.app.add_option("--runtime-dir", line.common.runtime_dir, "the daemon's runtime folder");
    line.app.add_flag("--json", line.common.json, "print JSON");
    line.app
        .add_option_function<std::string>(
            "--modem", [&line](const std::string &name) { choose_modem(line, name); },
            "the modem's name in place of a runtime folder; vlkctl list shows the names")
        ->excludes("--runtime-dir");
    add_at(line);
    add_signal(line);
    add_simple(line, "network", "show registration, operator, technology and cell", run_network);
    add_sim(line);
    add_simple(line, "modem", "show maker, model, firmware and IMEI", run_modem);
    add_scan(line);
    add_ussd(line);
    add_simple(line, "rssi", "print the last ^RSSI report", run_rssi);
    add_sms(line.app, line.common, line.chosen);
    add_port(line.app, line.common, line.chosen);
    add_simple(line, "stop-scan", "end a running network scan", run_stop_scan);
    add_monitor(line);
    add_simple(line, "list", "show the daemons on this machine and their modems", run_list);
    add_status(line);
}

/// True when JSON is wanted although the arguments could not be read.
bool wants_json(int argc, char **argv)
{
    return std::any_of(argv, argv + argc,
                       [](const char *text) { return std::string_view(text) == "--json"; });
}

int finish_help()
{
    if (std::cout.flush())
        return EXIT_DONE;
    print_error("cannot write to standard output");
    return EXIT_OTHER;
}

int refuse_arguments(const std::string &text, bool json)
{
    if (json)
        print_json({{"error", text}});
    return EXIT_USAGE;
}

int run(int argc, char **argv)
{
    command_line line;
    set_up(line);
    try {
        line.app.parse(argc, argv);
    } catch (const CLI::RequiredError &error) {
        const std::vector<std::string> unknown = line.app.remaining();
        if (!unknown.empty())
            return report_refusal(EXIT_USAGE,
                                  "unknown subcommand \"" + unknown.front() + "\": see vlkctl --help",
                                  wants_json(argc, argv));
        line.app.exit(error);
        return refuse_arguments(error.what(), wants_json(argc, argv));
    } catch (const CLI::ParseError &error) {
        if (line.app.exit(error) == 0)
            return finish_help();
        return refuse_arguments(error.what(), wants_json(argc, argv));
    }
    return line.chosen();
}
} // namespace

int main(int argc, char **argv)
{
    keep_standard_streams();
    try {
        return run(argc, argv);
    } catch (const std::exception &error) {
        print_error(error.what());
        return EXIT_OTHER;
    }
}
