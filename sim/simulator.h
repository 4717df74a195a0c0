// The running simulator: one loop that carries bytes between the port and the modem and serves control lines.
#pragma once

#include "modem.h"
#include "port.h"

#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <string_view>

namespace modemsim
{

/// How output is cut into writes, with a millisecond between them.
struct split_mode {
    enum {
        none,
        fixed,
        random
    } kind = none;
    std::size_t size = 0; ///< fixed: bytes of a piece
};

struct settings {
    std::uint32_t seed = 1;
    split_mode split;
    std::FILE *log = nullptr; ///< every byte in and out; not owned
    bool exit_with_stdin = false;
};

/// Lets bytes through at a pace, in pieces of about ten milliseconds.
class pacer
{
public:
    /// How many bytes may go now; npos without a pace (0 bytes a second).
    std::size_t allowed(milliseconds now, unsigned bytes_a_second) const;

    /// Notes that so many bytes went.
    void moved(std::size_t count, milliseconds now, unsigned bytes_a_second);

    void wait_until(milliseconds at) { next_ = at; }
    milliseconds next() const { return next_; }

private:
    milliseconds next_{0};
};

class simulator
{
public:
    simulator(dialogue script, std::unique_ptr<port> wire, settings options);

    /// Serves client and control lines until "quit", a byte on `stop_fd`, or the end of standard input when asked
    /// for. Throws when the device cannot be served any longer.
    void run(int stop_fd);

private:
    using control_function = std::string (simulator::*)(std::string_view rest);

    milliseconds now() const;
    void meet_client();
    void lose_client();
    int wait_limit(milliseconds at) const;
    bool may_read_control() const;
    void wait(int stop_fd);
    void read_client(bool hang_up);
    unsigned pace() const { return modem_.pace(); }
    void write_client();
    std::size_t piece_size();
    void read_control();
    std::string control(std::string_view line);
    void note(char direction, std::string_view bytes);

    std::string control_report(std::string_view text);
    std::string control_raw(std::string_view text);
    std::string control_unplug(std::string_view rest);
    std::string control_replug(std::string_view rest);
    std::string control_receive(std::string_view rest);
    std::string control_receive_pdu(std::string_view pdu);
    std::string control_status_report(std::string_view rest);
    std::string control_hangup(std::string_view rest);
    std::string control_silence(std::string_view word);
    std::string control_garbage(std::string_view count);
    std::string control_flood(std::string_view rest);
    std::string control_set(std::string_view rest);
    std::string control_state(std::string_view rest);
    std::string control_quit(std::string_view rest);
    void need_client() const;

    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    modem modem_;
    std::unique_ptr<port> port_;
    settings options_;
    std::mt19937 split_random_;
    bool client_ = false;
    pacer to_client_;
    pacer from_client_;
    std::string control_input_;
    bool stdin_is_terminal_;
    bool stdin_open_ = true;
    bool ended_ = false;
    std::size_t bytes_in_ = 0;
    std::size_t bytes_out_ = 0;
};

} // namespace modemsim
