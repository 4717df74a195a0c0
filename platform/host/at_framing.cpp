#include "at_framing.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "at_words.h"

namespace
{
constexpr std::string_view LINE_END = "\r\n";
constexpr std::string_view PROMPT = "> ";
constexpr char CTRL_Z = 26;

/// In text mode the header of a message names its sender in quotes or has many fields; in PDU mode it has a length.
bool is_text_mode(std::string_view header)
{
    return header.find('"') != header.npos || std::ranges::count(header, ',') >= 2;
}

bool has_open_quote(std::string_view text)
{
    return std::ranges::count(text, '"') % 2 != 0;
}

/// A line that cannot be a PDU: the message's second line is missing and this is the next thing the modem said.
bool is_no_pdu(std::string_view text)
{
    return text.starts_with('+') || text.starts_with('^') || text == "RING" || at_is_final_result(text);
}
} // namespace

std::string_view at_unit::line() const
{
    std::string_view bare = text;
    while (bare.ends_with('\r') || bare.ends_with('\n'))
        bare.remove_suffix(1);
    return bare;
}

bool at_is_final_result(std::string_view line)
{
    // Few lines begin like one of them: the first characters spare most comparisons.
    return !line.empty() && std::ranges::any_of(AT_FINAL_RESULTS, [line](const at_final_result &row) {
        return line.front() == row.text[0] && line.starts_with(row.text);
    });
}

void at_framing::feed(std::string_view bytes, int64_t now_ms)
{
    if (bytes.empty())
        return;
    last_byte_ms = now_ms;
    while (!bytes.empty()) {
        bytes.remove_prefix(take_plain(bytes));
        if (bytes.empty())
            return;
        take(bytes.front());
        bytes.remove_prefix(1);
    }
}

/// Takes bytes in the middle of a line as take would, without a look at what each might be. Returns how many.
std::size_t at_framing::take_plain(std::string_view bytes)
{
    if (count == 0 || line[count - 1] == '\r' || count >= line.size() - 2)
        return 0;
    const std::string_view fitting = bytes.substr(0, line.size() - 2 - count);
    const auto is_line_end = [](char c) { return c == '\r' || c == '\n'; };
    const auto end = std::ranges::find_if(fitting, is_line_end);
    const auto plain = static_cast<std::size_t>(end - fitting.begin());
    std::copy_n(fitting.begin(), plain, &line[count]);
    count += plain;
    return plain;
}

bool at_framing::has_open_line() const
{
    const bool only_cr = count == 1 && line[0] == '\r';
    return count > 0 && !only_cr;
}

/// Whether the modem pauses in the middle of a line. A bare "OK" may be whole: a modem with other line ends sends no
/// more than that.
bool at_framing::is_inside_line() const
{
    const std::string_view text(line.data(), count);
    return waiting == unit::LINE && !text.ends_with('\r') &&
           std::ranges::none_of(AT_FINAL_RESULTS, [text](const at_final_result &row) {
               return row.text[0] != '+' && text == row.text;
           });
}

int64_t at_framing::due() const
{
    return has_open_line() && !is_inside_line() ? last_byte_ms + AT_SILENCE_MS : -1;
}

void at_framing::tick(int64_t now_ms)
{
    // Again for a header that was just completed: its second line is late, too.
    while (due() >= 0 && now_ms >= due()) {
        if (line[count - 1] == '\r')
            complete_line_end();
        else
            give_up_unit();
    }
}

void at_framing::reset()
{
    count = 0;
    waiting = unit::LINE;
    continued = blank = after_prompt = false;
}

void at_framing::take(char c)
{
    const bool after_cr = count > 0 && line[count - 1] == '\r';
    if (after_cr && line_end == at_line_end::ANY && c != '\n' && c != '\r') {
        seen_end = at_line_end::CR;
        complete_line_end();
        if (count >= line.size() - 1)
            give_up_unit();
    }
    if (count == 0 && !continued && take_at_line_start(c))
        return;
    line[count++] = c;
    if (ends_line(c)) {
        seen_end = c == '\r' ? at_line_end::CR : after_cr ? at_line_end::CR_LF : at_line_end::LF;
        if (!after_cr || c == '\r') {
            line[count - 1] = '\r';
            complete_line_end();
        } else {
            end_of_line();
        }
    }
    if (count >= line.size() - 1 && (line_end != at_line_end::CR_LF || count == line.size()))
        give_up_unit();
}

bool at_framing::ends_line(char c) const
{
    switch (line_end) {
    case at_line_end::CR_LF:
        return c == '\n' && count > 1 && line[count - 2] == '\r';
    case at_line_end::CR:
        return c == '\r';
    case at_line_end::LF:
    case at_line_end::ANY:
        return c == '\n';
    }
    return false;
}

