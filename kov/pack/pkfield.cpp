#include "kov/pack/pkfield.h"

#include "kov/layout/cplayout.h"
#include "kov/platform/format.h"
#include "kov/platform/mevgenexception.h"

namespace {

// Out of line, so that the writing road keeps no frame for the text.
[[noreturn, gnu::noinline]] void throwDoesNotFit(const CKovField* data,
                                                 const CKovCpLayout* cpLayout, uint16_t blkID) {
  std::string blkName = cpLayout != nullptr ? cpLayout->GetBlkName(blkID) : std::string();
  throw new CMevGenException(kovFormat("Field %s can not be fit as per the layout\n(see block %s).",
                                       data->GetFieldName().c_str(), blkName.c_str()),
                             0);
}

}  // namespace

PkStatus CKovPkField::WriteToImage(const CKovPk* pk, CKovImage* image, uint32_t entryStartByte,
                                   uint8_t entryMsbStart, KovFieldsMap* fieldsMap,
                                   const CKovFieldLayout* layout, const CKovCpLayout* cpLayout,
                                   uint16_t blkID, int instance) const {
  if (!data->CanValueFitAsPerLayout(layout)) throwDoesNotFit(data, cpLayout, blkID);
  return data->WriteToImage(pk, image, entryStartByte, entryMsbStart, fieldsMap, layout, cpLayout,
                            blkID, instance);
}
