// Takes the modem's bytes apart into units: lines, prompts, and the reports that span two lines. Pure: no input or
// output, no clock, no heap; one thread.
//
// Only this is changed on the way: every line end becomes CR LF; a run of empty lines counts as one and is noted in
// the unit behind it; a bare '>' gets its blank; a +CMT or +CDS header and its PDU, and the lines of a
// quoted +CUSD string, are joined by a single LF into one line. Which units there are never depends on how the bytes
// were read.
#ifndef VLK_AT_FRAMING_H
#define VLK_AT_FRAMING_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// Longest unit in bytes: what one record of the modem-data queue takes.
inline constexpr std::size_t AT_DELIVERY_MAX = 1499;

/// After this many milliseconds without a byte, what lacks its end counts as ended: a CR without its LF, a bare final
/// result, a header whose second line does not come. The rest of any other line is waited for. Longer than a busy USB
/// modem or machine pauses, too short for a person or a command's time limit (whole seconds) to notice.
inline constexpr int64_t AT_SILENCE_MS = 300;

/// What the modem ends its lines with. ANY: not known yet, whichever comes.
enum class at_line_end {
    CR_LF,
    CR,
    LF,
    ANY
};

struct at_unit {
    std::string_view
        text; ///< 1 to AT_DELIVERY_MAX bytes with the line end, if it has come; valid during the call
    bool is_prompt = false;      ///< the text is "> "
    bool has_body = false;       ///< a ^HCMGR header and body, which need a delivery of their own
    bool is_continued = false;   ///< the start of this line has been a unit already
    bool is_finished = true;     ///< the line end has come
    bool is_after_blank = false; ///< an empty line came before it

    /// The text without its line end.
    std::string_view line() const;
};

/// Where a framing puts its units. Called from feed and tick.
class at_framing_sink
{
public:
    /// False: the unit is dropped, as if an empty line stood there.
    virtual bool take(const at_unit &unit) = 0;

    /// Asked before a line can become the header of a longer unit. True: it is an echo, not a header.
    virtual bool is_echo(std::string_view line) const = 0;

protected:
    ~at_framing_sink() = default;
};

/// True for a line that ends a command. Only its beginning counts, as it does for the daemon.
bool at_is_final_result(std::string_view line);

class at_framing
{
public:
    constexpr explicit at_framing(at_framing_sink &receiver) : sink(receiver) {}

    /// Takes bytes as they were read at now_ms (monotonic milliseconds). Every unit that they finish has been handed
    /// on when it returns.
    void feed(std::string_view bytes, int64_t now_ms);

    /// Hands on the open unit when its time is up.
    void tick(int64_t now_ms);

    /// Time at which tick has something to do, -1 for none.
    int64_t due() const;

    /// Forgets the unfinished line: the modem behind the bytes is another one now.
    void reset();

    /// How lines end from here on.
    void set_line_end(at_line_end how) { line_end = how; }

    /// How the last line ended; ANY before the first.
    at_line_end last_line_end() const { return seen_end; }

private:
    /// What ends the unit in `line`.
    enum class unit {
        LINE,       ///< its line end
        JOINED_PDU, ///< the line end of the PDU that follows the header; both become one line
        FRAMED_PDU, ///< the same, but header and PDU stay two lines
        BODY,       ///< Ctrl-Z and a line end
        QUOTE,      ///< the line end after the closing quote
    };

    bool has_open_line() const;
    bool is_inside_line() const;
    void take(char c);
    std::size_t take_plain(std::string_view bytes);
    bool take_at_line_start(char c);
    bool ends_line(char c) const;
    void complete_line_end();
    void end_of_line();
    void end_of_single_line();
    void end_of_pdu();
    bool begin_unit(std::string_view text);
    void expect(unit what);
    void join_lines();
    void finish_unit();
    void give_up_unit();
    void hand_on(at_unit made);
    void drop_extra_cr();
    std::string_view text_from(std::size_t start) const;

    at_framing_sink &sink;
    std::array<char, AT_DELIVERY_MAX> line; ///< the unit being put together
    std::size_t count = 0;                  ///< bytes in line
    std::size_t header = 0;                 ///< bytes of line that are a finished header
    unit waiting = unit::LINE;              ///< what ends the unit
    at_line_end line_end = at_line_end::CR_LF;
    at_line_end seen_end = at_line_end::ANY;
    bool free_text = false;    ///< what follows the header may be any text, not only a PDU
    bool continued = false;    ///< the start of this line has been handed on already
    bool blank = false;        ///< an empty line waits for what follows it
    bool after_prompt = false; ///< the byte before was '>', handed on with its blank
    int64_t last_byte_ms = 0;
};

#endif
