// The daemon's threads at work together; meant for the thread sanitizer.
#include <atomic>
#include <cstdlib>
#include <thread>

#include "core_test.h"
#include "vorlink/bus_thread.h"
#include "vorlink/state_machine.h"

using Threads = daemon_test;

namespace
{

constexpr int BURSTS = 40;
constexpr int BUS_MESSAGES = 500;
constexpr int REPORTS = 500;

std::atomic<int> at_work = 0; // threads beside the main thread
std::atomic<int> stops = 0;   // requests to stop a scan that were answered
std::atomic<bool> scans_are_over = false;

void run_notify_client()
{
    while (!scans_are_over) {
        void *reply = nullptr;
        uint32_t length = 0;
        ASSERT_EQ(VlkStopNetScan(nullptr, &reply, &length), 0);
        uint32_t sent = 0;
        std::memcpy(&sent, reply, sizeof sent);
        std::free(reply);
        ASSERT_EQ(length, 4u);
        ASSERT_EQ(sent, 1u);
        stops++;
    }
}

void run_bus()
{
    const qep_msg packet = {0x1234, {}, 0};
    for (int i = 0; i < BUS_MESSAGES; i++)
        vlk_msgproc(&packet);
}

/// Keeps the modem-data queue nearly full; what remains is for the answers.
void run_modem()
{
    for (int i = 0; i < REPORTS; i++) {
        while (VLK_msgQ_num(g_nasDataQid) >= VLK_QUEUE_CAPACITY - 2)
            std::this_thread::yield();
        ASSERT_EQ(fake::deliver("\r\n+CMTI: \"SM\"," + std::to_string(i) + "\r\n"), 0);
    }
}

/// Queues requests of several clients at once, then takes the replies.
void run_clients()
{
    at_cmd_msg burst[] = {command("AT+CSQ", "+CSQ:"), command("AT^NETSCAN=20", "^NETSCAN:"),
                          command("AT+CSQ"), command("AT+CSQ", "", 3, RAW), command("")};
    burst[4].req_type = 4; // is refused
    for (int i = 0; i < BURSTS; i++) {
        for (at_cmd_msg &each : burst) {
            each.Id++;
            fake::put(VLK_QUEUE_CLIENT_REQUEST, bytes_of(each));
        }
        for (const at_cmd_msg &each : burst) {
            at_cmd_msg reply{};
            int error = 0;
            while (read_from_msgqueue(g_clientRspQid, &reply, 0, &error) != 0)
                std::this_thread::yield();
            ASSERT_EQ(reply.Id, each.Id);
            ASSERT_EQ(reply.snd_rcv_msg.ret_val, each.req_type == 4 ? 8 : 2);
        }
    }
    scans_are_over = true;
}

} // namespace

TEST_F(Threads, EverybodyIsServedWhileAllAskAtOnce)
{
    fake::on_write("AT+CSQ\r", [] { EXPECT_EQ(fake::deliver("+CSQ: 20,99\r\nOK\r\n"), 0); });
    fake::on_write("AT^NETSCAN=20\r", [] {
        for (const int before = stops; stops < before + 2;) // one request lies wholly within the scan
            std::this_thread::yield();
        EXPECT_EQ(fake::deliver("OK\r\n"), 0);
    });
    std::vector<std::thread> others;
    for (void (*run)() : {run_notify_client, run_bus, run_modem, run_clients}) {
        at_work++;
        others.emplace_back([run] {
            run();
            at_work--;
        });
    }
    at_state state = AT_IDLE_S;
    while (at_work > 0 || VLK_msgQ_num(g_nasDataQid) > 0) {
        if (state != AT_IDLE_S || VLK_msgQex_num(g_clientReqQid) > 0 || VLK_msgQ_num(g_nasDataQid) > 0)
            state = vlk_state_machine_pass(state, false);
        else
            std::this_thread::yield();
    }
    for (std::thread &each : others)
        each.join();

    int bus_messages = 0, reports = 0;
    for (const fake::platform_call &call : fake::seen().calls) {
        if (call.what == "QEP_MSG_DefaultMsgProc(4660)") {
            bus_messages++;
            continue;
        }
        int32_t index = -1;
        std::memcpy(&index, call.data.data() + 20, sizeof index);
        ASSERT_EQ(index, reports++) << "lost, doubled or out of order";
    }
    EXPECT_EQ(bus_messages, BUS_MESSAGES);
    EXPECT_EQ(reports, REPORTS);
    const std::vector<std::string> &written = fake::seen().written;
    EXPECT_EQ(std::ranges::count(written, "AT^NETSCAN=20\r"), BURSTS);
    EXPECT_EQ(std::ranges::count(written, "AT+CSQ\r"), 3 * BURSTS);
    EXPECT_GE(std::ranges::count(written, "AT+STOP\r"), BURSTS);
    EXPECT_TRUE(fake::queued(VLK_QUEUE_CLIENT_REPLY).empty()) << "each request has one reply";
    EXPECT_EQ(fake::blocks(), 0);
}
