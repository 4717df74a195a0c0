#include <chrono>
#include <future>
#include <string>

#include <gmock/gmock.h>

#include "fake_daemon.h"

namespace
{
using std::string;
using namespace std::chrono_literals;
using testing::HasSubstr;

TEST(Records, WhatTheDaemonWouldCutDropOrMisreadIsRefused)
{
    const string longest = "AT" + string(1537, 'x');
    const string smsc = "07911326040000F0";
    const string tpdu = "11000B916407281553F80000AA0AE8329BFD4697D9EC37";
    const string octets(size_t{2} * 164, '4');
    struct {
        const char *fault;
        bool sms;
        string text;
        string outcome; // the command in the record, or what the refusal says
    } const cases[] = {
        {"the longest command must fit", false, longest, longest},
        {"a command must not be cut", false, longest + "x", "1540 bytes, at most 1539"},
        {"a command dropped silently must not be waited for", false, "+CSQ", "begin with AT"},
        {"a line end must not smuggle in a second command", false, "AT\rATZ", "control characters"},
        {"an SMS without PDU leaves the modem at its prompt", false, "at^hcmgs=23", "needs its PDU"},
        {"an empty SMSC part counted", true, "00" + tpdu, "AT+CMGW=23\r00" + tpdu + "\x1A"},
        {"an SMSC part counted", true, smsc + tpdu, "AT+CMGW=23\r" + smsc + tpdu + "\x1A"},
        {"the longest PDU refused", true, "00" + octets, "AT+CMGW=164\r00" + octets + "\x1A"},
        {"an octet too many accepted", true, "00" + octets + "4F", "165 octets"},
        {"half an octet accepted", true, "00" + tpdu + "0", "odd number"},
        {"a Ctrl-Z in the PDU accepted", true, "0011\x1A", "hexadecimal"},
        {"a missing SMSC part taken for one", true, tpdu, "must begin with its SMSC part"},
        {"an SMSC part of a type alone accepted", true, "01910000", "must begin with its SMSC part"},
        {"an empty PDU accepted", true, "", "empty"},
    };
    at_cmd_msg record;
    for (const auto &c : cases) {
        const int result = c.sms ? vlk_fill_sms(&record, VLK_SMS_SAVE, c.text.c_str(), 7)
                                 : vlk_fill_command(&record, c.text.c_str(), "", VLK_PLAIN, 7);
        if (result == VLK_OK)
            EXPECT_EQ(record.snd_rcv_msg.cmd, c.outcome) << c.fault;
        else
            EXPECT_THAT(vlk_last_error(), HasSubstr(c.outcome)) << c.fault;
    }
    EXPECT_EQ(vlk_fill_command(&record, "at", string(63, '+').c_str(), VLK_PLAIN, 7), VLK_OK);
    EXPECT_EQ(vlk_fill_command(&record, "at", string(64, '+').c_str(), VLK_PLAIN, 7), VLK_INVALID);
}

struct Client : testing::Test {
    fake_daemon daemon;
    const vlk_place place = daemon.place();
    vlk_client *client = nullptr;
    vlk_hub *hub = nullptr;
    at_cmd_msg record{};
    vlk_packet packet{};

