// The AT link: dialogues between the daemon, the link and a modem, written as what comes in and what goes out.
//
// In:  ">LINE" the daemon sends a command line, "}TEXT" the message of an exchange, "`" ESC; "&LINE" another thread
//      sends; "<BYTES" the modem says; "+MS" time passes; "-N" the asker of request N hangs up; "!" the device is lost, "*" another one comes
// Out: "{TEXT}" written, "held", "refused"; "[TEXT]" an answer and "(TEXT)" a report delivered. ! is CR, ~ is CR LF, # is
//      Ctrl-Z, ` is ESC. Every send is a request of its own, numbered from 1.
#include "at_link.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../modem_text.h"
#include "at_request.h"

namespace
{

std::string shown(std::string_view text)
{
    std::string all;
    for (size_t at = 0; at < text.size(); ++at) {
        if (text.substr(at, 2) == "\r\n") {
            all += '~';
            ++at;
        } else {
            all += text[at] == '\r' ? '!' : text[at] == 26 ? '#' : text[at] == 27 ? '`' : text[at];
        }
    }
    return all;
}

struct recorder final : at_link_port {
    std::string out;
    std::string debt;
    std::vector<at_notice> notices;

    void write(std::string_view text) override { out += "{" + shown(text) + "}"; }
    void deliver(std::string_view text, bool is_answer) override
    {
        EXPECT_LE(text.size(), AT_DELIVERY_MAX);
        out += (is_answer ? "[" : "(") + shown(text) + (is_answer ? "]" : ")");
    }
    void tell(at_notice what, std::string_view) override { notices.push_back(what); }
    void tell_debt(std::string_view name) override { debt = name; }
    void hang_up() override { out += "hang up"; }
    void reopen() override { out += "reopen"; }
};

/// A link with its recorder, its clock and the number of its requests.
struct bench {
    recorder port;
    at_link link{port};
    int64_t now = 10000;
    uint32_t requests = 0;
    int64_t limit_ms = 0;
    bool has_unread = false;

    std::string sent(std::string_view text, at_sent result)
    {
        return result == at_sent::WRITE  ? "{" + shown(text) + "}"
               : result == at_sent::HELD ? "held"
                                         : "refused";
    }

    void pass_time(int64_t until)
    {
        while (link.due() >= 0 && link.due() <= until) {
            now = std::max(now, link.due());
            link.tick(now);
        }
        now = until;
        link.tick(now);
    }

    /// What went out because of one thing that came in.
    std::string play(std::string_view in)
    {
        port.out.clear();
        std::string text = modem_text(in.substr(1));
        std::string result;
        switch (in[0]) {
        case '>':
        case '}':
        case '`':
            text = in[0] == '`' ? "\x1b" : text + "\r";
            result = sent(text,
                          link.send(text, {in[0] == '>' ? ++requests : requests, limit_ms, has_unread}, now));
            break;
        case '&':
            text += "\r";
            result = sent(text, link.send_beside(text));
            break;
        case '<':
            link.feed(text, now);
            break;
        case '+':
            pass_time(now + std::stoi(text));
            break;
        case '-':
            link.asker_gone(static_cast<uint32_t>(std::stoul(text)), now);
            break;
        case '!':
            link.closed();
            break;
        case '*':
            come();
            port.out.clear();
            break;
        default:
            ADD_FAILURE() << in;
        }
        return result + port.out;
    }

    /// A modem that answers all questions at once.
    void come()
    {
        link.opened(now);
        for (const char *answer :
             {"<~OK~", "<~OK~", "<~+CMEE: 1~~OK~", "<~+CSCS: \"GSM\"~~OK~", "<~+CMGF: 0~~OK~"})
            play(answer);
        EXPECT_TRUE(link.is_free() && link.is_ready());
        port.notices.clear();
    }

