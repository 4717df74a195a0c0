// One AT command: written to the modem, its outcome gathered within the record's time budget. Main thread only.
#ifndef COMMAND_TRANSACTION_H
#define COMMAND_TRANSACTION_H

#include <cstdint>

#include "at_cmd_msg.h"

/// Writes len command bytes, at most 1538, ended by exactly one CR whatever line end they have. Returns 0, or -1 when
/// an argument is null or the length 0 (*retcode is 22 then), or when the modem link refuses them.
int write_to_smd(const char *patcmd, int *retcode, uint32_t len);

/// Runs the record's command and fills in ret_val, rmsg and rsp_len; msg->timeout is the budget in seconds and is
/// counted down. Returns 0 for a final result or the expected response, -1 otherwise: ret_val is then 8 when the
/// command could not be written, AT_NONE when no final result came in time.
int at_send_normal_cmd_msg(at_cmd_msg *msg, int *retcode);

/// Subtracts the seconds since *start (a time of VLK_elapse) from the record's time limit and sets *start to now.
/// Returns 0, or -1 when the limit is used up; it stays as it was then.
int spend_time(at_cmd_msg &msg, int32_t *start);

#endif
