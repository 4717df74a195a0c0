#include "at_link.h"

#include <algorithm>
#include <utility>

#include "at_request.h"
#include "at_words.h"
#include "vlk_report_prefixes.h"

namespace
{
constexpr std::string_view LINE_END = "\r\n";
constexpr std::string_view ESCAPE = "\x1b"; // leaves the modem's text input
constexpr std::string_view MESSAGE_END = "\x1a\r";
constexpr std::string_view LOST_ANSWER = "\r\nNO CARRIER\r\n";
constexpr std::string_view NOT_WRITTEN = "\r\nCOMMAND NOT SUPPORT\r\n"; // its ret_val means that, too
constexpr std::string_view DATA_ESCAPE = "+++";
constexpr std::string_view HANG_UP = "ATH\r";
constexpr std::string_view ERRORS_WITH_NUMBERS = "AT+CMEE=1\r";

/// Tried in turn. The first has all settings, but some modems take only one per line, and the rest of an earlier line
/// in the modem may spoil the first.
constexpr std::string_view SETTINGS[] = {"ATE0Q0V1\r", "ATV1\r", "ATE0\r", "ATE0\r"};
constexpr int LAST_SETTING = static_cast<int>(std::size(SETTINGS)) - 1;

/// Questions whose answer begins with their name, under which no modem reports anything by itself.
struct mark_row {
    std::string_view question;
    std::string_view name;
};
constexpr mark_row MARKS[] = {{"AT+CMEE?\r", "+CMEE"}, {"AT+CSCS?\r", "+CSCS"}, {"AT+CMGF?\r", "+CMGF"}};
constexpr int MARK_COUNT = static_cast<int>(std::size(MARKS));
constexpr unsigned ALL_MARKS = (1U << MARK_COUNT) - 1;

constexpr std::string_view RESTARTS[] = {"RDY", "APP RDY", "SYSSTART", "^SYSSTART"};
constexpr std::string_view NUMERIC_RESULTS[] = {"OK",      "CONNECT",     "RING", "NO CARRIER", "ERROR",
                                                "CONNECT", "NO DIALTONE", "BUSY", "NO ANSWER"};

constexpr int FIRST_ASKS = 3;
constexpr int GUARDED_COMMANDS = 20; // after a modem was seen to answer twice
constexpr int SETTINGS_ROUNDS = 2;
constexpr int64_t SETTLE_MS = 300;

constexpr unsigned LENGTH_BITS = 0x7FF;
constexpr unsigned AFTER_BLANK = 0x800;
constexpr unsigned HAS_BODY = 0x1000;
static_assert(AT_DELIVERY_MAX <= LENGTH_BITS);

std::string_view without(std::string_view text, std::string_view ends)
{
    while (!text.empty() && ends.find(text.back()) != ends.npos)
        text.remove_suffix(1);
    return text;
}

/// What the daemon may take for a report.
bool may_be_report(std::string_view line)
{
    return line.starts_with('+') || line.starts_with('^') || line.find("RING") != line.npos ||
           line.find("CONNECT") != line.npos || line.find("^CPINNTY:") != line.npos ||
           line.find("^CARDLOCKNTY:") != line.npos;
}

/// Whether the line begins with the name of a report that the daemon has a row for.
bool begins_known_report(std::string_view line)
{
    return std::ranges::any_of(VLK_REPORT_PREFIXES,
                               [line](std::string_view prefix) { return line.starts_with(prefix); });
}

/// Whether the line names the command, as its answer does. ATI's +GCAP line is the one known exception.
bool names(std::string_view line, std::string_view command)
{
    const std::string_view name = line.substr(0, line.find(':'));
    return name.size() >= 2 && (at_mentions(command, name) || name == "+GCAP");
}

/// Whether the line is part of the command's answer although it looks like a report: it names the
/// command, or is a name in the list of all commands, or is text of a message that happens to hold a report's name.
bool answers(std::string_view line, std::string_view command)
{
    const bool begins_report = line.starts_with('+') || line.starts_with('^');
    if (begins_report && line.find(':') == line.npos && at_mentions(command, "+CLAC"))
        return true;
    if (!begins_report && !line.starts_with("RING") &&
        (at_mentions(command, "+CMGL") || at_mentions(command, "+CMGR")))
        return true;
    return names(line, command);
}

bool is_restart(std::string_view line)
{
    return std::ranges::find(RESTARTS, line) != std::end(RESTARTS);
}

/// The final result that a digit stands for, as some modems answer; empty for any other line.
std::string_view numeric_result(std::string_view line)
{
    const bool is_number = line.size() == 1 && line[0] >= '0' && line[0] <= '8' && line[0] != '2';
    return is_number ? NUMERIC_RESULTS[line[0] - '0'] : std::string_view{};
}

/// CONNECT, alone or with a speed: what follows is data.
bool begins_data(std::string_view line)
{
    constexpr std::string_view connect = "CONNECT";
    if (!line.starts_with(connect))
        return false;
    line.remove_prefix(connect.size());
    return line.empty() || line.find_first_of("0123456789") != line.npos;
}

/// A result that a call brings by itself, when it ends or begins.
bool ends_call(std::string_view line)
{
    return line.starts_with("NO ") || line.starts_with("BUSY") || line.starts_with("CONNECT");
}
} // namespace

