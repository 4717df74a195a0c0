// Small text helpers of the simulator: escapes, words, numbers.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace modemsim
{

/// Printable form of any bytes: \r, \n, \\ and \xNN stand for what cannot be shown. unescape() reads it back.
std::string escape(std::string_view bytes);

/// Bytes that the escaped text stands for. Throws std::invalid_argument with the cause for a bad escape.
std::string unescape(std::string_view text);

/// The character that the escape at text[pos] (a backslash) stands for; moves pos behind the escape.
/// A backslash before punctuation means that character. Throws std::invalid_argument for a bad escape.
char read_escape(std::string_view text, std::size_t &pos);

std::string_view trim(std::string_view text);

/// Cuts the first word off `rest` and the blanks behind it. Empty when there is none.
std::string_view take_word(std::string_view &rest);

bool equal_ignoring_case(std::string_view left, std::string_view right);

/// Octets as upper case hexadecimal digits, and back; nothing for what is no such text.
std::string to_hex(std::string_view octets);
std::optional<std::string> from_hex(std::string_view digits);

bool all_digits(std::string_view text);

/// A decimal number from 0 to `highest`, nothing else around it.
std::optional<unsigned> parse_number(std::string_view text, unsigned highest);

} // namespace modemsim
