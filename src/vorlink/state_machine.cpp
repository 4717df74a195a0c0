#include "state_machine.h"

#include <cstdio>

#include "at_cmd_msg.h"
#include "bounded.h"
#include "bus_messages.h"
#include "client_service.h"
#include "engine/command_transaction.h"
#include "engine/response_assembly.h"
#include "event_ring.h"
#include "qep_msg.h"
#include "qep_util.h"
#include "service_ids.h"
#include "vlk_msgq.h"
#include "vlk_queues.h"
#include "vlk_register.h"
#include "vlk_reports.h"
#include "vlk_task.h"
#include "vorlink_trace.h"

namespace
{

constexpr uint32_t REGISTER_RETRY_MS = 1000;
constexpr int32_t WAIT_WITHOUT_LIMIT = -1;
constexpr char READY_FLAG[] = "/var/vlk_ready.flg";

// Event ids: the numbers of the states that they lead to. The last leads nowhere.
constexpr uint32_t CLIENT_REQUEST_ID = AT_PROCESS_CLIENT_S;
constexpr uint32_t NAS_DATA_ID = AT_PROCESS_NAS_S;
constexpr uint32_t OTHER_ID = 4;

struct event_row {
    uint32_t bit;
    uint32_t id;
};
constexpr event_row event_table[] = {
    {VLK_EVENT_CLIENT_REQUEST, CLIENT_REQUEST_ID},
    {VLK_EVENT_NAS_DATA, NAS_DATA_ID},
    {VLK_EVENT_OTHER, OTHER_ID},
};

void wait_wm_ready()
{
    while (vlk_register_nas() != 1)
        VLK_sleep(REGISTER_RETRY_MS);
    trace(PROGRESS, "wait_wm_ready: device is ready!\n");
}

void write_ready_flag()
{
    FILE *flag = fopen(READY_FLAG, "w+");
    if (flag == nullptr)
        puts("vlk create ready flag file failed.");
    else
        fclose(flag);
    QEP_UTIL_RemoveAndroidWPerm(READY_FLAG, "664");
}

at_state pass_init(bool noBus)
{
    trace(PROGRESS, "vlk state machine: enter AT_INIT_S!\n");
    wait_wm_ready();
    int retcode = 0;
    if (vlk_cmee(&retcode) == -1)
        trace(ERROR, "Error:vlk_cmee failed, ret=%d\n", -1);
    if (!noBus)
        vlk_notify_qep_datacard_inserted();
    write_ready_flag();
    return AT_IDLE_S;
}

void wait_for_events()
{
    uint32_t events = 0;
    if (VLK_event_recv(VLK_EVENT_MASK, WAIT_WITHOUT_LIMIT, &events) == 0) {
        trace(ERROR, "Error: Receive the event failed!\n");
        return;
    }
    for (const event_row &row : event_table) {
        if ((events & row.bit) != 0 && vlk_event_pending(row.id) == -1)
            vlk_event_push(row.id);
    }
}

at_state pass_idle()
{
    trace(PROGRESS, "vlk state machine: enter AT_IDLE_S!\n");
    uint32_t id = 0;
    if (vlk_event_pop(&id) == 0) {
        if (id == CLIENT_REQUEST_ID)
            return AT_PROCESS_CLIENT_S;
        if (id == NAS_DATA_ID)
            return AT_PROCESS_NAS_S;
    }
    wait_for_events();
    return AT_IDLE_S;
}

at_state pass_process_client()
{
    trace(PROGRESS, "vlk state machine: enter AT_PROCESS_CLIENT_S!\n");
    while (VLK_msgQex_num(g_clientReqQid) > 0) {
        int retcode = -1;
        at_process_client_msg(&retcode);
    }
    trace(PROGRESS, "AT_PROCESS_CLIENT_S ----->AT_IDLE_S\n");
    return AT_IDLE_S;
}

at_state pass_process_nas()
{
    trace(PROGRESS, "vlk state machine: enter AT_PROCESS_NAS_S!\n");
    int retcode = -1;
    if (VLK_msgQ_num(g_nasDataQid) > 0)
        at_process_nas_msg(&retcode);
    trace(PROGRESS, "AT_PROCESS_NAS_S -->AT_IDLE_S\n");
    return AT_IDLE_S;
}

} // namespace

int vlk_cmee(int *retcode)
{
    if (retcode == nullptr) {
        trace(ERROR, "retcode is NULL!\n");
        return -1;
    }
    *retcode = 0;
    at_cmd_msg msg{};
    msg.Id = 5;
    msg.req_type = AT_COMMAND;
    msg.seq = vlk_next_seq();
    msg.timeout = 3;
    snprintf_s(msg.at_match_str, sizeof msg.at_match_str, sizeof msg.at_match_str - 1, "+CMEE:");
    snprintf_s(msg.snd_rcv_msg.cmd, sizeof msg.snd_rcv_msg.cmd, sizeof msg.snd_rcv_msg.cmd - 1, "AT+CMEE=1");
    if (at_send_normal_cmd_msg(&msg, retcode) == -1)
        return -1;
    return msg.snd_rcv_msg.ret_val == AT_OK ? 0 : -1;
}

void vlk_notify_qep_datacard_inserted()
{
    trace(PROGRESS, "vlk_notify_qep_datacard_inserted(): enter\n");
    QEP_MSG_SendSimpleMsg(VLK_BUS_CMS, VLK_MSG_DATACARD_INSERTED, 0);
    trace(PROGRESS, "vlk_notify_qep_datacard_inserted(): leave\n");
}

at_state vlk_state_machine_pass(at_state state, bool noBus)
{
    switch (state) {
    case AT_INIT_S:
        return pass_init(noBus);
    case AT_PROCESS_CLIENT_S:
        return pass_process_client();
    case AT_PROCESS_NAS_S:
        return pass_process_nas();
    case AT_IDLE_S:
        break;
    }
    return pass_idle();
}

void vlk_state_machine(bool noBus)
{
    at_state state = AT_INIT_S;
    for (;;)
        state = vlk_state_machine_pass(state, noBus);
}
