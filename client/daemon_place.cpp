#include "daemon_place.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <glob.h>
#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "last_error.h"

namespace
{
constexpr timeval SEND_LIMIT = {5, 0}; // for connecting and for every packet sent

int not_running(const host_paths &paths, const char *found)
{
    return fail(VLK_NOT_RUNNING,
                "no daemon is running in %s (%s): start vorlink, or name its folder, for example "
                "VLK_RUNTIME_DIR=/run/vlk",
                paths.folder, found);
}

std::string group_name(gid_t group)
{
    std::array<char, 16384> buffer;
    struct group entry = {};
    struct group *found = nullptr;
    if (getgrgid_r(group, &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr)
        return std::to_string(group);
    return found->gr_name;
}

/// Names the group that may use the file, or the folder when even that keeps the user out.
int denied(const host_paths &paths, const char *path)
{
    struct stat file = {};
    const char *barrier = path;
    if (stat(path, &file) != 0) {
        barrier = paths.folder;
        if (stat(barrier, &file) != 0)
            return fail(VLK_DENIED, "permission denied: %s: ask its owner for access", paths.folder);
    }
    const std::string group = group_name(file.st_gid);
    if (file.st_gid == 0)
        return fail(
            VLK_DENIED,
            "permission denied: %s belongs to group %s: run as root, or start the daemon with VLK_GROUP "
            "set to a group of yours",
            barrier, group.c_str());
    return fail(
        VLK_DENIED,
        "permission denied: %s belongs to group %s: add yourself to it (usermod -aG %s USER) and log in "
        "again",
        barrier, group.c_str(), group.c_str());
}

/// A connected socket, -1 with errno when there is none.
int connect_socket(const char *path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (std::strlen(path) >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::strcpy(address.sun_path, path);
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &SEND_LIMIT, sizeof SEND_LIMIT);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
        return fd;
    const int error = errno;
    close(fd);
    errno = error;
    return -1;
}

/// A daemon lives there, or we are not allowed to look. A folder that a dead daemon left does not count.
bool may_have_daemon(const std::string &folder)
{
    const int fd = connect_socket((folder + "/" + HOST_HUB_NAME).c_str());
    if (fd < 0)
        return errno == EACCES || errno == EPERM;
    close(fd);
    return true;
}

/// The folders of daemons when nobody says which: the user's own, root's, and those of the system's instances. When no
/// daemon lives, all folders that are there.
std::vector<std::string> folders_of_daemons()
{
    std::vector<std::string> folders;
    const auto add = [&folders](const std::string &folder) {
        struct stat state = {};
        if (stat(folder.c_str(), &state) == 0 && S_ISDIR(state.st_mode))
            folders.push_back(folder);
    };
    if (const char *const session = getenv("XDG_RUNTIME_DIR"))
        add(std::string(session) + "/vlk");
    add("/run/vlk");
    glob_t instances = {};
    if (glob("/run/vlk-*", 0, nullptr, &instances) == 0)
        for (size_t i = 0; i < instances.gl_pathc; ++i)
            add(instances.gl_pathv[i]);
    globfree(&instances);
    if (std::ranges::any_of(folders, may_have_daemon))
        std::erase_if(folders, [](const std::string &folder) { return !may_have_daemon(folder); });
    return folders;
}

/// Finds the folder of the one daemon there is. Without any it is the default, which errors then name as missing.
int find_only_folder(host_paths *paths)
{
    const std::vector<std::string> folders = folders_of_daemons();
    if (folders.empty()) {
        std::array<char, HOST_ERROR_SIZE> error;
        if (host_read_paths(paths, error.data(), error.size()) != 0)
            return fail(VLK_INVALID, "%s", error.data());
        return VLK_OK;
    }
    if (folders.size() > 1)
        return fail(VLK_INVALID,
                    "several daemons may be meant (%s, %s%s): choose with VLK_RUNTIME_DIR or --runtime-dir",
                    folders[0].c_str(), folders[1].c_str(), folders.size() > 2 ? ", ..." : "");
    if (folders[0].copy(paths->folder, sizeof paths->folder - 1) != folders[0].size())
        return fail(VLK_INVALID, "the runtime folder %s has too long a path", folders[0].c_str());
    return VLK_OK;
}
} // namespace

int find_folder(const vlk_place *place, host_paths *paths)
{
    *paths = host_paths{};
    const char *const chosen = getenv("VLK_RUNTIME_DIR");
    const bool is_chosen = chosen != nullptr && chosen[0] != '\0';
    if ((place == nullptr || place->runtime_dir == nullptr) && !is_chosen)
        return find_only_folder(paths);
    if (place == nullptr || place->runtime_dir == nullptr) {
        std::array<char, HOST_ERROR_SIZE> error;
        if (host_read_paths(paths, error.data(), error.size()) != 0)
            return fail(VLK_INVALID, "%s", error.data());
        return VLK_OK;
    }
    const size_t length = std::strlen(place->runtime_dir);
    if (length == 0 || length >= sizeof paths->folder)
        return fail(VLK_INVALID, "the name of the runtime folder must have 1 to %zu bytes",
                    sizeof paths->folder - 1);
    std::memcpy(paths->folder, place->runtime_dir, length);
    return VLK_OK;
}

int explain_failure(const host_paths &paths, const char *name, int error)
{
    std::array<char, HOST_PATH_SIZE> path;
    if (host_path(&paths, name, path.data(), path.size()) != 0)
        return fail(VLK_INVALID, "the name of the runtime folder is too long");

    switch (error) {
    case ENOENT:
    case ENOTDIR:
    case ECONNREFUSED:
        return not_running(paths, std::strerror(error));
    case EACCES:
    case EPERM:
        return denied(paths, path.data());
    case EPIPE:
    case ECONNRESET:
        return daemon_has_gone(paths);
    case EAGAIN:
        return fail(VLK_TIMEOUT, "the daemon in %s does not answer", paths.folder);
    default:
        return fail(VLK_SYSTEM, "%s: %s", path.data(), std::strerror(error));
    }
}

int connect_to_daemon(const host_paths &paths, const char *name, int *fd)
{
    std::array<char, HOST_PATH_SIZE> path;
    if (host_path(&paths, name, path.data(), path.size()) != 0)
        return fail(VLK_INVALID, "the name of the runtime folder is too long");
    *fd = connect_socket(path.data());
    return *fd >= 0 ? VLK_OK : explain_failure(paths, name, errno);
}

int daemon_has_gone(const host_paths &paths)
{
    return fail(VLK_NOT_RUNNING, "the daemon in %s has ended or has closed the connection", paths.folder);
}
