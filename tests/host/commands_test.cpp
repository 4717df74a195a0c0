// The commands socket with real connections: the test is the daemon's main thread and its clients.
#include <cerrno>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "../process.h"
#include "at_cmd_msg.h"
#include "host_place.h"
#include "host_wire.h"
#include "platform.h"
#include "vlk_queues.h"

namespace
{

using testing::ElementsAre;

/// One client process, as far as the daemon can tell.
struct client {
    client()
    {
        sockaddr_un address{AF_UNIX, {}};
        EXPECT_EQ(
            host_path(&host_settings().paths, HOST_COMMANDS_NAME, address.sun_path, sizeof address.sun_path),
            0);
        EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    }
    ~client() { hang_up(); }

    void hang_up() { close(std::exchange(fd, -1)); }
    void send_bytes(size_t count) const
    {
        const std::vector<char> bytes(count);
        EXPECT_EQ(send(fd, bytes.data(), count, MSG_NOSIGNAL), ssize_t(count));
    }
    void ask(uint32_t seq, uint32_t type = AT_COMMAND, int32_t timeout = 5, int32_t id = -3) const
    {
        at_cmd_msg request{};
        request.Id = id;
        request.req_type = type;
        request.seq = seq;
        request.timeout = timeout;
        strcpy(request.snd_rcv_msg.cmd, "AT+CSQ");
        EXPECT_EQ(send(fd, &request, sizeof request, MSG_NOSIGNAL), ssize_t{sizeof request});
    }
    /// seq of the next reply; -1 when there is none now, -2 when the daemon has hung up.
    int64_t hear() const
    {
        at_cmd_msg reply{};
        const ssize_t size = recv(fd, &reply, sizeof reply, MSG_DONTWAIT);
        if (size == ssize_t{sizeof reply})
            return reply.Id == -3 ? int64_t{reply.seq} : -3;
        return size < 0 && errno == EAGAIN ? -1 : -2;
    }
    bool is_disconnected() const
    {
        return wait_until([this] { return hear() == -2; });
    }

    int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
};

struct CommandSocket : testing::Test {
    static void SetUpTestSuite()
    {
        place = new host_place;
        ASSERT_EQ(VLK_event_init(VLK_EVENT_MASK), 0);
        requests = VLK_msgQex_create(VLK_QUEUE_CLIENT_REQUEST, 10, 1636);
        replies = VLK_msgQex_create(VLK_QUEUE_CLIENT_REPLY, 10, 1636);
    }
    static void TearDownTestSuite() { delete place; }

    /// seq of the next request within ten seconds, 0 for none.
    uint32_t take()
    {
        record = {};
        if (!wait_until([] { return VLK_msgQex_num(requests) > 0; }))
            return 0;
        return read_from_msgqueue(requests, &record, 0, &retcode) == 0 ? record.seq : 0;
    }
    int answer() { return send_to_msgqueue(replies, &record, &retcode); }

    /// True when no request comes although the door has had the time to accept and read everything before.
    bool is_idle()
    {
        const client after;
        after.ask(999);
        const bool is_last = take() == 999;
        answer();
        return is_last && VLK_msgQex_num(requests) == 0;
    }

