#include "kovjson/jsonlayout.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <shared_mutex>
#include <sstream>
#include <unordered_map>
#include <utility>

#include "kovjson/jsonread.h"

namespace {

using Json = nlohmann::ordered_json;

// Lists and unions inside lists and unions: deeper than this is refused, which also bounds the
// recursion of the reader and of the library's searches through complex fields.
constexpr int kMaxNesting = 8;
// The largest image a layout may announce; the pack allocates that much.
constexpr uint64_t kMaxImageSize = 16u << 20;
// The data area of one block instance, from the two bytes of its size field less the checksum.
constexpr uint64_t kMaxBlkDataSz = 65533;
// The configuration fields of the library: their ids are not the application's.
constexpr uint32_t kFirstCfgID = 28520;
constexpr uint32_t kLastCfgID = 28526;
// Layout types of the data layouts the loader makes; the library only tests ListEntryLayout.
constexpr LayoutType kBlkLayoutType = static_cast<LayoutType>(1);
constexpr LayoutType kOptionLayoutType = static_cast<LayoutType>(3);

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

// The quantity of a calculated list: a constant, or a number field of an earlier block scaled.
uint32_t calcQuantity(const CKovUp* up, const CKovBlkLayout* blkLayout, uint32_t listID,
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

// The option of a union: the first case whose values all match, else the default.
uint32_t selectOption(const CKovUp*, uint32_t unionID, uint16_t instance,
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
uint16_t klsMaximum(uint32_t listID, const CKovBlkLayout* blkLayout, uint16_t, int wantMaxLLEQ) {
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

const char* kindName(KovJsonKind kind) {
  switch (kind) {
    case KovJsonKind::Number:
      return "number";
    case KovJsonKind::Char:
      return "char";
    case KovJsonKind::String:
      return "string";
    case KovJsonKind::Name:
      return "name";
    case KovJsonKind::List:
      return "list";
    case KovJsonKind::Union:
      return "union";
  }
  return "?";
}

void collectFields(std::vector<KovJsonField>& fields,
                   const std::function<void(KovJsonField&)>& visit) {
  for (KovJsonField& f : fields) {
    visit(f);
    collectFields(f.entry, visit);
    for (KovJsonOption& o : f.options) collectFields(o.fields, visit);
  }
}

}  // namespace

KovJsonError::KovJsonError(const std::string& file, const std::string& pointer,
                           const std::string& text)
    : std::runtime_error(file + ": " + (pointer.empty() ? "" : pointer + ": ") + text),
      file(file),
      pointer(pointer),
      text(text) {}

std::string kovJsonPointerTo(const std::string& pointer, const std::string& name) {
  std::string escaped;
  for (char c : name) {
    if (c == '~') {
      escaped += "~0";
    } else if (c == '/') {
      escaped += "~1";
    } else {
      escaped += c;
    }
  }
  return pointer + "/" + escaped;
}

std::string kovJsonPointerTo(const std::string& pointer, size_t index) {
  return pointer + "/" + std::to_string(index);
}

const KovJsonOption* KovJsonField::FindOption(uint32_t optionID) const {
  for (const KovJsonOption& o : options) {
    if (o.id == optionID) return &o;
  }
  return nullptr;
}

const KovJsonOption* KovJsonField::FindOption(const std::string& optionName) const {
  for (const KovJsonOption& o : options) {
    if (o.name == optionName) return &o;
  }
  return nullptr;
}

const KovJsonField* kovJsonTopField(const KovJsonBlock& blk, uint32_t fieldID) {
  for (const KovJsonField& f : blk.fields) {
    if (f.id == fieldID) return &f;
  }
  return nullptr;
}

// Reads a layout document into a CKovJsonLayout in three passes: the description with its own
// checks, the references between fields and blocks, then the library's objects.
class KovJsonLayoutReader {
 public:
  KovJsonLayoutReader(CKovJsonLayout& out, bool exportBlocks)
      : out(out), in(out.file), exportBlocks(exportBlocks) {}

  void Read(const Json& doc) {
    ReadDocument(doc);
    AssignIDs();
    for (size_t i = 0; i < out.blocks.size(); ++i) ResolveBlock(out.blocks[i], *blockNodes[i]);
    Build();
  }

 private:
  // Pass 1: the description.

  void ReadDocument(const Json& doc) {
    in.Object(doc, "");
    in.Keys(doc, "",
            {"$schema", "versionIndex", "modelIndex", "maxImageSize", "saveToSeparateFiles",
             "partitions"});
    versionIndex = static_cast<int8_t>(in.Int(doc, "", "versionIndex", -128, 127, 0));
    modelIndex = static_cast<int8_t>(in.Int(doc, "", "modelIndex", -128, 127, 0));
    out.maxImageSize =
        static_cast<uint32_t>(in.UInt(doc, "", "maxImageSize", 1, kMaxImageSize, 65536));
    saveToSeparateFiles = in.Bool(doc, "", "saveToSeparateFiles", false) || exportBlocks;
    const Json& partitions = in.Array(doc, "", "partitions");
    std::string at = kovJsonPointerTo("", "partitions");
    if (partitions.empty()) in.Fail(at, "a layout needs at least one partition");
    std::set<uint64_t> numbers;
    for (size_t p = 0; p < partitions.size(); ++p) {
      std::string pat = kovJsonPointerTo(at, p);
      const Json& part = partitions[p];
      in.Object(part, pat);
      in.Keys(part, pat, {"number", "access", "blocks"});
      uint64_t number = in.UInt(part, pat, "number", 0, 0xFFFF);
      if (!numbers.insert(number).second) {
        in.Fail(kovJsonPointerTo(pat, "number"),
                "partition " + std::to_string(number) + " is declared twice");
      }
      partitionList.emplace_back(static_cast<uint16_t>(number), ReadAccess(part, pat));
      const Json& blks = in.Array(part, pat, "blocks");
      std::string bat = kovJsonPointerTo(pat, "blocks");
      for (size_t b = 0; b < blks.size(); ++b) {
        out.blocks.push_back(
            ReadBlock(blks[b], kovJsonPointerTo(bat, b), static_cast<uint16_t>(number)));
        blockNodes.push_back(&blks[b]);
      }
    }
    out.numPartitions = partitionList.size();
  }

  AccessRights ReadAccess(const Json& o, const std::string& at) {
    std::string access =
        in.Choice(o, at, "access", {"readOnly", "readWrite", "readWriteLocked"}, "readWrite");
    if (access == "readOnly") return ReadOnly;
    return access == "readWrite" ? ReadWrite : ReadWriteLocked;
  }

  KovJsonBlock ReadBlock(const Json& o, const std::string& at, uint16_t partition) {
    in.Object(o, at);
    in.Keys(o, at,
            {"name", "id", "kind", "kovType", "kovId", "multiInstance", "padded", "maxDataSize",
             "access", "variableSize", "headerBlock", "listletMax", "fields"});
    KovJsonBlock blk;
    blk.at = at;
    blk.partition = partition;
    blk.name = in.Name(o, at);
    // A block's name becomes the name of its files in a per-block export.
    if (blk.name.find_first_of("/\\") != std::string::npos || blk.name == "." ||
        blk.name.find("..") != std::string::npos ||
        std::any_of(blk.name.begin(), blk.name.end(),
                    [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; })) {
      in.Fail(kovJsonPointerTo(at, "name"),
              "a block name names files: it can't hold '/', '\\', '..' or control characters");
    }
    for (const KovJsonBlock& other : out.blocks) {
      if (other.name == blk.name) {
        in.Fail(kovJsonPointerTo(at, "name"), "block name '" + blk.name + "' is used twice");
      }
    }
    if (o.contains("id")) {
      blk.id = static_cast<uint16_t>(in.UInt(o, at, "id", 1, 0xFFFF));
      if (!blockIDs.insert(blk.id).second) {
        in.Fail(kovJsonPointerTo(at, "id"),
                "block id " + std::to_string(blk.id) + " is used twice");
      }
    }
    std::string kind =
        in.Choice(o, at, "kind", {"standard", "header", "kls", "distributedKls"}, "standard");
    blk.kind = kind == "standard" ? KovJsonBlkKind::Standard
               : kind == "header" ? KovJsonBlkKind::Header
               : kind == "kls"    ? KovJsonBlkKind::Kls
                                  : KovJsonBlkKind::DistKls;
    blk.kovType = static_cast<uint16_t>(in.UInt(o, at, "kovType", 1, 0xFFFD));
    if (!kovTypes.insert(blk.kovType).second) {
      in.Fail(kovJsonPointerTo(at, "kovType"),
              kovFormat("KOV type 0x%04X is used by another block", blk.kovType));
    }
    blk.multi = in.Bool(o, at, "multiInstance", false);
    if (blk.multi || blk.kind == KovJsonBlkKind::DistKls) {
      if (o.contains("kovId")) {
        in.Fail(kovJsonPointerTo(at, "kovId"),
                "a multi-instance or distributed block has no KOV id: its instances are numbered");
      }
    } else {
      blk.kovID = static_cast<uint16_t>(in.UInt(o, at, "kovId", 0, 0xFFFE, 0));
    }
    blk.padded = in.Bool(o, at, "padded", false);
    if (blk.padded && (blk.kind == KovJsonBlkKind::Kls || blk.kind == KovJsonBlkKind::DistKls)) {
      in.Fail(kovJsonPointerTo(at, "padded"), "a KOV List Structure block is never padded");
    }
    uint64_t cfgBytes = blk.kind == KovJsonBlkKind::Header    ? 12
                        : blk.kind == KovJsonBlkKind::Kls     ? 8
                        : blk.kind == KovJsonBlkKind::DistKls ? 6
                                                              : 0;
    blk.maxDataSize =
        static_cast<uint16_t>(in.UInt(o, at, "maxDataSize", 0, kMaxBlkDataSz - cfgBytes));
    blk.access = ReadAccess(o, at);
    blk.variableSize = in.Bool(o, at, "variableSize", false);
    if (blk.kind == KovJsonBlkKind::DistKls) {
      blk.listletMax = static_cast<uint16_t>(in.UInt(o, at, "listletMax", 1, 0xFFFF));
      if (!o.contains("headerBlock")) {
        in.Fail(at, "a distributed KOV List Structure block needs its 'headerBlock'");
      }
    } else {
      for (const char* key : {"headerBlock", "listletMax"}) {
        if (o.contains(key)) {
          in.Fail(kovJsonPointerTo(at, key), "only a distributedKls block has this member");
        }
      }
    }
    std::string fat = kovJsonPointerTo(at, "fields");
    blk.fields = ReadFields(in.Array(o, at, "fields", true), fat, 0);
    uint64_t maxBits = (uint64_t{blk.maxDataSize} + cfgBytes) * 8;
    CheckFieldsFit(
        blk.fields, cfgBytes * 8, maxBits,
        kovFormat("the block's %llu bytes", static_cast<unsigned long long>(maxBits / 8)));
    if (blk.kind == KovJsonBlkKind::Kls || blk.kind == KovJsonBlkKind::DistKls) {
      CheckKlsFields(blk, fat);
    } else {
      collectFields(blk.fields, [&](KovJsonField& f) {
        if (f.kind == KovJsonKind::List && f.listFormat == VarSzCfgLeq) {
          in.Fail(kovJsonPointerTo(f.at, "format"),
                  "a list of format 'kls' belongs in a kls or distributedKls block");
        }
      });
    }
    return blk;
  }

  // A KOV List Structure block holds its one list, directly or as the one field of each option of
  // one union, behind its configuration area.
  void CheckKlsFields(const KovJsonBlock& blk, const std::string& at) {
    const char* what =
        "a KOV List Structure block holds one field: a list of format 'kls', or a union whose "
        "every option holds such a list alone";
    if (blk.fields.size() != 1) in.Fail(at, what);
    const KovJsonField& f = blk.fields[0];
    auto isKlsList = [](const KovJsonField& l) {
      return l.kind == KovJsonKind::List && l.listFormat == VarSzCfgLeq;
    };
    bool ok = isKlsList(f);
    if (f.kind == KovJsonKind::Union) {
      ok = true;
      for (const KovJsonOption& o : f.options)
        ok = ok && o.fields.size() == 1 && isKlsList(o.fields[0]);
    }
    if (!ok) in.Fail(f.at, what);
    const KovJsonField& list = isKlsList(f) ? f : f.options[0].fields[0];
    if (list.entryBits % 8 != 0) {
      in.Fail(kovJsonPointerTo(list.at, "entryBits"),
              "the entries of a KOV List Structure are whole bytes: its image stores their size "
              "in bytes");
    }
    if (blk.kind == KovJsonBlkKind::DistKls && blk.listletMax > list.maxEntries) {
      in.Fail(kovJsonPointerTo(blk.at, "listletMax"), "a listlet can't hold more than the list's " +
                                                          std::to_string(list.maxEntries) +
                                                          " entries");
    }
  }

  std::vector<KovJsonField> ReadFields(const Json& arr, const std::string& at, int depth) {
    std::vector<KovJsonField> fields;
    for (size_t i = 0; i < arr.size(); ++i) {
      fields.push_back(ReadField(arr[i], kovJsonPointerTo(at, i), depth));
      for (size_t j = 0; j + 1 < fields.size(); ++j) {
        if (fields[j].name == fields.back().name) {
          in.Fail(kovJsonPointerTo(fields.back().at, "name"),
                  "field name '" + fields.back().name + "' is used twice in one entry");
        }
      }
    }
    return fields;
  }

  KovJsonField ReadField(const Json& o, const std::string& at, int depth) {
    in.Object(o, at);
    KovJsonField f;
    f.at = at;
    std::string type =
        in.Choice(o, at, "type", {"number", "char", "string", "name", "list", "union"});
    const std::vector<const char*> common = {"name", "id", "type", "byteOffset", "msbStart", "gap"};
    auto keys = [&](std::vector<const char*> more) {
      more.insert(more.end(), common.begin(), common.end());
      in.Keys(o, at, more);
    };
    f.name = in.Name(o, at);
    if (o.contains("id")) {
      uint64_t id = in.UInt(o, at, "id", 1, 0xFFFFFFFFu);
      if (id >= kFirstCfgID && id <= kLastCfgID) {
        in.Fail(kovJsonPointerTo(at, "id"),
                "ids 28520 to 28526 belong to the KOV List Structure configuration fields");
      }
      f.id = static_cast<uint32_t>(id);
      if (!fieldIDs.emplace(f.id, at).second) {
        in.Fail(kovJsonPointerTo(at, "id"), "field id " + std::to_string(f.id) +
                                                " is used twice (also at " + fieldIDs[f.id] + ")");
      }
    }
    f.fixed = o.contains("byteOffset");
    if (f.fixed) {
      f.byteOffset = static_cast<uint32_t>(in.UInt(o, at, "byteOffset", 0, kMaxBlkDataSz));
      f.msbStart = static_cast<uint8_t>(in.UInt(o, at, "msbStart", 0, 7, 7));
      if (o.contains("gap")) {
        in.Fail(kovJsonPointerTo(at, "gap"),
                "a field at a byteOffset has no gap: only a floating field follows the one before");
      }
    } else {
      if (o.contains("msbStart")) {
        in.Fail(kovJsonPointerTo(at, "msbStart"),
                "msbStart needs a byteOffset: a floating field starts where the one before ends");
      }
      f.gap = static_cast<uint32_t>(in.UInt(o, at, "gap", 0, kMaxBlkDataSz * 8, 0));
    }
    if (type == "number") {
      keys({"bits", "enum", "flags", "signed", "scale", "offset"});
      f.kind = KovJsonKind::Number;
      f.bits = static_cast<uint32_t>(in.UInt(o, at, "bits", 1, 32));
      f.format = kovJsonReadNumberFormat(in, o, at, f.bits);
    } else if (type == "char") {
      keys({"charBits"});
      f.kind = KovJsonKind::Char;
      f.charType = CharTypeOf(o, at, true);
      f.bits = f.charType;
    } else if (type == "string") {
      keys({"charBits", "chars"});
      f.kind = KovJsonKind::String;
      f.charType = CharTypeOf(o, at, false);
      f.chars = static_cast<uint32_t>(in.UInt(o, at, "chars", 1, kMaxBlkDataSz * 2));
      f.bits = f.chars * f.charType;
    } else if (type == "name") {
      keys({"bits", "block"});
      f.kind = KovJsonKind::Name;
      f.bits = static_cast<uint32_t>(in.UInt(o, at, "bits", 1, 32, 32));
      in.Member(o, at, "block");
    } else if (depth >= kMaxNesting) {
      in.Fail(at, "lists and unions nest at most " + std::to_string(kMaxNesting) + " deep");
    } else if (type == "list") {
      keys({"format", "maxEntries", "entryBits", "quantity", "entry"});
      ReadList(f, o, at, depth);
    } else {
      keys({"format", "bits", "discriminants", "select", "options"});
      ReadUnion(f, o, at, depth);
    }
    return f;
  }

  CKovCharFieldLayout::CharType CharTypeOf(const Json& o, const std::string& at, bool allow16) {
    uint64_t bits = in.UInt(o, at, "charBits", 4, 16, 8);
    if (bits == 16 && !allow16) {
      in.Fail(kovJsonPointerTo(at, "charBits"),
              "strings of 16-bit characters can't be packed or read: use 4 or 8");
    }
    if (bits != 4 && bits != 8 && bits != 16) {
      in.Fail(kovJsonPointerTo(at, "charBits"), allow16 ? "must be 4, 8 or 16" : "must be 4 or 8");
    }
    return static_cast<CKovCharFieldLayout::CharType>(bits);
  }

  void ReadList(KovJsonField& f, const Json& o, const std::string& at, int depth) {
    f.kind = KovJsonKind::List;
    static const std::vector<const char*> formats = {
        "fixed", "contiguous", "sameBlock", "otherBlock", "calculated", "calculatedAlt", "kls"};
    std::string format = in.Choice(o, at, "format", formats);
    f.listFormat =
        static_cast<ListFormat>(std::find_if(formats.begin(), formats.end(),
                                             [&](const char* name) { return format == name; }) -
                                formats.begin());
    f.maxEntries = static_cast<uint32_t>(in.UInt(o, at, "maxEntries", 1, 0xFFFF));
    f.entryBits = static_cast<uint32_t>(in.UInt(o, at, "entryBits", 1, kMaxBlkDataSz * 8));
    bool wantsQty = f.listFormat != FixedSzNoLeq && f.listFormat != VarSzCfgLeq;
    if (wantsQty && !o.contains("quantity")) {
      in.Fail(at, "a list of format '" + format + "' needs its 'quantity'");
    }
    if (!wantsQty && o.contains("quantity")) {
      in.Fail(kovJsonPointerTo(at, "quantity"),
              "a list of format '" + format + "' has no quantity of its own to give");
    }
    std::string eat = kovJsonPointerTo(at, "entry");
    f.entry = ReadFields(in.Array(o, at, "entry"), eat, depth + 1);
    if (f.entry.empty()) in.Fail(eat, "a list entry needs at least one field");
    CheckFieldsFit(f.entry, 0, f.entryBits, "the entry's " + std::to_string(f.entryBits) + " bits");
    bool anyFixed = false;
    for (const KovJsonField& e : f.entry) anyFixed = anyFixed || e.fixed;
    if (anyFixed && f.entryBits % 8 != 0) {
      in.Fail(kovJsonPointerTo(at, "entryBits"),
              "an entry with fields at a byteOffset is whole bytes: each entry starts on the "
              "same bit of its byte");
    }
  }

  void ReadUnion(KovJsonField& f, const Json& o, const std::string& at, int depth) {
    f.kind = KovJsonKind::Union;
    static const std::vector<const char*> formats = {"fixed",         "fixedSplit",
                                                     "variable",      "variablePadded",
                                                     "variableSplit", "variableSplitPadded"};
    std::string format = in.Choice(o, at, "format", formats);
    f.unionFormat = static_cast<UnionFormat>(
        UnionFixedPadded + (std::find_if(formats.begin(), formats.end(),
                                         [&](const char* name) { return format == name; }) -
                            formats.begin()));
    bool fixedSz = CKovUnionFieldLayout::IsFixedSzFormat(f.unionFormat);
    bool padded = CKovUnionFieldLayout::IsPaddedFormat(f.unionFormat);
    if (fixedSz) {
      f.bits = static_cast<uint32_t>(in.UInt(o, at, "bits", 1, kMaxBlkDataSz * 8));
    } else if (o.contains("bits")) {
      in.Fail(kovJsonPointerTo(at, "bits"),
              "a variable union takes the size of its option: give 'bits' to padded options");
    }
    std::string oat = kovJsonPointerTo(at, "options");
    const Json& options = in.Array(o, at, "options");
    if (options.empty()) in.Fail(oat, "a union needs at least one option");
    std::set<uint32_t> optionIDs;
    for (size_t i = 0; i < options.size(); ++i) {
      std::string pat = kovJsonPointerTo(oat, i);
      const Json& opt = options[i];
      in.Object(opt, pat);
      in.Keys(opt, pat, {"name", "id", "bits", "fields"});
      KovJsonOption option;
      option.name = in.Name(opt, pat);
      if (f.FindOption(option.name) != nullptr) {
        in.Fail(kovJsonPointerTo(pat, "name"), "option name '" + option.name + "' is used twice");
      }
      option.id = static_cast<uint32_t>(in.UInt(opt, pat, "id", 0, 0xFFFF, i + 1));
      if (!optionIDs.insert(option.id).second) {
        in.Fail(pat, "option id " + std::to_string(option.id) + " is used twice");
      }
      std::string fat = kovJsonPointerTo(pat, "fields");
      option.fields = ReadFields(in.Array(opt, pat, "fields", true), fat, depth + 1);
      uint64_t limit = fixedSz ? f.bits : kMaxBlkDataSz * 8;
      if (padded && opt.contains("bits")) {
        option.bits = static_cast<uint32_t>(in.UInt(opt, pat, "bits", 0, limit));
      } else if (opt.contains("bits")) {
        in.Fail(kovJsonPointerTo(pat, "bits"),
                "only the options of a padded variable union have a size of their own");
      } else {
        option.bits = fixedSz ? f.bits : static_cast<uint32_t>(NominalBits(option.fields));
      }
      if (!fixedSz && !padded) option.bits = 0;
      CheckFieldsFit(option.fields, 0, fixedSz ? f.bits : (padded ? option.bits : limit),
                     fixedSz ? "the union's " + std::to_string(f.bits) + " bits"
                             : "the option's " + std::to_string(option.bits) + " bits");
      f.options.push_back(std::move(option));
    }
    in.Array(o, at, "discriminants", true);
    in.Object(in.Member(o, at, "select"), kovJsonPointerTo(at, "select"));
  }

  // The end of the fixed fields of fixed size, in bits from the entry start: the nominal size of an
  // option whose file gives none.
  uint64_t NominalBits(const std::vector<KovJsonField>& fields) {
    uint64_t end = 0;
    for (const KovJsonField& f : fields) {
      if (f.fixed && IsFixedSz(f)) end = std::max(end, StartBits(f) + SizeBits(f));
    }
    return end;
  }

  static bool IsFixedSz(const KovJsonField& f) {
    if (f.kind == KovJsonKind::List) return f.listFormat == FixedSzNoLeq;
    if (f.kind == KovJsonKind::Union) return CKovUnionFieldLayout::IsFixedSzFormat(f.unionFormat);
    return true;
  }
  // bit index = byte × 8 + 7 − MSB, in an entry whose start has MSB 7.
  static uint64_t StartBits(const KovJsonField& f) {
    return uint64_t{f.byteOffset} * 8 + 7 - f.msbStart;
  }
  static uint64_t SizeBits(const KovJsonField& f) {
    return f.kind == KovJsonKind::List ? uint64_t{f.maxEntries} * f.entryBits : f.bits;
  }

  // Fixed fields of fixed size must lie within [firstBit, limitBits) of their entry or block.
  void CheckFieldsFit(const std::vector<KovJsonField>& fields, uint64_t firstBit,
                      uint64_t limitBits, const std::string& what) {
    for (const KovJsonField& f : fields) {
      if (!f.fixed) continue;
      if (StartBits(f) < firstBit) {
        in.Fail(kovJsonPointerTo(f.at, "byteOffset"),
                kovFormat("the field starts at bit %llu, inside the %llu bytes of configuration "
                          "in front of the block's own fields",
                          static_cast<unsigned long long>(StartBits(f)),
                          static_cast<unsigned long long>(firstBit / 8)));
      }
      if (IsFixedSz(f) && StartBits(f) + SizeBits(f) > limitBits) {
        in.Fail(f.at, kovFormat("the field ends at bit %llu, beyond %s",
                                static_cast<unsigned long long>(StartBits(f) + SizeBits(f)),
                                what.c_str()));
      }
    }
  }

  // Ids left out in the file get the lowest free numbers, in document order.
  void AssignIDs() {
    uint16_t nextBlk = 1;
    for (KovJsonBlock& blk : out.blocks) {
      if (blk.id != 0) continue;
      while (blockIDs.count(nextBlk) != 0) ++nextBlk;
      blk.id = nextBlk++;
      blockIDs.insert(blk.id);
    }
    uint32_t next = 1;
    for (KovJsonBlock& blk : out.blocks) {
      collectFields(blk.fields, [&](KovJsonField& f) {
        if (f.id != 0) return;
        while (fieldIDs.count(next) != 0 || (next >= kFirstCfgID && next <= kLastCfgID)) ++next;
        f.id = next++;
        fieldIDs.emplace(f.id, f.at);
      });
    }
  }

  // Pass 2: references by name or id.

  KovJsonBlock& BlockRef(const Json& v, const std::string& at) {
    if (v.is_string()) {
      for (KovJsonBlock& blk : out.blocks) {
        if (blk.name == v.get<std::string>()) return blk;
      }
      in.Fail(at, "no block named '" + v.get<std::string>() + "'");
    }
    uint64_t id = in.ToUInt(v, at, 1, 0xFFFF);
    for (KovJsonBlock& blk : out.blocks) {
      if (blk.id == id) return blk;
    }
    in.Fail(at, "no block with id " + std::to_string(id));
  }

  // The field named (or numbered) v among fields at any depth; exactly one must answer.
  KovJsonField& FieldRef(std::vector<KovJsonField>& fields, bool anyDepth, const Json& v,
                         const std::string& at, const std::string& where) {
    std::vector<KovJsonField*> hits;
    bool byName = v.is_string();
    uint64_t id = byName ? 0 : in.ToUInt(v, at, 1, 0xFFFFFFFFu);
    std::function<void(std::vector<KovJsonField>&)> search = [&](std::vector<KovJsonField>& fs) {
      for (KovJsonField& f : fs) {
        if (byName ? f.name == v.get<std::string>() : f.id == id) hits.push_back(&f);
        if (!anyDepth) continue;
        search(f.entry);
        for (KovJsonOption& o : f.options) search(o.fields);
      }
    };
    search(fields);
    std::string what =
        byName ? "named '" + v.get<std::string>() + "'" : "with id " + std::to_string(id);
    if (hits.empty()) in.Fail(at, "no field " + what + " " + where);
    if (hits.size() > 1) in.Fail(at, "more than one field " + what + " " + where + ": give its id");
    return *hits[0];
  }

  void ResolveBlock(KovJsonBlock& blk, const Json& node) {
    if (blk.kind == KovJsonBlkKind::DistKls) {
      std::string at = kovJsonPointerTo(blk.at, "headerBlock");
      KovJsonBlock& hdr = BlockRef(node["headerBlock"], at);
      if (hdr.kind != KovJsonBlkKind::Header) {
        in.Fail(at, "block '" + hdr.name + "' is not of kind 'header'");
      }
      if (hdr.pairBlkID != 0) {
        in.Fail(at, "header block '" + hdr.name + "' already belongs to another block");
      }
      if (hdr.multi != blk.multi) {
        in.Fail(at, "a header block and its distributed block are both multi-instance or both not");
      }
      hdr.pairBlkID = blk.id;
      blk.pairBlkID = hdr.id;
    }
    static const Json none = Json::array();
    ResolveFields(blk, blk.fields, node.contains("fields") ? node["fields"] : none);
  }

  void ResolveFields(KovJsonBlock& blk, std::vector<KovJsonField>& fields, const Json& arr) {
    for (size_t i = 0; i < fields.size(); ++i) {
      KovJsonField& f = fields[i];
      const Json& o = arr[i];
      if (f.kind == KovJsonKind::Name) {
        const Json& ref = o["block"];
        std::string at = kovJsonPointerTo(f.at, "block");
        if (ref.is_string()) {
          f.refBlkID = BlockRef(ref, at).id;
        } else {
          // An id the layout lacks is legal: the verification warns about it.
          f.refBlkID = static_cast<uint16_t>(in.ToUInt(ref, at, 1, 0xFFFF));
        }
      } else if (f.kind == KovJsonKind::List) {
        ResolveList(blk, fields, f, o);
        ResolveFields(blk, f.entry, o["entry"]);
      } else if (f.kind == KovJsonKind::Union) {
        ResolveUnion(blk, f, o);
        const Json& options = o["options"];
        for (size_t k = 0; k < f.options.size(); ++k) {
          if (options[k].contains("fields")) {
            ResolveFields(blk, f.options[k].fields, options[k]["fields"]);
          }
        }
      }
    }
  }

  void ResolveList(KovJsonBlock& blk, std::vector<KovJsonField>& siblings, KovJsonField& f,
                   const Json& o) {
    if (f.listFormat == VarSzCfgLeq) {
      f.leqID = CKovKLSBlkLayout::m_leqFldID;
      return;
    }
    if (f.listFormat == FixedSzNoLeq) return;
    std::string at = kovJsonPointerTo(f.at, "quantity");
    const Json& q = o["quantity"];
    in.Object(q, at);
    if (f.listFormat == VarSzCalcLeq || f.listFormat == VarSzCalcLeqAlt) {
      if (q.contains("constant")) {
        in.Keys(q, at, {"constant"});
        f.qtyIsConstant = true;
        f.qtyConstant = static_cast<uint32_t>(in.UInt(q, at, "constant", 0, f.maxEntries));
        return;
      }
      in.Keys(q, at, {"block", "field", "scale", "offset"});
      KovJsonBlock& src = BlockRef(in.Member(q, at, "block"), kovJsonPointerTo(at, "block"));
      if (&src >= &blk) {
        in.Fail(kovJsonPointerTo(at, "block"),
                "the quantity must come from a block that stands before block '" + blk.name +
                    "' in the image, where it has been read when the list is");
      }
      KovJsonField& qf =
          FieldRef(src.fields, false, in.Member(q, at, "field"), kovJsonPointerTo(at, "field"),
                   "at the top of block '" + src.name + "'");
      if (qf.kind != KovJsonKind::Number) {
        in.Fail(kovJsonPointerTo(at, "field"), "the quantity field must be a number");
      }
      f.qtyBlkID = src.id;
      f.qtyFieldID = qf.id;
      f.qtyScale = in.Int(q, at, "scale", 0, 0xFFFF, 1);
      f.qtyOffset = in.Int(q, at, "offset", -0xFFFF, 0xFFFF, 0);
      return;
    }
    bool other = f.listFormat == VarSzSplitLeq;
    in.Keys(q, at,
            other ? std::initializer_list<const char*>{"block", "field"}
                  : std::initializer_list<const char*>{"field"});
    KovJsonBlock& leqBlk =
        other ? BlockRef(in.Member(q, at, "block"), kovJsonPointerTo(at, "block")) : blk;
    if (other && leqBlk.kind == KovJsonBlkKind::DistKls) {
      in.Fail(kovJsonPointerTo(at, "block"),
              "the quantity field can't live in a distributed KOV List Structure block");
    }
    std::string where = f.listFormat == VarSzContigLeq ? "in the list's entry, in front of it"
                                                       : "in block '" + leqBlk.name + "'";
    KovJsonField& leq = f.listFormat == VarSzContigLeq
                            ? FieldRef(siblings, false, in.Member(q, at, "field"),
                                       kovJsonPointerTo(at, "field"), where)
                            : FieldRef(leqBlk.fields, true, in.Member(q, at, "field"),
                                       kovJsonPointerTo(at, "field"), where);
    if (leq.kind != KovJsonKind::Number) {
      in.Fail(kovJsonPointerTo(at, "field"), "the quantity field must be a number");
    }
    if (!leq.quantityOf.empty()) {
      in.Fail(
          kovJsonPointerTo(at, "field"),
          "field '" + leq.name + "' already holds the quantity of list '" + leq.quantityOf + "'");
    }
    leq.quantityOf = f.name;
    f.leqID = leq.id;
    f.leqBlkID = leqBlk.id;
  }

  void ResolveUnion(KovJsonBlock& blk, KovJsonField& f, const Json& o) {
    bool split = CKovUnionFieldLayout::IsSplitFormat(f.unionFormat);
    std::string dat = kovJsonPointerTo(f.at, "discriminants");
    const Json& discrs = o.contains("discriminants") ? o["discriminants"] : Json::array();
    std::vector<const KovJsonField*> discrFields;
    for (size_t i = 0; i < discrs.size(); ++i) {
      std::string at = kovJsonPointerTo(dat, i);
      in.Object(discrs[i], at);
      in.Keys(discrs[i], at, {"block", "field"});
      KovJsonBlock& dblk = discrs[i].contains("block")
                               ? BlockRef(discrs[i]["block"], kovJsonPointerTo(at, "block"))
                               : blk;
      if (split == (&dblk == &blk)) {
        in.Fail(at, split ? "a split union takes its discriminants from another block: give "
                            "its 'block'"
                          : "a union that is not split takes its discriminants from its own block");
      }
      KovJsonField& d = FieldRef(dblk.fields, true, in.Member(discrs[i], at, "field"),
                                 kovJsonPointerTo(at, "field"), "in block '" + dblk.name + "'");
      if (d.kind != KovJsonKind::Number && d.kind != KovJsonKind::Char &&
          d.kind != KovJsonKind::String) {
        in.Fail(
            kovJsonPointerTo(at, "field"),
            "a discriminant is a number, char or string, not a " + std::string(kindName(d.kind)));
      }
      f.discrs.push_back({dblk.id, d.id, d.kind});
      discrFields.push_back(&d);
    }
    std::string sat = kovJsonPointerTo(f.at, "select");
    const Json& select = o["select"];
    in.Keys(select, sat, {"cases", "default"});
    if (select.contains("default")) {
      f.hasDefault = true;
      f.defaultOptionID = OptionRef(f, select["default"], kovJsonPointerTo(sat, "default"));
    }
    const Json& cases = in.Array(select, sat, "cases", true);
    std::string cat = kovJsonPointerTo(sat, "cases");
    if (cases.empty() && !f.hasDefault) in.Fail(sat, "a select rule needs cases or a default");
    if (!cases.empty() && f.discrs.empty()) {
      in.Fail(cat, "cases need discriminants to look at; a union without any takes its default");
    }
    for (size_t i = 0; i < cases.size(); ++i) {
      std::string at = kovJsonPointerTo(cat, i);
      in.Object(cases[i], at);
      in.Keys(cases[i], at, {"when", "option"});
      KovJsonCase c;
      c.optionID = OptionRef(f, in.Member(cases[i], at, "option"), kovJsonPointerTo(at, "option"));
      const Json& when = in.Member(cases[i], at, "when");
      std::string wat = kovJsonPointerTo(at, "when");
      Json values = when.is_array() ? when : Json::array({when});
      if (values.size() != f.discrs.size()) {
        in.Fail(wat,
                kovFormat("give one value for each of the %zu discriminants", f.discrs.size()));
      }
      for (size_t k = 0; k < values.size(); ++k) {
        std::string vat = when.is_array() ? kovJsonPointerTo(wat, k) : wat;
        KovJsonDiscrValue v;
        if (f.discrs[k].kind == KovJsonKind::String) {
          if (!values[k].is_string()) in.Fail(vat, "a string discriminant is matched by a string");
          v.isText = true;
          v.text = values[k].get<std::string>();
        } else if (f.discrs[k].kind == KovJsonKind::Char && values[k].is_string()) {
          std::string s = values[k].get<std::string>();
          if (s.size() != 1) in.Fail(vat, "a char discriminant is matched by one character");
          v.number = static_cast<uint8_t>(s[0]);
        } else if (const KovJsonField& d = *discrFields[k];
                   d.kind == KovJsonKind::Number && !d.format.IsPlain()) {
          std::string why;
          if (!kovJsonNumberToStored(d.format, d.bits, values[k], v.number, why)) {
            in.Fail(vat, "a value of '" + d.name + "' " + why);
          }
        } else {
          v.number = static_cast<uint32_t>(in.ToUInt(values[k], vat, 0, 0xFFFFFFFFu));
        }
        c.when.push_back(v);
      }
      f.cases.push_back(std::move(c));
    }
  }

  uint32_t OptionRef(const KovJsonField& u, const Json& v, const std::string& at) {
    const KovJsonOption* o = v.is_string()
                                 ? u.FindOption(v.get<std::string>())
                                 : u.FindOption(static_cast<uint32_t>(in.ToUInt(v, at, 0, 0xFFFF)));
    if (o == nullptr) in.Fail(at, "no such option in union '" + u.name + "'");
    return o->id;
  }

  // Pass 3: the library's objects.

  void Build() {
    try {
      BuildObjects();
      out.Register();
      out.cpLayout->DoPostLayoutVerification();
    } catch (CMevGenException* e) {
      std::string at;
      std::string text = kovJsonNamedText(out.blocks, e->GetMessage(), &at);
      delete e;
      out.Unregister();
      in.Fail(at, "the layout fails verification: " + text);
    }
  }

  void BuildObjects() {
    out.cpLayout = std::make_unique<CKovCpLayout>(versionIndex, modelIndex, out.maxImageSize,
                                                  saveToSeparateFiles ? 1 : 0);
    CKovCpLayout* cp = out.cpLayout.get();
    for (const auto& [number, access] : partitionList) cp->AddPartition(number, access);
    for (KovJsonBlock& blk : out.blocks) {
      std::unique_ptr<CKovBlkLayout> layout = MakeBlock(blk);
      blk.layout = layout.get();
      AddFields(layout.get(), layout->GetDataLayout(), blk.fields);
      layout->SetPartitionNum(blk.partition);
      layout->SetAccessRights(blk.access);
      layout->SetVariableSzStatus(blk.variableSize ? 1 : 0);
      cp->HasUniqueKovName(layout.get());
      cp->AddBlkLayout(layout.get());
      layout.release();
    }
    collectAll([](KovJsonField& f) { kovRegisterString(f.id, f.name); });
  }

  void collectAll(const std::function<void(KovJsonField&)>& visit) {
    for (KovJsonBlock& blk : out.blocks) collectFields(blk.fields, visit);
  }

  std::unique_ptr<CKovBlkLayout> MakeBlock(const KovJsonBlock& blk) {
    auto data = std::make_unique<CKovDataLayout>(kBlkLayoutType, 0, 7, 0, true);
    KovBlkLayoutAttrib attrib(blk.kovType, blk.kovID, blk.multi ? 1 : 0, blk.padded ? 1 : 0);
    std::unique_ptr<CKovBlkLayout> layout;
    switch (blk.kind) {
      case KovJsonBlkKind::Standard:
      case KovJsonBlkKind::Header:
        layout = std::make_unique<CKovBlkLayout>(blk.id, attrib, blk.name, 0, data.release(),
                                                 blk.maxDataSize,
                                                 blk.kind == KovJsonBlkKind::Header ? 1 : 0);
        if (blk.kind == KovJsonBlkKind::Header) layout->SetDistKLSBlkID(blk.pairBlkID);
        break;
      case KovJsonBlkKind::Kls:
        layout = std::make_unique<CKovKLSBlkLayout>(blk.id, attrib, blk.name, data.release(),
                                                    blk.maxDataSize, 0, 0, 0, nullptr);
        break;
      case KovJsonBlkKind::DistKls:
        // maxLLEQ 0: the listlet maximum comes from the block's rule.
        layout =
            std::make_unique<CKovKLSBlkLayout>(blk.id, attrib, blk.name, data.release(),
                                               blk.maxDataSize, 1, 0, blk.pairBlkID, klsMaximum);
        break;
    }
    return layout;
  }

  void AddFields(CKovBlkLayout* blk, CKovDataLayout* dl, std::vector<KovJsonField>& fields) {
    for (KovJsonField& f : fields) {
      uint32_t prev = dl->GetIDOfLastFieldInLayout();
      auto position = static_cast<int32_t>(dl->GetOrderedFieldIDsList().size());
      std::unique_ptr<CKovFieldLayout> layout = MakeField(blk, dl, f);
      f.layout = layout.get();
      dl->AddField(f.id, prev, layout.release(), position);
    }
  }

  std::unique_ptr<CKovFieldLayout> MakeField(CKovBlkLayout* blk, CKovDataLayout* dl,
                                             KovJsonField& f) {
    switch (f.kind) {
      case KovJsonKind::Number:
        return std::make_unique<CKovNumFieldLayout>(f.id, f.byteOffset, f.bits, f.msbStart, f.fixed,
                                                    f.gap, dl);
      case KovJsonKind::Char:
        return std::make_unique<CKovCharFieldLayout>(f.id, f.byteOffset, f.msbStart, f.charType,
                                                     f.fixed, f.gap, dl);
      case KovJsonKind::String:
        return std::make_unique<CKovStrFieldLayout>(f.id, f.byteOffset, f.msbStart, f.charType,
                                                    f.chars, f.fixed, f.gap, dl);
      case KovJsonKind::Name: {
        auto layout = std::make_unique<CKovNameFieldLayout>(f.id, f.byteOffset, f.bits, f.msbStart,
                                                            f.fixed, f.gap, dl, f.refBlkID);
        // Entered so that the verification warns about a reference to a block the layout lacks.
        blk->AddFieldToVerificationMap(f.id, layout.get());
        return layout;
      }
      case KovJsonKind::List: {
        auto entry = std::make_unique<CKovDataLayout>(ListEntryLayout, 0, 7, f.id, false);
        AddFields(blk, entry.get(), f.entry);
        bool calculated = f.listFormat == VarSzCalcLeq || f.listFormat == VarSzCalcLeqAlt;
        KovListAttribStruct attrib(f.leqID, f.listFormat, f.maxEntries, 0, f.entryBits, f.leqBlkID,
                                   calculated ? calcQuantity : nullptr);
        bool verify = false;
        kovValidateSglListParms(f.id, attrib, blk->GetBlkID(), verify);
        auto layout = std::make_unique<CKovListFieldLayout>(f.id, f.byteOffset, f.msbStart, attrib,
                                                            f.fixed, f.gap, dl, entry.release());
        if (verify) blk->AddFieldToVerificationMap(f.id, layout.get());
        return layout;
      }
      case KovJsonKind::Union: {
        KovUnionAttribStruct attrib;
        attrib.unionFormat = f.unionFormat;
        attrib.lengthInBits = f.bits;
        attrib.upLayoutSelectionFunc = selectOption;
        for (const KovJsonDiscr& d : f.discrs) {
          attrib.discrIDArr.push_back(d.fieldID);
          if (CKovUnionFieldLayout::IsSplitFormat(f.unionFormat)) {
            attrib.discrBlkIDArr.push_back(d.blkID);
          }
        }
        if (!attrib.discrIDArr.empty()) kovValidateUnionParms(f.id, attrib, blk->GetBlkID());
        auto layout = std::make_unique<CKovUnionFieldLayout>(f.id, f.byteOffset, f.msbStart, attrib,
                                                             f.fixed, f.gap, dl, blk->GetBlkID());
        for (KovJsonOption& o : f.options) {
          auto data = std::make_unique<CKovDataLayout>(kOptionLayoutType, 0, 7, f.id, false);
          AddFields(blk, data.get(), o.fields);
          o.dataLayout = data.get();
          layout->AddToUnionMap(o.id,
                                new CKovUnionLayoutOpt(data.release(), 0, 0, o.id, o.bits, 0));
        }
        blk->AddFieldToVerificationMap(f.id, layout.get());
        return layout;
      }
    }
    return nullptr;
  }

  CKovJsonLayout& out;
  KovJsonReader in;
  bool exportBlocks;
  int8_t versionIndex = 0;
  int8_t modelIndex = 0;
  bool saveToSeparateFiles = false;
  std::vector<std::pair<uint16_t, AccessRights>> partitionList;
  std::vector<const Json*> blockNodes;
  std::set<uint64_t> blockIDs;
  std::set<uint16_t> kovTypes;
  std::map<uint32_t, std::string> fieldIDs;
};

std::unique_ptr<CKovJsonLayout> CKovJsonLayout::LoadFile(const std::string& path,
                                                         bool exportBlocks) {
  return Load(kovJsonReadFile(path), path, exportBlocks);
}

std::unique_ptr<CKovJsonLayout> CKovJsonLayout::Load(const std::string& text,
                                                     const std::string& file, bool exportBlocks) {
  Json doc = kovJsonParse(text, file);
  std::unique_ptr<CKovJsonLayout> layout(new CKovJsonLayout());
  layout->file = file;
  KovJsonLayoutReader(*layout, exportBlocks).Read(doc);
  return layout;
}

CKovJsonLayout::~CKovJsonLayout() { Unregister(); }

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

const KovJsonBlock* CKovJsonLayout::FindBlock(uint16_t blkID) const {
  for (const KovJsonBlock& blk : blocks) {
    if (blk.id == blkID) return &blk;
  }
  return nullptr;
}

const KovJsonBlock* CKovJsonLayout::FindBlock(const std::string& name) const {
  for (const KovJsonBlock& blk : blocks) {
    if (blk.name == name) return &blk;
  }
  return nullptr;
}

const KovJsonBlock* CKovJsonLayout::FindBlockByKovType(uint16_t kovType) const {
  for (const KovJsonBlock& blk : blocks) {
    if (blk.kovType == kovType) return &blk;
  }
  return nullptr;
}
