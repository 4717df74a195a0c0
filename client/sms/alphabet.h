// The alphabets of short messages (3GPP TS 23.038) and UTF-8. Any thread; functions fail only as they say.
#ifndef VLK_SMS_ALPHABET_H
#define VLK_SMS_ALPHABET_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace sms
{
enum class alphabet : uint8_t {
    gsm7,   ///< septets of the default alphabet and its extension table
    octets, ///< 8-bit data without a meaning of its own
    ucs2    ///< UTF-16 units
};

/// "GSM 7-bit", "8-bit" or "UCS-2".
const char *name_of(alphabet coding);

/// UTF-16 of a UTF-8 text. False for bytes that are not UTF-8; `units` then ends before the first of them.
bool utf16_of(std::string_view utf8, std::u16string &units);

/// Septets of a UTF-16 text, those of the extension table behind an escape. False when a character has none.
bool septets_of(std::u16string_view text, std::u16string &septets);

/// UTF-8 of units as they are on the air; half a surrogate pair becomes U+FFFD. Octets are given back as bytes.
std::string text_of(alphabet coding, std::u16string_view units);

/// Units that may not be separated when they start with this one: 2 for an escape and for a surrogate pair, else 1.
size_t whole_units(alphabet coding, char16_t first);

/// Octets of septets, packed behind `fill` (0 to 6) bits of zero.
std::string pack_septets(std::u16string_view septets, unsigned fill);

/// `count` septets behind `fill` bits; fewer when the octets end before.
std::u16string unpack_septets(std::string_view octets, size_t count, unsigned fill);

/// UTF-16 units of octets, the high octet first. An odd last octet is left out.
std::u16string units_of_octets(std::string_view octets);

/// The octets that hexadecimal digits stand for, either case. False for anything else, an odd digit included.
bool octets_of_hex(std::string_view hex, std::string &octets);
std::string hex_of(std::string_view octets);
} // namespace sms

#endif
