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
    // The names of an entry's fields differ: each member goes straight to the end of the object,
    // without a search for one of the same name.
    Json::object_t& members = *obj.get_ptr<Json::object_t*>();
    members.reserve(fields.size());
    for (const KovJsonField& f : fields) {
      if (!f.quantityOf.empty()) continue;
      CKovUpField* const* field = entry->GetUpFieldMap().PLookup(f.id);
      if (field == nullptr || *field == nullptr || (*field)->GetData() == nullptr) continue;
      members.emplace_back(f.name, Value(f, (*field)->GetData()));
    }
    return obj;
  }

  Json Value(const KovJsonField& f, const CKovField* v) {
    if (v->IsList()) {
      Json entries = Json::array();
      const CKovUpEntryList* list = static_cast<const CKovListField*>(v)->GetUpEntryList();
      if (list != nullptr) {
        Json::array_t& items = *entries.get_ptr<Json::array_t*>();
        items.reserve(static_cast<size_t>(list->GetCount()));
        for (const CKovUpEntry* e : *list) items.push_back(Entry(f.entry, e));
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
Json kovJsonUnpackedValues(const CKovJsonLayout& layout, const CKovUp& up) {
  return ValuesWriter(layout, up).Write();
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
