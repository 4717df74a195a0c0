// vlkctl sim: the card's state, its numbers, and the PIN.
#include <algorithm>
#include <cctype>
#include <string>

#include "ctl_commands.h"
#include "ctl_output.h"
#include "ctl_session.h"
#include "ctl_terminal.h"
#include "modem_answers.h"

using nlohmann::ordered_json;
using std::optional;
using std::string;

namespace
{
constexpr size_t SHORTEST_PIN = 4;
constexpr size_t LONGEST_PIN = 8;
constexpr int32_t UNLOCK_SECONDS = 30;

/// The standard's question first, then the vendor's. None: the modem does not say.
optional<int> tries_left(ctl_session &session)
{
    for (const char *command : {"AT+CPINR=\"SIM PIN\"", "AT^CPIN?"}) {
        const string line = session.line_of(command);
        if (const optional<int> tries = line.empty() ? std::nullopt : tries_of(line))
            return tries;
    }
    return {};
}

string iccid_of(ctl_session &session)
{
    for (const char *command : {"AT+CCID", "AT^ICCID?", "AT+ICCID"})
        if (string digits = digits_of(session.line_of(command)); !digits.empty())
            return digits;
    return "";
}

string tries_text(optional<int> tries)
{
    if (!tries)
        return "not told";
    return std::to_string(*tries);
}

bool is_pin(const string &text)
{
    return text.size() >= SHORTEST_PIN && text.size() <= LONGEST_PIN &&
           std::ranges::all_of(text, [](unsigned char c) { return std::isdigit(c) != 0; });
}

/// Why the PIN must not be tried now; empty: it may be.
string obstacle(const string &state, optional<int> tries, bool last_try)
{
    if (state != "+CPIN: SIM PIN")
        return "no PIN is wanted: " + sim_state_text(state);
    if (tries && *tries == 0)
        return "no try is left, the PUK is wanted: use a telephone or vlkctl at - for it";
    if (tries && *tries == 1 && !last_try)
        return "only one try is left, a wrong PIN blocks the SIM: use --last-try if you are sure";
    return "";
}

/// Tries once. The exit code.
int try_pin(ctl_session &session, const common_options &common, const string &pin)
{
    const modem_answer answer = session.ask("AT+CPIN=\"" + pin + "\"", UNLOCK_SECONDS);
    if (answer.result != VLK_OK)
        return report_failure(answer.result, common.json);
    if (answer.succeeded()) {
        const bool printed = common.json ? print_json({{"unlocked", true}}) : print_line("unlocked");
        return printed ? EXIT_DONE : EXIT_OTHER;
    }
    const optional<int> left = tries_left(session);
    const string cause =
        "the modem refused the PIN (" + answer.final_result + "), tries left: " + tries_text(left);
    print_error(cause);
    if (common.json)
        print_json({{"unlocked", false}, {"tries_left", number_or_null(left)}, {"error", cause}});
    return EXIT_MODEM_ERROR;
}
} // namespace

int run_sim(const common_options &common)
{
    ctl_session session;
    if (const int failed = session.open(common))
        return report_failure(failed, common.json);
    const modem_answer answer = session.ask("AT+CPIN?");
    const bool locked = answer.line() == "+CPIN: SIM PIN";
    const optional<int> tries = locked ? tries_left(session) : std::nullopt;
    const string iccid = iccid_of(session);
    const string imsi = digits_of(session.line_of("AT+CIMI"));
    if (session.failed() != VLK_OK)
        return report_failure(session.failed(), common.json);
    const string state = sim_state_text(answer.line());
    const int end = answer.succeeded() ? EXIT_DONE : EXIT_MODEM_ERROR;
    if (common.json) {
        const ordered_json object = {{"ready", answer.line() == "+CPIN: READY"},
                                     {"state", state},
                                     {"tries_left", number_or_null(tries)},
                                     {"iccid", text_or_null(iccid)},
                                     {"imsi", text_or_null(imsi)}};
        return print_json(object) ? end : EXIT_OTHER;
    }
    string text = "state:       " + state;
    if (locked)
        text += "\ntries left:  " + tries_text(tries);
    text += "\nICCID:       " + (iccid.empty() ? "not told" : iccid) +
            "\nIMSI:        " + (imsi.empty() ? "not told" : imsi);
    return print_line(text) ? end : EXIT_OTHER;
}

int run_sim_unlock(const common_options &common, bool last_try)
{
    ctl_session session;
    if (const int failed = session.open(common))
        return report_failure(failed, common.json);
    const modem_answer answer = session.ask("AT+CPIN?");
    if (answer.result != VLK_OK)
        return report_failure(answer.result, common.json);
    if (answer.line() == "+CPIN: READY") {
        const bool printed =
            common.json ? print_json({{"unlocked", true}}) : print_line("the SIM is not locked");
        return printed ? EXIT_DONE : EXIT_OTHER;
    }
    const optional<int> tries = tries_left(session);
    if (const string why = obstacle(answer.line(), tries, last_try); !why.empty())
        return report_refusal(EXIT_OTHER, why, common.json);
    const string prompt = "PIN (tries left: " + tries_text(tries) + "): ";
    const optional<string> pin = read_secret(prompt.c_str());
    if (!pin)
        return interrupted() ? EXIT_INTERRUPTED
                             : report_refusal(EXIT_USAGE, "no PIN on standard input", common.json);
    if (!is_pin(*pin))
        return report_refusal(EXIT_USAGE, "a PIN is 4 to 8 digits; nothing was sent", common.json);
    return try_pin(session, common, *pin);
}
