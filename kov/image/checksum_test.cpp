#include "kov/image/checksum.h"

#include <string>

#include "kov/kovtest.h"

namespace {

TEST(Checksum, CheckValues) {
  const std::string digits = "123456789";
  const struct {
    const char* source;
    Bytes data;
    uint16_t crc;
  } cases[] = {
      {"published", Bytes(digits.begin(), digits.end()), 0x31C3},
      {"published", {0xFF, 0xFF}, 0x1D0F},
      {"empty", {}, 0x0000},
      // The data area AB C0 of block 0x0011/2 with one 12-bit field 0xABC is closed by 18 C8.
      {"one-field block", {0xAB, 0xC0}, 0x18C8},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.source);
    uint16_t crc = 0xDEAD;  // overwritten by every call
    EXPECT_EQ(kovCalculateChecksum(c.data, crc), 1);
    EXPECT_EQ(crc, c.crc);
  }
  uint16_t crc = 0xDEAD;
  EXPECT_EQ(kovCalculateChecksum(nullptr, 0, crc), 1);
  EXPECT_EQ(crc, 0x0000);
}

// The definition, one bit at a time: shift the top bit out, XOR in 0x1021 when it was set.
uint16_t crcBitByBit(const uint8_t* data, size_t numBytes) {
  uint16_t crc = 0;
  for (size_t i = 0; i < numBytes; ++i) {
    crc = static_cast<uint16_t>(crc ^ (data[i] << 8));
    for (int bit = 0; bit < 8; ++bit) {
      crc = static_cast<uint16_t>((crc & 0x8000) != 0 ? (crc << 1) ^ 0x1021 : crc << 1);
    }
  }
  return crc;
}

TEST(Checksum, EveryLengthAndStartMatchesTheBitByBitDefinition) {
  // Ranges are taken several bytes a step with the rest one by one: a slip in the step or in the
  // rest shows at some length or start.
  Bytes bytes(80);
  uint32_t x = 2024;
  for (uint8_t& b : bytes) {
    x = x * 1103515245u + 12345u;
    b = static_cast<uint8_t>(x >> 16);
  }
  for (size_t start = 0; start < 8; ++start) {
    for (size_t length = 0; start + length <= bytes.size(); ++length) {
      SCOPED_TRACE("start " + std::to_string(start) + " length " + std::to_string(length));
      uint16_t crc = 0xDEAD;
      EXPECT_EQ(kovCalculateChecksum(bytes.data() + start, length, crc), 1);
      EXPECT_EQ(crc, crcBitByBit(bytes.data() + start, length));
    }
  }
}

TEST(ChecksumTable, SingleBitEntriesAreThePolynomialShiftedIn) {
  // By hand: each power of two doubles the previous entry, folding bit 16 back as 0x1021.
  const uint16_t expected[8] = {0x1021, 0x2042, 0x4084, 0x8108, 0x1231, 0x2462, 0x48C4, 0x9188};
  for (int bit = 0; bit < 8; ++bit) {
    SCOPED_TRACE(bit);
    EXPECT_EQ(kovChecksumTableEntry(static_cast<uint8_t>(1u << bit)), expected[bit]);
  }
  EXPECT_EQ(kovChecksumTableEntry(0), 0x0000);
  EXPECT_EQ(kovChecksumTableEntry(255), 0x1EF0);
}

TEST(ChecksumTable, IsLinearSoTheSingleBitEntriesFixEveryOther) {
  // A CRC without initial value or final XOR is linear: entry(a ^ b) = entry(a) ^ entry(b).
  for (unsigned a = 0; a < 256; ++a) {
    for (unsigned b = 0; b < 256; ++b) {
      const uint16_t sum = kovChecksumTableEntry(static_cast<uint8_t>(a)) ^
                           kovChecksumTableEntry(static_cast<uint8_t>(b));
      if (kovChecksumTableEntry(static_cast<uint8_t>(a ^ b)) != sum) {
        FAIL() << "entry " << (a ^ b) << " is not entry " << a << " ^ entry " << b;
      }
    }
  }
}

}  // namespace
