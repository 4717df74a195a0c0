// The modem's behaviour on a virtual clock: bytes in, bytes out.

#include "modem.h"

#include "../modem_text.h"

#include <gtest/gtest.h>

using namespace modemsim;

namespace
{

constexpr char script[] = R"(include default
forget reports
set echo 0

command AT+CPOL?
    line one
    line two
    repeat 2
        report ^RSSI: {i}
    end
    report +CMT: ,3\r\n00ABCD
    raw \r\n+CUSD: 0,"\x00A",72\r\n
    line three
    final OK
    final OK

command AT^NETSCAN
    stop-by AT+STOP
    delay 1s
    line found
    final OK
    delay 100ms
    report after
)";

constexpr char reports[] = R"(
after 50ms
    report ^SIMST: 1
every 100ms after 35ms
    report ^RSSI: 7
)";

struct session : modem {
    explicit session(const char *more = "") : modem(parse_dialogue(std::string(script) + more, "t"), 1)
    {
        client_opened(milliseconds(0));
    }

    /// Everything that the modem sends until `until` when it gets these bytes now.
    std::string answer(std::string_view bytes, int until)
    {
        receive(bytes);
        while (true) {
            advance(now);
            const auto due = next_due();
            if (!due || *due > milliseconds(until))
                break;
            now = *due;
        }
        now = std::max(now, milliseconds(until));
        std::string sent(output());
        written(sent.size());
        return sent;
    }

    milliseconds now{0};
};

struct exchange {
    const char *fault;
    std::string in;
    std::string out;
};

const exchange exchanges[] = {
    {"an echo of the line and not of the answer", "ATE1\rAT+CSQ\rATE0\rAT\r",
     "~OK~AT+CSQ\r~+CSQ: 20,99~~OK~ATE0\r~OK~~OK~"},
    {"the three ways to refuse an unknown command", "AT+X\rAT+CMEE=1\rAT+X\rAT+CMEE=2\rAT+X\r",
     "~ERROR~~OK~~+CME ERROR: 100~~OK~~+CME ERROR: unknown~"},
    {"a value is answered, one out of range not set", "AT+CREG=2\rAT+CREG=7\rAT+CREG?\r",
     "~OK~~ERROR~~+CREG: 2,1,\"1A2B\",\"0C3D4E5F\",7~~OK~"},
    {"noise gets no answer", "0011AA#\r~", ""},
    {"CR LF ends a line once", "AT~AT~", "~OK~~OK~"},
    {"a typing mistake can be rubbed out", "ATX\bI\b\r", "~OK~"},
    {"an endless line is refused", "AT" + std::string(1600, 'x') + "\r", "~ERROR~"},
    {"lines of one answer share a line end, reports in between do not", "AT+CPOL?\r",
     "~one~two~~^RSSI: 1~~^RSSI: 2~~+CMT: ,3~00ABCD~~+CUSD: 0,\"@A\",72~"
     "~three~~OK~~OK~"},
    {"the reference counts up", "AT+CMGS=2\r00ABCD#\rAT+CMGS=2\r00ABCD#\r",
     "~> ~+CMGS: 12~~OK~~> ~+CMGS: 13~~OK~"},
    {"a service centre counts apart", "AT+CMGW=1\r0191FF#", "~> ~+CMGW: 4~~OK~"},
    {"a PDU that is too short", "AT+CMGS=3\r00ABCD#", "~> ~+CMS ERROR: 304~"},
    {"a PDU that is no hexadecimal text", "AT^HCMGS=2\r00ABxD#", "~> ~+CMS ERROR: 304~"},
    {"ESC leaves the prompt", "AT+CMGS=2\r00A\x1b\rAT\r", "~> ~OK~~OK~"},
    {"a command in the prompt is text", "AT+CMGS=\"1\"\rAT\r#", "~> ~+CMGS: 12~~OK~"},
};

TEST(modem, exchanges_whole_and_byte_by_byte)
{
    for (const exchange &row : exchanges) {
        SCOPED_TRACE(row.fault);
        const std::string expected = modem_text(row.out);
        session whole, bytes;
        EXPECT_EQ(whole.answer(modem_text(row.in), 1000), expected);
        std::string out;
        for (const char c : modem_text(row.in))
            out += bytes.answer({&c, 1}, 0);
        EXPECT_EQ(out + bytes.answer("", 1000), expected);
    }
}

TEST(modem, a_scan_is_stopped_once_and_overtakes_the_queue)
{
    session one;
    EXPECT_EQ(one.answer("AT^NETSCAN\rAT\rat+stop\rAT+STOP\r", 50), modem_text("~OK~"));
    EXPECT_EQ(one.answer("", 2000), modem_text("~after~~OK~~OK~")) << "the queued commands";
    EXPECT_EQ(one.answer("AT^NETSCAN\r", 3050), modem_text("~found~~OK~")) << "a scan that is let alone";
    EXPECT_EQ(one.answer("AT+STOP\r", 3500), modem_text("~after~~OK~")) << "too late to stop it";
}

TEST(modem, schedules_count_from_the_first_client_and_go_on_without_one)
{
    session one(reports);
    EXPECT_EQ(one.answer("", 210), "\r\n^RSSI: 7\r\n\r\n^SIMST: 1\r\n\r\n^RSSI: 7\r\n");
    one.client_closed();
    EXPECT_EQ(one.answer("", 410), "") << "nobody there";
    one.client_opened(milliseconds(420));
    EXPECT_EQ(one.answer("ATE1\rAT+CMGS=2\r", 510), "\r\nOK\r\nAT+CMGS=2\r\r\n> \r\n^RSSI: 7\r\n");
    one.client_closed();
    one.client_opened(milliseconds(520));
    EXPECT_EQ(one.answer("AT\r", 530), "AT\r\r\nOK\r\n") << "the prompt ended with its client";
    one.silence(true);
    EXPECT_EQ(one.answer("AT\r", 830), "");
    one.power_up();
    one.client_opened(milliseconds(840));
    EXPECT_EQ(one.answer("AT\r", 841), "\r\nOK\r\n") << "start values again: no echo, not silent";
}

TEST(modem, output_that_nobody_reads_is_bounded_and_nothing_is_lost)
{
    session one;
    one.flood(100000, "^RSSI: {i}");
    one.receive("AT\r");
    std::string all;
    do {
        one.advance(milliseconds(0));
        ASSERT_LT(one.output().size(), modem::output_high + 100);
        all += one.output();
        one.written(one.output().size());
    } while (one.next_due());
    EXPECT_NE(all.find("\r\n^RSSI: 99999\r\n\r\n^RSSI: 100000\r\n"), std::string::npos);
    EXPECT_NE(all.find("\r\nOK\r\n"), std::string::npos) << "commands are served in between";
    EXPECT_FALSE(one.state().answering);
}

} // namespace
