// Requests through the daemon's socket.
#include "vlk_client.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "answer_text.h"
#include "daemon_place.h"
#include "futex_word.h"
#include "last_error.h"

static_assert(sizeof(vlk_status::runtime_dir) >= HOST_FOLDER_SIZE);

namespace
{
constexpr int32_t STATUS_LIMIT_MS = 5000;
constexpr int64_t MODEM_LOOK_NS = 100'000'000; // between two looks at a modem that is waited for
constexpr int PATIENCE_MIN_MS = 64;            // the kernel may round a receive's own time limit up by 10 ms
constexpr std::array<const char *, 4> MODEM_TEXTS = {"absent", "silent", "ready", "released"};

using hub_handle = std::unique_ptr<vlk_hub, decltype(&vlk_hub_close)>;

/// Counts the forks that led to this process. A process id would show a child, too, but costs a system call.
std::atomic<uint32_t> g_forks;

bool count_forks()
{
    static const bool counted = pthread_atfork(nullptr, nullptr, [] { ++g_forks; }) == 0;
    return counted;
}
} // namespace

struct vlk_client {
    host_paths paths{};
    int fd = -1;
    uint32_t forks = g_forks; // that led to the process that opened it
    uint32_t seq = 0;         // of the last request
    int patience_ms = 0;      // the socket's own time limit, 0: none is set
    bool modem_seen = false;  // ready, since the connection was made
    bool holds = false;       // a reply that came before the one that was waited for
    at_cmd_msg held{};
    hub_handle answers{nullptr, vlk_hub_close}; // takes the answers to its commands

    ~vlk_client() { disconnect(); }

    void disconnect()
    {
        if (fd >= 0)
            close(fd);
        fd = -1;
        patience_ms = 0;
        holds = modem_seen = false;
    }
};

