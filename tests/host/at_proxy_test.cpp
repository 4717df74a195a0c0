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
#include "host_place.h"
#include "k7_at_proxy.h"
#include "modem_state.h"

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
const script ECHO_OFF = {{"ATE0\r", "ATE0\r\r\nOK\r\n"}};

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
    void register_with(const modem &device, const script &steps = ECHO_OFF)
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
    EXPECT_EQ(device.hear("ATE0\rATE0\r"), "ATE0\rATE0\r") << "asks again while nothing answers";
    EXPECT_EQ(modem_state_get().state, HOST_MODEM_SILENT);
    EXPECT_EQ(send_proc, nullptr);
    device.say("ATE0\r\r\nOK\r\n\r\n^BOOT: 1\r\n");
    EXPECT_EQ(delivered("1\r\n"), "\r\n^BOOT: 1\r\n");
    device.say("ATE0\r\r\nOK\r\n"); // the second answer
    EXPECT_TRUE(register_once());
    EXPECT_EQ(modem_state_get().state, HOST_MODEM_READY);
    EXPECT_EQ(send("AT+CSQ\r"), 0);
    EXPECT_EQ(device.hear("\r").substr(0, 7), "AT+CSQ\r");
    device.say("\r\nOK\r\n");
    EXPECT_EQ(delivered("OK\r\n"), "\r\nOK\r\n");
}

TEST_F(Proxy, ModemThatIsBusyOrRefusesIsBroughtToAnswer)
{
    const std::pair<const char *, script> rows[] = {
        {"the rest of a line in the modem makes the first ATE0 wrong",
         {{"ATE0\r", "AT+XATE0\r\r\nERROR\r\n"}, {"ATE0\r", "ATE0\r\r\nOK\r\n"}}},
        {"a modem that knows no ATE0 is used as it is",
         {{"ATE0\r", "\r\nERROR\r\n"}, {"ATE0\r", "\r\nERROR\r\n"}, {"ATE0\r", "\r\n+CME ERROR: 4\r\n"}}},
        {"a modem in its text input is released from it",
         {{"ATE0\r", "ATE0\r\r\n> "}, {"\x1b", "\r\nOK\r\n"}, {"ATE0\r", "\r\nOK\r\n"}}},
    };
    for (const auto &[fault, steps] : rows) {
        SCOPED_TRACE(fault);
        const modem device(link);
        send_proc = nullptr;
        register_with(device, steps);
        device.say("RING\r\n");
        EXPECT_EQ(delivered("RING\r\n"), "\r\nRING\r\n") << "no answer to ATE0 gets through";
        K7_App_Ungister();
    }
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
}

TEST_F(Proxy, NoiseIsToldOnceAndALineWithoutEndIsDropped)
{
    const modem device(link);
    register_with(device);
    testing::internal::CaptureStderr();
    const std::string stray = "\r\nERROR\r\n\r\n+CME ERROR: 10\r\n^A: 1\r\n";
    const std::string nuls = std::string(2, '\0') + "\r\n" + std::string(1, '\0') + "^B: 1\r\n";
    for (const std::string &odd : {stray, nuls}) {
        device.say(odd);
        EXPECT_EQ(delivered(": 1\r\n"), odd);
    }
    device.say(std::string(3900, 'x') + "\r\n^C: 1\r\n");
    EXPECT_EQ(delivered(": 1\r\n"), "^C: 1\r\n");
    const std::string traces = testing::internal::GetCapturedStderr();
    for (const char *told : {"\"ERROR\", which no command asked for", "NUL bytes", "more than 1499 bytes"})
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
    play(device, ECHO_OFF);
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
    const std::string lines[] = {std::string(12000, 'a') + "\r",
                                 std::string(9000, 'b') + "\r"}; // more than a pty takes
    std::thread senders[2];
    for (size_t i = 0; i < 2; ++i)
        senders[i] = std::thread([&, i] {
            for (int n = 0; n < 5; ++n)
                EXPECT_EQ(send(lines[i]), 0);
        });
    std::string heard;
    while (heard.size() < 5 * (lines[0].size() + lines[1].size()))
        heard += device.hear("\r");
    for (int n = 0; n < 10; ++n) {
        const std::string &line = lines[heard[0] == 'a' ? 0 : 1];
        EXPECT_TRUE(heard.starts_with(line));
        heard.erase(0, line.size());
    }
    for (std::thread &sender : senders)
        sender.join();
}

TEST_F(Proxy, ModemThatTakesNothingIsRefusedInTimeAndStartedAfresh)
{
    const modem device(link);
    register_with(device);
    const int64_t start = now_ms();
    EXPECT_EQ(send(std::string(65000, 'x')), -1);
    EXPECT_LT(now_ms() - start, 10000);
    EXPECT_EQ(send("AT\r"), -1) << "would continue the line that was begun";
    EXPECT_THAT(device.hear("ATE0\r"), testing::EndsWith("ATE0\r"));
    device.say("\r\nOK\r\n");
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
        EXPECT_EQ(at_device_open(opened, path.c_str(), message), -1);
        EXPECT_EQ(opened.fd, -1);
        EXPECT_THAT(message, testing::AllOf(HasSubstr(path), HasSubstr(cure)));
    }
    close(other_program);
}

} // namespace
