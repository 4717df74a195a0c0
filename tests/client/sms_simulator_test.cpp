// Messages through the simulator's store, in this process.
#include <map>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "modem.h"
#include "random_text.h"
#include "sms/joiner.h"
#include "sms_store.h"

namespace
{
using sms::answer;
using sms::mark;
using std::string;

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

TEST(SmsSimulator, TenThousandRandomTextsComeBackFromTheSimulator)
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
