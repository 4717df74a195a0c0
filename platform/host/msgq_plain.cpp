#include "msgq_plain.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "at_proxy.h"
#include "host_condition.h"
#include "served_request.h"
#include "service_notify.h"
#include "vlk_msgq.h"
#include "vlk_queues.h"

namespace
{

constexpr int32_t QUEUES = 8;                      ///< at one time
constexpr int32_t ID_LIMIT = INT32_MAX - QUEUES;   ///< ids start again before it
constexpr uint32_t QUEUE_BYTES_MAX = 1024 * 1024U; ///< of one queue

/// A ring of fixed slots, each as long as the longest record. Its memory is taken once.
struct plain_queue {
    std::mutex lock; ///< of everything below
    host_condition filled;
    int32_t id = -1; ///< -1: not in use
    uint32_t key = 0;
    uint32_t capacity = 0;
    uint32_t record_size = 0;
    uint32_t first = 0;             ///< slot of the oldest record
    std::atomic<uint32_t> count{0}; ///< changed under the lock
    uint32_t *lengths = nullptr;
    uint8_t *records = nullptr;
    std::atomic<uint32_t> taken{0}; ///< records that have left it, since it was made

    uint8_t *slot(uint32_t index) { return records + size_t{index} * record_size; }
    uint32_t wrapped(uint32_t index) const { return index < capacity ? index : index - capacity; }

    void free_memory()
    {
        free(lengths);
        free(records);
        lengths = nullptr;
        records = nullptr;
    }

    void push(const void *record, uint32_t size)
    {
        const uint32_t index = wrapped(first + count);
        memcpy(slot(index), record, size);
        lengths[index] = size;
        count.store(count + 1, std::memory_order_relaxed);
    }

    uint32_t pop(void *record, uint32_t size)
    {
        const uint32_t length = std::min(lengths[first], size);
        memcpy(record, slot(first), length);
        first = wrapped(first + 1);
        count.store(count - 1, std::memory_order_relaxed);
        ++taken;
        return length;
    }
};

std::array<plain_queue, QUEUES> queues;
std::atomic<uint32_t> given_up{0}; ///< the request for which nobody waits any more

bool is_given_up()
{
    return given_up != 0 && given_up == host_served_request;
}

/// The slot in which a queue of this id is, if it is anywhere; nullptr for an impossible id. An id is never used for
/// two queues in a row, so whoever holds the id of a deleted queue is refused.
plain_queue *slot_of(int32_t id)
{
    return id < 0 ? nullptr : &queues[static_cast<size_t>(id % QUEUES)];
}

int32_t next_id(size_t index)
{
    static std::array<int32_t, QUEUES> used{};
    used[index] = used[index] >= ID_LIMIT / QUEUES ? 1 : used[index] + 1;
    return used[index] * QUEUES + static_cast<int32_t>(index);
}

/// Reads the modem while the queue's lock is released.
bool read_modem(std::unique_lock<std::mutex> &guard, int64_t until)
{
    guard.unlock();
    const bool has_read = at_proxy_read_here(until);
    guard.lock();
    return has_read;
}

} // namespace

int32_t plain_queue_id(uint32_t key)
{
    for (plain_queue &queue : queues) {
        const std::lock_guard guard(queue.lock);
        if (queue.id >= 0 && queue.key == key)
            return queue.id;
    }
    return -1;
}

void plain_queues_give_up(uint32_t request)
{
    for (plain_queue &queue : queues) {
        const std::lock_guard guard(queue.lock);
        given_up = request;
        queue.filled.notify_all();
    }
}

uint32_t plain_queue_taken(int32_t id)
{
    const plain_queue *const queue = slot_of(id);
    return queue == nullptr ? 0 : queue->taken.load();
}

