#include "port_pty.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

using std::string;

namespace
{
constexpr int DRAIN_LIMIT_MS = 100;

string system_text(const string &what)
{
    return what + ": " + std::strerror(errno);
}

string read_link(const string &link)
{
    std::array<char, 256> target{};
    const ssize_t size = readlink(link.c_str(), target.data(), target.size());
    return size < 0 ? string() : string(target.data(), static_cast<size_t>(size));
}

/// The link with its folder's real name, so that one link has one name.
string full_name(const string &link)
{
    const size_t slash = link.rfind('/');
    const string folder = slash == string::npos ? "." : link.substr(0, slash + 1);
    char *real = realpath(folder.c_str(), nullptr);
    if (real == nullptr)
        return {};
    string name = string(real) + "/" + link.substr(slash == string::npos ? 0 : slash + 1);
    std::free(real);
    return name;
}

void close_if_open(int &fd)
{
    if (fd >= 0)
        close(fd);
    fd = -1;
}

/// Makes the terminal raw. Whether it echoed before what came from the port.
bool set_raw(int terminal)
{
    termios settings{};
    tcgetattr(terminal, &settings);
    const bool echoed = (settings.c_lflag & ECHO) != 0;
    cfmakeraw(&settings);
    settings.c_cflag |= CLOCAL | CREAD;
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
    cfsetspeed(&settings, B115200);
    tcsetattr(terminal, TCSANOW, &settings);
    return echoed;
}

/// Reads what was written to the terminal and not read. The kernel may still be on its way with some of it: a mark
/// behind it shows that all has come.
void drain(int master, int terminal)
{
    const char mark = 0;
    if (write(master, &mark, 1) != 1)
        tcflush(terminal, TCIFLUSH); // it is full
    std::array<char, 4096> bytes;
    pollfd state{terminal, POLLIN, 0};
    while (poll(&state, 1, DRAIN_LIMIT_MS) == 1) {
        const ssize_t count = read(terminal, bytes.data(), bytes.size());
        if (count <= 0 || bytes[static_cast<size_t>(count) - 1] == mark)
            return;
    }
}
} // namespace

port_pty::~port_pty()
{
    if (linked && read_link(place.link) == path)
        unlink(place.link.c_str());
    close_if_open(master);
    close_if_open(events);
    close_if_open(closings);
    close_if_open(claimed);
}

string port_pty::create(const port_place &new_place)
{
    place = new_place;
    if (string failed = claim(); !failed.empty())
        return failed;
    struct stat about {
    };
    if (lstat(place.link.c_str(), &about) == 0 && !S_ISLNK(about.st_mode))
        return place.link + " is there and is no link: choose another name or remove it";
    return make_terminal();
}

/// One port serves a link. The kernel forgets the claim with the process.
string port_pty::claim()
{
    const string name = full_name(place.link);
    if (name.empty())
        return system_text("cannot make " + place.link);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const string claim_name = "vlkctl-port:" + name;
    if (claim_name.size() + 1 > sizeof address.sun_path)
        return place.link + " is too long a name";
    claim_name.copy(address.sun_path + 1, claim_name.size());
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + claim_name.size());
    claimed = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (claimed < 0)
        return system_text("cannot make a socket");
    if (bind(claimed, reinterpret_cast<const sockaddr *>(&address), size) == 0)
        return {};
    return errno == EADDRINUSE ? "another port serves " + place.link + ": end it or choose another name"
                               : system_text("cannot claim " + place.link);
}