bool at_link::kept_line::keep(std::string_view line)
{
    if (line.size() > bytes.size())
        return false;
    count = line.copy(bytes.data(), bytes.size());
    return true;
}

// ---- The device

void at_link::opened(int64_t now_ms)
{
    now = now_ms;
    framing.reset();
    framing.set_line_end(at_line_end::ANY); // not known yet; and what was owed may still come
    marks_named = marks_unnamed = 0;
    mark = -1;
    guard = 0;
    heard = was_ready = echo_stays = errors_stay = false;
    begin_clearing(openings::SETTINGS);
}

void at_link::closed()
{
    if (awaits_answer())
        end_wait(LOST_ANSWER);
    if (held.count > 0) {
        drop_held();
        end_wait(NOT_WRITTEN);
    }
    forget();
}

void at_link::forget()
{
    drop_answer();
    drop_held();
    framing.reset();
    text_until = -1;
    phase = phases::CLOSED;
    was_ready = false;
    port.tell_debt({});
}

// ---- Sends

at_sent at_link::send(std::string_view text, const at_asker &asker, int64_t now_ms)
{
    if (!is_free())
        now = now_ms;
    if (text == ESCAPE) {
        if (awaits_answer())
            give_up();
        return at_sent::HELD;
    }
    if (at_holds_message(text))
        return send_exchange(text, asker);
    if (text.ends_with(MESSAGE_END))
        return send_message(text);
    return send_line(text, asker);
}

/// Keeps the message for its prompt, which the daemon does not see.
at_sent at_link::send_exchange(std::string_view text, const at_asker &asker)
{
    const std::size_t end = text.find('\r');
    const std::string_view line = text.substr(0, end + 1);
    const std::string_view its_message = text.substr(end + 1);
    if (its_message.size() > AT_LINE_MAX ||
        at_message_fault(text.substr(0, end), without(its_message, "\r")) != nullptr)
        return at_sent::REFUSED;
    const at_sent sent = send_line(line, asker);
    if (sent == at_sent::REFUSED)
        return sent;
    message.keep(its_message);
    if (sent == at_sent::WRITE) {
        prompting = true;
        port.write(line);
    }
    return at_sent::HELD;
}

at_sent at_link::send_line(std::string_view line, const at_asker &asker)
{
    const std::string_view bare = line.ends_with('\r') ? line.substr(0, line.size() - 1) : line;
    if (line.size() > AT_LINE_MAX || at_line_fault(bare) != nullptr)
        return at_sent::REFUSED;
    told = asker.has_unread;
    if (is_free()) {
        start(line, asker.request);
        return at_sent::WRITE;
    }
    if (!was_ready || (phase == phases::CLEARING && rung >= REFUSING_RUNG))
        return at_sent::REFUSED;
    if (awaits_answer())
        give_up();
    else if (phase == phases::IDLE)
        begin_clearing(openings::QUESTION);
    hold(line, asker);
    return at_sent::HELD;
}

