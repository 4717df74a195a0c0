// The AT proxy against a modem behind a real pty. The device's path is a link, so that modems come and go under it.
#include <algorithm>
#include <mutex>
#include <thread>

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "../process.h"
#include "at_device.h"
#include "at_proxy.h"
#include "host_place.h"
#include "k7_at_proxy.h"
#include "modem_state.h"
#include "served_request.h"
#include "vlk_msgq.h"
#include "vlk_queues.h"

namespace
{

using testing::HasSubstr;

constexpr uint32_t CHANNEL = 6;

bool wait_for_modem(host_modem_state state)
{
    return wait_until([state] { return modem_state_get().state == state; });
}

/// What the proxy delivered to the daemon, which can refuse a number of times first.
struct {
    std::mutex mutex;
    std::string text;
    int refusals = 0;
} daemon_side;

int take(uint32_t channel, const char *data, uint32_t length)
{
    const std::scoped_lock lock(daemon_side.mutex);
    EXPECT_EQ(channel, CHANNEL);
    if (daemon_side.refusals > 0)
        return daemon_side.refusals--;
    daemon_side.text.append(data, length);
    return 0;
}

/// All text since the last call, once it ends so.
std::string delivered(std::string_view end)
{
    std::string all;
    wait_until([&] {
        const std::scoped_lock lock(daemon_side.mutex);
        all += std::exchange(daemon_side.text, {});
        return all.ends_with(end);
    });
    return all;
}

/// The modem's end of a pty or a connection.
struct modem {
    explicit modem(int its_fd) : fd(its_fd) {}
    explicit modem(const std::string &link) : fd(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        EXPECT_EQ(grantpt(fd) + unlockpt(fd), 0);
        unlink(link.c_str());
        EXPECT_EQ(symlink(ptsname(fd), link.c_str()), 0);
    }
    ~modem() { close(fd); }

    void say(std::string_view text) const
    {
        EXPECT_EQ(write(fd, text.data(), text.size()), ssize_t(text.size()));
    }

    /// All that came since the last call, once it ends so.
    std::string hear(std::string_view end) const
    {
        std::string heard;
        wait_until([&] {
            pollfd input{fd, POLLIN, 0};
            char bytes[4096];
            const bool some = poll(&input, 1, 0) > 0 && (input.revents & POLLIN) != 0;
            const ssize_t count = some ? read(fd, bytes, sizeof bytes) : 0;
            heard.append(bytes, count > 0 ? size_t(count) : 0);
            return heard.ends_with(end);
        });
        return heard;
    }

