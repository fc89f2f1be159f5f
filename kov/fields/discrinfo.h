// KovDiscrInfo: one discriminant of a union as the application's selection function sees it.
//
// The field's value and layout; with ownsField the structure deletes the field with itself (a
// discriminant read ahead of its turn for this union alone), otherwise the field belongs to an
// entry. Copy and assignment copy the three members; a field the source owns is copied deeply
// (kovCopyField), so that each structure deletes only its own.
#ifndef KOV_FIELDS_DISCRINFO_H
#define KOV_FIELDS_DISCRINFO_H

#include "kov/fields/field.h"
#include "kov/fields/fieldcopy.h"

struct KovDiscrInfo {
  KovDiscrInfo(const CKovField* discrField, const CKovFieldLayout* discrLayout, bool ownsField)
      : discrField(discrField), discrLayout(discrLayout), ownsField(ownsField) {}
  ~KovDiscrInfo() {
    if (ownsField) delete discrField;
  }
  KovDiscrInfo(const KovDiscrInfo& other)
      : discrField(other.ownsField ? kovCopyField(other.discrField) : other.discrField),
        discrLayout(other.discrLayout),
        ownsField(other.ownsField) {}
  KovDiscrInfo& operator=(const KovDiscrInfo& other) {
    if (this == &other) return *this;
    const CKovField* field = other.ownsField ? kovCopyField(other.discrField) : other.discrField;
    if (ownsField) delete discrField;
    discrField = field;
    discrLayout = other.discrLayout;
    ownsField = other.ownsField;
    return *this;
  }

  const CKovField* discrField;
  const CKovFieldLayout* discrLayout;
  bool ownsField;
};

#endif  // KOV_FIELDS_DISCRINFO_H
