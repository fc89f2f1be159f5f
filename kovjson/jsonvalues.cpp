#include "kovjson/jsonvalues.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "kovjson/jsonread.h"

namespace {

using Json = nlohmann::ordered_json;

// The measuring of a data layout against a map of pack fields (CKovMap<uint32_t, CKovPkField*>).
constexpr int kPkFieldMapKind = 1;

// The instances a block's value holds: an object is one instance, an array several.
std::vector<const Json*> instancesOf(const Json& v) {
  std::vector<const Json*> out;
  if (v.is_array()) {
    for (const Json& e : v) out.push_back(&e);
  } else {
    out.push_back(&v);
  }
  return out;
}

uint64_t maxForBits(uint32_t bits) { return bits >= 32 ? 0xFFFFFFFFu : (uint64_t{1} << bits) - 1; }

bool decodeUtf8(const std::string& s, std::vector<uint32_t>& out) {
  for (size_t i = 0; i < s.size();) {
    auto c = static_cast<unsigned char>(s[i]);
    int extra = c < 0x80 ? 0 : c >= 0xF0 ? 3 : c >= 0xE0 ? 2 : c >= 0xC0 ? 1 : -1;
    if (extra < 0 || extra > static_cast<int>(s.size() - i - 1)) return false;
    uint32_t cp = extra == 0 ? c : c & (0x3F >> extra);
    for (int k = 1; k <= extra; ++k) cp = cp << 6 | (static_cast<unsigned char>(s[i + k]) & 0x3F);
    out.push_back(cp);
    i += static_cast<size_t>(extra) + 1;
  }
  return true;
}

const char* blkKindWord(const KovJsonBlock& blk) {
  return blk.multi ? "multi-instance block" : "block";
}

// Reads the values of one file against one layout.
class ValuesReader {
 public:
  ValuesReader(const CKovJsonLayout& layout, const Json& root, const std::string& file)
      : layout(layout), root(root), in(file) {}

  std::unique_ptr<KovJsonPackData> Read() {
    in.Object(root, "");
    for (const auto& item : root.items()) {
      if (layout.FindBlock(item.key()) == nullptr) {
        in.Fail(kovJsonPointerTo("", item.key()),
                "no block named '" + item.key() + "' in " + layout.GetFile());
      }
    }
    auto data = std::make_unique<KovJsonPackData>();
    for (const KovJsonBlock& blk : layout.GetBlocks()) {
      auto it = root.find(blk.name);
      if (it == root.end()) continue;
      std::string at = kovJsonPointerTo("", blk.name);
      if (!it->is_object() && !it->is_array()) {
        in.Fail(at, "a block's value is an object (one instance) or an array of them, not " +
                        kovJsonTypeName(*it));
      }
      std::vector<const Json*> instances = instancesOf(*it);
      if (instances.empty()) continue;
      // Two instances of a single-instance block would share one KOV name.
      if (instances.size() > 1 && !blk.multi) {
        in.Fail(at, kovFormat("block '%s' is not multi-instance: give one instance, not %zu",
                              blk.name.c_str(), instances.size()));
      }
      auto entries = std::make_unique<CKovPkEntryList>();
      std::vector<uint16_t> sizes;
      for (size_t i = 0; i < instances.size(); ++i) {
        std::string iat = it->is_array() ? kovJsonPointerTo(at, i) : at;
        Ctx ctx{&blk, i + 1, {}};
        std::unique_ptr<CKovPkEntry> entry = Entry(blk.fields, *instances[i], iat, ctx);
        sizes.push_back(DataSize(blk, *entry, iat));
        entries->AddTail(entry.release());
      }
      data->numInstances += static_cast<uint32_t>(instances.size());
      // new, not make_unique: the block's memory is had before the list is let go, so a failed
      // allocation leaves the list with entries, and the constructor owns it from its start.
      data->blocks.push_back(
          std::unique_ptr<CKovPkStdBlk>(new CKovPkStdBlk(blk.layout, entries.release(), sizes)));
      data->pkBlks.SetAt(blk.id, data->blocks.back().get());
    }
    return data;
  }

