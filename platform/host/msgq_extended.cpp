// Extended queues are System V message queues: key = base + queue key, id = the system's id. The kernel counts bytes,
// so a queue is given room for exactly `capacity` records of the one size that travels here.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include <csignal>
#include <sys/ipc.h>
#include <sys/msg.h>

#include "at_cmd_msg.h"
#include "futex_word.h"
#include "host_start.h"
#include "msgq_plain.h"
#include "qep_trace.h"
#include "vlk_msgq.h"

namespace
{

constexpr size_t RECORD_SIZE = sizeof(at_cmd_msg);
constexpr uint32_t CAPACITY_MAX = 10'000; ///< far above what kernels allow, far below an overflow

/// A message as it is taken: one byte of room more than a right one has, so that a longer one is recognised.
struct taken_message {
    host_queue_message message;
    char longer;
};

key_t system_key(uint32_t key)
{
    return static_cast<key_t>(host_settings().paths.base + key);
}

/// The cell is the caller's and may be missing. Always -1, the caller's result.
int failed(int *retcode, int cause)
{
    if (retcode != nullptr)
        *retcode = cause;
    return -1;
}

void report_refused_queue(uint32_t key, int cause)
{
    const auto number = static_cast<unsigned>(system_key(key));
    const char *cure = "see msgget(2)";
    if (cause == EEXIST || cause == EACCES || cause == EPERM)
        cure =
            "it belongs to somebody else: remove it as its owner or root with ipcrm -Q, or set VLK_IPC_BASE";
    else if (cause == ENOSPC)
        cure = "raise kernel.msgmni";
    else if (cause == ENOSYS)
        cure = "this kernel has no System V message queues (CONFIG_SYSVIPC)";
    fprintf(stderr, "vorlink: cannot create the message queue with key 0x%08x: %s: %s\n", number,
            strerror(cause), cure);
}

/// Mode, owner and room of a new queue. 0, or an errno value.
int set_up(int32_t id, uint32_t capacity)
{
    msqid_ds state{};
    if (msgctl(id, IPC_STAT, &state) != 0)
        return errno;
    const msglen_t kernel_bytes = state.msg_qbytes;
    const host_owner &owner = host_settings().owner;
    if (owner.user != host_owner{}.user)
        state.msg_perm.uid = owner.user;
    if (owner.group != host_owner{}.group)
        state.msg_perm.gid = owner.group;
    state.msg_perm.mode = 0660;
    state.msg_qbytes = capacity * RECORD_SIZE;
    if (msgctl(id, IPC_SET, &state) == 0)
        return 0;
    if (errno != EPERM || kernel_bytes >= state.msg_qbytes)
        return errno;

    // Only root may exceed the system's limit: a smaller queue is better than none.
    fprintf(stderr,
            "vorlink: a message queue of this system holds %lu of %u records: raise kernel.msgmnb to %lu\n",
            static_cast<unsigned long>(kernel_bytes / RECORD_SIZE), capacity,
            static_cast<unsigned long>(state.msg_qbytes));
    state.msg_qbytes = kernel_bytes;
    return msgctl(id, IPC_SET, &state) == 0 ? 0 : errno;
}

/// Whether a process has ended and only waits for its parent to notice.
bool is_zombie(pid_t pid)
{
    char path[32];
    snprintf(path, sizeof path, "/proc/%d/stat", pid);
    FILE *const file = fopen(path, "re");
    if (file == nullptr)
        return false;
    char text[256] = {}; // "PID (NAME) STATE ...", where the name may hold anything
    const size_t length = fread(text, 1, sizeof text - 1, file);
    fclose(file);
    const char *const name_end = strrchr(text, ')');
    return name_end != nullptr && name_end + 2 < text + length && name_end[2] == 'Z';
}

bool is_client_gone(long id)
{
    const auto pid = static_cast<pid_t>(id & ((1L << HOST_ID_PID_BITS) - 1));
    return pid == 0 || (kill(pid, 0) != 0 && errno == ESRCH) || is_zombie(pid);
}

ssize_t take(int32_t id, taken_message *taken, long type)
{
    return msgrcv(id, &taken->message, RECORD_SIZE + 1, type, IPC_NOWAIT | MSG_NOERROR);
}

int put(int32_t id, const host_queue_message *message)
{
    return msgsnd(id, message, RECORD_SIZE, IPC_NOWAIT);
}

using reply_list = std::vector<host_queue_message>;

/// Takes all replies out and returns those whose client still lives, in their order.
reply_list take_live_replies(int32_t id, msgqnum_t count)
{
    reply_list live;
    taken_message taken;
    for (; count > 0; --count) {
        const ssize_t size = take(id, &taken, 0);
        if (size < 0)
            break;
        if (size == static_cast<ssize_t>(RECORD_SIZE) && !is_client_gone(taken.message.type))
            live.push_back(taken.message);
    }
    return live;
}

/// Drops the oldest reply of the client that leaves the most of them unread, the next one counted: it holds up the
/// others. Nothing when every client has one.
void drop_reply_of_idle_client(reply_list &replies, long next)
{
    const auto unread = [&](long client) {
        return std::ranges::count(replies, client, &host_queue_message::type) + (client == next ? 1 : 0);
    };
    const auto most = std::ranges::max_element(
        replies, {}, [&](const host_queue_message &message) { return unread(message.type); });
    if (most == replies.end() || unread(most->type) < 2)
        return;
    QEP_TRACE_PrintInfo("vlk_msgq", __LINE__, 0, "host", 4,
                        "A reply to client %ld is dropped: it does not read its replies.", most->type);
    replies.erase(most);
}

/// Makes room in a full reply queue for a reply to the client `next`: first replies go whose client is gone. A client
/// that looks meanwhile finds nothing, sleeps on `replies` and is woken.
void make_room(int32_t id, long next)
{
    msqid_ds state{};
    if (msgctl(id, IPC_STAT, &state) != 0)
        return;
    reply_list kept = take_live_replies(id, state.msg_qnum);
    if (kept.size() == state.msg_qnum)
        drop_reply_of_idle_client(kept, next);
    for (const host_queue_message &message : kept)
        if (put(id, &message) != 0)
            QEP_TRACE_PrintInfo("vlk_msgq", __LINE__, 0, "host", 2, "The reply to client %ld is lost: %s.",
                                message.type, strerror(errno));
    futex_count(host_event_page()->replies);
}

} // namespace

