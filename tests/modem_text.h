// Modem text as tables of cases write it.
#ifndef MODEM_TEXT_H
#define MODEM_TEXT_H

#include <map>
#include <string>
#include <string_view>
#include <vector>

/// '~' is CR LF, '@' is NUL, '#' is Ctrl-Z.
inline std::string modem_text(std::string_view shorthand)
{
    static const std::map<char, std::string> meanings = {
        {'~', "\r\n"}, {'@', std::string(1, '\0')}, {'#', "\x1A"}};
    std::string text;
    for (const char c : shorthand)
        text += meanings.contains(c) ? meanings.at(c) : std::string(1, c);
    return text;
}

/// The same, '|' between chunks.
inline std::vector<std::string> modem_chunks(std::string_view shorthand)
{
    std::vector<std::string> chunks(1);
    for (const char c : modem_text(shorthand)) {
        if (c == '|')
            chunks.emplace_back();
        else
            chunks.back() += c;
    }
    return chunks;
}

#endif
