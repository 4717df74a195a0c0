// What the core's tests share: a daemon that is ready to work, records of clients, texts of the modem.
#ifndef CORE_TEST_H
#define CORE_TEST_H

#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "../modem_text.h"
#include "at_cmd_msg.h"
#include "fake_platform.h"
#include "service_ids.h"
#include "vlk_queues.h"
#include "vlk_register.h"
#include "vorlink/engine/current_command.h"
#include "vorlink/engine/response_assembly.h"
#include "vorlink/startup.h"

/// Starts the daemon with these arguments, not yet registered with the modem link.
inline int start(std::vector<const char *> arguments = {})
{
    bool noBus = false;
    arguments.insert(arguments.begin(), "vorlink");
    arguments.push_back(nullptr);
    return vlk_startup(static_cast<int>(arguments.size()) - 1, const_cast<char **>(arguments.data()), &noBus);
}

/// Brings the daemon to where its main loop idles, with nothing left over from an earlier test: a CR LF ends what an
/// earlier line scanner was in the middle of, a final result empties the collection.
inline void start_daemon()
{
    fake::reset();
    int retcode = 0;
    ASSERT_EQ(start(), 0);
    ASSERT_EQ(vlk_register_nas(), 1);
    ASSERT_EQ(fake::deliver("\r\nOK\r\n"), 0);
    ASSERT_EQ(at_process_nas_msg(&retcode), 0);
    std::memset(g_atCmdStr, 0, sizeof g_atCmdStr);
    fake::forget();
}

class daemon_test : public testing::Test
{
protected:
    void SetUp() override { start_daemon(); }
    int retcode = 0;
};

/// Checks each row of a table with a daemon of its own; failures name the row's fault.
void check_each(const auto &cases, const auto &check)
{
    for (const auto &each : cases) {
        SCOPED_TRACE(each.fault);
        start_daemon();
        check(each);
    }
}

/// What was traced as an error, in order.
inline std::string errors()
{
    std::string texts;
    for (const fake::trace_line &line : fake::seen().traces)
        texts += line.level == 2 ? line.text : "";
    return texts;
}

inline std::string repeat(char c, std::size_t count)
{
    return std::string(count, c);
}

/// How a record is collected: multi_line, doubled, and one more for raw.
inline constexpr int PLAIN = 0, RAW = 1, MULTI = 2, MULTI_RAW = 3, OTHER = 4;

/// A client's request. The command may hold NULs.
inline at_cmd_msg command(std::string_view text, std::string_view match = "", int32_t timeout = 3,
                          int collected = PLAIN)
{
    at_cmd_msg msg{};
    msg.Id = 77;
    msg.seq = 5;
    msg.timeout = timeout;
    std::memcpy(msg.snd_rcv_msg.cmd, text.data(), std::min(text.size(), sizeof msg.snd_rcv_msg.cmd));
    std::memcpy(msg.at_match_str, match.data(), std::min(match.size(), sizeof msg.at_match_str));
    msg.req_type = collected % 2 == 1 ? AT_RAW_COMMAND : AT_COMMAND;
    msg.multi_line = collected / 2;
    return msg;
}

inline std::string rmsg(const at_cmd_msg &msg)
{
    return {msg.snd_rcv_msg.rmsg, strnlen(msg.snd_rcv_msg.rmsg, sizeof msg.snd_rcv_msg.rmsg)};
}

inline std::string bytes_of(const at_cmd_msg &msg)
{
    return {reinterpret_cast<const char *>(&msg), sizeof msg};
}

/// Every whole record in the reply queue, oldest first.
inline std::vector<at_cmd_msg> replies()
{
    std::vector<at_cmd_msg> all;
    for (const std::string &record : fake::queued(VLK_QUEUE_CLIENT_REPLY))
        if (record.size() == sizeof(at_cmd_msg))
            record.copy(reinterpret_cast<char *>(&all.emplace_back()), sizeof(at_cmd_msg));
    return all;
}

/// Lets the modem send the chunks, one record each, and parses them as part of the record's command.
inline void feed(at_cmd_msg &msg, const std::vector<std::string> &chunks)
{
    int retcode = 0;
    for (const std::string &chunk : chunks) {
        ASSERT_EQ(fake::deliver(chunk), 0);
        ASSERT_EQ(read_from_smd(&msg, &retcode), 0);
        ASSERT_EQ(parse_response(&msg), 0);
    }
}

#endif
