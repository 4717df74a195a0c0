// Where the modem's client comes in: a pseudo-terminal, or a Unix stream socket. Non-blocking; one client's session
// at a time. Failures of set-up throw std::runtime_error or std::system_error with the cause.
#pragma once

#include <memory>
#include <string>

namespace modemsim
{

class port
{
public:
    port() = default;
    port(const port &) = delete;
    port &operator=(const port &) = delete;
    virtual ~port() = default;

    /// Makes the device appear, and its path with it.
    virtual void plug() = 0;

    /// Makes it vanish: the client sees a hang-up, the path is removed.
    virtual void unplug() = 0;

    virtual bool plugged() const = 0;

    /// True while a client has the device open. Lets the next one in.
    virtual bool client_present() = 0;

    /// To be called when a read or a write says that the client has left.
    virtual void client_left() = 0;

    /// For poll, read and write while a client is present.
    virtual int fd() const = 0;

    /// The path to open or to connect to.
    const std::string &device() const { return device_; }

protected:
    std::string device_;
};

/// A raw pseudo-terminal. `link`, when not empty, is a symbolic link to it, put in place atomically; something there
/// that is no symbolic link is refused.
std::unique_ptr<port> make_pty_port(const std::string &link);

/// A listening Unix stream socket. A stale socket at the path is replaced, a live one refused.
std::unique_ptr<port> make_socket_port(const std::string &path);

} // namespace modemsim
