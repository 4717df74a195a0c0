#include <regex>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <pty.h>

#include "../process.h"
#include "fake_daemon.h"
#include "vlk_reports.h"

namespace
{
using nlohmann::json;
using std::string;
using testing::HasSubstr;

constexpr int NO_REQUEST = -100; // the daemon is not asked

/// Runs beside the test; standard error goes where standard output goes.
struct vlkctl : process {
    explicit vlkctl(const string &arguments) : process({"/bin/sh", "-c", VLKCTL " " + arguments + " 2>&1"}) {}
};

struct VlkctlProgram : testing::Test {
    fake_daemon daemon;

    /// Runs it, answers its request and expects this exit code. Returns what it said.
    string run(const string &arguments, std::string_view response, int32_t ret_val, int exit_code)
    {
        vlkctl running(arguments);
        if (ret_val != NO_REQUEST)
            daemon.answer(daemon.take(), response, ret_val);
        EXPECT_EQ(running.wait(), exit_code) << arguments;
        return running.out;
    }
};

TEST_F(VlkctlProgram, ExitCodesAndOutputSayHowACommandEnded)
{
    struct {
        const char *arguments;
        const char *response;
        int32_t ret_val;
        int exit_code;
        const char *shown;
    } const cases[] = {
        {"at AT+X", "begun", 5, 1, "begun\nvlkctl: ERROR\n"},
        {"at 'ATD*99#'", "", 11, 0, "vlkctl: CONNECT\n"},
        {"sms save 000102", "+CMS ERROR: 304", 4, 1, "vlkctl: +CMS ERROR: 304\n"},
        {"at AT --timeout 0", "", NO_REQUEST, 2, "--timeout"},
        {"at AT --raw --multi-line --expect X", "", NO_REQUEST, 2, "--multi-line"},
        {"at AT --wait nan", "", NO_REQUEST, 2, "--wait"},
        {"at AT+X --wait 0.05", "", NO_REQUEST, 3, "no reply in time"},
    };
    for (const auto &c : cases)
        EXPECT_THAT(run(c.arguments, c.response, c.ret_val, c.exit_code), HasSubstr(c.shown)) << c.arguments;

    vlkctl late("at AT+X");
    const at_cmd_msg request = daemon.take();
    daemon.set_modem("released", "restart the daemon");
    daemon.answer(request, "", AT_COMMAND_NOT_SUPPORT);
    EXPECT_EQ(late.wait(), 6);
    EXPECT_THAT(late.out, HasSubstr("could not be written (modem: released)"));
    EXPECT_THAT(run("at AT+X", "", NO_REQUEST, 7), HasSubstr("the modem is released: restart the daemon"));
    EXPECT_THAT(run("at AT+X --wait-modem 0.2", "", NO_REQUEST, 7), HasSubstr("the modem is released"));
}

TEST_F(VlkctlProgram, JsonStaysValidWhateverTheModemSays)
{
    const string odd = "+X: \"\xFF\xC3\x1B\x01\\";
    const string shown = run("at AT+X --json --multi-line --expect +X", odd + "\r\n" + odd + "\r\n", 2, 0);
    const json reply = json::parse(shown, nullptr, false);
    EXPECT_EQ(reply.value("command", ""), "AT+X");
    EXPECT_EQ(reply.value("result", json()), (json{{"code", 2}, {"text", "OK"}}));
    EXPECT_EQ(reply.value("lines", json(2)).at(1), "+X: \"\uFFFD\uFFFD\x1B\x01\\");
    EXPECT_THAT(run("--runtime-dir /nowhere at AT --json", "", NO_REQUEST, 4),
                HasSubstr("\n{\"error\":\"no daemon is running in /nowhere"));
}

TEST_F(VlkctlProgram, ATerminalIsNotControlledByTheModem)
{
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        execl(VLKCTL, VLKCTL, "at", "AT+X", nullptr);
        _exit(127);
    }
    daemon.answer(daemon.take(), "a\x1B[2J\x07\xC2\x9B", AT_OK);
    string shown;
    char byte = 0;
    while (read(terminal, &byte, 1) == 1)
        shown += byte;
    waitpid(child, nullptr, 0);
    close(terminal);
    EXPECT_EQ(shown, "a\\x1B[2J\\x07\\xC2\\x9B\r\n");
}

template <typename record>
string bytes(const record &from)
{
    return {reinterpret_cast<const char *>(&from), sizeof from};
}

/// Bytes to a module or, when the target is no number, to a service of the bus.
host_packet packet_to(const string &target, uint32_t code)
{
    const int module = std::atoi(target.c_str());
    host_packet packet{module == 0 ? HOST_BUS_MESSAGE : HOST_EVENT_DATA, module, code, 0, 0, 0, "", 0};
    if (module == 0)
        target.copy(packet.name, sizeof packet.name - 1);
    return packet;
}

