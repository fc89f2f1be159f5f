#include "kov/pack/pkpatchmap.h"

#include "kov/image/image.h"
#include "kov/layout/blklayout.h"
#include "kov/layout/cplayout.h"
#include "kov/layout/datalayout.h"
#include "kov/layout/fieldlayout.h"
#include "kov/layout/namefieldlayout.h"
#include "kov/layout/numfieldlayout.h"
#include "kov/pack/idvector.h"
#include "kov/platform/format.h"
#include "kov/platform/mevgenexception.h"
#include "kov/platform/msgbox.h"

namespace {

constexpr uint32_t kPartitionPrefixSz = 2;
// A chain of previous fields longer than this can only be a loop in a broken layout.
constexpr unsigned kMaxPrevFieldChain = 1u << 20;

uint32_t linearIndexOf(const CKovField* f) {
  return f->GetByteOffsetInImage() * 8 + 7 - f->GetStartMsbInImage();
}

const CKovField* placedField(const KovFieldsMap* fieldsMap, uint32_t id) {
  if (fieldsMap == nullptr) return nullptr;
  const CKovField* const* found = fieldsMap->PLookup(id);
  return found != nullptr ? *found : nullptr;
}

}  // namespace

void CKovPkPatchMap::AddField(const CKovPk*, const CKovField* field,
                              const CKovFieldLayout* fieldLayout, uint16_t blkID,
                              uint16_t instance, bool ownsField) {
  // The record takes field over only once it is stored: a failure on the way leaves field with
  // the caller, who still holds it.
  auto record = std::make_unique<KovPkPatchFieldInfo>(field, fieldLayout, instance, false);
  RecordList& list = (*this)[blkID];
  list.push_back(std::move(record));
  list.back()->ownsField = ownsField;
}

int CKovPkPatchMap::WriteToImage(const CKovPk* pk, const CKovCpLayout* cpLayout, CKovImage* image,
                                 KovIDVectorMap& vectorMap, const KovPkBlkMap* pkBlks) {
  int result = 1;
  InstanceSet instancesPatched;
  for (auto& kv : vectorMap) {
    uint16_t blkID = kv.first;
    RecordList* list = PLookup(blkID);
    if (list == nullptr) continue;
    result = PatchBlk(pk, *list, cpLayout, image, kv.second, vectorMap, pkBlks, instancesPatched,
                      blkID);
    if (result == 0) return 0;
    RemoveKey(blkID);
  }
  if (!IsEmpty()) {
    kovMessageBox(
        "Failed to patch 1 or more fields. Check that\nblocks for all split-across fields are "
        "being packed.");
    result = 0;
  }
  return result;
}

int CKovPkPatchMap::PatchBlk(const CKovPk* pk, const RecordList& list,
                             const CKovCpLayout* cpLayout, CKovImage* image,
                             const CKovIDVector* vector, KovIDVectorMap& vectorMap,
                             const KovPkBlkMap* pkBlks, InstanceSet& instancesPatched,
                             uint16_t blkID) {
  CKovPkStdBlk* pkBlk = nullptr;
  if (pkBlks != nullptr) pkBlks->Lookup(blkID, pkBlk);
  const CKovBlkLayout* blkLayout = cpLayout->GetBlkLayout(blkID);
  if (blkLayout == nullptr) {
    throw new CMevGenException(
        kovFormat("Attempting to patch block with absolute ID %d but no layout found for that block",
                  blkID),
        0);
  }
  int result = 1;
  for (const auto& record : list) {
    uint32_t n = record->instance;
    instancesPatched.SetAt(n, true);
    // The instances of a distributed block are listlets, which keep no fields: a patch aimed at
    // one has no instance to go to.
    KovFieldsMap* fieldsMap = nullptr;
    if (pkBlk != nullptr && n >= 1 && n <= pkBlk->GetBlkPkFieldsMapsArr().size()) {
      fieldsMap = pkBlk->GetBlkPkFieldsMapsArr()[n - 1].get();
    }
    if (fieldsMap == nullptr) {
      throw new CMevGenException(
          kovFormat("Attempting to patch field(s) in block %s-%d, but\nthat block instance number "
                    "does not exist.",
                    blkLayout->GetBlkName().c_str(), static_cast<int>(n)),
          0);
    }
    if (!PatchField(pk, cpLayout, image, *record, vector, vectorMap, pkBlks, fieldsMap,
                    static_cast<int>(n))) {
      result = 0;
      break;
    }
  }
  if (result == 1) PatchCheckSums(pk, image, vector, blkLayout, instancesPatched);
  instancesPatched.RemoveAll();
  return result;
}

