#include "at_framing.h"

#include <algorithm>
#include <cstring>

namespace
{
constexpr std::string_view LINE_END = "\r\n";
constexpr std::string_view PROMPT = "> ";
constexpr char CTRL_Z = 26;

constexpr std::string_view final_texts[] = {"OK",
                                            "ERROR",
                                            "BUSY",
                                            "NO CARRIER",
                                            "NO ANSWER",
                                            "NO DIALTONE",
                                            "COMMAND NOT SUPPORT",
                                            "TOO MANY PARAMETERS",
                                            "+CME ERROR",
                                            "+CMS ERROR",
                                            "CONNECT",
                                            "ATE0"};

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

bool at_is_final_result(std::string_view line)
{
    // Few lines begin like one of them: the first characters spare most comparisons.
    return !line.empty() && std::ranges::any_of(final_texts, [line](std::string_view text) {
        return line.front() == text.front() && line.starts_with(text);
    });
}

void at_framing::feed(std::string_view bytes, int64_t now_ms)
{
    if (bytes.empty())
        return;
    last_byte_ms = now_ms;
    for (const char c : bytes)
        take(c);
    if (!sink.awaits_prompt())
        flush();
}

bool at_framing::has_open_line() const
{
    const bool only_cr = count == 1 && line[0] == '\r';
    return count > 0 && !only_cr;
}

int64_t at_framing::due() const
{
    return has_open_line() || ready_count > 0 ? last_byte_ms + AT_SILENCE_MS : -1;
}

void at_framing::tick(int64_t now_ms)
{
    if (due() < 0 || now_ms < due())
        return;
    if (has_open_line())
        give_up_unit();
    flush();
}

void at_framing::reset()
{
    flush();
    count = 0;
    waiting = unit::LINE;
    continued = blank = after_prompt = false;
}

void at_framing::take(char c)
{
    if (count == 0 && !continued && take_at_line_start(c))
        return;
    line[count++] = c;
    if (c == '\n' && count > 1 && line[count - 2] == '\r')
        end_of_line();
    if (count == line.size())
        give_up_unit();
}

/// Takes what is no part of a line: a prompt, which is complete with its '>', and a lone LF.
bool at_framing::take_at_line_start(char c)
{
    const bool blank_of_prompt = after_prompt && c == ' ';
    after_prompt = c == '>';
    if (after_prompt && !sink.swallow(">")) {
        hand_over(PROMPT);
        flush();
    }
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
    if (text.empty() || (is_new && sink.swallow(text))) {
        blank = true;
        count = 0;
        return;
    }
    if (!is_new || !begin_unit(text))
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
    else if (text.starts_with("^HCMGR")) {
        flush(); // a body has its own delivery: its reader looks for the last Ctrl-Z
        expect(unit::BODY);
    } else if (text.starts_with("+CUSD:") && has_open_quote(text))
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

/// Makes the CR LF at the end an LF.
void at_framing::join_lines()
{
    --count;
    line[count - 1] = '\n';
}

void at_framing::finish_unit()
{
    const bool ends_delivery =
        waiting == unit::BODY || (waiting == unit::LINE && at_is_final_result(text_from(0)));
    hand_over({line.data(), count});
    count = 0;
    waiting = unit::LINE;
    if (ends_delivery)
        flush();
}

/// Hands on what there is of a unit that will not be finished: too long, or its rest does not come. An LF that joins
/// lines becomes a line end again; a CR at the end stays, since its LF may follow.
void at_framing::give_up_unit()
{
    const bool is_single = waiting == unit::LINE;
    const bool wants_next_line = waiting == unit::FRAMED_PDU; // its reader takes the next line for the PDU
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
    const bool swallowed = is_single && !continued && !text.empty() && sink.swallow(text);
    if (!swallowed)
        hand_over(text);
    if (wants_next_line)
        flush();
    continued = !line_ended;
    count = 0;
    if (ends_in_cr)
        line[count++] = '\r';
}

/// Appends to the next delivery, which goes out first when both do not fit in one.
void at_framing::hand_over(std::string_view text)
{
    if (text.empty())
        return;
    const std::string_view lead = blank && text.size() + LINE_END.size() <= ready.size() ? LINE_END : "";
    blank = false;
    if (ready_count + lead.size() + text.size() > ready.size())
        flush();
    lead.copy(&ready[ready_count], lead.size());
    text.copy(&ready[ready_count] + lead.size(), text.size());
    ready_count += lead.size() + text.size();
}

void at_framing::flush()
{
    if (ready_count > 0)
        sink.deliver({ready.data(), ready_count});
    ready_count = 0;
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
