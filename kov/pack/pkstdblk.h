// CKovPkStdBlk: the data of one block for a pack, and the writer of its instances.
//
// Made by the application over the block layout (not owned), the entry list (owned from then on;
// entry n is instance n) and the data size of each instance in bytes (copied). WriteToImage puts
// every instance at the running byte counter, as the image format in stdblk.h lays down: prefix
// if the pack asks for it, header, data, checksum. The instance takes exactly its data size,
// whatever its fields reach. The fields placed in each instance are kept (GetBlkPkFieldsMapsArr)
// for the pack's patch stage.
//
// A KOV List Structure (KLS) block's entry holds one list (directly, or as the one field of a
// union's option). A non-distributed KLS block writes 8 bytes of configuration in front of it:
// type 0, LED size (entry bytes), max LEQ, LEQ. A distributed block cuts each instance's list into
// listlets of at most GetMaxLLEQ entries, each one block instance of its own, named by a running
// listlet number, with 6 bytes of configuration (link to the next listlet's KOV name or 0, and the
// listlet's quantity) and whole-byte entries behind it; a list of 0 entries is one empty listlet.
// Its header block instance (type 1, LED size, max LEQ, max LLEQ, link to the first listlet) is
// generated in front of the listlets when the application gave no header data, and otherwise gets
// its link through the patch stage.
//
// Throws, with nothing of the failing instance written:
//   "Block %s [%d] is too large to fit in the image.\nImage size: %d, blk Start: %d, blk Size %d.\n"
//   "Block %s has %d instances but %d data sizes."  (fewer sizes than entries)
//   "Block %s [%d] has %d bytes of data; an instance holds at most 65533."  (deliberate: the
//    16-bit size field holds the data size + 2, so a larger instance would announce a wrapped
//    size and every reader would lose its way at the next header)
//   "Block %s [%d] is padded to %d bytes but was given a data size of %d."
//   "Unable to calculate checksum for block %s."
//   "Block %s [%d]: a KOV List Structure entry must hold its list as its one field."
//   "Header block %s does not have the same number of\nblock instances as does Distributed KOV
//    List Structure %s."
//   "Attempting to pack header block %s, instance %d\nbut no corresponding Distributed KLS block
//    found."
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

  // The configuration area of a non-distributed KLS block or of a header block (blk), written at
  // the data start from the list field's values; linkID 0xFFFF leaves a header's link alone.
  void PackKLSCfgInfo(CKovImage* image, const CKovCpLayout* cpLayout, const CKovField* listField,
                      const CKovBlkLayout* blk, uint32_t start, uint16_t instance,
                      uint16_t linkID) const;
  // The configuration area of a header block packed by the application, from the list of the
  // same instance of its distributed block.
  void PackDistKLSCfgInfo(const CKovPk* pk, const CKovCpLayout* cpLayout, CKovImage* image,
                          uint32_t start, uint16_t instance) const;
  void WriteKLSType(CKovImage* image, const CKovBlkLayout* blk, uint32_t start) const;
  void WriteKLSLedSz(CKovImage* image, const CKovCpLayout* cpLayout, const CKovBlkLayout* blk,
                     uint32_t start, const CKovField* listField) const;
  void WriteKLSMaxLEQ(CKovImage* image, const CKovBlkLayout* blk, uint32_t start,
                      const CKovField* listField) const;
  void WriteKLSMaxLLEQ(CKovImage* image, const CKovBlkLayout* distBlk, const CKovBlkLayout* hdrBlk,
                       uint32_t start, uint32_t listFieldID, uint16_t instance) const;
  void WriteKLSLeq(CKovImage* image, const CKovBlkLayout* blk, uint32_t start,
                   const CKovField* listField) const;
  void WriteKLSLinkFld(CKovImage* image, const CKovBlkLayout* distBlk,
                       const CKovBlkLayout* hdrBlk, uint32_t start, uint16_t linkID) const;
  // The list an entry of a KLS block holds, directly or as the one field of a union's option.
  const CKovField* GetKLSListField(const CKovPkEntry* entry) const;

  // The distributed road: every instance's list cut into listlets, with the header block's
  // instance generated in front of them when the application gave no header data.
  int WriteDistBlkToImage(const CKovPk* pk, CKovImage* image, uint32_t& nextFreeByte,
                          const CKovCpLayout* cpLayout, KovIDVectorMap& vectorMap) const;
  void WriteDistKLSBlkInstance(const CKovPk* pk, CKovImage* image, uint32_t& nextFreeByte,
                               const CKovCpLayout* cpLayout, KovIDVectorMap& vectorMap,
                               const CKovField* listField, uint16_t instance,
                               uint16_t& listletNum) const;
  uint32_t WriteListletCfgData(CKovImage* image, uint32_t& nextFreeByte, uint16_t listletNum,
                               uint16_t ordinal, uint16_t count, uint16_t maxLLEQ,
                               uint16_t rest) const;
  void WriteListletData(const CKovPk* pk, CKovImage* image, const CKovCpLayout* cpLayout,
                        uint32_t& nextFreeByte, const CKovPkEntryList* entries, int& position,
                        uint32_t listFieldID, uint16_t maxLLEQ, uint16_t ordinal) const;
  void WriteListletHdr(const CKovPk* pk, CKovImage* image, uint32_t start, uint16_t kovID,
                       uint32_t size) const;
  void CreateHdrBlkForDistKLS(const CKovPk* pk, CKovImage* image, const CKovCpLayout* cpLayout,
                              const CKovField* listField, uint16_t instance, uint16_t listletNum,
                              uint32_t& nextFreeByte, KovIDVectorMap& vectorMap) const;
  void CreateLinkFieldPatchForHdrBlk(const CKovPk* pk, const CKovCpLayout* cpLayout,
                                     uint16_t instance, uint16_t listletNum) const;

 private:
  std::unique_ptr<CKovPkEntryList> pkEntryList;
  std::vector<uint16_t> blkDataSizes;
  mutable std::vector<std::unique_ptr<KovFieldsMap>> fieldMaps;
};

#endif  // KOV_PACK_PKSTDBLK_H
