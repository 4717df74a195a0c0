// The AT proxy's framing. Input: options; the modem's bytes; 0xFE stands for silence, 0xFD for another modem.
#include <string>
#include <vector>

#include "at_framing.h"
#include "fuzz.h"

namespace
{

class recorder final : public at_framing_sink
{
public:
    explicit recorder(uint8_t choice) : options(choice) {}

    bool swallow(std::string_view text) override
    {
        require(!text.empty() && text.size() <= AT_DELIVERY_MAX, "a line that is asked about has a text");
        const bool taken = (swallows_echo() && text.starts_with("AT")) || (swallows_prompts() && text == ">");
        asked.emplace_back(text);
        return taken;
    }

    bool awaits_prompt() const override { return (options & 1) != 0; }
    bool swallows_echo() const { return (options & 2) != 0; }
    bool swallows_prompts() const { return (options & 4) != 0; }

    void deliver(std::string_view text) override
    {
        require(!text.empty() && text.size() <= AT_DELIVERY_MAX, "a delivery has 1 to 1499 bytes");
        deliveries.emplace_back(text);
    }

    std::string text() const
    {
        std::string whole;
        for (const std::string &delivery : deliveries)
            whole += delivery;
        return whole;
    }

    std::vector<std::string> asked;
    std::vector<std::string> deliveries;

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
    pass_silence();
    return sink;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    fuzz_input in(data, size);
    const uint8_t options = in.take_byte();
    const uint32_t seed = in.take_byte();
    const std::string_view bytes = in.take(size);
    const recorder whole = run(bytes, options, WHOLE, 0);
    for (const std::size_t longest : {std::size_t{1}, std::size_t{3}, std::size_t{64}}) {
        const recorder cut = run(bytes, options, longest, seed);
        require(cut.text() == whole.text(), "every cut of the bytes gives the same text");
        require(cut.asked == whole.asked, "every cut of the bytes asks about the same lines");
        if (whole.awaits_prompt())
            require(cut.deliveries == whole.deliveries,
                    "deliveries before a prompt do not depend on the cut");
    }
    const bool loses_text = whole.swallows_echo() || whole.swallows_prompts();
    if (!loses_text && bytes.find('\xFD') == bytes.npos)
        require(visible(whole.text()) == visible(bytes), "nothing is lost, nothing invented");
    return 0;
}
