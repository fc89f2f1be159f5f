#include "kov/layout/cplayout.h"

#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "kov/image/image.h"
#include "kov/layout/charfieldlayout.h"
#include "kov/layout/datalayout.h"
#include "kov/layout/fieldlayout.h"
#include "kov/layout/klsblklayout.h"
#include "kov/layout/listfieldlayout.h"
#include "kov/layout/namefieldlayout.h"
#include "kov/layout/numfieldlayout.h"
#include "kov/layout/partitionlayout.h"
#include "kov/layout/strfieldlayout.h"
#include "kov/layout/unionfieldlayout.h"
#include "kov/platform/format.h"
#include "kov/platform/mevgenexception.h"
#include "kov/platform/msgbox.h"

CKovCpLayout::CKovCpLayout(int8_t versionIndex, int8_t modelIndex, uint32_t maxPossibleSize,
                           int saveToSeparateFiles)
    : versionIndex(versionIndex),
      modelIndex(modelIndex),
      cpLayoutStdVersion("01.00"),
      saveToSeparateFiles(saveToSeparateFiles),
      maxPossibleSize(maxPossibleSize) {}

CKovCpLayout::~CKovCpLayout() { Cleanup(); }

void CKovCpLayout::Cleanup() {
  for (const auto& numAndPartition : partitionLayoutMap) delete numAndPartition.second;
  partitionLayoutMap.RemoveAll();
}

int CKovCpLayout::AddPartition(uint16_t partitionNum, AccessRights accessRights) {
  if (partitionLayoutMap.Contains(partitionNum)) {
    kovMessageBox(kovFormat("Partition %d already registered.", partitionNum));
    return 0;
  }
  auto partition = std::make_unique<CKovPartitionLayout>(partitionNum, accessRights);
  partitionLayoutMap.SetAt(partitionNum, partition.get());
  partition.release();
  partitionNumList.push_back(partitionNum);
  return 1;
}

int CKovCpLayout::HasUniqueKovName(const CKovBlkLayout* blkLayout) {
  const uint16_t kovType = blkLayout->GetKovType();
  if (usedKovTypes.Contains(kovType)) {
    kovMessageBox(
        kovFormat("KOV Type of %d specified for block with ID %d but\nthat type value is already "
                  "in use by another block.",
                  kovType, blkLayout->GetBlkID()));
    return 0;
  }
  usedKovTypes.SetAt(kovType, blkLayout->GetBlkID());
  kovNameMap.SetAt(kovGetKovName(kovType, blkLayout->GetKovID()), blkLayout->GetBlkID());
  return 1;
}

void CKovCpLayout::AddBlkLayout(CKovBlkLayout* blkLayout) {
  if (blkLayoutMap.Contains(blkLayout->GetBlkID())) {
    throw new CMevGenException(
        kovFormat("Block %s already defined in image.", blkLayout->GetBlkName().c_str()), 0);
  }
  CKovPartitionLayout* partition = GetPartitionLayout(blkLayout->GetPartitionNum());
  if (partition == nullptr) {
    throw new CMevGenException(
        kovFormat("Error adding block %s to partition %d.\nNo such "
                  "partition exists.",
                  blkLayout->GetBlkName().c_str(), blkLayout->GetPartitionNum()),
        0);
  }
  partition->AddBlkLayout(blkLayout);
  blkLayoutMap.SetAt(blkLayout->GetBlkID(), blkLayout);
}

CKovPartitionLayout* CKovCpLayout::GetPartitionLayout(uint16_t partitionNum) const {
  CKovPartitionLayout* partition = nullptr;
  partitionLayoutMap.Lookup(partitionNum, partition);
  return partition;
}

AccessRights CKovCpLayout::GetAccessRights(uint16_t partitionNum) const {
  const CKovPartitionLayout* partition = GetPartitionLayout(partitionNum);
  if (partition == nullptr) {
    throw new CMevGenException(kovFormat("Partition #%d not found.", partitionNum), 0);
  }
  return partition->GetAccessRights();
}

