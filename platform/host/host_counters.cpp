#include "host_counters.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>

#include "at_cmd_msg.h"
#include "host_log.h"
#include "log_sink.h"
#include "vlk_report_prefixes.h"

namespace
{
struct outcome {
    int32_t result;
    const char *name;
};

constexpr std::array<outcome, 15> outcomes{{{AT_OK, "ok"},
                                            {AT_NONE, "timeout"},
                                            {0, "no_prompt"},
                                            {AT_CME_ERROR, "cme_error"},
                                            {AT_CMS_ERROR, "cms_error"},
                                            {AT_ERROR, "error"},
                                            {AT_NO_CARRIER, "no_carrier"},
                                            {AT_NO_ANSWER, "no_answer"},
                                            {AT_COMMAND_NOT_SUPPORT, "not_written"},
                                            {AT_TOO_MANY_PARAMETERS, "too_many_parameters"},
                                            {AT_ATE0, "ate0"},
                                            {AT_CONNECT, "connect"},
                                            {AT_NO_DIALTONE, "no_dialtone"},
                                            {AT_BUSY, "busy"},
                                            {INT32_MAX, "other"}}};

std::array<std::atomic<uint32_t>, outcomes.size()> commands_ended;
std::atomic<uint64_t> whole_ms{0};
std::atomic<uint32_t> slowest_ms{0};

struct prefix_row {
    char prefix[20];
    uint32_t count;
    bool is_known; ///< the daemon has a row for such reports
};

constexpr size_t PREFIXES_MAX = 96;
std::mutex prefix_mutex;
std::array<prefix_row, PREFIXES_MAX> prefixes;
size_t prefix_count = 0;
uint32_t other_reports = 0; ///< of prefixes beyond those

/// "+CREG" of "+CREG: 1"; empty for what is no report: a line needs a sign, a name and a colon or its end behind it.
std::string_view prefix_of(std::string_view line)
{
    const auto is_name = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); };
    if (line == "RING")
        return line;
    if (line.size() < 2 || (line[0] != '+' && line[0] != '^'))
        return {};
    size_t end = 1;
    while (end < line.size() && is_name(line[end]))
        ++end;
    if (end == 1 || end >= sizeof prefix_row::prefix || (end < line.size() && line[end] != ':'))
        return {};
    const std::string_view prefix = line.substr(0, end);
    return prefix == "+CME" || prefix == "+CMS" ? std::string_view{} : prefix;
}

/// Under the mutex.
void count_prefix(std::string_view prefix)
{
    const auto end = prefixes.begin() + prefix_count;
    const auto same =
        std::find_if(prefixes.begin(), end, [&](const auto &row) { return prefix == row.prefix; });
    if (same != end) {
        ++same->count;
        counters.unknown_lines += same->is_known ? 0 : 1;
        return;
    }
    const bool is_known = vlk_holds_report_name(prefix);
    counters.unknown_lines += is_known ? 0 : 1;
    if (prefix_count == prefixes.size()) {
        ++other_reports;
        return;
    }
    prefix_row &row = prefixes[prefix_count++];
    row.prefix[prefix.copy(row.prefix, sizeof row.prefix - 1)] = '\0';
    row.count = 1;
    row.is_known = is_known;
}

void tell(const ended_command &command, const outcome &how)
{
    const auto seconds = static_cast<long long>((command.took_ms + 500) / 1000);
    if (command.result == AT_NONE)
        host_log(LOG_WARNING,
                 "%s was not answered in %lld s; asked by process %d (%s): give it more time, or see "
                 "vlkctl status",
                 command.name, seconds, command.pid, command.who);
    else if (command.result == AT_COMMAND_NOT_SUPPORT)
        host_log(LOG_WARNING,
                 "%s could not be written or is not supported; asked by process %d (%s): see vlkctl status",
                 command.name, command.pid, command.who);
    else if (command.result == AT_CME_ERROR || command.result == AT_CMS_ERROR || command.result == AT_ERROR)
        host_log(LOG_NOTICE, "the modem refused %s after %lld s (%s); asked by process %d (%s)", command.name,
                 seconds, how.name, command.pid, command.who);
}
} // namespace

void count_command(const ended_command &command)
{
    if (command.name[0] == '\0')
        return;
    const auto found = std::ranges::find(outcomes, command.result, &outcome::result);
    const size_t index =
        found != outcomes.end() ? static_cast<size_t>(found - outcomes.begin()) : outcomes.size() - 1;
    ++commands_ended[index];
    whole_ms += static_cast<uint64_t>(command.took_ms);
    const auto took = static_cast<uint32_t>(std::min<int64_t>(command.took_ms, UINT32_MAX));
    if (took > slowest_ms)
        slowest_ms = took; // no race: only one thread ends commands
    if (command.result != AT_OK)
        tell(command, outcomes[index]);
}

void count_reports(std::string_view text)
{
    const std::scoped_lock lock(prefix_mutex);
    while (!text.empty()) {
        const size_t end = std::min(text.find_first_of("\r\n"), text.size());
        const std::string_view prefix = prefix_of(text.substr(0, end));
        if (!prefix.empty())
            count_prefix(prefix);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

void counters_status(status_text &text)
{
    uint32_t all = 0;
    for (size_t i = 0; i < outcomes.size(); ++i) {
        const uint32_t count = commands_ended[i];
        all += count;
        if (count != 0 || outcomes[i].result == AT_OK)
            text.add("commands.%s %u", outcomes[i].name, count);
    }
    const auto sum = static_cast<unsigned long long>(whole_ms);
    text.add("commands.all %u", all);
    text.add("commands.sum_ms %llu", sum);
    text.add("commands.mean_ms %llu", all != 0 ? sum / all : 0);
    text.add("commands.slowest_ms %u", slowest_ms.load());
    text.add("commands.withdrawn %u", counters.withdrawn.load());
    text.add("lost.messages %u", counters.messages_lost.load());
    text.add("lost.text %u", counters.text_lost.load());
    text.add("lost.log_lines %llu", static_cast<unsigned long long>(log_sink_lost()));
    text.add("clients.refused %u", counters.clients_refused.load());
    text.add("requests.refused %u", counters.requests_refused.load());
    text.add("modem.losses %u", counters.modem_losses.load());
    text.add("modem.restorations %u", counters.restorations.load());
    text.add("modem.unknown_lines %u", counters.unknown_lines.load());
    const std::scoped_lock lock(prefix_mutex);
    if (other_reports != 0)
        text.add("reports.other %u", other_reports);
    for (size_t i = 0; i < prefix_count; ++i)
        text.add("reports.%s %u", prefixes[i].prefix, prefixes[i].count);
}
