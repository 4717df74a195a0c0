// Short messages through everything: vlkctl, the daemon and a modem that gives back what was sent.
#include "system.h"

#include <gmock/gmock.h>

using testing::HasSubstr;

TEST(Sms, WhatIsSentComesBackThroughTheModemsStore)
{
    std::string text;
    for (int n = 0; n < 60; n++)
        text += "Größe " + std::to_string(n) + " \U0001F600, ";
    system_under_test system;
    system.variables["XDG_STATE_HOME"] = system.folder + "/state";
    system.start_modem("set loop 1\nset delivery 50ms\n", "random");
    system.start_daemon();
    ASSERT_EQ(system.vlkctl({"at", "AT+CPMS=\"ME\",\"ME\",\"ME\""}).code, 0);
    ASSERT_EQ(system.vlkctl({"at", "AT+CNMI=2,1,0,1,0"}).code, 0);
    const auto watch = system.start_vlkctl({"sms", "watch", "--seconds", "60"});
    ASSERT_TRUE(watch->wait_for_error("listening"));

    const outcome sent =
        system.vlkctl({"sms", "send", "--to", "+491511234567", "--max-parts", "20", "--report", text});
    EXPECT_EQ(sent.code, 0) << sent.err;
    EXPECT_THAT(sent.out, HasSubstr("part 2 of 12 sent, reference 13\n"));
    EXPECT_TRUE(watch->wait_for_output(text)) << watch->out << watch->err;
    EXPECT_TRUE(watch->wait_for_output("reference 23: delivered")) << watch->out << watch->err;
    watch->kill(SIGTERM);
    EXPECT_EQ(watch->wait(), 0);

    const outcome listed = system.vlkctl({"sms", "list"});
    EXPECT_EQ(listed.code, 0) << listed.err;
    EXPECT_THAT(listed.out, HasSubstr("] read, from +491511234567, "));
    EXPECT_THAT(listed.out, HasSubstr("\n    " + text + "\n"));
    EXPECT_EQ(system.vlkctl({"sms", "delete", "--all-read"}).out, "deleted 12 messages\n");
    EXPECT_EQ(system.vlkctl({"sms", "list"}).out, "");
}