 private:
  // Where a value stands: its block, the instance (from 1) and the entries that enclose it, each
  // as its fields and its object in the file, outermost first.
  struct Ctx {
    const KovJsonBlock* blk;
    size_t instance;
    std::vector<std::pair<const std::vector<KovJsonField>*, const Json*>> chain;
  };

  std::unique_ptr<CKovPkEntry> Entry(const std::vector<KovJsonField>& fields, const Json& obj,
                                     const std::string& at, Ctx& ctx) {
    if (!obj.is_object())
      in.Fail(at, "an entry is an object of fields, not " + kovJsonTypeName(obj));
    for (const auto& item : obj.items()) {
      bool known = false;
      for (const KovJsonField& f : fields) known = known || f.name == item.key();
      if (known) continue;
      std::string names;
      for (const KovJsonField& f : fields) {
        if (f.quantityOf.empty()) names += (names.empty() ? "'" : ", '") + f.name + "'";
      }
      in.Fail(kovJsonPointerTo(at, item.key()),
              "no field '" + item.key() + "' here" +
                  (names.empty() ? std::string(": this entry has no fields")
                                 : "; the fields are " + names));
    }
    auto entry = std::make_unique<CKovPkEntry>(static_cast<int>(fields.size()));
    ctx.chain.emplace_back(&fields, &obj);
    for (size_t i = 0; i < fields.size(); ++i) {
      const KovJsonField& f = fields[i];
      std::string fat = kovJsonPointerTo(at, f.name);
      std::unique_ptr<CKovField> value;
      auto it = obj.find(f.name);
      if (it != obj.end()) {
        if (!f.quantityOf.empty()) {
          in.Fail(fat, "'" + f.name + "' holds the quantity of list '" + f.quantityOf +
                           "', which the pack writes from the list's entries: leave it out");
        }
        value = Value(f, *it, fat, ctx);
      } else if (f.kind == KovJsonKind::List && f.listFormat != FixedSzNoLeq) {
        value = Value(f, Json::array(), fat, ctx);
      } else {
        continue;
      }
      auto pkField = std::make_unique<CKovPkField>(value.get());
      value.release();
      entry->AddPkField(f.id, pkField.release(), static_cast<int>(i));
    }
    ctx.chain.pop_back();
    return entry;
  }

  std::unique_ptr<CKovField> Value(const KovJsonField& f, const Json& v, const std::string& at,
                                   Ctx& ctx) {
    switch (f.kind) {
      case KovJsonKind::Number:
        return std::make_unique<CKovNumField>(Stored(f, v, at), f.id, f.bits);
      case KovJsonKind::Char:
        return std::make_unique<CKovCharField>(CharCode(f, v, at), f.id, f.bits);
      case KovJsonKind::String:
        return std::make_unique<CKovStrField>(StringBytes(f, v, at).c_str(), f.id,
                                              f.chars * f.charType);
      case KovJsonKind::Name:
        return std::make_unique<CKovNameField>(KovName(f, v, at), f.id, f.bits, 0);
      case KovJsonKind::List:
        return List(f, v, at, ctx);
      case KovJsonKind::Union:
        return Union(f, v, at, ctx);
    }
    return nullptr;
  }

  // The stored number of a number field's value; the format of the field says how it reads.
  uint32_t Stored(const KovJsonField& f, const Json& v, const std::string& at) {
    if (f.format.IsPlain()) return static_cast<uint32_t>(in.ToUInt(v, at, 0, maxForBits(f.bits)));
    uint32_t stored = 0;
    std::string why;
    if (!kovJsonNumberToStored(f.format, f.bits, v, stored, why)) in.Fail(at, why);
    return stored;
  }

