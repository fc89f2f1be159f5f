// kovtool get and set: values of an image by path (kovjson/valuepath.h).
#ifndef KOV_TOOLS_CMD_GETSET_H
#define KOV_TOOLS_CMD_GETSET_H

#include <string>
#include <vector>

#include "tools/cmd_shared.h"
#include "tools/toolio.h"

// The image of src's values with each "PATH=VALUE" of assignments changed, with partition
// prefixes when prefixes. Throws KovJsonError for a bad path or value, KovToolError when the
// library reports a problem while packing.
std::vector<uint8_t> kovToolSetValues(const CKovJsonLayout& layout, const KovToolSource& src,
                                      const std::vector<std::string>& assignments, bool prefixes);

std::vector<KovToolCommand> kovToolAddGetSet(CLI::App& app);

#endif  // KOV_TOOLS_CMD_GETSET_H
