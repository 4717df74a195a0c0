// vlkctl network: registration, operator, technology and cell.
#include <array>
#include <string>

#include "ctl_commands.h"
#include "ctl_output.h"
#include "ctl_session.h"
#include "modem_answers.h"

using nlohmann::ordered_json;
using std::string;

namespace
{
struct domain {
    const char *name;
    const char *json_name;
    const char *command;
    registration state;
};

using domains = std::array<domain, 4>;

/// The most telling registration: the first of 5G, LTE, packet and circuit-switched where the modem is
/// registered, else the first that it reports at all.
const registration &main_registration(const domains &all)
{
    const registration *told = &all.back().state;
    for (const domain &one : all) {
        if (is_registered(one.state.state))
            return one.state;
        if (!told->state)
            told = &one.state;
    }
    return *told;
}

ordered_json json_of(const registration &main, const operator_name &name, const domains &all)
{
    ordered_json object = {
        {"registered", is_registered(main.state)},
        {"state", registration_text(main.state)},
        {"operator", text_or_null(name.name)},
        {"selection", name.automatic ? "automatic" : "manual"},
        {"technology", technology_text(main.technology ? main.technology : name.technology)},
        {"area", text_or_null(main.area)},
        {"cell", text_or_null(main.cell)}};
    for (const domain &one : all)
        if (one.state.state)
            object["domains"][one.json_name] = {{"code", number_or_null(one.state.state)},
                                                {"state", registration_text(one.state.state)}};
    return object;
}

string text_of(const registration &main, const operator_name &name, const domains &all)
{
    const std::optional<int> technology = main.technology ? main.technology : name.technology;
    string text = string("registration:  ") + registration_text(main.state) +
                  "\noperator:      " + (name.name.empty() ? "none" : name.name) +
                  (name.automatic ? "" : ", chosen by hand") +
                  "\ntechnology:    " + technology_text(technology);
    if (main.cell.empty())
        text += "\ncell:          not told (vlkctl at AT+CREG=2 makes the modem tell it)";
    else
        text += "\ncell:          " + main.cell + ", area " + main.area;
    for (const domain &one : all)
        if (one.state.state)
            text += string("\n") + one.name + string(15 - string(one.name).size(), ' ') +
                    registration_text(one.state.state);
    return text;
}
} // namespace

int run_network(const common_options &common)
{
    ctl_session session;
    if (const int failed = session.open(common))
        return report_failure(failed, common.json);
    domains all = {{{"5G:", "5g", "AT+C5GREG?", {}},
                    {"LTE:", "lte", "AT+CEREG?", {}},
                    {"packet data:", "packet", "AT+CGREG?", {}},
                    {"calls:", "circuit", "AT+CREG?", {}}}};
    for (domain &one : all)
        one.state = registration_of(session.line_of(one.command));
    const string line = session.line_of("AT+COPS?");
    if (session.failed() != VLK_OK)
        return report_failure(session.failed(), common.json);
    const operator_name name = line.empty() ? operator_name{} : operator_of(line);
    const registration &main = main_registration(all);
    const bool printed =
        common.json ? print_json(json_of(main, name, all)) : print_line(text_of(main, name, all));
    return printed ? EXIT_DONE : EXIT_OTHER;
}
