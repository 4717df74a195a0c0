// Hostile, broken and unlucky clients, with an honest one beside them that must not notice.
#include "system.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <thread>

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "at_cmd_msg.h"

using testing::HasSubstr;

namespace
{

constexpr char COUNTED[] = "set hits 0\n"
                           "command AT+HIT\n    count hits\n    final OK\n"
                           "command AT+HITS?\n    line +HITS: {hits}\n    final OK\n"
                           "command AT+SLOW\n    delay 700\n    final OK\n"
                           "command AT+LONG\n    delay 3s\n    final OK\n";

/// Any program with access to the socket.
struct raw_client {
    explicit raw_client(const system_under_test &system)
    {
        sockaddr_un address{AF_UNIX, {}};
        strcpy(address.sun_path, (system.folder + "/run/commands").c_str());
        EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    }
    ~raw_client() { close(fd); }

    /// False when the daemon takes no more.
    bool send_record(const at_cmd_msg &record) const
    {
        return send(fd, &record, sizeof record, MSG_DONTWAIT | MSG_NOSIGNAL) == ssize_t{sizeof record};
    }
    bool ask(const char *text, int32_t timeout = 5, uint32_t type = AT_COMMAND) const
    {
        at_cmd_msg record{};
        record.req_type = type;
        record.timeout = timeout;
        record.rep_type = AT_REPORT_RSSI;
        strcpy(record.snd_rcv_msg.cmd, text);
        return send_record(record);
    }

    int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
};

struct Attackers : testing::Test {
    system_under_test system;

    void SetUp() override
    {
        system.start_modem(COUNTED);
        system.start_daemon();
    }
    void expect_hits(int count)
    {
        const outcome hits = system.vlkctl({"at", "AT+HITS?", "--expect", "+HITS:"});
        EXPECT_EQ(hits.out, "+HITS: " + std::to_string(count) + "\n") << hits.err;
    }
};

} // namespace

TEST_F(Attackers, WhatWasWithdrawnNeverReachesTheModem)
{
    const raw_client busy(system);
    ASSERT_TRUE(busy.ask("AT+SLOW"));
    system.wait_until_answering();
    {
        std::vector<std::unique_ptr<raw_client>> dead;
        for (int n = 0; n < 20; ++n) {
            dead.push_back(std::make_unique<raw_client>(system));
            for (int depth = 0; depth < 4; ++depth)
                ASSERT_TRUE(dead.back()->ask("AT+HIT"));
        }
        const auto late = system.start_vlkctl({"at", "AT+HIT", "--wait", "0.05"});
        EXPECT_EQ(late->wait(), 3) << late->err;
        const auto interrupted = system.start_vlkctl({"at", "AT+HIT"});
        EXPECT_TRUE(wait_until([&] { return is_asleep(interrupted->pid); })) << "it waits for its turn";
        interrupted->kill(SIGINT);
        EXPECT_EQ(interrupted->wait(), 128 + SIGINT);
    }
    expect_hits(0);
}

