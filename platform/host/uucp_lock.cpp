#include "uucp_lock.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
constexpr int64_t YOUNG_S = 10; ///< a younger lock file without a number is still being written

/// What a lock file says.
struct lock_state {
    bool exists = false;
    bool is_ours = false;
    pid_t holder = 0; ///< alive, another process; INT_MAX: not written yet; 0: nobody
};

/// FOLDER/LCK..NAME, where NAME is the device's path below /dev without symbolic links. 0 or -1.
int lock_path(const char *folder, const char *device, std::span<char> path)
{
    char real[PATH_MAX];
    if (realpath(device, real) == nullptr)
        return -1;
    char *name = strncmp(real, "/dev/", 5) == 0 ? real + 5 : strrchr(real, '/') + 1;
    std::replace(name, name + strlen(name), '/', '_');
    const int length = snprintf(path.data(), path.size(), "%s/LCK..%s", folder, name);
    return length > 0 && static_cast<size_t>(length) < path.size() ? 0 : -1;
}

/// The process in the text of a lock file: a number in ASCII, or four bytes. 0 when there is none.
pid_t parse_holder(std::span<const char> text)
{
    pid_t pid = 0;
    if (text.size() == sizeof pid) {
        memcpy(&pid, text.data(), sizeof pid);
        if (pid > 0 && pid <= 1 << 22) // four digits of ASCII are a larger number
            return pid;
    }
    const char *const end = text.data() + text.size();
    const char *const begin = std::find_if(text.data(), end, [](char c) { return c != ' '; });
    pid = 0;
    std::from_chars(begin, end, pid);
    return std::max(pid, 0);
}

/// Alive, and of the file's user: the number of a process that died may be another user's process by now.
bool holds(pid_t pid, const struct stat &file)
{
    if (pid == getpid() || (kill(pid, 0) != 0 && errno == ESRCH))
        return false;
    char path[32];
    snprintf(path, sizeof path, "/proc/%d", pid);
    struct stat process {
    };
    return stat(path, &process) != 0 || file.st_uid == 0 || process.st_uid == file.st_uid;
}

lock_state look_at(const char *path)
{
    lock_state state;
    const int fd = open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        state.exists = errno != ENOENT;
        return state;
    }
    struct stat about {
    };
    char text[32];
    const ssize_t length =
        fstat(fd, &about) == 0 && S_ISREG(about.st_mode) ? read(fd, text, sizeof text) : -1;
    close(fd);
    state.exists = true;
    const pid_t pid = length > 0 ? parse_holder({text, static_cast<size_t>(length)}) : 0;
    state.is_ours = pid == getpid();
    if (pid > 0 && holds(pid, about))
        state.holder = pid;
    else if (pid == 0 && length >= 0 && time(nullptr) - about.st_mtime < YOUNG_S)
        state.holder = INT_MAX;
    return state;
}

/// Removes a file that nobody holds. One that somebody has put in its place meanwhile is put back.
void remove_stale(const char *path)
{
    char aside[320];
    snprintf(aside, sizeof aside, "%s.%d", path, getpid());
    if (rename(path, aside) != 0)
        return;
    if (look_at(aside).holder == 0)
        unlink(aside);
    else
        rename(aside, path);
}

/// The file appears with its number in it, or not at all. 0, or an errno value.
int make_file(const char *folder, const char *path)
{
    char fresh[288];
    snprintf(fresh, sizeof fresh, "%s/LTMP.%d", folder, getpid());
    unlink(fresh);
    const int fd = open(fresh, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0)
        return errno;
    char text[16];
    const int length = snprintf(text, sizeof text, "%10d\n", getpid());
    int cause = 0;
    if (fchmod(fd, 0644) != 0 || write(fd, text, static_cast<size_t>(length)) != length)
        cause = ENOSPC;
    else if (link(fresh, path) != 0)
        cause = errno;
    close(fd);
    unlink(fresh);
    return cause;
}

/// Whether one of the process's files is the device.
bool has_open(const char *process, dev_t device)
{
    char folder[32];
    snprintf(folder, sizeof folder, "/proc/%.12s/fd", process);
    DIR *const files = opendir(folder);
    if (files == nullptr)
        return false;
    bool found = false;
    while (const dirent *file = found ? nullptr : readdir(files)) {
        struct stat about {
        };
        found = fstatat(dirfd(files), file->d_name, &about, 0) == 0 && S_ISCHR(about.st_mode) &&
                about.st_rdev == device;
    }
    closedir(files);
    return found;
}
} // namespace

pid_t uucp_lock_take(uucp_lock &lock, const char *folder, const char *device)
{
    lock = {};
    char path[sizeof lock.path];
    if (lock_path(folder, device, path) != 0)
        return 0;
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (make_file(folder, path) == 0) {
            snprintf(lock.path, sizeof lock.path, "%s", path);
            return 0;
        }
        const lock_state state = look_at(path);
        if (state.holder > 0)
            return state.holder;
        if (state.exists)
            remove_stale(path);
    }
    return 0; // the folder is not ours to write to
}

void uucp_lock_release(uucp_lock &lock)
{
    if (lock.path[0] != '\0' && look_at(lock.path).is_ours)
        unlink(lock.path);
    lock = {};
}

void describe_process(pid_t pid, std::span<char> text)
{
    char path[32];
    snprintf(path, sizeof path, "/proc/%d/comm", pid);
    char name[17] = "";
    const int fd = pid == INT_MAX ? -1 : open(path, O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        const ssize_t length = read(fd, name, sizeof name - 1);
        name[std::max<ssize_t>(length - 1, 0)] = '\0';
        close(fd);
    }
    if (pid == INT_MAX)
        snprintf(text.data(), text.size(), "a program that just starts");
    else if (name[0] == '\0')
        snprintf(text.data(), text.size(), "process %d", pid);
    else
        snprintf(text.data(), text.size(), "process %d (%s)", pid, name);
}

pid_t find_device_holder(dev_t device)
{
    DIR *const processes = opendir("/proc");
    if (processes == nullptr)
        return 0;
    pid_t found = 0;
    while (const dirent *process = found != 0 ? nullptr : readdir(processes)) {
        const pid_t pid = static_cast<pid_t>(strtol(process->d_name, nullptr, 10));
        if (pid > 0 && pid != getpid() && has_open(process->d_name, device))
            found = pid;
    }
    closedir(processes);
    return found;
}
