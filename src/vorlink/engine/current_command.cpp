#include "current_command.h"

#include <cstring>
#include <mutex>

#include "bounded.h"

char g_atCmdStr[CURRENT_COMMAND_SIZE];

namespace
{
std::mutex current_lock; // held for a copy of 64 bytes, never for a command
char g_currentAtCmd[CURRENT_COMMAND_SIZE];
} // namespace

int current_at_cmd_set(const char *at_match_str)
{
    const std::lock_guard<std::mutex> lock(current_lock);
    if (strncpy_s(g_currentAtCmd, sizeof g_currentAtCmd, at_match_str, sizeof g_currentAtCmd) != 0)
        return -1;
    g_currentAtCmd[sizeof g_currentAtCmd - 1] = '\0';
    return 0;
}

void current_at_cmd_clear()
{
    const std::lock_guard<std::mutex> lock(current_lock);
    memset(g_currentAtCmd, 0, sizeof g_currentAtCmd);
}

void current_at_cmd_copy(char (&text)[CURRENT_COMMAND_SIZE])
{
    const std::lock_guard<std::mutex> lock(current_lock);
    memcpy(text, g_currentAtCmd, sizeof text);
}
