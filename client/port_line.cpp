#include "port_line.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <utility>

#include "port_text_mode.h"

using std::string;
using std::string_view;

namespace
{
constexpr char CTRL_Z = '\x1A';
constexpr char ESCAPE = '\x1B';
constexpr char DELETE = '\x7F';
constexpr size_t LINE_MAX_BYTES = 1500; // a record takes 1539, what stands in front of a command included
constexpr size_t TEXT_MAX_BYTES = 1400;
constexpr size_t HELD_MAX = 64;
constexpr unsigned char STANDARD_REGISTERS[] = {0, 0, '+', '\r', '\n', '\b', 2, 50, 2, 6, 14, 95, 50};

constexpr string_view PDU_REFUSED = "+CMS ERROR: 304"; // invalid PDU mode parameter
constexpr string_view NOT_ALLOWED = "+CMS ERROR: 302"; // operation not allowed

/// Commands with a letter and a number that mean the line to the modem only.
constexpr string_view LOCAL_LETTERS = "EVQZXLMPTBN";
constexpr string_view PROMPTING[] = {
    "+CMGS=", "+CMGW=", "^HCMGS=", "^HCMGW=", "+CNMA=1,", "+CNMA=2,", "+CMGC="};
constexpr string_view DATA_MODE[] = {"+CGDATA=", "+CMUX"};

struct numeric {
    string_view text;
    char digit;
};
constexpr numeric NUMERIC[] = {{"OK", '0'},    {"CONNECT", '1'},     {"RING", '2'}, {"NO CARRIER", '3'},
                               {"ERROR", '4'}, {"NO DIALTONE", '6'}, {"BUSY", '7'}, {"NO ANSWER", '8'}};

char upper(char c)
{
    return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

string upper_text(string_view text)
{
    string out(text);
    std::ranges::transform(out, out.begin(), upper);
    return out;
}

string_view trimmed(string_view text)
{
    const size_t begin = std::min(text.find_first_not_of(' '), text.size());
    return text.substr(begin, text.find_last_not_of(' ') + 1 - begin);
}

/// Where AT begins in what was typed, in any case; npos without.
size_t find_at(string_view line)
{
    for (size_t at = 0; at + 1 < line.size(); at++)
        if (upper(line[at]) == 'A' && upper(line[at + 1]) == 'T')
            return at;
    return string_view::npos;
}

size_t digits_from(string_view text, size_t begin)
{
    const size_t end = text.find_first_not_of("0123456789", begin);
    return std::min(end, text.size()) - begin;
}

/// Bytes of the extended command at the start of the text: up to a ; outside quotation marks.
size_t extended_length(string_view text)
{
    bool quoted = false;
    for (size_t at = 0; at < text.size(); at++) {
        if (text[at] == '"')
            quoted = !quoted;
        else if (text[at] == ';' && !quoted)
            return at;
    }
    return text.size();
}

/// Bytes of the first command of a line, which does not begin with a blank. Never 0.
size_t command_length(string_view text)
{
    const char first = upper(text[0]);
    if (first == 'D')
        return std::min(text.find(';'), text.size() - 1) + 1;
    if (first == 'S' && text.size() > 1 && is_digit(text[1])) {
        size_t end = 1 + digits_from(text, 1);
        if (end < text.size() && text[end] == '=')
            return end + 1 + digits_from(text, end + 1);
        return end < text.size() && text[end] == '?' ? end + 1 : end;
    }
    if (first == '&' && text.size() > 1)
        return 2 + digits_from(text, 2);
    if (std::isalpha(static_cast<unsigned char>(first)) != 0)
        return 1 + digits_from(text, 1);
    return std::max<size_t>(extended_length(text), 1);
}

/// The name of an extended command, upper case, and what follows it: "+CSQ", "?".
std::pair<string, string_view> name_and_rest(string_view command)
{
    const size_t end = std::min(command.find_first_of("=? "), command.size());
    return {upper_text(command.substr(0, end)), trimmed(command.substr(end))};
}

/// A memory's name in quotation marks, as a report gives it.
bool is_memory(string_view text)
{
    return text.size() > 2 && text.front() == '"' && text.back() == '"' &&
           std::ranges::all_of(text.substr(1, text.size() - 2),
                               [](unsigned char c) { return std::isalnum(c) != 0; });
}

bool is_hexadecimal(string_view text)
{
    return std::ranges::all_of(text, [](unsigned char c) { return std::isxdigit(c) != 0; });
}

int hex_octet(string_view pdu)
{
    int value = 0;
    std::from_chars(pdu.data(), pdu.data() + 2, value, 16);
    return value;
}

/// A whole PDU with as many octets behind its service centre as the command said.
bool is_announced_pdu(string_view command, string_view pdu)
{
    if (pdu.size() < 4 || pdu.size() % 2 != 0 || !is_hexadecimal(pdu))
        return false;
    size_t announced = 0;
    const string_view number = command.substr(command.find('=') + 1);
    if (std::from_chars(number.data(), number.data() + number.size(), announced).ec != std::errc{})
        return false;
    return pdu.size() / 2 == announced + 1 + static_cast<size_t>(hex_octet(pdu));
}

/// The final results that a program may see; the others mean no success.
string_view known_final(string_view result)
{
    if (result.starts_with("+CM") || result.starts_with("+CME"))
        return result;
    const auto *row = std::ranges::find(NUMERIC, result, &numeric::text);
    return row == std::end(NUMERIC) || row->text == "CONNECT" ? "ERROR" : row->text;
}
} // namespace

void port_line::open()
{
    const bool wanted_reports = reports_wanted;
    *this = port_line(wanted_reports);
    std::ranges::copy(STANDARD_REGISTERS, registers.begin());
}

void port_line::take(string_view bytes)
{
    input += bytes;
    work();
}

string port_line::take_output()
{
    return std::exchange(output, {});
}

void port_line::work()
{
    size_t taken = 0;
    while (taken < input.size() && !asked) {
        const char byte = input[taken++];
        if (text)
            take_text_byte(byte);
        else
            take_line_byte(byte);
    }
    input.erase(0, taken);
    if (!asked && !text)
        fetch_next();
}

void port_line::take_line_byte(char byte)
{
    if (byte == '\0' || byte == '\n')
        return;
    if (byte == DELETE || byte == static_cast<char>(registers[5]))
        return erase_last(line);
    if (echo)
        show({&byte, 1});
    if (byte == static_cast<char>(registers[3]))
        return run_line();
    too_long = too_long || line.size() >= LINE_MAX_BYTES;
    if (!too_long && static_cast<unsigned char>(byte) >= ' ')
        line += byte;
    if (byte == '/' && line.size() >= 2 && upper(line[line.size() - 2]) == 'A' &&
        find_at(line) == line.npos) {
        line = last;
        run_line();
    }
}

void port_line::erase_last(string &typed)
{
    if (typed.empty())
        return;
    typed.pop_back();
    if (echo)
        show("\b \b");
}

void port_line::run_line()
{
    const string typed = std::exchange(line, {});
    const size_t at = find_at(typed);
    if (at == typed.npos)
        return;
    last = typed.substr(at);
    rest = last.substr(2);
    busy = true;
    if (std::exchange(too_long, false))
        return finish("ERROR");
    if (trimmed(rest).empty())
        return ask(purpose::SHOW, "AT");
    next_command();
}

/// Serves commands until the modem has to be asked, all are done or one fails.
void port_line::next_command()
{
    for (;;) {
        rest.erase(0, std::min(rest.find_first_not_of(" ;"), rest.size()));
        if (rest.empty())
            return finish("OK");
        const size_t length = command_length(rest);
        const string command(trimmed(rest.substr(0, length)));
        rest.erase(0, length);
        if (!serve(command))
            return;
    }
}

/// True: done, the next command may come. False: the modem is asked, or the line has ended.
bool port_line::serve(const string &command)
{
    const char first = upper(command[0]);
    if (first == 'S')
        return serve_register(command);
    if (first == 'O' || (first == 'D' && !command.ends_with(';')))
        return end("NO CARRIER");
    if (first == '&' || LOCAL_LETTERS.find(first) != string_view::npos)
        return serve_basic(command);
    if (!std::isalpha(static_cast<unsigned char>(first)))
        return serve_extended(command);
    ask(purpose::SHOW, "AT" + command);
    return false;
}

bool port_line::serve_register(string_view command)
{
    const size_t digits = digits_from(command, 1);
    unsigned number = 256;
    unsigned value = 0;
    std::from_chars(command.data() + 1, command.data() + 1 + digits, number);
    if (number >= registers.size())
        return end("ERROR");
    const string_view tail = command.substr(1 + digits);
    if (tail == "?") {
        const string shown = std::to_string(registers[number]);
        show_text(string(3 - shown.size(), '0') + shown);
        return true;
    }
    if (!tail.starts_with('='))
        return true;
    if (tail.size() > 1)
        std::from_chars(tail.data() + 1, tail.data() + tail.size(), value);
    const bool is_line_character = number >= 3 && number <= 5;
    if (value > (is_line_character ? 127U : 255U))
        return end("ERROR");
    registers[number] = static_cast<unsigned char>(value);
    return true;
}

bool port_line::serve_basic(string_view command)
{
    const char letter = upper(command[0]);
    const string_view number = command.substr(letter == '&' ? std::min<size_t>(2, command.size()) : 1);
    const bool resets = letter == 'Z' || (letter == '&' && command.size() > 1 && upper(command[1]) == 'F');
    if (resets) {
        echo = verbose = true;
        quiet = false;
        registers.fill(0);
        std::ranges::copy(STANDARD_REGISTERS, registers.begin());
        settings.reset();
        return true;
    }
    if (letter != 'E' && letter != 'V' && letter != 'Q')
        return true;
    if (number.size() > 1 || (!number.empty() && number[0] > '1'))
        return end("ERROR");
    const bool on = number == "1";
    (letter == 'E' ? echo : letter == 'V' ? verbose : quiet) = on;
    return true;
}

bool port_line::serve_extended(const string &command)
{
    const string known = upper_text(command);
    if (std::ranges::any_of(DATA_MODE, [&](string_view head) { return known.starts_with(head); }))
        return end(known.starts_with("+CMUX") ? "ERROR" : "NO CARRIER");
    const bool is_test = known.ends_with("=?");
    const auto [name, tail] = name_and_rest(command);
    if (name == "+CMGC" && !is_test && in_text_mode())
        return end(NOT_ALLOWED); // what would be typed is no text, but data of a command
    const bool is_plain_store = name == "+CMGW" && tail.empty() && in_text_mode();
    if (is_plain_store || (!is_test && std::ranges::any_of(PROMPTING, [&](string_view head) {
            return known.starts_with(head);
        })))
        return prompt_for(command);
    if (in_text_mode() && !is_test && (name == "+CMGL" || name == "+CMGR"))
        return serve_reading(command, name, tail);
    if (name == "+CNMA" && !is_test)
        return true; // the port leaves nothing to be acknowledged
    const port_setting *row = find_port_setting(name);
    if (row != nullptr && row->sharing == port_sharing::OWN)
        return serve_own(*row, tail);
    setting = row;
    if (row != nullptr && row->sharing == port_sharing::RAISED && !is_test)
        return serve_raised(*row, "AT" + command, tail);
    const bool remembers =
        row != nullptr && row->sharing == port_sharing::IN_FRONT && !is_test && tail.starts_with('=');
    if (remembers)
        wanted = tail.substr(1);
    ask(remembers ? purpose::REMEMBER : purpose::SHOW, "AT" + command);
    return false;
}

bool port_line::serve_own(const port_setting &row, string_view tail)
{
    const string name = row.name;
    if (tail == "?") {
        show_text(name + ": " + settings.value(row) + (name == "+CSMS" ? ",1,1,1" : ""));
        return true;
    }
    if (tail == "=?") {
        show_text(name + ": " + row.range);
        return true;
    }
    if (!tail.starts_with('='))
        return end(cme_view("+CME ERROR: 4", settings.number("+CMEE", 0)));
    const string value(trimmed(tail.substr(1)));
    const bool is_switch = string_view(row.start).size() == 1;
    const string range = row.range;
    if (is_switch && (value.size() != 1 || value[0] < '0' || value[0] > range[range.size() - 2]))
        return end(cme_view("+CME ERROR: 50", settings.number("+CMEE", 0)));
    settings.set(row, value);
    if (name == "+CSMS")
        show_text("+CSMS: 1,1,1");
    return true;
}

bool port_line::serve_raised(const port_setting &row, const string &command, string_view tail)
{
    if (!tail.starts_with('=')) {
        ask(purpose::OWN_VIEW, command);
        return false;
    }
    const string value(trimmed(tail.substr(1)));
    const std::vector<string> values = split_values(value);
    settings.set(row, value);
    if (values.size() > row.values) {
        ask(purpose::SHOW, command);
        return false;
    }
    if (raised_values(row, "", value).empty())
        return true;
    wanted = value;
    fallback = command;
    ask(purpose::LOOK, string("AT") + row.name + "?");
    return false;
}

/// Text mode shows what the modem gives in PDU mode.
bool port_line::serve_reading(const string &command, const string &name, string_view tail)
{
    const string list =
        name == "+CMGL" ? list_in_pdu_mode(tail.starts_with('=') ? trimmed(tail.substr(1)) : "") : "";
    if (name == "+CMGL" && list.empty())
        return end("+CMS ERROR: 305");
    ask(purpose::TEXT_VIEW, "AT" + (name == "+CMGL" ? list : command));
    return false;
}

/// Prompts for the text of a command that takes one. What follows the command on its line is dropped, as modems do.
bool port_line::prompt_for(const string &command)
{
    const bool takes_number = in_text_mode() && upper_text(command).starts_with("+CMG");
    if (!takes_number && !is_digit(command[std::min(command.find('=') + 1, command.size() - 1)]))
        return end(PDU_REFUSED);
    rest.clear();
    prompting = command;
    text.emplace();
    show("\r\n> ");
    return false;
}

void port_line::take_text_byte(char byte)
{
    if (byte == ESCAPE) {
        text.reset();
        return finish("OK");
    }
    if (byte == CTRL_Z)
        return end_of_text();
    if (byte == '\b' || byte == DELETE)
        return erase_last(*text);
    if (byte == '\0' || byte == '\n')
        return;
    if (byte == '\r' && in_text_mode()) {
        *text += '\n';
        return show("\r\n> ");
    }
    if (byte == '\r')
        return;
    if (echo)
        show({&byte, 1});
    if (text->size() <= TEXT_MAX_BYTES) // one more than allowed is refused at the end
        *text += byte;
}

void port_line::end_of_text()
{
    const string typed = std::move(*text);
    text.reset();
    const string command = upper_text(prompting);
    if (in_text_mode() && typed.size() <= TEXT_MAX_BYTES &&
        (command.starts_with("+CMGS") || command.starts_with("+CMGW"))) {
        const port_submission submission = submission_of(prompting, typed, settings);
        if (submission.command.empty())
            return finish(submission.refusal);
        ask(purpose::SHOW, "AT" + submission.command);
        asked->pdu = submission.pdu;
        return;
    }
    if (typed.size() > TEXT_MAX_BYTES || !is_announced_pdu(command, typed))
        return finish(command.starts_with("+CNMA") ? "OK" : PDU_REFUSED);
    if (command.starts_with("+CNMA"))
        return finish("OK");
    ask(purpose::SHOW, "AT" + prompting);
    asked->pdu = typed;
}

void port_line::ask(purpose new_why, const string &command)
{
    why = new_why;
    const auto [name, tail] = name_and_rest(string_view(command).substr(2));
    const string key = tail == "=?" || new_why == purpose::REMEMBER ? "" : name + string(tail.substr(0, 1));
    asked = port_request{settings.with_front(key, command), command, ""};
}

void port_line::reply(const port_reply &answer)
{
    if (!asked)
        return;
    const port_request request = *asked;
    asked.reset();
    const bool is_ok = answer.final_result == "OK";
    if (why == purpose::FETCH) {
        show_message(answer);
        return work();
    }
    if (why == purpose::LOOK) {
        look_at(answer);
        return work();
    }
    if (why == purpose::RAISE && !is_ok && request.line != fallback) {
        ask(purpose::RAISE, fallback);
        return;
    }
    if (why == purpose::REMEMBER && is_ok)
        settings.set(*setting, wanted);
    show_answer(request, why == purpose::TEXT_VIEW ? text_mode_lines(answer.lines, settings) : answer.lines);
    if (is_ok)
        next_command();
    else
        finish(cme_view(known_final(answer.final_result), settings.number("+CMEE", 0)));
    work();
}

void port_line::show_answer(const port_request &request, const std::vector<string> &lines)
{
    bool first = true;
    for (const string &text_line : lines) {
        if (request.line != request.question && is_from_front(text_line))
            continue;
        const string shown = why == purpose::OWN_VIEW ? settings.own_view(*setting, text_line) : text_line;
        if (quiet)
            continue;
        show((first && verbose ? line_end() : "") + shown + line_end());
        first = false;
    }
}

/// Raises what the modem reports when that is less than this program wants.
void port_line::look_at(const port_reply &answer)
{
    const auto line_of =
        std::ranges::find_if(answer.lines, [&](const string &l) { return l.starts_with(setting->name); });
    if (answer.final_result != "OK" || line_of == answer.lines.end())
        return ask(purpose::RAISE, fallback);
    const string more = raised_values(*setting, *line_of, wanted);
    if (more.empty())
        return next_command();
    ask(purpose::RAISE, string("AT") + setting->name + "=" + more);
}

/// A fetched message in the form of a delivery: "+CMT: ,24" and its PDU. One that is gone was taken by another program.
void port_line::show_message(const port_reply &answer)
{
    if (answer.final_result != "OK" || answer.lines.size() < 2)
        return;
    const string &head = answer.lines[answer.lines.size() - 2];
    const size_t comma = head.find(',');
    if (head.starts_with("+CMGR:") && comma != head.npos)
        report("+CMT: " + head.substr(comma + 1) + "\r\n" + answer.lines.back());
}

/// Asks for the next message that was announced, while the line is idle.
void port_line::fetch_next()
{
    while (!arrived.empty() && !busy && !asked) {
        const std::vector<string> place = split_values(arrived.front());
        arrived.pop_front();
        if (place.size() < 2 || !is_memory(place[0]) || place[1].empty() ||
            digits_from(place[1], 0) != place[1].size())
            continue;
        ask(purpose::FETCH, "AT+CMGR=" + place[1]);
        asked->line = "AT+CPMS=" + place[0] + ";+CMGR=" + place[1];
    }
}

/// Ends the line with a result that comes from the port itself.
bool port_line::end(string_view result)
{
    finish(result);
    return false;
}

void port_line::finish(string_view final_result)
{
    busy = false;
    rest.clear();
    show_final(final_result);
    show_held();
}

void port_line::show_text(string_view shown)
{
    if (!quiet)
        show((verbose ? line_end() : "") + string(shown) + line_end());
}

void port_line::show_final(string_view result)
{
    if (quiet)
        return;
    const auto *row = std::ranges::find(NUMERIC, result, &numeric::text);
    if (verbose || row == std::end(NUMERIC))
        show(line_end() + string(result) + line_end());
    else
        show(string{row->digit, static_cast<char>(registers[3])});
}

void port_line::report(string_view shown)
{
    if (!reports_wanted)
        return;
    const string own = settings.report_view(shown);
    const string view = in_text_mode() ? text_mode_report(own, settings) : own;
    if (view.empty())
        return;
    if (view.starts_with("+CMTI:") && settings.number("+CNMI", 0, 1) >= 2) {
        arrived.push_back(string(trimmed(string_view(view).substr(6))));
        return work();
    }
    held.push_back(view);
    if (held.size() > HELD_MAX)
        held.pop_front();
    if (!busy)
        show_held();
}

void port_line::show_held()
{
    for (const string &shown : std::exchange(held, {}))
        show_report(shown);
}

void port_line::show_report(string_view shown)
{
    if (quiet)
        return;
    if (!verbose && shown == "RING")
        return show({"2\r", 2});
    show(line_end() + string(shown) + line_end());
}
