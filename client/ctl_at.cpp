// vlkctl at: a command line, each of its commands asked in the way that suits it.
#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "at_question.h"
#include "ctl_commands.h"
#include "ctl_output.h"
#include "ctl_session.h"
#include "ctl_terminal.h"

using nlohmann::ordered_json;
using std::string;
using std::vector;

namespace
{
struct answer_printer {
    bool json;
    vector<string> lines;
    bool failed = false;
};

void take_line(void *context, const char *line)
{
    auto *printer = static_cast<answer_printer *>(context);
    printer->lines.emplace_back(line);
    if (!printer->json && !printer->failed)
        printer->failed = !print_line(line);
}

ordered_json json_of(const string &command, const vlk_answer &answer, const vector<string> &lines)
{
    string response;
    for (const string &line : lines)
        response += line + "\r\n";
    return {{"command", command},
            {"result", {{"code", answer.ret_val}, {"text", answer.final_result}}},
            {"response", response},
            {"lines", lines},
            {"cut", answer.cut != 0}};
}

/// Refuses a line with a command that cannot be sent, before anything is sent. A vlk_result.
int check_commands(const string &line, int32_t timeout)
{
    at_cmd_msg record;
    for (const string &command : split_commands(line))
        if (const int failed = vlk_fill_query(&record, command.c_str(), timeout))
            return failed;
    return VLK_OK;
}

/// Seconds that are surely enough for all commands of the line; a long list may take a request for each entry.
double usual_wait(const string &line, int32_t timeout)
{
    constexpr double PIECES = 20;
    double seconds = OTHERS_SECONDS;
    for (const string &command : split_commands(line)) {
        const at_question question = question_of(command);
        const bool may_be_divided = question.name == "+CPBR" || question.name == "+CMGL";
        seconds += seconds_for(question, timeout) * (may_be_divided ? PIECES : 1);
    }
    return seconds;
}

int ask(const common_options &common, const request_options &limits, const string &command)
{
    if (const int failed = check_commands(command, limits.timeout))
        return report_failure(failed, common.json);
    ctl_session session;
    if (const int failed = session.open(common, limits))
        return report_failure(failed, common.json);
    answer_printer printer{common.json, {}};
    vlk_answer answer;
    const double wait = limits.wait.value_or(usual_wait(command, limits.timeout));
    const int result = vlk_ask(session.client(), command.c_str(), limits.timeout,
                               static_cast<int32_t>(wait * 1000), take_line, &printer, &answer);
    if (result != VLK_OK)
        return report_failure(result, common.json);

    const outcome end =
        outcome_of(answer.ret_val, answer.final_result, printer.lines.empty(), session.modem());
    bool printed = !printer.failed;
    if (common.json)
        printed = print_json(json_of(without_secrets(command), answer, printer.lines));
    else if (!end.text.empty() && answer.cut != VLK_ENDED_BY_TEXT)
        print_error(end.text);
    if (answer.cut != 0)
        print_error(cut_text(answer.cut));
    if (!printed)
        return EXIT_OTHER;
    return answer.cut == VLK_ENDED_BY_TEXT || (end.code == EXIT_DONE && answer.cut != 0) ? EXIT_CUT
                                                                                         : end.code;
}

int ask_as_told(const common_options &common, const request_options &limits, const at_options &options)
{
    const vlk_mode mode = options.raw ? VLK_RAW : options.multi_line ? VLK_MULTI_LINE : VLK_PLAIN;
    at_cmd_msg record;
    if (const int failed = vlk_fill_command(&record, options.command.c_str(), options.expected.c_str(), mode,
                                            limits.timeout))
        return report_failure(failed, common.json);
    ctl_session session;
    if (const int failed = session.open(common, limits))
        return report_failure(failed, common.json);
    const double usual =
        options.raw ? usual_wait(options.command, limits.timeout) : OTHERS_SECONDS + limits.timeout;
    const int result = vlk_exchange(session.client(), &record, &record,
                                    static_cast<int32_t>(limits.wait.value_or(usual) * 1000));
    if (result != VLK_OK)
        return report_failure(result, common.json);
    return report_reply(record, session.modem(), without_secrets(options.command), common.json);
}
} // namespace

int run_at(const common_options &common, const request_options &limits, const at_options &options)
{
    at_options chosen = options;
    if (chosen.command == "-") {
        const std::optional<string> typed = read_secret("AT command: ");
        if (!typed)
            return interrupted() ? EXIT_INTERRUPTED
                                 : report_refusal(EXIT_USAGE, "no command on standard input", common.json);
        chosen.command = *typed;
    }
    if (chosen.raw || chosen.multi_line || !chosen.expected.empty())
        return ask_as_told(common, limits, chosen);
    return ask(common, limits, chosen.command);
}
