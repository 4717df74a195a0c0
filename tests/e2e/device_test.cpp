// The life of the device under a running daemon: it goes and comes back, is silent, floods, echoes, sends noise, is let
// go of. And services that behave badly.
#include "system.h"

#include <fstream>
#include <functional>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "vlk_client.h"

using testing::HasSubstr;

namespace
{

constexpr char SIGNAL[] = "+CSQ: 20,99\n";

/// Asks again until the condition holds. False after ten seconds.
bool wait_until(const std::function<bool()> &condition)
{
    for (const int64_t end = now_ms() + 10000; now_ms() < end; usleep(10000))
        if (condition())
            return true;
    return false;
}

std::size_t count_of(std::string_view text, std::string_view what)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(what); at != text.npos; at = text.find(what, at + what.size()))
        ++count;
    return count;
}

/// A service that takes everything.
struct listener {
    explicit listener(const system_under_test &system)
    {
        const std::string run = system.folder + "/run";
        const vlk_place place{run.c_str(), 0};
        EXPECT_EQ(vlk_hub_open(&hub, &place), VLK_OK) << vlk_last_error();
        EXPECT_EQ(vlk_hub_take_all(hub, 5000), VLK_OK) << vlk_last_error();
    }
    ~listener() { vlk_hub_close(hub); }
    vlk_hub *hub = nullptr;
};

class Device : public testing::Test
{
protected:
    void SetUp() override
    {
        std::ofstream(system.folder + "/dialogue")
            << "include default\nforget reports\n"
               "command AT+HALF\n    line first half\n    delay 3600s\n    final OK\n"
               "command AT+SLOW\n    line +SLOW: 1\n    delay 1s\n    line +SLOW: 2\n    final OK\n";
        system.start_modem({"--dialogue", system.folder + "/dialogue"});
        system.start_daemon();
    }

    bool modem_is(const std::string &state) const
    {
        return wait_until([&] { return system.vlkctl({"status"}).out.find(state) != std::string::npos; });
    }
    /// Waits until the modem is at work on a command.
    void wait_until_answering()
    {
        EXPECT_TRUE(
            wait_until([&] { return ask_modem("state").find("\"answering\":true") != std::string::npos; }));
    }
    std::string ask_modem(const std::string &line)
    {
        system.modem->out.clear();
        system.modem->write_line(line);
        return system.modem->wait_for_output("\n") ? system.modem->out : "";
    }
    void expect_signal(const char *when)
    {
        const outcome seen = system.vlkctl({"at", "AT+CSQ"});
        EXPECT_EQ(seen.code, 0) << when << seen.err;
        EXPECT_EQ(seen.out, SIGNAL) << when;
    }
    std::string daemon_log()
    {
        system.daemon->kill(SIGTERM);
        system.daemon->wait(5);
        return system.daemon->err;
    }

    system_under_test system;
};

} // namespace

TEST_F(Device, UnpluggedInTheMiddleOfACommandAndPluggedInAgain)
{
    const int64_t start = now_ms();
    const auto running = system.start_vlkctl({"at", "AT+HALF", "--timeout", "2"});
    wait_until_answering();
    system.tell_modem("unplug");
    ASSERT_TRUE(modem_is("absent"));
    EXPECT_EQ(running->wait(), 3) << "no final result came: " << running->err;
    EXPECT_LT(now_ms() - start, 4000);

    const outcome absent = system.vlkctl({"at", "AT+CSQ"});
    EXPECT_EQ(absent.code, 6) << "it cannot be written";
    EXPECT_THAT(absent.err, HasSubstr("absent"));
    system.tell_modem("replug");
    ASSERT_TRUE(modem_is("ready"));
    expect_signal("what came of the first answer must not show");

    // Back before the command's time is up: nobody will answer it any more.
    const auto patient = system.start_vlkctl({"at", "AT+HALF", "--timeout", "60"});
    wait_until_answering();
    system.tell_modem("unplug");
    ASSERT_TRUE(modem_is("absent"));
    system.tell_modem("replug");
    EXPECT_EQ(patient->wait(10), 1);
    EXPECT_THAT(patient->err, HasSubstr("NO CARRIER"));
    ASSERT_TRUE(modem_is("ready"));
    expect_signal("after the second time");

    const std::string log = daemon_log();
    printf("%s", log.c_str());
    EXPECT_EQ(count_of(log, "lost the modem on"), 2U);
    EXPECT_LE(count_of(log, "is missing: waiting until it appears"), 2U) << "said once each time";
}

TEST_F(Device, SilentModemCostsEachCommandItsTimeAndNoMore)
{
    system.tell_modem("silence on");
    const int64_t start = now_ms();
    EXPECT_EQ(system.vlkctl({"at", "AT+CSQ", "--timeout", "1"}).code, 3);
    EXPECT_EQ(system.vlkctl({"rssi"}).code, 0) << "what needs no modem";
    EXPECT_LT(now_ms() - start, 3000);
    system.tell_modem("silence off");
    expect_signal("again");
}

