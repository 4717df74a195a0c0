#include "pdu.h"

#include "text.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <utility>

namespace modemsim
{

namespace
{

constexpr std::size_t max_septets = 160;
constexpr std::size_t max_octets = 140;
constexpr unsigned international = 0x91;
constexpr unsigned unknown_type = 0x81;
constexpr unsigned alphanumeric = 0xd0;
constexpr unsigned max_address_digits = 20;
constexpr char extension = 0x1b;
constexpr std::string_view address_digits = "0123456789*#abc";

// clang-format off
constexpr std::u32string_view gsm_alphabet =
    U"@£$¥èéùìòÇ\nØø\rÅåΔ_ΦΓΛΩΠΨΣΘΞ\x1bÆæßÉ !\"#¤%&'()*+,-./0123456789:;<=>?"
    U"¡ABCDEFGHIJKLMNOPQRSTUVWXYZÄÖÑÜ§¿abcdefghijklmnopqrstuvwxyzäöñüà";
// clang-format on
static_assert(gsm_alphabet.size() == 128);

struct extended {
    char septet;
    char32_t character;
};
constexpr extended extended_alphabet[] = {{0x0a, U'\f'}, {0x14, U'^'}, {0x28, U'{'}, {0x29, U'}'},
                                          {0x2f, U'\\'}, {0x3c, U'['}, {0x3d, U'~'}, {0x3e, U']'},
                                          {0x40, U'|'},  {0x65, U'€'}};

unsigned octet(char c)
{
    return static_cast<unsigned char>(c);
}

/// Characters of UTF-8; U+FFFD for what is not valid.
std::u32string characters_of(std::string_view utf8)
{
    std::u32string result;
    for (std::size_t pos = 0; pos < utf8.size();) {
        const unsigned first = octet(utf8[pos++]);
        const int more = first < 0x80 ? 0 : first >= 0xf0 ? 3 : first >= 0xe0 ? 2 : first >= 0xc0 ? 1 : -1;
        char32_t c = more <= 0 ? first : first & (0x3fU >> more);
        int left = more;
        for (; left > 0 && pos < utf8.size() && (octet(utf8[pos]) & 0xc0) == 0x80; --left)
            c = c << 6 | (octet(utf8[pos++]) & 0x3f);
        result += left != 0 || c > 0x10ffff ? U'\xfffd' : c;
    }
    return result;
}

void append_utf8(std::string &text, char32_t c)
{
    const auto tail = [&](int shift) { text += static_cast<char>(0x80 | (c >> shift & 0x3f)); };
    if (c < 0x80) {
        text += static_cast<char>(c);
    } else if (c < 0x800) {
        text += static_cast<char>(0xc0 | c >> 6);
        tail(0);
    } else if (c < 0x10000) {
        text += static_cast<char>(0xe0 | c >> 12);
        tail(6);
        tail(0);
    } else {
        text += static_cast<char>(0xf0 | c >> 18);
        tail(12);
        tail(6);
        tail(0);
    }
}

void append_utf16(std::string &octets, char32_t c)
{
    const auto unit = [&](char32_t u) {
        octets += static_cast<char>(u >> 8);
        octets += static_cast<char>(u & 0xff);
    };
    if (c < 0x10000)
        return unit(c);
    unit(0xd800 + ((c - 0x10000) >> 10));
    unit(0xdc00 + ((c - 0x10000) & 0x3ff));
}

std::u32string characters_of_utf16(std::string_view octets)
{
    std::u32string result;
    for (std::size_t pos = 0; pos + 1 < octets.size(); pos += 2) {
        const char32_t unit = octet(octets[pos]) << 8 | octet(octets[pos + 1]);
        const bool is_pair = unit >= 0xdc00 && unit < 0xe000 && !result.empty() && result.back() >= 0xd800 &&
                             result.back() < 0xdc00;
        if (is_pair)
            result.back() = 0x10000 + ((result.back() - 0xd800) << 10) + (unit - 0xdc00);
        else
            result += unit;
    }
    return result;
}

/// Septets, one a char; nothing when a character is not in the alphabet.
std::optional<std::string> septets_of(std::u32string_view text)
{
    std::string septets;
    for (const char32_t c : text) {
        const std::size_t place = gsm_alphabet.find(c);
        const auto *const row = std::ranges::find(extended_alphabet, c, &extended::character);
        if (place != std::u32string_view::npos)
            septets += static_cast<char>(place);
        else if (row != std::end(extended_alphabet))
            septets += {extension, row->septet};
        else
            return std::nullopt;
    }
    return septets;
}

std::u32string characters_of_septets(std::string_view septets)
{
    std::u32string text;
    for (std::size_t i = 0; i < septets.size(); ++i) {
        const auto *const row = septets[i] == extension && i + 1 < septets.size()
                                    ? std::ranges::find(extended_alphabet, septets[i + 1], &extended::septet)
                                    : std::end(extended_alphabet);
        if (row != std::end(extended_alphabet)) {
            text += row->character;
            ++i;
        } else {
            text += gsm_alphabet[octet(septets[i]) & 0x7f];
        }
    }
    return text;
}

std::string pack(std::string_view septets)
{
    std::string octets((septets.size() * 7 + 7) / 8, '\0');
    for (std::size_t i = 0; i < septets.size(); ++i) {
        const unsigned bits = octet(septets[i]) << (i * 7 % 8);
        octets[i * 7 / 8] = static_cast<char>(octet(octets[i * 7 / 8]) | (bits & 0xff));
        if (bits > 0xff)
            octets[i * 7 / 8 + 1] = static_cast<char>(bits >> 8);
    }
    return octets;
}

std::string unpack(std::string_view octets, std::size_t count)
{
    std::string septets;
    for (std::size_t i = 0; i < count && i * 7 / 8 < octets.size(); ++i) {
        const std::size_t at = i * 7 / 8;
        const unsigned pair = octet(octets[at]) | (at + 1 < octets.size() ? octet(octets[at + 1]) << 8 : 0);
        septets += static_cast<char>(pair >> (i * 7 % 8) & 0x7f);
    }
    return septets;
}

bool is_packed(unsigned coding)
{
    const unsigned group = coding >> 4;
    if (group < 8)
        return (coding & 0x0c) == 0;
    return group == 12 || group == 13 || (group == 15 && (coding & 4) == 0);
}

std::size_t data_octets(const short_message &message)
{
    return is_packed(message.coding) ? (message.length * 7 + 7) / 8 : message.length;
}

/// Hands out the octets of a PDU; `whole` turns false when there were too few.
struct octet_reader {
    std::string_view rest;
    bool whole = true;

