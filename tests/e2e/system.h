// A whole system in its own corner of the machine: simulator, daemon and client processes with a runtime folder and an
// IPC base that no other test uses. Everything is ended and removed with the object.
#ifndef E2E_SYSTEM_H
#define E2E_SYSTEM_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <csignal>
#include <sys/types.h>

using environment = std::map<std::string, std::string>;

/// A child process with its standard streams in our hands.
class process
{
public:
    process(const std::vector<std::string> &arguments, const environment &extra);
    ~process();
    process(const process &) = delete;
    process &operator=(const process &) = delete;

    void write_line(std::string_view line) const;

    /// Waits until the text has appeared on standard output (errors: standard error). False after ten seconds or when
    /// the process ended without it.
    bool wait_for_output(std::string_view text) { return wait_for(out, text); }
    bool wait_for_error(std::string_view text) { return wait_for(err, text); }

    /// Waits for the end. The exit code, 128 + signal for a killed process, -1 when it still runs after the limit.
    int wait(int limit_seconds = 30);
    void kill(int signal) const { ::kill(pid, signal); }

    pid_t pid = -1;
    std::string out;
    std::string err;

private:
    bool wait_for(const std::string &stream, std::string_view text);
    bool pump(int64_t deadline_ms);

    int input = -1;
    int output = -1;
    int error = -1;
    int status = 0;
    bool ended = false;
};

/// How a client process ended.
struct outcome {
    int code;
    std::string out;
    std::string err;
};

class system_under_test
{
public:
    system_under_test();
    ~system_under_test();
    system_under_test(const system_under_test &) = delete;
    system_under_test &operator=(const system_under_test &) = delete;

    /// Starts the simulator; it is silent about itself unless the dialogue reports.
    void start_modem(const std::vector<std::string> &options = {"--no-reports"});

    /// Starts the daemon and waits until it is up; with a modem also until the modem has answered.
    void start_daemon();
    void start_daemon_without_waiting();

    /// Runs vlkctl to its end, or starts it.
    outcome vlkctl(const std::vector<std::string> &arguments) const;
    std::unique_ptr<process> start_vlkctl(const std::vector<std::string> &arguments) const;

    /// One control line to the simulator, which must answer ok.
    void tell_modem(const std::string &line);

    std::string folder;
    uint32_t base;
    environment variables;
    std::unique_ptr<process> modem;
    std::unique_ptr<process> daemon;
};

int64_t now_ms();

#endif
