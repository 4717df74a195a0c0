// How commands are asked and their answers read, with the daemon's own engine between the two.
#include <random>

#include "../core/core_test.h"
#include "at_question.h"
#include "vlk_client.h"
#include "vorlink/engine/command_transaction.h"

namespace
{
using testing::ElementsAreArray;
using texts = std::vector<std::string>;

/// Runs the command in the engine while the modem sends these chunks.
at_answer ask(const std::string &text, const texts &chunks)
{
    at_cmd_msg msg;
    EXPECT_EQ(vlk_fill_query(&msg, text.c_str(), 5), VLK_OK) << vlk_last_error();
    std::vector<fake::delivery> answer;
    for (const std::string &chunk : chunks)
        answer.push_back({0, chunk});
    fake::on_write(text + "\r", answer);
    int retcode = 0;
    at_send_normal_cmd_msg(&msg, &retcode);
    return read_answer(question_of(text), msg);
}

std::string framed(const std::string &line)
{
    return "\r\n" + line + "\r\n";
}

struct dialogue {
    const char *command;
    texts lines;
    const char *final_result = "OK";
};

const dialogue DIALOGUES[] = {
    // answers that look like reports
    {"AT+CREG?", {"+CREG: 2,1,\"1A2B\",\"0C3D4E5F\",7"}},
    {"AT+CGREG?", {"+CGREG: 0,1"}},
    {"AT+C5GREG?", {"+C5GREG: 0,0"}},
    {"AT^HCSQ?", {"^HCSQ: \"LTE\",50,40,90,20"}},
    {"at^hcsq?", {"^HCSQ: \"LTE\",50,40,90,20"}},
    {"AT+CLIP?", {"+CLIP: 1,1"}},
    {"AT+CUSD?", {"+CUSD: 1"}},
    {"AT+CCWA=1,2", {"+CCWA: 1,1", "+CCWA: 0,4"}},
    {"AT^NDISSTATQRY?", {"^NDISSTATQRY: 1,,,\"IPV4\""}},
    {"AT^MODE", {"^MODE: 5,4"}},
    {"AT^NETSCAN", {"^NETSCAN: -80,12", "^NETSCAN: -95,3"}},
    {"AT+CREG=?", {"+CREG: (0-2)"}},
    // a report's name inside
    {"AT+COPS?", {"+COPS: 0,0,\"SPRING\",7"}},
    {"AT+CPBR=3", {"+CPBR: 3,\"123\",129,\"CONNECT Ltd\""}},
    {"AT+CNUM", {"+CNUM: \"RING me\",\"+123\",145"}},
    {"AT+CPOL?", {"+CPOL: 1,0,\"SPRING\"", "+CPOL: 2,0,\"OTHER\""}},
    {"AT+CGDCONT?", {"+CGDCONT: 1,\"IP\",\"CONNECT.net\",\"\",0,0", "+CGDCONT: 2,\"IP\",\"ims\",\"\",0,0"}},
    {"AT+CEER", {"+CEER: CONNECT failed"}},
    // the prefix again inside a value
    {"AT+CPBR=1,2", {"+CPBR: 1,\"1\",129,\"+CPBR: x\"", "+CPBR: 2,\"2\",129,\"y\""}},
    // no prefix, other prefixes, several kinds of lines
    {"ATI", {"Manufacturer: Example", "Model: EX-1", "+GCAP: +CGSM"}},
    {"ATI9", {"a", "b: c"}},
    {"AT+GCAP", {"+GCAP: +CGSM,+DS"}},
    {"AT+CGMR", {"Revision: 1", "Build: 2"}},
    {"AT+CIMI", {"001010123456789"}},
    {"AT+CGSN=1", {"+CGSN: \"001010123456789\""}},
    {"AT+CCID", {"+ICCID: 89001012345678901234"}},
    {"AT+FCLASS?", {"0"}},
    {"AT$QCRMCALL?", {"$QCRMCALL: 1,V4", "more"}},
    {"AT!GSTATUS?", {"!GSTATUS: ", "Current Time: 6070", "Mode: ONLINE"}},
    {"AT&V", {"ACTIVE PROFILE:", "E0 Q0 V1"}},
    {"ATS0?", {"000"}},
    {"AT+CSQ", {"+CSQ: 20,99"}},
    {"at+csq", {"+CSQ: 20,99"}},
    {"AT+CPIN?", {"+CPIN: READY"}},
    {"AT+CLCK=\"SC\",2", {"+CLCK: 0"}},
    {"AT+CRSM=176,12258,0,0,10", {"+CRSM: 144,0,\"98001012345678901234\""}},
    {"AT+CMEE=1", {}},
    {"AT+CREG=2", {}},
    {"AT+CUSD=1,\"*100#\",15", {}},
    {"AT", {}},
    // messages
    {"AT+CMGL=4", {"+CMGL: 1,1,,24", "0004AA", "+CMGL: 2,1,\"CONNECT\",24", "0004BB"}},
    {"AT+CMGL=\"ALL\"", {"+CMGL: 0,\"REC READ\",\"+1\",,\"26/01/01,12:00:00+04\"", "Hello", "world"}},
    {"AT+CMGR=1", {"+CMGR: 1,,24", "0004AA"}},
    {"AT^HCMGR=1", {"^HCMGR: +1,2026", "Hello", "world"}},
    // final results
    {"AT+CPIN=\"0000\"", {}, "+CME ERROR: 16"},
    {"AT+CMGR=9", {}, "+CMS ERROR: 321"},
    {"ATD123;", {}, "NO CARRIER"},
    {"ATD*99#", {}, "CONNECT 115200"},
    {"AT+X?", {}, "ERROR"},
    {"ATI", {"begun"}, "ERROR"},
};

TEST(AtQuestion, AnswersComeBackWholeAndInOrder)
{
    for (const dialogue &each : DIALOGUES) {
        SCOPED_TRACE(each.command);
        start_daemon();
        std::string bytes;
        for (const std::string &line : each.lines)
            bytes += framed(line);
        const at_answer answer = ask(each.command, {bytes + framed(each.final_result)});
        EXPECT_THAT(answer.lines, ElementsAreArray(each.lines));
        EXPECT_EQ(answer.final_result, each.final_result);
        EXPECT_FALSE(answer.cut);
    }
}

TEST(AtQuestion, ReportsBetweenTheLinesNeverBecomePartOfAnAnswer)
{
    const texts reports = {"^RSSI: 18", "RING",         "+CMTI: \"SM\",3",   "^SIMST: 1",
                           "+CEREG: 1", "+CIEV: 2,3",   "^DSFLOWRPT: 1,2,3", "+CGEV: NW DETACH",
                           "+CTZV: +4", "^STIN: 1,1,0", "^SRVST: 2",         "+CRING: VOICE"};
    std::mt19937 random(20261123);
    for (int round = 0; round < 40; ++round) {
        start_daemon();
        for (const dialogue &each : DIALOGUES) {
            SCOPED_TRACE(each.command + std::string(" in round ") + std::to_string(round));
            texts chunks;
            const auto add_reports = [&] {
                for (auto count = random() % 3; count > 0; --count)
                    chunks.push_back(framed(reports[random() % reports.size()]));
            };
            for (const std::string &line : each.lines) {
                add_reports();
                chunks.push_back(framed(line));
            }
            add_reports();
            chunks.push_back(framed(each.final_result));
            const at_answer answer = ask(each.command, chunks);
            EXPECT_THAT(answer.lines, ElementsAreArray(each.lines));
            EXPECT_EQ(answer.final_result, each.final_result);
        }
    }
}

TEST(AtQuestion, ARegistrationReportIsNotTheAnswerToTheQuestionForIt)
{
    start_daemon();
    const at_answer answer = ask("AT+CREG?", {framed("+CREG: 5"), framed("+CREG: 2,1,\"1A2B\",\"0C3D\",7"),
                                              framed("+CREG: 5,\"1A2B\",\"0C3D\",7"), framed("OK")});
    EXPECT_THAT(answer.lines, ElementsAreArray({"+CREG: 2,1,\"1A2B\",\"0C3D\",7"}));
}

TEST(AtQuestion, ASetCommandLeavesTheReportThatItSwitchesOnToTheServices)
{
    start_daemon();
    const at_answer answer = ask("AT+CREG=2", {framed("+CREG: 1,\"1A2B\",\"0C3D\",7"), framed("OK")});
    EXPECT_THAT(answer.lines, testing::IsEmpty());
    EXPECT_THAT(fake::calls(), testing::Contains(testing::HasSubstr("19008")));
}

TEST(AtQuestion, ALongRawAnswerSaysThatItIsCut)
{
    // The text of the lines with their ends; 1499 bytes fit.
    for (const auto &[length, cut] : {std::pair(1400U, false),
                                      {1480U, false},
                                      {1489U, false},
                                      {1497U, false},
                                      {1499U, true},
                                      {1600U, true},
                                      {4000U, true}}) {
        SCOPED_TRACE(length);
        start_daemon();
        texts chunks;
        texts lines;
        for (unsigned left = length; left > 0;) {
            const unsigned size = left > 120 ? 100 : left;
            lines.push_back(repeat('x', size - 2));
            chunks.push_back(lines.back() + "\r\n");
            left -= size;
        }
        chunks.push_back(framed("OK"));
        const at_answer answer = ask("ATI", chunks);
        EXPECT_EQ(answer.cut, cut);
        EXPECT_EQ(answer.final_result, "OK");
        EXPECT_EQ(answer.lines == lines, !cut || length == 1499U);
    }
}

TEST(AtQuestion, WhatTheModemSaidIsReadAsATerminalShowsIt)
{
    constexpr bool ANSWER = true, MEANWHILE = false;
    const std::string head = "\r\n+CMGL: 1,\"REC READ\",\"+1\",,\"26/01/01\"\r\n";
    const struct {
        const char *command;
        std::vector<at_text> said;
        texts lines;
        const char *final_result = "OK";
        bool cut = false;
    } cases[] = {
        // pieces end anywhere, reports come between them
        {"ATI", {{"\r\nlong", ANSWER}, {" line\r\n\r\nOK\r\n", ANSWER}}, {"long line"}},
        {"AT+CCID", {{"\r\n+ICCID: 89\r\n", MEANWHILE}, {"\r\nOK\r\n", ANSWER}}, {"+ICCID: 89"}},
        {"AT+CMGS=5", {{"\r\n> ", ANSWER}, {"+CMGS: 7\r\n\r\nOK\r\n", ANSWER}}, {"+CMGS: 7"}},
        // reports of the command's own name
        {"AT+CREG?", {{"\r\n+CREG: 5\r\n\r\n+CREG: 2,1\r\n\r\nOK\r\n", ANSWER}}, {"+CREG: 2,1"}},
        {"AT+CREG?", {{"\r\n+CREG: 5\r\n\r\nOK\r\n", ANSWER}}, {"+CREG: 5"}}, // this modem's own way
        {"AT+CREG=?", {{"\r\n+CREG: 5\r\n\r\n+CREG: (0-2)\r\n\r\nOK\r\n", ANSWER}}, {"+CREG: (0-2)"}},
        {"AT+CREG=2", {{"\r\n+CREG: 1,\"1A2B\"\r\n\r\nOK\r\n", ANSWER}}, {}},
        {"AT+CLIP?", {{"\r\n+CLIP: \"+49\",145\r\n\r\n+CLIP: 1,1\r\n\r\nOK\r\n", ANSWER}}, {"+CLIP: 1,1"}},
        {"AT+CCWA=1,2",
         {{"\r\n+CCWA: 1,1\r\n\r\n+CCWA: \"+49\",145,1\r\n\r\n+CCWA: 0,4\r\n\r\nOK\r\n", ANSWER}},
         {"+CCWA: 1,1", "+CCWA: 0,4"}},
        {"AT+CUSD?", {{"\r\n+CUSD: 1\r\n\r\n+CUSD: 0,\"x\",15\r\n\r\nOK\r\n", ANSWER}}, {"+CUSD: 1"}},
        // the end of the answer, and what looks like it
        {"AT+X?", {{"\r\n+CME ERROR: 10\r\n", ANSWER}}, {}, "+CME ERROR: 10"},
        {"ATD*99#", {{"\r\nCONNECT 115200\r\n", ANSWER}}, {}, "CONNECT 115200"},
        {"ATI", {{"\r\nERROR: 5\r\n", ANSWER}}, {}, "ERROR: 5"},
        {"ATI", {{"\r\nOKI Modem\r\n", ANSWER}}, {"OKI Modem"}, "OK", true},
        {"AT+CMGL=\"ALL\"", {{head + "OK\r\n", ANSWER}}, {head.substr(2, head.size() - 4), "OK"}, "OK", true},
        {"AT+CMGL=\"ALL\"", {{head + "a\r\n\r\nOK\r\n", ANSWER}}, {head.substr(2, head.size() - 4), "a"}},
        {"AT+CMGL=\"ALL\"",
         {{"+CREG: 1\r\n", MEANWHILE}, {head + "\r\nOK\r\n", ANSWER}},
         {head.substr(2, head.size() - 4)},
         "OK",
         true},
        {"AT+CMGL=\"ALL\"",
         {{"\r\n+CREG: 1\r\n", MEANWHILE}, {head + "a\r\n\r\nOK\r\n", ANSWER}},
         {head.substr(2, head.size() - 4), "a"}},
        {"AT+CMGL=4", {{"\r\n+CMGL: 1,1,,24\r\n0004AA\r\nOK\r\n", ANSWER}}, {"+CMGL: 1,1,,24", "0004AA"}},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.command);
        const std::string_view end = each.final_result;
        const int32_t code = end.starts_with("OK")        ? AT_OK
                             : end.starts_with("CONNECT") ? AT_CONNECT
                             : end.starts_with("ERROR")   ? AT_ERROR
                                                          : AT_CME_ERROR;
        const std::optional<at_answer> answer = read_answer_text(question_of(each.command), each.said, code);
        ASSERT_TRUE(answer.has_value());
        EXPECT_THAT(answer->lines, ElementsAreArray(each.lines));
        EXPECT_EQ(answer->final_result, end);
        EXPECT_EQ(answer->cut, each.cut);
    }
    EXPECT_FALSE(read_answer_text(question_of("ATI"), {{"\r\nbegun\r\n", ANSWER}}, AT_OK).has_value());
}

