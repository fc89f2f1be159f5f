#include "kov/fields/primitiveio.h"

#include "kov/fields/charfield.h"
#include "kov/fields/namefield.h"
#include "kov/fields/numfield.h"
#include "kov/image/image.h"

int kovWritePrimitiveBits(CKovImage* image, uint32_t byte, uint8_t msbStart, uint32_t value,
                          uint32_t numBits) {
  // The bit writer takes its width in 8 bits: a wider layout must fail here, not wrap around.
  if (numBits > 32) return 0;
  return kovWriteBitsToImage(image, byte, msbStart, value, static_cast<uint8_t>(numBits));
}

bool kovNumericValueOf(const CKovField* field, uint32_t& value) {
  if (field == nullptr) return false;
  if (field->IsNumber()) {
    value = static_cast<const CKovNumField*>(field)->GetValue();
  } else if (field->IsKovName()) {
    value = static_cast<const CKovNameField*>(field)->GetValue();
  } else if (field->IsChar()) {
    value = static_cast<const CKovCharField*>(field)->GetValue();
  } else {
    return false;
  }
  return true;
}
