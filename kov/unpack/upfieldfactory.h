// Building a field value in the unpack role from its layout (internal to the library).
//
// The kind of value follows the kind of layout, tested with IsKindOf: a name field before a
// number (a name layout is no number layout, but the order keeps the two apart should an
// application derive one from the other), then character and string; unions before lists.
#ifndef KOV_UNPACK_UPFIELDFACTORY_H
#define KOV_UNPACK_UPFIELDFACTORY_H

#include <cstdint>

#include "kov/fields/field.h"

class CKovBlkLayout;
class CKovUpPatchMap;

// A number, character, string or KOV name read from the entry at (startByte, startMsb), with its
// status; null with UpDone for a layout of no primitive kind.
CKovField* kovUnpackPrimitiveField(const CKovUp* up, uint16_t blkID, uint32_t startByte,
                                   uint8_t startMsb, const CKovFieldLayout* fieldLayout,
                                   const KovFieldsMap& fieldsMap, uint32_t lastBit,
                                   uint32_t fieldID, UpStatus& status);

// A union or list read from the entry, with its status; null with UpDone for a layout of no
// complex kind.
CKovField* kovUnpackComplexField(const CKovUp* up, const CKovBlkLayout* blkLayout,
                                 uint32_t startByte, uint8_t startMsb, CKovUpPatchMap* patchMap,
                                 const CKovFieldLayout* fieldLayout, uint32_t lastBit,
                                 KovFieldsMap& fieldsMap, UpStatus& status, uint32_t fieldID,
                                 uint16_t instance);

#endif  // KOV_UNPACK_UPFIELDFACTORY_H
