// The program itself: a real process, a real pseudo-terminal or socket, control lines on its standard input.

#include "../process.h"

#include <chrono>
#include <filesystem>
#include <fstream>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace fs = std::filesystem;

namespace
{

constexpr int patience_ms = 10000;
const std::string at_echoed = "AT\r\r\nOK\r\n";

/// A device or a socket as its client has it.
struct stream {
    explicit stream(int its_fd) : fd(its_fd) {}
    explicit stream(const std::string &path) : fd(::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) {}
    ~stream() { ::close(fd); }
    stream(const stream &) = delete;
    stream &operator=(const stream &) = delete;

    /// What comes until it ends so, or until nothing comes for that long.
    std::string read_until(const std::string &end, int limit_ms = patience_ms) const
    {
        std::string text;
        pollfd watched{fd, POLLIN, 0};
        char bytes[4096];
        while (!text.ends_with(end) && ::poll(&watched, 1, limit_ms) > 0) {
            const ssize_t count = ::read(fd, bytes, sizeof bytes);
            if (count <= 0)
                break;
            text.append(bytes, static_cast<std::size_t>(count));
        }
        return text;
    }
    std::string ask(const std::string &text, const std::string &end = "OK\r\n") const
    {
        EXPECT_EQ(::write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        return read_until(end);
    }

    int fd;
};

struct simulator : process {
    explicit simulator(const std::string &options)
        : process({"/bin/sh", "-c", "exec " MODEMSIM_PATH " " + options})
    {
        wait_for_output("\n");
        device = out.substr(0, out.find('\n'));
    }
    bool wait_for_state(const std::string &expected)
    {
        return wait_until([&] { return ask("state").find(expected) != std::string::npos; });
    }

    std::string device; ///< the first line
};

struct SimulatorProcess : testing::Test {
    SimulatorProcess() : folder(testing::TempDir() + "modemsim.XXXXXX") { ::mkdtemp(folder.data()); }
    ~SimulatorProcess() override { fs::remove_all(folder); }

