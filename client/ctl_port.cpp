#include "ctl_port.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include <grp.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "answer_text.h"
#include "at_question.h"
#include "ctl_output.h"
#include "port_line.h"
#include "port_pty.h"

using std::string;
using std::string_view;

namespace
{
using clock_type = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int32_t COMMAND_SECONDS = 60;
constexpr int32_t NETWORK_LIST_SECONDS = 240;
constexpr milliseconds OTHERS{30000};   // granted to the requests that are ahead
constexpr milliseconds HUB_RETRY{1000}; // until the daemon's reports are asked for again
constexpr int32_t HUB_LIMIT_MS = 500;
constexpr int LIFE_LOOK_MS = 1000;   // between looks at the time limit
constexpr int LOOK_MS = 5;           // between tries to send while too many requests are under way
constexpr size_t OUTPUT_MAX = 65536; // for a program that does not read

using client_handle = std::unique_ptr<vlk_client, decltype(&vlk_close)>;
using hub_handle = std::unique_ptr<vlk_hub, decltype(&vlk_hub_close)>;

/// What a program is told when the daemon or the modem is not there: wait, and try again.
const port_reply BUSY_COMMAND{{}, "+CME ERROR: 14"};
const port_reply BUSY_MESSAGE{{}, "+CMS ERROR: 314"};
/// When no final result came in time, or more text than could be taken.
const port_reply FAILED_COMMAND{{}, "+CME ERROR: 100"};
const port_reply FAILED_MESSAGE{{}, "+CMS ERROR: 500"};

int32_t seconds_for(const at_question &question)
{
    return question.name == "+COPS" || question.name == "^NETSCAN" ? NETWORK_LIST_SECONDS : COMMAND_SECONDS;
}

/// A vlk_result.
int fill(at_cmd_msg &record, const port_request &request, const at_question &question)
{
    const bool is_raw = question.expected.empty();
    const char *expected = question.expected.c_str();
    if (request.pdu.empty())
        return vlk_fill_command(&record, request.line.c_str(), expected, is_raw ? VLK_RAW : VLK_MULTI_LINE,
                                seconds_for(question));
    if (const int failed = vlk_fill_sms(&record, VLK_SMS_SEND, request.pdu.c_str(), COMMAND_SECONDS))
        return failed;
    const string text = request.line + "\r" + request.pdu + "\x1A";
    if (text.size() + 2 >= sizeof record.snd_rcv_msg.cmd)
        return VLK_INVALID;
    std::memset(record.snd_rcv_msg.cmd, 0, sizeof record.snd_rcv_msg.cmd);
    text.copy(record.snd_rcv_msg.cmd, text.size());
    std::memset(record.at_match_str, 0, sizeof record.at_match_str);
    question.expected.copy(record.at_match_str, sizeof record.at_match_str - 1);
    return VLK_OK;
}

struct port_options {
    string link;
    string group = "dialout"; // of the terminal; empty: the user's own
    bool reports = true;
};

class port
{
public:
    port(const common_options &common_settings, const port_options &options)
        : common(common_settings), wants_reports(options.reports), line(options.reports)
    {
    }

    string create(const port_place &place) { return pty.create(place); }
    const string &device() const { return pty.device(); }
    int serve(int signals);

private:
    port_change look_at_programs();
    void read_program();
    void write_program();
    void serve_request();
    void start_request();
    std::optional<port_reply> answer_come();
    std::optional<port_reply> ask_in_pieces();
    void end_request(const port_reply &answer);
    void serve_reports();
    bool open_hub();
    int wait_ms() const;

