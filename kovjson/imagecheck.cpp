#include "kovjson/imagecheck.h"

#include <algorithm>
#include <map>
#include <memory>
#include <regex>

#include "kov/kov.h"
#include "kovjson/jsonvalues.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr uint32_t kHdrSz = 6;

std::string offsetText(uint32_t offset) {
  return offset == kKovJsonNoOffset ? std::string() : kovFormat("offset 0x%06X: ", offset);
}

// The instances of a walk by block: which block instance each is, and where each block's
// instances stand.
class InstanceMap {
 public:
  InstanceMap(const CKovJsonLayout& layout, const KovJsonWalk& walk) : walk(walk) {
    std::map<uint16_t, uint32_t> counts;
    for (size_t i = 0; i < walk.instances.size(); ++i) {
      const KovJsonInstance& inst = walk.instances[i];
      const KovJsonBlock* blk = layout.FindBlockByKovType(inst.kovType);
      if (blk != nullptr && !blk->multi && blk->kind != KovJsonBlkKind::DistKls &&
          blk->kovID != inst.kovID) {
        blk = nullptr;
      }
      std::string label;
      if (blk == nullptr) {
        label = kovFormat("KOV name 0x%04X%04X", inst.kovType, inst.kovID);
      } else if (blk->kind == KovJsonBlkKind::DistKls) {
        label = kovFormat("block '%s', listlet %u", blk->name.c_str(), inst.kovID);
      } else {
        uint32_t n = ++counts[blk->id];
        label = kovFormat("block '%s' [%u]", blk->name.c_str(), n);
        byBlock[{blk->name, n}] = i;
        // A distributed block's instance n starts at the header that leads to its listlets.
        if (blk->kind == KovJsonBlkKind::Header && blk->pairBlkID != 0) {
          const KovJsonBlock* dist = layout.FindBlock(blk->pairBlkID);
          if (dist != nullptr) byBlock[{dist->name, n}] = i;
        }
      }
      labels.push_back(label);
    }
  }

  const std::string& Label(size_t i) const { return labels[i]; }
  uint32_t Offset(size_t i) const { return walk.instances[i].offset; }

  // The offset of the header of instance n of the block named name; kKovJsonNoOffset when the
  // image has no such instance.
  uint32_t OffsetOf(const std::string& name, uint32_t n) const {
    auto it = byBlock.find({name, n});
    return it == byBlock.end() ? kKovJsonNoOffset : Offset(it->second);
  }

  // The offset of the first instance that text names as "block NAME [n]" or "Block 'NAME' [n]".
  uint32_t OffsetNamedIn(const std::string& text) const {
    static const std::regex named(R"([Bb]lock '?([^'\[\]]+?)'? \[(\d{1,5})\])");
    for (std::sregex_iterator it(text.begin(), text.end(), named), end; it != end; ++it) {
      uint32_t offset = OffsetOf((*it)[1].str(), static_cast<uint32_t>(std::stoul((*it)[2].str())));
      if (offset != kKovJsonNoOffset) return offset;
    }
    return kKovJsonNoOffset;
  }

 private:
  const KovJsonWalk& walk;
  std::vector<std::string> labels;
  std::map<std::pair<std::string, uint32_t>, size_t> byBlock;
};

// The block and instance (from 1) that a JSON pointer into a values file names: "/Zone/2/..." is
// instance 3 of Zone when Zone's value is an array, "/General/..." instance 1.
std::pair<std::string, uint32_t> instanceAt(const KovValueTree& values,
                                            const std::string& pointer) {
  std::vector<std::string> parts;
  for (size_t at = 0; at < pointer.size() && parts.size() < 2;) {
    size_t next = pointer.find('/', at + 1);
    std::string part = pointer.substr(at + 1, next == std::string::npos ? next : next - at - 1);
    std::string plain;
    for (size_t i = 0; i < part.size(); ++i) {
      if (part[i] == '~' && i + 1 < part.size()) {
        plain += part[++i] == '1' ? '/' : '~';
      } else {
        plain += part[i];
      }
    }
    parts.push_back(plain);
    at = next == std::string::npos ? pointer.size() : next;
  }
  if (parts.empty()) return {"", 0};
  KovValueNode blk = values.Find(values.Root(), parts[0]);
  uint32_t n = 1;
  if (!blk.IsNull() && values.TypeOf(blk) == KovValueTree::Type::Array && parts.size() > 1 &&
      parts[1].find_first_not_of("0123456789") == std::string::npos && parts[1].size() < 6) {
    n = static_cast<uint32_t>(std::stoul(parts[1])) + 1;
  }
  return {parts[0], n};
}

