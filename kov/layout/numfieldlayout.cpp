#include "kov/layout/numfieldlayout.h"

KOV_IMPLEMENT_RUNTIME_CLASS(CKovNumFieldLayout, CKovFieldLayout)

CKovNumFieldLayout::CKovNumFieldLayout(uint32_t fieldID, uint32_t byteOffset, uint32_t lengthInBits,
                                       uint8_t msbStart, bool hasFixedAddr,
                                       uint32_t numBitsOffsetFromPrevFieldEnd,
                                       const CKovDataLayout* parentDataLayout)
    : CKovFieldLayout(fieldID, byteOffset, lengthInBits, msbStart, hasFixedAddr, false,
                      numBitsOffsetFromPrevFieldEnd, parentDataLayout) {}

CKovNumFieldLayout::~CKovNumFieldLayout() = default;
