#include "daemon_page.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <glob.h>
#include <grp.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include "last_error.h"

namespace
{
constexpr int READ_WRITE = 0600; // permissions that a System V look-up asks for

struct file_descriptor {
    int number;
    ~file_descriptor()
    {
        if (number >= 0)
            close(number);
    }
};

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

/// The folders in which a daemon may be when nobody says which: the user's own, root's, and those of the system's
/// instances.
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
    return folders;
}

/// Finds the folder of the one daemon there is. Without any the default is named as the one that is missing.
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
    default:
        return fail(VLK_SYSTEM, "%s: %s", path.data(), std::strerror(error));
    }
}

daemon_page::~daemon_page()
{
    if (page_ != nullptr)
        munmap(page_, sizeof *page_);
}

int daemon_page::map()
{
    std::array<char, HOST_PATH_SIZE> path;
    if (host_path(&paths_, HOST_PAGE_NAME, path.data(), path.size()) != 0)
        return fail(VLK_INVALID, "the name of the runtime folder is too long");

    const file_descriptor file{::open(path.data(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK)};
    struct stat info = {};
    if (file.number < 0 || fstat(file.number, &info) != 0)
        return explain_failure(paths_, HOST_PAGE_NAME, errno);
    if (S_ISREG(info.st_mode) && info.st_size == 0)
        return not_running(paths_, "the event page is empty");
    if (!S_ISREG(info.st_mode) || info.st_size < static_cast<off_t>(sizeof(host_page)))
        return fail(VLK_MISMATCH, "%s is no event page of this version of the daemon", path.data());

    void *memory = mmap(nullptr, sizeof(host_page), PROT_READ | PROT_WRITE, MAP_SHARED, file.number, 0);
    if (memory == MAP_FAILED)
        return explain_failure(paths_, HOST_PAGE_NAME, errno);
    page_ = static_cast<host_page *>(memory);
    return VLK_OK;
}

int daemon_page::open(const vlk_place *place)
{
    if (const int failed = find_folder(place, &paths_))
        return failed;
    if (const int failed = map())
        return failed;

    const uint32_t magic = page_->magic.load(std::memory_order_acquire);
    if (magic == 0)
        return not_running(paths_, "the event page is not set up yet");
    if (magic != HOST_PAGE_MAGIC)
        return fail(VLK_MISMATCH, "the daemon in %s is of another version (event page %08X, wanted %08X)",
                    paths_.folder, magic, HOST_PAGE_MAGIC);
    paths_.base = page_->base;
    if (place != nullptr && place->base != 0 && place->base != paths_.base)
        return fail(VLK_MISMATCH, "the daemon in %s uses IPC base 0x%08X, not 0x%08X", paths_.folder,
                    paths_.base, place->base);

    claim_ = semget(static_cast<key_t>(paths_.base + HOST_CLAIM_KEY), 1, 0400);
    if (claim_ < 0 && errno == EACCES)
        return explain_failure(paths_, HOST_PAGE_NAME, EACCES);
    if (!alive())
        return not_running(paths_, "it has ended");
    return VLK_OK;
}

bool daemon_page::alive() const
{
    return claim_ >= 0 && semctl(claim_, 0, GETVAL) > 0;
}

int daemon_page::find_queue(uint32_t key, int *queue) const
{
    *queue = msgget(static_cast<key_t>(paths_.base + key), READ_WRITE);
    if (*queue >= 0)
        return VLK_OK;
    if (errno == ENOENT)
        return not_running(paths_, "it has no queues yet");
    return explain_failure(paths_, HOST_PAGE_NAME, errno);
}

int daemon_page::explain_queue_failure(int error) const
{
    if (error == EIDRM || error == EINVAL)
        return fail(VLK_NOT_RUNNING, "the daemon in %s was restarted; the request is lost", paths_.folder);
    return explain_failure(paths_, HOST_PAGE_NAME, error);
}