TEST_F(VlkctlProgram, MonitorReadsEveryRecordOfTheDaemon)
{
    struct {
        const char *target;
        uint32_t code;
        string data;
        const char *shown; // at the line's end
    } const cases[] = {
        {"1", 1008, bytes(vlk_sms_index{0, "SM", -3}), R"( +CMTI mem="SM" index=-3)"},
        {"1", 1008, bytes(vlk_sms_content{1, 65535, "00"}), R"( +CMT length=65535 pdu="00")"},
        {"1", 1008, bytes(vlk_sms_index{2, "fifteen letters", 1}), R"( +CDSI mem="fifteen letters" index=1)"},
        {"1", 1008, bytes(vlk_sms_content{4, 1, ""}), R"( +CBM length=1 pdu="")"},
        {"1", 1010, bytes(vlk_hcmgss{42, 7, {}}), " ^HCMGSS mr=7"},
        {"1", 1010, bytes(vlk_hcmgsf{43, -5}), " ^HCMGSF errCode=-5"},
        {"2", 2003, bytes(vlk_cusd{-1, "a\0\"\n\xE9", 600, 15, 0}),
         R"( rspType=-1 cusdStr="a\x00\x22\x0A\xE9" cusdStr_length=600 codeType=15)"},
        {"6", 6001, bytes(vlk_sim_states{-1, 2}), " sim_state=-1 lock_state=2"},
        {"7", 7056, bytes(vlk_netscan{-95, 12, 0}), " 5grsrp=-95 5grssnr=12"},
        {"9", 4047, bytes(vlk_nwtime{30, 20, 10, 31, 5, 2024, {}, -32, 0}),
         " year=2024 month=5 day=31 hour=10 minute=20 second=30 time_zone=-32"},
        {"18", 18002, bytes(vlk_dsflow{UINT32_MAX, 1, 2, 0, UINT64_MAX, 3, 4, 5}),
         " curr_ds_time=4294967295 tx_rate=1 rx_rate=2 curr_tx_flow=18446744073709551615 curr_rx_flow=3 "
         "qos_tx_rate=4 qos_rx_rate=5"},
        {"18", 18034, bytes(vlk_cell_identity{"0C3D4E5F"}), R"( ci="0C3D4E5F")"},
        {"19", 19016, bytes(vlk_hcsq{-1, 1, 2, 3, 4, 5}),
         " sysmode=-1 value1=1 value2=2 value3=3 value4=4 value5=5"},
        {"19", 19034,
         bytes(vlk_cerssi{{}, -1, -2, -3, -4, -5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 0}),
         " rssi=-1 rscp=-2 ecio=-3 rsrp=-4 rsrq=-5 rssnr=6 ri=7 cqi0=8 cqi1=9 rfnum=10 rsrp1=11 rsrp2=12 "
         "rsrp3=13 rsrp4=14 sinr1=15 sinr2=16 sinr3=17 sinr4=18"},
        {"19", 19036, bytes(vlk_lendc{{1, 2, 3, 4, 5}, 0}),
         " endc_available=2 endc_plmn_available=3 endc_restricted=4 nr_pscell=5"},
        {"19", 19039, bytes(vlk_rrcstat{1, -2, 0}), " state=-2"},
        {"27", 27003, bytes(vlk_simst{10, {255, 1}}), " sim_state=255 lock_state=1"},
        {"33", 33001, bytes(vlk_stin{255, 1, 2, {}}), " cmdTpye=255 cmdIndex=1 isTimeOut=2"},
        {"74", 9004, bytes(vlk_factory_reset{5}), " value=5"},
        {"103", 103002, bytes(vlk_line_index{"line-a", {}, {4, -7}, 2, -2}),
         R"( first_field="line-a" indexList=[4,-7,0,0,0,0,0,0,0,0] loop=2)"},
        {"103", 103003, bytes(vlk_hsrcellinfo{5, "12345", 1, {}, 0, -345, 12}),
         R"( Rat=5 cell_id="12345" HighSpeedFlg=1 CellIdLowBit=-345 CellIdHighBit=12)"},
        {"106", 31007, bytes(vlk_rejinfo{59, "00101", 1, 2, 3, 4, 5, "1A2B", "05", "01C3", -6, {}}),
         R"( plmnid="00101" srvdomain=1 rejectcause=2 rattype=3 rejectType=4 rejectOriginalCause=5 )"
         R"(rejectLac="1A2B" rejectRac="05" rejectCellId="01C3" rejectEsmCause=-6)"},
        {"cms", 34843, bytes(vlk_dsflow_stats{1, UINT32_MAX, 2, 3}),
         " peak_tx_rate=1 peak_rx_rate=4294967295 curr_tx_flow=2 curr_rx_flow=3"},
        {"dialup", 166660, bytes(vlk_connection{2, -33}), " cid=2 cause=-33"},
        {"dialup", 166661, bytes(vlk_network_state{-5}), " ^MODE/^SRVST state=-5"},
        {"lpm", 91393, bytes(vlk_dsflow_rates{1, UINT32_MAX}), " tx_rate=1 rx_rate=4294967295"},
        {"lpm", 91394, bytes(vlk_hfreqinfo{6, 3, 100, -1}), " sysmode=6 band_class=3 dl_bw1=100 ul_bw1=-1"},
        {"lpm", 91395, bytes(vlk_signal_levels{-1, -2, -3, -4, -5, 6, 7}),
         " rssi=-1 rscp=-2 ecio=-3 rsrp=-4 rsrq=-5 rssnr=6 ri=7"},
        {"lpm", 91396, bytes(vlk_cserssi{{}, -95, -11, 18}), " 5grsrp=-95 5grsrq=-11 5grssnr=18"},
        {"lpm", 91397, bytes(vlk_endc{1, 2, 3, 4, 5}),
         " endc_available=2 endc_plmn_available=3 endc_restricted=4 nr_pscell=5"},
    };
    vlkctl monitor("monitor --count " + std::to_string(std::size(cases)));
    daemon.subscribe_listener();
    for (const auto &c : cases)
        daemon.send(packet_to(c.target, c.code), c.data);
    monitor.wait();
    std::istringstream lines(monitor.out);
    string line;
    std::getline(lines, line); // "listening"
    for (const auto &c : cases) {
        std::getline(lines, line);
        const string fields = line.substr(0, line.find(" = ")); // what it means stands behind
        EXPECT_THAT(fields, testing::EndsWith(c.shown)) << c.code;
    }
}

