// The modem's behaviour on a virtual clock: bytes in, bytes out.

#include "session.h"

#include <gtest/gtest.h>

using namespace modemsim;

namespace
{

constexpr char script[] = R"(
command AT+CPOL?
    line one
    line two
    repeat 2
        report ^RSSI: {i}
    end
    report +CMT: ,3\r\n00ABCD
    raw \r\n+CUSD: 0,"\x00A",72\r\n
    line three
    final OK
    final OK

command AT^NETSCAN
    stop-by AT+STOP
    delay 1s
    line found
    final OK
    delay 100ms
    report after
)";

constexpr char reports[] = R"(
after 50ms
    report ^SIMST: 1
every 100ms after 35ms
    report ^RSSI: 7
)";

struct exchange {
    const char *fault;
    std::string in;
    std::string out;
};

const exchange exchanges[] = {
    {"an echo of the line and not of the answer", "ATE1\rAT+CSQ\rATE0\rAT\r",
     "~OK~AT+CSQ\r~+CSQ: 20,99~~OK~ATE0\r~OK~~OK~"},
    {"the three ways to refuse an unknown command", "AT+X\rAT+CMEE=1\rAT+X\rAT+CMEE=2\rAT+X\r",
     "~ERROR~~OK~~+CME ERROR: 100~~OK~~+CME ERROR: unknown~"},
    {"a value is answered, one out of range not set", "AT+CREG=2\rAT+CREG=7\rAT+CREG?\r",
     "~OK~~ERROR~~+CREG: 2,1,\"1A2B\",\"0C3D4E5F\",7~~OK~"},
    {"noise gets no answer", "0011AA#\r~", ""},
    {"control characters before a line, as a break leaves them",
     "@#\x1b\x7f"
     "AT\r",
     "~OK~"},
    {"CR LF ends a line once", "AT~AT~", "~OK~~OK~"},
    {"a typing mistake can be rubbed out", "ATX\bI\b\r", "~OK~"},
    {"an endless line is refused", "AT" + std::string(1600, 'x') + "\r", "~ERROR~"},
    {"lines of one answer share a line end, reports in between do not", "AT+CPOL?\r",
     "~one~two~~^RSSI: 1~~^RSSI: 2~~+CMT: ,3~00ABCD~~+CUSD: 0,\"@A\",72~"
     "~three~~OK~~OK~"},
    {"the reference counts up", "AT+CMGS=2\r00ABCD#\rAT+CMGS=2\r00ABCD#\r",
     "~> ~+CMGS: 12~~OK~~> ~+CMGS: 13~~OK~"},
    {"a service centre counts apart", "AT+CMGW=1\r0191FF#", "~> ~+CMGW: 4~~OK~"},
    {"a PDU that is too short", "AT+CMGS=3\r00ABCD#", "~> ~+CMS ERROR: 304~"},
    {"a PDU that is no hexadecimal text", "AT^HCMGS=2\r00ABxD#", "~> ~+CMS ERROR: 304~"},
    {"ESC leaves the prompt", "AT+CMGS=2\r00A\x1b\rAT\r", "~> ~OK~~OK~"},
    {"commands of a line share a result", "AT+CSQ;+CREG?;+CMEE=1;+CMEE?\r",
     "~+CSQ: 20,99~~+CREG: 0,1,\"1A2B\",\"0C3D4E5F\",7~~+CMEE: 1~~OK~"},
    {"a command that fails ends its line", "AT+CMEE=1;+X;+CSQ\rAT+CMGR=9;+CSQ\r",
     "~+CME ERROR: 100~~+CMS ERROR: 321~"},
    {"a separator in quotes is text", "AT+CCLK=\"a;b\";+CCLK?\r", "~+CCLK: \"a;b\"~~OK~"},
    {"a call keeps its semicolon", "AT+CMEE=1;D123;\r", "~OK~"},
    {"a captured text of the whole line must not stay", "AT+CSMP=1,2,0,0;+CSMP?\r", "~+CSMP: 1,2,0,0~~OK~"},
    {"basic commands on one line", "ATE0V1&D2&C1S0=0\rATQ0 V1 E0 S0=3 &C1 &D2\rATS0?\rATE0V1Y7\r",
     "~OK~~OK~~3~~OK~~ERROR~"},
    {"what terminal programs begin with", "AT S7=45 S0=0 L1 V1 X4 &c1 E0 Q0\r", "~OK~"},
    {"nothing but separators", "AT;;\rAT \r", "~OK~~OK~"},
    {"results as numbers", "ATV0\rAT+CSQ\rATX9\rATD1\rAT+CIMI=\rATD*99#\r", "0\r+CSQ: 20,99~0\r4\r3\r4\r1\r"},
    {"no results", "ATQ1\rATX9\rAT+CSQ\rATQ0\r", "~+CSQ: 20,99~~OK~"},
    {"other ends of lines", "ATS4=33S3=59\rAT+CSQ;", ";!OK;!;!+CSQ: 20,99;!;!OK;!"},
    {"a setting that is no character", "ATS3=999\rAT\r", "~OK~~OK~"},
    {"the phone book in pieces", "AT+CPBR=18,19\rAT+CPBR=3\rAT+CPBR=1,251\r",
     "~+CPBR: 18,\"+12025550118\",145,\"Entry 18\"~+CPBR: 19,\"+12025550119\",145,\"CONNECT Ltd\"~~OK~"
     "~+CPBR: 3,\"+1202555013\",145,\"Entry 3\"~~OK~~+CME ERROR: 21~"},
    {"names in the client's character set", "AT+CSCS=\"UCS2\"\rAT+CPBR=20\r",
     "~OK~~+CPBR: 20,\"112\",129,\"00520049004E0047002C0020004F004B\"~~OK~"},
    {"a report must not hold the next command up", "AT+CUSD=1,\"*100#\",15\rAT\r",
     "~OK~~OK~~+CUSD: 0,\"Your balance is 10.00\",15~"},
    {"a command in the prompt is text", "AT+CMGS=\"1\"\rAT\r#", "~> ~+CMGS: 12~~OK~"},
};

