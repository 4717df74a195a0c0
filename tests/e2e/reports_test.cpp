// One report of each prefix in the middle of a multi-line command: what a separate process is told, and that the
// command's response is untouched.
#include "system.h"

#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace
{

/// A report as the simulator sends it ("raw": bytes of its own) and what leaves the daemon, in order: "module/event
/// value value", "module/event #bytes of data", "destination/type #bytes".
struct report_case {
    const char *line;
    std::vector<std::string> told;
};

const std::vector<std::string> registration = {"dialup/166661 #0", "19/19008 0 0", "19/19035 0 0",
                                               "9/9055 0 0", "18/18034 #32"};

std::vector<std::string> with(const char *first, std::vector<std::string> rest, const char *last)
{
    if (*first != '\0')
        rest.insert(rest.begin(), first);
    if (*last != '\0')
        rest.emplace_back(last);
    return rest;
}

const std::vector<report_case> reports = {
    {"+CMTI: \"SM\",3", {"1/1008 #24"}},
    {"+CMT: ,24\\r\\n00040B912120550521F300006210102100000005C8329BFD06", {"1/1008 #518"}},
    {"+CDSI: \"ME\",1", {"1/1008 #24"}},
    {"+CDS: 25\\r\\n0006D60B911326880736F4111011719551401110117195714000", {"1/1008 #518"}},
    {"+CBM: 88\\r\\n001000130001", {"1/1008 #518"}},
    {"^SMMEMFULL: \"SM\"", {"1/1001 #0"}},
    {"RING", {}},
    {"^DATACONNECT: 1", {}}, // CONNECT at the start of a line is a final result
    {"+CLIP: \"+12025550123\",145", {}},
    {"^SRVST: 2", {"dialup/166661 #4", "9/9040 0 0"}},
    {"^SIMST: 1,1",
     {"27/27003 #12", "75/16052 0 0", "1/1023 0 0", "19/19007 1 1", "9/9010 1 1", "6/6001 #8", "4/4082 1 1"}},
    {"^MODE: 5,4", {"dialup/166661 #4", "19/19005 5 4"}},
    {"^RSSI: 21", {}},
    {"^DSFLOWRPT: 0000000A,00000010,00000020,0000000000000100,0000000000000200,00000000,00000000",
     {"18/18002 #40", "lpm/91393 #8"}},
    {"+CREG: 1,\"1A2B\",\"0C3D4E5F\",7", registration},
    {"^CEND: 1,0,67", {}},
    {"^CONN: 1,0", {}},
    {"^CONF: 1", {}},
    {"^ORIG: 1,0", {}},
    {"^ECLSTAT: 1", {}},
    {"^EARST: 1", {}},
    {"+CCWA: \"+12025550123\",145,1", {}},
    {"+CSSI: 1", {}},
    {"+CSSU: 1", {}},
    {"+COLP: \"+12025550123\",145", {}},
    {"+CUSD: 0,\"two\\r\\nlines, one comma\",15", {"2/2003 #528"}},
    {"^DCONN: 1,\"IPV4\"", {"dialup/166657 #8"}},
    {"^DEND: 1,\"IPV6\"", {"dialup/166660 #8"}},
    {"^APDIALUPRPT: 1", {}},
    {"^APDHCP: 1", {}},
    {"^APDIALM: 1", {}},
    {"^APCURPROF: 1", {}},
    {"^APPROFRD: 1", {}},
    {"^APWIFIBS: 1", {}},
    {"^APWIFISEC: 1", {}},
    {"+CGREG: 5", with("106/106000 5 0", registration, "")},
    {"+C5GREG: 1,\"1A\",\"2B\",11", with("", registration, "106/106001 1 0")},
    {"^TIME: 1", {}},
    {"^NWTIME: \"24/05/31\",\"10:20:30+32\"", {"9/4047 #52"}},
    {"+CTZV: 32", {}},
    {"^FACTORY: 1", {"9/9004 1 0"}},
    {"^APROAMRPT: 1", {"7/7013 0 0"}},
    {"^CARDLOCKNTY: NO LOCK", {}},
    {"^HCMGSS: 7", {"1/1010 #518"}},
    {"^HCMGSF: 500", {"1/1010 #8"}},
    {"^ANLEVEL: 4,-80", {"19/19011 4 0"}},
    {"^NORSTFACT: 1", {"74/9004 #4"}},
    {"^TEMPPRT: 2,85", {"9/31000 2 85"}},
    {"^STIN: 37,1,0", {"33/33001 #8"}},
    {"^HCSQ: \"LTE\",50,40,90,20", {"19/19016 #24", "behavior/188943 #24"}},
    {"^CERSSI: -70,-80,-6", {"19/19034 #84", "lpm/91395 #28"}},
    {"^EONS: 1", {"7/7022 0 0"}},
    {"^LTESIGLEV: 3", {}},
    {"^HFREQINFO: 6,3,1300,18300,200,19300,19300,200", {"lpm/91394 #16"}},
    {"^WAKEUPIN: 1", {"55/55013 1 -1"}},
    {"^NDISSTATEX: 2,1,0,,\"IPV4\"", {"dialup/166657 #8"}},
    {"^XLEMA: 1", {}},
    {"^NDISSTAT: 0,33,,\"IPV6\"", {"dialup/166660 #8"}},
    {"^REJINFO: 00101,2,15,2", {"19/31007 #1028", "106/31007 #1028"}},
    {"^PLMN: 001,01", {}},
    {"^MMIENTER: 1", {"cms/34844 #0"}},
    {"^CCALLSTATE: 1", {}},
    {"^EXSIMST: 1", {}},
    {"^IMSIREFRESH: 1", {}},
    {"IRING: 1", {}},
    {"^CCWA: 1", {}},
    {"^CSCHANNELINFO: 1", {}},
    {"^LCACELLURC: 1", {"19/19005 0 0"}},
    {"^SIMREFRESH: 2", {"7/7044 2 0", "1/1022 0 0", "4/4110 0 0", "9/9058 0 0", "1/1022 0 0"}},
    {"^CPBREADY: 1", {"9/9059 0 0"}},
    {"^LENDC: 1,1,0,1", {"19/19036 #24", "lpm/91397 #20"}},
    {"^NETSCAN: -95,12", {"7/7056 #12"}},
    {"^RRCSTAT: 1", {"19/19039 #12"}},
    {"^REPORTLINERPLMN: 00101", {"103/103001 101 0"}},
    {"^REPORTLINEINDEX: north,4,7,9", {"103/103002 #60"}},
    {"^HSRCELLINFO: 5,1,345,12", {"103/103003 #52"}},
    {"^CSERSSI: -90,-10,20", {"lpm/91396 #40"}},
};

std::string summary(const nlohmann::json &packet)
{
    std::ostringstream text;
    if (packet.at("kind") == "bus")
        text << packet.at("destination").get<std::string>() << '/' << packet.at("type");
    else
        text << packet.at("module") << '/' << packet.at("event");
    if (packet.contains("values"))
        text << ' ' << packet.at("values")[0] << ' ' << packet.at("values")[1];
    else
        text << " #" << packet.at("length");
    return text.str();
}

} // namespace

