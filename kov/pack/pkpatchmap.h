// CKovPkPatchMap: the fields a pack could not write in place, written when every block has its
// place.
//
// A record is added for a floating field whose predecessor's size was unknown when its entry was
// written, for the LEQ of a list that lives in another block, and for the link of a header block.
// WriteToImage walks the written blocks (the vector map, in its order); for each block with
// records it writes them in the order they were added, at addresses found from the instance's
// start (+6, +2 more with partition prefixes) and the fields placed so far, then recomputes the
// checksum of exactly the instances it changed. Only number and KOV-name fields can be patched.
//
// A field that can't be patched shows a message box and stops the patching (result 0):
//   "Unable to determine pack address for field %s in block %s."
//   "Attempting to patch field %d in block %d but only\nknow how to patch Numeric fields and
//    KovName fields."
//   "Unable to write field %s in block %d to image."
//   "Failed to patch 1 or more fields. Check that\nblocks for all split-across fields are being
//    packed."  (records left for blocks that were not written)
// States that should not occur throw:
//   "Attempting to patch block with absolute ID %d but no layout found for that block"
//   "Attempting to patch field(s) in block %s-%d, but\nthat block instance number does not exist."
//   "Attempting to patch field %d in parent complex field %d but unable to locate parent field in
//    image."
//   "Field layout for field %d not found. Unable to determine byteOffset/startBit for floating
//    field %d"
// Records own their field only when added with ownsField true.
#ifndef KOV_PACK_PKPATCHMAP_H
#define KOV_PACK_PKPATCHMAP_H

#include <cstdint>
#include <list>
#include <memory>

#include "kov/fields/field.h"
#include "kov/pack/pk.h"
#include "kov/platform/kovmap.h"

class CKovBlkLayout;
class CKovIDVector;

// One deferred field.
struct KovPkPatchFieldInfo {
  KovPkPatchFieldInfo(const CKovField* field, const CKovFieldLayout* fieldLayout,
                      uint32_t instance, bool ownsField)
      : field(field), fieldLayout(fieldLayout), instance(instance), ownsField(ownsField) {}
  virtual ~KovPkPatchFieldInfo() {
    if (ownsField) delete field;
  }
  // Made in the arena of the pack's scope (see kov/platform/arena.h).
  static void* operator new(size_t size) { return kovArenaNew(size); }
  static void operator delete(void* p, size_t size) noexcept { kovArenaDelete(p, size); }
  KovPkPatchFieldInfo(const KovPkPatchFieldInfo&) = delete;
  KovPkPatchFieldInfo& operator=(const KovPkPatchFieldInfo&) = delete;

  const CKovField* field;
  const CKovFieldLayout* fieldLayout;
  uint32_t instance;  // from 1
  bool ownsField;
};

// The map is itself the map of block id -> records waiting for that block.
using KovPkPatchRecordList = std::list<std::unique_ptr<KovPkPatchFieldInfo>,
                                      KovArenaAllocator<std::unique_ptr<KovPkPatchFieldInfo>>>;

class CKovPkPatchMap : public CKovMap<uint32_t, KovPkPatchRecordList> {
 public:
  using RecordList = KovPkPatchRecordList;

  CKovPkPatchMap() = default;
  virtual ~CKovPkPatchMap() = default;
  CKovPkPatchMap(const CKovPkPatchMap&) = delete;
  CKovPkPatchMap& operator=(const CKovPkPatchMap&) = delete;

  // Appends a record for field of block blkID, instance (from 1). With ownsField the record
  // deletes field with itself, from the moment it is stored; when the append throws
  // (std::bad_alloc), field stays the caller's.
  void AddField(const CKovPk* pk, const CKovField* field, const CKovFieldLayout* fieldLayout,
                uint16_t blkID, uint16_t instance, bool ownsField);

  // Writes every record of the written blocks; 1 when all went in, else 0 (after a message box).
  int WriteToImage(const CKovPk* pk, const CKovCpLayout* cpLayout, CKovImage* image,
                   KovIDVectorMap& vectorMap, const KovPkBlkMap* pkBlks);

  // Block ids with records still waiting, and their records.
  const CKovMap<uint32_t, RecordList>& GetRecords() const { return *this; }

 protected:
  using InstanceSet = CKovMap<uint32_t, bool>;

  int PatchBlk(const CKovPk* pk, const RecordList& list, const CKovCpLayout* cpLayout,
               CKovImage* image, const CKovIDVector* vector, KovIDVectorMap& vectorMap,
               const KovPkBlkMap* pkBlks, InstanceSet& instancesPatched, uint16_t blkID);
  int PatchField(const CKovPk* pk, const CKovCpLayout* cpLayout, CKovImage* image,
                 const KovPkPatchFieldInfo& record, const CKovIDVector* vector,
                 KovIDVectorMap& vectorMap, const KovPkBlkMap* pkBlks, KovFieldsMap* fieldsMap,
                 int instance);
  void PatchCheckSums(const CKovPk* pk, CKovImage* image, const CKovIDVector* vector,
                      const CKovBlkLayout* blkLayout, const InstanceSet& instancesPatched) const;
  int GetPatchPackAddr(const CKovFieldLayout* layout, const KovFieldsMap* fieldsMap,
                       uint32_t dataStart, uint32_t& byte, uint8_t& msbStart) const;
  int GetPatchAddrForFixedField(const CKovFieldLayout* layout, const KovFieldsMap* fieldsMap,
                                uint32_t dataStart, uint32_t& byte, uint8_t& msbStart) const;
  int GetPatchAddrForFloatingField(const CKovFieldLayout* layout, const KovFieldsMap* fieldsMap,
                                   uint32_t dataStart, uint32_t& byte, uint8_t& msbStart) const;
  // Linear bit index of the start of the data that layout's parent data layout describes.
  uint32_t GetParentDataStartPosInImage(const CKovFieldLayout* layout, uint32_t dataStart,
                                        const KovFieldsMap* fieldsMap) const;

 private:
  // Linear bit index of a floating field; false when it can't be determined.
  bool FloatingFieldIndex(const CKovFieldLayout* layout, const KovFieldsMap* fieldsMap,
                          uint32_t dataStart, uint32_t& index) const;

};

#endif  // KOV_PACK_PKPATCHMAP_H