  uint16_t CharCode(const KovJsonField& f, const Json& v, const std::string& at) {
    uint64_t code = 0;
    if (v.is_string()) {
      std::vector<uint32_t> cps;
      if (!decodeUtf8(v.get<std::string>(), cps) || cps.size() != 1) {
        in.Fail(at, "a character is a string of one character or its code, not " + v.dump());
      }
      code = cps[0];
    } else {
      code = in.ToUInt(v, at, 0, 0xFFFF);
    }
    // A 4-bit character stores its code less '0' ('0' to '?').
    if (f.charType == CKovCharFieldLayout::Char4Bit && (code < '0' || code > '?')) {
      in.Fail(at, "a 4-bit character is a digit, '0' to '9'");
    }
    if (f.charType != CKovCharFieldLayout::Char4Bit && code > maxForBits(f.charType)) {
      in.Fail(at,
              kovFormat("character code %llu needs more than %u bits",
                        static_cast<unsigned long long>(code), static_cast<unsigned>(f.charType)));
    }
    return static_cast<uint16_t>(code);
  }

  std::string StringBytes(const KovJsonField& f, const Json& v, const std::string& at) {
    if (!v.is_string()) in.Fail(at, "must be a string, not " + kovJsonTypeName(v));
    std::vector<uint32_t> cps;
    decodeUtf8(v.get<std::string>(), cps);
    if (cps.size() > f.chars) {
      in.Fail(at, kovFormat("%zu characters do not fit the field's %u", cps.size(), f.chars));
    }
    std::string bytes;
    for (uint32_t cp : cps) {
      if (cp == 0) in.Fail(at, "a string can't hold the character 0, which ends it");
      if (f.charType == CKovCharFieldLayout::Char4Bit && (cp < '0' || cp > '?')) {
        in.Fail(at, "a string of 4-bit characters holds digits only, '0' to '9'");
      }
      if (cp > 0xFF) {
        in.Fail(at, kovFormat("character U+%04X is not an 8-bit character (U+0001 to U+00FF)", cp));
      }
      bytes += static_cast<char>(cp);
    }
    return bytes;
  }

  // The instances block blk has in the file.
  size_t InstancesInFile(const KovJsonBlock& blk) {
    auto it = root.find(blk.name);
    if (it == root.end()) return 0;
    return it->is_array() ? it->size() : 1;
  }

  uint32_t KovName(const KovJsonField& f, const Json& v, const std::string& at) {
    if (!v.is_object()) return static_cast<uint32_t>(in.ToUInt(v, at, 0, maxForBits(f.bits)));
    in.Keys(v, at, {"block", "instance"});
    const KovJsonBlock* blk = layout.FindBlock(f.refBlkID);
    if (v.contains("block")) {
      const Json& b = v["block"];
      blk = b.is_string() ? layout.FindBlock(b.get<std::string>()) : nullptr;
      if (blk == nullptr) {
        in.Fail(kovJsonPointerTo(at, "block"),
                "no block named " + b.dump() + " in " + layout.GetFile());
      }
    } else if (blk == nullptr) {
      in.Fail(at, "the field refers to no block of the layout: give 'block'");
    }
    auto instance = static_cast<uint32_t>(in.UInt(v, at, "instance", 1, 0xFFFF));
    std::string iat = kovJsonPointerTo(at, "instance");
    if (blk->kind == KovJsonBlkKind::DistKls) {
      in.Fail(kovJsonPointerTo(at, "block"),
              "a distributed block's instances have no KOV name of their own: give a number");
    }
    size_t have = InstancesInFile(*blk);
    if (instance > have) {
      in.Fail(iat, kovFormat("%s '%s' has %zu instance%s in this file", blkKindWord(*blk),
                             blk->name.c_str(), have, have == 1 ? "" : "s"));
    }
    uint16_t id = blk->multi ? static_cast<uint16_t>(instance - 1) : blk->kovID;
    return kovGetKovName(blk->kovType, id);
  }

