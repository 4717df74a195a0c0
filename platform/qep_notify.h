/* Notify service: events and synchronous requests between numbered modules. */
#ifndef QEP_NOTIFY_H
#define QEP_NOTIFY_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Answers one synchronous request. *reply is malloc'd here and freed by the library. 0 when *reply and
 * *reply_length (bytes) are set. Runs on a thread of the library, also while the main thread waits for the modem. */
typedef int (*qep_sync_proc)(const void *request, void **reply, uint32_t *reply_length);

/* Connects this process to the notify service as the given module. 0 on success. */
int QEP_NOTIFYCLT_Init(int32_t module);

/* Registers the handler of one synchronous message. 0 on success. */
int QEP_NOTIFYCLT_RegSyncMsgProc(uint32_t message, qep_sync_proc proc);

/* Posts an event with two values to a module. Never blocks: a module that is not there, or does not read, misses it.
 * Events to one module keep their order. Any thread. 0 when handed over. */
int VLK_post_notify(int32_t module, int32_t event, int32_t value1, int32_t value2);

/* Posts an event with a block of length bytes, copied before the call returns; NULL and 0 for none. The last two
 * arguments are 0. Never blocks. Any thread. 0 when handed over. */
int VLK_post_notify_ex(int32_t module, int32_t event, const void *data, uint32_t length, int32_t reserved1,
                       int32_t reserved2);

#ifdef __cplusplus
}
#endif

#endif
