// An IPC base and a runtime folder of the test's own, so that tests run side by side.
#ifndef HOST_PLACE_H
#define HOST_PLACE_H

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <unistd.h>

#include "host_start.h"

/// Sets the environment and the settings of this process. The end removes the folder and all System V objects.
class host_place
{
public:
    host_place()
    {
        remove_objects(); // of a test that was killed
        char pattern[] = "/tmp/vlk-test-XXXXXX";
        folder = mkdtemp(pattern);
        setenv("VLK_RUNTIME_DIR", folder.c_str(), 1);
        setenv("VLK_IPC_BASE", std::to_string(base).c_str(), 1);
        for (const char *name : {"VLK_AT_DEVICE", "VLK_USER", "VLK_GROUP", "VLK_TRACE_LEVEL"})
            unsetenv(name);
        load_settings();
    }
    host_place(const host_place &) = delete;
    host_place &operator=(const host_place &) = delete;
    ~host_place()
    {
        remove_objects();
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    /// Once more, after a change of the environment.
    void load_settings() const
    {
        char error[HOST_ERROR_SIZE] = "";
        EXPECT_EQ(host_load_settings(error, sizeof error), 0) << error;
    }

    const uint32_t base = 0x40000000U + static_cast<uint32_t>(getpid()) * HOST_BASE_DISTANCE;
    std::string folder;

private:
    void remove_objects() const
    {
        for (uint32_t key = 0; key < HOST_BASE_DISTANCE; ++key)
            msgctl(msgget(static_cast<key_t>(base + key), 0), IPC_RMID, nullptr);
        semctl(semget(static_cast<key_t>(base + HOST_CLAIM_KEY), 0, 0), 0, IPC_RMID);
    }
};

#endif
