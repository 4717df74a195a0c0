#include "ctl_clock.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace
{
struct now {
    tm parts = {};
    int milliseconds = 0;

    now()
    {
        timespec clock = {};
        clock_gettime(CLOCK_REALTIME, &clock);
        localtime_r(&clock.tv_sec, &parts);
        milliseconds = static_cast<int>(clock.tv_nsec / 1'000'000 % 1000);
    }

    std::string time() const
    {
        std::array<char, 32> text{};
        std::array<char, 64> whole{};
        strftime(text.data(), text.size(), "%H:%M:%S", &parts);
        std::snprintf(whole.data(), whole.size(), "%s.%03d", text.data(), milliseconds);
        return whole.data();
    }
};
} // namespace

std::string time_text()
{
    return now().time();
}

std::string time_json()
{
    const now moment;
    std::array<char, 32> date{};
    std::array<char, 16> zone{};
    strftime(date.data(), date.size(), "%Y-%m-%dT", &moment.parts);
    strftime(zone.data(), zone.size(), "%z", &moment.parts);
    return date.data() + moment.time() + zone.data();
}
