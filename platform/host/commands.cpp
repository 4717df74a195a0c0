#include "commands.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <string_view>
#include <utility>

#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include "at_proxy.h"
#include "at_request.h"
#include "connections.h"
#include "door.h"
#include "futex_word.h"
#include "host_counters.h"
#include "host_log.h"
#include "host_start.h"
#include "host_wire.h"
#include "main_wait.h"
#include "msgq_plain.h"
#include "served_request.h"
#include "turns.h"
#include "vlk_queues.h"

namespace
{
static_assert(turns::LANES_MAX == connections::MAX);
constexpr int NO_LANE = -1;
constexpr uint32_t LANE_EVENTS = EPOLLIN | EPOLLRDHUP;
constexpr int WAITING_SHOWN = 16;

/// Everything here changes under the mutex: the main thread takes and answers, the door's thread opens and closes.
std::mutex mutex;
connections clients;
turns order;
std::array<at_cmd_msg, connections::MAX> unsent; ///< replies of clients that do not read; untouched as a rule
std::array<bool, connections::MAX> has_unsent{};

at_cmd_msg head; ///< the request whose turn has come, of head_lane
int head_lane = NO_LANE;

struct {
    int lane = NO_LANE; ///< of the request that is served, unless its client has hung up
    uint32_t request = 0;
    uint32_t type = 0;
    int64_t since_ms = 0;
    char command[32] = "";
} served;

uint32_t requests_taken = 0;
uint32_t visit = 0; ///< the event wait after which a request was last taken

/// Under the mutex.
void close_lane(int lane)
{
    if (lane == served.lane) {
        ++counters.withdrawn;
        served.lane = NO_LANE;
        if (served.type == ACTIVE_REPORT)
            plain_queues_give_up(served.request);
        at_proxy_asker_gone(served.request); // the waiting main thread may be reading the modem
    }
    if (lane == head_lane) {
        ++counters.withdrawn;
        head_lane = NO_LANE;
    }
    has_unsent[static_cast<size_t>(lane)] = false;
    order.close(lane);
    clients.remove(lane);
}

/// Under the mutex. 0, or an errno value: EAGAIN when the client has no room.
int send_reply(int lane, const at_cmd_msg &reply)
{
    const ssize_t sent = send(clients[lane].fd, &reply, sizeof reply, MSG_DONTWAIT | MSG_NOSIGNAL);
    return sent == ssize_t{sizeof reply} ? 0 : errno;
}

/// Under the mutex: a client that did not read has room again.
void send_unsent(int lane)
{
    const auto at = static_cast<size_t>(lane);
    if (!has_unsent[at] || send_reply(lane, unsent[at]) == EAGAIN)
        return;
    has_unsent[at] = false;
    main_wait_change(clients[lane].fd, LANE_EVENTS, static_cast<uint32_t>(lane));
    order.set_ready(lane, true);
}

/// Something happened at a client, as the main thread's wait reports. The event may be of the lane's previous client.
void lane_event(uint32_t tag, uint32_t events)
{
    const auto lane = static_cast<int>(tag);
    const std::scoped_lock lock(mutex);
    if (clients[lane].fd < 0)
        return;
    if ((events & ~uint32_t{EPOLLIN | EPOLLOUT}) != 0 && is_hung_up(clients[lane].fd))
        return close_lane(lane);
    if ((events & EPOLLOUT) != 0)
        send_unsent(lane);
    else if (!has_unsent[tag])
        order.set_ready(lane, true);
    main_wait_raise(VLK_EVENT_CLIENT_REQUEST);
}

int lane_opened(int fd);
void lane_happened(int lane);

constexpr door_service door{HOST_COMMANDS_NAME, 0, lane_opened, lane_happened};

/// The door's thread.
int lane_opened(int fd)
{
    const std::scoped_lock lock(mutex);
    const int lane = clients.add(fd);
    if (lane < 0)
        return -1;
    order.open(lane, clients[lane].user);
    if (door_watch(door, fd, lane) == 0 && main_wait_add(fd, LANE_EVENTS, static_cast<uint32_t>(lane)) == 0)
        return 0;
    order.close(lane);
    clients.release(lane);
    return -1;
}

/// The door's thread: it notices hang-ups even while the main thread waits for the modem.
void lane_happened(int lane)
{
    const std::scoped_lock lock(mutex);
    if (clients[lane].fd >= 0 && is_hung_up(clients[lane].fd))
        close_lane(lane);
}

/// Under the mutex: a client that sends anything but a record is disconnected, since there is nothing to answer.
void receive(int lane)
{
    const ssize_t size = recv(clients[lane].fd, &head, sizeof head, MSG_DONTWAIT | MSG_TRUNC);
    if (size == ssize_t{sizeof head}) {
        head_lane = lane;
    } else if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
        order.set_ready(lane, false);
    } else {
        if (size > 0)
            host_log(LOG_WARNING,
                     "a client is disconnected: process %d (%s) sent %zd bytes in place of a record",
                     clients[lane].pid, name_of_process(clients[lane].pid).text, size);
        close_lane(lane);
    }
}

