// From the modem's bytes to the client's record: each transcript goes through the real framing and the real core, read
// whole, byte by byte and cut at each position, with and without a silence wherever no line is open. A silence inside
// a line is a line of its own for the daemon, by design, and not tried here.
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "../core/core_test.h"
#include "at_framing.h"
#include "vorlink/engine/command_transaction.h"
#include "vorlink/engine/sms_transaction.h"

namespace
{

using texts = std::vector<std::string>;

struct transcript {
    std::string name;
    std::string command;
    int32_t ret_val;
    std::size_t told;
    std::string bytes;

    bool sends_message() const { return command.starts_with("AT+CMGS="); }
    std::string prefix() const { return command.substr(2, command.find_first_of("=?", 2) - 2) + ":"; }
};

std::string unescape(std::string_view text)
{
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\\') {
            bytes += text[at];
        } else if (text[++at] == 'x') {
            bytes += static_cast<char>(std::stoi(std::string(text.substr(at + 1, 2)), nullptr, 16));
            at += 2;
        } else {
            bytes += text[at] == 'r' ? '\r' : text[at] == 'n' ? '\n' : text[at];
        }
    }
    return bytes;
}

std::vector<transcript> read_transcripts()
{
    std::vector<transcript> all;
    std::ifstream file(TRANSCRIPTS);
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with('#'))
            continue;
        std::istringstream fields(line);
        std::array<std::string, 5> field;
        for (std::string &each : field)
            std::getline(fields, each, '\t');
        const std::string asked = field[1] == "-" ? "AT+CSQ" : field[1];
        all.push_back({field[0], asked, std::stoi(field[2]), std::stoul(field[3]), unescape(field[4])});
    }
    return all;
}

/// The proxy, as far as the framing can tell.
struct recorder final : at_framing_sink {
    explicit recorder(const transcript &row) : echo(row.command + "\r"), awaiting(row.sends_message()) {}

    bool swallow(std::string_view text) override
    {
        if (text == ">" || at_is_final_result(text))
            awaiting = false;
        return text == echo;
    }
    bool awaits_prompt() const override { return awaiting; }
    void deliver(std::string_view text) override { deliveries.emplace_back(text); }

    std::string echo;
    bool awaiting;
    texts deliveries;
};

/// Nothing when a silence was asked for and a line is open at each of its places.
texts frame(const transcript &row, const std::vector<std::size_t> &cuts, bool silences)
{
    recorder sink(row);
    at_framing framing(sink);
    int64_t now = 1000;
    std::size_t begin = 0;
    bool silent = false;
    for (const std::size_t cut : cuts) {
        framing.feed(std::string_view(row.bytes).substr(begin, cut - begin), now);
        begin = cut;
        if (silences && framing.due() < 0) {
            now += 10 * AT_SILENCE_MS;
            framing.tick(now);
            silent = true;
        }
    }
    if (silences && !silent)
        return {};
    framing.feed(std::string_view(row.bytes).substr(begin), now);
    framing.tick(now + AT_SILENCE_MS);
    return sink.deliveries;
}

/// How the daemon meets the bytes.
struct use {
    const char *name;
    bool runs_command;
    bool with_prefix;
    int collected;
};
constexpr use uses[] = {{"no command", false, false, PLAIN},
                        {"plain", true, true, PLAIN},
                        {"plain, any line", true, false, PLAIN},
                        {"multi-line", true, true, MULTI},
                        {"raw", true, false, RAW}};

/// What clients and services see, and what is left for the next command.
struct outcome {
    int32_t ret_val = 0;
    uint32_t rsp_len = 0;
    std::string rmsg;
    std::string next;
    texts told;

    bool operator==(const outcome &) const = default;
};

void take_what_comes()
{
    int retcode = 0;
    at_cmd_msg idle{};
    idle.req_type = ACTIVE_REPORT;
    idle.timeout = 5000;
    while (read_from_smd(&idle, &retcode) == 0)
        parse_response(&idle);
}