void plain_queue_drop(int32_t id, uint64_t which)
{
    plain_queue *const queue = slot_of(id);
    if (queue == nullptr)
        return;
    const std::lock_guard guard(queue->lock);
    if (queue->id != id)
        return;
    uint32_t kept = 0;
    for (uint32_t place = 0; place < queue->count; ++place) {
        if (place < 64 && (which >> place & 1U) != 0)
            continue;
        const uint32_t from = (queue->first + place) % queue->capacity;
        const uint32_t to = (queue->first + kept++) % queue->capacity;
        if (from == to)
            continue;
        memcpy(queue->slot(to), queue->slot(from), queue->lengths[from]);
        queue->lengths[to] = queue->lengths[from];
    }
    queue->taken += queue->count - kept;
    queue->count = kept;
}

int32_t VLK_msgQ_create(uint32_t key, uint32_t capacity, uint32_t record_size)
{
    if (capacity == 0 || record_size == 0 || uint64_t{capacity} * record_size > QUEUE_BYTES_MAX)
        return -1;
    static std::mutex creating; // one at a time: a key has one queue
    const std::lock_guard one(creating);
    if (plain_queue_id(key) >= 0)
        return -1;

    for (size_t index = 0; index < queues.size(); ++index) {
        plain_queue &queue = queues[index];
        const std::lock_guard guard(queue.lock);
        if (queue.id >= 0)
            continue;
        queue.lengths = static_cast<uint32_t *>(malloc(capacity * sizeof *queue.lengths));
        queue.records = static_cast<uint8_t *>(malloc(size_t{capacity} * record_size));
        if (queue.lengths == nullptr || queue.records == nullptr) {
            queue.free_memory();
            return -1;
        }
        queue.key = key;
        queue.capacity = capacity;
        queue.record_size = record_size;
        queue.first = 0;
        queue.count = 0;
        queue.taken = 0;
        queue.id = next_id(index);
        return queue.id;
    }
    return -1;
}

int VLK_msgQ_delete(int32_t id)
{
    plain_queue *const queue = slot_of(id);
    if (queue == nullptr)
        return -1;
    const std::lock_guard guard(queue->lock);
    if (queue->id != id)
        return -1;
    queue->id = -1;
    queue->free_memory();
    queue->filled.notify_all(); // whoever waits is refused
    return 0;
}

int32_t VLK_msgQ_num(int32_t id)
{
    plain_queue *const queue = slot_of(id);
    if (queue == nullptr)
        return -1;
    const std::lock_guard guard(queue->lock);
    return queue->id == id ? static_cast<int32_t>(queue->count) : -1;
}

int VLK_msgQ_send(int32_t id, const void *record, uint32_t size)
{
    plain_queue *const queue = slot_of(id);
    if (queue == nullptr || record == nullptr)
        return 0;
    {
        const std::lock_guard guard(queue->lock);
        if (queue->id != id || size > queue->record_size || queue->count == queue->capacity)
            return 0;
        queue->push(record, size);
    }
    queue->filled.notify_all();
    return 1;
}

int VLK_msgQ_recv(int32_t id, void *record, uint32_t size, int32_t wait_ms)
{
    plain_queue *const queue = slot_of(id);
    if (queue == nullptr || record == nullptr)
        return -1;
    if (wait_ms <= 0 && queue->count == 0)
        return -1; // empty just now, even if another thread holds the lock
    std::unique_lock guard(queue->lock);
    const int64_t deadline = wait_ms > 0 ? deadline_after(wait_ms) : 0;
    const auto is_waiting = [&] { return queue->id == id && queue->count == 0 && !is_given_up(); };
    for (bool in_time = wait_ms > 0; in_time && is_waiting();) {
        service_alive();
        const int64_t until = service_due(deadline);
        if (queue->key == VLK_QUEUE_NAS_DATA && read_modem(guard, until))
            in_time = monotonic_ns() < deadline;
        else if (is_waiting())
            in_time = queue->filled.wait(guard, until) || until != deadline;
    }
    if (queue->id != id || queue->count == 0)
        return -1;
    return static_cast<int>(queue->pop(record, size));
}
