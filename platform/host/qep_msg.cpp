#include "qep_msg.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <type_traits>

#include "host_condition.h"
#include "hub.h"
#include "qep_trace.h"

#define BUS_TRACE(level, ...) QEP_TRACE_PrintInfo("qep_msg", __LINE__, 0, "host", level, __VA_ARGS__)

namespace
{
struct bus_message {
    qep_msg header;
    char payload[HOST_DATA_MAX];
    int sender = 0; ///< 0: the slot is free
};
static_assert(offsetof(bus_message, payload) == 40, "the payload follows the header");

constexpr std::ptrdiff_t WAITING_MAX = 4; // of one sender, so that nobody fills the queue alone

/// Messages on their way from the hub's thread to the bus thread.
struct bus_queue {
    std::mutex mutex;
    host_condition filled;
    std::array<bus_message, 16> messages{};
    size_t first = 0;
    size_t count = 0;
    bool refusing = false; ///< a message was refused since the last one was taken
};
static_assert(std::is_trivially_destructible_v<bus_queue>,
              "the bus thread still waits in it when the process ends");

constinit bus_queue bus;

std::atomic<qep_msg_proc> message_proc{nullptr};

void refuse(const host_packet &packet)
{
    if (!bus.refusing)
        BUS_TRACE(4, "bus messages are refused, the first of type %u: too many of its sender wait",
                  packet.code);
    bus.refusing = true;
}

/// Runs on the hub's thread.
void queue_message(const host_packet *packet, const void *data, int sender)
{
    const std::scoped_lock lock(bus.mutex);
    if (bus.count == bus.messages.size() ||
        std::ranges::count(bus.messages, sender, &bus_message::sender) == WAITING_MAX)
        return refuse(*packet);
    bus_message &message = bus.messages[(bus.first + bus.count) % bus.messages.size()];
    message.sender = sender;
    message.header = {};
    message.header.type = packet->code;
    message.header.length = packet->length;
    memcpy(message.payload, data, packet->length);
    ++bus.count;
    bus.refusing = false;
    bus.filled.notify_all();
}

void take_message(bus_message &message)
{
    std::unique_lock lock(bus.mutex);
    while (bus.count == 0)
        bus.filled.wait(lock, NO_DEADLINE);
    bus_message &oldest = bus.messages[bus.first];
    message.header = oldest.header;
    memcpy(message.payload, oldest.payload, oldest.header.length);
    oldest.sender = 0;
    bus.first = (bus.first + 1) % bus.messages.size();
    --bus.count;
}

int send_to_service(const char *destination, uint32_t type, const void *data, uint32_t length)
{
    host_packet packet{};
    if (destination == nullptr || strlen(destination) >= sizeof packet.name) {
        BUS_TRACE(2,
                  "message %u is not sent: its destination has no name, or one of more than %zu characters",
                  type, sizeof packet.name - 1);
        return -1;
    }
    packet.kind = HOST_BUS_MESSAGE;
    packet.code = type;
    packet.length = length;
    memcpy(packet.name, destination, strlen(destination));
    return hub_post(packet, data);
}
} // namespace

int QEP_MSG_Init(const char *process)
{
    if (process == nullptr)
        return -1;
    hub_set_handler(HOST_BUS_SEND, queue_message);
    return 0;
}

int QEP_MSG_RegisterMsgProc(qep_msg_proc proc)
{
    message_proc = proc;
    return proc != nullptr ? 0 : -1;
}

int QEP_UTIL_SockBaseStart(int)
{
    static constinit bus_message message{};
    for (;;) {
        take_message(message);
        const qep_msg_proc proc = message_proc;
        if (proc != nullptr)
            proc(&message.header);
    }
}

int QEP_MSG_DefaultMsgProc(const struct qep_msg *)
{
    return 0;
}

int QEP_MSG_SendSimpleMsg(const char *destination, uint32_t type, int32_t parameter)
{
    return send_to_service(destination, type, &parameter, sizeof parameter);
}

int QEP_MSG_SendMsgData(const char *destination, uint32_t type, const void *data, uint32_t length)
{
    return send_to_service(destination, type, data, length);
}
