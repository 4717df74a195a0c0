#include "ovel_common_vlk_report_callback.h"

#include "qep_notify.h"
#include "vlk_reports.h"

static constexpr char TRACE_FILE[] = "ovel_common_vlk_report_callback";
#include "trace.h"

void ovel_hook_vlk_report_imsi_change(const int32_t *sim_state)
{
    if (sim_state == nullptr) {
        trace(ERROR, "ovel_hook_vlk_report_imsi_change parameter error\n");
        return;
    }
    if (*sim_state != SIM_STATE_NO_CARD && *sim_state != SIM_STATE_INVALID)
        VLK_post_notify(VLK_MODULE_SMS, VLK_EVT_SMS_IMSI_CHANGE, 0, 0);
}

void ovel_hook_vlk_report_sim_refresh(char *, int32_t)
{
    VLK_post_notify(VLK_MODULE_SMS, VLK_EVT_SMS_SIM_REFRESH, 0, 0);
}
