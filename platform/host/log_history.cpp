#include "log_history.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace
{
constexpr uint32_t KIND_LINES = 5; ///< of one kind in a window

uint64_t hash_of(std::string_view text, std::string_view without = "")
{
    uint64_t hash = 0xcbf29ce484222325U;
    for (const char c : text)
        if (without.find(c) == without.npos)
            hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
    return hash | 1;
}
} // namespace

/// Finds the kind with this likeness; a new one replaces the one that has been quiet for the longest time.
log_history::kind &log_history::find(int64_t now_ms, uint64_t likeness)
{
    const auto known = std::ranges::find(kinds, likeness, &kind::likeness);
    if (known != kinds.end() && (known->counted > 0 || now_ms - known->since_ms < LOG_WINDOW_MS))
        return *known;
    const auto room = known != kinds.end() ? known : std::ranges::min_element(kinds, {}, &kind::last_ms);
    if (room->counted > 0) {
        evicted = {room->priority, room->counted, now_ms - room->since_ms, ""};
        snprintf(evicted->text, sizeof evicted->text, "%s", room->text);
    }
    if (last_written == &*room)
        last_written = nullptr;
    *room = {};
    room->likeness = likeness;
    room->since_ms = now_ms;
    return *room;
}

bool log_history::wants(int64_t now_ms, int priority, const char *text)
{
    kind &like = find(now_ms, hash_of(text, "0123456789"));
    const uint64_t hash = hash_of(text);
    const bool again = last_written == &like && like.last_text == hash;
    like.priority = priority;
    like.last_ms = now_ms;
    if (again || like.written == KIND_LINES) {
        ++like.counted;
        snprintf(like.text, sizeof like.text, "%s", text);
        return false;
    }
    ++like.written;
    like.last_text = hash;
    last_written = &like;
    return true;
}

std::optional<log_summary> log_history::take_summary(int64_t now_ms)
{
    if (evicted) {
        const std::optional<log_summary> summary = evicted;
        evicted.reset();
        return summary;
    }
    for (kind &like : kinds) {
        if (like.counted == 0 || (now_ms != ALL && now_ms - like.since_ms < LOG_WINDOW_MS))
            continue;
        const int64_t end = now_ms == ALL ? like.last_ms : now_ms;
        log_summary summary{like.priority, like.counted, end - like.since_ms, ""};
        snprintf(summary.text, sizeof summary.text, "%s", like.text);
        like.counted = 0; // `written` is kept: the lines of this window still count
        like.since_ms = end;
        return summary;
    }
    return {};
}

int64_t log_history::due() const
{
    int64_t first = -1;
    for (const kind &like : kinds)
        if (like.counted > 0 && (first < 0 || like.since_ms + LOG_WINDOW_MS < first))
            first = like.since_ms + LOG_WINDOW_MS;
    return first;
}