string port_pty::make_terminal()
{
    close_if_open(master);
    close_if_open(events);
    close_if_open(closings);
    open_now = left = false;
    master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    std::array<char, 64> name{};
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0 ||
        ptsname_r(master, name.data(), name.size()) != 0)
        return system_text("cannot make a pseudo-terminal (is /dev/pts mounted?)");
    path = name.data();
    events = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (events < 0 || inotify_add_watch(events, path.c_str(), IN_OPEN) < 0)
        return system_text("cannot watch " + path);
    // Edge-triggered: of all that wakes a writer of the terminal, only the last closing counts as EPOLLWRNORM.
    epoll_event closing{.events = EPOLLWRNORM | EPOLLET, .data = {}};
    closings = epoll_create1(EPOLL_CLOEXEC);
    if (closings < 0 || epoll_ctl(closings, EPOLL_CTL_ADD, master, &closing) != 0)
        return system_text("cannot watch " + path);
    if (!prepare())
        return system_text("cannot set up " + path);
    return make_link();
}

/// In one step: a program that opens the link meanwhile finds the old terminal or the new one.
string port_pty::make_link()
{
    const string draft = place.link + ".new";
    unlink(draft.c_str());
    if (symlink(path.c_str(), draft.c_str()) != 0)
        return system_text("cannot make " + place.link);
    if (rename(draft.c_str(), place.link.c_str()) != 0) {
        string failed = system_text("cannot make " + place.link);
        unlink(draft.c_str());
        return failed;
    }
    linked = true;
    return {};
}

/// Makes the terminal ready for the next program, while none has it open. False when the last one locked it for itself
/// (TIOCEXCL).
bool port_pty::prepare()
{
    const int terminal = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    if (terminal < 0)
        return false;
    ioctl(terminal, TIOCNXCL);
    const bool echoed = set_raw(terminal);
    drain(master, terminal);
    // the terminal stays with the user's own group when the user may not give it to place.group
    [[maybe_unused]] const int given = fchown(terminal, static_cast<uid_t>(-1), place.group);
    const bool set_up = fchmod(terminal, place.mode) == 0;
    close(terminal);
    if (echoed && hung_up()) // what it echoed reached the port as if typed
        tcflush(master, TCIFLUSH);
    take_openings(); // both were our own
    take_closing();
    return set_up;
}

bool port_pty::hung_up() const
{
    pollfd state{master, 0, 0};
    return poll(&state, 1, 0) == 1 && (state.revents & POLLHUP) != 0;
}

/// Nobody has it open, and all that was written is read. Checked twice: the kernel looks for bytes first, and a
/// program may write and close in between.
bool port_pty::abandoned() const
{
    for (int times = 0; times < 2; times++) {
        pollfd state{master, POLLIN, 0};
        if (poll(&state, 1, 0) != 1 || (state.revents & (POLLIN | POLLHUP)) != POLLHUP)
            return false;
    }
    return true;
}

/// Whether somebody has opened it since the last call. The kernel joins like events, so they cannot be counted.
bool port_pty::take_openings() const
{
    std::array<char, 4096> bytes;
    bool opened = false;
    while (read(events, bytes.data(), bytes.size()) > 0)
        opened = true;
    return opened;
}

/// Whether the last one that had it open has closed it since the last call, also when it is open again by now.
bool port_pty::take_closing() const
{
    epoll_event closing{};
    return epoll_wait(closings, &closing, 1, 0) > 0;
}

port_change port_pty::look()
{
    const bool opened = take_openings();
    left = take_closing() || left;
    const bool was_open = open_now;
    open_now = !abandoned();
    if (!was_open) {
        open_now = open_now || opened; // the next look finds it closed
        left = left && hung_up();
        return open_now ? port_change::OPENED : port_change::NONE;
    }
    if (open_now) {
        if (!left || hung_up())
            return port_change::NONE;
        left = false;
        set_raw(master); // a program that was quick loses its own settings and may then wait longer
        return port_change::REOPENED;
    }
    // the lock may already be the next program's
    if (!prepare() && abandoned() && !make_terminal().empty())
        return port_change::CLOSED; // no terminals left: tried again after the next program
    left = false;
    open_now = !abandoned();
    return open_now ? port_change::FOLLOWED : port_change::CLOSED;
}
