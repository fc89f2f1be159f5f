// CKovUpField: one unpacked field value with its layout; it owns the value.
#ifndef KOV_UNPACK_UPFIELD_H
#define KOV_UNPACK_UPFIELD_H

#include <cstdint>

#include "kov/platform/kovmap.h"

class CKovField;
class CKovFieldLayout;

class CKovUpField {
 public:
  // Takes ownership of field.
  CKovUpField(const CKovField* field, const CKovFieldLayout* fieldLayout)
      : data(field), fieldLayout(fieldLayout) {}
  virtual ~CKovUpField();
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
