// CKovUpEntry: the values one data layout describes, read from one place in the image.
//
// The unpack constructor walks the data layout's fields in the order they were added, and has
// each build itself from the image at the entry's start (byte, MSB start); lastBit is the last
// linear bit the entry's fields may touch. By the field's status:
//   UpDone            kept: in this entry, and in the fields map of the block instance
//   UpDeferred        handed to the patch map (entry start, field, instance); the walk goes on
//   UpOutsideBlkData  the walk ends there: a short block or entry is no failure
//   UpFailed          the walk ends there
// The final status is that of the last field looked at. The entry owns its own fields only (not
// those of entries inside lists and unions); the fields map owns nothing and takes every field of
// the instance at any depth. An exception with an empty text from a field gets
// "Unable to write field %d in block %s to image.".
//
// A field or entry that is thrown away after it was read (a list entry whose walk ended early, a
// list or union that must wait after its entries were read, a retry of the patch map that still
// waits) first leaves the fields map: kovForgetField and kovForgetFields remove every field of it,
// at any depth, whose pointer the map still holds, so that no pointer into freed memory remains
// for a later field, another block or the application to read.
#ifndef KOV_UNPACK_UPENTRY_H
#define KOV_UNPACK_UPENTRY_H

#include <cstdint>

#include "kov/fields/field.h"
#include "kov/platform/arena.h"
#include "kov/unpack/upfield.h"

class CKovBlkLayout;
class CKovDataLayout;
class CKovUp;
class CKovUpPatchMap;

// An entry is itself the map of its own fields, field id -> unpacked field (owned).
class CKovUpEntry : public KovUpFieldMap {
 public:
  // An entry without fields.
  explicit CKovUpEntry(const CKovDataLayout* dataLayout) : dataLayout(dataLayout) {
    UseCurrentArena();
  }
  // Reads the entry; see the header comment.
  CKovUpEntry(const CKovUp* up, uint32_t startByte, uint8_t startMsb, CKovUpPatchMap* patchMap,
              uint16_t instance, const CKovDataLayout* dataLayout, const CKovBlkLayout* blkLayout,
              uint32_t lastBit, KovFieldsMap& fieldsMap, UpStatus& status);
  virtual ~CKovUpEntry();
  // Made in the arena of an unpack's scope, or on the heap (see kov/platform/arena.h).
  static void* operator new(size_t size) { return kovArenaNew(size); }
  static void operator delete(void* p, size_t size) noexcept { kovArenaDelete(p, size); }
  CKovUpEntry(const CKovUpEntry&) = delete;
  CKovUpEntry& operator=(const CKovUpEntry&) = delete;

  const CKovDataLayout* GetDataLayout() const { return dataLayout; }
  // The field of this entry with fieldID, looking through the entries of its unions; null when
  // there is none. Fields inside list entries are found on those entries.
  const CKovUpField* GetUpField(uint32_t fieldID) const;
  const KovUpFieldMap& GetUpFieldMap() const { return *this; }

  // Stores field under fieldID, taking ownership (also when it throws std::bad_alloc: field is
  // then deleted); a field already there is deleted.
  void AddUpField(uint32_t fieldID, CKovUpField* field);

 protected:
  CKovField* UnpackPrimitiveField(const CKovUp* up, const CKovBlkLayout* blkLayout,
                                  uint32_t startByte, uint8_t startMsb,
                                  const CKovFieldLayout* fieldLayout,
                                  const KovFieldsMap& fieldsMap, uint32_t lastBit,
                                  uint32_t fieldID, UpStatus& status) const;
  CKovField* UnpackComplexField(const CKovUp* up, uint32_t startByte, uint8_t startMsb,
                                CKovUpPatchMap* patchMap, uint16_t instance,
                                const CKovFieldLayout* fieldLayout, const CKovBlkLayout* blkLayout,
                                uint32_t fieldID, uint32_t lastBit, KovFieldsMap& fieldsMap,
                                UpStatus& status) const;
  void Cleanup();

 private:
  const CKovDataLayout* dataLayout;
};

// Removes field, and every field below it in list entries and union options, from fieldsMap
// where the map holds that very pointer. Never throws.
void kovForgetField(const CKovField* field, KovFieldsMap& fieldsMap);
// The same for every field of entry (null: nothing).
void kovForgetFields(const CKovUpEntry* entry, KovFieldsMap& fieldsMap);

#endif  // KOV_UNPACK_UPENTRY_H
