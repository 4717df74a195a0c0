// A client of the soak test, or its listener: soak_client client SEED, soak_client listener SEED. They run until they
// find something wrong, which standard error tells, or the board says stop.
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include "vlk_client.h"

namespace
{
using fault = std::runtime_error;
using word = std::atomic<uint32_t>;

constexpr int32_t PATIENCE_MS = 60'000;
constexpr int32_t RADIO_MODULE = 19; // its event tells ^HCSQ, whose first value is at offset 4

/// The file that all processes write what they see to: modem.py knows it too.
struct soak_board {
    word stop, daemon, line, listener, asks, requests, answered, silent, away, reports, heard, last_heard,
        missed, unplugs;
    std::array<std::atomic<bool>, 1U << 20U> accounted;
};

constexpr int ACCESS = PROT_READ | PROT_WRITE;
void *const memory =
    mmap(nullptr, sizeof(soak_board), ACCESS, MAP_SHARED, open("board", O_RDWR | O_CLOEXEC), 0);
soak_board &board = *static_cast<soak_board *>(memory);

/// Whether what comes and goes has been there all the time.
bool stayed(const word &turns, uint32_t since)
{
    return since % 2 == 1 && turns == since;
}

/// Chance that is the same for the same seed.
std::mt19937 chance;
uint32_t below(size_t end)
{
    return static_cast<uint32_t>(chance() % end);
}

/// What a client asks and what comes back. # is the request's number.
struct ask {
    const char *text; ///< a command, the PDU of a message, or nothing: asks for the stored report
    const char *expected;
    vlk_mode mode;
    int32_t result;
    const char *response;
};

constexpr ask ASKS[] = {
    {"AT+CSOAK=#", "+CSOAK:", VLK_PLAIN, AT_OK, "+CSOAK: #"},
    {"AT+CRAW=#", "", VLK_RAW, AT_OK, "+CRAW: #\r\n\r\nOK\r\n"},
    {"AT+CTWO=#", "+CTWO:", VLK_MULTI_LINE, AT_OK, "+CTWO: #,1\r\n+CTWO: #,2\r\n"},
    {"AT+CWRONG=#", "", VLK_PLAIN, AT_CME_ERROR, "+CME ERROR: #"},
    {"AT+CMUTE=#", "", VLK_PLAIN, AT_NONE, ""},
    {"0011000B911032547698F00000AA04#", "", VLK_PLAIN, AT_OK, "+CMGS: #"},
    {"", "", VLK_PLAIN, AT_OK, "^RSSI: 0"}, // the modem never reports another
};

std::string numbered(std::string text, uint32_t number)
{
    for (size_t at; (at = text.find('#')) != text.npos;)
        text.replace(at, 1, std::to_string(number));
    return text;
}

/// Right only when the daemon has gone.
struct no_service : fault {
    explicit no_service(const std::string &what) : fault(what + ": " + vlk_last_error()) {}
};

struct request {
    const ask &row = ASKS[below(std::size(ASKS))];
    uint32_t number = ++board.asks;
    uint32_t line = board.line; ///< when it was sent
    at_cmd_msg record{};

    std::string text() const { return numbered(row.text, number); }
};

void fill(request &made)
{
    const auto timeout = static_cast<int32_t>(made.row.result == AT_NONE ? below(40) / 39 : 8 + below(5));
    const std::string text = made.text();
    if (text.empty())
        vlk_fill_rssi(&made.record);
    else if (text.starts_with("AT"))
        vlk_fill_command(&made.record, text.c_str(), made.row.expected, made.row.mode, timeout);
    else
        vlk_fill_sms(&made.record, VLK_SMS_SEND, text.c_str(), timeout);
}

/// The reply is this request's own, and as the table says or because the modem was unplugged.
void judge(const request &sent, const at_cmd_msg &reply)
{
    const int32_t result = reply.snd_rcv_msg.ret_val;
    const std::string response(reply.snd_rcv_msg.rmsg, vlk_response_length(&reply));
    const bool is_own = reply.Id == sent.record.Id && reply.seq == sent.record.seq;
    const bool was_away = *sent.row.text != '\0' && !stayed(board.line, sent.line);
    if (is_own && result == sent.row.result && response == numbered(sent.row.response, sent.number))
        ++(result == AT_NONE ? board.silent : board.answered);
    else if (is_own && was_away && (result == AT_NO_CARRIER || result == AT_COMMAND_NOT_SUPPORT))
        ++board.away;
    else
        throw fault((is_own ? "a wrong reply to request " : "a foreign reply to request ") +
                    std::to_string(sent.number) + " " + sent.text() + ": result " + std::to_string(result) +
                    ", " + response);
}

struct client {
    bool is_raw = below(2) == 0; ///< takes replies below the library, which would drop a wrong one
    vlk_client *handle = nullptr;
    uint32_t daemon = 0; ///< when this client came, or last was answered

