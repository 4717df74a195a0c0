#include <atomic>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "../process.h"
#include "host_place.h"
#include "platform.h"

namespace
{

using namespace std::chrono_literals;
using monotonic = std::chrono::steady_clock;

struct Events : testing::Test {
    host_place place;
    int32_t task = VLK_task_getid();

    void SetUp() override { ASSERT_EQ(VLK_event_init(7), 0); }

    /// The raised bits of the mask, 0 for none within wait_ms.
    static uint32_t receive(uint32_t mask, int32_t wait_ms)
    {
        uint32_t events = 0;
        return VLK_event_recv(mask, wait_ms, &events) == 0 ? 0 : events;
    }
};

TEST_F(Events, BitsAddUpAndAreTakenOnceAndByMask)
{
    for (const uint32_t bits : {1U, 1U, 6U})
        EXPECT_EQ(VLK_event_send(task, bits), 0);
    EXPECT_EQ(receive(3, 0), 3U);
    EXPECT_EQ(receive(3, 0), 0U);
    EXPECT_EQ(VLK_event_init(3), 0);
    EXPECT_EQ(receive(7, 0), 4U) << "only the bits of the new mask start clear";

    EXPECT_EQ(VLK_event_send(task + 1, 1), -1) << "another task has no event set";
    EXPECT_EQ(VLK_event_send(task, 4), -1) << "not in the event set's mask";
    EXPECT_EQ(receive(8, -1), 0U) << "a bit that cannot come must not hang";
}

TEST_F(Events, AWaitEndsWithItsTimeOrWithAnotherThread)
{
    const auto start = monotonic::now();
    EXPECT_EQ(receive(7, 30), 0U);
    EXPECT_GE(monotonic::now() - start, 30ms);
    for (const int32_t limit : {-1, 20'000}) {
        std::thread other([this] {
            wait_until([] { return is_asleep(getpid()); }); // the main thread waits
            VLK_event_send(task, 2);
        });
        EXPECT_EQ(receive(7, limit), 2U) << limit;
        other.join();
    }
    EXPECT_LT(monotonic::now() - start, 10s);
}

TEST_F(Events, NoBitIsLostBetweenALookAndTheSleep)
{
    constexpr int TURNS = 20'000;
    std::atomic<int> taken{0};
    std::thread other([&] {
        for (int turn = 0; turn < TURNS; ++turn) {
            VLK_event_send(task, 2);
            while (taken == turn)
                std::this_thread::yield();
        }
    });
    for (int turn = 0; turn < TURNS; ++turn) {
        ASSERT_EQ(receive(7, 20'000), 2U) << turn;
        ++taken;
    }
    other.join();
}

TEST(AccessMode, TakesOctalTextOnly)
{
    const host_place place;
    const char *const path = place.folder.c_str();
    EXPECT_EQ(QEP_UTIL_RemoveAndroidWPerm(path, "740"), 0);
    for (const char *mode : {"", "8", "64x", "-1", "0x1", " 777", "10000", "77777777777777"})
        EXPECT_EQ(QEP_UTIL_RemoveAndroidWPerm(path, mode), -1) << mode;
    struct stat state = {};
    ASSERT_EQ(stat(path, &state), 0);
    EXPECT_EQ(state.st_mode & 07777U, 0740U);
    EXPECT_EQ(QEP_UTIL_RemoveAndroidWPerm("/nowhere", "640"), -1);
}

} // namespace
