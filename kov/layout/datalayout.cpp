#include "kov/layout/datalayout.h"

#include <algorithm>
#include <unordered_set>

#include "kov/layout/fieldlayout.h"
#include "kov/layout/fieldvaluesize.h"
#include "kov/layout/listfieldlayout.h"
#include "kov/layout/unionfieldlayout.h"
#include "kov/layout/unionlayoutopt.h"
#include "kov/platform/format.h"
#include "kov/platform/mevgenexception.h"

namespace {

// Measured size of a field: its value's image size when the map holds a value of 0 bits or more,
// else the layout's width when that is fixed, else 0 (a list or union without a value).
uint32_t measuredSzInBits(const CKovFieldLayout* fieldLayout, const void* fieldValueMap,
                          int mapKind) {
  int32_t imageSize = -1;
  if (kovGetValueImageSize(fieldValueMap, mapKind, fieldLayout->GetFieldID(), imageSize) &&
      imageSize >= 0) {
    return static_cast<uint32_t>(imageSize);
  }
  return fieldLayout->IsFixedSz() ? fieldLayout->GetLengthInBits() : 0;
}

// Start of a fixed field in bits from the entry start. The unsigned arithmetic wraps for a field
// placed before the entry start, which a layout must not ask for.
uint32_t fixedStartInBits(const CKovDataLayout* dataLayout, const CKovFieldLayout* fieldLayout) {
  return fieldLayout->GetByteOffset() * 8 +
         (static_cast<uint32_t>(dataLayout->GetMsbStart()) - fieldLayout->GetMsbStart());
}

uint32_t startInBits(const void* fieldValueMap, const CKovDataLayout* dataLayout,
                     const CKovFieldLayout* fieldLayout, int mapKind) {
  if (fieldLayout->HasFixedAddr()) return fixedStartInBits(dataLayout, fieldLayout);
  return kovCalcFloatingFldBitOffsetFromEntryStart(fieldValueMap, dataLayout, fieldLayout, mapKind);
}

}  // namespace

CKovDataLayout::CKovDataLayout(LayoutType layoutType, uint32_t startByteOffset, uint8_t msbStart,
                               uint32_t dataLayoutID, bool blockLevel)
    : layoutType(layoutType),
      blockLevel(blockLevel),
      dataLayoutID(dataLayoutID),
      startByteOffset(startByteOffset),
      msbStart(msbStart) {}

CKovDataLayout::~CKovDataLayout() {
  // One layout may have been added under two ids: delete each object once.
  std::unordered_set<CKovFieldLayout*> owned;
  for (const auto& idAndLayout : GetFieldMap()) owned.insert(idAndLayout.second);
  owned.erase(nullptr);
  for (CKovFieldLayout* fieldLayout : owned) delete fieldLayout;
}

void CKovDataLayout::AddField(uint32_t fieldID, uint32_t prevFieldID, CKovFieldLayout* fieldLayout,
                              int32_t position) {
  if (prevFieldID == 0) prevFieldID = fieldID;
  // Room first, so that the array never misses an id that the map has; grown by doubling, as
  // push_back would, so that a layout of n fields costs O(n) and not a copy per field.
  if (orderedFields.size() == orderedFields.capacity()) {
    orderedFields.reserve(std::max<size_t>(8, 2 * orderedFields.capacity()));
  }
  const bool again = Contains(fieldID);
  SetAt(fieldID, fieldLayout);
  positionMap.SetAt(fieldID, position);
  prevFieldMap.SetAt(fieldID, prevFieldID);
  orderedFieldIDs.push_back(fieldID);
  // Every place of an id added again reads the layout the map now holds.
  if (again) {
    uniqueFieldIDs = false;
    for (OrderedField& field : orderedFields) {
      if (field.first == fieldID) field.second = fieldLayout;
    }
  }
  orderedFields.emplace_back(fieldID, fieldLayout);
}

