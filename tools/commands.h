// The subcommands of kovtool that live in modules of their own: each module adds its subcommand
// to the application and returns how to run it.
#ifndef KOV_TOOLS_COMMANDS_H
#define KOV_TOOLS_COMMANDS_H

#include <vector>

#include "tools/toolio.h"

// Adds every such subcommand to app, in the order --help lists them.
std::vector<KovToolCommand> kovToolAddCommands(CLI::App& app);

#endif  // KOV_TOOLS_COMMANDS_H
