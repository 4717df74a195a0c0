#include "port.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

namespace modemsim
{

namespace
{

namespace fs = std::filesystem;

[[noreturn]] void fail(const std::string &what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

/// A file descriptor that closes itself.
class descriptor
{
public:
    explicit descriptor(int fd = -1) : fd_(fd) {}
    descriptor(descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    descriptor &operator=(descriptor &&other) noexcept
    {
        std::swap(fd_, other.fd_);
        other.close();
        return *this;
    }
    ~descriptor() { close(); }
    int get() const { return fd_; }
    bool is_open() const { return fd_ >= 0; }
    void close()
    {
        if (fd_ >= 0)
            ::close(std::exchange(fd_, -1));
    }

private:
    int fd_;
};

// No slave descriptor is kept, so that the master sees the last client leave: poll says POLLHUP from then on,
// until the next one opens. The bit is not set on a fresh pair, hence the one open and close in plug().
class pty_port : public port
{
public:
    explicit pty_port(std::string link) : link_(std::move(link)) { plug(); }
    ~pty_port() override { remove_link(); }

    void plug() override
    {
        descriptor master(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
        char path[64];
        if (!master.is_open() || ::grantpt(master.get()) != 0 || ::unlockpt(master.get()) != 0 ||
            ::ptsname_r(master.get(), path, sizeof path) != 0)
            fail("cannot make a pseudo-terminal");
        device_ = path;
        const descriptor slave = open_slave();
        termios settings{};
        if (::tcgetattr(slave.get(), &settings) != 0)
            fail("cannot read the settings of " + device_);
        ::cfmakeraw(&settings);
        if (::tcsetattr(slave.get(), TCSANOW, &settings) != 0)
            fail("cannot make " + device_ + " raw");
        place_link();
        master_ = std::move(master);
    }

    void unplug() override
    {
        remove_link();
        master_.close();
    }

    bool plugged() const override { return master_.is_open(); }

    bool client_present() override
    {
        pollfd state{master_.get(), POLLIN, 0};
        if (!plugged() || ::poll(&state, 1, 0) < 0)
            return false;
        if ((state.revents & POLLHUP) == 0)
            return true;
        if ((state.revents & POLLIN) != 0)
            drop_input();
        return false;
    }

    // What the client left unread is thrown away, or the next client would read it.
    void client_left() override
    {
        const descriptor slave = open_slave();
        ::tcflush(slave.get(), TCIFLUSH);
    }

    int fd() const override { return master_.get(); }

private:
    /// Drops what a client wrote before it left, or the next client would get the answers.
    void drop_input() const
    {
        char bytes[4096];
        while (::read(master_.get(), bytes, sizeof bytes) > 0) {}
    }

    descriptor open_slave() const
    {
        descriptor slave(::open(device_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
        if (!slave.is_open())
            fail("cannot open " + device_);
        return slave;
    }

    void place_link() const
    {
        if (link_.empty())
            return;
        const fs::file_status there = fs::symlink_status(link_);
        if (fs::exists(there) && !fs::is_symlink(there))
            throw std::runtime_error(link_ +
                                     " exists and is no symbolic link; name another --link or remove it");
        const std::string fresh = link_ + "." + std::to_string(::getpid());
        ::unlink(fresh.c_str());
        if (::symlink(device_.c_str(), fresh.c_str()) != 0)
            fail("cannot make the link " + fresh);
        if (::rename(fresh.c_str(), link_.c_str()) != 0) {
            const int cause = std::exchange(errno, 0);
            ::unlink(fresh.c_str());
            errno = cause;
            fail("cannot put the link " + link_ + " in place");
        }
    }

    // Only our own: another simulator may have taken the link over.
    void remove_link() const
    {
        std::error_code error;
        if (!link_.empty() && fs::read_symlink(link_, error) == device_)
            fs::remove(link_, error);
    }

    std::string link_;
    descriptor master_;
};

class socket_port : public port
{
public:
    explicit socket_port(const std::string &path)
    {
        device_ = path;
        plug();
    }
    ~socket_port() override { unplug(); }

    void plug() override
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (device_.empty() || device_.size() >= sizeof address.sun_path)
            throw std::runtime_error("the socket path must have 1 to " +
                                     std::to_string(sizeof address.sun_path - 1) + " characters");
        device_.copy(address.sun_path, device_.size());
        remove_stale(address);
        descriptor listener(new_socket());
        if (!listener.is_open() || ::bind(listener.get(), sockaddr_of(address), sizeof address) != 0)
            fail("cannot make the socket " + device_);
        if (::listen(listener.get(), 1) != 0)
            fail("cannot listen on " + device_);
        listener_ = std::move(listener);
    }

    void unplug() override
    {
        if (plugged())
            ::unlink(device_.c_str());
        listener_.close();
        client_.close();
    }

    bool plugged() const override { return listener_.is_open(); }

    bool client_present() override
    {
        if (plugged() && !client_.is_open())
            client_ = descriptor(::accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        return client_.is_open();
    }

    void client_left() override { client_.close(); }

    int fd() const override { return client_.get(); }

private:
    static int new_socket() { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }

    static const sockaddr *sockaddr_of(const sockaddr_un &address)
    {
        return reinterpret_cast<const sockaddr *>(&address);
    }

    void remove_stale(const sockaddr_un &address) const
    {
        struct stat found {
        };
        if (::lstat(device_.c_str(), &found) != 0)
            return;
        if (!S_ISSOCK(found.st_mode))
            throw std::runtime_error(device_ +
                                     " exists and is no socket; name another --socket or remove it");
        const descriptor probe(new_socket());
        if (::connect(probe.get(), sockaddr_of(address), sizeof address) == 0 || errno != ECONNREFUSED)
            throw std::runtime_error(device_ +
                                     " is in use; end the other simulator or name another --socket");
        ::unlink(device_.c_str());
    }

    descriptor listener_;
    descriptor client_;
};

} // namespace

std::unique_ptr<port> make_pty_port(const std::string &link)
{
    return std::make_unique<pty_port>(link);
}

std::unique_ptr<port> make_socket_port(const std::string &path)
{
    return std::make_unique<socket_port>(path);
}

} // namespace modemsim
