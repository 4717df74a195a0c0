// The words of the AT language that more than one room needs: each list stands here and nowhere else.
#ifndef AT_WORDS_H
#define AT_WORDS_H

#include <array>
#include <cstdint>
#include <string_view>

#include "at_cmd_msg.h"

struct at_final_result {
    int32_t code; ///< a ret_val
    const char *text;
};

/// The final results, in the order of comparison. A line that begins with one of these texts is a final result.
inline constexpr std::array<at_final_result, 12> AT_FINAL_RESULTS = {{
    {AT_OK, "OK"},
    {AT_CME_ERROR, "+CME ERROR"},
    {AT_CMS_ERROR, "+CMS ERROR"},
    {AT_ERROR, "ERROR"},
    {AT_NO_CARRIER, "NO CARRIER"},
    {AT_NO_ANSWER, "NO ANSWER"},
    {AT_COMMAND_NOT_SUPPORT, "COMMAND NOT SUPPORT"},
    {AT_TOO_MANY_PARAMETERS, "TOO MANY PARAMETERS"},
    {AT_ATE0, "ATE0"},
    {AT_CONNECT, "CONNECT"},
    {AT_NO_DIALTONE, "NO DIALTONE"},
    {AT_BUSY, "BUSY"},
}};

/// Beginnings of the command lines that open a two-phase exchange; upper and lower case count alike.
inline constexpr const char *AT_PROMPTING_COMMANDS[] = {"AT+CMGS=", "AT+CMGW=", "AT^HCMGS=", "AT^HCMGW="};

/// Whether the command asks for the list of networks, which takes minutes. Mixed case is not recognised.
inline bool at_asks_for_network_list(std::string_view command)
{
    return command.find("+COPS=?") != std::string_view::npos ||
           command.find("+cops=?") != std::string_view::npos;
}

#endif