TEST(SimulatedModem, ExchangesWholeAndByteByByte)
{
    for (const exchange &row : exchanges) {
        SCOPED_TRACE(row.fault);
        const std::string expected = modem_text(row.out);
        session whole(script), bytes(script);
        EXPECT_EQ(whole.answer(modem_text(row.in), 1000), expected);
        std::string out;
        for (const char c : modem_text(row.in))
            out += bytes.answer({&c, 1}, 0);
        EXPECT_EQ(out + bytes.answer("", 1000), expected);
    }
}

TEST(SimulatedModem, AWrongPinCostsATryAndTheLastOneThePin)
{
    const exchange rows[] = {
        {"locked", "AT+CIMI\rAT+CPIN?\r", "~+CME ERROR: 11~~+CPIN: SIM PIN~~OK~"},
        {"two wrong ones", "AT+CPIN=0000\rAT+CPIN=\"1111\"\rAT^CPIN?\r",
         "~+CME ERROR: 16~~+CME ERROR: 16~~^CPIN: SIM PIN,1,10,1,10,3~~OK~"},
        {"the right one gives all tries back", "AT+CPIN=1234\rAT+CPINR=\"SIM PIN\"\rAT+CPIN=1234\r",
         "~OK~~+CPINR: SIM PIN,3,3~+CPINR: SIM PUK,10,10~~OK~~+CME ERROR: 3~~^SIMST: 1~"},
        {"changed and used up",
         "AT+CPWD=\"SC\",\"1234\",\"99\"\rAT+CLCK=\"SC\",1,\"1\"\rAT+CPWD=\"SC\",\"1\",\"2\"\r"
         "AT+CLCK=\"SC\",0,\"3\"\rAT+CPIN?\r",
         "~OK~~+CME ERROR: 16~~+CME ERROR: 16~~+CME ERROR: 16~~+CPIN: SIM PUK~~OK~"},
        {"PUK and a new PIN", "AT+CPIN=1,2\rAT+CPIN=\"12345678\",\"4321\"\rAT+CPIN?\r",
         "~+CME ERROR: 16~~OK~~+CPIN: READY~~OK~"},
    };
    session one("set cpin SIM PIN\n");
    int until = 0;
    for (const exchange &row : rows)
        EXPECT_EQ(one.answer(modem_text(row.in), until += 1000), modem_text(row.out)) << row.fault;
}

