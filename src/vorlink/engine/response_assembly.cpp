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

enum collection_mode {
    PLAIN,
    MULTI_LINE,
    RAW,
    DROPPED
};

enum pass_step {
    NEXT_LINE,
    END_OF_PASS
};

collection_mode mode_of(const at_cmd_msg &msg)
{
    if (msg.multi_line == 1)
        return MULTI_LINE;
    if (msg.multi_line != 0)
        return DROPPED;
    return msg.req_type == AT_RAW_COMMAND ? RAW : PLAIN;
}

int32_t wait_milliseconds(int32_t seconds)
{
    constexpr int32_t longest = std::numeric_limits<int32_t>::max();
    if (seconds <= 0)
        return 0;
    return seconds > longest / 1000 ? longest : seconds * 1000;
}

void set_rsp_len(at_cmd_msg &msg, uint32_t length)
{
    msg.snd_rcv_msg.rsp_len = std::min<uint32_t>(length, MAX_ATCMD_REPORT_SIZE);
}

void clear_rmsg(at_cmd_msg &msg)
{
    memset_s(msg.snd_rcv_msg.rmsg, sizeof msg.snd_rcv_msg.rmsg, 0, sizeof msg.snd_rcv_msg.rmsg);
}

void clear_collected_text()
{
    memset_s(nas_response_buf, sizeof nas_response_buf, 0, sizeof nas_response_buf);
}