    void SetUp() override
    {
        ASSERT_EQ(vlk_open(&client, &place), VLK_OK) << vlk_last_error();
        ASSERT_EQ(vlk_hub_open(&hub, &place), VLK_OK) << vlk_last_error();
        daemon.accept_listener();
        ASSERT_EQ(vlk_fill_command(&record, "AT+CSQ", "+CSQ:", VLK_PLAIN, 10), VLK_OK);
    }
    void TearDown() override
    {
        vlk_close(client);
        vlk_hub_close(hub);
    }
    void expect_event(uint32_t code, uint32_t missed)
    {
        EXPECT_EQ(vlk_hub_receive(hub, &packet, 0), VLK_OK) << vlk_last_error();
        EXPECT_EQ(packet.code, code);
        EXPECT_EQ(packet.missed, missed) << code;
    }
};

host_packet event(uint32_t code, uint32_t missed = 0)
{
    return {HOST_EVENT, 19, code, 1, 2, missed, "", 0};
}

TEST_F(Client, AReplyIsTakenBySeq)
{
    record.Id = -12345; // the caller's own
    ASSERT_EQ(vlk_send(client, &record, 0), VLK_OK) << vlk_last_error();
    const at_cmd_msg request = daemon.take();
    EXPECT_EQ(request.Id, -12345);
    at_cmd_msg second = record;
    ASSERT_EQ(vlk_send(client, &second, 0), VLK_OK);
    const auto answer = [&](const char *text, uint32_t seq) {
        at_cmd_msg reply = request;
        reply.seq = seq;
        daemon.answer(reply, text, AT_OK);
    };
    answer("stale", record.seq - 1);
    answer("its own", record.seq);
    answer("later", record.seq + 1);
    at_cmd_msg reply{};
    EXPECT_EQ(vlk_wait(client, record.seq, &reply, 50), VLK_OK);
    EXPECT_STREQ(reply.snd_rcv_msg.rmsg, "its own");
    EXPECT_EQ(vlk_wait(client, record.seq, &reply, -1), VLK_TIMEOUT) << "it is too late for that one";
    EXPECT_EQ(vlk_wait(client, record.seq + 1, &reply, 0), VLK_OK) << "the later answer was thrown away";
    EXPECT_EQ(vlk_wait(client, record.seq + 2, &reply, 50), VLK_TIMEOUT);
    daemon.queue_reply(request, 100);
    EXPECT_EQ(vlk_wait(client, record.seq + 2, &reply, -1), VLK_MISMATCH) << "half a record";

    const pid_t child = fork();
    if (child == 0)
        _exit(vlk_send(client, &record, 0));
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), VLK_INVALID) << "it would take its parent's replies";
}

TEST_F(Client, ADaemonThatTakesNoMoreIsWaitedFor)
{
    int queued = 0;
    while (vlk_send(client, &record, 0) == VLK_OK)
        ASSERT_LT(++queued, 1000);
    EXPECT_EQ(vlk_send(client, &record, 20), VLK_TIMEOUT);
    EXPECT_THAT(vlk_last_error(), HasSubstr("took no more requests"));

    auto sent = std::async(std::launch::async, [this] { return vlk_send(client, &record, 10000); });
    EXPECT_EQ(sent.wait_for(100ms), std::future_status::timeout);
    for (int taken = 0; taken < queued; ++taken)
        daemon.take();
    EXPECT_EQ(sent.get(), VLK_OK) << "not woken";
}

TEST_F(Client, AWaitEndsWhenTheReplyComesOrTheDaemonGoesAndWithdrawsWhenItsTimeIsOver)
{
    const auto expect_end = [this](auto play, int32_t limit_ms, int expected, const char *fault) {
        auto result = std::async(std::launch::async, vlk_exchange, client, &record, &record, limit_ms);
        play(daemon.take());
        EXPECT_EQ(result.wait_for(4s), std::future_status::ready) << fault;
        EXPECT_EQ(result.get(), expected) << fault << ": " << vlk_last_error();
    };
    expect_end([this](const auto &r) { daemon.answer(r, "", 2); }, -1, VLK_OK, "the reply did not wake");
    expect_end([](const auto &) {}, 50, VLK_TIMEOUT, "the time is over");
    EXPECT_TRUE(daemon.asker_has_gone()) << "the request still waits to be served";
    expect_end([this](const auto &r) { daemon.answer(r, "", 2); }, -1, VLK_OK, "not connected again");
    expect_end([this](const auto &) { daemon.hang_up_clients(); }, -1, VLK_NOT_RUNNING, "the daemon died");
    EXPECT_EQ(vlk_send(client, &record, 0), VLK_NOT_RUNNING);
    record.req_type = ACTIVE_REPORT;
    EXPECT_EQ(vlk_exchange(client, &record, &record, -1), VLK_INVALID) << "never answered";
}

