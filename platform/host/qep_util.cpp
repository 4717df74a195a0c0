#include "qep_util.h"

#include <cerrno>
#include <charconv>
#include <cstring>

#include <grp.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include "host_start.h"
#include "service_notify.h"

int QEP_UTIL_ForceSetPrivileges(const char *)
{
    host_start();
    return 0;
}

int QEP_UTIL_RemoveAndroidWPerm(const char *path, const char *mode)
{
    if (path == nullptr || mode == nullptr)
        return -1;
    unsigned bits = 0;
    const char *const end = mode + strlen(mode);
    const auto result = std::from_chars(mode, end, bits, 8);
    if (result.ec != std::errc{} || result.ptr != end || bits > 07777)
        return -1;
    return chmod(path, static_cast<mode_t>(bits));
}

/// Becomes the user of the settings, when the daemon was started as root and one is named.
static void become_user(const host_config &settings)
{
    if (geteuid() != 0 || settings.user[0] == '\0' || settings.user_id == 0)
        return;
    if (initgroups(settings.user, settings.user_group) != 0 || setgid(settings.user_group) != 0 ||
        setuid(settings.user_id) != 0)
        host_fail(EX_OSERR,
                  "cannot become the user \"%s\": %s: unset VLK_USER, or start as root with all capabilities",
                  settings.user, strerror(errno));
    if (geteuid() != settings.user_id || getegid() != settings.user_group || setuid(0) == 0)
        host_fail(EX_OSERR, "still root after becoming the user \"%s\"", settings.user);
}

/// The last step of the daemon's start: its sockets are there, its main loop comes next.
int QEP_UTIL_DropAndroidRootPrivileges(void)
{
    become_user(host_settings());
    service_ready();
    return 0;
}
