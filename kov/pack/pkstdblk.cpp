#include "kov/pack/pkstdblk.h"

#include "kov/fields/listfield.h"
#include "kov/fields/numfield.h"
#include "kov/fields/unionfield.h"
#include "kov/image/image.h"
#include "kov/layout/blklayout.h"
#include "kov/layout/cplayout.h"
#include "kov/layout/datalayout.h"
#include "kov/layout/klsblklayout.h"
#include "kov/layout/listfieldlayout.h"
#include "kov/pack/idvector.h"
#include "kov/pack/pk.h"
#include "kov/pack/pkpatchmap.h"
#include "kov/platform/format.h"
#include "kov/platform/mevgenexception.h"
#include "kov/platform/msgbox.h"

namespace {

constexpr uint32_t kMaxDataSzInBytes = 0xFFFF - 2;  // the size field also counts the checksum
constexpr uint32_t kPartitionPrefixSz = 2;
// The link id that leaves a header block's link field for the patch stage.
constexpr uint16_t kLinkLeftAlone = 0xFFFF;
// A listlet's configuration: the link to the next listlet (4 bytes) and its quantity (2 bytes).
constexpr uint32_t kListletLinkSz = 4;
constexpr uint32_t kListletLeqSz = 2;

const CKovListField* asList(const CKovField* field) {
  return field != nullptr && field->IsList() ? static_cast<const CKovListField*>(field) : nullptr;
}

// The first value of an entry, in the order of its map.
const CKovField* firstValueOf(const CKovPkEntry* entry) {
  if (entry == nullptr) return nullptr;
  const KovPkFieldMap& fields = entry->GetPkFieldMap();
  return fields.begin() != fields.end() && fields.begin()->second != nullptr
             ? fields.begin()->second->GetData()
             : nullptr;
}

const CKovListFieldLayout* listLayoutIn(const CKovBlkLayout* blk, uint32_t listID) {
  const CKovFieldLayout* layout = blk != nullptr ? blk->GetFieldLayout(listID) : nullptr;
  return layout != nullptr && layout->IsKindOf(KOV_RUNTIME_CLASS(CKovListFieldLayout))
             ? static_cast<const CKovListFieldLayout*>(layout)
             : nullptr;
}

[[noreturn]] void throwBlkError(const std::string& text) { throw new CMevGenException(text, 0); }

}  // namespace

CKovPkStdBlk::CKovPkStdBlk(const CKovBlkLayout* blkLayout, CKovPkEntryList* pkEntryList,
                           const std::vector<uint16_t>& blkDataSizes)
    : CKovStdBlk(blkLayout), pkEntryList(pkEntryList), blkDataSizes(blkDataSizes) {
  fieldMaps.resize(static_cast<size_t>(this->pkEntryList->GetCount()));
}

CKovPkStdBlk::~CKovPkStdBlk() = default;

uint16_t CKovPkStdBlk::GetBlkInstanceQty() const {
  return static_cast<uint16_t>(pkEntryList->GetCount());
}

int CKovPkStdBlk::GetNumberOfFields(int) const {
  kovMessageBox("CKovPkStdBlk::GetNumberOfFields() - FIX ME!!");
  return 0;
}

uint32_t CKovPkStdBlk::GetBlkDataSize(int instance) const {
  if (instance < 1 || static_cast<size_t>(instance) > blkDataSizes.size()) return 0;
  return blkDataSizes[static_cast<size_t>(instance) - 1];
}

int CKovPkStdBlk::WriteToImage(const CKovPk* pk, CKovImage* image, uint32_t& nextFreeByte,
                               const CKovCpLayout* cpLayout, KovIDVectorMap& vectorMap) const {
  try {
    if (blkLayout->IsDistKLS()) {
      return WriteDistBlkToImage(pk, image, nextFreeByte, cpLayout, vectorMap);
    }
    return WriteNonDistBlkToImage(pk, image, nextFreeByte, cpLayout, vectorMap);
  } catch (CMevGenException* e) {
    if (e->GetMessage().empty()) {
      e->SetMessage(kovFormat("Unknown error occured while trying to write block\n%s to image.",
                              GetBlkName().c_str()));
    }
    throw;
  }
}

