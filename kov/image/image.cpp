#include "kov/image/image.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "kov/image/checksum.h"
#include "kov/platform/msgbox.h"

namespace {

// The low numBits bits set; numBits runs 0 to 8 here, far below the width of the type.
uint32_t lowBitsMask(uint32_t numBits) { return (1u << numBits) - 1u; }

// The n bytes (8 at most) at bytes as one big-endian number.
uint64_t loadBE(const uint8_t* bytes, uint32_t n) {
  uint64_t word = 0;
  for (uint32_t i = 0; i < n; ++i) word = (word << 8) | bytes[i];
  return word;
}

// Eight bytes stored big-endian, in a form the compiler turns into a byte swap and one store.
void storeU64BE(uint8_t* bytes, uint64_t word) {
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<uint8_t>(word >> (56 - 8 * i));
}

// The bit reader for a field that runs off the end of the image, a byte at a time (see
// GetBytes for what it leaves in value). Out of line, like writeBitsByteByByte.
[[gnu::noinline]] int readBitsByteByByte(const CKovImage& image, uint32_t start, uint8_t msbStart,
                                         uint32_t numBits, uint32_t& value) {
  uint8_t byte = 0;
  image.GetByte(start, byte);
  const uint32_t bitsInFirst = msbStart + 1u;
  if (numBits <= bitsInFirst) {
    value = kovExtractBits(byte, msbStart, numBits);
    return 1;
  }
  value = byte & lowBitsMask(bitsInFirst);
  uint32_t bitsLeft = numBits - bitsInFirst;
  uint32_t index = start;
  // At most four more bytes, numBits being at most 32. A successful GetByte means index < size,
  // so ++index cannot wrap.
  while (bitsLeft >= 8) {
    value <<= 8;
    if (!image.GetByte(++index, byte)) return 0;
    value |= byte;
    bitsLeft -= 8;
  }
  if (bitsLeft == 0) return 1;
  if (!image.GetByte(++index, byte)) return 0;
  value = (value << bitsLeft) | (static_cast<uint32_t>(byte) >> (8 - bitsLeft));
  return 1;
}

// The bit writer for a field that runs off the end of the image, a byte at a time: the bytes
// inside the image are written, then the write fails. Kept out of line, so that the common
// road of kovWriteBitsToImage stays short.
[[gnu::noinline]] int writeBitsByteByByte(CKovImage* image, uint32_t startByte, uint8_t msbStart,
                                          uint32_t value, uint8_t numBits) {
  uint8_t byte = 0;
  image->GetByte(startByte, byte);
  // The first byte takes the value's top bits, as many as fit from msbStart down to bit 0.
  const uint32_t bitsInFirst = std::min<uint32_t>(msbStart + 1u, numBits);
  kovInsertBitsInByte(byte, msbStart, bitsInFirst,
                      kovExtractBits(value, numBits - 1u, bitsInFirst));
  image->SetAt(startByte, byte);
  uint32_t bitsLeft = numBits - bitsInFirst;
  uint32_t index = startByte;
  // At most four more bytes, numBits being at most 32. Each is read, changed and stored whole,
  // so the bits of a neighbouring field in the last byte survive.
  while (bitsLeft > 0) {
    if (!image->GetByte(++index, byte)) return 0;
    const uint32_t take = std::min<uint32_t>(8, bitsLeft);
    kovInsertBitsInByte(byte, 7, take, kovExtractBits(value, bitsLeft - 1u, take));
    image->SetAt(index, byte);
    bitsLeft -= take;
  }
  return 1;
}

}  // namespace

CKovImage::CKovImage(uint32_t size) {
  if (size == 0) {
    kovMessageBox("Error - Attempting to save non-existant codeplug to image!");
    return;
  }
  m_bytes = std::make_unique<uint8_t[]>(size);  // value-initialised: all 0
  m_size = size;
}

CKovImage::CKovImage(const std::vector<uint8_t>& bytes) {
  if (bytes.empty()) {
    kovMessageBox("Error - Attempting to read 0-length codeplug image!");
    return;
  }
  const uint32_t size =
      static_cast<uint32_t>(std::min<size_t>(bytes.size(), std::numeric_limits<uint32_t>::max()));
  m_bytes = std::make_unique<uint8_t[]>(size);
  std::memcpy(m_bytes.get(), bytes.data(), size);
  m_size = size;
}