namespace
{
int check_owner(const vlk_client &client)
{
    if (client.forks == g_forks)
        return VLK_OK;
    return fail(VLK_INVALID, "this client was opened by another process");
}

/// The value of a line "name value", empty without one.
std::string_view value_of(std::string_view text, std::string_view name)
{
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        if (line.size() > name.size() && line.starts_with(name) && line[name.size()] == ' ')
            return line.substr(name.size() + 1);
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
    return {};
}

uint32_t number_of(std::string_view text, std::string_view name)
{
    const std::string_view value = value_of(text, name);
    uint32_t number = 0;
    std::from_chars(value.data(), value.data() + value.size(), number);
    return number;
}

uint32_t modem_of(std::string_view text)
{
    const std::string_view state = value_of(text, "modem.state");
    const auto found = std::find(MODEM_TEXTS.begin(), MODEM_TEXTS.end(), state);
    return static_cast<uint32_t>(found - MODEM_TEXTS.begin());
}

void copy_value(std::string_view text, std::string_view name, char *to, size_t size)
{
    to[value_of(text, name).copy(to, size - 1)] = '\0';
}

/// Asks the daemon in that folder. A vlk_result.
int ask_status(const host_paths &paths, vlk_status *status, char *text, size_t size)
{
    const vlk_place place{paths.folder};
    vlk_hub *opened = nullptr;
    int result = vlk_hub_open(&opened, &place);
    const hub_handle hub(opened, vlk_hub_close);
    if (result == VLK_OK)
        result = vlk_hub_status(hub.get(), text, size, STATUS_LIMIT_MS);
    if (result != VLK_OK)
        return result;
    status->pid = static_cast<int32_t>(number_of(text, "daemon.pid"));
    status->modem = modem_of(text);
    status->modem_seconds = number_of(text, "modem.for_s");
    status->waiting = number_of(text, "clients.waiting");
    copy_value(text, "daemon.device", status->device, sizeof status->device);
    copy_value(text, "modem.reason", status->reason, sizeof status->reason);
    copy_value(text, "running.command", status->running, sizeof status->running);
    return VLK_OK;
}

int connect_client(vlk_client &client)
{
    return client.fd >= 0 ? VLK_OK : connect_to_daemon(client.paths, HOST_COMMANDS_NAME, &client.fd);
}

/// Without a modem, requests would wait for as long as their clients do: the clients learn it at once instead.
int check_modem(vlk_client &client, int64_t deadline)
{
    while (!client.modem_seen) {
        vlk_status status{};
        std::array<char, VLK_STATUS_TEXT_SIZE> text;
        if (const int failed = ask_status(client.paths, &status, text.data(), text.size()))
            return failed;
        client.modem_seen = status.modem == VLK_MODEM_READY;
        if (client.modem_seen)
            break;
        if (deadline != NO_DEADLINE && monotonic_ns() + MODEM_LOOK_NS >= deadline)
            return fail(VLK_NO_MODEM, "the modem is %s%s%s", vlk_modem_text(status.modem),
                        status.reason[0] != '\0' ? ": " : "", status.reason);
        poll(nullptr, 0, MODEM_LOOK_NS / 1'000'000);
    }
    return VLK_OK;
}

int send_before(vlk_client &client, at_cmd_msg *request, int64_t deadline)
{
    if (const int failed = check_owner(client))
        return failed;
    if (const int failed = connect_client(client))
        return failed;
    const bool needs_modem = request->req_type == AT_COMMAND || request->req_type == AT_RAW_COMMAND;
    if (needs_modem && !client.modem_seen)
        if (const int failed = check_modem(client, 0))
            return failed;
    request->seq = ++client.seq;
    while (send(client.fd, request, sizeof *request, MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN)
            return explain_failure(client.paths, HOST_COMMANDS_NAME, errno);
        pollfd writable = {client.fd, POLLOUT, 0};
        if (poll(&writable, 1, poll_time(deadline)) == 0)
            return fail(VLK_TIMEOUT, "the daemon in %s took no more requests in time", client.paths.folder);
    }
    return VLK_OK;
}

/// Whether a receive may wait by itself, which spares two system calls: for a power of two of milliseconds, at most half
/// of what is left, so that the limit is seldom another one than the socket has.
bool may_wait_in_receive(vlk_client &client, int64_t deadline)
{
    const int left_ms = poll_time(deadline);
    if (left_ms >= 0 && left_ms < PATIENCE_MIN_MS)
        return false;
    const int patience_ms = static_cast<int>(std::bit_floor(static_cast<unsigned>(left_ms) / 2));
    if (client.patience_ms != patience_ms) {
        const timeval limit = {patience_ms / 1000, patience_ms % 1000 * suseconds_t{1000}};
        if (setsockopt(client.fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0)
            return false;
        client.patience_ms = patience_ms;
    }
    return true;
}

/// The next reply, into `held`. A vlk_result.
int receive_before(vlk_client &client, int64_t deadline)
{
    int flags = may_wait_in_receive(client, deadline) ? 0 : MSG_DONTWAIT;
    for (;; flags = MSG_DONTWAIT) {
        const ssize_t size = recv(client.fd, &client.held, sizeof client.held, flags);
        if (size == ssize_t{sizeof client.held})
            return VLK_OK;
        if (size == 0)
            return daemon_has_gone(client.paths);
        if (size > 0)
            return fail(VLK_MISMATCH, "the daemon in %s sent a reply of an unknown layout",
                        client.paths.folder);
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN)
            return explain_failure(client.paths, HOST_COMMANDS_NAME, errno);
        pollfd readable = {client.fd, POLLIN, 0};
        if (poll(&readable, 1, poll_time(deadline)) == 0)
            return fail(VLK_TIMEOUT, "no reply in time");
    }
}

int wait_before(vlk_client &client, uint32_t seq, at_cmd_msg *reply, int64_t deadline)
{
    if (const int failed = check_owner(client))
        return failed;
    if (client.fd < 0)
        return fail(VLK_INVALID, "no request is under way");
    for (;;) {
        if (!client.holds)
            if (const int failed = receive_before(client, deadline))
                return failed;
        client.holds = true;
        const auto ahead = static_cast<int32_t>(client.held.seq - seq);
        if (ahead > 0)
            return fail(VLK_TIMEOUT, "the request was not answered, but a later one was");
        client.holds = false;
        if (ahead < 0)
            continue;
        *reply = client.held;
        return VLK_OK;
    }
}

int open_client(vlk_client &client, const vlk_place *place)
{
    if (!count_forks())
        return fail(VLK_SYSTEM, "out of memory");
    if (const int failed = find_folder(place, &client.paths))
        return failed;
    return connect_client(client);
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
    delete client;
}

int vlk_client_fd(const vlk_client *client)
{
    return client == nullptr ? -1 : client->fd;
}

int open_answers_hub(vlk_client *client, vlk_hub **hub)
{
    constexpr int32_t LIMIT_MS = 5000;
    *hub = client->answers.get();
    if (*hub != nullptr)
        return VLK_OK;
    const vlk_place place{client->paths.folder};
    vlk_hub *opened = nullptr;
    int result = vlk_hub_open(&opened, &place);
    hub_handle answers(opened, vlk_hub_close);
    if (result == VLK_OK)
        result = vlk_hub_take_answers(opened, LIMIT_MS);
    if (result != VLK_OK)
        return result;
    client->answers = std::move(answers);
    *hub = opened;
    return VLK_OK;
}

void drop_answers_hub(vlk_client *client)
{
    client->answers.reset();
}

int vlk_wait_modem(vlk_client *client, int32_t limit_ms)
{
    if (client == nullptr)
        return fail(VLK_INVALID, "no client");
    return check_modem(*client, deadline_after(limit_ms));
}

uint32_t vlk_client_modem(const vlk_client *client)
{
    vlk_status status{};
    std::array<char, VLK_STATUS_TEXT_SIZE> text;
    if (client != nullptr)
        ask_status(client->paths, &status, text.data(), text.size());
    return status.modem;
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
    int result = send_before(*client, request, deadline);
    if (result == VLK_OK)
        result = wait_before(*client, request->seq, reply, deadline);
    if (result == VLK_TIMEOUT)
        client->disconnect(); // which withdraws the request
    return result;
}

int vlk_get_status(const vlk_place *place, vlk_status *status)
{
    std::array<char, VLK_STATUS_TEXT_SIZE> text;
    return vlk_get_status_text(place, status, text.data(), text.size());
}

int vlk_get_status_text(const vlk_place *place, vlk_status *status, char *text, size_t size)
{
    if (status == nullptr || text == nullptr || size == 0)
        return fail(VLK_INVALID, "no place for the status");
    *status = vlk_status{};
    host_paths paths{};
    if (const int failed = find_folder(place, &paths))
        return failed;
    std::strcpy(status->runtime_dir, paths.folder);
    return ask_status(paths, status, text, size);
}

const char *vlk_modem_text(uint32_t modem)
{
    return modem < MODEM_TEXTS.size() ? MODEM_TEXTS[modem] : "unknown";
}
