// The two-phase exchange that sends or stores a short message: command line, prompt, PDU. Main thread only.
#ifndef SMS_TRANSACTION_H
#define SMS_TRANSACTION_H

#include "at_cmd_msg.h"

/// Returns 0 when the text begins with an SMS send or save command (AT+CMGS=, AT+CMGW=, AT^HCMGS=, AT^HCMGW=, any
/// case), -1 when not or for null.
int at_cmd_is_smssw(const char *cmd_buf);

/// Runs the exchange. The command text holds the command line, CR, the PDU, Ctrl-Z and two NULs. The budget of
/// msg->timeout seconds counts from the command line on; every wait is for what the last chunk left of it, so an
/// exchange without any answer takes twice as long. Returns 0 when a final result or the expected response came after
/// the PDU, -1 otherwise: ret_val then tells a rejected command line (its final result), a failed write (8, or 0 for
/// an empty line) or the end of the time.
int at_send_or_save_msg(at_cmd_msg *msg, int *retcode);

#endif
