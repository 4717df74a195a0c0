// modemsim: a simulated cellular modem behind a pseudo-terminal or a Unix socket.

#include "simulator.h"
#include "text.h"

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include <sys/signalfd.h>
#include <unistd.h>

namespace
{

enum exit_code {
    exit_done = 0,
    exit_failed = 1,
    exit_usage = 2,
    exit_dialogue = 3
};

constexpr char help_footer[] = R"(DIALOGUE FILES (a complete description is in sim/README.md)
  include default            also all of the built-in dialogue; 'include FILE' for another
  set NAME VALUE             start value of a variable; {NAME} in a text is replaced by it
  command PATTERN            what to do for a command line; the last command that matches wins
      line TEXT              a line of the answer, framed by CR LF
      report TEXT            an unsolicited line, also in the middle of an answer
      final TEXT             the final result, for example OK; 'final none' for no result at all
      raw TEXT               bytes as they are
      delay 250ms            wait (ms or s)
      prompt pdu {length}    "> ", then a PDU of that many octets until Ctrl-Z; 'prompt text' for any text
      set NAME VALUE, count NAME [N]      change a variable, add one or N to it ('count NAME -1')
      encode NAME TEXT       set a variable to the text in the client's character set (AT+CSCS)
      if NAME = TEXT ... else ... end     also != < > <= >=
      later 500ms STEP       report, raw, set, count or messages, while the next commands are served
      messages ACTION ...    list, read, delete, write, compose, load, sent, select, loop or report
      data echo|drop, hang-up             bytes are data until +++ between two silences; no data any longer
      abortable              any byte ends the answer early with its final result
      repeat N ... end       the steps between, N times; {i} is the number
      stop-by PATTERN        a line that ends the answer early with its final result
  every 6s [after 2s], after 500ms, at start    scheduled reports (report, raw, set, count, if, repeat)
  message STATE PDU          a message in the memory at the start: unread, read, unsent or sent
  forget reports, forget messages      drop those written so far
  PATTERN: '*' any text, {name} any text remembered, {name:#} digits, {name:a|b} a choice; case does not matter
  TEXT: \r \n \\ \xNN and a backslash before punctuation, as in \{
  # starts a comment line

CONTROL LINES on standard input, each answered by "ok", "error: CAUSE" or JSON on standard output
  report TEXT        send CR LF TEXT CR LF          raw TEXT         send bytes, escapes as above
  unplug, replug     take the modem away, put it back     silence on|off   read but answer nothing
  receive NUMBER TEXT     a message arrives          receive-pdu HEX         the same as a PDU
  status-report REFERENCE [STATUS]    the report for a message that the client sent
  hangup             the far end ends the data connection
  garbage N          N random bytes                 flood N [TEXT]   N reports as fast as they are read
  set NAME VALUE     change a variable              state            what is going on, as JSON
  quit               end

EXIT STATUS
  0 ended as asked (quit, SIGTERM, SIGINT, SIGHUP), 1 device or log failed, 2 wrong usage, 3 mistake in the dialogue
)";

struct arguments {
    std::string dialogue_path;
    std::string link;
    std::string socket;
    std::string split = "none";
    std::string echo;
    std::string latency;
    unsigned pace = 0;
    std::string log;
    bool no_reports = false;
    bool print_default = false;
    modemsim::settings settings;
};

std::string check_split(const std::string &text)
{
    constexpr unsigned longest = 65536;
    if (text == "none" || text == "random" || modemsim::parse_number(text, longest).value_or(0) > 0)
        return {};
    return "split must be a number from 1 to 65536, 'random' or 'none'";
}

std::string check_duration(const std::string &text)
{
    return modemsim::parse_duration(text) ? "" : "latency must be a time such as 20ms or 1s, up to a day";
}

modemsim::split_mode split_of(const std::string &text)
{
    using modemsim::split_mode;
    if (text == "none")
        return {};
    if (text == "random")
        return {split_mode::random, 0};
    return {split_mode::fixed, std::stoul(text)};
}

void declare(CLI::App &app, arguments &given)
{
    app.set_version_flag("--version", "modemsim " MODEMSIM_VERSION);
    app.add_option("--dialogue", given.dialogue_path, "What to answer (default: the built-in dialogue)")
        ->type_name("FILE");
    auto *const link = app.add_option("--link", given.link, "Symbolic link to the device, removed at the end")
                           ->type_name("PATH");
    app.add_option("--socket", given.socket, "Listen on a Unix stream socket instead of a pseudo-terminal")
        ->type_name("PATH")
        ->excludes(link);
    app.add_option("--seed", given.settings.seed, "Start of the random numbers (default 1)")->type_name("N");
    app.add_option("--split", given.split, "Cut the output into pieces of N bytes, or at random places")
        ->type_name("N|random|none")
        ->check(check_split);
    app.add_option("--echo", given.echo, "Echo at the start (default: as the dialogue says)")
        ->type_name("on|off")
        ->check(CLI::IsMember({"on", "off"}));
    app.add_option("--pace", given.pace, "Bytes a second that the line carries each way (default: no limit)")
        ->type_name("N")
        ->check(CLI::Range(1U, 100'000'000U));
    app.add_option("--latency", given.latency, "Time from the end of a command to its answer (default: 0)")
        ->type_name("TIME")
        ->check(check_duration);
    app.add_flag("--no-reports", given.no_reports, "Send no scheduled reports");
    app.add_option("--log", given.log,
                   "Write every byte in (<) and out (>) to a file, or to standard error (-)")
        ->type_name("FILE");
    app.add_flag("--exit-with-stdin", given.settings.exit_with_stdin, "End when standard input ends");
    app.add_flag("--print-default", given.print_default, "Print the built-in dialogue and end");
    app.footer(help_footer);
}

modemsim::dialogue read_dialogue(const arguments &given)
{
    modemsim::dialogue script = given.dialogue_path.empty()
                                    ? modemsim::parse_dialogue(modemsim::default_dialogue, "default.dialogue")
                                    : modemsim::load_dialogue(given.dialogue_path);
    if (given.no_reports)
        script.schedules.clear();
    if (!given.echo.empty())
        script.start_values["echo"] = given.echo == "on" ? "1" : "0";
    if (given.pace > 0)
        script.start_values["pace"] = std::to_string(given.pace);
    if (!given.latency.empty())
        script.start_values["latency"] = given.latency;
    return script;
}

/// A descriptor that becomes readable when the process is asked to end.
int stop_signals()
{
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGTTIN, SIG_IGN);
    sigset_t stop;
    sigemptyset(&stop);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&stop, signal);
    sigprocmask(SIG_BLOCK, &stop, nullptr);
    const int fd = ::signalfd(-1, &stop, SFD_CLOEXEC);
    if (fd < 0)
        throw std::runtime_error("cannot watch for signals");
    return fd;
}

