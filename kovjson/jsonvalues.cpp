#include "kovjson/jsonvalues.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "kovjson/jsonread.h"

namespace {

using Json = nlohmann::ordered_json;
using Node = KovValueNode;
using Type = KovValueTree::Type;

// The measuring of a data layout against a map of pack fields (CKovMap<uint32_t, CKovPkField*>).
constexpr int kPkFieldMapKind = 1;

uint64_t maxForBits(uint32_t bits) { return bits >= 32 ? 0xFFFFFFFFu : (uint64_t{1} << bits) - 1; }

// Decodes s into code points; false at the first malformed sequence, with the code points before
// it in out.
bool decodeUtf8(std::string_view s, std::vector<uint32_t>& out) {
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

// Where a value stands in the tree, as a chain up to the root on the stack of the reader. Its
// JSON pointer is built only when the value is refused.
struct Place {
  const Place* parent = nullptr;  // null: the root
  std::string_view key;           // a member's name, unless isIndex
  size_t index = 0;
  bool isIndex = false;

  Place() = default;
  Place(const Place& parent, std::string_view key) : parent(&parent), key(key) {}
  Place(const Place& parent, size_t index) : parent(&parent), index(index), isIndex(true) {}

  std::string Pointer() const {
    if (parent == nullptr) return "";
    std::string up = parent->Pointer();
    return isIndex ? kovJsonPointerTo(up, index) : kovJsonPointerTo(up, std::string(key));
  }
};

// Reads the values of one tree against one layout.
class ValuesReader {
 public:
  ValuesReader(const CKovJsonLayout& layout, const KovValueTree& tree, const std::string& file)
      : layout(layout),
        tree(tree),
        tape(dynamic_cast<const KovValueTape*>(&tree)),
        root(tree.Root()),
        in(file) {}

  std::unique_ptr<KovJsonPackData> Read() {
    Place top;
    if (TypeOf(root) != Type::Object) in.Fail("", "must be an object, not " + TypeName(root));
    KovValueIter it;
    std::string_view key;
    Node value;
    while (tree.NextMember(root, it, key, value)) {
      std::string name(key);
      if (layout.FindBlock(name) == nullptr) {
        in.Fail(kovJsonPointerTo("", name), "no block named '" + name + "' in " + layout.GetFile());
      }
    }
    auto data = std::make_unique<KovJsonPackData>();
    // The tree is made in the data's arena; what a refusal leaves half-made is freed in it too.
    KovArenaScope scope(&data->arena);
    for (const KovJsonBlock& blk : layout.GetBlocks()) {
      Node v = tree.Find(root, blk.name);
      if (v.IsNull()) continue;
      Place at(top, blk.name);
      Type type = TypeOf(v);
      if (type != Type::Object && type != Type::Array) {
        in.Fail(at.Pointer(),
                "a block's value is an object (one instance) or an array of them, "
                "not " +
                    TypeName(v));
      }
      size_t count = type == Type::Array ? tree.Size(v) : 1;
      if (count == 0) continue;
      // Two instances of a single-instance block would share one KOV name.
      if (count > 1 && !blk.multi) {
        in.Fail(at.Pointer(),
                kovFormat("block '%s' is not multi-instance: give one instance, not %zu",
                          blk.name.c_str(), count));
      }
      auto entries = std::make_unique<CKovPkEntryList>();
      std::vector<uint16_t> sizes;
      sizes.reserve(count);
      KovValueIter elements;
      for (size_t i = 0; i < count; ++i) {
        Node instance = v;
        if (type == Type::Array) tree.NextElement(v, elements, instance);
        Place iat = type == Type::Array ? Place(at, i) : at;
        Ctx ctx{&blk, i + 1, {}};
        std::unique_ptr<CKovPkEntry> entry = Entry(blk.fields, instance, iat, ctx);
        sizes.push_back(DataSize(blk, *entry, iat));
        entries->AddTail(entry.release());
      }
      data->numInstances += static_cast<uint32_t>(count);
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
  // as its fields and its object in the tree, outermost first.
  struct Ctx {
    const KovJsonBlock* blk;
    size_t instance;
    std::vector<std::pair<const std::vector<KovJsonField>*, Node>> chain;
  };

  // The name of a value's type for messages, as kovJsonTypeName gives it; by KovValueTree::Type.
  std::string TypeName(Node v) const {
    static const char* const kNames[] = {"null",     "true or false", "a number",  "a number",
                                         "a number", "a string",      "an object", "an array"};
    Type type = TypeOf(v);
    if (type == Type::Other) return kovJsonTypeName(tree.ToJson(v));
    return kNames[static_cast<int>(type)];
  }

  // The index in fields of the field named key; hint is where the search starts, since the
  // members of an entry usually come in the order of its fields. fields.size() when none is.
  static size_t FieldIndex(const std::vector<KovJsonField>& fields, std::string_view key,
                           size_t hint) {
    for (size_t k = 0; k < fields.size(); ++k) {
      size_t i = hint + k < fields.size() ? hint + k : hint + k - fields.size();
      if (fields[i].name == key) return i;
    }
    return fields.size();
  }

  [[noreturn]] void FailNoField(const std::vector<KovJsonField>& fields, std::string_view key,
                                const Place& at) {
    std::string names;
    for (const KovJsonField& f : fields) {
      if (f.quantityOf.empty()) names += (names.empty() ? "'" : ", '") + f.name + "'";
    }
    in.Fail(Place(at, key).Pointer(), "no field '" + std::string(key) + "' here" +
                                          (names.empty() ? std::string(": this entry has no fields")
                                                         : "; the fields are " + names));
  }

  // The members of object obj of the tape into scratch from base, by the index of their field.
  // Member names are indices in a tape: each is matched to a field of fields once, and every
  // entry of a list after the first takes the match from fieldsByKey.
  void MatchTapeMembers(const std::vector<KovJsonField>& fields, Node obj, const Place& at,
                        size_t base) {
    std::vector<uint32_t>& byKey = FieldsByKey(fields);
    const KovValueTape::Item& item = tape->ItemOf(obj);
    const uint32_t* kids = tape->Children(item);
    for (uint32_t k = 0; k < item.size; ++k) {
      Node value = tape->NodeAt(kids[k]);
      uint32_t key = KovValueTape::KeyOfItem(tape->ItemOf(value));
      if (key >= byKey.size()) byKey.resize(tape->KeyCount(), kUnmatched);
      uint32_t i = byKey[key];
      if (i == kUnmatched) {
        i = static_cast<uint32_t>(FieldIndex(fields, tape->KeyName(key), 0));
        byKey[key] = i;
      }
      if (i == fields.size()) FailNoField(fields, tape->KeyName(key), at);
      scratch[base + i] = value;
    }
  }

  // The field index of every member name index of the tape met so far in an object of fields.
  std::vector<uint32_t>& FieldsByKey(const std::vector<KovJsonField>& fields) {
    if (&fields == lastFields) return *lastByKey;
    lastFields = &fields;
    lastByKey = &fieldsByKey[&fields];
    return *lastByKey;
  }

  std::unique_ptr<CKovPkEntry> Entry(const std::vector<KovJsonField>& fields, Node obj,
                                     const Place& at, Ctx& ctx) {
    if (TypeOf(obj) != Type::Object)
      in.Fail(at.Pointer(), "an entry is an object of fields, not " + TypeName(obj));
    // The value of each field by its index, in a region of the scratch vector that inner entries
    // leave as they found it.
    size_t base = scratch.size();
    scratch.resize(base + fields.size());
    if (tape != nullptr) {
      MatchTapeMembers(fields, obj, at, base);
    } else {
      KovValueIter it;
      std::string_view key;
      Node value;
      size_t hint = 0;
      while (tree.NextMember(obj, it, key, value)) {
        size_t i = FieldIndex(fields, key, hint);
        if (i == fields.size()) FailNoField(fields, key, at);
        scratch[base + i] = value;
        hint = i + 1 < fields.size() ? i + 1 : 0;
      }
    }
    auto entry = std::make_unique<CKovPkEntry>(static_cast<int>(fields.size()));
    ctx.chain.emplace_back(&fields, obj);
    for (size_t i = 0; i < fields.size(); ++i) {
      const KovJsonField& f = fields[i];
      Place fat(at, f.name);
      std::unique_ptr<CKovField> field;
      Node v = scratch[base + i];
      if (!v.IsNull()) {
        if (!f.quantityOf.empty()) {
          in.Fail(fat.Pointer(), "'" + f.name + "' holds the quantity of list '" + f.quantityOf +
                                     "', which the pack writes from the list's entries: leave it "
                                     "out");
        }
        field = Value(f, v, fat, ctx);
      } else if (f.kind == KovJsonKind::List && f.listFormat != FixedSzNoLeq) {
        field = EmptyList(f, fat, ctx);
      } else {
        continue;
      }
      auto pkField = std::make_unique<CKovPkField>(field.get());
      field.release();
      entry->AddPkField(f.id, pkField.release(), static_cast<int>(i));
    }
    ctx.chain.pop_back();
    scratch.resize(base);
    return entry;
  }

  std::unique_ptr<CKovField> Value(const KovJsonField& f, Node v, const Place& at, Ctx& ctx) {
    switch (f.kind) {
      case KovJsonKind::Number:
        return std::make_unique<CKovNumField>(Stored(f, v, at), f.id, f.bits);
      case KovJsonKind::Char:
        return std::make_unique<CKovCharField>(CharCode(f, tree.ToJson(v), at.Pointer()), f.id,
                                               f.bits);
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

  // The stored number of a number field's value; the format of the field says how it reads. A
  // plain unsigned number in range is read in place; anything else as JSON.
  uint32_t Stored(const KovJsonField& f, Node v, const Place& at) {
    if (f.format.IsPlain() && TypeOf(v) == Type::Unsigned) {
      uint64_t value = tape != nullptr ? tape->Unsigned(v) : tree.Unsigned(v);
      if (value <= maxForBits(f.bits)) return static_cast<uint32_t>(value);
    }
    return Stored(f, tree.ToJson(v), at.Pointer());
  }

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
      if (!decodeUtf8(v.get_ref<const std::string&>(), cps) || cps.size() != 1) {
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

  std::string StringBytes(const KovJsonField& f, Node v, const Place& at) {
    if (TypeOf(v) == Type::String)
      return StringBytes(f, tape != nullptr ? tape->String(v) : tree.String(v), at);
    Json j = tree.ToJson(v);
    if (!j.is_string()) in.Fail(at.Pointer(), "must be a string, not " + kovJsonTypeName(j));
    return StringBytes(f, j.get_ref<const std::string&>(), at);
  }

  // The bytes of a string value: the characters up to the first malformed UTF-8 sequence.
  std::string StringBytes(const KovJsonField& f, std::string_view text, const Place& at) {
    // Text of ASCII characters but 0 that fits is its own bytes, whatever the characters.
    if (text.size() <= f.chars && f.charType != CKovCharFieldLayout::Char4Bit &&
        std::all_of(text.begin(), text.end(), [](char c) {
          auto u = static_cast<unsigned char>(c);
          return u != 0 && u < 0x80;
        })) {
      return std::string(text);
    }
    cps.clear();
    decodeUtf8(text, cps);
    if (cps.size() > f.chars) {
      in.Fail(at.Pointer(),
              kovFormat("%zu characters do not fit the field's %u", cps.size(), f.chars));
    }
    std::string bytes;
    bytes.reserve(cps.size());
    for (uint32_t cp : cps) {
      if (cp == 0) in.Fail(at.Pointer(), "a string can't hold the character 0, which ends it");
      if (f.charType == CKovCharFieldLayout::Char4Bit && (cp < '0' || cp > '?')) {
        in.Fail(at.Pointer(), "a string of 4-bit characters holds digits only, '0' to '9'");
      }
      if (cp > 0xFF) {
        in.Fail(at.Pointer(),
                kovFormat("character U+%04X is not an 8-bit character (U+0001 to U+00FF)", cp));
      }
      bytes += static_cast<char>(cp);
    }
    return bytes;
  }

  // The instances block blk has in the tree.
  size_t InstancesInFile(const KovJsonBlock& blk) {
    Node v = tree.Find(root, blk.name);
    if (v.IsNull()) return 0;
    return TypeOf(v) == Type::Array ? tree.Size(v) : 1;
  }

  // Instance n (from 1) of the value of a block: an array's element, or the one object.
  Node InstanceOf(Node v, size_t n) {
    if (TypeOf(v) != Type::Array) return n == 1 ? v : Node();
    return n <= tree.Size(v) ? tree.At(v, n - 1) : Node();
  }

  uint32_t KovName(const KovJsonField& f, Node node, const Place& place) {
    if (TypeOf(node) != Type::Object) return Stored(f, node, place);
    Json v = tree.ToJson(node);
    std::string at = place.Pointer();
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

  // A list left out of its entry: packed empty, as an empty array would be.
  std::unique_ptr<CKovField> EmptyList(const KovJsonField& f, const Place& at, Ctx& ctx) {
    CheckQuantityRule(f, 0, at, ctx);
    auto list =
        std::make_unique<CKovListField>(f.id, 0, static_cast<uint16_t>(f.maxEntries), nullptr);
    list->SetImageSize(0);
    return list;
  }

  std::unique_ptr<CKovField> List(const KovJsonField& f, Node v, const Place& at, Ctx& ctx) {
    if (TypeOf(v) != Type::Array)
      in.Fail(at.Pointer(), "a list is an array of entries, not " + TypeName(v));
    size_t count = tree.Size(v);
    if (count > f.maxEntries) {
      in.Fail(at.Pointer(), kovFormat("%zu entries, but list '%s' holds at most %u", count,
                                      f.name.c_str(), f.maxEntries));
    }
    CheckQuantityRule(f, count, at, ctx);
    auto list = std::make_unique<CKovListField>(f.id, static_cast<uint32_t>(count),
                                                static_cast<uint16_t>(f.maxEntries), nullptr);
    KovValueIter it;
    Node e;
    for (size_t i = 0; tree.NextElement(v, it, e); ++i) {
      list->AddEntryToList(Entry(f.entry, e, Place(at, i), ctx).release());
    }
    // A fixed list takes all its entries in the image, also those left out.
    uint64_t qty = f.listFormat == FixedSzNoLeq ? f.maxEntries : count;
    list->SetImageSize(static_cast<uint32_t>(qty * f.entryBits));
    return list;
  }

  // A calculated quantity must give the entries the list has, or the list would read back
  // another length.
  void CheckQuantityRule(const KovJsonField& f, size_t count, const Place& at, Ctx& ctx) {
    if (f.listFormat != VarSzCalcLeq && f.listFormat != VarSzCalcLeqAlt) return;
    if (f.qtyIsConstant) {
      if (count != f.qtyConstant) {
        in.Fail(at.Pointer(), kovFormat("%zu entries, but list '%s' always holds %u", count,
                                        f.name.c_str(), f.qtyConstant));
      }
      return;
    }
    const KovJsonBlock* src = layout.FindBlock(f.qtyBlkID);
    const KovJsonField* qf = kovJsonTopField(*src, f.qtyFieldID);
    size_t instance = src->multi ? ctx.instance : 1;
    uint64_t value = 0;
    Node blkValue = tree.Find(root, src->name);
    if (!blkValue.IsNull()) {
      Node obj = InstanceOf(blkValue, instance);
      if (!obj.IsNull() && TypeOf(obj) == Type::Object) {
        Node qv = tree.Find(obj, qf->name);
        if (!qv.IsNull()) {
          Place top;
          Place blkAt(top, src->name);
          Place instAt = TypeOf(blkValue) == Type::Array ? Place(blkAt, instance - 1) : blkAt;
          value = Stored(*qf, qv, Place(instAt, qf->name));
        }
      }
    }
    int64_t qty = std::max<int64_t>(0, static_cast<int64_t>(value) * f.qtyScale + f.qtyOffset);
    if (static_cast<uint64_t>(qty) != count) {
      in.Fail(at.Pointer(),
              kovFormat("%zu entries, but the quantity of list '%s' is %lld: '%s' of block "
                        "'%s' [%zu] is %llu (times %lld plus %lld)",
                        count, f.name.c_str(), static_cast<long long>(qty), qf->name.c_str(),
                        src->name.c_str(), instance, static_cast<unsigned long long>(value),
                        static_cast<long long>(f.qtyScale), static_cast<long long>(f.qtyOffset)));
    }
  }

  std::unique_ptr<CKovField> Union(const KovJsonField& f, Node v, const Place& at, Ctx& ctx) {
    std::string names;
    for (const KovJsonOption& o : f.options) names += (names.empty() ? "" : ", ") + o.name;
    if (TypeOf(v) != Type::Object || tree.Size(v) != 1) {
      in.Fail(at.Pointer(),
              "a union is an object with one member, named for its option (" + names + ")");
    }
    KovValueIter it;
    std::string_view key;
    Node value;
    tree.NextMember(v, it, key, value);
    std::string name(key);
    const KovJsonOption* option = f.FindOption(name);
    Place oat(at, key);
    if (option == nullptr) {
      in.Fail(oat.Pointer(),
              "union '" + f.name + "' has no option '" + name + "'; it has " + names);
    }
    CheckSelection(f, *option, at, ctx);
    std::unique_ptr<CKovPkEntry> entry = Entry(option->fields, value, oat, ctx);
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

  // The value of discriminant d as the tree gives it, when it can be found: in an entry that
  // encloses the union, or at the top of another block. A discriminant left out is 0.
  std::optional<KovJsonDiscrValue> DiscrValue(const KovJsonDiscr& d, const Ctx& ctx) {
    const KovJsonField* field = nullptr;
    Node obj;
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
      Node blkValue = tree.Find(root, other->name);
      if (blkValue.IsNull()) return std::nullopt;
      obj = InstanceOf(blkValue, other->multi ? ctx.instance : 1);
    }
    if (field == nullptr || obj.IsNull() || TypeOf(obj) != Type::Object) return std::nullopt;
    KovJsonDiscrValue value;
    value.isText = field->kind == KovJsonKind::String;
    Node node = tree.Find(obj, field->name);
    if (node.IsNull()) return value;
    Json v = tree.ToJson(node);
    if (value.isText && v.is_string()) {
      value.text = v.get<std::string>();
    } else if (field->kind == KovJsonKind::Number && !field->format.IsPlain()) {
      std::string why;
      if (!kovJsonNumberToStored(field->format, field->bits, v, value.number, why)) {
        return std::nullopt;
      }
    } else if (v.is_number_unsigned()) {
      value.number = static_cast<uint32_t>(v.get<uint64_t>());
    } else if (field->kind == KovJsonKind::Char && v.is_string() &&
               v.get_ref<const std::string&>().size() == 1) {
      value.number = static_cast<uint8_t>(v.get_ref<const std::string&>()[0]);
    } else {
      return std::nullopt;
    }
    return value;
  }

  void CheckSelection(const KovJsonField& f, const KovJsonOption& option, const Place& at,
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
    in.Fail(at.Pointer(),
            "option '" + option.name + "' is given, but the discriminant value" +
                (values.size() == 1 ? " " : "s ") + shown +
                (values.size() == 1 ? " selects" : " select") +
                (selected != nullptr ? " option '" + selected->name + "'" : " no option"));
  }

  uint16_t DataSize(const KovJsonBlock& blk, const CKovPkEntry& entry, const Place& at) {
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
        in.Fail(at.Pointer(),
                kovFormat("the values reach %llu bytes, beyond the %llu bytes the block is "
                          "padded to",
                          static_cast<unsigned long long>(bytes),
                          static_cast<unsigned long long>(padded)));
      }
      return static_cast<uint16_t>(padded);
    }
    // The library refuses more than an instance can hold, with its own text.
    return static_cast<uint16_t>(std::min<uint64_t>(bytes, 0xFFFF));
  }

  // The tree's type by the tree, or straight from the tape.
  Type TypeOf(Node v) const { return tape != nullptr ? tape->TypeOf(v) : tree.TypeOf(v); }

  static constexpr uint32_t kUnmatched = 0xFFFFFFFFu;

  const CKovJsonLayout& layout;
  const KovValueTree& tree;
  const KovValueTape* tape;  // the tree when it is a tape, else null
  const Node root;
  KovJsonReader in;
  std::vector<Node> scratch;  // the values of the fields of the entries being read
  std::vector<uint32_t> cps;  // the code points of the string being read
  std::unordered_map<const std::vector<KovJsonField>*, std::vector<uint32_t>> fieldsByKey;
  const std::vector<KovJsonField>* lastFields = nullptr;
  std::vector<uint32_t>* lastByKey = nullptr;
};

}  // namespace

std::unique_ptr<KovJsonPackData> kovJsonPackData(const CKovJsonLayout& layout, const Json& values,
                                                 const std::string& file) {
  return kovJsonPackTree(layout, KovJsonValueTree(values), file);
}

std::unique_ptr<KovJsonPackData> kovJsonPackTree(const CKovJsonLayout& layout,
                                                 const KovValueTree& values,
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
