#include "alphabet.h"

#include <algorithm>
#include <array>

namespace sms
{
namespace
{
constexpr char16_t ESCAPE = 0x1B;
constexpr char16_t REPLACEMENT = 0xFFFD;

constexpr std::u16string_view DEFAULT_ALPHABET = u"@£$¥èéùìòÇ\nØø\rÅå"
                                                 u"Δ_ΦΓΛΩΠΨΣΘΞ\u001BÆæßÉ"
                                                 u" !\"#¤%&'()*+,-./"
                                                 u"0123456789:;<=>?"
                                                 u"¡ABCDEFGHIJKLMNO"
                                                 u"PQRSTUVWXYZÄÖÑÜ§"
                                                 u"¿abcdefghijklmno"
                                                 u"pqrstuvwxyzäöñüà";
static_assert(DEFAULT_ALPHABET.size() == 128 && DEFAULT_ALPHABET[ESCAPE] == ESCAPE);

struct extension {
    char16_t septet; // behind the escape
    char16_t character;
};

constexpr extension EXTENSIONS[] = {{0x0A, u'\f'}, {0x14, u'^'}, {0x28, u'{'}, {0x29, u'}'}, {0x2F, u'\\'},
                                    {0x3C, u'['},  {0x3D, u'~'}, {0x3E, u']'}, {0x40, u'|'}, {0x65, u'€'}};

bool is_high_surrogate(char16_t unit)
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool is_low_surrogate(char16_t unit)
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

/// Cuts the first character off a UTF-8 text. False when it is not well formed.
bool take_character(std::string_view &utf8, char32_t &character)
{
    constexpr std::array<char32_t, 5> SMALLEST = {0, 0, 0x80, 0x800, 0x10000}; // by length
    const auto first = static_cast<unsigned char>(utf8[0]);
    const size_t length = first < 0x80 ? 1 : first < 0xC0 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (length == 0 || length > utf8.size() || first > 0xF4)
        return false;
    character = length == 1 ? first : first & (0xFFU >> (length + 1));
    for (size_t at = 1; at < length; at++) {
        const auto next = static_cast<unsigned char>(utf8[at]);
        if ((next & 0xC0) != 0x80)
            return false;
        character = character << 6 | (next & 0x3FU);
    }
    utf8.remove_prefix(length);
    return character >= SMALLEST[length] && character <= 0x10FFFF &&
           (character < 0xD800 || character > 0xDFFF);
}

void append_utf8(std::string &text, char32_t character)
{
    const auto add = [&text](char32_t byte) { text += static_cast<char>(byte); };
    if (character < 0x80)
        return add(character);
    if (character < 0x800) {
        add(0xC0 | character >> 6);
    } else if (character < 0x10000) {
        add(0xE0 | character >> 12);
        add(0x80 | (character >> 6 & 0x3F));
    } else {
        add(0xF0 | character >> 18);
        add(0x80 | (character >> 12 & 0x3F));
        add(0x80 | (character >> 6 & 0x3F));
    }
    add(0x80 | (character & 0x3F));
}

std::string utf8_of_utf16(std::u16string_view units)
{
    std::string text;
    for (size_t at = 0; at < units.size(); at++) {
        const char16_t unit = units[at];
        if (is_high_surrogate(unit) && at + 1 < units.size() && is_low_surrogate(units[at + 1]))
            append_utf8(text, 0x10000 + ((unit & 0x3FFU) << 10) + (units[++at] & 0x3FFU));
        else
            append_utf8(text, is_high_surrogate(unit) || is_low_surrogate(unit) ? REPLACEMENT : unit);
    }
    return text;
}

/// The character behind an escape; one that the extension table lacks is shown as the default alphabet's.
char16_t extended(char16_t septet)
{
    for (const extension &row : EXTENSIONS)
        if (row.septet == septet)
            return row.character;
    return septet == ESCAPE ? u' ' : DEFAULT_ALPHABET[septet & 0x7F];
}

std::string utf8_of_septets(std::u16string_view septets)
{
    std::string text;
    for (size_t at = 0; at < septets.size(); at++) {
        if (septets[at] != ESCAPE)
            append_utf8(text, DEFAULT_ALPHABET[septets[at] & 0x7F]);
        else
            append_utf8(text, at + 1 < septets.size() ? extended(septets[++at]) : u' ');
    }
    return text;
}

int digit_value(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    const char upper = static_cast<char>(digit & ~0x20);
    return upper >= 'A' && upper <= 'F' ? upper - 'A' + 10 : -1;
}
} // namespace

const char *name_of(alphabet coding)
{
    if (coding == alphabet::gsm7)
        return "GSM 7-bit";
    return coding == alphabet::ucs2 ? "UCS-2" : "8-bit";
}

bool utf16_of(std::string_view utf8, std::u16string &units)
{
    units.clear();
    while (!utf8.empty()) {
        char32_t character = 0;
        if (!take_character(utf8, character))
            return false;
        if (character >= 0x10000) {
            units += static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
            units += static_cast<char16_t>(0xDC00 + (character & 0x3FF));
        } else {
            units += static_cast<char16_t>(character);
        }
    }
    return true;
}

bool septets_of(std::u16string_view text, std::u16string &septets)
{
    septets.clear();
    for (const char16_t character : text) {
        const size_t at = DEFAULT_ALPHABET.find(character);
        if (at != std::u16string_view::npos && at != ESCAPE) {
            septets += static_cast<char16_t>(at);
            continue;
        }
        const auto *row = std::ranges::find(EXTENSIONS, character, &extension::character);
        if (row == std::end(EXTENSIONS))
            return false;
        septets += ESCAPE;
        septets += row->septet;
    }
    return true;
}

std::string text_of(alphabet coding, std::u16string_view units)
{
    if (coding == alphabet::gsm7)
        return utf8_of_septets(units);
    if (coding == alphabet::ucs2)
        return utf8_of_utf16(units);
    std::string octets;
    for (const char16_t unit : units)
        octets += static_cast<char>(unit);
    return octets;
}

size_t whole_units(alphabet coding, char16_t first)
{
    const bool pair = (coding == alphabet::gsm7 && first == ESCAPE) ||
                      (coding == alphabet::ucs2 && is_high_surrogate(first));
    return pair ? 2 : 1;
}

std::string pack_septets(std::u16string_view septets, unsigned fill)
{
    std::string octets;
    unsigned held = 0; // bits that wait for an octet, the first one lowest
    unsigned count = fill;
    for (const char16_t septet : septets) {
        held |= (septet & 0x7FU) << count;
        for (count += 7; count >= 8; count -= 8, held >>= 8)
            octets += static_cast<char>(held & 0xFF);
    }
    if (count > 0)
        octets += static_cast<char>(held);
    return octets;
}

std::u16string unpack_septets(std::string_view octets, size_t count, unsigned fill)
{
    std::u16string septets;
    const size_t bits = octets.size() * 8;
    for (size_t at = fill; septets.size() < count && at + 7 <= bits; at += 7) {
        unsigned two = static_cast<unsigned char>(octets[at / 8]);
        if (at / 8 + 1 < octets.size())
            two |= static_cast<unsigned>(static_cast<unsigned char>(octets[at / 8 + 1])) << 8;
        septets += static_cast<char16_t>(two >> at % 8 & 0x7F);
    }
    return septets;
}

std::u16string units_of_octets(std::string_view octets)
{
    std::u16string units;
    for (size_t at = 0; at + 1 < octets.size(); at += 2)
        units += static_cast<char16_t>(static_cast<unsigned char>(octets[at]) << 8 |
                                       static_cast<unsigned char>(octets[at + 1]));
    return units;
}

bool octets_of_hex(std::string_view hex, std::string &octets)
{
    octets.clear();
    if (hex.size() % 2 != 0)
        return false;
    for (size_t at = 0; at < hex.size(); at += 2) {
        const int high = digit_value(hex[at]);
        const int low = digit_value(hex[at + 1]);
        if (high < 0 || low < 0)
            return false;
        octets += static_cast<char>(high * 16 + low);
    }
    return true;
}

std::string hex_of(std::string_view octets)
{
    constexpr std::string_view DIGITS = "0123456789ABCDEF";
    std::string hex;
    for (const char octet : octets) {
        hex += DIGITS[static_cast<unsigned char>(octet) >> 4];
        hex += DIGITS[static_cast<unsigned char>(octet) & 15];
    }
    return hex;
}
} // namespace sms
