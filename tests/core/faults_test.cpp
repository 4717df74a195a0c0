// What happens when the platform fails: each call once, at start-up and at work, with the outcome that it must have.
#include <climits>
#include <cstdlib>
#include <set>

#include "core_test.h"
#include "vlk_report_callback/report_table.h"
#include "vorlink/bus_thread.h"
#include "vorlink/event_ring.h"
#include "vorlink/state_machine.h"

using testing::AllOf;
using testing::Contains;
using testing::Not;
using namespace std::string_literals;

namespace
{

using Faults = daemon_test;
using texts = std::vector<std::string>;

constexpr int32_t NO_REPLY = -99;
constexpr char ANSWER[] = "\r\n^SRVST: 2\r\n+CSQ: 20,99\r\n\r\nOK\r\n";
const std::string NO_QUEUE = "Error: create msg queue failed\n";
const std::string NO_ANSWER = "Error = 0 , cmd =***\n"
                              "send_to_msgqueue the cmd rsp error ,retcode = < 0>!\n";
const std::string NOT_WRITTEN = "Error: Send cmd to NAS failed\n"
                                "write_to_smd error and the errcode = 0\n"
                                "send_to_msgqueue the cmd rsp error ,retcode = < 0>!\n";
const std::string NOT_QUEUED = "QueueSend Error\n";
const std::string NOT_REPLIED = "send_to_msgqueue the cmd rsp error ,retcode = < 11>!\n";
constexpr char OPEN_PID_FILE[] = "fopen(/var/run/pidfile/vorlink.pid, w+)";
constexpr char PROTECT_PID_FILE[] = "QEP_UTIL_RemoveAndroidWPerm(/var/run/pidfile/vorlink.pid, 640)";
constexpr char BUS_THREAD[] = "VLK_pthread_create(0, 0, 0, none)";

void fill(uint32_t key)
{
    for (int i = 0; i < VLK_QUEUE_CAPACITY; i++)
        fake::put(key, "\r\n");
}

/// The outcome of the only reply.
int32_t reply()
{
    if (replies().empty())
        return NO_REPLY;
    const at_cmd_msg msg = replies().back();
    EXPECT_TRUE(msg.snd_rcv_msg.ret_val != 8 || std::string(msg.at_match_str) + rmsg(msg) == "");
    return msg.snd_rcv_msg.ret_val;
}

} // namespace

