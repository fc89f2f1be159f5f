#include "kovjson/fieldwalk.h"

#include <algorithm>
#include <cstdio>

#include "kovjson/jsonvalues.h"

namespace {

using Json = nlohmann::ordered_json;

// The headers of a walk made over the instances of hdrWalk packed without their prefixes become
// those of the image with them, in the same order.
void PrefixHeaders(KovJsonFieldWalk& walk, const KovJsonWalk& hdrWalk) {
  for (size_t k = 0; k < walk.hdrs.size() && k < hdrWalk.instances.size(); ++k) {
    walk.hdrs[k].at = hdrWalk.instances[k];
  }
  walk.prefixes = true;
  walk.imageBits = 0;
  if (!hdrWalk.instances.empty()) {
    const KovJsonInstance& last = hdrWalk.instances.back();
    walk.imageBits = (uint64_t{last.offset} + 6 + last.size) * 8;
  }
}

class Walker {
 public:
  Walker(const CKovJsonLayout& layout, const CKovUp& up, KovJsonFieldWalk& walk)
      : layout(layout), up(up), walk(walk) {
    const CKovImage* image = up.GetImage();
    if (image != nullptr)
      bytes.assign(image->GetBytesArray(), image->GetBytesArray() + image->GetSize());
  }

  void Run() {
    walk.imageBits = uint64_t{bytes.size()} * 8;
    Headers();
    for (const KovJsonBlock& blk : layout.GetBlocks()) {
      const CKovUpStdBlk* read = up.GetUnpackedBlk(blk.id);
      if (read == nullptr) continue;
      int qty = read->GetBlkInstanceQty();
      for (int i = 1; i <= qty; ++i) Instance(blk, read, i, qty);
    }
  }

  // The instances one at a time, each handed to each and then dropped; in image order, those
  // whose header the walk can't name first, the others by the offset of their header.
  void RunEach(bool imageOrder, const KovJsonWalk* prefixed, const KovJsonEachInstance& each) {
    walk.imageBits = uint64_t{bytes.size()} * 8;
    Headers();
    struct Item {
      uint64_t at;
      const KovJsonBlock* blk;
      const CKovUpStdBlk* read;
      int i, qty;
    };
    std::vector<Item> items;
    for (const KovJsonBlock& blk : layout.GetBlocks()) {
      const CKovUpStdBlk* read = up.GetUnpackedBlk(blk.id);
      if (read == nullptr) continue;
      int qty = read->GetBlkInstanceQty();
      for (int i = 1; i <= qty; ++i) {
        int h = imageOrder ? InstanceHdr(blk, i) : -1;
        items.push_back({h >= 0 ? walk.hdrs[h].at.offset + uint64_t{1} : 0, &blk, read, i, qty});
      }
    }
    if (imageOrder) {
      std::stable_sort(items.begin(), items.end(),
                       [](const Item& a, const Item& b) { return a.at < b.at; });
    }
    // The walk runs on the headers of the bytes unpacked; what each sees has those of the image.
    KovJsonFieldWalk shown;
    shown.hdrs = walk.hdrs;
    shown.hdrDamage = walk.hdrDamage;
    shown.hdrDamageOffset = walk.hdrDamageOffset;
    shown.imageBits = walk.imageBits;
    if (prefixed != nullptr) PrefixHeaders(shown, *prefixed);
    size_t base = 0;
    for (const Item& it : items) {
      walk.nodes.clear();
      Instance(*it.blk, it.read, it.i, it.qty);
      shown.nodes.swap(walk.nodes);
      if (prefixed != nullptr) kovJsonMapWalk(shown, prefixed->instances);
      each(shown, base);
      base += shown.nodes.size();
      shown.nodes.swap(walk.nodes);
    }
    walk = std::move(shown);
    walk.nodes.clear();
  }

