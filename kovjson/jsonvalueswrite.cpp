#include <algorithm>
#include <string>
#include <utility>

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
      for (const KovJsonField& f : fields) {
        if (!f.quantityOf.empty()) continue;
        CKovUpField* const* field = entry->GetUpFieldMap().PLookup(f.id);
        if (field == nullptr || *field == nullptr || (*field)->GetData() == nullptr) continue;
        out.AddKey(f.name);
        Value(f, (*field)->GetData());
      }
    }
    out.End();
  }

  void Value(const KovJsonField& f, const CKovField* v) {
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
    // The common values without a JSON value between: a plain number, a string of ASCII.
    if (v->IsNumber() && f.format.IsPlain()) {
      out.AddUnsigned(static_cast<const CKovNumField*>(v)->GetValue());
      return;
    }
    if (v->IsString()) {
      std::string bytes = static_cast<const CKovStrField*>(v)->GetValue();
      bool ascii = std::all_of(bytes.begin(), bytes.end(),
                               [](char c) { return static_cast<unsigned char>(c) < 0x80; });
      out.AddString(ascii ? bytes : kovJsonUtf8FromLatin1(bytes));
      return;
    }
    out.AddJson(kovJsonUnpackedValue(layout, up, f, v));
  }

  const CKovJsonLayout& layout;
  const CKovUp& up;
  KovValueTape& out;
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
