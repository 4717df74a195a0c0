// The packet-data connection: traffic, contexts that come up and go down.

#include <algorithm>

#include "qep_msg.h"
#include "qep_notify.h"
#include "report_callbacks.h"
#include "report_fields.h"
#include "report_trace.h"
#include "vlk_reports.h"

namespace
{

constexpr uint32_t REPORTS_PER_STATISTICS = 10;
constexpr int32_t NDISSTAT_CID = 1; // the one context that ^NDISSTAT is about
constexpr int32_t STAT_DISCONNECTED = 0;
constexpr int32_t STAT_CONNECTED = 1;
constexpr int32_t NO_CAUSE = -1;

uint32_t g_dsflowReportCount = 0; // calls since the last message to "cms"
vlk_dsflow_stats g_dsflowStats = {};

constexpr named_member<vlk_dsflow, uint32_t> DSFLOW_WORDS[] = {
    {"curr_ds_time", &vlk_dsflow::curr_ds_time}, {"tx_rate", &vlk_dsflow::tx_rate},
    {"rx_rate", &vlk_dsflow::rx_rate},           {"qos_tx_rate", &vlk_dsflow::qos_tx_rate},
    {"qos_rx_rate", &vlk_dsflow::qos_rx_rate},
};

constexpr named_member<vlk_dsflow, uint64_t> DSFLOW_TOTALS[] = {
    {"curr_tx_flow", &vlk_dsflow::curr_tx_flow},
    {"curr_rx_flow", &vlk_dsflow::curr_rx_flow},
};

/// Stores a hexadecimal value; of a rate or a time the low 32 bits.
void store_flow_value(const at_field &field, vlk_dsflow &record)
{
    const auto word = member_of(DSFLOW_WORDS, field);
    const auto total = member_of(DSFLOW_TOTALS, field);
    if (word != nullptr)
        record.*word = static_cast<uint32_t>(hex_str_to_uinteger(field.AtFieldValue));
    else if (total != nullptr)
        record.*total = hex_str_to_uinteger(field.AtFieldValue);
}

void add_to_statistics(const vlk_dsflow &record)
{
    g_dsflowStats.peak_tx_rate = std::max(g_dsflowStats.peak_tx_rate, record.tx_rate);
    g_dsflowStats.peak_rx_rate = std::max(g_dsflowStats.peak_rx_rate, record.rx_rate);
    g_dsflowStats.curr_tx_flow = record.curr_tx_flow;
    g_dsflowStats.curr_rx_flow = record.curr_rx_flow;
}

/// The texts of a report about a context; those that it does not have stay empty.
struct connection_texts {
    char cid[10];
    char pdp_type[10];
    char stat[10];
    char err_code[10];
};

using connection_text = named_member<connection_texts, char[10]>;

// ^DCONN and ^DEND.
constexpr connection_text CONTEXT_TEXTS[] = {
    {"cid", &connection_texts::cid},
    {"pdp_type", &connection_texts::pdp_type},
};

// ^NDISSTATEX, and ^NDISSTAT, which lacks the cid.
constexpr connection_text INTERFACE_TEXTS[] = {
    {"cid", &connection_texts::cid},
    {"PDP_type", &connection_texts::pdp_type},
    {"stat", &connection_texts::stat},
    {"err_code", &connection_texts::err_code},
};

/// Takes the texts that the table names; the last field of a name counts.
template <std::size_t rows>
connection_texts texts_of(const report_fields &fields, const connection_text (&table)[rows])
{
    connection_texts texts{};
    for (const at_field &field : fields) {
        const auto member = member_of(table, field);
        if (member != nullptr)
            copy_whole(texts.*member, field.AtFieldValue);
    }
    return texts;
}

bool is_ipv6(const char *pdp_type)
{
    return safe_strcmp(pdp_type, "IPV6") == 0;
}

void notify_connected(int32_t cid, const char *pdp_type)
{
    const vlk_connection message = {.cid = cid, .cause = NO_CAUSE};
    const uint32_t type = is_ipv6(pdp_type) ? VLK_MSG_CONNECTED_IPV6 : VLK_MSG_CONNECTED;
    QEP_MSG_SendMsgData(VLK_BUS_DIALUP, type, &message, sizeof message);
}

void notify_disconnected(int32_t cid, int32_t cause, const char *pdp_type)
{
    const vlk_connection message = {.cid = cid, .cause = cause};
    const uint32_t type = is_ipv6(pdp_type) ? VLK_MSG_DISCONNECTED_IPV6 : VLK_MSG_DISCONNECTED;
    QEP_MSG_SendMsgData(VLK_BUS_DIALUP, type, &message, sizeof message);
}

/// Notifies of the connection or disconnection that stat means. Returns 0, -1 when it means neither.
int notify_by_stat(int32_t cid, int32_t stat, const connection_texts &texts)
{
    if (stat == STAT_CONNECTED)
        notify_connected(cid, texts.pdp_type);
    else if (stat == STAT_DISCONNECTED)
        notify_disconnected(cid, to_int(texts.err_code), texts.pdp_type);
    else
        return -1;
    return 0;
}

} // namespace

