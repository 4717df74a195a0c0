// Operator identity and rejected registrations.

#include <cstring>

#include "qep_notify.h"
#include "report_callbacks.h"
#include "report_fields.h"
#include "report_trace.h"
#include "vlk_reports.h"

namespace
{

struct plmn_code_texts {
    char mcc[7];
    char mnc[7];
};

/// Takes the field if it is one of the extended reject details.
void RegInfoParseParam(const at_field &field, vlk_rejinfo &record)
{
    trace(ERROR, "[%s] in\n", __func__);
    const bool has_value = field.AtFieldValue != nullptr;
    int secure_ret = 0;
    if (is_named(field, "rejectType")) {
        record.rejectType = safe_atoi(field.AtFieldValue);
        trace(DETAIL, "[%s] rejectType = %d\n", __func__, record.rejectType);
    } else if (is_named(field, "rejectOriginalCause")) {
        record.rejectOriginalCause = safe_atoi(field.AtFieldValue);
        trace(DETAIL, "[%s] rejectOriginalCause = %d\n", __func__, record.rejectOriginalCause);
    } else if (is_named(field, "rejectLac") && has_value) {
        secure_ret = copy_whole(record.rejectLac, field.AtFieldValue);
    } else if (is_named(field, "rejectRac") && has_value) {
        secure_ret = copy_whole(record.rejectRac, field.AtFieldValue);
    } else if (is_named(field, "rejectCellId") && has_value) {
        secure_ret = copy_whole(record.rejectCellId, field.AtFieldValue);
    } else if (is_named(field, "rejectEsmCause")) {
        record.rejectEsmCause = safe_atoi(field.AtFieldValue);
        trace(DETAIL, "[%s] rejectEsmCause = %d\n", __func__, record.rejectEsmCause);
    }
    if (secure_ret != 0)
        trace(ERROR, "[%s] strncpy_s return failed, secureRet = %d\n", __func__, secure_ret);
    trace(ERROR, "[%s] end\n", __func__);
}

} // namespace

void plmn_report_callback(char *line, int32_t)
{
    trace(ERROR, "plmn_report_callback start.\n");
    if (line == nullptr) {
        trace(ERROR, "plmn_report_callback report_buf is null.\n");
        return;
    }
    plmn_code_texts codes{};
    if (strstr(line, "^PLMN") == nullptr) {
        trace(ERROR, "plmn_report_callback do not find flag.\n");
        return;
    }
    trace(ERROR, "plmn_report_callback find flag.\n");
    report_fields fields("^PLMN", line);
    if (fields.status() != 0) {
        trace(ERROR, "plmn_report_callback at_cmd_parse error,and the ret = %d\n", fields.status());
        return;
    }
    for (const at_field &field : fields) {
        if (is_named(field, "mcc")) {
            if (field.AtFieldValue != nullptr)
                format_cut(codes.mcc, field.AtFieldValue);
            trace(PROGRESS, "plmn_report_callback mcc=%s.\n", codes.mcc);
        } else if (is_named(field, "mnc")) {
            if (field.AtFieldValue != nullptr)
                format_cut(codes.mnc, field.AtFieldValue);
            trace(PROGRESS, "plmn_report_callback mnc=%s.\n", codes.mnc);
        }
    }
    fields.release();
    wipe(codes);
    trace(ERROR, "plmn_report_callback end.\n");
}

void LineRplmnReportCallback(char *line, int32_t)
{
    trace(DETAIL, "[%s] start and reportBuf = %s\n", __func__, shown(line));
    if (line == nullptr) {
        trace(ERROR, "[%s] reportBuf is NULL\n", __func__);
        return;
    }
    report_fields fields("^REPORTLINERPLMN", line);
    if (fields.status() != 0 || fields.empty()) {
        trace(ERROR, "[%s] at_cmd_parse error id = %d\n", __func__, fields.status());
        return;
    }
    int32_t plmn = 0;
    for (const at_field &field : fields) {
        if (is_named(field, "plmn"))
            plmn = safe_atoi(field.AtFieldValue);
        else
            trace(ERROR, "[%s] AtFieldName error\n", __func__);
    }
    fields.release();
    VLK_post_notify(VLK_MODULE_CELL, VLK_EVT_RPLMN, plmn, 0);
    trace(DETAIL, "[%s] end\n", __func__);
}

void net_eons_report_callback(char *, int32_t)
{
    VLK_post_notify(VLK_MODULE_NET, VLK_EVT_NET_EONS, 0, 0);
    trace(PROGRESS, "Leave net_eons_report_callback()!\n");
}

void rejinfo_report_callback(char *line, int32_t)
{
    trace(ERROR, "rejinfo_report_callback start.\n");
    if (line == nullptr) {
        trace(ERROR, "rejinfo_report_callback report_buf is null.\n");
        return;
    }
    vlk_rejinfo record{};
    if (strstr(line, "^REJINFO") == nullptr) {
        trace(ERROR, "rejinfo_report_callback do not find report_buf flag.\n");
        return;
    }
    trace(ERROR, "rejinfo_report_callback find report_buf flag.\n");
    record.report_id = VLK_REPORT_REJINFO;
    report_fields fields("^REJINFO", line);
    if (fields.status() != 0) {
        trace(ERROR, "rejinfo_report_callback at_cmd_parse error,and the ret = %d\n", fields.status());
        return;
    }
    for (const at_field &field : fields) {
        if (is_named(field, "plmnid")) {
            if (field.AtFieldValue != nullptr)
                copy_whole(record.plmnid, field.AtFieldValue);
            trace(ERROR, "rejinfo_report_callback plmnid=%s.\n", record.plmnid);
        } else if (is_named(field, "srvdomain")) {
            record.srvdomain = safe_atoi(field.AtFieldValue);
            trace(DETAIL, "rejinfo_report_callback srvdomain = %d.\n", record.srvdomain);
        } else if (is_named(field, "rejectcause")) {
            record.rejectcause = safe_atoi(field.AtFieldValue);
            trace(DETAIL, "rejinfo_report_callback rejectcause = %d.\n", record.rejectcause);
        } else if (is_named(field, "rattype")) {
            record.rattype = safe_atoi(field.AtFieldValue);
            trace(DETAIL, "rejinfo_report_callback rattype = %d.\n", record.rattype);
        }
        RegInfoParseParam(field, record);
    }
    fields.release();
    VLK_post_notify_ex(VLK_MODULE_RADIO, VLK_EVT_REJECT, &record, sizeof record, 0, 0);
    VLK_post_notify_ex(VLK_MODULE_REGISTRATION, VLK_EVT_REJECT, &record, sizeof record, 0, 0);
    trace(ERROR, "rejinfo_report_callback end.\n");
}

void NetScanReportCallback(char *line, int32_t)
{
    trace(DETAIL, "[%s] start.", __func__);
    if (line == nullptr) {
        trace(DETAIL, "[%s] reportBuf is NULL.", __func__);
        return;
    }
    vlk_netscan record{};
    report_fields fields("^NETSCAN", line);
    if (fields.status() != 0 || fields.empty()) {
        trace(ERROR, "[%s] at_cmd_parse err ret = %d.", __func__, fields.status());
        return;
    }
    record.nr_rsrp = to_int(fields.value_of("5grsrp"));
    record.nr_snr = to_int(fields.value_of("5grssnr"));
    fields.release();
    VLK_post_notify_ex(VLK_MODULE_NET, VLK_EVT_NET_SCAN, &record, sizeof record, 0, 0);
    trace(DETAIL, "[%s] end.", __func__);
}
