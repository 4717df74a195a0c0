// A report line through recognition, table and handler, with the real parse library.
// Input: kind of request; the running command; the line, which may hold NULs.
#include <vector>

#include "fuzz_daemon.h"
#include "host_wire.h"
#include "vorlink/engine/recognition.h"

namespace
{

bool occurs(const char *line, const char *text)
{
    return std::strstr(line, text) != nullptr;
}

bool may_be_report(const char *line)
{
    return line[0] == '^' || line[0] == '+' || occurs(line, "RING") || occurs(line, "CONNECT");
}

/// The first row whose prefix occurs in the line, the row that ends the table when there is none.
const vlk_report_row &first_row_in(const char *line)
{
    const auto *row = vlk_report_table.data();
    while (row->prefix != nullptr && !occurs(line, row->prefix))
        ++row;
    return *row;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    fuzz_input in(data, size);
    at_cmd_msg msg{};
    constexpr uint32_t types[] = {ACTIVE_REPORT, AT_COMMAND, AT_RAW_COMMAND, AT_UNANSWERED};
    msg.req_type = types[in.take_byte() & 3];
    restart_daemon();
    in.take_part().copy(g_atCmdStr, sizeof g_atCmdStr - 1);
    const std::string_view text = in.take(MAX_ATCMD_REPORT_SIZE - 1);
    std::vector<char> line(text.begin(), text.end()); // ends where the text ends: reading past it is seen
    line.push_back('\0');
    line.shrink_to_fit();

    const std::string before = line.data();
    int32_t index = 0;
    int32_t code = 0;
    const int result = Is_report_msg(&msg, line.data(), static_cast<int32_t>(text.size()), &index, &code);

    require(result == 0 || result == -1, "the result is 0 or -1");
    if (before[0] == '>') {
        require(result == 0 && index == -1, "a prompt is a report without handler");
    } else if (!may_be_report(before.c_str())) {
        require(result == -1 && index == -1, "text is no report");
    } else {
        const vlk_report_row &row = first_row_in(before.c_str());
        if (row.prefix != nullptr)
            require(result == 0 && index == row.id, "the first row whose prefix occurs in the line is taken");
        else
            require(index == -1 && (result == -1 || msg.req_type != AT_RAW_COMMAND), "no row, no report id");
    }
    require(index != -1 || fake::seen().calls.empty(), "without a row nobody is told");
    for (const fake::platform_call &call : fake::seen().calls)
        require(call.data.size() <= HOST_DATA_MAX, "a payload fits a packet");
    require(g_rssiReportBuf.ret_val == AT_OK && g_rssiReportBuf.rsp_len <= MAX_ATCMD_REPORT_SIZE &&
                strnlen(g_rssiReportBuf.rmsg, MAX_ATCMD_REPORT_SIZE) < MAX_ATCMD_REPORT_SIZE,
            "the stored report is a terminated text");
    return 0;
}
