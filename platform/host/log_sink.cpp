#include "log_sink.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "log_text.h"

namespace
{
constexpr uint32_t OPERATOR_LINES = 20; ///< in one second
constexpr uint32_t TRACE_LINES = 10'000;

struct level_look {
    const char *name;
    const char *colour;
};

constexpr std::array<level_look, 8> levels{{{"emerg", "\x1b[31m"},
                                            {"alert", "\x1b[31m"},
                                            {"crit", "\x1b[31m"},
                                            {"error", "\x1b[31m"},
                                            {"warning", "\x1b[33m"},
                                            {"notice", "\x1b[1m"},
                                            {"info", ""},
                                            {"debug", "\x1b[2m"}}};

/// Who reads standard error.
enum class reader {
    NOBODY,
    JOURNAL,
    TERMINAL,
    OTHER
};

/// How many lines this second has had.
struct share {
    uint32_t limit;
    time_t second = 0;
    uint32_t lines = 0;

    bool take(time_t now)
    {
        if (now != second) {
            second = now;
            lines = 0;
        }
        return lines < limit && ++lines > 0;
    }
};

std::mutex sink_mutex; // of all below
struct stat known {
}; ///< what standard error was when it was looked at
reader who = reader::NOBODY;
bool is_known = false;
bool colours = false;
int own_fd = -1; ///< standard error opened once more, non-blocking; -1: it cannot be
share operator_share{OPERATOR_LINES}, trace_share{TRACE_LINES};
long utc_offset = 0;  ///< of local time, in seconds
uint64_t untold = 0;  ///< lines that are missing since the last that was written
bool cut_off = false; ///< the last line was written in part
std::atomic<uint64_t> lost{0};

/// As sd-daemon does: the variable must name our standard error; it may be inherited from another service.
bool is_journal(const struct stat &about)
{
    const char *const text = getenv("JOURNAL_STREAM");
    unsigned long long device = 0, inode = 0;
    return text != nullptr && sscanf(text, "%llu:%llu", &device, &inode) == 2 && device == about.st_dev &&
           inode == about.st_ino;
}

/// Looks at standard error again when it has become another file.
void look_at_reader()
{
    struct stat about {
    };
    if (fstat(STDERR_FILENO, &about) != 0) {
        who = reader::NOBODY;
        is_known = false;
        return;
    }
    if (is_known && about.st_dev == known.st_dev && about.st_ino == known.st_ino)
        return;
    if (own_fd >= 0)
        close(own_fd);
    known = about;
    is_known = true;
    const bool is_terminal = S_ISCHR(about.st_mode) && isatty(STDERR_FILENO) == 1;
    const bool may_block = is_terminal || S_ISFIFO(about.st_mode);
    own_fd = may_block ? open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC) : -1;
    who = is_journal(about) ? reader::JOURNAL : is_terminal ? reader::TERMINAL : reader::OTHER;
    colours = is_terminal && getenv("NO_COLOR") == nullptr;
}

/// Bytes written, or -1. At most LOG_LINE_SIZE bytes, which a pipe that has room takes without a wait.
ssize_t write_now(std::span<const char> bytes)
{
    if (S_ISSOCK(known.st_mode))
        return send(STDERR_FILENO, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (own_fd >= 0)
        return write(own_fd, bytes.data(), bytes.size());
    pollfd writable{STDERR_FILENO, POLLOUT, 0};
    if (!S_ISREG(known.st_mode) && (poll(&writable, 1, 0) != 1 || (writable.revents & POLLOUT) == 0))
        return -1;
    return write(STDERR_FILENO, bytes.data(), bytes.size());
}

bool write_line(std::span<const char> bytes)
{
    if (who == reader::NOBODY)
        return false;
    if (cut_off && write_now(std::span("\n", 1)) != 1)
        return false;
    cut_off = false;
    const ssize_t count = write_now(bytes);
    cut_off = count > 0 && static_cast<size_t>(count) < bytes.size();
    return count == static_cast<ssize_t>(bytes.size());
}

void build(log_line &line, log_kind kind, int priority, const timespec &now, const char *text)
{
    const level_look &look = levels[static_cast<size_t>(std::clamp(priority, 0, 7))];
    const bool is_trace = kind == log_kind::TRACE;
    if (who == reader::JOURNAL) {
        line.add('<');
        line.add(static_cast<char>('0' + (is_trace ? LOG_DEBUG : std::clamp(priority, 0, 7))));
        line.add('>');
    } else {
        line.add_time(now.tv_sec, static_cast<int>(now.tv_nsec / 1'000'000), utc_offset);
        if (colours)
            line.add(look.colour);
        if (!is_trace) {
            line.add(look.name);
            for (size_t n = strlen(look.name); n < 8; ++n)
                line.add(' ');
        }
    }
    if (is_trace)
        line.add("trace ");
    line.add_masked(text);
    if (who != reader::JOURNAL && colours && look.colour[0] != '\0')
        line.add("\x1b[0m");
    line.end();
}

/// Under the mutex.
void put_line(log_kind kind, int priority, const char *text)
{
    look_at_reader();
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    share &of_second = kind == log_kind::TRACE ? trace_share : operator_share;
    bool written = of_second.take(now.tv_sec);
    if (written && untold > 0) {
        char told[120];
        snprintf(told, sizeof told, "%llu lines are missing here: nobody took them, or they came too fast",
                 static_cast<unsigned long long>(untold));
        log_line line;
        build(line, log_kind::OPERATOR, LOG_WARNING, now, told);
        written = write_line(line.text());
        untold = written ? 0 : untold;
    }
    if (written) {
        log_line line;
        build(line, kind, priority, now, text);
        written = write_line(line.text());
    }
    if (written)
        return;
    ++untold;
    ++lost;
}

/// Not in a signal handler.
void refresh_utc_offset()
{
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    utc_offset = local.tm_gmtoff;
}
} // namespace

void log_sink_line(log_kind kind, int priority, const char *text)
{
    const std::scoped_lock lock(sink_mutex);
    const int error = errno;
    refresh_utc_offset();
    put_line(kind, priority, text);
    errno = error;
}

void log_sink_line_in_handler(int priority, const char *text)
{
    const std::unique_lock lock(sink_mutex, std::try_to_lock);
    if (lock.owns_lock())
        put_line(log_kind::OPERATOR, priority, text);
}

void log_sink_last_words(const char *text)
{
    const std::scoped_lock lock(sink_mutex);
    look_at_reader();
    log_line line;
    if (who == reader::JOURNAL)
        line.add("<3>");
    line.add("vorlink: ");
    line.add_masked(text);
    line.end();
    write_line(line.text());
}

uint64_t log_sink_lost()
{
    return lost;
}

void log_sink_syslog(int priority, const char *module, const char *text)
{
    static std::mutex syslog_mutex;
    static int fd = -1;
    const std::scoped_lock lock(syslog_mutex);
    log_line entry;
    entry.add('<');
    entry.add_number(static_cast<unsigned>(LOG_DAEMON | priority));
    entry.add(">vorlink[");
    entry.add_number(static_cast<unsigned>(getpid()));
    entry.add("]: ");
    entry.add_masked(module);
    entry.add(": ");
    entry.add_masked(text);
    if (fd < 0)
        fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const sockaddr_un address{AF_UNIX, "/dev/log"};
    sendto(fd, entry.text().data(), entry.text().size(), MSG_DONTWAIT | MSG_NOSIGNAL,
           reinterpret_cast<const sockaddr *>(&address), sizeof address);
}
