// Where the logs go: every kind of standard error there is, read or not.
#include <cstdlib>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pty.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "../process.h"
#include "host_log.h"
#include "host_place.h"
#include "log_sink.h"
#include "qep_trace.h"

namespace
{
using testing::HasSubstr;

/// Another file in the place of standard error, for as long as this lives. -1 closes it.
struct stderr_as {
    explicit stderr_as(int fd)
    {
        fflush(stderr);
        fd < 0 ? close(STDERR_FILENO) : dup2(fd, STDERR_FILENO);
    }
    ~stderr_as()
    {
        dup2(saved, STDERR_FILENO);
        close(saved);
    }
    const int saved = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 100);
};

struct two_ends {
    ~two_ends()
    {
        close(ours);
        close(theirs);
    }
    /// What has come, without waiting.
    std::string read_all() const
    {
        std::string all;
        char bytes[8192];
        fcntl(ours, F_SETFL, O_NONBLOCK);
        for (ssize_t count; (count = read(ours, bytes, sizeof bytes)) > 0;)
            all.append(bytes, size_t(count));
        return all;
    }
    int ours = -1, theirs = -1; ///< to read from, to write to
};

two_ends make_pipe()
{
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    return {ends[0], ends[1]};
}

two_ends make_terminal()
{
    two_ends ends;
    EXPECT_EQ(openpty(&ends.ours, &ends.theirs, nullptr, nullptr, nullptr), 0);
    return ends;
}

two_ends make_socket()
{
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    struct stat about {
    };
    fstat(ends[1], &about);
    setenv("JOURNAL_STREAM", (std::to_string(about.st_dev) + ":" + std::to_string(about.st_ino)).c_str(), 1);
    return {ends[0], ends[1]};
}

/// One line of each log.
void say_both(const char *text)
{
    host_log(LOG_WARNING, "%s", text);
    QEP_TRACE_PrintInfo("vorlink", 7, 0, "vorlink", 2, "%s", text);
}

/// Earlier tests in this process may have used up what a second may write.
void wait_for_fresh_second()
{
    const time_t now = time(nullptr);
    wait_until([&] { return time(nullptr) != now; });
}

class HostLog : public testing::Test
{
protected:
    HostLog()
    {
        setenv("VLK_TRACE_LEVEL", "16", 1);
        place.load_settings();
        unsetenv("NO_COLOR");
        unsetenv("JOURNAL_STREAM");
    }
    ~HostLog() override { unsetenv("JOURNAL_STREAM"); }
    const host_place place;
};

TEST_F(HostLog, SuitsWhoReadsIt)
{
    wait_for_fresh_second();
    {
        const two_ends journal = make_socket();
        {
            const stderr_as other(journal.theirs);
            say_both("AT+CPIN=4711 on the journal");
        }
        EXPECT_EQ(journal.read_all(), "<4>AT+CPIN=***\n<7>trace error    vorlink/vorlink:7: AT+CPIN=***\n");
        setenv("JOURNAL_STREAM", "1:2", 1); // somebody else's
        const two_ends plain = make_pipe();
        {
            const stderr_as other(plain.theirs);
            say_both("AT+CPIN=4711 in a pipe");
        }
        EXPECT_THAT(plain.read_all(), testing::ContainsRegex("^2...-..-.. ..:..:.......warning AT.CPIN="));
    }
    const two_ends terminal = make_terminal();
    {
        const stderr_as other(terminal.theirs);
        host_log(LOG_ERR, "lost");
    }
    EXPECT_THAT(terminal.read_all(), HasSubstr(" \x1b[31merror   lost\x1b[0m\r\n"));
    setenv("NO_COLOR", "1", 1);
    const two_ends plain_terminal = make_terminal();
    {
        const stderr_as other(plain_terminal.theirs);
        host_log(LOG_ERR, "lost again");
    }
    EXPECT_THAT(plain_terminal.read_all(), HasSubstr(" error   lost again\r\n"));
}

TEST_F(HostLog, ShowsWhatItsLevelSays)
{
    const std::pair<const char *, std::string> cases[] = {{"", "3456"}, {"debug", "34567"}, {"warning", "34"},
                                                          {"5", "345"}, {"err", "3"},       {"emerg", ""}};
    char line = 'a'; // lines that differ by numbers alone are one kind of trouble
    for (const auto &[level, shown] : cases) {
        setenv("VLK_LOG_LEVEL", level, 1);
        place.load_settings();
        const two_ends journal = make_socket();
        {
            const stderr_as other(journal.theirs);
            host_log(LOG_ERR, "error %c", ++line);
            host_log(LOG_WARNING, "warning %c", line);
            host_log(LOG_NOTICE, "notice %c", line);
            host_log(LOG_INFO, "info %c", line);
            host_log(LOG_DEBUG, "debug %c", line);
        }
        std::string levels;
        const std::string got = journal.read_all();
        for (size_t at = got.find('<'); at != got.npos; at = got.find('<', at + 1))
            levels += got[at + 1];
        EXPECT_EQ(levels, shown) << level;
    }
}

