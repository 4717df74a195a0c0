// Who may use the daemon: a daemon that gave up root, its group, and outsiders. Needs root.
#include "system.h"

#include <filesystem>

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>

using testing::HasSubstr;

namespace
{

constexpr char USER[] = "daemon";
constexpr char GROUP[] = "dialout";
constexpr char SETPRIV[] = "/usr/bin/setpriv";

struct stat stat_of(const std::string &path)
{
    struct stat about {
    };
    EXPECT_EQ(stat(path.c_str(), &about), 0) << path;
    return about;
}

/// Starts modem and daemon with a device that only the daemon's user can open.
void start_as_user(system_under_test &system)
{
    const std::string run = system.folder + "/run";
    chmod(system.folder.c_str(), 0711);
    std::filesystem::copy_file(VLKCTL, system.folder + "/vlkctl");
    system.variables["VLK_USER"] = USER;
    system.variables["VLK_GROUP"] = GROUP;
    system.start_modem();
    const std::string device = std::filesystem::canonical(system.variables["VLK_AT_DEVICE"]);
    ASSERT_EQ(chown(device.c_str(), getpwnam(USER)->pw_uid, 0) + chmod(device.c_str(), 0600), 0);
    system.start_daemon();
}

outcome vlkctl_as_nobody(const system_under_test &system, const std::string &groups,
                         const std::vector<std::string> &arguments)
{
    std::vector<std::string> all = {SETPRIV, "--reuid=nobody", "--regid=nogroup", groups,
                                    system.folder + "/vlkctl"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    process client(all, system.variables);
    const int code = client.wait();
    return {code, client.out, client.err};
}

} // namespace

TEST(Access, UserAndGroupOfTheDaemonAndNobodyElse)
{
    const passwd *const user = getpwnam(USER);
    const group *const group = getgrnam(GROUP);
    if (geteuid() != 0 || user == nullptr || group == nullptr || access(SETPRIV, X_OK) != 0)
        GTEST_SKIP() << "needs root, setpriv, the user daemon and the group dialout";
    const uid_t uid = user->pw_uid;
    const gid_t gid = group->gr_gid;
    system_under_test system;
    start_as_user(system);
    const std::string run = system.folder + "/run";
    EXPECT_EQ(stat_of("/proc/" + std::to_string(system.daemon->pid)).st_uid, uid) << "root was not given up";
    for (const auto &[path, mode] :
         {std::pair{run, 0750U}, {run + "/commands", 0660U}, {run + "/hub", 0660U}, {run + "/lock", 0600U}}) {
        const struct stat about = stat_of(path);
        EXPECT_EQ(about.st_mode & 07777U, mode) << path;
        EXPECT_EQ(about.st_uid, uid) << path;
        EXPECT_EQ(about.st_gid, gid) << path;
    }

    EXPECT_EQ(vlkctl_as_nobody(system, std::string("--groups=") + GROUP, {"at", "AT+CSQ"}).out, SIGNAL);
    for (const std::vector<std::string> &command : {std::vector<std::string>{"at", "AT+CSQ"},
                                                    {"status"},
                                                    {"monitor", "--seconds", "1"},
                                                    {"stop-scan"}}) {
        const outcome outsider = vlkctl_as_nobody(system, "--clear-groups", command);
        EXPECT_EQ(outsider.code, 5) << command[0];
        EXPECT_THAT(outsider.err, HasSubstr("usermod -aG dialout")) << command[0];
    }

    const int64_t start = now_ms();
    system.daemon->kill(SIGKILL);
    EXPECT_EQ(system.daemon->wait(), 128 + SIGKILL);
    system.start_daemon();
    EXPECT_LT(now_ms() - start, 3000) << "what a killed daemon left is no obstacle";
    system.expect_signal("again");
}
