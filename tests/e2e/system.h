// A whole system in its own corner of the machine: simulator, daemon and client processes with a runtime folder of its
// own. Everything is ended and removed with the object.
#ifndef E2E_SYSTEM_H
#define E2E_SYSTEM_H

#include <memory>

#include "../process.h"

inline constexpr char SIGNAL[] = "+CSQ: 20,99\n"; ///< what vlkctl at AT+CSQ prints

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

    /// Starts the simulator: the built-in dialogue without its reports, and these lines behind it.
    void start_modem(const std::string &lines = "", const std::string &split = "none");

    /// Starts the daemon and waits until it is up; with a modem also until the modem has answered.
    void start_daemon();
    void start_daemon_without_waiting();

    /// Runs vlkctl to its end, or starts it.
    outcome vlkctl(const std::vector<std::string> &arguments) const;
    std::unique_ptr<process> start_vlkctl(const std::vector<std::string> &arguments) const;
    void expect_signal(const char *when) const; ///< a plain command works

    /// One control line to the simulator, which must answer ok.
    void tell_modem(const std::string &line) { ASSERT_EQ(modem->ask(line), "ok") << line; }
    /// Waits until the modem is at work on a command.
    void wait_until_answering();

    std::string folder;
    environment variables;
    std::unique_ptr<process> modem;
    std::unique_ptr<process> daemon;
};

#endif
