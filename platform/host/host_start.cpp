#include "host_start.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <syslog.h>
#include <unistd.h>

#include "futex_word.h"

host_config host_settings_as_read;

namespace
{

host_config &settings = host_settings_as_read;

constexpr int EXIT_UNKNOWN_OPTION = 2;

constexpr char USAGE[] =
    R"(Usage: vorlink [1]
Owns the AT channel of one modem and serves the AT commands of many programs.
It stays in the foreground, traces to standard error and runs until it is killed.

  1              do not register on the message bus
  -h, --help     print this text
      --version  print the version

Environment:
  VLK_AT_DEVICE    the modem (required): a serial device, a pty, or a Unix stream socket to connect to
  VLK_RUNTIME_DIR  folder of the event page and the hub, one for each daemon
                   (/run/vlk for root, else $XDG_RUNTIME_DIR/vlk)
  VLK_IPC_BASE     System V keys start here, a multiple of 16, one for each daemon (0x766c6b00)
  VLK_GROUP        the group whose members may use the daemon
  VLK_USER         the user to become when started as root; needs access to the device
  VLK_TRACE_LEVEL  0 nothing, 2 errors, 4 and refusals, 8 and progress, 16 everything (4)

Exit status:
  2    unknown option
  69   another daemon serves this IPC base or this runtime folder
  71   the system refuses something that the daemon needs
  78   a setting is missing or wrong
  255  the notify service cannot be set up
)";

host_page private_page{}; // in use until the shared one is mapped, then what restores it
host_page *page = &private_page;
int page_file = -1;

/// Every argument of the process: the daemon's main knows only the "1".
void take_arguments()
{
    FILE *const file = fopen("/proc/self/cmdline", "re");
    if (file == nullptr)
        return;
    std::array<char, 4096> text{};
    const size_t length = fread(text.data(), 1, text.size() - 1, file);
    fclose(file);

    size_t at = strlen(text.data()) + 1; // behind the program's name
    while (at < length) {
        const char *const argument = &text[at];
        if (strcmp(argument, "-h") == 0 || strcmp(argument, "--help") == 0) {
            fputs(USAGE, stdout);
            exit(EXIT_SUCCESS);
        }
        if (strcmp(argument, "--version") == 0) {
            puts("vorlink " VLK_VERSION);
            exit(EXIT_SUCCESS);
        }
        if (argument[0] == '-')
            host_fail(EXIT_UNKNOWN_OPTION, "unknown option \"%.80s\": see vorlink --help", argument);
        at += strlen(argument) + 1;
    }
}

[[noreturn]] void fail_claim(int cause)
{
    const uint32_t base = settings.paths.base;
    if (cause == EACCES || cause == EPERM)
        host_fail(
            EX_UNAVAILABLE,
            "IPC base 0x%08x belongs to the daemon of another user: set VLK_IPC_BASE and VLK_RUNTIME_DIR, or stop that one "
            "and remove its semaphore with ipcrm -S 0x%08x",
            base, base + HOST_CLAIM_KEY);
    host_fail(EX_OSERR, "cannot claim IPC base 0x%08x: %s: see semget(2)", base, strerror(cause));
}

/// Held until the process ends, however it ends: the kernel lowers the semaphore again.
void claim_base()
{
    const int id = semget(static_cast<key_t>(settings.paths.base + HOST_CLAIM_KEY), 1, IPC_CREAT | 0640);
    if (id < 0)
        fail_claim(errno);
    std::array<sembuf, 2> claim{sembuf{0, 0, IPC_NOWAIT}, sembuf{0, 1, IPC_NOWAIT | SEM_UNDO}};
    if (semop(id, claim.data(), claim.size()) != 0) {
        if (errno != EAGAIN)
            fail_claim(errno);
        host_fail(EX_UNAVAILABLE,
                  "another daemon (pid %d) already serves IPC base 0x%08x: stop it, or set VLK_IPC_BASE and "
                  "VLK_RUNTIME_DIR for a second one",
                  semctl(id, 0, GETPID), settings.paths.base);
    }

    // Clients may read who lives, nothing else.
    union {
        semid_ds *state;
    } argument{};
    semid_ds state{};
    argument.state = &state;
    if (semctl(id, 0, IPC_STAT, argument) != 0)
        fail_claim(errno);
    if (settings.owner.user != host_owner{}.user)
        state.sem_perm.uid = settings.owner.user;
    if (settings.owner.group != host_owner{}.group)
        state.sem_perm.gid = settings.owner.group;
    state.sem_perm.mode = 0640;
    if (semctl(id, 0, IPC_SET, argument) != 0)
        fail_claim(errno);
}

[[noreturn]] void fail_sharing(const char *path, int cause)
{
    host_fail(EX_CONFIG,
              "cannot give %s to its owner: %s: start as root, or set VLK_GROUP to a group of this user",
              path, strerror(cause));
}

