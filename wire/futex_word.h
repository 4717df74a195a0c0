// Waiting on a word of this process, and the clock of every deadline. Any thread.
#ifndef VLK_FUTEX_WORD_H
#define VLK_FUTEX_WORD_H

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <ctime>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

inline constexpr int64_t NO_DEADLINE = -1;

/// Nanoseconds of the monotonic clock, the clock of every deadline.
inline int64_t monotonic_ns()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

/// Milliseconds of the same clock.
inline int64_t monotonic_ms()
{
    return monotonic_ns() / 1'000'000;
}

/// The deadline wait_ms milliseconds from now; NO_DEADLINE when wait_ms is negative.
inline int64_t deadline_after(int32_t wait_ms)
{
    return wait_ms < 0 ? NO_DEADLINE : monotonic_ns() + int64_t{wait_ms} * 1'000'000;
}

/// What poll and epoll_wait take: milliseconds to the deadline, rounded up, 0 when it has passed, -1 for none.
inline int poll_time(int64_t deadline)
{
    if (deadline == NO_DEADLINE)
        return -1;
    const int64_t left = (deadline - monotonic_ns() + 999'999) / 1'000'000;
    return static_cast<int>(left < 0 ? 0 : left > INT_MAX ? INT_MAX : left);
}

/// Sleeps while the word holds `expected`, until it is woken or the deadline passes. May return early: look at the
/// word again. False when the deadline has passed.
inline bool futex_wait(const std::atomic<uint32_t> &word, uint32_t expected, int64_t deadline)
{
    struct {
        long seconds; // as the system call wants them, whatever the width of time_t
        long nanoseconds;
    } const until{static_cast<long>(deadline / 1'000'000'000), static_cast<long>(deadline % 1'000'000'000)};

    const long result = syscall(SYS_futex, &word, FUTEX_WAIT_BITSET_PRIVATE, expected,
                                deadline == NO_DEADLINE ? nullptr : &until, nullptr, FUTEX_BITSET_MATCH_ANY);
    return result == 0 || errno != ETIMEDOUT;
}

/// Wakes all threads that wait on the word.
inline void futex_wake(const std::atomic<uint32_t> &word)
{
    syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

#endif
