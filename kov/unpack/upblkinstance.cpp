#include "kov/unpack/upblkinstance.h"

#include <vector>

#include "kov/image/checksum.h"
#include "kov/image/image.h"
#include "kov/layout/blklayout.h"
#include "kov/pack/stdblk.h"
#include "kov/platform/format.h"
#include "kov/platform/mevgenexception.h"
#include "kov/unpack/up.h"
#include "kov/unpack/upentry.h"

KOV_IMPLEMENT_RUNTIME_ROOT(CKovUpBlkInstance)
KOV_IMPLEMENT_RUNTIME_CLASS(CKovUpNonDistBlkInst, CKovUpBlkInstance)

CKovUpBlkInstance::CKovUpBlkInstance(uint16_t instance, uint16_t blkID, uint16_t kovID)
    : blkID(blkID), blkInstanceNum(instance), kovID(kovID) {
  upFieldMap.UseCurrentArena();
}

CKovUpBlkInstance::~CKovUpBlkInstance() { Cleanup(); }

void CKovUpBlkInstance::Cleanup() {
  delete upEntry;
  upEntry = nullptr;
}

CKovUpEntry* CKovUpBlkInstance::TransferUpEntryOwnership() {
  CKovUpEntry* entry = upEntry;
  upEntry = nullptr;
  return entry;
}

int CKovUpBlkInstance::ValidateBlockCheckSum(const CKovImage* image, uint32_t dataStart,
                                             uint32_t dataSize) const {
  if (image == nullptr || dataStart > image->GetSize() || dataSize > image->GetSize() - dataStart) {
    return 0;
  }
  uint16_t stored = 0;
  if (!image->GetBytes(dataStart + dataSize, 7, CKovStdBlk::GetChecksumSz() * 8u, stored)) return 0;
  uint16_t computed = 0;
  kovCalculateChecksum(image->GetBytesArray() + dataStart, dataSize, computed);
  return computed == stored ? 1 : 0;
}

CKovUpNonDistBlkInst::CKovUpNonDistBlkInst(const CKovUp* up, CKovUpPatchMap* patchMap,
                                           uint32_t startAddr, uint16_t kovID, uint16_t size,
                                           uint16_t blkID, uint16_t instance)
    : CKovUpBlkInstance(instance, blkID, kovID) {
  const CKovBlkLayout* blkLayout = up->GetBlkLayout(blkID);
  if (blkLayout == nullptr) {
    throw new CMevGenException(kovFormat("Block layout not found for block with ID = %d.", blkID),
                               0);
  }
  up->XmlStartBlkInstance(blkLayout->GetBlkName(), blkInstanceNum);
  CreateUpEntry(up, patchMap, blkLayout, startAddr, size);
  up->XmlAddEndTagLine("</Block>");
}

CKovUpNonDistBlkInst::CKovUpNonDistBlkInst(const CKovUp* up, CKovUpPatchMap* patchMap,
                                           const CKovBlkLayout* blkLayout, uint32_t startAddr,
                                           uint16_t kovID, uint16_t size, uint16_t instance)
    : CKovUpBlkInstance(instance, blkLayout->GetBlkID(), kovID) {
  CreateUpEntry(up, patchMap, blkLayout, startAddr, size);
}

uint32_t CKovUpNonDistBlkInst::GetTotNumFields() const {
  return upEntry != nullptr ? static_cast<uint32_t>(upEntry->GetUpFieldMap().GetCount())
                            : totNumFields;
}

CKovUpEntry* CKovUpNonDistBlkInst::TransferUpEntryOwnership() {
  if (upEntry != nullptr) totNumFields = static_cast<uint32_t>(upEntry->GetUpFieldMap().GetCount());
  return CKovUpBlkInstance::TransferUpEntryOwnership();
}

void CKovUpNonDistBlkInst::CreateUpEntry(const CKovUp* up, CKovUpPatchMap* patchMap,
                                         const CKovBlkLayout* blkLayout, uint32_t startAddr,
                                         uint16_t size) {
  blkDataStartAddr = startAddr + CKovStdBlk::GetHdrSz();
  // The walk refuses sizes below 2 before a block is built; a listlet's size comes from the
  // walk too.
  dataSize = size >= CKovStdBlk::GetChecksumSz() ? size - CKovStdBlk::GetChecksumSz() : 0;
  if (!ValidateBlockCheckSum(up->GetImage(), blkDataStartAddr, dataSize)) {
    throw new CMevGenException(kovFormat("Block %s [%d] has an invalid checksum.",
                                         blkLayout->GetBlkName().c_str(), blkInstanceNum),
                               0);
  }
  uint32_t lastBit = (blkDataStartAddr + dataSize) * 8 - 1;
  UpStatus status = UpDone;
  try {
    upEntry = new CKovUpEntry(up, blkDataStartAddr, 7, patchMap, blkInstanceNum,
                              blkLayout->GetDataLayout(), blkLayout, lastBit, upFieldMap, status);
  } catch (...) {
    Cleanup();
    throw;
  }
}
