// A dialogue: what the simulated modem answers and reports, read from a text file (format: sim/README.md).
#pragma once

#include "message_store.h"
#include "pattern.h"

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace modemsim
{

using milliseconds = std::chrono::milliseconds;
enum class step_kind {
    line,
    final_result,
    report,
    raw,
    delay,
    prompt_pdu,
    prompt_text,
    set,
    count,
    encode,
    condition,
    skip,
    messages,
    data,
    hang_up
};

enum class comparison {
    equal,
    unequal,
    less,
    greater,
    at_most,
    at_least
};

/// One thing that the modem does while it answers a command or sends scheduled reports.
struct step {
    step_kind kind;
    std::string
        name; ///< set, count, encode, condition: the variable; messages: the action; data: what the far end does
    text_template
        text; ///< line, final, report, raw, set: text; delay: duration; prompt_pdu: length in octets;
              ///< count: what is added; condition: what is compared with; messages: arguments
    text_template later;                    ///< how long after its turn the step is taken; empty: at once
    comparison compare = comparison::equal; ///< condition
    std::size_t skipped =
        0; ///< skip, and a condition that does not hold: how many of the next steps are left out
};

/// True when this comparison of the variable's value with the text holds: as numbers, unless one of them is no number.
bool holds(std::string_view value, comparison compare, std::string_view text);

struct command {
    command_pattern pattern;
    command_pattern stop_by; ///< a line that ends the answer early; empty: none
    bool abortable = false;  ///< any byte of the client ends the answer early
    std::vector<step> steps;
};

/// Reports that come by themselves. Times count from the moment when a client first opens the modem.
struct schedule {
    milliseconds first;
    milliseconds period; ///< 0: once
    std::vector<step> steps;
};

struct dialogue {
    std::vector<command> commands;
    std::vector<schedule> schedules;
    std::vector<stored_message> messages; ///< in the first memory at the start
    variables start_values;
};

/// A mistake in a dialogue. what() is "FILE:LINE: cause; cure".
struct dialogue_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The dialogue that is built into the program (sim/default.dialogue).
extern const std::string_view default_dialogue;

/// Reads a dialogue from text; `name` stands for the file in messages, and includes are relative to its folder.
/// Throws dialogue_error.
dialogue parse_dialogue(std::string_view text, const std::string &name);

/// Reads a dialogue file. Throws dialogue_error.
dialogue load_dialogue(const std::string &path);

/// The command for a line: the last one written that matches, so that later ones replace earlier ones.
/// nullptr for none.
const command *find_command(const dialogue &script, std::string_view line, variables &captured);

/// "250", "250ms" or "3s", up to one day.
std::optional<milliseconds> parse_duration(std::string_view text);

} // namespace modemsim