CKovImage::~CKovImage() = default;

void CKovImage::SetSize(uint32_t newSize) {
  if (newSize <= m_size) {
    m_size = newSize;
    return;
  }
  std::unique_ptr<uint8_t[]> grown = std::make_unique<uint8_t[]>(newSize);
  if (m_size != 0) std::memcpy(grown.get(), m_bytes.get(), m_size);
  m_bytes = std::move(grown);
  m_size = newSize;
}

int CKovImage::GetByte(uint32_t index, uint8_t& value) const {
  if (index >= m_size) return 0;
  value = m_bytes[index];
  return 1;
}

int CKovImage::GetBytes(uint32_t start, uint32_t numBytes, std::vector<uint8_t>& bytes) const {
  if (start > m_size || numBytes > m_size - start) return 0;
  if (numBytes == 0) {
    bytes.clear();
  } else {
    bytes.assign(m_bytes.get() + start, m_bytes.get() + start + numBytes);
  }
  return 1;
}

int CKovImage::GetBitsSlow(uint32_t start, uint8_t msbStart, uint32_t numBits,
                           uint32_t& value) const {
  value = 0;
  if (numBits > 32 || msbStart > 7 || start >= m_size) return 0;
  if (numBits == 0) return 1;
  // The field lies in the skip + numBits bits (40 at most) from start's bit 7. Where the image
  // holds 8 bytes from start they are read as one word; else the span bytes the field touches,
  // if the image has them.
  const uint32_t skip = 7u - msbStart;
  const uint64_t mask = (uint64_t{1} << numBits) - 1;
  const uint8_t* at = m_bytes.get() + start;
  if (m_size - start >= 8) {
    value = static_cast<uint32_t>((kovLoadU64BE(at) >> (64 - skip - numBits)) & mask);
    return 1;
  }
  const uint32_t span = (skip + numBits + 7) / 8;
  if (span <= m_size - start) {
    value = static_cast<uint32_t>((loadBE(at, span) >> (span * 8 - skip - numBits)) & mask);
    return 1;
  }
  return readBitsByteByByte(*this, start, msbStart, numBits, value);
}

int CKovImage::GetBytes(uint32_t start, uint8_t msbStart, uint32_t numBits, uint16_t& value) const {
  uint32_t wide = 0;
  if (numBits > 16 || !GetBytes(start, msbStart, numBits, wide)) return 0;
  value = static_cast<uint16_t>(wide);
  return 1;
}

int CKovImage::GetBytes(uint32_t start, uint8_t msbStart, uint32_t numBits, uint8_t& value) const {
  uint32_t wide = 0;
  if (numBits > 8 || !GetBytes(start, msbStart, numBits, wide)) return 0;
  value = static_cast<uint8_t>(wide);
  return 1;
}

int CKovImage::GetBytes(uint32_t start, uint16_t& value, uint8_t numBytes) const {
  return GetBytes(start, uint8_t{7}, numBytes * 8u, value);
}

int CKovImage::GetBytes(uint32_t start, uint32_t& value, uint8_t numBytes) const {
  return GetBytes(start, uint8_t{7}, numBytes * 8u, value);
}

int CKovImage::GetChecksum(uint32_t start, uint32_t numBytes, uint16_t& checksum) const {
  checksum = 0;
  if (start > m_size || numBytes > m_size - start) return 0;
  if (numBytes == 0) return kovCalculateChecksum(nullptr, 0, checksum);
  return kovCalculateChecksum(m_bytes.get() + start, numBytes, checksum);
}

void CKovImage::SetAt(uint32_t index, uint8_t value) {
  if (index < m_size) m_bytes[index] = value;
}

void CKovImage::SetAt(uint32_t index, uint16_t value, uint8_t numBytes) {
  if (numBytes == 1 || numBytes == 2) SetAt(index, static_cast<uint32_t>(value), numBytes);
}