/// A folder that was there keeps its owner and its mode, whatever they are: it may be anything. It only must not let
/// others exchange what is in it, and must let the group in.
void check_folder(const char *folder)
{
    struct stat state = {};
    if (lstat(folder, &state) != 0 || !S_ISDIR(state.st_mode))
        host_fail(EX_CONFIG, "the runtime folder %s is no folder: set VLK_RUNTIME_DIR to another path",
                  folder);
    const bool is_ours =
        state.st_uid == geteuid() || state.st_uid == 0 || state.st_uid == settings.owner.user;
    if (!is_ours || (state.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        host_fail(
            EX_CONFIG,
            "other users can write to the runtime folder %s: remove it, or set VLK_RUNTIME_DIR to another path",
            folder);
    const gid_t group = settings.owner.group;
    if (group != host_owner{}.group && group != state.st_gid && (state.st_mode & S_IXOTH) == 0)
        host_fail(EX_CONFIG, "VLK_GROUP cannot enter the runtime folder %s: remove the folder, or chgrp it",
                  folder);
}

void make_folder()
{
    const char *const folder = settings.paths.folder;
    if (mkdir(folder, 0750) == 0) {
        if (host_share_path(folder, 0750, &settings.owner) != 0) {
            const int cause = errno;
            rmdir(folder);
            fail_sharing(folder, cause);
        }
        return;
    }
    if (errno != EEXIST)
        host_fail(
            EX_CONFIG,
            "cannot make the runtime folder %s: %s: set VLK_RUNTIME_DIR to a folder that this user may make",
            folder, strerror(errno));
    check_folder(folder);
}

/// What the page of a new daemon looks like.
void fill_page(host_page *fresh)
{
    fresh->pid = getpid();
    fresh->base = settings.paths.base;
    fresh->modem = HOST_MODEM_ABSENT;
    fresh->events = 0;
    fresh->magic = HOST_PAGE_MAGIC;
}

/// A client may have cut the file short: the access that failed is repeated on a new page. Signal handler.
void restore_page(int number, siginfo_t *info, void *)
{
    const auto *const begin = reinterpret_cast<const char *>(page);
    const auto *const at = static_cast<const char *>(info->si_addr);
    const bool is_page = at >= begin && at < begin + sizeof(host_page);
    if (!is_page || pwrite(page_file, &private_page, sizeof private_page, 0) != ssize_t{sizeof private_page})
        signal(number, SIG_DFL); // the repeated access ends the process
}

} // namespace

void host_fail(int exit_code, const char *format, ...)
{
    char text[HOST_ERROR_SIZE];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    fprintf(stderr, "vorlink: %s\n", text);
    _exit(exit_code); // other threads may run: nothing is torn down under them
}

int host_load_settings(char *error, size_t error_size)
{
    return host_read_config(&settings, error, error_size);
}

host_page *host_event_page()
{
    return page;
}

void host_open_event_page()
{
    char path[HOST_PATH_SIZE];
    if (host_path(&settings.paths, HOST_PAGE_NAME, path, sizeof path) != 0)
        host_fail(EX_CONFIG, "the path of the runtime folder is too long");
    page_file = open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0660);
    if (page_file < 0)
        host_fail(EX_OSERR, "cannot open %s: %s: remove it, or set VLK_RUNTIME_DIR to another folder", path,
                  strerror(errno));
    if (flock(page_file, LOCK_EX | LOCK_NB) != 0) {
        host_page other{};
        [[maybe_unused]] const ssize_t length = pread(page_file, &other, sizeof other, 0);
        host_fail(
            EX_UNAVAILABLE,
            "another daemon (pid %d) already uses the runtime folder %s: stop it, or set VLK_RUNTIME_DIR and "
            "VLK_IPC_BASE for a second one",
            other.pid.load(), settings.paths.folder);
    }
    if (host_share_path(path, 0660, &settings.owner) != 0)
        fail_sharing(path, errno);
    void *const memory =
        ftruncate(page_file, sizeof(host_page)) == 0
            ? mmap(nullptr, sizeof(host_page), PROT_READ | PROT_WRITE, MAP_SHARED, page_file, 0)
            : MAP_FAILED;
    if (memory == MAP_FAILED)
        host_fail(EX_OSERR, "cannot map %s: %s", path, strerror(errno));
    page = static_cast<host_page *>(memory);

    // Clients of an earlier daemon may still wait on this page: they look again and find it unready or fresh.
    page->magic = 0;
    futex_count(page->requests);
    futex_count(page->replies);
    fill_page(page);

    fill_page(&private_page);
    struct sigaction action = {};
    action.sa_sigaction = restore_page;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGBUS, &action, nullptr);
}

void host_start()
{
    take_arguments();
    char error[HOST_ERROR_SIZE];
    if (host_load_settings(error, sizeof error) != 0)
        host_fail(EX_CONFIG, "%s", error);
    if (settings.device[0] == '\0')
        host_fail(
            EX_CONFIG,
            "VLK_AT_DEVICE is not set: set it to the modem's device, for example VLK_AT_DEVICE=/dev/ttyUSB2");
    signal(SIGPIPE, SIG_IGN);
    tzset();
    openlog("vorlink", LOG_PID, LOG_DAEMON);

    claim_base();
    make_folder();
    host_open_event_page();
}
