#include "kov/pack/pkfield.h"

#include <string>

#include "kov/layout/cplayout.h"
#include "kov/platform/format.h"
#include "kov/platform/mevgenexception.h"

void CKovPkField::ThrowDoesNotFit(const CKovCpLayout* cpLayout, uint16_t blkID) const {
  std::string blkName = cpLayout != nullptr ? cpLayout->GetBlkName(blkID) : std::string();
  throw new CMevGenException(kovFormat("Field %s can not be fit as per the layout\n(see block %s).",
                                       data->GetFieldName().c_str(), blkName.c_str()),
                             0);
}
