// The customer's hooks into report handling. Main thread only.
#ifndef OVEL_COMMON_VLK_REPORT_CALLBACK_H
#define OVEL_COMMON_VLK_REPORT_CALLBACK_H

#include <cstdint>

/// Values of sim_state without a usable card.
inline constexpr int32_t SIM_STATE_INVALID = 0;
inline constexpr int32_t SIM_STATE_NO_CARD = 255;

/// Runs for every ^SIMST report: notifies module 1 that the IMSI may have changed, unless *sim_state is one of the two
/// above. A null pointer is traced.
void ovel_hook_vlk_report_imsi_change(const int32_t *sim_state);

/// Runs last for every ^SIMREFRESH report: notifies module 1. A report_callback that reads neither argument.
void ovel_hook_vlk_report_sim_refresh(char *line, int32_t length);

#endif
