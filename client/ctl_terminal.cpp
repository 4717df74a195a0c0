#include "ctl_terminal.h"

#include <cerrno>
#include <csignal>
#include <cstdio>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

using std::optional;
using std::string;

namespace
{
constexpr size_t LONGEST_LINE = size_t{64} * 1024;

volatile std::sig_atomic_t g_interrupted = 0;

void note_interrupt(int)
{
    g_interrupted = 1;
}

/// Without buffering: what follows the line stays for the next reader.
optional<string> read_unbuffered()
{
    string line;
    char c = '\0';
    for (;;) {
        const ssize_t got = read(STDIN_FILENO, &c, 1);
        if (got < 0 && errno == EINTR && !interrupted())
            continue;
        if (got <= 0)
            return line.empty() || interrupted() ? optional<string>{} : line;
        if (c == '\n')
            break;
        if (line.size() < LONGEST_LINE)
            line += c;
    }
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return line;
}

void show_prompt(const char *prompt)
{
    if (isatty(STDIN_FILENO) != 1)
        return;
    std::fputs(prompt, stderr);
    std::fflush(stderr);
}

/// While it lives, the terminal of standard input does not echo.
class hidden_input
{
public:
    hidden_input()
    {
        if (tcgetattr(STDIN_FILENO, &before_) != 0)
            return;
        termios hidden = before_;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        changed_ = tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden) == 0;
    }
    ~hidden_input()
    {
        if (!changed_)
            return;
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
        std::fputc('\n', stderr);
    }
    hidden_input(const hidden_input &) = delete;
    hidden_input &operator=(const hidden_input &) = delete;

private:
    termios before_{};
    bool changed_ = false;
};
} // namespace

void keep_standard_streams()
{
    constexpr int MODES[] = {O_RDONLY, O_RDONLY, O_WRONLY}; // writing to a closed standard output must fail
    for (int descriptor = 0; descriptor < 3; descriptor++)
        if (fcntl(descriptor, F_GETFD) < 0 && errno == EBADF)
            open("/dev/null", MODES[descriptor]);
}

optional<string> read_line(const char *prompt)
{
    show_prompt(prompt);
    return read_unbuffered();
}

optional<string> read_secret(const char *prompt)
{
    catch_interrupts();
    const hidden_input hidden;
    show_prompt(prompt);
    return read_unbuffered();
}

void catch_interrupts()
{
    struct sigaction action = {};
    action.sa_handler = note_interrupt;               // without SA_RESTART: reads end
    action.sa_flags = static_cast<int>(SA_RESETHAND); // a second one ends the program, whatever it waits for
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool interrupted()
{
    return g_interrupted != 0;
}

bool wait_readable(int descriptor, int milliseconds)
{
    pollfd wanted = {descriptor, POLLIN, 0};
    return poll(&wanted, 1, milliseconds) > 0;
}

int terminal_width()
{
    winsize size = {};
    constexpr int USUAL = 80;
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : USUAL;
}
