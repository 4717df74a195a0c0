#include "service_notify.h"

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "futex_word.h"
#include "host_log.h"

namespace
{
// Set before other threads start, then constant.
int notify_fd = -1;
int64_t interval_ns = 0; ///< half of what the manager allows; 0: it does not watch

std::atomic<int64_t> watchdog_due{NO_DEADLINE};
thread_local bool is_watched = false;

void send_text(const char *text)
{
    if (notify_fd >= 0)
        send(notify_fd, text, strlen(text), MSG_DONTWAIT | MSG_NOSIGNAL);
}

/// Connects to the manager's socket: a path, or "@NAME" for an abstract one.
void connect_manager(const char *name)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const size_t length = strlen(name);
    if ((name[0] != '/' && name[0] != '@') || length < 2 || length >= sizeof address.sun_path)
        return;
    memcpy(address.sun_path, name, length);
    if (name[0] == '@')
        address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    notify_fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (notify_fd < 0 || connect(notify_fd, reinterpret_cast<const sockaddr *>(&address), size) == 0)
        return;
    host_log(LOG_WARNING, "the service manager cannot be told anything: %s: %s", name, strerror(errno));
    close(notify_fd);
    notify_fd = -1;
}

int64_t number_of(const char *variable)
{
    const char *const text = getenv(variable);
    int64_t number = 0;
    if (text != nullptr)
        std::from_chars(text, text + strlen(text), number);
    return number;
}

/// When this thread has something to do besides its work, NO_DEADLINE for never.
int64_t due()
{
    const int64_t watchdog = watchdog_due.load(std::memory_order_relaxed);
    const int64_t log_ms = host_log_due();
    if (log_ms < 0)
        return watchdog;
    const int64_t log = log_ms * 1'000'000;
    return watchdog == NO_DEADLINE || log < watchdog ? log : watchdog;
}

const char *name_of(host_modem_state state)
{
    switch (state) {
    case HOST_MODEM_ABSENT:
        return "absent";
    case HOST_MODEM_SILENT:
        return "silent";
    case HOST_MODEM_READY:
        return "ready";
    case HOST_MODEM_RELEASED:
        return "released";
    }
    return "unknown";
}
} // namespace

void service_start()
{
    const int64_t watched_pid = number_of("WATCHDOG_PID");
    const int64_t limit_us = number_of("WATCHDOG_USEC");
    if (limit_us > 0 && limit_us < INT64_MAX / 1000 && (watched_pid == 0 || watched_pid == getpid()))
        interval_ns = limit_us * 1000 / 2;
    if (const char *const name = getenv("NOTIFY_SOCKET"))
        connect_manager(name);
    if (notify_fd < 0)
        interval_ns = 0;
    for (const char *variable : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
        unsetenv(variable);
}

void service_ready()
{
    is_watched = true;
    send_text("READY=1");
    service_tell(modem_state_get());
    if (interval_ns > 0)
        watchdog_due = monotonic_ns() + interval_ns;
}

void service_tell(const modem_report &modem)
{
    if (notify_fd < 0)
        return;
    char text[400];
    snprintf(text, sizeof text, "STATUS=modem %s%s%s", name_of(modem.state),
             modem.reason[0] != '\0' ? ": " : "", modem.reason);
    send_text(text);
}

void service_stopping()
{
    send_text("STOPPING=1");
}

void service_alive()
{
    if (!is_watched)
        return;
    const int64_t when = due();
    if (when == NO_DEADLINE) [[likely]]
        return;
    const int64_t now = monotonic_ns();
    if (now < when)
        return;
    if (interval_ns > 0 && now >= watchdog_due.load(std::memory_order_relaxed)) {
        watchdog_due = now + interval_ns;
        send_text("WATCHDOG=1");
    }
    if (host_log_due() >= 0 && now >= host_log_due() * 1'000'000)
        host_log_tick();
}

int64_t service_due(int64_t deadline)
{
    if (!is_watched)
        return deadline;
    const int64_t when = due();
    if (when == NO_DEADLINE)
        return deadline;
    return deadline == NO_DEADLINE || when < deadline ? when : deadline;
}
