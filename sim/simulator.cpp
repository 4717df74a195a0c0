#include "simulator.h"

#include "text.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <stdexcept>

#include <nlohmann/json.hpp>
#include <poll.h>
#include <unistd.h>

namespace modemsim
{

namespace
{

constexpr int client_check_ms = 20;        // how often an idle port is looked at for a client
constexpr milliseconds longest_wait(1000); // until a terminal is looked at again: its job may be in front now
constexpr milliseconds piece_gap(1);       // between the pieces of split output
constexpr std::size_t random_piece = 24;   // longest piece of a random split
constexpr std::size_t max_control_line = 65536;
constexpr unsigned max_stream = 100'000'000; // reports of a flood, bytes of garbage

constexpr unsigned pieces_a_second = 100; // of a paced line
constexpr milliseconds longest_lag(100);  // that a paced line makes up for

bool would_block()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

} // namespace

std::size_t pacer::allowed(milliseconds now, unsigned bytes_a_second) const
{
    if (next_ > now)
        return 0;
    return bytes_a_second == 0 ? std::string_view::npos : std::max(1U, bytes_a_second / pieces_a_second);
}

void pacer::moved(std::size_t count, milliseconds now, unsigned bytes_a_second)
{
    if (bytes_a_second > 0)
        next_ = std::max(next_, now - longest_lag) + milliseconds(count * 1000 / bytes_a_second);
}

simulator::simulator(dialogue script, std::unique_ptr<port> wire, settings options)
    : modem_(std::move(script), options.seed), port_(std::move(wire)), options_(options),
      split_random_(options.seed), stdin_is_terminal_(::isatty(STDIN_FILENO) != 0)
{
}

milliseconds simulator::now() const
{
    return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start_);
}

void simulator::run(int stop_fd)
{
    while (!ended_) {
        meet_client();
        modem_.advance(now());
        write_client();
        wait(stop_fd);
    }
}

void simulator::meet_client()
{
    if (client_ || !port_->client_present())
        return;
    client_ = true;
    to_client_.wait_until(now());
    from_client_.wait_until(now());
    modem_.client_opened(now());
    note('-', "client came");
}

void simulator::lose_client()
{
    client_ = false;
    modem_.client_closed();
    port_->client_left();
    note('-', "client left");
}

/// Milliseconds from `at` until something is due by itself, or longest_wait.
int simulator::wait_limit(milliseconds at) const
{
    milliseconds limit = longest_wait;
    if (port_->plugged() && !client_)
        limit = milliseconds(client_check_ms);
    if (const auto due = modem_.next_due())
        limit = std::min(limit, *due - at);
    if (!modem_.output().empty() && to_client_.next() > at)
        limit = std::min(limit, to_client_.next() - at);
    if (client_ && from_client_.next() > at)
        limit = std::min(limit, from_client_.next() - at);
    return static_cast<int>(std::max(limit, milliseconds(0)).count());
}

/// A job in the background must not read its terminal: the shell's user types there.
bool simulator::may_read_control() const
{
    return stdin_open_ && (!stdin_is_terminal_ || ::tcgetpgrp(STDIN_FILENO) == ::getpgrp());
}

void simulator::wait(int stop_fd)
{
    const milliseconds at =
        now(); // one for both questions: is the next piece due, and if not, how long until then
    short interest = modem_.input_room() > 0 && from_client_.next() <= at ? POLLIN : 0;
    if (!modem_.output().empty() && to_client_.next() <= at)
        interest |= POLLOUT;
    pollfd watched[] = {
        {stop_fd, POLLIN, 0},
        {may_read_control() ? STDIN_FILENO : -1, POLLIN, 0},
        {client_ ? port_->fd() : -1, interest, 0},
    };
    if (::poll(watched, std::size(watched), wait_limit(at)) <= 0)
        return;
    if (watched[0].revents != 0)
        ended_ = true;
    if ((watched[2].revents & (POLLIN | POLLHUP | POLLERR)) != 0)
        read_client((watched[2].revents & POLLHUP) != 0);
    if (watched[1].revents != 0)
        read_control();
}