int CKovPkStdBlk::WriteNonDistBlkToImage(const CKovPk* pk, CKovImage* image,
                                         uint32_t& nextFreeByte, const CKovCpLayout* cpLayout,
                                         KovIDVectorMap& vectorMap) const {
  CKovIDVector* vector = GetVectorObjForBlk(blkLayout, vectorMap);
  int numEntries = pkEntryList->GetCount();
  if (blkDataSizes.size() < static_cast<size_t>(numEntries)) {
    throwBlkError(kovFormat("Block %s has %d instances but %d data sizes.", GetBlkName().c_str(),
                            numEntries, static_cast<int>(blkDataSizes.size())));
  }
  uint32_t overhead = GetHdrSz() + GetChecksumSz() + (pk->CollectPartitionInfo() ? kPartitionPrefixSz : 0);
  int instance = 1;
  for (const CKovPkEntry* entry : *pkEntryList) {
    uint32_t dataSize = GetBlkDataSize(instance);
    if (dataSize > kMaxDataSzInBytes) {
      throwBlkError(kovFormat("Block %s [%d] has %u bytes of data; an instance holds at most 65533.",
                              GetBlkName().c_str(), instance, dataSize));
    }
    if (blkLayout->PadBlk() && dataSize != blkLayout->GetMaxDataSzInBytes()) {
      // The header would announce the padded size while the instance took another: every
      // reader would lose its way at the next instance.
      throwBlkError(kovFormat("Block %s [%d] is padded to %d bytes but was given a data size of %u.",
                              GetBlkName().c_str(), instance, blkLayout->GetMaxDataSzInBytes(),
                              dataSize));
    }
    uint32_t start = nextFreeByte;
    uint32_t length = dataSize + overhead;
    if (start > image->GetSize() || length > image->GetSize() - start) {
      throwBlkError(kovFormat(
          "Block %s [%d] is too large to fit in the image.\nImage size: %d, blk Start: %d, blk "
          "Size %d.\n",
          GetBlkName().c_str(), instance, image->GetSize(), start, length));
    }
    WriteBlkHdr(pk, image, blkLayout, nextFreeByte, static_cast<uint16_t>(instance));
    uint32_t dataStart = nextFreeByte;
    if (blkLayout->IsKLSBlk()) {
      PackKLSCfgInfo(image, cpLayout, GetKLSListField(entry), blkLayout, dataStart,
                     static_cast<uint16_t>(instance), kLinkLeftAlone);
    } else if (blkLayout->IsHdrBlk()) {
      PackDistKLSCfgInfo(pk, cpLayout, image, dataStart, static_cast<uint16_t>(instance));
    }
    WriteUserDataToImage(pk, image, nextFreeByte, entry, blkLayout->GetDataLayout(), cpLayout,
                         GetBlkID(), instance);
    WriteChecksumToImage(image, dataStart, static_cast<uint16_t>(nextFreeByte - dataStart),
                         nextFreeByte);
    vector->SetInstanceInfo(instance, start, nextFreeByte - start);
    ++instance;
  }
  return 1;
}

void CKovPkStdBlk::WriteBlkHdr(const CKovPk* pk, CKovImage* image, const CKovBlkLayout* layout,
                               uint32_t& nextFreeByte, uint16_t instance) const {
  if (pk->CollectPartitionInfo()) {
    image->SetAt(nextFreeByte, static_cast<uint16_t>(layout->GetPartitionNum()), uint8_t{2});
    nextFreeByte += kPartitionPrefixSz;
  }
  uint16_t kovID = layout->IsMultiInstanceBlk() ? static_cast<uint16_t>(instance - 1)
                                                : layout->GetKovID();
  image->SetAt(nextFreeByte, kovGetKovName(layout->GetKovType(), kovID), uint8_t{4});
  nextFreeByte += 4;
  uint32_t dataSize;
  if (layout->PadBlk()) {
    dataSize = layout->GetMaxDataSzInBytes();
  } else if (layout != blkLayout) {
    dataSize = (kovCalculateDataLayoutSzInBits(layout->GetDataLayout(), nullptr, 1) + 7) / 8;
  } else {
    dataSize = GetBlkDataSize(instance);
  }
  image->SetAt(nextFreeByte, static_cast<uint16_t>(dataSize + 2), uint8_t{2});
  nextFreeByte += 2;
}

