// What the daemon says about itself.
#ifndef VLK_CTL_STATUS_H
#define VLK_CTL_STATUS_H

#include <map>
#include <optional>
#include <string>

#include "ctl_commands.h"

/// By name, sorted.
using status_values = std::map<std::string, std::string>;

/// The lines "name value" of a status.
status_values status_values_of(const std::string &text);

int run_status(const common_options &common, std::optional<double> wait_ready);

/// Shows the status again every second, until Ctrl-C; on a terminal in place of the previous one.
int watch_status(const common_options &common);

#endif