TEST_F(Faults, EachHasItsOutcome)
{
    const struct {
        const char *failing;
        int32_t reply; // to a command
        std::string reported;
        const char *left_out = "";
        const char *called = BUS_THREAD;
        void (*before)() = [] {}; // the command
    } cases[] = {
        {"nothing", 2, ""},
        {"mkdir", 2, "pidfile folder create failed.\n", OPEN_PID_FILE,
         "mlog_print(vorlink, 2, vlk pidfile folder create failed.)"},
        {"fopen", 2, "", PROTECT_PID_FILE, "mlog_print(vorlink, 2, vlk open pid file failed.)"},
        {"VLK_msgQex_create(2, 10, 1636)", NO_REPLY, NO_QUEUE, "VLK_get_msgQ_id(1)"},
        {"VLK_msgQex_create(1, 10, 1636)", NO_REPLY, NO_QUEUE + NOT_QUEUED + NO_ANSWER + NOT_REPLIED,
         "VLK_get_msgQ_id(3)"},
        {"VLK_msgQ_create(3, 10, 1516)", -1, NO_QUEUE + NOT_QUEUED + NO_ANSWER},
        {"QEP_MSG_Init", 2, "QEP_MSG_Init failed!\n"},
        {"QEP_NOTIFYCLT_Init", NO_REPLY, "QEP_NOTIFYCLT_Init failed!\n", "VLK_task_getid()"},
        {BUS_THREAD, 2, ""},
        {"QEP_UTIL_ForceSetPrivileges", 2, ""},
        {"QEP_UTIL_RemoveAndroidWPerm", 2, ""},
        {"QEP_NOTIFYCLT_RegSyncMsgProc", 2, ""},
        {"QEP_UTIL_DropAndroidRootPrivileges", 2, ""},
        {"VLK_event_init", 2, ""},

        {"VLK_msgQex_num", NO_REPLY, ""},
        {"read_from_msgqueue", 2, ""}, // tried again
        {"K7_APP_RegCallBack", 8, "vorlink: Send g_vlk_send_data_to_nas is NULL!\n" + NOT_WRITTEN},
        {"k7_send", 8, "vorlink: Send at command AT+CSQ\r error!\n" + NOT_WRITTEN},
        {"malloc", -1, "Error: NAS Response malloc fail!\n" + NO_ANSWER},
        {"VLK_msgQ_send", -1, NOT_QUEUED + NO_ANSWER},
        {"VLK_event_send", 2, ""}, // who waits for it reads the queue
        {"VLK_msgQ_recv", -1, NO_ANSWER},
        {"QEP_MSG_SendMsgData", 2, "", "", "VLK_post_notify(9, 9040, 0, 0)"},
        {"VLK_post_notify", 2, ""},
        {"send_to_msgqueue", NO_REPLY, NOT_REPLIED},

        {"a full modem-data queue", -1, NOT_QUEUED + NO_ANSWER, "", BUS_THREAD,
         [] { fill(VLK_QUEUE_NAS_DATA); }},
        {"a full reply queue", NO_REPLY, NOT_REPLIED, "", BUS_THREAD, [] { fill(VLK_QUEUE_CLIENT_REPLY); }},
        {"no modem-data queue any more", -1, NOT_QUEUED + NO_ANSWER, "", BUS_THREAD,
         [] { VLK_msgQ_delete(g_nasDataQid); }},
        {"no reply queue any more", NO_REPLY, NOT_REPLIED, "", BUS_THREAD,
         [] { VLK_msgQex_delete(g_clientRspQid); }},
        {"no request queue any more", NO_REPLY, "", "", BUS_THREAD,
         [] { VLK_msgQex_delete(g_clientReqQid); }},
        {"the data card is gone", 8, "vorlink: Send at command AT+CSQ\r error!\n" + NOT_WRITTEN, "",
         "K7_App_Ungister()",
         [] {
             const qep_msg uninstall = {34821, {}, 0};
             vlk_msgproc(&uninstall);
         }},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.failing + " "s + each.reported);
        fake::reset();
        g_clientReqQid = g_clientRspQid = g_nasDataQid = -1;
        fake::fail(each.failing, 1);
        fake::on_write("AT+CSQ\r", [] { fake::deliver(ANSWER); });
        const int started = start();
        EXPECT_EQ(started, each.failing == "QEP_NOTIFYCLT_Init"s ? -1 : 0);
        if (started == 0) {
            vlk_register_nas();
            fake::put(VLK_QUEUE_CLIENT_REQUEST, bytes_of(command("AT+CSQ", "+CSQ:")));
            each.before();
            EXPECT_EQ(vlk_state_machine_pass(AT_PROCESS_CLIENT_S, false), AT_IDLE_S);
        }
        EXPECT_EQ(reply(), each.reply);
        EXPECT_TRUE(each.reply != 8 || fake::seen().waits.empty());
        EXPECT_EQ(errors(), each.reported);
        EXPECT_THAT(fake::calls(), AllOf(Contains(each.called), Not(Contains(each.left_out))));
        EXPECT_EQ(fake::blocks(), 0);
    }
}

// A session in which the n-th of all calls to the platform fails, for every n.

