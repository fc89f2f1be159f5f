// CKovFieldLayout: where one field lies within an entry and how wide it is; root of the kinds.
//
// A fixed field (hasFixedAddr) lies byteOffset whole bytes behind the byte of the entry start,
// its first bit at msbStart (7 = a byte's top bit, 0 its lowest). A floating field lies
// numBitsOffsetFromPrevFieldEnd bits behind the end of the field before it in its data layout,
// or behind the entry start when it is the layout's first field. Widths are in bits.
//
// A field layout is immutable once made. The data layout it is added to owns it; the field only
// points back at its parent data layout. The kinds are told apart by IsKindOf against
// classCKovNumFieldLayout, classCKovCharFieldLayout, classCKovStrFieldLayout,
// classCKovNameFieldLayout, classCKovListFieldLayout and classCKovUnionFieldLayout. Nothing in
// this class throws.
#ifndef KOV_LAYOUT_FIELDLAYOUT_H
#define KOV_LAYOUT_FIELDLAYOUT_H

#include <cstdint>

#include "kov/platform/runtimeclass.h"

class CKovDataLayout;

class CKovFieldLayout {
  KOV_DECLARE_RUNTIME_ROOT(CKovFieldLayout)

 public:
  // Stores its arguments; registers the field nowhere (the caller adds it with AddField).
  CKovFieldLayout(uint32_t fieldID, uint32_t byteOffset, uint32_t lengthInBits, uint8_t msbStart,
                  bool hasFixedAddr, bool isComplex, uint32_t numBitsOffsetFromPrevFieldEnd,
                  const CKovDataLayout* parentDataLayout);
  virtual ~CKovFieldLayout();

  CKovFieldLayout(const CKovFieldLayout&) = delete;
  CKovFieldLayout& operator=(const CKovFieldLayout&) = delete;

  // Width in the image, in bits. 0 for a list of variable size and for a variable union: their
  // width depends on the values.
  virtual uint32_t GetLengthInBits() const;
  // True when every instance of the field takes GetLengthInBits; false for variable lists and
  // unions.
  virtual bool IsFixedSz() const;
  // True for number, character, string and name layouts.
  virtual bool IsPrimitiveFieldLayout() const;
  // True for list and union layouts, which hold data layouts of their own.
  virtual bool IsComplexFieldLayout() const;

  // The members as constructed. HasFloatingAddr is the negation of HasFixedAddr.
  uint32_t GetFieldID() const { return fieldID; }
  uint32_t GetByteOffset() const { return byteOffset; }
  uint8_t GetMsbStart() const { return msbStart; }
  uint32_t GetNumBitsOffsetFromPrevFieldEnd() const { return numBitsOffsetFromPrevFieldEnd; }
  const CKovDataLayout* GetParentDataLayout() const { return parentDataLayout; }
  bool HasFixedAddr() const { return hasFixedAddr; }
  bool HasFloatingAddr() const { return !hasFixedAddr; }

 protected:
  uint32_t fieldID;
  uint32_t byteOffset;
  uint32_t lengthInBits;
  uint8_t msbStart;
  bool hasFixedAddr;
  bool isComplex;
  uint32_t numBitsOffsetFromPrevFieldEnd;
  const CKovDataLayout* parentDataLayout;
};

#endif  // KOV_LAYOUT_FIELDLAYOUT_H
