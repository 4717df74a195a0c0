// The lock files by which programs that use serial devices keep out of each other's way: /var/lock/LCK..ttyUSB2 holds
// the number of the process that has the device. The reader's thread.
#ifndef VLK_UUCP_LOCK_H
#define VLK_UUCP_LOCK_H

#include <cstddef>
#include <span>

#include <sys/types.h>

inline constexpr char UUCP_LOCK_FOLDER[] = "/var/lock";

struct uucp_lock {
    char path[288] = ""; ///< empty: none is held
};

/// Locks a device in a folder of lock files. 0, or the process that holds it: positive, alive, another one (INT_MAX
/// while its number is still being written). A lock that nobody holds any more is replaced. A folder that is missing
/// or may not be written to locks nothing: 0.
pid_t uucp_lock_take(uucp_lock &lock, const char *folder, const char *device);

/// Removes the file if it is still ours; a lock that holds nothing is accepted.
void uucp_lock_release(uucp_lock &lock);

/// The process as people know it: "process 812 (minicom)".
void describe_process(pid_t pid, std::span<char> text);

/// A process other than this one that has the device open, or 0 when none is seen: those of other users are only seen
/// by root. Walks through /proc.
pid_t find_device_holder(dev_t device);

#endif
