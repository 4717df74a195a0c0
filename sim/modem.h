// The simulated modem's behaviour: bytes of the client in, bytes for the client out, time given by the caller.
// No input or output of its own. Everything that it holds is bounded.
#pragma once

#include "dialogue.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>

namespace modemsim
{

class modem
{
public:
    static constexpr std::size_t max_input = 4096;  ///< unread bytes of the client
    static constexpr std::size_t max_line = 1560;   ///< characters of a command line; a longer one gets ERROR
    static constexpr std::size_t max_prompt = 4096; ///< characters of a text after the prompt
    static constexpr std::size_t output_high = 8192; ///< from here on nothing more is produced

    modem(dialogue script, std::uint32_t seed);

    /// Off and on: start values, nothing pending, no client; schedules wait for the first client.
    void power_up();

    /// A client opened the modem. The first one after power_up() starts the schedules.
    void client_opened(milliseconds now);

    /// The last client left: its half-typed line, queued commands, running answer and unread output are dropped.
    void client_closed();

    /// How many bytes receive() takes.
    std::size_t input_room() const { return max_input - input_.size(); }

    /// Takes bytes of the client, at most input_room(); advance() works on them.
    void receive(std::string_view bytes);

    /// Does all that is due at `now`, or as much as the output has room for.
    void advance(milliseconds now);

    /// When advance() has something to do without further input; nothing while it waits for the client to write or
    /// to read.
    std::optional<milliseconds> next_due() const;

    /// Bytes for the client that were not written yet.
    std::string_view output() const { return output_; }
    void written(std::size_t count) { output_.erase(0, count); }

    /// Sends a report, or plain bytes, at once. False when nobody would read it or too much is unread.
    bool report(std::string_view text);
    bool raw(std::string_view bytes);

    /// Sends `count` random bytes, or numbered reports ({i} in the text is the number), as fast as they are read.
    void garbage(unsigned count) { garbage_left_ = count; }
    void flood(unsigned count, std::string_view text);

    /// A silent modem reads and neither echoes nor answers nor reports by itself. Drops what is running.
    void silence(bool on);

    void set(const std::string &name, std::string_view value) { values_[name] = value; }

    struct status {
        bool client;
        bool silent;
        bool answering;
        bool prompting;
        unsigned commands; ///< taken since power_up()
        std::size_t unread_input;
        std::size_t unread_output;
        unsigned flood_left;
        unsigned garbage_left;
        const variables &values;
    };
    status state() const;

private:
    bool has_room() const { return output_.size() < output_high; }
    void send(std::string_view bytes);
    void frame(std::string_view text);
    void echo(std::string_view bytes);
    void drop_work();

    bool run_schedules();
    bool run_steps();
    bool take_input();
    bool run_streams();

    void execute(const step &what);
    bool stop_running();
    void take_line_byte(char c);
    void take_prompt_byte(char c);
    void begin_command(std::string_view line);
    void refuse_unknown(std::string_view line);
    void end_prompt();

    dialogue script_;
    std::mt19937 random_;
    variables values_;
    milliseconds now_{0};
    bool client_ = false;
    bool silent_ = false;
    bool started_ = false;                         // a client came since power_up()
    std::vector<std::optional<milliseconds>> due_; // one a schedule
    std::string input_;
    std::string output_;
    std::string line_;
    const command *running_ = nullptr;
    std::size_t next_step_ = 0;
    milliseconds resume_at_{0};
    const step *prompt_ = nullptr; // the step whose text is awaited
    std::string prompt_text_;
    bool in_lines_ = false; // the latest output is a line of the answer
    unsigned commands_ = 0;
    unsigned garbage_left_ = 0;
    unsigned flood_left_ = 0;
    unsigned flood_sent_ = 0;
    std::string flood_text_;
};

/// True when the text is the hexadecimal form of an SMSC address and of `length` further octets.
bool is_pdu_of_length(std::string_view text, unsigned length);

} // namespace modemsim
