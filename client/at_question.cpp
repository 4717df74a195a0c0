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
constexpr string_view PROMPT = "> ";
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
/// Reports whose set command asks a question; for others it switches the report on and off.
constexpr string_view ASKING_REPORTS[] = {"^NETSCAN", "+CCWA"};
/// The read command's line begins with the mode, the report's line with the state.
constexpr string_view REGISTRATIONS[] = {"+CREG", "+CGREG", "+CEREG", "+C5GREG"};
/// The answer's line begins with a number, the report's with a telephone number in quotes.
constexpr string_view CALLS[] = {"+CLIP", "+CCWA", "+COLP", "+CNAP"};

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

/// Adds the text's lines except empty ones. Multi-line collection joins a line without the prefix to the next line with
/// it, so a prefix outside quotation marks begins a line.
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

/// Whether a line of the command's name has the shape of its answer; a report of that name has another one.
bool has_shape_of_answer(const at_question &question, string_view line)
{
    const size_t colon = line.find(':');
    const string_view fields = colon == string_view::npos ? string_view{} : trim(line.substr(colon + 1));
    if (question.form == AT_TEST)
        return fields.find('(') != string_view::npos;
    if (question.form == AT_READ && is_one_of(question.name, REGISTRATIONS))
        return answers_registration(line);
    if (question.form == AT_READ && question.name == "+CUSD")
        return fields.find(',') == string_view::npos;
    return !is_one_of(question.name, CALLS) || !fields.starts_with('"');
}

/// A line of another name that raw collection leaves between the lines of the answer.
bool is_other_report(const at_question &question, string_view line)
{
    const bool plain = is_one_of(question.name, PLAIN_TEXTS) && question.name != "+CLAC";
    const string_view name = name_of_line(line);
    return !name.empty() && name != question.name && (plain || is_one_of(name, OTHER_REPORTS));
}

/// Drops the lines with the command's name and the shape of a report, when others have the shape of the answer.
void drop_reports_of_its_name(const at_question &question, std::vector<string> &lines)
{
    if (question.form != AT_BASIC &&
        std::ranges::any_of(lines, [&](string_view line) { return has_shape_of_answer(question, line); }))
        std::erase_if(lines, [&](string_view line) {
            return name_of_line(line) == question.name && !has_shape_of_answer(question, line);
        });
}

// ---- What the modem said, as it came

/// A report that goes to the services: part of an answer only when the command expects it.
bool is_known_report(string_view line)
{
    if (!line.starts_with('+') && !line.starts_with('^'))
        return line.starts_with("RING") || line.starts_with("IRING");
    return vlk_holds_report_name(line);
}

/// A line that came while the command ran and does not name it. Without an expected prefix it may still be the answer.
bool may_answer(const at_question &question, string_view line)
{
    return question.expected.empty() && !is_known_report(line) && !is_other_report(question, line);
}

/// The head of a message in text mode, whose body may be any text: its state is a word, in PDU mode it is a number.
bool heads_a_text(const at_question &question, string_view line)
{
    if (!is_one_of(question.name, MESSAGES) || name_of_line(line) != question.name)
        return false;
    const bool is_list = question.name.ends_with("CMGL");
    const size_t state = is_list ? line.find(',') : line.find(':');
    return question.name == "^HCMGR" ||
           (state != string_view::npos && trim(line.substr(state + 1)).starts_with('"'));
}

/// "OK" alone, "+CME ERROR: 10", "CONNECT 115200", but not "OK, see you".
bool is_final_result(string_view line, int32_t code, string_view code_text)
{
    if (!line.starts_with(code_text))
        return false;
    const string_view rest = trim(line.substr(code_text.size()));
    return rest.empty() || rest.starts_with(':') || code == AT_CONNECT || code == AT_ATE0;
}

struct said_line {
    string text;
    bool is_answer;
    bool is_after_blank; ///< as modems frame what they say; lines of a message's body follow none
};

/// A report among the lines of the answer: the first one of those that the command switched on (AT+CREG=2), or one that
/// came while the modem sent a message up to its Ctrl-Z.
bool is_report_within(const at_question &question, const said_line &line)
{
    if (question.name == "^HCMGR")
        return line.is_after_blank && name_of_line(line.text) != question.name &&
               (is_known_report(line.text) || is_other_report(question, line.text));
    return question.expected.empty() && is_report(question.name) && name_of_line(line.text) == question.name;
}

/// The lines of all pieces in their order. A piece may end inside a line, which the next piece of its kind continues.
std::vector<said_line> lines_said(const std::vector<at_text> &texts)
{
    std::vector<said_line> lines;
    bool blank = false;
    bool open = false;
    for (const at_text &piece : texts) {
        string_view rest = piece.text;
        if (rest == PROMPT || rest.ends_with(string(LINE_END) + string(PROMPT)))
            rest.remove_suffix(PROMPT.size());
        while (!rest.empty()) {
            const size_t end = std::min(rest.find(LINE_END), rest.size());
            if (open && lines.back().is_answer == piece.is_answer)
                lines.back().text += rest.substr(0, end);
            else if (end > 0)
                lines.push_back({string(rest.substr(0, end)), piece.is_answer, blank});
            blank = end == 0;
            open = end == rest.size();
            rest.remove_prefix(std::min(end + LINE_END.size(), rest.size()));
        }
    }
    return lines;
}
} // namespace

std::optional<at_answer> read_answer_text(const at_question &question, const std::vector<at_text> &texts,
                                          int32_t code)
{
    const string_view code_text = vlk_final_result(code);
    std::vector<said_line> said = lines_said(texts);
    while (!said.empty() && !said.back().is_answer)
        said.pop_back();
    if (said.empty() || !said.back().text.starts_with(code_text))
        return {};
    at_answer answer;
    answer.code = code;
    const said_line end = said.back();
    answer.final_result = end.text;
    said.pop_back();

    const bool in_text =
        std::ranges::any_of(said, [&](const said_line &line) { // of a modem that frames its lines
            return line.is_after_blank && heads_a_text(question, line.text);
        });
    for (const said_line &line : said) {
        const bool is_body = in_text && !line.is_answer && !line.is_after_blank;
        answer.cut = answer.cut || is_body; // it looks like a report, so it went to the services
        if (line.is_answer ? !is_report_within(question, line) : may_answer(question, line.text))
            answer.lines.push_back(line.text);
    }
    drop_reports_of_its_name(question, answer.lines);
    if (!is_final_result(end.text, code, code_text) || (in_text && !end.is_after_blank)) {
        answer.ended_by_text = answer.cut = true;
        answer.lines.push_back(end.text);
        answer.final_result = code_text;
    }
    return answer;
}

namespace
{
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
    std::erase_if(answer.lines, [&](string_view line) { return is_other_report(question, line); });
    drop_reports_of_its_name(question, answer.lines);
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
