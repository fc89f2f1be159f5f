// UnionFormat and KovUnionAttribStruct: the kinds of union, and the attributes the application
// fills to make a union field layout.
//
// The constructor of CKovUnionFieldLayout copies what it needs; the structure is not kept. Never
// throws.
#ifndef KOV_LAYOUT_UNIONATTRIB_H
#define KOV_LAYOUT_UNIONATTRIB_H

#include <cstdint>
#include <list>
#include <vector>

class CKovUp;
class CKovBlkLayout;
struct KovDiscrInfo;

// The kind of a union. Split: its discriminants lie in other blocks. Variable size: it takes the
// room of the selected option, padded or not. Values outside 8 to 13 are no format; the fixed
// underlying type keeps every value an application stores defined.
enum UnionFormat : int {
  UnionFixedPadded = 8,
  UnionFixedSplitPadded = 9,
  UnionVarSz = 10,
  UnionVarSzPadded = 11,
  UnionVarSzSplit = 12,
  UnionVarSzSplitPadded = 13
};

// The option id a union takes, asked by an unpack: the unpack at work, the union's field id, the
// block instance number (from 1), the union's block and one KovDiscrInfo per discriminant found,
// in the order of discrIDArr.
using KovUpLayoutSelectionFunc = uint32_t (*)(const CKovUp* up, uint32_t unionID, uint16_t instance,
                                              const CKovBlkLayout* blkLayout,
                                              const std::list<const KovDiscrInfo*>& discrs);

struct KovUnionAttribStruct {
  // Format UnionFixedPadded, length 0, no function, no discriminants.
  KovUnionAttribStruct() = default;
  virtual ~KovUnionAttribStruct() = default;

  UnionFormat unionFormat = UnionFixedPadded;
  uint32_t lengthInBits = 0;  // the size of a fixed union; ignored for a variable one
  KovUpLayoutSelectionFunc upLayoutSelectionFunc = nullptr;
  std::vector<uint32_t> discrIDArr;     // discriminant field ids, in the function's order
  std::vector<uint16_t> discrBlkIDArr;  // the block of each discriminant; needed when split
};

#endif  // KOV_LAYOUT_UNIONATTRIB_H
