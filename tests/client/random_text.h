// Random texts for tests of short messages.
#ifndef RANDOM_TEXT_H
#define RANDOM_TEXT_H

#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace random_text
{
inline std::string repeated(std::string_view text, size_t count)
{
    std::string all;
    for (size_t n = 0; n < count; n++)
        all += text;
    return all;
}

/// The characters of a UTF-8 text.
inline std::vector<std::string> characters(std::string_view text)
{
    std::vector<std::string> all;
    for (const char c : text) {
        if ((static_cast<unsigned char>(c) & 0xC0) != 0x80)
            all.emplace_back();
        all.back() += c;
    }
    return all;
}

inline const std::vector<std::string> &characters_of(unsigned kind)
{
    static const std::string latin = " abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    static const std::string gsm =
        latin + "@£$¥èéùìòÇ\nØø\rÅåΔ_ΦΓΛΩΠΨΣΘΞÆæßÉ!\"#¤%&'()*+,-./:;<=>?¡ÄÖÑÜ§¿äöñüà";
    static const std::string extended = "\f^{}\\[~]|€";
    static const std::string world = "яЖñ漢字한글ไทยअरबعربי\u0001\u0080\uFFFD\uFEFF";
    static const std::string pairs = "\U0001F600\U0001F1E9\U00010000\U0010FFFF";
    static const std::vector<std::string> kinds[] = {
        characters(latin),    characters(gsm),   characters(gsm + extended),
        characters(extended), characters(world), characters(latin + gsm + world + pairs),
        characters(pairs),
    };
    return kinds[kind % std::size(kinds)];
}

/// A text of one of seven kinds, at most so many parts long.
inline std::string of_any_alphabet(std::mt19937 &random, unsigned parts)
{
    constexpr unsigned SURE_TO_FIT[] = {150, 150, 75, 75, 65, 32, 32}; // characters of a kind in one part
    const auto kind = static_cast<unsigned>(random() % std::size(SURE_TO_FIT));
    const unsigned limit = SURE_TO_FIT[kind] * static_cast<unsigned>(1 + random() % parts);
    std::string text;
    for (auto length = static_cast<unsigned>(random() % (limit + 1)); length > 0; length--)
        text += characters_of(kind)[random() % characters_of(kind).size()];
    return text;
}

inline std::string number(std::mt19937 &random)
{
    std::string digits;
    for (size_t length = 1 + random() % 20; length > 0; length--)
        digits += "0123456789*#abc"[random() % 15];
    return digits;
}

/// A sender's name of at most 11 septets.
inline std::string name(std::mt19937 &random)
{
    std::string text;
    for (size_t length = 1 + random() % 11; length > 0; length--)
        text += characters_of(0)[random() % 63];
    return text;
}
} // namespace random_text

#endif
