// Settings that are good; tests/host/start_test.cpp has those that are refused.
#include "host_config.h"

#include <cstdlib>
#include <map>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

namespace
{
using variables = std::map<std::string, std::string>;

/// The settings that the variables give, none of the test's own.
host_config settings_of(const variables &set)
{
    for (const char *name :
         {"VLK_RUNTIME_DIR", "XDG_RUNTIME_DIR", "VLK_AT_DEVICE", "VLK_AT_SPEED", "VLK_AT_FLOW", "VLK_USER",
          "VLK_GROUP", "VLK_LOG_LEVEL", "VLK_TRACE_LEVEL", "VLK_TIMEOUT_MAX"})
        unsetenv(name);
    for (const auto &[name, value] : set)
        setenv(name.c_str(), value.c_str(), 1);
    host_config config;
    char error[HOST_ERROR_SIZE] = "";
    EXPECT_EQ(host_read_config(&config, error, sizeof error), 0) << error;
    return config;
}

/// Another user than root for a while, where the test is root.
class as_user
{
public:
    as_user() { EXPECT_TRUE(geteuid() != 0 || seteuid(65534) == 0); }
    ~as_user() { seteuid(getuid()); }
    as_user(const as_user &) = delete;
    as_user &operator=(const as_user &) = delete;
};

TEST(HostConfig, NumbersMustCountInHexadecimalToo)
{
    const host_config config = settings_of({{"VLK_RUNTIME_DIR", "/x"},
                                            {"VLK_AT_SPEED", "0x1C200"},
                                            {"VLK_TIMEOUT_MAX", "0Xff"},
                                            {"VLK_TRACE_LEVEL", "010"}});
    EXPECT_EQ(config.line.speed, 115200U);
    EXPECT_EQ(config.timeout_max, 255);
    EXPECT_EQ(config.trace_level, 10) << "a leading zero makes nothing octal";
}

TEST(HostConfig, AFolderThatNobodyNamedMustBeRootsOrTheUsersOwn)
{
    const variables session = {{"XDG_RUNTIME_DIR", "/run/user/1"}};
    const variables named = {{"XDG_RUNTIME_DIR", "/run/user/1"}, {"VLK_RUNTIME_DIR", "/tmp/own//"}};
    if (geteuid() == 0) {
        EXPECT_STREQ(settings_of(session).paths.folder, "/run/vlk") << "root's is not a session's";
        EXPECT_STREQ(settings_of(named).paths.folder, "/tmp/own");
    }
    const as_user user;
    EXPECT_STREQ(settings_of(session).paths.folder, "/run/user/1/vlk");
    EXPECT_STREQ(settings_of(named).paths.folder, "/tmp/own");
    unsetenv("XDG_RUNTIME_DIR");
    unsetenv("VLK_RUNTIME_DIR");
    host_paths paths{};
    char error[HOST_ERROR_SIZE] = "";
    EXPECT_EQ(host_read_paths(&paths, error, sizeof error), -1) << "no folder is guessed";
    EXPECT_NE(std::string(error).find("set VLK_RUNTIME_DIR"), std::string::npos) << error;
}

TEST(HostConfig, OneFlowOrLevelMustNotBeTakenForAnother)
{
    const struct {
        const char *flow, *level;
        at_flow flow_read;
        int level_read;
    } cases[] = {{"none", "err", at_flow::NONE, LOG_ERR},
                 {"rtscts", "7", at_flow::RTSCTS, LOG_DEBUG},
                 {"xonxoff", "notice", at_flow::XONXOFF, LOG_NOTICE},
                 {"", "", at_flow::OWN, LOG_INFO}};
    for (const auto &each : cases) {
        const host_config config = settings_of(
            {{"VLK_RUNTIME_DIR", "/x"}, {"VLK_AT_FLOW", each.flow}, {"VLK_LOG_LEVEL", each.level}});
        EXPECT_EQ(config.line.flow, each.flow_read) << each.flow;
        EXPECT_EQ(config.log_level, each.level_read) << each.level;
    }
}
} // namespace
