// The platform in process, for tests, fuzzers and benchmarks of the core: everything that platform/*.h declares but the
// bounded copies, the text helpers and the report parser, which are the real ones. Time is virtual: waits and sleeps
// step the clock and return at once. One fake a process; its functions may be called from any thread, the lists that
// it hands out are read once the other threads are done.
#ifndef FAKE_PLATFORM_H
#define FAKE_PLATFORM_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform.h"

namespace fake
{

inline constexpr int32_t TASK_ID = 4711; ///< what VLK_task_getid returns
inline constexpr int ALWAYS = -1;
inline constexpr char ANY_CALL[] = "*";

/// One trace, formatted.
struct trace_line {
    std::string file;
    std::string module;
    int level;
    std::string text;
};

/// One call that changes or leaves the process: "VLK_post_notify(9, 9040, 1, 0)", and the bytes of its payload.
/// Entries of the maintenance log are calls: "mlog_print(vorlink, 2, text)".
struct platform_call {
    std::string what;
    std::string data;
};

/// One piece of modem text, and how many seconds after its cause it arrives.
struct delivery {
    int32_t seconds;
    std::string bytes;
};

/// What the daemon did since reset() or forget(); each list in order.
struct record {
    std::vector<trace_line> traces;
    std::vector<platform_call> calls;
    std::vector<std::string> written; ///< accepted by the modem
    std::vector<int32_t> waits;       ///< milliseconds that VLK_msgQ_recv was told to wait
    uint32_t events = 0;              ///< raised and not yet received
    std::string failed;               ///< the name of the latest call that was made to fail
    vlk_thread_proc thread_proc = nullptr;
    qep_sync_proc sync_proc = nullptr;
};

/// A platform as at boot: no queues, no registration (the send function that the daemon holds is taken back), an
/// empty folder in place of /var, nothing recorded, nothing failing, the clock at 1000 seconds.
void reset();

/// Empties what was recorded; all else stays.
void forget();

/// Records nothing until the next reset(): for runs without end.
void stop_recording();

const record &seen();
std::vector<std::string> calls(); ///< seen().calls without the payloads

/// Makes a call fail `times` times, after it has succeeded `after` times. The name is that of the call, with or without
/// its arguments when it is recorded, "k7_send" for the modem's send function, or ANY_CALL.
void fail(const std::string &call, int times = ALWAYS, int after = 0);

int64_t now_ms();

/// Scripts the modem: each write of exactly this text is answered with these deliveries, or runs the action; the
/// latest script of a text counts.
void on_write(const std::string &text, std::vector<delivery> answer);
void on_write(const std::string &text, std::function<void()> action);

/// Hands modem text to the registered data callback at once; its result, or -1 when there is none.
int deliver(std::string_view bytes);

/// Hands it over when a wait has stepped the clock far enough.
void deliver_later(int32_t seconds, std::string bytes);

/// Records that wait in the queue with this key, oldest first, and a way to put one in past all checks; a client's
/// request raises its event.
std::vector<std::string> queued(uint32_t key);
void put(uint32_t key, std::string record);

/// Heap blocks that the daemon and the report parser took since reset() and nobody freed yet.
int blocks();

/// Where a path under /var really is; the folder is removed by the next reset() and at the end of the process.
std::string path(const std::string &original);

/// Packets that QEP_UTIL_SockBaseStart hands to the registered handler before it returns.
void send_on_bus(std::vector<qep_msg> packets);

} // namespace fake

#endif
