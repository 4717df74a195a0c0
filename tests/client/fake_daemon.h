// The daemon's side of the wire, played by a test: its two sockets in a runtime folder of its own. Everything is
// removed at the end, also when the test fails.
#ifndef FAKE_DAEMON_H
#define FAKE_DAEMON_H

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "../host/host_place.h"
#include "../process.h"
#include "host_wire.h"
#include "vlk_client.h"

class fake_daemon
{
public:
    fake_daemon() { open(); }
    ~fake_daemon() { end(); }

    void open()
    {
        commands_ = listen_at(HOST_COMMANDS_NAME);
        hub_ = listen_at(HOST_HUB_NAME);
        ending_ = false;
        status_thread_ = std::thread([this] { serve_status(); });
    }
    /// As the kernel ends a daemon that dies: its sockets stay in the folder.
    void end()
    {
        if (!status_thread_.joinable())
            return;
        ending_ = true;
        status_thread_.join();
        hang_up();
        hang_up_clients();
        for (const int fd : {commands_, hub_})
            close(fd);
        newcomers_.push_back(std::exchange(answers_, -1));
        for (const int fd : std::exchange(newcomers_, {}))
            close(fd);
    }

    vlk_place place() const { return {folder.c_str()}; }

    /// Waits for the next request and takes it; all zero when none came in time.
    at_cmd_msg take()
    {
        at_cmd_msg record{};
        wait_until([&] { return try_take(record); }, PATIENCE_MS);
        return record;
    }
    /// To the client whose request was taken last.
    void queue_reply(const at_cmd_msg &reply, size_t size = sizeof(at_cmd_msg)) const
    {
        EXPECT_EQ(::send(asker_, &reply, size, MSG_NOSIGNAL), ssize_t(size));
    }
    void answer(at_cmd_msg request, std::string_view text, int32_t ret_val)
    {
        memset(&request.snd_rcv_msg, 0, sizeof request.snd_rcv_msg);
        text.copy(request.snd_rcv_msg.rmsg, MAX_ATCMD_REPORT_SIZE);
        request.snd_rcv_msg.rsp_len = static_cast<uint32_t>(text.size());
        request.snd_rcv_msg.ret_val = ret_val;
        tell_answer(request, text);
        queue_reply(request);
    }
    void hang_up_clients()
    {
        for (const int fd : std::exchange(clients_, {}))
            close(fd);
    }
    /// True when the client whose request was taken last has closed its connection.
    bool asker_has_gone() const
    {
        return wait_until([this] { return has_hung_up(asker_); }, PATIENCE_MS);
    }

