// The program itself: a real process, a real pseudo-terminal or socket, control lines on its standard input.

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace
{

constexpr int patience_ms = 10000;
const std::string at_echoed = "AT\r\r\nOK\r\n";

/// A device or a socket as its client has it, or standard input and output of the simulator.
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

struct simulator : stream {
    explicit simulator(const std::string &options) : stream(-1)
    {
        int ends[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        pid = ::fork();
        if (pid == 0) {
            ::dup2(ends[1], 0);
            ::dup2(ends[1], 1);
            ::execl("/bin/sh", "sh", "-c", ("exec " MODEMSIM_PATH " " + options).c_str(), nullptr);
            ::_exit(127);
        }
        ::close(ends[1]);
        fd = ends[0];
        device = read_until("\n");
        device.resize(device.find_last_not_of('\n') + 1);
    }
    ~simulator()
    {
        if (pid > 0)
            end_with(SIGKILL);
    }

    /// Its answer to a control line.
    std::string tell(const std::string &line) const
    {
        const std::string answer = ask(line + "\n", "\n");
        return answer.substr(0, answer.find('\n'));
    }
    bool wait_for_state(const std::string &expected) const
    {
        for (int tries = 0; tries < 1000; ++tries, std::this_thread::sleep_for(10ms))
            if (tell("state").find(expected) != std::string::npos)
                return true;
        return false;
    }
    /// The exit code after this signal (0: none).
    int end_with(int signal)
    {
        int status = 0;
        ::kill(pid, signal);
        ::waitpid(std::exchange(pid, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    pid_t pid = -1;
    std::string device; ///< the first line
};

struct simulator_process : testing::Test {
    simulator_process() : folder(testing::TempDir() + "modemsim.XXXXXX") { ::mkdtemp(folder.data()); }
    ~simulator_process() override { fs::remove_all(folder); }

    std::string folder;
};

TEST_F(simulator_process, split_output_is_the_same_bytes)
{
    for (const char *split : {"none", "1", "3", "random"}) {
        SCOPED_TRACE(split);
        const simulator modem("--no-reports --split " + std::string(split));
        const stream client(modem.device);
        EXPECT_EQ(client.ask("AT+CMGW=2\r00ABCD\x1a"),
                  "AT+CMGW=2\r\r\n> 00ABCD\x1a\r\n+CMGW: 4\r\n\r\nOK\r\n");
        EXPECT_EQ(client.ask("AT\r"), at_echoed) << "and nothing in between";
    }
}

TEST_F(simulator_process, clients_leave_nothing_to_the_next)
{
    const simulator modem("--no-reports");
    EXPECT_EQ(modem.tell("report RING"), "error: nobody has the device open; nothing was sent");
    {
        const stream first(modem.device);
        EXPECT_EQ(modem.tell("report RING"), "ok");
        EXPECT_EQ(first.ask("AT+CMGS=2\r", "> "), "\r\nRING\r\nAT+CMGS=2\r\r\n> ");
        EXPECT_EQ(modem.tell("raw left unread \\x00"), "ok");
        EXPECT_TRUE(modem.wait_for_state("\"unread_output\":0,"));
    }
    EXPECT_TRUE(modem.wait_for_state("\"client\":false,"));
    EXPECT_EQ(stream(modem.device).ask("AT\r"), at_echoed);
    EXPECT_TRUE(modem.wait_for_state("\"client\":false,"));
    stream(modem.device).ask("AT+CSQ\r", ""); // gone before the modem has seen it
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(stream(modem.device).ask("AT\r"), at_echoed);
}

TEST_F(simulator_process, unplug_and_replug_under_the_same_link)
{
    const std::string link = folder + "/modem";
    simulator modem("--no-reports --link " + link);
    EXPECT_EQ(fs::read_symlink(link), modem.device);
    const stream first(link);
    EXPECT_EQ(first.ask("ATE0\r"), "ATE0\r\r\nOK\r\n");
    EXPECT_EQ(modem.tell("unplug"), "ok");
    EXPECT_FALSE(fs::exists(fs::symlink_status(link)));
    pollfd watched{first.fd, 0, 0};
    EXPECT_EQ(::poll(&watched, 1, patience_ms), 1) << "the client must see the device vanish";
    EXPECT_EQ(modem.tell("unplug"), "error: the modem is unplugged already; replug it first");
    EXPECT_EQ(modem.tell("replug"), "ok");
    const stream second(link);
    EXPECT_EQ(second.ask("AT\r"), at_echoed) << "a fresh modem echoes again";
    EXPECT_EQ(modem.tell("silence on"), "ok");
    second.ask("AT\r", "");
    EXPECT_EQ(second.read_until("never", 100), "");
    EXPECT_EQ(modem.tell("silence off"), "ok");
    EXPECT_EQ(second.ask("AT\r"), at_echoed);
    EXPECT_EQ(modem.end_with(SIGTERM), 0);
    EXPECT_FALSE(fs::exists(fs::symlink_status(link))) << "the link goes with the program";
}

TEST_F(simulator_process, flood_and_garbage_lose_nothing)
{
    const simulator modem("--no-reports");
    const stream client(modem.device);
    EXPECT_EQ(client.ask("ATE0\r"), "ATE0\r\r\nOK\r\n");
    EXPECT_EQ(modem.tell("flood 50000 +CREG: {i}"), "ok");
    EXPECT_EQ(client.read_until("+CREG: 50000\r\n").size(), 788894U) << "each of them once";
    EXPECT_EQ(modem.tell("garbage 3000"), "ok");
    EXPECT_TRUE(modem.wait_for_state("\"garbage_left\":0,"));
    EXPECT_EQ(client.ask("AT\r", "\r\nOK\r\n").size(), 3000U + 6U);
}

TEST_F(simulator_process, a_socket_serves_one_client_after_the_other)
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
    EXPECT_EQ(simulator("--socket " + path).end_with(0), 1) << "a live socket is not taken away";
    ::shutdown(modem.fd, SHUT_WR);
    EXPECT_EQ(modem.end_with(0), 0);
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(simulator_process, mistakes_have_exit_codes_and_a_file_is_never_overwritten)
{
    const std::string file = folder + "/bad.dialogue";
    std::ofstream(file) << "command AT\n";
    EXPECT_EQ(simulator("--dialogue " + file).end_with(0), 3);
    EXPECT_EQ(simulator("--split 0").end_with(0), 2);
    EXPECT_EQ(simulator("--link " + file).end_with(0), 1);
    EXPECT_TRUE(fs::is_regular_file(file));
    simulator modem("");
    EXPECT_EQ(modem.tell("fly").rfind("error: unknown control word 'fly'", 0), 0U);
    EXPECT_EQ(modem.tell("quit"), "ok");
    EXPECT_EQ(modem.end_with(0), 0);
}

} // namespace
