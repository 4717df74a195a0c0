// One client request: read, serve by its type, reply. Main thread only.
#ifndef CLIENT_SERVICE_H
#define CLIENT_SERVICE_H

#include "at_cmd_msg.h"

/// Takes one request from the request queue, serves it and queues its reply. Returns -1 when nothing was read or the
/// request was dropped, otherwise the result of the reply send, or of the handler of a type that has no reply.
int at_process_client_msg(int *retcode);

/// Copies the stored report that pmsg->rep_type names into the response block. Returns 0, or -1 for an unknown type
/// (*retcode is 1, the block zero) or a null argument.
int get_report(at_cmd_msg *pmsg, int *retcode);

#endif
