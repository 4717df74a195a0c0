#include "core_test.h"
#include "vorlink/engine/recognition.h"
#include "vorlink/engine/response_collection.h"

using testing::ElementsAre;

using Recognition = daemon_test;

TEST_F(Recognition, FinalResultsStandAtTheStartOfALine)
{
    constexpr int32_t NONE = -77;
    const struct {
        const char *line;
        int32_t code;
    } cases[] = {
        {"OK", 2},      {"OKAY", 2},          {"+CME ERROR: 10", 3}, {"+CMS ERROR: 304", 4},
        {"ERROR", 5},   {"NO CARRIER", 6},    {"NO ANSWER", 7},      {"COMMAND NOT SUPPORT", 8},
        {"ATE0", 10},   {"CONNECT 9600", 11}, {"NO DIALTONE", 12},   {"TOO MANY PARAMETERS", 9},
        {"BUSY", 13},   {"NOOK", NONE},       {"ok", NONE},          {"O", NONE},
        {"", NONE},     {" OK", NONE},        {"NO", NONE},          {"+CME ERRO", NONE},
        {"ATE1", NONE}, {"CONNEC", NONE},     {"+CME: ERROR", NONE},
    };
    for (const auto &each : cases) {
        int32_t code = NONE;
        EXPECT_EQ(atcmd_match_result(each.line, &code), each.code == NONE ? -1 : 0) << each.line;
        EXPECT_EQ(code, each.code) << each.line;
    }
}

TEST_F(Recognition, ReportsPassTheGateAndAreNotTheAnswer)
{
    const std::string name62 = "+" + repeat('N', 61); // a line's prefix of 62 characters
    const std::string hidden = "AT" + repeat('A', 59) + "+XYZ";
    const struct {
        const char *fault;
        const char *running; // command
        uint32_t req_type;
        std::string line;
        int result;
        int32_t index;
    } cases[] = {
        {"the prompt is a report without handler", "AT", 0, "> ", 0, -1},
        {"IRING is taken by RING's row", "AT", 0, "IRING", 0, 6},
        {"CONNECT anywhere opens the gate", "AT", 0, "RE CONNECT", 0, 7},
        {"a known prefix behind a closed gate", "AT", 0, "x ^MODE: 1,1", -1, -1},
        {"an empty line", "AT", 1, "", -1, -1},
        {"a prefix anywhere in the line counts", "AT", 0, "^X +CLIP: 1", 0, 8},
        {"the earlier row wins, not the earlier place", "AT", 0, "^CEND +CLIP", 0, 8},
        {"the longer prefix stands first", "AT", 0, "^NDISSTATEX: 1,1", 0, 55},
        {"^HCMGS: must not be taken for ^HCMGSF", "AT", 0, "^HCMGS: 5", 0, -1},
        {"an index report is not its message", "AT", 0, "+CMTI: \"SM\",1", 0, 0},
        {"a known report wins over the running command", "AT+CREG?", 0, "+CREG: 0,1", 0, 14},
        {"a row without handler consumes", "AT^CARDLOCKNTY", 5, "^CARDLOCKNTY: 1", 0, 41},
        {"the answer of the running command", "AT+CSQ", 0, "+CSQ: 20,99", -1, -1},
        {"another unknown line is a report", "AT+CGDCONT?", 0, "+XYZ: 1", 0, -1},
        {"outside a command all is report", "AT+XYZ", 1, "+XYZ: 1", 0, -1},
        {"raw collection keeps the unknown", "AT", 5, "+XYZ: 1", -1, -1},
        {"without a colon it is text", "AT", 0, "+XYZ", -1, -1},
        {"the first colon ends the prefix", "AT+X", 0, "+X:+Y: 1", -1, -1},
        {"a prefix of 63 characters is looked for", "AT", 0, name62 + "N: 1", 0, -1},
        {"one of 64 counts as empty and answers", "AT", 0, name62 + "NN: 1", -1, -1},
        {"the command counts to its 63rd byte", hidden.c_str(), 0, "+XYZ: 1", 0, -1},
        {"its 62nd and 63rd byte count", hidden.c_str(), 0, "+X: 1", -1, -1},
    };
    check_each(cases, [](const auto &each) {
        std::memcpy(g_atCmdStr, each.running, std::min<std::size_t>(std::strlen(each.running), 63));
        at_cmd_msg msg = command("");
        msg.req_type = each.req_type;
        std::string line = each.line;
        int32_t index = 99;
        int32_t unused = 0;
        EXPECT_EQ(Is_report_msg(&msg, line.data(), static_cast<int32_t>(line.size()), &index, &unused),
                  each.result);
        EXPECT_EQ(index, each.index);
    });
}

TEST_F(Recognition, ACellBroadcastReachesItsHandlerWithItsPdu)
{
    const std::string pdu = "0011AABB";
    const struct {
        const char *fault;
        std::string chunk;
        std::string pdu;
        uint32_t length; // of the joined report
    } cases[] = {
        {"header and PDU are one text", "+CBM: 88\r\n" + pdu + "\r\n", pdu, 18},
        {"an unfinished PDU is joined", "+CBM: 88\r\n" + pdu, pdu, 18},
        {"a PDU that is not there yet", "+CBM: 88\r\n", "", 10},
        {"a PDU cut in its line end is lost", "+CBM: 88\r\n" + pdu + "\r", "", 10},
        {"an empty line takes the PDU's place", "+CBM: 88\r\n\r\n" + pdu + "\r\n", "", 10},
        {"the longest PDU must not leave the line", "+CBM: 88\r\n" + repeat('A', 1489), "", 1499},
    };
    check_each(cases, [](const auto &each) {
        at_cmd_msg msg = command("AT", "", 0, OTHER); // text behind the report is dropped
        feed(msg, {each.chunk});
        ASSERT_THAT(fake::calls(), ElementsAre("VLK_post_notify_ex(1, 1008, 518, 0, 0)"));
        const std::string payload = std::string("\4\0\0\0X\0", 6) + each.pdu; // id, 88, the PDU in 512 bytes
        EXPECT_EQ(fake::seen().calls[0].data, payload + repeat(0, 518 - payload.size()));
        EXPECT_EQ(msg.snd_rcv_msg.rsp_len, each.length);
    });
    at_cmd_msg raw = command("AT", "", 0, RAW);
    feed(raw, {"+CBM: 88\r\n" + pdu + "\r\nOK\r\n"});
    EXPECT_EQ(rmsg(raw), pdu + "\r\n\r\nOK\r\n") << "raw collection keeps the lines apart";
    at_cmd_msg plain = command("AT");
    uint32_t length = 4;
    int hcmgr_flag = 0;
    std::memcpy(line_buf, "RING", 5);
    handle_sms_at(&plain, &length, &hcmgr_flag);
    EXPECT_EQ(length, 4u) << "a line that heads no message";
}
