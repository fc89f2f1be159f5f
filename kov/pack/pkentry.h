// CKovPkEntry: the values of one entry (a block instance, a list entry or a union option) to pack.
//
// The entry owns its pack fields. They are found by id through the map and written in the order
// of their positions: slot 0 first, empty slots skipped. The number of slots is fixed by the
// constructor. Writing a field: PkDone enters the value in the fields map; PkDeferred hands it to
// the pack's patch map (not owning) and goes on; PkFailed throws
// "Failed trying to write field %d in block %s [%d] to image." (id, block name, instance).
// A field id unknown to the data layout throws "Layout not found for field %d in block %d.".
// An entry made while an arena's scope is open keeps its map and arrays in that arena, as the
// entry itself and its fields are (see kov/platform/arena.h).
#ifndef KOV_PACK_PKENTRY_H
#define KOV_PACK_PKENTRY_H

#include <cstdint>
#include <memory>
#include <vector>

#include "kov/pack/pkfield.h"

class CKovDataLayout;

// An entry is itself the map of its fields, field id -> pack field (owned).
class CKovPkEntry : public KovPkFieldMap {
 public:
  // An entry with numberOfFields empty slots.
  explicit CKovPkEntry(int numberOfFields = 0);
  virtual ~CKovPkEntry();
  // Made in the arena of an open scope, or on the heap (see kov/platform/arena.h).
  static void* operator new(size_t size) { return kovArenaNew(size); }
  static void operator delete(void* p, size_t size) noexcept { kovArenaDelete(p, size); }
  CKovPkEntry(const CKovPkEntry&) = delete;
  CKovPkEntry& operator=(const CKovPkEntry&) = delete;

  // Takes ownership of field and puts it under id and in slot position. The same id again
  // replaces the map's pointer; both objects stay in their slots and are written. A field that a
  // later one pushes out of its slot is no longer written but kept until the entry goes; the same
  // field may be given more than once. A position outside the slots deletes field and throws
  // "Position %d of field %u is outside the %d fields of its pack entry.". Running out of memory
  // leaves the entry as it was and field with the caller.
  void AddPkField(uint32_t id, CKovPkField* field, int position);

  using PkFieldArr = std::vector<CKovPkField*, KovArenaAllocator<CKovPkField*>>;
  const PkFieldArr* GetOrderedPkEntryArr() const { return &orderedPkFields; }
  const KovPkFieldMap& GetPkFieldMap() const { return *this; }

  // Writes every field in slot order from (entryStartByte, entryMsbStart); returns 1 or throws.
  int WriteToImage(const CKovPk* pk, CKovImage* image, uint32_t entryStartByte,
                   uint8_t entryMsbStart, KovFieldsMap* fieldsMap, const CKovDataLayout* dataLayout,
                   const CKovCpLayout* cpLayout, uint16_t blkID, int instance) const;

 private:
  PkFieldArr orderedPkFields;
  // Fields pushed out of their slot by a later one: the entry owns them and the slots' fields.
  PkFieldArr displaced;
};

#endif  // KOV_PACK_PKENTRY_H