TEST_F(Device, FloodOfReportsDuringACommandLosesAndDelaysNothing)
{
    constexpr uint32_t REPORTS = 5000, PORTION = 100; // that many may wait for a reader
    const listener reader(system), sleeper(system);
    const auto running = system.start_vlkctl({"at", "AT+SLOW", "--expect", "+SLOW:", "--multi-line"});
    wait_until_answering();
    vlk_packet packet{};
    for (uint32_t n = 0; n < REPORTS; ++n) {
        if (n % PORTION == 0)
            system.tell_modem("flood 100 ^TEMPPRT: {i},85"); // event 31000 to module 9, value1 = i
        ASSERT_EQ(vlk_hub_receive(reader.hub, &packet, 5000), VLK_OK) << n << vlk_last_error();
        ASSERT_EQ(packet.value1, static_cast<int32_t>(n % PORTION + 1)) << n << ": lost or out of order";
    }
    EXPECT_EQ(running->wait(), 0) << running->err;
    EXPECT_EQ(running->out, "+SLOW: 1\n+SLOW: 2\n");

    uint32_t read = 0;
    while (vlk_hub_receive(sleeper.hub, &packet, 0) == VLK_OK)
        ++read;
    system.tell_modem("report ^TEMPPRT: 1,1");
    ASSERT_EQ(vlk_hub_receive(sleeper.hub, &packet, 5000), VLK_OK) << vlk_last_error();
    EXPECT_GT(packet.missed, 0U);
    EXPECT_EQ(read + packet.missed, REPORTS) << "is told how many it missed";
}

TEST_F(Device, NoiseHarmsNobodyAndIsToldOnce)
{
    const struct {
        const char *fault;
        std::string control;
        const char *log;
        int times = 1;
    } rows[] = {
        {"the echo comes back", "set echo 1", ""},
        {"answers that nobody asked for", "raw \\r\\nERROR\\r\\n\\r\\n+CME ERROR: 10\\r\\n",
         "which no command asked for"},
        {"NUL bytes", "raw \\r\\n+CUSD: 0,\"\\x00A\",72\\r\\n\\r\\n^RSSI: \\x00\\r\\n", "NUL bytes"},
        {"100 kB without a line end", "raw " + std::string(2000, 'x'), "more than 1499 bytes", 50},
    };
    for (const auto &row : rows) {
        for (int n = 0; n < row.times; ++n)
            EXPECT_TRUE(wait_until([&] { return ask_modem(row.control) == "ok\n"; }))
                << "it takes 8 kB at once";
        EXPECT_TRUE(system.daemon->wait_for_error(row.log)) << row.fault;
        system.tell_modem("raw \\r\\n^RSSI: " + std::to_string(&row - rows) + "\\r\\n"); // the noise is over
        EXPECT_TRUE(wait_until([&] {
            return system.vlkctl({"rssi"}).out == "^RSSI: " + std::to_string(&row - rows) + "\n";
        })) << row.fault;
        expect_signal(row.fault);
    }
    const std::string log = daemon_log();
    for (const auto &row : rows)
        EXPECT_TRUE(row.log[0] == '\0' || count_of(log, row.log) == 1) << row.fault << "\n" << log;
}

TEST_F(Device, UninstallLetsGoOfTheModem)
{
    const listener service(system);
    ASSERT_EQ(vlk_hub_send(service.hub, VLK_UNINSTALL_DATACARD, nullptr, 0), VLK_OK);
    ASSERT_TRUE(modem_is("released"));
    for (const char *command : {"AT+CSQ", "ATI"}) {
        const outcome seen = system.vlkctl({"at", command, "--json"});
        EXPECT_EQ(seen.code, 6);
        EXPECT_THAT(seen.out, HasSubstr("COMMAND NOT SUPPORT"));
    }
    EXPECT_THAT(ask_modem("state"), HasSubstr("\"client\":false")) << "others may have the device";
}

TEST_F(Device, ServicesThatConnectAllTheTimeOrSendNoiseDisturbNobody)
{
    sockaddr_un address{AF_UNIX, {}};
    (system.folder + "/run/hub").copy(address.sun_path, sizeof address.sun_path - 1);
    const auto monitor = system.start_vlkctl({"monitor", "--module", "9", "--count", "1"});
    ASSERT_TRUE(monitor->wait_for_error("listening"));
    const std::string noise(77, '\xA5');
    int connected = 0;
    for (int n = 0; n < 10000; ++n) {
        const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        connected += connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 ? 1 : 0;
        if (n % 200 == 0)
            send(fd, noise.data(), static_cast<std::size_t>(n) % noise.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        close(fd);
    }
    EXPECT_EQ(connected, 10000);
    expect_signal("meanwhile");
    system.tell_modem("report ^TEMPPRT: 2,85");
    EXPECT_EQ(monitor->wait(), 0) << monitor->err;
    EXPECT_LE(count_of(daemon_log(), "\n"), 60U) << "a line for each that sent noise";
}
