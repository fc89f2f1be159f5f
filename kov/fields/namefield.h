// CKovNameField: a reference to another block instance by its KOV name (type << 16 | id).
//
// In the image: the name in the layout's lengthInBits bits (normally 32: type, then id; a
// narrower field keeps the low part). Pack: with checkReference set, the name is packed only when
// the referenced block (the layout's referencedBlkID) is being packed and, for a multi-instance
// block, when the id part names one of its instances; otherwise 0 is packed. Unpack: as a number.
#ifndef KOV_FIELDS_NAMEFIELD_H
#define KOV_FIELDS_NAMEFIELD_H

#include <cstdint>

#include "kov/fields/field.h"

class CKovNameField : public CKovField {
 public:
  // Pack role: the KOV name, field id, image size in bits, and whether to check the reference.
  CKovNameField(uint32_t value, uint32_t fieldID, uint32_t imageSize, int checkReference);
  // Unpack role, as for the other primitive fields.
  CKovNameField(const CKovUp* up, uint32_t entryStartByte, uint8_t entryMsbStart,
                const KovFieldsMap& fieldsMap, const CKovFieldLayout* layout, uint32_t fieldID,
                uint16_t blkID, uint32_t lastBit, UpStatus& status);

  int IsKovName() const override { return 1; }
  uint32_t GetValue() const { return value; }

  // The name to write: the value, or 0 when checkReference finds the reference absent.
  uint32_t GetKovNameToPack(const CKovPk* pk, const CKovFieldLayout* layout) const;

  PkStatus WriteToImage(const CKovPk* pk, CKovImage* image, uint32_t entryStartByte,
                        uint8_t entryMsbStart, KovFieldsMap* fieldsMap,
                        const CKovFieldLayout* layout, const CKovCpLayout* cpLayout,
                        uint16_t blkID, int instance) const override;
  // Always 1: the reference test decides what is written.
  int CanValueFitAsPerLayout(const CKovFieldLayout* layout) const override;
  PkStatus PatchFieldInImage(const CKovPk* pk, CKovImage* image, const CKovFieldLayout* layout,
                             uint32_t byte, uint8_t msbStart, uint16_t blkID,
                             int instance) const override;

 protected:
  int WriteFieldDataToImage(const CKovPk* pk, CKovImage* image,
                            const CKovFieldLayout* layout) const;

  uint32_t value = 0;
  int checkReference = 0;
};

#endif  // KOV_FIELDS_NAMEFIELD_H
