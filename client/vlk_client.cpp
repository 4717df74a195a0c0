// Requests through the daemon's queues.
#include "vlk_client.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstring>
#include <new>

#include <pthread.h>
#include <sched.h>
#include <sys/msg.h>
#include <sys/random.h>
#include <unistd.h>

#include "daemon_page.h"
#include "futex_word.h"
#include "last_error.h"
#include "vlk_queues.h"

static_assert(uint32_t{VLK_MODEM_ABSENT} == HOST_MODEM_ABSENT &&
              uint32_t{VLK_MODEM_SILENT} == HOST_MODEM_SILENT &&
              uint32_t{VLK_MODEM_READY} == HOST_MODEM_READY &&
              uint32_t{VLK_MODEM_RELEASED} == HOST_MODEM_RELEASED);
static_assert(sizeof(vlk_status::runtime_dir) >= HOST_FOLDER_SIZE);

namespace
{
constexpr int64_t LIFE_CHECK_NS = 1'000'000'000;
constexpr int ROOM_YIELDS = 4;        // before a client sleeps until the request queue has room
constexpr uint32_t LAST_NUMBER = 511; // numbers that fit above the process id

/// Numbers that tell the clients of this process apart: one bit each, set while it is in use. Any thread.
std::array<std::atomic<uint64_t>, (LAST_NUMBER + 1) / 64> g_numbers;

/// A free number, or -1 when all are in use.
int take_number()
{
    for (size_t word = 0; word < g_numbers.size(); word++) {
        uint64_t used = g_numbers[word];
        while (~used != 0) {
            const int bit = std::countr_one(used);
            if (g_numbers[word].compare_exchange_weak(used, used | uint64_t{1} << bit))
                return static_cast<int>(word) * 64 + bit;
        }
    }
    return -1;
}

void give_number_back(int number)
{
    const auto at = static_cast<size_t>(number);
    g_numbers[at / 64] &= ~(uint64_t{1} << at % 64);
}

/// Counts the forks that led to this process. A process id would tell a child, too, but costs a system call.
std::atomic<uint32_t> g_forks;

bool count_forks()
{
    static const bool counted = pthread_atfork(nullptr, nullptr, [] { ++g_forks; }) == 0;
    return counted;
}

/// A start that differs between clients, so that nobody takes a reply to an earlier client with the same Id: one of
/// this process that was closed too early, or of a process with the same number.
uint32_t first_seq()
{
    uint32_t seq = 0;
    if (getrandom(&seq, sizeof seq, GRND_NONBLOCK) != sizeof seq)
        seq = static_cast<uint32_t>(monotonic_ns());
    return seq;
}
} // namespace

struct vlk_client {
    daemon_page page;
    int requests = -1; // queues
    int replies = -1;
    pid_t process = getpid();
    uint32_t forks = g_forks; // that led to it
    int number = take_number();
    int64_t check_at = 0;        // when the daemon's life is to be looked at again
    uint32_t seq = first_seq();  // of the last request
    uint32_t replies_before = 0; // count of the daemon's replies when it was sent
    bool holds = false;          // a reply that was taken from the queue and not handed out yet
    host_queue_message held{};

    int32_t id() const
    {
        return static_cast<int32_t>(static_cast<uint32_t>(number) << HOST_ID_PID_BITS |
                                    static_cast<uint32_t>(process));
    }
    ~vlk_client()
    {
        if (number >= 0)
            give_number_back(number);
    }
};

