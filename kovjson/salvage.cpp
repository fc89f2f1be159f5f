#include "kovjson/salvage.h"

#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>

#include "kovjson/valuepath.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr uint32_t kHdrSz = 6;
constexpr uint32_t kChecksumSz = 2;
constexpr uint32_t kPrefixSz = 2;

uint16_t readU16BE(const std::vector<uint8_t>& bytes, uint32_t at) {
  return static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

// The messages the library shows while a salvage unpacks: the unpack's refusals are what
// counts, so they are kept from the user's screen and dropped.
std::vector<std::string>* heldMessages = nullptr;
void holdMessage(const std::string& text) {
  if (heldMessages != nullptr) heldMessages->push_back(text);
}

class Salvager {
 public:
  Salvager(const CKovJsonLayout& layout, const std::vector<uint8_t>& bytes, bool prefixes,
           KovJsonSalvage& out)
      : layout(layout),
        bytes(bytes),
        out(out),
        len(static_cast<uint32_t>(std::min<size_t>(bytes.size(), 0xFFFFFFFFu))),
        pre(prefixes ? kPrefixSz : 0) {
    for (const KovJsonBlock& b : layout.GetBlocks()) byType.emplace(b.kovType, &b);
  }

  void Run() {
    Scan();
    Unpack();
    std::sort(out.faults.begin(), out.faults.end(),
              [](const KovJsonFault& a, const KovJsonFault& b) { return a.offset < b.offset; });
  }

 private:
  const KovJsonBlock* Known(uint16_t kovType, uint16_t kovID) const {
    auto range = byType.equal_range(kovType);
    for (auto it = range.first; it != range.second; ++it) {
      const KovJsonBlock* b = it->second;
      if (b->multi || b->kind == KovJsonBlkKind::DistKls || b->kovID == kovID) return b;
    }
    return nullptr;
  }

  // The header at p, with the partition prefix in front of it when the image has prefixes.
  KovJsonInstance HdrAt(uint32_t p) const {
    KovJsonInstance in;
    in.offset = p;
    if (pre != 0) in.partition = readU16BE(bytes, p - kPrefixSz);
    in.kovType = readU16BE(bytes, p);
    in.kovID = readU16BE(bytes, p + 2);
    in.size = readU16BE(bytes, p + 4);
    return in;
  }

  // An instance at p (its prefix, then its header) with a known name and a size that holds the
  // checksum and fits; with crc, its checksum holds too.
  bool Plausible(uint32_t p, bool crc) const {
    if (p > len || len - p < pre + kHdrSz + kChecksumSz) return false;
    KovJsonInstance in = HdrAt(p + pre);
    if (Known(in.kovType, in.kovID) == nullptr) return false;
    if (in.size < kChecksumSz || in.size > len - p - pre - kHdrSz) return false;
    if (!crc) return true;
    Check(in);
    return in.storedCrc == in.dataCrc;
  }

  void Check(KovJsonInstance& in) const {
    kovCalculateChecksum(bytes.data() + in.offset + kHdrSz, in.size - kChecksumSz, in.dataCrc);
    in.storedCrc = readU16BE(bytes, in.offset + kHdrSz + in.size - kChecksumSz);
  }

  // The next plausible header from p on; len when there is none. Each candidate costs a compare
  // of its KOV name; only a known one costs a checksum.
  uint32_t Resync(uint32_t p) const {
    for (; p < len; ++p) {
      if (Plausible(p, true)) return p;
    }
    return len;
  }

  void Fault(uint32_t offset, KovJsonFaultKind kind, std::string text) {
    out.faults.push_back({offset, kind, std::move(text)});
  }

  // A whole instance may still be too large for a standard block of the layout.
  static bool SizeFits(const KovJsonBlock* b, uint16_t size) {
    return b->kind != KovJsonBlkKind::Standard || b->maxDataSize == 0 ||
           size <= b->maxDataSize + kChecksumSz;
  }

  void Scan() {
    if (len == 0) Fault(0, KovJsonFaultKind::Truncated, "the image is empty");
    // Bound: every step moves pos on by at least one byte.
    uint32_t pos = 0;
    while (pos < len) {
      if (len - pos < pre + kHdrSz) {
        if (Retreat(pos)) continue;
        Fault(pos, KovJsonFaultKind::Truncated,
              kovFormat("header cut short: %u bytes left where a header needs %u", len - pos,
                        pre + kHdrSz));
        break;
      }
      // Faults of an instance stand at its header, behind the prefix.
      const uint32_t at = pos + pre;
      KovJsonInstance in = HdrAt(at);
      uint32_t name = uint32_t{in.kovType} << 16 | in.kovID;
      const KovJsonBlock* blk = Known(in.kovType, in.kovID);
      if (blk == nullptr) {
        if (Retreat(pos)) continue;
        Fault(at, KovJsonFaultKind::UnknownName,
              kovFormat("KOV name 0x%08X is not one of the layout", name));
        pos = Resync(pos + 1);
        continue;
      }
      if (in.size < kChecksumSz) {
        if (Retreat(pos)) continue;
        Fault(at, KovJsonFaultKind::SizeBelow2,
              kovFormat("%s: size %u cannot hold the 2 bytes of its checksum", blk->name.c_str(),
                        in.size));
        pos = Resync(pos + 1);
        continue;
      }
      if (in.size > len - at - kHdrSz) {
        if (Retreat(pos)) continue;
        uint32_t left = len - at - kHdrSz;
        if (SizeFits(blk, in.size)) {
          Fault(at, KovJsonFaultKind::Truncated,
                kovFormat("%s: the image ends %u bytes into its size of %u", Label(blk, in).c_str(),
                          left, in.size));
        } else {
          Fault(at, KovJsonFaultKind::SizePastEnd,
                kovFormat("%s: size %u runs past the end of the image (%u bytes left)",
                          blk->name.c_str(), in.size, left));
        }
        pos = Resync(pos + 1);
        continue;
      }
      Check(in);
      if (in.storedCrc != in.dataCrc) {
        if (Retreat(pos)) continue;
        Fault(at, KovJsonFaultKind::BadChecksum,
              kovFormat("%s: checksum 0x%04X, but the data gives 0x%04X", Label(blk, in).c_str(),
                        in.storedCrc, in.dataCrc));
        out.lost.push_back(in);
        whole.push_back(in);
        // The size may be what is damaged: look for the next sound header from the next byte.
        pos = Resync(pos + 1);
        continue;
      }
      whole.push_back(in);
      sound.push_back(in);
      pos = at + kHdrSz + in.size;
      lastEnd = pos;
    }
    Duplicates();
  }

  // A size made larger by damage can still give a sound instance: the checksum of data followed
  // by the high byte of its checksum is the low byte followed by 0x00, so one byte more holds
  // when the byte behind the checksum is 0x00 (a prefix, a KOV type below 0x0100). When a fault
  // stands right behind the last instance taken and a sound instance starts inside that one, its
  // size is what is damaged: it is a fault, and the scan goes on at the instance inside. True
  // when so; pos is then that instance's start. Bound: each instance taken is searched once.
  bool Retreat(uint32_t& pos) {
    if (sound.empty() || lastEnd != pos) return false;
    lastEnd = UINT32_MAX;
    const KovJsonInstance last = sound.back();
    for (uint32_t p = last.offset - pre + 1; p < pos; ++p) {
      if (!Plausible(p, true)) continue;
      sound.pop_back();
      out.lost.push_back(last);
      Fault(last.offset, KovJsonFaultKind::Overlap,
            kovFormat("%s: size %u reaches into the instance at 0x%06X",
                      Label(Known(last.kovType, last.kovID), last).c_str(), last.size, p + pre));
      pos = p;
      return true;
    }
    return false;
  }

  // Of the sound instances that share a KOV name one is kept: for a multi-instance block or a
  // listlet the one whose id is its rank among the whole instances of its block (as the pack
  // numbers them), else the first.
  void Duplicates() {
    std::map<uint16_t, uint32_t> rankOf;  // block id -> whole instances seen
    std::map<uint32_t, uint32_t> rank;    // header offset -> its rank
    for (const KovJsonInstance& in : whole)
      rank[in.offset] = rankOf[Known(in.kovType, in.kovID)->id]++;
    std::map<uint32_t, std::vector<size_t>> byName;
    for (size_t i = 0; i < sound.size(); ++i) {
      byName[uint32_t{sound[i].kovType} << 16 | sound[i].kovID].push_back(i);
    }
    std::vector<bool> drop(sound.size(), false);
    for (const auto& kv : byName) {
      if (kv.second.size() < 2) continue;
      size_t keep = kv.second.front();
      const KovJsonBlock* blk = Known(sound[keep].kovType, sound[keep].kovID);
      if (blk->multi || blk->kind == KovJsonBlkKind::DistKls) {
        for (size_t i : kv.second) {
          if (rank[sound[i].offset] == sound[i].kovID) keep = i;
        }
      }
      for (size_t i : kv.second) {
        if (i == keep) continue;
        drop[i] = true;
        Fault(sound[i].offset, KovJsonFaultKind::Duplicate,
              kovFormat("%s: KOV name 0x%08X is also at offset 0x%06X",
                        Label(blk, sound[i]).c_str(), kv.first, sound[keep].offset));
        out.lost.push_back(sound[i]);
      }
    }
    // A KOV id other than its rank: the header may be damaged, or the image numbered otherwise.
    std::set<uint32_t> dropped;
    for (size_t i = 0; i < sound.size(); ++i) {
      if (drop[i]) dropped.insert(sound[i].offset);
    }
    for (const KovJsonInstance& in : whole) {
      if (dropped.count(in.offset) != 0) continue;
      const KovJsonBlock* blk = Known(in.kovType, in.kovID);
      if ((blk->multi || blk->kind == KovJsonBlkKind::DistKls) && rank[in.offset] != in.kovID) {
        Fault(in.offset, KovJsonFaultKind::OutOfSequence,
              kovFormat("%s: KOV id %u where the %s in image order has %u", Label(blk, in).c_str(),
                        in.kovID, blk->multi ? "instance" : "listlet", rank[in.offset]));
      }
    }
    size_t k = 0;
    for (size_t i = 0; i < sound.size(); ++i) {
      if (!drop[i]) sound[k++] = sound[i];
    }
    sound.resize(k);
  }

  std::string Label(const KovJsonBlock* blk, const KovJsonInstance& in) const {
    if (blk->kind == KovJsonBlkKind::DistKls) {
      return kovFormat("%s, listlet %u", blk->name.c_str(), in.kovID);
    }
    return blk->multi ? kovFormat("%s[%u]", blk->name.c_str(), in.kovID + 1u) : blk->name;
  }

  // The image of the given instances, in their order.
  std::vector<uint8_t> ImageOf(const std::vector<KovJsonInstance>& ins) const {
    std::vector<uint8_t> img;
    for (const KovJsonInstance& in : ins) {
      img.insert(img.end(), bytes.begin() + in.offset,
                 bytes.begin() + in.offset + kHdrSz + in.size);
    }
    return img;
  }

  // Unpacks the instances; null with the library's text when it refuses them.
  std::unique_ptr<CKovUp> TryUnpack(const std::vector<KovJsonInstance>& ins,
                                    std::string& why) const {
    std::vector<uint8_t> img = ImageOf(ins);
    if (img.empty()) {
      why = "nothing left to read";
      return nullptr;
    }
    std::vector<std::string> messages;
    heldMessages = &messages;
    KovMessageBoxHandler previous = kovSetMessageBoxHandler(holdMessage);
    auto up = std::make_unique<CKovUp>(layout.GetCpLayout(), img, "");
    try {
      up->FullUnpack();
    } catch (CMevGenException* e) {
      why = e->GetMessage();
      delete e;
      std::replace(why.begin(), why.end(), '\n', ' ');
      up.reset();
    }
    kovSetMessageBoxHandler(previous);
    heldMessages = nullptr;
    return up;
  }

  // The group of a block: a distributed list goes with its header block.
  uint16_t GroupOf(const KovJsonBlock* blk) const {
    if (blk->kind == KovJsonBlkKind::DistKls) return blk->pairBlkID;
    return blk->id;
  }

  void Unpack() {
    std::string why;
    std::vector<KovJsonInstance> use = sound;
    std::unique_ptr<CKovUp> up = TryUnpack(use, why);
    if (up == nullptr && !use.empty()) {
      // Groups in image order of their first instance, each kept when the library reads it with
      // those kept before; the ones refused get a second try behind the others.
      std::vector<uint16_t> order;
      std::map<uint16_t, std::vector<KovJsonInstance>> groups;
      for (const KovJsonInstance& in : sound) {
        uint16_t g = GroupOf(Known(in.kovType, in.kovID));
        if (groups.count(g) == 0) order.push_back(g);
        groups[g].push_back(in);
      }
      std::vector<KovJsonInstance> kept;
      std::vector<uint16_t> refused;
      auto attempt = [&](uint16_t g, std::string& text) {
        std::vector<KovJsonInstance> trial = kept;
        trial.insert(trial.end(), groups[g].begin(), groups[g].end());
        std::sort(
            trial.begin(), trial.end(),
            [](const KovJsonInstance& a, const KovJsonInstance& b) { return a.offset < b.offset; });
        if (TryUnpack(trial, text) == nullptr) return false;
        kept = std::move(trial);
        return true;
      };
      for (uint16_t g : order) {
        std::string text;
        if (!attempt(g, text)) refused.push_back(g);
      }
      for (uint16_t g : refused) {
        std::string text;
        if (attempt(g, text)) continue;
        const std::vector<KovJsonInstance>& ins = groups[g];
        const KovJsonBlock* blk = Known(ins.front().kovType, ins.front().kovID);
        bool chain = blk->kind == KovJsonBlkKind::Header || blk->kind == KovJsonBlkKind::DistKls;
        Fault(ins.front().offset,
              chain ? KovJsonFaultKind::BrokenChain : KovJsonFaultKind::Unreadable,
              kovFormat("%s: %zu sound instance%s left out: %s", blk->name.c_str(), ins.size(),
                        ins.size() == 1 ? "" : "s", text.c_str()));
        out.lost.insert(out.lost.end(), ins.begin(), ins.end());
      }
      use = std::move(kept);
      up = use.empty() ? nullptr : TryUnpack(use, why);
    }
    if (up == nullptr) use.clear();
    out.read = use;
    std::sort(
        out.lost.begin(), out.lost.end(),
        [](const KovJsonInstance& a, const KovJsonInstance& b) { return a.offset < b.offset; });
    if (up != nullptr) {
      out.walk = kovJsonWalkFields(layout, *up);
      MapBack(out.walk, use);
    }
    out.up = std::move(up);
    out.walk.imageBits = uint64_t{len} * 8;
    Headers(use);
  }

  // Moves the places of walk from the image of the instances ins to the damaged image, and
  // numbers the instances of multi-instance blocks by their KOV ids.
  void MapBack(KovJsonFieldWalk& walk, const std::vector<KovJsonInstance>& ins) {
    kovJsonMapWalk(walk, ins);
    // The header index of a node is now its index into ins. Renamed instances keep their old
    // path here, by node index, for the nodes under them.
    std::unordered_map<size_t, std::string> oldPath;
    for (size_t i = 0; i < walk.nodes.size(); ++i) {
      KovJsonNode& n = walk.nodes[i];
      if (n.kind == KovJsonNodeKind::Instance && n.blk->multi && n.hdr >= 0) {
        uint16_t number = static_cast<uint16_t>(ins[n.hdr].kovID + 1u);
        std::string path = kovFormat("%s[%u]", n.blk->name.c_str(), number);
        if (path == n.path) continue;
        oldPath[i] = n.path;
        n.instance = number;
        n.name = n.path = path;
        n.text = kovFormat("instance %u", number);
      }
    }
    RefsByKovName(walk, ins);
    if (oldPath.empty()) return;
    std::string from, to;
    for (size_t i = 0; i < walk.nodes.size(); ++i) {
      KovJsonNode& n = walk.nodes[i];
      if (n.kind == KovJsonNodeKind::Instance) {
        auto it = oldPath.find(i);
        from = it == oldPath.end() ? "" : it->second;
        to = n.path;
        continue;
      }
      if (!from.empty()) {
        n.path = to + n.path.substr(from.size());
        n.instance = walk.nodes[n.parent].instance;
      }
    }
  }

  // A name field that refers to an instance read reads as {"block", "instance"} with the
  // instance numbered from its KOV id, as the whole image would give it.
  void RefsByKovName(KovJsonFieldWalk& walk, const std::vector<KovJsonInstance>& ins) const {
    std::set<uint32_t> names;
    for (const KovJsonInstance& in : ins) names.insert(uint32_t{in.kovType} << 16 | in.kovID);
    for (KovJsonNode& n : walk.nodes) {
      if (n.kind != KovJsonNodeKind::Value || n.field->kind != KovJsonKind::Name ||
          n.field->bits != 32 || !n.value.is_number_unsigned()) {
        continue;
      }
      uint32_t name = n.value.get<uint32_t>();
      if (name == 0 || names.count(name) == 0) continue;
      const KovJsonBlock* blk = Known(static_cast<uint16_t>(name >> 16), name & 0xFFFF);
      if (blk == nullptr || blk->kind == KovJsonBlkKind::DistKls) continue;
      uint32_t instance = blk->multi ? (name & 0xFFFF) + 1 : 1;
      n.value = Json{{"block", blk->name}, {"instance", instance}};
      n.text = blk->multi ? kovFormat("%s[%u]", blk->name.c_str(), instance) : blk->name + "[1]";
    }
  }

  // Every whole instance of the scan as a header of the walk; the nodes' hdr indexes move along.
  void Headers(const std::vector<KovJsonInstance>& used) {
    std::vector<KovJsonHdr> hdrs;
    std::map<uint32_t, int> indexOf;
    for (const KovJsonInstance& in : whole) {
      KovJsonHdr h;
      h.at = in;
      h.blk = Known(in.kovType, in.kovID);
      h.label = Label(h.blk, in);
      if (h.blk->kind == KovJsonBlkKind::DistKls) {
        h.listlet = in.kovID;
      } else {
        h.instance = h.blk->multi ? static_cast<uint16_t>(in.kovID + 1u) : 1;
      }
      indexOf[in.offset] = static_cast<int>(hdrs.size());
      hdrs.push_back(std::move(h));
    }
    for (KovJsonNode& n : out.walk.nodes) {
      if (n.hdr >= 0) n.hdr = indexOf[used[n.hdr].offset];
    }
    out.walk.hdrs = std::move(hdrs);
    out.walk.hdrDamage.clear();
    out.walk.prefixes = pre != 0;
  }

  const CKovJsonLayout& layout;
  const std::vector<uint8_t>& bytes;
  KovJsonSalvage& out;
  const uint32_t len;
  const uint32_t pre;             // bytes of the partition prefix in front of each header: 0 or 2
  uint32_t lastEnd = UINT32_MAX;  // where the last instance taken ends, while the scan is there
  std::multimap<uint16_t, const KovJsonBlock*> byType;
  std::vector<KovJsonInstance> whole;  // every instance found whole, in image order
  std::vector<KovJsonInstance> sound;  // of those, the ones with a good checksum, once each
};

}  // namespace