    std::string take(std::size_t count)
    {
        whole = whole && count <= rest.size();
        const std::string_view part = rest.substr(0, count);
        rest.remove_prefix(part.size());
        return std::string(part);
    }
    unsigned one()
    {
        const std::string taken = take(1);
        return taken.empty() ? 0 : octet(taken[0]);
    }
    std::string address()
    {
        const std::size_t digits = rest.empty() ? 0 : octet(rest[0]);
        whole = whole && digits <= max_address_digits;
        return take(2 + (digits + 1) / 2);
    }
};

std::size_t validity_octets(unsigned first_octet)
{
    constexpr std::array<std::size_t, 4> sizes = {0, 7, 1, 7}; // none, enhanced, relative, absolute
    return sizes[first_octet >> 3 & 3];
}

} // namespace

bool short_message::is_flash() const
{
    const unsigned group = coding >> 4;
    return type == deliver && (coding & 3) == 0 && (group == 1 || group == 3 || group == 15);
}

character_set character_set_of(std::string_view name)
{
    constexpr std::pair<std::string_view, character_set> rows[] = {
        {"GSM", character_set::gsm},
        {"UCS2", character_set::ucs2},
        {"UTF-8", character_set::utf8},
        {"UTF8", character_set::utf8},
    };
    const auto *const row = std::ranges::find_if(
        rows, [&](const auto &candidate) { return equal_ignoring_case(candidate.first, name); });
    return row == std::end(rows) ? character_set::ira : row->second;
}

std::optional<unsigned> pdu_length(std::string_view hex)
{
    const auto octets = from_hex(hex);
    if (!octets || octets->empty() || octets->size() < 1 + octet(octets->front()))
        return std::nullopt;
    return static_cast<unsigned>(octets->size() - 1 - octet(octets->front()));
}

std::optional<short_message> read_pdu(std::string_view hex)
{
    const auto octets = from_hex(hex);
    if (!octets)
        return std::nullopt;
    octet_reader reader{*octets};
    short_message read;
    read.smsc = reader.take(reader.one());
    read.first_octet = reader.one();
    if ((read.first_octet & 3) == 3)
        return std::nullopt;
    read.type = static_cast<short_message::kind>(read.first_octet & 3);
    if (read.type != short_message::deliver)
        read.reference = reader.one();
    read.address = reader.address();
    if (read.type == short_message::status_report) {
        read.time = reader.take(7);
        read.discharge_time = reader.take(7);
        read.status = reader.one();
        return reader.whole ? std::optional(read) : std::nullopt;
    }
    read.protocol = reader.one();
    read.coding = reader.one();
    if (read.type == short_message::deliver)
        read.time = reader.take(7);
    else
        read.validity = reader.take(validity_octets(read.first_octet));
    read.length = reader.one();
    read.data = reader.take(data_octets(read));
    return reader.whole && reader.rest.empty() ? std::optional(read) : std::nullopt;
}

std::string write_pdu(const short_message &message)
{
    const auto one = [](unsigned value) { return std::string(1, static_cast<char>(value)); };
    std::string octets = one(static_cast<unsigned>(message.smsc.size())) + message.smsc;
    octets += one((message.first_octet & ~3U) | static_cast<unsigned>(message.type));
    if (message.type != short_message::deliver)
        octets += one(message.reference);
    octets += message.address;
    if (message.type == short_message::status_report)
        return to_hex(octets + message.time + message.discharge_time + one(message.status));
    octets += one(message.protocol) + one(message.coding);
    octets += message.type == short_message::deliver ? message.time : message.validity;
    return to_hex(octets + one(message.length) + message.data);
}

std::string address_of(std::string_view number)
{
    const bool plus = number.starts_with('+');
    const std::string_view digits = number.substr(plus ? 1 : 0, max_address_digits);
    const auto header = [](std::size_t length, unsigned type) {
        return std::string{static_cast<char>(length), static_cast<char>(type)};
    };
    if (digits.find_first_not_of(address_digits) != std::string_view::npos) {
        const std::string septets =
            septets_of(characters_of(number)).value_or("?").substr(0, max_address_digits / 2 + 1);
        return header((septets.size() * 7 + 3) / 4, alphanumeric) + pack(septets);
    }
    std::string address = header(digits.size(), plus ? international : unknown_type);
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        const std::size_t high = i + 1 < digits.size() ? address_digits.find(digits[i + 1]) : 15;
        address += static_cast<char>(high << 4 | address_digits.find(digits[i]));
    }
    return address;
}

