#include "kov/fields/fieldcopy.h"

#include <memory>

#include "kov/fields/charfield.h"
#include "kov/fields/listfield.h"
#include "kov/fields/namefield.h"
#include "kov/fields/numfield.h"
#include "kov/fields/strfield.h"
#include "kov/fields/unionfield.h"
#include "kov/pack/pkentry.h"
#include "kov/platform/format.h"
#include "kov/platform/mevgenexception.h"
#include "kov/unpack/upentry.h"

CKovField* kovCopyField(const CKovField* field) {
  if (field == nullptr) return nullptr;
  if (auto* f = dynamic_cast<const CKovListField*>(field)) return new CKovListField(*f);
  if (auto* f = dynamic_cast<const CKovUnionField*>(field)) return new CKovUnionField(*f);
  if (auto* f = dynamic_cast<const CKovNameField*>(field)) return new CKovNameField(*f);
  if (auto* f = dynamic_cast<const CKovStrField*>(field)) return new CKovStrField(*f);
  if (auto* f = dynamic_cast<const CKovCharField*>(field)) return new CKovCharField(*f);
  if (auto* f = dynamic_cast<const CKovNumField*>(field)) return new CKovNumField(*f);
  throw new CMevGenException(
      kovFormat("Field %u is of a kind that can't be copied.", field->GetFieldID()), 0);
}

CKovPkEntry* kovCopyPkEntry(const CKovPkEntry* entry) {
  if (entry == nullptr) return nullptr;
  const CKovPkEntry::PkFieldArr& slots = *entry->GetOrderedPkEntryArr();
  auto copy = std::make_unique<CKovPkEntry>(static_cast<int>(slots.size()));
  for (size_t i = 0; i < slots.size(); ++i) {
    if (slots[i] == nullptr) continue;
    std::unique_ptr<CKovField> value(kovCopyField(slots[i]->GetData()));
    auto field = std::make_unique<CKovPkField>(value.get());
    value.release();
    copy->AddPkField(field->GetFieldID(), field.get(), static_cast<int>(i));
    field.release();
  }
  return copy.release();
}

CKovUpEntry* kovCopyUpEntry(const CKovUpEntry* entry) {
  if (entry == nullptr) return nullptr;
  auto copy = std::make_unique<CKovUpEntry>(entry->GetDataLayout());
  for (const auto& kv : entry->GetUpFieldMap()) {
    if (kv.second == nullptr) continue;
    std::unique_ptr<CKovField> value(kovCopyField(kv.second->GetData()));
    auto field = std::make_unique<CKovUpField>(value.get(), kv.second->GetUnPackFieldLayout());
    value.release();
    copy->AddUpField(kv.first, field.release());
  }
  return copy.release();
}
