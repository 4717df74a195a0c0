// How the daemon starts, what it refuses, what it survives.
#include "system.h"

#include <filesystem>

#include <gmock/gmock.h>

using testing::HasSubstr;

TEST(Lifecycle, ARestartReplacesWhatAKilledDaemonLeft)
{
    system_under_test system;
    system.start_modem();
    system.start_daemon();
    system.daemon->kill(SIGKILL);
    ASSERT_EQ(system.daemon->wait(), 128 + SIGKILL);
    EXPECT_EQ(system.vlkctl({"at", "AT+CSQ"}).code, 4) << "no daemon must be told apart from no answer";
    EXPECT_EQ(system.vlkctl({"status"}).code, 4) << "its folder passes for a living daemon";

    system.start_daemon();
    system.expect_signal("after the restart");
    std::vector<std::string> left;
    for (const auto &entry : std::filesystem::directory_iterator(system.variables["VLK_RUNTIME_DIR"]))
        left.push_back(entry.path().filename());
    EXPECT_THAT(left, testing::UnorderedElementsAre("commands", "hub", "lock"));
}

TEST(Lifecycle, AModemThatAppearsLateIsWaitedFor)
{
    system_under_test system;
    system.start_daemon_without_waiting();
    ASSERT_TRUE(system.daemon->wait_for_error(system.variables["VLK_AT_DEVICE"] + " is missing"))
        << "the missing device is named";
    EXPECT_TRUE(
        wait_until([&] { return system.vlkctl({"status"}).out.find("absent") != std::string::npos; }));
    EXPECT_EQ(system.vlkctl({"at", "AT+CSQ"}).code, 7) << "it is told at once that there is no modem";
    const auto early = system.start_vlkctl({"at", "AT+CSQ", "--wait-modem", "30"});
    system.start_modem();
    EXPECT_EQ(early->wait(), 0) << early->err;
    EXPECT_EQ(early->out, SIGNAL);
}
