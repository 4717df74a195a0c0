#include "hub.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string_view>

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "host_start.h"
#include "qep_trace.h"
#include "vlk_task.h"

#define HUB_TRACE(level, ...) QEP_TRACE_PrintInfo("hub", __LINE__, 0, "host", level, __VA_ARGS__)

namespace
{
constexpr int LISTENERS_MAX = 64;
constexpr size_t MODULES_MAX = 32; // subscriptions of one listener
constexpr size_t NAMES_MAX = 8;
constexpr int SEND_BUFFER = 512 * 1024; // a burst of some hundred small packets
constexpr int32_t FAULT_SERIES_S = 60;  // faults closer together are one series
constexpr int ACCEPT_PAUSE_MS = 100;    // while there are no descriptors

struct listener {
    bool connected = false; // all zero when not, so that unused ones take no memory
    int fd = 0;
    bool takes_all = false;
    size_t module_count = 0;
    size_t name_count = 0;
    std::array<int32_t, MODULES_MAX> modules{};
    std::array<char[HOST_NAME_SIZE], NAMES_MAX> names{};
    uint32_t missed = 0; ///< packets since the last one that it got
};

struct received_packet {
    host_packet header;
    char data[HOST_DATA_MAX];
};

// The hub's thread alone opens and closes listeners; under the mutex, because every thread sends to them.
std::mutex listeners_mutex;
std::array<listener, LISTENERS_MAX> listeners;
std::atomic<int> listener_count{0};

std::atomic<hub_packet_proc> bus_proc{nullptr};
std::atomic<hub_packet_proc> sync_proc{nullptr};

// The hub's thread only.
int hub_fd = -1;
bool refusing = false;         ///< a listener was refused since the last one was accepted
int32_t last_fault_s = -1;     ///< when a service last sent what is no packet
bool reported_no_proc = false; ///< that the daemon takes no bus messages was traced

// ---- Sending

/// Under the mutex.
void send_packet(listener &to, host_packet header, const void *data)
{
    header.missed = to.missed;
    iovec parts[] = {{&header, sizeof header}, {const_cast<void *>(data), header.length}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = header.length > 0 ? 2 : 1;
    to.missed = sendmsg(to.fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL) < 0 ? to.missed + 1 : 0;
}

bool takes(const listener &who, const host_packet &header)
{
    if (who.takes_all)
        return true;
    if (header.kind == HOST_BUS_MESSAGE) {
        const auto *end = who.names.data() + who.name_count;
        return std::any_of(who.names.data(), end,
                           [&](const auto &name) { return strcmp(name, header.name) == 0; });
    }
    const auto *end = who.modules.data() + who.module_count;
    return std::find(who.modules.data(), end, header.module) != end;
}

// ---- Listeners

void close_listener(listener &who)
{
    const std::scoped_lock lock(listeners_mutex);
    close(who.fd);
    who = {};
    --listener_count;
}

/// Adds what the packet asks for; what is there already stays as it is. False when there is no room.
bool subscribe(listener &who, const host_packet &header)
{
    host_packet asked = header;
    asked.kind = header.value1 == HOST_TAKE_NAME ? HOST_BUS_MESSAGE : HOST_EVENT;
    const std::scoped_lock lock(listeners_mutex);
    if (header.value1 == HOST_TAKE_ALL) {
        who.takes_all = true;
    } else if (!takes(who, asked)) {
        const bool is_name = header.value1 == HOST_TAKE_NAME;
        if (is_name ? who.name_count == NAMES_MAX : who.module_count == MODULES_MAX)
            return false;
        if (is_name)
            memcpy(who.names[who.name_count++], header.name, HOST_NAME_SIZE);
        else
            who.modules[who.module_count++] = header.module;
    }
    host_packet answer = header;
    answer.kind = HOST_SUBSCRIBED;
    answer.length = 0;
    send_packet(who, answer, nullptr);
    return true;
}

/// Why a packet is refused, or nullptr.
const char *fault_of(const host_packet &header, ssize_t size)
{
    const auto bytes = static_cast<size_t>(size);
    if (bytes < sizeof header || bytes > sizeof(received_packet) || bytes != sizeof header + header.length)
        return "its size is wrong";
    if (memchr(header.name, '\0', sizeof header.name) == nullptr)
        return "its name has no end";
    switch (header.kind) {
    case HOST_SUBSCRIBE:
        if (header.value1 < HOST_TAKE_MODULE || header.value1 > HOST_TAKE_ALL)
            return "it subscribes to nothing known";
        return nullptr;
    case HOST_BUS_SEND:
    case HOST_SYNC_REQUEST:
        return nullptr;
    default:
        return "its kind is unknown";
    }
}

/// Why the listener is to be disconnected, or nullptr.
const char *serve_packet(listener &from, const received_packet &packet)
{
    if (packet.header.kind == HOST_SUBSCRIBE)
        return subscribe(from, packet.header) ? nullptr : "it subscribes too often";
    const hub_packet_proc proc = packet.header.kind == HOST_BUS_SEND ? bus_proc : sync_proc;
    if (proc != nullptr) {
        proc(&packet.header, packet.data, from.fd);
    } else if (!reported_no_proc) {
        HUB_TRACE(4, "messages of services are refused: the daemon did not join the bus");
        reported_no_proc = true;
    }
    return nullptr;
}

/// Traces the first of a series: a service that comes back with its noise again and again fills no log.
void report_fault(ssize_t size, const char *fault)
{
    const int32_t now = VLK_elapse();
    if (last_fault_s < 0 || now - last_fault_s > FAULT_SERIES_S)
        HUB_TRACE(2, "a service is disconnected: it sent a packet of %zd bytes, and %s", size, fault);
    last_fault_s = now;
}

/// Takes one packet, so that nobody who sends many keeps the others waiting.
void read_listener(listener &from)
{
    static received_packet packet;
    const ssize_t size = recv(from.fd, &packet, sizeof packet, MSG_DONTWAIT | MSG_TRUNC);
    if (size < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (size <= 0)
        return close_listener(from);

    const char *fault = fault_of(packet.header, size);
    if (fault == nullptr) {
        memset(packet.data + packet.header.length, 0, sizeof packet.data - packet.header.length);
        fault = serve_packet(from, packet);
    }
    if (fault != nullptr) {
        report_fault(size, fault);
        close_listener(from);
    }
}

/// False when there are no descriptors left.
bool accept_listener()
{
    const int fd = accept4(hub_fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0)
        return errno == EAGAIN || errno == EINTR || errno == ECONNABORTED;
    const auto room = std::ranges::find(listeners, false, &listener::connected);
    if (room == listeners.end()) {
        if (!refusing)
            HUB_TRACE(2, "services are refused: %d are connected already", LISTENERS_MAX);
        refusing = true;
        close(fd);
        return true;
    }
    refusing = false;
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &SEND_BUFFER, sizeof SEND_BUFFER);
    const std::scoped_lock lock(listeners_mutex);
    room->connected = true;
    room->fd = fd;
    ++listener_count;
    return true;
}

// ---- The thread

/// Waits for packets and new listeners and serves what came. False when there are no descriptors for new ones.
bool serve_once(bool can_accept)
{
    std::array<pollfd, LISTENERS_MAX + 1> inputs{};
    std::array<listener *, LISTENERS_MAX> owners{};
    size_t count = 0;
    for (listener &who : listeners) {
        if (!who.connected)
            continue;
        owners[count] = &who;
        inputs[count++] = {who.fd, POLLIN, 0};
    }
    inputs[count] = {hub_fd, POLLIN, 0};
    const nfds_t waited_for = can_accept ? count + 1 : count;
    if (poll(inputs.data(), waited_for, can_accept ? -1 : ACCEPT_PAUSE_MS) < 0) {
        if (errno != EINTR)
            VLK_sleep(ACCEPT_PAUSE_MS);
        return true;
    }
    for (size_t i = 0; i < count; ++i)
        if (inputs[i].revents != 0)
            read_listener(*owners[i]);
    return inputs[count].revents == 0 || accept_listener();
}

void *hub_thread(void *)
{
    pthread_setname_np(pthread_self(), "hub");
    bool can_accept = true;
    for (;;) {
        can_accept = serve_once(can_accept);
        if (!can_accept && !refusing) {
            HUB_TRACE(2, "services have to wait: %s: raise the limit of open files (ulimit -n)",
                      strerror(errno));
            refusing = true;
        }
    }
}

int fail_open(const char *path, const char *what)
{
    HUB_TRACE(
        2,
        "cannot %s %s: %s: the folder must belong to the daemon's user (VLK_RUNTIME_DIR), and its group to "
        "that user (VLK_GROUP)",
        what, path, strerror(errno));
    if (hub_fd >= 0)
        close(hub_fd);
    hub_fd = -1;
    return -1;
}

/// Removes the socket of a daemon that died; the runtime folder belongs to one daemon alone.
void remove_stale_socket(const char *path)
{
    struct stat about {
    };
    if (lstat(path, &about) == 0 && S_ISSOCK(about.st_mode))
        unlink(path);
}
} // namespace

int hub_open()
{
    if (hub_fd >= 0)
        return 0;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const char *const path = address.sun_path;
    if (host_path(&host_settings().paths, HOST_HUB_NAME, address.sun_path, sizeof address.sun_path) != 0) {
        errno = ENAMETOOLONG;
        return fail_open(host_settings().paths.folder, "create a socket in");
    }
    hub_fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (hub_fd < 0)
        return fail_open(path, "create");
    remove_stale_socket(path);
    if (bind(hub_fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return fail_open(path, "create");
    // Nobody can connect before listen.
    if (host_share_path(path, 0660, &host_settings().owner) != 0)
        return fail_open(path, "set the owner and mode of");
    pthread_t thread{};
    if (listen(hub_fd, LISTENERS_MAX) != 0 || pthread_create(&thread, nullptr, hub_thread, nullptr) != 0)
        return fail_open(path, "serve");
    pthread_detach(thread);
    return 0;
}

void hub_set_handler(host_packet_kind kind, hub_packet_proc proc)
{
    (kind == HOST_BUS_SEND ? bus_proc : sync_proc) = proc;
}

int hub_post(const host_packet &header, const void *data)
{
    if (header.length > HOST_DATA_MAX || (header.length > 0 && data == nullptr)) {
        HUB_TRACE(2, "a packet with code %u is not sent: %u bytes of data, at most %u are possible",
                  header.code, header.length, HOST_DATA_MAX);
        return -1;
    }
    if (listener_count == 0)
        return 0;
    const std::scoped_lock lock(listeners_mutex);
    for (listener &who : listeners)
        if (who.connected && takes(who, header))
            send_packet(who, header, data);
    return 0;
}

void hub_reply(int reply_to, const host_packet &header, const void *data)
{
    const std::scoped_lock lock(listeners_mutex);
    const auto who = std::ranges::find(listeners, reply_to, &listener::fd);
    if (who != listeners.end() && header.length <= HOST_DATA_MAX)
        send_packet(*who, header, data);
}
