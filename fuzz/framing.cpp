// The AT proxy's framing, and the AT link around it. Input: options; the modem's bytes; 0xFE stands for silence, 0xFD
// for another modem, and for the link 0xFC to 0xF7 for what the daemon and its clients do.
#include <string>
#include <vector>

#include "at_link.h"
#include "fuzz.h"

namespace
{

class recorder final : public at_framing_sink
{
public:
    explicit recorder(uint8_t choice) : options(choice) {}

    bool take(const at_unit &unit) override
    {
        require(!unit.text.empty() && unit.text.size() <= AT_DELIVERY_MAX, "a unit has 1 to 1499 bytes");
        require(unit.is_prompt == (unit.text == "> " && !unit.is_continued && unit.is_finished) ||
                    !unit.is_prompt,
                "a prompt is its two bytes");
        text += unit.text;
        return (options & 4) == 0 || !unit.is_prompt;
    }
    bool is_echo(std::string_view line) const override
    {
        return (options & 2) != 0 && line.starts_with("AT");
    }

    std::string text;

private:
    uint8_t options;
};

/// What no line end, prompt or joining may change.
std::string visible(std::string_view text)
{
    std::string kept;
    for (const char c : text) {
        if (c != '\r' && c != '\n' && c != ' ' && c != '\xFE')
            kept += c;
    }
    return kept;
}

constexpr std::size_t WHOLE = 1U << 16; // longer than any piece

/// Feeds the bytes in pieces of random length up to longest, the same for the same seed.
recorder run(std::string_view bytes, uint8_t options, std::size_t longest, uint32_t seed)
{
    recorder sink(options);
    at_framing framing(sink);
    framing.set_line_end(static_cast<at_line_end>(options >> 3 & 3));
    int64_t now = 0;
    const auto pass_silence = [&] {
        now += AT_SILENCE_MS;
        framing.tick(now);
        require(framing.due() < 0, "nothing is held past its time");
    };
    while (!bytes.empty()) {
        std::string_view stretch = bytes.substr(0, bytes.find_first_of("\xFE\xFD"));
        bytes.remove_prefix(stretch.size());
        while (!stretch.empty()) {
            seed = seed * 1664525U + 1013904223U;
            const std::string piece(stretch.substr(
                0, longest == WHOLE ? WHOLE : 1 + (seed >> 16) % longest)); // a copy: reading past it is seen
            framing.feed(piece, now++);
            stretch.remove_prefix(piece.size());
        }
        if (bytes.starts_with('\xFE'))
            pass_silence();
        else if (bytes.starts_with('\xFD'))
            framing.reset();
        bytes.remove_prefix(std::min<std::size_t>(bytes.size(), 1));
    }
    framing.feed("\r\n", now++); // the rest of an open line is waited for
    pass_silence();
    return sink;
}

/// What the link may write, whatever the modem says: one line at a time, and no message without its prompt.
struct port final : at_link_port {
    std::size_t lines = 0, texts = 0, prompts = 0;
    std::size_t written = 0;

    void note_line(std::string_view text)
    {
        require(text.find('\r') == text.npos || text.find('\r') == text.size() - 1, "one line a write");
        (text.ends_with("\x1a\r") ? texts : lines) += 1;
        require(texts <= prompts, "no message without its prompt");
    }
    void write(std::string_view text) override
    {
        written += text.size();
        note_line(text);
    }
    void deliver(std::string_view text, bool) override
    {
        require(!text.empty() && text.size() <= AT_DELIVERY_MAX, "a delivery has 1 to 1499 bytes");
    }
    void tell(at_notice, std::string_view) override {}
    void tell_debt(std::string_view) override {}
    void hang_up() override {}
    void reopen() override {}
};

void run_link(std::string_view bytes)
{
    port results;
    at_link link(results);
    int64_t now = 0;
    uint32_t request = 0;
    link.opened(now);
    while (!bytes.empty()) {
        const std::string piece(
            bytes.substr(0, std::min(bytes.find_first_of("\xFE\xFD\xFC\xFB\xFA\xF9\xF8\xF7"), AT_FEED_MAX)));
        bytes.remove_prefix(piece.size());
        results.prompts += static_cast<std::size_t>(std::ranges::count(piece, '>'));
        const std::size_t before = results.written;
        link.feed(piece, now++);
        require(results.written - before < 4096, "a modem's bytes make no flood");
        if (!piece.empty() && piece.size() == AT_FEED_MAX)
            continue;
        switch (bytes.empty() ? 0 : static_cast<unsigned char>(bytes.front())) {
        case 0xFE:
            now += 1000;
            link.tick(now);
            require(link.due() < 0 || link.due() > now, "nothing is due for ever");
            break;
        case 0xFD:
            link.closed();
            link.opened(now);
            break;
        case 0xFC:
            if (link.send("AT+CSQ\r", {++request, 2000, false}, now) == at_sent::WRITE)
                results.note_line("AT+CSQ\r");
            break;
        case 0xFB:
            if (link.send("AT+CMGS=2\r", {++request, 0, true}, now) == at_sent::WRITE)
                results.note_line("AT+CMGS=2\r");
            break;
        case 0xFA:
            if (link.send("00\x1a\r", {request, 0, false}, now) == at_sent::WRITE)
                results.note_line("00\x1a\r");
            break;
        case 0xF9:
            link.asker_gone(request, now);
            break;
        case 0xF8:
            if (link.send("ATZ\r", {++request, 2000, false}, now) == at_sent::WRITE)
                link.unsent();
            break;
        case 0xF7:
            require(link.send("AT+CMGC=2\r00\x1a\r", {++request, 2000, false}, now) != at_sent::WRITE,
                    "a line and its message are never written in one");
            break;
        default:
            break;
        }
        bytes.remove_prefix(std::min<std::size_t>(bytes.size(), 1));
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    fuzz_input in(data, size);
    const uint8_t options = in.take_byte();
    const uint32_t seed = in.take_byte();
    const std::string_view bytes = in.take(size);
    run_link(bytes);
    const recorder whole = run(bytes, options, WHOLE, 0);
    for (const std::size_t longest : {std::size_t{1}, std::size_t{3}, std::size_t{64}})
        require(run(bytes, options, longest, seed).text == whole.text,
                "every cut of the bytes gives the same text");
    if (bytes.find('\xFD') == bytes.npos)
        require(visible(whole.text) == visible(bytes), "nothing is lost, nothing invented");
    return 0;
}
