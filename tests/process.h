// A child process with its standard streams in the test's hands, and waiting for what takes its time.
#ifndef PROCESS_H
#define PROCESS_H

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

using environment = std::map<std::string, std::string>;

inline int64_t now_ms()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

/// Asks again and again until the condition holds. False when it does not in time.
inline bool wait_until(const std::function<bool()> &condition, int64_t limit_ms = 10000)
{
    for (const int64_t end = now_ms() + limit_ms; !condition(); usleep(1000))
        if (now_ms() >= end)
            return false;
    return true;
}

/// Whether the process, or the thread with that number, sleeps in the kernel, as one that waits does.
inline bool is_asleep(pid_t id)
{
    std::ifstream file("/proc/" + std::to_string(id) + "/status"); // the emulator makes up its own .../stat
    for (std::string line; std::getline(file, line);)
        if (line.starts_with("State:\tS"))
            return true;
    return false;
}

/// Becomes the program, in a child: never returns.
[[noreturn]] inline void become(std::vector<std::string> arguments, const environment &extra)
{
    for (const auto &[name, value] : extra)
        setenv(name.c_str(), value.c_str(), 1);
    std::vector<char *> argv;
    for (std::string &argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
}

class process
{
public:
    explicit process(std::vector<std::string> arguments, const environment &extra = {})
    {
        int input_ends[2];
        EXPECT_EQ(pipe2(input_ends, O_CLOEXEC), 0);
        pid = fork();
        if (pid == 0) {
            dup2(input_ends[0], STDIN_FILENO);
            dup2(output.file, STDOUT_FILENO);
            dup2(error.file, STDERR_FILENO);
            become(std::move(arguments), extra);
        }
        close(input_ends[0]);
        input = input_ends[1];
    }
    ~process()
    {
        if (!has_ended()) {
            kill(SIGKILL);
            waitpid(pid, nullptr, 0);
        }
        for (const int file : {input, output.file, error.file})
            close(file);
    }
    process(const process &) = delete;
    process &operator=(const process &) = delete;

    void write_line(std::string_view line) const
    {
        const std::string text = std::string(line) + "\n";
        EXPECT_EQ(write(input, text.data(), text.size()), ssize_t(text.size()));
    }
    void end_input() { close(std::exchange(input, -1)); }

    /// Waits until the text has appeared on standard output (errors: standard error). False after ten seconds or when
    /// the process ended without it.
    bool wait_for_output(std::string_view text) { return wait_for(out, text); }
    bool wait_for_error(std::string_view text) { return wait_for(err, text); }

    /// One line to standard input, and the line that answers it.
    std::string ask(std::string_view line)
    {
        out.clear();
        write_line(line);
        wait_for_output("\n");
        return out.substr(0, out.find('\n'));
    }

    /// Waits for the end. The exit code, 128 + signal for a killed process, -1 when it still runs after the limit.
    int wait(int limit_seconds = 30)
    {
        const bool over = wait_until([this] { return has_ended(); }, limit_seconds * 1000);
        read_on();
        if (!over)
            return -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    void kill(int signal) const { ::kill(pid, signal); }

    pid_t pid = -1;
    std::string out; ///< as far as it was read
    std::string err;

private:
    struct stream {
        int file = memfd_create("stream", MFD_CLOEXEC);
        off_t read = 0;
    };

    bool has_ended() { return ended = ended || waitpid(pid, &status, WNOHANG) == pid; }
    void read_on()
    {
        char bytes[4096];
        for (auto [from, text] : {std::pair(&output, &out), {&error, &err}})
            for (ssize_t got; (got = pread(from->file, bytes, sizeof bytes, from->read)) > 0;
                 from->read += got)
                text->append(bytes, size_t(got));
    }
    bool wait_for(const std::string &text, std::string_view what)
    {
        bool found = false;
        wait_until([&] {
            const bool over = has_ended();
            read_on();
            found = text.find(what) != std::string::npos;
            return found || over;
        });
        return found;
    }

    int input = -1;
    stream output;
    stream error;
    int status = 0;
    bool ended = false;
};

#endif
