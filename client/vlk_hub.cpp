// Notifications, bus messages and synchronous requests through the daemon's hub.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "daemon_place.h"
#include "futex_word.h"
#include "last_error.h"
#include "vlk_client.h"

static_assert(uint32_t{VLK_PACKET_EVENT} == HOST_EVENT &&
              uint32_t{VLK_PACKET_EVENT_DATA} == HOST_EVENT_DATA &&
              uint32_t{VLK_PACKET_BUS} == HOST_BUS_MESSAGE &&
              uint32_t{VLK_PACKET_SYNC_REPLY} == HOST_SYNC_REPLY &&
              uint32_t{VLK_PACKET_LINE} == HOST_REPORT_LINE &&
              uint32_t{VLK_PACKET_ANSWER} == HOST_ANSWER_TEXT &&
              int{VLK_ANSWER_OWN} == int{HOST_ANSWER_OWN} && int{VLK_ANSWER_CUT} == int{HOST_ANSWER_CUT} &&
              sizeof(vlk_packet::name) == HOST_NAME_SIZE);

namespace
{
constexpr size_t KEPT_MAX = 32; // packets that may come between a question and its answer

struct hub_packet {
    host_packet header;
    std::array<uint8_t, HOST_DATA_MAX> data;
};
static_assert(sizeof(hub_packet) == sizeof(host_packet) + HOST_DATA_MAX);
} // namespace

struct vlk_hub {
    host_paths paths{};
    int fd = -1;
    int32_t number = 0;  // of the last synchronous request
    uint32_t missed = 0; // packets lost since the last one that the caller was or will be given
    size_t first = 0;    // of the packets in `kept`, a ring
    size_t count = 0;
    hub_packet current{}; // the packet whose data the caller looks at
    std::array<hub_packet, KEPT_MAX> kept;

    ~vlk_hub()
    {
        if (fd >= 0)
            close(fd);
    }
};

namespace
{
/// Receives one packet into `current` and moves its count of lost packets to hub.missed. A vlk_result.
int receive_current(vlk_hub &hub, int64_t deadline)
{
    for (;;) {
        const ssize_t size = recv(hub.fd, &hub.current, sizeof hub.current, MSG_DONTWAIT | MSG_TRUNC);
        if (size == 0)
            return daemon_has_gone(hub.paths);
        if (size > 0) {
            const host_packet &header = hub.current.header;
            const auto bytes = static_cast<size_t>(size);
            if (bytes < sizeof header || bytes > sizeof hub.current || bytes - sizeof header != header.length)
                return fail(VLK_MISMATCH, "the daemon in %s sent a packet of an unknown layout",
                            hub.paths.folder);
            hub.current.header.name[HOST_NAME_SIZE - 1] = '\0';
            hub.missed += std::exchange(hub.current.header.missed, 0);
            return VLK_OK;
        }
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN)
            return explain_failure(hub.paths, HOST_HUB_NAME, errno);

        pollfd readable = {hub.fd, POLLIN, 0};
        const int ready = poll(&readable, 1, poll_time(deadline));
        if (ready == 0)
            return fail(VLK_TIMEOUT, "nothing came from the hub in %s in time", hub.paths.folder);
        if (ready < 0 && errno != EINTR)
            return explain_failure(hub.paths, HOST_HUB_NAME, errno);
    }
}

/// Puts `current` at the end of the kept packets; without room it counts as lost.
void keep_current(vlk_hub &hub)
{
    if (hub.count == KEPT_MAX) {
        hub.missed++;
        return;
    }
    hub.current.header.missed = std::exchange(hub.missed, 0);
    hub.kept[(hub.first + hub.count) % KEPT_MAX] = hub.current;
    hub.count++;
}

vlk_packet packet_of(const hub_packet &from)
{
    const host_packet &header = from.header;
    vlk_packet packet{};
    packet.kind = header.kind;
    packet.module = header.module;
    packet.code = header.code;
    packet.value1 = header.value1;
    packet.value2 = header.value2;
    packet.missed = header.missed;
    std::memcpy(packet.name, header.name, sizeof packet.name);
    packet.length = header.length;
    packet.data = from.data.data();
    return packet;
}

