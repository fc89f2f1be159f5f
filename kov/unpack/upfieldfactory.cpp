#include "kov/unpack/upfieldfactory.h"

#include "kov/fields/charfield.h"
#include "kov/fields/listfield.h"
#include "kov/fields/namefield.h"
#include "kov/fields/numfield.h"
#include "kov/fields/strfield.h"
#include "kov/fields/unionfield.h"
#include "kov/layout/blklayout.h"
#include "kov/layout/charfieldlayout.h"
#include "kov/layout/listfieldlayout.h"
#include "kov/layout/namefieldlayout.h"
#include "kov/layout/numfieldlayout.h"
#include "kov/layout/strfieldlayout.h"
#include "kov/layout/unionfieldlayout.h"

CKovField* kovUnpackPrimitiveField(const CKovUp* up, uint16_t blkID, uint32_t startByte,
                                   uint8_t startMsb, const CKovFieldLayout* fieldLayout,
                                   const KovFieldsMap& fieldsMap, uint32_t lastBit,
                                   uint32_t fieldID, UpStatus& status) {
  status = UpDone;
  // Nearly every layout is of one of these classes itself, which one compare tells; a class
  // derived from one of them takes the walks below.
  const KovRuntimeClass* rc = fieldLayout->GetRuntimeClass();
  if (rc == KOV_RUNTIME_CLASS(CKovNumFieldLayout)) {
    return new CKovNumField(up, startByte, startMsb, fieldsMap, fieldLayout, fieldID, blkID,
                            lastBit, status);
  }
  if (rc == KOV_RUNTIME_CLASS(CKovStrFieldLayout)) {
    return new CKovStrField(up, startByte, startMsb, fieldsMap, fieldLayout, fieldID, blkID,
                            lastBit, status);
  }
  if (fieldLayout->IsKindOf(KOV_RUNTIME_CLASS(CKovNameFieldLayout))) {
    return new CKovNameField(up, startByte, startMsb, fieldsMap, fieldLayout, fieldID, blkID,
                             lastBit, status);
  }
  if (fieldLayout->IsKindOf(KOV_RUNTIME_CLASS(CKovNumFieldLayout))) {
    return new CKovNumField(up, startByte, startMsb, fieldsMap, fieldLayout, fieldID, blkID,
                            lastBit, status);
  }
  if (fieldLayout->IsKindOf(KOV_RUNTIME_CLASS(CKovCharFieldLayout))) {
    return new CKovCharField(up, startByte, startMsb, fieldsMap, fieldLayout, fieldID, blkID,
                             lastBit, status);
  }
  if (fieldLayout->IsKindOf(KOV_RUNTIME_CLASS(CKovStrFieldLayout))) {
    return new CKovStrField(up, startByte, startMsb, fieldsMap, fieldLayout, fieldID, blkID,
                            lastBit, status);
  }
  return nullptr;
}

CKovField* kovUnpackComplexField(const CKovUp* up, const CKovBlkLayout* blkLayout,
                                 uint32_t startByte, uint8_t startMsb, CKovUpPatchMap* patchMap,
                                 const CKovFieldLayout* fieldLayout, uint32_t lastBit,
                                 KovFieldsMap& fieldsMap, UpStatus& status, uint32_t fieldID,
                                 uint16_t instance) {
  status = UpDone;
  if (fieldLayout->IsKindOf(KOV_RUNTIME_CLASS(CKovUnionFieldLayout))) {
    return new CKovUnionField(up, blkLayout, startByte, startMsb, patchMap, fieldLayout, lastBit,
                              fieldsMap, status, fieldID, instance);
  }
  if (fieldLayout->IsKindOf(KOV_RUNTIME_CLASS(CKovListFieldLayout))) {
    return new CKovListField(up, blkLayout, startByte, startMsb, patchMap, fieldLayout, lastBit,
                             fieldsMap, status, fieldID, instance);
  }
  return nullptr;
}
