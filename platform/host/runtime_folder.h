// The runtime folder: one daemon's own place, with its lock and its sockets. Everything in it is made and looked at
// through descriptors, so that nobody can exchange it in between.
#ifndef VLK_RUNTIME_FOLDER_H
#define VLK_RUNTIME_FOLDER_H

#include <span>

#include "host_config.h"

/// Makes the folder of the settings, or checks the one that is there, and takes its lock. The process ends with cause
/// and cure when that fails or another daemon holds it. Main thread, during start-up.
void runtime_folder_claim();

/// A listening SOCK_SEQPACKET socket with this name, for the group's members; a socket that an earlier daemon left is
/// replaced. Its descriptor, or -1 and a message with cause and cure. One thread at a time.
int runtime_folder_listen(const char *name, std::span<char> message);

/// Takes the lock again when somebody removed its file. The process ends when another daemon was faster, or when the
/// folder itself was removed or renamed: nobody could reach the daemon any more.
void runtime_folder_keep();

/// True while the name leads to what this process has made.
bool runtime_folder_has(const char *name);

/// A descriptor that becomes readable when something in the folder is removed or renamed, or the folder itself is;
/// -1 when the folder is not claimed or the system has none to give. Read it empty before looking.
int runtime_folder_watch();

#endif
