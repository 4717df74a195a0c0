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

struct ClientTest : testing::Test {
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

TEST_F(ClientTest, AReplyIsTakenByIdAndSeq)
{
    ASSERT_EQ(vlk_send(client, &record, 0), VLK_OK);
    const at_cmd_msg request = daemon.take();
    at_cmd_msg second = record;
    ASSERT_EQ(vlk_send(client, &second, 0), VLK_OK);
    const auto answer = [&](const char *text, int32_t other_id, uint32_t seq) {
        at_cmd_msg reply = request;
        reply.Id += other_id;
        reply.seq = seq;
        daemon.answer(reply, text, AT_OK);
    };
    daemon.queue_reply(request, 100); // not a whole record: never for the caller
    answer("to an earlier client with this Id", 0, record.seq + 2);
    answer("of another client", 1, record.seq);
    answer("stale", 0, record.seq - 1);
    answer("its own", 0, record.seq);
    answer("later", 0, record.seq + 1);
    at_cmd_msg reply{};
    EXPECT_EQ(vlk_wait(client, record.seq, &reply, 50), VLK_OK);
    EXPECT_STREQ(reply.snd_rcv_msg.rmsg, "its own");
    EXPECT_EQ(vlk_wait(client, record.seq, &reply, -1), VLK_TIMEOUT) << "it is too late for that one";
    EXPECT_EQ(vlk_wait(client, record.seq + 1, &reply, 0), VLK_OK) << "the later answer was thrown away";
    EXPECT_EQ(vlk_wait(client, record.seq + 2, &reply, 50), VLK_TIMEOUT);
    EXPECT_EQ(daemon.reply_count(), 1U) << "another client's reply was taken";
}

TEST_F(ClientTest, EveryClientHasAnIdOfItsOwnAndLeavesNothingBehind)
{
    std::vector<vlk_client *> others(511);
    for (vlk_client *&other : others)
        ASSERT_EQ(vlk_open(&other, &place), VLK_OK) << vlk_last_error();
    vlk_client *one_more = nullptr;
    EXPECT_EQ(vlk_open(&one_more, &place), VLK_INVALID);
    ASSERT_EQ(vlk_send(others[510], &record, 0), VLK_OK);
    EXPECT_EQ(record.Id, getpid() + (511 << 22));
    daemon.answer(daemon.take(), "nobody waits for it", AT_OK);
    for (vlk_client *other : others)
        vlk_close(other);
    EXPECT_EQ(daemon.reply_count(), 0U) << "it fills everybody's queue";
    EXPECT_EQ(vlk_open(&one_more, &place), VLK_OK) << "the Ids were not given back";
    vlk_close(one_more);

    const pid_t child = fork();
    if (child == 0)
        _exit(vlk_send(client, &record, 0));
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), VLK_INVALID) << "it would take its parent's replies";
}

TEST_F(ClientTest, AFullRequestQueueIsWaitedFor)
{
    int queued = 0;
    while (vlk_send(client, &record, 0) == VLK_OK)
        ASSERT_LT(++queued, 100);
    EXPECT_EQ(vlk_send(client, &record, 20), VLK_TIMEOUT);
    EXPECT_THAT(vlk_last_error(), HasSubstr("stayed full"));

    auto sent = std::async(std::launch::async, [this] { return vlk_send(client, &record, 10000); });
    EXPECT_EQ(sent.wait_for(100ms), std::future_status::timeout);
    daemon.take();
    EXPECT_EQ(sent.wait_for(700ms), std::future_status::ready) << "not woken";
    EXPECT_EQ(sent.get(), VLK_OK);
}

TEST_F(ClientTest, AWaitEndsWhenTheReplyComesOrTheDaemonGoes)
{
    const auto expect_end = [this](auto play, int expected, auto limit, const char *fault) {
        auto result = std::async(std::launch::async, vlk_exchange, client, &record, &record, -1);
        play(daemon.take());
        EXPECT_EQ(result.wait_for(limit), std::future_status::ready) << fault;
        EXPECT_EQ(result.get(), expected) << fault;
    };
    expect_end([this](const auto &r) { daemon.answer(r, "", 2); }, VLK_OK, 700ms, "the reply did not wake");
    expect_end([this](const auto &) { daemon.claim(0); }, VLK_NOT_RUNNING, 2s, "the daemon died");
    EXPECT_EQ(vlk_send(client, &record, 0), VLK_NOT_RUNNING);
    daemon.claim(1);
    expect_end([this](const auto &) { daemon.remove_queues(); }, VLK_NOT_RUNNING, 2s, "there is a new one");
    record.req_type = ACTIVE_REPORT;
    EXPECT_EQ(vlk_exchange(client, &record, &record, -1), VLK_INVALID) << "never answered";
}

TEST_F(ClientTest, APageThatIsNotTheDaemonsIsExplained)
{
    const auto expect_refusal = [this](int expected, const char *error) {
        vlk_client *refused = nullptr;
        EXPECT_EQ(vlk_open(&refused, &place), expected) << error;
        EXPECT_THAT(vlk_last_error(), HasSubstr(error));
    };
    daemon.page->magic = 7;
    expect_refusal(VLK_MISMATCH, "another version");
    daemon.page->magic = 0;
    expect_refusal(VLK_NOT_RUNNING, "not set up yet");
    EXPECT_EQ(truncate((daemon.folder + "/events").c_str(), 27), 0);
    expect_refusal(VLK_MISMATCH, "no event page of this version"); // and no SIGBUS
}

TEST_F(ClientTest, WhatComesBeforeAnAnswerIsKeptInOrderWithItsGaps)
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

TEST_F(ClientTest, ARequestGetsItsOwnReplyAndNoOverflowGoesUnnoticed)
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
