// The socket `commands`: requests come in, replies go out. Each connection is a lane of its own, which keeps its
// requests and replies in order. A client that hangs up withdraws what waits. Main thread unless said otherwise; the
// door's thread opens and closes the connections.
#ifndef VLK_COMMANDS_H
#define VLK_COMMANDS_H

#include "at_cmd_msg.h"
#include "host_status.h"

/// Opens the socket. 0, or -1 after a line in the log.
int commands_open();

/// True when a request waits whose turn has come. False also when events of other kinds are to be served first.
bool commands_waiting();

/// Takes that request. 0, or an errno value: ENOMSG when there is none, EINVAL when it must not reach the modem and
/// has been answered already.
int commands_take(at_cmd_msg &request);

/// Answers the request that was taken last. A client that has hung up gets nothing; one that does not read gets it
/// later, and nothing more is taken from it until then. 0, or an errno value.
int commands_reply(const at_cmd_msg &reply);

/// What runs for whom, and who waits. Any thread.
void commands_status(status_text &text);

#endif
