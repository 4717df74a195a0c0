// What is counted of commands and reports.
#include <array>
#include <string>

#include <gmock/gmock.h>

#include "at_cmd_msg.h"
#include "host_counters.h"
#include "host_place.h"

namespace
{
using testing::HasSubstr;
using testing::Not;

std::string status()
{
    std::array<char, 4096> room;
    status_text text(room);
    counters_status(text);
    return {room.data(), text.size()};
}

TEST(Counters, ReportsAreCountedByPrefix)
{
    count_reports("\r\n+CREG: 1\r\n\r\n^HCSQ:\"LTE\",1\r\nRING\r\n+CREG: 2");
    count_reports("\r\nOK\r\n\r\n^SIMST: 1\r\n");
    count_reports("+CME ERROR: 100\r\n+: 1\r\n+creg: 1\r\n+A" + std::string(100, 'B') + ": 1\r\nOK\r\n");
    EXPECT_EQ(status().substr(status().find("reports.")),
              "reports.+CREG 2\nreports.^HCSQ 1\nreports.RING 1\nreports.^SIMST 1\n");
    EXPECT_THAT(status(), HasSubstr("modem.unknown_lines 0\n"));
    for (int n = 0; n < 1000; ++n) // a modem that invents prefixes
        count_reports("+X" + std::to_string(n) + ": 1\r\n");
    EXPECT_THAT(status(), HasSubstr("reports.other 908\n"));
    EXPECT_THAT(status(), HasSubstr("modem.unknown_lines 1000\n"));
    count_reports("+CREG: 1\r\n+X1: 1\r\n+X999: 1\r\n");
    EXPECT_THAT(status(), HasSubstr("modem.unknown_lines 1002\n"));
}

TEST(Counters, CommandsAreToldWhenTheyFailAndByTheirName)
{
    const host_place place;
    const time_t second = time(nullptr); // a line may need a second's share that is not used up
    while (time(nullptr) == second) {}
    testing::internal::CaptureStderr();
    const struct {
        int32_t result;
        int64_t took_ms;
    } ended[] = {{AT_OK, 10}, {AT_OK, 30}, {AT_NONE, 5000}, {AT_ERROR, 60}, {AT_BUSY, 0}, {77, 0}};
    for (const auto &row : ended)
        count_command({"AT+CPIN", row.result, row.took_ms, 812, "dialup"});
    count_command({"", AT_NONE, 9000, 812, "no command, as a request for a stored report"});
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_THAT(log,
                HasSubstr("warning AT+CPIN was not answered in 5 s; asked by process 812 (dialup): give"));
    EXPECT_THAT(log, HasSubstr("notice  the modem refused AT+CPIN after 0 s (error); asked by process 812"));
    for (const char *silent : {"OK", "busy", "stored report"})
        EXPECT_THAT(log, Not(HasSubstr(silent)));
    EXPECT_THAT(status(), HasSubstr("commands.ok 2\ncommands.timeout 1\ncommands.error 1\ncommands.busy 1\n"
                                    "commands.other 1\ncommands.all 6\ncommands.sum_ms 5100\n"
                                    "commands.mean_ms 850\ncommands.slowest_ms 5000\n"));
}

} // namespace
