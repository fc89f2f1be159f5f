// kovtool's commands on a layout file alone: verify, lint and tree.
#ifndef KOV_TOOLS_LAYOUTCMDS_H
#define KOV_TOOLS_LAYOUTCMDS_H

#include <vector>

#include "tools/toolio.h"

// Adds verify, lint and tree to app, in that order.
std::vector<KovToolCommand> kovToolAddLayoutCommands(CLI::App& app);

#endif  // KOV_TOOLS_LAYOUTCMDS_H