int CKovPkPatchMap::PatchField(const CKovPk* pk, const CKovCpLayout* cpLayout, CKovImage* image,
                               const KovPkPatchFieldInfo& record, const CKovIDVector* vector,
                               KovIDVectorMap&, const KovPkBlkMap*, KovFieldsMap* fieldsMap,
                               int instance) {
  const CKovField* field = record.field;
  const CKovFieldLayout* layout = record.fieldLayout;
  uint16_t blkID = vector->GetID();
  uint32_t dataStart = vector->GetInstanceStart(instance) + CKovStdBlk::GetHdrSz() +
                       (pk->CollectPartitionInfo() ? kPartitionPrefixSz : 0);
  uint32_t byte = 0;
  uint8_t msb = 0;
  std::string message;
  if (!GetPatchPackAddr(layout, fieldsMap, dataStart, byte, msb)) {
    message = kovFormat("Unable to determine pack address for field %s in block %s.",
                        field->GetFieldName().c_str(), cpLayout->GetBlkName(blkID).c_str());
  } else if (!layout->IsKindOf(KOV_RUNTIME_CLASS(CKovNameFieldLayout)) &&
             !layout->IsKindOf(KOV_RUNTIME_CLASS(CKovNumFieldLayout))) {
    message = kovFormat(
        "Attempting to patch field %d in block %d but only\nknow how to patch Numeric fields and "
        "KovName fields.",
        field->GetFieldID(), blkID);
  } else if (field->PatchFieldInImage(pk, image, layout, byte, msb, blkID, instance) == PkDone) {
    fieldsMap->SetAt(field->GetFieldID(), field);
    return 1;
  } else {
    message = kovFormat("Unable to write field %s in block %d to image.",
                        field->GetFieldName().c_str(), blkID);
  }
  kovMessageBox(message);
  return 0;
}

void CKovPkPatchMap::PatchCheckSums(const CKovPk* pk, CKovImage* image, const CKovIDVector* vector,
                                    const CKovBlkLayout*, const InstanceSet& instancesPatched) const {
  uint32_t hdrSz = CKovStdBlk::GetHdrSz() + (pk->CollectPartitionInfo() ? kPartitionPrefixSz : 0);
  uint32_t trailerSz = CKovStdBlk::GetChecksumSz();
  for (int n = 1; n <= vector->GetNumInstances(); ++n) {
    if (!instancesPatched.Contains(static_cast<uint32_t>(n))) continue;
    uint32_t start = vector->GetInstanceStart(n);
    uint32_t length = vector->GetInstanceSize(n);
    if (length < hdrSz + trailerSz) continue;
    uint16_t checksum = 0;
    if (!image->GetChecksum(start + hdrSz, length - trailerSz - hdrSz, checksum)) continue;
    image->SetAt(start + length - 2, static_cast<uint8_t>(checksum >> 8));
    image->SetAt(start + length - 1, static_cast<uint8_t>(checksum & 0xFF));
  }
}

