/* Record queues. Plain queues live in the process; extended queues connect it with its clients. Ids are >= 0; -1
 * means no queue, and every function refuses it. Records keep their order. Any thread. vlk_queues.h has the keys,
 * sizes and events.
 *
 * After queueing a client's request, the port raises VLK_EVENT_CLIENT_REQUEST on the daemon's main thread, at least
 * once per request: the daemon empties the queue at each event. A reply is only for the client whose Id it carries; a
 * client that does not fetch its replies must not cost another client its own. */
#ifndef VLK_MSGQ_H
#define VLK_MSGQ_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct at_cmd_msg;

/* Id of the queue with this key, of either kind; -1 when there is none. */
int32_t VLK_get_msgQ_id(uint32_t key);

/* Creates a plain queue of capacity records of at most record_size bytes. Returns its id, -1 on failure. */
int32_t VLK_msgQ_create(uint32_t key, uint32_t capacity, uint32_t record_size);

/* Deletes a plain queue with what it holds. 0 on success. */
int VLK_msgQ_delete(int32_t id);

/* Number of records in a plain queue, -1 for an unknown id. */
int32_t VLK_msgQ_num(int32_t id);

/* Appends a copy of size bytes. Never blocks. 1 when sent, 0 when not (full, no queue, too big). */
int VLK_msgQ_send(int32_t id, const void *record, uint32_t size);

/* Takes the oldest record into size bytes, cut if it is longer. wait_ms: milliseconds, 0 for no wait; the wait ends as
 * soon as a record is there, so that no command takes longer than its answer. -1 when nothing came in time or there
 * is no such queue, otherwise the number of bytes stored. */
int VLK_msgQ_recv(int32_t id, void *record, uint32_t size, int32_t wait_ms);

/* The same three for extended queues. */
int32_t VLK_msgQex_create(uint32_t key, uint32_t capacity, uint32_t record_size);
int VLK_msgQex_delete(int32_t id);
int32_t VLK_msgQex_num(int32_t id);

/* Takes the oldest record with the Id `which` (0: any Id). *retcode is set to the cause of a failure. Does not wait.
 * 0 on success, -1 otherwise. */
int read_from_msgqueue(int32_t id, struct at_cmd_msg *record, int32_t which, int *retcode);

/* Appends a record for the client named by its Id. Never blocks. *retcode is set to the cause of a failure. 0 on
 * success, -1 otherwise. */
int send_to_msgqueue(int32_t id, const struct at_cmd_msg *record, int *retcode);

#ifdef __cplusplus
}
#endif

#endif
