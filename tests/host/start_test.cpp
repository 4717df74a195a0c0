// The start of a whole process: arguments, settings, the claim on its folder.
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "../process.h"
#include "host_place.h"

namespace
{

using testing::HasSubstr;

/// A process that starts as the daemon does; standard error goes where standard output goes.
struct probe : process {
    explicit probe(const std::string &settings, const std::string &arguments = "")
        : process({"/bin/sh", "-c",
                   "VLK_LOG_LEVEL=err VLK_AT_DEVICE=/dev/null " + settings + " exec " HOST_PROBE " " +
                       arguments + " 2>&1"})
    {
    }
};

TEST(HostStart, AWrongStartNamesCauseAndCureInOneLine)
{
    const std::string longest(96, 'f');
    struct {
        const char *fault;
        std::string settings;
        const char *arguments;
        int exit_code;
        const char *message; // a part of the one line
    } const cases[] = {
        {"an option is ignored", "", "--trace", 2, "unknown option \"--trace\""},
        {"an option behind the mode is ignored", "", "1 -x", 2, "unknown option \"-x\""},
        {"no device", "VLK_AT_DEVICE=", "", 78, "/dev/tty"},
        {"a device is cut", "VLK_AT_DEVICE=" + std::string(256, 'd'), "", 78, "VLK_AT_DEVICE is longer"},
        {"no socket address holds it", "VLK_RUNTIME_DIR=/" + longest, "", 78, "longer than 96"},
        {"a very long folder", "VLK_RUNTIME_DIR=/" + std::string(5000, 'f'), "", 78, "longer than 96"},
        {"a folder that depends on the start", "VLK_RUNTIME_DIR=run", "", 78, "absolute"},
        {"no folder can be made there", "VLK_RUNTIME_DIR=/proc/no/vlk", "", 78, "set VLK_RUNTIME_DIR"},
        {"a folder that is a file", "VLK_RUNTIME_DIR=/dev/null", "", 78, "is no folder"},
        {"others may exchange the files", "VLK_RUNTIME_DIR=/tmp", "", 78, "other users can write"},
        {"no time at all", "VLK_TIMEOUT_MAX=0", "", 78, "VLK_TIMEOUT_MAX is \"0\""},
        {"more than a day", "VLK_TIMEOUT_MAX=86401", "", 78, "from 1 to 86400"},
        {"a number with a tail", "VLK_TIMEOUT_MAX=16k", "", 78, "VLK_TIMEOUT_MAX is \"16k\""},
        {"a number without digits", "VLK_TIMEOUT_MAX=0x", "", 78, "VLK_TIMEOUT_MAX is \"0x\""},
        {"a number of 33 bits", "VLK_TIMEOUT_MAX=0x100000010", "", 78, "VLK_TIMEOUT_MAX"},
        {"a negative level", "VLK_TRACE_LEVEL=-1", "", 78, "VLK_TRACE_LEVEL is \"-1\""},
        {"no number at all", "VLK_TRACE_LEVEL=loud", "", 78, "VLK_TRACE_LEVEL is \"loud\""},
        {"a level that is none", "VLK_LOG_LEVEL=8", "", 78, "VLK_LOG_LEVEL is \"8\""},
        {"a speed of no port", "VLK_AT_SPEED=115201", "", 78, "VLK_AT_SPEED is \"115201\""},
        {"a speed of zero", "VLK_AT_SPEED=0", "", 78, "VLK_AT_SPEED is \"0\""},
        {"a speed with its unit", "VLK_AT_SPEED=9600bps", "", 78, "VLK_AT_SPEED is \"9600bps\""},
        {"a flow control by another name", "VLK_AT_FLOW=hardware", "", 78, "none, rtscts or xonxoff"},
        {"a group of nobody", "VLK_GROUP=no-such-group", "", 78, "create"},
        {"nobody to become", "VLK_USER=no-such-user", "", 78, "VLK_USER is \"no-such-user\""},
    };
    const host_place place;
    for (const auto &c : cases) {
        probe started(c.settings, c.arguments);
        EXPECT_EQ(started.wait(), c.exit_code) << c.fault << ": " << started.out;
        const std::string &line = started.out;
        EXPECT_EQ(line.find("vorlink: "), 0U) << c.fault << ": " << line;
        EXPECT_EQ(line.find('\n'), line.size() - 1) << c.fault << ": " << line;
        EXPECT_THAT(line, HasSubstr(c.message)) << c.fault;
    }
    for (const char *option : {"--help", "-h", "--version"}) {
        probe asked("VLK_AT_DEVICE=", option);
        EXPECT_EQ(asked.wait(), 0) << option << " needs no settings";
        EXPECT_THAT(asked.out, HasSubstr("vorlink")) << option;
    }
}

TEST(HostStart, AFolderHasOneDaemonUntilItDies)
{
    const host_place place;
    probe first("", "stay");
    ASSERT_TRUE(first.wait_for_output("started\n"));
    const std::string pid = first.out.substr(0, first.out.find(' '));
    {
        probe second("");
        EXPECT_EQ(second.wait(), 69);
        EXPECT_THAT(second.out, testing::AllOf(HasSubstr("pid " + pid), HasSubstr("VLK_RUNTIME_DIR")));
        EXPECT_EQ(probe("VLK_RUNTIME_DIR=" + place.folder + "/second").wait(), 0)
            << "two folders, two daemons";
    }
    first.kill(SIGKILL);
    first.wait();
    EXPECT_EQ(probe("").wait(), 0) << "the claim outlives a killed daemon";
}

TEST(HostStart, FilesThatSomebodyPutInItsPlaceAreRefusedAndLeftAlone)
{
    const host_place place;
    const std::string victim = place.folder + "/victim";
    const std::string lock = place.folder + "/lock";
    const auto expect_refusal = [&](const char *fault, const char *message) {
        probe started("");
        EXPECT_NE(started.wait(), 0) << fault;
        EXPECT_THAT(started.out, HasSubstr(message)) << fault;
        struct stat state = {};
        ASSERT_EQ(stat(victim.c_str(), &state), 0);
        EXPECT_EQ(state.st_mode & 07777U, 0644U) << fault << ": somebody's file was changed";
        EXPECT_EQ(state.st_size, 6) << fault;
        std::filesystem::remove(lock);
    };
    std::ofstream(victim) << "victim";
    chmod(victim.c_str(), 0644);
    std::filesystem::create_hard_link(victim, lock);
    expect_refusal("a hard link", "is not this daemon's file");
    std::filesystem::create_symlink(victim, lock);
    expect_refusal("a symbolic link", "cannot open");
    mkfifo(lock.c_str(), 0666);
    expect_refusal("a pipe", "is not this daemon's file");
}

TEST(HostStart, ClosedStandardDescriptorsAreNeverAnythingElse)
{
    const host_place place;
    for (const char *closed : {"<&-", ">&-", "2>&-", "<&- >&- 2>&-"}) {
        process started(
            {"/bin/sh", "-c", std::string("VLK_AT_DEVICE=/dev/null exec " HOST_PROBE " ") + closed});
        EXPECT_EQ(started.wait(), 0) << closed;
        std::ifstream lock(place.folder + "/lock");
        std::string text;
        std::getline(lock, text);
        EXPECT_EQ(text, std::to_string(started.pid)) << closed << ": the lock took what was to be printed";
    }
}

} // namespace
