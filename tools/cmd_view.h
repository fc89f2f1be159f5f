// kovtool view: the HTML view of an image (tools/view/view.html with the data embedded).
//
// The data is one JSON object: file and layout names, the image in base64, the block names, the
// headers as [offset, size, KOV type, KOV id, stored checksum, data checksum, label], the nodes
// of the field walk in layout order as [kind, distance back to the parent (0: none), path step,
// first bit (-1: not placed), width, block index, text, header index], the table of path steps
// the nodes point into (".Volume", "[2]", "Channel bank[2]"), the faults of a salvaged image and
// the library's refusal of it ("" for a whole image). A value's raw bits are not repeated: the
// page reads them from the image. The steps and the distances keep a node to about 35 bytes.
#ifndef KOV_TOOLS_CMD_VIEW_H
#define KOV_TOOLS_CMD_VIEW_H

#include <string>

#include "tools/cmd_shared.h"
#include "tools/cmd_stream.h"
#include "tools/toolio.h"

// Writes the page of src to out with its data in place of its mark, as the walk goes, one
// instance at a time. Throws only what writing out throws.
void kovToolWriteView(const CKovJsonLayout& layout, const KovToolSource& src,
                      const std::string& file, const std::string& layoutFile, KovToolStream& out);

KovToolCommand kovToolAddView(CLI::App& app);

#endif  // KOV_TOOLS_CMD_VIEW_H