void dsflow_report_callback(char *line, int32_t)
{
    ++g_dsflowReportCount;
    if (line == nullptr)
        return;
    vlk_dsflow record{};
    report_fields fields("^DSFLOWRPT", line);
    if (fields.status() != 0) {
        trace(ERROR, "dsflow_report_callback at_cmd_parse  error,and the ret = %d\n", fields.status());
        return;
    }
    for (const at_field &field : fields)
        store_flow_value(field, record);
    fields.release();
    add_to_statistics(record);
    VLK_post_notify_ex(VLK_MODULE_STATISTICS, VLK_EVT_FLOW, &record, sizeof record, 0, 0);
    trace(DETAIL, "%s report ds flow to lpm...\n", __func__);
    const vlk_dsflow_rates rates = {.tx_rate = record.tx_rate, .rx_rate = record.rx_rate};
    QEP_MSG_SendMsgData(VLK_BUS_LPM, VLK_MSG_FLOW_RATES, &rates, sizeof rates);
    if (g_dsflowReportCount % REPORTS_PER_STATISTICS == 0) {
        g_dsflowReportCount = 0;
        QEP_MSG_SendMsgData(VLK_BUS_CMS, VLK_MSG_FLOW_STATISTICS, &g_dsflowStats, sizeof g_dsflowStats);
        wipe(g_dsflowStats);
    }
}

void dconn_report_callback(char *line, int32_t)
{
    trace(PROGRESS, "[dconn_report_callback] enter!\n");
    report_fields fields("^DCONN", line);
    if (fields.status() != 0) {
        trace(ERROR, "dconn_report_callback at_cmd_parse  error,and the ret = %d\n", fields.status());
        return;
    }
    const connection_texts texts = texts_of(fields, CONTEXT_TEXTS);
    fields.release();
    notify_connected(to_int(texts.cid), texts.pdp_type);
}

void dend_report_callback(char *line, int32_t)
{
    trace(PROGRESS, "[dend_report_callback] enter!\n");
    report_fields fields("^DEND", line);
    if (fields.status() != 0) {
        trace(PROGRESS, "dend_report_callback at_cmd_parse  error,and the ret = %d\n", fields.status());
        return;
    }
    const connection_texts texts = texts_of(fields, CONTEXT_TEXTS);
    fields.release();
    notify_disconnected(to_int(texts.cid), NO_CAUSE, texts.pdp_type);
}

void ndisstat_report_callback(char *line, int32_t)
{
    trace(PROGRESS, "[ndisstat_report_callback] enter!\n");
    report_fields fields("^NDISSTAT", line);
    if (fields.status() != 0) {
        trace(ERROR, "ndisstat_report_callback at_cmd_parse  error,and the ret = %d\n", fields.status());
        return;
    }
    const connection_texts texts = texts_of(fields, INTERFACE_TEXTS);
    fields.release();
    const int32_t stat = to_int(texts.stat);
    if (notify_by_stat(NDISSTAT_CID, stat, texts) != 0)
        trace(PROGRESS, "ndisstat_report_callback rptbuf_stat_dec =[%d]\n", stat);
}

void ndisstatex_report_callback(char *line, int32_t)
{
    trace(PROGRESS, "[ndisstatex_report_callback] enter!\n");
    report_fields fields("^NDISSTATEX", line);
    if (fields.status() != 0) {
        trace(ERROR, "ndisstatex_report_callback at_cmd_parse  error,and the ret = %d\n", fields.status());
        return;
    }
    const connection_texts texts = texts_of(fields, INTERFACE_TEXTS);
    fields.release();
    const int32_t stat = to_int(texts.stat);
    if (notify_by_stat(to_int(texts.cid), stat, texts) != 0)
        trace(PROGRESS, "ndisstatex_report_callback rptbuf_stat_dec =[%d]\n", stat);
}

void apdialup_report_callback(char *line, int32_t)
{
    const report_fields fields("^APDIALUPRPT", line);
    if (fields.status() != 0)
        trace(PROGRESS, "apdialup_report_callback, error,and the ret = %d", fields.status());
}
