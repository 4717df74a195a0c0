/* Message bus: services know each other by name. Sends: any thread. */
#ifndef QEP_MSG_H
#define QEP_MSG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Header of a bus message, 40 bytes; length bytes of payload follow it. */
struct qep_msg {
    uint32_t type;
    uint8_t opaque[32];
    uint32_t length; /* payload bytes, at offset 36 */
};

/* Handles one received message, which is valid during the call only. Runs on the bus thread. */
typedef void (*qep_msg_proc)(const struct qep_msg *packet);

/* Registers this process on the bus under a name. 0 on success. */
int QEP_MSG_Init(const char *process);

/* Sets the handler of received messages. Call it before QEP_UTIL_SockBaseStart. 0 on success. */
int QEP_MSG_RegisterMsgProc(qep_msg_proc proc);

/* Runs the bus loop in the calling thread; returns only when the bus ends. reserved: 0. */
int QEP_UTIL_SockBaseStart(int reserved);

/* What the platform does with a message that the service does not know. 0 on success. */
int QEP_MSG_DefaultMsgProc(const struct qep_msg *packet);

/* Sends a message with one 32-bit parameter to the named service. Never blocks. 0 when handed over. */
int QEP_MSG_SendSimpleMsg(const char *destination, uint32_t type, int32_t parameter);

/* Sends a message with length bytes of data (NULL and 0 for none), copied before the call returns. Never blocks.
 * 0 when handed over. */
int QEP_MSG_SendMsgData(const char *destination, uint32_t type, const void *data, uint32_t length);

#ifdef __cplusplus
}
#endif

#endif
