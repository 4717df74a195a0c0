#include "core_test.h"

using testing::Each;

namespace
{

using ResponseAssembly = daemon_test;

constexpr int32_t TEXT_LENGTH = -1;

struct assembly_case {
    const char *fault;
    int collected;
    std::string match;
    std::string chunks;
    int32_t ret_val; // 99 before
    std::string rmsg;
    int32_t rsp_len = TEXT_LENGTH; // 77 before
    std::size_t told = 0;          // notifications
};

at_cmd_msg record_before(int collected, const std::string &match)
{
    at_cmd_msg msg = command("AT", match, 0, collected);
    msg.snd_rcv_msg.ret_val = 99;
    msg.snd_rcv_msg.rsp_len = 77;
    return msg;
}

void check(const std::vector<assembly_case> &cases)
{
    check_each(cases, [](const assembly_case &each) {
        at_cmd_msg msg = record_before(each.collected, each.match);
        feed(msg, modem_chunks(each.chunks));
        const std::string text = modem_text(each.rmsg);
        const bool whole = each.rsp_len == TEXT_LENGTH;
        EXPECT_EQ(msg.snd_rcv_msg.ret_val, each.ret_val);
        EXPECT_EQ(std::string(msg.snd_rcv_msg.rmsg, 1500), text + repeat(0, 1500 - text.size()));
        EXPECT_EQ(msg.snd_rcv_msg.rsp_len, whole ? text.size() : static_cast<std::size_t>(each.rsp_len));
        EXPECT_EQ(fake::calls().size(), each.told);
        if (!whole)
            return;
        at_cmd_msg next = record_before(PLAIN, "");
        feed(next, {"OK\r\n"});
        EXPECT_EQ(next.snd_rcv_msg.rsp_len, 0u) << "the collection is empty";
    });
}

std::string x(std::size_t count)
{
    return repeat('x', count);
}

/// An expected line.
std::string m(std::size_t count)
{
    return "+M:" + repeat('m', count - 3);
}

} // namespace

TEST_F(ResponseAssembly, CollectsByMode)
{
    check({
        {"plain joins lines", PLAIN, "", "ab~cd~OK~", 2, "abcd"},
        {"plain keeps what came before an error", PLAIN, "", "foo~ERROR~", 5, "foo"},
        {"plain error with cause", PLAIN, "", "foo~+CME ERROR: 10~", 3, "+CME ERROR: 10"},
        {"multi keeps expected lines apart", MULTI, "+X:", "+X: 1,2~+X: 2,2~OK~", 2, "+X: 1,2~+X: 2,2~"},
        {"multi joins other lines", MULTI, "+X:", "+X: 1~foo~bar~OK~", 2, "+X: 1~foobar"},
        {"multi discards at an error", MULTI, "+X:", "+X: 1~foo~ERROR~", 5, ""},
        {"raw keeps line ends", RAW, "", "+CSQ: 20,99~~OK~", 2, "+CSQ: 20,99~~OK~"},
        {"raw stores expected lines plain", RAW, "+CSQ:", "+CSQ: 20,99~OK~", 2, "+CSQ: 20,99~OK~"},
        {"raw frames an error behind its text", RAW, "", "foo~ERROR~", 5, "foo~~ERROR~"},
        {"raw and multi: the frame joins the text", MULTI_RAW, "+X:", "+X: 1~foo~OK~", 2, "+X: 1~foo~OK~"},
        {"raw and multi: an error discards", MULTI_RAW, "+X:", "+X: 1~ERROR~", 5, "~ERROR~"},
        {"other modes drop lines, not reports", OTHER, "+X:", "+X: 1~foo~+CMTI: 1~OK~", 2, "", 0, 1},
        {"other modes keep a cause", OTHER, "", "foo~+CME ERROR: 10~", 3, "+CME ERROR: 10"},
    });
}