/// The line ends with its CR alone: the LF is added.
void at_framing::complete_line_end()
{
    if (count == line.size())
        return give_up_unit();
    line[count++] = '\n';
    end_of_line();
}

/// Takes what is no part of a line: a prompt, which is complete with its '>', and a lone LF.
bool at_framing::take_at_line_start(char c)
{
    const bool blank_of_prompt = after_prompt && c == ' ';
    after_prompt = c == '>';
    if (after_prompt)
        hand_on({.text = PROMPT, .is_prompt = true});
    else if (c == '\n' && line_end != at_line_end::CR_LF)
        blank = true;
    return after_prompt || blank_of_prompt || c == '\n';
}

void at_framing::end_of_line()
{
    switch (waiting) {
    case unit::LINE:
        return end_of_single_line();
    case unit::JOINED_PDU:
    case unit::FRAMED_PDU:
        return end_of_pdu();
    case unit::BODY:
        return line[count - 3] == CTRL_Z ? finish_unit() : void();
    case unit::QUOTE:
        return has_open_quote(text_from(0)) ? join_lines() : finish_unit();
    }
}

void at_framing::end_of_single_line()
{
    drop_extra_cr();
    const std::string_view text = text_from(0);
    const bool is_new = !continued;
    continued = false;
    if (is_new && text.empty()) {
        blank = true;
        count = 0;
        return;
    }
    if (!is_new)
        return hand_on({.text = {line.data(), std::exchange(count, 0)}, .is_continued = true});
    if (sink.is_echo(text) || !begin_unit(text))
        finish_unit();
}

/// The line behind a header has ended. Empty lines between the two are dropped.
void at_framing::end_of_pdu()
{
    drop_extra_cr();
    const std::string_view text = text_from(header);
    if (text.empty()) {
        count = header;
        return;
    }
    if (free_text || !is_no_pdu(text))
        return finish_unit();

    std::array<char, AT_DELIVERY_MAX> next;
    const std::size_t next_count = count - header;
    std::copy_n(&line[header], next_count, next.begin());
    count = header;
    give_up_unit();
    std::copy_n(next.begin(), next_count, line.begin());
    count = next_count;
    end_of_single_line();
}

/// Recognises a header whose unit goes on in the next line.
bool at_framing::begin_unit(std::string_view text)
{
    if (!text.starts_with("+C") && !text.starts_with("^HCMGR"))
        return false;
    free_text = is_text_mode(text);
    if (text.starts_with("+CMT:") || (text.starts_with("+CDS:") && !free_text))
        expect(unit::JOINED_PDU);
    else if (text.starts_with("+CBM:"))
        expect(unit::FRAMED_PDU);
    else if (text.starts_with("^HCMGR"))
        expect(unit::BODY);
    else if (text.starts_with("+CUSD:") && has_open_quote(text))
        expect(unit::QUOTE);
    return waiting != unit::LINE;
}

void at_framing::expect(unit what)
{
    waiting = what;
    if (what == unit::JOINED_PDU || what == unit::QUOTE)
        join_lines();
    header = count;
}

/// Turns the CR LF at the end into an LF.
void at_framing::join_lines()
{
    --count;
    line[count - 1] = '\n';
}

void at_framing::finish_unit()
{
    const bool has_body = std::exchange(waiting, unit::LINE) == unit::BODY;
    hand_on({.text = {line.data(), std::exchange(count, 0)}, .has_body = has_body});
}

/// Hands on what there is of a unit that will not be finished: too long, or its rest does not come. An LF that joins
/// lines becomes a line end again; a CR at the end stays, since its LF may follow.
void at_framing::give_up_unit()
{
    if ((waiting == unit::JOINED_PDU || waiting == unit::QUOTE) && line[count - 1] == '\n' &&
        count < line.size()) {
        line[count - 1] = '\r';
        line[count++] = '\n';
    }
    waiting = unit::LINE;

    std::string_view text(line.data(), count);
    const bool line_ended = text.ends_with(LINE_END);
    const bool ends_in_cr = text.ends_with('\r');
    while (text.ends_with('\r'))
        text.remove_suffix(1);
    const bool was_continued = std::exchange(continued, !line_ended);
    if (!text.empty())
        hand_on({.text = text, .is_continued = was_continued, .is_finished = line_ended});
    count = 0;
    if (ends_in_cr)
        line[count++] = '\r';
}

void at_framing::hand_on(at_unit made)
{
    made.is_after_blank = std::exchange(blank, false) && !made.is_continued;
    blank = !sink.take(made) && made.is_finished;
}

void at_framing::drop_extra_cr()
{
    while (count > LINE_END.size() && line[count - 3] == '\r') {
        --count;
        line[count - 1] = '\n';
    }
}

/// What stands in front of the line end, from start on.
std::string_view at_framing::text_from(std::size_t start) const
{
    return {&line[start], count - LINE_END.size() - start};
}
