#include "kovjson/imagewalk.h"

#include <algorithm>
#include <map>

#include "kov/kov.h"
#include "kovjson/jsonlayout.h"

namespace {

constexpr uint32_t kHdrSz = 6;
constexpr uint32_t kChecksumSz = 2;
constexpr uint32_t kPrefixSz = 2;

uint16_t readU16BE(const std::vector<uint8_t>& bytes, uint32_t at) {
  return static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

}  // namespace

KovJsonWalk kovJsonWalkImage(const std::vector<uint8_t>& bytes, bool prefixes) {
  KovJsonWalk walk;
  walk.prefixes = prefixes;
  const uint32_t len = static_cast<uint32_t>(std::min<size_t>(bytes.size(), 0xFFFFFFFFu));
  uint32_t pos = 0;
  // Each step takes a header and a checksum at least: 8 bytes.
  while (pos < len) {
    KovJsonInstance inst;
    uint32_t need = kHdrSz + (prefixes ? kPrefixSz : 0);
    if (need > len - pos) {
      walk.damage =
          kovFormat("header cut short: %u bytes left where a header needs %u", len - pos, need);
      walk.damageOffset = pos;
      break;
    }
    if (prefixes) {
      inst.partition = readU16BE(bytes, pos);
      pos += kPrefixSz;
    }
    inst.offset = pos;
    inst.kovType = readU16BE(bytes, pos);
    inst.kovID = readU16BE(bytes, pos + 2);
    inst.size = readU16BE(bytes, pos + 4);
    // A size below 2 cannot hold the checksum: stop before reading anything behind it.
    if (inst.size < kChecksumSz) {
      walk.damage = kovFormat("KOV name 0x%04X%04X has size %u, below the 2 bytes of its checksum",
                              inst.kovType, inst.kovID, inst.size);
      walk.damageOffset = pos;
      break;
    }
    if (inst.size > len - pos - kHdrSz) {
      uint32_t past = inst.size - (len - pos - kHdrSz);
      walk.damage =
          kovFormat("KOV name 0x%04X%04X of size %u runs %u byte%s past the end of the image",
                    inst.kovType, inst.kovID, inst.size, past, past == 1 ? "" : "s");
      walk.damageOffset = pos;
      break;
    }
    uint32_t dataSize = inst.size - kChecksumSz;
    kovCalculateChecksum(bytes.data() + pos + kHdrSz, dataSize, inst.dataCrc);
    inst.storedCrc = readU16BE(bytes, pos + kHdrSz + dataSize);
    walk.instances.push_back(inst);
    pos += kHdrSz + inst.size;
  }
  return walk;
}

std::string kovJsonInspectText(const KovJsonWalk& walk, size_t imageSize,
                               const CKovJsonLayout* layout, bool& bad) {
  bad = !walk.damage.empty();
  std::string text = layout != nullptr
                         ? "offset   KOV type  KOV id  size   data  checksum      block\n"
                         : "offset   KOV type  KOV id  size   data  checksum\n";
  std::map<uint16_t, int> seen;  // block id -> instances met so far
  size_t badChecksums = 0;
  for (const KovJsonInstance& inst : walk.instances) {
    bool good = inst.storedCrc == inst.dataCrc;
    if (!good) {
      ++badChecksums;
      bad = true;
    }
    std::string line =
        kovFormat("0x%06X 0x%04X    0x%04X  %-6u %-5u %-4s 0x%04X  ", inst.offset, inst.kovType,
                  inst.kovID, inst.size, inst.size - 2u, good ? "good" : "BAD", inst.storedCrc);
    if (layout != nullptr) {
      const KovJsonBlock* blk = layout->FindBlockByKovType(inst.kovType);
      bool known = blk != nullptr &&
                   (blk->multi || blk->kind == KovJsonBlkKind::DistKls || blk->kovID == inst.kovID);
      if (!known) {
        line += "(no block of the layout has this KOV name)";
        bad = true;
      } else if (blk->kind == KovJsonBlkKind::DistKls) {
        line += kovFormat("%s, listlet %u", blk->name.c_str(), inst.kovID);
      } else {
        line += kovFormat("%s [%d]", blk->name.c_str(), ++seen[blk->id]);
      }
    }
    while (!line.empty() && line.back() == ' ') line.pop_back();
    if (!good) line += kovFormat(" (data gives 0x%04X)", inst.dataCrc);
    text += line + "\n";
  }
  if (!walk.damage.empty()) {
    text += kovFormat("0x%06X %s\n", walk.damageOffset, walk.damage.c_str());
  }
  text += kovFormat("%zu block instance%s in %zu bytes", walk.instances.size(),
                    walk.instances.size() == 1 ? "" : "s", imageSize);
  if (walk.prefixes) text += ", each behind its partition number";
  if (badChecksums != 0) text += kovFormat("; %zu with a bad checksum", badChecksums);
  if (!walk.damage.empty()) text += "; the walk ends early";
  return text + "\n";
}

std::vector<uint8_t> kovJsonWithoutPrefixes(const std::vector<uint8_t>& bytes,
                                            const KovJsonWalk& walk) {
  std::vector<uint8_t> out;
  for (const KovJsonInstance& inst : walk.instances) {
    out.insert(out.end(), bytes.begin() + inst.offset,
               bytes.begin() + inst.offset + kHdrSz + inst.size);
  }
  return out;
}