int CKovCpLayout::IsRWPartition(uint16_t partitionNum) const {
  return GetAccessRights(partitionNum) == ReadWrite ? 1 : 0;
}

int CKovCpLayout::IsRWLockedPartition(uint16_t partitionNum) const {
  return GetAccessRights(partitionNum) == ReadWriteLocked ? 1 : 0;
}

int CKovCpLayout::IsROPartition(uint16_t partitionNum) const {
  return GetAccessRights(partitionNum) == ReadOnly ? 1 : 0;
}

const std::list<CKovBlkLayout*>& CKovCpLayout::GetBlkLayoutList(uint16_t partitionNum) const {
  const CKovPartitionLayout* partition = GetPartitionLayout(partitionNum);
  if (partition == nullptr) {
    throw new CMevGenException(kovFormat("Error getting block layout list for partition %d.\n"
                                         "No such partition exists.",
                                         partitionNum),
                               0);
  }
  return partition->GetBlkLayoutList();
}

uint16_t CKovCpLayout::GetNumberOfBlks(uint16_t partitionNum) const {
  const CKovPartitionLayout* partition = GetPartitionLayout(partitionNum);
  if (partition == nullptr) {
    throw new CMevGenException(kovFormat("Error getting block count in partition %d.\n"
                                         "No such partition exists.",
                                         partitionNum),
                               0);
  }
  return partition->GetNumberOfBlks();
}

int CKovCpLayout::DoesBlkExist(uint16_t blkID) const {
  return blkLayoutMap.Contains(blkID) ? 1 : 0;
}

CKovBlkLayout* CKovCpLayout::GetBlkLayout(uint16_t blkID) const {
  CKovBlkLayout* blkLayout = nullptr;
  blkLayoutMap.Lookup(blkID, blkLayout);
  return blkLayout;
}

std::string CKovCpLayout::GetBlkName(uint16_t blkID) const {
  const CKovBlkLayout* blkLayout = GetBlkLayout(blkID);
  return blkLayout == nullptr ? std::string() : blkLayout->GetBlkName();
}

CKovFieldLayout* CKovCpLayout::GetFieldLayout(uint16_t blkID, uint32_t fieldID) const {
  const CKovBlkLayout* blkLayout = GetBlkLayout(blkID);
  return blkLayout == nullptr ? nullptr : blkLayout->GetFieldLayout(fieldID);
}

int CKovCpLayout::ValidKovName(uint16_t kovType, uint16_t kovID) {
  return kovType >= 1 && kovType <= 0xFFFD && kovID <= 0xFFFE ? 1 : 0;
}

int CKovCpLayout::ValidKovName(uint32_t kovName) {
  return ValidKovName(static_cast<uint16_t>(kovName >> 16), static_cast<uint16_t>(kovName));
}

uint16_t CKovCpLayout::GetBlkIDFromKovName(uint16_t kovType, uint16_t kovID) const {
  return GetBlkIDFromKovName(kovGetKovName(kovType, kovID));
}

uint16_t CKovCpLayout::GetBlkIDFromKovName(uint32_t kovName) const {
  uint16_t blkID = 0;
  if (kovNameMap.Lookup(kovName, blkID)) return blkID;

  // Instances of a multi-instance or distributed block bear ids other than the 0 it was
  // registered with: they are found through their type.
  const uint32_t typeName = kovGetKovName(static_cast<uint16_t>(kovName >> 16), 0);
  if (kovNameMap.Lookup(typeName, blkID)) {
    const CKovBlkLayout* blkLayout = GetBlkLayout(blkID);
    if (blkLayout != nullptr &&
        (blkLayout->IsMultiInstanceBlk() != 0 || blkLayout->IsDistKLS() != 0) &&
        ValidKovName(typeName) != 0) {
      return blkID;
    }
  }
  throw new CMevGenException(
      kovFormat("Unable to find blkID for item with KOV Name = 0x%x.", typeName), 0);
}

