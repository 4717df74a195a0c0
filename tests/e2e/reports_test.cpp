// Reports of every kind in the middle of a multi-line command: what a separate process is told, and that the command's
// response is untouched.
#include "system.h"

#include <algorithm>
#include <sstream>

#include <nlohmann/json.hpp>

namespace
{

using nlohmann::json;
using namespace std::string_literals;

/// A report as the simulator sends it and what leaves the daemon, in order: "module/event value value", "module/event
/// #bytes of data", "destination/type #bytes".
struct report_case {
    const char *line;
    const char *told;
};

const report_case reports[] = {
    {"+CMTI: \"SM\",3", "1/1008 #24"},
    {"+CMT: ,24\\r\\n00040B912120550521F300006210102100000005C8329BFD06", "1/1008 #518"},
    {"+CBM: 88\\r\\n001000130001", "1/1008 #518"},
    {"^SRVST: 2", "dialup/166661 #4, 9/9040 0 0"},
    {"^SIMST: 1,1",
     "27/27003 #12, 75/16052 0 0, 1/1023 0 0, 19/19007 1 1, 9/9010 1 1, 6/6001 #8, 4/4082 1 1"},
    {"^DSFLOWRPT: 0000000A,00000010,00000020,0000000000000100,0000000000000200,00000000,00000000",
     "18/18002 #40, lpm/91393 #8"},
    {"+CREG: 1,\"1A2B\",\"0C3D4E5F\",7",
     "dialup/166661 #0, 19/19008 0 0, 19/19035 0 0, 9/9055 0 0, 18/18034 #32"},
    {"+CUSD: 0,\"two\\r\\nlines, one comma\",15", "2/2003 #528"},
    {"^DCONN: 1,\"IPV4\"", "dialup/166657 #8"},
    {"^NWTIME: \"24/05/31\",\"10:20:30+32\"", "9/4047 #52"},
    {"^HCMGSS: 7", "1/1010 #518"},
    {"^TEMPPRT: 2,85", "9/31000 2 85"},
    {"^HCSQ: \"LTE\",50,40,90,20", "19/19016 #24, behavior/188943 #24"},
    {"^CERSSI: -70,-80,-6", "19/19034 #84, lpm/91395 #28"},
    {"^WAKEUPIN: 1", "55/55013 1 -1"},
    {"^REJINFO: 00101,2,15,2", "19/31007 #1028, 106/31007 #1028"},
    {"^MMIENTER: 1", "cms/34844 #0"},
};

/// Reports that nobody is told of, and that are no response either.
const char silent[] = "RING|IRING: 1|^DATACONNECT: 1|^RSSI: 21|+CLIP: \"1202\",145|^CARDLOCKNTY: NO LOCK|";

std::string summary(const json &packet)
{
    const bool on_bus = packet.contains("destination");
    const std::string target = on_bus ? packet["destination"].get<std::string>() : packet.at("module").dump();
    return target + "/" + packet.at(on_bus ? "type" : "event").dump() +
           (packet.contains("values") ? " " + packet["values"][0].dump() + " " + packet["values"][1].dump()
                                      : " #" + packet.at("length").dump());
}

} // namespace

TEST(Reports, InTheMiddleOfACommandReachesItsServices)
{
    system_under_test system;
    std::string answer = "command AT+ALL\n    line +ALL: 1,first\n", expected;
    for (const report_case &row : reports) {
        answer += "    report "s + row.line + "\n";
        expected += row.told + ", "s;
    }
    std::istringstream others(silent);
    for (std::string line; std::getline(others, line, '|');)
        answer += "    report " + line + "\n";
    const auto packets = std::to_string(std::ranges::count(expected, ','));
    for (const char *split : {"none", "random", "1"}) {
        system.start_modem(answer + "    line +ALL: 2,last\n    final OK\n", split);
        system.start_daemon();
        ASSERT_EQ(system.vlkctl({"at", "AT"}).code, 0); // the daemon's own start is over
        const auto monitor =
            system.start_vlkctl({"monitor", "--json", "--count", packets, "--seconds", "20"});
        ASSERT_TRUE(monitor->wait_for_error("listening"));

        const outcome seen =
            system.vlkctl({"at", "AT+ALL", "--expect", "+ALL:", "--multi-line", "--timeout", "20"});
        EXPECT_EQ(seen.code, 0) << seen.err;
        EXPECT_EQ(seen.out, "+ALL: 1,first\n+ALL: 2,last\n") << split;

        EXPECT_EQ(monitor->wait(), 0) << monitor->err;
        std::string told;
        std::istringstream lines(monitor->out);
        for (std::string line; std::getline(lines, line);) {
            const json packet = json::parse(line);
            EXPECT_TRUE(packet.contains("fields")) << "not decoded: " << line;
            told += summary(packet) + ", ";
        }
        EXPECT_EQ(told, expected) << split;
        EXPECT_EQ(system.vlkctl({"rssi"}).out, "^RSSI: 21\n");
        system.daemon.reset();
        system.modem.reset();
    }
}
