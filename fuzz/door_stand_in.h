// The door's functions in place of the host layer's: there is no door, and the fuzzer calls what the door would call.
#ifndef FUZZ_DOOR_STAND_IN_H
#define FUZZ_DOOR_STAND_IN_H

#include "host/door.h"
#include "host_start.h"

extern host_config host_settings_as_read;

static int opened_slot = -1; ///< of the latest connection
int door_open(const door_service &)
{
    return 0;
}
int door_watch(const door_service &, int, int slot)
{
    opened_slot = slot;
    return 0;
}

#endif
