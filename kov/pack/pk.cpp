#include "kov/pack/pk.h"

#include <memory>

#include "kov/image/image.h"
#include "kov/layout/blklayout.h"
#include "kov/layout/cplayout.h"
#include "kov/pack/blkexport.h"
#include "kov/pack/idvector.h"
#include "kov/pack/pkpatchmap.h"
#include "kov/platform/format.h"
#include "kov/platform/mainwnd.h"
#include "kov/platform/mevgenexception.h"

namespace {

constexpr uint32_t kStartMsgTag = 0x6FAD;

// Deletes the vectors of a vector map when FillImage is left, by either road.
class VectorMapOwner {
 public:
  explicit VectorMapOwner(KovIDVectorMap& map) : m_map(map) {}
  ~VectorMapOwner() { Clear(); }
  void Clear() {
    for (auto& kv : m_map) delete kv.second;
    m_map.RemoveAll();
  }

 private:
  KovIDVectorMap& m_map;
};

}  // namespace

CKovPk::CKovPk(const KovPkBlkMap* pkBlks, int collectPartitionInfo)
    : pkBlks(pkBlks), patchMap(new CKovPkPatchMap()), collectPartitionInfo(collectPartitionInfo) {}

CKovPk::~CKovPk() {
  delete patchMap;
  for (auto& kv : partitionPkInfo) delete kv.second;
}

const CKovPkStdBlk* CKovPk::GetPkBlk(uint16_t blkID) const {
  CKovPkStdBlk* blk = nullptr;
  return pkBlks != nullptr && pkBlks->Lookup(blkID, blk) ? blk : nullptr;
}

void CKovPk::SendToMainWnd(uint32_t message, uint32_t wParam, uint32_t lParam) const {
  if (message != 0) kovSendMessageToMainWnd(message, wParam, lParam);
}

int CKovPk::FillImage(const CKovCpLayout* cpLayout, CKovImage* image, uint32_t& usedSize,
                      const char* fileName, uint32_t startMsg, uint32_t blksPackedMsg,
                      uint32_t doneMsg) const {
  usedSize = 0;
  this->startMsg = startMsg;
  this->blksPackedMsg = blksPackedMsg;
  this->doneMsg = doneMsg;
  KovWaitCursor waitCursor;
  if (cpLayout == nullptr) throw new CMevGenException("No image layout found.", 0);
  if (image == nullptr) throw new CMevGenException("No image object to write to!", 0);
  if (patchMap == nullptr) {
    throw new CMevGenException("This pack has been used: make a new CKovPk for another FillImage.",
                               0);
  }
  SendToMainWnd(startMsg, kStartMsgTag,
                static_cast<uint16_t>(cpLayout->GetNumberOfBlks() + 1));
  kovRestoreWaitCursor();

  // Nothing made in the scope outlives FillImage: the patch map and the vectors are deleted
  // before it closes, by every road out.
  KovArenaScope scope(&arena);
  patchMap->UseCurrentArena();
  KovIDVectorMap vectorMap;
  vectorMap.UseCurrentArena();
  VectorMapOwner vectors(vectorMap);
  try {
    uint32_t nextFreeByte = 0;
    PackBlksInImage(cpLayout, image, nextFreeByte, vectorMap);
    usedSize = nextFreeByte;
    if (blksPackedMsg != 0) {
      SendToMainWnd(blksPackedMsg, 0, 0);
      kovRestoreWaitCursor();
    }
    // A failed patch has shown its own message box; the pack goes on with what was patched.
    patchMap->WriteToImage(this, cpLayout, image, vectorMap, pkBlks);
    // The block files need the final bytes and the vectors: after the patches, before the end.
    if (fileName != nullptr && cpLayout->SaveToSeparateFiles() != 0) {
      CKovBlkExport::SplitBlksInFile(vectorMap, image, cpLayout, fileName);
    }
  } catch (CMevGenException* e) {
    usedSize = 0;
    delete patchMap;
    patchMap = nullptr;
    vectors.Clear();
    if (e->GetMessage().empty()) e->SetMessage("Unknown error occurred while trying to save image.");
    throw;
  } catch (...) {
    // Exhausted memory ends the pack in the same state as any failure.
    usedSize = 0;
    delete patchMap;
    patchMap = nullptr;
    vectors.Clear();
    throw;
  }
  delete patchMap;
  patchMap = nullptr;
  vectors.Clear();
  SendToMainWnd(doneMsg, 0, 0);
  return 1;
}

int CKovPk::PackBlksInImage(const CKovCpLayout* cpLayout, CKovImage* image,
                            uint32_t& nextFreeByte, KovIDVectorMap& vectorMap) const {
  for (uint16_t partitionNum : cpLayout->GetPartitionNumList()) {
    uint32_t partitionStart = nextFreeByte;
    for (const CKovBlkLayout* blkLayout : cpLayout->GetBlkLayoutList(partitionNum)) {
      const CKovPkStdBlk* pkBlk = GetPkBlk(blkLayout->GetBlkID());
      if (pkBlk == nullptr) continue;
      try {
        pkBlk->WriteToImage(this, image, nextFreeByte, cpLayout, vectorMap);
      } catch (CMevGenException* e) {
        if (e->GetMessage().empty()) {
          e->SetMessage(kovFormat("Unknown error occurred while trying to write\nblock %s to image.",
                                  blkLayout->GetBlkName().c_str()));
        }
        throw;
      }
    }
    auto info = std::make_unique<KovPartitionPkInfo>(
        KovPartitionPkInfo{partitionStart, nextFreeByte - partitionStart});
    // The slot first: once it exists, nothing can throw between the delete and the store.
    KovPartitionPkInfo*& slot = partitionPkInfo[partitionNum];
    delete slot;
    slot = info.release();
  }
  return 1;
}
