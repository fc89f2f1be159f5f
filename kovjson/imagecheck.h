// The unpack of an image file against a JSON layout, with every fault named in the user's words:
// the file, the byte offset of the block instance, the block's name and instance number.
//
// kovJsonUnpackFile walks the block headers first (kovjson/imagewalk.h), so that an image cut
// short inside an instance is reported as cut short, and a wrong checksum or a KOV name that no
// block of the layout has is reported at its offset before the library reads anything. Then the
// library unpacks the image (CKovUp, which writes the XML report when reportPath is not empty);
// its texts are translated by kovJsonNamedText and placed at the offset of the block instance
// they name. The values of the unpack are returned as a values file.
//
// Strict (the default) refuses, beyond what the library refuses, an image whose content breaks
// its own layout: two instances with one KOV name, and any image whose values do not pack back
// to the same bytes (a list whose quantity is above its maximum, which the library reads on into
// the next block, a listlet above its listlet maximum, bits that no field holds). The check packs
// the values again and compares every byte. Lenient reads the image as the library does.
//
// Failures throw KovJsonImageError (by value); what() gives "file: offset 0x0000AB: text", the
// offset being that of the header of the block instance at fault (the fault's own byte where it
// is one), or "file: text" when no instance is to blame.
#ifndef KOVJSON_IMAGECHECK_H
#define KOVJSON_IMAGECHECK_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "kovjson/imagewalk.h"
#include "kovjson/jsonlayout.h"
#include "kovjson/valuetree.h"

// A fault of an image file: the file, the byte offset in it (kKovJsonNoOffset for none), the
// text, and whether only the strict reading refuses it.
constexpr uint32_t kKovJsonNoOffset = 0xFFFFFFFFu;

class KovJsonImageError : public std::runtime_error {
 public:
  KovJsonImageError(const std::string& file, uint32_t offset, const std::string& text,
                    bool strictOnly = false);
  const std::string& GetFile() const { return file; }
  uint32_t GetOffset() const { return offset; }
  const std::string& GetText() const { return text; }
  bool IsStrictOnly() const { return strictOnly; }

 private:
  std::string file;
  uint32_t offset;
  std::string text;
  bool strictOnly;
};

// The values of the image bytes (read from file) for layout; see the header comment. Throws
// KovJsonImageError.
nlohmann::ordered_json kovJsonUnpackFile(const CKovJsonLayout& layout,
                                         const std::vector<uint8_t>& bytes, bool prefixes,
                                         const std::string& file, const std::string& reportPath,
                                         bool strict);
// The same, the values written into values (empty): one tree for every reader of them, which
// the strict check packs again without a JSON document between.
void kovJsonUnpackFileValues(const CKovJsonLayout& layout, const std::vector<uint8_t>& bytes,
                             bool prefixes, const std::string& file, const std::string& reportPath,
                             bool strict, KovValueTape& values);

// A fault of a walk that the layout tells.
struct KovJsonWalkFault {
  uint32_t offset = 0;  // of the instance's header
  std::string text;
  bool twice = false;  // a KOV name met before, which only the strict reading refuses
};

// The faults of a walk, in image order: a KOV name no block has and, with strict, a KOV name
// met twice.
std::vector<KovJsonWalkFault> kovJsonWalkFaults(const CKovJsonLayout& layout,
                                                const KovJsonWalk& walk, bool strict);

#endif  // KOVJSON_IMAGECHECK_H
