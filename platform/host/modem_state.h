// What the daemon knows of its modem: the proxy sets it, the status and the service manager get it. Any thread.
#ifndef VLK_MODEM_STATE_H
#define VLK_MODEM_STATE_H

#include <cstdint>

enum host_modem_state : uint32_t {
    HOST_MODEM_ABSENT = 0,   ///< the device cannot be opened
    HOST_MODEM_SILENT = 1,   ///< open, but nothing has answered yet, or the modem has stopped answering
    HOST_MODEM_READY = 2,    ///< the modem answers
    HOST_MODEM_RELEASED = 3, ///< the daemon has let go of the modem
};

struct modem_report {
    host_modem_state state = HOST_MODEM_ABSENT;
    int64_t since_ms = 0;  ///< monotonic, when it came into this state
    char reason[256] = ""; ///< cause and cure while it is not ready, else empty
    char owes[64] = "";    ///< what the modem has not answered yet, else empty
    int64_t owes_since_ms = 0;
};

/// Sets the state and its reason; the same state again keeps since_ms.
void modem_state_set(host_modem_state state, const char *reason);

/// Sets what the modem still owes, an empty text for nothing.
void modem_debt_set(const char *owes);

modem_report modem_state_get();

#endif
