// What the operator's log has said lately, so that repetitions are counted and not written. No clock and no I/O of its
// own. The caller's lock guards it.
#ifndef VLK_LOG_HISTORY_H
#define VLK_LOG_HISTORY_H

#include <array>
#include <cstdint>
#include <optional>

inline constexpr int64_t LOG_WINDOW_MS = 600'000; ///< in which repetitions are counted

/// Repetitions that are to be logged.
struct log_summary {
    int priority;
    uint32_t count;  ///< lines like this one that were not written
    int64_t span_ms; ///< the time in which they came
    char text[160];  ///< of the last of them, maybe cut
};

class log_history
{
public:
    /// Whether this line is to be written. It is not when it repeats the last written line, or when its kind (lines
    /// that differ only in numbers) has had five lines in this window.
    bool wants(int64_t now_ms, int priority, const char *text);

    static constexpr int64_t ALL = -1; ///< a time at which every summary is due

    /// The next summary that is due at this time. Ask until there is none.
    std::optional<log_summary> take_summary(int64_t now_ms);

    /// When the next summary is due, -1 for never.
    int64_t due() const;

private:
    struct kind {
        uint64_t likeness = 0; ///< hash of the text without its digits; 0: not in use
        int priority = 0;
        uint32_t written = 0; ///< in this window
        uint32_t counted = 0; ///< not written in this window
        int64_t since_ms = 0;
        int64_t last_ms = -1;   ///< before every time: a free place is taken first
        uint64_t last_text = 0; ///< its hash
        char text[160] = "";
    };
    kind &find(int64_t now_ms, uint64_t likeness);

    std::array<kind, 24> kinds{};
    std::optional<log_summary> evicted; ///< of a kind that had to make room
    const kind *last_written = nullptr;
};

#endif
