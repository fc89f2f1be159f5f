// CKovCpLayout: the description of one kind of codeplug image: its partitions in image order, all
// their blocks by id and by KOV name, and the layout's identity.
//
// Build it in this order: AddPartition for each partition, in image order; for each block make
// the block layout, SetPartitionNum, HasUniqueKovName and AddBlkLayout. Afterwards the layout is
// read-only and is shared by every pack and unpack that uses it; it must outlive them.
//
// Ownership: the codeplug layout owns its partitions, a partition its blocks, a block its data
// layout. AddBlkLayout takes a block over only when it succeeds; a refused block stays the
// caller's. The map by id and the map of KOV names only refer.
//
// KOV names: name = type << 16 | id. A name is valid for an image when its type is 1 to 0xFFFD
// and its id 0 to 0xFFFE. A multi-instance or distributed block is registered under id 0 and
// answers for every id of its type.
//
// Failures: CMevGenException, code 0, with the texts given at each operation; a throw leaves the
// layout as it was. AddPartition and HasUniqueKovName advise through a message box and answer 0.
#ifndef KOV_LAYOUT_CPLAYOUT_H
#define KOV_LAYOUT_CPLAYOUT_H

#include <cstdint>
#include <list>
#include <string>

#include "kov/layout/blklayout.h"
#include "kov/platform/kovmap.h"

class CKovDataLayout;
class CKovFieldLayout;
class CKovListFieldLayout;
class CKovPartitionLayout;
struct KovListAttribStruct;

class CKovCpLayout {
 public:
  // An empty layout. The arguments are stored and handed back only.
  CKovCpLayout(int8_t versionIndex, int8_t modelIndex, uint32_t maxPossibleSize,
               int saveToSeparateFiles);
  // Deletes the partitions, and with them every block added.
  ~CKovCpLayout();

  CKovCpLayout(const CKovCpLayout&) = delete;
  CKovCpLayout& operator=(const CKovCpLayout&) = delete;

  // Appends partition partitionNum to the image order and answers 1. A number already there
  // shows "Partition %d already registered." in a message box, changes nothing and answers 0.
  int AddPartition(uint16_t partitionNum, AccessRights accessRights);

  // Claims the block's KOV type and registers its KOV name for it; answers 1. A type already
  // claimed (by any id) shows "KOV Type of %d specified for block with ID %d but\nthat type value
  // is already in use by another block." (type, block id) in a message box and answers 0,
  // registering nothing.
  int HasUniqueKovName(const CKovBlkLayout* blkLayout);

  // Files blkLayout under its partition number and takes it over. Throws
  // "Block %s already defined in image." (block name) for a block id already filed, and
  // "Error adding block %s to partition %d.\nNo such partition exists." (name, number) when the
  // block's partition was not added.
  void AddBlkLayout(CKovBlkLayout* blkLayout);

  // Identity as constructed, for display and for the application.
  int8_t GetVersionIndex() const { return versionIndex; }
  int8_t GetModelIndex() const { return modelIndex; }
  // The version of the layout standard, "01.00".
  std::string GetCpLayoutStdVersion() const { return cpLayoutStdVersion; }
  uint32_t GetMaxPossibleSize() const { return maxPossibleSize; }
  int SaveToSeparateFiles() const { return saveToSeparateFiles; }

  // Partition numbers in image order.
  const std::list<uint16_t>& GetPartitionNumList() const { return partitionNumList; }
  const CKovMap<uint16_t, CKovPartitionLayout*>& GetPartitionLayoutMap() const {
    return partitionLayoutMap;
  }
  // The partition, or null.
  CKovPartitionLayout* GetPartitionLayout(uint16_t partitionNum) const;
  // The partition's rights; throws "Partition #%d not found." for an unknown number.
  AccessRights GetAccessRights(uint16_t partitionNum) const;
  // 1 when the partition's rights are ReadWrite, ReadWriteLocked, ReadOnly respectively; throw
  // as GetAccessRights.
  int IsRWPartition(uint16_t partitionNum) const;
  int IsRWLockedPartition(uint16_t partitionNum) const;
  int IsROPartition(uint16_t partitionNum) const;
  // The partition's blocks in order of writing; throws "Error getting block layout list for
  // partition %d.\nNo such partition exists." for an unknown number.
  const std::list<CKovBlkLayout*>& GetBlkLayoutList(uint16_t partitionNum) const;
  // The number of blocks of the partition; throws "Error getting block count in partition
  // %d.\nNo such partition exists." for an unknown number.
  uint16_t GetNumberOfBlks(uint16_t partitionNum) const;

