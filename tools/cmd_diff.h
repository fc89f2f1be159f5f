// kovtool diff: field-level differences (kovjson/fielddiff.h) between images and values files.
#ifndef KOV_TOOLS_CMD_DIFF_H
#define KOV_TOOLS_CMD_DIFF_H

#include "tools/toolio.h"

KovToolCommand kovToolAddDiff(CLI::App& app);

#endif  // KOV_TOOLS_CMD_DIFF_H
