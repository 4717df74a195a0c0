// What a command's text alone says about the command. Pure; any thread.
#ifndef VLK_AT_REQUEST_H
#define VLK_AT_REQUEST_H

#include <string_view>

/// Why a request's text must not be written to the modem; nullptr when it may. is_sms: the daemon runs it as a
/// two-phase exchange, and the text is the command line, CR, the message and Ctrl-Z (NULs behind it are ignored);
/// otherwise it is one command line, and CR and LF at its end are ignored. The reason is one sentence, a constant.
const char *at_request_fault(std::string_view text, bool is_sms);

/// The same for a command line without its CR.
const char *at_line_fault(std::string_view line);

/// The same for the message of an exchange with this command line: message and Ctrl-Z.
const char *at_message_fault(std::string_view line, std::string_view message);

/// True for the first half of a two-phase exchange.
bool at_asks_for_prompt(std::string_view line);

/// True for a command line and its message in one text. The daemon does not know that this command (+CMGC) prompts,
/// so it sends both at once, and the link writes each at its time.
bool at_holds_message(std::string_view text);

/// True when the command may change how the modem answers: it sets or resets echo, verbose, result codes or +CMEE.
bool at_changes_settings(std::string_view line);

/// The command's name without any parameter ("AT+COPS", "ATD"), part of line: what may be shown to anybody.
std::string_view at_command_name(std::string_view line);

/// True when needle occurs in text, upper and lower case alike.
bool at_mentions(std::string_view text, std::string_view needle);

#endif
