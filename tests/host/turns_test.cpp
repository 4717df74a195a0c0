// Whose request is next, as a table of who has requests and who is served.
#include <string>

#include <gtest/gtest.h>

#include "turns.h"

namespace
{

TEST(Turns, GoRoundBetweenUsersFirstAndThenBetweenAUsersLanes)
{
    // In `play`: "Aa" opens lane a for user A, a lower-case letter alone has requests for ever, "-a" has none any more,
    // "!a" hangs up, "." serves the next. Lanes are a to z.
    struct {
        const char *fault;
        const char *play;
        const char *served;
    } const cases[] = {
        {"one lane is not served again and again", "Aa a . . .", "aaa"},
        {"lanes of one user do not take turns", "Aa Ab Ac a b c . . . . .", "abcab"},
        {"a user with many lanes has many turns", "Aa Ab Ac Bd a b c d . . . . . .", "adbdcd"},
        {"an idle lane costs a turn", "Aa Ab Ac a c . . . -a . .", "acacc"},
        {"nobody is ready, but somebody is served", "Aa Ab a -a . b .", "-b"},
        {"who has hung up is served", "Aa Ab a b !a . .", "bb"},
        {"a new lane overtakes those that wait", "Aa Ab a b . . Ac c . . .", "abacb"},
        {"a new user overtakes those that wait", "Aa Bb a b . Cc c . . .", "abca"},
        {"opening again and again wins turns", "Aa Bb a b . . . !b Bb b . !b Bb b . .", "ababab"},
        {"a lane's number keeps its last user", "Aa Ab Bc a b c . !b Bb b . . . .", "acaba"},
    };
    for (const auto &c : cases) {
        turns order;
        std::string served;
        for (const char *at = c.play; *at != '\0'; ++at) {
            const auto lane_of = [](char name) { return name - 'a'; };
            if (*at == '.') {
                const int lane = order.next();
                served += lane < 0 ? '-' : static_cast<char>('a' + lane);
                if (lane >= 0)
                    order.served(lane);
            } else if (*at == '!') {
                order.close(lane_of(*++at));
            } else if (*at == '-') {
                order.set_ready(lane_of(*++at), false);
            } else if (*at >= 'A' && *at <= 'Z') {
                const auto user = static_cast<uint32_t>(*at);
                order.open(lane_of(*++at), user);
            } else if (*at != ' ') {
                order.set_ready(lane_of(*at), true);
            }
        }
        EXPECT_EQ(served, c.served) << c.fault << ": " << c.play;
    }
}

TEST(Turns, EveryLaneThereIsCanBeUsedAndUsedAgain)
{
    turns order;
    for (int round = 0; round < 3; ++round) {
        for (int lane = 0; lane < turns::LANES_MAX; ++lane) {
            order.open(lane, static_cast<uint32_t>(1000 * round + lane)); // as many users
            order.set_ready(lane, true);
        }
        for (int lane = 0; lane < turns::LANES_MAX; ++lane) {
            EXPECT_EQ(order.next(), lane) << round;
            order.served(order.next());
            order.close(lane);
        }
        EXPECT_EQ(order.next(), -1);
    }
}

} // namespace
