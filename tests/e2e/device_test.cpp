// The life of the device under a running daemon: it goes and comes back, floods, is let go of.
#include "system.h"

#include <gmock/gmock.h>

#include "vlk_client.h"

using testing::HasSubstr;

namespace
{

/// A service that takes what ^TEMPPRT tells.
struct listener {
    explicit listener(const system_under_test &system)
    {
        const std::string run = system.folder + "/run";
        const vlk_place place{run.c_str()};
        EXPECT_EQ(vlk_hub_open(&hub, &place), VLK_OK) << vlk_last_error();
        EXPECT_EQ(vlk_hub_take_module(hub, 9, 5000), VLK_OK) << vlk_last_error();
    }
    ~listener() { vlk_hub_close(hub); }
    vlk_hub *hub = nullptr;
};

class Device : public testing::Test
{
protected:
    void SetUp() override
    {
        system.start_modem(
            "command AT+HALF\n    line first half\n    delay 3600s\n    final OK\n"
            "command AT+SLOW\n    line +SLOW: 1\n    delay 1s\n    line +SLOW: 2\n    final OK\n");
        system.start_daemon();
    }

    bool modem_is(const std::string &state) const
    {
        return wait_until([&] { return system.vlkctl({"status"}).out.find(state) != std::string::npos; });
    }

    system_under_test system;
};

} // namespace

TEST_F(Device, UnpluggedInTheMiddleOfACommandAndPluggedInAgain)
{
    const auto running = system.start_vlkctl({"at", "AT+HALF", "--timeout", "60"});
    system.wait_until_answering();
    system.tell_modem("unplug");
    ASSERT_TRUE(modem_is("absent"));
    system.tell_modem("replug");
    EXPECT_EQ(running->wait(10), 1) << "nobody will answer it any more";
    EXPECT_THAT(running->err, HasSubstr("NO CARRIER"));
    ASSERT_TRUE(modem_is("ready"));
    system.expect_signal("what came of the first answer must not show");

    system.tell_modem("unplug");
    ASSERT_TRUE(modem_is("absent"));
    const outcome absent = system.vlkctl({"at", "AT+CSQ"});
    EXPECT_EQ(absent.code, 7) << "there is nothing to write it to";
    EXPECT_THAT(absent.err, HasSubstr("absent"));
}

TEST_F(Device, FloodOfReportsDuringACommandLosesAndDelaysNothing)
{
    constexpr uint32_t REPORTS = 5000, PORTION = 100; // that many may wait for a reader
    const listener reader(system);
    const auto running = system.start_vlkctl({"at", "AT+SLOW", "--expect", "+SLOW:", "--multi-line"});
    system.wait_until_answering();
    vlk_packet packet{};
    for (uint32_t n = 0; n < REPORTS; ++n) {
        if (n % PORTION == 0)
            system.tell_modem("flood 100 ^TEMPPRT: {i},85"); // event 31000 to module 9, value1 = i
        do // the daemon's own word at its start may come before
            ASSERT_EQ(vlk_hub_receive(reader.hub, &packet, 5000), VLK_OK) << n << vlk_last_error();
        while (packet.code != 31000);
        ASSERT_EQ(packet.value1, static_cast<int32_t>(n % PORTION + 1)) << n << ": lost or out of order";
    }
    EXPECT_EQ(running->wait(), 0) << running->err;
    EXPECT_EQ(running->out, "+SLOW: 1\n+SLOW: 2\n");
}

TEST_F(Device, UninstallLetsGoOfTheModem)
{
    const listener service(system);
    ASSERT_EQ(vlk_hub_send(service.hub, VLK_UNINSTALL_DATACARD, nullptr, 0), VLK_OK);
    ASSERT_TRUE(modem_is("released"));
    for (const char *command : {"AT+CSQ", "ATI"}) {
        const outcome seen = system.vlkctl({"at", command, "--json"});
        EXPECT_EQ(seen.code, 7);
        EXPECT_THAT(seen.out, HasSubstr("the modem is released"));
    }
    EXPECT_THAT(system.modem->ask("state"), HasSubstr("\"client\":false")) << "others may have the device";
}
