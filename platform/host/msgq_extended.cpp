// Extended queues: requests and replies travel over the socket `commands`, so they end with the process and there is
// one queue of each. Main thread.
#include <cerrno>
#include <cstring>

#include <sysexits.h>

#include "at_cmd_msg.h"
#include "commands.h"
#include "host_start.h"
#include "msgq_plain.h"
#include "vlk_msgq.h"
#include "vlk_queues.h"

namespace
{
constexpr int32_t FIRST_ID = 0x40000000; ///< above the ids of plain queues
bool created[VLK_QUEUE_CLIENT_REQUEST + 1] = {};

bool is_extended(uint32_t key)
{
    return key == VLK_QUEUE_CLIENT_REQUEST || key == VLK_QUEUE_CLIENT_REPLY;
}

int32_t id_of(uint32_t key)
{
    return is_extended(key) && created[key] ? FIRST_ID + static_cast<int32_t>(key) : -1;
}

/// Stores a cause in *retcode, if there is one. 0 when cause is 0, else -1.
int result(int *retcode, int cause)
{
    if (cause == 0)
        return 0;
    if (retcode != nullptr)
        *retcode = cause;
    return -1;
}
} // namespace

int32_t VLK_get_msgQ_id(uint32_t key)
{
    const int32_t plain = plain_queue_id(key);
    return plain >= 0 ? plain : id_of(key);
}

int32_t VLK_msgQex_create(uint32_t key, uint32_t capacity, uint32_t record_size)
{
    if (capacity == 0 || record_size != sizeof(at_cmd_msg) || !is_extended(key) || created[key])
        return -1;
    if (key == VLK_QUEUE_CLIENT_REQUEST && commands_open() != 0)
        host_fail(EX_OSERR, "without its socket nobody could reach the daemon");
    created[key] = true;
    return id_of(key);
}

int VLK_msgQex_delete(int32_t id)
{
    for (uint32_t key : {VLK_QUEUE_CLIENT_REQUEST, VLK_QUEUE_CLIENT_REPLY}) {
        if (id < 0 || id != id_of(key))
            continue;
        created[key] = false;
        return 0;
    }
    return -1;
}

int32_t VLK_msgQex_num(int32_t id)
{
    if (id < 0)
        return -1;
    if (id == id_of(VLK_QUEUE_CLIENT_REQUEST))
        return commands_waiting() ? 1 : 0;
    return id == id_of(VLK_QUEUE_CLIENT_REPLY) ? 0 : -1;
}

int read_from_msgqueue(int32_t id, at_cmd_msg *record, int32_t which, int *retcode)
{
    const bool is_valid = record != nullptr && which == 0 && id >= 0 && id == id_of(VLK_QUEUE_CLIENT_REQUEST);
    return result(retcode, is_valid ? commands_take(*record) : EINVAL);
}

int send_to_msgqueue(int32_t id, const at_cmd_msg *record, int *retcode)
{
    const bool is_valid = record != nullptr && id >= 0 && id == id_of(VLK_QUEUE_CLIENT_REPLY);
    return result(retcode, is_valid ? commands_reply(*record) : EINVAL);
}
