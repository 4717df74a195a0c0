// The line side of a port: what a modem does with the bytes that a program types, and how it answers. Pure: no input
// or output, no clock; one thread. Bytes and replies go in; bytes for the program and requests to the modem come out.
//
// Echo, basic commands and S registers are the port's own; a data call cannot be shared and finds no carrier; settings
// that programs would change for each other are kept apart (port_settings). The modem is asked everything else, one
// command at a time: a line is divided at each ; outside quotation marks and ends at the first error with one final
// result.
#ifndef VLK_PORT_LINE_H
#define VLK_PORT_LINE_H

#include <array>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "port_settings.h"

/// What the modem is to be asked.
struct port_request {
    std::string line;     ///< to be written, without its end; begins with AT
    std::string question; ///< the one command of it whose answer the program wants; mostly the same
    std::string pdu;      ///< of a message exchange, hexadecimal digits; else empty
};

struct port_reply {
    std::vector<std::string> lines; ///< of the answer, without line ends
    std::string final_result;       ///< "OK", "ERROR", "+CME ERROR: 10", ...
};

class port_line
{
public:
    /// shows_reports: whether the program gets the modem's unsolicited lines.
    explicit port_line(bool shows_reports) : reports_wanted(shows_reports) {}

    /// Another program opens the port: everything of the previous one is forgotten, a request under way included.
    void open();

    /// Bytes from the program, of which at most INPUT_MAX wait while a command runs: the caller reads no more then.
    void take(std::string_view bytes);
    bool has_room() const { return input.size() < INPUT_MAX; }

    /// What to ask the modem, nullptr while there is nothing. Stays until its reply.
    const port_request *request() const { return asked ? &*asked : nullptr; }
    void reply(const port_reply &answer);

    /// An unsolicited line without its end; two-line reports have CR LF between. Shown between answers.
    void report(std::string_view line);

    /// Bytes for the program since the last call.
    std::string take_output();

    static constexpr size_t INPUT_MAX = 4096;

private:
    /// What becomes of the reply to the request under way.
    enum class purpose {
        SHOW,      ///< the program asked for just this
        LOOK,      ///< at a setting of the modem that may have to be raised
        RAISE,     ///< sets it
        TEXT_VIEW, ///< the answer is shown as text mode does
        OWN_VIEW,  ///< the answer gets this program's value in place of the modem's
        REMEMBER,  ///< a setting that goes in front of others, once the modem has taken it
        FETCH,     ///< a new message that this program wants to see instead of its place
    };

    void work();
    void take_line_byte(char byte);
    void take_text_byte(char byte);
    void erase_last(std::string &text);
    void run_line();
    void next_command();
    bool serve(const std::string &command);
    bool serve_register(std::string_view command);
    bool serve_basic(std::string_view command);
    bool serve_extended(const std::string &command);
    bool serve_own(const port_setting &setting, std::string_view rest);
    bool serve_raised(const port_setting &setting, const std::string &command, std::string_view rest);
    bool serve_reading(const std::string &command, const std::string &name, std::string_view tail);
    bool in_text_mode() const { return settings.number("+CMGF", 0) == 1; }
    bool prompt_for(const std::string &command);
    void end_of_text();
    void ask(purpose why, const std::string &command);
    void show_answer(const port_request &request, const std::vector<std::string> &lines);
    void look_at(const port_reply &answer);
    void show_message(const port_reply &answer);
    bool end(std::string_view result);
    void finish(std::string_view final_result);
    void show_text(std::string_view line);
    void show_final(std::string_view result);
    void show_report(std::string_view line);
    void show_held();
    void fetch_next();
    void show(std::string_view bytes) { output += bytes; }
    std::string line_end() const
    {
        return {static_cast<char>(registers[3]), static_cast<char>(registers[4])};
    }

    bool reports_wanted;
    port_settings settings;
    std::array<unsigned char, 256> registers{};
    bool echo = true, verbose = true, quiet = false;

    std::string input;  ///< not looked at yet
    std::string output; ///< not taken yet
    std::string line;   ///< being typed
    std::string last;   ///< for A/
    bool too_long = false;

    bool busy = false;               ///< a line is being served
    std::string rest;                ///< of that line
    std::optional<std::string> text; ///< being typed at a prompt
    std::string prompting;           ///< the command that asked for it

    std::optional<port_request> asked;
    purpose why = purpose::SHOW;
    const port_setting *setting = nullptr; ///< that the request is about
    std::string wanted;                    ///< its value
    std::string fallback; ///< the program's own command, should the modem refuse the raised value

    std::deque<std::string> held;    ///< reports that wait for the end of the answer
    std::deque<std::string> arrived; ///< places of messages to be fetched
};

#endif
