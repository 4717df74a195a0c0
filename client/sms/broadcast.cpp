#include "broadcast.h"

#include <algorithm>

namespace sms
{
namespace
{
constexpr size_t USSD_MAX = 512;
constexpr size_t PAGE_OCTETS = 82;
constexpr size_t LANGUAGE_SEPTETS = 3; // two letters and a CR before the text
constexpr size_t LANGUAGE_OCTETS = 2;

struct scheme_meaning {
    alphabet coding;
    bool language_first; // the text begins with the language
};

scheme_meaning meaning_of(unsigned scheme)
{
    if (scheme == 0x10 || scheme == 0x11)
        return {scheme == 0x10 ? alphabet::gsm7 : alphabet::ucs2, true};
    const unsigned group = scheme >> 4;
    const unsigned bits = scheme >> 2 & 3;
    if ((group >= 4 && group <= 7) || group == 9) {
        if ((scheme & 0x20) != 0 && group != 9)
            return {alphabet::octets, false}; // compressed
        return {bits == 1 ? alphabet::octets : bits == 2 ? alphabet::ucs2 : alphabet::gsm7, false};
    }
    if (group == 15 && (bits & 1) != 0)
        return {alphabet::octets, false};
    return {alphabet::gsm7, false};
}

/// Septets that fill their octets; a CR in the last place of full octets is padding.
std::u16string all_septets(std::string_view octets)
{
    std::u16string septets = unpack_septets(octets, octets.size() * 8 / 7, 0);
    if (!septets.empty() && septets.size() % 8 == 0 && septets.back() == u'\r')
        septets.pop_back();
    return septets;
}

std::string read_octets(std::string_view octets, scheme_meaning meaning)
{
    if (meaning.coding == alphabet::octets)
        return hex_of(octets);
    if (meaning.coding == alphabet::ucs2) {
        octets.remove_prefix(meaning.language_first ? std::min(octets.size(), LANGUAGE_OCTETS) : 0);
        return text_of(alphabet::ucs2, units_of_octets(octets));
    }
    std::u16string septets = all_septets(octets);
    septets.erase(0, meaning.language_first ? LANGUAGE_SEPTETS : 0);
    return text_of(alphabet::gsm7, septets);
}

/// Whether every unit is one of the first 256 characters: a modem that was told to write UCS-2 does so whatever
/// the scheme says.
bool looks_like_ucs2(std::string_view octets)
{
    if (octets.size() % 2 != 0)
        return false;
    const std::u16string units = units_of_octets(octets);
    return std::ranges::all_of(
        units, [](char16_t unit) { return unit == u'\n' || unit == u'\r' || (unit >= ' ' && unit < 0x100); });
}

/// Whether nothing but letters, digits and the like comes out: digits that are the text itself hardly decode to that.
bool looks_like_septets(std::string_view octets)
{
    const std::u16string septets = all_septets(octets);
    return std::ranges::all_of(septets, [](char16_t septet) {
        return septet == u'\n' || septet == u'\r' || septet == 0x1B || septet >= ' ';
    });
}

std::string replaced(std::string_view text)
{
    std::string result;
    while (!text.empty()) {
        std::u16string units;
        if (utf16_of(text, units))
            return result.append(text);
        const std::string good = text_of(alphabet::ucs2, units);
        result += good + "\uFFFD";
        text.remove_prefix(good.size() + 1);
    }
    return result;
}
} // namespace

std::string ussd_text(std::string_view value, int scheme)
{
    value = value.substr(0, USSD_MAX);
    std::string octets;
    if (value.empty() || !octets_of_hex(value, octets))
        return replaced(value);
    const scheme_meaning meaning = meaning_of(scheme < 0 ? 15U : static_cast<unsigned>(scheme) & 0xFF);
    if (meaning.coding == alphabet::ucs2 && octets.size() % 2 == 0)
        return read_octets(octets, meaning);
    if (meaning.coding == alphabet::gsm7 && looks_like_ucs2(octets))
        return text_of(alphabet::ucs2, units_of_octets(octets));
    if (meaning.coding == alphabet::gsm7 && looks_like_septets(octets))
        return read_octets(octets, meaning);
    return std::string(value);
}

refusal decode_broadcast(std::string_view hex, broadcast &to)
{
    constexpr size_t HEADER_OCTETS = 6;
    to = broadcast{};
    std::string octets;
    if (!octets_of_hex(hex, octets))
        return "the PDU must be pairs of hexadecimal digits";
    if (octets.size() < HEADER_OCTETS || octets.size() > HEADER_OCTETS + PAGE_OCTETS)
        return "a page of a cell broadcast has 6 to 88 octets";
    const std::u16string numbers = units_of_octets(octets.substr(0, 4));
    to.serial = numbers[0];
    to.channel = numbers[1];
    const auto page = static_cast<uint8_t>(octets[5]);
    const bool makes_sense = (page & 15) != 0 && page >> 4 != 0 && page >> 4 <= (page & 15);
    to.page = makes_sense ? page >> 4 : 1;
    to.pages = makes_sense ? page & 15 : 1;
    to.text = read_octets(std::string_view(octets).substr(HEADER_OCTETS),
                          meaning_of(static_cast<uint8_t>(octets[4])));
    to.text.erase(to.text.find_last_not_of('\r') + 1); // padding
    return nullptr;
}
} // namespace sms
