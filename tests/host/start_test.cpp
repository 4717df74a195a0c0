// The start of a whole process: arguments, settings, the claim.
#include <gmock/gmock.h>

#include "../process.h"
#include "host_place.h"

namespace
{

using testing::HasSubstr;

/// A process that starts as the daemon does; standard error goes where standard output goes.
struct probe : process {
    explicit probe(const std::string &settings, const std::string &arguments = "")
        : process({"/bin/sh", "-c",
                   "VLK_AT_DEVICE=/dev/null " + settings + " exec " HOST_PROBE " " + arguments + " 2>&1"})
    {
    }
};

TEST(start, a_wrong_start_names_cause_and_cure_in_one_line)
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
        {"a private key", "VLK_IPC_BASE=0", "", 78, "VLK_IPC_BASE is \"0\""},
        {"bases that share keys", "VLK_IPC_BASE=0x766c6b01", "", 78, "multiple of 16"},
        {"a number with a tail", "VLK_IPC_BASE=16k", "", 78, "VLK_IPC_BASE is \"16k\""},
        {"a number without digits", "VLK_IPC_BASE=0x", "", 78, "VLK_IPC_BASE is \"0x\""},
        {"a number of 33 bits", "VLK_IPC_BASE=0x100000010", "", 78, "VLK_IPC_BASE"},
        {"a negative level", "VLK_TRACE_LEVEL=-1", "", 78, "VLK_TRACE_LEVEL is \"-1\""},
        {"no number at all", "VLK_TRACE_LEVEL=loud", "", 78, "VLK_TRACE_LEVEL is \"loud\""},
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

TEST(start, a_base_has_one_daemon_until_it_dies)
{
    const host_place place;
    const std::string second_folder = place.folder + "/second";
    const uint32_t second_base = place.base + 0x20000000;
    probe first("", "stay");
    ASSERT_TRUE(first.wait_for_output("started\n"));
    const std::string pid = first.out.substr(0, first.out.find(' '));

    for (const std::string &other :
         {"VLK_RUNTIME_DIR=" + second_folder, "VLK_IPC_BASE=" + std::to_string(second_base)}) {
        probe second(other);
        EXPECT_EQ(second.wait(), 69) << other;
        EXPECT_THAT(second.out, testing::AllOf(HasSubstr("pid " + pid), HasSubstr("VLK_IPC_BASE")));
    }
    EXPECT_NE(access(second_folder.c_str(), F_OK), 0) << "a refused daemon must leave nothing";
    semctl(semget(static_cast<key_t>(second_base + HOST_CLAIM_KEY), 0, 0), 0, IPC_RMID);
    first.kill(SIGKILL);
    first.wait();
    EXPECT_EQ(probe("").wait(), 0) << "the claim outlives a killed daemon";
}

} // namespace
