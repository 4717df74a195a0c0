#include "response_collection.h"

#include <algorithm>
#include <cstring>

#include "bounded.h"
#include "record_text.h"
#include "vorlink_trace.h"

char line_buf[LINE_BUF_SIZE];
char nas_response_buf[MAX_ATCMD_REPORT_SIZE];
uint32_t nas_response_legth = 0;

namespace
{

enum collection_mode {
    PLAIN,
    MULTI_LINE,
    RAW,
    DROPPED
};

collection_mode mode_of(const at_cmd_msg &msg)
{
    if (msg.multi_line == 1)
        return MULTI_LINE;
    if (msg.multi_line != 0)
        return DROPPED;
    return msg.req_type == AT_RAW_COMMAND ? RAW : PLAIN;
}

void clear_collected_text()
{
    memset_s(nas_response_buf, sizeof nas_response_buf, 0, sizeof nas_response_buf);
}

/// Copies the collection into the response text. Returns 0, -1 when it does not fit.
int copy_collection(at_cmd_msg &msg)
{
    clear_response_text(msg);
    return memcpy_s(msg.snd_rcv_msg.rmsg, sizeof msg.snd_rcv_msg.rmsg, nas_response_buf,
                    nas_response_legth) == 0
               ? 0
               : -1;
}

int collect_plain_line(at_cmd_msg &msg, uint32_t pos)
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
        return -1;
    }
    collection_append(line_buf, pos);
    set_rsp_len(msg, nas_response_legth);
    trace(DETAIL, "msg->snd_rcv_msg.rmsg : <***>\n");
    return 0;
}

int collect_raw_line(at_cmd_msg &msg, uint32_t pos)
{
    line_put_back_end(pos);
    uint32_t n = pos + 2;
    if (nas_response_legth >= MAX_ATCMD_REPORT_SIZE) {
        trace(DETAIL, "out of bounds\n");
        return -1;
    }
    const uint32_t room = MAX_ATCMD_REPORT_SIZE - nas_response_legth;
    if (n >= room)
        n = room - 1;
    if (memcpy_s(msg.snd_rcv_msg.rmsg + nas_response_legth, room, line_buf, n) != 0)
        return -1;
    collection_append(line_buf, n);
    set_rsp_len(msg, nas_response_legth);
    return 0;
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

} // namespace

void collection_append(const char *text, uint32_t n)
{
    if (nas_response_legth <= MAX_ATCMD_REPORT_SIZE)
        memcpy_s(nas_response_buf + nas_response_legth, MAX_ATCMD_REPORT_SIZE - nas_response_legth, text, n);
    nas_response_legth += n;
}

void line_clear()
{
    line_buf[0] = '\0';
}

void line_put_back_end(uint32_t length)
{
    line_buf[length] = '\r';
    line_buf[length + 1] = '\n';
    line_buf[length + 2] = '\0';
}

int collect_expected_line(const at_cmd_msg &msg, uint32_t pos)
{
    switch (mode_of(msg)) {
    case MULTI_LINE:
        line_put_back_end(pos);
        collection_append(line_buf, pos + 2);
        return 0;
    case PLAIN:
    case RAW:
        collection_append(line_buf, pos);
        return 0;
    case DROPPED:
        break;
    }
    return -1;
}

int collect_response_line(at_cmd_msg &msg, uint32_t pos)
{
    switch (mode_of(msg)) {
    case MULTI_LINE:
        collection_append(line_buf, pos);
        set_rsp_len(msg, nas_response_legth);
        return 0;
    case PLAIN:
        return collect_plain_line(msg, pos);
    case RAW:
        return collect_raw_line(msg, pos);
    case DROPPED:
        break;
    }
    return -1;
}

int collection_settle(at_cmd_msg &msg, int32_t code, uint32_t pos)
{
    const bool raw = msg.req_type == AT_RAW_COMMAND;
    const bool error_with_cause = code == AT_CME_ERROR || code == AT_CMS_ERROR;
    if (msg.multi_line == 1)
        settle_multi_line(msg, code);
    if (raw) {
        if (settle_raw(msg, pos) != 0)
            return -1;
    } else if (error_with_cause) {
        memcpy_s(msg.snd_rcv_msg.rmsg, sizeof msg.snd_rcv_msg.rmsg, line_buf, pos);
        nas_response_legth = pos;
    } else if (msg.multi_line == 0) {
        if (copy_collection(msg) != 0)
            return -1;
        clear_collected_text();
    }
    set_rsp_len(msg, nas_response_legth);
    nas_response_legth = 0;
    return 0;
}

int drop_overlong_collection()
{
    if (nas_response_legth <= MAX_ATCMD_REPORT_SIZE)
        return -1;
    trace(PROGRESS, "MAX_ATCMD_REPORT_SIZE < nas_response_legth\n");
    nas_response_legth = 0;
    clear_collected_text();
    return 0;
}
