// CKovNumFieldLayout: an unsigned number of a width the caller gives, stored big-endian.
//
// Owned by the data layout it is added to. Never throws.
#ifndef KOV_LAYOUT_NUMFIELDLAYOUT_H
#define KOV_LAYOUT_NUMFIELDLAYOUT_H

#include <cstdint>

#include "kov/layout/fieldlayout.h"

class CKovNumFieldLayout : public CKovFieldLayout {
  KOV_DECLARE_RUNTIME_CLASS(CKovNumFieldLayout)

 public:
  // A number lengthInBits wide; stores its arguments.
  CKovNumFieldLayout(uint32_t fieldID, uint32_t byteOffset, uint32_t lengthInBits, uint8_t msbStart,
                     bool hasFixedAddr, uint32_t numBitsOffsetFromPrevFieldEnd,
                     const CKovDataLayout* parentDataLayout);
  ~CKovNumFieldLayout() override;
};

#endif  // KOV_LAYOUT_NUMFIELDLAYOUT_H
