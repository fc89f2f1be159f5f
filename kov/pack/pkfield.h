// CKovPkField: one field value handed to the pack, owning that value.
//
// Writing first asks the value whether it fits its layout and throws
// "Field %s can not be fit as per the layout\n(see block %s)." (field name, block name) when it
// does not; nothing of the value is written then. Otherwise the value writes itself (CKovField).
// The copy constructor and assignment are deleted: two owners of one value can't both delete it.
#ifndef KOV_PACK_PKFIELD_H
#define KOV_PACK_PKFIELD_H

#include <cstdint>

#include "kov/fields/field.h"
#include "kov/platform/kovmap.h"

class CKovPkField {
 public:
  // Takes ownership of data (not null).
  explicit CKovPkField(CKovField* data) : data(data) {}
  virtual ~CKovPkField() { delete data; }
  // Made in the arena of an open scope, or on the heap (see kov/platform/arena.h).
  static void* operator new(size_t size) { return kovArenaNew(size); }
  static void operator delete(void* p, size_t size) noexcept { kovArenaDelete(p, size); }
  CKovPkField(const CKovPkField&) = delete;
  CKovPkField& operator=(const CKovPkField&) = delete;

  uint32_t GetFieldID() const { return data->GetFieldID(); }
  const CKovField* GetData() const { return data; }

  // Writes the value in the entry at (entryStartByte, entryMsbStart); see the header comment.
  // Inline: it stands between every entry and each of its values.
  PkStatus WriteToImage(const CKovPk* pk, CKovImage* image, uint32_t entryStartByte,
                        uint8_t entryMsbStart, KovFieldsMap* fieldsMap,
                        const CKovFieldLayout* layout, const CKovCpLayout* cpLayout,
                        uint16_t blkID, int instance) const {
    if (!data->CanValueFitAsPerLayout(layout)) ThrowDoesNotFit(cpLayout, blkID);
    return data->WriteToImage(pk, image, entryStartByte, entryMsbStart, fieldsMap, layout, cpLayout,
                              blkID, instance);
  }

 private:
  // Throws the text of a value that does not fit its layout.
  [[noreturn]] void ThrowDoesNotFit(const CKovCpLayout* cpLayout, uint16_t blkID) const;

  CKovField* data;
};

// Field id -> pack field: the map of a pack entry, and a map of values for measuring a layout.
using KovPkFieldMap = CKovMap<uint32_t, CKovPkField*>;

#endif  // KOV_PACK_PKFIELD_H
