// Where a daemon is found, and a connection to one of its sockets.
#ifndef VLK_DAEMON_PLACE_H
#define VLK_DAEMON_PLACE_H

#include "host_config.h"
#include "host_wire.h"
#include "vlk_client.h"

/// The runtime folder that place (may be none) or the environment names. A vlk_result.
int find_folder(const vlk_place *place, host_paths *paths);

/// Connects to the socket of that name; *fd is the caller's then. A daemon that does not accept is waited for, some
/// seconds at most. A vlk_result.
int connect_to_daemon(const host_paths &paths, const char *name, int *fd);

/// What errno of a call on a socket of the daemon means for the user. A vlk_result, never VLK_OK.
int explain_failure(const host_paths &paths, const char *name, int error);

/// VLK_NOT_RUNNING with its text: the connection has ended.
int daemon_has_gone(const host_paths &paths);

#endif