 private:
  void Headers() {
    KovJsonWalk hw = kovJsonWalkImage(bytes, false);
    walk.hdrDamage = hw.damage;
    walk.hdrDamageOffset = hw.damageOffset;
    // Header address -> instance number, from what the unpack kept of each block.
    CKovMap<uint32_t, uint16_t> instanceAt;
    for (const auto& kv : up.GetBlockAddrMap()) {
      const std::vector<uint32_t>* addrs = kv.second;
      if (addrs == nullptr) continue;
      for (size_t i = 1; i < addrs->size(); ++i) {
        instanceAt.SetAt((*addrs)[i], static_cast<uint16_t>(i));
      }
    }
    for (const KovJsonInstance& in : hw.instances) {
      KovJsonHdr h;
      h.at = in;
      h.blk = FindBlk(in.kovType, in.kovID);
      if (h.blk == nullptr) {
        h.label = kovFormat("0x%04X%04X", in.kovType, in.kovID);
      } else if (h.blk->kind == KovJsonBlkKind::DistKls) {
        h.listlet = in.kovID;
        h.label = kovFormat("%s, listlet %u", h.blk->name.c_str(), in.kovID);
      } else {
        uint16_t n = 0;
        h.instance = instanceAt.Lookup(in.offset, n) ? n : 0;
        h.label = h.blk->name + (h.blk->multi ? kovFormat("[%u]", h.instance) : "");
      }
      walk.hdrs.push_back(std::move(h));
    }
  }

  const KovJsonBlock* FindBlk(uint16_t kovType, uint16_t kovID) const {
    for (const KovJsonBlock& b : layout.GetBlocks()) {
      if (b.kovType != kovType) continue;
      if (b.multi || b.kind == KovJsonBlkKind::DistKls || b.kovID == kovID) return &b;
    }
    return nullptr;
  }

  int HdrOf(uint64_t bitIndex) const {
    uint64_t byte = bitIndex / 8;
    auto it = std::upper_bound(walk.hdrs.begin(), walk.hdrs.end(), byte,
                               [](uint64_t b, const KovJsonHdr& h) { return b < h.at.offset; });
    if (it == walk.hdrs.begin()) return -1;
    --it;
    if (byte >= uint64_t{it->at.offset} + 6 + it->at.size) return -1;
    return static_cast<int>(it - walk.hdrs.begin());
  }

  // The header of instance i of blk, when the instance has one of its own; -1 otherwise.
  int InstanceHdr(const KovJsonBlock& blk, int i) const {
    if (blk.kind == KovJsonBlkKind::DistKls) return -1;
    const std::vector<uint32_t>* const* addrs = up.GetBlockAddrMap().PLookup(blk.id);
    if (addrs == nullptr || *addrs == nullptr || static_cast<size_t>(i) >= (*addrs)->size()) {
      return -1;
    }
    int h = HdrOf(uint64_t{(**addrs)[i]} * 8);
    return h >= 0 && walk.hdrs[h].at.offset == (**addrs)[i] ? h : -1;
  }

  int Add(KovJsonNode node) {
    walk.nodes.push_back(std::move(node));
    return static_cast<int>(walk.nodes.size() - 1);
  }

  // Widens the span of node and its ancestors to hold [bitIndex, bitIndex + bits).
  void Span(int node, uint64_t bitIndex, uint64_t bits) {
    for (; node >= 0; node = walk.nodes[node].parent) {
      KovJsonNode& n = walk.nodes[node];
      if (n.kind == KovJsonNodeKind::Instance && n.placed) break;
      uint64_t end = bitIndex + bits;
      if (n.placed) {
        uint64_t start = std::min(n.bitIndex, bitIndex);
        end = std::max(end, n.bitIndex + n.bits);
        n.bitIndex = start;
      } else {
        n.bitIndex = bitIndex;
        n.placed = true;
      }
      n.bits = static_cast<uint32_t>(std::min<uint64_t>(end - n.bitIndex, UINT32_MAX));
      if (n.hdr < 0) n.hdr = HdrOf(n.bitIndex);
    }
  }

  void Instance(const KovJsonBlock& blk, const CKovUpStdBlk* read, int i, int qty) {
    KovJsonNode node;
    node.kind = KovJsonNodeKind::Instance;
    node.blk = &blk;
    node.instance = static_cast<uint16_t>(i);
    node.name = blk.multi || qty > 1 ? kovFormat("%s[%d]", blk.name.c_str(), i) : blk.name;
    node.path = node.name;
    node.text = kovFormat("instance %d", i);
    // An instance of its own header spans header, data and checksum.
    int h = InstanceHdr(blk, i);
    if (h >= 0) {
      node.hdr = h;
      node.placed = true;
      node.bitIndex = uint64_t{walk.hdrs[h].at.offset} * 8;
      node.bits = (6u + walk.hdrs[h].at.size) * 8;
    }
    int at = Add(std::move(node));
    Entry(blk.fields, read->GetUpEntry(i), at);
  }