    const int fd;
};

using script = std::vector<std::pair<const char *, const char *>>; ///< heard and said in turn
const script COMING = {{"ATE0Q0V1\r", "ATE0Q0V1\r\r\nOK\r\n"},
                       {"AT+CMEE=1\r", "\r\nOK\r\n"},
                       {"AT+CMEE?\r", "\r\n+CMEE: 1\r\n\r\nOK\r\n"},
                       {"AT+CSCS?\r", "\r\n+CSCS: \"GSM\"\r\n\r\nOK\r\n"},
                       {"AT+CMGF?\r", "\r\n+CMGF: 0\r\n\r\nOK\r\n"}};

void play(const modem &device, const script &steps)
{
    for (const auto &[heard, said] : steps) {
        EXPECT_EQ(device.hear(heard), heard);
        device.say(said);
    }
}

int listen_at(const std::string &path)
{
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{AF_UNIX, {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    EXPECT_EQ(listen(listener, 1), 0);
    return listener;
}

struct Proxy : testing::Test {
    Proxy()
    {
        setenv("VLK_AT_DEVICE", link.c_str(), 1);
        place.load_settings();
        delivered("");
    }
    ~Proxy() override { K7_App_Ungister(); }

    bool register_once()
    {
        EXPECT_EQ(K7_APP_RegCallBack(CHANNEL, take, &send_proc), 0);
        return send_proc != nullptr;
    }
    void register_with(const modem &device, const script &steps = COMING)
    {
        std::thread player([&] { play(device, steps); });
        EXPECT_TRUE(wait_until([this] { return register_once(); }));
        player.join();
    }
    int send(std::string_view text) const { return send_proc(CHANNEL, text.data(), uint16_t(text.size())); }

    host_place place;
    const std::string link = place.folder + "/modem";
    k7_send_proc send_proc = nullptr;
};

TEST_F(Proxy, SendFunctionComesOnlyOnceTheModemHasAnswered)
{
    testing::internal::CaptureStderr();
    EXPECT_FALSE(register_once()) << "there is no device";
    EXPECT_FALSE(register_once()) << "nor at the second try";
    const std::string traces = testing::internal::GetCapturedStderr();
    EXPECT_THAT(traces, HasSubstr("is missing: waiting until it appears"));
    EXPECT_EQ(std::ranges::count(traces, '\n'), 1) << traces;
    EXPECT_EQ(modem_state_get().state, HOST_MODEM_ABSENT);
    const modem device(link);
    EXPECT_EQ(device.hear("ATE0Q0V1\rATE0Q0V1\r"), "ATE0Q0V1\rATE0Q0V1\r")
        << "asks again while nothing answers";
    EXPECT_EQ(modem_state_get().state, HOST_MODEM_SILENT);
    EXPECT_EQ(send_proc, nullptr);
    device.say("ATE0Q0V1\r\r\nOK\r\n\r\n^BOOT: 1\r\n");
    EXPECT_EQ(delivered("1\r\n"), "\r\n^BOOT: 1\r\n");
    play(device, {COMING.begin() + 1, COMING.end()});
    EXPECT_TRUE(wait_until([this] { return register_once(); }));
    EXPECT_EQ(modem_state_get().state, HOST_MODEM_READY);
    EXPECT_STREQ(modem_state_get().reason, "");
    EXPECT_EQ(send("AT+CSQ\r"), 0);
    EXPECT_EQ(device.hear("\r"), "AT+CSQ\r");
    device.say("\r\nOK\r\n");
    EXPECT_EQ(delivered("OK\r\n"), "\r\nOK\r\n");
}

TEST_F(Proxy, DebtIsCollectedAndNamedWhileTheNextCommandWaits)
{
    const modem device(link);
    register_with(device);
    EXPECT_EQ(send("AT+CGSN\r"), 0);
    EXPECT_EQ(device.hear("\r"), "AT+CGSN\r");
    EXPECT_EQ(send("AT+CIMI\r"), 0) << "the time of the one before is up";
    EXPECT_EQ(device.hear("\r"), "AT+CMEE?\r");
    EXPECT_STREQ(modem_state_get().owes, "AT+CGSN");
    device.say("\r\n001010123456789\r\n\r\nOK\r\n\r\n+CMEE: 1\r\n\r\nOK\r\n");
    EXPECT_EQ(device.hear("\r"), "AT+CIMI\r");
    EXPECT_STREQ(modem_state_get().owes, "");
    device.say("\r\n310170123456789\r\n\r\nOK\r\n");
    EXPECT_EQ(delivered("OK\r\n"), "\r\n310170123456789\r\n\r\nOK\r\n");
}

TEST_F(Proxy, WaitOfAnAskerThatHasGoneEndsAtOnce)
{
    const modem device(link);
    register_with(device);
    host_served_request = 7;
    EXPECT_EQ(send("AT+MUTE\r"), 0);
    EXPECT_EQ(device.hear("\r"), "AT+MUTE\r");
    at_proxy_asker_gone(6);
    at_proxy_asker_gone(7);
    EXPECT_EQ(delivered("CARRIER\r\n"), "\r\nNO CARRIER\r\n");
    EXPECT_EQ(device.hear("\r"), "AT+CMEE?\r");
    host_served_request = 8;
    host_served_limit_ms = 300;
    EXPECT_EQ(send("AT+NEXT\r"), 0);
    EXPECT_EQ(delivered("SUPPORT\r\n"), "\r\nCOMMAND NOT SUPPORT\r\n")
        << "its own time is up before it is written";
    host_served_request = 9;
    at_proxy_asker_gone(9);
    EXPECT_EQ(send("AT+GONE\r"), -1) << "hung up before its line was written";
    host_served_request = 0;
    host_served_limit_ms = 0;
}

/// Puts what is delivered on a queue, as the daemon does.
int queue_up(uint32_t, const char *data, uint32_t length)
{
    return VLK_msgQ_send(VLK_get_msgQ_id(VLK_QUEUE_NAS_DATA), data, length) == 1 ? 0 : 1;
}

TEST_F(Proxy, AnswerThatTheDaemonHasNotReadIsTakenBackBeforeTheNextCommand)
{
    const int32_t queue = VLK_msgQ_create(VLK_QUEUE_NAS_DATA, 10, 1516);
    const modem device(link);
    std::thread player([&] { play(device, COMING); });
    EXPECT_TRUE(wait_until([this] {
        EXPECT_EQ(K7_APP_RegCallBack(CHANNEL, queue_up, &send_proc), 0);
        return send_proc != nullptr;
    }));
    player.join();
    const auto queued = [queue](int32_t records) {
        return wait_until([=] { return VLK_msgQ_num(queue) == records; });
    };
    const auto read = [queue] {
        char text[1516];
        const int size = VLK_msgQ_recv(queue, text, sizeof text, 0);
        return std::string(text, size_t(std::max(size, 0)));
    };
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(send("AT+ONE\r"), 0);
        device.say("\r\n^A: 1\r\n\r\nONE\r\n\r\nOK\r\n\r\n^B: 1\r\n");
        EXPECT_TRUE(queued(3)) << "two reports and the answer";
        EXPECT_EQ(send("AT+TWO\r"), 0) << "nothing is owed";
        EXPECT_TRUE(queued(2));
        EXPECT_EQ(read(), "\r\n^A: 1\r\n");
        EXPECT_EQ(read(), "\r\n^B: 1\r\n");
        device.say("\r\nTWO\r\n\r\nOK\r\n");
        EXPECT_TRUE(queued(1));
        EXPECT_EQ(read(), "\r\nTWO\r\n\r\nOK\r\n");
    }
    K7_App_Ungister();
    VLK_msgQ_delete(queue);
}

TEST_F(Proxy, EchoOfAModemThatWasResetIsDropped)
{
    const modem device(link);
    register_with(device);
    EXPECT_EQ(send("AT+CMGS=23\r"), 0);
    device.say("AT+CMGS=23\r\r\n> ");
    EXPECT_EQ(delivered("> "), "\r\n> ");
    EXPECT_EQ(send("0011\x1a\r"), 0);
    device.say("0011\x1a\r\n+CMGS: 4\r\n\r\nOK\r\n");
    EXPECT_EQ(delivered("OK\r\n"), "\r\n+CMGS: 4\r\n\r\nOK\r\n");
    EXPECT_EQ(device.hear("ATE0Q0V1\r"), "AT+CMGS=23\r0011\x1a\rATE0Q0V1\r") << "and put right";
}

TEST_F(Proxy, NoiseIsToldOnceAndALineWithoutEndIsDropped)
{
    const modem device(link);
    register_with(device);
    testing::internal::CaptureStderr();
    const std::string stray = "\r\nERROR\r\n\r\n+CME ERROR: 10\r\n^A: 1\r\n";
    const std::string nuls = std::string(2, '\0') + "\r\n" + std::string(1, '\0') + "^B: 1\r\n";
    device.say(stray);
    EXPECT_EQ(delivered(": 1\r\n"), "\r\n^A: 1\r\n") << "no result that nobody waits for gets through";
    device.say(nuls);
    device.say("^D: 1\r\n");
    EXPECT_EQ(delivered(": 1\r\n"), "\r\n^D: 1\r\n");
    device.say(std::string(3900, 'x') + "\r\n^C: 1\r\n");
    EXPECT_EQ(delivered(": 1\r\n"), "\r\n^C: 1\r\n");
    const std::string traces = testing::internal::GetCapturedStderr();
    for (const char *told :
         {"that no command asked for, it is dropped (ERROR)", "NUL bytes", "more than 1499 bytes"})
        EXPECT_THAT(traces, HasSubstr(told));
    EXPECT_EQ(std::ranges::count(traces, '\n'), 3) << traces;
}

TEST_F(Proxy, FullQueueHoldsTheModemBack)
{
    const modem device(link);
    register_with(device);
    daemon_side.refusals = 8;
    device.say("+A: 1\r\n");
    device.say("+A: 2\r\n");
    EXPECT_EQ(delivered("2\r\n"), "\r\n+A: 1\r\n+A: 2\r\n");
}

TEST_F(Proxy, DeviceThatIsReplacedIsOpenedAgainAlsoAsASocket)
{
    {
        const modem device(link);
        register_with(device);
        device.say("\r\nRING\r\n+CMT: ,2"); // the rest never comes
        EXPECT_EQ(delivered("RING\r\n"), "\r\nRING\r\n");
    }
    EXPECT_TRUE(wait_for_modem(HOST_MODEM_ABSENT));
    EXPECT_EQ(send("AT\r"), -1);

    unlink(link.c_str());
    const int listener = listen_at(link);
    const modem device(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
    close(listener);
    play(device, COMING);
    EXPECT_TRUE(wait_for_modem(HOST_MODEM_READY));
    EXPECT_EQ(send("AT+CSQ\r"), 0);
    EXPECT_EQ(device.hear("\r"), "AT+CSQ\r");
    device.say("\r\nOK\r\n");
    EXPECT_EQ(delivered("OK\r\n"), "\r\nOK\r\n") << "half a report stays lost";
}

TEST_F(Proxy, SendsAreWholeAlsoFromTwoThreads)
{
    const modem device(link);
    register_with(device);
    const std::string first = "AT+SCAN" + std::string(1500, 'a') + "\r",
                      second = std::string(1400, 'b') + "\r";
    EXPECT_EQ(send(first), 0);
    EXPECT_EQ(device.hear("\r"), first);
    std::thread senders[2];
    for (std::thread &sender : senders)
        sender = std::thread([&] {
            for (int n = 0; n < 20; ++n)
                EXPECT_EQ(send(second), 0); // more than a pty takes
        });
    std::string heard;
    while (heard.size() < 40 * second.size())
        heard += device.hear("\r");
    for (std::thread &sender : senders)
        sender.join();
    for (int n = 0; n < 40; ++n)
        EXPECT_EQ(heard.substr(size_t(n) * second.size(), second.size()), second);
}

TEST_F(Proxy, ModemThatTakesNothingIsRefusedInTimeAndStartedAfresh)
{
    const modem device(link);
    register_with(device);
    EXPECT_EQ(send("AT+SCAN\r"), 0);
    std::thread([&] {
        int64_t start = now_ms();
        while (send(std::string(1400, 'x')) == 0)
            start = now_ms();
        EXPECT_LT(now_ms() - start, 10000);
    }).join();
    EXPECT_TRUE(wait_until([this] { return send("AT\r") == -1; }))
        << "would continue the line that was begun";
    EXPECT_THAT(device.hear("ATE0Q0V1\r"), testing::EndsWith("ATE0Q0V1\r"));
    device.say("\r\nOK\r\n");
    play(device, {COMING.begin() + 1, COMING.end()});
    EXPECT_TRUE(wait_for_modem(HOST_MODEM_READY));
    EXPECT_EQ(send("AT\r"), 0);
}

TEST_F(Proxy, NothingGoesThroughOnceUnregistered)
{
    EXPECT_EQ(K7_App_Ungister(), 0) << "never registered";
    EXPECT_EQ(K7_APP_RegCallBack(CHANNEL, nullptr, &send_proc), -1);
    EXPECT_EQ(K7_APP_RegCallBack(CHANNEL, take, nullptr), -1);

    const modem device(link);
    register_with(device);
    EXPECT_EQ(send_proc(CHANNEL + 1, "AT\r", 3), -1);
    EXPECT_EQ(send_proc(CHANNEL, nullptr, 3), -1);
    EXPECT_EQ(K7_App_Ungister(), 0);
    device.say("RING\r\n");
    EXPECT_EQ(send("AT\r"), -1);
    EXPECT_EQ(modem_state_get().state, HOST_MODEM_RELEASED);
    EXPECT_EQ(delivered(""), "");
}

TEST_F(Proxy, RefusedDeviceNamesCauseAndCure)
{
    const modem device(link);
    const int other_program = open(link.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(flock(other_program, LOCK_EX), 0);
    close(listen_at(place.folder + "/socket"));
    const std::pair<std::string, const char *> refused[] = {
        {place.folder + "/none", "is missing"},
        {link, "fuser"},
        {place.folder, "VLK_AT_DEVICE"},
        {"/dev/null", "VLK_AT_DEVICE"},
        {place.folder + "/socket", "start the program"},
    };
    for (const auto &[path, cure] : refused) {
        at_device opened;
        char message[512] = "";
        EXPECT_LT(at_device_open(opened, path.c_str(), {}, message), 0);
        EXPECT_EQ(opened.fd, -1);
        EXPECT_THAT(message, testing::AllOf(HasSubstr(path), HasSubstr(cure)));
    }
    close(other_program);
}

} // namespace
