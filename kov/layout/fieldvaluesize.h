// Measuring a data layout against a map of field values (internal to the library).
//
// A map of field values goes from a 32-bit field id to a pack field (mapKind kKovPkFieldMapKind,
// the map is a `const CKovMap<uint32_t, CKovPkField*>*`) or to an unpack field
// (kKovUpFieldMapKind, a `const CKovMap<uint32_t, CKovUpField*>*`). Both give access to their
// CKovField value, whose image size in bits the measuring of a layout uses.
#ifndef KOV_LAYOUT_FIELDVALUESIZE_H
#define KOV_LAYOUT_FIELDVALUESIZE_H

#include <cstdint>

constexpr int kKovUpFieldMapKind = 0;
constexpr int kKovPkFieldMapKind = 1;

// When fieldValueMap (may be null) holds a non-null value for fieldID, stores that value's image
// size, taken as a signed number, in imageSize and returns true; else returns false and leaves
// imageSize alone. Never throws.
bool kovGetValueImageSize(const void* fieldValueMap, int mapKind, uint32_t fieldID,
                          int32_t& imageSize);

#endif  // KOV_LAYOUT_FIELDVALUESIZE_H