int CKovPkPatchMap::GetPatchPackAddr(const CKovFieldLayout* layout, const KovFieldsMap* fieldsMap,
                                     uint32_t dataStart, uint32_t& byte, uint8_t& msbStart) const {
  return layout->HasFixedAddr()
             ? GetPatchAddrForFixedField(layout, fieldsMap, dataStart, byte, msbStart)
             : GetPatchAddrForFloatingField(layout, fieldsMap, dataStart, byte, msbStart);
}

uint32_t CKovPkPatchMap::GetParentDataStartPosInImage(const CKovFieldLayout* layout,
                                                      uint32_t dataStart,
                                                      const KovFieldsMap* fieldsMap) const {
  const CKovDataLayout* parent = layout->GetParentDataLayout();
  if (parent == nullptr || parent->IsBlockLevel()) return dataStart * 8;
  const CKovField* complex = placedField(fieldsMap, parent->GetDataLayoutID());
  if (complex == nullptr) {
    throw new CMevGenException(
        kovFormat("Attempting to patch field %d in parent complex field %d but unable to locate "
                  "parent field in image.",
                  layout->GetFieldID(), parent->GetDataLayoutID()),
        0);
  }
  return linearIndexOf(complex);
}

int CKovPkPatchMap::GetPatchAddrForFixedField(const CKovFieldLayout* layout,
                                              const KovFieldsMap* fieldsMap, uint32_t dataStart,
                                              uint32_t& byte, uint8_t& msbStart) const {
  uint32_t index = GetParentDataStartPosInImage(layout, dataStart, fieldsMap) +
                   layout->GetByteOffset() * 8 - layout->GetMsbStart() + 7;
  byte = index >> 3;
  msbStart = static_cast<uint8_t>(7 - (index & 7));
  return 1;
}

int CKovPkPatchMap::GetPatchAddrForFloatingField(const CKovFieldLayout* layout,
                                                 const KovFieldsMap* fieldsMap,
                                                 uint32_t dataStart, uint32_t& byte,
                                                 uint8_t& msbStart) const {
  uint32_t index = 0;
  if (!FloatingFieldIndex(layout, fieldsMap, dataStart, index)) return 0;
  byte = index >> 3;
  msbStart = static_cast<uint8_t>(7 - (index & 7));
  return 1;
}

bool CKovPkPatchMap::FloatingFieldIndex(const CKovFieldLayout* layout,
                                        const KovFieldsMap* fieldsMap, uint32_t dataStart,
                                        uint32_t& index) const {
  // Walks back through predecessors not placed yet, adding up their fixed lengths and gaps.
  const CKovFieldLayout* current = layout;
  uint32_t behind = 0;
  for (unsigned step = 0; step < kMaxPrevFieldChain; ++step) {
    behind += current->GetNumBitsOffsetFromPrevFieldEnd();
    const CKovDataLayout* parent = current->GetParentDataLayout();
    uint32_t prevID = parent != nullptr ? parent->GetPrevFieldID(current->GetFieldID())
                                        : current->GetFieldID();
    if (prevID == current->GetFieldID()) {
      index = GetParentDataStartPosInImage(current, dataStart, fieldsMap) + behind;
      return true;
    }
    if (const CKovField* prev = placedField(fieldsMap, prevID)) {
      index = linearIndexOf(prev) + prev->GetImageSize() + behind;
      return true;
    }
    const CKovFieldLayout* prevLayout = parent->GetFieldLayout(prevID);
    if (prevLayout == nullptr) {
      throw new CMevGenException(
          kovFormat("Field layout for field %d not found. Unable to determine byteOffset/startBit "
                    "for floating field %d",
                    prevID, current->GetFieldID()),
          0);
    }
    if (!prevLayout->IsFixedSz()) return false;
    behind += prevLayout->GetLengthInBits();
    if (prevLayout->HasFixedAddr()) {
      index = GetParentDataStartPosInImage(prevLayout, dataStart, fieldsMap) +
              prevLayout->GetByteOffset() * 8 - prevLayout->GetMsbStart() + 7 + behind;
      return true;
    }
    current = prevLayout;
  }
  return false;
}
