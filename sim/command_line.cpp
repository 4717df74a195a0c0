#include "command_line.h"

#include "text.h"

#include <algorithm>
#include <cstddef>

namespace modemsim
{

namespace
{

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

bool is_letter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

/// Where the first ';' outside of quotes stands, or the end.
std::size_t separator_of(std::string_view text)
{
    bool quoted = false;
    for (std::size_t pos = 0; pos < text.size(); ++pos) {
        if (text[pos] == '"')
            quoted = !quoted;
        else if (text[pos] == ';' && !quoted)
            return pos;
    }
    return text.size();
}

std::size_t digits_from(std::string_view text, std::size_t pos)
{
    while (pos < text.size() && is_digit(text[pos]))
        ++pos;
    return pos;
}

std::size_t basic_length(std::string_view text)
{
    const std::size_t name = text.starts_with('&') ? 2 : 1;
    std::size_t end = digits_from(text, std::min(name, text.size()));
    if (end < text.size() && text[end] == '?')
        return end + 1;
    return end < text.size() && text[end] == '=' ? digits_from(text, end + 1) : end;
}

std::size_t command_length(std::string_view text)
{
    const char first = text.front();
    if (first == 'D' || first == 'd')
        return std::min(separator_of(text) + 1, text.size());
    if (is_letter(first) || first == '&')
        return basic_length(text);
    return separator_of(text);
}

} // namespace

bool holds_separator(std::string_view line)
{
    return separator_of(line) < line.size();
}

std::vector<std::string> split_command_line(std::string_view line)
{
    if (!equal_ignoring_case(line.substr(0, 2), "AT"))
        return {std::string(line)};
    std::vector<std::string> commands;
    line = trim(line.substr(2));
    while (!line.empty()) {
        const std::size_t length = command_length(line);
        if (length > 0)
            commands.push_back("AT" + std::string(trim(line.substr(0, length))));
        line = line.substr(length);
        line = trim(line.substr(line.starts_with(';') ? 1 : 0));
    }
    return commands.empty() ? std::vector<std::string>{"AT"} : commands;
}

} // namespace modemsim
