// CKovCharField: one character of 4, 8 or 16 bits.
//
// The value is always the character's code. In the image a Char8Bit or Char16Bit character is its
// code in 8 or 16 bits; a Char4Bit character is a decimal digit stored as its code less 0x30
// ('7' is stored as 0111). The width is the layout's lengthInBits.
#ifndef KOV_FIELDS_CHARFIELD_H
#define KOV_FIELDS_CHARFIELD_H

#include <cstdint>

#include "kov/fields/field.h"

class CKovCharField : public CKovField {
 public:
  // Pack role: the character code, field id and image size in bits.
  CKovCharField(uint16_t value, uint32_t fieldID, uint32_t imageSize);
  // Unpack role: as CKovNumField's; a Char4Bit digit reads back as its character.
  CKovCharField(const CKovUp* up, uint32_t entryStartByte, uint8_t entryMsbStart,
                const KovFieldsMap& fieldsMap, const CKovFieldLayout* layout, uint32_t fieldID,
                uint16_t blkID, uint32_t lastBit, UpStatus& status);

  int IsChar() const override { return 1; }
  uint16_t GetValue() const { return value; }

  PkStatus WriteToImage(const CKovPk* pk, CKovImage* image, uint32_t entryStartByte,
                        uint8_t entryMsbStart, KovFieldsMap* fieldsMap,
                        const CKovFieldLayout* layout, const CKovCpLayout* cpLayout,
                        uint16_t blkID, int instance) const override;
  int CanValueFitAsPerLayout(const CKovFieldLayout* layout) const override;

  using CKovField::PatchFieldInImage;
  // Writes the character at (byte, msbStart) and records that address.
  PkStatus PatchFieldInImage(const CKovPk* pk, CKovImage* image, const CKovFieldLayout* layout,
                             uint32_t byte, uint8_t msbStart) const;

 protected:
  int WriteFieldDataToImage(CKovImage* image, const CKovFieldLayout* layout) const;
  // The bits that stand for the character in the image under layout.
  uint32_t StoredValue(const CKovFieldLayout* layout) const;

  uint16_t value = 0;
};

#endif  // KOV_FIELDS_CHARFIELD_H
