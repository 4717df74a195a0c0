#include "response_assembly.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "bounded.h"
#include "line_texts.h"
#include "nas_data_queue.h"
#include "rcv_stream.h"
#include "recognition.h"
#include "record_text.h"
#include "response_collection.h"
#include "service_ids.h"
#include "vlk_msgq.h"
#include "vlk_register.h"
#include "vorlink_trace.h"

namespace
{

int result_found = 0; // 1 once a final result has been processed in the current parse_response

enum line_kind {
    CARD_STATE_NOTICE,
    EXPECTED_LINE,
    FINAL_RESULT,
    REPORT,
    RESPONSE_LINE
};

/// What a line is; code: of a final result; row: of a report that the table names.
struct line_meaning {
    line_kind kind;
    int32_t code = AT_NONE;
    const vlk_report_row *row = nullptr;
};

enum pass_step {
    NEXT_LINE,
    END_OF_PASS
};

int32_t wait_milliseconds(int32_t seconds)
{
    constexpr int32_t longest = std::numeric_limits<int32_t>::max();
    if (seconds <= 0)
        return 0;
    return seconds > longest / 1000 ? longest : seconds * 1000;
}

/// Receives a record into the empty stream. Returns 0, -1 when none came.
int receive_record(int32_t wait_ms)
{
    const int stored = VLK_msgQ_recv(g_nasDataQid, g_atSmStream.rcv_buf, sizeof(nas_data_rec), wait_ms);
    if (stored == -1) {
        trace(MINOR, "No data from NAS!\n");
        return -1;
    }
    const int length = at_sm_accept_record(stored);
    trace(PROGRESS, "Read NAS data length %d, Content is :***\n", length);
    return 0;
}

/// Asks the questions in their fixed order: the order is the protocol. Does nothing about the answer yet.
line_meaning classify_line(const at_cmd_msg &msg, const char *match, const line_texts &texts)
{
    line_meaning found{RESPONSE_LINE};
    if (texts.card_state)
        found.kind = CARD_STATE_NOTICE;
    else if (match[0] != '\0' && strstr(line_buf, match) != nullptr)
        found.kind = EXPECTED_LINE;
    else if (result_found == 0 && atcmd_match_result(line_buf, &found.code) == 0)
        found.kind = FINAL_RESULT;
    else if (is_report(msg, texts, line_buf, &found.row))
        found.kind = REPORT;
    return found;
}

pass_step take_card_state_notice(at_cmd_msg &msg)
{
    vlk_match_card_state(line_buf);
    trace(PROGRESS, "instant update\n");
    if (result_found == 0) {
        msg.snd_rcv_msg.ret_val = AT_NONE;
        trace(PROGRESS, "instant update ret_val = %d \n", msg.snd_rcv_msg.ret_val);
    }
    line_clear();
    return END_OF_PASS;
}

pass_step take_report(at_cmd_msg &msg, const vlk_report_row *row, uint32_t pos)
{
    handle_report(row, line_buf, static_cast<int32_t>(pos));
    trace(PROGRESS, "report msg\n");
    if (result_found == 0) {
        msg.snd_rcv_msg.ret_val = AT_NONE;
        trace(PROGRESS, "report msge ret_val = %d \n", msg.snd_rcv_msg.ret_val);
    }
    set_rsp_len(msg, pos);
    return NEXT_LINE;
}

/// Stores the final result and moves the collection into the response.
pass_step take_final_result(at_cmd_msg &msg, int32_t code, uint32_t pos)
{
    trace(PROGRESS, "The result of one AT cmd, ret value is %d \n", code);
    msg.snd_rcv_msg.ret_val = code;
    result_found = 1;
    collection_settle(msg, code, pos);
    return END_OF_PASS;
}

pass_step take_line(at_cmd_msg &msg, const char *match, const line_texts &texts, uint32_t pos)
{
    const line_meaning found = classify_line(msg, match, texts);
    switch (found.kind) {
    case CARD_STATE_NOTICE:
        return take_card_state_notice(msg);
    case EXPECTED_LINE:
        trace(PROGRESS, "match str = %s\n", match);
        return collect_expected_line(msg, pos) == 0 ? NEXT_LINE : END_OF_PASS;
    case FINAL_RESULT:
        return take_final_result(msg, found.code, pos);
    case REPORT:
        return take_report(msg, found.row, pos);
    case RESPONSE_LINE:
        return collect_response_line(msg, pos) == 0 ? NEXT_LINE : END_OF_PASS;
    }
    return END_OF_PASS;
}

} // namespace

int read_from_smd(at_cmd_msg *msg, int *retcode)
{
    if (msg == nullptr || retcode == nullptr) {
        trace(ERROR, "error,msg  or retcodeis null!\n");
        return -1;
    }
    clear_response_text(*msg);
    at_sm_reset();
    return receive_record(wait_milliseconds(msg->timeout));
}

int parse_response(at_cmd_msg *msg)
{
    if (msg == nullptr) {
        trace(ERROR, "parse_response : error,msg is null!\n");
        return -1;
    }
    result_found = 0;
    while (at_sm_is_rcv_buf_empty(&g_atSmStream) != 0)
        parse_exc_result(msg);
    return 0;
}

int parse_exc_result(at_cmd_msg *msg)
{
    if (msg == nullptr) {
        trace(ERROR, "parse_exc_result:error,msg is null!\n");
        return -1;
    }
    char match[AT_MATCH_STR_SIZE + 1];
    match[match_text(*msg).copy(match, AT_MATCH_STR_SIZE)] = '\0';
    int hcmgr_flag = 0;
    for (;;) {
        uint32_t pos = 0;
        line_clear();
        if (drop_overlong_collection() == 0)
            return 0;
        if (hcmgr_flag == 1) {
            parse_hcmgr_line(nas_response_buf + nas_response_legth, &hcmgr_flag);
            continue;
        }
        if (at_sm_getline(line_buf, &pos) != 0)
            return 0;
        line_buf[pos] = '\0'; // an unfinished line comes without its end
        if (pos == 0)
            continue;
        line_texts texts = look_for_texts(line_buf, pos);
        if (texts.message_head) {
            handle_sms_at(msg, &pos, &hcmgr_flag);
            texts = look_for_texts(line_buf, pos); // the joined line's
        }
        trace(PROGRESS, "data from usb  = ***,and at_match_str  = <%s>,pos = %d!\n", match,
              static_cast<int>(pos));
        if (take_line(*msg, match, texts, pos) == END_OF_PASS)
            return 0;
    }
}

int at_process_nas_msg(int *retcode)
{
    if (retcode == nullptr) {
        trace(ERROR, "Error: retcode is null\n");
        return -1;
    }
    static at_cmd_msg msg; // nobody's: what is stored in it is not read, so it is zeroed once
    msg.req_type = ACTIVE_REPORT;
    int result = -1;
    for (at_sm_drop_record(); receive_record(0) == 0; at_sm_drop_record())
        result = parse_response(&msg);
    return result;
}
