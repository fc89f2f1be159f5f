#include "kov/pack/pkstdblk.h"

#include "kov/image/image.h"
#include "kov/layout/blklayout.h"
#include "kov/layout/cplayout.h"
#include "kov/layout/datalayout.h"
#include "kov/pack/idvector.h"
#include "kov/pack/pk.h"
#include "kov/platform/format.h"
#include "kov/platform/mevgenexception.h"
#include "kov/platform/msgbox.h"

namespace {

constexpr uint32_t kMaxDataSzInBytes = 0xFFFF - 2;  // the size field also counts the checksum
constexpr uint32_t kPartitionPrefixSz = 2;

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
    if (blkLayout->IsDistKLS() || blkLayout->IsKLSBlk() || blkLayout->IsHdrBlk()) {
      throwBlkError(kovFormat("Block %s is a KOV List Structure or header block, which this "
                              "library does not pack yet.",
                              GetBlkName().c_str()));
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
