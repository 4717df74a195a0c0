// What has happened since the start, for status and metrics. Counting is an atomic addition; a report's prefix also
// costs a search through a short table. Any thread.
#ifndef VLK_HOST_COUNTERS_H
#define VLK_HOST_COUNTERS_H

#include <atomic>
#include <cstdint>
#include <string_view>

#include "host_status.h"

struct host_counters {
    std::atomic<uint32_t> withdrawn{0};     ///< requests whose client hung up before its answer
    std::atomic<uint32_t> modem_losses{0};  ///< the modem was ready, and then was not
    std::atomic<uint32_t> restorations{0};  ///< its settings were made again
    std::atomic<uint32_t> messages_lost{0}; ///< events and bus messages that a listener did not take in time
    std::atomic<uint32_t> text_lost{0};     ///< pieces of the modem's text that nobody took
    std::atomic<uint32_t> unknown_lines{0}; ///< unsolicited lines that are no report that the daemon knows
    std::atomic<uint32_t> clients_refused{0};
    std::atomic<uint32_t> requests_refused{0}; ///< those that must not reach the modem
};

inline constinit host_counters counters;

/// A command that has ended. Of its text only the name (at_command_name), empty when there is no command.
struct ended_command {
    const char *name;
    int32_t result;  ///< ret_val
    int64_t took_ms; ///< from its turn to its end
    int32_t pid;     ///< who asked
    const char *who; ///< its program
};

/// Counts a command. One that was not written, not answered or refused is logged, too.
void count_command(const ended_command &command);

/// Counts, in text of the modem that is no answer, the lines that begin with a prefix such as "+CREG:", and those of
/// them that are no report that the daemon knows.
void count_reports(std::string_view text);

/// Adds all counters as lines of the status; prefixes come last, as many as there is room for.
void counters_status(status_text &text);

#endif
