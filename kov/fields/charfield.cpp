#include "kov/fields/charfield.h"

#include "kov/fields/primitiveio.h"
#include "kov/image/image.h"
#include "kov/layout/charfieldlayout.h"
#include "kov/unpack/up.h"

namespace {

constexpr uint16_t kDigitZero = 0x30;

bool isChar4Bit(const CKovFieldLayout* layout) {
  return layout->IsKindOf(KOV_RUNTIME_CLASS(CKovCharFieldLayout)) &&
         static_cast<const CKovCharFieldLayout*>(layout)->GetCharType() ==
             CKovCharFieldLayout::Char4Bit;
}

}  // namespace

CKovCharField::CKovCharField(uint16_t value, uint32_t fieldID, uint32_t imageSize)
    : CKovField(fieldID), value(value) {
  this->imageSize = imageSize;
}

CKovCharField::CKovCharField(const CKovUp* up, uint32_t entryStartByte, uint8_t entryMsbStart,
                             const KovFieldsMap& fieldsMap, const CKovFieldLayout* layout,
                             uint32_t fieldID, uint16_t, uint32_t lastBit, UpStatus& status)
    : CKovField(fieldID) {
  status = ReadWhole(up, layout, entryStartByte, entryMsbStart, fieldsMap, lastBit, value);
  if (status != UpDone) return;
  if (isChar4Bit(layout)) value = static_cast<uint16_t>(value + kDigitZero);
  up->XmlAddPrimitiveField(this, layout);
}

uint32_t CKovCharField::StoredValue(const CKovFieldLayout* layout) const {
  // A digit below '0' wraps around in 16 bits and then does not fit in 4.
  return isChar4Bit(layout) ? static_cast<uint16_t>(value - kDigitZero) : value;
}

PkStatus CKovCharField::WriteToImage(const CKovPk*, CKovImage* image, uint32_t entryStartByte,
                                     uint8_t entryMsbStart, KovFieldsMap* fieldsMap,
                                     const CKovFieldLayout* layout, const CKovCpLayout*,
                                     uint16_t blkID, int) const {
  return WriteAtPackAddr(layout, fieldsMap, entryStartByte, entryMsbStart, blkID,
                         [&] { return WriteFieldDataToImage(image, layout); });
}

PkStatus CKovCharField::PatchFieldInImage(const CKovPk*, CKovImage* image,
                                          const CKovFieldLayout* layout, uint32_t byte,
                                          uint8_t msbStart) const {
  return WriteAtAddr(byte, msbStart, [&] { return WriteFieldDataToImage(image, layout); });
}

int CKovCharField::CanValueFitAsPerLayout(const CKovFieldLayout* layout) const {
  return kovNumBitsRequiredToStoreValue(StoredValue(layout)) <= layout->GetLengthInBits() ? 1 : 0;
}

int CKovCharField::WriteFieldDataToImage(CKovImage* image, const CKovFieldLayout* layout) const {
  imageSize = layout->GetLengthInBits();
  return kovWritePrimitiveBits(image, byteOffsetInImage, startMsbInImage, StoredValue(layout),
                               imageSize);
}
