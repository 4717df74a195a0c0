#include "at_question.h"

#include <algorithm>
#include <cctype>

#include <strings.h>

#include "vlk_client.h"
#include "vlk_report_prefixes.h"

using std::string;
using std::string_view;

namespace
{
constexpr string_view LINE_END = "\r\n";
constexpr size_t LONGEST_RAW = MAX_ATCMD_REPORT_SIZE - 1; // a raw answer of this length may have lost its end

/// Common reports that the daemon has no handler for: raw collection leaves them between the lines of an answer.
constexpr string_view OTHER_REPORTS[] = {
    "+CEREG", "+CIEV", "+CGEV", "+CTZE", "+CTZU",   "+CTZEU",    "+CSCON",    "+CMWI",
    "+CDEV",  "+CKEV", "+CTEV", "+CALV", "+CRTDCP", "+CNEC_EMM", "+CNEC_ESM", "+CUSATP",
};

/// Answered by text without a prefix, which may have several lines.
constexpr string_view PLAIN_TEXTS[] = {"+GMI",  "+GMM",  "+GMR",  "+GSN",  "+CGMI",
                                       "+CGMM", "+CGMR", "+CGSN", "+CIMI", "+CLAC"};
/// Answered by heads with bodies below them.
constexpr string_view MESSAGES[] = {"+CMGR", "+CMGL", "^HCMGR", "^HCMGL"};
/// Action commands whose lines hold names that may look like a report.
constexpr string_view ACTION_LISTS[] = {"+CNUM", "+COPN", "+CLCC", "+CEER"};
/// Set commands that read a list.
constexpr string_view SET_LISTS[] = {"+CPBR", "+CPBF"};
/// Reports whose set command asks; the others' switches the report on and off.
constexpr string_view ASKING_REPORTS[] = {"^NETSCAN", "+CCWA"};
/// The read command's line begins with the mode, the report's line with the state.
constexpr string_view REGISTRATIONS[] = {"+CREG", "+CGREG", "+CEREG", "+C5GREG"};

/// Names whose parameters nobody else may see.
constexpr string_view SECRETS[] = {"+CPIN",     "+CPIN2",  "+CLCK",     "+CPWD", "^CPIN", "^CPIN2", "^CPWD",
                                   "^CARDLOCK", "+CGAUTH", "^AUTHDATA", "+CMGS", "+CMGW", "^HCMGS", "^HCMGW"};

template <size_t size>
bool is_one_of(string_view name, const string_view (&names)[size])
{
    return std::ranges::find(names, name) != std::end(names);
}

bool is_report(string_view name)
{
    return is_one_of(name, VLK_REPORT_PREFIXES);
}

bool is_name_character(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-' || c == '.' || c == '/' ||
           c == '!' || c == '%';
}

char upper(char c)
{
    return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

string_view trim(string_view text)
{
    const size_t begin = std::min(text.find_first_not_of(' '), text.size());
    return text.substr(begin, text.find_last_not_of(' ') + 1 - begin);
}

bool begins_with_at(string_view text)
{
    return text.size() >= 2 && strncasecmp(text.data(), "AT", 2) == 0;
}

/// Bytes of the name at the beginning of the text, its + or ^ included; 0 when there is none.
size_t name_length(string_view text)
{
    if (text.empty() || (text[0] != '+' && text[0] != '^'))
        return 0;
    const auto *const end = std::find_if_not(text.begin() + 1, text.end(), is_name_character);
    return static_cast<size_t>(end - text.begin());
}

/// The name of a line "+NAME: ...", empty for any other.
string_view name_of_line(string_view line)
{
    const size_t length = name_length(line);
    return length > 1 && length < line.size() && line[length] == ':' ? line.substr(0, length) : string_view{};
}

bool expects_lines(const at_question &question)
{
    if (question.form == AT_BASIC || is_one_of(question.name, PLAIN_TEXTS))
        return false;
    if (question.form == AT_READ || question.form == AT_TEST)
        return true;
    if (is_one_of(question.name, MESSAGES)) // bodies of text mode have several lines, PDUs have one
        return question.name == "+CMGL" && !question.parameters.empty() &&
               std::isdigit(static_cast<unsigned char>(question.parameters[0])) != 0;
    if (question.form == AT_ACTION)
        return is_report(question.name) || is_one_of(question.name, ACTION_LISTS);
    return !is_report(question.name) || is_one_of(question.name, ASKING_REPORTS);
}

bool is_a_list(const at_question &question)
{
    if (question.expected.empty())
        return false;
    switch (question.form) {
    case AT_READ:
        return true;
    case AT_TEST:
        return question.name != "+COPS"; // minutes, and only one line
    case AT_ACTION:
        return is_one_of(question.name, ACTION_LISTS);
    default:
        return is_one_of(question.name, SET_LISTS);
    }
}

/// Adds the text's lines but for empty ones. Multi-line collection runs a line without the prefix and the next one
/// with it together: a prefix outside quotation marks begins a line.
void add_lines(string_view text, string_view expected, std::vector<string> &lines)
{
    size_t begin = 0;
    bool quoted = false;
    const auto end_line = [&](size_t end) {
        if (end > begin)
            lines.emplace_back(text.substr(begin, end - begin));
        begin = end;
        quoted = false;
    };
    for (size_t at = 0; at < text.size(); at++) {
        if (text.substr(at).starts_with(LINE_END)) {
            end_line(at);
            begin = at + LINE_END.size();
            at = begin - 1;
        } else if (text[at] == '"') {
            quoted = !quoted;
        } else if (!quoted && !expected.empty() && text.substr(at).starts_with(expected)) {
            end_line(at);
        }
    }
    end_line(text.size());
}

/// Takes the final result off the end of a raw answer. Its cause and the rest of its line come with it.
void take_final_result(string_view code_text, bool at_limit, at_answer &answer)
{
    if (!answer.lines.empty() && answer.lines.back().starts_with(code_text)) {
        answer.final_result = answer.lines.back();
        answer.lines.pop_back();
        return;
    }
    answer.cut = at_limit;
}

/// "+CREG: 0,1", not "+CREG: 1" nor "+CREG: 1,\"1A2B\",...".
bool answers_registration(string_view line)
{
    const size_t comma = line.find(',');
    if (comma == string_view::npos)
        return false;
    const string_view stat = trim(line.substr(comma + 1, line.find(',', comma + 1) - comma - 1));
    return !stat.empty() && stat.size() <= 2 &&
           std::ranges::all_of(stat, [](unsigned char c) { return std::isdigit(c) != 0; });
}

void drop_reports(const at_question &question, std::vector<string> &lines)
{
    const bool plain = is_one_of(question.name, PLAIN_TEXTS) && question.name != "+CLAC";
    std::erase_if(lines, [&](string_view line) {
        const string_view name = name_of_line(line);
        if (name.empty() || name == question.name)
            return false;
        return plain || is_one_of(name, OTHER_REPORTS);
    });
    if (question.form == AT_READ && is_one_of(question.name, REGISTRATIONS) &&
        std::ranges::any_of(lines, answers_registration))
        std::erase_if(lines, [](string_view line) { return !answers_registration(line); });
}

/// Bytes of one command at the beginning of the text behind AT, up to its ; or to where the next one begins.
size_t command_length(string_view text)
{
    const bool extended = name_length(text) > 0;
    bool quoted = false;
    for (size_t at = 0; at < text.size(); at++) {
        if (text[at] == '"')
            quoted = !quoted;
        if (quoted)
            continue;
        if (text[at] == ';')
            return at;
        if (extended)
            continue;
        if (upper(text[at]) == 'D' && (at == 0 || (text[at - 1] != '&' && text[at - 1] != '\\')))
            return text.size();
        if (at > 0 && (text[at] == '+' || text[at] == '^'))
            return at;
    }
    return text.size();
}

/// Only letters and digits of basic commands may be followed by another command; other signs begin a name.
bool begins_basic(string_view text)
{
    return !text.empty() &&
           (std::isalpha(static_cast<unsigned char>(text[0])) != 0 || text[0] == '&' || text[0] == '\\');
}
} // namespace

at_question question_of(string_view command)
{
    at_question question;
    const string_view text = trim(begins_with_at(command) ? command.substr(2) : command);
    const size_t length = name_length(text);
    if (length < 2)
        return question;
    std::ranges::transform(text.substr(0, length), std::back_inserter(question.name), upper);
    const string_view rest = trim(text.substr(length));
    if (rest.starts_with("?")) {
        question.form = AT_READ;
    } else if (rest.starts_with("=")) {
        const string_view parameters = trim(rest.substr(1));
        question.form = parameters == "?" ? AT_TEST : AT_SET;
        question.parameters = parameters;
    } else {
        question.form = AT_ACTION;
        question.parameters = rest;
    }
    if (expects_lines(question))
        question.expected = question.name + ':';
    question.is_a_list = is_a_list(question);
    return question;
}

int32_t seconds_for(const at_question &question, int32_t timeout)
{
    constexpr int32_t NETWORK_LIST = 240;
    return question.name == "+COPS" && question.form == AT_TEST ? std::max(timeout, NETWORK_LIST) : timeout;
}

std::vector<string> split_commands(string_view line)
{
    std::vector<string> commands;
    string_view rest = trim(line);
    if (!begins_with_at(rest))
        return {string(rest)};
    const string at(rest.substr(0, 2));
    rest = trim(rest.substr(2));
    if (rest.empty())
        return {at};
    while (!rest.empty()) {
        const bool divides = name_length(rest) > 0 || begins_basic(rest);
        const size_t length = divides ? command_length(rest) : std::min(rest.find(';'), rest.size());
        if (length > 0)
            commands.push_back(at + string(trim(rest.substr(0, length))));
        rest.remove_prefix(length);
        if (rest.starts_with(";"))
            rest.remove_prefix(1);
        rest = trim(rest);
    }
    return commands;
}

at_answer read_answer(const at_question &question, const at_cmd_msg &reply)
{
    at_answer answer;
    const int32_t code = reply.snd_rcv_msg.ret_val;
    const string_view code_text = vlk_final_result(code);
    const string_view text(reply.snd_rcv_msg.rmsg, vlk_response_length(&reply));
    answer.code = code;
    answer.final_result = code_text;
    if (code == AT_NONE || code == 0)
        return answer; // what may stand in the record is no answer yet
    add_lines(text, question.expected, answer.lines);
    const bool with_final = question.expected.empty() || code == AT_CME_ERROR || code == AT_CMS_ERROR;
    if (with_final) // two line ends: all lines were there, only the final result had no room
        take_final_result(code_text, text.size() >= LONGEST_RAW && !text.ends_with("\r\n\r\n"), answer);
    drop_reports(question, answer.lines);
    return answer;
}

string without_secrets(string_view line)
{
    string shown;
    bool hidden = false;
    for (const string &command : split_commands(line)) {
        const at_question question = question_of(command);
        const bool secret =
            !question.parameters.empty() && question.parameters != "?" && is_one_of(question.name, SECRETS);
        const string text = secret ? "AT" + question.name + "=***" : command;
        shown += shown.empty() ? text : ";" + text.substr(2);
        hidden = hidden || secret;
    }
    return hidden ? shown : string(line);
}
