// Events of the device and the network time.

#include <cstdio>

#include "qep_msg.h"
#include "qep_notify.h"
#include "report_callbacks.h"
#include "report_fields.h"
#include "report_trace.h"
#include "vlk_reports.h"

namespace
{

constexpr int32_t NO_SECOND_VALUE = -1;
constexpr int32_t RESTORE_WITHOUT_REBOOT = 5;
constexpr int32_t CENTURY = 2000;

} // namespace

void wakeupin_report_callback(char *line, int32_t)
{
    char value_text[10] = {};
    trace(PROGRESS, "[wakeupin_report_callback] enter!\n");
    report_fields fields("^WAKEUPIN", line);
    if (fields.status() != 0) {
        trace(PROGRESS, "wakeupin_report_callback at_cmd_parse error,and the ret = %d\n", fields.status());
        return;
    }
    copy_whole(value_text, fields.value_of("value"));
    fields.release();
    const int32_t value = to_int(value_text);
    VLK_post_notify(VLK_MODULE_M2MAPI, VLK_EVT_WAKEUP_INPUT, value, NO_SECOND_VALUE);
    trace(PROGRESS, "[wakeupin_report_callback]send wakeupin value to M2MAPI =[%d]\n", value);
}

void tempprt_report_callback(char *line, int32_t)
{
    char event_text[10] = {};
    char param_text[10] = {};
    trace(PROGRESS, "tempprt_report_callback at_cmd_parse \n");
    report_fields fields("^TEMPPRT", line);
    if (fields.status() != 0) {
        trace(PROGRESS, "tempprt_report_callback at_cmd_parse  error,and the ret = %d\n", fields.status());
        return;
    }
    copy_whole(event_text, fields.value_of("tempprotect_event"));
    copy_whole(param_text, fields.value_of("tempprotect_param"));
    fields.release();
    const int32_t event = to_int(event_text);
    const int32_t param = to_int(param_text);
    trace(PROGRESS, "send EVT_AT_MACHINE_TEMP  to RUT_MDL_DEVICE\n");
    VLK_post_notify(VLK_MODULE_DEVICE, VLK_EVT_AT_MACHINE_TEMP, event, param);
}

void factory_report_callback(char *, int32_t)
{
    trace(PROGRESS, "factory_report_callback called.\n");
    mlog_print("vorlink", PROGRESS, "VLK  report  and need  restore factory settings !");
    VLK_post_notify(VLK_MODULE_DEVICE, VLK_EVT_FACTORY, 1, 0);
}

void norstfact_report_callback(char *, int32_t)
{
    puts("vlk norstfact_report_callback enter");
    mlog_print("vorlink", PROGRESS, "VLK  report  and need  restore  factory no reboot !");
    const vlk_factory_reset word = {RESTORE_WITHOUT_REBOOT};
    VLK_post_notify_ex(VLK_MODULE_FACTORY_RESET, VLK_EVT_FACTORY, &word, sizeof word, 0, 0);
}

void mmi_enter_report_callback(char *line, int32_t)
{
    trace(ERROR, "[mmi_enter_report_callback]: enter \n");
    if (line == nullptr) {
        trace(ERROR, "[mmi_enter_report_callback]: NULL == rptbuf \n");
        return;
    }
    QEP_MSG_SendMsgData(VLK_BUS_CMS, VLK_MSG_MMI_ENTER, nullptr, 0);
    trace(ERROR, "[mmi_enter_report_callback]: leave \n");
}

void net_time_report_callback(char *line, int32_t)
{
    char date[160] = {}; // yy/mm/dd
    char time[160] = {}; // hh:mm:ss and the signed zone; what lies behind a short text is zero and reads as 0
    vlk_nwtime info{};
    trace(PROGRESS, "[net_time_report_callback] begin report time!\n");
    report_fields fields("^NWTIME", line);
    if (fields.status() != 0) {
        trace(PROGRESS, "net_time_report_callback at_cmd_parse error,and the ret = %d\n", fields.status());
        return;
    }
    copy_whole(date, fields.value_of("date"));
    copy_whole(time, fields.value_of("time"));
    fields.release();
    info.year = wrapping_sum(to_int(date), CENTURY);
    info.month = to_int(date + 3);
    info.day = to_int(date + 6);
    info.hour = to_int(time);
    info.minute = to_int(time + 3);
    info.second = to_int(time + 6);
    info.time_zone = to_int(time + 8);
    trace(PROGRESS, "at_nwtime_info.time_val.tm_year = %d%02d%02d,%02d:%02d:%02d,%02d.\n", info.year,
          info.month, info.day, info.hour, info.minute, info.second, info.time_zone);
    trace(PROGRESS, "send time to RUT_MDL_DEVICE!\n");
    VLK_post_notify_ex(VLK_MODULE_DEVICE, VLK_EVT_NETWORK_TIME, &info, sizeof info, 0, 0);
}