/// Whether the running or waiting command line expects its message now.
bool at_link::accepts_message() const
{
    if (message.count > 0)
        return false;
    if (held.count > 0)
        return at_asks_for_prompt(held.text());
    return prompting && (phase == phases::RUNNING || phase == phases::PROMPTED);
}

/// The daemon also sends the message when a report came in place of the prompt, or its wait for the prompt ended.
at_sent at_link::send_message(std::string_view text)
{
    if (!accepts_message())
        return at_sent::REFUSED;
    const bool is_waiting = held.count > 0;
    const std::string_view line = without(is_waiting ? held.text() : command.text(), "\r");
    const bool is_late = phase != phases::PROMPTED && !told;
    if (is_late || text.size() > AT_LINE_MAX || at_message_fault(line, without(text, "\r")) != nullptr) {
        if (is_waiting)
            drop_held();
        else
            give_up();
        return at_sent::REFUSED;
    }
    message.keep(text);
    if (phase != phases::PROMPTED)
        return at_sent::HELD;
    phase = phases::TEXT;
    text_until = -1;
    echo_due = true;
    return at_sent::WRITE;
}

at_sent at_link::send_beside(std::string_view text)
{
    if (phase == phases::CLOSED || !was_ready || text.size() > AT_LINE_MAX)
        return at_sent::REFUSED;
    if (phase != phases::RUNNING)
        return at_sent::HELD;
    stopped = true;
    return at_sent::WRITE;
}

void at_link::unsent()
{
    if (phase == phases::RUNNING)
        phase = phases::IDLE;
    else if (phase == phases::TEXT)
        give_up();
}

void at_link::start(std::string_view line, uint32_t asker)
{
    command.keep(line);
    request = asker;
    prompting = at_asks_for_prompt(line);
    stopped = lines_lost = false;
    echo_due = true;
    settings_rounds = 0;
    message.count = 0;
    drop_answer();
    phase = phases::RUNNING;
}

void at_link::hold(std::string_view line, const at_asker &asker)
{
    held.keep(line);
    held_request = asker.request;
    held_until = asker.limit_ms > 0 ? now + std::max<int64_t>(asker.limit_ms - AT_HASTE_MS, 0) : -1;
    message.count = 0;
}

void at_link::drop_held()
{
    held.count = message.count = 0;
    held_until = -1;
}

/// The daemon waits no longer: the answer is owed.
void at_link::give_up()
{
    if (phase == phases::PROMPTED)
        escape_text();
    drop_answer();
    text_until = -1;
    message.count = 0;
    const std::string_view line = without(command.text(), "\r");
    port.tell_debt(at_command_name(line));
    begin_clearing(settings_lost || at_changes_settings(line) ? openings::SETTINGS : openings::QUESTION);
    owed_results = 1;
}

void at_link::asker_gone(uint32_t gone, int64_t now_ms)
{
    if (gone == 0)
        return;
    now = now_ms;
    if (held.count > 0 && held_request == gone) {
        drop_held();
        end_wait(LOST_ANSWER);
    } else if (held.count == 0 && awaits_answer() && request == gone) {
        end_wait(LOST_ANSWER);
        give_up();
    }
}

// ---- What the modem says

void at_link::feed(std::string_view bytes, int64_t now_ms)
{
    now = now_ms;
    escaped = false;
    framing.feed(bytes, now);
    if (phase == phases::CLEARING && stage == stages::DONE)
        finish();
    flush();
}

bool at_link::take_unit(const at_unit &unit)
{
    if (phase == phases::CLOSED)
        return false;
    heard = true;
    if (unit.text.find('\0') != unit.text.npos)
        tell_once(at_notice::NUL_BYTES);
    if (unit.is_continued)
        return take_continued(unit);
    keeps_open = false;
    if (unit.is_prompt)
        return take_prompt(unit);
    const bool fills_delivery = !unit.is_finished && unit.text.size() == AT_DELIVERY_MAX;
    if (fills_delivery)
        tell_once(at_notice::LONG_LINE);
    if (fills_delivery && !awaits_answer())
        return false;
    return take_whole(unit);
}

