#include "kov/fields/complexfield.h"

PkStatus CKovComplexField::WriteToImage(CKovImage*, uint32_t, uint8_t, KovFieldsMap*,
                                        const CKovFieldLayout*, CKovPkPatchMap*,
                                        const CKovCpLayout*, uint16_t, int) const {
  return PkDone;
}

int CKovComplexField::CanValueFitAsPerLayout(const CKovFieldLayout*) const { return 1; }
