#include "recognition.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "bounded.h"
#include "current_command.h"
#include "rcv_stream.h"
#include "response_collection.h"
#include "two_bytes.h"
#include "vorlink_trace.h"

constexpr std::array<vlk_result_row, AT_FINAL_RESULTS.size() + 1> vlk_result_table = [] {
    std::array<vlk_result_row, AT_FINAL_RESULTS.size() + 1> rows{};
    for (std::size_t row = 0; row < AT_FINAL_RESULTS.size(); ++row)
        rows[row] = {AT_FINAL_RESULTS[row].code, AT_FINAL_RESULTS[row].text};
    rows.back() = {AT_NONE, nullptr};
    return rows;
}();

namespace
{

constexpr char CTRL_Z = 26;
constexpr std::size_t REPORT_PREFIX_SIZE = 64;

constexpr auto RESULT_TEXTS = [] {
    std::array<std::string_view, vlk_result_table.size() - 1> texts;
    for (std::size_t row = 0; row < texts.size(); ++row)
        texts[row] = vlk_result_table[row].text;
    return texts;
}();

// The first and the third byte: reports begin with +C, too.
constexpr two_bytes<2> MAY_BEGIN_RESULT(RESULT_TEXTS, false);

bool begins_with(const char *line, const char *text)
{
    while (*text != '\0' && *line == *text) {
        ++line;
        ++text;
    }
    return *text == '\0';
}

bool passes_report_gate(const char *line)
{
    return line[0] == '^' || line[0] == '+' || strstr(line, "RING") != nullptr ||
           strstr(line, "CONNECT") != nullptr;
}

/// Whether the text before the line's first colon occurs in the latest command. Too long a text counts as empty, and
/// an empty one occurs in every command.
bool answers_current_command(const char *line, const char *colon)
{
    std::string_view prefix(line, static_cast<std::size_t>(colon - line));
    if (prefix.size() >= REPORT_PREFIX_SIZE)
        prefix = {};
    return std::string_view(g_atCmdStr).find(prefix) != std::string_view::npos;
}

/// Whether a gated line that no row of the table names is a report.
bool is_unknown_report(const at_cmd_msg &msg, const char *line)
{
    if (msg.req_type == AT_RAW_COMMAND)
        return false;
    if (msg.req_type == ACTIVE_REPORT) {
        trace(MINOR, "ACTIVE_REPORT == msg->req_type\n");
        return true;
    }
    const char *colon = strchr(line, ':');
    if (colon == nullptr)
        return false;
    if (!answers_current_command(line, colon))
        return true;
    trace(MINOR, "the cmd string is not active report!\n");
    return false;
}

bool heads_a_message(const char *line)
{
    const auto occurs = [line](const char *head) { return strstr(line, head) != nullptr; };
    return std::any_of(MESSAGE_HEADS.begin(), MESSAGE_HEADS.end(), occurs);
}

/// Appends the next line, the PDU of a cell-broadcast report, to its header.
void join_pdu_line(uint32_t *pos)
{
    char pdu[MAX_ATCMD_REPORT_SIZE] = {};
    uint32_t length = 0;
    if (at_sm_getline(pdu, &length) != 0)
        trace(DETAIL, "at_sm_getline CBM return error\n");
    if (length == 0)
        return;
    memset(line_buf + *pos, 0, length + 1); // a NUL in the header ends its text earlier than its bytes
    strncat_s(line_buf, MAX_ATCMD_REPORT_SIZE, pdu, length);
    *pos += length;
}

} // namespace

int atcmd_match_result(const char *line, int32_t *err_code)
{
    if (line == nullptr || err_code == nullptr) {
        trace(ERROR, "atcmd_match_result : error,rcv_buf or  err_code is null!\n");
        return -1;
    }
    if (line[0] == '\0' || line[1] == '\0' || MAY_BEGIN_RESULT.fit(line) == 0)
        return -1;
    for (const vlk_result_row &row : vlk_result_table) {
        if (row.text == nullptr)
            break;
        if (begins_with(line, row.text)) {
            *err_code = row.code;
            return 0;
        }
    }
    return -1;
}

int Is_report_msg(at_cmd_msg *msg, char *line, int32_t len, int32_t *index, int32_t *err_code)
{
    if (msg == nullptr || line == nullptr || index == nullptr || err_code == nullptr) {
        trace(ERROR, "Is_report_msg : error,rcv_buf ,index or  err_code is null!\n");
        return -1;
    }
    const vlk_report_row *row = nullptr;
    const bool found = is_report(*msg, look_for_texts(line, strlen(line)), line, &row);
    *index = row != nullptr ? row->id : -1;
    handle_report(row, line, len);
    return found ? 0 : -1;
}

bool is_report(const at_cmd_msg &msg, const line_texts &texts, const char *line, const vlk_report_row **row)
{
    *row = nullptr;
    if (line[0] == '>')
        return true; // the modem's SMS prompt
    if (!passes_report_gate(line)) {
        trace(MINOR, "the cmd string is not active report!\n");
        return false;
    }
    *row = texts.report;
    return texts.report != nullptr || is_unknown_report(msg, line);
}

void handle_report(const vlk_report_row *row, char *line, int32_t len)
{
    if (row != nullptr && row->callback != nullptr)
        row->callback(line, len);
}

void handle_sms_at(at_cmd_msg *msg, uint32_t *pos, int *hcmgr_flag)
{
    if (msg == nullptr || pos == nullptr || hcmgr_flag == nullptr) {
        trace(ERROR, "handle_sms_at: msg or line or pos is null.\n");
        return;
    }
    if (!heads_a_message(line_buf) || msg->req_type == AT_RAW_COMMAND)
        return;
    line_put_back_end(*pos);
    *pos += 2;
    if (strstr(line_buf, "^HCMGR") != nullptr)
        *hcmgr_flag = 1;
    if (strstr(line_buf, "+CBM") != nullptr)
        join_pdu_line(pos);
}

void parse_hcmgr_line(char *dst, int *hcmgr_flag)
{
    trace(DETAIL, "parse_hcmgr_line enter.\n");
    if (dst == nullptr || hcmgr_flag == nullptr)
        return;
    char body[MAX_ATCMD_REPORT_SIZE] = {}; // a chunk holds less, so a body that is taken whole fits
    const int n = at_find_last_of_char(CTRL_Z) + 2;
    *hcmgr_flag = 0;
    if (at_sm_get_buf(body, n) != 0) {
        trace(DETAIL, "at_sm_get_buf return error\n");
        return;
    }
    const auto length = static_cast<uint32_t>(n);
    if (nas_response_legth <= MAX_ATCMD_REPORT_SIZE)
        memcpy_s(dst, MAX_ATCMD_REPORT_SIZE - nas_response_legth, body, length);
    nas_response_legth += length;
}
