// How to ask the daemon a command so that its answer comes back as a terminal would show it, and how to read that
// answer. Pure: no daemon is needed. Any thread.
//
// The hub hands out the whole answer (read_answer_text), or says that lines are missing. The reply's record holds what
// the daemon collected of it, enough for short answers: a raw answer without its final result did not fit into 1499
// bytes; whether expected lines are missing cannot be seen in the record.
//
// The daemon takes modem text apart line by line. A line that contains the expected prefix is the command's; a line
// that begins like a report and contains the name of a known one anywhere goes to the services; the rest is response
// text. Raw collection keeps response text line by line, up to 1499 bytes; multi-line collection keeps expected lines
// line by line, even those that look like reports, runs other lines together, and drops what it has collected when that
// gets too long.
#ifndef VLK_AT_QUESTION_H
#define VLK_AT_QUESTION_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "at_cmd_msg.h"

enum at_form {
    AT_BASIC,  // ATI, AT&F, ATD..., and extended names that begin with neither + nor ^
    AT_ACTION, // AT+CSQ
    AT_READ,   // AT+CREG?
    AT_TEST,   // AT+COPS=?
    AT_SET     // AT+CMEE=1
};

struct at_question {
    at_form form = AT_BASIC;
    std::string name;       // of an extended command with + or ^, upper case: "+CSQ"; else empty
    std::string parameters; // behind the =, or whatever else follows the name
    std::string expected;   // prefix of the lines to expect with multi-line collection; empty: ask raw
    bool is_a_list = false; // the answer may have many lines, and asking again changes nothing in the modem
};

/// Works out how to ask one command, which begins with AT in any case.
at_question question_of(std::string_view command);

/// Seconds that the modem is given for the question: a network list takes minutes, even if timeout is shorter.
int32_t seconds_for(const at_question &question, int32_t timeout);

/// The commands of one command line, each beginning with AT, divided at every ; outside quotation marks and behind
/// basic commands. What follows a dial command belongs to it. A line without AT is one command.
std::vector<std::string> split_commands(std::string_view line);

struct at_answer {
    std::vector<std::string>
        lines;                  // without their line ends, without empty ones and without the final result
    int32_t code = AT_NONE;     // the final result's
    std::string final_result;   // with its cause where the modem gave one: "+CME ERROR: 10", "CONNECT 115200"
    bool cut = false;           // lines are missing
    bool ended_by_text = false; // a line of a message that begins like a final result ended the answer
};

/// Reads the reply to a question that was asked as question_of says (expected empty: raw). Only a raw answer can be
/// marked as cut; for expected lines the record alone does not show it.
at_answer read_answer(const at_question &question, const at_cmd_msg &reply);

/// What the modem said while the command ran, piece by piece as the hub hands it out.
struct at_text {
    std::string text;
    bool is_answer;
};

/// Reads an answer from these pieces: only what the daemon said that it dropped is missing (cut). code: the reply's.
/// Nothing when its final result is not there: the modem has not answered.
std::optional<at_answer> read_answer_text(const at_question &question, const std::vector<at_text> &texts,
                                          int32_t code);

/// The command with *** in place of its parameters where they may hold a PIN, a password or a message.
std::string without_secrets(std::string_view line);

#endif
