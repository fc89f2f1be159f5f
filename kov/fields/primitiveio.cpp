#include "kov/fields/primitiveio.h"

#include "kov/fields/charfield.h"
#include "kov/fields/namefield.h"
#include "kov/fields/numfield.h"
#include "kov/image/image.h"

UpStatus kovLocatePrimitiveField(const CKovField* field, const CKovFieldLayout* layout,
                                 uint32_t entryStartByte, uint8_t entryMsbStart,
                                 const KovFieldsMap& fieldsMap, uint32_t lastBit, uint32_t& byte,
                                 uint8_t& msbStart) {
  if (!field->GetUnpackAddr(layout, entryStartByte, entryMsbStart, fieldsMap, byte, msbStart)) {
    return UpDeferred;
  }
  if (field->FieldOutsideBlkData(layout, byte, msbStart, lastBit)) return UpOutsideBlkData;
  return UpDone;
}

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
