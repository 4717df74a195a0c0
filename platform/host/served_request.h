// Which request the main thread serves now. The commands socket says it, the AT proxy reads it. Any thread.
#ifndef VLK_SERVED_REQUEST_H
#define VLK_SERVED_REQUEST_H

#include <atomic>
#include <cstdint>

/// Counts the requests that were taken from clients; 0 while none is served (the daemon's own commands).
inline std::atomic<uint32_t> host_served_request{0};

/// Milliseconds that this request gives the modem; 0 when nobody has said. Set before host_served_request.
inline std::atomic<int32_t> host_served_limit_ms{0};

#endif
