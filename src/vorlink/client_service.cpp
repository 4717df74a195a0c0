#include "client_service.h"

#include <algorithm>

#include "at_words.h"
#include "bounded.h"
#include "engine/command_transaction.h"
#include "engine/record_text.h"
#include "engine/response_assembly.h"
#include "engine/sms_transaction.h"
#include "service_ids.h"
#include "stored_report.h"
#include "text_helpers.h"
#include "vlk_msgq.h"
#include "vorlink_trace.h"

namespace
{

constexpr int32_t NETWORK_LIST_TIMEOUT = 240; // seconds
constexpr int UNKNOWN_REPORT = 1;             // error code

bool is_at_command(const at_cmd_msg &msg)
{
    return At_strncasecmp(msg.snd_rcv_msg.cmd, "AT", 2) == 0;
}

/// Takes at most one record of pending modem data into the stream, for the next parse.
int take_pending_data(const at_cmd_msg &msg, int *retcode)
{
    at_cmd_msg work = msg;
    if (snprintf_s(work.at_match_str, sizeof work.at_match_str, sizeof work.at_match_str - 1, "%.*s",
                   static_cast<int>(sizeof msg.at_match_str), msg.at_match_str) < 0)
        return -1;
    return read_from_smd(&work, retcode);
}

int refuse_request(at_cmd_msg &msg)
{
    clear_response_block(msg);
    msg.snd_rcv_msg.ret_val = AT_COMMAND_NOT_SUPPORT;
    return 0;
}

int serve_request(at_cmd_msg &msg, int *retcode)
{
    switch (msg.req_type) {
    case AT_COMMAND:
        if (at_cmd_is_smssw(msg.snd_rcv_msg.cmd) == 0)
            return at_send_or_save_msg(&msg, retcode);
        return at_send_normal_cmd_msg(&msg, retcode);
    case AT_RAW_COMMAND:
        if (at_asks_for_network_list(command_text(msg)))
            msg.timeout = NETWORK_LIST_TIMEOUT;
        return at_send_normal_cmd_msg(&msg, retcode);
    case ACTIVE_REPORT:
        return take_pending_data(msg, retcode);
    case AT_STORED_REPORT:
        return get_report(&msg, retcode);
    default:
        return refuse_request(msg);
    }
}

} // namespace

int at_process_client_msg(int *retcode)
{
    if (retcode == nullptr) {
        trace(ERROR, "retcode is NULL!\n");
        return -1;
    }
    at_cmd_msg msg{};
    if (read_from_msgqueue(g_clientReqQid, &msg, 0, retcode) == -1)
        return -1;
    trace(PROGRESS, "Client AT cmd= ***, Id= %ld, seq = %u\n", static_cast<long>(msg.Id), msg.seq);

    const bool carries_command = msg.req_type == AT_COMMAND || msg.req_type == AT_RAW_COMMAND;
    if (carries_command && !is_at_command(msg))
        return -1; // dropped: no reply

    const int result = serve_request(msg, retcode);
    if (result == -1)
        trace(ERROR, "send_to_msgqueue the cmd rsp error ,retcode = < %d>!\n", *retcode);
    if (msg.req_type == ACTIVE_REPORT || msg.req_type == AT_UNANSWERED)
        return result;

    // A request that ended before anything was received still holds bytes of its command in rsp_len.
    msg.snd_rcv_msg.rsp_len = std::min<uint32_t>(msg.snd_rcv_msg.rsp_len, MAX_ATCMD_REPORT_SIZE);
    const int sent = send_to_msgqueue(g_clientRspQid, &msg, retcode);
    if (sent == -1)
        trace(ERROR, "send_to_msgqueue the cmd rsp error ,retcode = < %d>!\n", *retcode);
    return sent;
}

int get_report(at_cmd_msg *pmsg, int *retcode)
{
    if (pmsg == nullptr || retcode == nullptr) {
        trace(ERROR, "get_report:error, pmsg is null!\n");
        return -1;
    }
    *retcode = 0;
    trace(PROGRESS, "pmsg->rep_type = %d!\n", static_cast<int>(pmsg->rep_type));
    clear_response_block(*pmsg);
    if (pmsg->rep_type != AT_REPORT_RSSI) {
        *retcode = UNKNOWN_REPORT;
        return -1;
    }
    put_response_block(*pmsg, g_rssiReportBuf);
    return 0;
}
