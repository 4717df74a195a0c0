// The line side of a port: what programs type and see, and what the modem is asked meanwhile.
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "port_line.h"

namespace
{
using std::string;
using std::string_view;

constexpr const char *PDU = "0011000B912120550521F30000A705C8329BFD06"; // 19 octets behind its service centre
const string DELIVERED = "00040B912120550521F300006210102100000005C8329BFD06";

/// A modem that knows these lines and answers everything else with ERROR.
const std::map<string, port_reply> MODEM = {
    {"AT", {{}, "OK"}},
    {"ATI", {{"Maker", "+GCAP: +CGSM"}, "OK"}},
    {"ATD123;", {{}, "OK"}},
    {"ATH", {{}, "OK"}},
    {"AT+CSQ", {{"+CSQ: 20,99"}, "OK"}},
    {"AT+COPN=\"a;b\"", {{}, "OK"}},
    {"AT+CPIN?", {{}, "+CME ERROR: 10"}},
    {"AT+XXXX", {{}, "+CME ERROR: 4711"}},
    {"AT+YYYY", {{}, "COMMAND NOT SUPPORT"}},
    {"AT+CREG?", {{"+CREG: 2,1,\"1A2B\",\"0C3D4E5F\",7"}, "OK"}},
    {"AT+CNMI?", {{"+CNMI: 0,0,0,0,0"}, "OK"}},
    {"AT+CNMI=2,1,0,1,0", {{}, "OK"}},
    {"AT+CLIP?", {{"+CLIP: 0,1"}, "OK"}},
    {"AT+CLIP=1", {{}, "OK"}},
    {"AT+CUSD=1,\"*100#\",15", {{}, "OK"}},
    {"AT+CMGL=4", {{"+CMGL: 1,0,,24", DELIVERED}, "OK"}},
    {"AT+CMGR=1", {{"+CMGR: 1,,24", DELIVERED}, "OK"}},
    {"AT+CMGR=7", {{}, "+CMS ERROR: 321"}},
    {"AT+CSCS=\"UCS2\"", {{}, "OK"}},
    {"AT+CPMS=\"ME\"", {{"+CPMS: 1,50,2,50,3,50"}, "OK"}},
    {"AT+CPMS=\"XX\"", {{}, "+CMS ERROR: 302"}},
    {"AT+CPMS=\"ME\";+CMGD=3", {{"+CPMS: 1,50,2,50,3,50"}, "OK"}},
    {"AT+CMGD=3", {{}, "OK"}},
    {"AT+CPMS=\"SM\";+CMGR=1", {{"+CPMS: 1,50,2,50,3,50", "+CMGR: 0,,24", DELIVERED}, "OK"}},
    {string("AT+CMGS=19 ") + PDU, {{"+CMGS: 12"}, "OK"}},
    {string("AT+CMGC=19 ") + PDU, {{"+CMGC: 13"}, "OK"}},
    {string("AT+CMGW=19,2 ") + PDU, {{"+CMGW: 3"}, "OK"}},
};

struct dialogue {
    const char *fault; // that this row catches
    string typed;
    std::vector<string> asked; // of the modem
    string shown;
};

/// A port whose requests the modem above answers at once.
class served_port
{
public:
    served_port() { line.open(); }

    void type(string_view bytes)
    {
        line.take(bytes);
        while (const port_request *request = line.request()) {
            asked.push_back(request->line + (request->pdu.empty() ? "" : " " + request->pdu));
            const auto known = MODEM.find(asked.back());
            line.reply(known == MODEM.end() ? port_reply{{}, "ERROR"} : known->second);
        }
        shown += line.take_output();
    }

    void report(string_view text)
    {
        line.report(text);
        type("");
    }

