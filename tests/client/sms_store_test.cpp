// Messages in the modem's store and on their way, with a modem that answers by a script.
#include <deque>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "sms_store.h"

namespace
{
using sms::answer;
using std::string;
using testing::ElementsAre;
using testing::HasSubstr;

const string PDU = "0001000491942100000161"; // 10 octets behind its first part

string entry(const string &head, const string &pdu = PDU)
{
    return head + ",," + std::to_string(pdu.size() / 2 - 1) + "\r\n" + pdu + "\r\n";
}

/// Answers each command with what was put in for it, one answer after the other and the last one again and again; a
/// command that nothing was put in for with OK.
struct scripted_modem : sms::modem {
    std::map<string, std::deque<answer>> script;
    std::vector<string> asked;

    void put_in(const string &command, const string &text, int32_t result = AT_OK)
    {
        script[command].push_back({VLK_OK, result, text});
    }
    answer ask(const string &command, const char *) override
    {
        asked.push_back(command);
        auto &answers = script[command];
        if (answers.empty())
            return {VLK_OK, AT_OK, ""};
        const answer next = answers.front();
        if (answers.size() > 1)
            answers.pop_front();
        return next;
    }
    answer write(vlk_sms action, const string &) override
    {
        return ask(action == VLK_SMS_SEND ? "AT+CMGS" : "AT+CMGW", "");
    }
};

std::vector<string> seen(const std::vector<sms::stored> &messages)
{
    std::vector<string> all;
    for (const sms::stored &message : messages)
        all.push_back(std::to_string(message.index) + " " + name_of(message.status));
    return all;
}

TEST(SmsStore, AShortListIsOneAnswer)
{
    scripted_modem modem;
    modem.put_in("AT+CPMS?", "+CPMS: \"SM\",2,50,\"SM\",2,50,\"SM\",2,50\r\n");
    modem.put_in("AT+CMGL=4", entry("+CMGL: 7,0") + "+CMGL: 9,3,\"CONNECT, Ltd\",10\r\n" + PDU + "\r\n");
    std::vector<sms::stored> messages;
    EXPECT_FALSE(sms::list(modem, messages));
    EXPECT_THAT(seen(messages), ElementsAre("7 unread", "9 sent"));
    EXPECT_EQ(messages[1].hex, PDU);
    EXPECT_THAT(modem.asked, ElementsAre("AT+CMGF=0", "AT+CPMS?", "AT+CMGL=4"));
}

TEST(SmsStore, AListThatWasCutIsReadOneByOne)
{
    const struct {
        const char *fault;
        string list;
        string state;
    } cases[] = {
        {"the end is missing", entry("+CMGL: 1,0") + "+CMGL: 3,0,,10\r\n000100", "+CPMS: \"SM\",2,4\r\n"},
        {"the beginning is missing", entry("+CMGL: 1,0"), "+CPMS: \"SM\",2,4\r\n"},
        {"text mode", "+CMGL: 1,\"REC UNREAD\",\"+49\",,\"24/01/01\"\r\nHello\r\n", "+CPMS: \"SM\",2,4\r\n"},
        {"an answer so long that it may be cut, with a modem that does not count",
         entry("+CMGL: 1,0", PDU + string(1400, '0')), "+CPMS: nonsense"},
    };
    for (const auto &c : cases) {
        scripted_modem modem;
        modem.put_in("AT+CPMS?", c.state);
        modem.put_in("AT+CMGL=4", c.list);
        for (int index = 0; index < 256; index++)
            modem.put_in("AT+CMGR=" + std::to_string(index), "+CMS ERROR: 321", AT_CMS_ERROR);
        for (const char *command : {"AT+CMGR=1", "AT+CMGR=3"})
            modem.script[command] = {{VLK_OK, AT_OK, entry("+CMGR: 1")}};
        std::vector<sms::stored> messages;
        EXPECT_FALSE(sms::list(modem, messages)) << c.fault;
        EXPECT_THAT(seen(messages), ElementsAre("1 unread", "3 unread"))
            << c.fault << ": the list marked them";
    }
}

TEST(SmsStore, WhatCannotBeReadIsTold)
{
    scripted_modem modem;
    modem.put_in("AT+CPMS?", "+CPMS: \"SM\",4,4\r\n");
    modem.put_in("AT+CMGR=0", "+CMS ERROR: 321", AT_CMS_ERROR);
    modem.put_in("AT+CMGR=1", "+CMGR: 0,,0\r\n\r\n"); // an empty place
    modem.put_in("AT+CMGR=2", "+CMGR: 1,\"REC\"\r\nHello");
    modem.put_in("AT+CMGR=2", entry("+CMGR: 1")); // once it is in PDU mode again
    modem.put_in("AT+CMGR=3", entry("+CMGR: 0"));
    modem.put_in("AT+CMGR=4", "", AT_ERROR);
    std::vector<sms::stored> messages;
    const sms::troubles failed = sms::list(modem, messages);
    ASSERT_TRUE(failed);
    EXPECT_EQ(failed->text, "only 2 of 4 messages could be read");
    EXPECT_THAT(seen(messages), ElementsAre("2 read", "3 unread"));

    modem.script["AT+CMGR=3"] = {{VLK_OK, AT_CMS_ERROR, "+CMS ERROR: 310"}};
    EXPECT_EQ(sms::list(modem, messages)->text, "+CMS ERROR: 310")
        << "another failure taken for an empty place";
    sms::stored one;
    EXPECT_EQ(sms::read(modem, 0, one)->text, "there is no message at 0");
    modem.script["AT+CMGR=2"] = {{VLK_OK, AT_OK, "+CMGR: 9,,10\r\nzz"}};
    EXPECT_EQ(sms::read(modem, 2, one)->kind, sms::trouble::nonsense);
    modem.script["AT+CMGF=0"] = {{VLK_OK, AT_NONE, ""}};
    EXPECT_EQ(sms::read(modem, 2, one)->kind, sms::trouble::silence);
}

TEST(SmsStore, SentIsWhatTheModemConfirmed)
{
    const struct {
        const char *fault;
        answer given;
        int reference; // -2: trouble
        const char *why;
    } cases[] = {
        {"a reference", {VLK_OK, AT_OK, "+CMGS: 12"}, 12, ""},
        {"a reference and an acknowledgement", {VLK_OK, AT_OK, "+CMGS: 255,\"24/01/01\"\r\n"}, 255, ""},
        {"OK alone", {VLK_OK, AT_OK, ""}, -1, ""},
        {"OK without a prompt", {VLK_OK, AT_OK, "", true}, -2, "did not ask for the message"},
        {"an error with its cause", {VLK_OK, AT_CMS_ERROR, "+CMS ERROR: 38"}, -2, "+CMS ERROR: 38"},
        {"an error whose cause is lost", {VLK_OK, AT_CMS_ERROR, ""}, -2, "+CMS ERROR"},
        {"silence behind the prompt", {VLK_OK, AT_NONE, ""}, -2, "may have been sent nevertheless"},
        {"silence", {VLK_OK, 0, ""}, -2, "may have been sent nevertheless"},
        {"no daemon", {VLK_NOT_RUNNING, AT_OK, "+CMGS: 12"}, -2, ""},
    };
    for (const auto &c : cases) {
        scripted_modem modem;
        modem.script["AT+CMGS"] = {c.given};
        int reference = -2;
        const sms::troubles failed = sms::put(modem, VLK_SMS_SEND, PDU, reference);
        ASSERT_EQ(failed.has_value(), c.reference == -2) << c.fault;
        EXPECT_THAT(failed ? failed->text : "", HasSubstr(c.why)) << c.fault;
        if (!failed) {
            EXPECT_EQ(reference, c.reference) << c.fault;
        }
        EXPECT_THAT(modem.asked, ElementsAre("AT+CMGF=0", "AT+CMGS")) << c.fault;
    }
    scripted_modem modem;
    modem.put_in("AT+CMGF=0", "", AT_ERROR);
    int reference = 0;
    EXPECT_TRUE(sms::put(modem, VLK_SMS_SEND, PDU, reference))
        << "a PDU in text mode would be sent as a text";
    EXPECT_THAT(modem.asked, ElementsAre("AT+CMGF=0"));
}
} // namespace