    common_options common;
    bool wants_reports;
    port_pty pty;
    port_line line;
    string pending; // for the program
    client_handle client{nullptr, vlk_close};
    hub_handle hub{nullptr, vlk_hub_close};
    clock_type::time_point hub_retry{};
    bool started = false; // the line's request has its time limit
    bool sent = false;
    at_cmd_msg record{};
    at_question question;
    clock_type::time_point deadline{};
};

/// Looks whether programs have come or gone, and drops what was meant for one that has gone.
port_change port::look_at_programs()
{
    const port_change change = pty.look();
    if (change == port_change::NONE)
        return change;
    pending.clear();
    if (change == port_change::CLOSED)
        return change; // what was asked for is still done, unless another program comes
    if (started)
        client.reset(); // withdraws it
    started = sent = false;
    line.open();
    return change;
}

void port::read_program()
{
    std::array<char, 1024> bytes;
    while (pty.is_open() && line.has_room() && pending.size() < OUTPUT_MAX) {
        const ssize_t count = read(pty.terminal(), bytes.data(), bytes.size());
        const port_change change = look_at_programs(); // whose bytes these are
        if (count > 0 && change != port_change::FOLLOWED) {
            line.take({bytes.data(), static_cast<size_t>(count)});
            write_program();
        }
        if (count <= 0 && change == port_change::NONE)
            return;
    }
}

void port::write_program()
{
    pending += line.take_output();
    if (!pty.is_open() || pty.hung_up())
        pending.clear();
    if (pending.empty())
        return;
    const ssize_t count = write(pty.terminal(), pending.data(), pending.size());
    if (count > 0)
        pending.erase(0, static_cast<size_t>(count));
}

void port::serve_request()
{
    // an answer may bring the next request of the same line
    while (line.request() != nullptr) {
        if (!started)
            start_request();
        const std::optional<port_reply> answer = answer_come();
        if (!answer)
            return;
        end_request(*answer);
    }
}

void port::start_request()
{
    const port_request &request = *line.request();
    question = question_of(request.question);
    const int32_t seconds = seconds_for(question);
    deadline = clock_type::now() + std::chrono::seconds(seconds) + OTHERS;
    started = true;
    sent = false;
}

/// The reply to the line's request, none while it is not there yet.
std::optional<port_reply> port::answer_come()
{
    const port_request &request = *line.request();
    const bool is_message = !request.pdu.empty();
    const port_reply &busy = is_message ? BUSY_MESSAGE : BUSY_COMMAND;
    const port_reply &failed = is_message ? FAILED_MESSAGE : FAILED_COMMAND;
    if (!client) {
        const vlk_place place = common.place();
        vlk_client *opened = nullptr;
        if (vlk_open(&opened, &place) != VLK_OK)
            return busy;
        client.reset(opened);
    }
    if (!sent) {
        if (request.line == "AT") // needs a modem, but no answer from it
            return vlk_client_modem(client.get()) == VLK_MODEM_READY ? port_reply{{}, "OK"} : busy;
        if (fill(record, request, question) != VLK_OK)
            return failed;
        if (begin_answer(client.get(), record) != VLK_OK) {
            client.reset(); // its daemon has gone
            return busy;
        }
    }
    int result = sent ? VLK_OK : vlk_send(client.get(), &record, 0);
    sent = sent || result == VLK_OK;
    if (result == VLK_OK)
        result = vlk_wait(client.get(), record.seq, &record, 0);
    if (result == VLK_TIMEOUT && clock_type::now() < deadline)
        return {};
    if (result != VLK_OK) {
        client.reset();
        return busy;
    }
    const at_answer answer = take_answer(client.get(), question, record);
    const int32_t code = record.snd_rcv_msg.ret_val;
    if (code == AT_NONE || code == 0)
        return failed;
    if (code == AT_COMMAND_NOT_SUPPORT && vlk_client_modem(client.get()) != VLK_MODEM_READY)
        return busy; // it could not be written
    const bool is_done = code == AT_OK || code == AT_ATE0;
    if (answer.cut)
        return ask_in_pieces().value_or(failed);
    return port_reply{answer.lines, is_done ? "OK" : answer.final_result};
}

/// An answer that came cut, asked for again in pieces; the port waits meanwhile. None when it cannot be had whole.
std::optional<port_reply> port::ask_in_pieces()
{
    port_reply whole;
    vlk_answer answer{};
    const auto take_line = [](void *lines, const char *text) {
        static_cast<std::vector<string> *>(lines)->emplace_back(text);
    };
    const int result = vlk_ask(client.get(), line.request()->line.c_str(), COMMAND_SECONDS,
                               COMMAND_SECONDS * 1000, take_line, &whole.lines, &answer);
    if (result != VLK_OK || answer.cut != 0)
        return {};
    whole.final_result = answer.final_result;
    return whole;
}

void port::end_request(const port_reply &answer)
{
    started = sent = false;
    line.reply(answer);
    write_program();
}

bool port::open_hub()
{
    if (clock_type::now() < hub_retry)
        return false;
    hub_retry = clock_type::now() + HUB_RETRY;
    const vlk_place place = common.place();
    vlk_hub *opened = nullptr;
    if (vlk_hub_open(&opened, &place) != VLK_OK)
        return false;
    hub.reset(opened);
    if (vlk_hub_take_lines(opened, HUB_LIMIT_MS) == VLK_OK)
        return true;
    hub.reset();
    return false;
}

void port::serve_reports()
{
    if (!wants_reports || (!hub && !open_hub()))
        return;
    vlk_packet packet;
    int result;
    while ((result = vlk_hub_receive(hub.get(), &packet, 0)) == VLK_OK) {
        if (packet.kind == VLK_PACKET_LINE && pty.is_open() && pending.size() < OUTPUT_MAX)
            line.report({static_cast<const char *>(packet.data), packet.length});
        pending += line.take_output();
    }
    if (result != VLK_TIMEOUT)
        hub.reset();
}

int port::wait_ms() const
{
    if (line.request() != nullptr)
        return sent ? LIFE_LOOK_MS : LOOK_MS;
    return wants_reports && !hub ? static_cast<int>(HUB_RETRY.count()) : -1;
}

int port::serve(int signals)
{
    for (;;) {
        const bool reads = line.has_room() && pending.size() < OUTPUT_MAX;
        const auto wanted = static_cast<short>((reads ? POLLIN : 0) | (pending.empty() ? 0 : POLLOUT));
        std::array<pollfd, 5> inputs{{{signals, POLLIN, 0},
                                      {pty.watch(), POLLIN, 0},
                                      {pty.is_open() && wanted != 0 ? pty.terminal() : -1, wanted, 0},
                                      {hub ? vlk_hub_fd(hub.get()) : -1, POLLIN, 0},
                                      {sent ? vlk_client_fd(client.get()) : -1, POLLIN, 0}}};
        if (poll(inputs.data(), inputs.size(), wait_ms()) < 0 && errno != EINTR)
            return EXIT_OTHER;
        if (inputs[0].revents != 0)
            return EXIT_DONE;
        look_at_programs();
        read_program();
        serve_reports();
        serve_request();
        write_program();
    }
}

/// -1 and a word of warning when the group does not exist.
gid_t group_of(const string &name)
{
    if (name.empty())
        return static_cast<gid_t>(-1);
    const group *entry = getgrnam(name.c_str());
    if (entry != nullptr)
        return entry->gr_gid;
    print_error("there is no group " + name + ": only you may open the port (--group names another)");
    return static_cast<gid_t>(-1);
}

int run_port(const common_options &common, const port_options &options)
{
    sigset_t ends;
    sigemptyset(&ends);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&ends, signal);
    sigprocmask(SIG_BLOCK, &ends, nullptr);
    const int signals = signalfd(-1, &ends, SFD_CLOEXEC);
    port served(common, options);
    const string failed = served.create({options.link, group_of(options.group), 0660});
    if (!failed.empty() || signals < 0) {
        print_error(failed.empty() ? "no signals" : failed);
        return EXIT_OTHER;
    }
    if (common.json)
        print_json({{"command", "port"}, {"link", options.link}, {"device", served.device()}});
    else
        print_line(served.device());
    return served.serve(signals);
}
} // namespace

void add_port(CLI::App &app, const common_options &common, std::function<int()> &chosen)
{
    const auto options = std::make_shared<port_options>();
    CLI::App *port = app.add_subcommand("port", "be a serial port that shares the modem with old programs");
    port->add_option("link", options->link, "name of the port: a link to its terminal is made there")
        ->required();
    port->add_option("--group", options->group, "group that may open the port; empty for your own")
        ->capture_default_str();
    port->add_flag("--reports,!--no-reports", options->reports,
                   "pass on what the modem tells by itself (default)");
    port->footer(
        "Runs until it is ended. Open the link with gammu, smstools, minicom, chat, pyserial, ... as if it were\n"
        "the modem; man vorlink-port tells how to set each. Any number of ports may run at the same time.\n\n"
        "Example:\n  vlkctl port /tmp/modem &\n  picocom /tmp/modem");
    port->callback(
        [&common, &chosen, options] { chosen = [&common, options] { return run_port(common, *options); }; });
}
