// Signal level and quality.

#include <cstring>

#include "qep_msg.h"
#include "qep_notify.h"
#include "report_callbacks.h"
#include "report_fields.h"
#include "report_trace.h"
#include "stored_report.h"
#include "vlk_reports.h"

namespace
{

constexpr named_member<vlk_cerssi, int32_t> CERSSI_FIELDS[] = {
    {"rssi", &vlk_cerssi::rssi},   {"rscp", &vlk_cerssi::rscp},   {"ecio", &vlk_cerssi::ecio},
    {"rsrp", &vlk_cerssi::rsrp},   {"rsrq", &vlk_cerssi::rsrq},   {"rssnr", &vlk_cerssi::rssnr},
    {"ri", &vlk_cerssi::ri},       {"cqi0", &vlk_cerssi::cqi0},   {"cqi1", &vlk_cerssi::cqi1},
    {"rfnum", &vlk_cerssi::rfnum}, {"rsrp1", &vlk_cerssi::rsrp1}, {"rsrp2", &vlk_cerssi::rsrp2},
    {"rsrp3", &vlk_cerssi::rsrp3}, {"rsrp4", &vlk_cerssi::rsrp4}, {"sinr1", &vlk_cerssi::sinr1},
    {"sinr2", &vlk_cerssi::sinr2}, {"sinr3", &vlk_cerssi::sinr3}, {"sinr4", &vlk_cerssi::sinr4},
};

constexpr named_member<vlk_hcsq, int32_t> HCSQ_VALUES[] = {
    {"value1", &vlk_hcsq::value1}, {"value2", &vlk_hcsq::value2}, {"value3", &vlk_hcsq::value3},
    {"value4", &vlk_hcsq::value4}, {"value5", &vlk_hcsq::value5},
};

struct sysmode_row {
    const char *text;
    int32_t code;
};

constexpr sysmode_row SYSMODES[] = {
    {"GSM", 0},      {"WCDMA", 1},     {"LTE", 2}, {"CDMA", 3},       {"EVDO", 4},
    {"TD-SCDMA", 5}, {"CDMA-EVDO", 6}, {"NR", 7},  {"NOSERVICE", -1},
};

/// The code of a radio access technology, or `otherwise` for a text that names none.
int32_t sysmode_code(const char *text, int32_t otherwise)
{
    for (const sysmode_row &row : SYSMODES) {
        if (safe_strcmp(text, row.text) == 0)
            return row.code;
    }
    return otherwise;
}

} // namespace

void anelvel_report_callback(char *line, int32_t)
{
    report_fields fields("^ANLEVEL", line);
    if (fields.status() != 0) {
        trace(PROGRESS, "anelvel_report_callback, error,and the ret = %d", fields.status());
        return;
    }
    const int32_t level = safe_atoi(fields.value_of("level"));
    fields.release();
    VLK_post_notify(VLK_MODULE_RADIO, VLK_EVT_SIGNAL_LEVEL, level, 0);
}

void cerssi_report_callback(char *line, int32_t length)
{
    trace(PROGRESS, "Enter cerssi_report_callback.\n");
    vlk_cerssi record{};
    if (line == nullptr || length < 0) {
        trace(ERROR, "cerssi_report_callback invalid parameter, return!\n");
        return;
    }
    report_fields fields("^CERSSI", line);
    if (fields.status() != 0) {
        trace(ERROR, "cerssi_report_callback  at_cmd_parse  error,and the ret = %d.\n", fields.status());
        return;
    }
    for (const at_field &field : fields) {
        trace(PROGRESS, "cerssi_report_callback AtFieldName= %s.\n", shown(field.AtFieldName));
        const auto member = member_of(CERSSI_FIELDS, field);
        if (member != nullptr)
            record.*member = safe_atoi(field.AtFieldValue);
        else
            trace(PROGRESS, "This node cannot be resolved\n");
    }
    fields.release();
    VLK_post_notify_ex(VLK_MODULE_RADIO, VLK_EVT_SIGNAL_DETAIL, &record, sizeof record, 0, 0);
    const vlk_signal_levels levels = {
        .rssi = record.rssi,
        .rscp = record.rscp,
        .ecio = record.ecio,
        .rsrp = record.rsrp,
        .rsrq = record.rsrq,
        .rssnr = record.rssnr,
        .ri = record.ri,
    };
    trace(DETAIL, "%s report cerssi to lpm...\n", __func__);
    QEP_MSG_SendMsgData(VLK_BUS_LPM, VLK_MSG_SIGNAL_LEVELS, &levels, sizeof levels);
    trace(PROGRESS, "Leave cerssi_report_callback() \n");
}

