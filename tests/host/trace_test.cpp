#include <regex>
#include <string>

#include <gtest/gtest.h>

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

TEST(trace, one_message_is_one_line_or_none)
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

TEST(trace, a_text_without_end_is_cut_and_a_missing_place_is_no_line)
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
