// The least work that a command needs, the floor: takes a record from a client's connection, passes its text to the
// modem, sends the record back. It knows no events, reports, time limits or errors; nothing that serves clients can
// do less. Reads VLK_RUNTIME_DIR, an empty folder, and VLK_AT_DEVICE, a Unix stream socket, as the daemon does.
#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "host_wire.h"

namespace
{

sockaddr_un address_of(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

int connect_modem(const char *path)
{
    const sockaddr_un address = address_of(path);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    const bool connected = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    return connected ? fd : -1;
}

int listen_in(const std::string &folder)
{
    mkdir(folder.c_str(), 0700);
    const sockaddr_un address = address_of(folder + "/" + HOST_COMMANDS_NAME);
    unlink(address.sun_path);
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET, 0);
    const bool listens = bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    return listens && listen(fd, 64) == 0 ? fd : -1;
}

/// False when the modem is gone.
bool exchange(int modem, at_cmd_msg &record)
{
    auto &message = record.snd_rcv_msg;
    const std::size_t length = strlen(message.cmd);
    message.cmd[length] = '\r';
    if (write(modem, message.cmd, length + 1) != static_cast<ssize_t>(length + 1))
        return false;
    std::size_t got = 0;
    while (!std::string_view(message.rmsg, got).ends_with("OK\r\n")) {
        const ssize_t count = read(modem, message.rmsg + got, sizeof message.rmsg - got);
        if (count <= 0)
            return false;
        got += static_cast<std::size_t>(count);
    }
    message.ret_val = AT_OK;
    message.rsp_len = static_cast<uint32_t>(got);
    return true;
}

void wait_for(int set, int fd)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    epoll_ctl(set, EPOLL_CTL_ADD, fd, &event);
}

} // namespace

int main()
{
    const char *const folder = getenv("VLK_RUNTIME_DIR");
    const char *const device = getenv("VLK_AT_DEVICE");
    const int modem = device == nullptr ? -1 : connect_modem(device);
    const int listener = folder == nullptr ? -1 : listen_in(folder);
    if (modem < 0 || listener < 0)
        return EXIT_FAILURE;
    const int set = epoll_create1(0);
    wait_for(set, listener);

    std::array<epoll_event, 64> came;
    for (;;) {
        const int count = epoll_wait(set, came.data(), came.size(), -1);
        for (int i = 0; i < count; ++i) {
            const int fd = came[static_cast<std::size_t>(i)].data.fd;
            at_cmd_msg record;
            if (fd == listener)
                wait_for(set, accept(listener, nullptr, nullptr));
            else if (recv(fd, &record, sizeof record, 0) != sizeof record)
                close(fd);
            else if (!exchange(modem, record))
                return EXIT_FAILURE;
            else
                send(fd, &record, sizeof record, MSG_NOSIGNAL);
        }
    }
}
