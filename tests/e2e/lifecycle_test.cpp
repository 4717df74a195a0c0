// How the daemon starts, what it refuses, what it survives.
#include "system.h"

#include <cstring>
#include <random>
#include <sys/msg.h>

#include <gmock/gmock.h>

#include "at_cmd_msg.h"
#include "vlk_queues.h"

using testing::HasSubstr;

namespace
{

struct queue_message {
    long type;
    at_cmd_msg record;
};
static_assert(sizeof(at_cmd_msg) == VLK_CLIENT_RECORD_SIZE);

/// Puts a record on the request queue as any program with access could. False when the queue is full.
bool push_request(const system_under_test &system, const at_cmd_msg &record)
{
    const int queue = msgget(static_cast<key_t>(system.base + VLK_QUEUE_CLIENT_REQUEST), 0);
    const queue_message message = {1, record};
    return msgsnd(queue, &message, sizeof message.record, IPC_NOWAIT) == 0;
}

at_cmd_msg command(const char *text)
{
    at_cmd_msg record{};
    record.Id = getpid();
    record.timeout = 5;
    strcpy(record.snd_rcv_msg.cmd, text);
    return record;
}

} // namespace

TEST(Lifecycle, ARestartForgetsWhatAnEarlierRunLeft)
{
    system_under_test system;
    system.start_modem("set hits 0\ncommand AT+HIT\n    count hits\n    final OK\n"
                       "command AT+HITS?\n    line +HITS: {hits}\n    final OK\n");
    system.start_daemon();
    system.daemon->kill(SIGKILL);
    ASSERT_EQ(system.daemon->wait(), 128 + SIGKILL);
    for (int n = 0; n < 10; ++n)
        ASSERT_TRUE(push_request(system, command("AT+HIT")));
    EXPECT_EQ(system.vlkctl({"at", "AT+CSQ"}).code, 4) << "no daemon must be told apart from no answer";

    system.start_daemon();
    EXPECT_EQ(system.vlkctl({"at", "AT+HITS?"}).out, "+HITS: 0\n");
}

TEST(Lifecycle, AModemThatAppearsLateIsWaitedFor)
{
    system_under_test system;
    system.start_daemon_without_waiting();
    ASSERT_TRUE(system.daemon->wait_for_error(system.variables["VLK_AT_DEVICE"]))
        << "the missing device is named";
    EXPECT_THAT(system.vlkctl({"status"}).out, HasSubstr("absent"));
    const auto early = system.start_vlkctl({"at", "AT+CSQ", "--wait", "30"});
    system.start_modem();
    EXPECT_EQ(early->wait(), 0) << early->err;
    EXPECT_EQ(early->out, SIGNAL);
}

TEST(Lifecycle, HostileRecordsAreServedOrDroppedAndHarmNobody)
{
    system_under_test system;
    system.start_modem();
    system.start_daemon();
    std::mt19937 random(20261122);
    const int32_t edges[] = {INT32_MIN, -1, 0, 1, 1540, INT32_MAX};
    for (uint32_t n = 0; n < 120; ++n) {
        at_cmd_msg record{};
        auto *bytes = reinterpret_cast<unsigned char *>(&record);
        for (std::size_t at = 0; at < sizeof record; ++at)
            bytes[at] = static_cast<unsigned char>(random() | 1U); // no terminators
        record.Id = n % 2 == 0 ? getpid() : static_cast<int32_t>(random());
        record.req_type = n % 12 < 8 ? n % 12 : static_cast<uint32_t>(random());
        record.timeout = n % 3 == 0 ? INT32_MIN : 0;
        record.cmd_len = edges[n % 6];
        if (n % 4 == 0)
            memcpy(record.snd_rcv_msg.cmd, n % 8 == 0 ? "AT+CMGS=1\r" : "AT+CSQ", n % 8 == 0 ? 10 : 6);
        ASSERT_TRUE(push_request(system, record)) << n; // and nobody is told: its sender may have died
        if (n % 10 != 9)
            continue;
        // A command without time to wait leaves its answer to the next ones: the modem is in step again soon.
        std::string last;
        for (int tries = 0; tries < 5 && last != "+CREG: 0,1,\"1A2B\",\"0C3D4E5F\",7\n"; ++tries)
            last = system.vlkctl({"at", "AT+CREG?", "--expect", "+CREG:", "--wait", "30"}).out;
        EXPECT_EQ(last, "+CREG: 0,1,\"1A2B\",\"0C3D4E5F\",7\n") << n;
    }
}
