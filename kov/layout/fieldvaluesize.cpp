#include "kov/layout/fieldvaluesize.h"

// The pack and unpack field classes are what such maps hold; until they are part of the library
// no map of values can be built, so every look-up finds nothing.
bool kovGetValueImageSize(const void* fieldValueMap, int mapKind, uint32_t fieldID,
                          int32_t& imageSize) {
  (void)fieldValueMap;
  (void)mapKind;
  (void)fieldID;
  (void)imageSize;
  return false;
}
