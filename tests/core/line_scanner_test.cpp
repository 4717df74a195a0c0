#include "core_test.h"
#include "vorlink/engine/rcv_stream.h"

namespace
{

using LineScanner = daemon_test;

/// Puts one chunk into the receive stream.
void fill(const std::string &chunk)
{
    at_cmd_msg msg{};
    int retcode = 0;
    ASSERT_EQ(fake::deliver(chunk), 0);
    ASSERT_EQ(read_from_smd(&msg, &retcode), 0);
}

/// Text and count: 7000 before, the length is added for a framed line and stored for one without an end.
using line = std::pair<std::string, uint32_t>;

std::vector<line> lines_of(const std::vector<std::string> &chunks)
{
    std::vector<line> lines;
    for (const std::string &chunk : chunks) {
        fill(chunk);
        for (;;) {
            char buffer[1500] = {};
            uint32_t count = 7000;
            if (at_sm_getline(buffer, &count) != 0)
                break;
            const std::string_view text(buffer, sizeof buffer);
            lines.emplace_back(text.substr(0, text.find_last_not_of('\0') + 1), count);
        }
        EXPECT_EQ(std::string(g_atSmStream.rcv_buf, 1500), repeat(0, 1500))
            << "bytes handed out must be wiped";
    }
    return lines;
}

} // namespace

TEST_F(LineScanner, FramesLinesByCrLfOnly)
{
    const std::string longest = repeat('x', 1497);
    const struct {
        const char *fault;
        std::vector<std::string> chunks;
        std::vector<line> lines;
    } cases[] = {
        {"CR LF alone is an empty line", {"\r\n"}, {{"", 7000}}},
        {"a lone LF must not end a line", {"A\nB\r\n"}, {{"A\nB", 7003}}},
        {"a lone CR is dropped", {"A\rB\r\n"}, {{"AB", 7002}}},
        {"a CR after a CR is text", {"A\r\rB\r\n"}, {{"A\rB", 7003}}},
        {"the second CR of two must not begin a line end", {"A\r\r\nB\r\n"}, {{"A\r\nB", 7004}}},
        {"the prompt has no line end", {"\r\n> "}, {{"", 7000}, {"> ", 2}}},
        {"a line split over chunks is two lines", {"RI", "NG\r\n"}, {{"RI", 2}, {"NG", 7002}}},
        {"a split CR LF must not repeat the line", {"OK\r", "\nRING\r\n"}, {{"", 7000}, {"RING", 7004}}},
        {"a completed pair is completed once", {"A\r", "\n\nB\r\n"}, {{"", 7000}, {"\nB", 7002}}},
        {"an ordinary byte forgets the split", {"A\r", "B", "\nC\r\n"}, {{"B", 1}, {"\nC", 7002}}},
        {"a chunk of one CR", {"\r", "\n", "A\r\n"}, {{"", 7000}, {"A", 7001}}},
        {"a NUL is text", {std::string("\0A\r\n", 4)}, {{std::string("\0A", 2), 7002}}},
        {"the longest framed line", {longest + "\r\n"}, {{longest, 8497}}},
        {"the longest line of all", {longest + "xx"}, {{longest + "xx", 1499}}},
        {"an empty chunk", {""}, {}},
    };
    check_each(cases, [](const auto &each) { EXPECT_EQ(lines_of(each.chunks), each.lines); });
}

TEST_F(LineScanner, TakesAndFindsUnreadBytesOnly)
{
    char taken[8] = {};
    fill("abcabcde");
    EXPECT_EQ(at_find_last_of_char('a'), 4);
    EXPECT_EQ(at_find_last_of_char('Z'), 0);
    EXPECT_EQ(at_sm_get_buf(taken, 4), 0);
    EXPECT_STREQ(taken, "abca");
    EXPECT_EQ(at_find_last_of_char('a'), 0);
    EXPECT_EQ(at_find_last_of_char('b'), 1);
    EXPECT_EQ(at_sm_get_buf(taken, -1), 0);
    EXPECT_EQ(at_sm_is_rcv_buf_empty(&g_atSmStream), -1);
    EXPECT_EQ(at_sm_get_buf(taken, 5), -1);
    EXPECT_STREQ(taken, "bcde") << "what there was is taken";
    EXPECT_EQ(at_sm_is_rcv_buf_empty(&g_atSmStream), 0);
}

TEST_F(LineScanner, ARecordThatClaimsMoreThanItCanHoldIsCutToItsData)
{
    for (const char *length : {"\xDC\x05", "\xFF\xFF"}) { // 1500, 65535
        start_daemon();
        fake::put(VLK_QUEUE_NAS_DATA, repeat('A', 1500) + length);
        at_cmd_msg msg{};
        ASSERT_EQ(read_from_smd(&msg, &retcode), 0);
        EXPECT_EQ(g_atSmStream.p_end - g_atSmStream.rcv_buf, 1499);
        EXPECT_EQ(at_find_last_of_char('A'), 1499);
    }
}
