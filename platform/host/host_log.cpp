#include "host_log.h"

#include <atomic>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "futex_word.h"
#include "host_start.h"
#include "log_history.h"
#include "log_sink.h"
#include "log_text.h"
#include "service_notify.h"

namespace
{
std::mutex log_mutex; // of the history
constinit log_history history;
std::atomic<int64_t> summary_due{-1};

struct ending {
    int signal;
    const char *text;
};

constexpr ending endings[] = {{SIGTERM, "ended by SIGTERM"},
                              {SIGINT, "ended by SIGINT (Ctrl-C)"},
                              {SIGHUP, "ended by SIGHUP: its terminal was closed"}};

/// Under the mutex.
void write_summary(const log_summary &summary, void (*write)(int, const char *))
{
    char text[LOG_TEXT_SIZE];
    const int64_t seconds = summary.span_ms / 1000;
    const bool is_long = seconds >= 120;
    snprintf(text, sizeof text, "%u more like this in %lld %s: %s", summary.count,
             static_cast<long long>(is_long ? seconds / 60 : seconds), is_long ? "min" : "s", summary.text);
    write(summary.priority, text);
}

void write_line(int priority, const char *text)
{
    log_sink_line(log_kind::OPERATOR, priority, text);
}

/// Under the mutex.
void write_summaries(int64_t now)
{
    while (const std::optional<log_summary> summary = history.take_summary(now))
        write_summary(*summary, write_line);
    summary_due = history.due();
}

/// Writes what was counted but not written yet, unless a line is being written right now.
void write_last_summaries()
{
    const std::unique_lock lock(log_mutex, std::try_to_lock);
    if (!lock.owns_lock())
        return;
    while (const std::optional<log_summary> summary = history.take_summary(log_history::ALL))
        write_summary(*summary, log_sink_line_in_handler);
}

/// Logs that the process ends, then lets the signal do what it does by default.
void end_by_signal(int number)
{
    service_stopping();
    write_last_summaries();
    for (const ending &one : endings)
        if (one.signal == number && host_settings().log_level >= LOG_INFO)
            log_sink_line_in_handler(LOG_INFO, one.text);
    signal(number, SIG_DFL);
    raise(number);
}
} // namespace

void host_log(int priority, const char *format, ...)
{
    if (priority > host_settings().log_level)
        return;
    char text[LOG_TEXT_SIZE];
    va_list arguments;
    va_start(arguments, format);
    log_format(text, format, arguments);
    va_end(arguments);

    const std::scoped_lock lock(log_mutex);
    const int64_t now = monotonic_ms();
    const bool wanted = history.wants(now, priority, text);
    write_summaries(now);
    if (wanted)
        write_line(priority, text);
}

void host_log_start()
{
    const host_config &settings = host_settings();
    host_log(LOG_INFO, "vorlink " VLK_VERSION " started: modem %s, folder %s, trace level %d",
             settings.device, settings.paths.folder, settings.trace_level);
    for (const ending &one : endings) {
        struct sigaction action = {};
        sigaction(one.signal, nullptr, &action);
        if (action.sa_handler != SIG_DFL)
            continue; // the program that started us wants it ignored
        action.sa_handler = end_by_signal;
        sigaction(one.signal, &action, nullptr);
    }
}

int64_t host_log_due()
{
    return summary_due.load(std::memory_order_relaxed);
}

void host_log_tick()
{
    const std::scoped_lock lock(log_mutex);
    write_summaries(monotonic_ms());
}
