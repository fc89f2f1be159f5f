#include "kov/fields/unionfield.h"

#include "kov/fields/charfield.h"
#include "kov/fields/fieldcopy.h"
#include "kov/fields/numfield.h"
#include "kov/fields/strfield.h"
#include "kov/layout/blklayout.h"
#include "kov/layout/charfieldlayout.h"
#include "kov/layout/datalayout.h"
#include "kov/layout/numfieldlayout.h"
#include "kov/layout/strfieldlayout.h"
#include "kov/layout/unionfieldlayout.h"
#include "kov/layout/unionlayoutopt.h"
#include "kov/pack/pkentry.h"
#include "kov/platform/format.h"
#include "kov/platform/mevgenexception.h"
#include "kov/unpack/up.h"
#include "kov/unpack/upblkinstance.h"
#include "kov/unpack/upentry.h"

namespace {

const CKovUnionFieldLayout* asUnionLayout(const CKovFieldLayout* layout) {
  return layout != nullptr && layout->IsKindOf(KOV_RUNTIME_CLASS(CKovUnionFieldLayout))
             ? static_cast<const CKovUnionFieldLayout*>(layout)
             : nullptr;
}

const CKovField* placedField(const KovFieldsMap& fieldsMap, uint32_t id) {
  const CKovField* const* found = fieldsMap.PLookup(id);
  return found != nullptr ? *found : nullptr;
}

// Appends a record of field to discrs. With owned (holding field), the record takes the field
// over once it is stored; a failure on the way leaves it with owned.
void appendDiscr(std::list<const KovDiscrInfo*>& discrs, const CKovField* field,
                 const CKovFieldLayout* layout, std::unique_ptr<CKovField>* owned = nullptr) {
  auto info = std::make_unique<KovDiscrInfo>(field, layout, false);
  discrs.push_back(info.get());
  KovDiscrInfo* stored = info.release();
  if (owned != nullptr) {
    stored->ownsField = true;
    owned->release();
  }
}

}  // namespace

CKovUnionField::CKovUnionField(uint32_t fieldID, uint32_t layoutID, CKovPkEntry* pkEntry)
    : CKovComplexField(fieldID), layoutID(layoutID), pkEntry(pkEntry) {}

CKovUnionField::CKovUnionField(uint32_t fieldID, uint32_t layoutID, CKovUpEntry* upEntry)
    : CKovComplexField(fieldID), layoutID(layoutID), upEntry(upEntry) {}

CKovUnionField::CKovUnionField(const CKovUp* up, const CKovBlkLayout* blkLayout,
                               uint32_t entryStartByte, uint8_t entryMsbStart,
                               CKovUpPatchMap* patchMap, const CKovFieldLayout* layout,
                               uint32_t lastBit, KovFieldsMap& fieldsMap, UpStatus& status,
                               uint32_t fieldID, uint16_t instance)
    : CKovComplexField(fieldID) {
  status = UpDone;
  const CKovUnionFieldLayout* unionLayout = asUnionLayout(layout);
  if (unionLayout == nullptr) {
    status = UpFailed;
    return;
  }
  if (!GetUnionLayoutID(up, blkLayout, unionLayout, entryStartByte, entryMsbStart, fieldsMap,
                        instance, lastBit)) {
    status = UpDeferred;
    return;
  }
  const CKovUnionLayoutOpt* option = GetSelectedUnionLayout(unionLayout);
  const CKovDataLayout* optionLayout = option->GetDataLayout();
  if (!GetUnpackAddr(layout, entryStartByte, entryMsbStart, fieldsMap, byteOffsetInImage,
                     startMsbInImage)) {
    status = UpDeferred;
    return;
  }
  bool measure = false;
  if (!unionLayout->IsVarSzUnion()) {
    imageSize = layout->GetLengthInBits();
  } else if (unionLayout->PadUnion()) {
    imageSize = option->GetLayoutSzInBits();
  } else {
    imageSize = 0;
    measure = true;
  }
  if (imageSize == 0 && !measure) return;
  up->XmlAddStartTagLine("<Union>");
  upEntry.reset(new CKovUpEntry(up, byteOffsetInImage, startMsbInImage, patchMap, instance,
                                optionLayout, blkLayout, lastBit, fieldsMap, status));
  bool hasFields = !upEntry->GetUpFieldMap().IsEmpty();
  // A union cut off by the end of the block keeps what it could read.
  if (status == UpOutsideBlkData && hasFields) status = UpDone;
  if (measure && status == UpDone && hasFields) imageSize = CalculateUpEntrySzInBits(optionLayout);
  up->XmlAddEndTagLine("</Union>");
}

CKovUnionField::CKovUnionField(const CKovUnionField& other)
    : CKovComplexField(other),
      layoutID(other.layoutID),
      pkEntry(kovCopyPkEntry(other.pkEntry.get())) {
  upEntry.reset(kovCopyUpEntry(other.upEntry.get()));
}

