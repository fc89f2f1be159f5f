#include "kov/layout/strfieldlayout.h"

KOV_IMPLEMENT_RUNTIME_CLASS(CKovStrFieldLayout, CKovFieldLayout)

CKovStrFieldLayout::CKovStrFieldLayout(uint32_t fieldID, uint32_t byteOffset, uint8_t msbStart,
                                       CKovCharFieldLayout::CharType charType,
                                       uint32_t numberOfChars, bool hasFixedAddr,
                                       uint32_t numBitsOffsetFromPrevFieldEnd,
                                       const CKovDataLayout* parentDataLayout)
    : CKovFieldLayout(fieldID, byteOffset, 1, msbStart, hasFixedAddr, false,
                      numBitsOffsetFromPrevFieldEnd, parentDataLayout),
      charType(charType),
      numberOfChars(numberOfChars) {
  // An unknown character type keeps the 1-bit width set above.
  if (CKovCharFieldLayout::IsValidCharType(charType)) {
    lengthInBits = numberOfChars * static_cast<uint32_t>(charType);
  }
}

CKovStrFieldLayout::~CKovStrFieldLayout() = default;