bool at_link::take_whole(const at_unit &unit)
{
    const std::string_view line = unit.line();
    if (echoes(line)) {
        note_echo(line);
        return false;
    }
    if (is_restart(line))
        modem_restarted();
    switch (phase) {
    case phases::CLOSED:
        return false;
    case phases::CLEARING:
        return take_while_clearing(unit);
    case phases::IDLE:
        return take_while_idle(unit);
    case phases::RUNNING:
    case phases::PROMPTED:
    case phases::TEXT:
        return take_answer_line(unit);
    }
    return false;
}

/// The rest of a line that does not fit in one unit goes where its start went.
bool at_link::take_continued(const at_unit &unit)
{
    if (!keeps_open)
        return false;
    keep_answer(unit);
    return true;
}

bool at_link::echoes(std::string_view line) const
{
    if (line.starts_with(DATA_ESCAPE))
        return true;
    if (phase == phases::CLEARING) { // perhaps behind the rest of an earlier line in the modem
        const auto ends = [line](std::string_view sent) { return line.ends_with(without(sent, "\r")); };
        return line.starts_with("AT") && (std::ranges::any_of(SETTINGS, ends) || ends(ERRORS_WITH_NUMBERS) ||
                                          (mark >= 0 && ends(MARKS[mark].question)));
    }
    if (!awaits_answer() || !echo_due)
        return false;
    const std::string_view sent = phase == phases::TEXT ? message.text() : command.text();
    return !sent.empty() && without(line, MESSAGE_END) == without(sent, MESSAGE_END);
}

void at_link::note_echo(std::string_view line)
{
    echo_due = false;
    if (echo_stays || (phase == phases::CLEARING && stage == stages::SETTINGS))
        return;
    const bool was_told = phase == phases::CLEARING && line.ends_with(without(ERRORS_WITH_NUMBERS, "\r"));
    if (was_told && finals == asked - 1 && owed_results == 0)
        echo_stays = true; // although ATE0 was answered
    else if (!was_told)
        settings_lost = true;
}

bool at_link::take_prompt(const at_unit &unit)
{
    switch (phase) {
    case phases::RUNNING:
        if (!prompting) {
            escape_text();
            return false;
        }
        if (message.count > 0) { // the daemon has sent it already
            port.write(message.text());
            phase = phases::TEXT;
            echo_due = true;
            return false;
        }
        deliver_prompt(unit);
        return true;
    case phases::IDLE:
        escape_text();
        begin_clearing(openings::QUESTION);
        return false;
    case phases::CLEARING:
        if (escaped)
            return false;
        escape_text(); // the modem took the question for a message's text
        if (stage == stages::QUIET || stage == stages::DONE)
            stage = stages::MARK;
        if (stage <= stages::MARK) {
            ask_again = true;
            next_at = now + SETTLE_MS;
        }
        return false;
    case phases::CLOSED:
    case phases::PROMPTED:
    case phases::TEXT:
        break;
    }
    return false;
}

void at_link::deliver_prompt(const at_unit &unit)
{
    deliver_answer(true);
    append_unit(unit.text, unit.is_after_blank, false, true);
    flush();
    phase = phases::PROMPTED;
    echo_due = false;
    text_until = now + AT_TEXT_PATIENCE_MS;
}

/// At most once per feed or tick: a modem that sends nothing but prompts is not flooded with ESC.
void at_link::escape_text()
{
    if (std::exchange(escaped, true))
        return;
    port.write(ESCAPE);
    if (phase != phases::PROMPTED)
        tell_once(at_notice::PROMPT_ANSWERED);
}

bool at_link::take_answer_line(const at_unit &unit)
{
    const std::string_view line = unit.line();
    if (!unit.has_body && at_is_final_result(line)) {
        end_command(unit);
        return true;
    }
    const std::string_view sent = without(command.text(), "\r");
    if (const std::string_view word = numeric_result(line); !word.empty() && at_changes_settings(sent)) {
        settings_lost = true;
        deliver_answer(true);
        append_unit(LINE_END, false, false, true);
        append(word, true);
        end_command({.text = LINE_END});
        return true;
    }
    echo_due = echo_due && phase == phases::TEXT;
    if (may_be_report(line) && !answers(line, sent) && !continues_message(unit))
        return pass_on(unit);
    keep_answer(unit);
    return true;
}

