// The layout reader, pass 1 and 2 for fields: numbers, characters, strings, names, lists and
// unions, their places in the data, and their references to fields and blocks
// (kovjson/layoutreader.h).
#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kovjson/layoutreader.h"

using Json = nlohmann::ordered_json;

std::vector<KovJsonField> KovJsonLayoutReader::ReadFields(const Json& arr, const std::string& at,
                                                          int depth) {
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

KovJsonField KovJsonLayoutReader::ReadField(const Json& o, const std::string& at, int depth) {
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

CKovCharFieldLayout::CharType KovJsonLayoutReader::CharTypeOf(const Json& o, const std::string& at,
                                                              bool allow16) {
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

void KovJsonLayoutReader::ReadList(KovJsonField& f, const Json& o, const std::string& at,
                                   int depth) {
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

void KovJsonLayoutReader::ReadUnion(KovJsonField& f, const Json& o, const std::string& at,
                                    int depth) {
  f.kind = KovJsonKind::Union;
  static const std::vector<const char*> formats = {
      "fixed", "fixedSplit", "variable", "variablePadded", "variableSplit", "variableSplitPadded"};
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

uint64_t KovJsonLayoutReader::NominalBits(const std::vector<KovJsonField>& fields) {
  uint64_t end = 0;
  for (const KovJsonField& f : fields) {
    if (f.fixed && IsFixedSz(f)) end = std::max(end, StartBits(f) + SizeBits(f));
  }
  return end;
}

bool KovJsonLayoutReader::IsFixedSz(const KovJsonField& f) {
  if (f.kind == KovJsonKind::List) return f.listFormat == FixedSzNoLeq;
  if (f.kind == KovJsonKind::Union) return CKovUnionFieldLayout::IsFixedSzFormat(f.unionFormat);
  return true;
}

uint64_t KovJsonLayoutReader::StartBits(const KovJsonField& f) {
  return uint64_t{f.byteOffset} * 8 + 7 - f.msbStart;
}

uint64_t KovJsonLayoutReader::SizeBits(const KovJsonField& f) {
  return f.kind == KovJsonKind::List ? uint64_t{f.maxEntries} * f.entryBits : f.bits;
}

void KovJsonLayoutReader::CheckFieldsFit(const std::vector<KovJsonField>& fields, uint64_t firstBit,
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
      in.Fail(f.at,
              kovFormat("the field ends at bit %llu, beyond %s",
                        static_cast<unsigned long long>(StartBits(f) + SizeBits(f)), what.c_str()));
    }
  }
}

void KovJsonLayoutReader::ResolveFields(KovJsonBlock& blk, std::vector<KovJsonField>& fields,
                                        const Json& arr) {
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

void KovJsonLayoutReader::ResolveList(KovJsonBlock& blk, std::vector<KovJsonField>& siblings,
                                      KovJsonField& f, const Json& o) {
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
    in.Fail(kovJsonPointerTo(at, "field"),
            "field '" + leq.name + "' already holds the quantity of list '" + leq.quantityOf + "'");
  }
  leq.quantityOf = f.name;
  f.leqID = leq.id;
  f.leqBlkID = leqBlk.id;
}

void KovJsonLayoutReader::ResolveUnion(KovJsonBlock& blk, KovJsonField& f, const Json& o) {
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
      in.Fail(kovJsonPointerTo(at, "field"), "a discriminant is a number, char or string, not a " +
                                                 std::string(kovJsonKindName(d.kind)));
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
      in.Fail(wat, kovFormat("give one value for each of the %zu discriminants", f.discrs.size()));
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

uint32_t KovJsonLayoutReader::OptionRef(const KovJsonField& u, const Json& v,
                                        const std::string& at) {
  const KovJsonOption* o = v.is_string()
                               ? u.FindOption(v.get<std::string>())
                               : u.FindOption(static_cast<uint32_t>(in.ToUInt(v, at, 0, 0xFFFF)));
  if (o == nullptr) in.Fail(at, "no such option in union '" + u.name + "'");
  return o->id;
}
