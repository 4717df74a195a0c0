// Waiting on a word: of the event page, for any process that maps it, or of this process alone. Any thread.
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

/// The deadline that many milliseconds from now; a negative number of them is no limit.
inline int64_t deadline_after(int32_t wait_ms)
{
    return wait_ms < 0 ? NO_DEADLINE : monotonic_ns() + int64_t{wait_ms} * 1'000'000;
}

/// Who is meant on a word: sleepers and wake-ups with a bit in common.
inline constexpr uint32_t FUTEX_EVERYBODY = FUTEX_BITSET_MATCH_ANY;

/// Whose word it is. One that no other process maps is found faster; sleepers and wake-ups must agree.
enum class futex_scope : int {
    EVERY_PROCESS = 0,
    THIS_PROCESS = FUTEX_PRIVATE_FLAG
};

/// Sleeps while the word holds `expected`, until it is woken or the deadline passes. May return early: look at the
/// word again. False when the deadline has passed.
inline bool futex_wait(const std::atomic<uint32_t> &word, uint32_t expected, int64_t deadline,
                       uint32_t who = FUTEX_EVERYBODY, futex_scope scope = futex_scope::EVERY_PROCESS)
{
    struct {
        long seconds; // as the system call wants them, whatever the width of time_t
        long nanoseconds;
    } const until{static_cast<long>(deadline / 1'000'000'000), static_cast<long>(deadline % 1'000'000'000)};

    const long result = syscall(SYS_futex, &word, FUTEX_WAIT_BITSET | static_cast<int>(scope), expected,
                                deadline == NO_DEADLINE ? nullptr : &until, nullptr, who);
    return result == 0 || errno != ETIMEDOUT;
}

/// Wakes all of them who wait on the word. All, because a process that has no business there may wait too.
inline void futex_wake(const std::atomic<uint32_t> &word, uint32_t who = FUTEX_EVERYBODY,
                       futex_scope scope = futex_scope::EVERY_PROCESS)
{
    syscall(SYS_futex, &word, FUTEX_WAKE_BITSET | static_cast<int>(scope), INT_MAX, nullptr, nullptr, who);
}

/// Wakes the one who has waited longest. False when nobody waits.
inline bool futex_wake_one(const std::atomic<uint32_t> &word)
{
    return syscall(SYS_futex, &word, FUTEX_WAKE, 1, nullptr, nullptr, 0) > 0;
}

/// Counts one more on the word and wakes all of them who wait on it.
inline void futex_count(std::atomic<uint32_t> &word, uint32_t who = FUTEX_EVERYBODY)
{
    word.fetch_add(1);
    futex_wake(word, who);
}

#endif
