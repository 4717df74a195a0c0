#include "system.h"

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

int64_t now_ms()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

namespace
{

constexpr int64_t PATIENCE_MS = 10000;

struct pipe_ends {
    int read_end = -1;
    int write_end = -1;
    pipe_ends()
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) == 0) {
            read_end = ends[0];
            write_end = ends[1];
        }
    }
};

/// Appends what can be read now. False at the end of the stream.
bool read_some(int &file, std::string &text)
{
    char bytes[4096];
    const ssize_t got = read(file, bytes, sizeof bytes);
    if (got > 0) {
        text.append(bytes, static_cast<std::size_t>(got));
        return true;
    }
    close(file);
    file = -1;
    return false;
}

} // namespace

process::process(const std::vector<std::string> &arguments, const environment &extra)
{
    const pipe_ends in, out_pipe, err_pipe;
    pid = fork();
    if (pid == 0) {
        dup2(in.read_end, STDIN_FILENO);
        dup2(out_pipe.write_end, STDOUT_FILENO);
        dup2(err_pipe.write_end, STDERR_FILENO);
        for (const auto &[name, value] : extra)
            setenv(name.c_str(), value.c_str(), 1);
        std::vector<char *> argv;
        for (const std::string &argument : arguments)
            argv.push_back(const_cast<char *>(argument.c_str()));
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(in.read_end);
    close(out_pipe.write_end);
    close(err_pipe.write_end);
    input = in.write_end;
    output = out_pipe.read_end;
    error = err_pipe.read_end;
}

process::~process()
{
    if (!ended) {
        kill(SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    for (const int file : {input, output, error}) {
        if (file != -1)
            close(file);
    }
}

void process::write_line(std::string_view line) const
{
    const std::string text = std::string(line) + "\n";
    EXPECT_EQ(write(input, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

/// Reads what the process says until something came. False at the deadline or when both streams have ended.
bool process::pump(int64_t deadline_ms)
{
    pollfd files[] = {{output, POLLIN, 0}, {error, POLLIN, 0}};
    const int64_t left = deadline_ms - now_ms();
    if ((output == -1 && error == -1) || left <= 0 || poll(files, 2, static_cast<int>(left)) <= 0)
        return false;
    if (files[0].revents != 0)
        read_some(output, out);
    if (files[1].revents != 0)
        read_some(error, err);
    return true;
}

bool process::wait_for(const std::string &stream, std::string_view text)
{
    const int64_t deadline = now_ms() + PATIENCE_MS;
    while (stream.find(text) == std::string::npos) {
        if (!pump(deadline))
            return stream.find(text) != std::string::npos;
    }
    return true;
}

int process::wait(int limit_seconds)
{
    const int64_t deadline = now_ms() + limit_seconds * 1000;
    while (pump(deadline)) {}
    while (!ended && waitpid(pid, &status, WNOHANG) == 0) {
        if (now_ms() >= deadline)
            return -1;
        usleep(2000);
    }
    ended = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

system_under_test::system_under_test()
    : base(0x10000000U | (static_cast<uint32_t>(getpid()) & 0x3FFFFFU) << 4U)
{
    static uint32_t systems = 0; // several in one process
    base += systems++ << 26U;
    char name[] = "/tmp/vlk-e2e-XXXXXX";
    folder = mkdtemp(name);
    variables = {{"VLK_RUNTIME_DIR", folder + "/run"},
                 {"VLK_IPC_BASE", std::to_string(base)},
                 {"VLK_AT_DEVICE", folder + "/modem"},
                 {"VLK_TRACE_LEVEL", "4"}};
}

system_under_test::~system_under_test()
{
    if (::testing::Test::HasFailure() && daemon != nullptr) {
        daemon->kill(SIGTERM);
        daemon->wait(2);
        printf("the daemon said:\n%s\n", daemon->err.c_str());
    }
    daemon.reset();
    modem.reset();
    for (const uint32_t key : {1U, 2U})
        msgctl(msgget(static_cast<key_t>(base + key), 0), IPC_RMID, nullptr);
    semctl(semget(static_cast<key_t>(base), 0, 0), 0, IPC_RMID);
    std::filesystem::remove_all(folder);
}

void system_under_test::start_modem(const std::vector<std::string> &options)
{
    std::vector<std::string> arguments = {MODEMSIM, "--link", variables["VLK_AT_DEVICE"]};
    arguments.insert(arguments.end(), options.begin(), options.end());
    modem = std::make_unique<process>(arguments, variables);
    ASSERT_TRUE(modem->wait_for_output("\n")) << modem->err;
    modem->out.clear();
}

void system_under_test::start_daemon_without_waiting()
{
    daemon = std::make_unique<process>(std::vector<std::string>{VORLINK}, variables);
}

void system_under_test::start_daemon()
{
    start_daemon_without_waiting();
    const outcome ready = vlkctl({"status", "--wait-ready", "20"});
    ASSERT_EQ(ready.code, 0) << ready.out << ready.err << daemon->err;
}

std::unique_ptr<process> system_under_test::start_vlkctl(const std::vector<std::string> &arguments) const
{
    std::vector<std::string> all = {VLKCTL};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return std::make_unique<process>(all, variables);
}

outcome system_under_test::vlkctl(const std::vector<std::string> &arguments) const
{
    const std::unique_ptr<process> client = start_vlkctl(arguments);
    const int code = client->wait();
    return {code, client->out, client->err};
}

void system_under_test::tell_modem(const std::string &line)
{
    modem->out.clear();
    modem->write_line(line);
    ASSERT_TRUE(modem->wait_for_output("\n")) << line;
    ASSERT_EQ(modem->out.substr(0, 2), "ok") << line << ": " << modem->out;
}