CKovFieldLayout* CKovDataLayout::FindInComplexFields(uint32_t fieldID) const {
  CKovFieldLayout* found = nullptr;
  for (const auto& idAndLayout : GetFieldMap()) {
    const CKovFieldLayout* fieldLayout = idAndLayout.second;
    if (fieldLayout == nullptr) continue;
    if (fieldLayout->IsKindOf(KOV_RUNTIME_CLASS(CKovUnionFieldLayout))) {
      const auto* unionLayout = static_cast<const CKovUnionFieldLayout*>(fieldLayout);
      for (const auto& idAndOpt : *unionLayout->GetUnionMap()) {
        const CKovUnionLayoutOpt* opt = idAndOpt.second;
        if (opt == nullptr || opt->GetDataLayout() == nullptr) continue;
        found = opt->GetDataLayout()->GetFieldLayout(fieldID);
        if (found != nullptr) return found;
      }
    } else if (fieldLayout->IsKindOf(KOV_RUNTIME_CLASS(CKovListFieldLayout))) {
      const auto* listLayout = static_cast<const CKovListFieldLayout*>(fieldLayout);
      if (listLayout->GetDataLayout() == nullptr) continue;
      found = listLayout->GetDataLayout()->GetFieldLayout(fieldID);
      if (found != nullptr) return found;
    }
  }
  return nullptr;
}

uint32_t CKovDataLayout::GetPrevFieldID(uint32_t fieldID) const {
  uint32_t prevFieldID = fieldID;
  prevFieldMap.Lookup(fieldID, prevFieldID);
  return prevFieldID;
}

uint32_t CKovDataLayout::GetIDOfLastFieldInLayout() const {
  return orderedFieldIDs.empty() ? 0 : orderedFieldIDs.back();
}

int CKovDataLayout::GetFieldPositionInLayout(uint32_t fieldID, int32_t& position) const {
  return positionMap.Lookup(fieldID, position) ? 1 : 0;
}

uint32_t kovCalculateDataLayoutSzInBits(const CKovDataLayout* dataLayout, const void* fieldValueMap,
                                        int mapKind) {
  if (dataLayout->GetFieldMap().IsEmpty()) return 0;
  const CKovFieldLayout* last = dataLayout->GetFieldLayout(dataLayout->GetIDOfLastFieldInLayout());
  if (last == nullptr) return 0;
  return startInBits(fieldValueMap, dataLayout, last, mapKind) +
         measuredSzInBits(last, fieldValueMap, mapKind);
}

uint32_t kovCalcFloatingFldBitOffsetFromEntryStart(const void* fieldValueMap,
                                                   const CKovDataLayout* dataLayout,
                                                   const CKovFieldLayout* fieldLayout,
                                                   int mapKind) {
  // Walks back through floating predecessors, adding each one's gap and the size of the field
  // before it, until the first field of the layout or a fixed field. Every step but the last
  // leaves a field that has an entry in the layout's map of predecessors, so a walk longer than
  // that map has met a field twice.
  const uint32_t startID = fieldLayout->GetFieldID();
  const size_t maxSteps = dataLayout->GetOrderedFieldIDsList().size() + 1;
  uint32_t offsetInBits = 0;
  const CKovFieldLayout* current = fieldLayout;
  for (size_t step = 0; step <= maxSteps; ++step) {
    const uint32_t currentID = current->GetFieldID();
    const uint32_t prevID = dataLayout->GetPrevFieldID(currentID);
    offsetInBits += current->GetNumBitsOffsetFromPrevFieldEnd();
    if (prevID == currentID) return offsetInBits;
    const CKovFieldLayout* prev = dataLayout->GetFieldLayout(prevID);
    if (prev == nullptr) return offsetInBits;
    offsetInBits += measuredSzInBits(prev, fieldValueMap, mapKind);
    if (prev->HasFixedAddr()) return offsetInBits + fixedStartInBits(dataLayout, prev);
    current = prev;
  }
  throw new CMevGenException(
      kovFormat("Previous fields of field %u in a data layout form a loop.", startID), 0);
}
