#include "core_test.h"
#include "vorlink/engine/command_transaction.h"
#include "vorlink/engine/sms_transaction.h"

using testing::ElementsAre;

namespace
{

using SmsTransaction = daemon_test;

constexpr char HEAD[] = "AT+CMGS=2\r"; // 10 bytes
constexpr char TEXT[] = "AT+CMGS=2\rAABB\x1A";
constexpr char PDU[] = "AABB\x1A\r";
constexpr char PROMPT[] = "\r\n> ";
constexpr char ESC[] = "\x1B"; // leaves the modem's text input
constexpr char REPORT[] = "+CTZV: +08\r\n";
constexpr char SENT[] = "\r\n+CMGS: 12\r\n\r\nOK\r\n";
constexpr char REFUSED[] = "\r\n+CMS ERROR: 304\r\n";

} // namespace

TEST_F(SmsTransaction, KnowsItsCommands)
{
    for (const char *text : {"AT+CMGS=23", "at+cmgw=1", "AT^HCMGS=5", "At^hCmgW=", "AT+CMGS="})
        EXPECT_EQ(at_cmd_is_smssw(text), 0) << text;
    for (const char *text : {"AT+CMGS?", "AT+CMGL=4", "AT+CMGS", "AT^HCMGR=1", "AT^HCMGS", " AT+CMGS=1", ""})
        EXPECT_EQ(at_cmd_is_smssw(text), -1) << text;
}

TEST_F(SmsTransaction, RunsTheExchangeInTwoPhases)
{
    const struct {
        const char *fault;
        std::vector<fake::delivery> to_head, to_pdu;
        int32_t ret_val;
        const char *rmsg;
        int64_t seconds;
        int result = 0;
        int written = 2; // what the modem accepts
    } cases[] = {
        {"prompt, reference, OK", {{1, PROMPT}}, {{2, SENT}}, 2, "+CMGS: 12", 3},
        {"a result in chunks", {{0, PROMPT}}, {{1, "+CMGS: 12\r\n"}, {3, "OK\r\n"}}, 2, "+CMGS: 12", 3},
        {"a report before the PDU", {{0, PROMPT}, {0, REPORT}}, {{0, SENT}}, 2, "+CMGS: 12", 0},
        {"an error ends the second phase", {{0, PROMPT}}, {{0, REFUSED}}, 4, "+CMS ERROR: 304", 0},
        {"a refused command line", {{0, REFUSED}}, {}, 4, TEXT, 0, -1, 1},
        {"even OK refuses", {{2, "OK\r\n"}}, {}, 2, TEXT, 2, -1, 1},
        {"text that is no prompt ends it with 0", {{0, "hello\r\n"}}, {}, 0, TEXT, 0, -1, 1},
        {"a report opens the way", {{0, REPORT}}, {{0, SENT}}, 2, "+CMGS: 12", 0},
        {"no prompt: the PDU goes out all the same", {}, {{2, SENT}}, 2, "+CMGS: 12", 7},
        {"then a chunk without result ends it", {}, {{0, "+CMGS: 12\r\n"}}, 0, "", 5},
        {"silence after the PDU", {{0, PROMPT}}, {}, -1, "", 5, -1},
        {"silence all along", {}, {}, 0, "", 10, -1},
        {"a command line that cannot be written", {}, {}, 8, "", 0, -1, 0},
        {"a PDU that cannot be written", {{0, PROMPT}}, {}, 8, "", 0, -1, 1},
        {"the budget covers both phases", {{2, PROMPT}}, {{1, REPORT}, {2, REPORT}}, -1, "", 5, -1},
        {"the budget ends with a chunk", {{2, PROMPT}}, {{3, REPORT}, {3, SENT}}, -1, "", 5, -1},
    };
    check_each(cases, [&](const auto &each) {
        fake::on_write(HEAD, each.to_head);
        fake::on_write(PDU, each.to_pdu);
        fake::fail("k7_send", fake::ALWAYS, each.written);
        at_cmd_msg msg = command(TEXT, "+CMGS:", 5);
        const int64_t before = fake::now_ms();
        EXPECT_EQ(at_send_or_save_msg(&msg, &retcode), each.result);
        EXPECT_EQ(fake::now_ms() - before, each.seconds * 1000);
        EXPECT_EQ(msg.snd_rcv_msg.ret_val, each.ret_val);
        EXPECT_EQ(rmsg(msg), each.rmsg); // a refused record keeps its command
        EXPECT_STREQ(msg.at_match_str, "+CMGS:");
        const std::vector<std::string> exchange = {HEAD, PDU};
        EXPECT_EQ(fake::seen().written, std::vector(exchange.begin(), exchange.begin() + each.written));
    });
}

