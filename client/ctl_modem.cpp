// vlkctl modem: what the modem says of itself.
#include <string>

#include "ctl_commands.h"
#include "ctl_output.h"
#include "ctl_session.h"
#include "modem_answers.h"

using nlohmann::ordered_json;
using std::string;

namespace
{
struct question {
    const char *name;
    const char *json_name;
    const char *command;
    const char *other; // for modems that do not know the first
};

constexpr question QUESTIONS[] = {
    {"maker:     ", "maker", "AT+CGMI", "AT+GMI"},
    {"model:     ", "model", "AT+CGMM", "AT+GMM"},
    {"firmware:  ", "firmware", "AT+CGMR", "AT+GMR"},
    {"IMEI:      ", "imei", "AT+CGSN", "AT+GSN"},
};

string value_of(ctl_session &session, const question &asked)
{
    for (const char *command : {asked.command, asked.other}) {
        const string line = session.line_of(command);
        const string prefix = string(command).substr(2) + ":"; // some modems put it in front
        const string value = line.starts_with(prefix) ? line.substr(prefix.size()) : line;
        const size_t begin = value.find_first_not_of(" \"");
        if (begin != string::npos)
            return value.substr(begin, value.find_last_not_of(" \"") + 1 - begin);
    }
    return "";
}
} // namespace

int run_modem(const common_options &common)
{
    ctl_session session;
    if (const int failed = session.open(common))
        return report_failure(failed, common.json);
    ordered_json object;
    string text;
    for (const question &asked : QUESTIONS) {
        const string value = value_of(session, asked);
        object[asked.json_name] = text_or_null(value);
        text += (text.empty() ? "" : "\n") + string(asked.name) + (value.empty() ? "not told" : value);
    }
    if (session.failed() != VLK_OK)
        return report_failure(session.failed(), common.json);
    return (common.json ? print_json(object) : print_line(text)) ? EXIT_DONE : EXIT_OTHER;
}
