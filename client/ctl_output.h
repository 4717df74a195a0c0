// What vlkctl prints and how it ends.
#ifndef VLK_CTL_OUTPUT_H
#define VLK_CTL_OUTPUT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "vlk_client.h"

enum ctl_exit : int {
    EXIT_DONE = 0,
    EXIT_MODEM_ERROR = 1,
    EXIT_USAGE = 2,
    EXIT_NO_ANSWER = 3,
    EXIT_NOT_RUNNING = 4,
    EXIT_DENIED = 5,
    EXIT_OTHER = 6,
    EXIT_NO_MODEM = 7,
    EXIT_CUT = 8,
    EXIT_INTERRUPTED = 130
};

/// Text of the modem as a person may see it: CR LF becomes a line feed; on a terminal every other control character
/// and every byte that the terminal could take for one is shown as \xNN. What is not ASCII is shown as it is when it
/// is UTF-8 and so is the user's locale.
std::string printable(std::string_view text, bool terminal);

/// Whether the user's locale is UTF-8.
bool speaks_utf8();

/// Whether a person sees standard output.
bool on_terminal();

/// A byte string as hexadecimal digits.
std::string hex_text(const void *data, size_t length);

/// One line on standard output or error, written out at once. False: nobody can read standard output any more.
bool print_line(std::string_view line);
void print_error(std::string_view line);

/// One object, one line; bytes that are not UTF-8 are replaced.
bool print_json(const nlohmann::ordered_json &object);

/// A value as JSON; null when there is none, for a text when it is empty.
nlohmann::ordered_json text_or_null(const std::string &text);
nlohmann::ordered_json number_or_null(std::optional<int> number);

/// Reports a call of the library that failed (vlk_last_error) and returns the exit code. In JSON, standard output also
/// gets the object, with the member "error" added.
int report_failure(int result, bool json, nlohmann::ordered_json object = {});

/// Takes the place of report_failure where no library call failed.
int report_refusal(ctl_exit code, const std::string &text, bool json);

/// How a command ended and what a person should be told about it, which may be nothing. final_line: the final result
/// with its cause; empty: whether there was no response text.
struct outcome {
    ctl_exit code;
    std::string text;
};
outcome outcome_of(int32_t ret_val, const std::string &final_line, bool empty, uint32_t modem);

/// What a person should be told about an answer that is not whole (vlk_cut).
const char *cut_text(int cut);

/// Prints a reply: the response on standard output, and on standard error the final result, unless it is just OK behind
/// a response. Returns the exit code. what: how the JSON object names the request.
int report_reply(const at_cmd_msg &reply, uint32_t modem, std::string_view what, bool json);

#endif
