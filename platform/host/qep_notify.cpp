#include "qep_notify.h"

#include <array>
#include <cstdlib>
#include <mutex>

#include "hub.h"
#include "qep_trace.h"

namespace
{
struct sync_handler {
    uint32_t message = 0;
    qep_sync_proc proc = nullptr;
};

std::mutex handlers_mutex;
std::array<sync_handler, 8> handlers;
int32_t own_module = -1;

qep_sync_proc find_handler(const host_packet &request)
{
    const std::scoped_lock lock(handlers_mutex);
    if (request.module != own_module)
        return nullptr;
    for (const sync_handler &handler : handlers)
        if (handler.proc != nullptr && handler.message == request.code)
            return handler.proc;
    return nullptr;
}

/// Answers one request, even one that nobody handles, because its sender waits.
void answer_request(const host_packet *request, const void *data, int reply_to)
{
    host_packet answer = *request;
    answer.kind = HOST_SYNC_REPLY;
    answer.value1 = -1;
    answer.length = 0;
    void *reply = nullptr;
    uint32_t reply_length = 0;
    if (const qep_sync_proc proc = find_handler(*request))
        answer.value1 = proc(data, &reply, &reply_length);
    if (answer.value1 == 0 && reply != nullptr)
        answer.length = reply_length;
    if (answer.length > HOST_DATA_MAX) {
        QEP_TRACE_PrintInfo("qep_notify", __LINE__, 0, "host", 2,
                            "The reply to request %u is too long: %u bytes.", request->code, reply_length);
        answer.value1 = -1;
        answer.length = 0;
    }
    hub_reply(reply_to, answer, reply);
    free(reply);
}
} // namespace

int QEP_NOTIFYCLT_Init(int32_t module)
{
    {
        const std::scoped_lock lock(handlers_mutex);
        own_module = module;
    }
    hub_set_handler(HOST_SYNC_REQUEST, answer_request);
    return hub_open();
}

int QEP_NOTIFYCLT_RegSyncMsgProc(uint32_t message, qep_sync_proc proc)
{
    if (proc == nullptr)
        return -1;
    const std::scoped_lock lock(handlers_mutex);
    for (sync_handler &handler : handlers) {
        if (handler.proc != nullptr && handler.message != message)
            continue;
        handler = {message, proc};
        return 0;
    }
    return -1;
}

int VLK_post_notify(int32_t module, int32_t event, int32_t value1, int32_t value2)
{
    host_packet packet{};
    packet.kind = HOST_EVENT;
    packet.module = module;
    packet.code = static_cast<uint32_t>(event);
    packet.value1 = value1;
    packet.value2 = value2;
    return hub_post(packet, nullptr);
}

int VLK_post_notify_ex(int32_t module, int32_t event, const void *data, uint32_t length, int32_t, int32_t)
{
    host_packet packet{};
    packet.kind = HOST_EVENT_DATA;
    packet.module = module;
    packet.code = static_cast<uint32_t>(event);
    packet.length = length;
    return hub_post(packet, data);
}
