// vlkctl: the daemon from the command line. This file holds the command line itself.
#include <cstdlib>
#include <exception>
#include <functional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "ctl_commands.h"
#include "ctl_output.h"
#include "ctl_sms.h"

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

Response text goes to standard output. With --json every command prints one object
a line there. VLK_RUNTIME_DIR names the daemon's runtime folder as --runtime-dir does;
without them it is that of the one daemon there is.

Examples:
  vlkctl at AT+CSQ
  vlkctl at 'AT+CPOL?' --expect +CPOL: --multi-line
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
    std::optional<double> wait_ready;
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
            "seconds to wait for everything; by default the timeout and 30 more for requests of others")
        ->check(check_seconds);
    command
        ->add_option(
            "--wait-modem", line.limits.wait_modem,
            "wait up to so many seconds for a modem that is not ready; else the command fails at once")
        ->check(check_seconds);
}

void add_at(command_line &line)
{
    CLI::App *at = line.app.add_subcommand("at", "send an AT command and print its response");
    at->add_option("command", line.at.command, "the command, beginning with AT, without line end")
        ->required();
    at->add_option("--expect", line.at.expected, "prefix of the response lines, for example +CSQ:");
    CLI::Option *multi_line =
        at->add_flag("--multi-line", line.at.multi_line, "print the lines that --expect names one by one");
    at->add_flag("--raw", line.at.raw, "print everything as the modem sent it, final result included")
        ->excludes(multi_line);
    add_limits(line, at);
    at->footer("Without --multi-line or --raw response lines are joined without a separator.\n\nExamples:\n"
               "  vlkctl at AT+CSQ --expect +CSQ:\n"
               "  vlkctl at 'AT+COPS=?' --raw\n"
               "  vlkctl at ATI --raw --timeout 3 --json");
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

void add_status(command_line &line)
{
    CLI::App *status =
        line.app.add_subcommand("status", "tell whether the daemon runs, what the modem does, and for whom");
    status
        ->add_option("--wait-ready", line.wait_ready,
                     "wait up to so many seconds until the modem is ready; exit code 3 when it is not")
        ->check(check_seconds);
    status->footer("Examples:\n  vlkctl status\n  vlkctl status --json\n  vlkctl status --wait-ready 20");
    status->callback([&line] { line.chosen = [&line] { return run_status(line.common, line.wait_ready); }; });
}

void set_up(command_line &line)
{
    line.app.require_subcommand(1);
    line.app.fallthrough();
    line.app.set_version_flag("--version", "vlkctl " VLK_VERSION);
    line.app.footer(EXIT_CODES);
    line.app.add_option("--runtime-dir", line.common.runtime_dir, "the daemon's runtime folder");
    line.app.add_flag("--json", line.common.json, "print JSON");
    add_at(line);
    add_simple(line, "rssi", "print the last ^RSSI report", run_rssi);
    add_sms(line.app, line.common, line.chosen);
    add_simple(line, "stop-scan", "end a running network scan", run_stop_scan);
    add_monitor(line);
    add_status(line);
}

int run(int argc, char **argv)
{
    command_line line;
    set_up(line);
    try {
        line.app.parse(argc, argv);
    } catch (const CLI::RequiredError &error) {
        const std::vector<std::string> unknown = line.app.remaining();
        if (!unknown.empty()) {
            print_error("unknown subcommand \"" + unknown.front() + "\": see vlkctl --help");
            return EXIT_USAGE;
        }
        line.app.exit(error);
        return EXIT_USAGE;
    } catch (const CLI::ParseError &error) {
        return line.app.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
    }
    return line.chosen();
}
} // namespace

int main(int argc, char **argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception &error) {
        print_error(error.what());
        return EXIT_OTHER;
    }
}