namespace
{
/// Takes the next reply for this client into `held`, if one has come and none is held. A vlk_result.
int hold_next_reply(vlk_client &client)
{
    while (!client.holds) {
        const ssize_t size = msgrcv(client.replies, &client.held, sizeof client.held.record, client.id(),
                                    IPC_NOWAIT | MSG_NOERROR);
        if (size < 0 && errno == ENOMSG)
            return VLK_OK;
        if (size < 0)
            return client.page.explain_queue_failure(errno);
        client.holds = size == sizeof client.held.record; // anything else is not from the daemon
    }
    return VLK_OK;
}

void drop_replies(vlk_client &client)
{
    do {
        client.holds = false;
    } while (hold_next_reply(client) == VLK_OK && client.holds);
}

/// Whether the daemon lives, as it was seen within the last second.
bool is_alive(vlk_client &client)
{
    const int64_t now = monotonic_ns();
    if (now < client.check_at)
        return true;
    if (!client.page.alive())
        return false;
    client.check_at = now + LIFE_CHECK_NS;
    return true;
}

/// Sleeps until the word is no longer `seen`, at most for a second. VLK_OK: look again.
int sleep_on(const vlk_client &client, const std::atomic<uint32_t> &word, uint32_t seen, int64_t deadline,
             uint32_t who = FUTEX_EVERYBODY)
{
    const int64_t now = monotonic_ns();
    if (deadline != NO_DEADLINE && now >= deadline)
        return VLK_TIMEOUT;
    const int64_t check = now + LIFE_CHECK_NS;
    const bool woken =
        futex_wait(word, seen, deadline == NO_DEADLINE ? check : std::min(deadline, check), who);
    if (!woken && !client.page.alive())
        return fail(VLK_NOT_RUNNING, "the daemon in %s has ended; the request is lost",
                    client.page.paths().folder);
    return VLK_OK;
}

int check_owner(const vlk_client &client)
{
    if (client.forks == g_forks)
        return VLK_OK;
    return fail(VLK_INVALID, "this client was opened by another process");
}

void announce_request(const vlk_client &client)
{
    client.page->events.fetch_or(VLK_EVENT_CLIENT_REQUEST, std::memory_order_release);
    futex_wake(client.page->events);
}

int send_before(vlk_client &client, at_cmd_msg *request, int64_t deadline)
{
    if (const int failed = check_owner(client))
        return failed;
    if (!is_alive(client))
        return fail(VLK_NOT_RUNNING, "the daemon in %s has ended", client.page.paths().folder);
    request->Id = client.id();
    request->seq = ++client.seq;
    client.replies_before = client.page->replies.load(std::memory_order_acquire);
    const host_queue_message message{HOST_REQUEST_TYPE, *request};
    for (int yields = 0;;) {
        const uint32_t seen = client.page->requests;
        if (msgsnd(client.requests, &message, sizeof message.record, IPC_NOWAIT) == 0)
            break;
        if (errno != EAGAIN)
            return client.page.explain_queue_failure(errno);
        if (yields++ < ROOM_YIELDS) { // a daemon at work takes the next request in microseconds
            sched_yield();
            continue;
        }
        client.page->room_wanted = 1;
        announce_request(client); // those who filled the queue may have died before they could
        const int result = sleep_on(client, client.page->requests, seen, deadline);
        if (result == VLK_TIMEOUT)
            return fail(VLK_TIMEOUT, "the daemon's request queue stayed full (modem: %s)",
                        vlk_modem_text(client.page->modem));
        if (result != VLK_OK)
            return result;
    }
    announce_request(client);
    return VLK_OK;
}

int wait_before(vlk_client &client, uint32_t seq, at_cmd_msg *reply, int64_t deadline)
{
    if (const int failed = check_owner(client))
        return failed;
    // As long as the daemon has sent no reply to anybody, none to the last request is in the queue.
    bool may_have_come = client.holds || seq != client.seq;
    for (;; may_have_come = true) {
        const uint32_t seen = client.page->replies.load(std::memory_order_acquire);
        if (may_have_come || seen != client.replies_before) {
            if (const int failed = hold_next_reply(client))
                return failed;
        }
        if (client.holds) {
            const auto ahead = static_cast<int32_t>(client.held.record.seq - seq);
            const auto ahead_of_all = static_cast<int32_t>(client.held.record.seq - client.seq);
            const bool is_foreign = ahead_of_all > 0; // see first_seq
            if (ahead > 0 && !is_foreign)
                return fail(VLK_TIMEOUT, "the request was not answered, but a later one was");
            client.holds = false;
            if (ahead != 0)
                continue;
            *reply = client.held.record;
            return VLK_OK;
        }
        const int result =
            sleep_on(client, client.page->replies, seen, deadline, host_reply_waiter(client.id()));
        if (result == VLK_TIMEOUT)
            return fail(VLK_TIMEOUT, "no reply in time (modem: %s)", vlk_modem_text(client.page->modem));
        if (result != VLK_OK)
            return result;
    }
}

int open_client(vlk_client &client, const vlk_place *place)
{
    if (!count_forks())
        return fail(VLK_SYSTEM, "out of memory");
    if (client.number < 0)
        return fail(VLK_INVALID, "this process has too many clients open (%u)", LAST_NUMBER + 1);
    if (const int failed = client.page.open(place))
        return failed;
    if (const int failed = client.page.find_queue(VLK_QUEUE_CLIENT_REQUEST, &client.requests))
        return failed;
    if (const int failed = client.page.find_queue(VLK_QUEUE_CLIENT_REPLY, &client.replies))
        return failed;
    drop_replies(client); // to a process that had the same id
    return VLK_OK;
}

/// Records in a queue, 0 when it cannot be asked.
uint32_t fill_of(const daemon_page &page, uint32_t key)
{
    int queue = -1;
    msqid_ds state{};
    if (page.find_queue(key, &queue) != VLK_OK || msgctl(queue, IPC_STAT, &state) != 0)
        return 0;
    return static_cast<uint32_t>(state.msg_qnum);
}
} // namespace