    void open()
    {
        daemon = board.daemon;
        if (vlk_open(&handle, nullptr) != VLK_OK)
            throw no_service("a client was turned away");
    }

    void ask_and_hear() const
    {
        std::vector<request> sent(1 + below(4));
        for (request &next : sent) {
            fill(next);
            next.record.Id = static_cast<int32_t>(chance());
            int result = vlk_send(handle, &next.record, PATIENCE_MS);
            if (result == VLK_NO_MODEM && vlk_wait_modem(handle, PATIENCE_MS) == VLK_OK)
                result = vlk_send(handle, &next.record, PATIENCE_MS);
            if (result != VLK_OK)
                throw no_service("no room for " + next.text());
            ++board.requests;
        }
        for (const request &next : sent)
            judge(next, reply_to(next));
        at_cmd_msg more;
        if (recv(vlk_client_fd(handle), &more, sizeof more, MSG_DONTWAIT) > 0)
            throw fault("a reply too many");
    }

    at_cmd_msg reply_to(const request &sent) const
    {
        at_cmd_msg got{};
        alarm(2 * PATIENCE_MS / 1000); // ends a process that waits below the library
        if (is_raw ? recv(vlk_client_fd(handle), &got, sizeof got, 0) != ssize_t{sizeof got}
                   : vlk_wait(handle, sent.record.seq, &got, PATIENCE_MS) != VLK_OK)
            throw no_service("no reply to " + sent.text());
        alarm(0);
        return got;
    }

    void play()
    {
        while (board.stop == 0 || board.line % 2 == 0)
            try {
                if (handle == nullptr)
                    open();
                const uint32_t before = board.daemon;
                ask_and_hear();
                daemon = before;
                usleep(below(4000));
            } catch (const no_service &) {
                if (stayed(board.daemon, daemon))
                    throw;
                vlk_close(handle);
                handle = nullptr;
                usleep(5000);
            }
    }
};

[[noreturn]] void listen_to_reports()
{
    for (;; usleep(5000)) {
        vlk_hub *hub = nullptr;
        vlk_packet packet;
        if (vlk_hub_open(&hub, nullptr) == VLK_OK && vlk_hub_take_module(hub, RADIO_MODULE, 5000) == VLK_OK)
            ++board.listener;
        while (board.listener % 2 == 1 && vlk_hub_receive(hub, &packet, -1) == VLK_OK) {
            uint32_t number = 0;
            memcpy(&number, static_cast<const char *>(packet.data) + 4, sizeof number);
            if (number <= board.last_heard || number > board.reports)
                throw fault("report " + std::to_string(number) + " heard after a later one, or never sent");
            board.accounted[number] = true;
            board.last_heard = number;
            board.missed += packet.missed;
            ++board.heard;
        }
        board.listener += board.listener % 2;
        vlk_hub_close(hub);
    }
}
} // namespace

int main(int argc, char **argv)
try {
    if (argc != 3)
        throw fault("tests/soak runs this");
    chance.seed(static_cast<uint32_t>(std::stoul(argv[2])));
    if (argv[1] == std::string("listener"))
        listen_to_reports();
    static client self; // made after the seed
    self.play();
} catch (const std::exception &broken) {
    fprintf(stderr, "soak: %s\n", broken.what());
    return EXIT_FAILURE;
}
