// Extended queues are System V message queues: key = base + queue key, id = the system's id. The kernel counts bytes,
// so a queue is given room for exactly `capacity` records of the one size that travels here.
#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <span>

#include <csignal>
#include <sys/ipc.h>
#include <sys/msg.h>

#include "at_cmd_msg.h"
#include "futex_word.h"
#include "host_start.h"
#include "msgq_plain.h"
#include "qep_trace.h"
#include "vlk_msgq.h"
#include "vlk_task.h"

namespace
{

constexpr size_t RECORD_SIZE = sizeof(at_cmd_msg);
constexpr uint32_t CAPACITY_MAX = 10'000; ///< far above what kernels allow, far below an overflow
constexpr int32_t READER_WAIT_MS = 100;   ///< for clients that have a reply each to read them
constexpr uint32_t OFFERS_OF_ROOM = 16;   ///< takes for each client that waits while the queue stays full
constexpr int ATTEMPTS_MAX = 256;         ///< of one reply, however fast others fill the queue

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

/// 0, or an errno value: EAGAIN when the queue is full.
int put(int32_t id, const host_queue_message &message)
{
    return msgsnd(id, &message, RECORD_SIZE, IPC_NOWAIT) == 0 ? 0 : errno;
}

/// The clients whose replies wait, the oldest first: as many as there is room for. It looks without taking, so that a
/// client that reads meanwhile finds its replies in their order. None when the kernel has no MSG_COPY
/// (CONFIG_CHECKPOINT_RESTORE).
std::span<long> waiting_clients(int32_t id, std::span<long> room)
{
    struct {
        long type;
        char text[8192]; // any message, as systems are set up
    } copy;
    size_t count = 0;
    while (count < room.size() &&
           msgrcv(id, &copy, sizeof copy.text, static_cast<long>(count), IPC_NOWAIT | MSG_COPY) >= 0)
        room[count++] = copy.type;
    return room.first(count);
}

/// Drops the oldest reply of a client, the oldest of all for 0.
void drop_reply(int32_t id, long client)
{
    taken_message dropped;
    if (take(id, &dropped, client) >= 0)
        QEP_TRACE_PrintInfo("vlk_msgq", __LINE__, 0, "host", 4,
                            "A reply to client %ld is dropped: it does not read its replies.",
                            dropped.message.type);
}

/// Makes room in a full reply queue for a reply to the client `next`: replies go whose client is gone, or else the
/// oldest of the client that leaves the most unread, the next one counted. False when every client has but one.
bool make_room(int32_t id, long next)
{
    std::array<long, 32> room;
    const std::span<long> clients = waiting_clients(id, room);
    bool dropped_any = false;
    for (const long client : clients) {
        taken_message dropped;
        if (is_client_gone(client))
            dropped_any = take(id, &dropped, client) >= 0 || dropped_any;
    }
    if (dropped_any)
        return true;
    const auto unread = [&](long client) {
        return std::ranges::count(clients, client) + (client == next ? 1 : 0);
    };
    const auto most = std::ranges::max_element(clients, {}, unread);
    if (most == clients.end() || unread(*most) < 2)
        return false;
    drop_reply(id, *most);
    return true;
}

/// Puts a reply into a queue that may be full. Clients that read their replies get the time to do so; then the oldest
/// reply makes room, whosever it is. 0, or an errno value.
int put_reply(int32_t id, const host_queue_message &message)
{
    int cause = put(id, message);
    if (cause != EAGAIN)
        return cause;
    const int64_t reader_deadline = deadline_after(READER_WAIT_MS);
    for (int attempt = 1; cause == EAGAIN && attempt < ATTEMPTS_MAX; ++attempt) {
        if (!make_room(id, message.type)) {
            if (monotonic_ns() < reader_deadline)
                VLK_sleep(1);
            else
                drop_reply(id, 0);
        }
        cause = put(id, message);
    }
    return cause;
}

/// A request was taken. The room is offered to a client that waits for it, but as a rule not while the queue stays all
/// but full: a client that has just got its reply, and runs, takes it then without another wake-up.
void tell_of_room(int32_t id)
{
    static std::atomic<uint32_t> takes{0};
    host_page &page = *host_event_page();
    ++page.requests;
    if (page.room_wanted == 0)
        return;
    msqid_ds state{};
    if (msgctl(id, IPC_STAT, &state) != 0)
        state.msg_qnum = 0;
    if (state.msg_qnum == 0) {
        page.room_wanted = 0;
        futex_wake(page.requests);
        return;
    }
    if (++takes % OFFERS_OF_ROOM != 0 && state.__msg_cbytes + 2 * RECORD_SIZE > state.msg_qbytes)
        return;
    page.room_wanted = 0;
    if (futex_wake_one(page.requests))
        page.room_wanted = 1; // others may wait; a client that starts to do so sets it itself
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
    tell_of_room(id);
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
    if (const int cause = put_reply(id, message); cause != 0)
        return failed(retcode, cause);
    futex_count(host_event_page()->replies, host_reply_waiter(record->Id));
    return 0;
}
