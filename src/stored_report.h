// The store of the last ^RSSI report, which a client's stored-report query is answered from. Main thread only.
#ifndef STORED_REPORT_H
#define STORED_REPORT_H

#include "at_cmd_msg.h"

/// rmsg holds the report's line, ret_val is 2; the rest is zero.
extern at_response_block g_rssiReportBuf;

/// Stores "^RSSI: 0", the answer until the first report.
void stored_report_reset();

#endif
