// The socket `commands`: requests come in, replies go out, each connection a lane of its own with its requests in
// order and its replies in order. Who hangs up withdraws what waits. Main thread, but for what the door's thread does.
#ifndef VLK_COMMANDS_H
#define VLK_COMMANDS_H

#include "at_cmd_msg.h"
#include "host_status.h"

/// Opens the socket. 0, or -1 after a line in the log.
int commands_open();

/// True when a request waits whose turn has come. False also when events of other kinds are to be served first.
bool commands_waiting();

/// Takes that request. 0, or an errno value: ENOMSG when there is none, EINVAL when it was one that must not reach the
/// modem, which has been answered.
int commands_take(at_cmd_msg &request);

/// Answers the request that was taken last. A client that has hung up gets nothing; one that does not read gets it
/// later, and nothing more is taken from it until then. 0, or an errno value.
int commands_reply(const at_cmd_msg &reply);

/// What runs for whom, and who waits. Any thread.
void commands_status(status_text &text);

#endif