/// Whether a line that looks like a report belongs to a message in text mode: a modem that puts an empty line before
/// everything else puts none before it.
bool at_link::continues_message(const at_unit &unit) const
{
    const bool is_framed =
        answer_count > 0 && (static_cast<unsigned char>(answer[0]) * 256U & AFTER_BLANK) != 0;
    return is_framed && !unit.is_after_blank &&
           (at_mentions(command.text(), "+CMGL") || at_mentions(command.text(), "+CMGR"));
}

void at_link::end_command(const at_unit &final_result)
{
    std::array<char, AT_DELIVERY_MAX> line; // a copy: the unit may be gone after the delivery
    const std::string_view bare(line.data(), final_result.line().copy(line.data(), line.size()));
    deliver_answer(true);
    append_unit(final_result.text, final_result.is_after_blank, false, true);
    flush();
    drop_answer();
    message.count = 0;
    text_until = -1;
    phase = phases::IDLE;
    doubt_until = now + AT_QUIET_MS;
    follow_up(bare);
}

/// What the command may have changed is put right before the next one.
void at_link::follow_up(std::string_view final_result)
{
    const std::string_view sent = without(command.text(), "\r");
    const bool is_changed = at_changes_settings(sent);
    if (begins_data(final_result)) {
        begin_clearing(openings::ESCAPE);
    } else if (is_changed || settings_lost) {
        tell_once(at_notice::SETTINGS_PUT_RIGHT, is_changed ? at_command_name(sent) : std::string_view{});
        begin_clearing(openings::SETTINGS);
    } else if (stopped) {
        begin_clearing(openings::QUESTION);
    }
}

bool at_link::take_while_idle(const at_unit &unit)
{
    const std::string_view line = unit.line();
    if (at_is_final_result(line)) {
        if (begins_data(line)) {
            begin_clearing(openings::ESCAPE);
        } else if (!ends_call(line)) {
            drop_answer(); // the same answer once more
            guard = GUARDED_COMMANDS;
            tell_once(at_notice::STRAY_RESULT, line);
        }
        return false;
    }
    if (!may_be_report(line)) {
        if (unit.is_finished)
            port.drop_unknown();
        return false;
    }
    if (now >= doubt_until || !names(line, command.text()))
        return pass_on(unit);
    keep_answer(unit); // a report, or the answer again: a final result behind it would show that
    return true;
}

void at_link::modem_restarted()
{
    if (phase == phases::CLEARING && stage == stages::SETTINGS)
        return;
    in_trouble = true;
    tell_once(at_notice::RESTARTED);
    if (awaits_answer())
        end_wait(LOST_ANSWER);
    text_until = -1;
    begin_clearing(openings::SETTINGS);
}

// ---- The answer, and deliveries

void at_link::keep_answer(const at_unit &unit)
{
    if (lines_lost || answer_count + 2 + unit.text.size() > answer.size()) {
        lines_lost = true;
        tell_once(at_notice::LONG_ANSWER);
        return;
    }
    const unsigned head = static_cast<unsigned>(unit.text.size()) | (unit.is_after_blank ? AFTER_BLANK : 0) |
                          (unit.has_body ? HAS_BODY : 0);
    answer[answer_count++] = static_cast<char>(head >> 8U);
    answer[answer_count++] = static_cast<char>(head & 0xFFU);
    answer_count += unit.text.copy(&answer[answer_count], unit.text.size());
    keeps_open = !unit.is_finished;
}

void at_link::drop_answer()
{
    answer_count = 0;
    keeps_open = false;
}

void at_link::deliver_answer(bool is_answer)
{
    for (std::size_t at = 0; at < answer_count;) {
        const unsigned head =
            static_cast<unsigned char>(answer[at]) * 256U + static_cast<unsigned char>(answer[at + 1]);
        const std::size_t length = head & LENGTH_BITS;
        append_unit({&answer[at + 2], length}, (head & AFTER_BLANK) != 0, (head & HAS_BODY) != 0, is_answer);
        at += 2 + length;
    }
    drop_answer();
}

