// vlkctl signal: reception now, and as the daemon's notifications report it.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <deque>
#include <string>

#include "ctl_clock.h"
#include "ctl_commands.h"
#include "ctl_output.h"
#include "ctl_session.h"
#include "ctl_terminal.h"
#include "modem_answers.h"
#include "packet_meaning.h"

using nlohmann::ordered_json;
using std::string;

namespace
{
constexpr int32_t RADIO_MODULE = 19;
constexpr int32_t SUBSCRIBE_LIMIT_MS = 5000;
constexpr int POLL_MS = 500;
constexpr double WEAKEST = -125; // dBm, the foot of the graph
constexpr double STRONGEST = -65;

/// At most one digit behind the point, none when it is zero.
string number_text(double value)
{
    char text[32];
    const bool whole = std::abs(value - std::round(value)) < 0.05;
    std::snprintf(text, sizeof text, whole ? "%.0f" : "%.1f", value);
    return text;
}

double rounded(double value)
{
    return std::round(value * 10) / 10;
}

struct named_value {
    const char *name;
    const char *unit;
    std::optional<double> signal_reading::*value;
};

constexpr named_value VALUES_OF_READING[] = {
    {"rssi", "dBm", &signal_reading::rssi}, {"rscp", "dBm", &signal_reading::rscp},
    {"ecio", "dB", &signal_reading::ecio},  {"rsrp", "dBm", &signal_reading::rsrp},
    {"rsrq", "dB", &signal_reading::rsrq},  {"sinr", "dB", &signal_reading::sinr},
};

ordered_json json_of(const signal_reading &reading)
{
    ordered_json object;
    object["technology"] = text_or_null(reading.technology);
    const std::optional<double> strength = strength_of(reading);
    object["dbm"] = strength ? ordered_json(rounded(*strength)) : ordered_json(nullptr);
    object["bars"] = bars_of(reading);
    for (const named_value &row : VALUES_OF_READING)
        if (reading.*row.value)
            object[row.name] = rounded(*(reading.*row.value));
    return object;
}

string bars_text(int bars)
{
    return string(static_cast<size_t>(bars), '#') + string(static_cast<size_t>(BARS - bars), '.');
}

string strength_text(const signal_reading &reading)
{
    const std::optional<double> strength = strength_of(reading);
    return strength ? number_text(*strength) + " dBm" : "no signal";
}

string technology_of(const signal_reading &reading)
{
    return reading.technology.empty() ? "unknown" : reading.technology;
}

string text_of(const signal_reading &reading)
{
    string text = "technology:  " + technology_of(reading) + "\nstrength:    " + strength_text(reading) +
                  "\nbars:        " + bars_text(bars_of(reading)) + "  " + std::to_string(bars_of(reading)) +
                  " of " + std::to_string(BARS);
    for (const named_value &row : VALUES_OF_READING) {
        if (!(reading.*row.value))
            continue;
        string name = row.name;
        std::ranges::transform(name, name.begin(), [](char c) { return static_cast<char>(c - 'a' + 'A'); });
        text += "\n" + name + ":" + string(12 - name.size(), ' ') + number_text(*(reading.*row.value)) + " " +
                row.unit;
    }
    return text;
}

/// Asks with each command that the modem may offer, the most telling one first.
signal_reading ask_signal(ctl_session &session)
{
    signal_reading reading = signal_of_hcsq(session.line_of("AT^HCSQ?"));
    if (reading.is_empty() && reading.technology != "NOSERVICE")
        reading = signal_of_cesq(session.line_of("AT+CESQ"));
    if (reading.is_empty() && reading.technology != "NOSERVICE")
        reading = signal_of_csq(session.line_of("AT+CSQ"));
    if (reading.technology.empty()) {
        const string line = session.line_of("AT+COPS?");
        const std::optional<int> act = operator_of(line).technology;
        reading.technology = act ? technology_text(act) : "";
    }
    return reading;
}

/// The readings of the last minutes, as a graph of one line that is drawn over again.
class graph
{
public:
    void draw(const signal_reading &reading)
    {
        strengths_.push_back(strength_of(reading).value_or(WEAKEST));
        const string head = technology_of(reading) + "  " + strength_text(reading) + "  " +
                            bars_text(bars_of(reading)) + "  ";
        const size_t room =
            std::max<size_t>(10, static_cast<size_t>(std::max(20, terminal_width())) - head.size() - 1);
        while (strengths_.size() > room)
            strengths_.pop_front();
        string line = "\r\x1B[K" + head;
        for (const double strength : strengths_)
            line += step_of(strength);
        std::fputs(line.c_str(), stdout);
        std::fflush(stdout);
    }

private:
    static string step_of(double strength)
    {
        constexpr const char *BLOCKS[] = {"\u2581", "\u2582", "\u2583", "\u2584",
                                          "\u2585", "\u2586", "\u2587", "\u2588"};
        constexpr const char *SIGNS[] = {"_", ".", ",", "-", "=", "+", "*", "#"};
        constexpr int STEPS = 8;
        const double part = (strength - WEAKEST) / (STRONGEST - WEAKEST);
        const int step = std::clamp(static_cast<int>(part * STEPS), 0, STEPS - 1);
        return speaks_utf8() ? BLOCKS[step] : SIGNS[step];
    }

