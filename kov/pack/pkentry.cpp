#include "kov/pack/pkentry.h"

#include <algorithm>

#include "kov/fields/numfield.h"
#include "kov/layout/cplayout.h"
#include "kov/layout/datalayout.h"
#include "kov/pack/pk.h"
#include "kov/pack/pkpatchmap.h"
#include "kov/platform/format.h"
#include "kov/platform/mevgenexception.h"

CKovPkEntry::CKovPkEntry(int numberOfFields)
    : orderedPkFields(static_cast<size_t>(std::max(numberOfFields, 0)), nullptr) {
  UseCurrentArena();
  Reserve(orderedPkFields.size());
}

// A field may stand in several slots and among the displaced ones: both arrays are sorted in
// place and walked together, each field deleted once. Nothing is allocated, so freeing an entry
// can't fail.
CKovPkEntry::~CKovPkEntry() {
  std::sort(orderedPkFields.begin(), orderedPkFields.end());
  std::sort(displaced.begin(), displaced.end());
  const CKovPkField* last = nullptr;
  auto a = orderedPkFields.begin();
  auto b = displaced.begin();
  // Each step moves a or b on by one: the walk ends after both arrays.
  while (a != orderedPkFields.end() || b != displaced.end()) {
    CKovPkField* field;
    if (b == displaced.end() || (a != orderedPkFields.end() && *a < *b)) {
      field = *a++;
    } else {
      field = *b++;
    }
    if (field == last) continue;
    last = field;
    delete field;
  }
}

void CKovPkEntry::AddPkField(uint32_t id, CKovPkField* field, int position) {
  if (position < 0 || static_cast<size_t>(position) >= orderedPkFields.size()) {
    delete field;
    throw new CMevGenException(
        kovFormat("Position %d of field %u is outside the %d fields of its pack entry.", position,
                  id, static_cast<int>(orderedPkFields.size())),
        0);
  }
  CKovPkField*& slot = orderedPkFields[static_cast<size_t>(position)];
  const bool displaces = slot != nullptr && slot != field;
  if (displaces) displaced.push_back(slot);
  try {
    // Mostly an id new to the entry: one look, then the insertion without another.
    if (CKovPkField** present = PLookup(id)) {
      *present = field;
    } else {
      InsertNew(id) = field;
    }
  } catch (...) {
    if (displaces) displaced.pop_back();
    throw;
  }
  slot = field;
}

int CKovPkEntry::WriteToImage(const CKovPk* pk, CKovImage* image, uint32_t entryStartByte,
                              uint8_t entryMsbStart, KovFieldsMap* fieldsMap,
                              const CKovDataLayout* dataLayout, const CKovCpLayout* cpLayout,
                              uint16_t blkID, int instance) const {
  // Most entries hold their fields in the slots of the layout's own order: the layout of such a
  // field is the one beside its id in that order, without a look-up.
  // Neither array changes while the entry is written: their bounds are read once.
  const CKovDataLayout::OrderedField* ordered = dataLayout->GetOrderedFields().data();
  const size_t orderedCount = dataLayout->GetOrderedFields().size();
  const CKovPkField* const* slots = orderedPkFields.data();
  const size_t slotCount = orderedPkFields.size();
  for (size_t slot = 0; slot < slotCount; ++slot) {
    const CKovPkField* pkField = slots[slot];
    if (pkField == nullptr) continue;
    uint32_t id = pkField->GetFieldID();
    const CKovFieldLayout* layout =
        slot < orderedCount && ordered[slot].first == id && ordered[slot].second != nullptr
            ? ordered[slot].second
            : dataLayout->GetFieldLayout(id);
    if (layout == nullptr) {
      throw new CMevGenException(kovFormat("Layout not found for field %d in block %d.", id, blkID),
                                 0);
    }
    const CKovField* data = pkField->GetData();
    if (CKovNumField::IsExactlyNumField(data) &&
        static_cast<const CKovNumField*>(data)->WriteFixedToImage(image, entryStartByte,
                                                                  entryMsbStart, layout)) {
      fieldsMap->SetAt(id, data);
      continue;
    }
    switch (pkField->WriteToImage(pk, image, entryStartByte, entryMsbStart, fieldsMap, layout,
                                  cpLayout, blkID, instance)) {
      case PkDone:
        fieldsMap->SetAt(id, pkField->GetData());
        break;
      case PkDeferred:
        pk->GetPatchMap()->AddField(pk, pkField->GetData(), layout, blkID,
                                    static_cast<uint16_t>(instance), false);
        break;
      default: {
        std::string blkName = cpLayout != nullptr ? cpLayout->GetBlkName(blkID) : std::string();
        throw new CMevGenException(
            kovFormat("Failed trying to write field %d in block %s [%d] to image.", id,
                      blkName.c_str(), instance),
            0);
      }
    }
  }
  return 1;
}