/// Under the mutex: counts the request that ends with this reply.
void count_served(const at_cmd_msg &reply)
{
    const connection &asker = clients[served.lane];
    const ended_command ended{served.command, reply.snd_rcv_msg.ret_val, monotonic_ms() - served.since_ms,
                              asker.pid, ""};
    if (ended.result == AT_OK)
        return count_command(ended);
    const process_name name = name_of_process(asker.pid); // reads /proc: only for those that are logged
    count_command({ended.name, ended.result, ended.took_ms, ended.pid, name.text});
}

/// Under the mutex: the last request is done, answered or not.
void end_served()
{
    served.lane = NO_LANE;
    host_served_request = 0;
    host_served_asker = {};
}

/// Under the mutex: reads ahead the request whose turn it is.
bool find_head()
{
    end_served();
    while (head_lane == NO_LANE) {
        const int lane = order.next();
        if (lane == NO_LANE)
            return false;
        receive(lane);
    }
    return true;
}

bool has_command(const at_cmd_msg &request)
{
    return request.req_type == AT_COMMAND || request.req_type == AT_RAW_COMMAND;
}

std::string_view text_of(const at_cmd_msg &request)
{
    return {request.snd_rcv_msg.cmd, strnlen(request.snd_rcv_msg.cmd, sizeof request.snd_rcv_msg.cmd)};
}

/// Why a request must not reach the modem, or nullptr.
const char *fault_of(const at_cmd_msg &request)
{
    if (!has_command(request))
        return nullptr;
    if (request.req_type == AT_COMMAND &&
        (at_asks_for_prompt(text_of(request)) || at_holds_message(text_of(request))))
        return at_request_fault(text_of(request), true);
    const auto length = static_cast<size_t>(std::clamp(request.cmd_len, 0, AT_CMD_STR_SIZE));
    const std::string_view counted(request.snd_rcv_msg.cmd, length);
    return at_request_fault(request.cmd_len > 0 ? counted : text_of(request), false);
}

