// CKovUpStdBlk: everything an unpack read of one block: one entry per instance, in instance order.
//
// Made after the walk over the image from the instances of the block, whose entries it takes
// over; it owns them. The KOV id of each instance maps to its instance number (a later instance
// with the same id wins). Throws "No block layout for block %s. Can not unpack.\n" for a null
// layout, naming the block by its id.
#ifndef KOV_UNPACK_UPSTDBLK_H
#define KOV_UNPACK_UPSTDBLK_H

#include <cstdint>
#include <memory>
#include <vector>

#include "kov/pack/stdblk.h"
#include "kov/platform/arena.h"
#include "kov/platform/kovmap.h"
#include "kov/unpack/upentrylist.h"

class CKovImage;
class CKovUpBlkInstance;

// The instances of one block id, indexed by instance number; element 0 stays null.
using KovUpBlkInstArr = std::vector<CKovUpBlkInstance*>;

class CKovUpStdBlk : public CKovStdBlk {
 public:
  // blkID names the block in the failure text when blkLayout is null.
  CKovUpStdBlk(const CKovBlkLayout* blkLayout, KovUpBlkInstArr* instances, uint16_t blkID = 0);
  ~CKovUpStdBlk() override = default;
  // Made in the arena of an unpack's scope, or on the heap (see kov/platform/arena.h).
  static void* operator new(size_t size) { return kovArenaNew(size); }
  static void operator delete(void* p, size_t size) noexcept { kovArenaDelete(p, size); }
  CKovUpStdBlk(const CKovUpStdBlk&) = delete;
  CKovUpStdBlk& operator=(const CKovUpStdBlk&) = delete;

  int IsUnpack() const override { return 1; }
  uint16_t GetBlkInstanceQty() const override;
  // Shows "CKovUpStdBlk::GetNumberOfFields() - FIX ME!!" and answers 0.
  int GetNumberOfFields(int instance) const override;
  // Shows "CKovUpStdBlk::GetBlkDataSize() - FIX ME!!" and answers 0.
  uint32_t GetBlkDataSize(const CKovImage* image, uint32_t instance) const;

  const CKovUpEntryList* GetUnpackedEntryList() const { return upEntryList.get(); }
  // The entry of instance (from 1), or null.
  const CKovUpEntry* GetUpEntry(int instance) const { return upEntryList->GetAt(instance - 1); }
  const CKovMap<uint16_t, int>& GetKovIdToInstNumMap() const { return kovIdToInstNumMap; }
  const CKovMap<uint32_t, int>& GetBlkInstAddrMap() const { return blkInstAddrMap; }

 private:
  // 1 when the CRC-16 of bytes is expected, else 0. The unpack tests a block's checksum through
  // CKovUpBlkInstance::ValidateBlockCheckSum; this one serves a caller with the bytes in hand.
  int ValidateChecksum(const std::vector<uint8_t>& bytes, uint16_t expected) const;

  std::unique_ptr<CKovUpEntryList> upEntryList;
  CKovMap<uint16_t, int> kovIdToInstNumMap;
  CKovMap<uint32_t, int> blkInstAddrMap;
};

#endif  // KOV_UNPACK_UPSTDBLK_H
