// Framing of modem text. Each transcript runs whole, byte by byte and cut at each position.
#include "at_framing.h"

#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

using namespace std::string_literals;

namespace
{

using texts = std::vector<std::string>;

struct recorder final : at_framing_sink {
    texts deliveries;
    std::string own = "AT+CSQ"; ///< the line that the proxy takes for itself

    bool swallow(std::string_view text) override { return text == own; }
    void deliver(std::string_view text) override
    {
        EXPECT_LE(text.size(), 1499U);
        EXPECT_FALSE(text.empty() || text.ends_with('\r')) << "a CR LF was cut";
        deliveries.emplace_back(text);
    }

    std::string joined() const
    {
        std::string all;
        for (const std::string &text : deliveries)
            all += text;
        return all;
    }
};

/// Feeds the pieces without a pause between them, then lets the modem be silent.
recorder run(const std::vector<std::string_view> &pieces)
{
    recorder sink;
    at_framing framing(sink);
    for (const std::string_view piece : pieces)
        framing.feed(piece, 1000);
    framing.tick(1300);
    EXPECT_EQ(framing.due(), -1);
    return sink;
}

struct transcript {
    const char *fault;
    std::string in;
    texts expected{}; ///< when read whole; nothing: as it came, in one piece
};

const std::string PDU = "00040B911234567890F0";
const std::string LONG(1499, 'x');

const transcript transcripts[] = {
    {"an answer must arrive as it is, in one piece", "\r\n+CSQ: 20,99\r\n\r\nOK\r\n"},
    {"what is complete must not wait for the rest", "\r\nOK\r\n\r\n+CIEV: 7", {"\r\nOK\r\n", "\r\n+CIEV: 7"}},
    {"a second final result must not get into the first one's response",
     "\r\nOK\r\nOK\r\n",
     {"\r\nOK\r\n", "OK\r\n"}},
    {"empty lines must not be a delivery of their own", "\r\nOK\r\n\r\n\r\n", {"\r\nOK\r\n"}},
    {"the lines before the prompt belong to its delivery", "\r\n^HCSQ: 1\r\n\r\n> "},
    {"a prompt without its blank", "\r\n>", {"\r\n> "}},
    {"a prompt with half a line end and no blank", "\n>", {"> "}},
    {"a report between prompt and PDU must not hide behind the prompt",
     "\r\n> +CMTI: \"ME\",1\r\n",
     {"\r\n> ", "+CMTI: \"ME\",1\r\n"}},
    {"the same with its empty line", "\r\n> \r\n+CMTI: \"ME\",1\r\n", {"\r\n> ", "\r\n+CMTI: \"ME\",1\r\n"}},
    {"a greater-than inside a line is no prompt", "a> b\r\n"},
    {"a final result without its leading CR", "\nNO CARRIER\r\n", {"NO CARRIER\r\n"}},
    {"a lone LF or CR inside a line ends nothing", "A\nB\rC\r\n"},
    {"NUL bytes pass", "\0\0\r\nOK\r\n"s},
    {"an echo is kept back, its line end is the answer's",
     "AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n",
     {"\r\n+CSQ: 20,99\r\n\r\nOK\r\n"}},
    {"a doubled CR must not glue two lines together", "+CSQ: 20,99\r\r\nOK\r\n", {"+CSQ: 20,99\r\nOK\r\n"}},

    {"an empty line between header and PDU",
     "+CMT: ,24\r\n\r\n" + PDU + "\r\n",
     {"+CMT: ,24\n" + PDU + "\r\n"}},
    {"two +CMT reports and an answer",
     "\r\n+CMT: ,24\r\n" + PDU + "\r\n\r\n+CMT: ,19\r\n0004\r\n\r\n+CSQ: 31,99\r\n\r\nOK\r\n",
     {"\r\n+CMT: ,24\n" + PDU + "\r\n\r\n+CMT: ,19\n0004\r\n\r\n+CSQ: 31,99\r\n\r\nOK\r\n"}},
    {"a damaged PDU must not become response text",
     "+CMT: ,2X\r\n00040JUNK\r\n",
     {"+CMT: ,2X\n00040JUNK\r\n"}},
    {"a missing PDU must not swallow the final result", "+CMT: ,24\r\n\r\nOK\r\n", {"+CMT: ,24\r\nOK\r\n"}},
    {"nor the next report and its PDU",
     "+CMT: ,24\r\n+CMT: ,19\r\n0004\r\n",
     {"+CMT: ,24\r\n+CMT: ,19\n0004\r\n"}},
    {"a text message may say OK",
     "+CMT: \"+491\",,\"14/08/05\"\r\nOK\r\n",
     {"+CMT: \"+491\",,\"14/08/05\"\nOK\r\n"}},
    {"+CMTI and +CDSI have no second line", "+CMTI: \"ME\",1\r\n+CDSI: \"ME\",2\r\nOK\r\n"},
    {"+CDS must be one line", "\r\n+CDS: 24\r\n0791435606\r\n", {"\r\n+CDS: 24\n0791435606\r\n"}},
    {"+CDS in text mode has no second line", "+CDS: 6,202,\"+49\",145,\"a\",\"b\",0\r\nOK\r\n"},
    {"lines before a header must not wait for its PDU", "OK\r\n+CMT: ,24\r\n00", {"OK\r\n", "+CMT: ,24\n00"}},
    {"+CBM keeps its two lines",
     "\r\n+CBM: 88\r\n46A011\r\n\r\n+CBM: 65\r\n\r\n46A0\r\n",
     {"\r\n+CBM: 88\r\n46A011\r\n\r\n+CBM: 65\r\n46A0\r\n"}},
    {"a ^HCMGR body holds lines, prompts and empty lines",
     "\r\n^HCMGR: 1,2\r\nhi\r\n\r\n> OK\r\n\x1a\r\n\r\nOK\r\n",
     {"\r\n^HCMGR: 1,2\r\nhi\r\n\r\n> OK\r\n\x1a\r\n", "\r\nOK\r\n"}},
    {"+CUSD lines must be one line",
     "\r\n+CUSD: 1,\"Menu:\r\n1. Balance\r\n\r\n> OK\",15\r\nOK\r\n",
     {"\r\n+CUSD: 1,\"Menu:\n1. Balance\n\n> OK\",15\r\nOK\r\n"}},

    {"a cut between CR and LF", LONG.substr(1) + "\r\nOK\r\n", {LONG.substr(1), "\r\nOK\r\n"}},
    {"a full line leaves no room for the empty one before it", "\r\n" + LONG + "\r\n", {LONG}},
    {"a longer line must be cut in order", LONG + "> y\r\nOK\r\n", {LONG, "> y\r\nOK\r\n"}},
    {"lines must not be cut where the delivery is full",
     "A\r\n" + LONG.substr(2) + "\r\n",
     {"A\r\n", LONG.substr(2) + "\r\n"}},
    {"an endless quote ends with the delivery",
     "+CUSD: 1,\"\r\n" + LONG + "\r\nOK\r\n",
     {"+CUSD: 1,\"\n" + LONG.substr(11), LONG.substr(1499 - 11) + "\r\nOK\r\n"}},
    {"1499 CR are no line", std::string(1499, '\r') + "\nOK\r\n", {"\r\nOK\r\n"}},
};

TEST(Framing, Transcripts)
{
    for (const transcript &row : transcripts) {
        SCOPED_TRACE(row.fault);
        const recorder whole = run({row.in});
        EXPECT_EQ(whole.deliveries, row.expected.empty() ? texts{row.in} : row.expected);

        std::vector<std::string_view> bytes;
        for (size_t i = 0; i < row.in.size(); ++i)
            bytes.push_back(std::string_view(row.in).substr(i, 1));
        EXPECT_EQ(run(bytes).joined(), whole.joined()) << "byte by byte";

        for (size_t cut = 1; cut < row.in.size(); ++cut) {
            const std::string_view in = row.in;
            ASSERT_EQ(run({in.substr(0, cut), in.substr(cut)}).joined(), whole.joined()) << "cut at " << cut;
        }
    }
}

struct pause_case {
    const char *fault;
    std::string before; ///< then silence
    texts expected;
    std::string after;
    texts then;
};

const pause_case pauses[] = {
    {"a slow line is not lost", "+CSQ: 2", {"+CSQ: 2"}, "0,99\r\nOK\r\n", {"0,99\r\nOK\r\n"}},
    {"an answer without a line end", "\r\nCONNECT", {"\r\nCONNECT"}, "\r\n> ", {"\r\n> "}},
    {"the rest of a line is no prompt and no header",
     "^X: ",
     {"^X: "},
     ">+CMT: ,24\r\nOK\r\n",
     {">+CMT: ,24\r\nOK\r\n"}},
    {"a CR waits for its LF", "OK\r", {"OK"}, "\nRING\r\n", {"\r\nRING\r\n"}},
    {"an echo that pauses at its end", "AT+CSQ\r", {}, "\r\n+CSQ: 20,99\r\n", {"\r\n+CSQ: 20,99\r\n"}},
    {"a header without its PDU", "+CMT: ,24\r\n", {"+CMT: ,24\r\n"}, "OK\r\n", {"OK\r\n"}},
    {"a page without its PDU", "+CBM: 88\r\n", {"+CBM: 88\r\n"}, "OK\r\n", {"OK\r\n"}},
    {"half a PDU", "+CDS: 24\r\n0791", {"+CDS: 24\n0791"}, "43\r\n", {"43\r\n"}},
    {"a body without Ctrl-Z",
     "^HCMGR: 1\r\nhi\r\nOK\r\n",
     {"^HCMGR: 1\r\nhi\r\nOK\r\n"},
     "RING\r\n",
     {"RING\r\n"}},
    {"a quote that is never closed", "+CUSD: 1,\"a\r\n", {"+CUSD: 1,\"a\r\n"}, "OK\r\n", {"OK\r\n"}},
};

TEST(Framing, SilenceEndsEveryWait)
{
    for (const pause_case &row : pauses) {
        SCOPED_TRACE(row.fault);
        recorder sink;
        at_framing framing(sink);
        framing.feed(row.before, 5000);
        framing.tick(5299);
        EXPECT_EQ(sink.deliveries, texts{}) << "too early";
        EXPECT_EQ(framing.due(), 5300);
        framing.tick(5300);
        EXPECT_EQ(sink.deliveries, row.expected);
        sink.deliveries.clear();
        framing.feed(row.after, 6000);
        EXPECT_EQ(sink.deliveries, row.then);
    }
}

TEST(Framing, ResetForgetsTheOtherModem)
{
    recorder sink;
    at_framing framing(sink);
    for (const char *half : {"+CMT: ,24\r\n00", "\r\n+CU", "\r\n>"}) {
        framing.feed(half, 0);
        sink.deliveries.clear();
        framing.reset();
        EXPECT_EQ(framing.due(), -1);
        framing.feed(" \r\n", 0);
        EXPECT_EQ(sink.joined(), " \r\n") << half;
    }
}

} // namespace