bool at_link::pass_on(const at_unit &unit)
{
    if (!unit.is_finished)
        return false; // longer than a delivery: its rest would get into the next answer, so all of it is dropped
    append_unit(unit.text, unit.is_after_blank, unit.has_body, false);
    return true;
}

/// A body has a delivery of its own: its reader looks for the last Ctrl-Z.
void at_link::append_unit(std::string_view text, bool is_after_blank, bool has_body, bool is_answer)
{
    if (has_body)
        flush();
    const bool has_room = text.size() + LINE_END.size() <= delivery.size();
    const std::size_t lead = is_after_blank && has_room ? LINE_END.size() : 0;
    if (delivery_count + lead + text.size() > delivery.size())
        flush();
    if (lead > 0)
        append(LINE_END, is_answer);
    append(text, is_answer);
    if (has_body)
        flush();
}

/// Appends to the next delivery; what is in it goes out first when the two do not fit together.
void at_link::append(std::string_view text, bool is_answer)
{
    if (delivery_is_answer != is_answer || delivery_count + text.size() > delivery.size())
        flush();
    delivery_is_answer = is_answer;
    delivery_count += text.copy(&delivery[delivery_count], text.size());
}

void at_link::flush()
{
    if (delivery_count == 0)
        return;
    told = true;
    port.deliver({delivery.data(), std::exchange(delivery_count, 0)}, delivery_is_answer);
}

/// Ends the daemon's wait with this final result. What has come of the answer is dropped.
void at_link::end_wait(std::string_view final_result)
{
    drop_answer();
    append(final_result, true);
    flush();
}

void at_link::tell_once(at_notice what, std::string_view detail)
{
    const unsigned bit = 1U << static_cast<unsigned>(what);
    if ((told_notices & bit) == 0)
        port.tell(what, detail);
    told_notices |= bit;
}

// ---- The link's own talk with the modem

void at_link::begin_clearing(openings how)
{
    phase = phases::CLEARING;
    rung = asked = finals = owed_results = settings_try = 0;
    ask_again = false;
    if (how == openings::ESCAPE) {
        stage = stages::BEFORE_ESCAPE;
        next_at = now + AT_GUARD_MS;
        return;
    }
    ask_stage(how == openings::SETTINGS ? stages::SETTINGS : stages::MARK);
}

void at_link::ask_stage(stages next)
{
    stage = next;
    if (stage == stages::SETTINGS) {
        settings_try = 0;
        settings_lost = false;
    }
    ask();
}

void at_link::ask()
{
    if (stage == stages::SETTINGS)
        port.write(SETTINGS[settings_try]);
    else if (stage == stages::ERRORS)
        port.write(ERRORS_WITH_NUMBERS);
    else
        write_mark();
    ++asked;
    ask_again = false;
    next_at = now + patience();
}

/// Asks another question than last time; if possible one that the modem answers by name and no client has asked.
void at_link::write_mark()
{
    const unsigned unknown = ALL_MARKS & ~(marks_named | marks_unnamed);
    const unsigned known = !was_ready && unknown != 0 ? unknown : marks_named;
    int best = -1;
    for (int step = 1; step <= MARK_COUNT; ++step) {
        const int next = (mark + step) % MARK_COUNT;
        if ((known & 1U << next) != 0 && (best < 0 || at_mentions(command.text(), MARKS[best].name)))
            best = next;
    }
    mark = std::max(best, 0);
    mark_seen = mark_doubted = false;
    port.write(MARKS[mark].question);
}

/// Whether no answer of this modem names its question: the answers are counted instead.
bool at_link::is_nameless() const
{
    return marks_named == 0 && marks_unnamed == ALL_MARKS;
}

bool at_link::take_while_clearing(const at_unit &unit)
{
    const std::string_view line = unit.line();
    if (at_is_final_result(line)) {
        take_cleared_result(line);
        return false;
    }
    if (const std::string_view word = numeric_result(line); !word.empty()) {
        if (stage != stages::SETTINGS)
            settings_lost = true;
        take_cleared_result(stage == stages::SETTINGS ? "OK" : word);
        return false;
    }
    if (note_mark(line))
        return false;
    // An answer need not name its command: while one is owed, only a line that has a row is a report.
    const bool may_be_answer = names(line, command.text()) || names(line, held.text()) ||
                               (owed_results > 0 && !begins_known_report(line));
    return may_be_report(line) && !may_be_answer && pass_on(unit);
}