namespace
{

bool is_idle()
{
    return fake::seen().events == 0 && vlk_event_pending(2) != 0 && vlk_event_pending(3) != 0;
}

/// Lets the daemon work until it has nothing to do.
void work(at_state state)
{
    for (int passes = 0; passes < 100 && (state != AT_IDLE_S || !is_idle()); passes++)
        state = vlk_state_machine_pass(state, false);
}

void request(int32_t id, uint32_t req_type, std::string_view text, std::string_view match = "")
{
    at_cmd_msg msg = command(text, match);
    msg.Id = id;
    msg.req_type = req_type;
    msg.rep_type = AT_REPORT_RSSI;
    fake::put(VLK_QUEUE_CLIENT_REQUEST, bytes_of(msg));
    work(AT_IDLE_S);
}

void stop_scan()
{
    fake::deliver("OK\r\n");
    void *reply = nullptr;
    uint32_t length = 0;
    const int result = VlkStopNetScan(nullptr, &reply, &length);
    EXPECT_EQ(result, reply == nullptr ? 1 : 0);
    EXPECT_TRUE(reply != nullptr || fake::seen().failed == "malloc");
    std::free(reply);
}

/// Every row of the report table, several in a delivery.
void report_everything()
{
    std::string delivery;
    for (const vlk_report_row &row : vlk_report_table) {
        if (row.prefix != nullptr)
            delivery += row.prefix + ": 1,1,1,1\r\n"s;
        if (row.prefix == nullptr || delivery.size() > 150)
            fake::deliver(std::exchange(delivery, ""));
        work(AT_IDLE_S);
    }
}

/// Notifications and messages in whatever order, but for the flow statistics, which every tenth session sends.
std::multiset<std::string> told()
{
    std::multiset<std::string> all;
    for (const std::string &call : fake::calls()) {
        if ((call.starts_with("VLK_post") || call.starts_with("QEP_MSG_SendMsg")) &&
            call.find("cms, 34843") == std::string::npos)
            all.insert(call);
    }
    return all;
}

/// Returns the Id and the outcome of every reply.
texts run_session(int failing)
{
    start_daemon();
    fake::reset();
    g_clientReqQid = g_clientRspQid = g_nasDataQid = -1;
    fake::on_write("AT+CMEE=1\r", {{0, "\r\nOK\r\n"}});
    fake::on_write("AT+CSQ\r", {{0, ANSWER}});
    fake::on_write("AT+COPS?\r", {{0, "+COPS: 0\r\n"}, {1, "\r\nOK\r\n"}});
    fake::on_write("AT+CMGS=2\r", {{0, "\r\n> "}});
    fake::on_write("AABB\x1A\r", {{1, "\r\n+CMGS: 12\r\n\r\nOK\r\n"}});
    fake::on_write("AT^NETSCAN=20\r", stop_scan);
    testing::internal::CaptureStdout();
    fake::fail(fake::ANY_CALL, 1, failing);
    EXPECT_TRUE(start() == 0 || start() == 0) << "the next process starts";
    work(AT_INIT_S);
    request(1, AT_COMMAND, "AT+CSQ", "+CSQ:");
    report_everything();
    request(2, AT_RAW_COMMAND, "AT+COPS?");
    request(3, AT_COMMAND, "AT+CMGS=2\rAABB\x1A", "+CMGS:");
    request(4, ACTIVE_REPORT, "");
    request(5, AT_STORED_REPORT, "");
    request(6, AT_COMMAND, "AT^NETSCAN=20", "^NETSCAN:");
    request(7, 4, "");
    const qep_msg unknown = {1, {}, 0};
    vlk_msgproc(&unknown);
    fake::fail(fake::ANY_CALL, 0);
    request(8, AT_COMMAND, "AT+CSQ", "+CSQ:");
    testing::internal::GetCapturedStdout();
    texts outcomes;
    for (const at_cmd_msg &msg : replies())
        outcomes.push_back(std::to_string(msg.Id) + ": " + std::to_string(msg.snd_rcv_msg.ret_val));
    return outcomes;
}

} // namespace

TEST_F(Faults, OneFailureAnywhereCostsOneThingAndTheDaemonGoesOn)
{
    EXPECT_EQ(run_session(INT_MAX), texts({"1: 2", "2: 2", "3: 2", "5: 2", "6: 2", "7: 8", "8: 2"}));
    const auto all = told();
    EXPECT_GT(all.size(), 70u);
    int failing = 0;
    for (; failing < 10'000; failing++) {
        const texts outcomes = run_session(failing);
        const std::string failed = fake::seen().failed;
        if (failed.empty())
            break; // the session has fewer calls
        SCOPED_TRACE(std::to_string(failing) + " " + failed);
        EXPECT_EQ(fake::blocks(), 0);
        if (failed.starts_with("VLK_msgQ") && failed.ends_with("_create")) {
            EXPECT_THAT(errors(), testing::StartsWith(NO_QUEUE)); // nothing can be served or told then
            continue;
        }
        EXPECT_EQ(outcomes.size(), failed == "send_to_msgqueue" ? 6u : 7u);
        EXPECT_EQ(outcomes.back(), "8: 2") << "the next command works";
        const bool loses_text = failed == "malloc" || failed == "VLK_msgQ_send" || failed == "k7_send";
        EXPECT_TRUE(std::ranges::includes(all, told()));
        EXPECT_GE(told().size() + (loses_text ? 16u : 0u), all.size()) << "what one delivery tells";
    }
    RecordProperty("failures", failing);
    EXPECT_GT(failing, 250);
}
