// What clients see: answers, results and exit codes, one at a time and many at once.
#include "system.h"

#include <algorithm>
#include <csignal>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;

namespace
{

/// Starts the simulator with the built-in dialogue and these lines behind it.
void start_modem_with(system_under_test &system, const std::string &lines, const std::string &split = "none")
{
    const std::string path = system.folder + "/dialogue";
    std::ofstream(path) << "include default\nforget reports\n" << lines;
    system.start_modem({"--dialogue", path, "--split", split});
}

/// Waits until the modem is at work on a command.
void wait_until_answering(system_under_test &system)
{
    for (int tries = 0; tries < 500; ++tries) {
        system.modem->out.clear();
        system.modem->write_line("state");
        ASSERT_TRUE(system.modem->wait_for_output("\n"));
        if (system.modem->out.find(R"("answering":true)") != std::string::npos)
            return;
        usleep(10000);
    }
    FAIL() << "the modem got no command";
}

} // namespace

TEST(Commands, AnswerResultAndExitCode)
{
    const struct {
        const char *fault;
        std::vector<std::string> arguments;
        int code;
        const char *out;
        const char *err;
    } cases[] = {
        {"a plain answer is lost", {"at", "AT+CSQ", "--expect", "+CSQ:"}, 0, "+CSQ: 20,99\n", ""},
        {"an answer needs an expected prefix", {"at", "AT+CSQ"}, 0, "+CSQ: 20,99\n", ""},
        {"lines of a multi-line answer run together",
         {"at", "AT+CPOL?", "--expect", "+CPOL:", "--multi-line"},
         0,
         "+CPOL: 1,2,\"00101\",0,0,0,1\n+CPOL: 2,2,\"00102\",0,0,0,1\n"
         "+CPOL: 3,2,\"00103\",1,0,1,0\n+CPOL: 4,2,\"00104\",1,0,0,0\n",
         ""},
        {"a raw answer loses its framing", {"at", "AT+CSQ", "--raw"}, 0, "+CSQ: 20,99\n\nOK\n", ""},
        {"a modem error looks like success", {"at", "AT+NOSUCH"}, 1, "", "+CME ERROR: 100"},
        {"a short message is not sent",
         {"sms", "send", "0011000B911346610089F60000AA0AE8329BFD4697D9EC37"},
         0,
         "+CMGS: 12\n",
         ""},
        {"a short message is not saved",
         {"sms", "save", "0011000B911346610089F60000AA0AE8329BFD4697D9EC37"},
         0,
         "+CMGW: 4\n",
         ""},
        {"no stored report before the first", {"rssi"}, 0, "^RSSI: 0\n", ""},
        {"a stop without a scan is an error", {"stop-scan"}, 0, "", ""},
        {"a command that the daemon would drop waits for ever", {"at", "+CSQ"}, 2, "", "AT"},
        {"no answer in time looks like success",
         {"at", "AT+MUTE", "--timeout", "1"},
         3,
         "",
         "no final result"},
    };
    system_under_test system;
    start_modem_with(system, "command AT+MUTE\n    final none\n");
    system.start_daemon();
    for (const auto &row : cases) {
        const outcome seen = system.vlkctl(row.arguments);
        EXPECT_EQ(seen.code, row.code) << row.fault << "\n" << seen.err;
        if (row.code == 0 && row.out[0] != '\0') {
            EXPECT_EQ(seen.out, row.out) << row.fault;
        }
        EXPECT_THAT(seen.err, HasSubstr(row.err)) << row.fault;
    }
}

TEST(Commands, TenClientsAtOnceGetTheirOwnAnswers)
{
    system_under_test system;
    start_modem_with(system, "command AT+ECHO={n:#}\n    delay 5ms\n    line +ECHO: {n}\n    final OK\n",
                     "random");
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
    start_modem_with(system, "set scan_step 2s\n"); // twenty seconds in all
    system.start_daemon();
    const int64_t start = now_ms();
    const auto scan = system.start_vlkctl({"at", "AT^NETSCAN", "--expect", "^NETSCAN:", "--timeout", "60"});
    wait_until_answering(system);
    const auto other = system.start_vlkctl({"at", "AT+CSQ"});
    EXPECT_EQ(system.vlkctl({"stop-scan"}).code, 0);
    EXPECT_EQ(scan->wait(), 0) << scan->err;
    EXPECT_EQ(other->wait(), 0) << other->err;
    EXPECT_EQ(other->out, "+CSQ: 20,99\n");
    EXPECT_LT(now_ms() - start, 10000);
}

TEST(Commands, AnswersAroundTheSizeOfADeliveryArriveWhole)
{
    // With its framing and the final result an answer of 1489 bytes makes a delivery of 1499 bytes.
    const std::size_t sizes[] = {1488, 1489, 1490, 1491, 1499};
    std::string lines;
    for (const std::size_t size : sizes)
        lines += "command AT+LONG=" + std::to_string(size) + "\n    line " + std::string(size, 'x') +
                 "\n    final OK\n";
    system_under_test system;
    start_modem_with(system, lines);
    system.start_daemon();
    for (const std::size_t size : sizes) {
        const outcome seen = system.vlkctl({"at", "AT+LONG=" + std::to_string(size)});
        EXPECT_EQ(seen.code, 0) << size << seen.err;
        EXPECT_EQ(seen.out, std::string(size, 'x') + "\n") << size;
    }
    EXPECT_EQ(system.vlkctl({"at", "AT+CSQ"}).out, "+CSQ: 20,99\n");
}

TEST(Commands, ClientsKilledWhileWaitingBlockNobody)
{
    system_under_test system;
    start_modem_with(system, "command AT+SLOW\n    delay 1500ms\n    final OK\n");
    system.start_daemon();
    const auto slow = system.start_vlkctl({"at", "AT+SLOW"});
    wait_until_answering(system);
    std::vector<std::unique_ptr<process>> clients;
    for (int n = 0; n < 10; ++n)
        clients.push_back(system.start_vlkctl({"at", "AT+CSQ"}));
    for (int tries = 0;
         tries < 500 && system.vlkctl({"status", "--json"}).out.find(R"("requests":10)") == std::string::npos;
         ++tries)
        usleep(5000);
    for (const auto &client : clients)
        client->kill(SIGKILL);
    EXPECT_EQ(slow->wait(), 0) << slow->err;
    for (int n = 0; n < 3; ++n) {
        const outcome seen = system.vlkctl({"at", "AT+CSQ"});
        EXPECT_EQ(seen.code, 0) << seen.err;
        EXPECT_EQ(seen.out, "+CSQ: 20,99\n");
    }
}
