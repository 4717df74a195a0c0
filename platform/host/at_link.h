// The AT link: knows what the modem was asked and what it still owes, so that what it delivers belongs to the command
// that waits. Pure: bytes, sends and time in; writes, deliveries and notices out. No clock, no heap, no lock; one
// caller at a time. Times are monotonic milliseconds.
//
// One command at a time. One that ended without its final result leaves a debt, which is collected before the next line
// is written: the modem is asked a question whose answer names it ("AT+CMEE?" and its line "+CMEE: 1"), and what comes
// before that answer is dropped, except reports. When the link asks again, it takes a question with another name, so a
// late answer to the first cannot be taken for that to the second. Meanwhile the next line waits here; its asker
// waits for the answer anyway. Response lines are kept until the final result comes, so that half an answer that
// nobody waits for any more never gets in front of another one.
#ifndef VLK_AT_LINK_H
#define VLK_AT_LINK_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "at_framing.h"
#include "at_request.h"

inline constexpr std::size_t AT_LINE_MAX = 1540;      ///< bytes of a command line or message with its end
inline constexpr std::size_t AT_ANSWER_MAX = 32768;   ///< bytes of an answer and of what marks its units
inline constexpr int64_t AT_PATIENCE_MS = 5000;       ///< for the answer to a question, before the next rung
inline constexpr int64_t AT_LIST_PATIENCE_MS = 30000; ///< the same while a list of networks is owed
inline constexpr int64_t AT_FIRST_PATIENCE_MS = 1000; ///< the same while the modem has said nothing yet
inline constexpr int64_t AT_GUARD_MS = 1100;          ///< of silence around the escape sequence
inline constexpr int64_t AT_TEXT_PATIENCE_MS = 2000;  ///< between a delivered prompt and its message
inline constexpr int64_t AT_QUIET_MS = 100;           ///< in which an answer that is sent twice comes again
inline constexpr int64_t AT_HASTE_MS = 60;            ///< a held line ends that much before its time limit

/// What an operator may want to know about the modem.
enum class at_notice {
    READY,               ///< answers for the first time since it was opened
    BACK,                ///< answers again after trouble
    NO_ANSWER,           ///< has not answered since it was opened
    ASKED_AGAIN,         ///< the first rung of the ladder; OPENED_ANEW is the last
    TEXT_LEFT,           ///< ESC was sent
    DATA_MODE_LEFT,      ///< +++ was sent
    SETTINGS_SENT_AGAIN, ///< as at the start
    HUNG_UP,             ///< ATH was sent, the control line is to be dropped
    OPENED_ANEW,         ///< the device is to be closed and opened
    ECHO_STAYS,          ///< ATE0 is refused
    SETTINGS_PUT_RIGHT,  ///< detail: the command that changed them, or empty when the modem did it by itself
    RESTARTED,           ///< the modem announced it
    PROMPT_ANSWERED,     ///< an unasked prompt got ESC
    STRAY_RESULT,        ///< detail: a final result that no command asked for
    LONG_LINE,           ///< a line that does not fit in one delivery
    NUL_BYTES,
    LONG_ANSWER, ///< lines of an answer of more than AT_ANSWER_MAX bytes were dropped
};

/// Where a link puts its results. Called from its functions; calls nothing back.
class at_link_port
{
public:
    /// Writes to the modem, unchanged and in the order of the calls.
    virtual void write(std::string_view text) = 0;

    /// To the daemon: 1 to AT_DELIVERY_MAX bytes, reports or the answer to a command, never both.
    virtual void deliver(std::string_view text, bool is_answer) = 0;

    /// A line was dropped: it came while no command ran, and looks like nothing that the daemon knows.
    virtual void drop_unknown() {}

    virtual void tell(at_notice what, std::string_view detail) = 0;

    /// The name of the command that the modem still owes an answer, empty for none.
    virtual void tell_debt(std::string_view name) = 0;

    virtual void hang_up() = 0; ///< drop the control line for a moment
    virtual void reopen() = 0;  ///< close the device and open it again

protected:
    ~at_link_port() = default;
};

