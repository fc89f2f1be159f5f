// kovtool salvage: kovjson/salvage.h from the command line.
#ifndef KOV_TOOLS_CMD_SALVAGE_H
#define KOV_TOOLS_CMD_SALVAGE_H

#include <string>

#include "kovjson/salvage.h"
#include "tools/toolio.h"

// One line a fault ("IMAGE: 0x0000B4: bad checksum: ..."), then a line of totals.
std::string kovToolSalvageReport(const KovJsonSalvage& salvage, const std::string& image);

KovToolCommand kovToolAddSalvage(CLI::App& app);

#endif  // KOV_TOOLS_CMD_SALVAGE_H
