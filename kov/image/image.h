// CKovImage: the byte buffer of a codeplug image, and the one bit writer and bit reader over it.
//
// An image owns one flat run of bytes and holds nothing else: no block knowledge, no name, no
// cursor. Every address comes from the caller as a position, a byte offset counted from 0 and an
// MSB start from 7 (the byte's most significant bit, its first in stream order) down to 0 (its
// last). A field on a byte boundary has MSB start 7. Everything is big-endian, in bytes and in
// bits: a value's most significant bit stands at the position, and the stream runs on from bit 0
// of byte b to bit 7 of byte b + 1. With the linear bit index
//   L = byte * 8 + (7 - MSB)          byte = L >> 3,  MSB = 7 - (L & 7)
// a value of n bits at L covers L to L + n - 1, and the position after it is the one of L + n.
//
// 0x2B5 in 10 bits (1010110101) at byte 2, MSB 2, over FF FF FF FF FF FF:
//   bit      7 6 5 4 3 2 1 0   byte
//   byte 2   1 1 1 1 1 1 0 1   FD     bits 2-0 take the value's top three bits, 101
//   byte 3   0 1 1 0 1 0 1 1   6B     bits 7-1 take the other seven, 0110101; bit 0 keeps its 1
//   result   FF FF FD 6B FF FF, and the field is followed by byte 3, MSB 0.
//
// Reads answer 1 on success and 0 on failure; they never throw and never show a message, and
// each says what becomes of its out value on failure. Writes of bits (kovWriteBitsToImage)
// answer 1 or 0 the same way. Whole-byte writes (SetAt) report nothing; callers size the image
// first, and a SetAt that would reach past the size writes nothing, so an image never writes
// outside its buffer. Sizes and offsets are in bytes, widths (numBits) in bits.
//
// An image cannot be copied: it owns its buffer, and the library hands images around by pointer.
#ifndef KOV_IMAGE_IMAGE_H
#define KOV_IMAGE_IMAGE_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

// Eight bytes read big-endian, in one expression, which the compiler turns into one load and a
// byte swap.
inline uint64_t kovLoadU64BE(const uint8_t* at) {
  return uint64_t{at[0]} << 56 | uint64_t{at[1]} << 48 | uint64_t{at[2]} << 40 |
         uint64_t{at[3]} << 32 | uint64_t{at[4]} << 24 | uint64_t{at[5]} << 16 |
         uint64_t{at[6]} << 8 | uint64_t{at[7]};
}

class CKovImage {
 public:
  // An image of size bytes, all 0. Size 0 shows the message box "Error - Attempting to save
  // non-existant codeplug to image!" and gives an image of size 0 without a buffer. Throws only
  // std::bad_alloc.
  explicit CKovImage(uint32_t size);
  // An image holding a copy of bytes. An empty array shows the message box "Error - Attempting to
  // read 0-length codeplug image!" and gives an image of size 0 without a buffer. Bytes beyond
  // 0xFFFFFFFF are not taken. Throws only std::bad_alloc.
  explicit CKovImage(const std::vector<uint8_t>& bytes);
  virtual ~CKovImage();

  CKovImage(const CKovImage&) = delete;
  CKovImage& operator=(const CKovImage&) = delete;

  // A smaller size only hides the bytes above it: the buffer stays and no read reaches them. A
  // larger size moves the bytes to a buffer of the new size; the bytes added are 0. Throws only
  // std::bad_alloc, and then leaves the image as it was.
  void SetSize(uint32_t newSize);
  uint32_t GetSize() const { return m_size; }
  // The buffer itself, null for an image of size 0. Valid until SetSize grows the image.
  const uint8_t* GetBytesArray() const { return m_bytes.get(); }

  // The byte at index. Fails when index >= size, leaving value as it was.
  int GetByte(uint32_t index, uint8_t& value) const;

  // Copies the numBytes bytes from start into bytes, which ends up exactly numBytes long. Fails
  // when they do not all lie inside the image, leaving bytes as it was.
  int GetBytes(uint32_t start, uint32_t numBytes, std::vector<uint8_t>& bytes) const;

  // The bit reader: the numBits-bit value at (start, msbStart). Sets value to 0 first, then fails
  // when numBits > 32, msbStart > 7 or start lies outside the image. The refusal of an MSB start
  // above 7 is deliberate: such a start names no bit of its byte, and reading on from it would
  // take bits from outside the field. numBits 0 inside the image
  // gives 0. A read that runs off the end fails and keeps the bits gathered so far: each whole
  // byte that was missing has already been shifted in as 0, a missing last part-byte has not
  // (reading 32 bits at (0, 7) from 12 34 56 leaves 0x12345600).
  // Inline, as every number an unpack reads comes through it: 1 to 32 bits with 8 bytes of image
  // from start are taken from one word; anything else goes the general road.
  int GetBytes(uint32_t start, uint8_t msbStart, uint32_t numBits, uint32_t& value) const {
    if (numBits - 1u >= 32u || msbStart > 7 || start >= m_size || m_size - start < 8) {
      return GetBitsSlow(start, msbStart, numBits, value);
    }
    const uint64_t mask = (uint64_t{1} << numBits) - 1;
    value = static_cast<uint32_t>((kovLoadU64BE(m_bytes.get() + start) >>
                                   (64 - (7u - msbStart) - numBits)) &
                                  mask);
    return 1;
  }
  // The same into 16 bits. Fails when numBits > 16 or the read fails, and leaves value as it was.
  int GetBytes(uint32_t start, uint8_t msbStart, uint32_t numBits, uint16_t& value) const;
  // The same into 8 bits. Fails when numBits > 8 or the read fails, and leaves value as it was.
  int GetBytes(uint32_t start, uint8_t msbStart, uint32_t numBits, uint8_t& value) const;

