#include "runtime_folder.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sysexits.h>
#include <unistd.h>

#include "host_start.h"
#include "host_wire.h"

namespace
{
constexpr int WAITING_CONNECTIONS = 64; // before they are accepted

int folder_fd = -1;
int lock_fd = -1;

/// What this process has made in the folder.
struct own_entry {
    char name[16];
    ino_t inode;
};
std::array<own_entry, 3> own_entries{};

void remember(const char *name, ino_t inode)
{
    for (own_entry &own : own_entries) {
        if (own.name[0] != '\0' && strcmp(own.name, name) != 0)
            continue;
        snprintf(own.name, sizeof own.name, "%s", name);
        own.inode = inode;
        return;
    }
}

const char *folder()
{
    return host_settings().paths.folder;
}

/// Only the daemon's user and root may own what is in the folder.
bool is_ours(const struct stat &state)
{
    return state.st_uid == geteuid() || state.st_uid == 0 || state.st_uid == host_settings().owner.user;
}

/// Gives what the descriptor refers to, a socket in the folder included, to the owner in the settings. 0, or -1.
int give_to_owner(int fd)
{
    const host_owner &owner = host_settings().owner;
    return fchownat(fd, "", owner.user, owner.group, AT_EMPTY_PATH);
}

[[noreturn]] void fail_sharing(const char *what)
{
    host_fail(EX_CONFIG,
              "cannot give %s to its owner: %s: start as root, or set VLK_GROUP to a group of this user",
              what, strerror(errno));
}

/// A folder that was there already keeps its owner and its mode, since it may serve others, too. But it must not let
/// others exchange what is in it, and must let the group in.
void check_folder()
{
    struct stat state = {};
    if (fstat(folder_fd, &state) != 0)
        host_fail(EX_OSERR, "cannot look at the runtime folder %s: %s", folder(), strerror(errno));
    if (!is_ours(state) || (state.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        host_fail(
            EX_CONFIG,
            "other users can write to the runtime folder %s: remove it, or set VLK_RUNTIME_DIR to another path",
            folder());
    const gid_t group = host_settings().owner.group;
    if (group != host_owner{}.group && group != state.st_gid && (state.st_mode & S_IXOTH) == 0)
        host_fail(EX_CONFIG, "VLK_GROUP cannot enter the runtime folder %s: remove the folder, or chgrp it",
                  folder());
}

void open_folder()
{
    const bool is_new = mkdir(folder(), 0700) == 0;
    if (!is_new && errno != EEXIST)
        host_fail(
            EX_CONFIG,
            "cannot make the runtime folder %s: %s: set VLK_RUNTIME_DIR to a folder that this user may make",
            folder(), strerror(errno));
    folder_fd = open(folder(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folder_fd < 0)
        host_fail(
            EX_CONFIG,
            "the runtime folder %s is no folder of this user: %s: remove it, or set VLK_RUNTIME_DIR to another path",
            folder(), strerror(errno));
    if (!is_new)
        return check_folder();
    if (give_to_owner(folder_fd) != 0 || fchmod(folder_fd, 0750) != 0) {
        const int cause = errno;
        rmdir(folder());
        errno = cause;
        fail_sharing(folder());
    }
}

/// The process in the lock file, for people only: the lock itself is the kernel's.
int holder_of(int fd)
{
    char text[16] = "";
    return pread(fd, text, sizeof text - 1, 0) > 0 ? atoi(text) : 0;
}

/// Empties the lock file, because a full disk took only a part of the text.
void holder_unknown(int fd)
{
    [[maybe_unused]] const int result = ftruncate(fd, 0);
}

/// Takes the lock, which is held until the process ends, however it ends.
void lock_folder()
{
    const int fd =
        openat(folder_fd, HOST_LOCK_NAME, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    struct stat state = {};
    if (fd < 0 || fstat(fd, &state) != 0)
        host_fail(EX_OSERR, "cannot open %s/%s: %s: remove it, or set VLK_RUNTIME_DIR to another folder",
                  folder(), HOST_LOCK_NAME, strerror(errno));
    if (!S_ISREG(state.st_mode) || state.st_nlink != 1 || !is_ours(state))
        host_fail(EX_CONFIG,
                  "%s/%s is not this daemon's file: remove it, or set VLK_RUNTIME_DIR to another folder",
                  folder(), HOST_LOCK_NAME);
    if (flock(fd, LOCK_EX | LOCK_NB) != 0)
        host_fail(
            EX_UNAVAILABLE,
            "another daemon (pid %d) already uses the runtime folder %s: stop it, or set VLK_RUNTIME_DIR for a "
            "second one",
            holder_of(fd), folder());
    if (give_to_owner(fd) != 0 || fchmod(fd, 0600) != 0)
        fail_sharing(HOST_LOCK_NAME);
    char text[16];
    const int length = snprintf(text, sizeof text, "%d\n", static_cast<int>(getpid()));
    if (ftruncate(fd, 0) == 0 && pwrite(fd, text, static_cast<size_t>(length), 0) != length)
        holder_unknown(fd);
    remember(HOST_LOCK_NAME, state.st_ino);
    lock_fd = fd;
}

/// A socket address through the folder's descriptor: right even when the folder was renamed, and always short enough.
sockaddr_un address_of(const char *name)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%s", folder_fd, name);
    return address;
}

/// Binds, shares with the group, listens. 0, or -1 with errno.
int bind_and_listen(int fd, const char *name)
{
    const sockaddr_un address = address_of(name);
    struct stat state = {};
    if (fstatat(folder_fd, name, &state, AT_SYMLINK_NOFOLLOW) == 0 && S_ISSOCK(state.st_mode))
        unlinkat(folder_fd, name, 0);
    const mode_t mask = umask(0777 & ~0660); // its mode from the first moment
    const int bound = bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    umask(mask);
    if (bound != 0)
        return -1;
    const int entry = openat(folder_fd, name, O_PATH | O_NOFOLLOW | O_CLOEXEC);
    if (entry < 0)
        return -1;
    errno = EPERM;
    const bool is_shared = fstat(entry, &state) == 0 && S_ISSOCK(state.st_mode) && state.st_nlink == 1 &&
                           state.st_uid == geteuid() && give_to_owner(entry) == 0;
    const int cause = errno;
    close(entry);
    errno = cause;
    if (!is_shared)
        return -1;
    remember(name, state.st_ino);
    return listen(fd, WAITING_CONNECTIONS);
}
} // namespace

void runtime_folder_claim()
{
    open_folder();
    lock_folder();
}

int runtime_folder_listen(const char *name, std::span<char> message)
{
    if (folder_fd < 0)
        open_folder();
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd >= 0 && bind_and_listen(fd, name) == 0)
        return fd;
    snprintf(
        message.data(), message.size(),
        "cannot make the socket %s/%s: %s: the folder must belong to the daemon's user (VLK_RUNTIME_DIR), have "
        "room, and its group be one of that user's (VLK_GROUP)",
        folder(), name, strerror(errno));
    if (fd >= 0)
        close(fd);
    return -1;
}

bool runtime_folder_has(const char *name)
{
    struct stat state = {};
    if (fstatat(folder_fd, name, &state, AT_SYMLINK_NOFOLLOW) != 0)
        return false;
    for (const own_entry &own : own_entries)
        if (strcmp(own.name, name) == 0)
            return own.inode == state.st_ino;
    return false;
}

void runtime_folder_keep()
{
    struct stat here = {}, there = {};
    if (fstat(folder_fd, &here) != 0 || stat(folder(), &there) != 0 || here.st_dev != there.st_dev ||
        here.st_ino != there.st_ino)
        host_fail(EX_OSERR, "somebody removed the runtime folder %s: start the daemon again", folder());
    if (lock_fd < 0 || runtime_folder_has(HOST_LOCK_NAME))
        return;
    close(lock_fd);
    lock_folder();
}

int runtime_folder_watch()
{
    if (lock_fd < 0)
        return -1;
    const int fd = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    char path[32];
    snprintf(path, sizeof path, "/proc/self/fd/%d", folder_fd);
    if (fd >= 0 &&
        inotify_add_watch(fd, path, IN_DELETE | IN_MOVED_FROM | IN_DELETE_SELF | IN_MOVE_SELF) >= 0)
        return fd;
    if (fd >= 0)
        close(fd);
    return -1;
}
