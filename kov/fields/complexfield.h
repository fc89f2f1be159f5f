// CKovComplexField: the base of the list and union values, which hold entries of their own.
//
// It fits any layout (the entries are checked as they are written), and its second form of
// WriteToImage, which the list and union values replace, does nothing and answers PkDone.
#ifndef KOV_FIELDS_COMPLEXFIELD_H
#define KOV_FIELDS_COMPLEXFIELD_H

#include <cstdint>

#include "kov/fields/field.h"

class CKovPkPatchMap;

class CKovComplexField : public CKovField {
 public:
  explicit CKovComplexField(uint32_t fieldID) : CKovField(fieldID) {}

  using CKovField::WriteToImage;
  // Writes nothing and answers PkDone.
  virtual PkStatus WriteToImage(CKovImage* image, uint32_t startByte, uint8_t msbStart,
                                KovFieldsMap* fieldsMap, const CKovFieldLayout* layout,
                                CKovPkPatchMap* patchMap, const CKovCpLayout* cpLayout,
                                uint16_t blkID, int instance) const;
  // Always 1.
  int CanValueFitAsPerLayout(const CKovFieldLayout* layout) const override;
};

#endif  // KOV_FIELDS_COMPLEXFIELD_H