    port_line line{true};
    std::vector<string> asked;
    string shown;
};

constexpr const char *OK = "\r\nOK\r\n";
constexpr const char *ERROR = "\r\nERROR\r\n";

void expect(const dialogue &row, size_t piece, size_t first)
{
    served_port port;
    port.type(string_view(row.typed).substr(0, first));
    for (size_t at = first; at < row.typed.size(); at += piece)
        port.type(string_view(row.typed).substr(at, piece));
    EXPECT_EQ(port.asked, row.asked) << row.fault << ", cut at " << first << ", by " << piece;
    EXPECT_EQ(port.shown, row.shown) << row.fault << ", cut at " << first << ", by " << piece;
}

/// Whole, byte by byte and cut at each position: how bytes arrive must not matter.
void expect_all(const std::vector<dialogue> &rows)
{
    for (const dialogue &row : rows) {
        expect(row, row.typed.size() + 1, 0);
        expect(row, 1, 0);
        for (size_t cut = 1; cut < row.typed.size(); cut++)
            expect(row, row.typed.size(), cut);
    }
}

TEST(PortLine, EditsAsAModemDoes)
{
    expect_all({
        {"no echo before the answer", "AT\r", {"AT"}, string("AT\r") + OK},
        {"LF ends a line, or is echoed", "AT\r\n\n", {"AT"}, string("AT\r") + OK},
        {"bare CRs are answered", "\r\r", {}, "\r\r"},
        {"what stands before AT stays",
         "\x1B\rxAT+CSQ\r",
         {"AT+CSQ"},
         string("\x1B\rxAT+CSQ\r\r\n+CSQ: 20,99\r\n") + OK},
        {"a line without AT is answered", "hello\r", {}, "hello\r"},
        {"backspace stays in the line",
         "AT+CSX\bQ\r",
         {"AT+CSQ"},
         string("AT+CSX\b \bQ\r\r\n+CSQ: 20,99\r\n") + OK},
        {"backspace leaves the line",
         "\b\x7F"
         "AT\r",
         {"AT"},
         string("AT\r") + OK},
        {"A/ waits for CR, or repeats nothing",
         "AT+CSQ\ra/",
         {"AT+CSQ", "AT+CSQ"},
         string("AT+CSQ\r\r\n+CSQ: 20,99\r\n") + OK + "a/\r\n+CSQ: 20,99\r\n" + OK},
        {"A/ within a command", "AT+XA/\r", {"AT+XA/"}, string("AT+XA/\r") + ERROR},
        {"lower case is passed on changed", "at+xyzzy\r", {"AT+xyzzy"}, string("at+xyzzy\r") + ERROR},
    });
    served_port port;
    port.type("AT" + string(5000, 'x') + "\r");
    EXPECT_TRUE(port.shown.ends_with(ERROR)) << "a line that is too long is cut and asked";
    EXPECT_TRUE(port.asked.empty());
}

TEST(PortLine, KeepsBasicCommandsToItself)
{
    expect_all({
        {"several on one line", "ATE0V1&D2&C1S0=0\r", {}, string("ATE0V1&D2&C1S0=0\r") + OK},
        {"blanks between them", "ATQ0 V1 E1 S0=0 &C1 &D2\r", {}, string("ATQ0 V1 E1 S0=0 &C1 &D2\r") + OK},
        {"a modem program's init string",
         "AT S7=45 S0=0 L1 V1 X4 &c1 E1 Q0\r",
         {},
         string("AT S7=45 S0=0 L1 V1 X4 &c1 E1 Q0\r") + OK},
        {"E0 keeps echoing",
         "ATE0\rAT+CSQ\r",
         {"AT+CSQ"},
         string("ATE0\r") + OK + "\r\n+CSQ: 20,99\r\n" + OK},
        {"V0 keeps words",
         "ATE0V0\rAT+CSQ\rATD1\rAT+NONE\r",
         {"AT+CSQ", "AT+NONE"},
         "ATE0V0\r0\r+CSQ: 20,99\r\n0\r3\r4\r"},
        {"Q1 keeps results", "ATE0Q1\rAT+CSQ\r", {"AT+CSQ"}, "ATE0Q1\r"},
        {"S3 and S4 change nothing",
         "ATE0S4=33\rAT+CSQ\r",
         {"AT+CSQ"},
         "ATE0S4=33\r\r!OK\r!\r!+CSQ: 20,99\r!\r!OK\r!"},
        {"registers are forgotten",
         "ATE0S7=45S7?S3?\r",
         {},
         string("ATE0S7=45S7?S3?\r\r\n045\r\n\r\n013\r\n") + OK},
        {"a value that is none is taken",
         "ATE0\rATE2\rATS3=200\rATS300=1\r",
         {},
         string("ATE0\r") + OK + ERROR + ERROR + ERROR},
        {"Z and &F reach the modem, or reset nothing",
         "ATE0\rATZ\rAT&F\r",
         {},
         string("ATE0\r") + OK + OK + "AT&F\r" + OK},
        {"speed and flow control reach the modem",
         "ATE0+IPR=9600;+IFC=2,2;+IPR?\r",
         {},
         string("ATE0+IPR=9600;+IFC=2,2;+IPR?\r\r\n+IPR: 9600\r\n") + OK},
    });
}

TEST(PortLine, SharesNoDataCall)
{
    expect_all({
        {"a data call", "ATDT*99#\r", {}, "ATDT*99#\r\r\nNO CARRIER\r\n"},
        {"what follows a failed dial",
         "ATD*99***1#\rAT\r",
         {"AT"},
         string("ATD*99***1#\r\r\nNO CARRIER\r\nAT\r") + OK},
        {"a voice call is refused", "ATD123;\r", {"ATD123;"}, string("ATD123;\r") + OK},
        {"back to data mode", "ATO\r", {}, "ATO\r\r\nNO CARRIER\r\n"},
        {"multiplexer", "AT+CMUX=0\r", {}, string("AT+CMUX=0\r") + ERROR},
        {"a data call by name", "AT+CGDATA=\"PPP\",1\r", {}, "AT+CGDATA=\"PPP\",1\r\r\nNO CARRIER\r\n"},
    });
}

TEST(PortLine, DividesChains)
{
    expect_all({
        {"one request for all",
         "ATE0+CSQ;I;+CREG?\r",
         {"AT+CSQ", "ATI", "AT+CREG?"},
         string(
             "ATE0+CSQ;I;+CREG?\r\r\n+CSQ: 20,99\r\n\r\nMaker\r\n+GCAP: +CGSM\r\n\r\n+CREG: 2,1,\"1A2B\",\"0C3D4E5F\",7\r\n") +
             OK},
        {"goes on behind an error",
         "ATE0+CSQ;+CPIN?;+CSQ\r",
         {"AT+CSQ", "AT+CPIN?"},
         string("ATE0+CSQ;+CPIN?;+CSQ\r\r\n+CSQ: 20,99\r\n") + ERROR},
        {"a ; between quotes", "AT+COPN=\"a;b\";\r", {"AT+COPN=\"a;b\""}, string("AT+COPN=\"a;b\";\r") + OK},
        {"only separators", "AT;;\r", {}, string("AT;;\r") + OK},
        {"an unknown final result", "AT+YYYY\r", {"AT+YYYY"}, string("AT+YYYY\r") + ERROR},
    });
}

TEST(PortLine, TellsErrorsAsThisProgramAsked)
{
    expect_all({
        {"numbers unasked", "AT+CPIN?\r", {"AT+CPIN?"}, string("AT+CPIN?\r") + ERROR},
        {"numbers",
         "ATE0+CMEE=1;+CMEE?;+CPIN?\r",
         {"AT+CPIN?"},
         "ATE0+CMEE=1;+CMEE?;+CPIN?\r\r\n+CMEE: 1\r\n\r\n+CME ERROR: 10\r\n"},
        {"words",
         "ATE0+CMEE=2;+CPIN?\rAT+XXXX\r",
         {"AT+CPIN?", "AT+XXXX"},
         "ATE0+CMEE=2;+CPIN?\r\r\n+CME ERROR: SIM not inserted\r\n\r\n+CME ERROR: 4711\r\n"},
        {"+CMEE reaches the modem",
         "AT+CMEE=?\rAT+CMEE=3\r",
         {},
         string("AT+CMEE=?\r\r\n+CMEE: (0-2)\r\n") + OK + "AT+CMEE=3\r" + ERROR},
    });
}

TEST(PortLine, TakesMessagesAtAPrompt)
{
    const string prompt = "ATE0\r" + string(OK) + "\r\n> ";
    expect_all({
        {"the exchange, at any pace",
         string("ATE0\rAT+CMGS=19\r") + PDU + "\x1A",
         {string("AT+CMGS=19 ") + PDU},
         prompt + "\r\n+CMGS: 12\r\n" + OK},
        {"echo of the PDU",
         string("AT+CMGS=19\r") + PDU + "\x1A",
         {string("AT+CMGS=19 ") + PDU},
         string("AT+CMGS=19\r\r\n> ") + PDU + "\r\n+CMGS: 12\r\n" + OK},
        {"storing with a state",
         string("ATE0\rAT+CMGW=19,2\r") + PDU + "\x1A",
         {string("AT+CMGW=19,2 ") + PDU},
         prompt + "\r\n+CMGW: 3\r\n" + OK},
        {"a command about a message is kept back",
         string("ATE0\rAT+CMGC=19\r") + PDU + "\x1A",
         {string("AT+CMGC=19 ") + PDU},
         prompt + "\r\n+CMGC: 13\r\n" + OK},
        {"its data is taken for a text in text mode",
         "ATE0\rAT+CMGF=1;+CMGC=2,0\r",
         {},
         string("ATE0\r") + OK + "\r\n+CMS ERROR: 302\r\n"},
        {"ESC sends", string("ATE0\rAT+CMGS=19\r00\x1B") + "AT\r", {"AT"}, prompt + OK + OK},
        {"another length than announced",
         string("ATE0\rAT+CMGS=20\r") + PDU + "\x1A",
         {},
         prompt + "\r\n+CMS ERROR: 304\r\n"},
        {"no digits", "ATE0\rAT+CMGS=1\r00AT\x1A", {}, prompt + "\r\n+CMS ERROR: 304\r\n"},
        {"a service centre longer than the PDU",
         "ATE0\rAT+CMGS=1\rFF00\x1A",
         {},
         prompt + "\r\n+CMS ERROR: 304\r\n"},
        {"a text's number while in PDU mode",
         "ATE0\rAT+CMGS=\"1\"\r",
         {},
         string("ATE0\r") + OK + "\r\n+CMS ERROR: 304\r\n"},
        {"an acknowledgement reaches the modem",
         string("ATE0\rAT+CNMA=1,19\r") + PDU + "\x1A" + "AT+CNMA\r",
         {},
         prompt + OK + OK},
    });
    served_port port;
    port.type("ATE0\rAT+CMGS=19\r" + string(9000, '0') + "\x1A");
    EXPECT_TRUE(port.shown.ends_with("\r\n+CMS ERROR: 304\r\n")) << "a text without end is kept without end";
}

TEST(PortLine, TranslatesTextMode)
{
    const string begin = "ATE0+CMGF=1\r";
    expect_all({
        {"a text",
         begin + "AT+CMGS=\"+12025550123\"\rHellx\bo\x1A",
         {string("AT+CMGS=19 ") + PDU},
         begin + OK + "\r\n> \r\n+CMGS: 12\r\n" + OK},
        {"its type of number",
         begin + "AT+CMGS=\"12025550123\",145\rHello\x1A",
         {string("AT+CMGS=19 ") + PDU},
         begin + OK + "\r\n> \r\n+CMGS: 12\r\n" + OK},
        {"UCS-2 typed in digits",
         begin +
             "AT+CSCS=\"UCS2\"\rAT+CMGS=\"002B00310032003000320035003500350030003100320033\"\r00480065006C006C006F\x1A",
         {"AT+CSCS=\"UCS2\"", string("AT+CMGS=19 ") + PDU},
         begin + OK + OK + "\r\n> \r\n+CMGS: 12\r\n" + OK},
        {"no number", begin + "AT+CMGS=\"x\"\rHello\x1A", {}, begin + OK + "\r\n> \r\n+CMS ERROR: 305\r\n"},
        {"more than one message",
         begin + "AT+CMGS=\"1\"\r" + string(161, 'x') + "\x1A",
         {},
         begin + OK + "\r\n> \r\n+CMS ERROR: 305\r\n"},
        {"a list",
         begin + "AT+CMGL=\"ALL\"\r",
         {"AT+CMGL=4"},
         begin + OK + "\r\n+CMGL: 1,\"REC UNREAD\",\"+12025550123\",,\"26/01/01,12:00:00+00\"\r\nHello\r\n" +
             OK},
        {"a list that there is not", begin + "AT+CMGL=4\r", {}, begin + OK + "\r\n+CMS ERROR: 305\r\n"},
        {"one message with details",
         begin + "AT+CSDH=1;+CMGR=1\r",
         {"AT+CMGR=1"},
         begin + OK +
             "\r\n+CMGR: \"REC READ\",\"+12025550123\",,\"26/01/01,12:00:00+00\",145,4,0,0,\"\",129,5\r\nHello\r\n" +
             OK},
        {"an error on the way", begin + "AT+CMGR=7\r", {"AT+CMGR=7"}, begin + OK + "\r\n+CMS ERROR: 321\r\n"},
    });
}

TEST(PortLine, KeepsSettingsApart)
{
    expect_all({
        {"another's larger value is lowered",
         "ATE0+CREG=1;+CREG?\r",
         {"AT+CREG?", "AT+CREG?"},
         string("ATE0+CREG=1;+CREG?\r\r\n+CREG: 1,1\r\n") + OK},
        {"switching off reaches the modem",
         "ATE0+CNMI=0,0\rAT+CNMI?\r",
         {"AT+CNMI?"},
         string("ATE0+CNMI=0,0\r") + OK + "\r\n+CNMI: 0,0,0,0,0\r\n" + OK},
        {"direct delivery reaches the modem",
         "ATE0+CNMI=1,2,0,1,0\r",
         {"AT+CNMI?", "AT+CNMI=2,1,0,1,0"},
         string("ATE0+CNMI=1,2,0,1,0\r") + OK},
        {"the modem is not switched on",
         "ATE0+CLIP=1;+CLIP?\r",
         {"AT+CLIP?", "AT+CLIP=1", "AT+CLIP?"},
         string("ATE0+CLIP=1;+CLIP?\r\r\n+CLIP: 1,1\r\n") + OK},
        {"what does more than switch is kept back",
         "ATE0+CUSD=1,\"*100#\",15\r",
         {"AT+CUSD=1,\"*100#\",15"},
         string("ATE0+CUSD=1,\"*100#\",15\r") + OK},
        {"a refused setting is remembered",
         "ATE0+CPMS=\"XX\"\rAT+CMGD=3\r",
         {"AT+CPMS=\"XX\"", "AT+CMGD=3"},
         string("ATE0+CPMS=\"XX\"\r\r\n+CMS ERROR: 302\r\n") + OK},
        {"another's memory is deleted from",
         "ATE0+CPMS=\"ME\"\rAT+CMGD=3\r",
         {"AT+CPMS=\"ME\"", "AT+CPMS=\"ME\";+CMGD=3"},
         string("ATE0+CPMS=\"ME\"\r\r\n+CPMS: 1,50,2,50,3,50\r\n") + OK + OK},
    });
}

TEST(PortLine, ShowsReportsBetweenAnswers)
{
    port_line line(true);
    line.open();
    const auto shown = [&](string_view typed) {
        line.take(typed);
        return line.take_output();
    };
    shown("ATE0\r");
    line.report("+CREG: 1,\"1A2B\",\"0C3D4E5F\",7");
    EXPECT_EQ(line.take_output(), "\r\n+CREG: 1,\"1A2B\",\"0C3D4E5F\",7\r\n")
        << "untouched until the program sets its own";

    shown("AT+CSQ\r");
    line.report("RING");
    EXPECT_EQ(line.take_output(), "") << "inside an answer";
    line.reply({{"+CSQ: 20,99"}, "OK"});
    EXPECT_EQ(line.take_output(), "\r\n+CSQ: 20,99\r\n\r\nOK\r\n\r\nRING\r\n");

    shown("AT+CMGS=19\r");
    line.report("RING");
    EXPECT_EQ(line.take_output(), "") << "during a prompt";
    EXPECT_EQ(shown("\x1B"), "\r\nOK\r\n\r\nRING\r\n");

    shown("ATV0\r");
    line.report("RING");
    EXPECT_EQ(line.take_output(), "2\r");
    shown("ATQ1\r");
    line.report("RING");
    EXPECT_EQ(line.take_output(), "");

    port_line quiet(false);
    quiet.open();
    quiet.report("RING");
    EXPECT_EQ(quiet.take_output(), "") << "without reports";
}

TEST(PortLine, ShowsEachProgramTheReportsThatItAskedFor)
{
    struct row {
        const char *fault;
        const char *setting;
        string report;
        string shown;
    };
    const row rows[] = {
        {"announcement without asking", "AT+CNMI=0,0\r", "+CMTI: \"SM\",1", ""},
        {"announcement", "AT+CNMI=2,1\r", "+CMTI: \"SM\",1", "\r\n+CMTI: \"SM\",1\r\n"},
        {"the message itself", "AT+CNMI=1,2\r", "+CMTI: \"SM\",1", "\r\n+CMT: ,24\r\n" + DELIVERED + "\r\n"},
        {"the message itself, in text mode", "AT+CMGF=1;+CNMI=1,2\r", "+CMTI: \"SM\",1",
         "\r\n+CMT: \"+12025550123\",,\"26/01/01,12:00:00+00\"\r\nHello\r\n"},
        {"a place that holds a command", "AT+CNMI=1,2\r", "+CMTI: \"SM\",1;+CFUN=0", ""},
        {"a memory that holds a command", "AT+CNMI=1,2\r", "+CMTI: \"SM\";+CFUN=0\",1", ""},
        {"a place that is none", "AT+CNMI=1,2\r", "+CMTI: nonsense", ""},
        {"a status report unasked", "AT+CNMI=2,1,0,0\r", "+CDS: 25\r\n00", ""},
        {"more of the place than asked for", "AT+CREG=1\r", "+CREG: 1,\"1A2B\",\"0C3D4E5F\",7",
         "\r\n+CREG: 1\r\n"},
        {"all of the place", "AT+CREG=2\r", "+CREG: 1,\"1A2B\"", "\r\n+CREG: 1,\"1A2B\"\r\n"},
        {"a call in its long form", "AT+CRC=0\r", "+CRING: VOICE", "\r\nRING\r\n"},
        {"what nobody can set", "AT+CREG=0\r", "^RSSI: 20", "\r\n^RSSI: 20\r\n"},
    };
    for (const row &r : rows) {
        served_port port;
        port.type("ATE0\r");
        port.type(r.setting);
        port.shown.clear();
        port.report(r.report);
        EXPECT_EQ(port.shown, r.shown) << r.fault;
    }
}

TEST(PortLine, StartsAnewForEachProgram)
{
    port_line line(true);
    line.open();
    line.take("ATE0V0Q1+CMGF=1;+CMEE=2;+CNMI=0,0\rAT+CS");
    line.take("Q\rAT+TYPED=");
    ASSERT_NE(line.request(), nullptr);
    line.open();
    EXPECT_EQ(line.request(), nullptr) << "an answer for somebody who has gone";
    line.reply({{"+CSQ: 20,99"}, "OK"});
    EXPECT_EQ(line.take_output(), "");
    line.take("AT+CMEE?;+CMGF?\r");
    EXPECT_EQ(line.take_output(), "AT+CMEE?;+CMGF?\r\r\n+CMEE: 0\r\n\r\n+CMGF: 0\r\n\r\nOK\r\n");
    line.report("+CMTI: \"SM\",1");
    EXPECT_EQ(line.take_output(), "\r\n+CMTI: \"SM\",1\r\n");
}

TEST(PortLine, TakesNoMoreThanItsRoomWhileACommandRuns)
{
    port_line line(true);
    line.open();
    line.take("AT+CSQ\r");
    EXPECT_TRUE(line.has_room());
    line.take(string(port_line::INPUT_MAX, '\r'));
    EXPECT_FALSE(line.has_room());
    line.reply({{}, "OK"});
    EXPECT_TRUE(line.has_room());
    for (int i = 0; i < 10000; i++) // nobody reads its answers, and reports go on
        line.report("^RSSI: " + std::to_string(i));
    EXPECT_EQ(line.request(), nullptr);
}
} // namespace
