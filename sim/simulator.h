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
    void read_client();
    void write_client();
    std::size_t piece_size();
    void read_control();
    std::string control(std::string_view line);
    void note(char direction, std::string_view bytes);

    std::string control_report(std::string_view text);
    std::string control_raw(std::string_view text);
    std::string control_unplug(std::string_view rest);
    std::string control_replug(std::string_view rest);
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
    milliseconds next_write_{0};
    std::string control_input_;
    bool stdin_is_terminal_;
    bool stdin_open_ = true;
    bool ended_ = false;
    std::size_t bytes_in_ = 0;
    std::size_t bytes_out_ = 0;
};

} // namespace modemsim
