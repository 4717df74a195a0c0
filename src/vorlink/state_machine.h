// The main loop: waits for the modem, then alternates between waiting for events and serving what they announce.
// Main thread only.
#ifndef STATE_MACHINE_H
#define STATE_MACHINE_H

#include <cstdint>

enum at_state : int32_t {
    AT_INIT_S = 0,           ///< wait for the modem link, prepare the modem, announce readiness
    AT_IDLE_S = 1,           ///< take the next pending event, or wait for events
    AT_PROCESS_CLIENT_S = 2, ///< serve every queued client request
    AT_PROCESS_NAS_S = 3     ///< process the queued modem data
};

/// One pass of the loop. noBus: the service is not on the message bus. Returns the next state.
at_state vlk_state_machine_pass(at_state state, bool noBus);

/// Runs passes from AT_INIT_S for the life of the process.
[[noreturn]] void vlk_state_machine(bool noBus);

/// Makes the modem report errors by number (AT+CMEE=1). Returns 0 when it answered OK, -1 otherwise.
int vlk_cmee(int *retcode);

/// Tells "cms" that the data card is present.
void vlk_notify_qep_datacard_inserted();

#endif
