// CKovUpField: one unpacked field value with its layout; it owns the value.
#ifndef KOV_UNPACK_UPFIELD_H
#define KOV_UNPACK_UPFIELD_H

#include <cstdint>

#include "kov/platform/arena.h"
#include "kov/platform/kovmap.h"

class CKovField;
class CKovFieldLayout;

class CKovUpField {
 public:
  // Takes ownership of field.
  CKovUpField(const CKovField* field, const CKovFieldLayout* fieldLayout)
      : data(field), fieldLayout(fieldLayout) {}
  virtual ~CKovUpField();
  // Made in the arena of an unpack's scope, or on the heap (see kov/platform/arena.h).
  static void* operator new(size_t size) { return kovArenaNew(size); }
  static void operator delete(void* p, size_t size) noexcept { kovArenaDelete(p, size); }
  CKovUpField(const CKovUpField&) = delete;
  CKovUpField& operator=(const CKovUpField&) = delete;

  const CKovField* GetData() const { return data; }
  const CKovFieldLayout* GetUnPackFieldLayout() const { return fieldLayout; }

 private:
  const CKovField* data;
  const CKovFieldLayout* fieldLayout;
};

// Field id -> unpacked field: the map of an unpacked entry, and a map of values for measuring.
using KovUpFieldMap = CKovMap<uint32_t, CKovUpField*>;

#endif  // KOV_UNPACK_UPFIELD_H
