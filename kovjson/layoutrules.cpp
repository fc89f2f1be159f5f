// The rules of the layouts loaded, which the library calls back for during packs and unpacks: the
// quantity of a calculated list, the option of a union, the maxima of a distributed list. Each
// block layout of a loaded CKovJsonLayout is filed here with its fields (kovjson/layoutreader.h).
#include <algorithm>
#include <functional>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <unordered_map>
#include <utility>

#include "kovjson/layoutreader.h"

namespace {

// The rules of one block, for the callbacks.
struct RuleEntry {
  const CKovJsonLayout* owner;
  const KovJsonBlock* blk;
  std::unordered_map<uint32_t, const KovJsonField*> fields;  // every field at any depth
};

std::unordered_map<const CKovBlkLayout*, RuleEntry>& registry() {
  static std::unordered_map<const CKovBlkLayout*, RuleEntry> entries;
  return entries;
}

// Callbacks of packs and unpacks on any thread read the registry while layouts are loaded and
// destroyed on others. An entry found stays valid after the lock is left: the map's nodes never
// move, an entry is not changed once filed, and only its owner's destructor removes it, which
// can't run while a pack or unpack over that layout is at work.
std::shared_mutex& registryLock() {
  static std::shared_mutex lock;
  return lock;
}

const RuleEntry* findRules(const CKovBlkLayout* blkLayout) {
  std::shared_lock<std::shared_mutex> read(registryLock());
  auto it = registry().find(blkLayout);
  return it == registry().end() ? nullptr : &it->second;
}

const KovJsonField* findRuleField(const CKovBlkLayout* blkLayout, uint32_t fieldID) {
  const RuleEntry* rules = findRules(blkLayout);
  if (rules == nullptr) return nullptr;
  auto it = rules->fields.find(fieldID);
  return it == rules->fields.end() ? nullptr : it->second;
}

std::string blkNameOf(const CKovBlkLayout* blkLayout) {
  return blkLayout != nullptr ? blkLayout->GetBlkName() : std::string("?");
}

bool discrMatches(const KovDiscrInfo* discr, const KovJsonDiscrValue& want) {
  const CKovField* f = discr->discrField;
  if (f == nullptr) return false;
  if (f->IsString())
    return want.isText && static_cast<const CKovStrField*>(f)->GetValue() == want.text;
  if (want.isText) return false;
  if (f->IsNumber()) return static_cast<const CKovNumField*>(f)->GetValue() == want.number;
  if (f->IsChar()) return static_cast<const CKovCharField*>(f)->GetValue() == want.number;
  return false;
}

std::string discrText(const KovDiscrInfo* discr) {
  const CKovField* f = discr->discrField;
  if (f == nullptr) return "?";
  if (f->IsString()) return "\"" + static_cast<const CKovStrField*>(f)->GetValue() + "\"";
  if (f->IsNumber()) return std::to_string(static_cast<const CKovNumField*>(f)->GetValue());
  if (f->IsChar()) return std::to_string(static_cast<const CKovCharField*>(f)->GetValue());
  return "?";
}

}  // namespace

// The quantity of a calculated list: a constant, or a number field of an earlier block scaled.
uint32_t kovJsonRuleQuantity(const CKovUp* up, const CKovBlkLayout* blkLayout, uint32_t listID,
                             uint16_t instance) {
  const KovJsonField* list = findRuleField(blkLayout, listID);
  if (list == nullptr) {
    throw new CMevGenException(kovFormat("No quantity rule for list %u in block %s.", listID,
                                         blkNameOf(blkLayout).c_str()),
                               0);
  }
  if (list->qtyIsConstant) return list->qtyConstant;
  const CKovBlkLayout* srcLayout = up->GetBlkLayout(list->qtyBlkID);
  std::string srcName = blkNameOf(srcLayout);
  KovUpBlkInstArr* const* found = up->GetUpBlksList().PLookup(list->qtyBlkID);
  uint16_t srcInstance = srcLayout != nullptr && srcLayout->IsMultiInstanceBlk() ? instance : 1;
  if (found == nullptr || *found == nullptr || srcInstance >= (*found)->size() ||
      (**found)[srcInstance] == nullptr) {
    throw new CMevGenException(
        kovFormat("List '%s' in block '%s' [%u] takes its quantity from block '%s' [%u], which the "
                  "image does not hold before it.",
                  list->name.c_str(), blkNameOf(blkLayout).c_str(), instance, srcName.c_str(),
                  srcInstance),
        0);
  }
  // A field the block's data did not reach counts as 0, as the pack counts a field left out.
  int64_t value = 0;
  const CKovField* const* field = (**found)[srcInstance]->GetUpFieldMap().PLookup(list->qtyFieldID);
  if (field != nullptr && *field != nullptr && (*field)->IsNumber()) {
    value = static_cast<const CKovNumField*>(*field)->GetValue();
  }
  int64_t qty = std::max<int64_t>(0, value * list->qtyScale + list->qtyOffset);
  if (qty > list->maxEntries) {
    throw new CMevGenException(
        kovFormat("List '%s' in block '%s' [%u]: its quantity rule gives %lld entries, above its "
                  "maximum of %u.",
                  list->name.c_str(), blkNameOf(blkLayout).c_str(), instance,
                  static_cast<long long>(qty), list->maxEntries),
        0);
  }
  return static_cast<uint32_t>(qty);
}