enum class at_sent {
    WRITE,  ///< the caller writes it now, before it lets anybody else use the link's device
    HELD,   ///< accepted; the link writes it later, or ends it with a delivery of its own
    REFUSED ///< not written
};

/// Who sends.
struct at_asker {
    uint32_t request = 0;    ///< host_served_request at this moment
    int64_t limit_ms = 0;    ///< its time limit, 0 when not known
    bool has_unread = false; ///< reports have been delivered that the daemon has not read yet
};

class at_link final : at_framing_sink
{
public:
    explicit at_link(at_link_port &results) : port(results) {}

    /// The device was opened: the link gets the modem to answer and sets up its line.
    void opened(int64_t now_ms);

    /// The device is gone: the running command, and a line that waits, end.
    void closed();

    /// Forgets everything without a word: nobody listens any more.
    void forget();

    /// Whether a command line would be written at once, so that send needs no time.
    bool is_free() const { return phase == phases::IDLE && guard == 0 && answer_count == 0; }

    /// Whether the modem has answered since the device was opened, and still does.
    bool is_ready() const { return was_ready && rung < SILENT_RUNG; }

    /// Whether a command is at the modem and its asker waits.
    bool awaits_answer() const { return phase >= phases::RUNNING; }

    /// Whether the command asks for the names of all commands, some of which are reports' names.
    bool asks_for_names() const { return at_mentions(command.text(), "+CLAC"); }

    /// Whether lines of its answer were dropped: there were more than AT_ANSWER_MAX bytes.
    bool has_lost_lines() const { return lines_lost; }

    /// A command line and its CR, the message of an exchange with Ctrl-Z and CR, or ESC alone; from the thread that
    /// runs commands. Whatever ran before has ended for the daemon.
    at_sent send(std::string_view text, const at_asker &asker, int64_t now_ms);

    /// Beside the running command (AT+STOP), from any other thread. HELD here means accepted and dropped: nothing runs
    /// any more.
    at_sent send_beside(std::string_view text);

    /// The device took nothing of what send told the caller to write.
    void unsent();

    /// Bytes of the modem, at most AT_FEED_MAX.
    void feed(std::string_view bytes, int64_t now_ms);
    void tick(int64_t now_ms);

    /// Time at which tick has something to do, -1 for none.
    int64_t due() const;

    /// The asker of this request has hung up: its wait ends. Nothing happens when its command has ended already.
    void asker_gone(uint32_t request, int64_t now_ms);

private:
    enum class phases {
        CLOSED,
        CLEARING, ///< the link itself talks with the modem
        IDLE,
        RUNNING,  ///< a command line was written
        PROMPTED, ///< its prompt was delivered
        TEXT      ///< its message was written
    };
    enum class stages {
        SETTINGS,
        ERRORS, ///< AT+CMEE=1
        MARK,   ///< the question that names itself
        BEFORE_ESCAPE,
        BEHIND_ESCAPE,
        BEHIND_HANG_UP,
        QUIET,
        DONE
    };
    enum class openings {
        QUESTION,
        SETTINGS,
        ESCAPE
    };
    static constexpr int SILENT_RUNG = 2;
    static constexpr int REFUSING_RUNG = 3;

    /// A line that is kept.
    struct kept_line {
        std::array<char, AT_LINE_MAX> bytes;
        std::size_t count = 0;
        std::string_view text() const { return {bytes.data(), count}; }
        bool keep(std::string_view line);
    };

    // Inline, so that each user has the class's type information: the link itself is compiled without RTTI.
    bool take(const at_unit &unit) override { return take_unit(unit); }
    bool is_echo(std::string_view line) const override { return echoes(line); }

    bool take_unit(const at_unit &unit);
    bool echoes(std::string_view line) const;
    bool take_whole(const at_unit &unit);
    bool take_continued(const at_unit &unit);
    bool take_prompt(const at_unit &unit);
    bool take_answer_line(const at_unit &unit);
    bool continues_message(const at_unit &unit) const;
    bool take_while_clearing(const at_unit &unit);
    bool take_while_idle(const at_unit &unit);
    bool pass_on(const at_unit &unit);
    void note_echo(std::string_view line);
    bool note_mark(std::string_view line);