TEST_F(Attackers, WhoHangsUpDuringACommandFreesTheModemForTheOthers)
{
    for (const uint32_t type : {AT_COMMAND, ACTIVE_REPORT}) {
        {
            const raw_client gone(system);
            ASSERT_TRUE(gone.ask("AT+LONG", 600, type));
            EXPECT_TRUE(wait_until([this] {
                return system.vlkctl({"status", "--json"}).out.find(R"("command":"")") == std::string::npos;
            }));
        }
        const int64_t start = now_ms();
        system.expect_signal("after the hang-up");
        EXPECT_LT(now_ms() - start, 20'000) << "it waits for the whole time limit";
    }
}

TEST_F(Attackers, GreedyClientsTakeTurnsWithHonestOnes)
{
    std::vector<std::unique_ptr<raw_client>> greedy, idle;
    for (int n = 0; n < 100; ++n)
        idle.push_back(std::make_unique<raw_client>(system));
    for (int n = 0; n < 40; ++n)
        greedy.push_back(std::make_unique<raw_client>(system));
    std::atomic<bool> stop{false};
    std::thread flood([&] {
        at_cmd_msg reply;
        while (!stop)
            for (const auto &one : greedy) {
                one->ask("AT+HIT");
                while (recv(one->fd, &reply, sizeof reply, MSG_DONTWAIT) > 0) {}
            }
    });
    const raw_client honest(system);
    const auto next_answer = [&honest] {
        at_cmd_msg reply{};
        EXPECT_EQ(recv(honest.fd, &reply, sizeof reply, 0), ssize_t{sizeof reply});
        return std::atoi(reply.snd_rcv_msg.rmsg + strlen("+HITS: "));
    };
    int last = 0;
    while (last == 0) { // until the others are at work
        ASSERT_TRUE(honest.ask("AT+HITS?"));
        last = next_answer();
    }
    constexpr int TURNS = 20; // asked for at once: how soon this thread runs again does not count
    for (int turn = 0; turn < TURNS; ++turn)
        ASSERT_TRUE(honest.ask("AT+HITS?"));
    for (int turn = 0; turn < TURNS; ++turn) {
        const int hits = next_answer();
        EXPECT_TRUE(turn == 0 || hits - last <= 2 * 40)
            << "its turn came after two of everybody's: " << hits - last;
        last = hits;
    }
    stop = true;
    flood.join();
}

TEST_F(Attackers, RecordsThatAreNoneAndRequestsWithoutEndDoNotKeepReportsWaiting)
{
    std::atomic<bool> stop{false};
    std::thread flood([&] {
        while (!stop) {
            const raw_client small(system);
            send(small.fd, "x", 1, MSG_NOSIGNAL);
            for (int n = 0; n < 20; ++n)
                small.ask("", 0, AT_STORED_REPORT);
        }
    });
    std::thread stored([&] {
        const raw_client asks(system);
        at_cmd_msg reply;
        while (!stop) {
            asks.ask("", 0, AT_STORED_REPORT);
            while (recv(asks.fd, &reply, sizeof reply, MSG_DONTWAIT) > 0) {}
        }
    });
    const auto monitor =
        system.start_vlkctl({"monitor", "--module", "9", "--count", "100", "--seconds", "60"});
    ASSERT_TRUE(monitor->wait_for_error("listening"));
    for (int n = 0; n < 100; ++n)
        system.tell_modem("report ^TEMPPRT: 2," + std::to_string(n));
    EXPECT_EQ(monitor->wait(90), 0) << monitor->err;
    stop = true;
    flood.join();
    stored.join();
    EXPECT_EQ(std::ranges::count(monitor->out, '\n'), 100);
    system.expect_signal("after the flood");
}

TEST_F(Attackers, HostileRecordsAreServedOrRefusedAndHarmNobody)
{
    std::mt19937 random(20261122);
    const int32_t edges[] = {INT32_MIN, -1, 0, 1, 1540, INT32_MAX};
    for (uint32_t n = 0; n < 120; ++n) {
        at_cmd_msg record{};
        auto *bytes = reinterpret_cast<unsigned char *>(&record);
        for (std::size_t at = 0; at < sizeof record; ++at)
            bytes[at] = static_cast<unsigned char>(random() | 1U); // no terminators
        record.req_type = n % 12 < 8 ? n % 12 : static_cast<uint32_t>(random());
        record.timeout = n % 3 == 0 ? INT32_MIN : 0;
        record.cmd_len = edges[n % 6];
        if (n % 4 == 0)
            memcpy(record.snd_rcv_msg.cmd, n % 8 == 0 ? "AT+CMGS=1\r" : "AT+CSQ", n % 8 == 0 ? 10 : 6);
        const raw_client hostile(system);
        ASSERT_TRUE(hostile.send_record(record)) << n;
        if (n % 10 != 9)
            continue;
        // A command without time to wait leaves its answer to the next ones: the modem is in step again soon.
        std::string last;
        for (int tries = 0; tries < 5 && last != "+CREG: 0,1,\"1A2B\",\"0C3D4E5F\",7\n"; ++tries)
            last = system.vlkctl({"at", "AT+CREG?", "--expect", "+CREG:", "--wait", "30"}).out;
        EXPECT_EQ(last, "+CREG: 0,1,\"1A2B\",\"0C3D4E5F\",7\n") << n;
    }
}

TEST_F(Attackers, SocketsAndLockThatSomebodyRemovesAreMadeAnew)
{
    const raw_client before(system);
    for (const char *name : {"commands", "hub", "lock"}) {
        const std::string path = system.folder + "/run/" + name;
        ASSERT_EQ(unlink(path.c_str()), 0);
        EXPECT_TRUE(wait_until([&] { return access(path.c_str(), F_OK) == 0; })) << name;
        EXPECT_TRUE(wait_until([this] { return system.vlkctl({"at", "AT+CSQ"}).code == 0; })) << name;
    }
    process second({VORLINK}, system.variables);
    EXPECT_EQ(second.wait(), 69) << "the new lock keeps nobody out";
    ASSERT_TRUE(before.ask("AT+CSQ"));
    at_cmd_msg reply{};
    EXPECT_EQ(recv(before.fd, &reply, sizeof reply, 0), ssize_t{sizeof reply})
        << "who was connected stays so";

    std::filesystem::rename(system.folder + "/run", system.folder + "/moved");
    EXPECT_EQ(system.daemon->wait(), 71) << "alive, but nobody can reach it";
    EXPECT_THAT(system.daemon->err, HasSubstr("somebody removed"));
}