void CseRssiReportCallback(char *line, int32_t length)
{
    trace(PROGRESS, "%s Enter", __func__);
    vlk_cserssi record{};
    if (line == nullptr || length <= 0) {
        trace(ERROR, "%s invalid parameter, return", __func__);
        return;
    }
    report_fields fields("^CSERSSI", line);
    if (fields.status() != 0) {
        trace(ERROR, "%s at_cmd_parse error, ret = %d", __func__, fields.status());
        return;
    }
    for (const at_field &field : fields) {
        trace(PROGRESS, "%s AtFieldName= %s.\n", __func__, shown(field.AtFieldName));
        if (is_named(field, "5grsrp"))
            record.nr_rsrp = safe_atoi(field.AtFieldValue);
        else if (is_named(field, "5grsrq"))
            record.nr_rsrq = safe_atoi(field.AtFieldValue);
        else if (is_named(field, "5grssnr"))
            record.nr_snr = safe_atoi(field.AtFieldValue);
        else
            trace(PROGRESS, "%s This node cannot be resolved", __func__);
    }
    fields.release();
    trace(DETAIL, "%s report cserssi to lpm...\n", __func__);
    QEP_MSG_SendMsgData(VLK_BUS_LPM, VLK_MSG_5G_SIGNAL_LEVELS, &record, sizeof record);
    trace(PROGRESS, "%s Leave", __func__);
}

void hcsq_report_callback(char *line, int32_t length)
{
    vlk_hcsq record{};
    trace(ERROR, "Enter hcsq_report_callback().\n");
    if (line == nullptr || length < 0) {
        trace(ERROR, "hcsq_report_callback invalid parameter, return!\n");
        return;
    }
    report_fields fields("^HCSQ", line);
    if (fields.status() != 0) {
        trace(ERROR, "hcsq_report_callback  at_cmd_parse  error,and the ret = %d.\n", fields.status());
        return;
    }
    for (const at_field &field : fields) {
        trace(PROGRESS, "hcsq_report_callback AtFieldName= %s.\n", shown(field.AtFieldName));
        if (is_named(field, "sysmode"))
            record.sysmode = sysmode_code(field.AtFieldValue, record.sysmode);
        const auto member = member_of(HCSQ_VALUES, field);
        if (member != nullptr)
            record.*member = safe_atoi(field.AtFieldValue);
    }
    fields.release();
    VLK_post_notify_ex(VLK_MODULE_RADIO, VLK_EVT_SIGNAL_QUALITY, &record, sizeof record, 0, 0);
    QEP_MSG_SendMsgData(VLK_BUS_BEHAVIOR, VLK_MSG_SIGNAL_QUALITY, &record, sizeof record);
    trace(PROGRESS, "Leave hcsq_report_callback() \n");
}

void ltesiglev_report_callback(char *line, int32_t)
{
    if (line == nullptr) {
        trace(MINOR, "ltesiglev is empty.\n");
        return;
    }
    trace(PROGRESS, "LTESIGLEV ltesiglev_report_callback=[%s]\n", line);
    report_fields fields("^LTESIGLEV", line);
    if (fields.status() != 0) {
        trace(ERROR, "ltesiglev_report_callback at_cmd_parse  error,and the ret = %d\n", fields.status());
        return;
    }
    const int32_t level = to_int(fields.value_of("level"));
    fields.release();
    trace(PROGRESS, "LTESIGLEV send to WiMAX level =[%d]\n", wrapping_sum(level, 1));
}

void rssi_report_callback(char *line, int32_t)
{
    if (line == nullptr) {
        trace(MINOR, "rssi_buf is empty.\n");
        return;
    }
    if (strstr(line, "^RSSI") == nullptr) {
        trace(MINOR, "Buffer(%s) do not have ^RSSI\n", line);
        return;
    }
    const uint32_t rssi_length = VLK_strlen_s(line);
    if (rssi_length > MAX_ATCMD_REPORT_SIZE) {
        trace(MINOR, "MAX_ATCMD_REPORT_SIZE < rssi_length\n");
        return;
    }
    wipe(g_rssiReportBuf);
    if (memcpy_s(g_rssiReportBuf.rmsg, sizeof g_rssiReportBuf.rmsg, line, rssi_length) != 0)
        return;
    g_rssiReportBuf.ret_val = AT_OK;
    // The stored text itself has no terminator when it fills rmsg.
    trace(PROGRESS, "rssi buffer length: (%d) ,is : %s\n", static_cast<int>(rssi_length), line);
}