    bool was_told(at_notice what) const { return std::ranges::count(port.notices, what) > 0; }
};

struct exchange {
    const char *in;
    const char *out;
};

struct dialogue {
    const char *fault;
    std::vector<exchange> lines;
};

const char SYNCED1[] = "<~+CMEE: 1~~OK~";

const dialogue dialogues[] = {
    {"nothing is owed: a command passes at once, its answer in one piece",
     {{">AT+CSQ", "{AT+CSQ!}"}, {"<~+CSQ: 20,99~~OK~", "[~+CSQ: 20,99~~OK~]"}, {">ATI", "{ATI!}"}}},
    {"the IMEI of the command before must not answer AT+CIMI",
     {{">AT+CGSN", "{AT+CGSN!}"},
      {">AT+CIMI", "held{AT+CMEE?!}"},
      {"<~001010123456789~~OK~", ""},
      {SYNCED1, "{AT+CIMI!}"},
      {"<~310170123456789~~OK~", "[~310170123456789~~OK~]"}}},
    {"half an answer that nobody waits for must not get in front of the next",
     {{">AT+CGSN", "{AT+CGSN!}"},
      {"<~0010101234", ""},
      {"+400", ""},
      {">AT+CIMI", "held{AT+CMEE?!}"},
      {"<56789~~OK~~+CMEE: 1~~OK~", "{AT+CIMI!}"},
      {"<~310~~OK~", "[~310~~OK~]"}}},
    {"half a report must not get in front of the next answer, nor the other half",
     {{"<~^HCSQ: 1", ""},
      {"+400", ""},
      {">AT+ONE", "{AT+ONE!}"},
      {"+400", ""},
      {"<57,22~", "(~^HCSQ: 157,22~)"},
      {"<~OK~", "[~OK~]"}}},
    {"a pause inside the line with its reference must not cost a message its reference",
     {{">AT+CMGS=14", "{AT+CMGS=14!}"},
      {"<~> ", "[~> ]"},
      {"}0011#", "{0011#!}"},
      {"<~+CM", ""},
      {"+400", ""},
      {"<GS: 7~~O", ""},
      {"+400", ""},
      {"<K~", "[~+CMGS: 7~~OK~]"}}},
    {"a late answer in pieces, with a report that goes its way",
     {{">AT+CREG?", "{AT+CREG?!}"},
      {">AT+CIMI", "held{AT+CMEE?!}"},
      {"<~+CREG: 2,1~", ""},
      {"<~^HCSQ: 1~", "(~^HCSQ: 1~)"},
      {"<~OK~", ""},
      {SYNCED1, "{AT+CIMI!}"}}},
    {"an owed answer that does not name its command must not be told as a report",
     {{">AT+ONE", "{AT+ONE!}"},
      {"-1", "[~NO CARRIER~]{AT+CMEE?!}"},
      {"<~+TWO: 1~~^HCSQ: 1~~OK~", "(~^HCSQ: 1~)"},
      {SYNCED1, ""},
      {"<~+TWO: 2~", "(~+TWO: 2~)"}}},
    {"what waits is replaced when its asker has given up",
     {{">AT+ONE", "{AT+ONE!}"},
      {">AT+TWO", "held{AT+CMEE?!}"},
      {">AT+THREE", "held"},
      {"<~OK~~+CMEE: 1~~OK~", "{AT+THREE!}"}}},
    {"a question that is answered late must not pass for the next one's answer",
     {{">AT+ONE", "{AT+ONE!}"},
      {">AT+TWO", "held{AT+CMEE?!}"},
      {"+5000", "[~COMMAND NOT SUPPORT~]{ATE0Q0V1!}"},
      {">AT+THREE", "held"},
      {"<~OK~~+CMEE: 1~~OK~", "{AT+CMEE=1!}{AT+CSCS?!}"},
      {"<~OK~~OK~", ""},
      {"<~+CSCS: \"GSM\"~~OK~", "{AT+THREE!}"}}},
    {"a client's own AT+CMEE? must not pass for the question",
     {{">at+cmee?", "{at+cmee?!}"},
      {">AT+TWO", "held{AT+CSCS?!}"},
      {"<~+CMEE: 1~~OK~", ""},
      {"<~+CSCS: \"GSM\"~~OK~", "{AT+TWO!}"}}},
    {"the time for what waits is up: it ends as not written, and is not written",
     {{">AT+ONE", "{AT+ONE!}"},
      {">AT+TWO", "held{AT+CMEE?!}"},
      {"+940", "[~COMMAND NOT SUPPORT~]"},
      {"<~OK~~+CMEE: 1~~OK~", ""},
      {">AT+THREE", "{AT+THREE!}"}}},
    {"the ladder, up to opening the device anew",
     {{">AT+ONE", "{AT+ONE!}"},
      {"+60000", ""},
      {">AT+TWO", "held{AT+CMEE?!}"},
      {"+5000", "[~COMMAND NOT SUPPORT~]{ATE0Q0V1!}"},
      {"+5000", "{`}{ATE0Q0V1!}"},
      {"+5000", ""},
      {">AT+THREE", "refused"},
      {"+1100", "{+++}"},
      {"+1100", "{ATE0Q0V1!}"},
      {"+5000", "{ATE0Q0V1!}"},
      {"+5000", "{ATH!}hang up"},
      {"+1100", "{ATE0Q0V1!}"},
      {"+5000", "reopen"}}},
    {"a scan that is given up gets more time than other commands",
     {{">AT+COPS=?", "{AT+COPS=?!}"},
      {">AT+TWO", "held{AT+CMEE?!}"},
      {"+29000", "[~COMMAND NOT SUPPORT~]"},
      {"<~+COPS: (1,\"A\")~~OK~~+CMEE: 1~~OK~", ""},
      {">AT+TWO", "{AT+TWO!}"}}},

    {"names of commands are no reports; a report among them is one",
     {{">AT+CLAC", "{AT+CLAC!}"},
      {"<~+CREG~~&F~~^HCSQ~", ""},
      {"<~+CREG: 1~", "(~+CREG: 1~)"},
      {"<~D~~OK~", "[~+CREG~~&F~~^HCSQ~~D~~OK~]"}}},
    {"text of a message that looks like a report comes behind no empty line",
     {{">AT+CMGL=\"ALL\"", "{AT+CMGL=\"ALL\"!}"},
      {"<~+CMGL: 1,\"REC READ\"~SPRING~+CREG: 1~", ""},
      {"<~+CREG: 5~", "(~+CREG: 5~)"},
      {"<~OK~", "[~+CMGL: 1,\"REC READ\"~SPRING~+CREG: 1~~OK~]"}}},

    {"a message goes out at its prompt",
     {{">AT+CMGS=2", "{AT+CMGS=2!}"},
      {"<~> ", "[~> ]"},
      {"}0011#", "{0011#!}"},
      {"<~+CMGS: 4~~OK~", "[~+CMGS: 4~~OK~]"}}},
    {"a report in place of the prompt is no go-ahead",
     {{">AT+CMGS=2", "{AT+CMGS=2!}"},
      {"<~+CMTI: \"ME\",1~", "(~+CMTI: \"ME\",1~)"},
      {"}0011#", "held"},
      {"<~> ", "{0011#!}"},
      {"<~+CMGS: 4~~OK~", "[~+CMGS: 4~~OK~]"}}},
    {"no prompt in time: no message, and ESC for the late one",
     {{">AT+CMGS=2", "{AT+CMGS=2!}"},
      {"}0011#", "refused{AT+CMEE?!}"},
      {"<~> ", "{`}"},
      {">AT+CSQ", "held"},
      {"<~OK~", "{AT+CSCS?!}"},
      {"<~+CSCS: \"GSM\"~~OK~", "{AT+CSQ!}"}}},
    {"a prompt for another one's command must not take this message",
     {{">AT+CMGS=2", "{AT+CMGS=2!}"},
      {">AT+CMGS=3", "held{AT+CMEE?!}"},
      {"<~> ", "{`}"},
      {"+300", "{AT+CSCS?!}"},
      {"<~+CSCS: \"GSM\"~~OK~", "{AT+CMGS=3!}"},
      {"<~> ", "[~> ]"},
      {"}0022#", "{0022#!}"}}},
    {"the message of a line that waits goes with it",
     {{">AT+ONE", "{AT+ONE!}"},
      {">AT+CMGS=2", "held{AT+CMEE?!}"},
      {"<~^HCSQ: 1~", "(~^HCSQ: 1~)"},
      {"}0011#", "held"},
      {"<~OK~~+CMEE: 1~~OK~", "{AT+CMGS=2!}"},
      {"<~> ", "{0011#!}"}}},
    {"nor is it sent when the time for the prompt passes while the line waits",
     {{">AT+ONE", "{AT+ONE!}"},
      {">AT+CMGS=2", "held{AT+CMEE?!}"},
      {"}0011#", "refused"},
      {"<~OK~~+CMEE: 1~~OK~", ""}}},
    {"refused in place of the prompt",
     {{">AT+CMGS=2", "{AT+CMGS=2!}"}, {"<~+CMS ERROR: 304~", "[~+CMS ERROR: 304~]"}, {"}0011#", "refused"}}},
    {"a prompt in an ordinary command gets ESC",
     {{">AT+CSQ;+CMGS=18", "{AT+CSQ;+CMGS=18!}"}, {"<~+CSQ: 1~~> ", "{`}"}, {"<~OK~", "[~+CSQ: 1~~OK~]"}}},
    {"also one that nothing asked for",
     {{"<~> ", "{`}{AT+CMEE?!}"}, {">AT+CPIN=\"4711\"", "held"}, {SYNCED1, "{AT+CPIN=\"4711\"!}"}}},
    {"a prompt that no message follows, from a command that was sent raw",
     {{">AT+CMGS=18", "{AT+CMGS=18!}"}, {"<~> ", "[~> ]"}, {"+2000", "{`}"}, {"<~OK~", "[~OK~]"}}},
    {"the next command ends the text input of the one before",
     {{">AT+CMGS=18", "{AT+CMGS=18!}"}, {"<~> ", "[~> ]"}, {">AT+CSQ", "held{`}{AT+CMEE?!}"}}},
    {"a PDU with a line end, an escape or a command in it is not sent",
     {{">AT+CMGS=2", "{AT+CMGS=2!}"}, {"<~> ", "[~> ]"}, {"}00~AT+CFUN=0~#", "refused{`}{AT+CMEE?!}"}}},
    {"a command and its message in one: the message waits for the prompt, which is nobody else's",
     {{">AT+CMGC=2\r0011#", "held{AT+CMGC=2!}"},
      {"<~^HCSQ: 1~", "(~^HCSQ: 1~)"},
      {"<~> ", "{0011#!}"},
      {"<~+CMGC: 4~~OK~", "[~+CMGC: 4~~OK~]"}}},
    {"the same while an answer is owed",
     {{">AT+ONE", "{AT+ONE!}"},
      {">AT+CMGC=2\r0011#", "held{AT+CMEE?!}"},
      {"<~> ", "{`}"},
      {"+300", "{AT+CSCS?!}"},
      {"<~+CSCS: \"GSM\"~~OK~", "{AT+CMGC=2!}"},
      {"<~> ", "{0011#!}"},
      {"<~OK~", "[~OK~]"}}},
    {"one that is refused before its prompt: its message goes nowhere",
     {{">AT+CMGC=2\r0011#", "held{AT+CMGC=2!}"},
      {"<~+CMS ERROR: 304~", "[~+CMS ERROR: 304~]"},
      {"<~> ", "{`}{AT+CMEE?!}"}}},
    {"a line, a PDU and nothing else in one",
     {{">AT+CMGC=2\r0011\rAT+CFUN=0#", "refused"},
      {">AT+CMGC=2\r0011\x1b#", "refused"},
      {">AT+CMGC=2\r0011", "refused"},
      {">AT+CSQ\r0011#", "refused"}}},
    {"a message without its end gets ESC",
     {{">AT+CMGS=2", "{AT+CMGS=2!}"}, {"<~> ", "[~> ]"}, {"`", "held{`}{AT+CMEE?!}"}}},

    {"one line a request", {{">AT+ONE~AT+CFUN=0", "refused"}, {">AT#", "refused"}, {">AT@", "refused"}}},
    {"settings that a client changes are put right before the next command",
     {{">ATE1", "{ATE1!}"},
      {"<~OK~", "[~OK~]{ATE0Q0V1!}"},
      {">AT+CSQ", "held"},
      {"<~OK~", "{AT+CMEE=1!}"},
      {"<~OK~", "{AT+CMEE?!}"},
      {SYNCED1, "{AT+CSQ!}"}}},
    {"numbers in place of words", {{">ATV0", "{ATV0!}"}, {"<0\r", ""}, {"+300", "[~OK~]{ATE0Q0V1!}"}}},
    {"no results at all", {{">ATQ1", "{ATQ1!}"}, {">AT+CSQ", "held{ATE0Q0V1!}"}, {"<~OK~", "{AT+CMEE=1!}"}}},
    {"a modem that echoes has lost its settings; its echo is no answer",
     {{">AT+CSQ", "{AT+CSQ!}"}, {"<AT+CSQ\r~+CSQ: 1~~OK~", "[~+CSQ: 1~~OK~]{ATE0Q0V1!}"}}},
    {"what a question finds forgotten is set again",
     {{">AT+ONE", "{AT+ONE!}"},
      {">AT+TWO", "held{AT+CMEE?!}"},
      {"<AT+CMEE?\r~+CMEE: 0~~OK~", "{ATE0Q0V1!}"},
      {"<~OK~", "{AT+CMEE=1!}"}}},
    {"a restart that the modem announces ends the command",
     {{">AT+ONE", "{AT+ONE!}"}, {"<~RDY~", "[~NO CARRIER~]{ATE0Q0V1!}"}, {">AT+TWO", "held"}}},
    {"data mode is left, with its guard times",
     {{">ATD1", "{ATD1!}"},
      {"<~CONNECT 9600~", "[~CONNECT 9600~]"},
      {"<~\xff}garbage OK", ""},
      {"+1100", "{+++}"},
      {"<~NO CARRIER~", ""},
      {"+1100", "{ATE0Q0V1!}"}}},

    {"who has gone waits no longer",
     {{">AT+ONE", "{AT+ONE!}"}, {"-2", ""}, {"-1", "[~NO CARRIER~]{AT+CMEE?!}"}, {"-1", ""}}},
    {"also before its line was written",
     {{">AT+ONE", "{AT+ONE!}"},
      {">AT+TWO", "held{AT+CMEE?!}"},
      {"-1", ""},
      {"-2", "[~NO CARRIER~]"},
      {"<~OK~~+CMEE: 1~~OK~", ""}}},
    {"a device that is lost ends what runs and what waits",
     {{">AT+ONE", "{AT+ONE!}"},
      {"<~+ONE: 1~", ""},
      {">AT+TWO", "held{AT+CMEE?!}"},
      {"!", "[~COMMAND NOT SUPPORT~]"},
      {">AT", "refused"}}},
    {"a message that is held for its prompt goes with the device",
     {{">AT+CMGS=2", "{AT+CMGS=2!}"},
      {"<~^HCSQ: 1~", "(~^HCSQ: 1~)"},
      {"}0011#", "held"},
      {"!", "[~NO CARRIER~]"},
      {"*", ""},
      {">AT+CMGS=3", "{AT+CMGS=3!}"},
      {"<~> ", "[~> ]"}}},
    {"what came of its answer goes with it",
     {{">AT+ONE", "{AT+ONE!}"}, {"<~+ONE: 1~", ""}, {"!", "[~NO CARRIER~]"}}},

    {"the second of two answers is nobody's",
     {{">AT+CSQ", "{AT+CSQ!}"},
      {"<~+CSQ: 1~~OK~~+CSQ: 1~~OK~", "[~+CSQ: 1~~OK~]"},
      {">AT+CIMI", "held{AT+CMEE?!}"},
      {"<~+CMEE: 1~~OK~~+CMEE: 1~~OK~", ""},
      {"+100", "{AT+CIMI!}"}}},
    {"a report that names the command before comes a little later, not never",
     {{">AT+CREG?", "{AT+CREG?!}"},
      {"<~+CREG: 2,1~~OK~~+CREG: 5~", "[~+CREG: 2,1~~OK~]"},
      {"+100", "(~+CREG: 5~)"},
      {"<~+CREG: 1~", "(~+CREG: 1~)"}}},
    {"text between commands gets into no answer", {{"<~Call Ready~", ""}, {"<~+CTZV: 8~", "(~+CTZV: 8~)"}}},
    {"a scan that ends by itself, and one that is stopped",
     {{">AT^NETSCAN", "{AT^NETSCAN!}"},
      {"<~^NETSCAN: 1~~OK~", "[~^NETSCAN: 1~~OK~]"},
      {"&AT+STOP", "held"},
      {">AT^NETSCAN", "{AT^NETSCAN!}"},
      {"&AT+STOP", "{AT+STOP!}"},
      {"<~OK~", "[~OK~]{AT+CMEE?!}"},
      {"<~OK~~+CMEE: 1~~OK~", ""}}},
    {"a final result that comes in two parts",
     {{">AT+CSQ", "{AT+CSQ!}"}, {"<~+CSQ: 1~~O", ""}, {"+400", ""}, {"<K~", "[~+CSQ: 1~~OK~]"}}},
    {"one without a line end", {{">ATD1", "{ATD1!}"}, {"<~BUSY", ""}, {"+300", "[~BUSY]"}}},
    {"a body has a delivery of its own",
     {{">AT^HCMGR=1", "{AT^HCMGR=1!}"}, {"<~^HCMGR: 1~OK~#~~OK~", "[~^HCMGR: 1~OK~#~][~OK~]"}}},
};

TEST(Link, Dialogues)
{
    for (const dialogue &row : dialogues) {
        SCOPED_TRACE(row.fault);
        bench one;
        one.come();
        one.limit_ms = 1000;
        for (const exchange &each : row.lines)
            ASSERT_EQ(one.play(each.in), each.out) << each.in;
    }
}

struct coming {
    const char *fault;
    std::vector<exchange> lines;
    bool is_ready = true;
};

const coming comings[] = {
    {"asks until something answers, then sets everything",
     {{"+1000", "{ATE0Q0V1!}"},
      {"<ATE0Q0V1\r~OK~", "{AT+CMEE=1!}"},
      {"<~OK~", "{AT+CMEE?!}"},
      {"<~+CMEE: 1~~OK~", "{AT+CSCS?!}"},
      {"<~ERROR~", ""},
      {"+1000", "{AT+CMGF?!}"},
      {"<~+CMGF: 0~~OK~", ""}}},
    {"late answers to the first questions are not those to the last",
     {{"+2000", "{ATE0Q0V1!}{ATE0Q0V1!}"},
      {"<~OK~", "{AT+CMEE=1!}"},
      {"<~OK~", "{AT+CMEE?!}"},
      {"<~OK~", ""},
      {"<~OK~", ""},
      {"<~OK~", "{AT+CSCS?!}"},
      {"<~+CMEE: 1~~OK~", "{AT+CMGF?!}"},
      {"<~+CSCS: \"GSM\"~~OK~", "{AT+CMEE?!}"},
      {"<~+CMGF: 0~~OK~", ""},
      {"<~+CMEE: 1~~OK~", ""}}},
    {"the rest of a line spoils the first, and one setting a line",
     {{"<AT+XATE0Q0V1\r~ERROR~", "{ATV1!}"}, {"<~OK~", "{ATE0!}"}, {"<~OK~", "{AT+CMEE=1!}"}},
     false},
    {"echo stays",
     {{"<~ERROR~", "{ATV1!}"},
      {"<~ERROR~", "{ATE0!}"},
      {"<~ERROR~", "{ATE0!}"},
      {"<~ERROR~", "{AT+CMEE=1!}"}},
     false},
    {"a modem that names nothing is counted",
     {{"<~OK~", "{AT+CMEE=1!}"},
      {"<~ERROR~", "{AT+CMEE?!}"},
      {"<~OK~", "{AT+CSCS?!}"},
      {"<~OK~", "{AT+CMGF?!}"},
      {"<~OK~", ""},
      {">AT+ONE", "{AT+ONE!}"},
      {">AT+TWO", "held{AT+CMEE?!}"},
      {"<~OK~", ""},
      {"<~OK~", "{AT+TWO!}"}}},
    {"a text input that an earlier program left",
     {{"<ATE0Q0V1\r~> ", "{`}"}, {"+300", "{ATE0Q0V1!}"}, {"<~OK~", "{AT+CMEE=1!}"}},
     false},
    {"silence: ESC, data mode, hanging up",
     {{"+2000", "{ATE0Q0V1!}{ATE0Q0V1!}"},
      {"+1000", "{ATE0Q0V1!}"},
      {"+1000", "{`}{ATE0Q0V1!}"},
      {"+2100", "{+++}"},
      {"+1100", "{ATE0Q0V1!}"}},
     false},
    {"CR alone at the end of a line",
     {{"<\rOK\r", ""},
      {"+300", "{AT+CMEE=1!}"},
      {"<\rOK\r", ""},
      {"+300", "{AT+CMEE?!}"},
      {"<\r+CMEE: 1\r\rOK\r", ""},
      {"+300", "{AT+CSCS?!}"},
      {"<\rERROR\r", ""},
      {"+300", "{AT+CMGF?!}"},
      {"<\r+CMGF: 0\r\rOK\r", ""},
      {"+300", ""},
      {">AT+CSQ", "{AT+CSQ!}"},
      {"<\r+CSQ: 1\r\rOK\r", "[~+CSQ: 1~~OK~]"}}},
    {"LF alone",
     {{"<\nOK\n", "{AT+CMEE=1!}"},
      {"<\nOK\n", "{AT+CMEE?!}"},
      {"<\n+CMEE: 1\n\nOK\n", "{AT+CSCS?!}"},
      {"<\nERROR\n", "{AT+CMGF?!}"},
      {"<\nERROR\n", "{AT+CMEE?!}"},
      {"<\n+CMEE: 1\n\nOK\n", ""},
      {">AT+CSQ", "{AT+CSQ!}"},
      {"<\n+CSQ: 1\n\nOK\n", "[~+CSQ: 1~~OK~]"}}},
};

TEST(Link, ModemComes)
{
    for (const coming &row : comings) {
        SCOPED_TRACE(row.fault);
        bench one;
        one.link.opened(one.now);
        EXPECT_EQ(one.port.out, "{ATE0Q0V1!}");
        EXPECT_EQ(one.play(">AT+EARLY"), "refused");
        for (const exchange &each : row.lines)
            ASSERT_EQ(one.play(each.in), each.out) << each.in;
        EXPECT_EQ(one.link.is_ready(), row.is_ready);
        EXPECT_EQ(one.was_told(at_notice::READY), row.is_ready);
    }
}

TEST(Link, DebtIsNamedWithoutItsParameters)
{
    const std::pair<const char *, const char *> commands[] = {{"AT+CPIN=\"4711\"", "AT+CPIN"},
                                                              {"AT+CPIN4711", "AT+CPIN"},
                                                              {"ATD123456;", "ATD"},
                                                              {"AT+C5GREG?", "AT+C5GREG"},
                                                              {"AT", "AT"},
                                                              {"AT^HCMGS=3", "AT^HCMGS"}};
    for (const auto &[line, name] : commands) {
        bench one;
        one.come();
        one.play(std::string(">") + line);
        EXPECT_EQ(one.port.debt, "");
        one.play(">AT+NEXT");
        EXPECT_EQ(one.port.debt, name);
        one.play("<~OK~~+CMEE: 1~~OK~~+CSCS: \"GSM\"~~OK~");
        EXPECT_EQ(one.port.debt, "") << line;
    }
}

TEST(Link, HealthyModemIsNotTalkedAbout)
{
    bench one;
    one.come();
    for (int turn = 0; turn < 3; ++turn) {
        one.play(">AT+CSQ");
        one.play("<~+CSQ: 1~~OK~");
        one.play("<~RING~");
        one.play("+100000");
        one.play(">AT+LATE");
        one.play(">AT+CSQ");
        const char *const names[] = {"+CMEE", "+CSCS", "+CMGF"};
        one.play(std::string("<~OK~~") + names[turn] + ": 1~~OK~");
        one.play("<~OK~");
    }
    EXPECT_EQ(one.port.notices, std::vector<at_notice>{});
}

TEST(Link, HostileModemGetsNoFlood)
{
    bench one;
    one.come();
    for (const char *noise :
         {"> > > > > > ", "~OK~", "~RDY~~OK~", "~+CMEE: 0~~OK~", "0\r~", "~CONNECT~", "~+CME ERROR"}) {
        SCOPED_TRACE(noise);
        std::string flood = "<";
        for (int times = 0; times < 60; ++times)
            flood += noise;
        size_t most = 0;
        for (int times = 0; times < 50; ++times) {
            one.play(">AT+CSQ");
            most = std::max(most, one.play(flood).size());
        }
        EXPECT_LT(most, 3000U) << "an answer to each of its lines";
    }
    EXPECT_LT(one.port.notices.size(), 20U);
}

TEST(Link, LongAnswerComesInOrderAndHasABound)
{
    bench one;
    one.come();
    one.play(">AT+CMGL");
    std::string expected;
    for (int line = 0; line < 30; ++line) {
        const std::string text = "~" + std::to_string(1000 + line) + std::string(996, 'x') + "~";
        EXPECT_EQ(one.play("<" + text), "");
        expected += "[" + text + "]";
    }
    EXPECT_TRUE(one.play("<OK~") == expected.substr(0, expected.size() - 1) + "OK~]");
    EXPECT_FALSE(one.link.has_lost_lines());
    one.play(">AT+CMGL");
    for (int line = 0; line < 100; ++line)
        one.play("<" + std::string(1000, 'x') + "~");
    one.play("<short~"); // what has room behind what had none would hide the hole
    const std::string all = one.play("<~OK~");
    EXPECT_TRUE(all.size() < AT_ANSWER_MAX + 200 && all.ends_with("x~~OK~]")) << all.size();
    EXPECT_TRUE(one.link.has_lost_lines());
    EXPECT_TRUE(one.was_told(at_notice::LONG_ANSWER));
}

TEST(Request, FaultsAreFound)
{
    const struct {
        std::string text;
        bool is_sms;
        bool is_good;
    } rows[] = {
        {"AT+CSQ", false, true},
        {"AT+CSQ;+CREG?\r\n", false, true},
        {"AT+ONE\rAT+CFUN=0", false, false},
        {"AT\nAT", false, false},
        {"AT\x1a", false, false},
        {"AT\x1b", false, false},
        {std::string("AT\0X", 4), false, false},
        {"AT+CMGS=18\r0011aF\x1a", true, true},
        {std::string("AT+CMGS=18\r0011\x1a\0\0", 18), true, true},
        {"AT+CMGS=18\r0011", true, false},
        {"AT+CMGS=18\r0011\rAT+CFUN=0\x1a", true, false},
        {"AT+CMGW=18,1\r00 11\x1a", true, false},
        {"AT+CMGS=18", true, false},
        {"AT+CMGS=18\x1b\r0011\x1a", true, false},
        {"AT+CMGS=\"+49123\"\rhello\r\nyou\x1a", true, true},
        {"AT+CMGS=\"+49123\"\rhel\x1blo\x1a", true, false},
        {"AT+CMGS=\"+49123\"\rhel\x1alo\x1a", true, false},
    };
    for (const auto &row : rows)
        EXPECT_EQ(at_request_fault(row.text, row.is_sms) == nullptr, row.is_good) << shown(row.text);
}

TEST(Request, ChangesOfTheLineSettingsAreSeen)
{
    for (const char *text :
         {"ATZ", "atz0", "AT&F", "AT&F1", "ATE1", "ATV0", "ATV", "ATQ1", "ATE0V0", "AT+CSQ;E1", "ATS3=13",
          "AT+CMEE=0", "AT+CMEE=2", "AT+CFUN=1,1", "AT^RESET", "at+csq;+cmee=0", "ATM0E1"})
        EXPECT_TRUE(at_changes_settings(text)) << text;
    for (const char *text : {"AT", "ATE0", "ATE", "ATV1", "ATQ0", "ATQ", "ATI", "AT&W", "AT&V", "ATDE1;",
                             "AT+CMEE=1", "AT+CMEE?", "AT+CSQ", "AT+CPIN=\"Z\"", "AT+CFUN?", "ATA", "ATH0"})
        EXPECT_FALSE(at_changes_settings(text)) << text;
}

} // namespace
