// Modem bytes in arbitrary deliveries, through callback, queue and assembly, while a random record is worked on.
// Input: kind of run, req_type and multi_line, timeout, a byte each; match; command; deliveries (fuzz_daemon.h).
#include <vector>

#include "fuzz_daemon.h"
#include "vorlink/engine/command_transaction.h"
#include "vorlink/engine/recognition.h"
#include "vorlink/engine/sms_transaction.h"

namespace
{

at_cmd_msg take_record(fuzz_input &in)
{
    constexpr uint32_t types[] = {AT_COMMAND, AT_RAW_COMMAND, ACTIVE_REPORT, AT_UNANSWERED};
    at_cmd_msg msg{};
    msg.Id = 77;
    msg.seq = 5;
    const uint8_t mode = in.take_byte();
    msg.req_type = types[mode & 3];
    msg.multi_line = mode >> 2 & 3;
    msg.timeout = static_cast<int8_t>(in.take_byte());
    in.take_part().copy(msg.at_match_str, sizeof msg.at_match_str);
    in.take_part().copy(msg.snd_rcv_msg.cmd, sizeof msg.snd_rcv_msg.cmd);
    return msg;
}

/// An answer of lower-case lines and one OK: no report, no second final result, nothing behind it.
bool is_plain_answer(std::string_view text)
{
    constexpr std::string_view ending = "\r\nOK\r\n";
    if (!text.ends_with(ending))
        return false;
    text.remove_suffix(ending.size());
    return text.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789,.: \r\n") == text.npos;
}

void check_plain_response(const at_cmd_msg &msg)
{
    require(msg.snd_rcv_msg.ret_val == AT_OK, "OK ends the command");
    require(strnlen(msg.snd_rcv_msg.rmsg, MAX_ATCMD_REPORT_SIZE) == msg.snd_rcv_msg.rsp_len,
            "rsp_len is the length of the text, zeros follow it");
}

void run_transaction(at_cmd_msg msg, int (*run)(at_cmd_msg *, int *), int phases, fuzz_input in)
{
    const at_cmd_msg request = msg;
    fuzz_input answer = in;
    const std::string_view only = answer.take_part();
    schedule_deliveries(in);
    fake::stop_recording();
    const int64_t start = fake::now_ms();
    int retcode = 0;
    const int result = run(&msg, &retcode);
    check_chunk_consumed();
    check_reply(request, msg);
    require(fake::now_ms() - start <= phases * budget_ms(request.timeout),
            "a command keeps to its time limit");
    require(result == 0 || result == -1, "the result is 0 or -1");
    const bool at_once = !only.empty() && (only[0] & 7) == 0 && only.size() <= NAS_DATA_MAX + 1;
    if (phases == 1 && at_once && answer.empty() && msg.at_match_str[0] == '\0' && result == 0 &&
        is_plain_answer(only.substr(1)))
        check_plain_response(msg);
    while (at_process_nas_msg(&retcode) == 0)
        check_chunk_consumed();
}

/// The stream stays in order between the passes, and the passes come to an end.
void run_passes(at_cmd_msg msg, fuzz_input in)
{
    int retcode = 0;
    schedule_deliveries(in);
    fake::stop_recording();
    msg.timeout = 100;
    msg.snd_rcv_msg.rsp_len = 0; // bytes of the command until then
    while (read_from_smd(&msg, &retcode) == 0) {
        check_stream_order();
        auto passes = g_atSmStream.p_end - g_atSmStream.p_cur + 2; // one may only empty a full collection
        while (at_sm_is_rcv_buf_empty(&g_atSmStream) != 0) {
            require(passes-- > 0, "passes over a chunk come to an end");
            parse_exc_result(&msg);
            check_stream_order();
            require(msg.snd_rcv_msg.rsp_len <= MAX_ATCMD_REPORT_SIZE, "the response fits");
        }
        check_chunk_consumed();
    }
}

/// The positions behind the line ends of a text, as the line scanner finds them when it begins there.
std::vector<std::size_t> line_ends(std::string_view text)
{
    std::vector<std::size_t> ends;
    for (std::size_t at = 0; at + 1 < text.size(); ++at) {
        if (text[at] != '\r')
            continue;
        ++at; // whatever follows a CR is taken with it
        if (text[at] == '\n')
            ends.push_back(at + 1);
    }
    return ends;
}

/// A second final result in one delivery is judged anew and may be a report; behind a cut it ends a command. A +CBM
/// header and a ^HCMGR body need their next line in the same delivery.
bool depends_on_delivery(const char *line)
{
    int32_t code = 0;
    const auto occurs = [line](const char *text) { return std::strstr(line, text) != nullptr; };
    if (occurs("+CBM") || occurs("^HCMGR"))
        return true;
    return atcmd_match_result(line, &code) == 0 &&
           std::any_of(vlk_report_table.begin(), vlk_report_table.end() - 1,
                       [&](const vlk_report_row &row) { return occurs(row.prefix); });
}

/// The same for any line of the text, as the line scanner hands it to the engine.
bool any_depends_on_delivery(std::string_view text)
{
    restart_daemon();
    at_cmd_msg msg{};
    int retcode = 0;
    bool depends = false;
    require(fake::deliver(text) == 0 && read_from_smd(&msg, &retcode) == 0, "the daemon reads");
    while (at_sm_is_rcv_buf_empty(&g_atSmStream) != 0) {
        char line[MAX_ATCMD_REPORT_SIZE] = {};
        uint32_t length = 0;
        at_sm_getline(line, &length);
        depends = depends || depends_on_delivery(line);
    }
    return depends;
}

std::vector<std::string> events_of(std::string_view text, std::size_t cut)
{
    restart_daemon();
    int retcode = 0;
    for (const std::string_view delivery : {text.substr(0, cut), text.substr(cut)}) {
        fake::deliver(delivery);
        at_process_nas_msg(&retcode);
        check_chunk_consumed();
    }
    std::vector<std::string> events;
    for (const fake::platform_call &call : fake::seen().calls)
        events.push_back(call.what + call.data);
    events.emplace_back(reinterpret_cast<const char *>(&g_rssiReportBuf), sizeof g_rssiReportBuf);
    return events;
}

void compare_cut(const at_cmd_msg &msg, fuzz_input in)
{
    const std::string_view text = in.take(NAS_DATA_MAX);
    const std::vector<std::size_t> ends = line_ends(text);
    if (ends.empty() || any_depends_on_delivery(text))
        return;
    const std::size_t cut = ends[static_cast<uint32_t>(msg.timeout) % ends.size()];
    require(events_of(text, text.size()) == events_of(text, cut),
            "a delivery cut at a line end gives the events of the whole");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    fuzz_input in(data, size);
    const uint8_t kind = in.take_byte();
    const at_cmd_msg msg = take_record(in);
    restart_daemon();
    switch (kind & 3) {
    case 0:
        run_transaction(msg, at_send_normal_cmd_msg, 1, in);
        break;
    case 1:
        run_transaction(msg, at_send_or_save_msg, 2, in);
        break;
    case 2:
        run_passes(msg, in);
        break;
    default:
        compare_cut(msg, in);
        break;
    }
    return 0;
}