TEST(Reports, OneOfEachInTheMiddleOfACommandReachesItsServices)
{
    system_under_test system;
    std::vector<std::string> expected;
    {
        std::ofstream dialogue(system.folder + "/dialogue");
        dialogue << "include default\nforget reports\ncommand AT+ALL\n    line +ALL: 1,first\n";
        for (const report_case &row : reports) {
            dialogue << "    report " << row.line << "\n";
            expected.insert(expected.end(), row.told.begin(), row.told.end());
        }
        dialogue << "    line +ALL: 2,last\n    final OK\n";
    }
    for (const char *split : {"none", "random", "1"}) {
        system.start_modem({"--dialogue", system.folder + "/dialogue", "--split", split});
        system.start_daemon();
        ASSERT_EQ(system.vlkctl({"at", "AT"}).code, 0); // the daemon's own start is over
        const auto monitor = system.start_vlkctl(
            {"monitor", "--json", "--count", std::to_string(expected.size()), "--seconds", "20"});
        ASSERT_TRUE(monitor->wait_for_error("listening"));

        const outcome seen =
            system.vlkctl({"at", "AT+ALL", "--expect", "+ALL:", "--multi-line", "--timeout", "20"});
        EXPECT_EQ(seen.code, 0) << seen.err;
        EXPECT_EQ(seen.out, "+ALL: 1,first\n+ALL: 2,last\n") << split;

        EXPECT_EQ(monitor->wait(), 0) << monitor->err;
        std::vector<std::string> told;
        std::istringstream lines(monitor->out);
        for (std::string line; std::getline(lines, line);) {
            const nlohmann::json packet = nlohmann::json::parse(line);
            EXPECT_TRUE(packet.contains("fields")) << "not decoded: " << line;
            told.push_back(summary(packet));
        }
        EXPECT_THAT(told, testing::ElementsAreArray(expected)) << split;
        EXPECT_EQ(system.vlkctl({"rssi"}).out, "^RSSI: 21\n");
        system.daemon.reset();
        system.modem.reset();
    }
}