std::FILE *open_log(const std::string &path)
{
    if (path.empty())
        return nullptr;
    std::FILE *const log = path == "-" ? stderr : std::fopen(path.c_str(), "we");
    if (log == nullptr)
        throw std::runtime_error("cannot write the log " + path + "; check the folder and its permissions");
    return log;
}

void serve(arguments &given)
{
    modemsim::dialogue script = read_dialogue(given);
    given.settings.split = split_of(given.split);
    given.settings.log = open_log(given.log);
    const int stop_fd = stop_signals();
    auto port =
        given.socket.empty() ? modemsim::make_pty_port(given.link) : modemsim::make_socket_port(given.socket);
    std::printf("%s\n", port->device().c_str());
    std::fflush(stdout);
    modemsim::simulator(std::move(script), std::move(port), given.settings).run(stop_fd);
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app(
        "modemsim: a simulated cellular modem. Prints the device to open as its first line and serves it\n"
        "until it is told to end.",
        "modemsim");
    arguments given;
    declare(app, given);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? exit_done : exit_usage;
    }
    if (given.print_default) {
        std::fwrite(modemsim::default_dialogue.data(), 1, modemsim::default_dialogue.size(), stdout);
        return exit_done;
    }
    try {
        serve(given);
        return exit_done;
    } catch (const modemsim::dialogue_error &error) {
        std::fprintf(stderr, "modemsim: %s\n", error.what());
        return exit_dialogue;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "modemsim: %s\n", error.what());
        return exit_failed;
    }
}
