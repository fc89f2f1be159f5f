#include "kov/image/checksum.h"

#include <array>

namespace {

constexpr uint16_t kCrcPoly = 0x1021;

// Entry i is byte i shifted through the polynomial one bit at a time, top bit first: the CRC of
// that single byte from an initial value of 0.
constexpr std::array<uint16_t, 256> makeCrcTable() {
  std::array<uint16_t, 256> table{};
  for (unsigned i = 0; i < 256; ++i) {
    unsigned crc = i << 8;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc & 0x8000u) != 0 ? (crc << 1) ^ kCrcPoly : crc << 1;
    }
    table[i] = static_cast<uint16_t>(crc);
  }
  return table;
}

constexpr std::array<uint16_t, 256> kCrcTable = makeCrcTable();
static_assert(kCrcTable[1] == 0x1021 && kCrcTable[255] == 0x1EF0, "CRC table of 0x1021");

}  // namespace

int kovCalculateChecksum(const uint8_t* data, size_t numBytes, uint16_t& checksum) {
  uint16_t crc = 0;
  for (size_t i = 0; i < numBytes; ++i) {
    crc = static_cast<uint16_t>((crc << 8) ^ kCrcTable[(crc >> 8) ^ data[i]]);
  }
  checksum = crc;
  return 1;
}

int kovCalculateChecksum(const std::vector<uint8_t>& bytes, uint16_t& checksum) {
  return kovCalculateChecksum(bytes.data(), bytes.size(), checksum);
}

uint16_t kovChecksumTableEntry(uint8_t index) { return kCrcTable[index]; }