const CKovBlkLayout* CKovCpLayout::GetLeqBlkLayout(const CKovListFieldLayout* listLayout,
                                                   const CKovBlkLayout* ownBlk) const {
  if (!listLayout->HasConstLEQ()) return nullptr;
  if (!listLayout->HasSplitLEQ()) return ownBlk;
  const uint16_t leqBlkID = listLayout->GetLeqBlkID();
  const CKovBlkLayout* leqBlk = GetBlkLayout(leqBlkID);
  if (leqBlk == nullptr) {
    throw new CMevGenException(
        kovFormat("List %d references LEQ in block %d but block does not exist.",
                  static_cast<int>(listLayout->GetListID()), leqBlkID),
        0);
  }
  if (leqBlk->IsDistKLS() != 0) {
    throw new CMevGenException(
        kovFormat("List field %d in block %d references an LEQ field in\ndistributed block %d. "
                  "'Split-across' LEQ fields may\nnot live in distributed blocks.",
                  static_cast<int>(listLayout->GetListID()), ownBlk->GetBlkID(), leqBlkID),
        0);
  }
  return leqBlk;
}

bool CKovCpLayout::GetLeqFieldLayout(const CKovListFieldLayout* listLayout,
                                     const CKovDataLayout* listDataLayout,
                                     const CKovFieldLayout* leqFieldLayout,
                                     const CKovBlkLayout* blk, const KovListAttribStruct& attrib,
                                     bool leqMustShareEntry) const {
  const int listID = static_cast<int>(listLayout->GetListID());
  const std::string blkName = blk->GetBlkName();
  if (attrib.leqID == 0) {
    throw new CMevGenException(kovFormat("%s field ID not specified for List field %d in block %s",
                                         "LEQ", listID, blkName.c_str()),
                               0);
  }
  if (leqFieldLayout == nullptr) {
    throw new CMevGenException(
        kovFormat("LEQ field referenced by List field %d not found in block %s)", listID,
                  blkName.c_str()),
        0);
  }
  if (!leqFieldLayout->IsKindOf(KOV_RUNTIME_CLASS(CKovNumFieldLayout))) {
    throw new CMevGenException(kovFormat("LEQ field for List field %d must be numeric (see "
                                         "block %s)",
                                         listID, blkName.c_str()),
                               0);
  }
  if (kovNumBitsRequiredToStoreValue(attrib.maxEntryQty) > leqFieldLayout->GetLengthInBits()) {
    throw new CMevGenException(
        kovFormat("LEQ field not large enough to hold max quantity specified for List field %d "
                  "(see block %s)",
                  listID, blkName.c_str()),
        0);
  }
  if (leqMustShareEntry && leqFieldLayout->GetParentDataLayout() != listDataLayout) {
    throw new CMevGenException(
        kovFormat("LEQ field must live in same entry layout as List field %d in block %s", listID,
                  blkName.c_str()),
        0);
  }
  return true;
}

namespace {

// Linear bit index of a field's first bit, from the byte and MSB it was laid out with:
// byte × 8 + 7 − MSB. Floating fields are taken as they stand. Wide enough for any 32-bit byte.
uint64_t layoutBitIndex(const CKovFieldLayout* field) {
  return static_cast<uint64_t>(field->GetByteOffset()) * 8 + 7 - field->GetMsbStart();
}

[[noreturn]] void throwLayoutFault(const std::string& text) { throw new CMevGenException(text, 0); }

}  // namespace

