#include "vlk_task.h"

#include <atomic>
#include <cerrno>
#include <ctime>

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include "futex_word.h"
#include "host_start.h"

// One task has an event set, the one that made it: its bits are the word `events` of the event page, so that other
// processes can raise them.
static std::atomic<int32_t> event_task{-1};
static std::atomic<uint32_t> event_mask{0};
static std::atomic<bool> owner_may_sleep{false}; // here, not in the page, where anybody could change it

constexpr int64_t LONG_YIELD_NS = 100'000;
constexpr int64_t YIELD_PAUSE = 64; // times a long yield, until the next one

/// Gives the processor away once: a client that has just got its reply may only want for that to send its next
/// request, and then neither a sleep nor a wake-up is needed. Not for a while after a long yield: others have work of
/// their own then, and whoever yields waits for all of their turn, while a sleeper is woken in the middle of it.
static void yield_before_sleep()
{
    static std::atomic<int64_t> not_before{0};
    const int64_t start = monotonic_ns();
    if (start < not_before)
        return;
    sched_yield();
    const int64_t took = monotonic_ns() - start;
    if (took > LONG_YIELD_NS)
        not_before = start + took * YIELD_PAUSE;
}

uintptr_t VLK_pthread_create(int, int, int, vlk_thread_proc proc, void *argument)
{
    if (proc == nullptr)
        return 0;
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return 0;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread{};
    const int result = pthread_create(&thread, &attributes, proc, argument);
    pthread_attr_destroy(&attributes);
    return result == 0 ? static_cast<uintptr_t>(thread) : 0;
}

int32_t VLK_task_getid(void)
{
    return gettid();
}

int VLK_event_init(uint32_t mask)
{
    if (mask == 0)
        return -1;
    host_event_page()->events.fetch_and(~mask);
    event_mask = mask;
    event_task = VLK_task_getid();
    return 0;
}

int VLK_event_send(int32_t task, uint32_t events)
{
    if (task != event_task || events == 0 || (events & ~event_mask) != 0)
        return -1;
    // Wakes a sleeper also when the bit was raised: the client that raised it may have died before it could wake.
    std::atomic<uint32_t> &word = host_event_page()->events;
    word.fetch_or(events);
    if (owner_may_sleep)
        futex_wake(word);
    return 0;
}

int VLK_event_recv(uint32_t mask, int32_t wait_ms, uint32_t *events)
{
    if (events == nullptr || (mask & event_mask) == 0)
        return 0;
    std::atomic<uint32_t> &word = host_event_page()->events;
    const int64_t deadline = deadline_after(wait_ms);
    if (wait_ms != 0 && (word & mask) == 0)
        yield_before_sleep();
    for (bool in_time = true;;) {
        const uint32_t raised = word.load();
        if ((raised & mask) != 0) {
            *events = word.fetch_and(~mask) & mask;
            return *events != 0;
        }
        if (!in_time)
            return 0;
        owner_may_sleep = true; // a bit that was raised before this line ends the wait at once
        in_time = futex_wait(word, raised, deadline);
        owner_may_sleep = false;
    }
}

void VLK_sleep(uint32_t milliseconds)
{
    timespec until{};
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += static_cast<time_t>(milliseconds / 1000);
    until.tv_nsec += static_cast<long>(milliseconds % 1000) * 1'000'000;
    if (until.tv_nsec >= 1'000'000'000) {
        until.tv_nsec -= 1'000'000'000;
        ++until.tv_sec;
    }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {}
}

int32_t VLK_elapse(void)
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int32_t>(now.tv_sec);
}
