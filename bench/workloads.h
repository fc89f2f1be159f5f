// The benchmark workloads beside W1: a long distributed list, and a layout whose fields mostly
// wait for the patch stages.
//
// DistList: one distributed KOV List Structure of `entries` contacts of 10 bytes (24-bit id at
// byte 0, 8-bit call type at byte 3, 6-character name at byte 4), at most 100 a listlet, behind
// a header block the pack generates. 60,000 entries make 600 listlets, 608,420 bytes.
//
// Deferred: blocks A (type 0x0051) and B (0x0052), `instances` instances each, A first. A holds
// an 8-bit number at byte 0, a list at byte 1 of up to 4 entries of two 8-bit numbers whose
// quantity stands in the same instance of B (a split LEQ), and an 8-bit number floating behind
// the list. The pack is given the floating number before the list, so it waits for the pack's
// patch stage, as does the list's quantity, which goes into B; the unpack meets the list before
// B is read, so the list and the number behind it wait for the sweeps. Every instance of A holds
// 4 entries, 10 data bytes; B holds the quantity and one more number, 2 bytes.
#ifndef KOV_BENCH_WORKLOADS_H
#define KOV_BENCH_WORKLOADS_H

#include <cstdint>
#include <memory>
#include <vector>

#include "kov/kov.h"

struct KovBenchWorkload {
  std::unique_ptr<CKovCpLayout> layout;
  std::vector<std::unique_ptr<CKovPkStdBlk>> blks;
  KovPkBlkMap pkBlks;
  uint32_t imageSz = 0;    // bytes the pack writes
  uint32_t numFields = 0;  // values given to the pack, at any depth
};

std::unique_ptr<KovBenchWorkload> kovBenchDistList(uint32_t entries);
std::unique_ptr<KovBenchWorkload> kovBenchDeferred(uint32_t instances);

// Packs the workload into a fresh image; throws what the pack throws.
std::vector<uint8_t> kovBenchPack(const KovBenchWorkload& w);

#endif  // KOV_BENCH_WORKLOADS_H