/// Under the mutex.
void begin_served(at_cmd_msg &request)
{
    request = head;
    served.lane = std::exchange(head_lane, NO_LANE);
    order.served(served.lane);
    if (++requests_taken == 0)
        ++requests_taken;
    served.request = requests_taken;
    served.type = request.req_type;
    served.since_ms = monotonic_ms();
    const std::string_view name = has_command(request) ? at_command_name(text_of(request)) : "";
    served.command[name.copy(served.command, sizeof served.command - 1)] = '\0';
    request.timeout = std::min(request.timeout, host_settings().timeout_max);
    host_served_limit_ms = std::max(request.timeout, 0) * 1000;
    host_served_asker = {clients[served.lane].pid, request.Id, request.seq};
    host_served_request = served.request;
    visit = main_wait_count();
}
/// Under the mutex.
int reply_to_served(const at_cmd_msg &reply)
{
    const int lane = served.lane;
    if (lane != NO_LANE)
        count_served(reply);
    end_served();
    if (lane == NO_LANE)
        return 0;
    const int cause = send_reply(lane, reply);
    if (cause != EAGAIN)
        return cause;
    const auto at = static_cast<size_t>(lane);
    unsent[at] = reply;
    has_unsent[at] = true;
    order.set_ready(lane, false);
    main_wait_change(clients[lane].fd, LANE_EVENTS | EPOLLOUT, static_cast<uint32_t>(lane));
    return 0;
}

/// Under the mutex: answers a request that was taken and must not reach the modem, with the reason as its text.
void refuse(const at_cmd_msg &request, const char *fault)
{
    host_log(LOG_NOTICE, "a command of process %d (%s) is refused: %s: %s", clients[served.lane].pid,
             name_of_process(clients[served.lane].pid).text, served.command, fault);
    ++counters.requests_refused;
    served.command[0] = '\0'; // logged and counted already
    at_cmd_msg reply = request;
    memset(&reply.snd_rcv_msg, 0, sizeof reply.snd_rcv_msg);
    reply.snd_rcv_msg.ret_val = AT_COMMAND_NOT_SUPPORT;
    reply.snd_rcv_msg.rsp_len = static_cast<uint32_t>(
        std::string_view(fault).copy(reply.snd_rcv_msg.rmsg, sizeof reply.snd_rcv_msg.rmsg));
    reply_to_served(reply);
}
} // namespace

int commands_open()
{
    main_wait_set_proc(lane_event);
    return door_open(door);
}

bool commands_waiting()
{
    constexpr uint32_t others = ~uint32_t{VLK_EVENT_CLIENT_REQUEST};
    // A client that sends one request after another must not keep the modem's reports waiting.
    if (visit == main_wait_count() && (main_wait_bits() & others) != 0) {
        const std::scoped_lock lock(mutex);
        end_served();
        main_wait_raise(VLK_EVENT_CLIENT_REQUEST);
        return false;
    }
    main_wait_look();
    const std::scoped_lock lock(mutex);
    return find_head();
}

int commands_take(at_cmd_msg &request)
{
    const std::scoped_lock lock(mutex);
    if (!find_head())
        return ENOMSG;
    begin_served(request);
    const char *const fault = fault_of(request);
    if (fault == nullptr)
        return 0;
    refuse(request, fault);
    return EINVAL;
}

int commands_reply(const at_cmd_msg &reply)
{
    const std::scoped_lock lock(mutex);
    return reply_to_served(reply);
}

void commands_status(status_text &text)
{
    const std::scoped_lock lock(mutex);
    text.add("clients.connected %d", clients.count());
    if (served.lane != NO_LANE) {
        const connection &asker = clients[served.lane];
        text.add("running.command %s", served.command[0] != '\0' ? served.command : "none");
        text.add("running.pid %d", asker.pid);
        text.add("running.name %s", name_of_process(asker.pid).text);
        text.add("running.user %u", asker.user);
        text.add("running.for_ms %lld", static_cast<long long>(monotonic_ms() - served.since_ms));
    }
    int waiting = 0;
    for (int lane = 0; lane < connections::MAX; ++lane) {
        pollfd state{clients[lane].fd, POLLIN, 0};
        const bool waits = state.fd >= 0 && (lane == head_lane || poll(&state, 1, 0) > 0);
        if (waits && ++waiting <= WAITING_SHOWN)
            text.add("waiting.%d %d %u %s", waiting, clients[lane].pid, clients[lane].user,
                     name_of_process(clients[lane].pid).text);
    }
    text.add("clients.waiting %d", waiting);
}
