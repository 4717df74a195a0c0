#include "command_transaction.h"

#include <algorithm>
#include <cstring>

#include "bounded.h"
#include "current_command.h"
#include "record_text.h"
#include "response_assembly.h"
#include "vlk_register.h"
#include "vlk_task.h"
#include "vorlink_trace.h"

namespace
{

constexpr int EMPTY_COMMAND = 22; // error code
constexpr char CR = '\r';

bool is_line_end(char c)
{
    return c == '\0' || c == '\r' || c == '\n';
}

/// Remembers the command for the report gate and the stop-scan handler. Returns 0, -1 for an unusable text.
int set_current_command(const at_cmd_msg &msg)
{
    constexpr std::size_t last = CURRENT_COMMAND_SIZE - 1;
    if (memcpy_s(g_atCmdStr, sizeof g_atCmdStr, msg.snd_rcv_msg.cmd, last) != 0) {
        trace(ERROR, "[%s] the at_cmd_str memcpy_s failed.", "at_send_normal_cmd_msg");
        return -1;
    }
    g_atCmdStr[last] = '\0';
    if (current_at_cmd_set(msg.at_match_str) != 0) {
        trace(ERROR, "[%s] the at_cmd_str copy failed.", "at_send_normal_cmd_msg");
        return -1;
    }
    return 0;
}

/// Receives and parses chunks until the command ends. Returns 0 when it did, -1 when the time is up.
int await_final_result(at_cmd_msg *msg, int *retcode)
{
    int32_t start = VLK_elapse();
    int received = read_from_smd(msg, retcode);
    trace(PROGRESS, "read_from_smd retval = %d\n", received);
    while (received == 0) {
        parse_response(msg);
        trace(PROGRESS, "parse_response pMsg = ***, ret_val = %d \n", msg->snd_rcv_msg.ret_val);
        if (response_has_match(*msg)) {
            trace(PROGRESS, "Sting is matched \n");
            return 0;
        }
        if (msg->snd_rcv_msg.ret_val != AT_NONE) {
            trace(PROGRESS, "AT_NONE != p_rsp->ret_val \n");
            return 0;
        }
        if (spend_time(*msg, &start) != 0)
            return -1;
        received = read_from_smd(msg, retcode);
    }
    return -1;
}

} // namespace

int spend_time(at_cmd_msg &msg, int32_t *start)
{
    trace(PROGRESS, "Wait for the next report msg\n");
    const int32_t now = VLK_elapse();
    const auto elapsed = static_cast<int32_t>(static_cast<uint32_t>(now) - static_cast<uint32_t>(*start));
    *start = now;
    if (elapsed >= msg.timeout) {
        trace(MINOR, "get at result timeout duration %d timeout %d\n", elapsed, msg.timeout);
        return -1;
    }
    msg.timeout -= elapsed;
    trace(DETAIL, "next timeout %d\n", msg.timeout);
    return 0;
}

int write_to_smd(const char *patcmd, int *retcode, uint32_t len)
{
    if (retcode == nullptr) {
        trace(ERROR, "retcode NULL!\n");
        return -1;
    }
    if (patcmd == nullptr || len == 0) {
        trace(ERROR, "Error:patcmd is NULL or len is error!\n");
        *retcode = EMPTY_COMMAND;
        return -1;
    }
    trace(PROGRESS, "The at cmd string sent from USB is *** !\n");
    char line[AT_CMD_STR_SIZE];
    std::size_t kept = std::min<std::size_t>(len, sizeof line - 1);
    memcpy_s(line, sizeof line, patcmd, kept);
    while (kept > 0 && is_line_end(line[kept - 1]))
        line[--kept] = '\0';
    kept = std::min<std::size_t>(kept, sizeof line - 2);
    line[kept] = CR;
    line[kept + 1] = '\0';
    if (vlk_send_to_nas(line, static_cast<uint16_t>(kept + 1)) == 1)
        return 0;
    trace(ERROR, "Error: Send cmd to NAS failed\n");
    return -1;
}

int at_send_normal_cmd_msg(at_cmd_msg *msg, int *retcode)
{
    if (msg == nullptr || retcode == nullptr) {
        trace(ERROR, "at_send_normal_cmd_msg: the msg is null and return\n");
        return -1;
    }
    const uint32_t length = msg->cmd_len > 0 ? static_cast<uint32_t>(msg->cmd_len)
                                             : static_cast<uint32_t>(command_text(*msg).size());
    if (set_current_command(*msg) != 0)
        return -1;
    if (write_to_smd(msg->snd_rcv_msg.cmd, retcode, length) != 0) {
        trace(ERROR, "write_to_smd error and the errcode = %d\n", *retcode);
        clear_response_block(*msg);
        msg->snd_rcv_msg.ret_val = AT_COMMAND_NOT_SUPPORT;
        current_at_cmd_clear();
        return -1;
    }
    msg->snd_rcv_msg.ret_val = AT_NONE;
    *retcode = 0;
    const int result = await_final_result(msg, retcode);
    if (result != 0)
        trace(ERROR, "Error = %d , cmd =***\n", *retcode);
    else if (msg->snd_rcv_msg.ret_val != AT_OK)
        trace(PROGRESS, "rsp_msg ret_val = %d\n", msg->snd_rcv_msg.ret_val);
    current_at_cmd_clear();
    return result;
}
