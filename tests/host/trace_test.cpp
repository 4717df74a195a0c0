#include <regex>
#include <string>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "host_place.h"
#include "platform.h"

namespace
{

std::string traced(int level, const std::string &text)
{
    testing::internal::CaptureStderr();
    QEP_TRACE_PrintInfo("vlk_register", 77, 0, "vorlink", level, "%s", text.c_str());
    return testing::internal::GetCapturedStderr();
}

TEST(HostTrace, OneMessageIsOneLineOrNone)
{
    struct {
        const char *fault;
        const char *limit; // VLK_TRACE_LEVEL
        int level;
        std::string text;
        const char *line; // without date, time and place
    } const cases[] = {
        {"nothing shows unless it is asked for", "", 2, "lost", ""},
        {"what is above the limit is not shown", "4", 8, "enter", ""},
        {"the limit itself is shown", "8", 8, "enter", "trace progress enter\n"},
        {"0 silences all", "0", 2, "lost", ""},
        {"the caller's line end must not make a second one", "2", 2, "QueueSend\n",
         "trace error    QueueSend\n"},
        {"an empty text is a line", "2", 2, "", "trace error    \n"},
        {"text must not fake a line", "2", 2, "a\r\n2030 error b\n",
         "trace error    a\\x0d\\x0a2030 error b\n"},
        {"a secret stays one", "16", 16, "cmd = AT+CPIN=4711", "trace detail   cmd = AT+CPIN=***\n"},
        {"text must not drive the terminal", "2", 2, "\x1b[2J\x7f\x9bz\t",
         "trace error    \\x1b[2J\\x7f\\x9bz\\x09\n"},
    };
    const host_place place;
    const std::regex head(
        "^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} (trace .{9})vorlink/vlk_register:77: ");
    for (const auto &c : cases) {
        setenv("VLK_TRACE_LEVEL", c.limit, 1);
        place.load_settings();
        EXPECT_EQ(std::regex_replace(traced(c.level, c.text), head, "$1"), c.line) << c.fault;
    }
}

TEST(HostTrace, WhatGoesToSyslogHasItsPriorityAndNoSecret)
{
    const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address{AF_UNIX, "/dev/log"};
    if (bind(log, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        close(log);
        GTEST_SKIP() << "/dev/log is not ours";
    }
    const std::pair<int, const char *> cases[] = {
        {2, "<27>"}, {4, "<28>"}, {5, "<30>"}, {8, "<30>"}, {16, "<31>"}}; // daemon: 24 and the priority
    for (const auto &[level, head] : cases) {
        mlog_print("core", level, "cmd = %s", "AT+CPIN=4711");
        char entry[200] = "";
        recv(log, entry, sizeof entry - 1, 0);
        EXPECT_EQ(entry, head + ("vorlink[" + std::to_string(getpid())) + "]: core: cmd = AT+CPIN=***");
    }
    close(log);
    unlink("/dev/log");
}

TEST(HostTrace, ATextWithoutEndIsCutAndAMissingPlaceIsNoLine)
{
    const host_place place;
    setenv("VLK_TRACE_LEVEL", "2", 1);
    place.load_settings();
    for (const char byte : {'x', '\x01'}) {
        const std::string line = traced(2, std::string(100'000, byte));
        EXPECT_LE(line.size(), 4096U);
        EXPECT_EQ(line.substr(line.size() - 4), "...\n");
    }
    testing::internal::CaptureStderr();
    QEP_TRACE_PrintInfo(nullptr, 1, 0, "vorlink", 2, "x");
    mlog_print(nullptr, 2, "x");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

} // namespace
