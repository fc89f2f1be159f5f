#include "kov/unpack/uppatchmap.h"

#include <iterator>

#include "kov/layout/blklayout.h"
#include "kov/platform/format.h"
#include "kov/platform/mevgenexception.h"
#include "kov/platform/msgbox.h"
#include "kov/unpack/up.h"
#include "kov/unpack/upblkinstance.h"
#include "kov/unpack/upentry.h"
#include "kov/unpack/upfieldfactory.h"

namespace {
// Tries of one field that may answer UpDeferred; the next one ends the unpack.
constexpr int kMaxAttempts = 10;
}  // namespace

void CKovUpPatchMap::AddField(const CKovUp*, uint32_t startByte, uint8_t startMsb,
                              uint32_t fieldID, const CKovFieldLayout* fieldLayout,
                              uint16_t blkID, uint16_t instance) {
  PendingList& list = (*this)[blkID];
  if (!list.keys.insert(KeyOf(fieldID, instance)).second) return;
  list.infos.push_back(
      std::make_unique<KovUpPatchFieldInfo>(startByte, startMsb, fieldID, fieldLayout, instance));
}

int CKovUpPatchMap::UnpackPatchFields(const CKovUp* up) {
  // The block ids of this sweep, in the map's order: lists may be added to during the sweep.
  std::vector<uint16_t> blkIDs;
  blkIDs.reserve(size());
  for (const auto& kv : GetPending()) blkIDs.push_back(kv.first);

  for (uint16_t blkID : blkIDs) {
    PendingList* list = PLookup(blkID);
    if (list == nullptr) continue;
    const CKovBlkLayout* blkLayout = up->GetBlkLayout(blkID);
    std::string blkName = blkLayout != nullptr ? blkLayout->GetBlkName() : std::string();
    int result = 1;
    uint16_t currentInstance = 0;
    // Bounded by the infos present when each step is taken: a field added behind the last one
    // waits for the next sweep.
    for (auto it = list->infos.begin(); it != list->infos.end();) {
      auto next = std::next(it);
      KovUpPatchFieldInfo* info = it->get();
      if (info->instance != currentInstance) {
        if (currentInstance != 0) up->XmlAddEndTagLine("</Block>");
        currentInstance = info->instance;
        up->XmlStartBlkInstance(blkName, currentInstance);
      }
      UpStatus status = UnpackField(up, info, blkID);
      if (status == UpDone) {
        list->keys.erase(KeyOf(info->fieldID, info->instance));
        list->infos.erase(it);
      } else if (status == UpOutsideBlkData) {
        for (auto drop = it; drop != list->infos.end(); ++drop) {
          list->keys.erase(KeyOf((*drop)->fieldID, (*drop)->instance));
        }
        list->infos.erase(it, list->infos.end());
        break;
      } else if (status == UpDeferred) {
        if (++info->numAttempts > kMaxAttempts) {
          kovMessageBox(kovFormat("Unable to unpack field %d in block %d after %d attempts.",
                                  info->fieldID, blkID, info->numAttempts));
          result = 0;
          break;
        }
      } else {
        result = 0;
        break;
      }
      it = next;
    }
    up->XmlAddEndTagLine("</Block>");
    if (result == 0) return 0;
    if (list->infos.empty()) RemoveKey(blkID);
  }
  return 1;
}

UpStatus CKovUpPatchMap::UnpackField(const CKovUp* up, const KovUpPatchFieldInfo* info,
                                     uint16_t blkID) {
  const CKovBlkLayout* blkLayout = up->GetBlkLayout(blkID);
  CKovUpBlkInstance* instance = GetUpBlkInstance(up, info->instance, blkID);
  if (blkLayout == nullptr || instance == nullptr ||
      !instance->IsKindOf(KOV_RUNTIME_CLASS(CKovUpNonDistBlkInst)) ||
      instance->GetUpEntry() == nullptr) {
    throw new CMevGenException(
        kovFormat("Field %u of block %s waits inside a listlet, where it can't be read after the "
                  "listlets are joined.",
                  info->fieldID, blkLayout != nullptr ? blkLayout->GetBlkName().c_str() : ""),
        0);
  }
  auto* blkInst = static_cast<CKovUpNonDistBlkInst*>(instance);
  uint32_t lastBit = (blkInst->GetBlkDataStartAddr() + blkInst->GetDataSize()) * 8 - 1;
  KovFieldsMap& fieldsMap = blkInst->GetUpFieldMap();
  UpStatus status = UpDone;
  std::unique_ptr<CKovField> field(kovUnpackComplexField(
      up, blkLayout, info->startByte, info->startMsb, this, info->fieldLayout, lastBit, fieldsMap,
      status, info->fieldID, info->instance));
  if (!field && status == UpDone) {
    field.reset(kovUnpackPrimitiveField(up, blkID, info->startByte, info->startMsb,
                                        info->fieldLayout, fieldsMap, lastBit, info->fieldID,
                                        status));
  }
  if (status != UpDone) {
    // A retried list or union that still waits may have read entries below it.
    kovForgetField(field.get(), fieldsMap);
    return status;
  }
  if (!field) return UpDone;
  // A field stored again under its id replaces, and frees, the one before it.
  CKovUpField* const* before = blkInst->GetUpEntry()->GetUpFieldMap().PLookup(info->fieldID);
  if (before != nullptr && *before != nullptr) kovForgetField((*before)->GetData(), fieldsMap);
  const CKovField* placed = field.get();
  auto upField = std::make_unique<CKovUpField>(placed, info->fieldLayout);
  field.release();
  blkInst->GetUpEntry()->AddUpField(info->fieldID, upField.release());
  fieldsMap.SetAt(info->fieldID, placed);
  return UpDone;
}

CKovUpBlkInstance* CKovUpPatchMap::GetUpBlkInstance(const CKovUp* up, uint16_t instance,
                                                    uint16_t blkID) const {
  const KovUpBlkInstArr* const* arr = up->GetUpBlksList().PLookup(blkID);
  if (arr == nullptr || *arr == nullptr || instance >= (*arr)->size()) return nullptr;
  return (**arr)[instance];
}
