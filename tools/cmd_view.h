// kovtool view: the HTML view of an image (tools/view/view.html with the data embedded).
//
// The data is one JSON object: file and layout names, the image in base64, the block names, the
// headers as [offset, size, KOV type, KOV id, stored checksum, data checksum, label] and the
// nodes of the field walk as [kind, parent, path step, first bit (-1: not placed), width,
// block index, text, raw bits, header index], the faults of a salvaged image and the library's
// refusal of it ("" for a whole image).
#ifndef KOV_TOOLS_CMD_VIEW_H
#define KOV_TOOLS_CMD_VIEW_H

#include <string>

#include "tools/cmd_shared.h"
#include "tools/toolio.h"

std::string kovToolViewData(const CKovJsonLayout& layout, const KovToolSource& src,
                            const std::string& file, const std::string& layoutFile);
// The page with data in place of its mark.
std::string kovToolViewHtml(const std::string& data);

KovToolCommand kovToolAddView(CLI::App& app);

#endif  // KOV_TOOLS_CMD_VIEW_H