/// True for the answer to one of the questions.
bool at_link::note_mark(std::string_view line)
{
    for (int index = 0; index < MARK_COUNT; ++index) {
        const std::string_view name = MARKS[index].name;
        if (!line.starts_with(name) || line.substr(name.size(), 1) != ":")
            continue;
        if (at_mentions(command.text(), name) && index != mark)
            return true;
        marks_named |= 1U << index;
        marks_unnamed &= ~(1U << index);
        if (stage == stages::MARK && index == mark)
            mark_seen = true;
        if (stage == stages::MARK && index == mark && index == 0 && line.find('0') != line.npos)
            settings_lost = !errors_stay;
        return true;
    }
    return false;
}

void at_link::take_cleared_result(std::string_view line)
{
    ++finals;
    next_at = now + patience();
    if (ask_again)
        return ask(); // ESC has done its work
    switch (stage) {
    case stages::SETTINGS:
        return take_settings_result(line);
    case stages::ERRORS:
        return ask_stage(stages::MARK);
    case stages::MARK:
        return take_mark_result();
    case stages::QUIET:
        next_at = now + AT_QUIET_MS;
        [[fallthrough]];
    case stages::DONE:
        guard = GUARDED_COMMANDS;
        return;
    case stages::BEFORE_ESCAPE:
    case stages::BEHIND_ESCAPE:
    case stages::BEHIND_HANG_UP:
        next_at = now + AT_GUARD_MS;
        return;
    }
}

void at_link::take_settings_result(std::string_view line)
{
    const bool was_taken = line.starts_with("OK") && SETTINGS[settings_try].starts_with("ATE0");
    if (!was_taken && settings_try < LAST_SETTING) {
        ++settings_try;
        return ask();
    }
    if (!was_taken) {
        echo_stays = true;
        tell_once(at_notice::ECHO_STAYS);
    }
    ask_stage(stages::ERRORS);
}

void at_link::count_nameless_result()
{
    if (finals >= asked + owed_results)
        stage = stages::DONE;
    else
        next_at = now + AT_FIRST_PATIENCE_MS;
}

void at_link::take_mark_result()
{
    const unsigned bit = 1U << mark;
    if (!mark_seen) {
        drop_answer();
        if (is_nameless())
            return count_nameless_result();
        if ((marks_named & bit) != 0)
            return;           // it is the result of something earlier
        if (finals < asked) { // perhaps this one is, too
            next_at = now + AT_FIRST_PATIENCE_MS;
            mark_doubted = true;
            return;
        }
        marks_unnamed |= bit;
    }
    take_mark();
}

/// What is to be done once the question has its answer, named or not.
void at_link::take_mark()
{
    const bool are_known = was_ready || (marks_named | marks_unnamed) == ALL_MARKS;
    if (are_known && is_nameless())
        return count_nameless_result();
    if (!are_known || !mark_seen)
        return ask();
    if (settings_lost && settings_rounds++ < SETTINGS_ROUNDS) {
        tell_once(at_notice::SETTINGS_PUT_RIGHT);
        return ask_stage(stages::SETTINGS);
    }
    errors_stay = errors_stay || settings_lost; // setting it again has not helped
    stage = guard > 0 ? stages::QUIET : stages::DONE;
    next_at = now + AT_QUIET_MS;
}

int64_t at_link::patience() const
{
    if (!heard)
        return AT_FIRST_PATIENCE_MS;
    return at_asks_for_network_list(command.text()) || at_mentions(command.text(), "^NETSCAN")
               ? AT_LIST_PATIENCE_MS
               : AT_PATIENCE_MS;
}

/// Not for a modem that has said nothing at all: NO_ANSWER says enough.
void at_link::tell_rung(at_notice what)
{
    if (heard)
        tell_once(what);
}

