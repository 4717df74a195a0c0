// The name of an AT command: what may be shown of one. What follows it may be a PIN, a number or a message.
#ifndef VLK_COMMAND_NAME_H
#define VLK_COMMAND_NAME_H

#include <string_view>

/// "AT+CPIN" of AT+CPIN="4711", "ATD" of ATD12345; at most 31 bytes of letters, digits behind an extended command's
/// sign, and signs. Upper and lower case stay as they are.
constexpr std::string_view at_command_name(std::string_view command)
{
    constexpr std::string_view SIGNS = "+^*$%&#@!\\";
    const auto is_letter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); };
    const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
    std::size_t end = 0;
    while (end < command.size() && end < 2 && is_letter(command[end]))
        ++end;
    const bool is_extended = end < command.size() && SIGNS.find(command[end]) != SIGNS.npos;
    if (is_extended)
        ++end;
    while (end < command.size() && end < 31 &&
           (is_letter(command[end]) || (is_extended && is_digit(command[end]))))
        ++end;
    return command.substr(0, end);
}

#endif
