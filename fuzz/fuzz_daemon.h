// The daemon for the fuzzers of the core: on the platform in process, for every input in its state after start-up.
#ifndef FUZZ_DAEMON_H
#define FUZZ_DAEMON_H

#include <string>

#include "at_cmd_msg.h"
#include "fake_platform.h"
#include "fuzz.h"
#include "nas_data_queue.h"
#include "service_ids.h"
#include "stored_report.h"
#include "vlk_register.h"
#include "vlk_report_callback/report_table.h"
#include "vorlink/engine/current_command.h"
#include "vorlink/engine/rcv_stream.h"
#include "vorlink/engine/response_assembly.h"
#include "vorlink/startup.h"

/// Brings the count of flow reports back to zero: every tenth sends the statistics and begins anew.
inline void finish_flow_statistics()
{
    char line[] = "^DSFLOWRPT:0";
    const auto *const row =
        std::find_if(vlk_report_table.begin(), vlk_report_table.end() - 1,
                     [](const vlk_report_row &each) { return std::strcmp(each.prefix, "^DSFLOWRPT") == 0; });
    for (std::size_t calls = 2; calls == 2;) { // the tenth report makes one more
        fake::forget();
        row->callback(line, sizeof line - 1);
        calls = fake::seen().calls.size();
    }
}

/// Forgets everything that an earlier input left behind: a CR LF ends what the line scanner was in the middle of, a
/// final result empties the collection.
inline void restart_daemon()
{
    int retcode = 0;
    fake::reset();
    finish_flow_statistics();
    g_vlkTaskId = fake::TASK_ID;
    at_sm_reset();
    stored_report_reset();
    current_at_cmd_clear();
    std::memset(g_atCmdStr, 0, sizeof g_atCmdStr);
    require(vlk_msgq_init() == 0 && vlk_register_nas() == 1, "the daemon starts");
    require(fake::deliver("\r\nOK\r\n") == 0 && at_process_nas_msg(&retcode) == 0, "the daemon reads");
    fake::forget();
}

/// Takes the modem's deliveries: parts of the input, whose first byte gives the seconds since the previous part.
inline void schedule_deliveries(fuzz_input &in)
{
    int32_t seconds = 0;
    while (!in.empty()) {
        std::string_view part = in.take_part();
        if (part.empty())
            continue;
        seconds += part[0] & 7;
        part.remove_prefix(1);
        fake::deliver_later(seconds, std::string(part));
    }
}

inline void check_stream_order()
{
    const at_sm_stream &stream = g_atSmStream;
    require(stream.rcv_buf <= stream.p_cur && stream.p_cur <= stream.p_end, "p_cur does not pass p_end");
    require(stream.p_end <= stream.rcv_buf + NAS_DATA_MAX, "p_end stays in the stream");
}

/// To be called when everything that was received has been parsed.
inline void check_chunk_consumed()
{
    check_stream_order();
    require(g_atSmStream.p_cur == g_atSmStream.p_end, "every byte of a chunk is consumed");
    const char *end = g_atSmStream.p_end;
    require(
        std::all_of(static_cast<const char *>(g_atSmStream.rcv_buf), end, [](char c) { return c == '\0'; }),
        "every byte handed out is overwritten");
}

/// What a served request may not change, and what must hold for its response.
inline void check_reply(const at_cmd_msg &request, const at_cmd_msg &reply)
{
    require(request.Id == reply.Id && request.seq == reply.seq && request.req_type == reply.req_type &&
                request.rep_type == reply.rep_type && request.reserved == reply.reserved &&
                request.multi_line == reply.multi_line && request.cmd_len == reply.cmd_len,
            "the reply is told by its request's numbers");
    // A request that ends before a chunk was parsed keeps the client's own bytes in rsp_len.
    const uint32_t length = reply.snd_rcv_msg.rsp_len;
    require(length <= MAX_ATCMD_REPORT_SIZE || length == request.snd_rcv_msg.rsp_len, "the response fits");
}

/// Milliseconds that a number of seconds in a record stands for.
inline int64_t budget_ms(int32_t seconds)
{
    return std::max<int64_t>(seconds, 0) * 1000;
}

#endif