int CKovPkStdBlk::WriteUserDataToImage(const CKovPk* pk, CKovImage* image, uint32_t& nextFreeByte,
                                       const CKovPkEntry* entry, const CKovDataLayout* dataLayout,
                                       const CKovCpLayout* cpLayout, uint16_t blkID,
                                       int instance) const {
  auto fieldsMap = std::make_unique<KovFieldsMap>();
  // The instances of a block mostly place the same fields: room for as many as the last one's.
  if (instance > 1 && static_cast<size_t>(instance) - 2 < fieldMaps.size()) {
    const std::unique_ptr<KovFieldsMap>& before = fieldMaps[static_cast<size_t>(instance) - 2];
    if (before) fieldsMap->Reserve(before->size());
  }
  entry->WriteToImage(pk, image, nextFreeByte, 7, fieldsMap.get(), dataLayout, cpLayout, blkID,
                      instance);
  fieldMaps[static_cast<size_t>(instance) - 1] = std::move(fieldsMap);
  uint8_t msb = 7;
  kovUpdateAsPerByteSpread(nextFreeByte, msb, 8 * GetBlkDataSize(instance));
  return 1;
}

int CKovPkStdBlk::WriteChecksumToImage(CKovImage* image, uint32_t start, uint32_t length,
                                       uint32_t& nextFreeByte) const {
  uint16_t checksum = 0;
  if (!image->GetChecksum(start, length, checksum)) {
    throwBlkError(kovFormat("Unable to calculate checksum for block %s.", GetBlkName().c_str()));
  }
  image->SetAt(nextFreeByte, static_cast<uint8_t>(checksum >> 8));
  image->SetAt(nextFreeByte + 1, static_cast<uint8_t>(checksum & 0xFF));
  nextFreeByte += 2;
  return 1;
}

CKovIDVector* CKovPkStdBlk::GetVectorObjForBlk(const CKovBlkLayout* layout,
                                               KovIDVectorMap& vectorMap) const {
  CKovIDVector* vector = nullptr;
  if (vectorMap.Lookup(layout->GetBlkID(), vector)) return vector;
  auto made = std::make_unique<CKovIDVector>(layout->GetBlkID(), pkEntryList->GetCount());
  vectorMap.SetAt(layout->GetBlkID(), made.get());
  return made.release();
}

const CKovField* CKovPkStdBlk::GetKLSListField(const CKovPkEntry* entry) const {
  const CKovField* value = firstValueOf(entry);
  if (value != nullptr && value->IsUnion()) {
    value = firstValueOf(static_cast<const CKovUnionField*>(value)->GetPkEntry());
  }
  if (asList(value) == nullptr) {
    // The instance number names the failing entry: its place in this block's entries.
    int instance = 1;
    for (const CKovPkEntry* e : *pkEntryList) {
      if (e == entry) break;
      ++instance;
    }
    throwBlkError(kovFormat("Block %s [%d]: a KOV List Structure entry must hold its list as its "
                            "one field.",
                            GetBlkName().c_str(), instance));
  }
  return value;
}

namespace {

// Writes value in the width of configuration field id of blk, at start + its byte offset.
void writeCfgField(CKovImage* image, const CKovBlkLayout* blk, uint32_t start, uint32_t id,
                   uint32_t value) {
  const CKovFieldLayout* layout = blk->GetFieldLayout(id);
  if (layout == nullptr) {
    throwBlkError(kovFormat("Block %s has no configuration field %u.", blk->GetBlkName().c_str(),
                            id));
  }
  uint8_t width = static_cast<uint8_t>(layout->GetLengthInBits() >> 3);
  image->SetAt(start + layout->GetByteOffset(), value, width);
}

}  // namespace

