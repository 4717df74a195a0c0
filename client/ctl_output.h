// What vlkctl prints and how it ends.
#ifndef VLK_CTL_OUTPUT_H
#define VLK_CTL_OUTPUT_H

#include <cstdint>
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
    EXIT_NO_MODEM = 7
};

/// Text of the modem as a person may see it: CR LF becomes a line feed; on a terminal every other control character
/// and every byte that is not ASCII is shown as \xNN.
std::string printable(std::string_view text, bool terminal);

/// A byte string as hexadecimal digits.
std::string hex_text(const void *data, size_t length);

/// One line on standard output or error, written out at once. False: nobody can read standard output any more.
bool print_line(std::string_view line);
void print_error(std::string_view line);

/// One object, one line; bytes that are not UTF-8 are replaced.
bool print_json(const nlohmann::ordered_json &object);

/// Tells about a call of the library that failed (vlk_last_error) and returns how the command ends. In JSON, standard
/// output gets the object with the member "error" added as well.
int report_failure(int result, bool json, nlohmann::ordered_json object = {});

/// Prints a reply, the response on standard output and a final result that is not just OK behind a response on
/// standard error, and returns how the command ends. what: how the JSON object names the request.
int report_reply(const at_cmd_msg &reply, uint32_t modem, std::string_view what, bool json);

#endif
