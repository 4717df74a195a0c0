// The ring of pending event ids and the sequence counter of the service's own requests. Main thread only.
#ifndef EVENT_RING_H
#define EVENT_RING_H

#include <cstdint>

/// Empties the ring.
void vlk_event_ring_reset();

/// Stores an id. Returns 0, -1 when the ring is full (31 ids).
int vlk_event_push(uint32_t id);

/// Returns 0 when the id is waiting in the ring, -1 when not.
int vlk_event_pending(uint32_t id);

/// Takes the oldest id. Returns 0, -1 when the ring is empty.
int vlk_event_pop(uint32_t *id);

/// Returns the next sequence number: 1 to 256, then 0, and again from 1.
uint32_t vlk_next_seq();

#endif
