// The pseudo-terminal of a port: made, linked under its name, and put right each time the last program has closed it.
#ifndef VLK_PORT_PTY_H
#define VLK_PORT_PTY_H

#include <string>

#include <sys/types.h>

struct port_place {
    std::string link;                     ///< becomes a symbolic link to the terminal
    gid_t group = static_cast<gid_t>(-1); ///< of the terminal; -1: the process's own
    mode_t mode = 0660;
};

/// What look() found.
enum class port_change {
    NONE,
    OPENED,   ///< a program has opened the terminal, which nobody had open
    CLOSED,   ///< the last program has closed it
    REOPENED, ///< both, the closing first: what was read since the last look() may be from either
    FOLLOWED, ///< both, and what was read since the last look() is from the one that has gone
};

class port_pty
{
public:
    port_pty() = default;
    port_pty(const port_pty &) = delete;
    port_pty &operator=(const port_pty &) = delete;

    /// Removes the link if it is still this port's.
    ~port_pty();

    /// Makes terminal and link. An empty text, or what went wrong and what to do about it. A link that nobody serves
    /// any more is replaced, anything else of that name is refused.
    std::string create(const port_place &place);

    /// Looks whether programs have come or gone; call it when watch() is readable, and after each read()
    /// of the terminal before its bytes are used. A program has gone when all that it wrote has been read. Between
    /// two programs the terminal gets its raw mode back, loses what nobody read and a lock (TIOCEXCL) left behind.
    /// A new terminal may then take its place.
    port_change look();

    bool is_open() const { return open_now; }
    bool hung_up() const;                   ///< nobody has it open; what was written last may still be unread
    int terminal() const { return master; } ///< non-blocking, for poll() while is_open()
    int watch() const { return events; }    ///< for poll() at any time
    const std::string &device() const { return path; }

private:
    std::string claim();
    std::string make_terminal();
    std::string make_link();
    bool prepare();
    bool abandoned() const;
    bool take_openings() const;
    bool take_closing() const;

    port_place place;
    std::string path;
    int master = -1;
    int events = -1;
    int closings = -1; ///< an epoll set that reports the last closing of the terminal
    int claimed = -1;  ///< a socket whose name says that the link is served
    bool open_now = false;
    bool left = false; ///< closed since the last program came, so whoever has it open is the next one
    bool linked = false;
};

#endif