void CKovPkStdBlk::PackKLSCfgInfo(CKovImage* image, const CKovCpLayout* cpLayout,
                                  const CKovField* listField, const CKovBlkLayout* blk,
                                  uint32_t start, uint16_t instance, uint16_t linkID) const {
  WriteKLSType(image, blk, start);
  WriteKLSLedSz(image, cpLayout, blk, start, listField);
  WriteKLSMaxLEQ(image, blk, start, listField);
  if (blk->IsHdrBlk()) {
    const CKovBlkLayout* distBlk = cpLayout->GetBlkLayout(blk->GetDistKLSBlkID());
    if (distBlk == nullptr || !distBlk->IsDistKLS()) {
      throwBlkError(kovFormat("Header block %s belongs to no distributed KOV List Structure.",
                              blk->GetBlkName().c_str()));
    }
    WriteKLSMaxLLEQ(image, distBlk, blk, start, listField->GetFieldID(), instance);
    if (linkID != kLinkLeftAlone) WriteKLSLinkFld(image, distBlk, blk, start, linkID);
  } else {
    WriteKLSLeq(image, blk, start, listField);
  }
}

void CKovPkStdBlk::PackDistKLSCfgInfo(const CKovPk* pk, const CKovCpLayout* cpLayout,
                                      CKovImage* image, uint32_t start, uint16_t instance) const {
  const CKovBlkLayout* distBlk = cpLayout->GetBlkLayout(blkLayout->GetDistKLSBlkID());
  const CKovPkStdBlk* distData =
      distBlk != nullptr ? pk->GetPkBlk(distBlk->GetBlkID()) : nullptr;
  if (distData == nullptr || instance > distData->GetPackEntryList()->GetCount()) {
    throwBlkError(kovFormat("Attempting to pack header block %s, instance %d\nbut no "
                            "corresponding Distributed KLS block found.",
                            GetBlkName().c_str(), instance));
  }
  const CKovPkEntry* entry = distData->GetPackEntryList()->GetAt(instance - 1);
  // The first listlet of the first instance bears number 0: its link is known already.
  PackKLSCfgInfo(image, cpLayout, distData->GetKLSListField(entry), blkLayout, start,
                 instance, instance == 1 ? 0 : kLinkLeftAlone);
}

void CKovPkStdBlk::WriteKLSType(CKovImage* image, const CKovBlkLayout* blk, uint32_t start) const {
  uint32_t type;
  if (blk->IsHdrBlk()) {
    type = 1;
  } else if (blk->IsKLSBlk()) {
    type = static_cast<const CKovKLSBlkLayout*>(blk)->GetListTypeValue();
  } else {
    throwBlkError(kovFormat("Attempting to write KLS configuration info but block %s is\nnot an "
                            "KLS block nor a header block.",
                            blk->GetBlkName().c_str()));
  }
  writeCfgField(image, blk, start, CKovKLSBlkLayout::m_listTypeFldID, type);
}

void CKovPkStdBlk::WriteKLSLedSz(CKovImage* image, const CKovCpLayout* cpLayout,
                                 const CKovBlkLayout* blk, uint32_t start,
                                 const CKovField* listField) const {
  const CKovBlkLayout* listBlk =
      blk->IsHdrBlk() ? cpLayout->GetBlkLayout(blk->GetDistKLSBlkID()) : blk;
  const CKovListFieldLayout* listLayout = listLayoutIn(listBlk, listField->GetFieldID());
  if (listLayout == nullptr) {
    throwBlkError(kovFormat("Block %s: no list layout for list field %u.",
                            blk->GetBlkName().c_str(), listField->GetFieldID()));
  }
  writeCfgField(image, blk, start, CKovKLSBlkLayout::m_ledSzFldID,
                static_cast<uint16_t>(listLayout->GetEntrySzInBits() >> 3));
}

void CKovPkStdBlk::WriteKLSMaxLEQ(CKovImage* image, const CKovBlkLayout* blk, uint32_t start,
                                  const CKovField* listField) const {
  writeCfgField(image, blk, start, CKovKLSBlkLayout::m_maxLeqFldID,
                asList(listField)->GetMaxLeq());
}

