#include <fstream>
#include <sstream>
#include <unistd.h>

#include "core_test.h"
#include "stored_report.h"
#include "vorlink/bus_thread.h"
#include "vorlink/event_ring.h"

using testing::Contains;
using testing::ElementsAre;

namespace
{

constexpr char PID_FILE[] = "/var/run/pidfile/vorlink.pid";
constexpr char OPEN_PID_FILE[] = "fopen(/var/run/pidfile/vorlink.pid, w+)";

std::string content(const std::string &path)
{
    std::stringstream text;
    text << std::ifstream(fake::path(path)).rdbuf();
    return text.str();
}

using Startup = daemon_test;

} // namespace

TEST_F(Startup, GoesThroughItsStepsInOrder)
{
    fake::reset();
    EXPECT_EQ(start(), 0);
    EXPECT_THAT(fake::calls(),
                ElementsAre("QEP_UTIL_ForceSetPrivileges(vorlink)",                           //
                            "opendir(/var/run/pidfile/)",                                     //
                            "mkdir(/var/run/pidfile/, 0750)",                                 //
                            "QEP_UTIL_RemoveAndroidWPerm(/var/run/pidfile/, 750)",            //
                            "fopen(/var/run/pidfile/vorlink.pid, w+)",                        //
                            "QEP_UTIL_RemoveAndroidWPerm(/var/run/pidfile/vorlink.pid, 640)", //
                            "VLK_event_init(7)",                                              //
                            "VLK_get_msgQ_id(2)", "VLK_msgQex_create(2, 10, 1636)",           //
                            "VLK_get_msgQ_id(1)", "VLK_msgQex_create(1, 10, 1636)",           //
                            "VLK_get_msgQ_id(3)", "VLK_msgQ_create(3, 10, 1516)",             //
                            "QEP_MSG_Init(vorlink)",                                          //
                            "VLK_pthread_create(0, 0, 0, none)",                              //
                            "QEP_NOTIFYCLT_Init(31)",                                         //
                            "QEP_NOTIFYCLT_RegSyncMsgProc(31008)",                            //
                            "QEP_UTIL_DropAndroidRootPrivileges()",                           //
                            "VLK_task_getid()"));
    EXPECT_EQ(content(PID_FILE), std::to_string(getpid()));
    EXPECT_EQ(g_vlkTaskId, fake::TASK_ID);
    EXPECT_EQ(fake::seen().thread_proc, vlk_msgproc_thread);
    EXPECT_EQ(fake::seen().sync_proc, VlkStopNetScan);
    EXPECT_EQ(fake::seen().traces.front().file, "vorlink");
    EXPECT_EQ(fake::seen().traces.front().module, "vorlink");
    EXPECT_STREQ(g_rssiReportBuf.rmsg, "^RSSI: 0");
    EXPECT_EQ(g_rssiReportBuf.ret_val, 2);
}

TEST_F(Startup, ReplacesWhatAnEarlierRunLeft)
{
    std::ofstream(fake::path(PID_FILE)) << "99999999 of an earlier run\n";
    for (const uint32_t key : {1u, 2u, 3u})
        fake::put(key, "stale");
    EXPECT_EQ(vlk_event_push(9), 0);
    EXPECT_EQ(start(), 0);
    EXPECT_EQ(vlk_event_pending(9), -1);
    EXPECT_EQ(content(PID_FILE), std::to_string(getpid()));
    std::vector<std::string> calls = fake::calls();
    EXPECT_EQ(calls[2], OPEN_PID_FILE) << "the folder is there";
    calls.assign(calls.begin() + 5, calls.begin() + 14);
    EXPECT_THAT(calls, ElementsAre("VLK_get_msgQ_id(2)", "VLK_msgQex_delete(id of 2)",
                                   "VLK_msgQex_create(2, 10, 1636)", "VLK_get_msgQ_id(1)",
                                   "VLK_msgQex_delete(id of 1)", "VLK_msgQex_create(1, 10, 1636)",
                                   "VLK_get_msgQ_id(3)", "VLK_msgQ_delete(id of 3)",
                                   "VLK_msgQ_create(3, 10, 1516)"));
    EXPECT_EQ(fake::queued(1).size() + fake::queued(2).size() + fake::queued(3).size(), 0u);
    fake::fail("VLK_msgQex_create");
    EXPECT_EQ(vlk_msgq_init(), -1);
    EXPECT_EQ(g_clientReqQid, -1) << "the id of the deleted queue must not stay";
}

TEST_F(Startup, OnlyTheExactArgument1KeepsItOffTheBus)
{
    const std::pair<std::vector<const char *>, bool> cases[] = {
        {{}, true},     {{"1"}, false}, {{"1", "2"}, false}, {{"2", "1"}, true}, {{"01"}, true},
        {{"1 "}, true}, {{"11"}, true}, {{""}, true},        {{nullptr}, true},
    };
    for (const auto &[arguments, on_the_bus] : cases) {
        fake::reset();
        EXPECT_EQ(start(arguments), 0);
        const std::vector<std::string> calls = fake::calls();
        EXPECT_EQ(std::count(calls.begin(), calls.end(), "QEP_MSG_Init(vorlink)"), on_the_bus ? 1 : 0);
        EXPECT_THAT(calls, Contains("VLK_pthread_create(0, 0, 0, none)"));
    }
}
