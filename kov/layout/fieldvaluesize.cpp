#include "kov/layout/fieldvaluesize.h"

#include "kov/fields/field.h"
#include "kov/pack/pkfield.h"
#include "kov/unpack/upfield.h"

namespace {

template <class FieldMap>
bool imageSizeIn(const FieldMap* map, uint32_t fieldID, int32_t& imageSize) {
  auto* found = map->PLookup(fieldID);
  if (found == nullptr || *found == nullptr || (*found)->GetData() == nullptr) return false;
  imageSize = static_cast<int32_t>((*found)->GetData()->GetImageSize());
  return true;
}

}  // namespace

bool kovGetValueImageSize(const void* fieldValueMap, int mapKind, uint32_t fieldID,
                          int32_t& imageSize) {
  if (fieldValueMap == nullptr) return false;
  if (mapKind == kKovPkFieldMapKind) {
    return imageSizeIn(static_cast<const KovPkFieldMap*>(fieldValueMap), fieldID, imageSize);
  }
  if (mapKind == kKovUpFieldMapKind) {
    return imageSizeIn(static_cast<const KovUpFieldMap*>(fieldValueMap), fieldID, imageSize);
  }
  return false;
}
