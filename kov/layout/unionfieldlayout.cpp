#include "kov/layout/unionfieldlayout.h"

#include <unordered_set>

#include "kov/layout/datalayout.h"
#include "kov/layout/unionlayoutopt.h"
#include "kov/platform/format.h"
#include "kov/platform/msgbox.h"

KOV_IMPLEMENT_RUNTIME_CLASS(CKovUnionFieldLayout, CKovFieldLayout)

CKovUnionFieldLayout::CKovUnionFieldLayout(uint32_t fieldID, uint32_t byteOffset, uint8_t msbStart,
                                           const KovUnionAttribStruct& attrib, bool hasFixedAddr,
                                           uint32_t numBitsOffsetFromPrevFieldEnd,
                                           const CKovDataLayout* parentDataLayout, uint16_t blkID)
    : CKovFieldLayout(fieldID, byteOffset, 0, msbStart, hasFixedAddr, true,
                      numBitsOffsetFromPrevFieldEnd, parentDataLayout),
      unionID(fieldID),
      unionFormat(attrib.unionFormat),
      isVarSzUnion(IsVarSzFormat(attrib.unionFormat)),
      hasSplitDiscr(IsSplitFormat(attrib.unionFormat)),
      padUnion(IsPaddedFormat(attrib.unionFormat)),
      discrIDArr(attrib.discrIDArr),
      discrBlkIDArr(attrib.discrBlkIDArr),
      upLayoutSelectionFunc(attrib.upLayoutSelectionFunc) {
  if (!isVarSzUnion) lengthInBits = attrib.lengthInBits;
  // A discriminant of a union that is not split lies in the union's own block. Filling the block
  // array lets readers walk both arrays by one index whatever the format.
  if (!hasSplitDiscr) {
    while (discrBlkIDArr.size() < discrIDArr.size()) discrBlkIDArr.push_back(blkID);
  }
}

CKovUnionFieldLayout::~CKovUnionFieldLayout() {
  // One option may have been added under two ids: delete each object once.
  std::unordered_set<CKovUnionLayoutOpt*> owned;
  for (const auto& idAndOpt : unionMap) owned.insert(idAndOpt.second);
  owned.erase(nullptr);
  for (CKovUnionLayoutOpt* opt : owned) delete opt;
}

bool CKovUnionFieldLayout::AddToUnionMap(uint32_t optID, CKovUnionLayoutOpt* opt) {
  unionMap.SetAt(optID, opt);
  return true;
}

CKovDataLayout* CKovUnionFieldLayout::GetDataLayout(uint16_t optID) const {
  CKovUnionLayoutOpt* opt = nullptr;
  if (!unionMap.Lookup(optID, opt) || opt == nullptr) return nullptr;
  return opt->GetDataLayout();
}

bool CKovUnionFieldLayout::IsSplitFormat(UnionFormat format) {
  return format == UnionFixedSplitPadded || format == UnionVarSzSplit ||
         format == UnionVarSzSplitPadded;
}

bool CKovUnionFieldLayout::IsVarSzFormat(UnionFormat format) {
  return format >= UnionVarSz && format <= UnionVarSzSplitPadded;
}

bool CKovUnionFieldLayout::IsFixedSzFormat(UnionFormat format) { return !IsVarSzFormat(format); }

bool CKovUnionFieldLayout::IsPaddedFormat(UnionFormat format) {
  return format == UnionFixedPadded || format == UnionFixedSplitPadded ||
         format == UnionVarSzPadded || format == UnionVarSzSplitPadded;
}

void kovValidateUnionParms(uint32_t unionID, const KovUnionAttribStruct& attrib, uint16_t blkID) {
  const int id = static_cast<int>(unionID);
  if (attrib.discrIDArr.empty()) {
    kovMessageBox(
        kovFormat("No discriminant ID(s) specified for Union\n%d in block %d.", id, blkID));
  }
  if (CKovUnionFieldLayout::IsSplitFormat(attrib.unionFormat) &&
      attrib.discrIDArr.size() != attrib.discrBlkIDArr.size()) {
    kovMessageBox(kovFormat(
        "The number of discriminant IDs must match the\nnumber of discriminant block IDs. "
        "See Union %d\nin block %d.",
        id, blkID));
  }
}
