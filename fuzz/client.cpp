// A client's 1636 bytes through the client service, with a modem that answers anything.
// Input: the record's seven numbers, cmd_len, match, command; modem data that waits already; deliveries.
#include <cstring>

#include "fuzz_daemon.h"
#include "text_helpers.h"
#include "vlk_queues.h"
#include "vorlink/client_service.h"

namespace
{

constexpr int64_t NETWORK_LIST_MS = 240'000;

at_cmd_msg take_request(fuzz_input &in)
{
    at_cmd_msg msg{};
    in.take(offsetof(at_cmd_msg, at_match_str)).copy(reinterpret_cast<char *>(&msg), sizeof msg);
    std::string_view length = in.take(sizeof msg.cmd_len);
    if (length.size() == sizeof msg.cmd_len)
        std::memcpy(&msg.cmd_len, length.data(), sizeof msg.cmd_len);
    in.take_part().copy(msg.at_match_str, sizeof msg.at_match_str);
    in.take_part().copy(msg.snd_rcv_msg.cmd, sizeof msg.snd_rcv_msg.cmd);
    return msg;
}

bool carries_command(const at_cmd_msg &msg)
{
    return msg.req_type == AT_COMMAND || msg.req_type == AT_RAW_COMMAND;
}

bool is_answered(const at_cmd_msg &msg)
{
    if (carries_command(msg))
        return At_strncasecmp(msg.snd_rcv_msg.cmd, "AT", 2) == 0;
    return msg.req_type != ACTIVE_REPORT && msg.req_type != AT_UNANSWERED;
}

/// How long others may have to wait for this request: each of the two phases of an SMS has the whole time limit.
int64_t longest_ms(const at_cmd_msg &msg)
{
    if (msg.req_type == AT_COMMAND)
        return 2 * budget_ms(msg.timeout);
    if (msg.req_type == AT_RAW_COMMAND)
        return std::max(budget_ms(msg.timeout), NETWORK_LIST_MS);
    return msg.req_type == ACTIVE_REPORT ? budget_ms(msg.timeout) : 0;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    fuzz_input in(data, size);
    const at_cmd_msg request = take_request(in);
    restart_daemon();
    fake::stop_recording();
    fake::deliver(in.take_part());
    schedule_deliveries(in);
    fake::put(VLK_QUEUE_CLIENT_REQUEST, {reinterpret_cast<const char *>(&request), sizeof request});
    const int64_t start = fake::now_ms();

    int retcode = 0;
    at_process_client_msg(&retcode);

    check_stream_order();
    require(fake::now_ms() - start <= longest_ms(request),
            "nobody waits longer than the request's time limit");
    require(fake::queued(VLK_QUEUE_CLIENT_REQUEST).empty(), "a request is taken once");
    const std::vector<std::string> replies = fake::queued(VLK_QUEUE_CLIENT_REPLY);
    require(replies.size() == (is_answered(request) ? 1U : 0U),
            "a request has one reply, or is of a kind without");
    if (replies.empty())
        return 0;
    at_cmd_msg reply{};
    require(replies[0].size() == sizeof reply, "a reply is a whole record");
    std::memcpy(&reply, replies[0].data(), sizeof reply);
    check_reply(request, reply);
    require(reply.snd_rcv_msg.rsp_len <= MAX_ATCMD_REPORT_SIZE,
            "a client is told of no more than there is room for");
    return 0;
}
