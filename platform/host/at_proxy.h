// The AT proxy's side towards the rest of the host layer (k7_at_proxy.h is the one towards the daemon).
#ifndef VLK_AT_PROXY_H
#define VLK_AT_PROXY_H

#include <cstdint>

/// Who asked for this request (host_served_request when its line was written) has hung up: the daemon's wait for the
/// answer ends at once. Nothing happens when that command has ended already. Any thread, never blocks.
void at_proxy_asker_gone(uint32_t request);

#endif
