// vlkctl sms as a program, with a daemon played by the test.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "../process.h"
#include "fake_daemon.h"
#include "random_text.h"
#include "sms/pdu.h"
#include "vlk_reports.h"

namespace
{
using nlohmann::json;
using std::string;
using testing::HasSubstr;
using testing::Not;

const string OWN_BYTES =
    "its own request"; // stands for what the daemon leaves in a record that it did not fill

struct reply {
    string text;
    int32_t result;
};
const reply OK = {"", AT_OK};

struct SmsVlkctl : testing::Test {
    fake_daemon daemon;
    std::vector<string> requests;

    process start(const std::vector<string> &arguments) const
    {
        std::vector<string> all = {VLKCTL, "sms"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return process(all, {{"XDG_STATE_HOME", daemon.folder + "/state"}, {"LC_ALL", "C"}});
    }
    void answer(const std::vector<reply> &replies)
    {
        for (const reply &with : replies) {
            const at_cmd_msg request = daemon.take();
            requests.emplace_back(request.snd_rcv_msg.cmd);
            daemon.answer(request, with.text == OWN_BYTES ? requests.back() : with.text, with.result);
        }
    }
};

TEST_F(SmsVlkctl, SentIsSaidOnlyWhenTheModemConfirmed)
{
    const string two_parts = random_text::repeated("€", 100);
    const struct {
        const char *fault;
        std::vector<string> arguments;
        std::vector<reply> replies;
        int exit_code;
        const char *out;
        const char *err;
    } cases[] = {
        {"confirmed",
         {"send", "--to", "+4912", "hi"},
         {OK, {"+CMGS: 7", AT_OK}},
         0,
         "sent, reference 7\n",
         ""},
        {"confirmed without a reference", {"send", "--to", "12", "hi"}, {OK, OK}, 0, "sent\n", ""},
        {"a PDU as it is",
         {"send", "0001000491942100000161"},
         {OK, {"+CMGS: 7", AT_OK}},
         0,
         "+CMGS: 7\n",
         ""},
        {"saved", {"save", "--to", "12", "hi"}, {OK, {"+CMGW: 3", AT_OK}}, 0, "saved, at 3\n", ""},
        {"OK without a prompt", {"send", "--to", "12", "hi"}, {OK, {OWN_BYTES, AT_OK}}, 1, "", "did not ask"},
        {"a PDU, OK without a prompt",
         {"send", "0001000491942100000161"},
         {OK, {OWN_BYTES, AT_OK}},
         1,
         "",
         "did not ask"},
        {"an error before the prompt",
         {"send", "--to", "12", "hi"},
         {OK, {OWN_BYTES, AT_CMS_ERROR}},
         1,
         "",
         "vlkctl: +CMS ERROR\n"},
        {"no PDU mode", {"send", "--to", "12", "hi"}, {{"", AT_ERROR}}, 1, "", "vlkctl: ERROR\n"},
        {"no answer",
         {"send", "--to", "12", "hi"},
         {OK, {"", AT_NONE}},
         3,
         "",
         "may have been sent nevertheless"},
        {"half of it",
         {"send", "--to", "12", two_parts},
         {OK, {"+CMGS: 7", AT_OK}, OK, {"+CMS ERROR: 38", AT_CMS_ERROR}},
         1,
         "part 1 of 2 sent, reference 7\n",
         "part 2 of 2 was not sent, nor those behind it\nvlkctl: +CMS ERROR: 38\n"},
        {"a letter", {"send", "--to", "+49x", "hi"}, {}, 2, "", "--to: a number has digits"},
        {"no UTF-8", {"send", "--to", "12", "\xE9"}, {}, 2, "", "the text is not UTF-8"},
        {"costly", {"send", "--to", "12", random_text::repeated("a", 2000)}, {}, 2, "", "use --max-parts 14"},
        {"an odd digit", {"send", "000"}, {}, 2, "", "an odd number"},
        {"an option without its recipient", {"send", "--flash", "00"}, {}, 2, "", "--flash requires --to"},
        {"nothing to send", {"send"}, {}, 2, "", "is needed"},
        {"nothing to delete", {"delete"}, {}, 2, "", "--all-read, is needed"},
    };
    for (const auto &c : cases) {
        requests.clear();
        process vlkctl = start(c.arguments);
        answer(c.replies);
        EXPECT_EQ(vlkctl.wait(), c.exit_code) << c.fault << vlkctl.err;
        EXPECT_EQ(vlkctl.out, c.out) << c.fault;
        EXPECT_THAT(vlkctl.err, HasSubstr(c.err)) << c.fault;
        EXPECT_THAT(vlkctl.err, Not(HasSubstr("0001000"))) << c.fault << ": an error shows the message";
        for (size_t at = 0; at < requests.size(); at += 2)
            EXPECT_EQ(requests[at], "AT+CMGF=0") << c.fault;
    }
    process vlkctl = start({"send", "--json", "--to", "12", two_parts});
    answer({OK, {"+CMGS: 7", AT_OK}, OK, {"+CMS ERROR: 38", AT_CMS_ERROR}});
    EXPECT_EQ(vlkctl.wait(), 1);
    EXPECT_EQ(
        json::parse(vlkctl.out, nullptr, false),
        (json{
            {"to", "12"}, {"parts", 2}, {"sent", false}, {"references", {7}}, {"error", "+CMS ERROR: 38"}}));
}

TEST_F(SmsVlkctl, ADryRunPrintsWhatWouldBeSent)
{
    process vlkctl = start(
        {"send", "--to", "+4912", "--flash", "--report", "--smsc", "+49171", "--valid", "24", "--dry-run"});
    vlkctl.write_line("Grüße");
    vlkctl.end_input();
    EXPECT_EQ(vlkctl.wait(), 0) << vlkctl.err;
    EXPECT_EQ(vlkctl.out, "04919471F1310004919421"
                          "0010A70547B9DF5306\n");
    sms::pdu read;
    EXPECT_EQ(sms::decode_pdu(vlkctl.out.substr(0, vlkctl.out.size() - 1), -1, read), nullptr);
    EXPECT_EQ(sms::text_of(read.data), "Grüße");
    EXPECT_EQ(sms::minutes_of_validity(read.validity_octets[0]), 24 * 60);

    process parts = start({"send", "--to", "12", "--dry-run", random_text::repeated("я", 100)});
    EXPECT_EQ(parts.wait(), 0);
    EXPECT_EQ(std::count(parts.out.begin(), parts.out.end(), '\n'), 2);
}

/// A delivered message in hexadecimal digits.
string delivered(const char *from, const string &text, int number = 1, int count = 1)
{
    sms::pdu made;
    made.type = sms::pdu_type::deliver;
    made.peer.number = from;
    made.time = sms::timestamp{2026, 3, 1, 10, 0, 0, 120};
    std::vector<sms::content> parts;
    EXPECT_EQ(sms::split_text(text, {}, parts), nullptr);
    made.data = parts.at(0);
    made.data.number = static_cast<uint8_t>(number);
    made.data.count = static_cast<uint8_t>(count);
    string hex;
    EXPECT_EQ(sms::encode_pdu(made, hex), nullptr);
    return hex;
}

string listed(const char *head, const string &hex)
{
    return head + std::to_string(hex.size() / 2 - 1) + "\r\n" + hex + "\r\n";
}

TEST_F(SmsVlkctl, AListJoinsPartsAndIsNoTerminalsMaster)
{
    const string list = listed("+CMGL: 2,1,,", delivered("12", "second", 2, 2)) +
                        listed("+CMGL: 5,0,,", delivered("12", "first, ", 1, 2)) +
                        "+CMGL: 7,1,,2\r\n00FF00\r\n";
    process vlkctl = start({"list"});
    answer({OK, {"+CPMS: \"SM\",3,9\r\n", AT_OK}, {list, AT_OK}});
    EXPECT_EQ(vlkctl.wait(), 0) << vlkctl.err;
    EXPECT_EQ(vlkctl.out, "[5,2] unread, from 12, 2026-03-01 10:00:00 +02:00\n    first, second\n"
                          "[7] read, cannot be read: the text is cut\n    00FF00\n");
    const string odd = "a\x1B[2J\u202E\u0085\nb\u0416";
    process plain = start({"read", "4"});
    answer({OK, {listed("+CMGR: 0,,", delivered("12", odd)), AT_OK}});
    EXPECT_EQ(plain.wait(), 0);
    EXPECT_THAT(plain.out, HasSubstr("    a\\x1B[2J\\u202E\\u0085\n    b\u0416\n"));
    process object = start({"read", "4", "--json"});
    answer({OK, {listed("+CMGR: 0,,", delivered("12", odd)), AT_OK}});
    EXPECT_EQ(object.wait(), 0);
    EXPECT_EQ(json::parse(object.out, nullptr, false).value("text", ""), odd);
    EXPECT_THAT(requests, testing::ElementsAre("AT+CMGF=0", "AT+CPMS?", "AT+CMGL=4", "AT+CMGF=0", "AT+CMGR=4",
                                               "AT+CMGF=0", "AT+CMGR=4"));
}

template <typename record>
string bytes(const record &from)
{
    return {reinterpret_cast<const char *>(&from), sizeof from};
}

vlk_sms_content content(uint32_t id, const string &hex)
{
    vlk_sms_content made{id, static_cast<uint16_t>(hex.size() / 2 - 1), ""};
    hex.copy(made.pdu, sizeof made.pdu - 1);
    return made;
}

TEST_F(SmsVlkctl, AWatchShowsWhatComes)
{
    process sending = start({"send", "--to", "+31628870634", "--report", "hi"});
    answer({OK, {"+CMGS: 214", AT_OK}});
    EXPECT_EQ(sending.wait(), 0) << sending.err;

    process vlkctl = start({"watch"});
    daemon.subscribe_listener();
    ASSERT_TRUE(vlkctl.wait_for_error("listening"));
    const auto tell = [this](const string &data) {
        daemon.send({HOST_EVENT_DATA, 1, 1008, 0, 0, 0, "", 0}, data);
    };
    tell(bytes(content(1, delivered("12", "world", 2, 2))));
    tell(bytes(content(1, delivered("34", "between"))));
    tell(bytes(content(1, delivered("12", "hello ", 1, 2))));
    tell(bytes(content(3, "0006D60B911326880736F4111011719551401110117195714000")));
    tell(bytes(content(4, "4C1011120111C8329BFD06")));
    tell(bytes(content(1, "00FFFF")));
    tell(bytes(content(1, "")));
    tell("short");
    tell(bytes(content(9, "00")));
    tell(bytes(content(1, delivered("12", "left", 1, 2))));
    tell(bytes(vlk_sms_index{0, "SM", 3}));
    answer({{"+CPMS: \"SM\",1,9\r\n", AT_OK}, OK, {listed("+CMGR: 0,,", delivered("56", "stored")), AT_OK}});
    tell(bytes(vlk_sms_index{0, "ME", 4}));
    answer({{"+CPMS: \"SM\",1,9\r\n", AT_OK}});
    ASSERT_TRUE(vlkctl.wait_for_error("the modem reads from \"SM\""));
    vlkctl.kill(SIGTERM);
    EXPECT_EQ(vlkctl.wait(), 0) << vlkctl.err;
    const string time = ", 2026-03-01 10:00:00 +02:00";
    EXPECT_THAT(vlkctl.out,
                testing::MatchesRegex(
                    "from 34.*\n    between\nfrom 12.*\n    hello world\n"
                    "delivery report: to .31628870634, reference 214: delivered, 2011.*\n    sent 20.*\n"
                    "cell broadcast on channel 4370\n    Hello\n"
                    "cannot be read: .*\n    00FFFF\nfrom 56.*\n    stored\n"
                    "from 12" +
                    time.substr(0, 4) + ".*parts missing: 2 of 2\n    left.*\n"));
    EXPECT_THAT(vlkctl.err, HasSubstr("a message came without its text"));

    process second = start({"watch", "--count", "2", "--json"});
    daemon.subscribe_listener();
    ASSERT_TRUE(second.wait_for_error("listening"));
    tell(bytes(content(1, delivered("34", "one"))));
    ASSERT_TRUE(second.wait_for_output("\n"));
    EXPECT_EQ(json::parse(second.out, nullptr, false).value("text", ""), "one");
    daemon.hang_up();
    EXPECT_EQ(second.wait(), 4);
}
} // namespace
