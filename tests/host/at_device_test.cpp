// The modem's device: who may have it, how it is set, what is none.
#include <cerrno>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <pty.h>
#include <sys/stat.h>
#include <termios.h>

#include "../process.h"
#include "at_device.h"
#include "host_place.h"
#include "uucp_lock.h"

namespace
{
bool terminals_are_none = false;
}

/// In place of the C library's: lets a pseudo-terminal stand for a modem's port that is none, like /dev/wwan0at0.
extern "C" int isatty(int fd) noexcept
{
    termios settings{};
    if (!terminals_are_none)
        return tcgetattr(fd, &settings) == 0 ? 1 : 0;
    errno = ENOTTY;
    return 0;
}

namespace
{
using testing::HasSubstr;

struct pty {
    pty() { EXPECT_EQ(openpty(&master, &slave, path, nullptr, nullptr), 0); }
    ~pty()
    {
        close(master);
        close(slave);
    }
    termios settings() const
    {
        termios now{};
        tcgetattr(slave, &now);
        return now;
    }
    char path[64];
    int master, slave;
};

std::string content(const std::string &path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

class UucpLock : public testing::Test
{
protected:
    void write(const std::string &text) const { std::ofstream(path) << text; }
    void make_old() const
    {
        const timespec old[2] = {{1, 0}, {1, 0}};
        utimensat(AT_FDCWD, path.c_str(), old, 0);
    }
    pid_t take() { return uucp_lock_take(lock, place.folder.c_str(), "/dev/null"); }

    const host_place place;
    const std::string path = place.folder + "/LCK..null";
    uucp_lock lock;
};

TEST_F(UucpLock, IsMadeHonouredAndRemoved)
{
    symlink("/dev/null", (place.folder + "/modem").c_str());
    EXPECT_EQ(uucp_lock_take(lock, place.folder.c_str(), (place.folder + "/modem").c_str()), 0);
    char number[16];
    snprintf(number, sizeof number, "%10d\n", getpid());
    EXPECT_EQ(content(path), number) << "its name is that of the device itself";
    uucp_lock_release(lock);
    EXPECT_NE(access(path.c_str(), F_OK), 0);

    ASSERT_EQ(take(), 0);
    unlink(path.c_str());
    write("         1\n"); // somebody else's by now
    uucp_lock_release(lock);
    EXPECT_EQ(access(path.c_str(), F_OK), 0);
}

TEST_F(UucpLock, OnlyALivingHolderCounts)
{
    process sleeper({"/bin/sleep", "60"});
    process ended({"/bin/true"});
    ended.wait();
    const std::string alive = std::to_string(sleeper.pid), dead = std::to_string(ended.pid);
    const auto in_bytes = [](pid_t pid) { return std::string(reinterpret_cast<const char *>(&pid), 4); };
    const struct {
        const char *fault;
        std::string text;
        bool old;
        bool held;
    } cases[] = {
        {"a living process", "     " + alive + "\n", true, true},
        {"with its name behind it", alive + " minicom root\n", true, true},
        {"in four bytes", in_bytes(sleeper.pid), true, true},
        {"a dead process", dead + "\n", false, false},
        {"a dead one in four bytes", in_bytes(ended.pid), false, false},
        {"this process's own, of an earlier life", std::to_string(getpid()) + "\n", false, false},
        {"a file that is being written", "", false, true},
        {"a file that nobody wrote", "", true, false},
        {"nonsense", "minicom\n", true, false},
        {"a negative number", "-1\n", true, false},
    };
    for (const auto &c : cases) {
        write(c.text);
        if (c.old)
            make_old();
        EXPECT_EQ(take() != 0, c.held) << c.fault;
        EXPECT_EQ(content(path) == c.text, c.held)
            << c.fault << ": a holder's file stays, another is replaced";
        uucp_lock_release(lock);
        unlink(path.c_str());
    }
    EXPECT_EQ(uucp_lock_take(lock, "/proc/none", "/dev/null"), 0) << "no folder, no locks";
    mkdir(path.c_str(), 0755);
    EXPECT_EQ(take(), 0) << "a folder in its place holds nothing, and is not followed";
}

TEST_F(UucpLock, SomebodyElsesNumberHoldsNothing)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can make the file of another user";
    write("         1\n");
    chown(path.c_str(), 65534, 65534);
    EXPECT_EQ(take(), 0) << "process 1 is not of the user who wrote this";
}

TEST(AtDevice, IsSetAsTheSettingsSay)
{
    const struct {
        const char *fault;
        at_line_settings line;
        speed_t speed;
        tcflag_t input, control;
    } cases[] = {
        {"its own speed", {0, at_flow::OWN}, B38400, 0, 0},
        {"another speed", {57600, at_flow::OWN}, B57600, 0, 0},
        {"none", {9600, at_flow::NONE}, B9600, 0, 0},
        {"lines", {9600, at_flow::RTSCTS}, B9600, 0, CRTSCTS},
        {"characters", {9600, at_flow::XONXOFF}, B9600, IXON | IXOFF, 0},
    };
    for (const auto &c : cases) {
        const pty port;
        at_device device;
        char message[512] = "";
        ASSERT_EQ(at_device_open(device, port.path, c.line, message), AT_DEVICE_OPENED) << c.fault << message;
        const termios set = port.settings();
        EXPECT_EQ(cfgetospeed(&set), c.speed) << c.fault;
        EXPECT_EQ(device.speed, c.line.speed == 0 ? 38400 : c.line.speed) << c.fault;
        EXPECT_EQ(set.c_iflag & (IXON | IXOFF), c.input) << c.fault;
        EXPECT_EQ(set.c_cflag & CRTSCTS, c.control) << c.fault;
        at_device_close(device);
    }
}

TEST(AtDevice, APortThatIsNoTerminalIsUsedAsItIs)
{
    const pty port;
    termios raw = port.settings();
    cfmakeraw(&raw);
    cfsetspeed(&raw, B300);
    tcsetattr(port.slave, TCSANOW, &raw);
    at_device device, second;
    char message[512] = "";
    terminals_are_none = true;
    const int result = at_device_open(device, port.path, {9600, at_flow::RTSCTS}, message);
    const int again = at_device_open(second, port.path, {}, message);
    terminals_are_none = false;
    ASSERT_EQ(result, AT_DEVICE_OPENED) << message;
    EXPECT_EQ(again, AT_DEVICE_NOT_YET) << "it has one owner";
    const termios left = port.settings();
    EXPECT_EQ(cfgetospeed(&left), B300) << "there is no line to set";
    EXPECT_EQ(device.speed, 0U);
    char bytes[8] = "";
    EXPECT_EQ(at_device_read(device, bytes), 0) << "nothing yet is no loss";
    EXPECT_EQ(at_device_write(device, std::string("AT\r"), 1000), at_write::WRITTEN);
    EXPECT_EQ(read(port.master, bytes, sizeof bytes), 3);
    write(port.master, "OK", 2);
    EXPECT_TRUE(wait_until([&] { return at_device_read(device, bytes) == 2; }));
    const int64_t begin = now_ms();
    at_device_hang_up(device);
    EXPECT_LT(now_ms() - begin, 400) << "it has no control line to wait for";
    at_device_close(device);
}

TEST(AtDevice, WhatCannotBeOpenedIsToldWithItsCure)
{
    const host_place place;
    const std::string file = place.folder + "/file";
    std::ofstream(file) << "x";
    const pty port;
    const std::string lock = std::string("/var/lock/LCK..pts_") + (strrchr(port.path, '/') + 1);
    const struct {
        const char *fault;
        std::string path;
        int result;
        std::string message;
    } cases[] = {
        {"a device that may come", place.folder + "/none", AT_DEVICE_NOT_YET, "is missing"},
        {"a folder", place.folder, AT_DEVICE_NEVER, "is a folder: set VLK_AT_DEVICE"},
        {"a file", file, AT_DEVICE_NEVER, "is a regular file: set VLK_AT_DEVICE"},
        {"a device that swallows all", "/dev/null", AT_DEVICE_NEVER, "is no AT port"},
    };
    for (const auto &c : cases) {
        at_device device;
        char message[512] = "";
        EXPECT_EQ(at_device_open(device, c.path.c_str(), {}, message), c.result) << c.fault;
        EXPECT_THAT(message, HasSubstr(c.message)) << c.fault;
    }

    {
        const pty locked;
        chmod(locked.path, 0);
        const bool was_root = geteuid() == 0 && seteuid(65534) == 0;
        struct stat about {
        };
        at_device device;
        char message[512] = "";
        EXPECT_EQ(at_device_open(device, locked.path, {}, message), AT_DEVICE_NOT_YET);
        EXPECT_EQ(stat(locked.path, &about), 0);
        const group *const owner = getgrgid(about.st_gid);
        const std::string name = owner != nullptr ? owner->gr_name : "?";
        EXPECT_THAT(message,
                    HasSubstr(std::string("no permission for ") + locked.path + ": it belongs to group \"" +
                              name + "\"; add user " + std::to_string(geteuid()) + " to it"));
        EXPECT_EQ(was_root ? seteuid(0) : 0, 0);
    }

    process holder({"/bin/sleep", "60"});
    std::ofstream(lock) << holder.pid << "\n";
    if (access(lock.c_str(), F_OK) != 0)
        GTEST_SKIP() << "/var/lock is not ours";
    at_device device;
    char message[512] = "";
    ASSERT_TRUE(
        wait_until([&] { return content("/proc/" + std::to_string(holder.pid) + "/comm") == "sleep\n"; }));
    EXPECT_EQ(at_device_open(device, port.path, {}, message), AT_DEVICE_NOT_YET);
    EXPECT_THAT(message, HasSubstr("is held by process " + std::to_string(holder.pid) + " (sleep)"));
    unlink(lock.c_str());

    // Without a lock file: whoever has it open is found.
    process locker({"/usr/bin/flock", port.path, "sleep", "60"});
    const bool is_taken = wait_until([&] {
        const int result = at_device_open(device, port.path, {}, message);
        at_device_close(device);
        return result == AT_DEVICE_NOT_YET;
    });
    EXPECT_TRUE(is_taken);
    EXPECT_THAT(message, testing::AnyOf(HasSubstr("is held by process"), HasSubstr("is in use")));
}

} // namespace
