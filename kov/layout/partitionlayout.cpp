#include "kov/layout/partitionlayout.h"

CKovPartitionLayout::CKovPartitionLayout(uint16_t partitionNum, AccessRights accessRights)
    : partitionNum(partitionNum), accessRights(accessRights) {}

CKovPartitionLayout::~CKovPartitionLayout() {
  for (CKovBlkLayout* blkLayout : blkLayouts) delete blkLayout;
}

void CKovPartitionLayout::AddBlkLayout(CKovBlkLayout* blkLayout) {
  blkLayouts.push_back(blkLayout);
}
