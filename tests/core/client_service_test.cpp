#include <climits>

#include "core_test.h"
#include "vorlink/client_service.h"
#include "vorlink/engine/rcv_stream.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using ClientService = daemon_test;

constexpr char NOT_SERVED[] = "send_to_msgqueue the cmd rsp error ,retcode = < 0>!\n";
constexpr char UNKNOWN_REPORT[] = "send_to_msgqueue the cmd rsp error ,retcode = < 1>!\n";

at_cmd_msg request_of(uint32_t req_type, std::string_view text = "AT+CSQ", uint32_t rep_type = 0)
{
    at_cmd_msg msg = command(text);
    msg.req_type = req_type;
    msg.rep_type = rep_type;
    return msg;
}

int serve(const at_cmd_msg &request)
{
    int retcode = -1;
    fake::put(VLK_QUEUE_CLIENT_REQUEST, bytes_of(request));
    return at_process_client_msg(&retcode);
}

} // namespace

TEST_F(ClientService, ServesByRequestType)
{
    const std::string x1508 = "AT" + repeat('x', 1506);
    const struct {
        const char *fault;
        uint32_t req_type, rep_type;
        std::string text;
        std::string written; // "": nothing
        int32_t ret_val;
        std::string rmsg;
        const char *error = ""; // the last one
    } cases[] = {
        {"a command", 0, 0, "AT+CSQ", "AT+CSQ\r", 2, "+CSQ: 1"},
        {"a long command is no response length", 0, 0, x1508, x1508 + "\r", -1, "", NOT_SERVED},
        {"lower case is a command", 0, 0, "at+csq", "at+csq\r", -1, "", NOT_SERVED},
        {"a raw command", 5, 0, "AT+CSQ", "AT+CSQ\r", 2, "+CSQ: 1\r\n\r\nOK\r\n"},
        {"an SMS in two phases", 0, 0, "AT+CMGS=1\rA\x1A", "AT+CMGS=1\r", 4, "AT+CMGS=1\rA\x1A", NOT_SERVED},
        {"no SMS for a raw command", 5, 0, "AT+CMGS=1\rA\x1A", "AT+CMGS=1\rA\x1A\r", -1, "", NOT_SERVED},
        {"the stored report", 2, 2, "", "", 2, "^RSSI: 26"},
        {"a stored report that does not exist", 2, 1, "AT", "", 0, "", UNKNOWN_REPORT},
        {"an unsupported type", 4, 0, "AT+CSQ", "", 8, ""},
        {"the last type", UINT_MAX, 2, "AT+CSQ", "", 8, ""},
    };
    check_each(cases, [&](const auto &each) {
        EXPECT_EQ(fake::deliver("\r\n^RSSI: 25\r\n^RSSI: 26\r\n"), 0); // the last one is stored
        EXPECT_EQ(at_process_nas_msg(&retcode), 0);
        fake::on_write("AT+CSQ\r", {{0, "+CSQ: 1\r\nOK\r\n"}});
        fake::on_write("AT+CMGS=1\r", {{0, "+CMS ERROR: 1\r\n"}});
        EXPECT_EQ(serve(request_of(each.req_type, each.text, each.rep_type)), 0);
        ASSERT_EQ(replies().size(), 1u);
        const at_cmd_msg reply = replies()[0];
        EXPECT_EQ(reply.snd_rcv_msg.ret_val, each.ret_val);
        EXPECT_EQ(rmsg(reply), each.rmsg);
        EXPECT_LE(reply.snd_rcv_msg.rsp_len, 1500u);
        EXPECT_EQ(fake::seen().written.empty() ? "" : fake::seen().written[0], each.written);
        EXPECT_TRUE(errors().ends_with(each.error)) << errors();
        EXPECT_EQ(errors().empty(), *each.error == '\0') << errors();
    });
}

TEST_F(ClientService, DropsWhatIsNoCommand)
{
    for (const char *text : {"+CSQ", "A", "", "A T", "XAT"}) {
        EXPECT_EQ(serve(request_of(AT_COMMAND, text)), -1) << text;
        EXPECT_EQ(serve(request_of(AT_RAW_COMMAND, text)), -1) << text;
    }
    EXPECT_EQ(serve(request_of(AT_UNANSWERED)), 0);
    EXPECT_EQ(at_process_client_msg(&retcode), -1) << "an empty queue";
    EXPECT_THAT(fake::queued(VLK_QUEUE_CLIENT_REPLY), IsEmpty());
    EXPECT_THAT(fake::seen().written, IsEmpty());
}

TEST_F(ClientService, ARawNetworkListGetsItsFourMinutes)
{
    for (const char *text : {"AT+COPS=?", "AT+CSQ;+cops=?", "AT+Cops=?", "AT+COPS?"})
        EXPECT_EQ(serve(request_of(AT_RAW_COMMAND, text)), 0);
    EXPECT_EQ(serve(request_of(AT_COMMAND, "AT+COPS=?")), 0);
    at_cmd_msg beyond = request_of(AT_RAW_COMMAND, "AT" + repeat('x', 1533) + "+COPS");
    beyond.cmd_len = 0x3F3D; // "=?" behind the area
    EXPECT_EQ(serve(beyond), 0);
    EXPECT_THAT(fake::seen().waits, ElementsAre(240000, 240000, 3000, 3000, 3000, 3000));
}

TEST_F(ClientService, TakesPendingModemDataWithoutParsingOrAnswering)
{
    for (const char *chunk : {"+CMTI: \"SM\",1\r\n", "second"})
        EXPECT_EQ(fake::deliver(chunk), 0);
    EXPECT_EQ(serve(request_of(ACTIVE_REPORT)), 0);
    EXPECT_EQ(VLK_msgQ_num(g_nasDataQid), 1);
    EXPECT_EQ(g_atSmStream.p_end - g_atSmStream.p_cur, 15);
    EXPECT_EQ(serve(request_of(ACTIVE_REPORT)), 0);
    EXPECT_EQ(serve(request_of(ACTIVE_REPORT)), -1) << "three seconds of silence";
    EXPECT_THAT(fake::seen().waits, ElementsAre(3000, 3000, 3000));
    at_cmd_msg unterminated = request_of(ACTIVE_REPORT);
    std::memset(unterminated.at_match_str, 'M', sizeof unterminated.at_match_str);
    EXPECT_EQ(serve(unterminated), -1);
    EXPECT_EQ(fake::seen().waits.size(), 3u);
    EXPECT_THAT(fake::queued(VLK_QUEUE_CLIENT_REPLY), IsEmpty());
    EXPECT_THAT(fake::calls(), IsEmpty());
}
