#include "stored_report.h"

#include "bounded.h"

at_response_block g_rssiReportBuf;

void stored_report_reset()
{
    memset_s(&g_rssiReportBuf, sizeof g_rssiReportBuf, 0, sizeof g_rssiReportBuf);
    g_rssiReportBuf.ret_val = AT_OK;
    snprintf_s(g_rssiReportBuf.rmsg, sizeof g_rssiReportBuf.rmsg, sizeof g_rssiReportBuf.rmsg - 1,
               "^RSSI: 0");
}
