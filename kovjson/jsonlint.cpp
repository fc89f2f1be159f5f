#include "kovjson/jsonlint.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <unordered_map>

namespace {

uint64_t maxForBits(uint32_t bits) { return bits >= 32 ? 0xFFFFFFFFu : (uint64_t{1} << bits) - 1; }

uint64_t cfgBits(const KovJsonBlock& blk) {
  switch (blk.kind) {
    case KovJsonBlkKind::Header:
      return 12 * 8;
    case KovJsonBlkKind::Kls:
      return 8 * 8;
    case KovJsonBlkKind::DistKls:
      return 6 * 8;
    case KovJsonBlkKind::Standard:
      break;
  }
  return 0;
}

uint64_t entryExtent(const std::vector<KovJsonField>& fields, uint64_t firstBit);

// The most bits a field can take.
uint64_t maxBits(const KovJsonField& f) {
  if (f.kind == KovJsonKind::List) return uint64_t{f.maxEntries} * f.entryBits;
  if (f.kind != KovJsonKind::Union) return f.bits;
  if (CKovUnionFieldLayout::IsFixedSzFormat(f.unionFormat)) return f.bits;
  uint64_t most = 0;
  for (const KovJsonOption& o : f.options) {
    most = std::max<uint64_t>(most, CKovUnionFieldLayout::IsPaddedFormat(f.unionFormat)
                                        ? o.bits
                                        : entryExtent(o.fields, 0));
  }
  return most;
}

using Placed = KovJsonPlaced;

bool isFixedSz(const KovJsonField& f) {
  if (f.kind == KovJsonKind::List) return f.listFormat == FixedSzNoLeq;
  if (f.kind == KovJsonKind::Union) return CKovUnionFieldLayout::IsFixedSzFormat(f.unionFormat);
  return true;
}

// listletMax, when not 0, caps the lists of the entry: a distributed block's instance is one
// listlet.
std::vector<Placed> place(const std::vector<KovJsonField>& fields, uint64_t firstBit,
                          uint32_t listletMax = 0) {
  std::vector<Placed> out;
  uint64_t prevEnd = firstBit;
  bool exact = true;
  for (const KovJsonField& f : fields) {
    // bit index = byte × 8 + 7 − MSB
    uint64_t start = f.fixed ? uint64_t{f.byteOffset} * 8 + 7 - f.msbStart : prevEnd + f.gap;
    uint64_t end = start + (listletMax != 0 && f.kind == KovJsonKind::List
                                ? uint64_t{std::min(listletMax, f.maxEntries)} * f.entryBits
                                : maxBits(f));
    // A floating field stands where it is said only behind fields of one size.
    exact = f.fixed || exact;
    out.push_back({&f, start, end, exact});
    exact = exact && isFixedSz(f);
    prevEnd = end;
  }
  return out;
}

uint64_t entryExtent(const std::vector<KovJsonField>& fields, uint64_t firstBit) {
  uint64_t end = 0;
  for (const Placed& p : place(fields, firstBit)) end = std::max(end, p.end);
  return end;
}

class Linter {
 public:
  explicit Linter(const CKovJsonLayout& layout)
      : layout(layout), byID(layout.GetFieldsByID()) {}

  std::vector<KovJsonLintFinding> Run() {
    for (const KovJsonBlock& blk : layout.GetBlocks()) {
      uint64_t limit = (uint64_t{blk.maxDataSize}) * 8 + cfgBits(blk);
      Scope(blk, blk.fields, cfgBits(blk), limit,
            kovFormat("the block's %llu bytes", static_cast<unsigned long long>(limit / 8)));
      if (blk.kind == KovJsonBlkKind::DistKls) Listlet(blk);
    }
    Cycles();
    return findings;
  }

 private:
  void Add(const std::string& at, const std::string& text) { findings.push_back({at, text}); }

  // The fields of one entry, within [firstBit, limit) (limit 0: no limit), then their own.
  void Scope(const KovJsonBlock& blk, const std::vector<KovJsonField>& fields, uint64_t firstBit,
             uint64_t limit, const std::string& what) {
    bool top = &fields == &blk.fields && blk.kind == KovJsonBlkKind::DistKls;
    std::vector<Placed> placed = place(fields, firstBit, top ? blk.listletMax : 0);
    for (const Placed& p : placed) {
      // A distributed block's list is measured as one listlet, by Listlet.
      if (limit != 0 && p.end > limit && !(top && p.field->kind == KovJsonKind::List)) {
        Add(p.field->at, kovFormat("the field can reach bit %llu, beyond %s",
                                   static_cast<unsigned long long>(p.end), what.c_str()));
      }
    }
    Overlaps(placed);
    for (const KovJsonField& f : fields) {
      if (f.kind == KovJsonKind::List) {
        Scope(blk, f.entry, 0, f.entryBits, "the entry's " + std::to_string(f.entryBits) + " bits");
      } else if (f.kind == KovJsonKind::Union) {
        bool fixedSz = CKovUnionFieldLayout::IsFixedSzFormat(f.unionFormat);
        bool padded = CKovUnionFieldLayout::IsPaddedFormat(f.unionFormat);
        for (const KovJsonOption& o : f.options) {
          uint64_t bits = fixedSz ? f.bits : padded ? o.bits : 0;
          Scope(blk, o.fields, 0, bits,
                (fixedSz ? "the union's " : "the option's ") + std::to_string(bits) + " bits");
        }
        Discriminants(f);
      }
    }
  }