void CKovPkStdBlk::WriteKLSMaxLLEQ(CKovImage* image, const CKovBlkLayout* distBlk,
                                   const CKovBlkLayout* hdrBlk, uint32_t start,
                                   uint32_t listFieldID, uint16_t instance) const {
  writeCfgField(image, hdrBlk, start, CKovKLSBlkLayout::m_maxLLeqFldID,
                static_cast<const CKovKLSBlkLayout*>(distBlk)->GetMaxLLEQ(listFieldID, instance));
}

void CKovPkStdBlk::WriteKLSLeq(CKovImage* image, const CKovBlkLayout* blk, uint32_t start,
                               const CKovField* listField) const {
  writeCfgField(image, blk, start, CKovKLSBlkLayout::m_leqFldID,
                static_cast<uint16_t>(asList(listField)->GetListEntryQty()));
}

void CKovPkStdBlk::WriteKLSLinkFld(CKovImage* image, const CKovBlkLayout* distBlk,
                                   const CKovBlkLayout* hdrBlk, uint32_t start,
                                   uint16_t linkID) const {
  writeCfgField(image, hdrBlk, start, CKovKLSBlkLayout::m_linkFldID,
                kovGetKovName(distBlk->GetKovType(), linkID));
}

int CKovPkStdBlk::WriteDistBlkToImage(const CKovPk* pk, CKovImage* image, uint32_t& nextFreeByte,
                                      const CKovCpLayout* cpLayout,
                                      KovIDVectorMap& vectorMap) const {
  uint16_t hdrID =
      static_cast<uint16_t>(static_cast<const CKovKLSBlkLayout*>(blkLayout)->GetHdrBlkID());
  const CKovPkStdBlk* hdrData = pk->GetPkBlk(hdrID);
  if (hdrData != nullptr && hdrData->GetBlkInstanceQty() != GetBlkInstanceQty()) {
    throwBlkError(kovFormat("Header block %s does not have the same number of\nblock instances "
                            "as does Distributed KOV List Structure %s.",
                            hdrData->GetBlkName().c_str(), GetBlkName().c_str()));
  }
  uint16_t listletNum = 0;
  uint16_t instance = 1;
  for (const CKovPkEntry* entry : *pkEntryList) {
    const CKovField* listField = GetKLSListField(entry);
    if (hdrData == nullptr) {
      CreateHdrBlkForDistKLS(pk, image, cpLayout, listField, instance, listletNum, nextFreeByte,
                             vectorMap);
    } else {
      CreateLinkFieldPatchForHdrBlk(pk, cpLayout, instance, listletNum);
    }
    WriteDistKLSBlkInstance(pk, image, nextFreeByte, cpLayout, vectorMap, listField, instance,
                            listletNum);
    ++instance;
  }
  return 1;
}

