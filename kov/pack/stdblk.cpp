#include "kov/pack/stdblk.h"

#include "kov/layout/blklayout.h"

uint16_t CKovStdBlk::GetBlkID() const { return blkLayout->GetBlkID(); }

std::string CKovStdBlk::GetBlkName() const { return blkLayout->GetBlkName(); }