CKovUnionField& CKovUnionField::operator=(const CKovUnionField& other) {
  if (this == &other) return *this;
  CKovUnionField copy(other);
  CKovComplexField::operator=(other);
  layoutID = copy.layoutID;
  pkEntry.swap(copy.pkEntry);
  upEntry.swap(copy.upEntry);
  return *this;
}

CKovUnionField::~CKovUnionField() { Cleanup(); }

void CKovUnionField::Cleanup() {
  pkEntry.reset();
  upEntry.reset();
}

int CKovUnionField::FieldOutsideBlkData(const CKovFieldLayout*, uint32_t lastBit) const {
  uint64_t lastOfUnion = uint64_t{byteOffsetInImage} * 8 + imageSize + 6 - startMsbInImage;
  return uint64_t{lastBit} < lastOfUnion ? 1 : 0;
}

const CKovUnionLayoutOpt* CKovUnionField::GetSelectedUnionLayout(
    const CKovUnionFieldLayout* layout) const {
  CKovUnionLayoutOpt* option = nullptr;
  if (!layout->GetUnionMap()->Lookup(layoutID, option) || option == nullptr) {
    throw new CMevGenException(
        kovFormat("Layout selection function for union %s returned layout %d but\nno exchange "
                  "defined for that layout.",
                  fieldName->c_str(), static_cast<int>(layoutID)),
        0);
  }
  return option;
}

bool CKovUnionField::GetUnionLayoutID(const CKovUp* up, const CKovBlkLayout* blkLayout,
                                      const CKovUnionFieldLayout* layout, uint32_t entryStartByte,
                                      uint8_t entryMsbStart, const KovFieldsMap& fieldsMap,
                                      uint16_t instance, uint32_t lastBit) {
  std::list<const KovDiscrInfo*> discrs;
  try {
    const auto& discrIDs = layout->GetDiscrIDArr();
    const auto& discrBlkIDs = layout->GetDiscrBlkIDArr();
    for (size_t i = 0; i < discrIDs.size(); ++i) {
      uint16_t discrBlkID = i < discrBlkIDs.size() ? discrBlkIDs[i] : blkLayout->GetBlkID();
      bool found = discrBlkID == blkLayout->GetBlkID()
                       ? GetSameBlkDiscrField(up, blkLayout, entryStartByte, entryMsbStart,
                                              fieldsMap, layout, lastBit, discrIDs[i], discrs)
                       : GetSplitBlkDiscrField(up, instance, discrIDs[i], discrBlkID, discrs);
      if (!found) {
        CleanupDiscrInfo(discrs);
        return false;
      }
    }
    KovUpLayoutSelectionFunc select = layout->GetUpLayoutSelectionFuncPtr();
    if (select == nullptr) {
      throw new CMevGenException(
          kovFormat("No user function found for selecting layout ID for union field %d", fieldID),
          0);
    }
    // The application's function runs outside the unpack's arena: what it makes is its own.
    KovArenaPause pause;
    layoutID = select(up, fieldID, instance, blkLayout, discrs);
  } catch (...) {
    CleanupDiscrInfo(discrs);
    Cleanup();
    throw;
  }
  CleanupDiscrInfo(discrs);
  return true;
}

bool CKovUnionField::GetSameBlkDiscrField(const CKovUp* up, const CKovBlkLayout* blkLayout,
                                          uint32_t entryStartByte, uint8_t entryMsbStart,
                                          const KovFieldsMap& fieldsMap,
                                          const CKovUnionFieldLayout* layout, uint32_t lastBit,
                                          uint32_t discrID,
                                          std::list<const KovDiscrInfo*>& discrs) const {
  const CKovFieldLayout* discrLayout = blkLayout->GetFieldLayout(discrID);
  if (const CKovField* placed = placedField(fieldsMap, discrID)) {
    appendDiscr(discrs, placed, discrLayout);
    return true;
  }
  // Not read yet: only a discriminant of the union's own entry can be read from here.
  if (discrLayout == nullptr ||
      discrLayout->GetParentDataLayout() != layout->GetParentDataLayout()) {
    return false;
  }
  std::unique_ptr<CKovField> field(UnpackDiscrField(up, entryStartByte, entryMsbStart, fieldsMap,
                                                    discrLayout, discrID, blkLayout->GetBlkID(),
                                                    lastBit));
  if (!field) return false;
  appendDiscr(discrs, field.get(), discrLayout, &field);
  return true;
}

bool CKovUnionField::GetSplitBlkDiscrField(const CKovUp* up, uint16_t instance, uint32_t discrID,
                                           uint16_t discrBlkID,
                                           std::list<const KovDiscrInfo*>& discrs) const {
  const KovUpBlkInstArr* const* instances = up->GetUpBlksList().PLookup(discrBlkID);
  if (instances == nullptr || *instances == nullptr) return false;
  const CKovBlkLayout* discrBlk = up->GetBlkLayout(discrBlkID);
  bool multi = discrBlk != nullptr && discrBlk->IsMultiInstanceBlk();
  uint16_t n = multi ? instance : 1;
  // A block met in other instances only: the selection function gets one discriminant less.
  if ((*instances)->empty() || (multi && n == 0) || n >= (*instances)->size() ||
      (**instances)[n] == nullptr) {
    return true;
  }
  const CKovField* placed = placedField((**instances)[n]->GetUpFieldMap(), discrID);
  if (placed == nullptr) return true;
  appendDiscr(discrs, placed, discrBlk != nullptr ? discrBlk->GetFieldLayout(discrID) : nullptr);
  return true;
}