// The strict check: the values an unpack wrote must pack back to the bytes they were read from.
void checkRepack(const CKovJsonLayout& layout, const KovValueTree& values,
                 const std::vector<uint8_t>& plain, const KovJsonWalk& walk, const InstanceMap& map,
                 const std::string& file) {
  const std::string tail = ": the image breaks its layout";
  std::unique_ptr<KovJsonPackData> data;
  try {
    data = kovJsonPackTree(layout, values, file);
  } catch (const KovJsonError& e) {
    auto [name, n] = instanceAt(values, e.GetPointer());
    throw KovJsonImageError(file, map.OffsetOf(name, n),
                            kovFormat("block '%s' [%u] breaks its layout: %s: %s", name.c_str(), n,
                                      e.GetPointer().c_str(), e.GetText().c_str()),
                            true);
  }
  std::vector<uint8_t> again;
  try {
    again = kovJsonPackImage(layout, *data, false, "");
  } catch (CMevGenException* e) {
    std::string text = kovJsonNamedText(layout.GetBlocks(), e->GetMessage());
    delete e;
    throw KovJsonImageError(file, map.OffsetNamedIn(text),
                            "the values read can't be packed again" + tail + ": " + text, true);
  }
  if (again == plain) return;
  size_t at =
      std::mismatch(again.begin(), again.end(), plain.begin(), plain.end()).first - again.begin();
  // The instance that holds byte at of the image without prefixes.
  size_t k = 0;
  for (uint32_t start = 0; k < walk.instances.size(); ++k) {
    uint32_t next = start + kHdrSz + walk.instances[k].size;
    if (at < next) break;
    start = next;
  }
  if (k == walk.instances.size()) {
    throw KovJsonImageError(
        file, kKovJsonNoOffset,
        kovFormat("the values read pack back to %zu bytes, the image holds %zu%s", again.size(),
                  plain.size(), tail.c_str()),
        true);
  }
  uint32_t start = 0;
  for (size_t i = 0; i < k; ++i) start += kHdrSz + walk.instances[i].size;
  uint32_t offset = map.Offset(k) + static_cast<uint32_t>(at - start);
  // In the header: a KOV id or a size other than the values give (instances numbered from
  // elsewhere than 0, bytes behind the last value).
  if (at - start < kHdrSz && start + kHdrSz <= again.size()) {
    auto u16 = [](const std::vector<uint8_t>& b, size_t i) { return b[i] << 8 | b[i + 1]; };
    throw KovJsonImageError(
        file, map.Offset(k),
        kovFormat("%s%s: its header has KOV id 0x%04X and size %u, its values give KOV id 0x%04X "
                  "and size %u",
                  map.Label(k).c_str(), tail.c_str(), u16(plain, start + 2), u16(plain, start + 4),
                  u16(again, start + 2), u16(again, start + 4)),
        true);
  }
  std::string holds = at < plain.size() ? kovFormat("0x%02X", plain[at]) : std::string("nothing");
  std::string gives = at < again.size() ? kovFormat("0x%02X", again[at]) : std::string("nothing");
  throw KovJsonImageError(
      file, offset,
      kovFormat("%s (at offset 0x%06X)%s: the image holds %s where its values pack to %s",
                map.Label(k).c_str(), map.Offset(k), tail.c_str(), holds.c_str(), gives.c_str()),
      true);
}

}  // namespace

KovJsonImageError::KovJsonImageError(const std::string& file, uint32_t offset,
                                     const std::string& text, bool strictOnly)
    : std::runtime_error(file + ": " + offsetText(offset) + text),
      file(file),
      offset(offset),
      text(text),
      strictOnly(strictOnly) {}

