#include "kov/layout/fieldlayout.h"

KOV_IMPLEMENT_RUNTIME_ROOT(CKovFieldLayout)

CKovFieldLayout::CKovFieldLayout(uint32_t fieldID, uint32_t byteOffset, uint32_t lengthInBits,
                                 uint8_t msbStart, bool hasFixedAddr, bool isComplex,
                                 uint32_t numBitsOffsetFromPrevFieldEnd,
                                 const CKovDataLayout* parentDataLayout)
    : fieldID(fieldID),
      byteOffset(byteOffset),
      lengthInBits(lengthInBits),
      msbStart(msbStart),
      hasFixedAddr(hasFixedAddr),
      isComplex(isComplex),
      numBitsOffsetFromPrevFieldEnd(numBitsOffsetFromPrevFieldEnd),
      parentDataLayout(parentDataLayout) {}

CKovFieldLayout::~CKovFieldLayout() = default;

uint32_t CKovFieldLayout::GetLengthInBits() const { return lengthInBits; }

bool CKovFieldLayout::IsFixedSz() const { return true; }

bool CKovFieldLayout::IsPrimitiveFieldLayout() const { return !isComplex; }

bool CKovFieldLayout::IsComplexFieldLayout() const { return isComplex; }
