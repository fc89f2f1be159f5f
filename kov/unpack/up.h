// CKovUp: the unpack of one codeplug image against a layout.
//
// Made over a layout (not owned; it must outlive this object), the image bytes (copied) and the
// path of an XML report ("" for none). FullUnpack, called once, walks the block headers from byte
// 0 to the end of the bytes given (see kov/pack/stdblk.h for the format): each header's KOV name
// gives the block; each block is tested against its checksum and read at once; fields that must
// wait are read in sweeps after the walk; the report, if wanted, is written; then one
// CKovUpStdBlk per block id gathers the entries of its instances. The object owns all it makes;
// values read from it live as long as it does.
//
// Memory: everything the unpack makes for its results (the values, their CKovUpField, entries,
// entry lists, block instances and blocks, and the arrays of their maps) comes from an arena the
// object owns (kov/platform/arena.h), and goes with it in one piece: no destructor of a result
// runs when the object goes. Nothing of it is handed to the application to own; the results are
// read through const pointers and copied (kovCopyField, the copy constructors) onto the heap.
//
// Instance numbers count from 1 per block id in order of address. blockAddrMap holds the header
// address of each instance, upBlksList the instances, both indexed by instance number with
// element 0 empty (0 and null).
//
// Every failure of the unpack is a thrown CMevGenException; the object is then spent (all maps
// empty, image, patch map and report gone) and no report is written. Texts, innermost first:
//   "Unable to find blkID for item with KOV Name = 0x%x."  (a name the layout does not know)
//   "Block %s [%d] has an invalid checksum."
//   "Block header at offset %u is cut short: %u bytes left where a header needs 6."
//   "Block header at offset %u (KOV name 0x%08X) has size %u, below the 2 bytes of its checksum."
//   "Failed trying to unpack block %s, instance #%d."  (a block's failure without a text)
//   "Unable to determine address of one or more fields in the image."
//   "Unknown error occurred while trying to unpack image."
//   "No image layout found."
//   "Block %s at offset %u would be its instance %zu: a block holds at most %u instances."
//     (instance numbers are 16 bits wide: a 65536th instance of one block is refused instead
//     of wrapping onto instance 0 and replacing instance 1)
// A second FullUnpack, after a success or a failure, throws "This unpack has been used: make a
// new CKovUp for another image." and leaves the object as it was: the results of a successful
// call stay valid.
// The constructor throws "Unable to unpack image - out of memory!" when the copy of the image
// can't be made.
#ifndef KOV_UNPACK_UP_H
#define KOV_UNPACK_UP_H

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "kov/platform/arena.h"
#include "kov/platform/kovmap.h"
#include "kov/unpack/upstdblk.h"

class CKovBlkLayout;
class CKovCpLayout;
class CKovField;
class CKovFieldLayout;
class CKovImage;
class CKovUpPatchMap;
class CKovXmlData;

class CKovUp {
 public:
  CKovUp(const CKovCpLayout* cpLayout, const std::vector<uint8_t>& imageBytes,
         std::string xmlPath);
  virtual ~CKovUp();
  CKovUp(const CKovUp&) = delete;
  CKovUp& operator=(const CKovUp&) = delete;

  // The whole unpack; returns 1 or throws (see the header comment). Call it once.
  int FullUnpack();

  // The unpacked block of blkID, or null.
  const CKovUpStdBlk* GetUnpackedBlk(uint16_t blkID) const;
  const CKovMap<uint16_t, CKovUpStdBlk*>& GetUpBlksMap() const { return upBlksMap; }
  const CKovMap<uint16_t, KovUpBlkInstArr*>& GetUpBlksList() const { return upBlksList; }
  const CKovMap<uint16_t, std::vector<uint32_t>*>& GetBlockAddrMap() const {
    return blockAddrMap;
  }
  // The image address of byteOffset within the data of instance (from 1) of blkID: 1 when that
  // lies inside the image, else 0 (address is then written if the instance exists).
  int GetImageIndex(uint16_t blkID, uint32_t byteOffset, uint32_t& address, int instance) const;

  // The layout's standard version; the image carries none of its own.
  std::string GetImageCpStdVersion() const;
  uint32_t GetMaxPossibleSize() const { return maxPossibleSize; }
  // The copy of the image; null once the object is spent.
  const CKovImage* GetImage() const { return image; }
  const CKovCpLayout* GetCpLayout() const { return cpLayout; }
  // Forward to the layout; null when the block or field is unknown.
  const CKovBlkLayout* GetBlkLayout(uint16_t blkID) const;
  const CKovFieldLayout* GetFieldLayout(uint16_t blkID, uint32_t fieldID) const;

  // Report hooks: each does nothing without a report.
  void XmlStartBlkInstance(const std::string& blkName, uint16_t instance) const;
  void XmlAddStartTagLine(const std::string& tag) const;
  void XmlAddEndTagLine(const std::string& tag) const;
  void XmlAddPrimitiveField(const CKovField* field, const CKovFieldLayout* layout) const;

 protected:
  int CreateUpBlkInstances();
  int CreateUpBlks();
  int UnpackBlkInstance(uint32_t& address, std::list<uint16_t>& distBlkIDs,
                        CKovMap<uint16_t, bool>& seenDistBlkIDs,
                        CKovMap<uint32_t, uint16_t>& kovNameToInstNum);
  int UnpackNonDistKLSBlk(uint32_t startAddr, uint16_t kovID, uint16_t size, uint16_t blkID,
                          uint16_t instance);
  int UnpackDistributedKLSBlk(uint16_t blkID, const CKovMap<uint32_t, uint16_t>& kovNameToInstNum);
  uint16_t StoreBlkInstAddr(uint16_t blkID, uint32_t startAddr);
  void AddUpBlkInstToInstanceArr(uint16_t blkID, uint16_t instance, CKovUpBlkInstance* blkInst);
  // Brings the object to the spent state; may run any number of times.
  void upCleanup();

  // Records that the chain of header instance hdrInstance reaches listlet n (the walk's number
  // of that listlet in its block) of the distributed block being read; the header instance that
  // reached it before, or 0.
  uint16_t ClaimListlet(uint16_t n, uint16_t hdrInstance) const;
  friend class CKovUpDistKLSBlkInst;

  // The memory of the results; declared first, so that it goes last.
  CKovArena arena;
  uint32_t maxPossibleSize = 0;
  bool fullUnpackCalled = false;
  CKovImage* image = nullptr;
  CKovUpPatchMap* patchMap = nullptr;
  std::string xmlPath;
  CKovXmlData* xmlData = nullptr;
  const CKovCpLayout* cpLayout;
  CKovMap<uint16_t, CKovUpStdBlk*> upBlksMap;
  CKovMap<uint16_t, std::vector<uint32_t>*> blockAddrMap;
  CKovMap<uint16_t, KovUpBlkInstArr*> upBlksList;
  // The header instance whose chain claimed each listlet of the distributed block being read.
  mutable std::vector<uint16_t> listletClaims;
};

#endif  // KOV_UNPACK_UP_H
