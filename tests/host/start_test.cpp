// The start of a whole process: arguments, settings, the claim.
#include <csignal>
#include <cstdio>
#include <string>

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host_place.h"

namespace
{

using testing::HasSubstr;

struct outcome {
    std::string output; // standard output and error
    int exit_code;
};

/// Runs a probe to its end.
outcome run(const std::string &settings, const std::string &arguments = "")
{
    const std::string command =
        "VLK_AT_DEVICE=/dev/null " + settings + " " HOST_PROBE " " + arguments + " 2>&1";
    FILE *const pipe = popen(command.c_str(), "r");
    std::string output;
    for (int byte = fgetc(pipe); byte != EOF; byte = fgetc(pipe))
        output += static_cast<char>(byte);
    return {output, WEXITSTATUS(pclose(pipe))};
}

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
        {"a device is cut", "VLK_AT_DEVICE=" + std::string(256, 'd'), "", 78, "VLK_AT_DEVICE is longer"},
        {"no socket address holds it", "VLK_RUNTIME_DIR=/" + longest, "", 78, "longer than 96"},
        {"a very long folder", "VLK_RUNTIME_DIR=/" + std::string(5000, 'f'), "", 78, "longer than 96"},
        {"a folder that is a file", "VLK_RUNTIME_DIR=/dev/null", "", 78, "is no folder"},
        {"others may exchange the files", "VLK_RUNTIME_DIR=/tmp", "", 78, "other users can write"},
        {"a private key", "VLK_IPC_BASE=0", "", 78, "VLK_IPC_BASE is \"0\""},
        {"bases that share keys", "VLK_IPC_BASE=0x766c6b01", "", 78, "multiple of 16"},
        {"a number with a tail", "VLK_IPC_BASE=16k", "", 78, "VLK_IPC_BASE is \"16k\""},
        {"a number without digits", "VLK_IPC_BASE=0x", "", 78, "VLK_IPC_BASE is \"0x\""},
        {"a number of 33 bits", "VLK_IPC_BASE=0x100000010", "", 78, "VLK_IPC_BASE"},
        {"a negative level", "VLK_TRACE_LEVEL=-1", "", 78, "VLK_TRACE_LEVEL is \"-1\""},
        {"nobody to become", "VLK_USER=no-such-user", "", 78, "VLK_USER is \"no-such-user\""},
    };
    const host_place place;
    for (const auto &c : cases) {
        const auto [line, exit_code] = run(c.settings, c.arguments);
        EXPECT_EQ(exit_code, c.exit_code) << c.fault << ": " << line;
        EXPECT_EQ(line.find("vorlink: "), 0U) << c.fault << ": " << line;
        EXPECT_EQ(line.find('\n'), line.size() - 1) << c.fault << ": " << line;
        EXPECT_THAT(line, HasSubstr(c.message)) << c.fault;
    }
    for (const char *option : {"--help", "-h", "--version"}) {
        const auto [text, exit_code] = run("VLK_AT_DEVICE=", option);
        EXPECT_EQ(exit_code, 0) << option << " needs no settings";
        EXPECT_THAT(text, HasSubstr("vorlink")) << option;
    }
}

TEST(start, a_base_has_one_daemon_until_it_dies)
{
    const host_place place;
    const std::string second_folder = place.folder + "/second";
    FILE *const first = popen("VLK_AT_DEVICE=/dev/null exec " HOST_PROBE " stay", "r");
    pid_t pid = 0;
    ASSERT_EQ(fscanf(first, "%d started", &pid), 1);

    const outcome second = run("VLK_RUNTIME_DIR=" + second_folder);
    EXPECT_EQ(second.exit_code, 69);
    EXPECT_THAT(second.output, HasSubstr("pid " + std::to_string(pid)));
    EXPECT_NE(access(second_folder.c_str(), F_OK), 0) << "a refused daemon must leave nothing";
    kill(pid, SIGKILL);
    pclose(first);
    EXPECT_EQ(run("").exit_code, 0) << "the claim outlives a killed daemon";
}

} // namespace
