#include "kov/layout/klsblklayout.h"

#include <memory>
#include <utility>

#include "kov/layout/datalayout.h"
#include "kov/layout/namefieldlayout.h"
#include "kov/layout/numfieldlayout.h"
#include "kov/platform/format.h"
#include "kov/platform/mevgenexception.h"

namespace {

constexpr uint8_t kSglCfgBytes = 8;
constexpr uint8_t kSglCfgFields = 4;
constexpr uint8_t kDistCfgBytes = 6;
constexpr uint8_t kDistCfgFields = 2;

// Adds a 16-bit number fixed at byteOffset, MSB 7, to dataLayout.
void addNum16(CKovDataLayout* dataLayout, uint32_t fieldID, uint32_t byteOffset,
              uint32_t prevFieldID, int32_t position) {
  auto field =
      std::make_unique<CKovNumFieldLayout>(fieldID, byteOffset, 16, 7, true, 0, dataLayout);
  dataLayout->AddField(fieldID, prevFieldID, field.get(), position);
  field.release();
}

}  // namespace

CKovKLSBlkLayout::CKovKLSBlkLayout(uint16_t blkID, KovBlkLayoutAttrib attrib, std::string blkName,
                                   CKovDataLayout* dataLayout, uint16_t maxDataSzInBytes,
                                   int distKLS, uint16_t maxLLEQ, uint16_t hdrBlkID,
                                   KovCalcMaxLEQFunc calcMaxLEQFunc)
    : CKovBlkLayout(blkID, attrib, std::move(blkName), 1, dataLayout, maxDataSzInBytes, 0),
      calcMaxLEQFunc(calcMaxLEQFunc),
      distKLS(distKLS),
      hdrBlkID(hdrBlkID),
      maxLLEQ(maxLLEQ) {
  if (distKLS != 0) {
    numCfgBytes = kDistCfgBytes;
    numCfgFields = kDistCfgFields;
    // Listlets are told apart by their KOV id, as instances of a multi-instance block are.
    kovID = 0;
  } else {
    numCfgBytes = kSglCfgBytes;
    numCfgFields = kSglCfgFields;
  }
  this->maxDataSzInBytes = static_cast<uint16_t>(this->maxDataSzInBytes + numCfgBytes);
  AddCfgFieldsToLayout();
}

CKovKLSBlkLayout::~CKovKLSBlkLayout() = default;

uint16_t CKovKLSBlkLayout::GetMaxLLEQ(uint32_t listID, uint16_t instance) const {
  if (maxLLEQ != 0) return maxLLEQ;
  return GetCalcMaxEntryQty(listID, instance, 1);
}

uint16_t CKovKLSBlkLayout::GetCalcMaxEntryQty(uint32_t listID, uint16_t instance,
                                              int wantMaxLLEQ) const {
  const char* label = wantMaxLLEQ != 0 ? "LLEQ" : "LEQ";
  try {
    if (calcMaxLEQFunc == nullptr) {
      throw new CMevGenException(kovFormat("No user-defined max %s calculation function found\n"
                                           "for KLS block %s",
                                           label, blkName.c_str()),
                                 0);
    }
    return calcMaxLEQFunc(listID, this, instance, wantMaxLLEQ);
  } catch (CMevGenException* e) {
    // The innermost text wins; only a silent failure gets words from here.
    if (e->GetMessage().empty()) {
      e->SetMessage(
          kovFormat("Unknown error occurred while attempting to calculate\n"
                    "max %s for block %s [%d].",
                    label, blkName.c_str(), instance));
    }
    throw;
  }
}

void CKovKLSBlkLayout::AddCfgFieldsToLayout() {
  if (dataLayout == nullptr) return;
  if (distKLS != 0) {
    // The link names the next listlet, an instance of this same block.
    auto link =
        std::make_unique<CKovNameFieldLayout>(m_linkFldID, 0, 32, 7, true, 0, dataLayout, blkID);
    dataLayout->AddField(m_linkFldID, 0, link.get(), 0);
    link.release();
    addNum16(dataLayout, m_leqFldID, 4, m_linkFldID, 1);
  } else {
    addNum16(dataLayout, m_listTypeFldID, 0, 0, 0);
    addNum16(dataLayout, m_ledSzFldID, 2, m_listTypeFldID, 1);
    addNum16(dataLayout, m_maxLeqFldID, 4, m_ledSzFldID, 2);
    addNum16(dataLayout, m_leqFldID, 6, m_maxLeqFldID, 3);
  }
}
