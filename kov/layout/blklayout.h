// CKovBlkLayout: one kind of block of an image: identity, size limit, instance kind, data layout.
//
// A block is known to the library by its 16-bit blkID and in an image by its KOV name
// (kovType << 16 | kovID). A multi-instance block has kovID 0 in the layout; its instance n
// (from 1) bears the KOV id n − 1 in an image. A header block (hdrBlk) holds the configuration
// of a distributed KOV List Structure: its constructor puts five fixed fields at the front of the
// data layout, 12 bytes in all:
//   byte  bits  field id  kind
//      0    16     28521  number  KOV List Structure type
//      2    16     28524  number  LED size
//      4    16     28523  number  max LEQ
//      6    16     28526  number  max listlet LEQ
//      8    32     28525  name    listlet link (referenced block 0)
// so the application's own fields begin at byte 12. numCfgBytes counts that area and
// maxDataSzInBytes covers it: the caller's maximum plus numCfgBytes, in bytes.
//
// Ownership: the block owns its data layout and deletes it. The verification map only borrows
// field layouts. A block that never reached a partition stays its maker's to delete. Nothing here
// throws but for exhausted memory; no argument is checked.
#ifndef KOV_LAYOUT_BLKLAYOUT_H
#define KOV_LAYOUT_BLKLAYOUT_H

#include <cstdint>
#include <string>

#include "kov/platform/kovmap.h"

class CKovDataLayout;
class CKovFieldLayout;

// Access rights of a partition or block. Stored and reported; the library treats all alike.
enum AccessRights : int { ReadOnly = 0, ReadWrite = 1, ReadWriteLocked = 2 };

// KOV type and id, instance kind and padding of a block.
struct KovBlkLayoutAttrib {
  // Type and id 0xFFFF, padded, single instance.
  KovBlkLayoutAttrib() = default;
  // Note the order: multiInstanceBlk comes before padBlk here, after it in the members.
  KovBlkLayoutAttrib(uint16_t kovType, uint16_t kovID, int multiInstanceBlk, int padBlk)
      : kovType(kovType), kovID(kovID), padBlk(padBlk), multiInstanceBlk(multiInstanceBlk) {}
  KovBlkLayoutAttrib(const KovBlkLayoutAttrib&) = default;
  KovBlkLayoutAttrib& operator=(const KovBlkLayoutAttrib&) = default;

  uint16_t kovType = 0xFFFF;
  uint16_t kovID = 0xFFFF;
  int padBlk = 1;            // non-zero: every instance takes maxDataSzInBytes
  int multiInstanceBlk = 0;  // non-zero: any number of instances
};

class CKovBlkLayout {
 public:
  // Block blkID described by attrib, named blkName, over dataLayout (ownership passes), with room
  // for maxDataSzInBytes bytes of the caller's data. klsBlk is non-zero only from
  // CKovKLSBlkLayout, which forces padBlk to 0. hdrBlk non-zero makes a header block and adds its
  // configuration fields to dataLayout. A multi-instance block gets kovID 0. Access rights start
  // ReadWrite; partition number, variable-size status and distKLSBlkID start at 0.
  CKovBlkLayout(uint16_t blkID, KovBlkLayoutAttrib attrib, std::string blkName, int klsBlk,
                CKovDataLayout* dataLayout, uint16_t maxDataSzInBytes, int hdrBlk);
  // Deletes the data layout.
  virtual ~CKovBlkLayout();

  CKovBlkLayout(const CKovBlkLayout&) = delete;
  CKovBlkLayout& operator=(const CKovBlkLayout&) = delete;

  // Non-zero for a distributed KOV List Structure block; 0 here.
  virtual int IsDistKLS() const;

  // The members as constructed and set.
  uint16_t GetBlkID() const { return blkID; }
  uint16_t GetKovType() const { return kovType; }
  uint16_t GetKovID() const { return kovID; }
  uint16_t GetPartitionNum() const { return partitionNum; }
  uint8_t GetNumCfgBytes() const { return numCfgBytes; }
  uint8_t GetNumCfgFields() const { return numCfgFields; }
  CKovDataLayout* GetDataLayout() const { return dataLayout; }
  uint16_t GetDistKLSBlkID() const { return distKLSBlkID; }
  // The caller's maximum plus the configuration area, in bytes.
  uint16_t GetMaxDataSzInBytes() const { return maxDataSzInBytes; }
  AccessRights GetAccessRights() const { return accessRights; }
  std::string GetBlkName() const { return blkName; }
  // The fields the application asked to have verified, by id.
  const CKovMap<uint32_t, CKovFieldLayout*>& GetFieldVerificationMap() const {
    return fieldVerificationMap;
  }

  // Flags: non-zero for yes. IsSglInstanceBlk is 1 exactly when IsMultiInstanceBlk is 0; the
  // three rights predicates are 1 for ReadOnly, ReadWrite, ReadWriteLocked respectively.
  int PadBlk() const { return padBlk; }
  int IsMultiInstanceBlk() const { return multiInstanceBlk; }
  int IsSglInstanceBlk() const { return multiInstanceBlk == 0 ? 1 : 0; }
  int IsKLSBlk() const { return klsBlk; }
  int IsHdrBlk() const { return hdrBlk; }
  int HasVariableSize() const { return variableSize; }
  int IsReadOnly() const { return accessRights == ReadOnly ? 1 : 0; }
  int IsReadWrite() const { return accessRights == ReadWrite ? 1 : 0; }
  int IsReadWriteLocked() const { return accessRights == ReadWriteLocked ? 1 : 0; }

  // CKovDataLayout::AddField on the block's data layout.
  void AddField(uint32_t fieldID, uint32_t prevFieldID, CKovFieldLayout* fieldLayout,
                int32_t position);
  // The field's layout at any depth of the block (lists, unions); null when there is none.
  CKovFieldLayout* GetFieldLayout(uint32_t fieldID) const;
  // Marks a field for verification; the same id again replaces the layout. Does not own it.
  void AddFieldToVerificationMap(uint32_t fieldID, CKovFieldLayout* fieldLayout);

  // The partition the block lies in; set before the codeplug layout takes the block.
  void SetPartitionNum(uint16_t partitionNum) { this->partitionNum = partitionNum; }
  // Rights of the block alone; the partition's are not taken over.
  void SetAccessRights(AccessRights accessRights) { this->accessRights = accessRights; }
  // Stored for the application; the library does not read it.
  void SetVariableSzStatus(int variableSize) { this->variableSize = variableSize; }
  // The distributed KOV List Structure block of a header block; ignored by any other block.
  void SetDistKLSBlkID(uint16_t distKLSBlkID);

 protected:
  uint16_t blkID;
  uint16_t kovType;
  uint16_t kovID;
  uint16_t partitionNum;
  int padBlk;
  int multiInstanceBlk;
  int klsBlk;
  int hdrBlk;
  int variableSize;
  uint8_t numCfgBytes;
  uint8_t numCfgFields;
  std::string blkName;
  AccessRights accessRights;
  CKovDataLayout* dataLayout;
  uint16_t distKLSBlkID;
  uint16_t maxDataSzInBytes;
  CKovMap<uint32_t, CKovFieldLayout*> fieldVerificationMap;

 private:
  void AddHdrBlkCfgFields();
};

#endif  // KOV_LAYOUT_BLKLAYOUT_H
