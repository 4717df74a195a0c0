// What the logs show of a text: everything but its secrets.
#include <gtest/gtest.h>

#include "log_text.h"

namespace
{

std::string shown(const std::string &text)
{
    log_line line;
    line.add_masked(text.c_str());
    return {line.text().data(), line.text().size()};
}

TEST(LogText, SecretsAreMaskedAndNothingElse)
{
    const std::string pdu = "0011000B916407281553F80000AA0AE8329BFD4697D9EC37";
    struct {
        const char *fault;
        std::string text, line;
    } const cases[] = {
        {"a PIN", "the command AT+CPIN=4711 failed", "the command AT+CPIN=***"},
        {"a PIN in quotes with a new one behind it", "AT+CPIN=\"12345678\",\"4711\"", "AT+CPIN=***"},
        {"in small letters", "at+cpin=4711", "at+cpin=***"},
        {"blanks around the sign", "AT+CPIN = 4711", "AT+CPIN =***"},
        {"behind another command", "AT+CSQ;+CPIN=4711", "AT+CSQ;+CPIN=***"},
        {"behind a query, with a blank", "AT+CSQ?; +CPIN=4711", "AT+CSQ?; +CPIN=***"},
        {"without AT", "cmd <+CLCK=\"SC\",1,\"4711\">", "cmd <+CLCK=***"},
        {"a maker's command", "AT^CPWD=\"SC\",\"4711\"", "AT^CPWD=***"},
        {"a register", "[ATS7=4711]", "[ATS7=***"},
        {"a number that is dialled", "ATD+491711234567; failed", "ATD***"},
        {"in small letters too", "atd0171; failed", "atd***"},
        {"a code that is dialled", "AT D", "AT D"},
        {"quotes without the sign", "AT+CPIN \"4711\" failed", "AT+CPIN \"***\" failed"},
        {"quotes that do not end", "AT+CPIN \"4711", "AT+CPIN \"***\""},
        {"the text of a USSD report", "+CUSD: 0,\"Your balance\",15", "+CUSD: 0,\"***\",15"},
        {"a text message behind its header", "+CMT: \"+49171\",,\"26\"\r\nHello you",
         "+CMT: \"***\",,\"***\"***"},
        {"a PDU", "sent " + pdu + " to", "sent *** to"},
        {"a PDU behind a word", "pdu" + pdu, "pdu***"},
        {"a PDU in small letters", "x:e8329bfd4697d9ec37", "x:***"},
        {"a line end in the command", "AT+CMGS=23\r" + pdu + "\x1a", "AT+CMGS=***"},
        // What must stay readable.
        {"a word of the trace", "AT cmd= ***, Id= 812, seq = 4", "AT cmd= ***, Id= 812, seq = 4"},
        {"a number behind a report's name", "vorlink: +CGREG: state=5", "vorlink: +CGREG: state=5"},
        {"English", "look at it, format=hex, data=5", "look at it, format=hex, data=5"},
        {"a query", "AT+COPS=? took 3 s", "AT+COPS=***"},
        {"a command without parameters", "AT+CSQ took 5 s", "AT+CSQ took 5 s"},
        {"quotes without a command", "group \"dialout\": see \"fuser\"", "group \"dialout\": see \"fuser\""},
        {"a device's serial number", "/dev/serial/by-id/usb-A_0123456789ABCDEF0-if02 is gone",
         "/dev/serial/by-id/usb-A_0123456789ABCDEF0-if02 is gone"},
        {"an equipment's number", "IMEI 352099001761481", "IMEI 352099001761481"},
        // What must not get out as it is.
        {"a line end", "a\r\nb", "a\\x0d\\x0ab"},
        {"an escape", "\x1b[2J\x7f\x9b", "\\x1b[2J\\x7f\\x9b"},
        {"nothing", "", ""},
    };
    for (const auto &c : cases)
        EXPECT_EQ(shown(c.text), c.line) << c.fault;
}

TEST(LogText, NoCutOfASecretTextShowsMoreOfIt)
{
    const std::string secret = "4711081547110815";
    for (const std::string head : {"AT+CPIN=", "x at^cpwd=\"SC\",", "+CUSD: 0,\"", "AT+CMGS=5\r"})
        for (size_t cut = 0; cut <= secret.size(); ++cut)
            EXPECT_EQ(shown(head + secret.substr(0, cut)).find("47"), std::string::npos) << head << cut;
}

TEST(LogText, ALineIsBoundedAndDated)
{
    struct {
        const char *fault;
        int64_t seconds;
        int milliseconds;
        long offset;
        const char *text;
    } const cases[] = {
        {"the beginning of time", 0, 0, 0, "1970-01-01 00:00:00.000 "},
        {"a leap day, west", 1709251199 + 18000, 7, -18000, "2024-02-29 23:59:59.007 "},
        {"the next year, east", 1798761599, 999, 3600, "2027-01-01 00:59:59.999 "},
    };
    for (const auto &c : cases) {
        log_line line;
        line.add_time(c.seconds, c.milliseconds, c.offset);
        EXPECT_EQ(std::string(line.text().data(), line.text().size()), c.text) << c.fault;
    }
    log_line full;
    full.add_masked(std::string(5000, '\x01').c_str());
    full.end();
    EXPECT_EQ(full.text().size(), LOG_LINE_SIZE);
    EXPECT_EQ(full.text().back(), '\n') << "a line without its end runs into the next one";
}

} // namespace
