// The hub with real sockets: what services get, what they may send, what hostile ones cannot do.
#include <algorithm>
#include <cstring>
#include <ctime>
#include <deque>
#include <filesystem>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "host_place.h"
#include "host_wire.h"
#include "qep_msg.h"
#include "qep_notify.h"

namespace
{

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr int32_t OWN_MODULE = 31;
constexpr uint32_t LAST = 999; // the code of a packet that ends take_all

struct packet : host_packet {
    std::string data{};

    std::string bytes() const
    {
        return std::string(reinterpret_cast<const char *>(this), sizeof(host_packet)) + data;
    }
};

packet make(uint32_t kind, uint32_t code, const std::string &data = "", int32_t module = OWN_MODULE)
{
    return {{kind, module, code, 0, 0, 0, {}, uint32_t(data.size())}, data};
}

packet subscription(int32_t what, int32_t module, const char *name = "")
{
    packet made = make(HOST_SUBSCRIBE, 0, "", module);
    made.value1 = what;
    std::string_view(name).copy(made.name, HOST_NAME_SIZE - 1);
    return made;
}

/// One service process, as far as the hub can tell.
struct service {
    explicit service(int its_fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) : fd(its_fd)
    {
        sockaddr_un address{AF_UNIX, {}};
        EXPECT_EQ(host_path(&host_settings().paths, "hub", address.sun_path, sizeof address.sun_path), 0);
        EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        const timeval patience{10, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }
    ~service() { close(fd); }

    void send_bytes(const std::string &bytes) const
    {
        EXPECT_EQ(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), ssize_t(bytes.size()));
    }
    /// The next packet; of kind 0 when the hub has hung up, or nothing is there and MSG_DONTWAIT given.
    packet take(int flags = 0) const
    {
        packet taken{};
        std::string bytes(sizeof(host_packet) + HOST_DATA_MAX, 0);
        const ssize_t size = recv(fd, bytes.data(), bytes.size(), flags);
        EXPECT_TRUE(size >= 0 || flags == MSG_DONTWAIT || errno == ECONNRESET) << "nothing came in time";
        if (size < ssize_t{sizeof(host_packet)})
            return taken;
        memcpy(static_cast<host_packet *>(&taken), bytes.data(), sizeof(host_packet));
        taken.data = bytes.substr(sizeof(host_packet), size_t(size) - sizeof(host_packet));
        EXPECT_EQ(taken.length, taken.data.size());
        return taken;
    }
    packet ask(const packet &what) const
    {
        send_bytes(what.bytes());
        return take();
    }
    bool is_disconnected() const { return take().kind == 0; }
    void subscribe(host_subscription what, int32_t module, const char *name = "") const
    {
        packet expected = subscription(what, module, name);
        expected.kind = HOST_SUBSCRIBED;
        EXPECT_EQ(ask(subscription(what, module, name)).bytes(), expected.bytes());
    }
    /// Codes and data of all packets up to the last one.
    std::vector<std::string> take_all() const
    {
        std::vector<std::string> all;
        for (packet next = take(); next.kind != 0 && next.code != LAST; next = take())
            all.push_back(std::to_string(next.code) + ":" + next.data);
        return all;
    }

    const int fd;
};

struct Hub : testing::Test {
    static void SetUpTestSuite()
    {
        place = new host_place;
        ASSERT_EQ(QEP_NOTIFYCLT_Init(OWN_MODULE), 0);
        EXPECT_EQ(std::filesystem::status(place->folder + "/hub").permissions(),
                  std::filesystem::perms{0660});
    }
    static void TearDownTestSuite() { delete place; }