int vlk_open(vlk_client **client, const vlk_place *place)
{
    if (client == nullptr)
        return fail(VLK_INVALID, "no place for the client");
    *client = new (std::nothrow) vlk_client;
    if (*client == nullptr)
        return fail(VLK_SYSTEM, "out of memory");
    const int result = open_client(**client, place);
    if (result != VLK_OK) {
        delete *client;
        *client = nullptr;
    }
    return result;
}

void vlk_close(vlk_client *client)
{
    if (client == nullptr)
        return;
    if (client->forks == g_forks)
        drop_replies(*client);
    delete client;
}

int vlk_send(vlk_client *client, at_cmd_msg *request, int32_t limit_ms)
{
    if (client == nullptr || request == nullptr)
        return fail(VLK_INVALID, "no client or no request");
    return send_before(*client, request, deadline_after(limit_ms));
}

int vlk_wait(vlk_client *client, uint32_t seq, at_cmd_msg *reply, int32_t limit_ms)
{
    if (client == nullptr || reply == nullptr)
        return fail(VLK_INVALID, "no client or no room for the reply");
    return wait_before(*client, seq, reply, deadline_after(limit_ms));
}

int vlk_exchange(vlk_client *client, at_cmd_msg *request, at_cmd_msg *reply, int32_t limit_ms)
{
    if (client == nullptr || request == nullptr || reply == nullptr)
        return fail(VLK_INVALID, "no client, no request or no room for the reply");
    if (request->req_type == ACTIVE_REPORT || request->req_type == AT_UNANSWERED)
        return fail(VLK_INVALID, "the daemon never answers requests of type %u", request->req_type);
    const int64_t deadline = deadline_after(limit_ms);
    if (const int failed = send_before(*client, request, deadline))
        return failed;
    return wait_before(*client, request->seq, reply, deadline);
}

uint32_t vlk_client_modem(const vlk_client *client)
{
    return client == nullptr ? uint32_t{VLK_MODEM_ABSENT} : client->page->modem.load();
}

int vlk_get_status(const vlk_place *place, vlk_status *status)
{
    if (status == nullptr)
        return fail(VLK_INVALID, "no place for the status");
    *status = vlk_status{};
    daemon_page page;
    const int result = page.open(place);
    std::strcpy(status->runtime_dir, page.paths().folder);
    if (result != VLK_OK)
        return result;
    status->base = page.paths().base;
    status->pid = page->pid;
    status->modem = page->modem;
    status->requests = fill_of(page, VLK_QUEUE_CLIENT_REQUEST);
    status->replies = fill_of(page, VLK_QUEUE_CLIENT_REPLY);
    return VLK_OK;
}

const char *vlk_modem_text(uint32_t modem)
{
    constexpr std::array<const char *, 4> TEXTS = {"absent", "silent", "ready", "released"};
    return modem < TEXTS.size() ? TEXTS[modem] : "unknown";
}
