// vlkctl sms: short messages from the command line.
#ifndef VLK_CTL_SMS_H
#define VLK_CTL_SMS_H

#include <functional>

#include <CLI/CLI.hpp>

#include "ctl_commands.h"

/// Adds the subcommand. When it was given, `chosen` runs it and returns the exit code. Everything referred to must live
/// until then.
void add_sms(CLI::App &app, const common_options &common, std::function<int()> &chosen);

#endif