  std::unique_ptr<CKovField> List(const KovJsonField& f, const Json& v, const std::string& at,
                                  Ctx& ctx) {
    if (!v.is_array()) in.Fail(at, "a list is an array of entries, not " + kovJsonTypeName(v));
    if (v.size() > f.maxEntries) {
      in.Fail(at, kovFormat("%zu entries, but list '%s' holds at most %u", v.size(), f.name.c_str(),
                            f.maxEntries));
    }
    CheckQuantityRule(f, v.size(), at, ctx);
    auto list = std::make_unique<CKovListField>(f.id, static_cast<uint32_t>(v.size()),
                                                static_cast<uint16_t>(f.maxEntries), nullptr);
    for (size_t i = 0; i < v.size(); ++i) {
      list->AddEntryToList(Entry(f.entry, v[i], kovJsonPointerTo(at, i), ctx).release());
    }
    // A fixed list takes all its entries in the image, also those left out.
    uint64_t qty = f.listFormat == FixedSzNoLeq ? f.maxEntries : v.size();
    list->SetImageSize(static_cast<uint32_t>(qty * f.entryBits));
    return list;
  }

  // A calculated quantity must give the entries the list has, or the list would read back
  // another length.
  void CheckQuantityRule(const KovJsonField& f, size_t count, const std::string& at, Ctx& ctx) {
    if (f.listFormat != VarSzCalcLeq && f.listFormat != VarSzCalcLeqAlt) return;
    if (f.qtyIsConstant) {
      if (count != f.qtyConstant) {
        in.Fail(at, kovFormat("%zu entries, but list '%s' always holds %u", count, f.name.c_str(),
                              f.qtyConstant));
      }
      return;
    }
    const KovJsonBlock* src = layout.FindBlock(f.qtyBlkID);
    const KovJsonField* qf = kovJsonTopField(*src, f.qtyFieldID);
    size_t instance = src->multi ? ctx.instance : 1;
    uint64_t value = 0;
    auto it = root.find(src->name);
    if (it != root.end()) {
      std::vector<const Json*> instances = instancesOf(*it);
      if (instance <= instances.size() && instances[instance - 1]->is_object()) {
        auto vit = instances[instance - 1]->find(qf->name);
        if (vit != instances[instance - 1]->end()) {
          std::string vat = kovJsonPointerTo(
              it->is_array() ? kovJsonPointerTo(kovJsonPointerTo("", src->name), instance - 1)
                             : kovJsonPointerTo("", src->name),
              qf->name);
          value = Stored(*qf, *vit, vat);
        }
      }
    }
    int64_t qty = std::max<int64_t>(0, static_cast<int64_t>(value) * f.qtyScale + f.qtyOffset);
    if (static_cast<uint64_t>(qty) != count) {
      in.Fail(at,
              kovFormat("%zu entries, but the quantity of list '%s' is %lld: '%s' of block "
                        "'%s' [%zu] is %llu (times %lld plus %lld)",
                        count, f.name.c_str(), static_cast<long long>(qty), qf->name.c_str(),
                        src->name.c_str(), instance, static_cast<unsigned long long>(value),
                        static_cast<long long>(f.qtyScale), static_cast<long long>(f.qtyOffset)));
    }
  }

  std::unique_ptr<CKovField> Union(const KovJsonField& f, const Json& v, const std::string& at,
                                   Ctx& ctx) {
    std::string names;
    for (const KovJsonOption& o : f.options) names += (names.empty() ? "" : ", ") + o.name;
    if (!v.is_object() || v.size() != 1) {
      in.Fail(at, "a union is an object with one member, named for its option (" + names + ")");
    }
    const std::string& name = v.begin().key();
    const KovJsonOption* option = f.FindOption(name);
    std::string oat = kovJsonPointerTo(at, name);
    if (option == nullptr) {
      in.Fail(oat, "union '" + f.name + "' has no option '" + name + "'; it has " + names);
    }
    CheckSelection(f, *option, at, ctx);
    std::unique_ptr<CKovPkEntry> entry = Entry(option->fields, v.begin().value(), oat, ctx);
    auto u = std::make_unique<CKovUnionField>(f.id, option->id, entry.get());
    entry.release();
    uint32_t bits = option->bits;
    if (CKovUnionFieldLayout::IsFixedSzFormat(f.unionFormat)) {
      bits = f.bits;
    } else if (!CKovUnionFieldLayout::IsPaddedFormat(f.unionFormat)) {
      // An unpadded union reads back as long as its option's last field reaches: measure that.
      bits = kovCalculateDataLayoutSzInBits(option->dataLayout, &u->GetPkEntry()->GetPkFieldMap(),
                                            kPkFieldMapKind);
    }
    u->SetImageSize(bits);
    return u;
  }