CKovField* CKovUnionField::UnpackDiscrField(const CKovUp* up, uint32_t entryStartByte,
                                            uint8_t entryMsbStart, const KovFieldsMap& fieldsMap,
                                            const CKovFieldLayout* discrLayout, uint32_t discrID,
                                            uint16_t blkID, uint32_t lastBit) const {
  UpStatus status = UpDone;
  std::unique_ptr<CKovField> field;
  if (discrLayout->IsKindOf(KOV_RUNTIME_CLASS(CKovNumFieldLayout))) {
    field.reset(new CKovNumField(up, entryStartByte, entryMsbStart, fieldsMap, discrLayout,
                                 discrID, blkID, lastBit, status));
  } else if (discrLayout->IsKindOf(KOV_RUNTIME_CLASS(CKovCharFieldLayout))) {
    field.reset(new CKovCharField(up, entryStartByte, entryMsbStart, fieldsMap, discrLayout,
                                  discrID, blkID, lastBit, status));
  } else if (discrLayout->IsKindOf(KOV_RUNTIME_CLASS(CKovStrFieldLayout))) {
    field.reset(new CKovStrField(up, entryStartByte, entryMsbStart, fieldsMap, discrLayout,
                                 discrID, blkID, lastBit, status));
  }
  if (status != UpDone) return nullptr;
  return field.release();
}

void CKovUnionField::CleanupDiscrInfo(std::list<const KovDiscrInfo*>& discrs) {
  for (const KovDiscrInfo* info : discrs) delete info;
  discrs.clear();
}

uint32_t CKovUnionField::CalculateUpEntrySzInBits(const CKovDataLayout* optionLayout) const {
  uint32_t id = optionLayout->GetIDOfLastFieldInLayout();
  // Walks back along the previous fields to the last one read; a chain longer than the layout
  // has fields can only be a loop.
  for (int step = 0; step <= optionLayout->GetFieldMap().GetCount(); ++step) {
    CKovUpField* const* read = upEntry->GetUpFieldMap().PLookup(id);
    if (read != nullptr && *read != nullptr) {
      const CKovField* f = (*read)->GetData();
      int64_t bits = (int64_t{f->GetByteOffsetInImage()} - byteOffsetInImage) * 8 +
                     startMsbInImage - f->GetStartMsbInImage() + f->GetImageSize();
      return bits > 0 ? static_cast<uint32_t>(bits) : 0;
    }
    uint32_t prev = optionLayout->GetPrevFieldID(id);
    if (prev == id) break;
    id = prev;
  }
  return 0;
}

PkStatus CKovUnionField::WriteToImage(const CKovPk* pk, CKovImage* image,
                                      uint32_t entryStartByte, uint8_t entryMsbStart,
                                      KovFieldsMap* fieldsMap, const CKovFieldLayout* layout,
                                      const CKovCpLayout* cpLayout, uint16_t blkID,
                                      int instance) const {
  const CKovUnionFieldLayout* unionLayout = asUnionLayout(layout);
  if (unionLayout == nullptr) return PkFailed;
  if (!GetPackAddr(layout, fieldsMap, entryStartByte, entryMsbStart, blkID, byteOffsetInImage,
                   startMsbInImage)) {
    return PkDeferred;
  }
  return WriteFieldDataToImage(pk, image, fieldsMap, unionLayout, cpLayout, blkID, instance)
             ? PkDone
             : PkFailed;
}

PkStatus CKovUnionField::PatchFieldInImage(const CKovPk* pk, CKovImage* image,
                                           KovFieldsMap* fieldsMap, const CKovFieldLayout* layout,
                                           const CKovCpLayout* cpLayout, uint16_t blkID,
                                           int instance, uint32_t byte, uint8_t msbStart) const {
  const CKovUnionFieldLayout* unionLayout = asUnionLayout(layout);
  if (unionLayout == nullptr) return PkFailed;
  return WriteAtAddr(byte, msbStart, [&] {
    return WriteFieldDataToImage(pk, image, fieldsMap, unionLayout, cpLayout, blkID, instance);
  });
}

int CKovUnionField::WriteFieldDataToImage(const CKovPk* pk, CKovImage* image,
                                          KovFieldsMap* fieldsMap,
                                          const CKovUnionFieldLayout* layout,
                                          const CKovCpLayout* cpLayout, uint16_t blkID,
                                          int instance) const {
  if (imageSize == 0) return 1;
  const CKovUnionLayoutOpt* option = GetSelectedUnionLayout(layout);
  if (pkEntry) {
    pkEntry->WriteToImage(pk, image, byteOffsetInImage, startMsbInImage, fieldsMap,
                          option->GetDataLayout(), cpLayout, blkID, instance);
  }
  return 1;
}
