// The SIM card.

#include "custom/ovel/ovel_common_vlk_report_callback.h"
#include "qep_notify.h"
#include "report_callbacks.h"
#include "report_fields.h"
#include "report_trace.h"
#include "vlk_reports.h"

namespace
{

constexpr int32_t LOCK_STATE_LOCKED = 1;

bool is_unusable(const vlk_sim_states &states)
{
    return states.sim_state == SIM_STATE_INVALID || states.sim_state == SIM_STATE_NO_CARD ||
           states.lock_state == LOCK_STATE_LOCKED;
}

} // namespace

void simst_report_callback(char *line, int32_t)
{
    if (line == nullptr)
        return;
    trace(PROGRESS, "[simst_report_callback] enter!\n");
    vlk_simst record{};
    report_fields fields("^SIMST", line);
    if (fields.status() != 0 || fields.empty()) {
        trace(ERROR, "simst_report_callback at_cmd_parse  error,and the ret = %d\n", fields.status());
        return;
    }
    vlk_sim_states &states = record.states;
    states.sim_state = safe_atoi(fields.value_of("sim_state"));
    states.lock_state = safe_atoi(fields.value_of("lock_state"));
    fields.release();
    record.report_id = VLK_REPORT_SIMST;
    VLK_post_notify_ex(VLK_MODULE_27, VLK_EVT_SIM_STATE, &record, sizeof record, 0, 0);
    if (is_unusable(states))
        VLK_post_notify(VLK_MODULE_75, VLK_EVT_SIM_UNUSABLE, 0, 0);
    ovel_hook_vlk_report_imsi_change(&states.sim_state);
    VLK_post_notify(VLK_MODULE_RADIO, VLK_EVT_RADIO_SIM_STATE, states.sim_state, states.lock_state);
    VLK_post_notify(VLK_MODULE_DEVICE, VLK_EVT_DEVICE_SIM_STATE, states.sim_state, states.lock_state);
    VLK_post_notify_ex(VLK_MODULE_6, VLK_EVT_SIM_STATE_PAIR, &states, sizeof states, 0, 0);
    VLK_post_notify(VLK_MODULE_DIALUP, VLK_EVT_DIALUP_SIM_STATE, states.sim_state, states.lock_state);
    mlog_print("vorlink", PROGRESS, "^SIMST: sim_status=%d, simlock_status=%d\n", states.sim_state,
               states.lock_state);
}

void sim_refresh_report_callback(char *line, int32_t length)
{
    char type_text[10] = {};
    if (line == nullptr)
        return;
    trace(PROGRESS, "[%s] enter!\n", __func__);
    report_fields fields("^SIMREFRESH", line);
    if (fields.status() != 0 || fields.empty()) {
        trace(ERROR, "[%s] at_cmd_parse  error,and the ret = %d\n", __func__, fields.status());
        return;
    }
    for (const at_field &field : fields) {
        if (is_named(field, "file_type")) {
            format_cut(type_text, field.AtFieldValue);
            break;
        }
    }
    fields.release();
    const int32_t file_type = to_int(type_text);
    trace(DETAIL, "[%s] file_type = %d, send msg to net , sms, dialup, device\n", __func__, file_type);
    VLK_post_notify(VLK_MODULE_NET, VLK_EVT_NET_SIM_REFRESH, file_type, 0);
    VLK_post_notify(VLK_MODULE_SMS, VLK_EVT_SMS_SIM_REFRESH, 0, 0);
    VLK_post_notify(VLK_MODULE_DIALUP, VLK_EVT_DIALUP_SIM_REFRESH, 0, 0);
    VLK_post_notify(VLK_MODULE_DEVICE, VLK_EVT_DEVICE_SIM_REFRESH, 0, 0);
    ovel_hook_vlk_report_sim_refresh(line, length); // notifies sms once more
}

void exsimst_report_callback(char *line, int32_t)
{
    trace(ERROR, "[exsimst_report_callback]: enter \n");
    if (line == nullptr) {
        trace(ERROR, "[exsimst_report_callback]: NULL == rptbuf \n");
        return;
    }
    trace(ERROR, "[exsimst_report_callback]: leave \n");
}

void CpbReadyReportCallback(char *, int32_t)
{
    trace(DETAIL, "[%s] start.\n", __func__);
    VLK_post_notify(VLK_MODULE_DEVICE, VLK_EVT_DEVICE_PHONE_BOOK_READY, 0, 0);
}
