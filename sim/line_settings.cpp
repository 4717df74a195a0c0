#include "line_settings.h"

#include "text.h"

#include <algorithm>
#include <iterator>

namespace modemsim
{

namespace
{

struct numeric_result {
    std::string_view text;
    char digit;
};
constexpr numeric_result numeric_results[] = {
    {"OK", '0'},    {"CONNECT", '1'},     {"RING", '2'}, {"NO CARRIER", '3'},
    {"ERROR", '4'}, {"NO DIALTONE", '6'}, {"BUSY", '7'}, {"NO ANSWER", '8'},
};

std::string_view value_of(const variables &values, std::string_view name, std::string_view otherwise)
{
    const auto found = values.find(name);
    return found == values.end() ? otherwise : std::string_view(found->second);
}

char character_of(const variables &values, std::string_view name, char otherwise)
{
    const auto number = parse_number(value_of(values, name, {}), 127);
    return number ? static_cast<char>(*number) : otherwise;
}

/// The digit of a result; nothing for one that has none.
std::string digit_of(std::string_view text)
{
    const std::string_view known = text.starts_with("CONNECT ") ? "CONNECT" : text;
    const auto *const row = std::ranges::find(numeric_results, known, &numeric_result::text);
    return row == std::end(numeric_results) ? std::string() : std::string(1, row->digit);
}

} // namespace

line_settings::line_settings(const variables &values)
    : echo_(value_of(values, "echo", "0") == "1"), verbose_(value_of(values, "verbose", "1") != "0"),
      quiet_(value_of(values, "quiet", "0") == "1"), carriage_return_(character_of(values, "s3", '\r')),
      line_feed_(character_of(values, "s4", '\n'))
{
}

std::string line_settings::line(std::string_view text, bool first) const
{
    return (first && verbose_ ? line_end() : std::string()) + std::string(text) + line_end();
}

std::string line_settings::result(std::string_view text) const
{
    return quiet_ || text.empty() ? std::string() : report(text);
}

std::string line_settings::report(std::string_view text) const
{
    if (verbose_)
        return line_end() + std::string(text) + line_end();
    const std::string digit = digit_of(text);
    return digit.empty() ? std::string(text) + line_end() : digit + carriage_return_;
}

} // namespace modemsim
