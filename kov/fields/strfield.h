// CKovStrField: a string of 4- or 8-bit characters in a fixed number of character slots.
//
// In the image: numberOfChars slots of the layout's character width, first character first. A
// Char4Bit slot holds a decimal digit as its code less 0x30. Pack: a shorter string writes only
// its characters and leaves the slots behind it untouched; no terminator is written; Char16Bit
// strings do not pack (PkFailed). A string too long for the layout, or a character too wide for
// its slot, shows
//   "Str %s has char %c that can not be stored in %d bits"   (for a character; then also)
//   "Str %s (with charLength = %d) can not be stored in %d bits"
// and does not fit. Unpack: reads every slot that ends within the last bit (a string cut short by
// the end of its block is still a string); none at all is UpOutsideBlkData; Char16Bit is
// UpFailed. The value is the text up to its first NUL.
#ifndef KOV_FIELDS_STRFIELD_H
#define KOV_FIELDS_STRFIELD_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "kov/fields/field.h"
#include "kov/platform/arena.h"

class CKovStrField : public CKovField {
 public:
  // Pack role: text (copied; null reads as ""), field id, image size in bits.
  CKovStrField(const char* text, uint32_t fieldID, uint32_t imageSize);
  // Unpack role, as for the other primitive fields.
  CKovStrField(const CKovUp* up, uint32_t entryStartByte, uint8_t entryMsbStart,
               const KovFieldsMap& fieldsMap, const CKovFieldLayout* layout, uint32_t fieldID,
               uint16_t blkID, uint32_t lastBit, UpStatus& status);

  int IsString() const override { return 1; }
  // The text up to its first NUL; for a character type other than 4 or 8 bits, shows
  // "Unicode not supportted" and gives "".
  std::string GetValue() const;
  uint32_t GetMaxPossibleNumOfChars() const { return maxNumOfChars; }

  PkStatus WriteToImage(const CKovPk* pk, CKovImage* image, uint32_t entryStartByte,
                        uint8_t entryMsbStart, KovFieldsMap* fieldsMap,
                        const CKovFieldLayout* layout, const CKovCpLayout* cpLayout,
                        uint16_t blkID, int instance) const override;
  int CanValueFitAsPerLayout(const CKovFieldLayout* layout) const override;

  using CKovField::PatchFieldInImage;
  // Writes the string at (byte, msbStart) and records that address.
  PkStatus PatchFieldInImage(const CKovPk* pk, CKovImage* image, const CKovFieldLayout* layout,
                             uint32_t byte, uint8_t msbStart) const;

 protected:
  int WriteFieldDataToImage(CKovImage* image, const CKovFieldLayout* layout) const;
  // What GetValue gives, without a copy: chars points at the text (valid while the field lives)
  // and the result is its length. Shows the same message as GetValue.
  size_t ValueChars(const char*& chars) const;

  uint32_t charType;  // a CKovCharFieldLayout::CharType value
  uint32_t maxNumOfChars = 0;
  // Every slot read, NULs included; GetValue stops at the first NUL. The text of a field made by
  // an unpack lives in the unpack's arena, as the field does (see kov/platform/arena.h).
  std::basic_string<char, std::char_traits<char>, KovArenaAllocator<char>> text;
};

#endif  // KOV_FIELDS_STRFIELD_H
