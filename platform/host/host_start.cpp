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
#include <sys/resource.h>
#include <sysexits.h>
#include <unistd.h>

#include "futex_word.h"
#include "host_log.h"
#include "log_sink.h"
#include "runtime_folder.h"
#include "service_notify.h"

host_config host_settings_as_read;

namespace
{

host_config &settings = host_settings_as_read;

constexpr int EXIT_UNKNOWN_OPTION = 2;
constexpr rlim_t DESCRIPTORS_WANTED = 1024;

constexpr char USAGE[] =
    R"(Usage: vorlink [1]
Owns the AT channel of one modem and serves the AT commands of many programs.
It stays in the foreground, logs to standard error and runs until it is killed.

  1              do not register on the message bus
  -h, --help     print this text
      --version  print the version

Environment:
  VLK_AT_DEVICE    the modem (required): a serial device, a pty, or a Unix stream socket to connect to
  VLK_RUNTIME_DIR  folder of the daemon's sockets, one for each daemon
                   (/run/vlk for root, else $XDG_RUNTIME_DIR/vlk)
  VLK_TIMEOUT_MAX  seconds that a command may have at most (600)
  VLK_GROUP        the group whose members may use the daemon
  VLK_USER         the user to become when started as root; needs access to the device
  VLK_AT_SPEED     bits per second of a serial device (its own)
  VLK_AT_FLOW      flow control of a serial device: none, rtscts or xonxoff (its own)
  VLK_LOG_LEVEL    the least that is logged: err, warning, notice, info or debug (info)
  VLK_TRACE_LEVEL  the developers' trace: 2 errors, 4 and refusals, 8 and progress, 16 everything (0)

Exit status:
  2    unknown option
  69   another daemon uses this runtime folder
  71   the system refuses something that the daemon needs
  78   a setting is missing or wrong
  255  the notify service cannot be set up
)";

int64_t started_ms = 0;

/// Takes every argument of the process but the "1", which is all that the daemon's main knows.
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

/// A daemon that is started without its standard descriptors must not open other files in their place: what it prints
/// would go into them.
void open_standard_descriptors()
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd)
        if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDWR) != fd)
            _exit(EX_OSERR);
}

/// Two sockets of 256 connections each need more than some systems allow at first.
void raise_descriptor_limit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= DESCRIPTORS_WANTED)
        return;
    limit.rlim_cur = std::min<rlim_t>(DESCRIPTORS_WANTED, limit.rlim_max);
    setrlimit(RLIMIT_NOFILE, &limit); // with less, clients wait their turn to connect
}

} // namespace

void host_fail(int exit_code, const char *format, ...)
{
    char text[HOST_ERROR_SIZE];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    log_sink_last_words(text);
    _exit(exit_code); // other threads may run: nothing is torn down under them
}

int host_load_settings(char *error, size_t error_size)
{
    return host_read_config(&settings, error, error_size);
}

int64_t host_started_ms()
{
    return started_ms;
}

void host_start()
{
    open_standard_descriptors();
    started_ms = monotonic_ms();
    take_arguments();
    char error[HOST_ERROR_SIZE];
    if (host_load_settings(error, sizeof error) != 0)
        host_fail(EX_CONFIG, "%s", error);
    if (settings.device[0] == '\0')
        host_fail(
            EX_CONFIG,
            "VLK_AT_DEVICE is not set: set it to the modem's device, for example VLK_AT_DEVICE=/dev/ttyUSB2");
    signal(SIGPIPE, SIG_IGN);
    service_start();
    tzset();
    raise_descriptor_limit();
    runtime_folder_claim();
    host_log_start();
}
