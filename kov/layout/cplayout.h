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
//
// Verification: fields refer to each other across blocks by id (a list to its LEQ field, a union
// to its discriminants, a distributed KOV List Structure block to its header block), and those
// references may point forward while the layout is built. DoPostLayoutVerification checks them
// once the layout is complete: every field the application entered in a block's verification map,
// blocks and fields taken in map order, then the pairing of distributed KLS blocks with header
// blocks. The first fault ends the pass, so map order decides which of several is reported.
// A KOV name field in a verification map is checked too: a referenced block that the layout lacks
// is shown as a warning in a message box and the pass goes on. Entering the field is the
// application's request to have it looked at, and a warning costs a layout that is right nothing.
#ifndef KOV_LAYOUT_CPLAYOUT_H
#define KOV_LAYOUT_CPLAYOUT_H

#include <cstdint>
#include <list>
#include <string>

#include "kov/layout/blklayout.h"
#include "kov/platform/kovmap.h"

class CKovDataLayout;
class CKovFieldLayout;
class CKovKLSBlkLayout;
class CKovListFieldLayout;
class CKovNameFieldLayout;
class CKovPartitionLayout;
class CKovUnionFieldLayout;
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

  // Checks the cross references of the complete layout; call it once after the last AddBlkLayout
  // and before the first pack or unpack. Returns when the layout is sound, throws at the first
  // fault with the text of the step that found it (below, and GetLeqBlkLayout and
  // GetLeqFieldLayout). Changes nothing and may be repeated. A list of a format that has no LEQ
  // field to check shows "Invalid list format specified." and the pass goes on.
  void DoPostLayoutVerification() const;

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

  // The steps of DoPostLayoutVerification. blk is the block whose verification map holds the
  // field; its name or id stands in every text.

  // Each discriminant of unionLayout, in order: a split-within union (one that is not of a split
  // format) keeps them in blk, a split-across one in other blocks. Throws
  //   "Union %d in block %d has split-within format\nbut discriminant resides in different
  //   block." and "Union %d in block %d has split-across format\nbut discriminant resides in same
  //   block." (field id, block id; one text each), and
  //   "Union %d in block %d names %d discriminants but %d discriminant blocks." when the arrays
  //   of a split union differ in length.
  void VerifyUnionFieldDependencies(uint32_t fieldID, const CKovUnionFieldLayout* unionLayout,
                                    const CKovBlkLayout* blk) const;
  // Finds discriminant discrID, of block discrBlkID for a split-across union: in the union's
  // list entry when it lies in one, else in the block's data layout, complex fields included.
  // Throws "Union field %d references discriminant in block with ID %d\nbut no layout for that
  // block exists." (union id, discrBlkID) and "Union field %d in block %d references
  // discriminant in\ndistributed block %d. 'Split-across' discriminants may\nnot live in
  // distributed blocks." (union id, block id, discrBlkID).
  void ValidateDiscrField(uint32_t unionID, uint32_t discrID, uint16_t discrBlkID, bool splitWithin,
                          const CKovUnionFieldLayout* unionLayout, const CKovBlkLayout* blk) const;
  // Judges the discriminant found (null: none) for unionLayout, whose parent data layout is
  // unionDataLayout. True or a throw:
  //   "Discriminant field referenced by Union field %d does not exist";
  //   "Invalid field type specified for discriminant field %d (see block %s)" unless a number,
  //     character or string;
  //   in a list entry, a discriminant starting behind the union: "For unions embedded inside list
  //     fields, the discriminant field must precede\nthe union field within the list entry data
  //     layout. See union field\n%d in block %s." (one text). Equal starts pass.
  bool VerifyDiscrFieldLayout(const CKovUnionFieldLayout* unionLayout,
                              const CKovDataLayout* unionDataLayout,
                              const CKovFieldLayout* discrFieldLayout,
                              const CKovDataLayout* searchedDataLayout,
                              const CKovBlkLayout* blk) const;
  // The LEQ field of listLayout: in the list's own data layout, directly in front of the list,
  // for VarSzContigLeq; anywhere in the LEQ block for VarSzSameBlkLeq and VarSzSplitLeq. Other
  // formats show "Invalid list format specified." and pass.
  void VerifyListFieldDependencies(uint32_t fieldID, const CKovListFieldLayout* listLayout,
                                   const CKovBlkLayout* blk) const;
  // That first ends where second begins. Two fixed fields are measured; a floating second field
  // must name first as the field before it, with no gap; a floating first before a fixed second
  // passes. True, or throws "Field %d must immediately precede field %d (see block %s)".
  bool VerifyFieldContiguity(const CKovFieldLayout* first, const CKovFieldLayout* second,
                             const CKovBlkLayout* blk) const;
  // Bit index of the end of first == bit index of the start of second (byte × 8 + 7 − MSB).
  bool VerifyContiguityForFixedAddrFields(const CKovFieldLayout* first,
                                          const CKovFieldLayout* second,
                                          const CKovBlkLayout* blk) const;
  // Pairs every distributed KLS block with its header block, one to one. Throws
  //   "Multiple Distributed KOV List Structure blocks\nreference Header block %d." and
  //   "No layout found for the KOV List Structure referenced\nby Header block %d." (header id).
  void VerifyDistKLSAndHdrBlks() const;
  // One pair; hdrBlk null when the layout has no block of that id. Throws (KLS id, header id)
  //   "KOV List Structure block %d references Header\nblock %d but no layout exists for that
  //   block.", "... but that block was not declared as a header block." and (header id, KLS id)
  //   "Header block %d has different instance type than\nKOV List Structure block %d.".
  void VerifyKLSHdrBlk(const CKovKLSBlkLayout* klsBlk, const CKovBlkLayout* hdrBlk) const;
  // Shows "WARNING: KOV Name field %d in block %s references block %d\nbut no layout for that
  // block exists." when the referenced block is missing; never throws.
  void VerifyKovNameFieldDependencies(uint32_t fieldID, const CKovNameFieldLayout* nameLayout,
                                      const CKovBlkLayout* blk) const;

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