void CKovCpLayout::DoPostLayoutVerification() const {
  for (const auto& idAndBlk : blkLayoutMap) {
    const CKovBlkLayout* blk = idAndBlk.second;
    for (const auto& idAndField : blk->GetFieldVerificationMap()) {
      const CKovFieldLayout* field = idAndField.second;
      if (field == nullptr) continue;
      if (field->IsKindOf(KOV_RUNTIME_CLASS(CKovNameFieldLayout))) {
        VerifyKovNameFieldDependencies(idAndField.first,
                                       static_cast<const CKovNameFieldLayout*>(field), blk);
      } else if (field->IsKindOf(KOV_RUNTIME_CLASS(CKovUnionFieldLayout))) {
        VerifyUnionFieldDependencies(idAndField.first,
                                     static_cast<const CKovUnionFieldLayout*>(field), blk);
      } else if (field->IsKindOf(KOV_RUNTIME_CLASS(CKovListFieldLayout))) {
        VerifyListFieldDependencies(idAndField.first,
                                    static_cast<const CKovListFieldLayout*>(field), blk);
      }
    }
  }
  VerifyDistKLSAndHdrBlks();
}

void CKovCpLayout::VerifyUnionFieldDependencies(uint32_t fieldID,
                                                const CKovUnionFieldLayout* unionLayout,
                                                const CKovBlkLayout* blk) const {
  const bool splitWithin = !CKovUnionFieldLayout::IsSplitFormat(unionLayout->GetUnionFmt());
  const std::vector<uint32_t>& discrIDs = unionLayout->GetDiscrIDArr();
  const std::vector<uint16_t>& discrBlkIDs = unionLayout->GetDiscrBlkIDArr();
  // A split union whose arrays differ has no block for some discriminant; the constructor fills
  // the array of every other union.
  if (discrBlkIDs.size() < discrIDs.size()) {
    throwLayoutFault(
        kovFormat("Union %d in block %d names %d discriminants but %d discriminant "
                  "blocks.",
                  static_cast<int>(fieldID), blk->GetBlkID(), static_cast<int>(discrIDs.size()),
                  static_cast<int>(discrBlkIDs.size())));
  }
  for (size_t i = 0; i < discrIDs.size(); ++i) {
    const uint16_t discrBlkID = discrBlkIDs[i];
    if (splitWithin && discrBlkID != blk->GetBlkID()) {
      throwLayoutFault(
          kovFormat("Union %d in block %d has split-within format\nbut discriminant "
                    "resides in different block.",
                    static_cast<int>(fieldID), blk->GetBlkID()));
    }
    if (!splitWithin && discrBlkID == blk->GetBlkID()) {
      throwLayoutFault(
          kovFormat("Union %d in block %d has split-across format\nbut discriminant "
                    "resides in same block.",
                    static_cast<int>(fieldID), blk->GetBlkID()));
    }
    ValidateDiscrField(fieldID, discrIDs[i], discrBlkID, splitWithin, unionLayout, blk);
  }
}

void CKovCpLayout::ValidateDiscrField(uint32_t unionID, uint32_t discrID, uint16_t discrBlkID,
                                      bool splitWithin, const CKovUnionFieldLayout* unionLayout,
                                      const CKovBlkLayout* blk) const {
  const CKovBlkLayout* blkToSearch = blk;
  if (!splitWithin) {
    blkToSearch = GetBlkLayout(discrBlkID);
    if (blkToSearch == nullptr) {
      throwLayoutFault(
          kovFormat("Union field %d references discriminant in block with ID %d\nbut "
                    "no layout for that block exists.",
                    static_cast<int>(unionID), discrBlkID));
    }
    if (blkToSearch->IsDistKLS() != 0) {
      throwLayoutFault(
          kovFormat("Union field %d in block %d references discriminant in\n"
                    "distributed block %d. 'Split-across' discriminants may\nnot "
                    "live in distributed blocks.",
                    static_cast<int>(unionID), blk->GetBlkID(), discrBlkID));
    }
  }
  // The discriminant of a union in a list entry must lie in that entry: each entry selects its
  // own option.
  const CKovDataLayout* unionDataLayout = unionLayout->GetParentDataLayout();
  const CKovDataLayout* searched =
      unionDataLayout != nullptr && unionDataLayout->GetLayoutType() == ListEntryLayout
          ? unionDataLayout
          : blkToSearch->GetDataLayout();
  const CKovFieldLayout* discr = searched != nullptr ? searched->GetFieldLayout(discrID) : nullptr;
  VerifyDiscrFieldLayout(unionLayout, unionDataLayout, discr, searched, blk);
}

