// Which lines of the operator's log are written and which are counted.
#include <string>

#include <gtest/gtest.h>

#include "log_history.h"

namespace
{
constexpr int64_t MINUTE = 60'000;

/// Every summary that is due, as "COUNT TEXT".
std::string told(log_history &history, int64_t now)
{
    std::string all;
    while (const auto summary = history.take_summary(now))
        all += std::to_string(summary->count) + " " + summary->text + ";";
    return all;
}

TEST(LogHistory, TheSameLineAgainIsCountedUntilItsWindowEnds)
{
    log_history history;
    EXPECT_TRUE(history.wants(0, 3, "lost a"));
    EXPECT_EQ(history.due(), -1) << "nothing to tell, nothing to wake for";
    for (int n = 1; n <= 1204; ++n)
        EXPECT_FALSE(history.wants(n, 3, "lost a"));
    EXPECT_EQ(history.due(), LOG_WINDOW_MS);
    EXPECT_EQ(told(history, LOG_WINDOW_MS - 1), "");
    EXPECT_EQ(told(history, LOG_WINDOW_MS), "1204 lost a;");
    EXPECT_EQ(history.due(), -1);
    EXPECT_FALSE(history.wants(LOG_WINDOW_MS + 1, 3, "lost a")) << "it goes on";
    EXPECT_EQ(told(history, log_history::ALL), "1 lost a;") << "the end tells what is left";
    EXPECT_TRUE(history.wants(3 * LOG_WINDOW_MS, 3, "lost a")) << "after a quiet time it is news";
}

TEST(LogHistory, TheLastLineThatIsWrittenIsHowThingsAre)
{
    log_history history;
    std::string written;
    for (int64_t minute = 0; minute < 4; ++minute) { // each time it is lost and ready again
        written += history.wants(minute * MINUTE, 3, "lost") ? 'l' : '-';
        written += history.wants(minute * MINUTE + 1, 6, "ready") ? 'r' : '-';
    }
    EXPECT_EQ(written, "lrlrlrlr");
}

TEST(LogHistory, AFlappingDeviceAndManyAskersAreOneTrouble)
{
    log_history history;
    int written = 0;
    for (int n = 0; n < 600; ++n) {
        written += history.wants(n * 100, 3, "lost") ? 1 : 0;
        written += history.wants(n * 100 + 50, 6, "ready") ? 1 : 0;
    }
    EXPECT_EQ(written, 10);
    EXPECT_EQ(told(history, LOG_WINDOW_MS + 50), "595 lost;595 ready;");

    log_history of_askers;
    for (int n = 0; n < 100; ++n)
        of_askers.wants(n, 4, ("lost by " + std::to_string(n)).c_str());
    EXPECT_EQ(told(of_askers, log_history::ALL), "95 lost by 99;");
}

TEST(LogHistory, MoreKindsThanItKnowsLoseNoCount)
{
    log_history history;
    const auto name = [](size_t n) { return std::string{'x', char('a' + n / 10), char('a' + n % 10)}; };
    std::string all = ";";
    for (size_t n = 0; n < 100; ++n)
        for (int again = 0; again < 3; ++again) {
            EXPECT_EQ(history.wants(int64_t(n), 3, name(n).c_str()), again == 0);
            all += told(history, int64_t(n));
        }
    all += told(history, log_history::ALL);
    for (size_t n = 0; n < 100; ++n)
        EXPECT_NE(all.find(";2 " + name(n) + ";"), std::string::npos) << n;
}

} // namespace