  // The value of discriminant d as the file gives it, when it can be found: in an entry that
  // encloses the union, or at the top of another block. A discriminant left out is 0.
  std::optional<KovJsonDiscrValue> DiscrValue(const KovJsonDiscr& d, const Ctx& ctx) {
    const KovJsonField* field = nullptr;
    const Json* obj = nullptr;
    if (d.blkID == ctx.blk->id) {
      for (auto it = ctx.chain.rbegin(); it != ctx.chain.rend() && field == nullptr; ++it) {
        for (const KovJsonField& f : *it->first) {
          if (f.id == d.fieldID) {
            field = &f;
            obj = it->second;
          }
        }
      }
    } else if (const KovJsonBlock* other = layout.FindBlock(d.blkID)) {
      field = kovJsonTopField(*other, d.fieldID);
      auto it = root.find(other->name);
      if (it == root.end()) return std::nullopt;
      std::vector<const Json*> instances = instancesOf(*it);
      size_t instance = other->multi ? ctx.instance : 1;
      if (instance > instances.size()) return std::nullopt;
      obj = instances[instance - 1];
    }
    if (field == nullptr || obj == nullptr || !obj->is_object()) return std::nullopt;
    KovJsonDiscrValue value;
    value.isText = field->kind == KovJsonKind::String;
    auto it = obj->find(field->name);
    if (it == obj->end()) return value;
    if (value.isText && it->is_string()) {
      value.text = it->get<std::string>();
    } else if (field->kind == KovJsonKind::Number && !field->format.IsPlain()) {
      std::string why;
      if (!kovJsonNumberToStored(field->format, field->bits, *it, value.number, why)) {
        return std::nullopt;
      }
    } else if (it->is_number_unsigned()) {
      value.number = static_cast<uint32_t>(it->get<uint64_t>());
    } else if (field->kind == KovJsonKind::Char && it->is_string() &&
               it->get_ref<const std::string&>().size() == 1) {
      value.number = static_cast<uint8_t>(it->get_ref<const std::string&>()[0]);
    } else {
      return std::nullopt;
    }
    return value;
  }

  void CheckSelection(const KovJsonField& f, const KovJsonOption& option, const std::string& at,
                      const Ctx& ctx) {
    std::vector<KovJsonDiscrValue> values;
    for (const KovJsonDiscr& d : f.discrs) {
      std::optional<KovJsonDiscrValue> v = DiscrValue(d, ctx);
      if (!v) return;
      values.push_back(*v);
    }
    const KovJsonOption* selected = nullptr;
    for (const KovJsonCase& c : f.cases) {
      bool all = true;
      for (size_t i = 0; i < values.size(); ++i) {
        all = all && values[i].isText == c.when[i].isText &&
              (values[i].isText ? values[i].text == c.when[i].text
                                : values[i].number == c.when[i].number);
      }
      if (all) {
        selected = f.FindOption(c.optionID);
        break;
      }
    }
    if (selected == nullptr && f.hasDefault) selected = f.FindOption(f.defaultOptionID);
    if (selected == &option) return;
    std::string shown;
    for (const KovJsonDiscrValue& v : values) {
      shown += (shown.empty() ? "" : ", ") +
               (v.isText ? "\"" + v.text + "\"" : std::to_string(v.number));
    }
    in.Fail(at, "option '" + option.name + "' is given, but the discriminant value" +
                    (values.size() == 1 ? " " : "s ") + shown +
                    (values.size() == 1 ? " selects" : " select") +
                    (selected != nullptr ? " option '" + selected->name + "'" : " no option"));
  }

