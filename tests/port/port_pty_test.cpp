// The terminal of a port, opened as programs do.
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "port_pty.h"

namespace
{
using std::string;
namespace fs = std::filesystem;

class PortPty : public testing::Test
{
protected:
    PortPty()
    {
        string pattern = fs::temp_directory_path() / "vlk-pty-XXXXXX";
        folder = mkdtemp(pattern.data());
        fs::permissions(folder, fs::perms::all);
        link = folder / "modem";
    }
    ~PortPty() override { fs::remove_all(folder); }

    int open_link() const { return open(link.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC); }

    fs::path folder;
    fs::path link;
};

string read_all(int fd)
{
    std::array<char, 256> bytes{};
    pollfd state{fd, POLLIN, 0};
    if (poll(&state, 1, 2000) != 1)
        return {};
    const ssize_t count = read(fd, bytes.data(), bytes.size());
    return count > 0 ? string(bytes.data(), static_cast<size_t>(count)) : string();
}

TEST_F(PortPty, EachProgramFindsARawTerminalAndNothingOfTheOneBefore)
{
    port_pty pty;
    ASSERT_EQ(pty.create({link.string(), static_cast<gid_t>(-1), 0660}), "");
    EXPECT_FALSE(pty.is_open());
    EXPECT_EQ(fs::read_symlink(link), pty.device());
    for (int program = 0; program < 3; program++) {
        const int fd = open_link();
        ASSERT_GE(fd, 0) << "program " << program;
        EXPECT_EQ(pty.look(), port_change::OPENED) << "program " << program;
        termios settings{};
        ASSERT_EQ(tcgetattr(fd, &settings), 0);
        EXPECT_EQ(settings.c_lflag & (ECHO | ICANON | ISIG), 0U);
        EXPECT_EQ(settings.c_oflag & OPOST, 0U);
        EXPECT_EQ(settings.c_cc[VMIN], 1);
        EXPECT_EQ(settings.c_cc[VTIME], 0);
        pollfd state{fd, POLLIN, 0};
        EXPECT_EQ(poll(&state, 1, 0), 0) << "what another did not read is there";
        ASSERT_EQ(write(fd, "AT\r\n", 4), 4);
        EXPECT_EQ(read_all(pty.terminal()), "AT\r\n");

        // what programs do and leave behind
        EXPECT_EQ(tcsendbreak(fd, 0), 0);
        EXPECT_EQ(tcflush(fd, TCIOFLUSH), 0);
        settings.c_lflag |= ECHO | ICANON;
        settings.c_cflag |= CRTSCTS;
        cfsetspeed(&settings, B9600);
        settings.c_cc[VMIN] = 0;
        EXPECT_EQ(tcsetattr(fd, TCSANOW, &settings), 0);
        EXPECT_EQ(ioctl(fd, TIOCEXCL), 0);
        ASSERT_EQ(write(pty.terminal(), "unread\r\n", 8), 8);
        close(fd);
        for (int times = 0; times < 3 && pty.look() != port_change::CLOSED; times++)
            read_all(pty.terminal()); // what its echo sent back
        EXPECT_FALSE(pty.is_open()) << "program " << program;
        EXPECT_EQ(fs::read_symlink(link), pty.device());
    }
}

TEST_F(PortPty, TellsWhoOpensFromWhoStays)
{
    port_pty pty;
    ASSERT_EQ(pty.create({link.string(), static_cast<gid_t>(-1), 0660}), "");
    const int first = open_link();
    const int second = open_link(); // one program may open it twice
    EXPECT_EQ(pty.look(), port_change::OPENED);
    close(first);
    const int again = open_link(); // a shell's redirection while its descriptor 3 stays open
    EXPECT_EQ(pty.look(), port_change::NONE);
    close(again);
    close(second);
    const int next = open_link(); // before anybody looked
    EXPECT_EQ(pty.look(), port_change::REOPENED);
    close(next);
    EXPECT_EQ(pty.look(), port_change::CLOSED);

    const int hasty = open_link(); // writes and is gone
    ASSERT_EQ(write(hasty, "AT\r", 3), 3);
    close(hasty);
    EXPECT_EQ(pty.look(), port_change::OPENED);
    EXPECT_EQ(pty.look(), port_change::NONE) << "before all that it wrote is read";
    EXPECT_EQ(read_all(pty.terminal()), "AT\r");
    EXPECT_EQ(pty.look(), port_change::CLOSED);
    EXPECT_EQ(pty.look(), port_change::NONE);
}

TEST_F(PortPty, OneTerminalALink)
{
    fs::create_symlink("/dev/pts/999999", link); // left by a port that was killed
    {
        port_pty pty;
        ASSERT_EQ(pty.create({link.string(), getgid(), 0660}), "");
        struct stat about {
        };
        ASSERT_EQ(stat(link.c_str(), &about), 0);
        EXPECT_EQ(about.st_mode & 0777, 0660U);
        EXPECT_EQ(about.st_gid, getgid());

        port_pty another;
        EXPECT_NE(another
                      .create({(folder / "../").string() + folder.filename().string() + "/modem",
                               static_cast<gid_t>(-1), 0660})
                      .find("another port serves"),
                  string::npos);
        EXPECT_EQ(fs::read_symlink(link), pty.device());
    }
    EXPECT_FALSE(fs::is_symlink(link)) << "removed at the end";
    std::ofstream(link) << "a file";
    port_pty pty;
    EXPECT_NE(pty.create({link.string(), static_cast<gid_t>(-1), 0660}).find("is no link"), string::npos);
    EXPECT_TRUE(fs::is_regular_file(link));
    port_pty nowhere;
    EXPECT_NE(nowhere.create({(folder / "none/modem").string(), static_cast<gid_t>(-1), 0660}), "");
}

/// Root may open a terminal that is locked, so the test becomes another user.
TEST_F(PortPty, ALockLeftBehindKeepsNobodyOut)
{
    const pid_t child = fork();
    if (child == 0) {
        const bool can_leave =
            getuid() != 0 || (setgroups(0, nullptr) == 0 && setgid(65534) == 0 && setuid(65534) == 0);
        port_pty pty;
        const bool made = can_leave && pty.create({link.string(), static_cast<gid_t>(-1), 0660}).empty();
        bool works = made;
        for (int program = 0; works && program < 3; program++) {
            const int fd = open_link();
            works = fd >= 0 && pty.look() == port_change::OPENED && ioctl(fd, TIOCEXCL) == 0 &&
                    open_link() < 0 && write(fd, "AT", 2) == 2 && read_all(pty.terminal()) == "AT";
            close(fd);
            works = works && pty.look() == port_change::CLOSED;
        }
        _exit(works ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}
} // namespace
