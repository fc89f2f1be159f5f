#include "kov/fields/numfield.h"

#include "kov/fields/primitiveio.h"
#include "kov/image/image.h"
#include "kov/layout/fieldlayout.h"
#include "kov/unpack/up.h"

CKovNumField::CKovNumField(uint32_t value, uint32_t fieldID, uint32_t imageSize)
    : CKovField(fieldID), value(value) {
  this->imageSize = imageSize;
}

CKovNumField::CKovNumField(const CKovUp* up, uint32_t entryStartByte, uint8_t entryMsbStart,
                           const KovFieldsMap& fieldsMap, const CKovFieldLayout* layout,
                           uint32_t fieldID, uint16_t, uint32_t lastBit, UpStatus& status)
    : CKovField(fieldID) {
  status = ReadWhole(up, layout, entryStartByte, entryMsbStart, fieldsMap, lastBit, value);
  if (status == UpDone) up->XmlAddPrimitiveField(this, layout);
}

PkStatus CKovNumField::WriteToImage(const CKovPk*, CKovImage* image, uint32_t entryStartByte,
                                    uint8_t entryMsbStart, KovFieldsMap* fieldsMap,
                                    const CKovFieldLayout* layout, const CKovCpLayout*,
                                    uint16_t blkID, int) const {
  return WriteAtPackAddr(layout, fieldsMap, entryStartByte, entryMsbStart, blkID,
                         [&] { return WriteFieldDataToImage(image, layout); });
}

PkStatus CKovNumField::PatchFieldInImage(const CKovPk*, CKovImage* image,
                                         const CKovFieldLayout* layout, uint32_t byte,
                                         uint8_t msbStart, uint16_t, int) const {
  return WriteAtAddr(byte, msbStart, [&] { return WriteFieldDataToImage(image, layout); });
}

int CKovNumField::CanValueFitAsPerLayout(const CKovFieldLayout* layout) const {
  // kovNumBitsRequiredToStoreValue(value) <= bits, without counting: every value needs 1 bit or
  // more and 32 at most, and needs no more than bits exactly when it lies below 2^bits.
  uint32_t bits = layout->GetLengthInBits();
  if (bits >= 32) return 1;
  return bits != 0 && (value >> bits) == 0 ? 1 : 0;
}

int CKovNumField::WriteFieldDataToImage(CKovImage* image, const CKovFieldLayout* layout) const {
  imageSize = layout->GetLengthInBits();
  return kovWritePrimitiveBits(image, byteOffsetInImage, startMsbInImage, value, imageSize);
}
