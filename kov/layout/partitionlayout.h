// CKovPartitionLayout: a numbered group of block layouts, in the order they are written.
//
// Made by CKovCpLayout::AddPartition, which alone adds blocks to it. The partition owns its block
// layouts and deletes each through its virtual destructor. Access rights are stored and reported
// only; a block does not take them over. Never throws but for exhausted memory.
#ifndef KOV_LAYOUT_PARTITIONLAYOUT_H
#define KOV_LAYOUT_PARTITIONLAYOUT_H

#include <cstdint>
#include <list>

#include "kov/layout/blklayout.h"

class CKovPartitionLayout {
  friend class CKovCpLayout;

 public:
  // An empty partition.
  CKovPartitionLayout(uint16_t partitionNum, AccessRights accessRights);
  // Deletes every block layout of the partition.
  virtual ~CKovPartitionLayout();

  CKovPartitionLayout(const CKovPartitionLayout&) = delete;
  CKovPartitionLayout& operator=(const CKovPartitionLayout&) = delete;

  // The constructor's arguments.
  uint16_t GetPartitionNum() const { return partitionNum; }
  AccessRights GetAccessRights() const { return accessRights; }
  // The blocks in the order of AddBlkLayout, which is the order of writing.
  const std::list<CKovBlkLayout*>& GetBlkLayoutList() const { return blkLayouts; }
  uint16_t GetNumberOfBlks() const { return static_cast<uint16_t>(blkLayouts.size()); }

 protected:
  // Appends blkLayout, which passes to the partition.
  void AddBlkLayout(CKovBlkLayout* blkLayout);

  uint16_t partitionNum;
  AccessRights accessRights;
  std::list<CKovBlkLayout*> blkLayouts;
};

#endif  // KOV_LAYOUT_PARTITIONLAYOUT_H
