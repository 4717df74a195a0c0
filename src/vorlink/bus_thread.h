// What reaches the service besides its queues: bus messages, on a thread of their own, and the synchronous request
// that stops a network scan.
#ifndef BUS_THREAD_H
#define BUS_THREAD_H

#include <cstdint>

#include "qep_msg.h"

/// Thread function; the argument is not used. Registers vlk_msgproc and runs the bus loop; ends with the loop.
void *vlk_msgproc_thread(void *);

/// Handles one bus message: on MSG_DATACARD_UNINSTALL the AT proxy is left for good. Bus thread.
void vlk_msgproc(const qep_msg *packet);

/// Answers SYNC_STOP_NET_SCAN: sends AT+STOP to the modem while a ^NETSCAN command runs. The request is not read.
/// *reply, owned by the caller then, holds 1, or 0 when the stop could not be sent. Returns 0, or 1 when there is no
/// memory or no place for the reply. Notify client's thread; takes no longer than a send.
int VlkStopNetScan(const void *request, void **reply, uint32_t *reply_length);

#endif
