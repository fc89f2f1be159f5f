// CKovNumField: an unsigned number of up to 32 bits.
//
// In the image: the value in the layout's lengthInBits bits, most significant bit first, at the
// field's address. Pack: a value needing more bits than the layout gives does not fit; a layout
// wider than 32 bits fails the write (PkFailed). Unpack: reads lengthInBits bits (UpFailed above
// 32 or outside the image) and adds the field to the report.
#ifndef KOV_FIELDS_NUMFIELD_H
#define KOV_FIELDS_NUMFIELD_H

#include <cstdint>
#include <typeinfo>

#include "kov/fields/field.h"
#include "kov/image/image.h"

class CKovNumField : public CKovField {
 public:
  // Pack role: value, field id and the image size (bits) the measuring of a layout works with.
  CKovNumField(uint32_t value, uint32_t fieldID, uint32_t imageSize);
  // Unpack role: reads the field of the entry at (entryStartByte, entryMsbStart); lastBit is the
  // last linear bit the field may touch. The result is in status.
  CKovNumField(const CKovUp* up, uint32_t entryStartByte, uint8_t entryMsbStart,
               const KovFieldsMap& fieldsMap, const CKovFieldLayout* layout, uint32_t fieldID,
               uint16_t blkID, uint32_t lastBit, UpStatus& status);

  int IsNumber() const override { return 1; }
  uint32_t GetValue() const { return value; }

  PkStatus WriteToImage(const CKovPk* pk, CKovImage* image, uint32_t entryStartByte,
                        uint8_t entryMsbStart, KovFieldsMap* fieldsMap,
                        const CKovFieldLayout* layout, const CKovCpLayout* cpLayout,
                        uint16_t blkID, int instance) const override;
  int CanValueFitAsPerLayout(const CKovFieldLayout* layout) const override;

  // The pack's inline road for the commonest value: a number of this very class (not a subclass,
  // which may write otherwise) at a fixed address. Does what CanValueFitAsPerLayout and
  // WriteToImage do together when the value fits and the write succeeds, and returns true. In
  // any other case it returns false: the caller then takes the virtual road, which meets the
  // same case and reports it (what was done here is done again there to the same effect).
  static bool IsExactlyNumField(const CKovField* field) {
    return &typeid(*field) == &typeid(CKovNumField);
  }
  bool WriteFixedToImage(CKovImage* image, uint32_t entryStartByte, uint8_t entryMsbStart,
                         const CKovFieldLayout* layout) const {
    if (!layout->HasFixedAddr()) return false;
    const uint32_t bits = layout->GetLengthInBits();
    if (bits - 1u >= 32u || (bits < 32 && (value >> bits) != 0)) return false;
    FixedAddrOf(layout, entryStartByte, entryMsbStart, byteOffsetInImage, startMsbInImage);
    imageSize = bits;
    return kovWriteBitsToImage(image, byteOffsetInImage, startMsbInImage, value,
                               static_cast<uint8_t>(bits)) != 0;
  }
  PkStatus PatchFieldInImage(const CKovPk* pk, CKovImage* image, const CKovFieldLayout* layout,
                             uint32_t byte, uint8_t msbStart, uint16_t blkID,
                             int instance) const override;

 protected:
  // Writes value in the layout's width at the recorded address; 0 on failure.
  int WriteFieldDataToImage(CKovImage* image, const CKovFieldLayout* layout) const;

  uint32_t value = 0;
};

#endif  // KOV_FIELDS_NUMFIELD_H
