// vlkctl port: a pseudo-terminal that old programs open as if it were the modem.
#ifndef VLK_CTL_PORT_H
#define VLK_CTL_PORT_H

#include <functional>

#include <CLI/CLI.hpp>

#include "ctl_commands.h"

/// Adds the subcommand. When it was given, `chosen` serves until a signal ends it and returns the exit code. Everything
/// referred to must live until then.
void add_port(CLI::App &app, const common_options &common, std::function<int()> &chosen);

#endif
