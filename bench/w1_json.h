// W1 through the declarative layer: its layout as a layout file and its values as a values file
// (docs/layout-format.md), for timing what kovtool pack and unpack do without the process start
// and the file I/O.
//
// The block "ChannelBank" is multi-instance, KOV type 0x0031, 322 data bytes: the 16-bit
// "count" at byte 0 (written by the pack from the list's length, so absent from the values) and
// the contiguous list "channels" of 16 entries of 160 bits from byte 2, with the fields of the
// table in bench/w1.h under their lower-case names. Names are padded with spaces to 8
// characters in the values, as the image holds them.
#ifndef KOV_BENCH_W1_JSON_H
#define KOV_BENCH_W1_JSON_H

#include <string>
#include <vector>

#include "bench/w1.h"

namespace w1 {

// The text of W1's layout file.
std::string jsonLayout();

// The text of the values file of banks, as kovtool unpack writes it (two-space indentation).
std::string jsonValues(const std::vector<Bank>& banks);

}  // namespace w1

#endif  // KOV_BENCH_W1_JSON_H