    static inline host_place *place;
    static inline int32_t requests;
    static inline int32_t replies;
    at_cmd_msg record{};
    int retcode = 0;
};

TEST_F(CommandSocket, ARequestRaisesItsBitAndItsReplyComesBackAsItWas)
{
    const client one;
    std::thread asks([&] { one.ask(7, AT_COMMAND, 5); });
    uint32_t events = 0;
    ASSERT_NE(VLK_event_recv(7, 10'000, &events), 0) << "the main thread sleeps beside a request";
    EXPECT_EQ(events, uint32_t{VLK_EVENT_CLIENT_REQUEST});
    EXPECT_EQ(take(), 7U);
    asks.join();
    EXPECT_EQ(answer(), 0);
    EXPECT_EQ(one.hear(), 7);
    EXPECT_EQ(answer(), 0) << "nobody is served now";
    EXPECT_EQ(one.hear(), -1) << "a reply came twice";
}

TEST_F(CommandSocket, LanesKeepTheirOrderAndTakeTurns)
{
    const client one, two;
    two.ask(10); // so that it is known before it comes to turns
    EXPECT_EQ(take(), 10U);
    answer();
    EXPECT_EQ(two.hear(), 10);
    for (uint32_t seq = 1; seq <= 3; ++seq)
        one.ask(seq);
    EXPECT_EQ(take(), 1U);
    for (uint32_t seq = 11; seq <= 13; ++seq)
        two.ask(seq);
    answer();
    std::vector<uint32_t> order;
    for (int n = 0; n < 5; ++n) {
        order.push_back(take());
        answer();
    }
    EXPECT_THAT(order, ElementsAre(11, 2, 12, 3, 13));
    for (int64_t seq = 1; seq <= 3; ++seq) {
        EXPECT_EQ(one.hear(), seq);
        EXPECT_EQ(two.hear(), seq + 10);
    }
}

TEST_F(CommandSocket, WhoHangsUpWithdrawsWhatWaitsAndGetsNoReply)
{
    client gone, other;
    for (uint32_t seq = 1; seq <= 10; ++seq)
        gone.ask(seq);
    EXPECT_EQ(take(), 1U);
    EXPECT_EQ(VLK_msgQex_num(requests), 1) << "the second is read ahead";
    other.ask(20);
    gone.hang_up();
    EXPECT_EQ(take(), 20U) << "a withdrawn request came";
    EXPECT_EQ(answer(), 0);
    EXPECT_EQ(other.hear(), 20);
    client half;
    half.ask(30);
    shutdown(half.fd, SHUT_WR);
    EXPECT_TRUE(half.is_disconnected()) << "half a hang-up is one";
    EXPECT_TRUE(is_idle());
}

TEST_F(CommandSocket, TheWaitOfAClientThatHasGoneEndsAtOnce)
{
    const int32_t data = VLK_msgQ_create(VLK_QUEUE_NAS_DATA, 10, 1516);
    client gone;
    gone.ask(1, ACTIVE_REPORT, 600);
    ASSERT_EQ(take(), 1U);
    std::thread hangs_up([&] {
        wait_until([] { return is_asleep(getpid()); }); // the main thread waits
        gone.hang_up();
    });
    char text[8];
    const int64_t start = now_ms();
    EXPECT_EQ(VLK_msgQ_recv(data, text, sizeof text, 600'000), -1);
    EXPECT_EQ(VLK_msgQ_recv(data, text, sizeof text, 600'000), -1) << "it waits again for the same client";
    EXPECT_LT(now_ms() - start, 10'000);
    hangs_up.join();
    const client next;
    next.ask(2);
    EXPECT_EQ(take(), 2U);
    EXPECT_EQ(VLK_msgQ_send(data, "late", 5), 1);
    EXPECT_EQ(VLK_msgQ_recv(data, text, sizeof text, 0), 5) << "the next one waits as ever";
    answer();
    VLK_msgQ_delete(data);
}

TEST_F(CommandSocket, AClientThatDoesNotReadLosesNothingAndHoldsUpNobody)
{
    const client lazy, honest;
    uint32_t asked = 1, served = 0;
    lazy.ask(asked);
    for (bool is_taken = true; is_taken || VLK_msgQex_num(requests) > 0;) {
        ASSERT_LT(asked, 2000U) << "somebody who never reads is served for ever";
        if (served == 0 || VLK_msgQex_num(requests) > 0) {
            ASSERT_EQ(take(), ++served);
            EXPECT_EQ(answer(), 0);
        }
        at_cmd_msg request{};
        request.Id = -3;
        request.seq = asked + 1;
        is_taken =
            send(lazy.fd, &request, sizeof request, MSG_DONTWAIT | MSG_NOSIGNAL) == ssize_t{sizeof request};
        asked += is_taken ? 1 : 0;
    }
    EXPECT_LT(served, asked);
    honest.ask(1000);
    EXPECT_EQ(take(), 1000U);
    answer();
    EXPECT_EQ(honest.hear(), 1000);
    for (uint32_t heard = 0; heard < asked;) {
        while (lazy.hear() == int64_t{heard} + 1)
            ++heard;
        uint32_t events = 0;
        VLK_event_recv(7, 0, &events);
        while (VLK_msgQex_num(requests) > 0) {
            ASSERT_EQ(take(), ++served);
            answer();
        }
        ASSERT_LE(heard, served);
    }
    EXPECT_EQ(served, asked);
}

TEST_F(CommandSocket, WhatIsNoRecordEndsItsConnectionAlone)
{
    const client honest;
    for (const size_t size : {1U, 1635U, 1637U, 8000U}) {
        const client other;
        other.ask(1);
        ASSERT_EQ(take(), 1U);
        answer();
        other.send_bytes(size);
        other.ask(2);
        EXPECT_EQ(other.hear(), 1);
        EXPECT_TRUE(is_idle()) << size;
        EXPECT_TRUE(other.is_disconnected()) << size;
    }
    honest.ask(5);
    EXPECT_EQ(take(), 5U);
    answer();
    EXPECT_EQ(honest.hear(), 5);
}

TEST_F(CommandSocket, ATimeLimitIsBounded)
{
    const client one;
    for (const auto &[asked, given] : {std::pair{INT32_MAX, 600}, {601, 600}, {600, 600}, {0, 0}, {-5, -5}}) {
        one.ask(1, AT_COMMAND, asked);
        EXPECT_EQ(take(), 1U);
        EXPECT_EQ(record.timeout, given) << asked;
        answer();
    }
}

TEST_F(CommandSocket, RequestsGiveWayToTheModemsReports)
{
    const int32_t task = VLK_task_getid();
    const client greedy;
    for (uint32_t seq = 1; seq <= 3; ++seq)
        greedy.ask(seq, AT_STORED_REPORT);
    uint32_t events = 0;
    ASSERT_NE(VLK_event_recv(7, 10'000, &events), 0);
    EXPECT_EQ(take(), 1U);
    answer();
    VLK_event_send(task, VLK_EVENT_NAS_DATA);
    EXPECT_EQ(VLK_msgQex_num(requests), 0) << "reports wait for as long as requests come";
    EXPECT_NE(VLK_event_recv(7, 0, &events), 0);
    EXPECT_EQ(events, uint32_t{VLK_EVENT_CLIENT_REQUEST | VLK_EVENT_NAS_DATA}) << "a request was forgotten";
    EXPECT_EQ(VLK_msgQex_num(requests), 1) << "one request at least is served in each turn";
    EXPECT_EQ(take(), 2U);
    answer();
    EXPECT_EQ(VLK_msgQex_num(requests), 0) << "the modem's data was not looked at yet";
    EXPECT_NE(VLK_event_recv(7, 0, &events), 0);
    EXPECT_EQ(take(), 3U);
    answer();
}

TEST_F(CommandSocket, RefusesWhatItCannotServe)
{
    for (const int32_t id : {-1, 0, requests})
        EXPECT_EQ(send_to_msgqueue(id, &record, &retcode), -1) << id;
    EXPECT_EQ(send_to_msgqueue(replies, nullptr, &retcode), -1);
    EXPECT_EQ(read_from_msgqueue(replies, &record, 0, &retcode), -1);
    EXPECT_EQ(read_from_msgqueue(requests, &record, 1, &retcode), -1) << "one Id's requests only";
    EXPECT_EQ(retcode, EINVAL);
    EXPECT_EQ(VLK_msgQex_num(-1), -1);
    EXPECT_EQ(VLK_msgQex_create(VLK_QUEUE_CLIENT_REQUEST, 10, 1636), -1) << "there is one already";
    EXPECT_EQ(VLK_msgQex_create(5, 10, 1636), -1);
    EXPECT_EQ(VLK_msgQex_create(VLK_QUEUE_CLIENT_REPLY, 10, 1635), -1);
    EXPECT_EQ(VLK_get_msgQ_id(VLK_QUEUE_CLIENT_REPLY), replies);
}

} // namespace
