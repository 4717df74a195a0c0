#include "event_ring.h"

namespace
{

constexpr uint32_t RING_SLOTS = 32;
constexpr uint32_t RING_MASK = RING_SLOTS - 1;
constexpr uint32_t LAST_SEQ = 256;

struct {
    uint32_t slots[RING_SLOTS];
    uint32_t head; // next slot to write
    uint32_t tail; // next slot to read
} vlk_event_ring;

uint32_t sequence = 0;

uint32_t after(uint32_t index)
{
    return (index + 1) & RING_MASK;
}

} // namespace

void vlk_event_ring_reset()
{
    vlk_event_ring.head = 0;
    vlk_event_ring.tail = 0;
}

int vlk_event_push(uint32_t id)
{
    if (vlk_event_ring.head > RING_MASK || after(vlk_event_ring.head) == vlk_event_ring.tail)
        return -1;
    vlk_event_ring.slots[vlk_event_ring.head] = id;
    vlk_event_ring.head = after(vlk_event_ring.head);
    return 0;
}

int vlk_event_pending(uint32_t id)
{
    for (uint32_t at = vlk_event_ring.tail; at != vlk_event_ring.head; at = after(at)) {
        if (vlk_event_ring.slots[at] == id)
            return 0;
    }
    return -1;
}

int vlk_event_pop(uint32_t *id)
{
    if (id == nullptr || vlk_event_ring.head == vlk_event_ring.tail || vlk_event_ring.tail > RING_MASK)
        return -1;
    *id = vlk_event_ring.slots[vlk_event_ring.tail];
    vlk_event_ring.tail = after(vlk_event_ring.tail);
    return 0;
}

uint32_t vlk_next_seq()
{
    sequence = sequence < LAST_SEQ ? sequence + 1 : 0;
    return sequence;
}
