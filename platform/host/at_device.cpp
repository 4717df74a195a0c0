#include "at_device.h"

#include <algorithm>
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
constexpr int64_t HOLDER_LOOK_MS = 30'000;

/// A pty is not marked exclusive: the program at its other end may keep that mark alive after us.
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

/// Says who has the device, as far as this user may see. That takes a search of /proc, so not at every try.
void explain_use(const char *path, dev_t number, pid_t holder, std::span<char> message)
{
    static int64_t look_again = 0;
    static dev_t looked_at = 0;
    static pid_t seen = 0;
    if (holder == 0 && (monotonic_ms() >= look_again || number != looked_at)) {
        looked_at = number;
        seen = find_device_holder(number);
        look_again = monotonic_ms() + HOLDER_LOOK_MS;
    }
    holder = holder != 0 ? holder : seen;
    char who[64] = "";
    if (holder != 0)
        describe_process(holder, who);
    if (holder != 0)
        snprintf(message.data(), message.size(), "%s is held by %s: end that program", path, who);
    else
        snprintf(message.data(), message.size(),
                 "%s is in use: stop the program that holds it (\"fuser %s\" names it; often ModemManager)",
                 path, path);
}

/// Puts the error into words. Returns what at_device_open returns then.
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
    case ECONNREFUSED:
        snprintf(message.data(), message.size(), "nobody listens on %s: start the program that serves it",
                 path);
        break;
    case ERANGE:
        snprintf(
            message.data(), message.size(),
            "%s does not take its settings: set VLK_AT_SPEED and VLK_AT_FLOW to what it can do, or unset "
            "them",
            path);
        return AT_DEVICE_NEVER;
    default:
        snprintf(message.data(), message.size(), "cannot open %s: %s", path, strerror(error));
    }
    return AT_DEVICE_NOT_YET;
}

/// Something is there, but it is no AT port.
int refuse_kind(const char *path, mode_t mode, std::span<char> message)
{
    const char *const kind = S_ISDIR(mode)   ? "a folder"
                             : S_ISREG(mode) ? "a regular file"
                             : S_ISBLK(mode) ? "a disk"
                             : S_ISCHR(mode) ? "no AT port"
                                             : "neither a device nor a socket";
    snprintf(message.data(), message.size(), "%s is %s: set VLK_AT_DEVICE to the modem's AT port", path,
             kind);
    return AT_DEVICE_NEVER;
}

/// Raw, 8N1, without modem control. 0, or -1 with errno: ERANGE when the port does not do what is asked.
int make_raw(at_device &device, const at_line_settings &line)
{
    termios settings{};
    if (tcgetattr(device.fd, &settings) != 0)
        return -1;
    cfmakeraw(&settings);
    settings.c_cflag &= ~tcflag_t{CSTOPB};
    settings.c_cflag |= CLOCAL | CREAD;
    if (line.flow != at_flow::OWN) {
        settings.c_cflag &= ~tcflag_t{CRTSCTS};
        settings.c_iflag &= ~tcflag_t{IXON | IXOFF};
    }
    if (line.flow == at_flow::RTSCTS)
        settings.c_cflag |= CRTSCTS;
    if (line.flow == at_flow::XONXOFF)
        settings.c_iflag |= IXON | IXOFF;
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
    const auto *const wanted = std::ranges::find(at_speeds, line.speed, &at_speed::bits);
    if (wanted != std::end(at_speeds))
        cfsetspeed(&settings, wanted->code);
    else if (cfgetospeed(&settings) == B0)
        cfsetspeed(&settings, B115200);
    if (tcsetattr(device.fd, TCSANOW, &settings) != 0)
        return -1;

    termios taken{}; // tcsetattr succeeds even when only a part was
    if (tcgetattr(device.fd, &taken) != 0)
        return -1;
    const auto *const speed = std::ranges::find(at_speeds, cfgetospeed(&taken), &at_speed::code);
    device.speed = speed != std::end(at_speeds) ? speed->bits : 0;
    const bool has_speed = line.speed == 0 || device.speed == line.speed;
    const bool has_flow = (taken.c_cflag & CRTSCTS) == (settings.c_cflag & CRTSCTS) &&
                          (taken.c_iflag & (IXON | IXOFF)) == (settings.c_iflag & (IXON | IXOFF));
    if (!has_speed || (!has_flow && line.flow != at_flow::OWN)) {
        errno = ERANGE;
        return -1;
    }
    return 0;
}

/// Takes the device, unless another process has it. 0, or -1 with errno.
int take_alone(const at_device &device, const struct stat &about)
{
    if (flock(device.fd, LOCK_EX | LOCK_NB) != 0)
        return -1;
    if (is_pty(about) || ioctl(device.fd, TIOCEXCL) == 0 || errno != EBUSY)
        return 0;
    return -1;
}

/// 0, or -1 with errno.
int open_port(at_device &device, const char *path, const struct stat &about, const at_line_settings &line)
{
    device.fd = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (device.fd < 0 || take_alone(device, about) != 0)
        return -1;
    if (isatty(device.fd) == 0)
        return 0; // a modem's port that has no line settings
    if (make_raw(device, line) != 0)
        return -1;
    const int lines = TIOCM_DTR | TIOCM_RTS;
    ioctl(device.fd, TIOCMBIS, &lines); // fails on a port without such lines
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

int at_device_open(at_device &device, const char *path, const at_line_settings &line, std::span<char> message)
{
    constexpr unsigned memory_devices = 1; // null, zero, full, random
    struct stat about {
    };
    if (stat(path, &about) != 0)
        return explain(errno, path, message);
    const bool is_port = S_ISCHR(about.st_mode) && major(about.st_rdev) != memory_devices;
    if (!is_port && !S_ISSOCK(about.st_mode))
        return refuse_kind(path, about.st_mode, message);
    device = {};
    uucp_lock lock;
    const pid_t holder = is_port ? uucp_lock_take(lock, UUCP_LOCK_FOLDER, path) : 0;
    if (holder != 0) {
        explain_use(path, about.st_rdev, holder, message);
        return AT_DEVICE_NOT_YET;
    }
    device.lock = lock;
    const int result = is_port ? open_port(device, path, about, line) : connect_socket(device, path);
    if (result == 0)
        return AT_DEVICE_OPENED;
    const int error = errno;
    at_device_close(device);
    if (error != EBUSY && error != EWOULDBLOCK)
        return explain(error, path, message);
    explain_use(path, about.st_rdev, 0, message);
    return AT_DEVICE_NOT_YET;
}

void at_device_close(at_device &device)
{
    uucp_lock_release(device.lock); // first: another terminal may get the name once this one is closed
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

at_write at_device_write(const at_device &device, std::span<const char> bytes, int limit_ms,
                         void (*before_wait)())
{
    int64_t end = -1; // set only when the device does not take everything at once
    const size_t whole = bytes.size();
    while (!bytes.empty()) {
        const ssize_t count = write_some(device, bytes);
        if (count > 0) {
            bytes = bytes.subspan(static_cast<size_t>(count));
            continue;
        }
        if (count < 0 && errno != EAGAIN && errno != EINTR)
            return at_write::BROKEN;
        if (before_wait != nullptr)
            before_wait();
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