TEST_F(SmsTransaction, SendsThePduToItsCtrlZAndNothingElse)
{
    const std::string full = repeat('A', 1527) + "\x1A"; // its two NULs end the area
    const std::string refused;
    const std::pair<std::string, std::string> cases[] = {
        {"AABB\x1A", "AABB\x1A\r"},
        {"AA\x1AzBB\x1A", "AA\x1AzBB\x1A\r"}, // only a Ctrl-Z before two NULs ends it
        {std::string("AA\x1A\0BB\x1A", 7), std::string("AA\x1A\0BB\x1A\r", 8)},
        {"AA\rBB\x1A", "AA\rBB\x1A\r"},
        {full, full + "\r"},
        {"A" + full, refused},  // the second NUL is outside
        {"AA" + full, refused}, // both are
        {"AABB", refused},
    };
    for (const auto &[text, pdu] : cases) {
        SCOPED_TRACE(text);
        start_daemon();
        fake::on_write(HEAD, {{0, PROMPT}});
        at_cmd_msg msg = command(HEAD + text, "+CMGS:");
        EXPECT_EQ(at_send_or_save_msg(&msg, &retcode), -1);
        EXPECT_THAT(fake::seen().written, ElementsAre(HEAD, pdu == refused ? ESC : pdu));
        EXPECT_EQ(msg.snd_rcv_msg.ret_val, pdu == refused ? 8 : -1);
        EXPECT_EQ(fake::seen().waits.size(), pdu == refused ? 1u : 2u);
    }
}

TEST_F(SmsTransaction, RefusesWhatIsNoExchange)
{
    for (const at_cmd_msg &refused : {
             command("AT+CMGS=2", "+CMGS:"),                                       // no CR
             command(std::string("AT+CMGS=2\0\rAABB\x1A", 16), "+CMGS:"),          // none in the text
             command(repeat('A', 1540), "+CMGS:"), command(TEXT, repeat('M', 64)), // the prefix has no end
         }) {
        at_cmd_msg msg = refused;
        EXPECT_EQ(at_send_or_save_msg(&msg, &retcode), -1);
        EXPECT_EQ(bytes_of(msg), bytes_of(refused));
    }
    at_cmd_msg empty = command("\rAABB\x1A");
    EXPECT_EQ(at_send_or_save_msg(&empty, &retcode), -1);
    EXPECT_EQ(empty.snd_rcv_msg.ret_val, 0);
    EXPECT_TRUE(errors().ends_with("write_to_smd error and the errcode = 22\n"));
    EXPECT_TRUE(fake::seen().written.empty());
}

TEST_F(SmsTransaction, IsNotTheCurrentCommand)
{
    at_cmd_msg normal = command("AT+XYZ", "", 0);
    EXPECT_EQ(at_send_normal_cmd_msg(&normal, &retcode), -1);
    fake::on_write(HEAD, {{0, PROMPT}});
    fake::on_write(PDU, {{0, "+XYZ: 1\r\n+CMGS=: 2\r\n+CMGS: 12\r\nOK\r\n"}});
    at_cmd_msg msg = command(TEXT, "+CMGS:");
    EXPECT_EQ(at_send_or_save_msg(&msg, &retcode), 0);
    EXPECT_EQ(rmsg(msg), "+XYZ: 1+CMGS: 12") << "lines are compared with the latest normal command";
}
