// The AT proxy's side towards the rest of the host layer (k7_at_proxy.h is the one towards the daemon).
#ifndef VLK_AT_PROXY_H
#define VLK_AT_PROXY_H

#include <cstdint>

/// The client of this request (host_served_request when its line was written) has hung up: the daemon's wait for the
/// answer ends at once. Nothing happens when the command has ended already. Any thread, never blocks.
void at_proxy_asker_gone(uint32_t request);

// The thread that runs commands reads the modem itself, so that no other thread stands between the two: from its first
// wait for an answer on, in that wait and in the main thread's event wait, until it has to leave that to the proxy's own
// thread.

/// Waits for the answer until the modem has said something or the deadline (nanoseconds of the monotonic clock) has
/// passed, delivers what came and returns true; it may return early. Returns false when it cannot read, or must stop
/// reading: then wait for what the proxy's own thread delivers. Always false on any other thread.
bool at_proxy_read_here(int64_t deadline);

/// Delivers what the modem says, when the main thread's event wait was told to look for it (main_wait_add_modem).
void at_proxy_input();

/// To be called before that wait sleeps: what is due at a time is left to the proxy's own thread.
void at_proxy_before_sleep();

/// The proxy's own thread reads from here on. To be called by the thread that runs commands before it waits for anything
/// else.
void at_proxy_read_there();

#endif
