// CKovPkStdBlk: the data of one block for a pack, and the writer of its instances.
//
// Made by the application over the block layout (not owned), the entry list (owned from then on;
// entry n is instance n) and the data size of each instance in bytes (copied). WriteToImage puts
// every instance at the running byte counter, as the image format in stdblk.h lays down: prefix
// if the pack asks for it, header, data, checksum. The instance takes exactly its data size,
// whatever its fields reach. The fields placed in each instance are kept (GetBlkPkFieldsMapsArr)
// for the pack's patch stage.
//
// Throws, with nothing of the failing instance written:
//   "Block %s [%d] is too large to fit in the image.\nImage size: %d, blk Start: %d, blk Size %d.\n"
//   "Block %s has %d instances but %d data sizes."  (fewer sizes than entries)
//   "Block %s [%d] has %d bytes of data; an instance holds at most 65533."
//   "Block %s [%d] is padded to %d bytes but was given a data size of %d."
//   "Unable to calculate checksum for block %s."
// and whatever the fields throw. Every exception leaving WriteToImage with an empty text gets
// "Unknown error occured while trying to write block\n%s to image.".
#ifndef KOV_PACK_PKSTDBLK_H
#define KOV_PACK_PKSTDBLK_H

#include <cstdint>
#include <memory>
#include <vector>

#include "kov/fields/field.h"
#include "kov/pack/pkentrylist.h"
#include "kov/pack/stdblk.h"
#include "kov/platform/kovmap.h"

class CKovDataLayout;
class CKovIDVector;

// Block id -> where its instances went; filled during one FillImage.
using KovIDVectorMap = CKovMap<uint16_t, CKovIDVector*>;

class CKovPkStdBlk : public CKovStdBlk {
 public:
  // Takes ownership of pkEntryList (not null); copies blkDataSizes.
  CKovPkStdBlk(const CKovBlkLayout* blkLayout, CKovPkEntryList* pkEntryList,
               const std::vector<uint16_t>& blkDataSizes);
  ~CKovPkStdBlk() override;
  CKovPkStdBlk(const CKovPkStdBlk&) = delete;
  CKovPkStdBlk& operator=(const CKovPkStdBlk&) = delete;

  int IsPack() const override { return 1; }
  uint16_t GetBlkInstanceQty() const override;
  // Shows "CKovPkStdBlk::GetNumberOfFields() - FIX ME!!" and answers 0: a pack block does not
  // count fields.
  int GetNumberOfFields(int instance) const override;

  // The data size of instance (from 1) in bytes; 0 for an instance without a size.
  uint32_t GetBlkDataSize(int instance) const;
  const CKovPkEntryList* GetPackEntryList() const { return pkEntryList.get(); }
  // At index instance − 1, the fields placed in that instance; null until it is written.
  std::vector<std::unique_ptr<KovFieldsMap>>& GetBlkPkFieldsMapsArr() const { return fieldMaps; }

  // Writes every instance at nextFreeByte and moves it on past them. Returns 1 or throws.
  int WriteToImage(const CKovPk* pk, CKovImage* image, uint32_t& nextFreeByte,
                   const CKovCpLayout* cpLayout, KovIDVectorMap& vectorMap) const;

 protected:
  int WriteNonDistBlkToImage(const CKovPk* pk, CKovImage* image, uint32_t& nextFreeByte,
                             const CKovCpLayout* cpLayout, KovIDVectorMap& vectorMap) const;
  // Partition prefix (when the pack collects partitions), KOV name and size of one instance of
  // layout, which is this block's own or a header block the pack generates.
  void WriteBlkHdr(const CKovPk* pk, CKovImage* image, const CKovBlkLayout* layout,
                   uint32_t& nextFreeByte, uint16_t instance) const;
  int WriteUserDataToImage(const CKovPk* pk, CKovImage* image, uint32_t& nextFreeByte,
                           const CKovPkEntry* entry, const CKovDataLayout* dataLayout,
                           const CKovCpLayout* cpLayout, uint16_t blkID, int instance) const;
  int WriteChecksumToImage(CKovImage* image, uint32_t start, uint32_t length,
                           uint32_t& nextFreeByte) const;
  // The vector of layout's block in vectorMap, made with one slot per entry when absent.
  CKovIDVector* GetVectorObjForBlk(const CKovBlkLayout* layout, KovIDVectorMap& vectorMap) const;

 private:
  std::unique_ptr<CKovPkEntryList> pkEntryList;
  std::vector<uint16_t> blkDataSizes;
  mutable std::vector<std::unique_ptr<KovFieldsMap>> fieldMaps;
};

#endif  // KOV_PACK_PKSTDBLK_H
