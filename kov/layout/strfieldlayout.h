// CKovStrFieldLayout: a string of a fixed number of characters of one CharType.
//
// The width is numberOfChars × the CharType value (Char4Bit 4, Char8Bit 8, Char16Bit 16 bits).
// The constructor does not check the character type: with any other value the layout is 1 bit
// wide, and the string writer refuses such a field when it packs. Owned by the data layout it is
// added to. Never throws.
#ifndef KOV_LAYOUT_STRFIELDLAYOUT_H
#define KOV_LAYOUT_STRFIELDLAYOUT_H

#include <cstdint>

#include "kov/layout/charfieldlayout.h"
#include "kov/layout/fieldlayout.h"

class CKovStrFieldLayout : public CKovFieldLayout {
  KOV_DECLARE_RUNTIME_CLASS(CKovStrFieldLayout)

 public:
  // numberOfChars characters of charType.
  CKovStrFieldLayout(uint32_t fieldID, uint32_t byteOffset, uint8_t msbStart,
                     CKovCharFieldLayout::CharType charType, uint32_t numberOfChars,
                     bool hasFixedAddr, uint32_t numBitsOffsetFromPrevFieldEnd,
                     const CKovDataLayout* parentDataLayout);
  ~CKovStrFieldLayout() override;

  // The constructor's arguments.
  CKovCharFieldLayout::CharType GetCharType() const { return charType; }
  uint32_t GetNumberOfChars() const { return numberOfChars; }

 protected:
  CKovCharFieldLayout::CharType charType;
  uint32_t numberOfChars;
};

#endif  // KOV_LAYOUT_STRFIELDLAYOUT_H