    static inline host_place *place;
};

TEST_F(Hub, EverySubscriberGetsItsOwnInOrder)
{
    const service radio, dialup, monitor, both, none;
    radio.subscribe(HOST_TAKE_MODULE, 19);
    dialup.subscribe(HOST_TAKE_NAME, 0, "dialup");
    monitor.subscribe(HOST_TAKE_ALL, 0);
    monitor.subscribe(HOST_TAKE_MODULE, 19); // must not get things twice
    both.subscribe(HOST_TAKE_MODULE, 19);
    both.subscribe(HOST_TAKE_NAME, 0, "lpm");

    const std::string big(HOST_DATA_MAX + 1, 'b');
    EXPECT_EQ(VLK_post_notify_ex(19, 1, "abc", 3, 0, 0), 0);
    EXPECT_EQ(VLK_post_notify(20, 2, -5, 7), 0);
    EXPECT_EQ(VLK_post_notify_ex(19, 0, big.data(), HOST_DATA_MAX + 1, 0, 0), -1);
    EXPECT_EQ(VLK_post_notify_ex(19, 0, nullptr, 4, 0, 0), -1);
    EXPECT_EQ(QEP_MSG_SendMsgData("dialup", 3, "xyz", 3), 0);
    EXPECT_EQ(QEP_MSG_SendMsgData("lpm", 0, big.data(), HOST_DATA_MAX + 1), -1);
    EXPECT_EQ(QEP_MSG_SendSimpleMsg("lpm", 4, 0x01020304), 0);
    EXPECT_EQ(QEP_MSG_SendSimpleMsg(nullptr, 0, 0), -1);
    EXPECT_EQ(QEP_MSG_SendSimpleMsg("a name of more than 31 characters", 0, 0), -1);
    EXPECT_EQ(VLK_post_notify_ex(19, 5, big.data(), HOST_DATA_MAX, 0, 0), 0);
    VLK_post_notify(19, LAST, 0, 0);
    QEP_MSG_SendMsgData("dialup", LAST, nullptr, 0);

    const std::string most = "5:" + big.substr(1);
    EXPECT_THAT(radio.take_all(), ElementsAre("1:abc", most));
    EXPECT_THAT(dialup.take_all(), ElementsAre("3:xyz"));
    EXPECT_THAT(both.take_all(), ElementsAre("1:abc", "4:\x04\x03\x02\x01", most));
    EXPECT_THAT(monitor.take_all(), ElementsAre("1:abc", "2:", "3:xyz", "4:\x04\x03\x02\x01", most));
    EXPECT_EQ(none.take(MSG_DONTWAIT).kind, 0U);
}

TEST_F(Hub, ListenerThatDoesNotReadIsToldWhatItMissed)
{
    constexpr uint32_t POSTED = 5000;
    const service slow, fast;
    testing::internal::CaptureStderr();
    slow.subscribe(HOST_TAKE_MODULE, 18);
    fast.subscribe(HOST_TAKE_MODULE, 18);
    for (uint32_t i = 0; i < POSTED; ++i) {
        ASSERT_EQ(VLK_post_notify_ex(18, int32_t(i), "a report of some length, as they are", 36, 0, 0), 0);
        const packet next = fast.take();
        ASSERT_EQ(next.code, i);
        ASSERT_EQ(next.missed, 0U);
    }
    uint32_t got = 0;
    while (slow.take(MSG_DONTWAIT).kind != 0)
        ++got;
    EXPECT_GE(got, 200U) << "a burst must fit";
    ASSERT_LT(got, POSTED);
    for (const uint32_t missed : {POSTED - got, 0U}) {
        VLK_post_notify(18, 1, -5, 7);
        const packet next = slow.take();
        EXPECT_EQ(next.missed, missed);
        EXPECT_EQ(next.value1, -5);
        EXPECT_EQ(next.value2, 7);
    }
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::ranges::count(log, '\n'), 2) << "one line when it begins, one when it is over: " << log;
    EXPECT_THAT(log, HasSubstr("does not read its events and loses them: mend it or end it\n"));
    EXPECT_THAT(log, HasSubstr(" has lost " + std::to_string(POSTED - got) + " events"));
}

