#include "port_settings.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

using std::string;
using std::string_view;

namespace
{
// Why each is shared as it is:
// +CMEE   the daemon needs numbers from the modem; each program gets the form that it asked for.
// +CMGF, +CSDH, +CSMP: the port translates (port_text_mode). A modem in text mode would take the length of another
//         program's PDU for a phone number.
// +CSMS   phase 2+ wants every message acknowledged by the program that set it; the modem stays without it.
// +CNMI   one program must not silence another. The modem stores and announces; so nobody's message is taken away.
// +CREG and its like, +CLIP, +CRC, +COLP, +CCWA, +CSSN, +CTZR, +CGEREP, +CMER, +CUSD: reports. More of them disturb
//         nobody who does not see them; fewer would silence others, the daemon's own services among them.
// +CPMS, +CPBS, +CSCS: another program's choice between this one's and its next command would delete a wrong message
//         or garble a name. On one line nobody can come between.
// +IPR, +IFC, +ICF: the line to the modem is the daemon's; a pseudo-terminal has no speed.
// Everything else is meant for the modem itself and passed: +CPIN, +CFUN, +COPS, +CGDCONT, +CSCA, ...
constexpr port_setting SETTINGS[] = {
    {"+CMEE", port_sharing::OWN, "0", "(0-2)", 0},
    {"+CMGF", port_sharing::OWN, "0", "(0,1)", 0},
    {"+CSDH", port_sharing::OWN, "0", "(0,1)", 0},
    {"+CSMP", port_sharing::OWN, "17,167,0,0", "(0-255),(0-255),(0-255),(0-255)", 0},
    {"+CSMS", port_sharing::OWN, "0", "(0,1)", 0},
    {"+IPR", port_sharing::OWN, "115200",
     "(),(300,1200,2400,4800,9600,19200,38400,57600,115200,230400,460800,921600)", 0},
    {"+IFC", port_sharing::OWN, "0,0", "(0-2),(0-2)", 0},
    {"+ICF", port_sharing::OWN, "3,3", "(3),(3)", 0},
    {"+CNMI", port_sharing::RAISED, "", "", 5},
    {"+CREG", port_sharing::RAISED, "", "", 1},
    {"+CGREG", port_sharing::RAISED, "", "", 1},
    {"+CEREG", port_sharing::RAISED, "", "", 1},
    {"+C5GREG", port_sharing::RAISED, "", "", 1},
    {"+CLIP", port_sharing::RAISED, "", "", 1},
    {"+CRC", port_sharing::RAISED, "", "", 1},
    {"+COLP", port_sharing::RAISED, "", "", 1},
    {"+CCWA", port_sharing::RAISED, "", "", 1},
    {"+CSSN", port_sharing::RAISED, "", "", 2},
    {"+CTZR", port_sharing::RAISED, "", "", 1},
    {"+CGEREP", port_sharing::RAISED, "", "", 2},
    {"+CMER", port_sharing::RAISED, "", "", 5},
    {"+CUSD", port_sharing::RAISED, "", "", 1},
    {"+CPMS", port_sharing::IN_FRONT, "", "", 0},
    {"+CPBS", port_sharing::IN_FRONT, "", "", 0},
    {"+CSCS", port_sharing::IN_FRONT, "", "", 0},
};

struct dependence {
    string_view setting;
    string_view command;
};

constexpr dependence DEPENDENCES[] = {
    {"+CPMS", "+CPMS?"}, {"+CPMS", "+CMGL"}, {"+CPMS", "+CMGR"}, {"+CPMS", "+CMGD"},  {"+CPMS", "+CMSS"},
    {"+CPBS", "+CPBS?"}, {"+CPBS", "+CPBR"}, {"+CPBS", "+CPBF"}, {"+CPBS", "+CPBW"},  {"+CSCS", "+CSCS?"},
    {"+CSCS", "+CPBR"},  {"+CSCS", "+CPBF"}, {"+CSCS", "+CPBW"}, {"+CSCS", "+CUSD="}, {"+CSCS", "+COPS?"},
    {"+CSCS", "+COPS="}, {"+CSCS", "+CNUM"}, {"+CSCS", "+COPN"}, {"+CSCS", "+CLCC"},
};

/// Which value of which setting lets a report through: position, least and most.
struct report_switch {
    string_view report;
    string_view setting;
    size_t position;
    int least;
    int most;
};

constexpr report_switch REPORT_SWITCHES[] = {
    {"+CMTI:", "+CNMI", 1, 1, 3},     {"+CMT:", "+CNMI", 1, 2, 3},    {"+CBMI:", "+CNMI", 2, 1, 3},
    {"+CBM:", "+CNMI", 2, 2, 3},      {"+CDS:", "+CNMI", 3, 1, 1},    {"+CDSI:", "+CNMI", 3, 2, 2},
    {"+CREG:", "+CREG", 0, 1, 9},     {"+CGREG:", "+CGREG", 0, 1, 9}, {"+CEREG:", "+CEREG", 0, 1, 9},
    {"+C5GREG:", "+C5GREG", 0, 1, 9}, {"+CLIP:", "+CLIP", 0, 1, 1},   {"+COLP:", "+COLP", 0, 1, 1},
    {"+CCWA:", "+CCWA", 0, 1, 1},     {"+CSSI:", "+CSSN", 0, 1, 1},   {"+CSSU:", "+CSSN", 1, 1, 1},
    {"+CTZV:", "+CTZR", 0, 1, 9},     {"+CTZE:", "+CTZR", 0, 2, 9},   {"+CGEV:", "+CGEREP", 0, 1, 2},
    {"+CIEV:", "+CMER", 3, 1, 2},     {"+CUSD:", "+CUSD", 0, 1, 1},
};

struct cause {
    int number;
    const char *text;
};

constexpr cause CAUSES[] = {
    {0, "phone failure"},
    {1, "no connection to phone"},
    {2, "phone-adaptor link reserved"},
    {3, "operation not allowed"},
    {4, "operation not supported"},
    {5, "PH-SIM PIN required"},
    {10, "SIM not inserted"},
    {11, "SIM PIN required"},
    {12, "SIM PUK required"},
    {13, "SIM failure"},
    {14, "SIM busy"},
    {15, "SIM wrong"},
    {16, "incorrect password"},
    {17, "SIM PIN2 required"},
    {18, "SIM PUK2 required"},
    {20, "memory full"},
    {21, "invalid index"},
    {22, "not found"},
    {23, "memory failure"},
    {24, "text string too long"},
    {25, "invalid characters in text string"},
    {26, "dial string too long"},
    {27, "invalid characters in dial string"},
    {30, "no network service"},
    {31, "network timeout"},
    {32, "network not allowed - emergency calls only"},
    {50, "incorrect parameters"},
    {100, "unknown"},
};

std::optional<int> number_of(string_view text)
{
    const size_t begin = std::min(text.find_first_not_of(' '), text.size());
    int number = 0;
    const auto [end, error] = std::from_chars(text.data() + begin, text.data() + text.size(), number);
    return error == std::errc{} ? std::optional(number) : std::nullopt;
}

bool depends(string_view command, const dependence &row)
{
    return command.starts_with(row.command) &&
           (command.size() == row.command.size() || row.command.ends_with('=') ||
            command[row.command.size()] == '=' || command[row.command.size()] == '?');
}

/// The values behind "NAME:".
string_view values_of(string_view line)
{
    const size_t colon = line.find(':');
    if (colon == string_view::npos)
        return {};
    line.remove_prefix(colon + 1);
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    return line;
}

string joined(const std::vector<string> &values)
{
    string text;
    for (const string &value : values)
        text += (&value == values.data() ? "" : ",") + value;
    return text;
}

/// A registration without its place when the program asked for the state alone.
string registration_view(string_view line, int asked, size_t kept)
{
    std::vector<string> values = split_values(values_of(line));
    if (asked >= 2 || values.size() <= kept)
        return string(line);
    values.resize(kept);
    return string(line.substr(0, line.find(':') + 1)) + " " + joined(values);
}

bool is_registration(string_view name)
{
    return name.ends_with("REG");
}

/// What the modem is asked to do with new messages: keep and announce them, whatever the program wants done.
std::vector<string> wanted_of(const port_setting &setting, string_view wanted)
{
    std::vector<string> values = split_values(wanted);
    if (string_view(setting.name) != "+CNMI")
        return values;
    values.resize(setting.values, "0");
    const bool message = number_of(values[1]).value_or(0) > 0;
    const bool status = number_of(values[3]).value_or(0) > 0;
    return {message || status ? "2" : "0", message ? "1" : "0", values[2], status ? "1" : "0", "0"};
}
} // namespace