std::vector<KovJsonWalkFault> kovJsonWalkFaults(const CKovJsonLayout& layout,
                                                const KovJsonWalk& walk, bool strict) {
  std::vector<KovJsonWalkFault> faults;
  std::map<uint32_t, uint32_t> seen;  // KOV name -> offset of its first instance
  for (const KovJsonInstance& inst : walk.instances) {
    const KovJsonBlock* blk = layout.FindBlockByKovType(inst.kovType);
    uint32_t name = kovGetKovName(inst.kovType, inst.kovID);
    if (blk == nullptr ||
        (!blk->multi && blk->kind != KovJsonBlkKind::DistKls && blk->kovID != inst.kovID)) {
      faults.push_back(
          {inst.offset,
           kovFormat("KOV name 0x%08X belongs to no block of %s", name, layout.GetFile().c_str()),
           false});
      continue;
    }
    auto [it, first] = seen.emplace(name, inst.offset);
    if (strict && !first) {
      faults.push_back({inst.offset,
                        kovFormat("KOV name 0x%08X of block '%s' is given twice (first at "
                                  "offset 0x%06X)",
                                  name, blk->name.c_str(), it->second),
                        true});
    }
  }
  return faults;
}

Json kovJsonUnpackFile(const CKovJsonLayout& layout, const std::vector<uint8_t>& bytes,
                       bool prefixes, const std::string& file, const std::string& reportPath,
                       bool strict) {
  KovValueTape values;
  kovJsonUnpackFileValues(layout, bytes, prefixes, file, reportPath, strict, values);
  return values.ToJson(values.Root());
}

void kovJsonUnpackFileValues(const CKovJsonLayout& layout, const std::vector<uint8_t>& bytes,
                             bool prefixes, const std::string& file, const std::string& reportPath,
                             bool strict, KovValueTape& values) {
  KovJsonWalk walk = kovJsonWalkImage(bytes, prefixes);
  if (!walk.damage.empty()) throw KovJsonImageError(file, walk.damageOffset, walk.damage);
  if (walk.instances.empty()) throw KovJsonImageError(file, kKovJsonNoOffset, "the image is empty");
  InstanceMap map(layout, walk);
  for (size_t i = 0; i < walk.instances.size(); ++i) {
    const KovJsonInstance& inst = walk.instances[i];
    if (inst.storedCrc != inst.dataCrc) {
      throw KovJsonImageError(file, inst.offset,
                              kovFormat("%s has checksum 0x%04X, but its data gives 0x%04X",
                                        map.Label(i).c_str(), inst.storedCrc, inst.dataCrc));
    }
  }
  std::vector<KovJsonWalkFault> faults = kovJsonWalkFaults(layout, walk, strict);
  if (!faults.empty()) {
    throw KovJsonImageError(file, faults[0].offset, faults[0].text, faults[0].twice);
  }
  if (strict) {
    // A listlet's configuration: link to the next listlet (4 bytes), then its quantity (2).
    for (size_t i = 0; i < walk.instances.size(); ++i) {
      const KovJsonInstance& inst = walk.instances[i];
      const KovJsonBlock* blk = layout.FindBlockByKovType(inst.kovType);
      if (blk == nullptr || blk->kind != KovJsonBlkKind::DistKls || inst.size < 2 + 6) continue;
      uint32_t at = inst.offset + kHdrSz + 4;
      uint16_t qty = static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]);
      if (qty > blk->listletMax) {
        throw KovJsonImageError(file, inst.offset,
                                kovFormat("%s holds %u entries, above the listletMax of %u",
                                          map.Label(i).c_str(), qty, blk->listletMax),
                                true);
      }
    }
  }
  std::vector<uint8_t> plain = prefixes ? kovJsonWithoutPrefixes(bytes, walk) : bytes;
  CKovUp up(layout.GetCpLayout(), plain, reportPath);
  try {
    up.FullUnpack();
  } catch (CMevGenException* e) {
    std::string text = kovJsonNamedText(layout.GetBlocks(), e->GetMessage());
    delete e;
    throw KovJsonImageError(file, map.OffsetNamedIn(text), text);
  }
  // Room for a value per two bytes of the image, as a layout of small fields holds; a denser
  // image grows the tree as it goes.
  values.Reserve(plain.size() / 2);
  kovJsonWriteUnpackedValues(layout, up, values);
  if (strict) checkRepack(layout, values, plain, walk, map, file);
}