/// A reader that never comes, for each kind of file: the log must come back at once, tell later what is missing, and
/// leave the flags alone that other processes share.
TEST_F(HostLog, NeverWaitsAndTellsWhatIsMissing)
{
    for (const auto &make : {make_pipe, make_terminal, make_socket}) {
        const two_ends ends = make();
        const int flags = fcntl(ends.theirs, F_GETFL);
        const uint64_t lost_before = log_sink_lost();
        {
            const stderr_as other(ends.theirs);
            for (int n = 0; n < 9000; ++n) // more than any of them holds
                QEP_TRACE_PrintInfo("vorlink", n, 0, "vorlink", 2, "%s", std::string(100, 'x').c_str());
            EXPECT_EQ(fcntl(ends.theirs, F_GETFL), flags) << "the other end's owner would be surprised";
            EXPECT_GT(log_sink_lost(), lost_before);
            ASSERT_TRUE(wait_until([&] { // in the next second there is a share for it again
                ends.read_all();
                log_sink_line(log_kind::OPERATOR, LOG_WARNING, "room again");
                return ends.read_all().find("lines are missing here") != std::string::npos;
            }));
        }
    }
}

TEST_F(HostLog, BadPlacesHarmNobody)
{
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    const two_ends unread = make_pipe();
    close(dup2(full, unread.ours)); // nobody will ever read it
    for (const int fd : {full, unread.theirs, -1}) {
        const stderr_as other(fd);
        signal(SIGPIPE, SIG_IGN);
        for (int n = 0; n < 30; ++n)
            say_both(std::to_string(n).c_str());
    }
    close(full);
}

TEST_F(HostLog, ASignalEndsTheProcessAsEverAndIsTold)
{
    wait_for_fresh_second();
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        const two_ends journal = make_socket();
        const pid_t child = fork();
        if (child == 0) {
            const stderr_as other(journal.theirs);
            host_log_start();
            for (int n = 0; n < 100; ++n)
                host_log(LOG_WARNING, "trouble");
            kill(getpid(), number);
            _exit(1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == number) << status;
        const std::string got = journal.read_all();
        EXPECT_THAT(got, testing::ContainsRegex("<6>vorlink [0-9.]+ started: modem "));
        EXPECT_THAT(got,
                    testing::ContainsRegex("<4>99 more like this in [0-9]+ s: trouble\n<6>ended by SIG"));
    }
}

TEST_F(HostLog, ManyThreadsWriteWholeLines)
{
    wait_for_fresh_second();
    const two_ends pipe = make_pipe();
    {
        const stderr_as other(pipe.theirs);
        std::vector<std::jthread> threads;
        for (int id = 0; id < 4; ++id)
            threads.emplace_back([id] {
                for (int n = 0; n < 40; ++n)
                    QEP_TRACE_PrintInfo("vorlink", id, 0, "vorlink", 2, "%s", std::string(80, 'y').c_str());
            });
    }
    const std::string got = pipe.read_all();
    const std::regex whole("trace error    vorlink/vorlink:[0-3]: y{80}\n");
    EXPECT_EQ(std::distance(std::sregex_iterator(got.begin(), got.end(), whole), {}), 160) << got;
}

TEST_F(HostLog, TheSystemsLogGetsEntriesWithoutSecretsAndHoldsNobodyUp)
{
    const sockaddr_un address{AF_UNIX, "/dev/log"};
    const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (bind(log, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        close(log);
        GTEST_SKIP() << "/dev/log is somebody else's here";
    }
    for (int n = 0; n < 5000; ++n) // more than the socket holds
        mlog_print("vorlink", 2, "AT+CPIN=4711 %d", n);
    char entry[500] = "";
    EXPECT_GT(recv(log, entry, sizeof entry - 1, 0), 0);
    EXPECT_EQ(std::string(entry), "<27>vorlink[" + std::to_string(getpid()) + "]: vorlink: AT+CPIN=***");
    close(log);
    unlink("/dev/log");
    mlog_print("vorlink", 2, "nobody is there");
}

TEST_F(HostLog, AFloodIsBoundedInEverySecond)
{
    const two_ends journal = make_socket();
    const auto start = time(nullptr);
    std::string got;
    {
        const stderr_as other(journal.theirs);
        for (int n = 0; n < 5000; ++n)
            log_sink_line(log_kind::OPERATOR, LOG_WARNING, "flood");
        got = journal.read_all();
    }
    const auto seconds = time(nullptr) - start + 1;
    EXPECT_LE(std::count(got.begin(), got.end(), '\n'), 20 * seconds);
}

} // namespace
