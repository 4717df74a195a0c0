#include "bus_thread.h"

#include <cstdlib>
#include <cstring>
#include <pthread.h>

#include "bounded.h"
#include "bus_messages.h"
#include "engine/current_command.h"
#include "k7_at_proxy.h"
#include "vlk_register.h"
#include "vorlink_trace.h"

static constexpr char STOP_COMMAND[] = "AT+STOP\r";
static constexpr char SCAN_PREFIX[] = "^NETSCAN";

void *vlk_msgproc_thread(void *)
{
    trace(PROGRESS, "vlk_msgproc_thread(): enter\n");
    QEP_MSG_RegisterMsgProc(vlk_msgproc);
    QEP_UTIL_SockBaseStart(0);
    trace(PROGRESS, "vlk_msgproc_thread(): leave\n");
    pthread_exit(nullptr);
}

void vlk_msgproc(const qep_msg *packet)
{
    if (packet == nullptr) {
        trace(ERROR, "vlk_msgproc(): NULL==packet\n");
        return;
    }
    trace(PROGRESS, "vlk_msgproc(): enter\n");
    trace(PROGRESS, "vlk_msgproc(): msg type=%x.\n", packet->type);
    trace(PROGRESS, "vlk_msgproc(): msg length=%x.\n", packet->length);
    if (packet->type == MSG_DATACARD_UNINSTALL) {
        trace(PROGRESS, "vlk_msgproc(): received Uninstall datacard message\n");
        K7_App_Ungister();
    } else {
        trace(PROGRESS, "vlk_msgproc(): unexpected message type %x\n", packet->type);
        QEP_MSG_DefaultMsgProc(packet);
    }
    trace(PROGRESS, "vlk_msgproc(): leave\n");
}

int VlkStopNetScan(const void *, void **reply, uint32_t *reply_length)
{
    if (reply == nullptr || reply_length == nullptr) {
        trace(ERROR, "[%s] reply is NULL.", "VlkStopNetScan");
        return 1;
    }
    auto *result = static_cast<uint32_t *>(malloc(sizeof(uint32_t)));
    if (result == nullptr)
        return 1;
    memset_s(result, sizeof *result, 0, sizeof *result);
    *result = 1;
    char current[CURRENT_COMMAND_SIZE];
    current_at_cmd_copy(current);
    trace(DETAIL, "[%s] enter, the g_currentAtCmd = [%s].", "VlkStopNetScan", current);
    if (strncmp(current, SCAN_PREFIX, sizeof SCAN_PREFIX - 1) == 0) {
        trace(DETAIL, "[%s] the current at is netscan, send stop.", "VlkStopNetScan");
        *result = static_cast<uint32_t>(vlk_send_to_nas(STOP_COMMAND, sizeof STOP_COMMAND - 1));
    }
    trace(DETAIL, "[%s] exit, the result = [%u].", "VlkStopNetScan", *result);
    *reply = result;
    *reply_length = sizeof *result;
    return 0;
}