std::string number_of(std::string_view address)
{
    if (address.size() < 2)
        return {};
    const unsigned type = octet(address[1]);
    const std::size_t digits = octet(address[0]);
    const std::string_view rest = address.substr(2);
    std::string number = (type & 0x70) == 0x10 ? "+" : "";
    if ((type & 0x70) == 0x50) {
        for (const char32_t c : characters_of_septets(unpack(rest, digits * 4 / 7)))
            append_utf8(number, c);
        return number;
    }
    for (std::size_t i = 0; i < digits && i / 2 < rest.size(); ++i) {
        const unsigned digit = octet(rest[i / 2]) >> (i % 2 * 4) & 15;
        if (digit < address_digits.size())
            number += address_digits[digit];
    }
    return number;
}

std::string time_of(std::string_view text)
{
    constexpr std::string_view shape = "00/00/00,00:00:00+00";
    std::string octets;
    for (std::size_t i = 0; i + 1 < shape.size() && text.size() == shape.size(); i += 3) {
        if (!all_digits(text.substr(i, 2)))
            return std::string(7, '\0');
        octets += static_cast<char>((text[i] - '0') | (text[i + 1] - '0') << 4);
    }
    octets.resize(7);
    if (text.size() == shape.size() && text[17] == '-')
        octets[6] = static_cast<char>(octet(octets[6]) | 8);
    return octets;
}

