#include "kov/layout/charfieldlayout.h"

#include "kov/platform/format.h"
#include "kov/platform/mevgenexception.h"

KOV_IMPLEMENT_RUNTIME_CLASS(CKovCharFieldLayout, CKovFieldLayout)

CKovCharFieldLayout::CKovCharFieldLayout(uint32_t fieldID, uint32_t byteOffset, uint8_t msbStart,
                                         CharType charType, bool hasFixedAddr,
                                         uint32_t numBitsOffsetFromPrevFieldEnd,
                                         const CKovDataLayout* parentDataLayout)
    : CKovFieldLayout(fieldID, byteOffset, static_cast<uint32_t>(charType), msbStart, hasFixedAddr,
                      false, numBitsOffsetFromPrevFieldEnd, parentDataLayout),
      charType(charType) {
  if (!IsValidCharType(charType)) {
    throw new CMevGenException(
        kovFormat("Invalid character type specified for field %d.", static_cast<int>(fieldID)), 0);
  }
}

CKovCharFieldLayout::~CKovCharFieldLayout() = default;

bool CKovCharFieldLayout::IsValidCharType(CharType charType) {
  return charType == Char4Bit || charType == Char8Bit || charType == Char16Bit;
}