  // All blocks by id.
  const CKovMap<uint16_t, CKovBlkLayout*>* GetBlkLayoutMap() const { return &blkLayoutMap; }
  // The number of blocks in all partitions.
  uint16_t GetNumberOfBlks() const { return static_cast<uint16_t>(blkLayoutMap.GetCount()); }
  // 1 when a block of that id was added, else 0.
  int DoesBlkExist(uint16_t blkID) const;
  // The block, or null.
  CKovBlkLayout* GetBlkLayout(uint16_t blkID) const;
  // The block's name, or "" for an unknown block.
  std::string GetBlkName(uint16_t blkID) const;
  // The field's layout at any depth of the block; null for an unknown block or field.
  CKovFieldLayout* GetFieldLayout(uint16_t blkID, uint32_t fieldID) const;

  // 1 when the name may stand in an image (type 1 to 0xFFFD, id 0 to 0xFFFE), else 0. Looks at
  // the numbers only.
  static int ValidKovName(uint16_t kovType, uint16_t kovID);
  static int ValidKovName(uint32_t kovName);
  // The block registered under kovName; else the multi-instance or distributed block registered
  // under the same type with id 0. Throws "Unable to find blkID for item with KOV Name = 0x%x."
  // with the name's id part set to 0 when there is neither.
  uint16_t GetBlkIDFromKovName(uint16_t kovType, uint16_t kovID) const;
  uint16_t GetBlkIDFromKovName(uint32_t kovName) const;

 protected:
  // Deletes every partition (and its blocks) and empties the partition map.
  void Cleanup();

  // The block holding the LEQ field of listLayout, which lies in ownBlk: null for a calculated
  // quantity, ownBlk unless the LEQ is split. Throws, for a split LEQ,
  //   "List %d references LEQ in block %d but block does not exist." (list id, LEQ block id) and
  //   "List field %d in block %d references an LEQ field in\ndistributed block %d. 'Split-across'
  //   LEQ fields may\nnot live in distributed blocks." (list id, own block id, LEQ block id; one
  //   text).
  const CKovBlkLayout* GetLeqBlkLayout(const CKovListFieldLayout* listLayout,
                                       const CKovBlkLayout* ownBlk) const;

  // Checks leqFieldLayout as the LEQ field of listLayout (whose parent data layout is
  // listDataLayout, in block blk) against attrib's leqID and maxEntryQty; true or a throw, with
  // the list id and block name in each text:
  //   leqID 0: "%s field ID not specified for List field %d in block %s" (%s first is "LEQ");
  //   no layout: "LEQ field referenced by List field %d not found in block %s)";
  //   not a number: "LEQ field for List field %d must be numeric (see block %s)";
  //   too narrow for maxEntryQty: "LEQ field not large enough to hold max quantity specified for
  //     List field %d (see block %s)" (one line);
  //   leqMustShareEntry and another parent: "LEQ field must live in same entry layout as List
  //     field %d in block %s" (one line).
  bool GetLeqFieldLayout(const CKovListFieldLayout* listLayout,
                         const CKovDataLayout* listDataLayout,
                         const CKovFieldLayout* leqFieldLayout, const CKovBlkLayout* blk,
                         const KovListAttribStruct& attrib, bool leqMustShareEntry) const;

  int8_t versionIndex;
  int8_t modelIndex;
  std::string cpLayoutStdVersion;
  int saveToSeparateFiles;
  CKovMap<uint16_t, uint16_t> usedKovTypes;  // KOV type -> the block id that claimed it
  std::list<uint16_t> partitionNumList;
  uint32_t maxPossibleSize;
  CKovMap<uint16_t, CKovBlkLayout*> blkLayoutMap;
  CKovMap<uint32_t, uint16_t> kovNameMap;
  CKovMap<uint16_t, CKovPartitionLayout*> partitionLayoutMap;
};

#endif  // KOV_LAYOUT_CPLAYOUT_H