    std::deque<double> strengths_;
};

bool show(const signal_reading &reading, graph &drawn, bool json)
{
    if (json) {
        ordered_json object = {{"time", time_json()}};
        object.update(json_of(reading));
        return print_json(object);
    }
    if (on_terminal()) {
        drawn.draw(reading);
        return true;
    }
    return print_line(time_text() + "  " + technology_of(reading) + "  " + strength_text(reading) + "  " +
                      bars_text(bars_of(reading)));
}

int watch(const common_options &common, const signal_options &options, const signal_reading &first)
{
    const vlk_place place = common.place();
    vlk_hub *opened = nullptr;
    int result = vlk_hub_open(&opened, &place);
    const hub_handle hub(opened, vlk_hub_close);
    if (result == VLK_OK)
        result = vlk_hub_take_module(hub.get(), RADIO_MODULE, SUBSCRIBE_LIMIT_MS);
    if (result != VLK_OK)
        return report_failure(result, common.json);

    catch_interrupts();
    graph drawn;
    signal_reading reading = first;
    bool printed = first.is_empty() || show(reading, drawn, common.json);
    uint64_t shown = first.is_empty() ? 0 : 1;
    print_error("listening");
    while (printed && !interrupted() && (!options.count || shown < *options.count)) {
        vlk_packet packet;
        result = vlk_hub_receive(hub.get(), &packet, 0);
        if (result == VLK_TIMEOUT) {
            wait_readable(vlk_hub_fd(hub.get()), POLL_MS);
            continue;
        }
        if (result != VLK_OK)
            break;
        if (!take_signal(packet, reading))
            continue;
        printed = show(reading, drawn, common.json);
        shown++;
    }
    if (on_terminal() && !common.json)
        std::fputc('\n', stdout);
    if (!printed)
        return EXIT_OTHER;
    return result == VLK_OK || result == VLK_TIMEOUT ? EXIT_DONE : report_failure(result, common.json);
}
} // namespace

int run_signal(const common_options &common, const signal_options &options)
{
    ctl_session session;
    if (const int failed = session.open(common))
        return report_failure(failed, common.json);
    const signal_reading reading = ask_signal(session);
    if (session.failed() != VLK_OK)
        return report_failure(session.failed(), common.json);
    if (options.watch)
        return watch(common, options, reading);
    const bool printed = common.json ? print_json(json_of(reading)) : print_line(text_of(reading));
    return printed ? EXIT_DONE : EXIT_OTHER;
}