// The option of a union: the first case whose values all match, else the default.
uint32_t kovJsonRuleOption(const CKovUp*, uint32_t unionID, uint16_t instance,
                           const CKovBlkLayout* blkLayout,
                           const std::list<const KovDiscrInfo*>& discrs) {
  const KovJsonField* u = findRuleField(blkLayout, unionID);
  if (u == nullptr) {
    throw new CMevGenException(kovFormat("No option table for union %u in block %s.", unionID,
                                         blkNameOf(blkLayout).c_str()),
                               0);
  }
  // A discriminant of another block met in another instance is left out by the library: with
  // fewer values than discriminants no case can match.
  if (discrs.size() == u->discrs.size()) {
    for (const KovJsonCase& c : u->cases) {
      auto want = c.when.begin();
      bool all = true;
      for (const KovDiscrInfo* discr : discrs) all = all && discrMatches(discr, *want++);
      if (all) return c.optionID;
    }
  }
  if (u->hasDefault) return u->defaultOptionID;
  std::string values;
  for (const KovDiscrInfo* discr : discrs)
    values += (values.empty() ? "" : ", ") + discrText(discr);
  throw new CMevGenException(
      kovFormat("Union '%s' in block '%s' [%u]: no option for discriminant value(s) %s.",
                u->name.c_str(), blkNameOf(blkLayout).c_str(), instance,
                values.empty() ? "(none)" : values.c_str()),
      0);
}

// The maximum quantities of a distributed KOV List Structure.
uint16_t kovJsonRuleListletMax(uint32_t listID, const CKovBlkLayout* blkLayout, uint16_t,
                               int wantMaxLLEQ) {
  const RuleEntry* rules = findRules(blkLayout);
  if (rules == nullptr) {
    throw new CMevGenException(
        kovFormat("No listlet rule for block %s.", blkNameOf(blkLayout).c_str()), 0);
  }
  if (wantMaxLLEQ != 0) return rules->blk->listletMax;
  auto it = rules->fields.find(listID);
  uint32_t max = it != rules->fields.end() ? it->second->maxEntries : 0;
  return static_cast<uint16_t>(std::min<uint32_t>(max, 0xFFFF));
}

void CKovJsonLayout::Register() {
  for (const KovJsonBlock& blk : blocks) {
    RuleEntry entry{this, &blk, {}};
    std::function<void(const std::vector<KovJsonField>&)> add =
        [&](const std::vector<KovJsonField>& fields) {
          for (const KovJsonField& f : fields) {
            entry.fields.emplace(f.id, &f);
            add(f.entry);
            for (const KovJsonOption& o : f.options) add(o.fields);
          }
        };
    add(blk.fields);
    std::unique_lock<std::shared_mutex> write(registryLock());
    registry()[blk.layout] = std::move(entry);
  }
  registered = true;
}

void CKovJsonLayout::Unregister() {
  if (!registered) return;
  std::unique_lock<std::shared_mutex> write(registryLock());
  for (const KovJsonBlock& blk : blocks) {
    auto it = registry().find(blk.layout);
    if (it != registry().end() && it->second.owner == this) registry().erase(it);
  }
  registered = false;
}
