#include "kov/layout/unionlayoutopt.h"

#include "kov/layout/datalayout.h"

CKovUnionLayoutOpt::CKovUnionLayoutOpt(CKovDataLayout* dataLayout, uint32_t unused1,
                                       uint8_t unused2, uint32_t layoutOptID,
                                       uint32_t layoutSzInBits, uint32_t unused3)
    : layoutOptID(layoutOptID), layoutSzInBits(layoutSzInBits), dataLayout(dataLayout) {
  (void)unused1;
  (void)unused2;
  (void)unused3;
}

CKovUnionLayoutOpt::~CKovUnionLayoutOpt() { delete dataLayout; }

int CKovUnionLayoutOpt::IsEmptyLayout() const {
  return dataLayout == nullptr || dataLayout->GetFieldMap().IsEmpty() ? 1 : 0;
}
