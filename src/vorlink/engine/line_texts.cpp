// Two tables, built from the lists of texts at compile time: the two bytes with which texts begin, and the texts by
// their first four bytes. One walk over a line uses the first; where it says that a text may begin, the second names
// the few texts to compare.
#include "line_texts.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "two_bytes.h"
#include "vlk_register.h"
#include "vlk_report_callback/report_table.h"

namespace
{

// The texts by number: the rows of the report table, then the heads, then the card states.
constexpr std::size_t HEADS = VLK_REPORT_ROWS;
constexpr std::size_t CARD_STATES = HEADS + MESSAGE_HEADS.size();
constexpr std::size_t TEXTS = CARD_STATES + vlk_card_state_texts.size();

consteval std::array<std::string_view, TEXTS> list_texts()
{
    std::array<std::string_view, TEXTS> list;
    for (std::size_t row = 0; row < VLK_REPORT_ROWS; ++row)
        list[row] = vlk_report_table[row].prefix;
    std::copy(MESSAGE_HEADS.begin(), MESSAGE_HEADS.end(), &list[HEADS]);
    std::copy(vlk_card_state_texts.begin(), vlk_card_state_texts.end(), &list[CARD_STATES]);
    return list;
}

constexpr std::array<std::string_view, TEXTS> LIST = list_texts();

constexpr unsigned char byte_of(char c)
{
    return static_cast<unsigned char>(c);
}

constexpr std::size_t BEGINNING = 4; // bytes; no text is shorter
static_assert(std::ranges::none_of(LIST, [](std::string_view text) { return text.size() < BEGINNING; }));

constexpr two_bytes<1> FIRST_TWO(LIST, true);

/// The first place in [at, end) where a text may begin or the line ends; end or a place behind it when there is none.
/// Up to end[3] is read.
const char *next_place(const char *at, const char *end)
{
    while (at < end &&
           (FIRST_TWO.fit(at) | FIRST_TWO.fit(at + 1) | FIRST_TWO.fit(at + 2) | FIRST_TWO.fit(at + 3)) == 0)
        at += 4;
    while (at < end && FIRST_TWO.fit(at) == 0)
        ++at;
    return at;
}

/// The texts by their first four bytes.
struct text_buckets {
    static constexpr std::size_t BUCKETS = 256;
    static constexpr uint8_t NONE = 255;
    static_assert(TEXTS <= NONE);

    std::array<uint8_t, BUCKETS> first{}; // by bucket: a text
    std::array<uint8_t, TEXTS> next{};    // by text: another one in the same bucket

    consteval text_buckets()
    {
        first.fill(NONE);
        for (std::size_t text = 0; text < TEXTS; ++text) {
            uint8_t &head = first[bucket_of(LIST[text].data())];
            next[text] = head;
            head = static_cast<uint8_t>(text);
        }
    }

    static constexpr std::size_t bucket_of(const char *text)
    {
        const uint32_t beginning = static_cast<uint32_t>(byte_of(text[0])) << 24 |
                                   static_cast<uint32_t>(byte_of(text[1])) << 16 |
                                   static_cast<uint32_t>(byte_of(text[2])) << 8 | byte_of(text[3]);
        return (beginning * 2654435769U) >> 24; // multiplied by 2^32 over the golden ratio
    }
};

constexpr text_buckets BY_BEGINNING;

} // namespace

line_texts look_for_texts(const char *line, std::size_t length)
{
    line_texts found;
    if (length < BEGINNING)
        return found;
    const char *const end = line + length - BEGINNING + 1; // of the places where a text may begin
    std::size_t row = VLK_REPORT_ROWS;
    for (const char *at = line; at < end && *at != '\0'; at = next_place(at + 1, end)) {
        for (std::size_t text = BY_BEGINNING.first[BY_BEGINNING.bucket_of(at)]; text != BY_BEGINNING.NONE;
             text = BY_BEGINNING.next[text]) {
            if (LIST[text].size() > static_cast<std::size_t>(line + length - at) ||
                memcmp(at, LIST[text].data(), LIST[text].size()) != 0)
                continue;
            if (text < HEADS)
                row = std::min(row, text);
            else if (text < CARD_STATES)
                found.message_head = true;
            else
                found.card_state = true;
        }
    }
    if (row != VLK_REPORT_ROWS)
        found.report = &vlk_report_table[row];
    return found;
}