  uint16_t DataSize(const KovJsonBlock& blk, const CKovPkEntry& entry, const std::string& at) {
    const CKovDataLayout* dl = blk.layout->GetDataLayout();
    uint64_t bits = uint64_t{blk.layout->GetNumCfgBytes()} * 8;
    for (const KovJsonField& f : blk.fields) {
      CKovPkField* const* value = entry.GetPkFieldMap().PLookup(f.id);
      // The quantity field of a list has no value here, but the list writes it: it must lie
      // inside the data, or the list could not be read back.
      if (value == nullptr && f.quantityOf.empty()) continue;
      uint64_t start = f.fixed ? uint64_t{f.byteOffset} * 8 + 7 - f.msbStart
                               : kovCalcFloatingFldBitOffsetFromEntryStart(
                                     &entry.GetPkFieldMap(), dl, f.layout, kPkFieldMapKind);
      bits =
          std::max(bits, start + (value != nullptr ? (*value)->GetData()->GetImageSize() : f.bits));
    }
    uint64_t bytes = (bits + 7) / 8;
    if (blk.padded) {
      uint64_t padded = blk.layout->GetMaxDataSzInBytes();
      if (bytes > padded) {
        in.Fail(at, kovFormat("the values reach %llu bytes, beyond the %llu bytes the block is "
                              "padded to",
                              static_cast<unsigned long long>(bytes),
                              static_cast<unsigned long long>(padded)));
      }
      return static_cast<uint16_t>(padded);
    }
    // The library refuses more than an instance can hold, with its own text.
    return static_cast<uint16_t>(std::min<uint64_t>(bytes, 0xFFFF));
  }

  const CKovJsonLayout& layout;
  const Json& root;
  KovJsonReader in;
};

// A reference to an instance the image holds reads as {"block", "instance"}; anything else, 0
// included, as the number.
Json kovNameValue(const CKovJsonLayout& layout, const CKovUp& up, const KovJsonField& f,
                  uint32_t name) {
  if (f.bits != 32 || name == 0) return name;
  const KovJsonBlock* blk = layout.FindBlockByKovType(static_cast<uint16_t>(name >> 16));
  if (blk == nullptr || blk->kind == KovJsonBlkKind::DistKls) return name;
  uint32_t id = name & 0xFFFF;
  uint32_t instance = blk->multi ? id + 1 : (id == blk->kovID ? 1 : 0);
  const CKovUpStdBlk* read = up.GetUnpackedBlk(blk->id);
  if (instance == 0 || read == nullptr || instance > read->GetBlkInstanceQty()) return name;
  Json ref = Json::object();
  ref["block"] = blk->name;
  ref["instance"] = instance;
  return ref;
}

// Writes the values of an unpack.
class ValuesWriter {
 public:
  ValuesWriter(const CKovJsonLayout& layout, const CKovUp& up) : layout(layout), up(up) {}

  Json Write() {
    Json root = Json::object();
    for (const KovJsonBlock& blk : layout.GetBlocks()) {
      const CKovUpStdBlk* read = up.GetUnpackedBlk(blk.id);
      if (read == nullptr) continue;
      // The pack generates a header block that has no fields of its own.
      if (blk.kind == KovJsonBlkKind::Header && blk.fields.empty()) continue;
      int qty = read->GetBlkInstanceQty();
      if (qty == 1 && !blk.multi) {
        root[blk.name] = Entry(blk.fields, read->GetUpEntry(1));
        continue;
      }
      Json instances = Json::array();
      for (int i = 1; i <= qty; ++i) instances.push_back(Entry(blk.fields, read->GetUpEntry(i)));
      root[blk.name] = std::move(instances);
    }
    return root;
  }

