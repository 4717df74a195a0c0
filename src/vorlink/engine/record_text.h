// Texts of a client's record. A text without a terminator ends at the end of its area.
#ifndef RECORD_TEXT_H
#define RECORD_TEXT_H

#include <algorithm>
#include <cstring>
#include <string_view>

#include "at_cmd_msg.h"

inline std::string_view match_text(const at_cmd_msg &msg)
{
    return {msg.at_match_str, strnlen(msg.at_match_str, sizeof msg.at_match_str)};
}

inline std::string_view command_text(const at_cmd_msg &msg)
{
    return {msg.snd_rcv_msg.cmd, strnlen(msg.snd_rcv_msg.cmd, sizeof msg.snd_rcv_msg.cmd)};
}

inline std::string_view response_text(const at_cmd_msg &msg)
{
    return {msg.snd_rcv_msg.rmsg, strnlen(msg.snd_rcv_msg.rmsg, sizeof msg.snd_rcv_msg.rmsg)};
}

/// Whether the response text holds the expected prefix; false when none is expected.
inline bool response_has_match(const at_cmd_msg &msg)
{
    const std::string_view match = match_text(msg);
    return !match.empty() && response_text(msg).find(match) != std::string_view::npos;
}

inline void clear_response_text(at_cmd_msg &msg)
{
    memset(msg.snd_rcv_msg.rmsg, 0, sizeof msg.snd_rcv_msg.rmsg);
}

/// Stores the length of the response text, at most what fits.
inline void set_rsp_len(at_cmd_msg &msg, uint32_t length)
{
    msg.snd_rcv_msg.rsp_len = std::min<uint32_t>(length, MAX_ATCMD_REPORT_SIZE);
}

/// Replaces the response block, at_match_str to rsp_len.
inline void put_response_block(at_cmd_msg &msg, const at_response_block &block)
{
    memcpy(reinterpret_cast<char *>(&msg) + offsetof(at_cmd_msg, at_match_str), &block, sizeof block);
}

/// Zeroes the response block.
inline void clear_response_block(at_cmd_msg &msg)
{
    put_response_block(msg, at_response_block{});
}

#endif