TEST(SimulatedModem, AnyByteEndsASearchAndIsDropped)
{
    session one;
    EXPECT_EQ(one.answer("AT+COPS=?\r\n", 1000), "") << "the line feed belongs to the command";
    EXPECT_EQ(one.answer("AT+CSQ\r", 1000), "\r\nOK\r\n");
    EXPECT_EQ(one.answer("AT\r", 1500), "\r\nOK\r\n");
    EXPECT_NE(one.answer("AT+COPS=?\r", 3500).find("Example Test"), std::string::npos) << "let alone";
}

TEST(SimulatedModem, DataFlowUntilThreePlusBetweenSilences)
{
    struct {
        const char *in;
        int until;
        const char *out;
    } const steps[] = {
        {"ATO\r", 1, "~NO CARRIER~"},
        {"ATE1\rATD*99#\r", 200, "~OK~ATD*99#\r~CONNECT 150000000~"},
        {"AT\r~+++", 3000, "AT\r~+++"}, // no silence before
        {"+++", 3500, "+++"},
        {"x", 5000, "x"}, // no silence behind
        {"++++", 7000, "++++"},
        {"+", 7500, "+"},
        {"+", 8200, "+"},
        {"+", 9199, "+"},
        {"", 9200, "~OK~"},
        {"AT\rATO\r", 9300, "AT\r~OK~ATO\r~CONNECT~"},
        {"", 10300, ""},
        {"+++", 11300, "+++~OK~"},
        {"ATH\rATO\r", 11400, "ATH\r~OK~ATO\r~NO CARRIER~"},
        {"ATD*99#\r", 11600, "ATD*99#\r~CONNECT 150000000~"},
    };
    session one(reports);
    one.answer("", 150);
    session quiet;
    for (const auto &step : steps)
        EXPECT_EQ(quiet.answer(modem_text(step.in), step.until), modem_text(step.out)) << step.until;
    EXPECT_TRUE(quiet.hang_up());
    EXPECT_FALSE(quiet.hang_up()) << "once only";
    EXPECT_EQ(quiet.answer("AT\r", 11700), modem_text("~NO CARRIER~AT\r~OK~"));
    EXPECT_EQ(one.answer("ATD*99#\r", 1000),
              modem_text("~CONNECT 150000000~").insert(0, modem_text("~^RSSI: 7~")))
        << "reports must not come between data";
    one.client_closed();
    one.client_opened(milliseconds(1001));
    EXPECT_EQ(one.answer("AT\r", 1010), "\r\nOK\r\n") << "the connection went with its client";
}

TEST(SimulatedModem, LatencyStandsBeforeEachAnswer)
{
    session one("set latency 100ms\n");
    EXPECT_EQ(one.answer("AT+CSQ;+CSQ\r", 99), "");
    EXPECT_EQ(one.answer("", 100), "\r\n+CSQ: 20,99\r\n\r\n+CSQ: 20,99\r\n\r\nOK\r\n");
    EXPECT_EQ(one.answer("AT+X\r", 199), "") << "a refusal too";
    EXPECT_EQ(one.answer("AT+CMGW=2\r", 300), "\r\nERROR\r\n\r\n> ");
    EXPECT_EQ(one.answer("00ABCD\x1A", 399), "");
    EXPECT_EQ(one.answer("", 400), "\r\n+CMGW: 4\r\n\r\nOK\r\n");
}

TEST(SimulatedModem, ConditionsChooseStepsInAnswersRepeatsAndSchedules)
{
    session one(R"(
set level 3
command AT+IF={x}
    if x = a
        line equal
    else
        if x != b
            line other
        end
        line not a
    end
    repeat 2
        if x >= {i}
            line {i}
        else
            line -{i}
        end
    end
    count level -1
    final OK
every 1s
    if level < 1
        report empty
    else
        report {level}
    end
)");
    EXPECT_EQ(one.answer("AT+IF=a\r", 1000), modem_text("~equal~-1~-2~~OK~~2~"));
    EXPECT_EQ(one.answer("AT+IF=b\r", 2000), modem_text("~not a~-1~-2~~OK~~1~"));
    EXPECT_EQ(one.answer("AT+IF=1\r", 3000), modem_text("~other~not a~1~-2~~OK~~empty~"));
}