TEST_F(ResponseAssembly, AsksItsQuestionsInOrder)
{
    const std::string endless = repeat('M', 64);
    check({
        {"card state before the expected prefix", PLAIN, "^CPINNTY:", "^CPINNTY:READY~OK~", 2, ""},
        {"the expected prefix before a report", PLAIN, "+CMTI:", "+CMTI: 1~OK~", 2, "+CMTI: 1"},
        {"the expected prefix before a result", PLAIN, "ERR", "ERROR X~OK~", 2, "ERROR X"},
        {"an expected OK never ends", PLAIN, "OK", "OK~", 99, "", 77},
        {"a prefix of 63 bytes counts to its last", MULTI, repeat('M', 63),
         repeat('M', 62) + "N~" + repeat('M', 63) + "~OK~", 2, repeat('M', 62) + "N" + repeat('M', 63) + "~"},
        {"a prefix without end", PLAIN, endless, "x" + endless + "~MMM~OK~", 2, "x" + endless + "MMM"},
        {"a result before a report", PLAIN, "", "CONNECT 9600~", 11, ""},
        {"the pass goes on behind a card state", PLAIN, "+X:", "+X: 1~^CPINNTY:READY~b~OK~", 2, "+X: 1b"},
        {"a second OK is text", PLAIN, "", "a~OK~OK~", 2, "a", 2},
        {"so is an error behind OK", PLAIN, "", "OK~ERROR~", 2, "", 5},
        {"an error with cause is an unknown report then", PLAIN, "", "OK~+CME ERROR: 10~", 2, "", 14},
        {"a report behind the result", PLAIN, "", "a~OK~+CMTI: 1~", 2, "a", 8, 1},
        {"a card state behind the result", PLAIN, "", "a~OK~^CPINNTY:READY~", 2, "a"},
    });
}

TEST_F(ResponseAssembly, WithoutAResultOnlyReportsTouchRetValAndCutLinesAreLines)
{
    check({
        {"nothing but line ends", PLAIN, "", "~~", 99, "", 77},
        {"a report", PLAIN, "", "+CTZV: +08~", -1, "", 10},
        {"the prompt", PLAIN, "", "~> ", -1, "", 2},
        {"a card state", PLAIN, "", "^CPINNTY:READY~", -1, "", 77},
        {"raw text shows at once", RAW, "", "hello~", 99, "hello~", 7},
        {"raw text keeps its place", RAW, "", "a~|b~", 99, "@@@b~", 6},
        {"a cut result", PLAIN, "", "O|K~", 99, "", 2},
        {"plain joins the pieces", PLAIN, "+CSQ:", "+CSQ: 2|0,99~OK~", 2, "+CSQ: 20,99"},
        {"multi ends the first piece", MULTI, "+CSQ:", "+CSQ: 2|0,99~OK~", 2, "+CSQ: 2~0,99"},
        {"a line cut in its end is lost", PLAIN, "+CSQ:", "+CSQ: 20,99\r|\nOK~", 2, ""},
        {"NULs are text", PLAIN, "", "@abc~@~OK~", 2, "@abc@"},
    });
}

TEST_F(ResponseAssembly, MessagesKeepHeaderAndBodyApart)
{
    check({
        {"a header keeps its end", PLAIN, "+CMGR:", "+CMGR: 0,,2~0791~OK~", 2, "+CMGR: 0,,2~0791"},
        {"in a list it gets two", MULTI, "+CMGL:", "+CMGL: 1,0~0791~OK~", 2, "+CMGL: 1,0~~0791"},
        {"raw leaves it alone", RAW, "+CMGR:", "+CMGR: 0,,2~0791~OK~", 2, "+CMGR: 0,,20791~~OK~"},
        {"a body keeps its line ends", PLAIN, "^HCMGR:", "^HCMGR: 1~a~OK~b#~OK~", 2, "^HCMGR: 1~a~OK~b#~"},
        {"a body in a list", MULTI, "^HCMGR:", "^HCMGR: 1~body#~OK~", 2, "^HCMGR: 1~~body#~"},
        {"without Ctrl-Z two bytes, then lines", PLAIN, "^HCMGR:", "^HCMGR: 1~abcdef~OK~", 2,
         "^HCMGR: 1~abcdef"},
        {"a body without its end is lost", PLAIN, "^HCMGR:", "^HCMGR: 1~body#|~OK~", 2, "^HCMGR: 1~"},
        {"a body in the next chunk is lines", PLAIN, "^HCMGR:", "^HCMGR: 1~|body#~OK~", 2, "^HCMGR: 1~body#"},
    });
}