const port_setting *find_port_setting(string_view name)
{
    const auto *row =
        std::ranges::find(SETTINGS, name, [](const port_setting &s) { return string_view(s.name); });
    return row == std::end(SETTINGS) ? nullptr : row;
}

std::vector<string> split_values(string_view text)
{
    std::vector<string> values;
    bool quoted = false;
    size_t begin = 0;
    for (size_t at = 0; at <= text.size(); at++) {
        if (at < text.size() && text[at] == '"')
            quoted = !quoted;
        if (at < text.size() && (text[at] != ',' || quoted))
            continue;
        values.emplace_back(text.substr(begin, at - begin));
        begin = at + 1;
    }
    return values;
}

string port_settings::value(const port_setting &setting) const
{
    const auto found = values.find(setting.name);
    return found == values.end() ? setting.start : found->second;
}

int port_settings::number(string_view name, int otherwise, size_t position) const
{
    const port_setting *setting = find_port_setting(name);
    if (setting == nullptr)
        return otherwise;
    const string text = value(*setting);
    if (text.empty())
        return otherwise;
    const std::vector<string> pieces = split_values(text);
    return position < pieces.size() ? number_of(pieces[position]).value_or(0) : 0;
}

string port_settings::with_front(string_view name, string_view command) const
{
    string front;
    for (const dependence &row : DEPENDENCES) {
        const auto found = values.find(row.setting);
        if (found == values.end() || !depends(name, row))
            continue;
        front += string(row.setting) + "=" + found->second + ";";
    }
    return front.empty() ? string(command) : "AT" + front + string(command.substr(2));
}

