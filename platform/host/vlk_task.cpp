#include "vlk_task.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>

#include <pthread.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sysexits.h>
#include <unistd.h>

#include "at_proxy.h"
#include "futex_word.h"
#include "host_start.h"
#include "main_wait.h"
#include "service_notify.h"

// One task has an event set, the one that made it: the main thread.
static std::atomic<int32_t> event_task{-1};
static std::atomic<uint32_t> event_mask{0};
static std::atomic<uint32_t> event_bits{0};
static std::atomic<bool> owner_may_sleep{false};

static int wait_fd = -1; // an epoll set: wake_fd and what main_wait_add was given
static int wake_fd = -1;
static main_wait_proc descriptor_proc = nullptr;
static uint32_t last_bits = 0;
static uint32_t waits = 0;

constexpr uint32_t WAKE_TAG = UINT32_MAX;
constexpr uint32_t MODEM_TAG = WAKE_TAG - 1;
constexpr int64_t LONG_YIELD_NS = 100'000;
constexpr int64_t YIELD_PAUSE = 64; // how many times a long yield's duration passes until the next yield

/// Yields once before sleeping: a client that has just got its reply may only need the processor to send its next
/// request, and then neither a sleep nor a wake-up is needed. Not for a while after a long yield: others have work of
/// their own then, and a thread that yields waits for their whole turn, while a sleeper is woken in the middle of it.
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

/// Waits for descriptors and handles what came.
static void wait_for_descriptors(int wait_ms)
{
    if (wait_ms != 0)
        at_proxy_before_sleep();
    std::array<epoll_event, 64> came;
    const int count = epoll_wait(wait_fd, came.data(), came.size(), wait_ms);
    owner_may_sleep = false; // bits that are raised here wake nobody
    for (int i = 0; i < count; ++i) {
        const epoll_event &event = came[static_cast<size_t>(i)];
        if (event.data.u32 == MODEM_TAG)
            at_proxy_input();
        else if (event.data.u32 != WAKE_TAG && descriptor_proc != nullptr)
            descriptor_proc(event.data.u32, event.events);
    }
}

static int control(int operation, int fd, uint32_t events, uint32_t tag)
{
    epoll_event wanted{};
    wanted.events = events;
    wanted.data.u32 = tag;
    return epoll_ctl(wait_fd, operation, fd, &wanted);
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
    if (wait_fd < 0) {
        wait_fd = epoll_create1(EPOLL_CLOEXEC);
        wake_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (wait_fd < 0 || wake_fd < 0 || control(EPOLL_CTL_ADD, wake_fd, EPOLLIN | EPOLLET, WAKE_TAG) != 0)
            host_fail(EX_OSERR, "cannot make the event wait: %s: raise the limit of open files (ulimit -n)",
                      strerror(errno));
    }
    event_bits.fetch_and(~mask);
    event_mask = mask;
    event_task = VLK_task_getid();
    return 0;
}

int VLK_event_send(int32_t task, uint32_t events)
{
    if (task != event_task || events == 0 || (events & ~event_mask) != 0)
        return -1;
    main_wait_raise(events);
    return 0;
}

int VLK_event_recv(uint32_t mask, int32_t wait_ms, uint32_t *events)
{
    if (events == nullptr || (mask & event_mask) == 0)
        return 0;
    const int64_t deadline = deadline_after(wait_ms);
    if (wait_ms != 0 && (event_bits & mask) == 0)
        yield_before_sleep();
    for (;;) {
        service_alive();
        const uint32_t raised = event_bits.fetch_and(~mask) & mask;
        if (raised != 0) {
            *events = last_bits = raised;
            ++waits;
            return 1;
        }
        const int64_t until = service_due(deadline);
        const int left_ms = poll_time(until);
        owner_may_sleep = true; // a bit that was raised before this line is seen now
        const bool nothing_yet = (event_bits & mask) == 0;
        if (nothing_yet)
            wait_for_descriptors(left_ms);
        owner_may_sleep = false;
        if (nothing_yet && left_ms == 0 && until == deadline && (event_bits & mask) == 0)
            return 0;
    }
}

void main_wait_set_proc(main_wait_proc proc)
{
    descriptor_proc = proc;
}

int main_wait_add(int fd, uint32_t events, uint32_t tag)
{
    return control(EPOLL_CTL_ADD, fd, events | EPOLLET, tag);
}

int main_wait_change(int fd, uint32_t events, uint32_t tag)
{
    return control(EPOLL_CTL_MOD, fd, events | EPOLLET, tag);
}

int main_wait_add_modem(int fd)
{
    return control(EPOLL_CTL_ADD, fd, EPOLLIN, MODEM_TAG);
}

void main_wait_remove_modem(int fd)
{
    control(EPOLL_CTL_DEL, fd, 0, MODEM_TAG);
}

void main_wait_look()
{
    wait_for_descriptors(0);
}

void main_wait_raise(uint32_t events)
{
    event_bits.fetch_or(events);
    if (owner_may_sleep.exchange(false))
        eventfd_write(wake_fd, 1); // its edge wakes, nobody needs to read it
}

uint32_t main_wait_bits()
{
    return last_bits | event_bits;
}

uint32_t main_wait_count()
{
    return waits;
}

void VLK_sleep(uint32_t milliseconds)
{
    at_proxy_read_there();
    const int64_t deadline = monotonic_ns() + int64_t{milliseconds} * 1'000'000;
    do {
        service_alive();
        const int64_t until = service_due(deadline);
        const timespec at{static_cast<time_t>(until / 1'000'000'000),
                          static_cast<long>(until % 1'000'000'000)};
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr); // a signal ends it early
    } while (monotonic_ns() < deadline);
}

int32_t VLK_elapse(void)
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int32_t>(now.tv_sec);
}
