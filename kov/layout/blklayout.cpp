#include "kov/layout/blklayout.h"

#include <memory>
#include <utility>

#include "kov/layout/datalayout.h"
#include "kov/layout/klsblklayout.h"
#include "kov/layout/namefieldlayout.h"
#include "kov/layout/numfieldlayout.h"

namespace {

constexpr uint8_t kHdrCfgBytes = 12;
constexpr uint8_t kHdrCfgFields = 5;

}  // namespace

CKovBlkLayout::CKovBlkLayout(uint16_t blkID, KovBlkLayoutAttrib attrib, std::string blkName,
                             int klsBlk, CKovDataLayout* dataLayout, uint16_t maxDataSzInBytes,
                             int hdrBlk)
    : blkID(blkID),
      kovType(attrib.kovType),
      kovID(attrib.kovID),
      partitionNum(0),
      padBlk(klsBlk != 0 ? 0 : attrib.padBlk),
      multiInstanceBlk(attrib.multiInstanceBlk),
      klsBlk(klsBlk),
      hdrBlk(hdrBlk),
      variableSize(0),
      numCfgBytes(0),
      numCfgFields(0),
      blkName(std::move(blkName)),
      accessRights(ReadWrite),
      dataLayout(dataLayout),
      distKLSBlkID(0),
      maxDataSzInBytes(maxDataSzInBytes) {
  if (hdrBlk != 0) {
    numCfgBytes = kHdrCfgBytes;
    numCfgFields = kHdrCfgFields;
    AddHdrBlkCfgFields();
  }
  this->maxDataSzInBytes = static_cast<uint16_t>(this->maxDataSzInBytes + numCfgBytes);
  // Instances of a multi-instance block are told apart by their KOV id: the layout's is 0.
  if (multiInstanceBlk != 0) kovID = 0;
}

CKovBlkLayout::~CKovBlkLayout() { delete dataLayout; }

int CKovBlkLayout::IsDistKLS() const { return 0; }

void CKovBlkLayout::AddField(uint32_t fieldID, uint32_t prevFieldID, CKovFieldLayout* fieldLayout,
                             int32_t position) {
  dataLayout->AddField(fieldID, prevFieldID, fieldLayout, position);
}

CKovFieldLayout* CKovBlkLayout::GetFieldLayout(uint32_t fieldID) const {
  return dataLayout == nullptr ? nullptr : dataLayout->GetFieldLayout(fieldID);
}

void CKovBlkLayout::AddFieldToVerificationMap(uint32_t fieldID, CKovFieldLayout* fieldLayout) {
  fieldVerificationMap.SetAt(fieldID, fieldLayout);
}

void CKovBlkLayout::SetDistKLSBlkID(uint16_t distKLSBlkID) {
  if (hdrBlk != 0) this->distKLSBlkID = distKLSBlkID;
}

void CKovBlkLayout::AddHdrBlkCfgFields() {
  if (dataLayout == nullptr) return;
  struct NumCfgField {
    uint32_t fieldID;
    uint32_t byteOffset;
    uint32_t prevFieldID;  // 0: first field of the layout
  };
  static const NumCfgField kNumFields[] = {
      {CKovKLSBlkLayout::m_listTypeFldID, 0, 0},
      {CKovKLSBlkLayout::m_ledSzFldID, 2, CKovKLSBlkLayout::m_listTypeFldID},
      {CKovKLSBlkLayout::m_maxLeqFldID, 4, CKovKLSBlkLayout::m_ledSzFldID},
      {CKovKLSBlkLayout::m_maxLLeqFldID, 6, CKovKLSBlkLayout::m_maxLeqFldID},
  };
  int32_t position = 0;
  for (const NumCfgField& f : kNumFields) {
    auto field =
        std::make_unique<CKovNumFieldLayout>(f.fieldID, f.byteOffset, 16, 7, true, 0, dataLayout);
    dataLayout->AddField(f.fieldID, f.prevFieldID, field.get(), position++);
    field.release();
  }
  // The pack engine writes the link itself, so the field refers to no block.
  auto link = std::make_unique<CKovNameFieldLayout>(CKovKLSBlkLayout::m_linkFldID, 8, 32, 7, true,
                                                    0, dataLayout, 0);
  dataLayout->AddField(CKovKLSBlkLayout::m_linkFldID, CKovKLSBlkLayout::m_maxLLeqFldID, link.get(),
                       position);
  link.release();
}