/// The answer to +CPMS= is numbers, the one to +CPMS? begins with a name.
bool is_from_front(string_view line)
{
    return line.starts_with("+CPMS:") && number_of(line.substr(6)).has_value();
}

string port_settings::own_view(const port_setting &setting, string_view line) const
{
    if (!values.contains(setting.name) || !line.starts_with(setting.name))
        return string(line);
    std::vector<string> shown = split_values(values_of(line));
    const std::vector<string> own = split_values(value(setting));
    for (size_t at = 0; at < setting.values && at < shown.size(); at++)
        shown[at] = at < own.size() ? own[at] : "0";
    const string view = string(setting.name) + ": " + joined(shown);
    return is_registration(setting.name) ? registration_view(view, number(setting.name, 0), 2) : view;
}

string port_settings::report_view(string_view line) const
{
    if (line.starts_with("+CRING:") && values.contains("+CRC") && number("+CRC", 0) == 0)
        return "RING";
    const auto *row = std::ranges::find_if(
        REPORT_SWITCHES, [&](const report_switch &s) { return line.starts_with(s.report); });
    if (row == std::end(REPORT_SWITCHES) || !values.contains(row->setting))
        return string(line);
    const int asked = number(row->setting, 0, row->position);
    if (asked < row->least || asked > row->most)
        return {};
    return is_registration(row->setting) ? registration_view(line, asked, 1) : string(line);
}

string raised_values(const port_setting &setting, string_view current, string_view wanted)
{
    std::vector<string> now = split_values(values_of(current));
    now.resize(setting.values, "0");
    for (string &value : now) // what the modem said goes back to it as numbers only
        value = std::to_string(number_of(value).value_or(0));
    const std::vector<string> more = wanted_of(setting, wanted);
    bool raises = false;
    for (size_t at = 0; at < setting.values && at < more.size(); at++) {
        const std::optional<int> asked = number_of(more[at]);
        if (!asked || *asked <= number_of(now[at]).value_or(0))
            continue;
        now[at] = std::to_string(*asked);
        raises = true;
    }
    return raises ? joined(now) : string();
}

string cme_view(string_view final_result, int cmee)
{
    constexpr string_view HEAD = "+CME ERROR:";
    if (!final_result.starts_with(HEAD) || cmee == 1)
        return string(final_result);
    if (cmee == 0)
        return "ERROR";
    const std::optional<int> number = number_of(final_result.substr(HEAD.size()));
    const auto *row = std::ranges::find(CAUSES, number.value_or(-1), &cause::number);
    return row == std::end(CAUSES) ? string(final_result) : string(HEAD) + " " + row->text;
}
