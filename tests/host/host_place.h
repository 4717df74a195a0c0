// A runtime folder of the test's own, so that tests run side by side.
#ifndef HOST_PLACE_H
#define HOST_PLACE_H

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include <gtest/gtest.h>
#include <unistd.h>

#include "host_start.h"

/// Sets the environment and the settings of this process. Its end removes the folder.
class host_place
{
public:
    host_place()
    {
        char pattern[] = "/tmp/vlk-test-XXXXXX";
        folder = mkdtemp(pattern);
        setenv("VLK_RUNTIME_DIR", folder.c_str(), 1);
        for (const char *name : {"VLK_AT_DEVICE", "VLK_AT_SPEED", "VLK_AT_FLOW", "VLK_USER", "VLK_GROUP",
                                 "VLK_LOG_LEVEL", "VLK_TRACE_LEVEL", "VLK_TIMEOUT_MAX"})
            unsetenv(name);
        load_settings();
    }
    host_place(const host_place &) = delete;
    host_place &operator=(const host_place &) = delete;
    ~host_place()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    /// Reads them once more, after a change of the environment.
    void load_settings() const
    {
        char error[HOST_ERROR_SIZE] = "";
        EXPECT_EQ(host_load_settings(error, sizeof error), 0) << error;
    }

    std::string folder;
};

#endif