TEST_F(VlkctlProgram, MonitorShowsAMessagesSenderAndText)
{
    const char *const pdu = "07912120550501F0040A9194511132540000621010210000400BC8329BFD06D1D1657919";
    vlk_sms_content arrived{1, 28, ""};
    strcpy(arrived.pdu, pdu);
    vlkctl monitor("monitor --count 1");
    daemon.subscribe_listener();
    daemon.send(packet_to("1", 1008), bytes(arrived));
    EXPECT_EQ(monitor.wait(), 0);
    EXPECT_THAT(monitor.out, HasSubstr(string(pdu) + "\" = \"from +4915112345: Hello there\""));
}

TEST_F(VlkctlProgram, MonitorNamesWhatItKnowsAndHidesNothing)
{
    const auto send_all = [this] {
        daemon.subscribe_listener();
        daemon.send({HOST_EVENT_DATA, 7, 7056, 0, 0, 4, "", 0}, bytes(vlk_netscan{-95, 12, 0}));
        daemon.send(packet_to("7", 7056), "\x01\xAB");
        daemon.send(packet_to("1", 1010), {"\x63\0\0\0\0\0\0\0", 8}); // no such report id
        daemon.send(packet_to("dialup", 166661));
        daemon.send({HOST_EVENT, 19, 19005, 5, -4, 0, "", 0});
        daemon.send({HOST_EVENT, 75, 16052, 0, 0, 0, "", 0});
        daemon.send({HOST_EVENT, 5, 77, -1, 2, 0, "", 0});
    };
    vlkctl text("monitor --count 8 --seconds 0.5");
    send_all();
    EXPECT_EQ(text.wait(), 3);
    const std::regex time("(^|\n)[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} ");
    EXPECT_EQ(std::regex_replace(text.out, time, "$1"),
              "vlkctl: listening\n"
              "4 missed\n"
              "event net (7) 7056 EVT_NET_SCAN ^NETSCAN 5grsrp=-95 5grssnr=12\n"
              "event net (7) 7056 EVT_NET_SCAN data 2 01AB (data of an unknown layout)\n"
              "event sms (1) 1010 EVT_SMS_SEND_RESULT data 8 6300000000000000 (data of an unknown layout)\n"
              "bus dialup 166661 MSG_NETWORK_STATE +CREG/+CGREG/+C5GREG\n"
              "event radio (19) 19005 EVT_SYSTEM_MODE ^MODE/^LCACELLURC sys_mode=5 sys_submode=-4\n"
              "event module 75 16052 EVT_SIM_UNUSABLE ^SIMST\n"
              "event module 5 77 values -1 2\n"
              "vlkctl: only 7 came in time\n");

    vlkctl objects("monitor --module 7 --json");
    send_all();
    daemon.hang_up();
    EXPECT_EQ(objects.wait(), 4) << "the daemon has gone";
    std::istringstream lines(objects.out);
    string line;
    std::getline(lines, line); // "listening"
    std::getline(lines, line);
    json object = json::parse(line, nullptr, false);
    EXPECT_EQ(object.value("time", "").size(), string("2026-01-31T15:04:05.123+0100").size());
    object.erase("time");
    EXPECT_EQ(object, json::parse(R"(
        {"kind": "event", "module": 7, "module_name": "net", "event": 7056, "name": "EVT_NET_SCAN",
         "reports": "^NETSCAN", "fields": {"5grsrp": -95, "5grssnr": 12}, "length": 12,
         "data": "A1FFFFFF0C00000000000000", "missed": 4})"));
}
} // namespace
