// Configuration of the host layer: the VLK_* variables of the environment. Has no state and needs no daemon: the
// client library uses it too. Main thread, during start-up.
#ifndef VLK_HOST_CONFIG_H
#define VLK_HOST_CONFIG_H

#include <cstddef>
#include <cstdint>

#include <sys/types.h>
#include <syslog.h>

#include "at_line_settings.h"

inline constexpr size_t HOST_FOLDER_SIZE =
    97; ///< bytes: with a name behind it the path still fits a socket address
inline constexpr size_t HOST_PATH_SIZE = 256;  ///< bytes of any other path
inline constexpr size_t HOST_ERROR_SIZE = 512; ///< bytes, enough for every message of this module

/// Where a daemon is found: what daemon and clients must agree on.
struct host_paths {
    char folder[HOST_FOLDER_SIZE]; ///< absolute, without a slash at its end
};

/// Owner of everything that clients may use. An id of -1 keeps the creator's.
struct host_owner {
    uid_t user = static_cast<uid_t>(-1);
    gid_t group = static_cast<gid_t>(-1);
};

struct host_config {
    host_paths paths{""};
    char device[HOST_PATH_SIZE]{}; ///< VLK_AT_DEVICE, or empty
    int32_t timeout_max = 600;     ///< VLK_TIMEOUT_MAX, seconds
    at_line_settings line{};       ///< VLK_AT_SPEED, VLK_AT_FLOW
    int log_level = LOG_INFO;      ///< lines of this priority and above are logged
    int trace_level = 0;           ///< traces of this level and below are printed
    char user[64]{};               ///< VLK_USER, or empty
    uid_t user_id = 0;             ///< of `user`
    gid_t user_group = 0;          ///< its primary group
    host_owner owner;
};

/// Reads VLK_RUNTIME_DIR. 0, or -1 and a one-line message (cause and cure) in error.
int host_read_paths(host_paths *paths, char *error, size_t error_size);

/// Reads all variables. An unset VLK_AT_DEVICE is no error here. Results as above.
int host_read_config(host_config *config, char *error, size_t error_size);

/// Writes "folder/name" to path. 0, or -1 when it does not fit.
int host_path(const host_paths *paths, const char *name, char *path, size_t path_size);

#endif
