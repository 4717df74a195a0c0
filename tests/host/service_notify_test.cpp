// What a service manager is told, and when.
#include <string>

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "../process.h"
#include "futex_word.h"
#include "host_place.h"
#include "platform.h"
#include "service_notify.h"

namespace
{
using testing::HasSubstr;

/// A manager's socket that a child process reports to.
struct manager {
    explicit manager(const std::string &path)
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (path[0] == '@')
            address.sun_path[0] = '\0';
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
        EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), size), 0);
        const timeval limit{10, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    }
    ~manager() { close(fd); }

    std::string next() const
    {
        char text[1000];
        const ssize_t length = recv(fd, text, sizeof text, 0);
        return length < 0 ? "nothing" : std::string(text, size_t(length));
    }
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

/// A child with these variables that does `work` and ends.
struct child {
    template <typename Work>
    child(const std::string &socket, const char *watchdog_us, const char *watched_pid, Work work)
    {
        pid = fork();
        if (pid != 0)
            return;
        setenv("NOTIFY_SOCKET", socket.c_str(), 1);
        setenv("WATCHDOG_USEC", watchdog_us, 1);
        setenv("WATCHDOG_PID", watched_pid, 1);
        service_start();
        _exit(getenv("NOTIFY_SOCKET") == nullptr ? work() : 99);
    }
    int end() const
    {
        int status = -1;
        waitpid(pid, &status, 0);
        return status;
    }
    void stop() const
    {
        kill(pid, SIGKILL);
        end();
    }
    pid_t pid;
};

TEST(ServiceNotify, AMainThreadThatWaitsIsAliveAndOneThatHangsIsNot)
{
    const host_place place;
    struct {
        const char *fault;
        std::string socket;
        int (*wait)(); // for ten minutes; only the watchdog's interval lets it say something
    } const cases[] = {
        {"the wait for events", place.folder + "/manager",
         [] {
             uint32_t events = 0;
             VLK_event_init(7);
             service_ready();
             return VLK_event_recv(7, 600'000, &events);
         }},
        {"the wait for the modem's text", "@" + place.folder,
         [] {
             char record[8];
             const int32_t queue = VLK_msgQ_create(3, 1, 8);
             service_ready();
             return VLK_msgQ_recv(queue, record, 8, 600'000);
         }},
        {"a pause", place.folder + "/manager2",
         [] {
             service_ready();
             VLK_sleep(600'000);
             return 0;
         }},
    };
    for (const auto &c : cases) {
        const manager boss(c.socket);
        const child daemon(c.socket, "40000", "", c.wait);
        EXPECT_EQ(boss.next(), "READY=1") << c.fault;
        EXPECT_EQ(boss.next(), "STATUS=modem absent") << c.fault;
        for (int n = 0; n < 3; ++n)
            EXPECT_EQ(boss.next(), "WATCHDOG=1") << c.fault;
        daemon.stop();
    }
}

TEST(ServiceNotify, OthersAndStrangersAreNotTakenForTheMainThread)
{
    const host_place place;
    const std::string socket = place.folder + "/manager";
    const manager boss(socket);
    const auto beats_of_another_thread = [] {
        service_ready();
        VLK_pthread_create(
            0, 0, 0,
            [](void *) -> void * {
                VLK_sleep(100); // many intervals
                kill(getpid(), SIGKILL);
                return nullptr;
            },
            nullptr);
        pause(); // the main thread hangs
        return 0;
    };
    EXPECT_EQ(child(socket, "2000", "", beats_of_another_thread).end(), SIGKILL);
    EXPECT_EQ(boss.next(), "READY=1");
    EXPECT_EQ(boss.next(), "STATUS=modem absent");

    const auto waits = [] {
        service_ready();
        VLK_sleep(100);
        modem_state_set(HOST_MODEM_ABSENT, "/dev/x is missing");
        modem_state_set(HOST_MODEM_ABSENT, "/dev/x is missing"); // no news
        modem_state_set(HOST_MODEM_READY, "");
        service_stopping();
        return service_due(NO_DEADLINE) == NO_DEADLINE ? 0 : 1; // an idle daemon sleeps
    };
    EXPECT_EQ(child(socket, "2000", "1", waits).end(), 0) << "the watchdog is for another process";
    for (const char *expected : {"READY=1", "STATUS=modem absent", "STATUS=modem absent: /dev/x is missing",
                                 "STATUS=modem ready", "STOPPING=1"})
        EXPECT_EQ(boss.next(), expected);
    for (const std::string &nobody : {std::string(), place.folder + "/nobody", std::string(300, '/')})
        EXPECT_EQ(child(nobody, "2000", "", waits).end(), 0) << nobody;
}

} // namespace
