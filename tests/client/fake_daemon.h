// The daemon's side of the wire, played by a test: event page, claim, queues and hub, with a runtime folder and an IPC
// base of its own. Everything is removed at the end, also when the test fails.
#ifndef FAKE_DAEMON_H
#define FAKE_DAEMON_H

#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "../host/host_place.h"
#include "futex_word.h"
#include "host_wire.h"
#include "vlk_client.h"
#include "vlk_queues.h"

class fake_daemon
{
public:
    fake_daemon()
    {
        host_open_event_page();
        page = host_event_page();
        page->modem = HOST_MODEM_READY;
        claim(1);

        sockaddr_un address{AF_UNIX, ""};
        strcpy(address.sun_path, (folder + "/hub").c_str());
        setsockopt(hub_, SOL_SOCKET, SO_RCVTIMEO, &PATIENCE, sizeof PATIENCE);
        EXPECT_EQ(bind(hub_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(hub_, 4), 0);
    }
    ~fake_daemon()
    {
        hang_up();
        close(hub_);
    }

    vlk_place place() const { return {folder.c_str(), 0}; }
    void claim(int value) { semctl(claim_, 0, SETVAL, value); } // 0: the daemon is dead
    void remove_queues()                                        // as a restarted daemon does
    {
        msgctl(requests_, IPC_RMID, nullptr);
        msgctl(replies_, IPC_RMID, nullptr);
    }

    /// Waits until the event bit says so and takes the next request; Id 0 when none came in time.
    at_cmd_msg take()
    {
        host_queue_message message{};
        const int64_t deadline = deadline_after(int32_t{PATIENCE.tv_sec} * 1000);
        while (msgrcv(requests_, &message, sizeof message.record, 0, IPC_NOWAIT) < 0)
            if (page->events.fetch_and(~1U) == 0 && !futex_wait(page->events, 0, deadline))
                return {};
        futex_count(page->requests);
        return message.record;
    }
    void queue_reply(const at_cmd_msg &reply, size_t size = sizeof(at_cmd_msg))
    {
        const host_queue_message message{reply.Id, reply};
        EXPECT_EQ(msgsnd(replies_, &message, size, IPC_NOWAIT), 0);
        futex_count(page->replies);
    }
    void answer(at_cmd_msg request, std::string_view text, int32_t ret_val)
    {
        memset(&request.snd_rcv_msg, 0, sizeof request.snd_rcv_msg);
        text.copy(request.snd_rcv_msg.rmsg, MAX_ATCMD_REPORT_SIZE);
        request.snd_rcv_msg.rsp_len = static_cast<uint32_t>(text.size());
        request.snd_rcv_msg.ret_val = ret_val;
        queue_reply(request);
    }
    size_t reply_count() const
    {
        msqid_ds state{};
        msgctl(replies_, IPC_STAT, &state);
        return state.msg_qnum;
    }

    void accept_listener()
    {
        hang_up();
        listener_ = accept(hub_, nullptr, nullptr);
        setsockopt(listener_, SOL_SOCKET, SO_RCVTIMEO, &PATIENCE, sizeof PATIENCE);
        EXPECT_GE(listener_, 0);
    }
    host_packet receive()
    {
        host_packet packet{};
        EXPECT_GE(recv(listener_, &packet, sizeof packet, 0), static_cast<ssize_t>(sizeof packet));
        return packet;
    }
    void send(host_packet packet, std::string_view data = "")
    {
        packet.length += static_cast<uint32_t>(data.size()); // other than 0 before: it lies
        std::string bytes(reinterpret_cast<const char *>(&packet), sizeof packet);
        bytes += data;
        EXPECT_GT(::send(listener_, bytes.data(), bytes.size(), MSG_NOSIGNAL), 0);
    }
    /// Accepts a listener and puts its subscription in force.
    void subscribe_listener()
    {
        accept_listener();
        host_packet packet = receive();
        packet.kind = HOST_SUBSCRIBED;
        send(packet);
    }
    void hang_up() { close(std::exchange(listener_, -1)); }

    const host_place home;
    const std::string &folder = home.folder;
    host_page *page;

private:
    static constexpr timeval PATIENCE = {5, 0};

    int claim_ = semget(static_cast<key_t>(home.base), 1, IPC_CREAT | 0660);
    int requests_ = msgget(static_cast<key_t>(home.base + 2), IPC_CREAT | 0660);
    int replies_ = msgget(static_cast<key_t>(home.base + 1), IPC_CREAT | 0660);
    int hub_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    int listener_ = -1;
};

#endif
