#include "startup.h"

#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include "bus_messages.h"
#include "bus_thread.h"
#include "engine/rcv_stream.h"
#include "event_ring.h"
#include "qep_msg.h"
#include "qep_notify.h"
#include "qep_util.h"
#include "service_ids.h"
#include "stored_report.h"
#include "vlk_msgq.h"
#include "vlk_queues.h"
#include "vlk_task.h"
#include "vorlink_trace.h"

namespace
{

constexpr char PID_FOLDER[] = "/var/run/pidfile/";
constexpr char PID_FILE[] = "/var/run/pidfile/vorlink.pid";

uintptr_t g_msgprocThread = 0;

/// Returns 0 when the folder of the pid file is there, -1 when it cannot be made.
int make_pid_folder()
{
    if (DIR *folder = opendir(PID_FOLDER)) {
        trace(DETAIL, "pidfile folder is exist.\n");
        closedir(folder);
        return 0;
    }
    if (mkdir(PID_FOLDER, 0750) == -1) {
        trace(ERROR, "pidfile folder create failed.\n");
        mlog_print("vorlink", ERROR, "vlk pidfile folder create failed.");
        return -1;
    }
    QEP_UTIL_RemoveAndroidWPerm(PID_FOLDER, "750");
    return 0;
}

void write_pid_file()
{
    FILE *file = fopen(PID_FILE, "w+");
    if (file == nullptr) {
        trace(DETAIL, "open pid file failed.\n");
        mlog_print("vorlink", ERROR, "vlk open pid file failed.");
        return;
    }
    fprintf(file, "%d", getpid());
    trace(DETAIL, "create syswatch pid file success.\n");
    fclose(file);
    QEP_UTIL_RemoveAndroidWPerm(PID_FILE, "640");
}

struct queue_row {
    uint32_t key;
    int32_t *id;
    uint32_t record_size;
    int (*remove)(int32_t id);
    int32_t (*create)(uint32_t key, uint32_t capacity, uint32_t record_size);
};

constexpr queue_row queue_table[] = {
    {VLK_QUEUE_CLIENT_REQUEST, &g_clientReqQid, VLK_CLIENT_RECORD_SIZE, VLK_msgQex_delete, VLK_msgQex_create},
    {VLK_QUEUE_CLIENT_REPLY, &g_clientRspQid, VLK_CLIENT_RECORD_SIZE, VLK_msgQex_delete, VLK_msgQex_create},
    {VLK_QUEUE_NAS_DATA, &g_nasDataQid, VLK_NAS_DATA_SIZE_LIMIT, VLK_msgQ_delete, VLK_msgQ_create},
};

bool asks_for_no_bus(int argc, char *argv[])
{
    return argc > 1 && argv != nullptr && argv[1] != nullptr && strcmp(argv[1], "1") == 0;
}

void join_message_bus()
{
    if (QEP_MSG_Init("vorlink") != 0)
        trace(ERROR, "QEP_MSG_Init failed!\n");
}

} // namespace

int vlk_msgq_init()
{
    for (const queue_row &row : queue_table) {
        *row.id = VLK_get_msgQ_id(row.key);
        if (*row.id != -1) {
            row.remove(*row.id); // left by an earlier run
            *row.id = -1;
        }
        *row.id = row.create(row.key, VLK_QUEUE_CAPACITY, row.record_size);
        if (*row.id == -1) {
            trace(ERROR, "Error: create msg queue failed\n");
            return -1;
        }
    }
    return 0;
}

int vlk_start_msgproc_thread()
{
    g_msgprocThread = VLK_pthread_create(0, 0, 0, vlk_msgproc_thread, nullptr);
    return g_msgprocThread != 0 ? 0 : 1;
}

int vlk_startup(int argc, char *argv[], bool *noBus)
{
    if (noBus == nullptr) {
        trace(ERROR, "vlk_startup: noBus is null!\n");
        return -1;
    }
    QEP_UTIL_ForceSetPrivileges("vorlink");
    if (make_pid_folder() == 0)
        write_pid_file();
    at_sm_reset();
    stored_report_reset();
    VLK_event_init(VLK_EVENT_MASK);
    vlk_event_ring_reset();
    vlk_msgq_init();
    *noBus = asks_for_no_bus(argc, argv);
    trace(PROGRESS, "main(): before QEP_MSG_Init\n");
    if (!*noBus)
        join_message_bus();
    vlk_start_msgproc_thread();
    if (QEP_NOTIFYCLT_Init(MODULE_VORLINK) != 0) {
        trace(ERROR, "QEP_NOTIFYCLT_Init failed!\n");
        return -1;
    }
    QEP_NOTIFYCLT_RegSyncMsgProc(SYNC_STOP_NET_SCAN, VlkStopNetScan);
    QEP_UTIL_DropAndroidRootPrivileges();
    g_vlkTaskId = VLK_task_getid();
    return 0;
}
