#include <filesystem>

#include "core_test.h"
#include "vorlink/event_ring.h"
#include "vorlink/state_machine.h"

using testing::ElementsAre;

namespace
{

constexpr char NO_FLAG[] = "fopen(/var/vlk_ready.flg, w+)";
constexpr char CMEE_FAILED[] = "Error:vlk_cmee failed, ret=-1\n";

using StateMachine = daemon_test;

std::vector<at_state> run_passes(at_state state, int count)
{
    std::vector<at_state> states;
    for (int i = 0; i < count; i++)
        states.push_back(state = vlk_state_machine_pass(state, false));
    return states;
}

void request(const char *text)
{
    fake::put(VLK_QUEUE_CLIENT_REQUEST, bytes_of(command(text)));
}

} // namespace

TEST_F(StateMachine, WaitsForTheModemAndAnnouncesReadinessWhateverItAnswers)
{
    const struct {
        const char *fault;
        std::vector<fake::delivery> answer;
        int64_t seconds;
        const char *reported = CMEE_FAILED;
        const char *failing = ""; // twice
        bool noBus = false;
    } cases[] = {
        {"the modem is asked once a second", {{1, "\r\nOK\r\n"}}, 3, "", "K7_APP_RegCallBack"},
        {"an error must not keep the daemon from its work", {{1, "\r\nERROR\r\n"}}, 1},
        {"a silent modem costs its three seconds, no more", {}, 3},
        {"an answer without a result is no OK", {{1, "+CMEE: 1\r\n"}}, 3},
        {"a modem that refuses the command", {}, 0, CMEE_FAILED, "k7_send"},
        {"off the bus nobody is told", {{1, "OK\r\n"}}, 1, "", "", true},
        {"a flag that cannot be created", {{1, "OK\r\n"}}, 1, "", NO_FLAG},
    };
    check_each(cases, [](const auto &each) {
        fake::reset();
        EXPECT_EQ(start(), 0);
        fake::forget();
        fake::on_write("AT+CMEE=1\r", each.answer);
        fake::fail(each.failing, 2);
        const int64_t before = fake::now_ms();
        testing::internal::CaptureStdout();
        EXPECT_EQ(vlk_state_machine_pass(AT_INIT_S, each.noBus), AT_IDLE_S);
        const bool has_flag = each.failing != NO_FLAG;
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  has_flag ? "" : "vlk create ready flag file failed.\n");
        EXPECT_EQ(std::filesystem::exists(fake::path("/var/vlk_ready.flg")), has_flag);
        EXPECT_EQ(fake::now_ms() - before, each.seconds * 1000);
        EXPECT_TRUE(errors().ends_with(each.reported)) << errors();
        EXPECT_EQ(errors().empty(), *each.reported == '\0');
        const std::vector<std::string> calls = fake::calls();
        EXPECT_EQ(std::count(calls.begin(), calls.end(), "QEP_MSG_SendSimpleMsg(cms, 34820, 0)"),
                  each.noBus ? 0 : 1);
        EXPECT_EQ(calls.back(), "QEP_UTIL_RemoveAndroidWPerm(/var/vlk_ready.flg, 664)");
    });
}

TEST_F(StateMachine, ServesARequestBeforeModemDataAndDropsTheThirdEvent)
{
    fake::fail("VLK_event_recv", 1);
    fake::deliver_later(60, "\r\nRING\r\n"); // the wait has no limit
    EXPECT_THAT(run_passes(AT_IDLE_S, 4), ElementsAre(AT_IDLE_S, AT_IDLE_S, AT_PROCESS_NAS_S, AT_IDLE_S));
    EXPECT_EQ(errors(), "Error: Receive the event failed!\n");
    request("AT");
    VLK_event_send(fake::TASK_ID, 7);
    EXPECT_THAT(run_passes(AT_IDLE_S, 5),
                ElementsAre(AT_IDLE_S, AT_PROCESS_CLIENT_S, AT_IDLE_S, AT_PROCESS_NAS_S, AT_IDLE_S));
    EXPECT_EQ(vlk_event_pending(4), 0);
    VLK_event_send(fake::TASK_ID, 1);
    EXPECT_THAT(run_passes(AT_IDLE_S, 2), ElementsAre(AT_IDLE_S, AT_PROCESS_CLIENT_S))
        << "the pass that drops id 4 goes on to wait";
    EXPECT_EQ(vlk_event_pending(4), -1);
    for (const uint32_t id : {4u, 3u})
        EXPECT_EQ(vlk_event_push(id), 0);
    VLK_event_send(fake::TASK_ID, 2);
    EXPECT_THAT(run_passes(static_cast<at_state>(99), 4),
                ElementsAre(AT_IDLE_S, AT_PROCESS_NAS_S, AT_IDLE_S, AT_IDLE_S))
        << "an id that waits is not pushed again, an unknown state idles";
}

TEST_F(StateMachine, ServesEveryRequestInOrderThoseThatArriveMeanwhileToo)
{
    request("AT1");
    request("AT2");
    fake::on_write("AT1\r", [] { request("AT3"); });
    EXPECT_EQ(vlk_state_machine_pass(AT_PROCESS_CLIENT_S, false), AT_IDLE_S);
    EXPECT_THAT(fake::seen().written, ElementsAre("AT1\r", "AT2\r", "AT3\r"));
    EXPECT_EQ(fake::queued(VLK_QUEUE_CLIENT_REPLY).size(), 3u);
}

TEST_F(StateMachine, DrainsModemDataAndAcceptsThatThereIsNone)
{
    EXPECT_EQ(vlk_state_machine_pass(AT_PROCESS_NAS_S, false), AT_IDLE_S);
    EXPECT_TRUE(fake::seen().waits.empty()) << "an empty queue is not read";
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(fake::deliver("\r\n+CMTI: \"SM\",1\r\n"), 0);
    EXPECT_EQ(vlk_state_machine_pass(AT_PROCESS_NAS_S, false), AT_IDLE_S);
    EXPECT_THAT(fake::calls(), testing::SizeIs(3));
}

TEST_F(StateMachine, TheRingHolds31IdsWhereverItStarts)
{
    for (const int offset : {0, 1, 30, 31}) {
        SCOPED_TRACE(offset);
        uint32_t id = 0;
        vlk_event_ring_reset();
        for (int i = 0; i < offset; i++) {
            EXPECT_EQ(vlk_event_push(9), 0);
            EXPECT_EQ(vlk_event_pop(&id), 0);
        }
        for (uint32_t pushed = 100; pushed < 131; pushed++)
            EXPECT_EQ(vlk_event_push(pushed), 0);
        EXPECT_EQ(vlk_event_push(131), -1);
        for (uint32_t expected = 100; expected < 131; expected++) {
            EXPECT_EQ(vlk_event_pending(expected), 0);
            EXPECT_EQ(vlk_event_pop(&id), 0);
            EXPECT_EQ(id, expected);
            EXPECT_EQ(vlk_event_pending(expected), -1);
        }
        EXPECT_EQ(vlk_event_pop(&id), -1);
    }
}

TEST_F(StateMachine, TheSequenceCountsTo256Then0)
{
    uint32_t number = vlk_next_seq();
    for (int i = 0; i < 257; i++) {
        const uint32_t next = vlk_next_seq();
        EXPECT_EQ(next, number == 256 ? 0 : number + 1);
        number = next;
    }
}
