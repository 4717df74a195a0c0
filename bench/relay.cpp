// The floor of a command's way: takes a record from the request queue, passes its text to the modem, sends the record
// back. It knows no events, reports, time limits or errors; nothing that serves the queue can do less.
// Reads VLK_IPC_BASE and VLK_AT_DEVICE, a Unix stream socket, as the daemon does.
#include <array>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "host_wire.h"
#include "vlk_queues.h"

namespace
{

int connect_modem(const char *path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    const bool connected = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    return connected ? fd : -1;
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

} // namespace

int main()
{
    const char *const base = getenv("VLK_IPC_BASE");
    const char *const device = getenv("VLK_AT_DEVICE");
    const int modem = device == nullptr ? -1 : connect_modem(device);
    if (base == nullptr || modem < 0)
        return EXIT_FAILURE;
    const auto first_key = static_cast<key_t>(strtoul(base, nullptr, 0));
    const int requests = msgget(first_key + VLK_QUEUE_CLIENT_REQUEST, IPC_CREAT | 0600);
    const int replies = msgget(first_key + VLK_QUEUE_CLIENT_REPLY, IPC_CREAT | 0600);

    host_queue_message message;
    while (msgrcv(requests, &message, sizeof message.record, 0, 0) == sizeof message.record) {
        if (!exchange(modem, message.record))
            break;
        message.type = message.record.Id;
        msgsnd(replies, &message, sizeof message.record, 0);
    }
    return EXIT_FAILURE;
}
