// Short messages: stored, delivered, sent, memory full.

#include <cstring>
#include <span>

#include "qep_notify.h"
#include "report_callbacks.h"
#include "report_fields.h"
#include "report_trace.h"
#include "vlk_reports.h"

namespace
{

/// One of the reports that a handler serves.
struct sms_kind {
    vlk_report_id id;
    const char *prefix;
};

constexpr sms_kind INDEX_KINDS[] = {{VLK_REPORT_CDSI, "+CDSI"}, {VLK_REPORT_CMTI, "+CMTI"}};
constexpr sms_kind CONTENT_KINDS[] = {
    {VLK_REPORT_CMT, "+CMT"}, {VLK_REPORT_CDS, "+CDS"}, {VLK_REPORT_CBM, "+CBM"}};

/// The first kind whose prefix occurs in the line, nullptr when none does.
const sms_kind *kind_of(const char *line, std::span<const sms_kind> kinds)
{
    for (const sms_kind &kind : kinds) {
        if (strstr(line, kind.prefix) != nullptr)
            return &kind;
    }
    return nullptr;
}

} // namespace

void sms_index_report_callback(char *line, int32_t)
{
    if (line == nullptr)
        return;
    trace(PROGRESS, "[sms_index_report_callback] enter!\n");
    const sms_kind *kind = kind_of(line, INDEX_KINDS);
    if (kind == nullptr)
        return;
    vlk_sms_index record{};
    record.report_id = kind->id;
    report_fields fields(kind->prefix, line);
    if (fields.status() != 0) {
        trace(ERROR, "sms_index_report_callback at_cmd_parse  error,and the ret = %d\n", fields.status());
        return;
    }
    copy_whole(record.mem, fields.value_of("mem"));
    record.index = safe_atoi(fields.value_of("index"));
    fields.release();
    VLK_post_notify_ex(VLK_MODULE_SMS, VLK_EVT_SMS_ARRIVED, &record, sizeof record, 0, 0);
    wipe(record);
}

void sms_content_report_callback(char *line, int32_t)
{
    if (line == nullptr)
        return;
    trace(PROGRESS, "[sms_content_report_callback] enter!\n");
    const sms_kind *kind = kind_of(line, CONTENT_KINDS);
    if (kind == nullptr)
        return;
    vlk_sms_content record{};
    record.report_id = kind->id;
    report_fields fields(kind->prefix, line);
    if (fields.status() != 0) {
        trace(ERROR, "sms_content_report_callback at_cmd_parse  error,and the ret = %d\n", fields.status());
        return;
    }
    record.length = static_cast<uint16_t>(safe_atoi(fields.value_of("length")));
    copy_whole(record.pdu, fields.value_of("pdu"));
    fields.release();
    VLK_post_notify_ex(VLK_MODULE_SMS, VLK_EVT_SMS_ARRIVED, &record, sizeof record, 0, 0);
    wipe(record);
}

void sms_hcmgss_report_callback(char *line, int32_t)
{
    if (line == nullptr) {
        trace(ERROR, "sms_hcmgss_report_callback parameter  error, return. \n");
        return;
    }
    trace(DETAIL, "[sms_hcmgss_report_callback] enter... \n");
    vlk_hcmgss record{};
    record.report_id = VLK_REPORT_HCMGSS;
    report_fields fields("^HCMGSS", line);
    if (fields.status() != 0) {
        trace(ERROR, "sms_hcmgss_report_callback at_cmd_parse  error,and the ret = %d\n", fields.status());
        return;
    }
    record.mr = safe_atoi(fields.value_of("mr"));
    fields.release();
    VLK_post_notify_ex(VLK_MODULE_SMS, VLK_EVT_SMS_SEND_RESULT, &record, sizeof record, 0, 0);
    wipe(record);
    trace(DETAIL, "[sms_hcmgss_report_callback] end ! \n");
}

void sms_hcmgsf_report_callback(char *line, int32_t)
{
    if (line == nullptr) {
        trace(ERROR, "sms_hcmgsf_report_callback parameter  error, return. \n");
        return;
    }
    trace(DETAIL, "[sms_hcmgsf_report_callback] enter... \n");
    vlk_hcmgsf record{};
    record.report_id = VLK_REPORT_HCMGSF;
    report_fields fields("^HCMGSF", line);
    if (fields.status() != 0) {
        trace(ERROR, "sms_hcmgf_callback at_cmd_parse  error,and the ret = %d\n", fields.status());
        return;
    }
    record.errCode = safe_atoi(fields.value_of("errCode"));
    fields.release();
    VLK_post_notify_ex(VLK_MODULE_SMS, VLK_EVT_SMS_SEND_RESULT, &record, sizeof record, 0, 0);
    wipe(record);
    trace(DETAIL, "[sms_hcmgsf_report_callback] end ! \n");
}

void sms_mem_full_report_callback(char *line, int32_t)
{
    trace(DETAIL, "[sms_mem_full_report_callback] enter... \n");
    if (line == nullptr) {
        trace(ERROR, "sms_mem_full_report_callback parameter  error, return. \n");
        return;
    }
    report_fields fields("^SMMEMFULL", line);
    if (fields.status() != 0) {
        trace(ERROR, "sms_mem_full_report_callback at_cmd_parse  error,and the ret = %d\n", fields.status());
        return;
    }
    for (const at_field &field : fields) {
        if (is_named(field, "mem_type") && safe_strcmp(field.AtFieldValue, "SM") == 0) {
            VLK_post_notify_ex(VLK_MODULE_SMS, VLK_EVT_SMS_MEMORY_FULL, nullptr, 0, 0, 0);
            break;
        }
    }
    fields.release();
    trace(DETAIL, "[sms_mem_full_report_callback] end ! \n");
}
