// A quick test of whether one of a list of texts may begin at a place: two of its bytes must match there. Built from
// the list at compile time.
#ifndef TWO_BYTES_H
#define TWO_BYTES_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string_view>

/// Tests the first byte of the texts and the one at second_at, which may be any for a shorter text. There may be
/// eight different first bytes at most, NUL included: each has a bit of its own.
template <std::size_t second_at>
class two_bytes
{
public:
    /// With nul_fits a NUL counts as the beginning of a text.
    consteval two_bytes(std::span<const std::string_view> texts, bool nul_fits)
    {
        unsigned bit = 1;
        if (nul_fits) {
            first[0] = static_cast<uint8_t>(bit);
            second.fill(static_cast<uint8_t>(bit));
            bit <<= 1;
        }
        for (const std::string_view text : texts) {
            uint8_t &bits = first[byte_of(text[0])];
            if (bits == 0) {
                if (bit > UINT8_MAX)
                    abort(); // impossible at compile time, so the compiler refuses the list
                bits = static_cast<uint8_t>(bit);
                bit <<= 1;
            }
            for (unsigned byte = 0; byte < second.size(); ++byte) {
                if (text.size() <= second_at || byte_of(text[second_at]) == byte)
                    second[byte] |= bits;
            }
        }
    }

    /// Not 0 where a text may begin. at[second_at] is read.
    unsigned fit(const char *at) const
    {
        return first[byte_of(at[0])] & unsigned{second[byte_of(at[second_at])]};
    }

private:
    static constexpr unsigned char byte_of(char c) { return static_cast<unsigned char>(c); }

    std::array<uint8_t, 256> first{};
    std::array<uint8_t, 256> second{};
};

#endif
