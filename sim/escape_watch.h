// Recognises "+++" between two silences: the way from data back to commands.
#pragma once

#include <chrono>
#include <optional>

namespace modemsim
{

class escape_watch
{
public:
    using milliseconds = std::chrono::milliseconds;

    /// Data begin to flow.
    void start(milliseconds now)
    {
        count_ = 0;
        latest_ = now;
    }

    /// Takes one byte of the client. `guard` is the silence that must stand before and behind the three '+'.
    void take(char c, milliseconds now, milliseconds guard)
    {
        const bool silent_before = now - latest_ >= guard;
        const bool goes_on = count_ > 0 && count_ < 3 && (guard.count() == 0 || !silent_before);
        count_ = c != '+' ? 0 : goes_on ? count_ + 1 : silent_before && count_ < 3 ? 1 : 0;
        latest_ = now;
    }

    /// When the escape is complete, unless more bytes come before; nothing without three '+'.
    std::optional<milliseconds> due(milliseconds guard) const
    {
        return count_ == 3 ? std::optional(latest_ + guard) : std::nullopt;
    }

private:
    int count_ = 0;
    milliseconds latest_{0};
};

} // namespace modemsim
