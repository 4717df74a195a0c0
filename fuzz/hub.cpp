// The hub's packets, both ends: what services send to the daemon's hub, and what the client library reads from one.
// No threads: what the door calls is called here. Input: which end; then steps: a byte (who, what), two bytes
// with a length, and a packet of that many bytes.
#include "host/hub.cpp" // what the door calls

#include <filesystem>
#include <set>
#include <string>

#include <sys/un.h>

#include "door_stand_in.h"
#include "fuzz.h"
#include "vlk_client.h"

namespace
{

constexpr size_t SERVICES = 4;

/// The folder in which both ends meet, with a listening socket.
class meeting_place
{
public:
    meeting_place()
    {
        char name[] = "/tmp/fuzz_hub.XXXXXX";
        require(mkdtemp(name) != nullptr, "there is a folder");
        folder = name;
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (folder + "/" + HOST_HUB_NAME).copy(address.sun_path, sizeof address.sun_path - 1);
        fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        require(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
                    listen(fd, 8) == 0,
                "there is a socket");
    }
    ~meeting_place()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    vlk_hub *connect() const
    {
        const vlk_place place = {folder.c_str()};
        vlk_hub *hub = nullptr;
        require(vlk_hub_open(&hub, &place) == VLK_OK, "a service connects");
        return hub;
    }
    int accept() const
    {
        const int accepted = accept4(fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        require(accepted >= 0, "the hub accepts");
        return accepted;
    }

    std::string folder;
    int fd = -1;
};

struct step {
    explicit step(fuzz_input &in)
    {
        const uint8_t first = in.take_byte();
        who = first % SERVICES;
        what = first / SERVICES % 4;
        const size_t low = in.take_byte();
        bytes = in.take(low + 256U * in.take_byte());
        bytes.copy(reinterpret_cast<char *>(&packet), sizeof packet);
    }

    /// Whether the bytes are one whole packet.
    bool is_whole() const
    {
        return bytes.size() >= sizeof(host_packet) && bytes.size() <= sizeof packet &&
               bytes.size() == sizeof(host_packet) + packet.header.length;
    }

    size_t who;
    size_t what;
    std::string_view bytes;
    received_packet packet{};
};

/// What the hub should know about a service.
struct service {
    vlk_hub *hub = nullptr;
    int slot = -1;
    bool takes_all = false;
    std::set<int32_t> modules;
    std::set<std::string> names;