void CKovPkStdBlk::WriteDistKLSBlkInstance(const CKovPk* pk, CKovImage* image,
                                           uint32_t& nextFreeByte, const CKovCpLayout* cpLayout,
                                           KovIDVectorMap& vectorMap, const CKovField* listField,
                                           uint16_t instance, uint16_t& listletNum) const {
  const CKovListField* list = asList(listField);
  const CKovPkEntryList* entries = list->GetPkEntryList();
  int given = entries != nullptr ? entries->GetCount() : 0;
  // The header records the list's maximum; more entries would also wrap the 16-bit count.
  kovCheckKLSListQty(list->GetFieldName().c_str(), static_cast<uint32_t>(given),
                     list->GetMaxLeq());
  uint16_t qty = static_cast<uint16_t>(given);
  uint32_t listID = list->GetFieldID();
  uint16_t maxLLEQ = static_cast<const CKovKLSBlkLayout*>(blkLayout)->GetMaxLLEQ(listID, instance);
  if (qty > 0 && maxLLEQ == 0) {
    throwBlkError(kovFormat("Block %s [%d]: a listlet may hold no entries, so the %u entries of "
                            "its list can't be written.",
                            GetBlkName().c_str(), instance, qty));
  }
  uint16_t count = 1;
  uint16_t rest = 0;
  if (qty > 0) {
    count = static_cast<uint16_t>(qty / maxLLEQ);
    rest = static_cast<uint16_t>(qty % maxLLEQ);
    if (rest > 0) ++count;
  }
  const CKovListFieldLayout* listLayout = listLayoutIn(blkLayout, listID);
  if (listLayout == nullptr) {
    throwBlkError(kovFormat("Block %s: no list layout for list field %u.", GetBlkName().c_str(),
                            listID));
  }
  uint32_t led = listLayout->GetEntrySzInBits() >> 3;
  uint32_t base = GetHdrSz() + GetChecksumSz() + blkLayout->GetNumCfgBytes();
  uint32_t prefix = pk->CollectPartitionInfo() ? kPartitionPrefixSz : 0;
  int position = 0;
  for (uint16_t ordinal = 1; ordinal <= count; ++ordinal) {
    uint32_t start = nextFreeByte;
    uint32_t entriesHere = qty == 0 ? 0 : (ordinal == count && rest > 0 ? rest : maxLLEQ);
    uint32_t length = base + led * entriesHere + prefix;
    if (start > image->GetSize() || length > image->GetSize() - start) {
      throwBlkError(kovFormat(
          "Block %s [%d] is too large to fit in the image.\nImage size: %d, blk Start: %d, blk "
          "Size %d.\n",
          GetBlkName().c_str(), instance, image->GetSize(), start, length));
    }
    uint32_t dataStart = start + GetHdrSz() + prefix;
    nextFreeByte = dataStart;
    if (qty == 0) {
      nextFreeByte += blkLayout->GetNumCfgBytes();
    } else {
      WriteListletCfgData(image, nextFreeByte, listletNum, ordinal, count, maxLLEQ, rest);
      WriteListletData(pk, image, cpLayout, nextFreeByte, entries, position, listID, maxLLEQ,
                       ordinal);
    }
    WriteListletHdr(pk, image, start, listletNum,
                    static_cast<uint16_t>(2 + nextFreeByte - dataStart));
    WriteChecksumToImage(image, dataStart, static_cast<uint16_t>(nextFreeByte - dataStart),
                         nextFreeByte);
    GetVectorObjForBlk(blkLayout, vectorMap)
        ->SetInstanceInfo(listletNum + 1, start, nextFreeByte - start);
    ++listletNum;
  }
}

uint32_t CKovPkStdBlk::WriteListletCfgData(CKovImage* image, uint32_t& nextFreeByte,
                                           uint16_t listletNum, uint16_t ordinal, uint16_t count,
                                           uint16_t maxLLEQ, uint16_t rest) const {
  uint32_t link = 0;
  uint16_t leq = maxLLEQ;
  if (ordinal == count) {
    if (rest > 0) leq = rest;
  } else {
    link = kovGetKovName(blkLayout->GetKovType(), static_cast<uint16_t>(listletNum + 1));
  }
  image->SetAt(nextFreeByte, link, uint8_t{4});
  nextFreeByte += kListletLinkSz;
  image->SetAt(nextFreeByte, leq, uint8_t{2});
  nextFreeByte += kListletLeqSz;
  return link;
}

void CKovPkStdBlk::WriteListletData(const CKovPk* pk, CKovImage* image,
                                    const CKovCpLayout* cpLayout, uint32_t& nextFreeByte,
                                    const CKovPkEntryList* entries, int& position,
                                    uint32_t listFieldID, uint16_t maxLLEQ,
                                    uint16_t ordinal) const {
  const CKovListFieldLayout* listLayout = listLayoutIn(blkLayout, listFieldID);
  uint32_t led = listLayout->GetEntrySzInBits() >> 3;
  KovFieldsMap fieldsMap;
  try {
    for (uint16_t written = 0; written < maxLLEQ && position < entries->GetCount(); ++written) {
      entries->GetAt(position++)->WriteToImage(pk, image, nextFreeByte, 7, &fieldsMap,
                                               listLayout->GetDataLayout(), cpLayout, GetBlkID(),
                                               ordinal);
      fieldsMap.RemoveAll();
      nextFreeByte += led;
    }
  } catch (CMevGenException* e) {
    if (e->GetMessage().empty()) {
      e->SetMessage(kovFormat("Error writing Distributed KLS block %s.", GetBlkName().c_str()));
    }
    throw;
  }
}

