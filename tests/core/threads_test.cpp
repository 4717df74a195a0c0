// The daemon's threads at work together; meant for the thread sanitizer.
#include <atomic>
#include <cstdlib>
#include <thread>

#include "core_test.h"
#include "vorlink/bus_thread.h"
#include "vorlink/engine/command_transaction.h"

using threads_test = daemon_test;

TEST_F(threads_test, a_scan_is_stopped_from_another_thread_while_it_runs)
{
    std::atomic<bool> done = false;
    std::atomic<int> stops = 0;
    std::thread notify_client([&] {
        while (!done) {
            void *reply = nullptr;
            uint32_t length = 0;
            ASSERT_EQ(VlkStopNetScan(nullptr, &reply, &length), 0);
            std::free(reply);
            stops++;
        }
    });
    constexpr int SCANS = 100;
    fake::on_write("AT^NETSCAN=20\r", [&] {
        for (const int before = stops; stops < before + 2;) // one request lies wholly within the scan
            std::this_thread::yield();
        fake::deliver("OK\r\n");
    });
    for (int i = 0; i < SCANS; i++) {
        at_cmd_msg scan = command("AT^NETSCAN=20", "^NETSCAN:");
        EXPECT_EQ(at_send_normal_cmd_msg(&scan, &retcode), 0);
        at_cmd_msg other = command("AT+CSQ", "+CSQ:", 0);
        EXPECT_EQ(at_send_normal_cmd_msg(&other, &retcode), -1);
    }
    done = true;
    notify_client.join();
    const std::vector<std::string> &written = fake::seen().written;
    const auto sent = std::count(written.begin(), written.end(), "AT+STOP\r");
    EXPECT_GE(sent, SCANS);
    EXPECT_EQ(std::count(written.begin(), written.end(), "AT^NETSCAN=20\r"), SCANS);
    EXPECT_EQ(written.size(), static_cast<std::size_t>(sent + 2 * SCANS));
}

TEST_F(threads_test, modem_text_arrives_whole_and_in_order_from_the_proxys_thread)
{
    constexpr int REPORTS = 500;
    std::thread proxy([] {
        for (int i = 0; i < REPORTS; i++) {
            const std::string report = "\r\n+CMTI: \"SM\"," + std::to_string(i) + "\r\n";
            while (fake::deliver(report) != 0) // the queue is full
                std::this_thread::yield();
        }
    });
    while (fake::calls().size() < REPORTS)
        at_process_nas_msg(&retcode);
    proxy.join();
    for (int i = 0; i < REPORTS; i++) {
        int32_t index = -1;
        std::memcpy(&index, fake::seen().calls[static_cast<std::size_t>(i)].data.data() + 20, sizeof index);
        ASSERT_EQ(index, i);
    }
    EXPECT_EQ(fake::seen().events, 2u);
}