/// Copies the collection into the response text. Returns 0, -1 when it does not fit.
int copy_collection(at_cmd_msg &msg)
{
    clear_rmsg(msg);
    return memcpy_s(msg.snd_rcv_msg.rmsg, sizeof msg.snd_rcv_msg.rmsg, nas_response_buf,
                    nas_response_legth) == 0
               ? 0
               : -1;
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

/// The questions in their order: the order is the protocol. Runs the handler of a notice or report.
line_kind classify_line(at_cmd_msg &msg, const char *match, const line_texts &texts, uint32_t pos,
                        int32_t *code)
{
    int32_t index = -1;
    if (texts.card_state && vlk_match_card_state(line_buf) == 0)
        return CARD_STATE_NOTICE;
    if (match[0] != '\0' && strstr(line_buf, match) != nullptr)
        return EXPECTED_LINE;
    if (result_found == 0 && atcmd_match_result(line_buf, code) == 0)
        return FINAL_RESULT;
    if (take_if_report(msg, texts, line_buf, static_cast<int32_t>(pos), &index) == 0)
        return REPORT;
    return RESPONSE_LINE;
}

pass_step take_card_state_notice(at_cmd_msg &msg)
{
    trace(PROGRESS, "instant update\n");
    if (result_found == 0) {
        msg.snd_rcv_msg.ret_val = AT_NONE;
        trace(PROGRESS, "instant update ret_val = %d \n", msg.snd_rcv_msg.ret_val);
    }
    line_clear();
    return END_OF_PASS;
}

pass_step collect_expected_line(const at_cmd_msg &msg, const char *match, uint32_t pos)
{
    trace(PROGRESS, "match str = %s\n", match);
    switch (mode_of(msg)) {
    case MULTI_LINE:
        line_put_back_end(pos);
        collection_append(line_buf, pos + 2);
        return NEXT_LINE;
    case PLAIN:
    case RAW:
        collection_append(line_buf, pos);
        return NEXT_LINE;
    case DROPPED:
        break;
    }
    return END_OF_PASS;
}

pass_step take_report(at_cmd_msg &msg, uint32_t pos)
{
    trace(PROGRESS, "report msg\n");
    if (result_found == 0) {
        msg.snd_rcv_msg.ret_val = AT_NONE;
        trace(PROGRESS, "report msge ret_val = %d \n", msg.snd_rcv_msg.ret_val);
    }
    set_rsp_len(msg, pos);
    return NEXT_LINE;
}

pass_step collect_plain_line(at_cmd_msg &msg, uint32_t pos)
{
    trace(DETAIL, "nas_response_legth : %d,  pos : %d \n", static_cast<int>(nas_response_legth),
          static_cast<int>(pos));
    if (nas_response_legth + pos > MAX_ATCMD_REPORT_SIZE - 1) {
        trace(DETAIL, "(nas_response_legth + pos) >= MAX_ATCMD_REPORT_SIZE : %d \n", MAX_ATCMD_REPORT_SIZE);
        set_rsp_len(msg, MAX_ATCMD_REPORT_SIZE - 1);
        trace(DETAIL, "line_buf : <***>\n");
        trace(DETAIL, "msg->snd_rcv_msg.rmsg : <***>\n");
        line_clear();
        nas_response_legth = 0;
        return END_OF_PASS;
    }
    collection_append(line_buf, pos);
    set_rsp_len(msg, nas_response_legth);
    trace(DETAIL, "msg->snd_rcv_msg.rmsg : <***>\n");
    return NEXT_LINE;
}

pass_step collect_raw_line(at_cmd_msg &msg, uint32_t pos)
{
    line_put_back_end(pos);
    uint32_t n = pos + 2;
    if (nas_response_legth >= MAX_ATCMD_REPORT_SIZE) {
        trace(DETAIL, "out of bounds\n");
        return END_OF_PASS;
    }
    const uint32_t room = MAX_ATCMD_REPORT_SIZE - nas_response_legth;
    if (n >= room)
        n = room - 1;
    if (memcpy_s(msg.snd_rcv_msg.rmsg + nas_response_legth, room, line_buf, n) != 0)
        return END_OF_PASS;
    collection_append(line_buf, n);
    set_rsp_len(msg, nas_response_legth);
    return NEXT_LINE;
}

pass_step collect_response_line(at_cmd_msg &msg, uint32_t pos)
{
    switch (mode_of(msg)) {
    case MULTI_LINE:
        collection_append(line_buf, pos);
        set_rsp_len(msg, nas_response_legth);
        return NEXT_LINE;
    case PLAIN:
        return collect_plain_line(msg, pos);
    case RAW:
        return collect_raw_line(msg, pos);
    case DROPPED:
        break;
    }
    return END_OF_PASS;
}

/// Multi-line: the collection counts only when the command succeeded.
void settle_multi_line(at_cmd_msg &msg, int32_t code)
{
    if (code != AT_OK) {
        clear_collected_text();
        nas_response_legth = 0;
        return;
    }
    copy_collection(msg);
    if (msg.req_type != AT_RAW_COMMAND) // there the final result still joins the text
        clear_collected_text();
}

/// Raw: the response ends with the modem's own framing, CR LF, final line, CR LF, when there is room for it.
int settle_raw(at_cmd_msg &msg, uint32_t pos)
{
    if (nas_response_legth <= MAX_ATCMD_REPORT_SIZE - 3) {
        collection_append("\r\n", 2);
        line_put_back_end(pos);
        collection_append(line_buf, pos + 2);
    }
    nas_response_legth = std::min<uint32_t>(nas_response_legth, MAX_ATCMD_REPORT_SIZE - 1);
    if (copy_collection(msg) != 0)
        return -1;
    clear_collected_text();
    return 0;
}

/// Stores the final result and moves the collection into the response.
pass_step take_final_result(at_cmd_msg &msg, int32_t code, uint32_t pos)
{
    trace(PROGRESS, "The result of one AT cmd, ret value is %d \n", code);
    msg.snd_rcv_msg.ret_val = code;
    result_found = 1;

    const bool raw = msg.req_type == AT_RAW_COMMAND;
    const bool error_with_cause = code == AT_CME_ERROR || code == AT_CMS_ERROR;
    if (msg.multi_line == 1)
        settle_multi_line(msg, code);
    if (raw) {
        if (settle_raw(msg, pos) != 0)
            return END_OF_PASS;
    } else if (error_with_cause) {
        memcpy_s(msg.snd_rcv_msg.rmsg, sizeof msg.snd_rcv_msg.rmsg, line_buf, pos);
        nas_response_legth = pos;
    } else if (msg.multi_line == 0) {
        if (copy_collection(msg) != 0)
            return END_OF_PASS;
        clear_collected_text();
    }
    set_rsp_len(msg, nas_response_legth);
    nas_response_legth = 0;
    return END_OF_PASS;
}

/// Returns 0 when the overlong collection was emptied.
int guard_overflow()
{
    if (nas_response_legth <= MAX_ATCMD_REPORT_SIZE)
        return -1;
    trace(PROGRESS, "MAX_ATCMD_REPORT_SIZE < nas_response_legth\n");
    nas_response_legth = 0;
    clear_collected_text();
    return 0;
}

pass_step take_line(at_cmd_msg &msg, const char *match, const line_texts &texts, uint32_t pos)
{
    int32_t code = AT_NONE;
    switch (classify_line(msg, match, texts, pos, &code)) {
    case CARD_STATE_NOTICE:
        return take_card_state_notice(msg);
    case EXPECTED_LINE:
        return collect_expected_line(msg, match, pos);
    case FINAL_RESULT:
        return take_final_result(msg, code, pos);
    case REPORT:
        return take_report(msg, pos);
    case RESPONSE_LINE:
        return collect_response_line(msg, pos);
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
    clear_rmsg(*msg);
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
        if (guard_overflow() == 0)
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
    for (at_sm_reset(); receive_record(0) == 0; at_sm_drop_record())
        result = parse_response(&msg);
    return result;
}