void CKovPkStdBlk::WriteListletHdr(const CKovPk* pk, CKovImage* image, uint32_t start,
                                   uint16_t kovID, uint32_t size) const {
  if (pk->CollectPartitionInfo()) {
    image->SetAt(start, blkLayout->GetPartitionNum(), uint8_t{2});
    start += kPartitionPrefixSz;
  }
  image->SetAt(start, kovGetKovName(blkLayout->GetKovType(), kovID), uint8_t{4});
  image->SetAt(start + 4, static_cast<uint16_t>(size), uint8_t{2});
}

void CKovPkStdBlk::CreateHdrBlkForDistKLS(const CKovPk* pk, CKovImage* image,
                                          const CKovCpLayout* cpLayout,
                                          const CKovField* listField, uint16_t instance,
                                          uint16_t listletNum, uint32_t& nextFreeByte,
                                          KovIDVectorMap& vectorMap) const {
  const CKovBlkLayout* hdrBlk = cpLayout->GetBlkLayout(
      static_cast<uint16_t>(static_cast<const CKovKLSBlkLayout*>(blkLayout)->GetHdrBlkID()));
  if (hdrBlk == nullptr) {
    throwBlkError(kovFormat("Distributed KOV List Structure %s has no header block in the layout.",
                            GetBlkName().c_str()));
  }
  uint32_t start = nextFreeByte;
  uint32_t nominal =
      (kovCalculateDataLayoutSzInBits(hdrBlk->GetDataLayout(), nullptr, 1) + 7) / 8;
  uint32_t dataSize = hdrBlk->PadBlk() ? hdrBlk->GetMaxDataSzInBytes() : nominal;
  uint32_t length = dataSize + GetHdrSz() + GetChecksumSz() +
                    (pk->CollectPartitionInfo() ? kPartitionPrefixSz : 0);
  if (start > image->GetSize() || length > image->GetSize() - start) {
    throwBlkError(kovFormat(
        "Block %s [%d] is too large to fit in the image.\nImage size: %d, blk Start: %d, blk "
        "Size %d.\n",
        hdrBlk->GetBlkName().c_str(), instance, image->GetSize(), start, length));
  }
  WriteBlkHdr(pk, image, hdrBlk, nextFreeByte, instance);
  uint32_t dataStart = nextFreeByte;
  PackKLSCfgInfo(image, cpLayout, listField, hdrBlk, dataStart, instance, listletNum);
  nextFreeByte = dataStart + dataSize;
  try {
    WriteChecksumToImage(image, dataStart, static_cast<uint16_t>(nextFreeByte - dataStart),
                         nextFreeByte);
  } catch (CMevGenException* e) {
    delete e;
    throwBlkError(kovFormat("Error writing checksum for block %d.", hdrBlk->GetBlkID()));
  }
  GetVectorObjForBlk(hdrBlk, vectorMap)->SetInstanceInfo(instance, start, nextFreeByte - start);
}

void CKovPkStdBlk::CreateLinkFieldPatchForHdrBlk(const CKovPk* pk, const CKovCpLayout* cpLayout,
                                                 uint16_t instance, uint16_t listletNum) const {
  uint16_t hdrID =
      static_cast<uint16_t>(static_cast<const CKovKLSBlkLayout*>(blkLayout)->GetHdrBlkID());
  const CKovFieldLayout* linkLayout = cpLayout->GetFieldLayout(hdrID, CKovKLSBlkLayout::m_linkFldID);
  if (linkLayout == nullptr) {
    throwBlkError(kovFormat("Header block %d has no listlet link field.", hdrID));
  }
  auto link = std::make_unique<CKovNumField>(kovGetKovName(blkLayout->GetKovType(), listletNum),
                                             CKovKLSBlkLayout::m_linkFldID,
                                             linkLayout->GetLengthInBits());
  pk->GetPatchMap()->AddField(pk, link.get(), linkLayout, hdrID, instance, true);
  link.release();
}
