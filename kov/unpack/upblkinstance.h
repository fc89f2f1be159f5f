// CKovUpBlkInstance and CKovUpNonDistBlkInst: one block instance found in an image.
//
// A CKovUpNonDistBlkInst is built and read in one step: its constructor tests the checksum of the
// data area (CRC-16/XMODEM, stored big-endian behind the data; see kov/pack/stdblk.h) before any
// field is read, then reads the block's entry from the first data byte, MSB 7, up to the last bit
// of the data. A block shorter than its layout simply holds the fields that fit. Throws
// "Block %s [%d] has an invalid checksum." (also for a block that runs past the image) and
// "Block layout not found for block with ID = %d.", and passes on what its fields throw; nothing
// of the instance remains then.
//
// The instance owns its entry until CKovUpStdBlk takes it over; its fields map (every field of the
// instance at any depth, not owned) stays usable as long as that block lives.
#ifndef KOV_UNPACK_UPBLKINSTANCE_H
#define KOV_UNPACK_UPBLKINSTANCE_H

#include <cstdint>

#include "kov/fields/field.h"
#include "kov/platform/arena.h"
#include "kov/platform/runtimeclass.h"

class CKovBlkLayout;
class CKovImage;
class CKovUp;
class CKovUpEntry;
class CKovUpPatchMap;
class CKovUpStdBlk;

class CKovUpBlkInstance {
  KOV_DECLARE_RUNTIME_ROOT(CKovUpBlkInstance)

 public:
  virtual ~CKovUpBlkInstance();
  // Made in the arena of an unpack's scope, or on the heap (see kov/platform/arena.h).
  static void* operator new(size_t size) { return kovArenaNew(size); }
  static void operator delete(void* p, size_t size) noexcept { kovArenaDelete(p, size); }
  CKovUpBlkInstance(const CKovUpBlkInstance&) = delete;
  CKovUpBlkInstance& operator=(const CKovUpBlkInstance&) = delete;

  uint16_t GetBlkID() const { return blkID; }
  uint16_t GetBlkInstanceNum() const { return blkInstanceNum; }
  uint16_t GetKovID() const { return kovID; }
  // The block's entry; null once CKovUpStdBlk has taken it.
  CKovUpEntry* GetUpEntry() const { return upEntry; }
  KovFieldsMap& GetUpFieldMap() { return upFieldMap; }
  const KovFieldsMap& GetUpFieldMap() const { return upFieldMap; }

 protected:
  CKovUpBlkInstance(uint16_t instance, uint16_t blkID, uint16_t kovID);

  // 1 when the stored checksum behind the dataSize bytes at dataStart matches them; 0 when it
  // does not or when they do not lie in the image.
  virtual int ValidateBlockCheckSum(const CKovImage* image, uint32_t dataStart,
                                    uint32_t dataSize) const;
  // Deletes the entry, if any.
  virtual void Cleanup();
  // Hands the entry to the caller, who owns it from then on.
  virtual CKovUpEntry* TransferUpEntryOwnership();

  friend class CKovUpStdBlk;

  CKovUpEntry* upEntry = nullptr;
  uint16_t blkID;
  uint16_t blkInstanceNum;
  uint16_t kovID;
  KovFieldsMap upFieldMap;
};

class CKovUpNonDistBlkInst : public CKovUpBlkInstance {
  KOV_DECLARE_RUNTIME_CLASS(CKovUpNonDistBlkInst)

 public:
  // Reads a whole block whose header stands at startAddr, inside <Block> tags of the report.
  CKovUpNonDistBlkInst(const CKovUp* up, CKovUpPatchMap* patchMap, uint32_t startAddr,
                       uint16_t kovID, uint16_t size, uint16_t blkID, uint16_t instance);
  // Reads one listlet of a distributed block, without tags of its own.
  CKovUpNonDistBlkInst(const CKovUp* up, CKovUpPatchMap* patchMap, const CKovBlkLayout* blkLayout,
                       uint32_t startAddr, uint16_t kovID, uint16_t size, uint16_t instance);

  uint32_t GetBlkDataStartAddr() const { return blkDataStartAddr; }
  uint32_t GetDataSize() const { return dataSize; }
  // The number of fields in the block's own entry: those read in the walk and those the sweeps
  // added. After FullUnpack, when CKovUpStdBlk holds the entry, the count it had then.
  uint32_t GetTotNumFields() const;

  // Tests the checksum and reads the entry; see the header comment.
  void CreateUpEntry(const CKovUp* up, CKovUpPatchMap* patchMap, const CKovBlkLayout* blkLayout,
                     uint32_t startAddr, uint16_t size);

 protected:
  // Records the entry's count for GetTotNumFields, then hands the entry over.
  CKovUpEntry* TransferUpEntryOwnership() override;

 private:
  uint32_t totNumFields = 0;
  uint32_t dataSize = 0;
  uint32_t blkDataStartAddr = 0;
};

#endif  // KOV_UNPACK_UPBLKINSTANCE_H
