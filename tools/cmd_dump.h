// kovtool dump: the field walk of an image as a table for people or as JSON for programs.
//
// The table has one line a header, a value and a checksum, in image order: byte offset, MSB of
// the first bit (values only), width in bits, raw bits in hex, and what lies there:
//   0x000018         48  020100010014      header General: KOV name 0x02010001, size 20
//   0x00001E  7       4  9                 General.Volume = 9
//   0x00002C         16  EB5C              checksum General: good
#ifndef KOV_TOOLS_CMD_DUMP_H
#define KOV_TOOLS_CMD_DUMP_H

#include <string>

#include "tools/cmd_shared.h"
#include "tools/cmd_stream.h"
#include "tools/toolio.h"

// The table of src, and the same as JSON (imageSize, headers, damage when the header walk ended
// early, values), written to out as the walk goes, one instance at a time; a large image is
// never held as one tree or one text. Throw only what writing out throws.
void kovToolDumpText(const CKovJsonLayout& layout, const KovToolSource& src, KovToolStream& out);
void kovToolDumpJson(const CKovJsonLayout& layout, const KovToolSource& src, KovToolStream& out);

KovToolCommand kovToolAddDump(CLI::App& app);

#endif  // KOV_TOOLS_CMD_DUMP_H
