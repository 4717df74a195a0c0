#include "host_status.h"

#include <cstdarg>
#include <cstdio>

#include <unistd.h>

#include "commands.h"
#include "futex_word.h"
#include "host_counters.h"
#include "host_start.h"
#include "hub.h"
#include "modem_state.h"

void status_text::add(const char *format, ...)
{
    char line[400];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    if (length < 0 || static_cast<size_t>(length) >= sizeof line ||
        used + static_cast<size_t>(length) + 1 > room.size())
        return;
    for (int i = 0; i < length; ++i)
        room[used++] = line[i] >= ' ' && line[i] != 0x7F ? line[i] : '?';
    room[used++] = '\n';
}

static long long seconds_since(int64_t ms)
{
    return (monotonic_ms() - ms) / 1000;
}

std::size_t host_status(std::span<char> buffer)
{
    constexpr const char *STATES[] = {"absent", "silent", "ready", "released"};
    status_text text(buffer);
    const modem_report modem = modem_state_get();
    text.add("daemon.version %s", VLK_VERSION);
    text.add("daemon.pid %d", static_cast<int>(getpid()));
    text.add("daemon.device %s", host_settings().device);
    text.add("daemon.for_s %lld", seconds_since(host_started_ms()));
    text.add("modem.state %s", STATES[modem.state]);
    text.add("modem.for_s %lld", seconds_since(modem.since_ms));
    if (modem.reason[0] != '\0')
        text.add("modem.reason %s", modem.reason);
    if (modem.owes[0] != '\0') {
        text.add("modem.owes %s", modem.owes);
        text.add("modem.owes_for_s %lld", seconds_since(modem.owes_since_ms));
    }
    text.add("listeners %d", hub_listener_count());
    commands_status(text);
    counters_status(text);
    return text.size();
}
