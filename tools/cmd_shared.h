// What the image commands (dump, get, set, diff, salvage, view) share: loading a layout, reading
// an image or a values file into an unpack, and the field walk of it.
//
// A source is an image file or a values file: a file whose first byte other than white space is
// '{' is a values file, packed first with the layout; anything else is an image. Failures are
// KovToolError (files), KovJsonError (layout and values files) or the library's
// CMevGenException* (an image it refuses), which kovtool's main turns into one line each.
#ifndef KOV_TOOLS_CMD_SHARED_H
#define KOV_TOOLS_CMD_SHARED_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kov/kov.h"
#include "kovjson/fieldwalk.h"
#include "kovjson/jsonlayout.h"
#include "kovjson/salvage.h"

struct KovToolSource {
  std::string path;
  bool fromValues = false;                  // a values file, packed into bytes
  std::vector<uint8_t> bytes;               // the image
  std::unique_ptr<CKovUp> up;               // its unpack; null when the image was salvaged
  std::unique_ptr<KovJsonSalvage> salvage;  // what could be read of a damaged image, or null
  std::string damage;                       // the library's refusal of a damaged image, or ""
  KovJsonWalk hdrWalk;                      // with prefixes: the headers behind them
  bool walked = false;                      // walk holds the field walk (else kovToolEachInstance)
  KovJsonFieldWalk walk;
};

std::unique_ptr<CKovJsonLayout> kovToolLoadLayout(const std::string& path);

// True when bytes hold a values file rather than an image.
bool kovToolIsValuesText(const std::string& bytes);

// Reads path (an image, or a values file when allowValues) and unpacks it with layout. With
// salvage, an image the library refuses is salvaged (kovjson/salvage.h) instead: damage holds
// the refusal, which is also printed to standard error, and walk what could be read. With
// prefixes the image has a partition prefix in front of every instance (a values file is packed
// so); a damaged one is salvaged as well. Without walkNow the field walk of a sound image is
// left to kovToolEachInstance, which holds one instance at a time.
std::unique_ptr<KovToolSource> kovToolReadSource(const CKovJsonLayout& layout,
                                                 const std::string& path, bool allowValues,
                                                 bool salvage = false, bool prefixes = false,
                                                 bool walkNow = true);

// Unpacks bytes (named path in messages) with layout and walks its fields.
std::unique_ptr<KovToolSource> kovToolUnpackBytes(const CKovJsonLayout& layout,
                                                  const std::string& path,
                                                  std::vector<uint8_t> bytes, bool salvage = false,
                                                  bool prefixes = false, bool walkNow = true);

// The field walk of src one instance at a time, as kovJsonWalkFieldsEach hands it over; a source
// already walked (or salvaged) is handed over whole, in one call with base 0. walk receives the
// headers before the first call.
void kovToolEachInstance(const CKovJsonLayout& layout, const KovToolSource& src, bool imageOrder,
                         KovJsonFieldWalk& walk, const KovJsonEachInstance& each);

#endif  // KOV_TOOLS_CMD_SHARED_H
