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

// Table k, entry i: the CRC of byte i followed by k zero bytes, from an initial value of 0.
// Eight bytes d0..d7 then move the CRC c on at once: with d0 ^= c >> 8 and d1 ^= c & 0xFF, the
// new CRC is table7[d0] ^ table6[d1] ^ ... ^ table0[d7], the XOR of what each byte contributes
// by the end of the eight.
using CrcTables = std::array<std::array<uint16_t, 256>, 8>;

constexpr CrcTables makeCrcTables() {
  CrcTables tables{};
  tables[0] = makeCrcTable();
  for (size_t k = 1; k < tables.size(); ++k) {
    for (unsigned i = 0; i < 256; ++i) {
      unsigned prev = tables[k - 1][i];
      tables[k][i] = static_cast<uint16_t>((prev << 8) ^ tables[0][prev >> 8]);
    }
  }
  return tables;
}

constexpr CrcTables kCrcTables = makeCrcTables();
static_assert(kCrcTables[1][1] == 0x3331, "CRC of 01 00 is 0x3331");

uint16_t crcOfByte(uint16_t crc, uint8_t byte) {
  return static_cast<uint16_t>((crc << 8) ^ kCrcTable[(crc >> 8) ^ byte]);
}

}  // namespace

int kovCalculateChecksum(const uint8_t* data, size_t numBytes, uint16_t& checksum) {
  uint16_t crc = 0;
  size_t i = 0;
  for (; numBytes - i >= 8; i += 8) {
    const uint8_t* d = data + i;
    crc = static_cast<uint16_t>(kCrcTables[7][d[0] ^ (crc >> 8)] ^
                                kCrcTables[6][d[1] ^ (crc & 0xFF)] ^ kCrcTables[5][d[2]] ^
                                kCrcTables[4][d[3]] ^ kCrcTables[3][d[4]] ^ kCrcTables[2][d[5]] ^
                                kCrcTables[1][d[6]] ^ kCrcTables[0][d[7]]);
  }
  for (; i < numBytes; ++i) crc = crcOfByte(crc, data[i]);
  checksum = crc;
  return 1;
}

int kovCalculateChecksum(const std::vector<uint8_t>& bytes, uint16_t& checksum) {
  return kovCalculateChecksum(bytes.data(), bytes.size(), checksum);
}

uint16_t kovChecksumTableEntry(uint8_t index) { return kCrcTable[index]; }