int send_packet(vlk_hub &hub, host_packet header, const void *data, uint32_t length)
{
    if (length > HOST_DATA_MAX || (data == nullptr && length > 0))
        return fail(VLK_INVALID, "at most %u bytes of data fit one packet", HOST_DATA_MAX);
    header.length = length;
    iovec parts[] = {{&header, sizeof header}, {const_cast<void *>(data), length}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    while (sendmsg(hub.fd, &message, MSG_NOSIGNAL) < 0)
        if (errno != EINTR)
            return explain_failure(hub.paths, HOST_HUB_NAME, errno);
    return VLK_OK;
}

/// An answer, perhaps one that came too late for its question.
bool is_some_answer(const host_packet &packet)
{
    return packet.kind == HOST_SUBSCRIBED || packet.kind == HOST_SYNC_REPLY || packet.kind == HOST_STATUS;
}

bool is_answer(const host_packet &packet, const host_packet &question)
{
    if (question.kind == HOST_ASK_STATUS)
        return packet.kind == HOST_STATUS;
    if (question.kind == HOST_SYNC_REQUEST)
        return packet.kind == HOST_SYNC_REPLY && packet.value2 == question.value2;
    return packet.kind == HOST_SUBSCRIBED && packet.value1 == question.value1 &&
           packet.module == question.module && std::strcmp(packet.name, question.name) == 0;
}

/// Sends a question and receives until its answer is in `current`; keeps what else comes except late answers.
int ask(vlk_hub &hub, const host_packet &question, const void *data, uint32_t length, int32_t limit_ms)
{
    const int64_t deadline = deadline_after(limit_ms);
    if (const int failed = send_packet(hub, question, data, length))
        return failed;
    for (;;) {
        if (const int failed = receive_current(hub, deadline))
            return failed;
        const host_packet &packet = hub.current.header;
        if (is_answer(packet, question))
            return VLK_OK;
        if (!is_some_answer(packet))
            keep_current(hub);
        if (deadline != NO_DEADLINE && monotonic_ns() >= deadline)
            return fail(VLK_TIMEOUT, "no answer from the hub in %s in time", hub.paths.folder);
    }
}

int subscribe(vlk_hub *hub, host_subscription wanted, int32_t module, const char *name, int32_t limit_ms)
{
    if (hub == nullptr || name == nullptr || std::strlen(name) >= HOST_NAME_SIZE)
        return fail(VLK_INVALID, "no hub, no name, or a name of more than %u bytes", HOST_NAME_SIZE - 1);
    host_packet question{};
    question.kind = HOST_SUBSCRIBE;
    question.value1 = wanted;
    question.module = module;
    std::strcpy(question.name, name);
    return ask(*hub, question, nullptr, 0, limit_ms);
}

int connect_hub(vlk_hub &hub, const vlk_place *place)
{
    if (const int failed = find_folder(place, &hub.paths))
        return failed;
    return connect_to_daemon(hub.paths, HOST_HUB_NAME, &hub.fd);
}
} // namespace

int vlk_hub_open(vlk_hub **hub, const vlk_place *place)
{
    if (hub == nullptr)
        return fail(VLK_INVALID, "no place for the hub");
    *hub = new (std::nothrow) vlk_hub;
    if (*hub == nullptr)
        return fail(VLK_SYSTEM, "out of memory");
    const int result = connect_hub(**hub, place);
    if (result != VLK_OK) {
        delete *hub;
        *hub = nullptr;
    }
    return result;
}

void vlk_hub_close(vlk_hub *hub)
{
    delete hub;
}

int vlk_hub_take_module(vlk_hub *hub, int32_t module, int32_t limit_ms)
{
    return subscribe(hub, HOST_TAKE_MODULE, module, "", limit_ms);
}

int vlk_hub_take_name(vlk_hub *hub, const char *name, int32_t limit_ms)
{
    return subscribe(hub, HOST_TAKE_NAME, 0, name, limit_ms);
}

int vlk_hub_take_all(vlk_hub *hub, int32_t limit_ms)
{
    return subscribe(hub, HOST_TAKE_ALL, 0, "", limit_ms);
}

int vlk_hub_take_lines(vlk_hub *hub, int32_t limit_ms)
{
    return subscribe(hub, HOST_TAKE_LINES, 0, "", limit_ms);
}

int vlk_hub_take_answers(vlk_hub *hub, int32_t limit_ms)
{
    return subscribe(hub, HOST_TAKE_ANSWERS, 0, "", limit_ms);
}

int vlk_hub_receive(vlk_hub *hub, vlk_packet *packet, int32_t limit_ms)
{
    if (hub == nullptr || packet == nullptr)
        return fail(VLK_INVALID, "no hub or no room for the packet");
    if (hub->count > 0) {
        hub->current = hub->kept[hub->first];
        hub->first = (hub->first + 1) % KEPT_MAX;
        hub->count--;
        *packet = packet_of(hub->current);
        return VLK_OK;
    }
    const int64_t deadline = deadline_after(limit_ms);
    do {
        if (const int failed = receive_current(*hub, deadline))
            return failed;
    } while (is_some_answer(hub->current.header));
    hub->current.header.missed = std::exchange(hub->missed, 0);
    *packet = packet_of(hub->current);
    return VLK_OK;
}

int vlk_hub_fd(const vlk_hub *hub)
{
    return hub == nullptr ? -1 : hub->fd;
}

int vlk_hub_send(vlk_hub *hub, uint32_t type, const void *data, uint32_t length)
{
    if (hub == nullptr)
        return fail(VLK_INVALID, "no hub");
    host_packet message{};
    message.kind = HOST_BUS_SEND;
    message.code = type;
    return send_packet(*hub, message, data, length);
}

int vlk_hub_status(vlk_hub *hub, char *text, size_t size, int32_t limit_ms)
{
    if (hub == nullptr || text == nullptr || size == 0)
        return fail(VLK_INVALID, "no hub or no room for the status");
    host_packet question{};
    question.kind = HOST_ASK_STATUS;
    if (const int failed = ask(*hub, question, nullptr, 0, limit_ms))
        return failed;
    const std::string_view answer(reinterpret_cast<const char *>(hub->current.data.data()),
                                  hub->current.header.length);
    text[answer.copy(text, size - 1)] = '\0';
    return VLK_OK;
}

int vlk_hub_request(vlk_hub *hub, int32_t module, uint32_t message, const void *data, uint32_t length,
                    vlk_packet *reply, int32_t limit_ms)
{
    if (hub == nullptr || reply == nullptr)
        return fail(VLK_INVALID, "no hub or no room for the reply");
    host_packet question{};
    question.kind = HOST_SYNC_REQUEST;
    question.module = module;
    question.code = message;
    question.value2 = hub->number = static_cast<int32_t>(static_cast<uint32_t>(hub->number) + 1);
    if (const int failed = ask(*hub, question, data, length, limit_ms))
        return failed;
    *reply = packet_of(hub->current);
    return VLK_OK;
}