int32_t VLK_get_msgQ_id(uint32_t key)
{
    const int32_t plain = plain_queue_id(key);
    if (plain >= 0)
        return plain;
    return key < HOST_BASE_DISTANCE ? msgget(system_key(key), 0) : -1;
}

int32_t VLK_msgQex_create(uint32_t key, uint32_t capacity, uint32_t record_size)
{
    if (capacity == 0 || capacity > CAPACITY_MAX || record_size != RECORD_SIZE || key >= HOST_BASE_DISTANCE)
        return -1;
    const int32_t id =
        msgget(system_key(key), IPC_CREAT | IPC_EXCL | 0600); // clients get in when all is set up
    if (id < 0) {
        report_refused_queue(key, errno);
        return -1;
    }
    const int cause = set_up(id, capacity);
    if (cause != 0) {
        report_refused_queue(key, cause);
        msgctl(id, IPC_RMID, nullptr);
        return -1;
    }
    return id;
}

int VLK_msgQex_delete(int32_t id)
{
    if (id < 0 || msgctl(id, IPC_RMID, nullptr) != 0)
        return -1;
    // Whoever waits for room or a reply looks again, and sees that the queue is gone.
    futex_count(host_event_page()->requests);
    futex_count(host_event_page()->replies);
    return 0;
}

int32_t VLK_msgQex_num(int32_t id)
{
    msqid_ds state{};
    if (id < 0 || msgctl(id, IPC_STAT, &state) != 0)
        return -1;
    return static_cast<int32_t>(state.msg_qnum);
}

int read_from_msgqueue(int32_t id, at_cmd_msg *record, int32_t which, int *retcode)
{
    if (id < 0 || record == nullptr || which < 0)
        return failed(retcode, EINVAL);
    taken_message taken;
    const ssize_t size = take(id, &taken, which);
    if (size < 0)
        return failed(retcode, errno);
    futex_count(host_event_page()->requests);
    if (size != static_cast<ssize_t>(RECORD_SIZE)) {
        QEP_TRACE_PrintInfo("vlk_msgq", __LINE__, 0, "host", 4,
                            "A client's record of %s than %zu bytes is dropped.",
                            size < static_cast<ssize_t>(RECORD_SIZE) ? "less" : "more", RECORD_SIZE);
        return failed(retcode, EMSGSIZE);
    }
    *record = taken.message.record;
    return 0;
}

int send_to_msgqueue(int32_t id, const at_cmd_msg *record, int *retcode)
{
    if (id < 0 || record == nullptr || record->Id <= 0)
        return failed(retcode, EINVAL);
    host_queue_message message;
    message.type = record->Id;
    message.record = *record;
    if (put(id, &message) != 0) {
        if (errno != EAGAIN)
            return failed(retcode, errno);
        make_room(id, message.type);
        if (put(id, &message) != 0)
            return failed(retcode, errno);
    }
    futex_count(host_event_page()->replies);
    return 0;
}
