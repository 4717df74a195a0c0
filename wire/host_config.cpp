#include "host_config.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

namespace
{

/// Where a message goes.
struct complaint {
    char *text;
    size_t size;

    /// Always -1, the caller's result.
    __attribute__((format(printf, 2, 3))) int operator()(const char *format, ...) const
    {
        va_list arguments;
        va_start(arguments, format);
        if (text != nullptr)
            vsnprintf(text, size, format, arguments);
        va_end(arguments);
        return -1;
    }
};

/// The variable's value; nullptr when it is not set or empty.
const char *variable(const char *name)
{
    const char *value = getenv(name);
    return value == nullptr || value[0] == '\0' ? nullptr : value;
}

/// The whole text, decimal or 0x, as a number of at most 32 bits. 0 or -1.
int parse_number(const char *text, uint32_t *number)
{
    const bool is_hex = text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char *const begin = is_hex ? text + 2 : text;
    const char *const end = begin + strlen(begin);
    const auto result = std::from_chars(begin, end, *number, is_hex ? 16 : 10);
    return result.ec == std::errc{} && result.ptr == end ? 0 : -1;
}

int read_folder(char (&folder)[HOST_FOLDER_SIZE], const complaint &complain)
{
    std::array<char, 2 * HOST_PATH_SIZE> path{};
    int length = 0;
    if (const char *const own = variable("VLK_RUNTIME_DIR"))
        length = snprintf(path.data(), path.size(), "%s", own);
    else if (geteuid() == 0)
        length = snprintf(path.data(), path.size(), "/run/vlk");
    else if (const char *const session = variable("XDG_RUNTIME_DIR"))
        length = snprintf(path.data(), path.size(), "%s/vlk", session);
    else
        return complain(
            "neither VLK_RUNTIME_DIR nor XDG_RUNTIME_DIR is set: set VLK_RUNTIME_DIR to the folder that "
            "daemon and clients share");

    if (path[0] != '/')
        return complain("the runtime folder \"%.80s\" is not an absolute path: set VLK_RUNTIME_DIR to one",
                        path.data());
    while (length > 1 && length < static_cast<int>(path.size()) &&
           path[static_cast<size_t>(length) - 1] == '/')
        path[static_cast<size_t>(--length)] = '\0';
    if (length >= static_cast<int>(HOST_FOLDER_SIZE))
        return complain(
            "the runtime folder \"%.20s...\" is longer than %zu bytes: set VLK_RUNTIME_DIR to a shorter path",
            path.data(), HOST_FOLDER_SIZE - 1);
    memcpy(folder, path.data(), static_cast<size_t>(length) + 1);
    return 0;
}

int read_device(host_config *config, const complaint &complain)
{
    const char *const device = variable("VLK_AT_DEVICE");
    if (device == nullptr)
        return 0;
    if (snprintf(config->device, sizeof config->device, "%s", device) >=
        static_cast<int>(sizeof config->device))
        return complain(
            "VLK_AT_DEVICE is longer than %zu bytes: use a shorter path, a symbolic link for example",
            sizeof config->device - 1);
    return 0;
}

int read_trace_level(host_config *config, const complaint &complain)
{
    const char *const text = variable("VLK_TRACE_LEVEL");
    if (text == nullptr)
        return 0;
    uint32_t level = 0;
    if (parse_number(text, &level) != 0 || level > 255)
        return complain(
            "VLK_TRACE_LEVEL is \"%.40s\": set it to 0 (nothing), 2 (errors), 4, 8 or 16 (everything)", text);
    config->trace_level = static_cast<int>(level);
    return 0;
}

int read_timeout_max(host_config *config, const complaint &complain)
{
    const char *const text = variable("VLK_TIMEOUT_MAX");
    if (text == nullptr)
        return 0;
    uint32_t seconds = 0;
    if (parse_number(text, &seconds) != 0 || seconds == 0 || seconds > 86400)
        return complain("VLK_TIMEOUT_MAX is \"%.40s\": set it to seconds from 1 to 86400", text);
    config->timeout_max = static_cast<int32_t>(seconds);
    return 0;
}

int read_log_level(host_config *config, const complaint &complain)
{
    constexpr const char *names[] = {"emerg", "alert", "crit", "err", "warning", "notice", "info", "debug"};
    const char *const text = variable("VLK_LOG_LEVEL");
    if (text == nullptr)
        return 0;
    for (int level = LOG_EMERG; level <= LOG_DEBUG; ++level) {
        const char digit[] = {static_cast<char>('0' + level), '\0'};
        if (strcmp(text, names[level]) == 0 || strcmp(text, digit) == 0) {
            config->log_level = level;
            return 0;
        }
    }
    return complain("VLK_LOG_LEVEL is \"%.40s\": set it to err, warning, notice, info or debug", text);
}

int read_speed(host_config *config, const complaint &complain)
{
    const char *const text = variable("VLK_AT_SPEED");
    if (text == nullptr)
        return 0;
    if (parse_number(text, &config->line.speed) != 0 ||
        std::ranges::find(at_speeds, config->line.speed, &at_speed::bits) == std::end(at_speeds))
        return complain("VLK_AT_SPEED is \"%.40s\": set it to a speed of serial ports, 115200 for example, "
                        "or unset it to keep the port's own",
                        text);
    return 0;
}

int read_flow(host_config *config, const complaint &complain)
{
    struct {
        const char *name;
        at_flow flow;
    } constexpr flows[] = {
        {"none", at_flow::NONE}, {"rtscts", at_flow::RTSCTS}, {"xonxoff", at_flow::XONXOFF}};
    const char *const text = variable("VLK_AT_FLOW");
    if (text == nullptr)
        return 0;
    for (const auto &row : flows) {
        if (strcmp(text, row.name) == 0) {
            config->line.flow = row.flow;
            return 0;
        }
    }
    return complain("VLK_AT_FLOW is \"%.40s\": set it to none, rtscts or xonxoff, or unset it to keep the "
                    "port's own",
                    text);
}

/// The user becomes the owner of what is shared, but only when the process may change users at all.
int read_user(host_config *config, const complaint &complain)
{
    const char *const name = variable("VLK_USER");
    if (name == nullptr)
        return 0;
    const passwd *const entry = getpwnam(name);
    if (entry == nullptr || strlen(name) >= sizeof config->user)
        return complain("VLK_USER is \"%.40s\", which is no user of this machine: name one or unset it",
                        name);
    memcpy(config->user, name, strlen(name) + 1);
    config->user_id = entry->pw_uid;
    config->user_group = entry->pw_gid;
    if (geteuid() == 0)
        config->owner = {entry->pw_uid, entry->pw_gid};
    return 0;
}

int read_group(host_config *config, const complaint &complain)
{
    const char *const name = variable("VLK_GROUP");
    if (name == nullptr)
        return 0;
    const group *const entry = getgrnam(name);
    if (entry == nullptr)
        return complain("VLK_GROUP is \"%.40s\", which is no group of this machine: create it or unset it",
                        name);
    config->owner.group = entry->gr_gid;
    return 0;
}

} // namespace

int host_read_paths(host_paths *paths, char *error, size_t error_size)
{
    const complaint complain{error, error_size};
    return read_folder(paths->folder, complain);
}

int host_read_config(host_config *config, char *error, size_t error_size)
{
    const complaint complain{error, error_size};
    *config = {};
    if (host_read_paths(&config->paths, error, error_size) != 0)
        return -1;
    for (const auto read : {read_device, read_speed, read_flow, read_timeout_max, read_log_level,
                            read_trace_level, read_user, read_group})
        if (read(config, complain) != 0)
            return -1;
    return 0;
}

int host_path(const host_paths *paths, const char *name, char *path, size_t path_size)
{
    const int length = snprintf(path, path_size, "%s/%s", paths->folder, name);
    return length >= 0 && static_cast<size_t>(length) < path_size ? 0 : -1;
}
