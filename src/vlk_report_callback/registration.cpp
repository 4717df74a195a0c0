// Registration and service state.

#include "qep_msg.h"
#include "qep_notify.h"
#include "report_callbacks.h"
#include "report_fields.h"
#include "report_trace.h"
#include "vlk_reports.h"

namespace
{

constexpr int32_t SERVICE_VALID = 2; // srv_status
constexpr int32_t ROAMING_UNKNOWN = -1;
constexpr int32_t ROAMING_HOME = 0;
constexpr int32_t ROAMING_ABROAD = 1;

/// What every registration report sends, whichever domain it is about. Leaves cell zeroed.
void notify_registration(vlk_cell_identity &cell)
{
    QEP_MSG_SendMsgData(VLK_BUS_DIALUP, VLK_MSG_NETWORK_STATE, nullptr, 0);
    VLK_post_notify(VLK_MODULE_RADIO, VLK_EVT_REGISTRATION, 0, 0);
    VLK_post_notify(VLK_MODULE_RADIO, VLK_EVT_REGISTRATION_CELL, 0, 0);
    VLK_post_notify(VLK_MODULE_DEVICE, VLK_EVT_DEVICE_REGISTRATION, 0, 0);
    VLK_post_notify_ex(VLK_MODULE_STATISTICS, VLK_EVT_CELL_IDENTITY, &cell, sizeof cell, 0, 0);
    wipe(cell);
}

constexpr named_member<vlk_endc, int32_t> ENDC_FIELDS[] = {
    {"endc_available", &vlk_endc::endc_available},
    {"endc_plmn_available", &vlk_endc::endc_plmn_available},
    {"endc_restricted", &vlk_endc::endc_restricted},
    {"nr_pscell", &vlk_endc::nr_pscell},
};

} // namespace

void mode_report_callback(char *line, int32_t)
{
    char mode_text[10] = {};
    char submode_text[10] = {};
    if (line == nullptr)
        return;
    trace(ERROR, "mode_report_callback .\n");
    report_fields fields("^MODE", line);
    if (fields.status() != 0) {
        trace(ERROR, "mode_report_callback at_cmd_parse  error,and the ret = %d", fields.status());
        return;
    }
    format_whole(mode_text, fields.value_of("sys_mode"));
    format_whole(submode_text, fields.value_of("sys_submode"));
    fields.release();
    const vlk_network_state sys_mode = {to_int(mode_text)};
    const int32_t sys_submode = to_int(submode_text);
    QEP_MSG_SendMsgData(VLK_BUS_DIALUP, VLK_MSG_NETWORK_STATE, &sys_mode, sizeof sys_mode);
    VLK_post_notify(VLK_MODULE_RADIO, VLK_EVT_SYSTEM_MODE, sys_mode.state, sys_submode);
}

void redirect_noservice_report_callback(char *line, int32_t)
{
    char status_text[10] = {};
    if (line == nullptr)
        return;
    trace(PROGRESS, "[redirect_noservice_report_callback] enter!\n");
    report_fields fields("^SRVST", line);
    if (fields.status() != 0) {
        trace(ERROR, "redirect_noservice_report_callback at_cmd_parse  error,and the ret = %d",
              fields.status());
        return;
    }
    for (const at_field &field : fields) {
        if (is_named(field, "srv_status")) {
            format_whole(status_text, field.AtFieldValue);
            break;
        }
    }
    fields.release();
    const vlk_network_state srv_status = {to_int(status_text)};
    QEP_MSG_SendMsgData(VLK_BUS_DIALUP, VLK_MSG_NETWORK_STATE, &srv_status, sizeof srv_status);
    if (srv_status.state == SERVICE_VALID) {
        trace(PROGRESS, "[redirect_noservice_report_callback] send message to device!\n");
        VLK_post_notify(VLK_MODULE_DEVICE, VLK_EVT_DEVICE_SERVICE, 0, 0);
    }
}

void network_report_callback(char *line, int32_t)
{
    char state_text[5] = {};
    vlk_cell_identity cell{};
    if (line == nullptr)
        return;
    trace(ERROR, "creg_report_callback .\n");
    int32_t cgreg_report_flag = 0;
    report_fields fields("+CREG", line);
    if (fields.status() != 0) {
        cgreg_report_flag = 1;
        fields.parse("+CGREG", line);
    }
    if (fields.status() != 0) {
        trace(ERROR, "creg_report_callback at_cmd_parse  error,and the ret = %d\n", fields.status());
        return;
    }
    for (const at_field &field : fields) {
        if (is_named(field, "stat"))
            format_cut(state_text, field.AtFieldValue);
        else if (is_named(field, "ci") && format_cut(cell.ci, field.AtFieldValue) < 0)
            break; // nothing behind a cut identity is taken
    }
    fields.release();
    const int32_t state = to_int(state_text);
    trace(PROGRESS, "vorlink: +CGREG: state=%d\n", state);
    trace(PROGRESS, "[%s] the cgregReportFlag = [%d]\n", __func__, cgreg_report_flag);
    if (cgreg_report_flag == 1)
        VLK_post_notify(VLK_MODULE_REGISTRATION, VLK_EVT_PS_REGISTRATION_STATE, state, 0);
    notify_registration(cell);
}