TEST_F(Hub, HostilePacketEndsOnlyItsSender)
{
    packet endless_name = subscription(HOST_TAKE_NAME, 0);
    memset(endless_name.name, 'n', HOST_NAME_SIZE);
    const std::string whole = make(HOST_BUS_SEND, 1, "data").bytes();
    packet overflow = make(HOST_BUS_SEND, 1);
    --overflow.length;
    const std::pair<const char *, std::string> rows[] = {
        {"half a header", whole.substr(0, 30)},
        {"less data than announced", whole.substr(0, 63)},
        {"more data than announced", whole + "."},
        {"a length that overflows", overflow.bytes()},
        {"too much data", make(HOST_SYNC_REQUEST, 1, std::string(HOST_DATA_MAX + 1, 'd')).bytes()},
        {"a kind that only the daemon sends", make(HOST_EVENT, 1).bytes()},
        {"an unknown subscription", subscription(host_subscription(5), 1).bytes()},
        {"a name without an end", endless_name.bytes()},
        {"noise", std::string(500, '\xA5')},
    };
    const service honest, greedy;
    honest.subscribe(HOST_TAKE_MODULE, 17);
    for (const auto &[fault, sent] : rows) {
        const service hostile;
        hostile.send_bytes(sent);
        EXPECT_TRUE(hostile.is_disconnected()) << fault;
    }
    for (int32_t i = 0; i < 64; ++i)
        greedy.subscribe(HOST_TAKE_MODULE, i % 32); // asking again is no other subscription
    greedy.send_bytes(subscription(HOST_TAKE_MODULE, 100).bytes());
    EXPECT_TRUE(greedy.is_disconnected());
    EXPECT_EQ(honest.ask(make(HOST_SYNC_REQUEST, 1)).kind, HOST_SYNC_REPLY) << "still connected";
}

/// Fails, replies too much, or with "pong".
int answer(const void *data, void **reply, uint32_t *length)
{
    const std::string request = static_cast<const char *>(data);
    *length = request == "much" ? HOST_DATA_MAX + 1 : uint32_t(request.size() + 5);
    *reply = calloc(1, HOST_DATA_MAX + 1);
    memcpy(*reply, (request + " pong").data(), request.size() + 5);
    return request == "fail" ? 1 : 0;
}

TEST_F(Hub, RequestIsAlwaysAnswered)
{
    EXPECT_EQ(QEP_NOTIFYCLT_RegSyncMsgProc(1, nullptr), -1);
    EXPECT_EQ(QEP_NOTIFYCLT_RegSyncMsgProc(31008, answer), 0);
    const struct {
        const char *fault;
        const char *request;
        int32_t module;
        uint32_t message;
        int32_t result;
        const char *reply;
    } rows[] = {
        {"a handler's reply", "ping", OWN_MODULE, 31008, 0, "ping pong"},
        {"what is left of the one before", "p", OWN_MODULE, 31008, 0, "p pong"},
        {"a handler that fails", "fail", OWN_MODULE, 31008, 1, ""},
        {"a reply that does not fit", "much", OWN_MODULE, 31008, -1, ""},
        {"a message that nobody handles", "ping", OWN_MODULE, 5, -1, ""},
        {"a request to another module", "ping", 30, 31008, -1, ""},
    };
    const service asking, other;
    other.subscribe(HOST_TAKE_ALL, 0);
    for (const auto &row : rows) {
        SCOPED_TRACE(row.fault);
        packet request = make(HOST_SYNC_REQUEST, row.message, row.request, row.module);
        request.value2 = 4711;
        const packet got = asking.ask(request);
        EXPECT_THAT(std::tuple(got.kind, got.code, got.value1, got.value2, got.data),
                    testing::FieldsAre(HOST_SYNC_REPLY, row.message, row.result, 4711, row.reply));
    }
    EXPECT_EQ(other.take(MSG_DONTWAIT).kind, 0U) << "a reply is its asker's alone";
}