/// The next try to get an answer.
void at_link::climb()
{
    in_trouble = true;
    ++rung;
    switch (rung) {
    case 1:
        tell_rung(at_notice::ASKED_AGAIN);
        return ask_stage(heard ? stages::SETTINGS : stage); // it may have its results switched off
    case 2:
        tell_rung(at_notice::TEXT_LEFT);
        port.write(ESCAPE);
        return ask();
    case 3:
        tell_rung(at_notice::DATA_MODE_LEFT);
        stage = stages::BEFORE_ESCAPE;
        next_at = now + AT_GUARD_MS;
        return;
    case 4:
        tell_rung(at_notice::SETTINGS_SENT_AGAIN);
        return ask_stage(stages::SETTINGS);
    case 5:
        tell_rung(at_notice::HUNG_UP);
        port.write(HANG_UP);
        port.hang_up();
        stage = stages::BEHIND_HANG_UP;
        next_at = now + AT_GUARD_MS;
        return;
    default:
        tell_rung(at_notice::OPENED_ANEW);
        rung = SILENT_RUNG;
        next_at = now + AT_PATIENCE_MS;
        port.reopen();
    }
}

void at_link::finish()
{
    if (framing.last_line_end() != at_line_end::ANY)
        framing.set_line_end(framing.last_line_end());
    if (!was_ready || in_trouble) {
        constexpr unsigned noise = 1U << static_cast<unsigned>(at_notice::SETTINGS_PUT_RIGHT);
        told_notices &= noise;
        port.tell(was_ready ? at_notice::BACK : at_notice::READY, {});
    }
    was_ready = true;
    in_trouble = settings_lost = false;
    rung = 0;
    guard = std::max(guard - 1, 0);
    port.tell_debt({});
    deliver_answer(false); // no final result came behind them: they are reports
    phase = phases::IDLE;
    if (held.count == 0)
        return;
    const kept_line waiting = held;
    const kept_line its_message = message;
    const bool was_told = told;
    drop_held();
    start(waiting.text(), held_request);
    message = its_message;
    prompting = prompting || message.count > 0;
    told = was_told;
    port.write(command.text());
}

// ---- Time

int64_t at_link::due() const
{
    int64_t first = framing.due();
    for (const int64_t time : {text_until, held_until, phase == phases::CLEARING ? next_at : -1,
                               phase == phases::IDLE && answer_count > 0 ? doubt_until : -1})
        if (time >= 0 && (first < 0 || time < first))
            first = time;
    return first;
}

void at_link::tick(int64_t now_ms)
{
    now = now_ms;
    escaped = false;
    framing.tick(now);
    if (text_until >= 0 && now >= text_until) {
        escape_text(); // no message came: nobody has a text for this prompt
        text_until = -1;
        prompting = false;
        phase = phases::RUNNING;
    }
    if (phase == phases::IDLE && now >= doubt_until)
        deliver_answer(false);
    if (held_until >= 0 && now >= held_until) {
        drop_held();
        end_wait(NOT_WRITTEN);
    }
    if (phase == phases::CLEARING && now >= next_at)
        tick_clearing();
    if (phase == phases::CLEARING && stage == stages::DONE)
        finish();
    flush();
}

void at_link::tick_clearing()
{
    switch (stage) {
    case stages::BEFORE_ESCAPE:
        port.write(DATA_ESCAPE);
        stage = stages::BEHIND_ESCAPE;
        next_at = now + AT_GUARD_MS;
        return;
    case stages::BEHIND_ESCAPE:
    case stages::BEHIND_HANG_UP:
        return ask_stage(stages::SETTINGS);
    case stages::QUIET:
        stage = stages::DONE;
        return;
    case stages::DONE:
        return;
    case stages::SETTINGS:
    case stages::ERRORS:
    case stages::MARK:
        break;
    }
    if (ask_again)
        return ask();
    if (stage == stages::MARK && is_nameless() && finals >= asked) {
        stage = stages::DONE; // what was owed does not come any more
        return;
    }
    if (stage == stages::MARK && mark_doubted) {
        marks_unnamed |= 1U << mark;
        return take_mark();
    }
    if (!heard && asked < FIRST_ASKS)
        return ask();
    if (!heard)
        tell_once(at_notice::NO_ANSWER);
    climb();
}
