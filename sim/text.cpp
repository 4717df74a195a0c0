#include "text.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace modemsim
{

namespace
{

constexpr std::string_view blanks = " \t";
constexpr std::string_view hex_digits = "0123456789ABCDEF";

bool is_alnum(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

char to_upper(char c)
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

} // namespace

std::string escape(std::string_view bytes)
{
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\r')
            text += "\\r";
        else if (c == '\n')
            text += "\\n";
        else if (c == '\\')
            text += "\\\\";
        else if (byte >= 0x20 && byte < 0x7f)
            text += c;
        else
            text += {'\\', 'x', hex_digits[byte >> 4], hex_digits[byte & 15]};
    }
    return text;
}

char read_escape(std::string_view text, std::size_t &pos)
{
    if (pos + 1 >= text.size())
        throw std::invalid_argument("a backslash ends the text; write \\\\ for a backslash");
    const char c = text[pos + 1];
    if (c == 'x') {
        unsigned value = 0;
        const std::string_view digits = text.substr(pos + 2, 2);
        const char *const end = digits.data() + digits.size();
        if (digits.size() != 2 || std::from_chars(digits.data(), end, value, 16).ptr != end)
            throw std::invalid_argument("\\x wants two hexadecimal digits, as in \\x1A");
        pos += 4;
        return static_cast<char>(value);
    }
    pos += 2;
    if (c == 'r')
        return '\r';
    if (c == 'n')
        return '\n';
    if (is_alnum(c))
        throw std::invalid_argument("unknown escape \\" + std::string(1, c) +
                                    "; known are \\r \\n \\xNN and \\\\");
    return c;
}

std::string unescape(std::string_view text)
{
    std::string bytes;
    for (std::size_t pos = 0; pos < text.size();)
        bytes += text[pos] == '\\' ? read_escape(text, pos) : text[pos++];
    return bytes;
}

std::string_view trim(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string_view take_word(std::string_view &rest)
{
    rest = trim(rest);
    const std::string_view word = rest.substr(0, rest.find_first_of(blanks));
    rest = trim(rest.substr(word.size()));
    return word;
}

bool equal_ignoring_case(std::string_view left, std::string_view right)
{
    return std::ranges::equal(left, right, [](char a, char b) { return to_upper(a) == to_upper(b); });
}

std::string to_hex(std::string_view octets)
{
    std::string digits;
    for (const char c : octets)
        digits +=
            {hex_digits[static_cast<unsigned char>(c) >> 4], hex_digits[static_cast<unsigned char>(c) & 15]};
    return digits;
}

std::optional<std::string> from_hex(std::string_view digits)
{
    std::string octets;
    for (std::size_t pos = 0; pos < digits.size(); pos += 2) {
        const std::size_t high = hex_digits.find(to_upper(digits[pos]));
        const std::size_t low = pos + 1 < digits.size() ? hex_digits.find(to_upper(digits[pos + 1])) : high;
        if (pos + 1 == digits.size() || high == std::string_view::npos || low == std::string_view::npos)
            return std::nullopt;
        octets += static_cast<char>(high << 4 | low);
    }
    return octets;
}

bool all_digits(std::string_view text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

std::optional<unsigned> parse_number(std::string_view text, unsigned highest)
{
    unsigned value = 0;
    if (!all_digits(text) || std::from_chars(text.data(), text.data() + text.size(), value).ec != std::errc())
        return std::nullopt;
    if (value > highest)
        return std::nullopt;
    return value;
}

} // namespace modemsim
