#include "ctl_metrics.h"

#include <array>
#include <cstdlib>
#include <sstream>

#include "ctl_commands.h"
#include "ctl_output.h"
#include "ctl_status.h"

namespace
{
struct family {
    const char *metric;
    const char *type;
    const char *help;
    const char *name;  ///< in the status; with a dot at its end: every name that begins with it
    const char *label; ///< what the rest of such a name is, or nullptr
    double unit;       ///< the status's unit in the metric's
};

constexpr family families[] = {
    {"vorlink_uptime_seconds", "gauge", "Seconds since the daemon's start.", "daemon.for_s", nullptr, 1},
    {"vorlink_modem_state_seconds", "gauge", "Seconds since the modem's state last changed.", "modem.for_s",
     nullptr, 1},
    {"vorlink_modem_losses_total", "counter", "How often a modem that was ready was lost.", "modem.losses",
     nullptr, 1},
    {"vorlink_modem_restorations_total", "counter", "How often the modem's settings were made again.",
     "modem.restorations", nullptr, 1},
    {"vorlink_modem_unknown_lines_total", "counter",
     "Lines that the modem sent by itself and that are no report that the daemon knows.",
     "modem.unknown_lines", nullptr, 1},
    {"vorlink_listeners", "gauge", "Services that listen.", "listeners", nullptr, 1},
    {"vorlink_clients", "gauge", "Clients that are connected.", "clients.connected", nullptr, 1},
    {"vorlink_clients_waiting", "gauge", "Clients that wait for their turn.", "clients.waiting", nullptr, 1},
    {"vorlink_clients_refused_total", "counter", "Clients that were refused.", "clients.refused", nullptr, 1},
    {"vorlink_commands_withdrawn_total", "counter", "Commands whose client hung up before the answer.",
     "commands.withdrawn", nullptr, 1},
    {"vorlink_command_slowest_seconds", "gauge", "The slowest command since the start.",
     "commands.slowest_ms", nullptr, 0.001},
    {"vorlink_lost_total", "counter", "What was lost, by its kind.", "lost.", "kind", 1},
    {"vorlink_reports_total", "counter", "Reports of the modem, by their prefix.", "reports.", "prefix", 1},
};

/// Whether the name behind "commands." is that of an outcome.
bool is_outcome(const std::string &name)
{
    for (const char *other : {"all", "sum_ms", "mean_ms", "slowest_ms", "withdrawn"})
        if (name == other)
            return false;
    return true;
}

std::string escaped(const std::string &text)
{
    std::string result;
    for (const char c : text)
        result += c == '\\' || c == '"' ? std::string("\\") + c : std::string(1, c);
    return result;
}

void head(std::ostream &out, const char *metric, const char *type, const char *help)
{
    out << "# HELP " << metric << ' ' << help << "\n# TYPE " << metric << ' ' << type << '\n';
}

void write_family(std::ostream &out, const family &row, const status_values &all)
{
    const std::string name = row.name;
    head(out, row.metric, row.type, row.help);
    for (const auto &[key, value] : all) {
        const double number = std::strtod(value.c_str(), nullptr) * row.unit;
        if (row.label == nullptr && key == name)
            out << row.metric << ' ' << number << '\n';
        else if (row.label != nullptr && key.starts_with(name))
            out << row.metric << '{' << row.label << "=\"" << escaped(key.substr(name.size())) << "\"} "
                << number << '\n';
    }
}

void write_commands(std::ostream &out, const status_values &all)
{
    head(out, "vorlink_commands_total", "counter", "Commands that have ended, by their outcome.");
    const std::string begin = "commands.";
    for (const auto &[key, value] : all)
        if (key.starts_with(begin) && is_outcome(key.substr(begin.size())))
            out << "vorlink_commands_total{result=\"" << key.substr(begin.size()) << "\"} " << value << '\n';
    head(out, "vorlink_command_seconds", "summary", "How long commands took, from their turn to their end.");
    const auto of = [&](const char *name) {
        return all.contains(name) ? std::strtod(all.at(name).c_str(), nullptr) : 0;
    };
    out << "vorlink_command_seconds_sum " << of("commands.sum_ms") / 1000
        << "\nvorlink_command_seconds_count " << of("commands.all") << '\n';
}
} // namespace

std::string metrics_of(const std::string &status)
{
    status_values all = status_values_of(status);
    std::ostringstream out;
    out.precision(15);
    head(out, "vorlink_up", "gauge", "Whether the daemon answers.");
    out << "vorlink_up " << (all.empty() ? 0 : 1) << '\n';
    if (all.empty())
        return out.str();
    head(out, "vorlink_info", "gauge", "The daemon's version and device.");
    out << "vorlink_info{version=\"" << escaped(all["daemon.version"]) << "\",device=\""
        << escaped(all["daemon.device"]) << "\"} 1\n";
    head(out, "vorlink_modem_state", "gauge", "The modem's state: 1 at the one that it is in.");
    for (const char *state : {"absent", "silent", "ready", "released"})
        out << "vorlink_modem_state{state=\"" << state << "\"} " << (all["modem.state"] == state ? 1 : 0)
            << '\n';
    write_commands(out, all);
    for (const family &row : families)
        write_family(out, row, all);
    return out.str();
}

int run_metrics(const common_options &common)
{
    const vlk_place place = common.place();
    vlk_status status;
    std::array<char, VLK_STATUS_TEXT_SIZE> text{};
    const int result = vlk_get_status_text(&place, &status, text.data(), text.size());
    std::string lines = metrics_of(result == VLK_OK ? text.data() : "");
    lines.pop_back();
    if (!print_line(lines))
        return EXIT_OTHER;
    return result == VLK_OK ? EXIT_DONE : report_failure(result, false, {});
}
