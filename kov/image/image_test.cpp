#include "kov/image/image.h"

#include <random>
#include <string>

#include "kov/kovtest.h"
#include "kov/platform/format.h"

namespace {

Bytes contents(const CKovImage& image) {
  const uint8_t* bytes = image.GetBytesArray();
  return bytes == nullptr ? Bytes() : Bytes(bytes, bytes + image.GetSize());
}

TEST(BitPlacement, VectorsWriteStepAndReadBack) {
  // Worked examples and hand derivations through L = byte * 8 + 7 - msb.
  const struct {
    uint32_t value, numBits, byte;
    uint8_t msb;
    Bytes before, after;
    uint32_t nextByte;
    uint8_t nextMsb;
    uint32_t read;
  } cases[] = {
      {0x2B5, 10, 2, 2, Bytes(6, 0xFF), {0xFF, 0xFF, 0xFD, 0x6B, 0xFF, 0xFF}, 3, 0, 0x2B5},
      {0xABCDE, 20, 1, 3, Bytes(6, 0), {0x00, 0x0A, 0xBC, 0xDE, 0x00, 0x00}, 4, 7, 0xABCDE},
      {0x5, 3, 0, 5, {0, 0}, {0x28, 0x00}, 0, 2, 0x5},
      // 32 bits at MSB 7 cover exactly four bytes.
      {0x12345678,
       32,
       1,
       7,
       Bytes(6, 0xFF),
       {0xFF, 0x12, 0x34, 0x56, 0x78, 0xFF},
       5,
       7,
       0x12345678},
      // 32 bits at MSB 4 over five bytes: 111 + 00010 | 01000110 | 10001010 | 11001111 | 000 +
      // 11111, keeping the uncovered bits.
      {0x12345678, 32, 0, 4, Bytes(5, 0xFF), {0xE2, 0x46, 0x8A, 0xCF, 0x1F}, 4, 4, 0x12345678},
      // 9 bits at MSB 0 put the top bit alone in the first byte.
      {0x1A5, 9, 0, 0, Bytes(3, 0), {0x01, 0xA5, 0x00}, 2, 7, 0x1A5},
      // A value wider than the field is cut to its low bits, above it as well as in its bytes.
      {0xFFFFFABC, 12, 0, 3, Bytes(3, 0), {0x0A, 0xBC, 0x00}, 2, 7, 0xABC},
      // The last byte is writable.
      {0xAB, 8, 2, 7, Bytes(3, 0), {0x00, 0x00, 0xAB}, 3, 7, 0xAB},
      // 16 bits over three bytes: 0000 + 1011 | 11101110 | 1111 + 0000.
      {0xBEEF, 16, 0, 3, Bytes(3, 0), {0x0B, 0xEE, 0xF0}, 2, 3, 0xBEEF},
      // Zero bits inside the image change nothing and read 0.
      {0xFFFFFFFF, 0, 1, 3, {0xA5, 0xA5}, {0xA5, 0xA5}, 1, 3, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(kovFormat("0x%X in %u bits at (%u, %u)", c.value, c.numBits, c.byte, c.msb));
    CKovImage image(c.before);
    EXPECT_EQ(kovWriteBitsToImage(&image, c.byte, c.msb, c.value, uint8_t(c.numBits)), 1);
    EXPECT_EQ(contents(image), c.after);
    uint32_t byte = c.byte;
    uint8_t msb = c.msb;
    kovUpdateAsPerByteSpread(byte, msb, c.numBits);
    EXPECT_EQ(byte, c.nextByte);
    EXPECT_EQ(msb, c.nextMsb);
    uint32_t read = 0xDEADBEEF;
    EXPECT_EQ(image.GetBytes(c.byte, c.msb, c.numBits, read), 1);
    EXPECT_EQ(read, c.read);
    if (c.numBits <= 16) {
      uint16_t read16 = 0xBEEF;
      EXPECT_EQ(image.GetBytes(c.byte, c.msb, c.numBits, read16), 1);
      EXPECT_EQ(read16, c.read);
    }
    if (c.numBits <= 8) {
      uint8_t read8 = 0xA5;
      EXPECT_EQ(image.GetBytes(c.byte, c.msb, c.numBits, read8), 1);
      EXPECT_EQ(read8, c.read);
    }
  }
}

TEST(BitPlacement, FieldsSharingAByteSurviveEitherOrder) {
  // 101 at (0, 7) and 10011 at (0, 4) make 10110011.
  for (bool firstIsHigh : {true, false}) {
    SCOPED_TRACE(firstIsHigh ? "high field first" : "low field first");
    CKovImage image(1);
    const auto writeHigh = [&image] { return kovWriteBitsToImage(&image, 0, 7, 0x5, 3); };
    const auto writeLow = [&image] { return kovWriteBitsToImage(&image, 0, 4, 0x13, 5); };
    EXPECT_EQ(firstIsHigh ? writeHigh() : writeLow(), 1);
    EXPECT_EQ(firstIsHigh ? writeLow() : writeHigh(), 1);
    EXPECT_EQ(contents(image), Bytes{0xB3});
  }
}

TEST(BitWriter, RefusesWhatDoesNotFitKeepingWhatWasStored) {
  const struct {
    uint32_t byte;
    uint8_t msb;
    uint32_t value, numBits;
    Bytes before, after;
  } cases[] = {
      {1, 3, 0x1FFF, 13, {0, 0, 0xAB}, {0x00, 0x0F, 0xFF}},  // needs bytes 1 to 3 of 3
      {3, 7, 0x1, 1, {0, 0, 0xAB}, {0, 0, 0xAB}},            // one past the last byte
      {2, 7, 0x0, 0, {0xA5, 0xA5}, {0xA5, 0xA5}},            // zero bits outside
      {0, 8, 0x1, 1, Bytes(6, 0x5A), Bytes(6, 0x5A)},        // no bit 8 in a byte
      {0, 7, 0x0, 33, Bytes(6, 0x5A), Bytes(6, 0x5A)},       // wider than the value
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(kovFormat("0x%X in %u bits at (%u, %u)", c.value, c.numBits, c.byte, c.msb));
    CKovImage image(c.before);
    EXPECT_EQ(kovWriteBitsToImage(&image, c.byte, c.msb, c.value, uint8_t(c.numBits)), 0);
    EXPECT_EQ(contents(image), c.after);
  }
  EXPECT_EQ(kovWriteBitsToImage(nullptr, 0, 7, 0x0, 8), 0);
}

TEST(BitReader, RefusesWhatDoesNotFitKeepingTheBitsGathered) {
  // The 32-bit reader clears its value first; the narrower ones leave theirs alone.
  const struct {
    Bytes bytes;
    uint32_t byte;
    uint8_t msb;
    uint32_t numBits, value;
    int width;
  } cases[] = {
      {{0x12, 0x34, 0x56}, 3, 7, 1, 0, 32},  // one past the last byte
      {{0x12, 0x34, 0x56}, 0, 8, 1, 0, 32},  // no bit 8 in a byte
      {{0xA5, 0xA5}, 2, 7, 0, 0, 32},        // zero bits outside
      // 12, 34, 56 gathered, and the missing fourth byte was already shifted in as 0.
      {{0x12, 0x34, 0x56}, 0, 7, 32, 0x12345600, 32},
      {{0x12, 0x34, 0x56}, 1, 7, 20, 0x3456, 32},  // the missing last four bits were not
      {Bytes(5, 0xFF), 0, 7, 33, 0, 32},           // wider than the destination
      {Bytes(5, 0xFF), 0, 7, 17, 0xBEEF, 16},
      {Bytes(5, 0xFF), 4, 7, 16, 0xBEEF, 16},  // runs off the end
      {Bytes(5, 0xFF), 0, 7, 9, 0xA5, 8},
      {Bytes(5, 0xFF), 5, 7, 1, 0xA5, 8},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(kovFormat("%u bits at (%u, %u) of %zu bytes into %d", c.numBits, c.byte, c.msb,
                           c.bytes.size(), c.width));
    const CKovImage image(c.bytes);
    uint32_t v32 = 0xDEADBEEF;
    uint16_t v16 = 0xBEEF;
    uint8_t v8 = 0xA5;
    const int ok = c.width == 32   ? image.GetBytes(c.byte, c.msb, c.numBits, v32)
                   : c.width == 16 ? image.GetBytes(c.byte, c.msb, c.numBits, v16)
                                   : image.GetBytes(c.byte, c.msb, c.numBits, v8);
    EXPECT_EQ(ok, 0);
    EXPECT_EQ(c.width == 32 ? v32 : c.width == 16 ? v16 : v8, c.value);
  }
}

TEST(WholeBytes, ReadBigEndianByCount) {
  const CKovImage image(Bytes{0x12, 0x34, 0x56, 0x78, 0x9A});
  uint16_t v16 = 0xBEEF;
  EXPECT_EQ(image.GetBytes(1, v16, 2), 1);
  EXPECT_EQ(v16, 0x3456);
  EXPECT_EQ(image.GetBytes(4, v16, 1), 1);
  EXPECT_EQ(v16, 0x9A);
  EXPECT_EQ(image.GetBytes(0, v16, 3), 0);
  EXPECT_EQ(image.GetBytes(4, v16, 2), 0);
  EXPECT_EQ(v16, 0x9A);
  uint32_t v32 = 0;
  EXPECT_EQ(image.GetBytes(1, v32, 4), 1);
  EXPECT_EQ(v32, 0x3456789Au);
  EXPECT_EQ(image.GetBytes(0, v32, 3), 1);
  EXPECT_EQ(v32, 0x123456u);
  EXPECT_EQ(image.GetBytes(0, v32, 5), 0);
}

TEST(WholeBytes, ByteAndRangeReadsFailWithoutTouchingTheOutValue) {
  const CKovImage image(Bytes{0x10, 0x20, 0x30});
  uint8_t byte = 0xEE;
  EXPECT_EQ(image.GetByte(2, byte), 1);
  EXPECT_EQ(byte, 0x30);
  EXPECT_EQ(image.GetByte(3, byte), 0);
  EXPECT_EQ(byte, 0x30);
  Bytes range{9, 9, 9, 9, 9};
  EXPECT_EQ(image.GetBytes(1, 2, range), 1);
  EXPECT_EQ(range, (Bytes{0x20, 0x30}));
  EXPECT_EQ(image.GetBytes(2, 2, range), 0);
  EXPECT_EQ(image.GetBytes(1, 0xFFFFFFFF, range), 0);  // start + numBytes would wrap
  EXPECT_EQ(image.GetBytes(4, 0, range), 0);
  EXPECT_EQ(range, (Bytes{0x20, 0x30}));
  EXPECT_EQ(image.GetBytes(3, 0, range), 1);
  EXPECT_TRUE(range.empty());
}

TEST(WholeBytes, SetAtWritesListedCountsOnly) {
  CKovImage image(Bytes(5, 0xEE));
  image.SetAt(4, uint8_t{0x01});
  image.SetAt(0, uint16_t{0xABCD}, 2);
  image.SetAt(2, uint16_t{0xABCD}, 1);
  EXPECT_EQ(contents(image), (Bytes{0xAB, 0xCD, 0xCD, 0xEE, 0x01}));
  image.SetAt(0, uint16_t{0x1111}, 0);
  image.SetAt(0, uint16_t{0x1111}, 3);
  image.SetAt(0, uint32_t{0x22222222}, 0);
  image.SetAt(0, uint32_t{0x22222222}, 5);
  image.SetAt(3, uint32_t{0x33333333}, 4);  // would pass the end
  image.SetAt(5, uint8_t{0x44});
  EXPECT_EQ(contents(image), (Bytes{0xAB, 0xCD, 0xCD, 0xEE, 0x01}));
  const struct {
    uint8_t numBytes;
    Bytes after;
  } cases[] = {{4, {0x12, 0x34, 0x56, 0x78, 0xEE}},
               {3, {0x34, 0x56, 0x78, 0xEE, 0xEE}},
               {2, {0x56, 0x78, 0xEE, 0xEE, 0xEE}},
               {1, {0x78, 0xEE, 0xEE, 0xEE, 0xEE}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(int(c.numBytes));
    CKovImage fresh(Bytes(5, 0xEE));
    fresh.SetAt(0, uint32_t{0x12345678}, c.numBytes);
    EXPECT_EQ(contents(fresh), c.after);
  }
}

TEST(ImageChecksum, CoversExactlyTheRange) {
  const std::string text = "x123456789y";
  const CKovImage image(Bytes(text.begin(), text.end()));
  uint16_t checksum = 0;
  EXPECT_EQ(image.GetChecksum(1, 9, checksum), 1);
  EXPECT_EQ(checksum, 0x31C3);
  EXPECT_EQ(image.GetChecksum(11, 0, checksum), 1);
  EXPECT_EQ(checksum, 0);
  checksum = 0xBEEF;
  EXPECT_EQ(image.GetChecksum(3, 9, checksum), 0);
  EXPECT_EQ(checksum, 0);
  checksum = 0xBEEF;
  EXPECT_EQ(image.GetChecksum(1, 0xFFFFFFFF, checksum), 0);
  EXPECT_EQ(checksum, 0);
}

TEST(ImageBuffer, OnlyEmptyImagesShowTheirMessageAndHoldNothing) {
  MessageBoxRecorder boxes;
  EXPECT_EQ(contents(CKovImage(3)), Bytes(3, 0));
  EXPECT_EQ(contents(CKovImage(Bytes{1, 2, 3})), (Bytes{1, 2, 3}));
  const CKovImage bySize(0u);
  const CKovImage byArray{Bytes()};
  EXPECT_EQ(boxes.Texts(),
            (std::vector<std::string>{"Error - Attempting to save non-existant codeplug to image!",
                                      "Error - Attempting to read 0-length codeplug image!"}));
  for (const CKovImage* image : {&bySize, &byArray}) {
    EXPECT_EQ(image->GetSize(), 0u);
    EXPECT_EQ(image->GetBytesArray(), nullptr);
    uint8_t byte = 0;
    EXPECT_EQ(image->GetByte(0, byte), 0);
  }
}

TEST(ImageBuffer, ShrinkHidesTheBytesAboveAndGrowKeepsTheBytesBelow) {
  CKovImage image(Bytes{1, 2, 3, 4});
  image.SetSize(2);
  EXPECT_EQ(image.GetSize(), 2u);
  uint8_t byte = 0;
  EXPECT_EQ(image.GetByte(2, byte), 0);
  EXPECT_EQ(image.GetBytesArray()[2], 3);  // still allocated, no longer readable
  uint32_t value = 0;
  EXPECT_EQ(image.GetBytes(1, 7, 9, value), 0);
  image.SetSize(5);
  EXPECT_EQ(image.GetSize(), 5u);
  EXPECT_EQ(contents(image), (Bytes{1, 2, 0, 0, 0}));
}

TEST(BitHelpers, ExtractAndInsert) {
  EXPECT_EQ(kovExtractBits(0x2B5, 9, 3), 0x5u);
  EXPECT_EQ(kovExtractBits(0x80000001, 31, 1), 0x1u);
  EXPECT_EQ(kovExtractBits(0xCAFEF00D, 31, 32), 0xCAFEF00Du);
  for (uint32_t msb : {0u, 7u, 31u, 0xFFFFFFFFu}) EXPECT_EQ(kovExtractBits(~0u, msb, 0), 0u);
  EXPECT_EQ(kovExtractBits(~0u, 2, 4), 0u);  // would reach below bit 0
  uint8_t byte = 0xFF;
  EXPECT_EQ(kovInsertBitsInByte(byte, 2, 3, 0xFA), 1);  // only 010 of the value is taken
  EXPECT_EQ(byte, 0xFA);
  EXPECT_EQ(kovInsertBitsInByte(byte, 8, 1, 0), 0);
  EXPECT_EQ(kovInsertBitsInByte(byte, 1, 3, 0), 0);
  EXPECT_EQ(kovInsertBitsInByte(byte, 4, 0, 0), 1);
  EXPECT_EQ(byte, 0xFA);
}

TEST(BitHelpers, NumBitsRequiredAndKovName) {
  const uint32_t values[] = {0, 1, 2, 255, 256, 0xFFFFFFFF};
  const uint32_t bits[] = {1, 1, 2, 8, 9, 32};
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(kovNumBitsRequiredToStoreValue(values[i]), bits[i]) << values[i];
  }
  EXPECT_EQ(kovGetKovName(0x0011, 2), 0x00110002u);
  EXPECT_EQ(kovGetKovName(0xFFFD, 0xFFFE), 0xFFFDFFFEu);
}

// One bit at a time: field bit i (from the top) is linear bit L + i, which is bit 7 - (L+i) % 8
// of byte (L+i) / 8. Answers false when the start byte or any bit lies outside the image.
bool modelWrite(Bytes& bytes, uint32_t byte, uint8_t msb, uint32_t value, uint32_t numBits) {
  const uint64_t first = uint64_t{byte} * 8 + 7 - msb;
  if (byte >= bytes.size()) return false;
  for (uint32_t i = 0; i < numBits; ++i) {
    const uint64_t at = first + i;
    if (at / 8 >= bytes.size()) return false;
    const uint8_t bit = uint8_t(0x80u >> (at % 8));
    if ((value >> (numBits - 1 - i)) & 1u) {
      bytes[at / 8] |= bit;
    } else {
      bytes[at / 8] &= uint8_t(~bit);
    }
  }
  return true;
}

bool modelRead(const Bytes& bytes, uint32_t byte, uint8_t msb, uint32_t numBits, uint32_t& value) {
  const uint64_t first = uint64_t{byte} * 8 + 7 - msb;
  value = 0;
  if (byte >= bytes.size()) return false;
  for (uint32_t i = 0; i < numBits; ++i) {
    const uint64_t at = first + i;
    if (at / 8 >= bytes.size()) return false;
    value = (value << 1) | ((bytes[at / 8] >> (7 - at % 8)) & 1u);
  }
  return true;
}

TEST(BitPlacement, AgreesWithABitAtATimeModel) {
  std::mt19937 rng(20240611);
  for (int round = 0; round < 5000; ++round) {
    Bytes bytes(1 + rng() % 8);
    for (uint8_t& b : bytes) b = uint8_t(rng());
    const uint32_t byte = rng() % (bytes.size() + 1);
    const uint8_t msb = uint8_t(rng() % 8);
    const uint32_t numBits = rng() % 33;
    const uint32_t value = rng();
    SCOPED_TRACE(kovFormat("image of %zu; kovWriteBitsToImage(&image, %u, %u, 0x%08X, %u)",
                           bytes.size(), byte, msb, value, numBits));
    CKovImage image(bytes);
    Bytes expected = bytes;
    const bool fits = modelWrite(expected, byte, msb, value, numBits);
    ASSERT_EQ(kovWriteBitsToImage(&image, byte, msb, value, uint8_t(numBits)), fits ? 1 : 0);
    ASSERT_EQ(contents(image), expected);

    uint32_t read = 0, modelValue = 0;
    ASSERT_EQ(image.GetBytes(byte, msb, numBits, read),
              modelRead(expected, byte, msb, numBits, modelValue) ? 1 : 0);
    if (fits) {
      ASSERT_EQ(read, modelValue);
      uint32_t nextByte = byte;
      uint8_t nextMsb = msb;
      kovUpdateAsPerByteSpread(nextByte, nextMsb, numBits);
      const uint64_t next = uint64_t{byte} * 8 + 7 - msb + numBits;
      ASSERT_EQ(nextByte, next / 8);
      ASSERT_EQ(nextMsb, 7 - next % 8);
    }
  }
}

}  // namespace
