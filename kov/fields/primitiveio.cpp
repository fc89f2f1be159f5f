#include "kov/fields/primitiveio.h"

#include "kov/fields/charfield.h"
#include "kov/fields/namefield.h"
#include "kov/fields/numfield.h"
#include "kov/image/image.h"

bool kovNumericValueOf(const CKovField* field, uint32_t& value) {
  if (field == nullptr) return false;
  if (field->IsNumber()) {
    value = static_cast<const CKovNumField*>(field)->GetValue();
  } else if (field->IsKovName()) {
    value = static_cast<const CKovNameField*>(field)->GetValue();
  } else if (field->IsChar()) {
    value = static_cast<const CKovCharField*>(field)->GetValue();
  } else {
    return false;
  }
  return true;
}
