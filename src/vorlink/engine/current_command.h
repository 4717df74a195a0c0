// What the running command is: its text for the report gate, its expected prefix for the stop-scan handler.
#ifndef CURRENT_COMMAND_H
#define CURRENT_COMMAND_H

#include <cstddef>

inline constexpr std::size_t CURRENT_COMMAND_SIZE = 64;

/// The first 63 bytes of the latest normal command. Kept after the command ends. Main thread only.
extern char g_atCmdStr[CURRENT_COMMAND_SIZE];

/// Sets g_currentAtCmd to the expected prefix of the command that starts. Returns 0, or -1 when the text, of at most
/// 64 bytes, has no terminator; nothing is current then. Main thread.
int current_at_cmd_set(const char *at_match_str);

/// Clears g_currentAtCmd. Main thread.
void current_at_cmd_clear();

/// Copies g_currentAtCmd, empty when no command runs, terminated. Any thread.
void current_at_cmd_copy(char (&text)[CURRENT_COMMAND_SIZE]);

#endif