TEST(SimulatedModem, TheBuiltInReportsComeEveryTwoSeconds)
{
    session one("", "include default\n");
    EXPECT_EQ(one.answer("", 999), "");
    EXPECT_EQ(
        one.answer("", 10000),
        modem_text("~^SIMST: 1~~^HCSQ: \"LTE\",50,40,90,20~~^RSSI: 20~~+CREG: 1,\"1A2B\",\"0C3D4E5F\",7~"
                   "~^HCSQ: \"LTE\",53,42,93,20~~^HCSQ: \"LTE\",50,40,90,20~"));
}

TEST(SimulatedModem, ReportsDueWhileNobodyReadsAreLostAndAnswersWait)
{
    session one(reports);
    one.receive("AT+CMGL=4\r");
    for (int at = 0; at <= 200000; at += 50)
        one.advance(milliseconds(at));
    EXPECT_LT(one.output().size(), modem::output_high + 100);
    EXPECT_GE(one.output().size(), modem::output_high);
    one.receive("AT+CSQ\r");
    one.advance(milliseconds(200010));
    EXPECT_FALSE(one.report("RING")) << "nobody would read it";
    const std::string unread(one.output());
    EXPECT_EQ(unread.find("+CSQ"), std::string::npos) << "no room yet";
    one.written(unread.size());
    one.now = milliseconds(200020);
    EXPECT_EQ(one.answer("", 200030), "\r\n+CSQ: 20,99\r\n\r\nOK\r\n");
    EXPECT_EQ(one.answer("", 200050), "\r\n^RSSI: 7\r\n") << "the next one is in time again";
}

TEST(SimulatedModem, AScanIsStoppedOnceAndOvertakesTheQueue)
{
    session one(script);
    EXPECT_EQ(one.answer("AT^NETSCAN\rAT\rat+stop\rAT+STOP\r", 50), modem_text("~OK~"));
    EXPECT_EQ(one.answer("", 2000), modem_text("~after~~OK~~OK~")) << "the queued commands";
    EXPECT_EQ(one.answer("AT^NETSCAN\r", 3050), modem_text("~found~~OK~")) << "a scan that is let alone";
    EXPECT_EQ(one.answer("AT+STOP\r", 3500), modem_text("~after~~OK~")) << "too late to stop it";
}

TEST(SimulatedModem, SchedulesCountFromTheFirstClientAndGoOnWithoutOne)
{
    session one(reports);
    EXPECT_EQ(one.answer("", 210), "\r\n^RSSI: 7\r\n\r\n^SIMST: 1\r\n\r\n^RSSI: 7\r\n");
    one.client_closed();
    EXPECT_EQ(one.answer("", 410), "") << "nobody there";
    one.client_opened(milliseconds(420));
    EXPECT_EQ(one.answer("ATE1\rAT+CMGS=2\r", 510), "\r\nOK\r\nAT+CMGS=2\r\r\n> \r\n^RSSI: 7\r\n");
    one.client_closed();
    one.client_opened(milliseconds(520));
    EXPECT_EQ(one.answer("AT\r", 530), "AT\r\r\nOK\r\n") << "the prompt ended with its client";
    one.silence(true);
    EXPECT_EQ(one.answer("AT\r", 830), "");
    one.power_up();
    one.client_opened(milliseconds(840));
    EXPECT_EQ(one.answer("AT\r", 841), "\r\nOK\r\n") << "start values again: no echo, not silent";
}

TEST(SimulatedModem, OutputThatNobodyReadsIsBoundedAndNothingIsLost)
{
    session one;
    one.flood(100000, "^RSSI: {i}");
    one.receive("AT\r");
    std::string all;
    do {
        one.advance(milliseconds(0));
        ASSERT_LT(one.output().size(), modem::output_high + 100);
        all += one.output();
        one.written(one.output().size());
    } while (one.next_due());
    EXPECT_NE(all.find("\r\n^RSSI: 99999\r\n\r\n^RSSI: 100000\r\n"), std::string::npos);
    EXPECT_NE(all.find("\r\nOK\r\n"), std::string::npos) << "commands are served in between";
    EXPECT_FALSE(one.state().answering);
}

} // namespace
