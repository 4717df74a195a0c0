#include <climits>

#include "core_test.h"
#include "vorlink/engine/command_transaction.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using CommandTransaction = daemon_test;

constexpr char REPORT[] = "+CTZV: +08\r\n";
constexpr char OK[] = "\r\nOK\r\n";

} // namespace

TEST_F(CommandTransaction, WritesEachCommandWithExactlyOneCr)
{
    const std::string x1538 = "AT" + repeat('x', 1536);
    const struct {
        const char *fault;
        std::string text;
        int32_t cmd_len;
        std::string written;
    } cases[] = {
        {"several line ends", "AT+CSQ\n\r\r\n\r\n", 0, "AT+CSQ\r"},
        {"line ends inside stay", "AT\r\nAT\n", 0, "AT\r\nAT\r"},
        {"nothing but line ends", "\r\n\n", 0, "\r"},
        {"a length cuts the text", "AT+CSQ", 5, "AT+CS\r"},
        {"a negative length is none", std::string("AT\0B", 4), INT_MIN, "AT\r"},
        {"a length may count a NUL", std::string("AT\0B", 4), 4, std::string("AT\0B\r", 5)},
        {"a length beyond the record", "AT+CSQ\r", INT_MAX, "AT+CSQ\r"},
        {"a length beyond a full record", x1538 + "xx", INT_MAX, x1538 + "\r"},
        {"the longest command", x1538, 0, x1538 + "\r"},
        {"a text without terminator", x1538 + "xx", 0, x1538 + "\r"},
        {"a line end at the very end", x1538 + "\r\n", 0, x1538 + "\r"},
    };
    check_each(cases, [](const auto &each) {
        int error = 0;
        at_cmd_msg msg = command(each.text, "", 0);
        msg.cmd_len = each.cmd_len;
        EXPECT_EQ(at_send_normal_cmd_msg(&msg, &error), -1);
        EXPECT_THAT(fake::seen().written, ElementsAre(each.written));
    });
}

TEST_F(CommandTransaction, RefusesAPrefixWithoutEndUntouched)
{
    const at_cmd_msg before = command("AT", repeat('M', 64));
    at_cmd_msg msg = before;
    EXPECT_EQ(at_send_normal_cmd_msg(&msg, &retcode), -1);
    EXPECT_EQ(bytes_of(msg), bytes_of(before));
    EXPECT_EQ(errors(), "[at_send_normal_cmd_msg] the at_cmd_str copy failed.");
    EXPECT_THAT(fake::seen().written, IsEmpty());
}

TEST_F(CommandTransaction, KeepsWithinTheTimeAllowed)
{
    const struct {
        const char *fault;
        int32_t timeout;
        std::vector<fake::delivery> answer;
        int32_t ret_val;
        int32_t left;
        std::vector<int32_t> waits;
    } cases[] = {
        {"a result in the first chunk spends nothing", 3, {{2, OK}}, 2, 3, {3000}},
        {"an error is a result", 3, {{0, "BUSY\r\n"}, {0, OK}}, 13, 3, {3000}},
        {"silence", 3, {}, -1, 3, {3000}},
        {"reports spend time", 3, {{1, REPORT}, {2, REPORT}, {3, REPORT}}, -1, 1, {3000, 2000, 1000}},
        {"a result at the last moment counts", 3, {{1, REPORT}, {3, OK}}, 2, 2, {3000, 2000}},
        {"a result after it does not", 3, {{1, REPORT}, {4, OK}}, -1, 2, {3000, 2000}},
        {"reports within a second are free", 3, {{0, REPORT}, {0, OK}}, 2, 3, {3000, 3000}},
        {"no time: what is there counts", 0, {{0, OK}}, 2, 0, {0}},
        {"no time: one read", 0, {{0, REPORT}, {0, OK}}, -1, 0, {0}},
        {"negative time is none", -5, {{0, REPORT}, {0, OK}}, -1, -5, {0}},
        {"the longest wait", 2147483, {}, -1, 2147483, {2147483000}},
        {"longer waits are cut", 2147484, {}, -1, 2147484, {INT_MAX}},
        {"the most time", INT_MAX, {{1, REPORT}, {2, OK}}, 2, INT_MAX - 1, {INT_MAX, INT_MAX}},
    };
    check_each(cases, [](const auto &each) {
        fake::on_write("AT\r", each.answer);
        at_cmd_msg msg = command("AT", "", each.timeout);
        int error = 55;
        EXPECT_EQ(at_send_normal_cmd_msg(&msg, &error), each.ret_val == -1 ? -1 : 0);
        EXPECT_EQ(msg.snd_rcv_msg.ret_val, each.ret_val);
        EXPECT_EQ(msg.timeout, each.left);
        EXPECT_EQ(fake::seen().waits, each.waits);
        EXPECT_EQ(error, 0);
        EXPECT_EQ(errors(), each.ret_val == -1 ? "Error = 0 , cmd =***\n" : "");
    });
}

TEST_F(CommandTransaction, NeitherCommandNorAnswerIsTraced)
{
    fake::on_write("AT+CPIN=SECRET\r",
                   {{0, "SECRET\r\n+X: SECRET\r\n+CMGR: SECRET\r\n"}, {0, "OK\r\nSECRET\r\n"}});
    for (const int each : {PLAIN, MULTI, RAW, OTHER}) {
        at_cmd_msg msg = command("AT+CPIN=SECRET", "+X:", 3, each);
        EXPECT_EQ(at_send_normal_cmd_msg(&msg, &retcode), 0);
    }
    EXPECT_GT(fake::seen().traces.size(), 50u);
    for (const fake::trace_line &line : fake::seen().traces)
        EXPECT_EQ(line.text.find("SECRET"), std::string::npos) << line.text;
}
