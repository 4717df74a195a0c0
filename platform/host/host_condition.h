// A condition variable that costs nothing while nobody waits, and no more than one wake-up when somebody does: the
// C++ library's wakes a second time when the mutex is released, and needs the machinery of exceptions.
#ifndef VLK_HOST_CONDITION_H
#define VLK_HOST_CONDITION_H

#include <atomic>
#include <mutex>

#include "futex_word.h"

class host_condition
{
public:
    /// Releases the lock, sleeps until the next notify_all or the deadline (NO_DEADLINE for none), and takes the lock
    /// again. May return early. False when the deadline has passed.
    bool wait(std::unique_lock<std::mutex> &lock, int64_t deadline)
    {
        const uint32_t seen = changes;
        ++sleepers;
        lock.unlock();
        const bool in_time = futex_wait(changes, seen, deadline);
        lock.lock();
        --sleepers;
        return in_time;
    }

    /// Call it after a change under the lock, with or without the lock. Any thread.
    void notify_all()
    {
        if (sleepers == 0)
            return; // a thread that waits has counted itself under the lock
        ++changes;
        futex_wake(changes);
    }

private:
    std::atomic<uint32_t> changes{0};
    std::atomic<uint32_t> sleepers{0};
};

#endif
