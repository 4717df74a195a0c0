// Which request the main thread serves now. The socket `commands` sets it, the AT proxy reads it. Any thread.
#ifndef VLK_SERVED_REQUEST_H
#define VLK_SERVED_REQUEST_H

#include <atomic>
#include <cstdint>

/// Counts the requests that were taken from clients; 0 while none is served (the daemon's own commands).
inline std::atomic<uint32_t> host_served_request{0};

/// Milliseconds that this request gives the modem; 0 when that is not known. Set before host_served_request.
inline std::atomic<int32_t> host_served_limit_ms{0};

/// The client whose request it is, and the client's own numbers for it. Main thread only.
struct served_asker {
    int32_t process = -1; ///< -1 while none is served
    int32_t id = 0;
    uint32_t seq = 0;
};
inline served_asker host_served_asker;

#endif