std::string time_text(std::string_view octets)
{
    constexpr std::string_view separators = "//,::";
    std::string text;
    for (std::size_t i = 0; i < octets.size() && i < 7; ++i) {
        const unsigned value = octet(octets[i]);
        const bool is_zone = i == 6;
        if (is_zone)
            text += (value & 8) != 0 ? '-' : '+';
        else if (i > 0)
            text += separators[i - 1];
        text += static_cast<char>('0' + (value & (is_zone ? 7 : 15)) % 10);
        text += static_cast<char>('0' + (value >> 4) % 10);
    }
    return text;
}

namespace
{

bool set_septets(short_message &message, std::string_view septets)
{
    message.length = static_cast<unsigned>(septets.size());
    message.data = pack(septets);
    return septets.size() <= max_septets;
}

bool set_octets(short_message &message, std::string octets)
{
    message.length = static_cast<unsigned>(octets.size());
    message.data = std::move(octets);
    return message.length <= max_octets;
}

std::string written(std::u32string_view characters, character_set set)
{
    std::string text;
    for (const char32_t c : characters) {
        if (set == character_set::ucs2)
            append_utf16(text, c);
        else if (set == character_set::utf8)
            append_utf8(text, c);
        else
            text += c < 0x80 ? static_cast<char>(c) : '?';
    }
    return set == character_set::ucs2 ? to_hex(text) : text;
}

/// Septets that a client wrote in its character set.
std::optional<std::string> read_septets(std::string_view text, character_set set)
{
    const auto octets = from_hex(text);
    switch (set) {
    case character_set::gsm:
        return std::ranges::any_of(text, [](char c) { return octet(c) > 0x7f; })
                   ? std::nullopt
                   : std::optional(std::string(text));
    case character_set::ucs2:
        return octets ? septets_of(characters_of_utf16(*octets)) : std::nullopt;
    case character_set::ira:
    case character_set::utf8:
        break;
    }
    return septets_of(characters_of(text));
}

} // namespace

bool set_text(short_message &message, std::string_view text, character_set set)
{
    const bool is_hex = !is_packed(message.coding) || message.has_header();
    if (!is_hex) {
        const auto septets = read_septets(text, set);
        return septets && set_septets(message, *septets);
    }
    auto octets = from_hex(text);
    if (!octets || !set_octets(message, std::move(*octets)))
        return false;
    if (is_packed(message.coding))
        message.length = message.length * 8 / 7;
    return true;
}

bool set_any_text(short_message &message, std::string_view text)
{
    const std::u32string characters = characters_of(text);
    if (const auto septets = septets_of(characters)) {
        message.coding = 0;
        return set_septets(message, *septets);
    }
    std::string octets;
    for (const char32_t c : characters)
        append_utf16(octets, c);
    message.coding = 8;
    return set_octets(message, std::move(octets));
}

std::string in_character_set(std::string_view utf8, character_set set)
{
    const std::u32string characters = characters_of(utf8);
    return set == character_set::gsm ? septets_of(characters).value_or("?") : written(characters, set);
}

std::string text_of(const short_message &message, character_set set)
{
    if (!is_packed(message.coding) || message.has_header())
        return to_hex(message.data);
    const std::string septets = unpack(message.data, message.length);
    return set == character_set::gsm ? septets : written(characters_of_septets(septets), set);
}

} // namespace modemsim
