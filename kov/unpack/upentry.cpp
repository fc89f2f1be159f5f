#include "kov/unpack/upentry.h"

#include <memory>

#include "kov/fields/charfield.h"
#include "kov/fields/namefield.h"
#include "kov/fields/numfield.h"
#include "kov/fields/strfield.h"
#include "kov/fields/listfield.h"
#include "kov/fields/unionfield.h"
#include "kov/layout/blklayout.h"
#include "kov/layout/charfieldlayout.h"
#include "kov/layout/datalayout.h"
#include "kov/layout/listfieldlayout.h"
#include "kov/layout/namefieldlayout.h"
#include "kov/layout/numfieldlayout.h"
#include "kov/layout/strfieldlayout.h"
#include "kov/layout/unionfieldlayout.h"
#include "kov/platform/format.h"
#include "kov/platform/mevgenexception.h"
#include "kov/unpack/upentrylist.h"
#include "kov/unpack/upfieldfactory.h"
#include "kov/unpack/uppatchmap.h"

CKovUpEntry::CKovUpEntry(const CKovUp* up, uint32_t startByte, uint8_t startMsb,
                         CKovUpPatchMap* patchMap, uint16_t instance,
                         const CKovDataLayout* dataLayout, const CKovBlkLayout* blkLayout,
                         uint32_t lastBit, KovFieldsMap& fieldsMap, UpStatus& status)
    : dataLayout(dataLayout) {
  UseCurrentArena();
  status = UpDone;
  uint16_t blkID = blkLayout->GetBlkID();
  // Most entries read every field of their layout: room for them all at once.
  Reserve(dataLayout->GetFieldMap().size());
  try {
    // Each id comes once when the layout has no id twice: it goes in without a look for it.
    const bool unique = dataLayout->HasUniqueFieldIDs();
    for (const CKovDataLayout::OrderedField& ordered : dataLayout->GetOrderedFields()) {
      status = UpDone;
      const uint32_t fieldID = ordered.first;
      const CKovFieldLayout* fieldLayout = ordered.second;
      if (fieldLayout == nullptr) continue;
      std::unique_ptr<CKovField> field;
      try {
        if (fieldLayout->IsPrimitiveFieldLayout()) {
          field.reset(UnpackPrimitiveField(up, blkLayout, startByte, startMsb, fieldLayout,
                                           fieldsMap, lastBit, fieldID, status));
        } else {
          field.reset(UnpackComplexField(up, startByte, startMsb, patchMap, instance, fieldLayout,
                                         blkLayout, fieldID, lastBit, fieldsMap, status));
        }
      } catch (CMevGenException* e) {
        if (e->GetMessage().empty()) {
          e->SetMessage(kovFormat("Unable to write field %d in block %s to image.", fieldID,
                                  blkLayout->GetBlkName().c_str()));
        }
        throw;
      }
      if (status != UpDone && field) {
        // A list or union that gives up may have read entries below it already.
        kovForgetField(field.get(), fieldsMap);
        field.reset();
      }
      if (status == UpOutsideBlkData || status == UpFailed) break;
      if (status == UpDeferred) {
        patchMap->AddField(up, startByte, startMsb, fieldID, fieldLayout, blkID, instance);
        continue;
      }
      if (!field) continue;
      // Into the entry first: once it owns the field, a failure of the map frees it once.
      const CKovField* placed = field.get();
      auto upField = std::make_unique<CKovUpField>(placed, fieldLayout);
      field.release();
      if (unique) {
        InsertNew(fieldID) = upField.get();
        upField.release();
      } else {
        AddUpField(fieldID, upField.release());
      }
      fieldsMap.SetAt(fieldID, placed);
    }
  } catch (...) {
    kovForgetFields(this, fieldsMap);
    Cleanup();
    throw;
  }
}

CKovUpEntry::~CKovUpEntry() { Cleanup(); }

void CKovUpEntry::Cleanup() {
  for (auto& kv : *this) delete kv.second;
  RemoveAll();
}

void CKovUpEntry::AddUpField(uint32_t fieldID, CKovUpField* field) {
  CKovUpField** place = nullptr;
  try {
    place = &(*this)[fieldID];
  } catch (...) {
    delete field;
    throw;
  }
  CKovUpField*& slot = *place;
  // A second field under one id would leave the first without an owner.
  delete slot;
  slot = field;
}

const CKovUpField* CKovUpEntry::GetUpField(uint32_t fieldID) const {
  CKovUpField* field = nullptr;
  if (Lookup(fieldID, field) && field != nullptr) return field;
  // A union is transparent: its option's fields answer for the entry that holds it.
  for (const auto& kv : GetUpFieldMap()) {
    const CKovField* value = kv.second != nullptr ? kv.second->GetData() : nullptr;
    if (value == nullptr || !value->IsUnion()) continue;
    const CKovUpEntry* inner = static_cast<const CKovUnionField*>(value)->GetUpEntry();
    if (inner == nullptr) continue;
    if (const CKovUpField* hit = inner->GetUpField(fieldID)) return hit;
  }
  return nullptr;
}

CKovField* CKovUpEntry::UnpackPrimitiveField(const CKovUp* up, const CKovBlkLayout* blkLayout,
                                             uint32_t startByte, uint8_t startMsb,
                                             const CKovFieldLayout* fieldLayout,
                                             const KovFieldsMap& fieldsMap, uint32_t lastBit,
                                             uint32_t fieldID, UpStatus& status) const {
  return kovUnpackPrimitiveField(up, blkLayout->GetBlkID(), startByte, startMsb, fieldLayout,
                                 fieldsMap, lastBit, fieldID, status);
}

CKovField* CKovUpEntry::UnpackComplexField(const CKovUp* up, uint32_t startByte, uint8_t startMsb,
                                           CKovUpPatchMap* patchMap, uint16_t instance,
                                           const CKovFieldLayout* fieldLayout,
                                           const CKovBlkLayout* blkLayout, uint32_t fieldID,
                                           uint32_t lastBit, KovFieldsMap& fieldsMap,
                                           UpStatus& status) const {
  return kovUnpackComplexField(up, blkLayout, startByte, startMsb, patchMap, fieldLayout, lastBit,
                               fieldsMap, status, fieldID, instance);
}

void kovForgetField(const CKovField* field, KovFieldsMap& fieldsMap) {
  if (field == nullptr) return;
  if (field->IsList()) {
    const CKovUpEntryList* entries = static_cast<const CKovListField*>(field)->GetUpEntryList();
    if (entries != nullptr) {
      for (const CKovUpEntry* entry : *entries) kovForgetFields(entry, fieldsMap);
    }
  } else if (field->IsUnion()) {
    kovForgetFields(static_cast<const CKovUnionField*>(field)->GetUpEntry(), fieldsMap);
  }
  const CKovField* const* placed = fieldsMap.PLookup(field->GetFieldID());
  if (placed != nullptr && *placed == field) fieldsMap.RemoveKey(field->GetFieldID());
}

void kovForgetFields(const CKovUpEntry* entry, KovFieldsMap& fieldsMap) {
  if (entry == nullptr) return;
  for (const auto& kv : entry->GetUpFieldMap()) {
    if (kv.second != nullptr) kovForgetField(kv.second->GetData(), fieldsMap);
  }
}
