#include "at_device.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

#include "futex_word.h"

namespace
{
constexpr int HANG_UP_MS = 500;

/// A pty has no lines to share, and whoever holds its other end may keep the exclusive mark alive after us.
bool is_pty(const struct stat &about)
{
    constexpr unsigned first_slave_major = 136, last_slave_major = 143;
    return major(about.st_rdev) >= first_slave_major && major(about.st_rdev) <= last_slave_major;
}

void explain_permission(const char *path, std::span<char> message)
{
    struct stat about {
    };
    group entry{};
    group *found = nullptr;
    char names[1024];
    if (stat(path, &about) == 0)
        getgrgid_r(about.st_gid, &entry, names, sizeof names, &found);
    snprintf(
        message.data(), message.size(),
        "no permission for %s: it belongs to group \"%s\"; add user %u to it (usermod -aG) or start as root "
        "with VLK_USER",
        path, found != nullptr ? found->gr_name : "?", geteuid());
}

int explain(int error, const char *path, std::span<char> message)
{
    switch (error) {
    case ENOENT:
    case ENODEV:
    case ENXIO:
    case EIO: // a pty without its other end
        snprintf(message.data(), message.size(), "%s is missing: waiting until it appears", path);
        break;
    case EACCES:
    case EPERM:
        explain_permission(path, message);
        break;
    case EBUSY:
    case EWOULDBLOCK:
        snprintf(message.data(), message.size(),
                 "%s is in use: stop the program that holds it (\"fuser %s\" names it; often ModemManager)",
                 path, path);
        break;
    case ECONNREFUSED:
        snprintf(message.data(), message.size(), "nobody listens on %s: start the program that serves it",
                 path);
        break;
    case ENOTTY:
        snprintf(message.data(), message.size(),
                 "%s is neither a serial device nor a socket: set VLK_AT_DEVICE to the modem's AT port",
                 path);
        break;
    default:
        snprintf(message.data(), message.size(), "cannot open %s: %s", path, strerror(error));
    }
    return -1;
}

/// Raw, 8N1, without modem control. Flow control stays as it is set. 0, or -1 with errno.
int make_raw(int fd)
{
    termios settings{};
    if (tcgetattr(fd, &settings) != 0)
        return -1;
    cfmakeraw(&settings);
    settings.c_cflag &= ~tcflag_t{CSTOPB};
    settings.c_cflag |= CLOCAL | CREAD;
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
    if (cfgetospeed(&settings) == B0) {
        cfsetispeed(&settings, B115200);
        cfsetospeed(&settings, B115200);
    }
    return tcsetattr(fd, TCSANOW, &settings);
}

/// 0, or -1 with errno.
int open_tty(at_device &device, const char *path, const struct stat &about)
{
    device.fd = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (device.fd < 0)
        return -1;
    if (isatty(device.fd) == 0)
        return -1;
    if (flock(device.fd, LOCK_EX | LOCK_NB) != 0 || (!is_pty(about) && ioctl(device.fd, TIOCEXCL) != 0))
        return -1;
    if (make_raw(device.fd) != 0)
        return -1;
    const int lines = TIOCM_DTR | TIOCM_RTS;
    ioctl(device.fd, TIOCMBIS, &lines); // refused where there are none
    tcflush(device.fd, TCIOFLUSH);
    return 0;
}

/// 0, or -1 with errno.
int connect_socket(at_device &device, const char *path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (strlen(path) >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(address.sun_path, path, strlen(path));
    device.is_socket = true;
    device.fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (device.fd < 0)
        return -1;
    return connect(device.fd, reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

ssize_t write_some(const at_device &device, std::span<const char> bytes)
{
    if (device.is_socket)
        return send(device.fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    return write(device.fd, bytes.data(), bytes.size());
}
} // namespace

int at_device_open(at_device &device, const char *path, std::span<char> message)
{
    struct stat about {
    };
    if (stat(path, &about) != 0)
        return explain(errno, path, message);
    if (!S_ISCHR(about.st_mode) && !S_ISSOCK(about.st_mode))
        return explain(ENOTTY, path, message);
    device = {};
    const int result = S_ISSOCK(about.st_mode) ? connect_socket(device, path) : open_tty(device, path, about);
    if (result == 0)
        return 0;
    const int error = errno;
    at_device_close(device);
    return explain(error, path, message);
}

void at_device_close(at_device &device)
{
    if (device.fd >= 0)
        close(device.fd);
    device = {};
}

void at_device_hang_up(const at_device &device)
{
    const int line = TIOCM_DTR;
    if (device.is_socket || ioctl(device.fd, TIOCMBIC, &line) != 0)
        return;
    poll(nullptr, 0, HANG_UP_MS);
    ioctl(device.fd, TIOCMBIS, &line);
}

ssize_t at_device_read(const at_device &device, std::span<char> buffer)
{
    const ssize_t count = read(device.fd, buffer.data(), buffer.size());
    if (count > 0)
        return count;
    const bool nothing_yet = count < 0 && (errno == EAGAIN || errno == EINTR);
    return nothing_yet ? 0 : -1;
}

at_write at_device_write(const at_device &device, std::span<const char> bytes, int limit_ms)
{
    int64_t end = -1; // asked for only when the device does not take it all at once
    const size_t whole = bytes.size();
    while (!bytes.empty()) {
        const ssize_t count = write_some(device, bytes);
        if (count > 0) {
            bytes = bytes.subspan(static_cast<size_t>(count));
            continue;
        }
        if (count < 0 && errno != EAGAIN && errno != EINTR)
            return at_write::BROKEN;
        const int64_t now = monotonic_ms();
        end = end < 0 ? now + limit_ms : end;
        const int64_t left = end - now;
        pollfd writable{device.fd, POLLOUT, 0};
        if (left <= 0 || poll(&writable, 1, static_cast<int>(left)) == 0)
            return bytes.size() == whole ? at_write::REFUSED : at_write::BROKEN;
        if ((writable.revents & (POLLERR | POLLHUP)) != 0)
            return at_write::BROKEN;
    }
    return at_write::WRITTEN;
}
