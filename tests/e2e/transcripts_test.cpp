// From the modem's bytes to the client's record: each transcript goes through the real AT link and the real core, read
// whole, byte by byte and cut at each position, with and without a silence wherever no line is open. A silence inside
// a line is a line of its own for the daemon, by design, and not tried here.
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "../core/core_test.h"
#include "at_link.h"
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

constexpr char PDU[] = "0011000B91\x1A";

struct recorder final : at_link_port {
    void write(std::string_view) override {}
    void deliver(std::string_view text, bool) override { deliveries.emplace_back(text); }
    void tell(at_notice, std::string_view) override {}
    void tell_debt(std::string_view) override {}
    void hang_up() override {}
    void reopen() override {}

    texts deliveries;
};

/// A link behind which a modem has come, and the daemon's part of an exchange.
struct session {
    recorder port;
    at_link link{port};
    bool owes_message = false;

    session(const transcript &row, bool runs_command)
    {
        link.opened(0);
        for (const char *answer : {"OK", "OK", "+CMEE: 1\r\nOK", "ERROR", "ERROR", "+CMEE: 1\r\nOK"})
            link.feed(std::string(answer) + "\r\n", 0);
        EXPECT_TRUE(link.is_free());
        if (!runs_command)
            return;
        EXPECT_EQ(link.send(row.command + "\r", {}, 0), at_sent::WRITE);
        owes_message = row.sends_message();
    }

    void feed(std::string_view bytes, int64_t now)
    {
        link.feed(bytes, now);
        if (owes_message && !port.deliveries.empty()) {
            link.send(std::string(PDU) + "\r", {}, now);
            owes_message = false;
        }
    }

    /// No line is open.
    bool may_be_silent(int64_t now) const { return link.due() < 0 || link.due() > now + AT_SILENCE_MS; }
};

/// Nothing when a silence was asked for and a line is open at each of its places.
texts frame(const transcript &row, bool runs_command, const std::vector<std::size_t> &cuts, bool silences)
{
    session modem(row, runs_command);
    int64_t now = 1000;
    std::size_t begin = 0;
    bool silent = false;
    for (const std::size_t cut : cuts) {
        modem.feed(std::string_view(row.bytes).substr(begin, cut - begin), now);
        begin = cut;
        if (silences && modem.may_be_silent(now)) {
            now += 4 * AT_SILENCE_MS;
            modem.link.tick(now);
            silent = true;
        }
    }
    if (silences && !silent)
        return {};
    modem.feed(std::string_view(row.bytes).substr(begin), now);
    modem.link.tick(now + AT_SILENCE_MS);
    return modem.port.deliveries;
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
    const std::string pdu = row.sends_message() ? std::string("\r") + PDU : "";
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
std::set<texts> all_deliveries(const transcript &row, bool runs_command, std::size_t *runs)
{
    std::vector<std::vector<std::size_t>> ways(1);
    for (std::size_t cut = 1; cut < row.bytes.size(); ++cut)
        ways[0].push_back(cut);
    for (std::size_t cut = 1; cut < row.bytes.size(); ++cut)
        ways.push_back({cut});
    std::set<texts> distinct;
    for (const auto &cuts : ways)
        for (const bool silences : {false, true})
            if (const texts deliveries = frame(row, runs_command, cuts, silences); !deliveries.empty()) {
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
        const std::set<texts> idle = all_deliveries(row, false, &cuts),
                              running = all_deliveries(row, true, &cuts);
        for (const use &how : uses) {
            const std::set<texts> &distinct = how.runs_command ? running : idle;
            const texts whole = frame(row, how.runs_command, {}, false);
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