    bool takes(const host_packet &header) const
    {
        if (takes_all)
            return true;
        return header.kind == HOST_BUS_MESSAGE ? names.contains(header.name)
                                               : modules.contains(header.module);
    }
};

int handled = 0; // packets that reached a handler

void answer(const host_packet *header, const void *data, int reply_to)
{
    ++handled;
    const auto *const bytes = static_cast<const char *>(data);
    require(memchr(header->name, '\0', sizeof header->name) != nullptr, "a handler sees a terminated name");
    require(std::all_of(bytes + header->length, bytes + HOST_DATA_MAX, [](char c) { return c == '\0'; }),
            "a handler sees zeros behind the data");
    host_packet reply = *header;
    reply.kind = HOST_SYNC_REPLY;
    hub_reply(reply_to, reply, data);
}

/// The packets that wait for a service; the latest in *last.
int received(const service &who, host_packet *last)
{
    int count = 0;
    received_packet packet;
    while (recv(vlk_hub_fd(who.hub), &packet, sizeof packet, MSG_DONTWAIT) >=
           static_cast<ssize_t>(sizeof *last)) {
        *last = packet.header;
        ++count;
    }
    return count;
}

/// Whether the hub should accept a subscription; notes it.
bool note_subscription(service &who, const host_packet &header)
{
    host_packet asked = header;
    asked.kind = header.value1 == HOST_TAKE_NAME ? HOST_BUS_MESSAGE : HOST_EVENT;
    if (header.value1 == HOST_TAKE_ALL)
        who.takes_all = true;
    else if (header.value1 == HOST_TAKE_LINES || header.value1 == HOST_TAKE_ANSWERS)
        return true; // none of them are posted here
    else if (!who.takes(asked) && header.value1 == HOST_TAKE_NAME)
        who.names.insert(header.name);
    else if (!who.takes(asked))
        who.modules.insert(header.module);
    return who.names.size() <= NAMES_MAX && who.modules.size() <= MODULES_MAX;
}

/// Whether the service that sends this may stay.
bool is_welcome(service &who, const step &now)
{
    const host_packet &header = now.packet.header;
    if (!now.is_whole() || memchr(header.name, '\0', HOST_NAME_SIZE) == nullptr)
        return false;
    if (header.kind != HOST_SUBSCRIBE)
        return header.kind == HOST_BUS_SEND || header.kind == HOST_SYNC_REQUEST ||
               header.kind == HOST_ASK_STATUS;
    return header.value1 >= HOST_TAKE_MODULE && header.value1 <= HOST_TAKE_ANSWERS &&
           note_subscription(who, header);
}

void send_to_hub(service &who, const step &now)
{
    if (send(vlk_hub_fd(who.hub), now.bytes.data(), now.bytes.size(), MSG_NOSIGNAL) < 0)
        return;
    const int before = listener_count;
    const int handled_before = handled;
    const bool welcome = is_welcome(who, now);
    read_listener(who.slot);
    require(listener_count == (welcome ? before : before - 1),
            "who breaks the rules is disconnected, no one else");
    host_packet got{};
    require(received(who, &got) == (welcome ? 1 : 0), "every accepted packet is answered once");
    if (welcome && now.packet.header.kind == HOST_SUBSCRIBE)
        require(handled == handled_before && got.kind == HOST_SUBSCRIBED &&
                    got.module == now.packet.header.module && got.value1 == now.packet.header.value1,
                "a subscription is answered as asked");
    if (!welcome) {
        vlk_hub_close(who.hub);
        who = {};
    }
}

void post(std::array<service, SERVICES> &services, const step &now)
{
    host_packet header = now.packet.header;
    header.kind = HOST_EVENT + now.packet.header.kind % 3;
    header.name[HOST_NAME_SIZE - 1] = '\0';
    const size_t data_size = now.bytes.size() - std::min(now.bytes.size(), sizeof header);
    const bool fits = header.length <= HOST_DATA_MAX;
    if (fits)
        header.length = static_cast<uint32_t>(std::min<size_t>(data_size, HOST_DATA_MAX));
    require(hub_post(header, now.packet.data) == (fits ? 0 : -1), "what fits a packet is posted");
    for (service &who : services) {
        host_packet got{};
        const bool wants = fits && who.hub != nullptr && who.takes(header);
        require(who.hub == nullptr || received(who, &got) == (wants ? 1 : 0),
                "subscribers get a packet, no one else");
        require(!wants || (got.length == header.length && got.missed == 0), "it arrives whole");
    }
}

void run_daemon_end(const meeting_place &place, fuzz_input &in)
{
    hub_set_handler(HOST_BUS_SEND, answer);
    hub_set_handler(HOST_SYNC_REQUEST, answer);
    std::array<service, SERVICES> services;
    while (!in.empty()) {
        const step now(in);
        service &who = services[now.who];
        if (who.hub == nullptr) {
            who.hub = place.connect();
            require(open_listener(place.accept()) == 0, "there is room");
            who.slot = opened_slot;
        }
        if (now.what % 2 == 0)
            send_to_hub(who, now);
        else
            post(services, now);
    }
    for (service &who : services) {
        if (who.hub == nullptr)
            continue;
        vlk_hub_close(who.hub);
        read_listener(who.slot);
    }
    require(listener_count == 0, "who leaves is forgotten");
}

void check_packet(const vlk_packet &packet)
{
    require(packet.length <= HOST_DATA_MAX && packet.data != nullptr, "a packet's data fits");
    require(memchr(packet.name, '\0', sizeof packet.name) != nullptr, "a packet's name is terminated");
    volatile uint8_t sum = 0; // every byte can be read
    for (uint32_t i = 0; i < packet.length; ++i)
        sum = static_cast<uint8_t>(sum + static_cast<const uint8_t *>(packet.data)[i]);
}

void run_client_end(const meeting_place &place, fuzz_input &in)
{
    vlk_hub *const hub = place.connect();
    const int daemon = place.accept();
    while (!in.empty()) {
        const step now(in);
        vlk_packet packet{};
        int result = VLK_OK;
        switch (now.what) {
        case 0:
            send(daemon, now.bytes.data(), now.bytes.size(), MSG_NOSIGNAL);
            continue;
        case 1:
            while ((result = vlk_hub_receive(hub, &packet, 0)) == VLK_OK)
                check_packet(packet);
            break;
        case 2:
            result = vlk_hub_take_module(hub, 7, 0);
            break;
        default:
            result = vlk_hub_request(hub, 40, 7, "data", 4, &packet, 0);
            if (result == VLK_OK)
                check_packet(packet);
            break;
        }
        require(result == VLK_OK || result == VLK_TIMEOUT || result == VLK_MISMATCH ||
                    result == VLK_NOT_RUNNING,
                "a failure is the daemon's");
        require(result == VLK_OK || vlk_last_error()[0] != '\0', "a failure is explained");
    }
    close(daemon);
    vlk_hub_close(hub);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    static const meeting_place place;
    host_settings_as_read.log_level = -1; // nothing is printed
    fuzz_input in(data, size);
    if (in.take_byte() % 2 == 0)
        run_daemon_end(place, in);
    else
        run_client_end(place, in);
    return 0;
}