void NrNetworkReportCallback(char *line, int32_t)
{
    char state_text[32] = {};
    vlk_cell_identity cell{};
    if (line == nullptr)
        return;
    trace(ERROR, "[%s] start.\n", __func__);
    report_fields fields("+C5GREG", line);
    if (fields.status() != 0) {
        trace(ERROR, "[%s] at_cmd_parse  error,and the ret = %d", __func__, fields.status());
        return;
    }
    for (const at_field &field : fields) {
        if (is_named(field, "stat")) {
            if (format_cut(state_text, field.AtFieldValue) < 0)
                trace(ERROR, "[%s] stat is failed", __func__);
        } else if (is_named(field, "ci")) {
            if (format_cut(cell.ci, field.AtFieldValue) < 0)
                trace(ERROR, "[%s] ci is failed", __func__);
        }
    }
    fields.release();
    notify_registration(cell);
    const int32_t state = to_int(state_text);
    trace(PROGRESS, "[%s] the state = [%d].\n", __func__, state);
    VLK_post_notify(VLK_MODULE_REGISTRATION, VLK_EVT_5GS_REGISTRATION_STATE, state, 0);
}

void aproaming_report_callback(char *line, int32_t)
{
    report_fields fields("^APROAMRPT", line);
    if (fields.status() != 0) {
        trace(PROGRESS, "aproaming_report_callback, error,and the ret = %d", fields.status());
        return;
    }
    int32_t roaming_status = ROAMING_UNKNOWN;
    for (const at_field &field : fields) {
        if (is_named(field, "roaming_status"))
            roaming_status = to_int(field.AtFieldValue);
    }
    fields.release();
    trace(PROGRESS, "aproaming_report_callback send notify to net and oled begin...\n");
    if (roaming_status == ROAMING_HOME)
        VLK_post_notify(VLK_MODULE_NET, VLK_EVT_NET_HOME, 0, 0);
    else if (roaming_status == ROAMING_ABROAD)
        VLK_post_notify(VLK_MODULE_NET, VLK_EVT_NET_ROAMING, 0, 0);
    trace(PROGRESS, "aproaming_report_callback send notify to net and oled end\n");
}

void RrcStateReportCallback(char *line, int32_t)
{
    trace(PROGRESS, "[%s] in.", __func__);
    if (line == nullptr) {
        trace(ERROR, "[%s] the reportBuf is NULL.", __func__);
        return;
    }
    report_fields fields("^RRCSTAT", line);
    if (fields.status() != 0 || fields.empty()) {
        trace(ERROR, "[%s] at_cmd_parse err id = %d.", __func__, fields.status());
        return;
    }
    vlk_rrcstat record{};
    for (const at_field &field : fields) {
        if (is_named(field, "state"))
            record.state = safe_atoi(field.AtFieldValue);
        else
            trace(PROGRESS, "[%s] the AtFieldName is error.", __func__);
    }
    fields.release();
    record.type = 1;
    VLK_post_notify_ex(VLK_MODULE_RADIO, VLK_EVT_RRC_STATE, &record, sizeof record, 0, 0);
    trace(DETAIL, "[%s] end.", __func__);
}

void LendcReportCallback(char *line, int32_t)
{
    trace(PROGRESS, "[%s] in \n", __func__);
    if (line == nullptr) {
        trace(ERROR, "[%s] the reportBuf is NULL.\n", __func__);
        return;
    }
    report_fields fields("^LENDC", line);
    if (fields.status() != 0 || fields.empty()) {
        trace(ERROR, "[%s] at_cmd_parse err id = %d.\n", __func__, fields.status());
        return;
    }
    vlk_lendc record{};
    for (const at_field &field : fields) {
        trace(DETAIL, "[%s] the AtFieldName = [%s], AtFieldValue = [%s].", __func__, shown(field.AtFieldName),
              shown(field.AtFieldValue));
        const auto member = member_of(ENDC_FIELDS, field);
        if (member != nullptr)
            record.endc.*member = safe_atoi(field.AtFieldValue);
        else
            trace(PROGRESS, "[%s] the AtFieldName is error.", __func__);
    }
    fields.release();
    record.endc.type = 1;
    VLK_post_notify_ex(VLK_MODULE_RADIO, VLK_EVT_ENDC, &record, sizeof record, 0, 0);
    trace(DETAIL, "%s report ENDC state to lpm...\n", __func__);
    QEP_MSG_SendMsgData(VLK_BUS_LPM, VLK_MSG_ENDC, &record.endc, sizeof record.endc);
    trace(DETAIL, "[%s] end.\n", __func__);
}
