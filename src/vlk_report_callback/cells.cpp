// The serving cell and its frequencies.

#include <cstring>

#include "qep_msg.h"
#include "qep_notify.h"
#include "report_callbacks.h"
#include "report_fields.h"
#include "report_trace.h"
#include "vlk_reports.h"

namespace
{

constexpr int32_t RAT_WITH_SPLIT_CELL_ID = 5;
constexpr uint32_t HIGH_SPEED_FLAG_MAX = 1;
constexpr int32_t LINE_INDEX_RESERVED = -2;

/// Writes the cell id as decimal text. Negative when it failed.
int format_cell_id(vlk_hsrcellinfo &record)
{
    constexpr std::size_t size = sizeof record.cell_id;
    if (record.Rat == RAT_WITH_SPLIT_CELL_ID)
        return snprintf_s(record.cell_id, size, size - 1, "%d%d", record.CellIdHighBit, record.CellIdLowBit);
    return snprintf_s(record.cell_id, size, size - 1, "%d", record.CellIdLowBit);
}

/// Words of a frequency record, in the order of the report's fields.
enum hfreq_word {
    HFREQ_SYSMODE = 1,
    HFREQ_BAND_CLASS = 2,
    HFREQ_DL_BW1 = 5,
    HFREQ_UL_BW1 = 8
};

} // namespace

void LineCellInfoCallback(char *line, int32_t)
{
    trace(DETAIL, "[%s] start\n", __func__);
    if (line == nullptr) {
        trace(ERROR, "[%s] reportBuf is NULL\n", __func__);
        return;
    }
    report_fields fields("^HSRCELLINFO", line);
    if (fields.status() != 0 || fields.empty()) {
        trace(ERROR, "[%s] at_cmd_parse error id = %d\n", __func__, fields.status());
        return;
    }
    vlk_hsrcellinfo record{};
    for (const at_field &field : fields) {
        if (is_named(field, "Rat")) {
            record.Rat = safe_atoi(field.AtFieldValue);
        } else if (is_named(field, "HighSpeedFlg")) {
            const auto flag = static_cast<uint32_t>(safe_atoi(field.AtFieldValue));
            if (flag > HIGH_SPEED_FLAG_MAX) {
                wipe(record);
                return;
            }
            record.HighSpeedFlg = static_cast<uint8_t>(flag);
        } else if (is_named(field, "CellIdLowBit")) {
            record.CellIdLowBit = safe_atoi(field.AtFieldValue);
        } else if (is_named(field, "CellIdHighBit")) {
            record.CellIdHighBit = safe_atoi(field.AtFieldValue);
        }
    }
    fields.release();
    if (format_cell_id(record) < 0) {
        wipe(record);
        return;
    }
    VLK_post_notify_ex(VLK_MODULE_CELL, VLK_EVT_SERVING_CELL, &record, sizeof record, 0, 0);
    wipe(record);
    trace(DETAIL, "[%s] end\n", __func__);
}

void LineIndexReportCallback(char *line, int32_t)
{
    trace(DETAIL, "[%s] start and reportBuf = %s\n", __func__, shown(line));
    if (line == nullptr) {
        trace(ERROR, "[%s] reportBuf is NULL\n", __func__);
        return;
    }
    report_fields fields("^REPORTLINEINDEX", line);
    if (fields.status() != 0 || fields.empty()) {
        trace(ERROR, "[%s] at_cmd_parse error id = %d\n", __func__, fields.status());
        return;
    }
    vlk_line_index record{};
    record.reserved = LINE_INDEX_RESERVED;
    const at_field *field = fields.head(); // the fields count by their place, whatever their names
    if (field->AtFieldValue == nullptr || copy_whole(record.first_field, field->AtFieldValue) != 0)
        return;
    int32_t count = 0;
    for (field = field->next; field != nullptr && count < VLK_LINE_INDEX_LIMIT; field = field->next) {
        const int32_t value = safe_atoi(field->AtFieldValue);
        record.indexList[count] = value;
        trace(DETAIL, "[%s] start indexInfo->indexList[%d] = %d\n", __func__, count, value);
        ++count;
        trace(DETAIL, "[%s] start indexInfo->loop = %d\n", __func__, count);
    }
    record.loop = count;
    fields.release();
    VLK_post_notify_ex(VLK_MODULE_CELL, VLK_EVT_LINE_INDEX, &record, sizeof record, 0, 0);
    trace(DETAIL, "[%s] end\n", __func__);
}

void HfreqInfoReportCallback(char *line, int32_t)
{
    // The parser wants the field "switch" in front, which the modem does not send.
    char with_switch[128] = {};
    if (line == nullptr)
        return;
    trace(PROGRESS, "[%s] begin, the hfreqInfoBuf = [%s]\n", __func__, line);
    const char *colon = strchr(line, ':');
    if (colon == nullptr) {
        trace(ERROR, "[%s] invalid report content.\n", __func__);
        return;
    }
    const char *rest = colon + 1;
    if (strncpy_s(with_switch, sizeof with_switch, line, static_cast<std::size_t>(rest - line)) != 0) {
        trace(ERROR, "[%s] copy report content fail.\n", __func__);
        return;
    }
    if (strcat_s(with_switch, sizeof with_switch, "1,") != 0) {
        trace(ERROR, "[%s] cat active report filed fail.\n", __func__);
        return;
    }
    if (strcat_s(with_switch, sizeof with_switch, rest) != 0) {
        trace(ERROR, "[%s] cat last part of report content fail.\n", __func__);
        return;
    }
    report_fields fields("^HFREQINFO", with_switch);
    if (fields.status() != 0) {
        trace(ERROR, "[%s] at_cmd_parse err id = %d.\n", __func__, fields.status());
        return;
    }
    hfreq_info_holder holder{};
    ParseHfreqInfoResult(fields.head(), &holder);
    vlk_hfreqinfo message{};
    if (holder.first != nullptr) {
        trace(PROGRESS, "%s report hfreqinfo to LPM...\n", __func__);
        message.sysmode = holder.first[HFREQ_SYSMODE];
        message.band_class = holder.first[HFREQ_BAND_CLASS];
        message.dl_bw1 = holder.first[HFREQ_DL_BW1];
        message.ul_bw1 = holder.first[HFREQ_UL_BW1];
        QEP_MSG_SendMsgData(VLK_BUS_LPM, VLK_MSG_FREQUENCY, &message, sizeof message);
    }
    HfreqInfoExFree(&holder);
    fields.release();
}

void ltecacell_report_callback(char *, int32_t)
{
    trace(DETAIL, "[ltecacell_report_callback] begin! \n");
    VLK_post_notify(VLK_MODULE_RADIO, VLK_EVT_SYSTEM_MODE, 0, 0);
}