// What the bus thread was given.
std::vector<std::string> taken;
std::thread::id taker;
std::binary_semaphore took_last{0};

void take_message(const qep_msg *message)
{
    const std::string payload(reinterpret_cast<const char *>(message) + 40, message->length);
    taken.push_back(std::to_string(message->type) + ":" + payload);
    taker = std::this_thread::get_id();
    if (message->type == LAST)
        took_last.release();
}

TEST_F(Hub, BusMessagesRunOnTheBusThreadAndAFloodLeavesRoom)
{
    const service flooding, other;
    const packet probe = make(HOST_SYNC_REQUEST, 5); // answered after what was sent before
    flooding.send_bytes(make(HOST_BUS_SEND, 1).bytes());
    flooding.ask(probe);
    EXPECT_EQ(QEP_MSG_Init("vorlink"), 0); // what came before is refused
    EXPECT_EQ(QEP_MSG_RegisterMsgProc(take_message), 0);
    for (uint32_t i = 10; i < 110; ++i)
        flooding.send_bytes(make(HOST_BUS_SEND, i, "load").bytes());
    flooding.ask(probe);
    other.send_bytes(make(HOST_BUS_SEND, LAST).bytes());
    other.ask(probe);

    std::thread bus([] { QEP_UTIL_SockBaseStart(0); });
    const std::thread::id bus_thread = bus.get_id();
    bus.detach();
    ASSERT_TRUE(took_last.try_acquire_for(10s));
    EXPECT_EQ(taker, bus_thread);
    flooding.send_bytes(make(HOST_BUS_SEND, LAST).bytes());
    ASSERT_TRUE(took_last.try_acquire_for(10s)) << "it has room again";
    EXPECT_THAT(taken, ElementsAre("10:load", "11:load", "12:load", "13:load", "999:", "999:"));
}

TEST_F(Hub, ListenersAreLimitedAndMakeRoom)
{
    {
        std::deque<service> listeners(256);
        for (const service &each : listeners)
            each.subscribe(HOST_TAKE_MODULE, 16);
        testing::internal::CaptureStderr();
        for (int i = 0; i < 50; ++i)
            EXPECT_TRUE(service().is_disconnected());
        EXPECT_THAT(testing::internal::GetCapturedStderr(),
                    testing::HasSubstr("a connection to hub is refused"));
    }
    for (int i = 0; i < 3000; ++i)
        const service comes_and_goes;
    // The hub takes nobody while all of the ended ones are still to be noticed.
    for (int tries = 0; tries < 1000; ++tries)
        if (service().ask(subscription(HOST_TAKE_MODULE, 16)).kind != 0)
            return;
    FAIL() << "there is no room again";
}

TEST_F(Hub, StatusIsToldToWhoeverAsks)
{
    const service asking;
    const packet answer = asking.ask(make(HOST_ASK_STATUS, 0));
    EXPECT_EQ(answer.kind, HOST_STATUS);
    EXPECT_THAT(answer.data,
                testing::AllOf(testing::HasSubstr("daemon.pid " + std::to_string(getpid()) + "\n"),
                               testing::HasSubstr("modem.state absent\n"),
                               testing::HasSubstr("clients.waiting 0\n"), testing::EndsWith("\n")));
}

TEST_F(Hub, WaitsQuietlyForDescriptors)
{
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{3, before.rlim_max};
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    setrlimit(RLIMIT_NOFILE, &none);
    const service waiting(fd);
    const clock_t start = clock(); // CPU time of the whole process
    std::this_thread::sleep_for(400ms);
    EXPECT_LT(clock() - start, CLOCKS_PER_SEC / 10) << "it must not spin";
    setrlimit(RLIMIT_NOFILE, &before);
    waiting.subscribe(HOST_TAKE_MODULE, 16);
}

} // namespace