TEST_F(Client, WithoutAModemCommandsFailAtOnceUnlessTheyAreToWait)
{
    daemon.set_modem("absent", "/dev/ttyX is missing");
    EXPECT_EQ(vlk_exchange(client, &record, &record, -1), VLK_NO_MODEM);
    EXPECT_THAT(vlk_last_error(), testing::EndsWith("the modem is absent: /dev/ttyX is missing"));
    EXPECT_EQ(vlk_wait_modem(client, 150), VLK_NO_MODEM);
    at_cmd_msg stored;
    vlk_fill_rssi(&stored);
    EXPECT_EQ(vlk_send(client, &stored, 0), VLK_OK) << "the daemon answers that itself";

    auto waiting = std::async(std::launch::async, vlk_wait_modem, client, 10'000);
    EXPECT_EQ(waiting.wait_for(50ms), std::future_status::timeout);
    daemon.set_modem("ready");
    EXPECT_EQ(waiting.get(), VLK_OK);
    daemon.set_modem("silent");
    EXPECT_EQ(vlk_send(client, &record, 0), VLK_OK) << "it was there: the daemon knows what to do";
}

TEST_F(Client, AFolderThatADeadDaemonLeftIsNoDaemon)
{
    vlk_status status;
    ASSERT_EQ(vlk_get_status(&place, &status), VLK_OK) << vlk_last_error();
    EXPECT_EQ(status.pid, 4711);
    EXPECT_EQ(status.modem, uint32_t{VLK_MODEM_READY});
    EXPECT_EQ(status.waiting, 3U);
    daemon.end();
    EXPECT_EQ(vlk_get_status(&place, &status), VLK_NOT_RUNNING);
    EXPECT_THAT(status.runtime_dir, testing::StrEq(daemon.folder));
    vlk_client *other = nullptr;
    EXPECT_EQ(vlk_open(&other, &place), VLK_NOT_RUNNING);
    EXPECT_THAT(vlk_last_error(), HasSubstr("start vorlink"));
    daemon.open();
    EXPECT_EQ(vlk_open(&other, &place), VLK_OK) << vlk_last_error();
    vlk_close(other);
}

TEST_F(Client, WhatComesBeforeAnAnswerIsKeptInOrderWithItsGaps)
{
    daemon.send(event(1));
    daemon.send(event(2, 7));
    daemon.send({HOST_SYNC_REPLY, 31, 31008, 0, 99, 2, "", 0}, "late"); // nobody waits for it any more
    daemon.send({HOST_SUBSCRIBED, 20, 0, HOST_TAKE_MODULE, 0, 0, "", 0});
    daemon.send({HOST_SUBSCRIBED, 19, 0, HOST_TAKE_MODULE, 0, 0, "", 0});
    daemon.send(event(3, 1));
    ASSERT_EQ(vlk_hub_take_module(hub, 19, 1000), VLK_OK) << vlk_last_error();
    EXPECT_EQ(daemon.receive().module, 19);
    expect_event(1, 0);
    expect_event(2, 7);
    expect_event(3, 3);
    EXPECT_EQ(vlk_hub_receive(hub, &packet, 20), VLK_TIMEOUT);

    daemon.send({HOST_EVENT, 19, 1, 1, 2, 0, "", 4}); // four bytes that do not come
    EXPECT_EQ(vlk_hub_receive(hub, &packet, 0), VLK_MISMATCH);
    EXPECT_EQ(vlk_hub_send(hub, 1, nullptr, 4097), VLK_INVALID);
    EXPECT_EQ(vlk_hub_take_name(hub, "a name that is far too long for it", 0), VLK_INVALID);
    daemon.hang_up();
    EXPECT_EQ(vlk_hub_receive(hub, &packet, -1), VLK_NOT_RUNNING);
    EXPECT_EQ(vlk_hub_send(hub, VLK_UNINSTALL_DATACARD, nullptr, 0), VLK_NOT_RUNNING) << "or SIGPIPE";
}

TEST_F(Client, ARequestGetsItsOwnReplyAndNoOverflowGoesUnnoticed)
{
    auto result = std::async(std::launch::async, vlk_hub_request, hub, 31, 31008, nullptr, 0, &packet, 5000);
    host_packet reply = daemon.receive();
    EXPECT_EQ(reply.code, 31008U);
    for (uint32_t code = 1; code <= 34; code++)
        daemon.send(event(code));
    reply.kind = HOST_SYNC_REPLY;
    reply.value2--; // the reply to an earlier request
    daemon.send(reply, "old");
    reply.value2++;
    daemon.send(reply, "new");
    daemon.send(event(99));
    ASSERT_EQ(result.get(), VLK_OK);
    EXPECT_EQ(string(static_cast<const char *>(packet.data), packet.length), "new");
    for (uint32_t code = 1; code <= 32; code++)
        expect_event(code, 0);
    expect_event(99, 2);
}
} // namespace
