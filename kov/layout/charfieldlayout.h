// CKovCharFieldLayout: one character of 4, 8 or 16 bits.
//
// The width is the CharType value. A Char4Bit character is a decimal digit stored as its code
// less 48 ('0' is 0). The constructor throws CMevGenException (code 0)
// "Invalid character type specified for field %d." (the field id) for any other character type;
// the object is then not made. Owned by the data layout it is added to.
#ifndef KOV_LAYOUT_CHARFIELDLAYOUT_H
#define KOV_LAYOUT_CHARFIELDLAYOUT_H

#include <cstdint>

#include "kov/layout/fieldlayout.h"

class CKovCharFieldLayout : public CKovFieldLayout {
  KOV_DECLARE_RUNTIME_CLASS(CKovCharFieldLayout)

 public:
  // Bits of one character; also used by CKovStrFieldLayout.
  // Bits per character. Any int may be stored; the constructors refuse the other values.
  enum CharType : int { Char4Bit = 4, Char8Bit = 8, Char16Bit = 16 };

  // One character of charType; throws the invalid-type text above when charType is not 4, 8
  // or 16.
  CKovCharFieldLayout(uint32_t fieldID, uint32_t byteOffset, uint8_t msbStart, CharType charType,
                      bool hasFixedAddr, uint32_t numBitsOffsetFromPrevFieldEnd,
                      const CKovDataLayout* parentDataLayout);
  ~CKovCharFieldLayout() override;

  // The constructor's argument.
  CharType GetCharType() const { return charType; }

  // True for Char4Bit, Char8Bit and Char16Bit.
  static bool IsValidCharType(CharType charType);

 protected:
  CharType charType;
};

#endif  // KOV_LAYOUT_CHARFIELDLAYOUT_H
