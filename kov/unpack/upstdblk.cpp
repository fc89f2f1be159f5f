#include "kov/unpack/upstdblk.h"

#include "kov/image/checksum.h"
#include "kov/platform/format.h"
#include "kov/platform/mevgenexception.h"
#include "kov/platform/msgbox.h"
#include "kov/unpack/upblkinstance.h"

CKovUpStdBlk::CKovUpStdBlk(const CKovBlkLayout* blkLayout, KovUpBlkInstArr* instances,
                           uint16_t blkID)
    : CKovStdBlk(blkLayout) {
  kovIdToInstNumMap.UseCurrentArena();
  blkInstAddrMap.UseCurrentArena();
  if (blkLayout == nullptr) {
    throw new CMevGenException(
        kovFormat("No block layout for block %d. Can not unpack.\n", blkID), 0);
  }
  upEntryList = std::make_unique<CKovUpEntryList>();
  if (instances == nullptr) return;
  for (size_t i = 1; i < instances->size(); ++i) {
    CKovUpBlkInstance* instance = (*instances)[i];
    if (instance == nullptr) {
      upEntryList->AddTail(nullptr);
      continue;
    }
    kovIdToInstNumMap.SetAt(instance->GetKovID(), static_cast<int>(i));
    upEntryList->AddTail(instance->TransferUpEntryOwnership());
  }
}

uint16_t CKovUpStdBlk::GetBlkInstanceQty() const {
  return static_cast<uint16_t>(upEntryList->GetCount());
}

int CKovUpStdBlk::GetNumberOfFields(int) const {
  kovMessageBox("CKovUpStdBlk::GetNumberOfFields() - FIX ME!!");
  return 0;
}

uint32_t CKovUpStdBlk::GetBlkDataSize(const CKovImage*, uint32_t) const {
  kovMessageBox("CKovUpStdBlk::GetBlkDataSize() - FIX ME!!");
  return 0;
}

int CKovUpStdBlk::ValidateChecksum(const std::vector<uint8_t>& bytes, uint16_t expected) const {
  uint16_t computed = 0;
  kovCalculateChecksum(bytes, computed);
  return computed == expected ? 1 : 0;
}