bool CKovCpLayout::VerifyDiscrFieldLayout(const CKovUnionFieldLayout* unionLayout,
                                          const CKovDataLayout* unionDataLayout,
                                          const CKovFieldLayout* discrFieldLayout,
                                          const CKovDataLayout*, const CKovBlkLayout* blk) const {
  const int unionID = static_cast<int>(unionLayout->GetFieldID());
  if (discrFieldLayout == nullptr) {
    throwLayoutFault(
        kovFormat("Discriminant field referenced by Union field %d does not exist", unionID));
  }
  if (!discrFieldLayout->IsKindOf(KOV_RUNTIME_CLASS(CKovNumFieldLayout)) &&
      !discrFieldLayout->IsKindOf(KOV_RUNTIME_CLASS(CKovCharFieldLayout)) &&
      !discrFieldLayout->IsKindOf(KOV_RUNTIME_CLASS(CKovStrFieldLayout))) {
    throwLayoutFault(
        kovFormat("Invalid field type specified for discriminant field %d (see "
                  "block %s)",
                  static_cast<int>(discrFieldLayout->GetFieldID()), blk->GetBlkName().c_str()));
  }
  if (unionDataLayout != nullptr && unionDataLayout->GetLayoutType() == ListEntryLayout &&
      layoutBitIndex(discrFieldLayout) > layoutBitIndex(unionLayout)) {
    throwLayoutFault(
        kovFormat("For unions embedded inside list fields, the discriminant field "
                  "must precede\nthe union field within the list entry data layout. "
                  "See union field\n%d in block %s.",
                  unionID, blk->GetBlkName().c_str()));
  }
  return true;
}

void CKovCpLayout::VerifyListFieldDependencies(uint32_t, const CKovListFieldLayout* listLayout,
                                               const CKovBlkLayout* blk) const {
  const CKovBlkLayout* leqBlk = GetLeqBlkLayout(listLayout, blk);
  KovListAttribStruct attrib;
  attrib.leqID = listLayout->GetLeqID();
  attrib.maxEntryQty = listLayout->GetMaxEntryQty();
  const CKovDataLayout* listDataLayout = listLayout->GetParentDataLayout();
  switch (listLayout->GetListFormat()) {
    case VarSzContigLeq: {
      // Only the list's own data layout counts: an LEQ inside a complex field is not in front
      // of the list.
      CKovFieldLayout* leq = nullptr;
      if (listDataLayout != nullptr) listDataLayout->GetFieldMap().Lookup(attrib.leqID, leq);
      GetLeqFieldLayout(listLayout, listDataLayout, leq, blk, attrib, true);
      VerifyFieldContiguity(leq, listLayout, blk);
      break;
    }
    case VarSzSameBlkLeq:
    case VarSzSplitLeq: {
      const CKovFieldLayout* leq =
          leqBlk != nullptr ? leqBlk->GetFieldLayout(attrib.leqID) : nullptr;
      GetLeqFieldLayout(listLayout, listDataLayout, leq, blk, attrib, false);
      break;
    }
    default:
      // No LEQ field to check; kovValidateSglListParms keeps such lists out of the map.
      kovMessageBox("Invalid list format specified.");
      break;
  }
}

