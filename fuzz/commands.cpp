// The commands socket: clients that connect, send records and other packets, read or do not, and hang up, in any order
// with a main thread that takes and answers. No threads: what the door calls is called here. Input: steps of a byte
// or two.
#include "host/commands.cpp" // what the door calls

#include <deque>
#include <set>

#include <unistd.h>

#include "door_stand_in.h"
#include "fuzz.h"
#include "vlk_task.h"

namespace
{

constexpr size_t CLIENTS = 6;

/// A client, and what the daemon should do for it.
struct client {
    int fd = -1;
    int lane = -1;
    std::deque<uint32_t> asked;    ///< requests that are not taken yet, 0 for a packet that is none
    std::deque<uint32_t> answered; ///< replies that were not read yet
};

std::array<client, CLIENTS> all;
uint32_t last_seq = 0;
std::set<uint32_t> withdrawn;
at_cmd_msg taken;
client *asker = nullptr; ///< of `taken`, while it is connected and not answered

void forget(client &who)
{
    withdrawn.insert(who.asked.begin(), who.asked.end());
    if (asker == &who)
        asker = nullptr;
    if (who.fd >= 0)
        close(who.fd);
    who = {};
}

void open_client(client &who)
{
    std::array<int, 2> ends{};
    require(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) == 0,
            "a connection");
    who.fd = ends[0];
    require(lane_opened(ends[1]) == 0, "there is room");
    who.lane = opened_slot;
}

void send_record(client &who, uint8_t what)
{
    at_cmd_msg record{};
    record.Id = what;
    record.req_type = what % 7;
    record.timeout = what * 100 - 5000;
    record.seq = last_seq + 1;
    if (send(who.fd, &record, sizeof record, MSG_NOSIGNAL) == ssize_t{sizeof record})
        who.asked.push_back(++last_seq);
}

void send_other(client &who, size_t size)
{
    static const std::array<char, 4096> bytes{};
    if (size != sizeof(at_cmd_msg) &&
        send(who.fd, bytes.data(), size, MSG_NOSIGNAL) == static_cast<ssize_t>(size))
        who.asked.push_back(0);
}

void read_replies(client &who)
{
    at_cmd_msg reply;
    while (recv(who.fd, &reply, sizeof reply, MSG_DONTWAIT) == ssize_t{sizeof reply}) {
        require(!who.answered.empty() && who.answered.front() == reply.seq, "replies come once and in order");
        who.answered.pop_front();
    }
}

/// Clients whose next packet is no record may have been disconnected on the way.
void note_disconnected()
{
    for (client &who : all)
        if (who.fd >= 0 && clients[who.lane].fd < 0) {
            require(std::ranges::find(who.asked, 0U) != who.asked.end(),
                    "only who sends what is no record is cut off");
            forget(who);
        }
}

void take()
{
    asker = nullptr; // what was taken before is done
    const bool waits = commands_waiting();
    if (!waits || commands_take(taken) != 0) {
        note_disconnected();
        return;
    }
    note_disconnected();
    require(!withdrawn.contains(taken.seq), "who hangs up withdraws");
    require(taken.timeout <= host_settings().timeout_max, "a time limit is bounded");
    const auto from = std::ranges::find_if(
        all, [](const client &who) { return !who.asked.empty() && who.asked.front() == taken.seq; });
    require(from != all.end(), "a lane's requests come in order");
    from->asked.pop_front();
    asker = &*from;
}

void answer()
{
    if (asker != nullptr)
        asker->answered.push_back(taken.seq);
    asker = nullptr;
    require(commands_reply(taken) == 0, "a reply is taken");
}

void finish()
{
    for (client &who : all) {
        if (who.fd < 0)
            continue;
        const int lane = who.lane;
        close(std::exchange(who.fd, -1));
        lane_happened(lane);
        forget(who);
    }
    main_wait_look();
    end_served();
    require(clients.count() == 0 && order.next() == NO_LANE && head_lane == NO_LANE, "nothing is left");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    [[maybe_unused]] static const int made = VLK_event_init(VLK_EVENT_MASK);
    main_wait_set_proc(lane_event);
    host_settings_as_read.log_level = -1; // nothing is printed
    last_seq = 0;
    withdrawn.clear();
    asker = nullptr;
    fuzz_input in(data, size);
    while (!in.empty()) {
        const uint8_t first = in.take_byte();
        client &who = all[first / 8U % CLIENTS];
        if (who.fd < 0)
            open_client(who);
        uint32_t events = 0;
        switch (first % 8) {
        case 0:
        case 1:
            send_record(who, in.take_byte());
            break;
        case 2:
            send_other(who, 1 + in.take_byte() * 16U);
            break;
        case 3:
            read_replies(who);
            break;
        case 4:
            close(std::exchange(who.fd, -1));
            if (in.take_byte() % 2 == 0)
                lane_happened(who.lane); // else the main thread is first to notice
            forget(who);
            break;
        case 5:
            VLK_event_recv(VLK_EVENT_MASK, 0, &events);
            break;
        default:
            take();
            if (first % 8 == 6)
                answer();
        }
    }
    finish();
    return 0;
}