std::string ask_next()
{
    int retcode = 0;
    at_cmd_msg next = command("AT+NEXT");
    fake::on_write("AT+NEXT\r", {{0, "\r\n+NEXT: 1\r\n\r\nOK\r\n"}});
    at_send_normal_cmd_msg(&next, &retcode);
    return rmsg(next);
}

outcome run(const transcript &row, const use &how, const texts &deliveries)
{
    start_daemon();
    std::vector<fake::delivery> answer;
    for (const std::string &text : deliveries)
        answer.push_back({static_cast<int32_t>(answer.size()) + 1, text});
    const std::string pdu = row.sends_message() ? "\r0011000B91\x1A" : "";
    at_cmd_msg msg = command(row.command + pdu, how.with_prefix ? row.prefix() : "", 5000, how.collected);
    fake::on_write(row.command + "\r", answer);

    int retcode = 0;
    if (!how.runs_command)
        for (const fake::delivery &each : answer)
            fake::deliver_later(each.seconds, each.bytes);
    else if (row.sends_message())
        at_send_or_save_msg(&msg, &retcode);
    else
        at_send_normal_cmd_msg(&msg, &retcode);
    take_what_comes();

    outcome seen;
    if (how.runs_command)
        seen = {msg.snd_rcv_msg.ret_val, msg.snd_rcv_msg.rsp_len, {msg.snd_rcv_msg.rmsg, 1500}, "", {}};
    for (const fake::platform_call &call : fake::seen().calls)
        if (call.what.starts_with("VLK_post") || call.what.starts_with("QEP_MSG_Send"))
            seen.told.push_back(call.what + call.data);
    seen.next = ask_next();
    return seen;
}

/// Every way to read the bytes: whole, cut once, byte by byte; each with and without silences.
std::set<texts> all_deliveries(const transcript &row, std::size_t *runs)
{
    std::vector<std::vector<std::size_t>> ways(1);
    for (std::size_t cut = 1; cut < row.bytes.size(); ++cut)
        ways[0].push_back(cut);
    for (std::size_t cut = 1; cut < row.bytes.size(); ++cut)
        ways.push_back({cut});
    std::set<texts> distinct;
    for (const auto &cuts : ways)
        for (const bool silences : {false, true})
            if (const texts deliveries = frame(row, cuts, silences); !deliveries.empty()) {
                distinct.insert(deliveries);
                ++*runs;
            }
    return distinct;
}

} // namespace

TEST(Transcripts, OutcomesDoNotDependOnWhereTheBytesAreCut)
{
    const std::vector<transcript> rows = read_transcripts();
    ASSERT_FALSE(rows.empty()) << TRANSCRIPTS;
    std::size_t cuts = 0, sequences = 0, differences = 0;
    for (const transcript &row : rows) {
        const std::set<texts> distinct = all_deliveries(row, &cuts);
        const texts whole = frame(row, {}, false);
        for (const use &how : uses) {
            const outcome expected = run(row, how, whole);
            if (how.collected == PLAIN && how.with_prefix) {
                EXPECT_EQ(expected.ret_val, row.ret_val) << row.name;
            }
            if (!how.runs_command) {
                EXPECT_EQ(expected.told.size(), row.told) << row.name;
            }
            // Raw text without a final result is what the last delivery held.
            if (how.collected == RAW && expected.ret_val == AT_NONE)
                continue;
            for (const texts &deliveries : distinct) {
                ++sequences;
                if (run(row, how, deliveries) == expected)
                    continue;
                ++differences;
                ADD_FAILURE() << row.name << ", " << how.name << ": another outcome when delivered as "
                              << testing::PrintToString(deliveries);
            }
        }
    }
    printf("%zu transcripts, %zu ways to read them, %zu runs of the core, %zu differences\n", rows.size(),
           cuts, sequences, differences);
}
