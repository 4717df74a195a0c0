#include "hub.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string_view>

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "connections.h"
#include "door.h"
#include "host_counters.h"
#include "host_log.h"
#include "host_status.h"

namespace
{
constexpr size_t MODULES_MAX = 32; // subscriptions of one listener
constexpr size_t NAMES_MAX = 8;
constexpr int SEND_BUFFER = 512 * 1024; // a burst of some hundred small packets

struct listener { // all zero while not in use, so that unused ones take no memory
    bool takes_all = false;
    bool takes_lines = false;
    bool takes_answers = false;
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

// The door's thread alone opens and closes listeners; under the mutex, because every thread sends to them.
std::mutex listeners_mutex;
connections peers;
std::array<listener, connections::MAX> listeners;
std::atomic<int> listener_count{0};
std::atomic<int> lines_count{0}; ///< listeners that take lines
std::atomic<int> answers_count{0};

std::atomic<hub_packet_proc> bus_proc{nullptr};
std::atomic<hub_packet_proc> sync_proc{nullptr};

// ---- Sending

/// Logs once that a listener begins to lose packets (missed is 0), and once how many it has lost. Under the mutex.
void tell_losses(int slot, uint32_t missed)
{
    const process_name name = name_of_process(peers[slot].pid);
    if (missed == 0)
        host_log(LOG_WARNING, "process %d (%s) does not read its events and loses them: mend it or end it",
                 peers[slot].pid, name.text);
    else
        host_log(LOG_WARNING, "process %d (%s) has lost %u events, which it did not read in time",
                 peers[slot].pid, name.text, missed);
}

/// Under the mutex.
void send_packet(int slot, host_packet header, const void *data)
{
    listener &to = listeners[static_cast<size_t>(slot)];
    header.missed = to.missed;
    iovec parts[] = {{&header, sizeof header}, {const_cast<void *>(data), header.length}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = header.length > 0 ? 2 : 1;
    const bool is_lost = sendmsg(peers[slot].fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL) < 0;
    if (is_lost && to.missed == 0 && errno == EAGAIN)
        tell_losses(slot, 0);
    if (!is_lost && to.missed > 0)
        tell_losses(slot, to.missed);
    counters.messages_lost += is_lost ? 1 : 0;
    to.missed = is_lost ? to.missed + 1 : 0;
}

bool takes(int slot, const host_packet &header)
{
    const listener &who = listeners[static_cast<size_t>(slot)];
    if (header.kind == HOST_REPORT_LINE)
        return who.takes_lines;
    if (header.kind == HOST_ANSWER_TEXT)
        return who.takes_answers && header.module == peers[slot].pid &&
               header.module != 0; // 0: a process that cannot be seen from here
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

void close_listener(int slot)
{
    const std::scoped_lock lock(listeners_mutex);
    if (listeners[static_cast<size_t>(slot)].missed > 0)
        tell_losses(slot, listeners[static_cast<size_t>(slot)].missed);
    peers.remove(slot);
    lines_count -= listeners[static_cast<size_t>(slot)].takes_lines ? 1 : 0;
    answers_count -= listeners[static_cast<size_t>(slot)].takes_answers ? 1 : 0;
    listeners[static_cast<size_t>(slot)] = {};
    listener_count = peers.count();
}

/// Adds what the packet asks for; what is there already stays as it is. False when there is no room.
bool subscribe(int slot, const host_packet &header)
{
    host_packet asked = header;
    asked.kind = header.value1 == HOST_TAKE_NAME ? HOST_BUS_MESSAGE : HOST_EVENT;
    const std::scoped_lock lock(listeners_mutex);
    listener &who = listeners[static_cast<size_t>(slot)];
    if (header.value1 == HOST_TAKE_ALL) {
        who.takes_all = true;
    } else if (header.value1 == HOST_TAKE_LINES) {
        lines_count += who.takes_lines ? 0 : 1;
        who.takes_lines = true;
    } else if (header.value1 == HOST_TAKE_ANSWERS) {
        answers_count += who.takes_answers ? 0 : 1;
        who.takes_answers = true;
    } else if (!takes(slot, asked)) {
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
    send_packet(slot, answer, nullptr);
    return true;
}

void answer_status(int slot)
{
    static std::array<char, HOST_DATA_MAX> text; // only the door's thread gets here
    host_packet answer{};
    answer.kind = HOST_STATUS;
    answer.length = static_cast<uint32_t>(host_status(text));
    const std::scoped_lock lock(listeners_mutex);
    send_packet(slot, answer, text.data());
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
        if (header.value1 < HOST_TAKE_MODULE || header.value1 > HOST_TAKE_ANSWERS)
            return "it subscribes to nothing known";
        return nullptr;
    case HOST_BUS_SEND:
    case HOST_SYNC_REQUEST:
    case HOST_ASK_STATUS:
        return nullptr;
    default:
        return "its kind is unknown";
    }
}

/// Letting go of the modem stops everybody's work: only those who may stop the daemon itself may ask for it.
bool may_send(const host_packet &header, const connection &sender)
{
    if (header.code != HOST_BUS_RELEASE_MODEM)
        return true;
    const bool may = sender.user == 0 || sender.user == geteuid();
    host_log(LOG_WARNING, "process %d (%s) of user %u asks the daemon to let go of the modem: %s", sender.pid,
             name_of_process(sender.pid).text, sender.user,
             may ? "done" : "refused, only root and the daemon's own user may");
    return may;
}

/// Why the listener is to be disconnected, or nullptr.
const char *serve_packet(int slot, const received_packet &packet)
{
    if (packet.header.kind == HOST_SUBSCRIBE)
        return subscribe(slot, packet.header) ? nullptr : "it subscribes too often";
    if (packet.header.kind == HOST_ASK_STATUS) {
        answer_status(slot);
        return nullptr;
    }
    const bool is_message = packet.header.kind == HOST_BUS_SEND;
    if (is_message && !may_send(packet.header, peers[slot]))
        return nullptr;
    const hub_packet_proc proc = is_message ? bus_proc : sync_proc;
    if (proc != nullptr)
        proc(&packet.header, packet.data, slot + 1);
    else
        host_log(LOG_NOTICE, "messages of services are refused: the daemon did not join the bus");
    return nullptr;
}

/// Takes one packet only, so that a listener that sends many does not keep the others waiting.
void read_listener(int slot)
{
    static received_packet packet;
    if (peers[slot].fd < 0)
        return;
    const ssize_t size = recv(peers[slot].fd, &packet, sizeof packet, MSG_DONTWAIT | MSG_TRUNC);
    if (size < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (size <= 0)
        return close_listener(slot);

    const char *fault = fault_of(packet.header, size);
    if (fault == nullptr) {
        memset(packet.data + packet.header.length, 0, sizeof packet.data - packet.header.length);
        fault = serve_packet(slot, packet);
    }
    if (fault != nullptr) {
        host_log(LOG_WARNING, "a service is disconnected: process %d (%s) sent a packet of %zd bytes, and %s",
                 peers[slot].pid, name_of_process(peers[slot].pid).text, size, fault);
        close_listener(slot);
    }
}

int open_listener(int fd);

constexpr door_service door{HOST_HUB_NAME, EPOLLIN, open_listener, read_listener};

int open_listener(int fd)
{
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &SEND_BUFFER, sizeof SEND_BUFFER);
    const std::scoped_lock lock(listeners_mutex);
    const int slot = peers.add(fd);
    if (slot < 0)
        return -1;
    if (door_watch(door, fd, slot) != 0) {
        peers.release(slot);
        return -1;
    }
    listener_count = peers.count();
    return 0;
}
} // namespace

int hub_open()
{
    return door_open(door);
}

void hub_set_handler(host_packet_kind kind, hub_packet_proc proc)
{
    (kind == HOST_BUS_SEND ? bus_proc : sync_proc) = proc;
}

int hub_post(const host_packet &header, const void *data)
{
    if (header.length > HOST_DATA_MAX || (header.length > 0 && data == nullptr)) {
        host_log(LOG_ERR, "a packet with code %u is not sent: %u bytes of data, at most %u are possible",
                 header.code, header.length, HOST_DATA_MAX);
        return -1;
    }
    if (listener_count == 0)
        return 0;
    const std::scoped_lock lock(listeners_mutex);
    for (int slot = 0, left = peers.count(); left > 0; ++slot) {
        if (peers[slot].fd < 0)
            continue;
        --left;
        if (takes(slot, header))
            send_packet(slot, header, data);
    }
    return 0;
}

bool hub_takes_lines()
{
    return lines_count > 0;
}

bool hub_takes_answers()
{
    return answers_count > 0;
}

int hub_listener_count()
{
    const std::scoped_lock lock(listeners_mutex);
    return static_cast<int>(std::ranges::count_if(listeners, [](const listener &who) {
        return who.takes_all || who.takes_lines || who.module_count > 0 || who.name_count > 0;
    }));
}

void hub_reply(int reply_to, const host_packet &header, const void *data)
{
    const std::scoped_lock lock(listeners_mutex);
    if (reply_to > 0 && reply_to <= connections::MAX && peers[reply_to - 1].fd >= 0 &&
        header.length <= HOST_DATA_MAX)
        send_packet(reply_to - 1, header, data);
}
