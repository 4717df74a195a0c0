#include "at_request.h"

#include <algorithm>

#include <strings.h>

#include "at_words.h"

namespace
{
constexpr char CTRL_Z = 26;
constexpr std::string_view LINE_BREAKERS("\r\n\x1a\x1b\0", 5);
constexpr std::string_view EXTENDED_MARKS = "+^$%#*&";

constexpr std::string_view RESETTING[] = {
    "+CMEE=", "+CFUN=", "+IFC=", "+ICF=", "+IPR=", "^RESET", "#REBOOT", "$RESET"};

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

bool is_letter(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

bool is_hex_digit(char c)
{
    return is_digit(c) || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

char upper(char c)
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

/// The first parameter is a number: the message's length, so what follows is a PDU.
bool names_length(std::string_view line)
{
    const size_t start = line.find('=');
    if (start == line.npos || start + 1 == line.size())
        return false;
    line.remove_prefix(start + 1);
    line = line.substr(0, line.find(','));
    return std::ranges::all_of(line, is_digit);
}

/// One part of a chain, behind AT or a semicolon.
bool part_changes_settings(std::string_view part)
{
    if (part == "+CMEE=1")
        return false;
    if (std::ranges::any_of(RESETTING, [part](std::string_view head) {
            return part.size() >= head.size() && strncasecmp(part.data(), head.data(), head.size()) == 0;
        }))
        return true;
    while (!part.empty()) {
        const char name = upper(part.front());
        part.remove_prefix(1);
        if (name == ' ')
            continue;
        if (name == '&' && !part.empty() && upper(part.front()) == 'F')
            return true;
        if (name == 'Z' || name == 'S')
            return true;
        if (name == 'D' || (!is_letter(name) && name != '&'))
            return false; // a number to dial, an extended command
        if (name == '&' && !part.empty())
            part.remove_prefix(1);
        const bool is_one = !part.empty() && part.front() == '1';
        if ((name == 'E' && is_one) || (name == 'V' && !is_one) || (name == 'Q' && is_one))
            return true;
        while (!part.empty() && is_digit(part.front()))
            part.remove_prefix(1);
    }
    return false;
}
} // namespace

const char *at_line_fault(std::string_view line)
{
    return line.find_first_of(LINE_BREAKERS) == line.npos
               ? nullptr
               : "a command must be one line: no CR, LF, Ctrl-Z, ESC or NUL inside";
}

const char *at_message_fault(std::string_view line, std::string_view message)
{
    if (!message.ends_with(CTRL_Z))
        return "the message does not end with Ctrl-Z";
    message.remove_suffix(1);
    if (names_length(line))
        return std::ranges::all_of(message, is_hex_digit)
                   ? nullptr
                   : "a PDU must be hexadecimal digits and nothing else before its Ctrl-Z";
    return message.find_first_of(std::string_view("\x1a\x1b\0", 3)) == message.npos
               ? nullptr
               : "a message must not have ESC, NUL or Ctrl-Z before its end";
}

const char *at_request_fault(std::string_view text, bool is_sms)
{
    if (!is_sms) {
        while (text.ends_with('\r') || text.ends_with('\n'))
            text.remove_suffix(1);
        return at_line_fault(text);
    }
    const size_t end = text.find('\r');
    if (end == text.npos)
        return "the message is missing: the command line must be followed by CR, the message and Ctrl-Z";
    const std::string_view line = text.substr(0, end);
    if (const char *const fault = at_line_fault(line))
        return fault;
    std::string_view message = text.substr(end + 1);
    while (message.ends_with('\0'))
        message.remove_suffix(1);
    return at_message_fault(line, message);
}

bool at_asks_for_prompt(std::string_view line)
{
    return std::ranges::any_of(AT_PROMPTING_COMMANDS, [line](std::string_view head) {
        return line.size() > head.size() && strncasecmp(line.data(), head.data(), head.size()) == 0;
    });
}

bool at_holds_message(std::string_view text)
{
    constexpr std::string_view head = "AT+CMGC=";
    return text.find('\r') < text.find(CTRL_Z) && text.find(CTRL_Z) != text.npos &&
           strncasecmp(text.data(), head.data(), std::min(text.size(), head.size())) == 0;
}

bool at_changes_settings(std::string_view line)
{
    if (line.size() < 2)
        return false;
    line.remove_prefix(2);
    while (!line.empty()) {
        const size_t end = std::min(line.find(';'), line.size());
        if (part_changes_settings(line.substr(0, end)))
            return true;
        line.remove_prefix(std::min(end + 1, line.size()));
    }
    return false;
}

std::string_view at_command_name(std::string_view line)
{
    constexpr size_t name_max = 20;
    size_t end = std::min<size_t>(2, line.size());
    if (end == line.size())
        return line;
    const bool is_extended = EXTENDED_MARKS.find(line[end]) != EXTENDED_MARKS.npos;
    ++end;
    while (is_extended && end < std::min(line.size(), name_max) &&
           (is_letter(line[end]) || is_digit(line[end])))
        ++end;
    while (end > 3 && is_digit(line[end - 1]))
        --end; // a parameter without an equals sign
    return line.substr(0, end);
}

bool at_mentions(std::string_view text, std::string_view needle)
{
    return std::search(text.begin(), text.end(), needle.begin(), needle.end(),
                       [](char a, char b) { return upper(a) == upper(b); }) != text.end();
}
