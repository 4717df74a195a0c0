#include <cerrno>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "at_cmd_msg.h"
#include "futex_word.h"
#include "host_place.h"
#include "platform.h"
#include "vlk_queues.h"

namespace
{

/// The Id that a client with this process id uses for its request of this number.
int32_t client_id(pid_t pid, int32_t number)
{
    return (number << HOST_ID_PID_BITS) | pid;
}

struct extended_queue_test : testing::Test {
    host_place place;
    int32_t id = VLK_msgQex_create(VLK_QUEUE_CLIENT_REPLY, 10, 1636);
    int retcode = 0;

    int send(int32_t client, uint32_t seq)
    {
        at_cmd_msg record{};
        record.Id = client;
        record.seq = seq;
        record.cmd_len = 77;
        return send_to_msgqueue(id, &record, &retcode);
    }

    /// seq of the next record, 0 for none.
    uint32_t read_seq(int32_t which = 0)
    {
        at_cmd_msg record{};
        return read_from_msgqueue(id, &record, which, &retcode) == 0 && record.cmd_len == 77 ? record.seq : 0;
    }
};

TEST_F(extended_queue_test, a_client_process_sleeps_until_exactly_its_own_reply_comes)
{
    host_open_event_page();
    const pid_t client = fork();
    if (client == 0) {
        const std::atomic<uint32_t> &replies = host_event_page()->replies;
        const int64_t deadline = deadline_after(10'000);
        for (uint32_t seen = replies;; seen = replies) {
            if (const uint32_t seq = read_seq(client_id(getpid(), 3)); seq != 0)
                _exit(static_cast<int>(seq));
            if (!futex_wait(replies, seen, deadline))
                _exit(0);
        }
    }
    EXPECT_EQ(VLK_get_msgQ_id(VLK_QUEUE_CLIENT_REPLY), id);
    EXPECT_EQ(send(client_id(getpid(), 2), 11), 0);
    VLK_sleep(20); // the client has looked and sleeps
    EXPECT_EQ(send(client_id(client, 3), 12), 0);
    int status = 0;
    waitpid(client, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 12);
    EXPECT_EQ(read_seq(client_id(getpid(), 1)), 0U);
    EXPECT_EQ(retcode, ENOMSG);
    const uint32_t taken = host_event_page()->requests;
    EXPECT_EQ(read_seq(), 11U);
    EXPECT_EQ(host_event_page()->requests, taken + 1) << "who waits for room is not told of it";
}

TEST_F(extended_queue_test, a_full_queue_gives_up_the_replies_of_gone_clients_then_of_idle_ones)
{
    const pid_t gone = fork();
    const pid_t zombie = gone == 0 ? 0 : fork();
    if (gone == 0 || zombie == 0)
        _exit(0);
    siginfo_t info{};
    waitid(P_PID, static_cast<id_t>(zombie), &info, WEXITED | WNOWAIT);
    waitpid(gone, nullptr, 0);
    const int32_t one = client_id(getpid(), 1);
    const int32_t two = client_id(getpid(), 511);
    const int32_t no_process = 1 << HOST_ID_PID_BITS;
    uint32_t seq = 0;
    for (const int32_t client : {one, client_id(gone, 1), two, client_id(zombie, 2), one, two, no_process,
                                 one, two, one, two, two, two})
        EXPECT_EQ(send(client, ++seq), 0) << "there was room to make: " << seq;
    EXPECT_EQ(VLK_msgQex_num(id), 10);
    EXPECT_EQ(send(client_id(getpid(), 3), 14), 0) << "a client that reads nothing stands in the others' way";
    for (const uint32_t expected : {1U, 5U, 6U, 8U, 9U, 10U, 11U, 12U, 13U, 14U, 0U})
        EXPECT_EQ(read_seq(), expected);

    for (int32_t client = 0; client < 10; ++client)
        EXPECT_EQ(send(client_id(getpid(), client), 20), 0);
    const pid_t reader = fork();
    if (reader == 0) {
        VLK_sleep(20);
        _exit(static_cast<int>(read_seq(client_id(getppid(), 4))));
    }
    EXPECT_EQ(send(client_id(getpid(), 10), 21), 0);
    int status = 0;
    waitpid(reader, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 20) << "a reply was dropped that its client was about to read";
    EXPECT_EQ(send(client_id(getpid(), 11), 22), 0);
    EXPECT_EQ(read_seq(client_id(getpid(), 0)), 0U) << "the oldest reply stayed, and the new one has no room";
    EXPECT_EQ(VLK_msgQex_num(id), 10);
    host_event_page()->room_wanted = 1;
    for (int taken = 0; taken < 3; ++taken)
        EXPECT_NE(read_seq(), 0U);
    EXPECT_EQ(host_event_page()->room_wanted, 0U)
        << "nobody fills the queue, and who waits is not offered the room";
    waitpid(zombie, nullptr, 0);
}

TEST_F(extended_queue_test, a_record_of_a_wrong_length_is_taken_out_and_is_no_record)
{
    setenv("VLK_TRACE_LEVEL", "0", 1);
    place.load_settings();
    struct {
        long type;
        char text[8000];
    } message{1, {}};
    for (const size_t length : {0U, 1U, 1635U, 1637U, 1640U, 8000U}) {
        ASSERT_EQ(msgsnd(id, &message, length, IPC_NOWAIT), 0);
        EXPECT_EQ(read_seq(), 0U) << length;
        EXPECT_EQ(retcode, EMSGSIZE) << length;
        EXPECT_EQ(VLK_msgQex_num(id), 0) << "the main loop would spin on it: " << length;
    }
}

TEST_F(extended_queue_test, refuses_what_it_cannot_serve)
{
    for (const int32_t client : {0, -1, INT32_MIN}) {
        EXPECT_EQ(send(client, 1), -1) << client;
        EXPECT_EQ(retcode, EINVAL);
    }
    EXPECT_EQ(send(1, 1), 0);
    EXPECT_EQ(read_seq(-5), 0U) << "a negative Id would select others' replies";
    EXPECT_EQ(VLK_msgQex_create(5, 0, 1636), -1);
    EXPECT_EQ(VLK_msgQex_create(5, 10, 1635), -1);

    testing::internal::CaptureStderr();
    EXPECT_EQ(VLK_msgQex_create(VLK_QUEUE_CLIENT_REPLY, 10, 1636), -1);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("ipcrm -Q"), std::string::npos)
        << "no cure is named";

    EXPECT_EQ(VLK_msgQex_delete(id), 0);
    EXPECT_EQ(VLK_get_msgQ_id(VLK_QUEUE_CLIENT_REPLY), -1);
    EXPECT_EQ(send(getpid(), 1), -1) << "a deleted queue took a record";
    EXPECT_EQ(read_seq(), 0U);
}

} // namespace