  // Fixed fields whose bits meet; floating ones follow the field before them by construction.
  void Overlaps(std::vector<Placed> placed) {
    placed.erase(
        std::remove_if(placed.begin(), placed.end(),
                       [](const Placed& p) { return !p.field->fixed || p.end == p.start; }),
        placed.end());
    std::stable_sort(placed.begin(), placed.end(),
                     [](const Placed& a, const Placed& b) { return a.start < b.start; });
    const Placed* reach = nullptr;  // the field that reaches furthest so far
    for (const Placed& p : placed) {
      if (reach != nullptr && p.start < reach->end) {
        Add(p.field->at,
            kovFormat(
                "fields '%s' and '%s' overlap at bits %llu to %llu%s", reach->field->name.c_str(),
                p.field->name.c_str(), static_cast<unsigned long long>(p.start),
                static_cast<unsigned long long>(std::min(p.end, reach->end) - 1),
                reach->field->kind == KovJsonKind::List || reach->field->kind == KovJsonKind::Union
                    ? " when the first is at its largest"
                    : ""));
      }
      if (reach == nullptr || p.end > reach->end) reach = &p;
    }
  }

  void Listlet(const KovJsonBlock& blk) {
    const KovJsonField* list = nullptr;
    for (const KovJsonField& f : blk.fields) {
      if (f.kind == KovJsonKind::List) list = &f;
      for (const KovJsonOption& o : f.options) {
        if (!o.fields.empty() && o.fields[0].kind == KovJsonKind::List) list = &o.fields[0];
      }
    }
    if (list == nullptr) return;
    uint64_t need = uint64_t{blk.listletMax} * list->entryBits / 8;
    if (need > blk.maxDataSize) {
      Add(kovJsonPointerTo(blk.at, "maxDataSize"),
          kovFormat("a listlet of %u entries of %u bytes needs %llu bytes, above the block's %u",
                    blk.listletMax, list->entryBits / 8, static_cast<unsigned long long>(need),
                    blk.maxDataSize));
    }
  }

  // Case values that their discriminant can't hold.
  void Discriminants(const KovJsonField& u) {
    for (size_t i = 0; i < u.cases.size(); ++i) {
      for (size_t k = 0; k < u.cases[i].when.size() && k < u.discrs.size(); ++k) {
        auto it = byID.find(u.discrs[k].fieldID);
        if (it == byID.end()) continue;
        const KovJsonField& d = *it->second;
        const KovJsonDiscrValue& v = u.cases[i].when[k];
        std::string at = kovJsonPointerTo(
            kovJsonPointerTo(kovJsonPointerTo(kovJsonPointerTo(u.at, "select"), "cases"), i),
            "when");
        if (u.discrs.size() > 1) at = kovJsonPointerTo(at, k);
        std::string why;
        if (d.kind == KovJsonKind::String) {
          if (v.text.size() > d.chars) {
            why = kovFormat("%zu characters, but string '%s' holds %u", v.text.size(),
                            d.name.c_str(), d.chars);
          }
        } else if (d.kind == KovJsonKind::Char && d.charType == CKovCharFieldLayout::Char4Bit) {
          if (v.number < '0' || v.number > '?') {
            why = "a 4-bit character holds a digit, '0' to '9', in '" + d.name + "'";
          }
        } else if (v.number > maxForBits(d.bits)) {
          why =
              kovFormat("%u needs more than the %u bits of '%s'", v.number, d.bits, d.name.c_str());
        }
        if (!why.empty()) Add(at, "this case can never match: " + why);
      }
    }
  }

