#include "kov/layout/namefieldlayout.h"

KOV_IMPLEMENT_RUNTIME_CLASS(CKovNameFieldLayout, CKovFieldLayout)

CKovNameFieldLayout::CKovNameFieldLayout(uint32_t fieldID, uint32_t byteOffset,
                                         uint32_t lengthInBits, uint8_t msbStart, bool hasFixedAddr,
                                         uint32_t numBitsOffsetFromPrevFieldEnd,
                                         const CKovDataLayout* parentDataLayout,
                                         uint16_t referencedBlkID)
    : CKovFieldLayout(fieldID, byteOffset, lengthInBits, msbStart, hasFixedAddr, false,
                      numBitsOffsetFromPrevFieldEnd, parentDataLayout),
      referencedBlkID(referencedBlkID) {}

CKovNameFieldLayout::~CKovNameFieldLayout() = default;