TEST(AtQuestion, CommandLinesAreDividedWhereTheModemWouldDivideThem)
{
    const std::pair<const char *, texts> cases[] = {
        {"AT+CSQ;+CREG?", {"AT+CSQ", "AT+CREG?"}},
        {"at+csq; +creg?;", {"at+csq", "at+creg?"}},
        {"ATE0Q0V1+CMEE=1;+CSQ", {"ATE0Q0V1", "AT+CMEE=1", "AT+CSQ"}},
        {"AT&D2+CSQ", {"AT&D2", "AT+CSQ"}},
        {"AT+CMGF=0;D+49123;", {"AT+CMGF=0", "ATD+49123;"}},
        {"ATD123;", {"ATD123;"}},
        {"AT+CPBW=1,\"1\",129,\"a;b+c\";+CSQ", {"AT+CPBW=1,\"1\",129,\"a;b+c\"", "AT+CSQ"}},
        {"AT$X=1;+CSQ", {"AT$X=1", "AT+CSQ"}},
        {"AT", {"AT"}},
        {"AT;;", {}},
        {"hello;x", {"hello;x"}},
    };
    for (const auto &[line, commands] : cases)
        EXPECT_EQ(split_commands(line), commands) << line;
}

TEST(AtQuestion, SecretsAreNotShown)
{
    const std::pair<const char *, const char *> cases[] = {
        {"AT+CPIN=\"1234\"", "AT+CPIN=***"},
        {"at+cpin = 1234", "AT+CPIN=***"},
        {"AT+CPIN:1234", "AT+CPIN=***"},
        {"AT+CSQ;+CPWD=\"SC\",\"1\",\"2\";+CREG?", "AT+CSQ;+CPWD=***;+CREG?"},
        {"ATE0+CLCK=\"SC\",1,\"1234\"", "ATE0;+CLCK=***"},
        {"AT^CPIN=\"12345678\",\"1234\"", "AT^CPIN=***"},
        {"AT+CPIN?", "AT+CPIN?"},
        {"AT+CPIN=?", "AT+CPIN=?"},
        {"AT+CSQ; +COPS?", "AT+CSQ; +COPS?"},
    };
    for (const auto &[line, shown] : cases)
        EXPECT_EQ(without_secrets(line), shown);
}
} // namespace