void simulator::read_client(bool hang_up)
{
    char bytes[modem::max_input];
    const std::size_t pace_room = hang_up ? modem::max_input : from_client_.allowed(now(), pace());
    const std::size_t room = std::min(modem_.input_room(), pace_room);
    if (room == 0)
        return lose_client(); // not asked for input, so this is a hang-up
    const ssize_t count = ::read(port_->fd(), bytes, room);
    if (count < 0 && would_block())
        return;
    if (count <= 0)
        return lose_client(); // end of file, or EIO when the last client of a pseudo-terminal closed it
    const std::string_view received(bytes, static_cast<std::size_t>(count));
    bytes_in_ += received.size();
    from_client_.moved(received.size(), now(), pace());
    note('<', received);
    modem_.receive(received);
}

void simulator::write_client()
{
    while (client_ && !modem_.output().empty() && to_client_.allowed(now(), pace()) > 0) {
        const std::size_t size = std::min(piece_size(), to_client_.allowed(now(), pace()));
        const std::string_view piece = modem_.output().substr(0, size);
        const ssize_t count = ::write(port_->fd(), piece.data(), piece.size());
        if (count < 0)
            return would_block() ? void() : lose_client();
        const auto sent = static_cast<std::size_t>(count);
        bytes_out_ += sent;
        note('>', piece.substr(0, sent));
        modem_.written(sent);
        to_client_.moved(sent, now(), pace());
        if (options_.split.kind != split_mode::none)
            to_client_.wait_until(std::max(to_client_.next(), now() + piece_gap));
    }
}

std::size_t simulator::piece_size()
{
    if (options_.split.kind == split_mode::random)
        return 1 + split_random_() % random_piece;
    return options_.split.kind == split_mode::fixed ? options_.split.size : std::string_view::npos;
}

void simulator::note(char direction, std::string_view bytes)
{
    if (options_.log == nullptr)
        return;
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    std::fprintf(options_.log, "%12.6f %c %s\n", seconds, direction, escape(bytes).c_str());
    std::fflush(options_.log);
}

void simulator::read_control()
{
    char bytes[4096];
    const ssize_t count = ::read(STDIN_FILENO, bytes, sizeof bytes);
    if (count < 0 && would_block())
        return;
    if (count <= 0) {
        stdin_open_ = false;
        ended_ = ended_ || options_.exit_with_stdin;
        return;
    }
    control_input_.append(bytes, static_cast<std::size_t>(count));
    std::size_t end = 0;
    while (!ended_ && (end = control_input_.find('\n')) != std::string::npos) {
        const std::string line = control_input_.substr(0, end);
        control_input_.erase(0, end + 1);
        std::printf("%s\n", control(line).c_str());
        std::fflush(stdout);
    }
    if (control_input_.size() > max_control_line)
        throw std::runtime_error("a control line is longer than " + std::to_string(max_control_line) +
                                 " bytes");
}

std::string simulator::control(std::string_view line)
{
    struct row {
        std::string_view word;
        control_function serve;
    };
    constexpr row rows[] = {
        {"report", &simulator::control_report},
        {"raw", &simulator::control_raw},
        {"unplug", &simulator::control_unplug},
        {"replug", &simulator::control_replug},
        {"silence", &simulator::control_silence},
        {"garbage", &simulator::control_garbage},
        {"receive", &simulator::control_receive},
        {"receive-pdu", &simulator::control_receive_pdu},
        {"status-report", &simulator::control_status_report},
        {"hangup", &simulator::control_hangup},
        {"flood", &simulator::control_flood},
        {"set", &simulator::control_set},
        {"state", &simulator::control_state},
        {"quit", &simulator::control_quit},
    };
    if (line.ends_with('\r'))
        line.remove_suffix(1);
    meet_client(); // one that opened the device before this line was sent counts
    const std::string_view word = take_word(line);
    const auto *const found = std::ranges::find(rows, word, &row::word);
    if (found == std::end(rows))
        return "error: unknown control word '" + escape(word) +
               "'; known are report, raw, receive, receive-pdu, status-report, hangup, unplug, replug, silence, garbage, "
               "flood, set, state, quit";
    try {
        return (this->*found->serve)(line);
    } catch (const std::exception &error) {
        return std::string("error: ") + error.what();
    }
}

void simulator::need_client() const
{
    if (!client_)
        throw std::runtime_error("nobody has the device open; nothing was sent");
}

