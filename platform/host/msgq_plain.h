// Plain queues, which live in the process: the part of them that the extended queues' source needs.
#ifndef VLK_MSGQ_PLAIN_H
#define VLK_MSGQ_PLAIN_H

#include <cstdint>

/// Id of the plain queue with this key, -1 when there is none. Any thread.
int32_t plain_queue_id(uint32_t key);

/// Ends the wait in every VLK_msgQ_recv that this request (host_served_request) makes, now and later. Any thread.
void plain_queues_give_up(uint32_t request);

/// How many records have left the queue since it was made, counted modulo 2^32; 0 for no queue.
uint32_t plain_queue_taken(int32_t id);

/// Removes waiting records: the oldest when bit 0 is set, the next for bit 1, and so on. The others keep their order.
void plain_queue_drop(int32_t id, uint64_t which);

#endif
