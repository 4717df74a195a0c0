// The example programs of docs/host.md against the real daemon.
#include "system.h"

TEST(Examples, WorkAsTheyStandInTheDocuments)
{
    system_under_test system;
    system.start_modem();
    system.start_daemon();
    process listener({EXAMPLE_LISTEN, "9"}, system.variables);
    ASSERT_TRUE(listener.wait_for_error("listening")) << listener.err;
    system.tell_modem("report ^TEMPPRT: 2,85");
    EXPECT_TRUE(listener.wait_for_output("event 31000: 2 85, 0 bytes of data, 0 missed before\n"))
        << listener.out;

    process command({"/usr/bin/env", "python3", EXAMPLE_COMMAND, "AT+CSQ", "+CSQ:"}, system.variables);
    const int code = command.wait(10);
    if (code == 127)
        GTEST_SKIP() << "no python3 for " << EXAMPLE_COMMAND;
    EXPECT_EQ(code, 0) << command.err;
    EXPECT_EQ(command.out, SIGNAL);
    process refused({"/usr/bin/env", "python3", EXAMPLE_COMMAND, "AT+NOSUCH"}, system.variables);
    EXPECT_EQ(refused.wait(10), 1);
    EXPECT_EQ(refused.out, "+CME ERROR: 100\n");
}
