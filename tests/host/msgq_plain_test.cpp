#include <chrono>
#include <string>

#include <gtest/gtest.h>

#include "../process.h"
#include "platform.h"

namespace
{

constexpr uint32_t KEY = 3;

/// A queue of three records of at most four bytes.
struct PlainQueue : testing::Test {
    int32_t id = VLK_msgQ_create(KEY, 3, 4);

    ~PlainQueue() override { VLK_msgQ_delete(id); }

    bool send(const std::string &text) const
    {
        return VLK_msgQ_send(id, text.data(), static_cast<uint32_t>(text.size())) == 1;
    }
    std::string receive(uint32_t size = 8, int32_t wait_ms = 0) const
    {
        char record[8];
        const int length = VLK_msgQ_recv(id, record, size, wait_ms);
        return length < 0 ? "none" : std::string(record, static_cast<size_t>(length));
    }
};

TEST_F(PlainQueue, HoldsWhatItWasMadeForInOrder)
{
    for (int round = 0; round < 3; ++round) { // the ring's start moves by one in each
        EXPECT_FALSE(send("12345")) << "a record that is too long was accepted";
        EXPECT_TRUE(send("1234"));
        EXPECT_EQ(receive(2), "12") << "a longer record must be cut";
        for (const char *text : {"a", "b", "c"})
            EXPECT_TRUE(send(text));
        EXPECT_FALSE(send("d")) << "a full queue took a record";
        EXPECT_EQ(VLK_msgQ_num(id), 3);
        for (const char *text : {"a", "b", "c", "none"})
            EXPECT_EQ(receive(), text);
    }
}

TEST_F(PlainQueue, ADeletedQueueIsRefusedEvenWhenItsPlaceIsUsedAgain)
{
    EXPECT_EQ(VLK_get_msgQ_id(KEY), id);
    EXPECT_EQ(VLK_msgQ_create(KEY, 3, 4), -1) << "one key, one queue";
    EXPECT_TRUE(send("old"));
    EXPECT_EQ(VLK_msgQ_delete(id), 0);
    const int32_t old = id;
    id = VLK_msgQ_create(KEY, 3, 4);
    ASSERT_GE(id, 0);
    char byte = 0;
    for (const int32_t unknown : {old, -1, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(VLK_msgQ_delete(unknown), -1) << unknown;
        EXPECT_EQ(VLK_msgQ_num(unknown), -1) << unknown;
        EXPECT_EQ(VLK_msgQ_send(unknown, "x", 1), 0) << unknown;
        EXPECT_EQ(VLK_msgQ_recv(unknown, &byte, 1, 1000), -1) << unknown;
    }
    EXPECT_EQ(VLK_msgQ_num(id), 0) << "a new queue must be empty";
    EXPECT_EQ(VLK_msgQ_create(4, UINT32_MAX, UINT32_MAX), -1) << "sizes must not wrap around";
}

TEST_F(PlainQueue, AReceiverWaitsAsLongAsItSaysAndNoLongerThanNeeded)
{
    using clock = std::chrono::steady_clock;
    using namespace std::chrono_literals;
    const auto start = clock::now();
    EXPECT_EQ(receive(8, 30), "none");
    EXPECT_GE(clock::now() - start, 30ms);
    EXPECT_EQ(receive(8, -1), "none") << "a negative wait is no wait";

    const auto other_side = [](void *argument) -> void * {
        const int32_t queue = *static_cast<int32_t *>(argument);
        const auto receiver_waits = [] { return is_asleep(getpid()); };
        wait_until(receiver_waits);
        VLK_msgQ_send(queue, "late", 4);
        wait_until([queue] { return VLK_msgQ_num(queue) == 0; });
        wait_until(receiver_waits);
        VLK_msgQ_delete(queue);
        return nullptr;
    };
    EXPECT_NE(VLK_pthread_create(0, 0, 0, other_side, &id), 0U);
    EXPECT_EQ(receive(8, 20'000), "late");
    EXPECT_EQ(receive(8, 20'000), "none") << "who waits must learn of the queue's end";
    EXPECT_LT(clock::now() - start, 10s);
}

} // namespace
