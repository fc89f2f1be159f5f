// CKovPk: one pack of block data into a codeplug image.
//
// The application makes a CKovPkStdBlk per block it wants in the image, puts them in a map under
// their block ids (not owned; the map and the blocks must outlive the pack), makes a CKovPk over
// the map and calls FillImage once with the layout and a zeroed image large enough. FillImage
// writes the blocks in layout order (partitions in the order they were added, blocks in the order
// they were added; a block without data is left out, an id the layout does not know is never
// looked at), then has the patch map write what had to wait, and reports the used length. The
// start and size of every partition are kept (GetPartitionPkInfo).
//
// During FillImage the installed main window (kov/platform/mainwnd.h) shows a wait cursor and gets
// up to three messages: startMsg (wParam 0x6FAD, lParam = blocks in the layout + 1, in 16 bits),
// blksPackedMsg and doneMsg (both parameters 0); a message number 0 is not sent.
//
// Failures throw CMevGenException with the innermost text:
//   "No image layout found."  /  "No image object to write to!"  (before anything is sent)
//   "This pack has been used: make a new CKovPk for another FillImage."
//   "Unknown error occurred while trying to write\nblock %s to image."  (a block's empty text)
//   "Unknown error occurred while trying to save image."  (any other empty text)
// After a failure the used size is 0 and the image must not be used. Patch failures show a
// message box and FillImage still returns 1.
#ifndef KOV_PACK_PK_H
#define KOV_PACK_PK_H

#include <cstdint>

#include "kov/pack/pkstdblk.h"
#include "kov/platform/arena.h"
#include "kov/platform/kovmap.h"

class CKovCpLayout;
class CKovImage;
class CKovPkPatchMap;

// Where a partition went in the image: its first byte (or where it would start) and its bytes,
// partition prefixes included; size 0 when nothing of it was packed.
struct KovPartitionPkInfo {
  uint32_t startAddr;
  uint32_t size;
};

// Block id -> the data of that block to pack. Not owning.
using KovPkBlkMap = CKovMap<uint16_t, CKovPkStdBlk*>;

class CKovPk {
 public:
  // pkBlks must outlive the pack. Non-zero collectPartitionInfo puts the partition number in
  // front of every instance.
  CKovPk(const KovPkBlkMap* pkBlks, int collectPartitionInfo);
  virtual ~CKovPk();
  CKovPk(const CKovPk&) = delete;
  CKovPk& operator=(const CKovPk&) = delete;

  // Packs everything into image; usedSize gets the bytes written (0 after a failure). fileName
  // may be null; when it is given and the layout's SaveToSeparateFiles is set, every block
  // instance is also written to a file of its own beside it (see kov/pack/blkexport.h). Returns 1
  // or throws.
  int FillImage(const CKovCpLayout* cpLayout, CKovImage* image, uint32_t& usedSize,
                const char* fileName, uint32_t startMsg, uint32_t blksPackedMsg,
                uint32_t doneMsg) const;

  int CollectPartitionInfo() const { return collectPartitionInfo; }
  const CKovMap<uint16_t, KovPartitionPkInfo*>& GetPartitionPkInfo() const {
    return partitionPkInfo;
  }
  // The data of block blkID, or null.
  const CKovPkStdBlk* GetPkBlk(uint16_t blkID) const;
  // The patch map; null once FillImage has ended.
  CKovPkPatchMap* GetPatchMap() const { return patchMap; }

 private:
  int PackBlksInImage(const CKovCpLayout* cpLayout, CKovImage* image, uint32_t& nextFreeByte,
                      KovIDVectorMap& vectorMap) const;
  void SendToMainWnd(uint32_t message, uint32_t wParam, uint32_t lParam) const;

  // The memory of what FillImage makes for itself: the patch records with the LEQ and link
  // fields they own, the vector map and its vectors. Declared first, so that it goes last.
  mutable CKovArena arena;
  const KovPkBlkMap* pkBlks;
  mutable CKovPkPatchMap* patchMap;
  int collectPartitionInfo;
  mutable CKovMap<uint16_t, KovPartitionPkInfo*> partitionPkInfo;
  mutable uint32_t startMsg = 0;
  mutable uint32_t blksPackedMsg = 0;
  mutable uint32_t doneMsg = 0;
};

#endif  // KOV_PACK_PK_H