    void accept_listener()
    {
        hang_up();
        EXPECT_TRUE(wait_until([this] { return take_listener(); }, PATIENCE_MS));
        const timeval patience{PATIENCE_MS / 1000, 0};
        setsockopt(listener_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }
    host_packet receive() const
    {
        host_packet packet{};
        EXPECT_GE(recv(listener_, &packet, sizeof packet, 0), static_cast<ssize_t>(sizeof packet));
        return packet;
    }
    void send(host_packet packet, std::string_view data = "") const { send_to(listener_, packet, data); }

    /// Accepts a listener and puts its subscription in force.
    void subscribe_listener()
    {
        accept_listener();
        host_packet packet = receive();
        packet.kind = HOST_SUBSCRIBED;
        send(packet);
    }
    void hang_up() { close(std::exchange(listener_, -1)); }

    /// What the status says of the modem.
    void set_modem(const std::string &state, const std::string &reason = "")
    {
        const std::scoped_lock lock(mutex_);
        modem_ = "modem.state " + state + "\n" + (reason.empty() ? "" : "modem.reason " + reason + "\n");
    }

    const host_place home;
    const std::string &folder = home.folder;

private:
    static constexpr int PATIENCE_MS = 5000;

    int listen_at(const char *name) const
    {
        sockaddr_un address{AF_UNIX, ""};
        strcpy(address.sun_path, (folder + "/" + name).c_str());
        unlink(address.sun_path);
        const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(fd, 600), 0);
        return fd;
    }
    static bool has_hung_up(int fd)
    {
        pollfd state{fd, POLLRDHUP, 0};
        return poll(&state, 1, 0) > 0;
    }
    static bool is_readable(int fd)
    {
        pollfd state{fd, POLLIN, 0};
        return poll(&state, 1, 0) > 0;
    }
    bool try_take(at_cmd_msg &record)
    {
        while (is_readable(commands_))
            clients_.push_back(accept4(commands_, nullptr, nullptr, SOCK_CLOEXEC));
        std::erase_if(clients_, [](int fd) { return has_hung_up(fd) && close(fd) == 0; });
        for (const int fd : clients_) {
            asker_ = fd;
            if (recv(fd, &record, sizeof record, MSG_DONTWAIT) == ssize_t{sizeof record})
                return true;
        }
        return false;
    }
    static void send_to(int fd, host_packet packet, std::string_view data)
    {
        packet.length += static_cast<uint32_t>(data.size()); // unless it was 0, the header lies about it
        std::string bytes(reinterpret_cast<const char *>(&packet), sizeof packet);
        bytes += data;
        EXPECT_GT(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), 0);
    }
    /// The first newcomer that did not ask for the status becomes the listener.
    bool take_listener()
    {
        const std::scoped_lock lock(mutex_);
        if (newcomers_.empty())
            return false;
        listener_ = newcomers_.front();
        newcomers_.erase(newcomers_.begin());
        return true;
    }
    void serve_status()
    {
        for (; !ending_; usleep(200)) {
            const std::scoped_lock lock(mutex_);
            if (is_readable(hub_))
                newcomers_.push_back(accept4(hub_, nullptr, nullptr, SOCK_CLOEXEC));
            std::erase_if(newcomers_, [this](int fd) { return serve_newcomer(fd); });
        }
    }
    /// Sends the answer to the asker as the hub does, if the asker takes answers.
    void tell_answer(const at_cmd_msg &reply, std::string_view text)
    {
        const std::scoped_lock lock(mutex_);
        const std::string final_result = vlk_final_result(reply.snd_rcv_msg.ret_val);
        if (answers_ < 0 || has_hung_up(answers_) || reply.snd_rcv_msg.ret_val <= 0)
            return;
        host_packet packet{};
        packet.kind = HOST_ANSWER_TEXT;
        packet.code = reply.seq;
        packet.value1 = reply.Id;
        packet.value2 = HOST_ANSWER_OWN;
        send_to(answers_, packet, "\r\n" + std::string(text) + "\r\n\r\n" + final_result + "\r\n");
    }
    /// Whether the newcomer is done with: it got the status or hung up and was closed, or it takes answers.
    bool serve_newcomer(int fd)
    {
        host_packet packet{};
        recv(fd, &packet, sizeof packet, MSG_PEEK | MSG_DONTWAIT);
        if (packet.kind != HOST_SUBSCRIBE || packet.value1 != HOST_TAKE_ANSWERS)
            return answer_status(fd);
        recv(fd, &packet, sizeof packet, 0);
        packet.kind = HOST_SUBSCRIBED;
        send_to(fd, packet, "");
        close(std::exchange(answers_, fd));
        return true;
    }
    bool answer_status(int fd) const
    {
        host_packet packet{};
        const ssize_t size = recv(fd, &packet, sizeof packet, MSG_PEEK | MSG_DONTWAIT);
        if (size == 0)
            close(fd);
        if (size < ssize_t{sizeof packet} || packet.kind != HOST_ASK_STATUS)
            return size == 0;
        recv(fd, &packet, sizeof packet, 0);
        host_packet answer{};
        answer.kind = HOST_STATUS;
        send_to(fd, answer, "daemon.pid 4711\n" + modem_ + "clients.waiting 3\n");
        close(fd);
        return true;
    }

    std::mutex mutex_; ///< of the next three
    std::string modem_ = "modem.state ready\n";
    std::vector<int> newcomers_; ///< at the hub
    int answers_ = -1;           ///< the listener that takes answers

    std::vector<int> clients_;
    int asker_ = -1;
    int commands_ = -1;
    int hub_ = -1;
    int listener_ = -1;
    std::atomic<bool> ending_{false};
    std::thread status_thread_;
};

#endif
