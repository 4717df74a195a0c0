// Turns the modem's bytes into deliveries of whole lines. Pure: no input or output, no clock, no heap; one thread.
//
// What is changed on the way, and nothing else: a run of empty lines counts as one and goes with what follows it;
// several CR before an LF count as one; an LF alone at the start of a line is dropped; a bare '>' gets its blank; a
// +CMT or +CDS header and its PDU, and the lines of a quoted +CUSD string, are joined by a single LF into one line.
//
// Where a delivery ends matters to its reader, so where it does that never depends on how the bytes were read: a
// delivery ends behind a prompt and behind a line that ends a command, but not between the lines before an awaited
// prompt, and a ^HCMGR body has one of its own.
#ifndef VLK_AT_FRAMING_H
#define VLK_AT_FRAMING_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// Longest delivery in bytes: what one record of the modem-data queue takes.
inline constexpr std::size_t AT_DELIVERY_MAX = 1499;

/// An unfinished line is handed on after this many milliseconds without a byte. Longer than a loaded USB modem or
/// machine pauses inside a line, shorter than a person or a command's time limit (whole seconds) would notice.
inline constexpr int64_t AT_SILENCE_MS = 300;

/// Where a framing puts its results. Called from feed and tick.
class at_framing_sink
{
public:
    /// Asked for each line (without its line end) and each prompt (">"). True: it is meant for the proxy itself and
    /// goes no further.
    virtual bool swallow(std::string_view text) = 0;

    /// Asked when finished lines are ready. True: a prompt or a final result is about to come, they go with it.
    virtual bool awaits_prompt() const { return false; }

    /// Takes one delivery of 1 to AT_DELIVERY_MAX bytes, valid during the call.
    virtual void deliver(std::string_view text) = 0;

protected:
    ~at_framing_sink() = default;
};

/// True for a line that ends a command. Only its beginning counts, as it does for the daemon.
bool at_is_final_result(std::string_view line);

class at_framing
{
public:
    constexpr explicit at_framing(at_framing_sink &receiver) : sink(receiver) {}

    /// Takes bytes as they were read at now_ms (monotonic milliseconds). Delivers everything up to the last complete
    /// line, or prompt, before it returns; lines before an awaited prompt wait for it.
    void feed(std::string_view bytes, int64_t now_ms);

    /// Hands on the unfinished line, and lines that wait for a prompt, when they are due.
    void tick(int64_t now_ms);

    /// Time at which tick has something to do, -1 for none.
    int64_t due() const;

    /// Forgets the unfinished line: the modem behind the bytes is another one now.
    void reset();

private:
    /// What ends the unit in `line`.
    enum class unit {
        LINE,       ///< its line end
        JOINED_PDU, ///< the line end of the PDU that follows the header; both become one line
        FRAMED_PDU, ///< the same, header and PDU stay two lines
        BODY,       ///< Ctrl-Z and a line end
        QUOTE,      ///< the line end after the closing quote
    };

    bool has_open_line() const;
    void take(char c);
    bool take_at_line_start(char c);
    void end_of_line();
    void end_of_single_line();
    void end_of_pdu();
    bool begin_unit(std::string_view text);
    void expect(unit what);
    void join_lines();
    void finish_unit();
    void give_up_unit();
    void hand_over(std::string_view text);
    void flush();
    void drop_extra_cr();
    std::string_view text_from(std::size_t start) const;

    at_framing_sink &sink;
    std::array<char, AT_DELIVERY_MAX> ready{}; ///< finished units, the next delivery
    std::array<char, AT_DELIVERY_MAX> line{};  ///< the unit being put together
    std::size_t ready_count = 0;
    std::size_t count = 0;     ///< bytes in line
    std::size_t header = 0;    ///< bytes of line that are a finished header
    unit waiting = unit::LINE; ///< what ends the unit
    bool free_text = false;    ///< what follows the header may be any text, not only a PDU
    bool continued = false;    ///< the start of this line has been handed on already
    bool blank = false;        ///< an empty line waits for what follows it
    bool after_prompt = false; ///< the byte before was '>', handed on with its blank
    int64_t last_byte_ms = 0;
};

#endif