    std::string folder;
};

TEST_F(SimulatorProcess, ClientsLeaveNothingToTheNext)
{
    simulator modem("--no-reports");
    EXPECT_EQ(modem.ask("report RING"), "error: nobody has the device open; nothing was sent");
    {
        const stream first(modem.device);
        EXPECT_EQ(modem.ask("report RING"), "ok");
        EXPECT_EQ(first.ask("AT+CMGS=2\r", "> "), "\r\nRING\r\nAT+CMGS=2\r\r\n> ");
        EXPECT_EQ(modem.ask("raw left unread \\x00"), "ok");
        EXPECT_TRUE(modem.wait_for_state("\"unread_output\":0,"));
    }
    EXPECT_TRUE(modem.wait_for_state("\"client\":false,"));
    EXPECT_EQ(stream(modem.device).ask("AT\r"), at_echoed);
    EXPECT_TRUE(modem.wait_for_state("\"client\":false,"));
    stream(modem.device).ask("AT+CSQ\r", ""); // gone before the modem has seen it
    ::usleep(200000);
    EXPECT_EQ(stream(modem.device).ask("AT\r"), at_echoed);
}

TEST_F(SimulatorProcess, UnplugAndReplugUnderTheSameLink)
{
    const std::string link = folder + "/modem";
    simulator modem("--no-reports --link " + link);
    EXPECT_EQ(fs::read_symlink(link), modem.device);
    const stream first(link);
    EXPECT_EQ(first.ask("ATE0\r"), "ATE0\r\r\nOK\r\n");
    EXPECT_EQ(modem.ask("unplug"), "ok");
    EXPECT_FALSE(fs::exists(fs::symlink_status(link)));
    pollfd watched{first.fd, 0, 0};
    EXPECT_EQ(::poll(&watched, 1, patience_ms), 1) << "the client must see the device vanish";
    EXPECT_EQ(modem.ask("unplug"), "error: the modem is unplugged already; replug it first");
    EXPECT_EQ(modem.ask("replug"), "ok");
    const stream second(link);
    EXPECT_EQ(second.ask("AT\r"), at_echoed) << "a fresh modem echoes again";
    EXPECT_EQ(modem.ask("silence on"), "ok");
    second.ask("AT\r", "");
    EXPECT_EQ(modem.ask("silence off"), "ok");
    EXPECT_EQ(second.ask("AT\r"), at_echoed) << "and no answer to the one before";
    modem.kill(SIGTERM);
    EXPECT_EQ(modem.wait(), 0);
    EXPECT_FALSE(fs::exists(fs::symlink_status(link))) << "the link goes with the program";
}

TEST_F(SimulatorProcess, SplitOutputFloodAndGarbageLoseNothing)
{
    simulator modem("--no-reports --split random");
    const stream client(modem.device);
    EXPECT_EQ(client.ask("ATE0\r"), "ATE0\r\r\nOK\r\n");
    EXPECT_EQ(modem.ask("flood 200 +CREG: {i}"), "ok");
    EXPECT_EQ(client.read_until("+CREG: 200\r\n").size(), 2692U) << "each of them once";
    EXPECT_EQ(modem.ask("garbage 300"), "ok");
    EXPECT_TRUE(modem.wait_for_state("\"garbage_left\":0,"));
    EXPECT_EQ(client.ask("AT\r", "\r\nOK\r\n").size(), 300U + 6U);
}

TEST_F(SimulatorProcess, WhatNobodyReadsWaitsInOrderAndControlLinesSaySo)
{
    simulator modem("--no-reports --echo off");
    const stream client(modem.device);
    EXPECT_EQ(client.ask("AT\r"), "\r\nOK\r\n");
    EXPECT_EQ(modem.ask("flood 20000 N {i}"), "ok");
    const std::string refusal = "error: the client does not read; nothing was sent";
    EXPECT_TRUE(wait_until([&] { return modem.ask("report RING") == refusal; }));
    EXPECT_EQ(modem.ask("raw x"), refusal);
    EXPECT_EQ(::write(client.fd, "AT+CSQ\r", 7), 7);
    std::string all = client.read_until("\r\nN 20000\r\n");
    std::size_t place = 0;
    for (int i = 1; i <= 20000; ++i) {
        place = all.find("\r\nN " + std::to_string(i) + "\r\n", place);
        ASSERT_NE(place, std::string::npos) << i;
    }
    EXPECT_EQ(client.ask("AT+CGMM\r"), "\r\nEX-1 LTE\r\n\r\nOK\r\n") << "in step again";
}

TEST_F(SimulatorProcess, ControlLinesForMessagesAndCalls)
{
    struct {
        const char *control;
        std::string answer;
        const char *told; ///< how it ends
    } const rows[] = {
        {"receive +12", "error: receive wants a number and a text, as in: receive +12025550123 Hello", ""},
        {"receive +12 two\\nlines", "ok", "+CMTI: \"SM\",4\r\n"},
        {"receive-pdu 00040B912120550521F300006210102100000005C8329BFD06", "ok", "+CMTI: \"SM\",5\r\n"},
        {"receive-pdu 0", "error: that is no PDU in hexadecimal form, service centre first", ""},
        {"status-report 12", "ok",
         "+CDS: 6,12,\"+12\",145,\"26/01/01,12:00:00+04\",\"26/01/01,12:00:00+04\",0\r\n"},
        {"status-report 13", "error: no message was sent under this reference", ""},
        {"status-report 12 999",
         "error: status-report wants the reference that the client was told, and a status from 0 to 255 if you like, "
         "as in: status-report 12 70",
         ""},
        {"hangup", "error: no data connection is there to hang up", ""},
    };
    simulator modem("--no-reports --echo off");
    const stream client(modem.device);
    client.ask("AT+CMGF=1;+CNMI=2,1,0,1;+CMGS=\"+12\"\r", "> ");
    EXPECT_EQ(client.ask("Hi\x1A"), "\r\n+CMGS: 12\r\n\r\nOK\r\n");
    for (const auto &row : rows) {
        EXPECT_EQ(modem.ask(row.control), row.answer) << row.control;
        EXPECT_TRUE(client.read_until(row.told).ends_with(row.told)) << row.control;
    }
    EXPECT_EQ(client.ask("ATD*99#\r", "CONNECT 150000000\r\n"), "\r\nCONNECT 150000000\r\n");
    EXPECT_TRUE(modem.wait_for_state("\"data\":true,"));
    EXPECT_EQ(modem.ask("hangup"), "ok");
    EXPECT_EQ(client.ask("AT\r"), "\r\nNO CARRIER\r\n\r\nOK\r\n");
}

TEST_F(SimulatorProcess, APaceHoldsEachWayAndLatencyBeforeAnswers)
{
    simulator modem("--no-reports --echo off --pace 2000 --latency 300ms");
    const stream client(modem.device);
    const auto seconds_of = [&](const std::string &in, const std::string &end) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_TRUE(client.ask(in, end).ends_with(end)) << in.substr(0, 20);
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    EXPECT_GE(seconds_of("AT\r", "OK\r\n"), 0.299);
    EXPECT_EQ(modem.ask("set latency 0"), "ok");
    EXPECT_GE(seconds_of("AT+" + std::string(1200, 'x') + "\r", "ERROR\r\n"), 0.45)
        << "of the 0.6 that it takes";
    EXPECT_EQ(modem.ask("flood 100 {i}23456789"), "ok");
    EXPECT_GE(seconds_of("", "10023456789\r\n"), 0.45) << "1292 bytes";
    EXPECT_EQ(modem.ask("set pace 0"), "ok");
    EXPECT_EQ(client.ask("AT\r"), "\r\nOK\r\n");
}

TEST_F(SimulatorProcess, ASocketServesOneClientAfterTheOther)
{
    const std::string path = folder + "/modem.sock";
    simulator modem("--no-reports --exit-with-stdin --echo off --socket " + path);
    EXPECT_EQ(modem.device, path);
    sockaddr_un address{AF_UNIX, {}};
    path.copy(address.sun_path, path.size());
    for (int i = 0; i < 2; ++i) {
        const stream client(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(::connect(client.fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(client.ask("AT\r"), "\r\nOK\r\n");
    }
    EXPECT_EQ(simulator("--socket " + path).wait(), 1) << "a live socket is not taken away";
    modem.end_input();
    EXPECT_EQ(modem.wait(), 0);
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(SimulatorProcess, MistakesHaveExitCodesAndAFileIsNeverOverwritten)
{
    const std::string file = folder + "/bad.dialogue";
    std::ofstream(file) << "command AT\n";
    EXPECT_EQ(simulator("--dialogue " + file).wait(), 3);
    for (const char *const wrong : {"--split 0", "--pace 0", "--pace x", "--latency soon"})
        EXPECT_EQ(simulator(wrong).wait(), 2) << wrong;
    EXPECT_EQ(simulator("--link " + file).wait(), 1);
    EXPECT_TRUE(fs::is_regular_file(file));
    simulator modem("");
    EXPECT_EQ(modem.ask("fly").rfind("error: unknown control word 'fly'", 0), 0U);
    EXPECT_EQ(modem.ask("quit"), "ok");
    EXPECT_EQ(modem.wait(), 0);
}

} // namespace
