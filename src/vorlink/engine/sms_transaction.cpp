#include "sms_transaction.h"

#include <cstring>
#include <span>

#include "at_words.h"
#include "bounded.h"
#include "command_transaction.h"
#include "record_text.h"
#include "response_assembly.h"
#include "text_helpers.h"
#include "vlk_register.h"
#include "vlk_task.h"
#include "vorlink_trace.h"

namespace
{

constexpr char CR = '\r';
constexpr char CTRL_Z = 26;
constexpr char ESC[] = "\x1b";
constexpr int EMPTY_COMMAND = 22; // error code of write_to_smd

/// A copy of the requester's record with an empty response. Returns 0, -1 when the match string is too long.
int make_work_record(at_cmd_msg &work, const at_cmd_msg &msg)
{
    work = msg;
    clear_response_block(work);
    return snprintf_s(work.at_match_str, sizeof work.at_match_str, sizeof work.at_match_str - 1, "%.*s",
                      static_cast<int>(sizeof msg.at_match_str), msg.at_match_str) < 0
               ? -1
               : 0;
}

/// The PDU in the text area behind the first CR: up to and including the first Ctrl-Z that two NULs follow, and
/// one of those NULs. Empty when the area holds no such Ctrl-Z.
std::span<const char> pdu_of(const at_cmd_msg &msg, std::size_t start)
{
    const std::span<const char> area(msg.snd_rcv_msg.cmd);
    for (std::size_t at = start; at + 2 < area.size(); ++at) {
        if (area[at] == CTRL_Z && area[at + 1] == '\0' && area[at + 2] == '\0')
            return area.subspan(start, at + 2 - start);
    }
    return {};
}

int write_command_line(const at_cmd_msg &msg, std::size_t length, int *retcode)
{
    char line[AT_CMD_STR_SIZE] = {};
    memcpy_s(line, sizeof line, msg.snd_rcv_msg.cmd, length);
    return write_to_smd(line, retcode, VLK_strlen_s(line));
}

/// Sends the PDU; without one the modem is released from its text input.
int write_pdu(const at_cmd_msg &msg, std::size_t start, int *retcode)
{
    const std::span<const char> pdu = pdu_of(msg, start);
    if (pdu.empty()) {
        vlk_send_to_nas(ESC, 1);
        return -1;
    }
    return write_to_smd(pdu.data(), retcode, static_cast<uint32_t>(pdu.size()));
}

int end_with_write_failure(at_cmd_msg *msg, at_cmd_msg &work, const int *retcode)
{
    trace(ERROR, "write_to_smd error and the errcode = %d\n", *retcode);
    work.snd_rcv_msg.ret_val = *retcode == EMPTY_COMMAND ? 0 : AT_COMMAND_NOT_SUPPORT;
    *msg = work;
    return -1;
}

/// Waits for the modem's prompt. Returns 0 when the PDU may follow, -1 when the modem ended the exchange.
int await_prompt(at_cmd_msg *msg, at_cmd_msg &work, int *retcode)
{
    const int received = read_from_smd(&work, retcode);
    trace(PROGRESS, "read_from_smd retval = %d\n", received);
    if (received != 0)
        return 0;
    parse_response(&work);
    trace(PROGRESS, "parse_response report str = ***\n");
    const int32_t ret_val = work.snd_rcv_msg.ret_val;
    if (ret_val == AT_NONE)
        return 0; // the prompt counts as a report
    trace(MINOR, "can math the cmgs or cmgw response string, retval = %d\n", ret_val);
    msg->snd_rcv_msg.ret_val = ret_val;
    return -1;
}

int receive_into(at_cmd_msg *msg, at_cmd_msg &work, int *retcode)
{
    const int received = read_from_smd(&work, retcode);
    *msg = work;
    return received;
}

/// Receives and parses chunks until the exchange ends. Returns 0 when it did, -1 when the time is up.
int await_final_result(at_cmd_msg *msg, at_cmd_msg &work, int32_t start, int *retcode)
{
    int received = receive_into(msg, work, retcode);
    trace(PROGRESS, "read_from_smd retval = %d\n", received);
    while (received == 0) {
        parse_response(msg);
        trace(PROGRESS, "parse_response pMsg = ***\n");
        if (response_has_match(*msg) || msg->snd_rcv_msg.ret_val != AT_NONE)
            return 0;
        if (spend_time(work, &start) != 0)
            break;
        received = receive_into(msg, work, retcode);
    }
    trace(PROGRESS, "read_from_smd error and the errcode = %d\n", *retcode);
    return -1;
}

} // namespace

int at_cmd_is_smssw(const char *cmd_buf)
{
    if (cmd_buf == nullptr) {
        trace(ERROR, "at_cmd_is_smssw : error,cmd_buf is null!\n");
        return -1;
    }
    for (const char *command : AT_PROMPTING_COMMANDS) {
        if (At_strncasecmp(cmd_buf, command, VLK_strlen_s(command)) == 0) {
            trace(DETAIL, "sms send or save cmd!\n");
            return 0;
        }
    }
    return -1;
}

int at_send_or_save_msg(at_cmd_msg *msg, int *retcode)
{
    if (msg == nullptr || retcode == nullptr) {
        trace(ERROR, "at_send_or_save_msg: the msg is null and return\n");
        return -1;
    }
    at_cmd_msg work;
    if (make_work_record(work, *msg) != 0)
        return -1;
    const std::size_t cr = command_text(*msg).find(CR);
    if (cr == std::string_view::npos) {
        trace(ERROR, "the cmd str have not '\r',and the str is ***\n");
        return -1;
    }
    if (write_command_line(*msg, cr, retcode) != 0)
        return end_with_write_failure(msg, work, retcode);
    const int32_t start = VLK_elapse();
    if (await_prompt(msg, work, retcode) != 0)
        return -1;
    if (write_pdu(*msg, cr + 1, retcode) != 0)
        return end_with_write_failure(msg, work, retcode);
    return await_final_result(msg, work, start, retcode);
}