void CKovImage::SetAt(uint32_t index, uint32_t value, uint8_t numBytes) {
  if (numBytes < 1 || numBytes > 4) return;
  // Outside the image nothing is written: the buffer ends at size.
  if (index >= m_size || numBytes > m_size - index) return;
  for (uint32_t i = 0; i < numBytes; ++i) {
    const uint32_t shift = 8u * (numBytes - 1u - i);  // 24 at most
    m_bytes[index + i] = static_cast<uint8_t>(value >> shift);
  }
}

int kovWriteBitsToImageSlow(CKovImage* image, uint32_t startByte, uint8_t msbStart,
                            uint32_t value, uint8_t numBits) {
  if (image == nullptr || numBits > 32 || msbStart > 7 || startByte >= image->m_size) return 0;
  if (numBits == 0) return 1;
  // As in the reader: the field is merged into a word of the 8 bytes from startByte where the
  // image has them, else of the span bytes it touches; the shift counts the word's bits behind
  // the field, below 64 as numBits is 1 or more.
  const uint32_t skip = 7u - msbStart;
  const uint64_t bits = (uint64_t{1} << numBits) - 1;
  uint8_t* at = image->m_bytes.get() + startByte;
  if (image->m_size - startByte >= 8) {
    const uint32_t shift = 64 - skip - numBits;
    const uint64_t word = kovLoadU64BE(at);
    storeU64BE(at, (word & ~(bits << shift)) | ((uint64_t{value} & bits) << shift));
    return 1;
  }
  const uint32_t span = (skip + numBits + 7) / 8;
  if (span <= image->m_size - startByte) {
    const uint32_t shift = span * 8 - skip - numBits;
    uint64_t word = loadBE(at, span);
    word = (word & ~(bits << shift)) | ((uint64_t{value} & bits) << shift);
    for (uint32_t i = span; i-- > 0; word >>= 8) at[i] = static_cast<uint8_t>(word);
    return 1;
  }
  return writeBitsByteByByte(image, startByte, msbStart, value, numBits);
}

uint32_t kovExtractBits(uint32_t word, uint32_t msb, uint32_t numBits) {
  if (numBits == 0 || msb > 31 || numBits > msb + 1u) return 0;
  const uint32_t lowBit = msb + 1u - numBits;  // 0 to 31
  const uint32_t mask = numBits == 32 ? 0xFFFFFFFFu : (1u << numBits) - 1u;
  return (word >> lowBit) & mask;
}

int kovInsertBitsInByte(uint8_t& byte, uint32_t msb, uint32_t numBits, uint32_t value) {
  if (msb >= 8 || numBits > msb + 1u) return 0;
  if (numBits == 0) return 1;
  const uint32_t lowBit = msb + 1u - numBits;  // 0 to 7
  const uint32_t mask = lowBitsMask(numBits) << lowBit;
  byte = static_cast<uint8_t>((byte & ~mask) | ((value << lowBit) & mask));
  return 1;
}

void kovUpdateAsPerByteSpread(uint32_t& byteOffset, uint8_t& msbStart, uint32_t numBits) {
  // On the linear bit index: L = byte × 8 + 7 − MSB, moved on by numBits. A byte offset beyond
  // 32 bits wraps around, as adding whole bytes to it would.
  const uint64_t index = uint64_t{byteOffset} * 8 + (7u - msbStart) + numBits;
  byteOffset = static_cast<uint32_t>(index >> 3);
  msbStart = static_cast<uint8_t>(7 - (index & 7));
}

uint32_t kovNumBitsRequiredToStoreValue(uint32_t value) {
  // Halves the width still in question at each step: 1 + the index of the highest bit set.
  uint32_t numBits = 1;
  if ((value >> 16) != 0) {
    numBits += 16;
    value >>= 16;
  }
  if ((value >> 8) != 0) {
    numBits += 8;
    value >>= 8;
  }
  if ((value >> 4) != 0) {
    numBits += 4;
    value >>= 4;
  }
  if ((value >> 2) != 0) {
    numBits += 2;
    value >>= 2;
  }
  return numBits + (value >> 1);
}

uint32_t kovGetKovName(uint16_t type, uint16_t id) {
  // Widen first: a 16-bit type promoted to int and shifted by 16 would overflow.
  return (static_cast<uint32_t>(type) << 16) | id;
}
