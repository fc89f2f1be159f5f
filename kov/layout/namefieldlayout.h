// CKovNameFieldLayout: a field that holds the KOV name of an instance of another block.
//
// referencedBlkID is the id of the block whose KOV name the field holds; the width is the
// caller's (a KOV name takes 32 bits). Owned by the data layout it is added to. Never throws.
#ifndef KOV_LAYOUT_NAMEFIELDLAYOUT_H
#define KOV_LAYOUT_NAMEFIELDLAYOUT_H

#include <cstdint>

#include "kov/layout/fieldlayout.h"

class CKovNameFieldLayout : public CKovFieldLayout {
  KOV_DECLARE_RUNTIME_CLASS(CKovNameFieldLayout)

 public:
  // A name lengthInBits wide referring to block referencedBlkID; stores its arguments.
  CKovNameFieldLayout(uint32_t fieldID, uint32_t byteOffset, uint32_t lengthInBits,
                      uint8_t msbStart, bool hasFixedAddr, uint32_t numBitsOffsetFromPrevFieldEnd,
                      const CKovDataLayout* parentDataLayout, uint16_t referencedBlkID);
  ~CKovNameFieldLayout() override;

  // The constructor's argument.
  uint16_t GetReferencedBlkID() const { return referencedBlkID; }

 protected:
  uint16_t referencedBlkID;
};

#endif  // KOV_LAYOUT_NAMEFIELDLAYOUT_H