TEST_F(ResponseAssembly, OverlongResponsesRestartOrAreCut)
{
    const std::string begin = x(1490) + "~|"; // 1490 bytes collected
    check({
        {"1499 bytes are a response", PLAIN, "", begin + "123456789~OK~", 2, x(1490) + "123456789"},
        {"one more restarts it", PLAIN, "", begin + "1234567890~foo~OK~", 2, "foo"},
        {"the restart shows in the length", PLAIN, "", begin + "1234567890~", 99, "", 1499},
        {"an expected line may fill it", PLAIN, "+M:", begin + m(10) + "~OK~", 2, x(1490) + m(10)},
        {"one that does not fit empties it", PLAIN, "+M:", begin + m(20) + "~foo~OK~", 2, "foo"},
        {"also when the result is next", PLAIN, "+M:", begin + m(20) + "~OK~", 2, ""},
        {"a header's end does not fit", PLAIN, "+M:", "+CMGR" + m(1494) + "|OK~", 2, ""},
        {"a header's end fills it", PLAIN, "+M:", "+CMGR" + m(1493) + "|OK~", 2, "+CMGR" + m(1493) + "~"},
        {"a body does not fit", PLAIN, "+M:", x(1485) + "~|^HCMGR+M:~body#~foo~OK~", 2, "foo"},
        {"a header that does not fit frees its body", PLAIN, "+M:", begin + "^HCMGR+M:~a#~b~OK~", 2, "a#b"},
        {"multi: a line of 1499", MULTI, "", x(1499) + "|OK~", 2, x(1499)},
        {"multi: an expected line of 1498 fills it", MULTI, "+M:", m(1498) + "|OK~", 2, m(1498) + "~"},
        {"multi: one of 1499 does not fit", MULTI, "+M:", m(1499) + "|OK~", 2, ""},
        {"raw: room for the frame", RAW, "", x(1491) + "~|OK~", 2, x(1491) + "~~OK~"},
        {"raw: the last LF is cut", RAW, "", x(1492) + "~|OK~", 2, x(1492) + "~~OK\r"},
        {"raw: no room for the result", RAW, "", x(1493) + "~|OK~", 2, x(1493) + "~~@@"},
        {"raw: room for the line end only", RAW, "", x(1495) + "~|OK~", 2, x(1495) + "~~"},
        {"raw: 1498 bytes stay without frame", RAW, "", x(1496) + "~|OK~", 2, x(1496) + "~"},
        {"raw: a line of 1498 loses its LF", RAW, "", x(1498) + "|OK~", 2, x(1498) + "\r"},
        {"raw: a line of 1499 loses its end", RAW, "", x(1499) + "|OK~", 2, x(1499)},
        {"raw: the last line is cut", RAW, "", begin + "12345678~foo~OK~", 2, x(1490) + "~1234567"},
        {"raw: what fills the last byte is cut", RAW, "", x(1488) + "~|12345678~", 99,
         repeat('@', 1490) + "12345678\r", 1499},
        {"raw: full to the last byte", RAW, "+M:", x(1488) + "~|" + m(10) + "~foo~OK~", 2,
         x(1488) + "~" + m(9)},
        {"raw: expected lines go past all room", RAW, "+M:", begin + m(20) + "~foo~OK~", 2, "foo~~OK~"},
        {"raw: nothing stays of a line before the overflow, in the same delivery", RAW,
         "+M:", x(1485) + "~|foo~" + m(20) + "~bar~OK~", 2, "bar~~OK~"},
    });
}

TEST_F(ResponseAssembly, WhatIsLeftBeginsTheNextResponse)
{
    const struct {
        const char *fault;
        const char *outside; // chunks
        const char *rmsg;
        std::size_t told;
    } cases[] = {
        {"a second OK", "OK~OK~", "OK+CSQ: 1", 0},
        {"a PDU line behind its report", "+CMT: ,25~0791~", "0791+CSQ: 1", 1},
        {"unknown lines are reports, not text", "+XYZ: 1~^ABC~", "+CSQ: 1", 0},
        {"a late result empties the collection", "late~|OK~", "+CSQ: 1", 0},
        {"every record is drained", "+CMTI: 1~|+CMTI: 2~|a~|b~", "ab+CSQ: 1", 2},
    };
    check_each(cases, [&](const auto &each) {
        for (const std::string &chunk : modem_chunks(each.outside))
            EXPECT_EQ(fake::deliver(chunk), 0);
        EXPECT_EQ(at_process_nas_msg(&retcode), 0);
        EXPECT_THAT(fake::seen().waits, Each(0));
        EXPECT_EQ(fake::calls().size(), each.told);
        at_cmd_msg msg = record_before(PLAIN, "+CSQ:");
        feed(msg, {"+CSQ: 1\r\nOK\r\n"});
        EXPECT_EQ(rmsg(msg), each.rmsg);
    });
    EXPECT_EQ(at_process_nas_msg(&retcode), -1) << "nothing waits";
}
