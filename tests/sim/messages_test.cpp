// Short messages: stored, listed, read, deleted, sent and announced, as a client sees it.

#include "session.h"

#include <gtest/gtest.h>

using namespace modemsim;

namespace
{

/// `!` begins a message from the network: "!+123 text". A row without answer expects nothing.
struct row {
    const char *fault;
    std::string in;
    std::string out;
};

#define HELLO "00040B912120550521F300006210102100000005C8329BFD06"
#define SENT  "0011000B912120550521F30000A705C8329BFD06"

std::string play(session &one, const row &what, int &until)
{
    until += 5000;
    if (!what.in.starts_with('!'))
        return one.answer(modem_text(what.in), until);
    const std::size_t blank = what.in.find(' ');
    const std::string text = what.in.substr(blank + 1);
    EXPECT_EQ(
        what.in[1] == '!' ? one.receive_pdu(text) : one.receive_text(what.in.substr(1, blank - 1), text), "");
    return one.answer("", until);
}

void play_all(const std::vector<row> &rows, const std::string &more = "")
{
    session one(more);
    int until = 0;
    for (const row &what : rows)
        EXPECT_EQ(play(one, what, until), modem_text(what.out)) << what.fault << ": " << what.in;
}

TEST(SimulatedMessages, PduMode)
{
    play_all({
        {"all three", "AT+CMGL=4\r",
         "~+CMGL: 1,1,,24~" HELLO "~+CMGL: 2,0,,24~" HELLO "~+CMGL: 3,3,,19~" SENT "~~OK~"},
        {"listing reads", "AT+CMGL=0\rAT+CMGL\rAT+CMGL=5\r", "~OK~~OK~~ERROR~"},
        {"one", "AT+CMGR=1\rAT+CMGR=0\rAT+CMGR=4\r",
         "~+CMGR: 1,,24~" HELLO "~~OK~~+CMS ERROR: 321~~+CMS ERROR: 321~"},
        {"reading reads", "!+12 Hi", ""},
        {"reading reads", "AT+CMGR=4\rAT+CMGR=4\r",
         "~+CMGR: 0,,16~07912120550501F00402912100006210102100004002C834~~OK~"
         "~+CMGR: 1,,16~07912120550501F00402912100006210102100004002C834~~OK~"},
        {"written", "AT+CMGW=19\r" SENT "#AT+CMGW=19,0\r" SENT "#AT+CMGL=2\r",
         "~> ~+CMGW: 5~~OK~~> ~+CMGW: 6~~OK~~+CMGL: 5,2,,19~" SENT "~~OK~"},
        {"a free place is used again", "AT+CMGD=2\rAT+CMGD=2\rAT+CMGW=19\r" SENT "#AT+CMGD=51\r",
         "~OK~~OK~~> ~+CMGW: 2~~OK~~+CMS ERROR: 321~"},
        {"deleting what was read", "AT+CMGD=1,1;+CPMS?\r",
         "~+CPMS: \"SM\",4,50,\"SM\",4,50,\"SM\",4,50~~OK~"},
        {"and sent", "AT+CMGD=1,2;+CPMS?\r", "~+CPMS: \"SM\",3,50,\"SM\",3,50,\"SM\",3,50~~OK~"},
        {"and unsent", "AT+CMGD=1,3;+CPMS?\r", "~+CPMS: \"SM\",1,50,\"SM\",1,50,\"SM\",1,50~~OK~"},
        {"all", "AT+CMGD=1,4;+CPMS?\r", "~+CPMS: \"SM\",0,50,\"SM\",0,50,\"SM\",0,50~~OK~"},
        {"another memory", "AT+CPMS=\"ME\",\"SM\",\"ME\"\rAT+CPMS=\"XX\"\r",
         "~+CPMS: 0,250,0,50,0,250~~OK~~+CMS ERROR: 301~"},
    });
}

TEST(SimulatedMessages, TextMode)
{
    play_all({
        {"all", "AT+CMGF=1\rAT+CMGL=\"ALL\"\r",
         "~OK~~+CMGL: 1,\"REC READ\",\"+12025550123\",,\"26/01/01,12:00:00+00\"~Hello~"
         "+CMGL: 2,\"REC UNREAD\",\"+12025550123\",,\"26/01/01,12:00:00+00\"~Hello~"
         "+CMGL: 3,\"STO SENT\",\"+12025550123\",,~Hello~~OK~"},
        {"details", "AT+CSDH=1;+CMGR=3\rAT+CMGR=1\r",
         "~+CMGR: \"STO SENT\",\"+12025550123\",,145,17,0,0,,\"\",145,5~Hello~~OK~"
         "~+CMGR: \"REC READ\",\"+12025550123\",,\"26/01/01,12:00:00+00\",145,4,0,0,\"\",145,5~Hello~~OK~"},
        {"written and sent from there",
         "AT+CSDH=0\rAT+CMGW=\"+99\"\rBye#AT+CMGR=4\rAT+CMSS=4\rAT+CMGL=\"STO UNSENT\"\r",
         "~OK~~> ~+CMGW: 4~~OK~~+CMGR: \"STO UNSENT\",\"+99\",~Bye~~OK~~+CMSS: 12~~OK~~OK~"},
        {"what is no submit", "AT+CMSS=1\rAT+CMSS=9\r", "~+CMS ERROR: 304~~+CMS ERROR: 321~"},
        {"another alphabet is shown as octets", "!+12 Я", ""},
        {"another alphabet is shown as octets", "AT+CMGR=5\r",
         "~+CMGR: \"REC UNREAD\",\"+12\",,\"26/01/01,12:00:00+04\"~042F~~OK~"},
        {"the client's character set, both ways",
         "AT+CSCS=\"UCS2\"\rAT+CMGW=\"1\"\r00E400410021#AT+CMGR=6\rAT+CSCS=\"UTF-8\"\rAT+CMGR=6\r"
         "AT+CSCS=\"IRA\"\rAT+CMGR=6\r",
         "~OK~~> ~+CMGW: 6~~OK~~+CMGR: \"STO UNSENT\",\"1\",~00E400410021~~OK~~OK~"
         "~+CMGR: \"STO UNSENT\",\"1\",~äA!~~OK~~OK~~+CMGR: \"STO UNSENT\",\"1\",~?A!~~OK~"},
        {"too long, or not in the alphabet", "AT+CMGS=\"1\"\r" + std::string(161, 'x') + "#AT+CMGS=\"1\"\rЯ#",
         "~> ~+CMS ERROR: 305~~> ~+CMS ERROR: 305~"},
    });
}

TEST(SimulatedMessages, AnnouncedAsTheClientAsked)
{
    play_all({
        {"not at all", "!+12 Hi", ""},
        {"with its place", "AT+CNMI=2,1\r", "~OK~"},
        {"with its place", "!+12 Hi", "~+CMTI: \"SM\",5~"},
        {"whole", "AT+CNMI=2,2,0,0,0\r", "~OK~"},
        {"whole", "!+12 Hi", "~+CMT: ,16~07912120550501F00402912100006210102100004002C834~"},
        {"whole, as text", "AT+CMGF=1\r", "~OK~"},
        {"whole, as text", "!+12 Hi", "~+CMT: \"+12\",,\"26/01/01,12:00:00+04\"~Hi~"},
        {"not stored then", "AT+CPMS?\r", "~+CPMS: \"SM\",5,50,\"SM\",5,50,\"SM\",5,50~~OK~"},
        {"a flash message is shown, not stored", "AT+CMGF=0;+CNMI=2,1\r", "~OK~"},
        {"a flash message is shown, not stored",
         "!! 0004029121001062101021000040"
         "02C834",
         "~+CMT: ,16~0004029121001062101021000040"
         "02C834~"},
        {"out of range", "AT+CNMI=4\rAT+CNMI?\r", "~ERROR~~+CNMI: 2,1,0,0,0~~OK~"},
    });
}

TEST(SimulatedMessages, SentOnesComeBackAndAreReported)
{
    const std::string wanted = "0031000291210000A70148"; // asks for a report
    const std::string report = "07912120550501F0060C0291216210102100004062101021000040";
    play_all(
        {
            {"the report directly, the message with its place",
             "AT+CNMI=2,1,0,1\rAT+CMGS=10\r" + wanted + "#",
             "~OK~~> ~+CMGS: 12~~OK~~+CMTI: \"SM\",4~~+CDS: 20~" + report + "00~"},
            {"the message itself", "AT+CMGR=4\r",
             "~+CMGR: 0,,15~07912120550501F004029121000062101021000040"
             "0148~~OK~"},
            {"the report in text mode and in a place",
             "AT+CMGF=1;+CNMI=2,0,0,2\rAT+CSMP=49,167,0,0;+CMGS=\"+12\"\rH#",
             "~OK~~> ~+CMGS: 13~~OK~~+CDSI: \"SM\",6~"},
            {"read there", "AT+CMGR=6\r",
             "~+CMGR: \"REC UNREAD\",6,13,\"+12\",145,\"26/01/01,12:00:00+04\",\"26/01/01,12:00:00+04\",0~~OK~"},
            {"none asked for", "AT+CSMP=17,167,0,0;+CMGS=\"+12\"\rH#", "~> ~+CMGS: 14~~OK~"},
        },
        "set loop 1\n");
    session one;
    EXPECT_NE(one.receive_report("12", 0), "") << "nothing was sent under this reference";
    EXPECT_EQ(
        one.answer("AT+CNMI=2,1,0,1\rAT+CMGS=10\r" + wanted.substr(0, 2) + "11" + wanted.substr(4) + "\x1A",
                   5000),
        modem_text("~OK~~> ~+CMGS: 12~~OK~"));
    EXPECT_EQ(one.receive_report("12", 70), "") << "on demand, with a failure";
    EXPECT_EQ(one.answer("", 6000), modem_text("~+CDS: 20~" + report + "46~"));
}

TEST(SimulatedMessages, AFullMemoryRefusesAndALongListWaitsForItsReader)
{
    session one("forget messages\n");
    for (int i = 0; i < 50; ++i)
        ASSERT_EQ(one.receive_text("+12", std::string(160, 'x')), "");
    EXPECT_NE(one.receive_text("+12", "one more").find("full"), std::string::npos);
    EXPECT_EQ(one.receive_pdu("0G"), "that is no PDU in hexadecimal form, service centre first");
    EXPECT_EQ(one.answer("AT+CMGW=19\r" SENT "\x1A", 10), modem_text("~> ~+CMS ERROR: 322~"));
    one.receive("AT+CMGL=4\rAT\r");
    std::string all;
    do {
        one.advance(milliseconds(20));
        ASSERT_LT(one.output().size(), modem::output_high + 400);
        all += one.output();
        one.written(one.output().size());
    } while (one.next_due());
    EXPECT_NE(all.find("\r\n+CMGL: 50,0,,"), std::string::npos);
    EXPECT_TRUE(all.ends_with("\r\n\r\nOK\r\n\r\nOK\r\n"));
    one.power_up();
    one.client_opened(milliseconds(30));
    EXPECT_EQ(one.answer("AT+CMGL=4\r", 40), "\r\nOK\r\n") << "the start's messages again";
}

} // namespace