const char* kovJsonFaultName(KovJsonFaultKind kind) {
  switch (kind) {
    case KovJsonFaultKind::Truncated:
      return "truncated";
    case KovJsonFaultKind::SizePastEnd:
      return "size past the end";
    case KovJsonFaultKind::SizeBelow2:
      return "size below 2";
    case KovJsonFaultKind::UnknownName:
      return "unknown KOV name";
    case KovJsonFaultKind::BadChecksum:
      return "bad checksum";
    case KovJsonFaultKind::Duplicate:
      return "duplicate";
    case KovJsonFaultKind::OutOfSequence:
      return "KOV id out of sequence";
    case KovJsonFaultKind::BrokenChain:
      return "broken listlet chain";
    case KovJsonFaultKind::Overlap:
      return "overlap";
    case KovJsonFaultKind::Unreadable:
      break;
  }
  return "unreadable";
}

std::unique_ptr<KovJsonSalvage> kovJsonSalvage(const CKovJsonLayout& layout,
                                               const std::vector<uint8_t>& bytes, bool prefixes) {
  auto out = std::make_unique<KovJsonSalvage>();
  Salvager(layout, bytes, prefixes, *out).Run();
  return out;
}

Json kovJsonSalvagedValues(const KovJsonSalvage& salvage) {
  Json root = Json::object();
  const KovJsonFieldWalk& walk = salvage.walk;
  for (size_t i = 0; i < walk.nodes.size(); ++i) {
    const KovJsonNode& n = walk.nodes[i];
    if (n.kind != KovJsonNodeKind::Instance) continue;
    // The pack generates a header block that has no fields of its own.
    if (n.blk->kind == KovJsonBlkKind::Header && n.blk->fields.empty()) continue;
    Json v = kovJsonNodeValues(walk, static_cast<int>(i));
    if (!n.blk->multi) {
      root[n.blk->name] = std::move(v);
      continue;
    }
    Json& arr = root[n.blk->name];
    if (!arr.is_array()) arr = Json::array();
    // Each gap stands for an instance lost to a fault, so no more gaps than faults: a damaged
    // KOV id far out of sequence would otherwise fill the file with empty instances.
    if (n.instance - 1 - arr.size() <= salvage.faults.size()) {
      while (arr.size() + 1 < n.instance) arr.push_back(Json::object());
    }
    if (arr.size() >= n.instance) {
      arr[n.instance - 1] = std::move(v);
    } else {
      arr.push_back(std::move(v));
    }
  }
  return root;
}