std::string simulator::control_report(std::string_view text)
{
    need_client();
    if (text.empty())
        throw std::runtime_error("report wants a text, as in: report ^RSSI: 18");
    if (!modem_.report(unescape(text)))
        throw std::runtime_error("the client does not read; nothing was sent");
    return "ok";
}

std::string simulator::control_raw(std::string_view text)
{
    need_client();
    if (text.empty())
        throw std::runtime_error("raw wants bytes, as in: raw \\r\\nRING\\r\\n\\x00");
    if (!modem_.raw(unescape(text)))
        throw std::runtime_error("the client does not read; nothing was sent");
    return "ok";
}

std::string simulator::control_unplug(std::string_view)
{
    if (!port_->plugged())
        throw std::runtime_error("the modem is unplugged already; replug it first");
    client_ = false;
    port_->unplug();
    modem_.power_up();
    note('-', "unplugged");
    return "ok";
}

std::string simulator::control_replug(std::string_view)
{
    if (port_->plugged())
        throw std::runtime_error("the modem is plugged in; unplug it first");
    port_->plug();
    note('-', "plugged in as " + port_->device());
    return "ok";
}

namespace
{

std::string ok_or(const std::string &refusal)
{
    if (!refusal.empty())
        throw std::runtime_error(refusal);
    return "ok";
}

} // namespace

std::string simulator::control_receive(std::string_view rest)
{
    const std::string_view number = take_word(rest);
    if (rest.empty())
        throw std::runtime_error("receive wants a number and a text, as in: receive +12025550123 Hello");
    return ok_or(modem_.receive_text(number, unescape(rest)));
}

std::string simulator::control_receive_pdu(std::string_view pdu)
{
    return ok_or(modem_.receive_pdu(pdu));
}

std::string simulator::control_status_report(std::string_view rest)
{
    const std::string_view reference = take_word(rest);
    const auto status = rest.empty() ? std::optional(0U) : parse_number(rest, 255);
    if (reference.empty() || !status)
        throw std::runtime_error(
            "status-report wants the reference that the client was told, and a status from 0 "
            "to 255 if you like, as in: status-report 12 70");
    return ok_or(modem_.receive_report(reference, *status));
}

std::string simulator::control_hangup(std::string_view)
{
    if (!modem_.hang_up())
        throw std::runtime_error("no data connection is there to hang up");
    return "ok";
}

std::string simulator::control_silence(std::string_view word)
{
    if (word != "on" && word != "off")
        throw std::runtime_error("write 'silence on' or 'silence off'");
    modem_.silence(word == "on");
    return "ok";
}

std::string simulator::control_garbage(std::string_view count)
{
    need_client();
    const auto number = parse_number(count, max_stream);
    if (!number)
        throw std::runtime_error("garbage wants a number of bytes up to " + std::to_string(max_stream));
    modem_.garbage(*number);
    return "ok";
}

std::string simulator::control_flood(std::string_view rest)
{
    need_client();
    const auto number = parse_number(take_word(rest), max_stream);
    if (!number)
        throw std::runtime_error("flood wants a number of reports up to " + std::to_string(max_stream) +
                                 ", and a text if you like, as in: flood 1000 ^RSSI: {i}");
    modem_.flood(*number, rest.empty() ? "^RSSI: {i}" : unescape(rest));
    return "ok";
}

std::string simulator::control_set(std::string_view rest)
{
    const std::string name(take_word(rest));
    if (name.empty())
        throw std::runtime_error("set wants a name and a value, as in: set operator Example");
    modem_.set(name, unescape(rest));
    return "ok";
}

std::string simulator::control_state(std::string_view)
{
    const modem::status state = modem_.state();
    const nlohmann::json answer = {
        {"device", port_->device()},
        {"plugged", port_->plugged()},
        {"client", state.client},
        {"silent", state.silent},
        {"answering", state.answering},
        {"prompting", state.prompting},
        {"data", state.data},
        {"commands", state.commands},
        {"unread_input", state.unread_input},
        {"unread_output", state.unread_output},
        {"flood_left", state.flood_left},
        {"garbage_left", state.garbage_left},
        {"bytes_in", bytes_in_},
        {"bytes_out", bytes_out_},
        {"variables", state.values},
    };
    return answer.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string simulator::control_quit(std::string_view)
{
    ended_ = true;
    return "ok";
}

} // namespace modemsim
