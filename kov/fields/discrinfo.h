// KovDiscrInfo: one discriminant of a union as the application's selection function sees it.
//
// The field's value and layout; with ownsField the structure deletes the field with itself (a
// discriminant read ahead of its turn for this union alone), otherwise the field belongs to an
// entry. Not copyable: two owners of one field can't both delete it.
#ifndef KOV_FIELDS_DISCRINFO_H
#define KOV_FIELDS_DISCRINFO_H

#include "kov/fields/field.h"

struct KovDiscrInfo {
  KovDiscrInfo(const CKovField* discrField, const CKovFieldLayout* discrLayout, bool ownsField)
      : discrField(discrField), discrLayout(discrLayout), ownsField(ownsField) {}
  ~KovDiscrInfo() {
    if (ownsField) delete discrField;
  }
  KovDiscrInfo(const KovDiscrInfo&) = delete;
  KovDiscrInfo& operator=(const KovDiscrInfo&) = delete;

  const CKovField* discrField;
  const CKovFieldLayout* discrLayout;
  bool ownsField;
};

#endif  // KOV_FIELDS_DISCRINFO_H