  void Entry(const std::vector<KovJsonField>& fields, const CKovUpEntry* entry, int parent) {
    if (entry == nullptr) return;
    for (const KovJsonField& f : fields) {
      CKovUpField* const* field = entry->GetUpFieldMap().PLookup(f.id);
      if (field == nullptr || *field == nullptr || (*field)->GetData() == nullptr) continue;
      Field(f, (*field)->GetData(), parent);
    }
  }

  KovJsonNode Child(KovJsonNodeKind kind, int parent, const std::string& name, bool dot = true) {
    KovJsonNode n;
    const KovJsonNode& p = walk.nodes[parent];
    n.kind = kind;
    n.parent = parent;
    n.depth = p.depth + 1;
    n.blk = p.blk;
    n.instance = p.instance;
    n.name = name;
    n.path = p.path + (dot ? "." : "") + name;
    return n;
  }

  void Field(const KovJsonField& f, const CKovField* v, int parent) {
    if (v->IsList()) {
      auto list = static_cast<const CKovListField*>(v)->GetUpEntryList();
      KovJsonNode n = Child(KovJsonNodeKind::List, parent, f.name);
      n.field = &f;
      n.text = kovFormat("%d entr%s", list ? list->GetCount() : 0,
                         list && list->GetCount() == 1 ? "y" : "ies");
      int at = Add(std::move(n));
      if (list == nullptr) return;
      int k = 0;
      for (const CKovUpEntry* e : *list) {
        ++k;
        KovJsonNode en = Child(KovJsonNodeKind::Entry, at, kovFormat("[%d]", k), false);
        en.name = kovFormat("%s[%d]", f.name.c_str(), k);
        en.field = &f;
        int eat = Add(std::move(en));
        Entry(f.entry, e, eat);
      }
      return;
    }
    if (v->IsUnion()) {
      auto u = static_cast<const CKovUnionField*>(v);
      const KovJsonOption* option = f.FindOption(u->GetLayoutID());
      KovJsonNode n = Child(KovJsonNodeKind::Union, parent, f.name);
      n.field = &f;
      n.text = option != nullptr ? option->name : kovFormat("option %u", u->GetLayoutID());
      int at = Add(std::move(n));
      if (option == nullptr) return;
      KovJsonNode on = Child(KovJsonNodeKind::Option, at, option->name);
      on.field = &f;
      on.option = option;
      int oat = Add(std::move(on));
      Entry(option->fields, u->GetUpEntry(), oat);
      return;
    }
    KovJsonNode n = Child(KovJsonNodeKind::Value, parent, f.name);
    n.field = &f;
    n.bitIndex = uint64_t{v->GetByteOffsetInImage()} * 8 + 7 - v->GetStartMsbInImage();
    n.bits = v->GetImageSize();
    n.placed = true;
    n.hdr = HdrOf(n.bitIndex);
    n.raw = kovJsonRawBits(bytes, n.bitIndex, n.bits);
    Primitive(f, v, n);
    uint64_t bitIndex = n.bitIndex, bits = n.bits;
    Add(std::move(n));
    Span(parent, bitIndex, bits);
  }

  void Primitive(const KovJsonField& f, const CKovField* v, KovJsonNode& n) {
    n.value = kovJsonUnpackedValue(layout, up, f, v);
    n.text = kovJsonValueText(f, n.value);
  }

  const CKovJsonLayout& layout;
  const CKovUp& up;
  KovJsonFieldWalk& walk;
  std::vector<uint8_t> bytes;
};

}  // namespace

KovJsonFieldWalk kovJsonWalkFields(const CKovJsonLayout& layout, const CKovUp& up) {
  KovJsonFieldWalk walk;
  Walker(layout, up, walk).Run();
  return walk;
}

void kovJsonMapWalk(KovJsonFieldWalk& walk, const std::vector<KovJsonInstance>& from) {
  std::vector<uint64_t> starts;  // the first bit of each instance where the walk was made
  uint64_t at = 0;
  for (const KovJsonInstance& in : from) {
    starts.push_back(at);
    at += (uint64_t{6} + in.size) * 8;
  }
  for (KovJsonNode& n : walk.nodes) {
    if (!n.placed) continue;
    size_t k = std::upper_bound(starts.begin(), starts.end(), n.bitIndex) - starts.begin();
    if (k > 0) n.bitIndex = n.bitIndex - starts[k - 1] + uint64_t{from[k - 1].offset} * 8;
    n.hdr = k > 0 ? static_cast<int>(k - 1) : -1;
  }
}

