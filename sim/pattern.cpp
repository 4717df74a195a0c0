#include "pattern.h"

#include "text.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace modemsim
{

namespace
{

bool is_name(std::string_view text)
{
    constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_0123456789";
    return !text.empty() && text.find_first_not_of(letters) == std::string_view::npos;
}

/// What stands between the braces at text[pos]; moves pos behind the closing one.
std::string_view read_braces(std::string_view text, std::size_t &pos)
{
    const std::size_t end = text.find('}', pos);
    if (end == std::string_view::npos)
        throw std::invalid_argument("'{' without '}'; write \\{ for a plain brace");
    const std::string_view inside = text.substr(pos + 1, end - pos - 1);
    pos = end + 1;
    return inside;
}

command_pattern::part parse_capture(std::string_view inside)
{
    const std::size_t colon = inside.find(':');
    command_pattern::part result{
        command_pattern::part::any_text, "", checked_name(inside.substr(0, colon)), {}};
    if (colon == std::string_view::npos)
        return result;
    std::string_view rest = inside.substr(colon + 1);
    if (rest == "#") {
        result.kind = command_pattern::part::digits;
        return result;
    }
    result.kind = command_pattern::part::choice;
    for (;;) {
        const std::size_t bar = rest.find('|');
        result.choices.emplace_back(rest.substr(0, bar));
        if (bar == std::string_view::npos)
            return result;
        rest.remove_prefix(bar + 1);
    }
}

/// Finds out whether a line fits the parts of a pattern, remembering dead ends, so that a hostile line costs
/// no more than its length squared for each part.
struct matcher {
    const std::vector<command_pattern::part> &parts;
    std::string_view line;
    std::vector<bool> dead_end = std::vector<bool>(parts.size() * (line.size() + 1));
    std::vector<std::string_view> values = std::vector<std::string_view>(parts.size());

    static bool fits(const command_pattern::part &part, std::string_view text)
    {
        switch (part.kind) {
        case command_pattern::part::literal:
            return equal_ignoring_case(part.text, text);
        case command_pattern::part::digits:
            return all_digits(text);
        case command_pattern::part::choice:
            return std::ranges::any_of(part.choices,
                                       [&](const auto &choice) { return equal_ignoring_case(choice, text); });
        case command_pattern::part::any_text:
            break;
        }
        return true;
    }

    bool from(std::size_t index, std::size_t pos)
    {
        if (index == parts.size())
            return pos == line.size();
        const std::size_t key = index * (line.size() + 1) + pos;
        if (dead_end[key])
            return false;
        for (std::size_t length = 0; pos + length <= line.size(); ++length) {
            const std::string_view value = line.substr(pos, length);
            if (fits(parts[index], value) && from(index + 1, pos + length)) {
                values[index] = value;
                return true;
            }
        }
        dead_end[key] = true;
        return false;
    }
};

} // namespace

std::string checked_name(std::string_view name)
{
    if (!is_name(name))
        throw std::invalid_argument("'" + std::string(name) +
                                    "' is no variable name; names are letters, digits and _");
    return std::string(name);
}

text_template parse_template(std::string_view text, const std::string &repetition)
{
    text_template result;
    std::string literal;
    const auto end_literal = [&] {
        if (!literal.empty())
            result.parts.push_back({std::exchange(literal, {}), false});
    };
    for (std::size_t pos = 0; pos < text.size();) {
        if (text[pos] == '\\') {
            literal += read_escape(text, pos);
        } else if (text[pos] == '{') {
            const std::string name = checked_name(read_braces(text, pos));
            if (name == "i" && !repetition.empty()) {
                literal += repetition;
                continue;
            }
            end_literal();
            result.parts.push_back({name, true});
        } else {
            literal += text[pos++];
        }
    }
    end_literal();
    return result;
}

std::string text_template::expand(const variables &values) const
{
    std::string result;
    for (const part &piece : parts) {
        if (!piece.is_variable)
            result += piece.text;
        else if (const auto found = values.find(piece.text); found != values.end())
            result += found->second;
    }
    return result;
}

command_pattern::command_pattern(std::string_view text)
{
    std::string literal;
    const auto end_literal = [&] {
        if (!literal.empty())
            parts_.push_back({part::literal, std::exchange(literal, {}), {}, {}});
    };
    for (std::size_t pos = 0; pos < text.size();) {
        if (text[pos] == '\\') {
            literal += read_escape(text, pos);
        } else if (text[pos] == '*') {
            end_literal();
            parts_.push_back({part::any_text, {}, {}, {}});
            ++pos;
        } else if (text[pos] == '{') {
            end_literal();
            parts_.push_back(parse_capture(read_braces(text, pos)));
        } else {
            literal += text[pos++];
        }
    }
    end_literal();
}

bool command_pattern::match(std::string_view line, variables &captured) const
{
    matcher search{parts_, line};
    if (!search.from(0, 0))
        return false;
    for (std::size_t i = 0; i < parts_.size(); ++i)
        if (!parts_[i].name.empty())
            captured[parts_[i].name] = search.values[i];
    return true;
}

bool command_pattern::spells(char c) const
{
    return std::ranges::any_of(parts_, [&](const part &piece) {
        return piece.kind == part::literal && piece.text.find(c) != std::string::npos;
    });
}

bool command_pattern::captures(std::string_view name) const
{
    return std::ranges::any_of(parts_, [&](const part &piece) { return piece.name == name; });
}

} // namespace modemsim
