// W1, the reference pack/unpack workload: its values, its layout in kov, a pack tree, the copy of
// unpacked values into plain structs, a hand-written codec for exactly this image and a slow
// reference writer to hold both against.
//
// An image of B instances (1 <= B <= 62500) of block type 0x0031, 330 bytes each (see
// kov/pack/stdblk.h for the instance format); instance n has KOV id n - 1. Its data area of 322
// bytes holds a 16-bit count (always 16) at byte 0 and 16 channel entries of 20 bytes from byte 2:
//   entry byte  bits  field                  entry byte  bits  field
//            0    32  rx_freq                         8     2  reserved (MSB 1, always 0)
//            4    32  tx_freq                         9     4  color_code (MSB 7)
//            8     3  power (MSB 7)                   9    20  talkgroup (MSB 3, to byte 11)
//            8     1  wide, scan, talkaround         12    64  name, 8 characters padded with
//                     (MSB 4, 3, 2)                              spaces on the right
// For instance id i and entry e, with k = 16 i + e: rx_freq = 400000000 + 2500 k, tx_freq = rx_freq
// (+ 5000000 for odd k), power = k mod 8, wide/scan/talkaround = bits 1/2/3 of k, color_code =
// (i + e) mod 16, talkgroup = 7919 k mod 2^20, name = "CH" and k in decimal. Instance 1 starts:
//   00 31 00 00 01 44 00 10 17 d7 84 00 17 d7 84 00 00 00 00 00 43 48 30 20 20 20 20 20 ...
// An image of B instances holds 161 B fields: the count and 10 per entry (the name is one).
//
// In kov the block is multi-instance block 1 over a count field and a VarSzContigLeq list whose
// quantity is the count; the pack gives the list and lets it write its own count. kov's string
// field writes only the characters it is given, so the pack tree holds names already padded to 8
// characters and the copy-out strips trailing spaces.
#ifndef KOV_BENCH_W1_H
#define KOV_BENCH_W1_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kov/kov.h"

namespace w1 {

constexpr uint16_t kKovType = 0x0031;
constexpr uint16_t kBlkID = 1;
constexpr uint32_t kInstanceSz = 330;
constexpr uint32_t kDataSz = 322;
constexpr uint32_t kEntries = 16;
constexpr uint32_t kEntrySz = 20;
constexpr uint32_t kFieldsPerInstance = 161;
constexpr uint32_t kMaxInstances = 62500;

// Field ids, which are also the ids of the field names in the string resources.
enum FieldID : uint32_t {
  kCount = 100,
  kEntriesList = 101,
  kRxFreq = 111,
  kTxFreq,
  kPower,
  kWide,
  kScan,
  kTalkaround,
  kReserved,
  kColorCode,
  kTalkgroup,
  kName,
};

struct Channel {
  uint32_t rxFreq = 0;
  uint32_t txFreq = 0;
  uint8_t power = 0;
  bool wide = false;
  bool scan = false;
  bool talkaround = false;
  uint8_t colorCode = 0;
  uint32_t talkgroup = 0;
  std::string name;  // without the padding
};

struct Bank {
  uint16_t count = 0;
  std::array<Channel, kEntries> entries;
};

bool operator==(const Channel& a, const Channel& b);
bool operator==(const Bank& a, const Bank& b);

// The values of an image of b instances.
std::vector<Bank> makeBanks(uint32_t b);

// The image of banks written bit by bit from the tables above, CRC bit by bit: slow and plain,
// the yardstick for the other writers.
std::vector<uint8_t> referenceImage(const std::vector<Bank>& banks);

// The hand-written codec: straight-line code for this image only. handPack returns false for a
// value out of range (count not 16, power above 7, a name longer than 8, ...). handUnpack
// returns false for an image W1 refuses: a type other than 0x0031, a size other than 324, an
// instance past the end, a wrong CRC, a count other than 16.
bool handPack(const std::vector<Bank>& banks, std::vector<uint8_t>& image);
bool handUnpack(const uint8_t* image, size_t numBytes, std::vector<Bank>& banks);

// The layout of W1 in kov; registers the field names.
std::unique_ptr<CKovCpLayout> makeLayout();

// What a kov pack is made over: the block's values and the map of blocks.
struct PackTree {
  std::unique_ptr<CKovPkStdBlk> blk;
  KovPkBlkMap blks;
};
std::unique_ptr<PackTree> makePackTree(const CKovCpLayout* layout, const std::vector<Bank>& banks);

// Packs tree into a fresh image with kov.
std::vector<uint8_t> kovPack(const CKovCpLayout* layout, const PackTree& tree);

// Copies what up read into banks, checking what the library leaves to the application: every
// instance has 322 data bytes, count is 16 and the list holds 16 entries. Throws
// std::runtime_error when a check fails.
void copyOut(const CKovUp& up, std::vector<Bank>& banks);

// The SHA-256 of the W1 image of b instances, for the sizes W1 publishes; "" for another b.
std::string publishedSha256(uint32_t b);

}  // namespace w1

#endif  // KOV_BENCH_W1_H
