#include "kov/layout/cplayout.h"

#include <memory>

#include "kov/image/image.h"
#include "kov/layout/datalayout.h"
#include "kov/layout/fieldlayout.h"
#include "kov/layout/listfieldlayout.h"
#include "kov/layout/numfieldlayout.h"
#include "kov/layout/partitionlayout.h"
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