  // Fields that wait for each other: a depth-first search over the waits.
  void Cycles() {
    struct Wait {
      const KovJsonField* on;
      const char* why;
    };
    std::unordered_map<const KovJsonField*, std::vector<Wait>> waits;
    std::function<void(const std::vector<KovJsonField>&, const KovJsonField*)> add =
        [&](const std::vector<KovJsonField>& fields, const KovJsonField* parent) {
          for (size_t i = 0; i < fields.size(); ++i) {
            const KovJsonField& f = fields[i];
            std::vector<Wait>& w = waits[&f];
            if (!f.fixed && i > 0) w.push_back({&fields[i - 1], "floats behind"});
            if (parent != nullptr) w.push_back({parent, "lies inside"});
            if (f.kind == KovJsonKind::List && f.leqID != 0 && f.listFormat != VarSzSplitLeq) {
              auto it = byID.find(f.leqID);
              if (it != byID.end()) w.push_back({it->second, "takes its quantity from"});
            }
            for (const KovJsonDiscr& d : f.discrs) {
              auto it = byID.find(d.fieldID);
              if (it != byID.end() && !CKovUnionFieldLayout::IsSplitFormat(f.unionFormat)) {
                w.push_back({it->second, "takes its option from"});
              }
            }
            add(f.entry, &f);
            for (const KovJsonOption& o : f.options) add(o.fields, &f);
          }
        };
    for (const KovJsonBlock& blk : layout.GetBlocks()) add(blk.fields, nullptr);
    // 0 unseen, 1 on the path, 2 done. The path holds each field with the wait it follows next.
    std::unordered_map<const KovJsonField*, int> state;
    std::vector<std::pair<const KovJsonField*, size_t>> path;
    std::vector<const KovJsonField*> order;
    for (const KovJsonBlock& blk : layout.GetBlocks()) {
      std::function<void(const std::vector<KovJsonField>&)> collect =
          [&](const std::vector<KovJsonField>& fields) {
            for (const KovJsonField& f : fields) {
              order.push_back(&f);
              collect(f.entry);
              for (const KovJsonOption& o : f.options) collect(o.fields);
            }
          };
      collect(blk.fields);
    }
    for (const KovJsonField* root : order) {
      if (state[root] != 0) continue;
      path.push_back({root, 0});
      state[root] = 1;
      while (!path.empty()) {
        auto& [f, next] = path.back();
        const std::vector<Wait>& w = waits[f];
        if (next == w.size()) {
          state[f] = 2;
          path.pop_back();
          continue;
        }
        const Wait& wait = w[next++];
        if (state[wait.on] == 0) {
          state[wait.on] = 1;
          path.push_back({wait.on, 0});
        } else if (state[wait.on] == 1) {
          ReportCycle(path, wait.on, [&](const KovJsonField* from, size_t index) {
            return waits[from][index].why;
          });
        }
      }
    }
  }

  template <typename WhyOf>
  void ReportCycle(const std::vector<std::pair<const KovJsonField*, size_t>>& path,
                   const KovJsonField* back, WhyOf whyOf) {
    size_t from = 0;
    while (path[from].first != back) ++from;
    std::string text = "fields wait for each other:";
    for (size_t i = from; i < path.size(); ++i) {
      const KovJsonField* f = path[i].first;
      const KovJsonField* on = i + 1 < path.size() ? path[i + 1].first : back;
      text += kovFormat(" '%s' %s '%s'%s", f->name.c_str(), whyOf(f, path[i].second - 1),
                        on->name.c_str(), i + 1 < path.size() ? "," : "");
    }
    Add(back->at, text);
  }

  const CKovJsonLayout& layout;
  std::unordered_map<uint32_t, const KovJsonField*> byID;
  std::vector<KovJsonLintFinding> findings;
};

}  // namespace

uint64_t kovJsonMaxBits(const KovJsonField& f) { return maxBits(f); }
uint64_t kovJsonCfgBits(const KovJsonBlock& blk) { return cfgBits(blk); }
std::vector<KovJsonPlaced> kovJsonPlaceFields(const std::vector<KovJsonField>& fields,
                                              uint64_t firstBit, uint32_t listletMax) {
  return place(fields, firstBit, listletMax);
}

std::vector<KovJsonLintFinding> kovJsonLint(const CKovJsonLayout& layout) {
  return Linter(layout).Run();
}

std::vector<std::string> kovJsonUnclaimedBits(const CKovJsonLayout& layout) {
  std::vector<std::string> lines;
  for (const KovJsonBlock& blk : layout.GetBlocks()) {
    uint64_t first = cfgBits(blk);
    uint64_t limit = uint64_t{blk.maxDataSize} * 8 + first;
    // Each claimed range, merged in order of start: what lies between is unclaimed.
    std::vector<std::pair<uint64_t, uint64_t>> claimed;
    uint32_t listletMax = blk.kind == KovJsonBlkKind::DistKls ? blk.listletMax : 0;
    for (const Placed& p : place(blk.fields, first, listletMax)) {
      claimed.emplace_back(p.start, p.end);
    }
    std::sort(claimed.begin(), claimed.end());
    std::string text;
    uint64_t at = first;
    auto gap = [&](uint64_t from, uint64_t to) {
      auto n = [](uint64_t v) { return static_cast<unsigned long long>(v); };
      uint64_t firstByte = from / 8, lastByte = (to - 1) / 8;
      text += text.empty() ? "" : ", ";
      text += to - from == 1 ? kovFormat("bit %llu", n(from))
                             : kovFormat("bits %llu to %llu", n(from), n(to - 1));
      text += firstByte == lastByte ? kovFormat(" (byte %llu)", n(firstByte))
                                    : kovFormat(" (bytes %llu to %llu)", n(firstByte), n(lastByte));
    };
    for (const auto& [start, end] : claimed) {
      if (start > at && at < limit) gap(at, std::min(start, limit));
      at = std::max(at, end);
    }
    if (at < limit) gap(at, limit);
    if (!text.empty()) lines.push_back(blk.name + ": " + text);
  }
  return lines;
}
