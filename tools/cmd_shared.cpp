#include "tools/cmd_shared.h"

#include <cstdio>

#include "kovjson/imagewalk.h"
#include "kovjson/jsonread.h"
#include "kovjson/jsonvalues.h"
#include "tools/toolio.h"

std::unique_ptr<CKovJsonLayout> kovToolLoadLayout(const std::string& path) {
  return CKovJsonLayout::Load(kovToolReadInput(path), path, false);
}

bool kovToolIsValuesText(const std::string& bytes) {
  size_t first = bytes.find_first_not_of(" \t\r\n");
  return first != std::string::npos && bytes[first] == '{';
}

std::unique_ptr<KovToolSource> kovToolUnpackBytes(const CKovJsonLayout& layout,
                                                  const std::string& path,
                                                  std::vector<uint8_t> bytes, bool salvage,
                                                  bool prefixes, bool walkNow) {
  auto src = std::make_unique<KovToolSource>();
  src->path = path;
  src->bytes = std::move(bytes);
  KovJsonWalk& hdrWalk = src->hdrWalk;
  try {
    if (src->bytes.empty()) throw KovToolError{kKovToolRefused, path + ": the image is empty"};
    if (prefixes) {
      hdrWalk = kovJsonWalkImage(src->bytes, true);
      if (!hdrWalk.damage.empty()) {
        throw KovToolError{kKovToolRefused,
                           kovFormat("%s: at offset %u: %s", path.c_str(), hdrWalk.damageOffset,
                                     hdrWalk.damage.c_str())};
      }
    }
    src->up = std::make_unique<CKovUp>(
        layout.GetCpLayout(), prefixes ? kovJsonWithoutPrefixes(src->bytes, hdrWalk) : src->bytes,
        "");
    src->up->FullUnpack();
  } catch (CMevGenException* e) {
    if (!salvage) throw;
    src->damage = e->GetMessage();
    delete e;
  } catch (const KovToolError& e) {
    if (!salvage) throw;
    src->damage = e.text;
  }
  if (src->damage.empty()) {
    if (walkNow) {
      src->walk = prefixes ? kovJsonWalkFieldsWithPrefixes(layout, *src->up, hdrWalk)
                           : kovJsonWalkFields(layout, *src->up);
      src->walked = true;
    }
    return src;
  }
  src->up.reset();
  std::fprintf(stderr, "kovtool: %s: damaged (%s): showing what can be read\n", path.c_str(),
               src->damage.c_str());
  src->salvage = kovJsonSalvage(layout, src->bytes, prefixes);
  src->walk = std::move(src->salvage->walk);
  src->walked = true;
  return src;
}

void kovToolEachInstance(const CKovJsonLayout& layout, const KovToolSource& src, bool imageOrder,
                         KovJsonFieldWalk& walk, const KovJsonEachInstance& each) {
  if (!src.walked) {
    kovJsonWalkFieldsEach(layout, *src.up, src.hdrWalk.prefixes ? &src.hdrWalk : nullptr,
                          imageOrder, walk, each);
    return;
  }
  walk.prefixes = src.walk.prefixes;
  walk.hdrs = src.walk.hdrs;
  walk.hdrDamage = src.walk.hdrDamage;
  walk.hdrDamageOffset = src.walk.hdrDamageOffset;
  walk.imageBits = src.walk.imageBits;
  if (!src.walk.nodes.empty()) each(src.walk, 0);
}

std::unique_ptr<KovToolSource> kovToolReadSource(const CKovJsonLayout& layout,
                                                 const std::string& path, bool allowValues,
                                                 bool salvage, bool prefixes, bool walkNow) {
  std::string text = kovToolReadInput(path);
  if (allowValues && kovToolIsValuesText(text)) {
    auto data = kovJsonPackData(layout, kovJsonParse(text, path), path);
    auto src = kovToolUnpackBytes(layout, path, kovJsonPackImage(layout, *data, prefixes, ""),
                                  false, prefixes, walkNow);
    src->fromValues = true;
    return src;
  }
  return kovToolUnpackBytes(layout, path, std::vector<uint8_t>(text.begin(), text.end()), salvage,
                            prefixes, walkNow);
}
