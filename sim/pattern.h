// Command patterns and texts with {name} places.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace modemsim
{

using variables = std::map<std::string, std::string, std::less<>>;

/// A text with {name} places, escapes already resolved.
struct text_template {
    struct part {
        std::string text; ///< literal bytes, or the variable's name
        bool is_variable;
    };
    std::vector<part> parts;

    /// A variable without a value expands to nothing.
    std::string expand(const variables &values) const;
};

/// Reads a text with escapes and {name} places; {i} becomes `repetition` unless that is empty.
/// Throws std::invalid_argument with the cause.
text_template parse_template(std::string_view text, const std::string &repetition);

/// A command line pattern: literal text without regard to case, '*' for any text, {name} to remember any text,
/// {name:#} decimal digits, {name:a|b} one of the choices.
class command_pattern
{
public:
    command_pattern() = default;

    /// Throws std::invalid_argument with the cause.
    explicit command_pattern(std::string_view text);

    /// True when the whole line matches; the remembered texts are then stored in `captured`.
    bool match(std::string_view line, variables &captured) const;

    bool captures(std::string_view name) const;

    /// True when its literal text holds this character.
    bool spells(char c) const;
    bool empty() const { return parts_.empty(); }

    struct part {
        enum {
            literal,
            any_text,
            digits,
            choice
        } kind;
        std::string text; ///< of a literal
        std::string name; ///< of a remembered text, empty for '*'
        std::vector<std::string> choices;
    };

private:
    std::vector<part> parts_;
};

/// The name itself when it is made of letters, digits and _. Throws std::invalid_argument otherwise.
std::string checked_name(std::string_view name);

} // namespace modemsim
