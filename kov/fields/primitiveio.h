// Steps shared by the primitive field values (internal to the library).
#ifndef KOV_FIELDS_PRIMITIVEIO_H
#define KOV_FIELDS_PRIMITIVEIO_H

#include <cstdint>

#include "kov/fields/field.h"
#include "kov/image/image.h"

// Writes the low numBits bits of value at (byte, msbStart). 0 when numBits is above 32 or the
// bits do not fit in the image, else 1. Inline: every number, character and name goes through it.
inline int kovWritePrimitiveBits(CKovImage* image, uint32_t byte, uint8_t msbStart, uint32_t value,
                                 uint32_t numBits) {
  // The bit writer takes its width in 8 bits: a wider layout must fail here, not wrap around.
  if (numBits > 32) return 0;
  return kovWriteBitsToImage(image, byte, msbStart, value, static_cast<uint8_t>(numBits));
}

// The value of a number, KOV name or character field; false for any other kind (and for null).
bool kovNumericValueOf(const CKovField* field, uint32_t& value);

#endif  // KOV_FIELDS_PRIMITIVEIO_H
