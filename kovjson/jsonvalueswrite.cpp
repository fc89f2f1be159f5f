#include <algorithm>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kovjson/jsonvalues.h"

namespace {

using Json = nlohmann::ordered_json;

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

// Writes the values of an unpack into a tape, in layout order.
class ValuesWriter {
 public:
  ValuesWriter(const CKovJsonLayout& layout, const CKovUp& up, KovValueTape& out)
      : layout(layout), up(up), out(out) {}

  void Write() {
    out.BeginObject();
    for (const KovJsonBlock& blk : layout.GetBlocks()) {
      const CKovUpStdBlk* read = up.GetUnpackedBlk(blk.id);
      if (read == nullptr) continue;
      // The pack generates a header block that has no fields of its own.
      if (blk.kind == KovJsonBlkKind::Header && blk.fields.empty()) continue;
      int qty = read->GetBlkInstanceQty();
      out.AddKey(blk.name);
      if (qty == 1 && !blk.multi) {
        Entry(blk.fields, read->GetUpEntry(1));
        continue;
      }
      out.BeginArray();
      for (int i = 1; i <= qty; ++i) Entry(blk.fields, read->GetUpEntry(i));
      out.End();
    }
    out.End();
  }

 private:
  void Entry(const std::vector<KovJsonField>& fields, const CKovUpEntry* entry) {
    out.BeginObject();
    if (entry != nullptr) {
      const uint32_t* keys = KeysOf(fields);
      for (size_t i = 0; i < fields.size(); ++i) {
        const KovJsonField& f = fields[i];
        if (!f.quantityOf.empty()) continue;
        CKovUpField* const* field = entry->GetUpFieldMap().PLookup(f.id);
        if (field == nullptr || *field == nullptr || (*field)->GetData() == nullptr) continue;
        out.AddKeyIndex(keys[i]);
        Value(f, (*field)->GetData());
      }
    }
    out.End();
  }

  // The member name index of every field of fields in the tape, taken once per list of fields:
  // a list's entries all name the same members.
  const uint32_t* KeysOf(const std::vector<KovJsonField>& fields) {
    if (&fields == lastFields) return lastKeys;
    std::vector<uint32_t>& keys = keysByFields[&fields];
    if (keys.size() != fields.size()) {
      keys.clear();
      for (const KovJsonField& f : fields) keys.push_back(out.KeyIndex(f.name));
    }
    lastFields = &fields;
    lastKeys = keys.data();
    return lastKeys;
  }

  void Value(const KovJsonField& f, const CKovField* v) {
    // The common values without a JSON value between: a plain number, a string. The kind of the
    // layout's field tells which to ask first.
    if (f.kind == KovJsonKind::Number && f.format.IsPlain() && v->IsNumber()) {
      out.AddUnsigned(static_cast<const CKovNumField*>(v)->GetValue());
      return;
    }
    if (f.kind == KovJsonKind::String && v->IsString()) {
      std::string bytes = static_cast<const CKovStrField*>(v)->GetValue();
      bool ascii = std::all_of(bytes.begin(), bytes.end(),
                               [](char c) { return static_cast<unsigned char>(c) < 0x80; });
      out.AddString(ascii ? bytes : kovJsonUtf8FromLatin1(bytes));
      return;
    }
    if (v->IsList()) {
      out.BeginArray();
      const CKovUpEntryList* list = static_cast<const CKovListField*>(v)->GetUpEntryList();
      if (list != nullptr) {
        for (const CKovUpEntry* e : *list) Entry(f.entry, e);
      }
      out.End();
      return;
    }
    if (v->IsUnion()) {
      auto u = static_cast<const CKovUnionField*>(v);
      const KovJsonOption* option = f.FindOption(u->GetLayoutID());
      out.BeginObject();
      if (option != nullptr) {
        out.AddKey(option->name);
        Entry(option->fields, u->GetUpEntry());
      }
      out.End();
      return;
    }
    out.AddJson(kovJsonUnpackedValue(layout, up, f, v));
  }

  const CKovJsonLayout& layout;
  const CKovUp& up;
  KovValueTape& out;
  std::unordered_map<const std::vector<KovJsonField>*, std::vector<uint32_t>> keysByFields;
  const std::vector<KovJsonField>* lastFields = nullptr;
  const uint32_t* lastKeys = nullptr;
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
void kovJsonWriteUnpackedValues(const CKovJsonLayout& layout, const CKovUp& up, KovValueTape& out) {
  ValuesWriter(layout, up, out).Write();
}

Json kovJsonUnpackedValues(const CKovJsonLayout& layout, const CKovUp& up) {
  KovValueTape values;
  kovJsonWriteUnpackedValues(layout, up, values);
  return values.ToJson(values.Root());
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
