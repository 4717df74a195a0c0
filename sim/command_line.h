// Command lines that hold several commands: "AT+CSQ;+CREG?", "ATE1V1&D2S0=0".
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace modemsim
{

/// True when a ';' stands outside of quotes.
bool holds_separator(std::string_view line);

/// The commands of a line, each with an "AT" of its own in front. Extended ones (their name begins with a sign) end at
/// a ';' outside of quotes; basic ones are a letter, or '&' and a letter, or S and a register, and then digits, '?' or
/// '=' and digits; a dial string takes its ';' along. A line without AT is one command.
std::vector<std::string> split_command_line(std::string_view line);

} // namespace modemsim
