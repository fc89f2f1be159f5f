// The block headers of an image, walked without a layout, for inspecting an image and for taking
// partition prefixes out of it.
//
// The image is a run of block instances (the table is in kov/pack/stdblk.h): KOV type, KOV id
// and size (2 bytes each, big-endian), size − 2 bytes of data, and the CRC-16/XMODEM of the data.
// With prefixes every instance has its partition number (2 bytes) in front. The walk starts at
// byte 0 and stops at the end of the bytes or at the first instance that can't be whole: a header
// cut short, a size below 2, an instance running past the end. Each step moves on by at least 8
// bytes, so the walk ends. Never throws but for exhausted memory.
#ifndef KOVJSON_IMAGEWALK_H
#define KOVJSON_IMAGEWALK_H

#include <cstdint>
#include <string>
#include <vector>

class CKovJsonLayout;

// One whole block instance.
struct KovJsonInstance {
  uint32_t offset = 0;     // of its header (behind the prefix)
  uint16_t partition = 0;  // the prefix; 0 without prefixes
  uint16_t kovType = 0;
  uint16_t kovID = 0;
  uint16_t size = 0;  // the size field: data bytes + 2
  uint16_t storedCrc = 0;
  uint16_t dataCrc = 0;  // the checksum of the data as it stands
};

struct KovJsonWalk {
  bool prefixes = false;
  std::vector<KovJsonInstance> instances;
  // What ends the walk before the end of the bytes ("" when nothing does) and where.
  std::string damage;
  uint32_t damageOffset = 0;
};

KovJsonWalk kovJsonWalkImage(const std::vector<uint8_t>& bytes, bool prefixes);

// The walk as a table, one line an instance, block names from layout when it is not null; then
// a line of totals. bad is set when an instance has a wrong checksum, the walk ended early, or a
// KOV name is unknown to the layout.
std::string kovJsonInspectText(const KovJsonWalk& walk, size_t imageSize,
                               const CKovJsonLayout* layout, bool& bad);

// The bytes of the instances of walk without their prefixes.
std::vector<uint8_t> kovJsonWithoutPrefixes(const std::vector<uint8_t>& bytes,
                                            const KovJsonWalk& walk);

#endif  // KOVJSON_IMAGEWALK_H
