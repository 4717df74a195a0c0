// Where daemons are.
#ifndef VLK_DAEMON_FOLDERS_H
#define VLK_DAEMON_FOLDERS_H

#include <string>
#include <vector>

struct daemon_folder {
    std::string modem; // the NAME of vlk-NAME; empty: the one without a name
    std::string path;
};

/// The runtime folders on this machine that the user can see: the one that VLK_RUNTIME_DIR names, the user's own, the
/// system's; each once.
std::vector<daemon_folder> daemon_folders();

/// The folder of the modem with this name; empty: there is none.
std::string folder_of_modem(const std::string &name);

#endif
