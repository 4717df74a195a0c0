// Supplementary services and the SIM toolkit.

#include <algorithm>

#include "qep_notify.h"
#include "report_callbacks.h"
#include "report_fields.h"
#include "report_trace.h"
#include "vlk_reports.h"

namespace
{

/// Turns the CRs that stand for the network's NULs into NULs again, within the value and within the field.
void restore_nuls(vlk_cusd &record)
{
    const auto value_length = static_cast<std::size_t>(record.cusdStr_length);
    char *end = record.cusdStr + std::min(value_length, sizeof record.cusdStr);
    std::replace(record.cusdStr, end, '\r', '\0');
}

} // namespace

void cusd_report_callback(char *line, int32_t length)
{
    if (line == nullptr)
        return;
    trace(PROGRESS, "[cusd_report_callback] enter!\n");
    // The parser ends at a NUL, so those inside the text travel through it as CRs.
    const bool has_nuls = static_cast<int32_t>(VLK_strlen_s(line)) < length;
    if (has_nuls) {
        std::replace(line, line + length, '\0', '\r');
        trace(PROGRESS, "cusd report string include zero char: %s\n", line);
    }
    vlk_cusd record{};
    report_fields fields("+CUSD", line);
    if (fields.status() != 0) {
        trace(ERROR, "ussd_report_callback at_cmd_parse  error,and the ret = %d\n", fields.status());
        return;
    }
    for (const at_field &field : fields) {
        if (is_named(field, "rspType")) {
            record.rspType = safe_atoi(field.AtFieldValue);
        } else if (is_named(field, "cusdStr") && field.AtFieldValue != nullptr) {
            record.cusdStr_length = static_cast<int32_t>(VLK_strlen_s(field.AtFieldValue));
            format_whole(record.cusdStr, field.AtFieldValue);
        } else if (is_named(field, "codeType")) {
            record.codeType = safe_atoi(field.AtFieldValue);
        }
    }
    fields.release();
    if (has_nuls)
        restore_nuls(record);
    VLK_post_notify_ex(VLK_MODULE_USSD, VLK_EVT_USSD, &record, sizeof record, 0, 0);
    wipe(record);
}

void stin_report_callback(char *line, int32_t)
{
    if (line == nullptr)
        return;
    trace(PROGRESS, "[stin_report_callback] enter!\n");
    vlk_stin record{};
    report_fields fields("^STIN", line);
    if (fields.status() != 0) {
        trace(ERROR, "[stk]stin_report_callback: at_cmd_parse return error ret = %d\n", fields.status());
        return;
    }
    record.cmdTpye = static_cast<uint8_t>(safe_atoi(fields.value_of("cmdTpye")));
    record.cmdIndex = static_cast<uint8_t>(safe_atoi(fields.value_of("cmdIndex")));
    record.isTimeOut = static_cast<uint8_t>(safe_atoi(fields.value_of("isTimeOut")));
    fields.release();
    VLK_post_notify_ex(VLK_MODULE_TOOLKIT, VLK_EVT_TOOLKIT, &record, sizeof record, 0, 0);
}

void cssu_report_callback(char *line, int32_t)
{
    trace(PROGRESS, "enter cssu_report_callback\n");
    if (line == nullptr) {
        trace(ERROR, "passing param is invalid\n");
        return;
    }
    report_fields fields("+CSSU", line);
    if (fields.status() == -1) {
        trace(ERROR, "execute at_cmd_parse failed\n");
        return;
    }
    fields.release();
    trace(PROGRESS, "finish cssu_report_callback\n");
}

void cssi_report_callback(char *line, int32_t)
{
    trace(PROGRESS, "enter cssi_report_callback\n");
    if (line == nullptr) {
        trace(ERROR, "passing param is invalid\n");
        return;
    }
    report_fields fields("+CSSI", line);
    if (fields.status() == -1) {
        trace(ERROR, "execute at_cmd_parse failed\n");
        return;
    }
    fields.release();
    trace(PROGRESS, "finish cssi_report_callback\n");
}
