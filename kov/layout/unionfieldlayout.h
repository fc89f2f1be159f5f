// CKovUnionFieldLayout: a field with several selectable data layouts, chosen by discriminants.
//
// Each option is a CKovUnionLayoutOpt under its option id. A fixed union (UnionFixedPadded,
// UnionFixedSplitPadded) always takes GetLengthInBits; a variable one has GetLengthInBits 0 and
// takes the size of the selected option. discrIDArr names the discriminant fields and
// discrBlkIDArr, index for index, the block of each: for a format that is not split the
// constructor fills it up with the union's own block id. The union owns the options in its map
// and deletes them (each distinct object once); an option displaced by a second AddToUnionMap of
// its id returns to the caller. The
// constructor checks nothing; kovValidateUnionParms advises through message boxes. Nothing here
// throws.
#ifndef KOV_LAYOUT_UNIONFIELDLAYOUT_H
#define KOV_LAYOUT_UNIONFIELDLAYOUT_H

#include <cstdint>
#include <vector>

#include "kov/layout/fieldlayout.h"
#include "kov/layout/unionattrib.h"
#include "kov/platform/kovmap.h"

class CKovUnionLayoutOpt;

class CKovUnionFieldLayout : public CKovFieldLayout {
  KOV_DECLARE_RUNTIME_CLASS(CKovUnionFieldLayout)

 public:
  // A union with the format, length, function and discriminants of attrib, lying in block blkID.
  // Its option map starts empty.
  CKovUnionFieldLayout(uint32_t fieldID, uint32_t byteOffset, uint8_t msbStart,
                       const KovUnionAttribStruct& attrib, bool hasFixedAddr,
                       uint32_t numBitsOffsetFromPrevFieldEnd,
                       const CKovDataLayout* parentDataLayout, uint16_t blkID);
  // Deletes every option (and with it its data layout).
  ~CKovUnionFieldLayout() override;

  // False for the variable formats.
  bool IsFixedSz() const override { return !isVarSzUnion; }

  // Stores opt (ownership passes) under optID; the same id again replaces the pointer, and the
  // displaced option is the caller's again. Always true.
  bool AddToUnionMap(uint32_t optID, CKovUnionLayoutOpt* opt);
  // The data layout of option optID; null for an option never added.
  CKovDataLayout* GetDataLayout(uint16_t optID) const;
  // The options by id.
  const CKovMap<uint32_t, CKovUnionLayoutOpt*>* GetUnionMap() const { return &unionMap; }

  // The members as constructed; the arrays by reference.
  uint32_t GetUnionID() const { return unionID; }
  UnionFormat GetUnionFmt() const { return unionFormat; }
  const std::vector<uint32_t>& GetDiscrIDArr() const { return discrIDArr; }
  const std::vector<uint16_t>& GetDiscrBlkIDArr() const { return discrBlkIDArr; }
  KovUpLayoutSelectionFunc GetUpLayoutSelectionFuncPtr() const { return upLayoutSelectionFunc; }
  bool HasSplitDiscr() const { return hasSplitDiscr; }
  bool IsVarSzUnion() const { return isVarSzUnion; }
  bool PadUnion() const { return padUnion; }

  // Format predicates, by the table of UnionFormat; false for a value outside 8 to 13 except the
  // negation IsFixedSzFormat.
  static bool IsSplitFormat(UnionFormat format);
  static bool IsVarSzFormat(UnionFormat format);
  static bool IsFixedSzFormat(UnionFormat format);
  static bool IsPaddedFormat(UnionFormat format);

 protected:
  uint32_t unionID;
  UnionFormat unionFormat;
  bool isVarSzUnion;
  bool hasSplitDiscr;
  bool padUnion;
  std::vector<uint32_t> discrIDArr;
  std::vector<uint16_t> discrBlkIDArr;
  KovUpLayoutSelectionFunc upLayoutSelectionFunc;
  CKovMap<uint32_t, CKovUnionLayoutOpt*> unionMap;
};

// Advises on a union's attributes before the union is made, through message boxes only; both
// tests run:
//   no discriminant: "No discriminant ID(s) specified for Union\n%d in block %d.";
//   a split format whose two arrays differ in length: "The number of discriminant IDs must match
//     the\nnumber of discriminant block IDs. See Union %d\nin block %d." (one text).
void kovValidateUnionParms(uint32_t unionID, const KovUnionAttribStruct& attrib, uint16_t blkID);

#endif  // KOV_LAYOUT_UNIONFIELDLAYOUT_H
