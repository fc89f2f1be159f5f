#include "kovjson/fielddiff.h"

#include <algorithm>
#include <unordered_map>

#include "kovjson/valuepath.h"

namespace {

using Json = nlohmann::ordered_json;

std::unordered_map<std::string, int> pathIndex(const KovJsonFieldWalk& w) {
  std::unordered_map<std::string, int> m;
  m.reserve(w.nodes.size());
  for (size_t i = 0; i < w.nodes.size(); ++i) m.emplace(w.nodes[i].path, static_cast<int>(i));
  return m;
}

// Index just behind the subtree of node i.
size_t subtreeEnd(const KovJsonFieldWalk& w, size_t i) {
  size_t j = i + 1;
  while (j < w.nodes.size() && w.nodes[j].depth > w.nodes[i].depth) ++j;
  return j;
}

size_t blockOrder(const CKovJsonLayout& layout, const KovJsonBlock* blk) {
  return static_cast<size_t>(blk - layout.GetBlocks().data());
}

}  // namespace

std::vector<KovJsonDiffItem> kovJsonDiff(const CKovJsonLayout& layout, const KovJsonFieldWalk& a,
                                         const KovJsonFieldWalk& b) {
  auto inA = pathIndex(a), inB = pathIndex(b);
  // Each item with its place in a's order: (index in a, 0 for a's own items, 1 for added ones,
  // then the index in b).
  struct Keyed {
    size_t at, side, bIndex;
    KovJsonDiffItem item;
  };
  std::vector<Keyed> items;

  for (size_t i = 0; i < a.nodes.size();) {
    const KovJsonNode& n = a.nodes[i];
    auto other = inB.find(n.path);
    if (other == inB.end()) {
      KovJsonDiffItem d;
      d.change = KovJsonChange::Removed;
      d.path = n.path;
      d.kind = n.kind;
      d.before = kovJsonNodeValues(a, static_cast<int>(i));
      items.push_back({i, 0, 0, std::move(d)});
      i = subtreeEnd(a, i);
      continue;
    }
    const KovJsonNode& m = b.nodes[other->second];
    bool valueDiffers = n.kind == KovJsonNodeKind::Value && n.value != m.value;
    bool optionDiffers = n.kind == KovJsonNodeKind::Union && n.text != m.text;
    if (valueDiffers || optionDiffers) {
      KovJsonDiffItem d;
      d.path = n.path;
      d.kind = n.kind;
      d.before = kovJsonNodeValues(a, static_cast<int>(i));
      d.after = kovJsonNodeValues(b, other->second);
      d.beforeText = n.text;
      d.afterText = m.text;
      items.push_back({i, 0, 0, std::move(d)});
      if (optionDiffers) {
        i = subtreeEnd(a, i);
        continue;
      }
    }
    ++i;
  }

  // Where in a's order an added instance goes: behind the last instance in a of a block up to
  // its own. lastUpTo[k]: the last node of the instances of blocks 0..k, plus one (0: none).
  std::vector<size_t> lastUpTo(layout.GetBlocks().size(), 0);
  for (size_t i = 0; i < a.nodes.size(); i = subtreeEnd(a, i)) {
    size_t order = blockOrder(layout, a.nodes[i].blk);
    lastUpTo[order] = std::max(lastUpTo[order], subtreeEnd(a, i));
  }
  for (size_t k = 1; k < lastUpTo.size(); ++k) lastUpTo[k] = std::max(lastUpTo[k], lastUpTo[k - 1]);
  for (size_t j = 0; j < b.nodes.size();) {
    const KovJsonNode& n = b.nodes[j];
    if (inA.count(n.path) != 0) {
      // A union whose option differs is reported whole above.
      if (n.kind == KovJsonNodeKind::Union && a.nodes[inA[n.path]].text != n.text) {
        j = subtreeEnd(b, j);
        continue;
      }
      ++j;
      continue;
    }
    size_t at = 0;
    if (n.parent >= 0) {
      auto p = inA.find(b.nodes[n.parent].path);
      at = p == inA.end() ? a.nodes.size() : subtreeEnd(a, p->second) - 1;
    } else {
      size_t end = lastUpTo[blockOrder(layout, n.blk)];
      at = end == 0 ? 0 : end - 1;
    }
    KovJsonDiffItem d;
    d.change = KovJsonChange::Added;
    d.path = n.path;
    d.kind = n.kind;
    d.after = kovJsonNodeValues(b, static_cast<int>(j));
    items.push_back({at, 1, j, std::move(d)});
    j = subtreeEnd(b, j);
  }
  std::stable_sort(items.begin(), items.end(), [](const Keyed& x, const Keyed& y) {
    if (x.at != y.at) return x.at < y.at;
    if (x.side != y.side) return x.side < y.side;
    return x.bIndex < y.bIndex;
  });
  std::vector<KovJsonDiffItem> out;
  out.reserve(items.size());
  for (Keyed& k : items) out.push_back(std::move(k.item));
  return out;
}
