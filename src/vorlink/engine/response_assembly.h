// Turns modem data into the result of a command: receives chunks, classifies their lines, hands reports to their
// handlers, collects the response, stores the final result in the record. Main thread only.
#ifndef RESPONSE_ASSEMBLY_H
#define RESPONSE_ASSEMBLY_H

#include "at_cmd_msg.h"

/// Receives one modem-data record into the stream and zeroes the record's response text. Waits at most
/// msg->timeout seconds, not at all for a negative one. Returns 0, or -1 when none came or an argument is null.
int read_from_smd(at_cmd_msg *msg, int *retcode);

/// Parses everything in the stream. Returns 0, -1 for a null record.
int parse_response(at_cmd_msg *msg);

/// One pass over the stream, to its end or to an event that ends the pass. Returns 0, -1 for a null record.
int parse_exc_result(at_cmd_msg *msg);

/// Drains the modem-data queue outside any command, without waiting. Returns 0, or -1 when nothing was waiting or
/// the argument is null.
int at_process_nas_msg(int *retcode);

#endif