bool CKovCpLayout::VerifyFieldContiguity(const CKovFieldLayout* first,
                                         const CKovFieldLayout* second,
                                         const CKovBlkLayout* blk) const {
  bool contiguous = true;
  if (second->HasFloatingAddr()) {
    const CKovDataLayout* parent = second->GetParentDataLayout();
    contiguous = parent != nullptr &&
                 parent->GetPrevFieldID(second->GetFieldID()) == first->GetFieldID() &&
                 second->GetNumBitsOffsetFromPrevFieldEnd() == 0;
  } else if (first->HasFixedAddr()) {
    contiguous = VerifyContiguityForFixedAddrFields(first, second, blk);
  }
  // A floating first field before a fixed second one cannot be measured here: it passes.
  if (!contiguous) {
    throwLayoutFault(kovFormat("Field %d must immediately precede field %d (see block %s)",
                               static_cast<int>(first->GetFieldID()),
                               static_cast<int>(second->GetFieldID()), blk->GetBlkName().c_str()));
  }
  return true;
}

bool CKovCpLayout::VerifyContiguityForFixedAddrFields(const CKovFieldLayout* first,
                                                      const CKovFieldLayout* second,
                                                      const CKovBlkLayout*) const {
  return layoutBitIndex(first) + first->GetLengthInBits() == layoutBitIndex(second);
}

void CKovCpLayout::VerifyDistKLSAndHdrBlks() const {
  std::unordered_set<uint32_t> hdrBlkIDs;
  for (const auto& idAndBlk : blkLayoutMap) {
    if (idAndBlk.second->IsDistKLS() == 0) continue;
    const auto* kls = dynamic_cast<const CKovKLSBlkLayout*>(idAndBlk.second);
    if (kls == nullptr) continue;
    const uint32_t hdrBlkID = kls->GetHdrBlkID();
    if (!hdrBlkIDs.insert(hdrBlkID).second) {
      throwLayoutFault(
          kovFormat("Multiple Distributed KOV List Structure blocks\nreference "
                    "Header block %d.",
                    static_cast<int>(hdrBlkID)));
    }
    VerifyKLSHdrBlk(kls, GetBlkLayout(static_cast<uint16_t>(hdrBlkID)));
  }
  for (const auto& idAndBlk : blkLayoutMap) {
    if (idAndBlk.second->IsHdrBlk() != 0 && hdrBlkIDs.count(idAndBlk.first) == 0) {
      throwLayoutFault(
          kovFormat("No layout found for the KOV List Structure referenced\nby "
                    "Header block %d.",
                    idAndBlk.first));
    }
  }
}

void CKovCpLayout::VerifyKLSHdrBlk(const CKovKLSBlkLayout* klsBlk,
                                   const CKovBlkLayout* hdrBlk) const {
  const int klsID = klsBlk->GetBlkID();
  const int hdrID = static_cast<int>(klsBlk->GetHdrBlkID());
  if (hdrBlk == nullptr) {
    throwLayoutFault(
        kovFormat("KOV List Structure block %d references Header\nblock %d but no "
                  "layout exists for that block.",
                  klsID, hdrID));
  }
  if (hdrBlk->IsHdrBlk() == 0) {
    throwLayoutFault(
        kovFormat("KOV List Structure block %d references Header\nblock %d but that "
                  "block was not declared as a header block.",
                  klsID, hdrID));
  }
  if ((klsBlk->IsMultiInstanceBlk() != 0) != (hdrBlk->IsMultiInstanceBlk() != 0)) {
    throwLayoutFault(
        kovFormat("Header block %d has different instance type than\nKOV List "
                  "Structure block %d.",
                  hdrID, klsID));
  }
}

void CKovCpLayout::VerifyKovNameFieldDependencies(uint32_t fieldID,
                                                  const CKovNameFieldLayout* nameLayout,
                                                  const CKovBlkLayout* blk) const {
  if (DoesBlkExist(nameLayout->GetReferencedBlkID()) != 0) return;
  kovMessageBox(kovFormat(
      "WARNING: KOV Name field %d in block %s references block %d\nbut no "
      "layout for that block exists.",
      static_cast<int>(fieldID), blk->GetBlkName().c_str(), nameLayout->GetReferencedBlkID()));
}
