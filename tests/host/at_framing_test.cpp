// Framing of modem text. Each transcript runs whole, byte by byte and cut at each position.
#include "at_framing.h"

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "../modem_text.h"

namespace
{

using texts = std::vector<std::string>;

struct recorder final : at_framing_sink {
    std::string own = "AT+CSQ"; ///< an echo
    std::string joined;
    texts units;

    bool is_echo(std::string_view line) const override { return line == own; }
    bool take(const at_unit &unit) override
    {
        EXPECT_LE(unit.text.size(), 1499U);
        EXPECT_FALSE(unit.text.empty() || unit.text.ends_with('\r')) << "a CR LF was cut";
        EXPECT_EQ(unit.is_prompt, unit.text == "> ");
        if (unit.line() == own || (unit.is_continued && unit.text == "\r\n"))
            return false;
        units.push_back((unit.is_after_blank && unit.text.size() < 1498 ? "\r\n" : "") +
                        std::string(unit.text));
        joined += units.back();
        return true;
    }
};

/// Feeds the pieces without a pause between them, then lets the modem be silent.
recorder run(const std::vector<std::string_view> &pieces, at_line_end how = at_line_end::CR_LF)
{
    recorder sink;
    at_framing framing(sink);
    framing.set_line_end(how);
    for (const std::string_view piece : pieces)
        framing.feed(piece, 1000);
    framing.tick(1300);
    EXPECT_EQ(framing.due(), -1);
    return sink;
}

struct transcript {
    const char *fault;
    std::string in;
    std::string expected{}; ///< nothing: as it came
};

const std::string PDU = "00040B911234567890F0";
const std::string LONG(1499, 'x');

const transcript transcripts[] = {
    {"an answer must arrive as it is, in one piece", "~+CSQ: 20,99~~OK~"},
    {"what is complete must not wait for the rest", "~OK~~+CIEV: 7", "~OK~"},
    {"a second final result must not get into the first one's response", "~OK~OK~", "~OK~OK~"},
    {"empty lines must not be a delivery of their own", "~OK~~~", "~OK~"},
    {"the lines before the prompt belong to its delivery", "~^HCSQ: 1~~> "},
    {"a prompt without its blank", "~>", "~> "},
    {"a prompt with half a line end and no blank", "\n>", "> "},
    {"a report between prompt and PDU must not hide behind the prompt", "~> +CMTI: \"ME\",1~",
     "~> +CMTI: \"ME\",1~"},
    {"the same with its empty line", "~> ~+CMTI: \"ME\",1~", "~> ~+CMTI: \"ME\",1~"},
    {"a greater-than inside a line is no prompt", "a> b~"},
    {"a final result without its leading CR", "\nNO CARRIER~", "NO CARRIER~"},
    {"a lone LF or CR inside a line ends nothing", "A\nB\rC~"},
    {"NUL bytes pass", "@@~OK~"},
    {"an echo is kept back, its line end is the answer's", "AT+CSQ\r~+CSQ: 20,99~~OK~", "~+CSQ: 20,99~~OK~"},
    {"a doubled CR must not glue two lines together", "+CSQ: 20,99\r~OK~", "+CSQ: 20,99~OK~"},

    {"an empty line between header and PDU", "+CMT: ,24~~" + PDU + "~", "+CMT: ,24\n" + PDU + "~"},
    {"two +CMT reports and an answer", "~+CMT: ,24~" + PDU + "~~+CMT: ,19~0004~~+CSQ: 31,99~~OK~",
     "~+CMT: ,24\n" + PDU + "~~+CMT: ,19\n0004~~+CSQ: 31,99~~OK~"},
    {"a damaged PDU must not become response text", "+CMT: ,2X~00040JUNK~", "+CMT: ,2X\n00040JUNK~"},
    {"a missing PDU must not swallow the final result", "+CMT: ,24~~OK~", "+CMT: ,24~OK~"},
    {"nor the next report and its PDU", "+CMT: ,24~+CMT: ,19~0004~", "+CMT: ,24~+CMT: ,19\n0004~"},
    {"a text message may say OK", "+CMT: \"+491\",,\"14/08/05\"~OK~", "+CMT: \"+491\",,\"14/08/05\"\nOK~"},
    {"+CMTI and +CDSI have no second line", "+CMTI: \"ME\",1~+CDSI: \"ME\",2~OK~"},
    {"+CDS must be one line", "~+CDS: 24~0791435606~", "~+CDS: 24\n0791435606~"},
    {"+CDS in text mode has no second line", "+CDS: 6,202,\"+49\",145,\"a\",\"b\",0~OK~"},
    {"lines before a header must not wait for its PDU", "OK~+CMT: ,24~00", "OK~+CMT: ,24\n00"},
    {"+CBM keeps its two lines", "~+CBM: 88~46A011~~+CBM: 65~~46A0~", "~+CBM: 88~46A011~~+CBM: 65~46A0~"},
    {"a ^HCMGR body holds lines, prompts and empty lines", "~^HCMGR: 1,2~hi~~> OK~#~~OK~",
     "~^HCMGR: 1,2~hi~~> OK~#~~OK~"},
    {"+CUSD lines must be one line", "~+CUSD: 1,\"Menu:~1. Balance~~> OK\",15~OK~",
     "~+CUSD: 1,\"Menu:\n1. Balance\n\n> OK\",15~OK~"},

    {"a cut between CR and LF", LONG.substr(1) + "~OK~", LONG.substr(1) + "~OK~"},
    {"a full line leaves no room for the empty one before it", "~" + LONG + "~", LONG},
    {"a longer line must be cut in order", LONG + "> y~OK~", LONG + "> y~OK~"},
    {"lines must not be cut where the delivery is full", "A~" + LONG.substr(2) + "~",
     "A~" + LONG.substr(2) + "~"},
    {"an endless quote ends with the delivery", "+CUSD: 1,\"~" + LONG + "~OK~",
     "+CUSD: 1,\"\n" + LONG.substr(11) + "" + LONG.substr(1499 - 11) + "~OK~"},
    {"1499 CR are no line", std::string(1499, '\r') + "\nOK~", "~OK~"},
};

/// Whole, byte by byte and cut at each position.
void expect_text(const std::string &in, const std::string &expected, at_line_end how)
{
    EXPECT_EQ(run({in}, how).joined, expected);
    std::vector<std::string_view> bytes;
    for (size_t i = 0; i < in.size(); ++i)
        bytes.push_back(std::string_view(in).substr(i, 1));
    EXPECT_EQ(run(bytes, how).joined, expected) << "byte by byte";
    for (size_t cut = 1; cut < in.size(); ++cut)
        ASSERT_EQ(run({std::string_view(in).substr(0, cut), std::string_view(in).substr(cut)}, how).joined,
                  expected)
            << "cut at " << cut;
}

TEST(Framing, Transcripts)
{
    for (const transcript &row : transcripts) {
        SCOPED_TRACE(row.fault);
        const std::string expected = modem_text(row.expected.empty() ? row.in : row.expected);
        expect_text(modem_text(row.in), expected, at_line_end::CR_LF);
    }
}

TEST(Framing, EveryLineEndBecomesCrLf)
{
    const std::string answer = "~+CSQ: 20,99~~OK~+CMT: ,24~00040B~";
    const struct {
        const char *line_end;
        at_line_end how;
    } modems[] = {{"\r", at_line_end::CR}, {"\n", at_line_end::LF}, {"\r\r\n", at_line_end::CR_LF}};
    for (const auto &modem : modems) {
        std::string in;
        for (const char c : answer)
            in += c == '~' ? modem.line_end : std::string(1, c);
        SCOPED_TRACE(testing::PrintToString(in));
        expect_text(in, "\r\n+CSQ: 20,99\r\n\r\nOK\r\n+CMT: ,24\n00040B\r\n", modem.how);
        recorder sink;
        at_framing framing(sink);
        EXPECT_EQ(framing.last_line_end(), at_line_end::ANY);
        framing.set_line_end(at_line_end::ANY);
        framing.feed(in + "+", 0);
        EXPECT_EQ(framing.last_line_end(), modem.how);
        EXPECT_TRUE(sink.joined.ends_with("+CMT: ,24\n00040B\r\n"));
    }
    for (const at_line_end how : {at_line_end::CR, at_line_end::LF, at_line_end::ANY})
        for (const std::string &line :
             {std::string(1496, 'x'), std::string(1497, 'x'), std::string(1498, 'x'), std::string(3000, 'x'),
              "+CUSD: 1,\"" + std::string(1484, '\n')})
            run({line, "\r\n", line, "\r\r", line, "\n"}, how); // no room for what a line end grows by
}

struct pause_case {
    const char *fault;
    const char *before; ///< then silence
    const char *delivered;
    const char *after;
    const char *then;
};

const pause_case pauses[] = {
    {"an answer without a line end", "~CONNECT", "~CONNECT", "~> ", "~> "},
    {"a CR waits for its LF", "OK\r", "OK~", "\nRING~", "RING~"},
    {"a CR must not end a header without its PDU", "+CMT: ,24~0004\r", "+CMT: ,24\n0004~", "RING~", "RING~"},
    {"an echo that pauses at its end", "AT+CSQ\r", "", "~+CSQ: 20,99~", "~+CSQ: 20,99~"},
    {"a header without its PDU", "+CMT: ,24~", "+CMT: ,24~", "OK~", "OK~"},
    {"a page without its PDU", "+CBM: 88~", "+CBM: 88~", "OK~", "OK~"},
    {"a header without its LF and its body", "^HCMGR: 1\r", "^HCMGR: 1~", "OK~", "OK~"},
    {"half a PDU", "+CDS: 24~0791", "+CDS: 24\n0791", "43~", "43~"},
    {"a body without Ctrl-Z", "^HCMGR: 1~hi~OK~", "^HCMGR: 1~hi~OK~", "RING~", "RING~"},
    {"a quote that is never closed", "+CUSD: 1,\"a~", "+CUSD: 1,\"a~", "OK~", "OK~"},
};

TEST(Framing, SilenceEndsEveryWait)
{
    for (const pause_case &row : pauses) {
        SCOPED_TRACE(row.fault);
        recorder sink;
        at_framing framing(sink);
        framing.feed(modem_text(row.before), 5000);
        framing.tick(5299);
        EXPECT_EQ(sink.joined, "") << "too early";
        EXPECT_EQ(framing.due(), 5300);
        framing.tick(5300);
        EXPECT_LT(framing.due(), 0) << "what is due is due once";
        EXPECT_EQ(sink.joined, modem_text(row.delivered));
        sink.joined.clear();
        framing.feed(modem_text(row.after), 6000);
        EXPECT_EQ(sink.joined, modem_text(row.then));
    }
}

TEST(Framing, APauseInsideALineMustNotCutIt)
{
    for (const char *line : {"+CSQ: 20,99", "+CME ERROR: 100", "^X: >+CMT: ,24", "56", "AT+CSQ\rX"})
        for (std::size_t cut = 1; cut < std::strlen(line); ++cut) {
            recorder sink;
            at_framing framing(sink);
            framing.feed({line, cut}, 0);
            if (line[cut - 1] == '\r')
                continue;
            EXPECT_EQ(framing.due(), -1);
            framing.tick(60'000);
            framing.feed(line + cut, 60'000);
            framing.feed("\r\nOK\r\n", 60'000);
            EXPECT_EQ(sink.joined, std::string(line) + "\r\nOK\r\n") << cut;
        }
}

TEST(Framing, ResetForgetsTheOtherModem)
{
    recorder sink;
    at_framing framing(sink);
    for (const char *half : {"+CMT: ,24\r\n00", "\r\n+CU", "\r\n>"}) {
        framing.feed(half, 0);
        sink.joined.clear();
        framing.reset();
        EXPECT_EQ(framing.due(), -1);
        framing.feed(" \r\n", 0);
        EXPECT_EQ(sink.joined, " \r\n") << half;
    }
}

} // namespace
