// What clients see: answers, results and exit codes, one at a time and many at once.
#include "system.h"

#include <gmock/gmock.h>

using testing::HasSubstr;

TEST(Commands, AnswerResultAndExitCode)
{
    const struct {
        const char *fault;
        std::vector<std::string> arguments;
        int code;
        const char *out;
        const char *err;
    } cases[] = {
        {"a plain answer is lost", {"at", "AT+CSQ", "--expect", "+CSQ:"}, 0, SIGNAL, ""},
        {"lines of a multi-line answer run together",
         {"at", "AT+TWO", "--expect", "+TWO:", "--multi-line"},
         0,
         "+TWO: 1\n+TWO: 2\n",
         ""},
        {"a raw answer loses its framing", {"at", "AT+CSQ", "--raw"}, 0, "+CSQ: 20,99\n\nOK\n", ""},
        {"a modem error looks like success", {"at", "AT+NOSUCH"}, 1, "", "+CME ERROR: 100"},
        {"a cause is printed as an answer",
         {"at", "AT+NOSUCH", "--expect", "+NOSUCH:"},
         1,
         "",
         "+CME ERROR: 100"},
        {"a short message is not sent", {"sms", "send", "0011000B9113"}, 0, "+CMGS: 12\n", ""},
        {"a short message is not saved", {"sms", "save", "0011000B9113"}, 0, "+CMGW: 4\n", ""},
        {"no stored report before the first", {"rssi"}, 0, "^RSSI: 0\n", ""},
        {"a stop without a scan is an error", {"stop-scan"}, 0, "", ""},
        {"silence looks like success", {"at", "AT+MUTE", "--timeout", "1"}, 3, "", "no final result"},
    };
    system_under_test system;
    system.start_modem("command AT+MUTE\n    final none\n"
                       "command AT+TWO\n    line +TWO: 1\n    line +TWO: 2\n    final OK\n");
    system.start_daemon();
    for (const auto &row : cases) {
        const outcome seen = system.vlkctl(row.arguments);
        EXPECT_EQ(seen.code, row.code) << row.fault << "\n" << seen.err;
        if (row.code != 0 || row.out[0] != '\0') {
            EXPECT_EQ(seen.out, row.out) << row.fault;
        }
        EXPECT_THAT(seen.err, HasSubstr(row.err)) << row.fault;
    }
}

TEST(Commands, TenClientsAtOnceGetTheirOwnAnswers)
{
    system_under_test system;
    system.start_modem("command AT+ECHO={n:#}\n    delay 5ms\n    line +ECHO: {n}\n    final OK\n", "random");
    system.start_daemon();
    for (int round = 0; round < 3; ++round) {
        std::vector<std::unique_ptr<process>> clients;
        for (int n = 0; n < 10; ++n)
            clients.push_back(system.start_vlkctl({"at", "AT+ECHO=" + std::to_string(n)}));
        for (std::size_t n = 0; n < clients.size(); ++n) {
            EXPECT_EQ(clients[n]->wait(), 0) << clients[n]->err;
            EXPECT_EQ(clients[n]->out, "+ECHO: " + std::to_string(n) + "\n");
        }
    }
}

TEST(Commands, AStoppedScanEndsEarlyAndTheNextRequestIsServed)
{
    system_under_test system;
    system.start_modem("set scan_step 2s\n"); // twenty seconds in all
    system.start_daemon();
    const int64_t start = now_ms();
    const auto scan = system.start_vlkctl({"at", "AT^NETSCAN", "--expect", "^NETSCAN:", "--timeout", "60"});
    system.wait_until_answering();
    const auto other = system.start_vlkctl({"at", "AT+CSQ"});
    EXPECT_EQ(system.vlkctl({"stop-scan"}).code, 0);
    EXPECT_EQ(scan->wait(), 0) << scan->err;
    EXPECT_EQ(other->wait(), 0) << other->err;
    EXPECT_EQ(other->out, SIGNAL);
    EXPECT_LT(now_ms() - start, 10000);
}
