#include "kov/fields/namefield.h"

#include "kov/fields/primitiveio.h"
#include "kov/image/image.h"
#include "kov/layout/blklayout.h"
#include "kov/layout/namefieldlayout.h"
#include "kov/pack/pk.h"
#include "kov/unpack/up.h"

CKovNameField::CKovNameField(uint32_t value, uint32_t fieldID, uint32_t imageSize,
                             int checkReference)
    : CKovField(fieldID), value(value), checkReference(checkReference) {
  this->imageSize = imageSize;
}

CKovNameField::CKovNameField(const CKovUp* up, uint32_t entryStartByte, uint8_t entryMsbStart,
                             const KovFieldsMap& fieldsMap, const CKovFieldLayout* layout,
                             uint32_t fieldID, uint16_t, uint32_t lastBit, UpStatus& status)
    : CKovField(fieldID) {
  status = ReadWhole(up, layout, entryStartByte, entryMsbStart, fieldsMap, lastBit, value);
  if (status == UpDone) up->XmlAddPrimitiveField(this, layout);
}

uint32_t CKovNameField::GetKovNameToPack(const CKovPk* pk, const CKovFieldLayout* layout) const {
  if (!checkReference) return value;
  if (pk == nullptr || !layout->IsKindOf(KOV_RUNTIME_CLASS(CKovNameFieldLayout))) return 0;
  uint16_t referenced = static_cast<const CKovNameFieldLayout*>(layout)->GetReferencedBlkID();
  const CKovPkStdBlk* pkBlk = pk->GetPkBlk(referenced);
  if (pkBlk == nullptr) return 0;
  if (!pkBlk->GetBlkLayout()->IsMultiInstanceBlk()) return value;
  return (value & 0xFFFF) < pkBlk->GetBlkInstanceQty() ? value : 0;
}

PkStatus CKovNameField::WriteToImage(const CKovPk* pk, CKovImage* image, uint32_t entryStartByte,
                                     uint8_t entryMsbStart, KovFieldsMap* fieldsMap,
                                     const CKovFieldLayout* layout, const CKovCpLayout*,
                                     uint16_t blkID, int) const {
  return WriteAtPackAddr(layout, fieldsMap, entryStartByte, entryMsbStart, blkID,
                         [&] { return WriteFieldDataToImage(pk, image, layout); });
}

PkStatus CKovNameField::PatchFieldInImage(const CKovPk* pk, CKovImage* image,
                                          const CKovFieldLayout* layout, uint32_t byte,
                                          uint8_t msbStart, uint16_t, int) const {
  return WriteAtAddr(byte, msbStart, [&] { return WriteFieldDataToImage(pk, image, layout); });
}

int CKovNameField::CanValueFitAsPerLayout(const CKovFieldLayout*) const { return 1; }

int CKovNameField::WriteFieldDataToImage(const CKovPk* pk, CKovImage* image,
                                         const CKovFieldLayout* layout) const {
  imageSize = layout->GetLengthInBits();
  return kovWritePrimitiveBits(image, byteOffsetInImage, startMsbInImage,
                               GetKovNameToPack(pk, layout), imageSize);
}
