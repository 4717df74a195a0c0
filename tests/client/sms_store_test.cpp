// Messages in the modem's store and on their way: against a modem that answers by a script, and against the simulator.
#include <deque>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "modem.h"
#include "random_text.h"
#include "sms/joiner.h"
#include "sms/store.h"

namespace
{
using sms::answer;
using sms::mark;
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

/// The simulated modem in this process; its time is made here.
class simulated_modem : public sms::modem
{
public:
    simulated_modem() : modem_(modemsim::parse_dialogue(modemsim::default_dialogue, "default"), 1)
    {
        modem_.power_up();
        modem_.client_opened(now_);
        ask("ATE0", "");
    }
    answer ask(const string &command, const char *expected) override
    {
        collect(command + "\r", "\r\nOK\r\n");
        return answer_of(expected);
    }
    answer write(vlk_sms action, const string &pdu) override
    {
        const string command = action == VLK_SMS_SEND ? "AT+CMGS=" : "AT+CMGW=";
        collect(command + std::to_string(pdu.size() / 2 - 1 - std::stoul(pdu.substr(0, 2), nullptr, 16)) +
                    "\r",
                "> ");
        collect(pdu + "\x1A", "\r\nOK\r\n");
        return answer_of("+CMG");
    }

private:
    /// Until the end has come, or nothing more will.
    void collect(const string &bytes, const char *end)
    {
        seen_.clear();
        modem_.receive(bytes);
        for (int steps = 0; steps < 10000; steps++) {
            modem_.advance(now_);
            seen_ += modem_.output();
            modem_.written(modem_.output().size());
            if (seen_.find(end) != string::npos || seen_.find("ERROR") != string::npos)
                return;
            now_ = std::max(now_, modem_.next_due().value_or(now_));
        }
    }
    /// As the daemon collects the lines; an answer that is too long loses its beginning.
    answer answer_of(const char *expected) const
    {
        const bool good = seen_.ends_with("\r\nOK\r\n");
        if (!good)
            return {VLK_OK, AT_CMS_ERROR,
                    seen_.substr(std::min(seen_.find_first_not_of("\r\n"), seen_.size()))};
        const size_t begin = expected[0] == '\0' ? string::npos : seen_.find(expected);
        string text = begin == string::npos ? "" : seen_.substr(begin, seen_.size() - begin - 6);
        if (text.size() > 1499)
            text.erase(0, 1500);
        return {VLK_OK, AT_OK, text};
    }

    modemsim::modem modem_;
    modemsim::milliseconds now_{0};
    string seen_;
};

/// Saves parts of random texts until the store is nearly full, the texts being told by their references.
std::map<uint16_t, string> save_texts(simulated_modem &modem, std::mt19937 &random, int *left)
{
    constexpr int PLACES = 250;
    constexpr int MOST_PARTS = 10;
    std::map<uint16_t, string> texts;
    for (int saved = 0; *left > 0 && saved <= PLACES - MOST_PARTS; --*left) {
        const auto reference = static_cast<uint16_t>(texts.size());
        const string text =
            random_text::of_any_alphabet(random, 1 + static_cast<unsigned>(random() % MOST_PARTS));
        std::vector<sms::content> parts;
        EXPECT_EQ(sms::split_text(text, {-1, true, reference}, parts), nullptr);
        sms::pdu pdu;
        pdu.peer.number = std::to_string(1000 + reference);
        for (const sms::content &part : parts) {
            pdu.data = part;
            string hex;
            int index = -1;
            EXPECT_EQ(sms::encode_pdu(pdu, hex), nullptr);
            const sms::troubles failed = sms::put(modem, VLK_SMS_SAVE, hex, index);
            EXPECT_FALSE(failed) << failed->text;
            EXPECT_GE(index, 0);
            saved++;
        }
        texts[reference] = text;
    }
    return texts;
}

TEST(SmsStore, TenThousandRandomTextsComeBackFromTheSimulator)
{
    simulated_modem modem;
    ASSERT_EQ(modem.ask("AT+CPMS=\"ME\",\"ME\",\"ME\"", "+CPMS:").result, AT_OK);
    std::mt19937 random(20240701);
    for (int left = 10000; left > 0;) {
        const std::map<uint16_t, string> texts = save_texts(modem, random, &left);
        std::vector<sms::stored> messages;
        const sms::troubles failed = sms::list(modem, messages);
        ASSERT_FALSE(failed) << failed->text;
        sms::joiner joiner;
        std::map<uint16_t, string> read;
        for (const sms::stored &message : messages) {
            EXPECT_EQ(message.status, mark::unsent);
            sms::pdu pdu;
            ASSERT_EQ(sms::decode_pdu(message.hex, message.octets, pdu), nullptr) << message.hex;
            for (const sms::message &whole : joiner.take(pdu, message.index))
                read[static_cast<uint16_t>(std::stoi(whole.first.peer.number) - 1000)] = whole.text();
        }
        ASSERT_EQ(read, texts);
        for (const sms::stored &message : messages)
            ASSERT_FALSE(sms::remove(modem, message.index));
        sms::store_state state;
        ASSERT_FALSE(sms::ask_state(modem, state));
        ASSERT_EQ(state.used, 0);
    }
}
} // namespace
