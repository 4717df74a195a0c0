// The simulated modem's behaviour: bytes of the client in, bytes for the client out, time given by the caller.
// No input or output of its own. Everything that it holds is bounded.
#pragma once

#include "dialogue.h"
#include "escape_watch.h"
#include "line_settings.h"
#include "message_service.h"

#include <cstddef>
#include <cstdint>
#include <deque>
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
    static constexpr std::size_t max_later = 1024;   ///< steps that wait for their time

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

    /// A message arrives, as a text in UTF-8 or as a PDU, or the status report for a message that the client sent.
    /// Stored or reported as the client asked. Empty, or why it was refused.
    std::string receive_text(std::string_view number, std::string_view text);
    std::string receive_pdu(std::string_view pdu);
    std::string receive_report(std::string_view reference, unsigned outcome);

    /// The far end drops the data connection. False when there is none.
    bool hang_up();

    /// Sends `count` random bytes, or numbered reports ({i} in the text is the number), as fast as they are read.
    void garbage(unsigned count) { garbage_left_ = count; }
    void flood(unsigned count, std::string_view text);

    /// A silent modem reads but neither echoes nor answers nor reports by itself. Drops what is running.
    void silence(bool on);

    /// Bytes a second that the line carries each way; 0 for as many as can be.
    unsigned pace() const { return number("pace", 100'000'000, 0); }

    void set(const std::string &name, std::string_view value) { values_[name] = value; }

    struct status {
        bool client;
        bool silent;
        bool answering;
        bool prompting;
        bool data;         ///< bytes of the client are data, not commands
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
    line_settings settings() const { return line_settings(values_); }
    unsigned number(std::string_view name, unsigned highest, unsigned otherwise) const;
    milliseconds duration(std::string_view name) const;
    milliseconds guard_time() const { return milliseconds(20) * number("s12", 255, 50); }
    bool listens() const { return client_ && !silent_ && !data_ && has_room(); }
    void send_line(std::string_view text);
    void send_result(std::string_view text);
    void send_report(std::string_view text);
    void echo(std::string_view bytes);
    void drop_work();
    void end_command(std::string_view result);
    void leave_data();

    bool run_schedules();
    bool run_steps();
    bool take_input();
    bool run_streams();
    bool run_later();
    bool run_escape();

    void run_block(const std::vector<step> &steps);
    std::size_t execute(const step &what);
    void perform(const step &what, const std::string &text);
    void run_messages(const step &what, const std::string &text);
    std::string announce(const message_service::arrival &what);
    bool abort_running();
    bool stop_running();
    bool leap_to_final();
    void take_line_byte(char c);
    void take_prompt_byte(char c);
    void take_data_byte(char c);
    void begin_line(std::string_view line);
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
    std::vector<std::optional<milliseconds>> due_; // one for each schedule
    std::string input_;
    std::string output_;
    std::string line_;
    std::deque<std::string> chained_; // the commands of the line that wait for their turn
    command refusal_;                 // what runs for a command that the dialogue lacks
    message_service messages_;
    std::deque<std::string> entries_; // lines of the running step that wait for room
    struct later_step {
        milliseconds due;
        const step *what;
        std::string text;
    };
    std::deque<later_step> later_;
    bool data_ = false;
    bool data_echo_ = false; // the far end sends everything back
    escape_watch escape_;
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