  // numBytes whole bytes from start, big-endian: the 16-bit bit read at MSB 7 of numBytes * 8 bits.
  int GetBytes(uint32_t start, uint16_t& value, uint8_t numBytes) const;
  // The same through the 32-bit bit read: numBytes 0 to 4.
  int GetBytes(uint32_t start, uint32_t& value, uint8_t numBytes) const;

  // The CRC-16/XMODEM (kovCalculateChecksum) of exactly the bytes start to start + numBytes - 1.
  // Sets checksum to 0 first, then fails when the range does not lie inside the image.
  int GetChecksum(uint32_t start, uint32_t numBytes, uint16_t& checksum) const;

  // Stores value at index.
  void SetAt(uint32_t index, uint8_t value);
  // Stores the count bytes at index onwards when they all lie inside the image; else writes
  // nothing and fails.
  int SetBytes(uint32_t index, const uint8_t* bytes, size_t count) {
    if (index > m_size || count > m_size - index) return 0;
    if (count != 0) std::memcpy(m_bytes.get() + index, bytes, count);
    return 1;
  }
  // numBytes 2: bits 15-8 at index, bits 7-0 at index + 1; numBytes 1: bits 7-0 at index. Any
  // other numBytes writes nothing.
  void SetAt(uint32_t index, uint16_t value, uint8_t numBytes);
  // numBytes 1 to 4: the low numBytes bytes of value at index onwards, most significant first.
  // Any other numBytes writes nothing.
  void SetAt(uint32_t index, uint32_t value, uint8_t numBytes);

 private:
  // GetBytes into 32 bits for what its inline part leaves; the same contract.
  int GetBitsSlow(uint32_t start, uint8_t msbStart, uint32_t numBits, uint32_t& value) const;

  // The bit writer stores into the buffer directly.
  friend int kovWriteBitsToImage(CKovImage* image, uint32_t startByte, uint8_t msbStart,
                                 uint32_t value, uint8_t numBits);
  friend int kovWriteBitsToImageSlow(CKovImage* image, uint32_t startByte, uint8_t msbStart,
                                     uint32_t value, uint8_t numBits);

  std::unique_ptr<uint8_t[]> m_bytes;
  uint32_t m_size = 0;
};

// The bit writer: puts the low numBits bits of value at (startByte, msbStart), most significant
// bit first; higher bits of value are cut. Bits of the bytes outside the field keep their values,
// so fields sharing a byte can be written in any order. Fails when image is null, numBits > 32,
// msbStart > 7 or a byte the field needs lies outside the image; bytes already stored stay. numBits
// 0 at a byte inside the image changes nothing and succeeds. Never throws.
int kovWriteBitsToImage(CKovImage* image, uint32_t startByte, uint8_t msbStart, uint32_t value,
                        uint8_t numBits);
// The bit writer's road for what its inline part leaves: any field without 8 bytes of image from
// its first, and every failure. The same contract.
int kovWriteBitsToImageSlow(CKovImage* image, uint32_t startByte, uint8_t msbStart, uint32_t value,
                            uint8_t numBits);

// Inline, as every number a pack writes comes through it: a field of 1 to 32 bits with 8 bytes
// of image from its first byte is merged into those 8 bytes, read and stored big-endian whole.
inline int kovWriteBitsToImage(CKovImage* image, uint32_t startByte, uint8_t msbStart,
                               uint32_t value, uint8_t numBits) {
  if (image == nullptr || numBits - 1u >= 32u || msbStart > 7 || startByte >= image->m_size ||
      image->m_size - startByte < 8) {
    return kovWriteBitsToImageSlow(image, startByte, msbStart, value, numBits);
  }
  uint8_t* at = image->m_bytes.get() + startByte;
  const uint32_t shift = 64 - (7u - msbStart) - numBits;  // the word's bits behind the field
  const uint64_t bits = (uint64_t{1} << numBits) - 1;
  uint64_t word = kovLoadU64BE(at);
  word = (word & ~(bits << shift)) | ((uint64_t{value} & bits) << shift);
  for (int i = 7; i >= 0; --i, word >>= 8) at[i] = static_cast<uint8_t>(word);
  return 1;
}

// Bits msb down to msb - numBits + 1 of word, moved down to bit 0. Needs numBits <= msb + 1 and
// msb <= 31; outside that, and for numBits 0, gives 0.
uint32_t kovExtractBits(uint32_t word, uint32_t msb, uint32_t numBits);

// Replaces bits msb down to msb - numBits + 1 of byte by the low numBits bits of value and keeps
// the others. Returns 0 without a change when msb >= 8 or numBits > msb + 1, else 1.
int kovInsertBitsInByte(uint8_t& byte, uint32_t msb, uint32_t numBits, uint32_t value);

// Moves the position (byteOffset, msbStart) on by numBits bits: to the bit after a field of that
// width. msbStart must be 7 down to 0.
void kovUpdateAsPerByteSpread(uint32_t& byteOffset, uint8_t& msbStart, uint32_t numBits);

// How many bits value needs, at least 1: 0 and 1 need 1, 255 needs 8, 256 needs 9.
uint32_t kovNumBitsRequiredToStoreValue(uint32_t value);

// The KOV name of a block instance: type in the upper 16 bits, id in the lower.
uint32_t kovGetKovName(uint16_t type, uint16_t id);

#endif  // KOV_IMAGE_IMAGE_H