    void keep_answer(const at_unit &unit);
    void drop_answer();
    void deliver_answer(bool is_answer);
    void deliver_prompt(const at_unit &unit);
    void end_command(const at_unit &final_result);
    void end_wait(std::string_view final_result);
    void follow_up(std::string_view final_result);
    void append(std::string_view text, bool is_answer);
    void append_unit(std::string_view text, bool is_after_blank, bool has_body, bool is_answer);
    void flush();
    void escape_text();
    void tell_once(at_notice what, std::string_view detail = {});

    at_sent send_line(std::string_view line, const at_asker &asker);
    at_sent send_message(std::string_view text);
    at_sent send_exchange(std::string_view text, const at_asker &asker);
    bool accepts_message() const;
    void start(std::string_view line, uint32_t asker);
    void hold(std::string_view line, const at_asker &asker);
    void drop_held();
    void give_up();
    void modem_restarted();

    void begin_clearing(openings how);
    void ask();
    void ask_stage(stages next);
    void write_mark();
    bool is_nameless() const;
    void take_cleared_result(std::string_view line);
    void take_settings_result(std::string_view line);
    void take_mark_result();
    void take_mark();
    void count_nameless_result();
    void tick_clearing();
    void tell_rung(at_notice what);
    void climb();
    void finish();
    int64_t patience() const;

    at_link_port &port;
    at_framing framing{*this};
    phases phase = phases::CLOSED;
    int64_t now = 0;

    kept_line command;          ///< what runs, or is owed
    uint32_t request = 0;       ///< who asked for it
    bool prompting = false;     ///< it asks for a text
    bool told = false;          ///< something was delivered since it was sent, or was unread then
    bool lines_lost = false;    ///< its answer is too long
    bool stopped = false;       ///< something was written beside it
    bool echo_due = false;      ///< its echo may still come
    bool settings_lost = false; ///< the modem echoes, answers in numbers, or has forgotten +CMEE=1
    int64_t doubt_until = 0;    ///< after a command's end: a line that names it may be its answer once more
    int64_t text_until = -1;    ///< while PROMPTED

    kept_line held; ///< the line that waits
    uint32_t held_request = 0;
    int64_t held_until = -1;
    kept_line message; ///< the message that waits for its prompt

    stages stage = stages::DONE;
    int64_t next_at = -1;
    int rung = 0;
    int asked = 0;
    int finals = 0;
    int owed_results = 0; ///< final results that must come before the first one of this clearing
    int settings_try = 0;
    int settings_rounds = 0;   ///< since the last command line
    bool ask_again = false;    ///< at next_at, because ESC took the question away
    bool escaped = false;      ///< ESC was written for a prompt in these bytes
    int mark = -1;             ///< the question that was asked last
    bool mark_seen = false;    ///< its line has come
    bool mark_doubted = false; ///< a final result has come without it
    unsigned marks_named = 0;  ///< bits: questions that the modem answers by name
    unsigned marks_unnamed = 0;
    bool heard = false; ///< the modem has said something since the device was opened
    bool was_ready = false;
    bool in_trouble = false;
    bool echo_stays = false;
    bool errors_stay = false; ///< +CMEE=1 has no effect
    int guard = 0;            ///< commands left before which a modem that answers twice is asked
    unsigned told_notices = 0;

    bool keeps_open = false;                ///< the start of the open line is in the answer
    std::array<char, AT_ANSWER_MAX> answer; ///< units: two bytes of length and flags, then the text
    std::size_t answer_count = 0;
    std::array<char, AT_DELIVERY_MAX> delivery;
    std::size_t delivery_count = 0;
    bool delivery_is_answer = false;
};

/// Most bytes that a link takes in one feed.
inline constexpr std::size_t AT_FEED_MAX = 1024;

#endif