 private:
  Json Entry(const std::vector<KovJsonField>& fields, const CKovUpEntry* entry) {
    Json obj = Json::object();
    if (entry == nullptr) return obj;
    for (const KovJsonField& f : fields) {
      if (!f.quantityOf.empty()) continue;
      CKovUpField* const* field = entry->GetUpFieldMap().PLookup(f.id);
      if (field == nullptr || *field == nullptr || (*field)->GetData() == nullptr) continue;
      obj[f.name] = Value(f, (*field)->GetData());
    }
    return obj;
  }

  Json Value(const KovJsonField& f, const CKovField* v) {
    if (v->IsList()) {
      Json entries = Json::array();
      const CKovUpEntryList* list = static_cast<const CKovListField*>(v)->GetUpEntryList();
      if (list != nullptr) {
        for (const CKovUpEntry* e : *list) entries.push_back(Entry(f.entry, e));
      }
      return entries;
    }
    if (v->IsUnion()) {
      auto u = static_cast<const CKovUnionField*>(v);
      const KovJsonOption* option = f.FindOption(u->GetLayoutID());
      Json obj = Json::object();
      if (option != nullptr) obj[option->name] = Entry(option->fields, u->GetUpEntry());
      return obj;
    }
    return kovJsonUnpackedValue(layout, up, f, v);
  }

  const CKovJsonLayout& layout;
  const CKovUp& up;
};

}  // namespace

Json kovJsonUnpackedValue(const CKovJsonLayout& layout, const CKovUp& up, const KovJsonField& f,
                          const CKovField* v) {
  if (v->IsNumber()) {
    return kovJsonNumberFromStored(f.format, f.bits,
                                   static_cast<const CKovNumField*>(v)->GetValue());
  }
  if (v->IsChar()) {
    uint16_t code = static_cast<const CKovCharField*>(v)->GetValue();
    if (code >= 0x20 && code < 0x7F) return std::string(1, static_cast<char>(code));
    return code;
  }
  if (v->IsString()) {
    return kovJsonUtf8FromLatin1(static_cast<const CKovStrField*>(v)->GetValue());
  }
  if (v->IsKovName()) {
    return kovNameValue(layout, up, f, static_cast<const CKovNameField*>(v)->GetValue());
  }
  return nullptr;
}

std::unique_ptr<KovJsonPackData> kovJsonPackData(const CKovJsonLayout& layout, const Json& values,
                                                 const std::string& file) {
  return ValuesReader(layout, values, file).Read();
}

std::vector<uint8_t> kovJsonPackImage(const CKovJsonLayout& layout, const KovJsonPackData& data,
                                      bool prefixes, const std::string& exportPath) {
  CKovImage image(layout.GetMaxImageSize());
  CKovPk pk(&data.pkBlks, prefixes ? 1 : 0);
  uint32_t used = 0;
  pk.FillImage(layout.GetCpLayout(), &image, used,
               exportPath.empty() ? nullptr : exportPath.c_str(), 0, 0, 0);
  return std::vector<uint8_t>(image.GetBytesArray(), image.GetBytesArray() + used);
}

Json kovJsonUnpackedValues(const CKovJsonLayout& layout, const CKovUp& up) {
  return ValuesWriter(layout, up).Write();
}

bool kovJsonLatin1FromUtf8(const std::string& text, std::string& bytes) {
  std::vector<uint32_t> cps;
  if (!decodeUtf8(text, cps)) return false;
  bytes.clear();
  for (uint32_t cp : cps) {
    if (cp > 0xFF) return false;
    bytes += static_cast<char>(cp);
  }
  return true;
}

std::string kovJsonUtf8FromLatin1(const std::string& bytes) {
  std::string text;
  for (char ch : bytes) {
    auto c = static_cast<unsigned char>(ch);
    if (c < 0x80) {
      text += static_cast<char>(c);
    } else {
      text += static_cast<char>(0xC0 | c >> 6);
      text += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return text;
}