KovJsonFieldWalk kovJsonWalkFieldsWithPrefixes(const CKovJsonLayout& layout, const CKovUp& up,
                                               const KovJsonWalk& hdrWalk) {
  KovJsonFieldWalk walk = kovJsonWalkFields(layout, up);
  kovJsonMapWalk(walk, hdrWalk.instances);
  PrefixHeaders(walk, hdrWalk);
  return walk;
}

void kovJsonWalkFieldsEach(const CKovJsonLayout& layout, const CKovUp& up,
                           const KovJsonWalk* hdrWalk, bool imageOrder, KovJsonFieldWalk& walk,
                           const KovJsonEachInstance& each) {
  walk = KovJsonFieldWalk();
  Walker(layout, up, walk).RunEach(imageOrder, hdrWalk, each);
}

std::vector<int> kovJsonValuesInImageOrder(const KovJsonFieldWalk& walk) {
  std::vector<int> order;
  for (size_t i = 0; i < walk.nodes.size(); ++i) {
    if (walk.nodes[i].kind == KovJsonNodeKind::Value) order.push_back(static_cast<int>(i));
  }
  std::stable_sort(order.begin(), order.end(),
                   [&](int a, int b) { return walk.nodes[a].bitIndex < walk.nodes[b].bitIndex; });
  return order;
}

std::string kovJsonValueText(const KovJsonField& f, const Json& value) {
  switch (f.kind) {
    case KovJsonKind::Char:
      return value.is_string() ? "'" + value.get<std::string>() + "'"
                               : kovFormat("0x%02X", value.get<uint32_t>());
    case KovJsonKind::Name:
      return value.is_object() ? kovFormat("%s[%u]", value["block"].get<std::string>().c_str(),
                                           value["instance"].get<uint32_t>())
                               : kovFormat("0x%08X", value.get<uint32_t>());
    case KovJsonKind::Number:
      // An enum name or a decimal text stands bare; numbers and lists of flags as JSON.
      return value.is_string() ? value.get<std::string>() : value.dump();
    default:
      return value.dump();
  }
}

std::string kovJsonRawBits(const std::vector<uint8_t>& bytes, uint64_t bitIndex, uint32_t bits) {
  if (bitIndex > uint64_t{bytes.size()} * 8 || bits > uint64_t{bytes.size()} * 8 - bitIndex) {
    return "";
  }
  static const char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve((bits + 3) / 4);
  // The first digit takes bits % 4 bits (4 when that is 0), the others 4 each.
  uint32_t lead = bits % 4 == 0 ? 4 : bits % 4;
  uint64_t at = bitIndex;
  for (uint32_t done = 0; done < bits;) {
    uint32_t take = done == 0 ? std::min(lead, bits) : 4;
    unsigned digit = 0;
    for (uint32_t k = 0; k < take; ++k, ++at) {
      digit = digit << 1 | ((bytes[at >> 3] >> (7 - (at & 7))) & 1u);
    }
    out += kHex[digit];
    done += take;
  }
  return out;
}

bool kovJsonSplitPath(const std::string& path, std::vector<KovJsonPathStep>& steps) {
  steps.clear();
  size_t i = 0;
  while (i <= path.size()) {
    size_t dot = path.find('.', i);
    std::string step = path.substr(i, dot == std::string::npos ? std::string::npos : dot - i);
    KovJsonPathStep s;
    size_t open = step.find('[');
    if (open != std::string::npos) {
      if (step.back() != ']' || open + 2 > step.size() - 1) return false;
      std::string digits = step.substr(open + 1, step.size() - open - 2);
      if (digits.empty() || digits.size() > 9 ||
          digits.find_first_not_of("0123456789") != std::string::npos) {
        return false;
      }
      s.index = static_cast<uint32_t>(std::stoul(digits));
      if (s.index == 0) return false;
      step.resize(open);
    }
    if (step.empty()) return false;
    s.name = step;
    steps.push_back(std::move(s));
    if (dot == std::string::npos) break;
    i = dot + 1;
  }
  return !steps.empty();
}
