// CKovUpPatchMap: the fields an unpack could not read when their block was met, tried again in
// sweeps after the walk.
//
// A field waits (UpDeferred) when the field before it, the quantity of its list or the
// discriminant of its union is not read yet. The map keeps, per block id, the fields waiting in
// the order they came, each with its instance and the start of the entry that holds it; one field
// id waits at most once per instance. Each sweep (UnpackPatchFields) takes the block ids in the
// map's order and builds every waiting field anew from the image:
//   UpDone            read: it joins its instance's fields map and block-level entry
//   UpOutsideBlkData  given up, with every field behind it in that block's list; no failure
//   UpDeferred        waits on; the 11th such answer of one field shows
//                     "Unable to unpack field %d in block %d after %d attempts." and fails the sweep
//   UpFailed          fails the sweep, with no message
// Each block's tries stand in the report under <Block> tags of their own, one per instance met.
// A field waiting inside a listlet of a distributed list can't be reached once the listlets are
// joined: it is refused with "Field %u of block %s waits inside a listlet, where it can't be read
// after the listlets are joined."
#ifndef KOV_UNPACK_UPPATCHMAP_H
#define KOV_UNPACK_UPPATCHMAP_H

#include <cstdint>
#include <list>
#include <memory>
#include <unordered_set>

#include "kov/fields/field.h"
#include "kov/platform/kovmap.h"

class CKovFieldLayout;
class CKovUp;
class CKovUpBlkInstance;

// One waiting field.
struct KovUpPatchFieldInfo {
  KovUpPatchFieldInfo(uint32_t startByte, uint8_t startMsb, uint32_t fieldID,
                      const CKovFieldLayout* fieldLayout, uint16_t instance)
      : fieldID(fieldID), fieldLayout(fieldLayout), instance(instance), startByte(startByte),
        startMsb(startMsb) {}
  virtual ~KovUpPatchFieldInfo() = default;

  uint32_t fieldID;
  const CKovFieldLayout* fieldLayout;
  uint16_t instance;
  int numAttempts = 0;  // sweeps that answered UpDeferred
  uint32_t startByte;   // the entry that holds the field
  uint8_t startMsb;
};

// The waiting fields of one block id, in the order they came.
struct KovUpPendingList {
  std::list<std::unique_ptr<KovUpPatchFieldInfo>> infos;
  std::unordered_set<uint64_t> keys;  // field id and instance of every info, for O(1) tests
};

// The map is itself the map of block id -> fields of that block waiting.
class CKovUpPatchMap : public CKovMap<uint16_t, KovUpPendingList> {
 public:
  using PendingList = KovUpPendingList;

  CKovUpPatchMap() = default;
  virtual ~CKovUpPatchMap() = default;
  CKovUpPatchMap(const CKovUpPatchMap&) = delete;
  CKovUpPatchMap& operator=(const CKovUpPatchMap&) = delete;

  // Adds the field unless the same field id of the same instance already waits.
  void AddField(const CKovUp* up, uint32_t startByte, uint8_t startMsb, uint32_t fieldID,
                const CKovFieldLayout* fieldLayout, uint16_t blkID, uint16_t instance);
  // One sweep over everything waiting: 1 when it went through, 0 when a field gave up.
  int UnpackPatchFields(const CKovUp* up);

  // The block ids with fields waiting (GetCount of the map is their number).
  const CKovMap<uint16_t, PendingList>& GetPending() const { return *this; }

 protected:
  UpStatus UnpackField(const CKovUp* up, const KovUpPatchFieldInfo* info, uint16_t blkID);
  CKovUpBlkInstance* GetUpBlkInstance(const CKovUp* up, uint16_t instance, uint16_t blkID) const;

 private:
  static uint64_t KeyOf(uint32_t fieldID, uint16_t instance) {
    return (uint64_t{fieldID} << 16) | instance;
  }

};

#endif  // KOV_UNPACK_UPPATCHMAP_H
