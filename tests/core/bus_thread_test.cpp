#include <cstdlib>
#include <pthread.h>

#include "core_test.h"
#include "vorlink/bus_thread.h"
#include "vorlink/engine/command_transaction.h"

using testing::ElementsAre;

namespace
{

using BusThread = daemon_test;

/// What VlkStopNetScan answers: its reply, or -1 for none.
int64_t stop()
{
    void *reply = nullptr;
    uint32_t length = 0;
    if (VlkStopNetScan(nullptr, &reply, &length) != 0) {
        EXPECT_EQ(reply, nullptr);
        return -1;
    }
    EXPECT_EQ(length, 4u);
    uint32_t value = 99;
    std::memcpy(&value, reply, sizeof value);
    std::free(reply);
    return value;
}

} // namespace

TEST_F(BusThread, TheThreadRegistersRunsTheLoopAndEndsWithIt)
{
    fake::send_on_bus({{34821, {}, 0}, {0x1234, {}, 0xAB}});
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, vlk_msgproc_thread, nullptr), 0);
    void *result = &thread;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, nullptr);
    EXPECT_THAT(fake::calls(), ElementsAre("QEP_MSG_RegisterMsgProc()", "QEP_UTIL_SockBaseStart(0)",
                                           "K7_App_Ungister()", "QEP_MSG_DefaultMsgProc(4660)"));
}

TEST_F(BusThread, StopsANetworkScanAndNothingElse)
{
    const struct {
        const char *fault;
        const char *match;
        const char *failing;
        int64_t answer;
        bool stopped;
    } cases[] = {
        {"a running scan must be stopped", "^NETSCAN:", "", 1, true},
        {"the prefix needs no colon", "^NETSCAN", "", 1, true},
        {"a shorter prefix is another command", "^NETSCA", "", 1, false},
        {"the prefix counts at the start only", "+X ^NETSCAN:", "", 1, false},
        {"case counts", "^netscan:", "", 1, false},
        {"no prefix, no scan", "", "", 1, false},
        {"a refused stop must be told", "^NETSCAN:", "k7_send", 0, false},
        {"without memory there is no answer and no stop", "^NETSCAN:", "malloc", -1, false},
    };
    check_each(cases, [&](const auto &each) {
        int64_t answer = 99;
        fake::on_write("AT^NETSCAN=20\r", [&] {
            fake::deliver("OK\r\n");
            fake::fail(each.failing, 1);
            answer = stop();
        });
        at_cmd_msg msg = command("AT^NETSCAN=20", each.match);
        EXPECT_EQ(at_send_normal_cmd_msg(&msg, &retcode), 0);
        EXPECT_EQ(answer, each.answer);
        EXPECT_EQ(fake::seen().written.size(), each.stopped ? 2u : 1u);
        EXPECT_EQ(fake::seen().written.back(), each.stopped ? "AT+STOP\r" : "AT^NETSCAN=20\r");
    });
}

TEST_F(BusThread, NoTransactionLeavesARunningCommandBehind)
{
    for (const char *failing : {"", "k7_send"}) {
        for (const char *answer : {"ERROR\r\n", ""}) {
            for (const unsigned behind : {0u, 55u}) { // the longer prefix is refused
                start_daemon();
                fake::on_write("AT\r", {{0, answer}});
                fake::fail(failing, 1);
                at_cmd_msg msg = command("AT", "^NETSCAN:" + repeat('x', behind), 0);
                at_send_normal_cmd_msg(&msg, &retcode);
                EXPECT_EQ(stop(), 1);
                EXPECT_THAT(fake::seen().written, testing::Each("AT\r"));
            }
        }
    }
}
