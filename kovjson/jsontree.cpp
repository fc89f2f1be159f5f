#include "kovjson/jsontree.h"

#include <functional>
#include <unordered_map>

#include "kovjson/jsonlint.h"

namespace {

const char* const kListFormats[] = {"fixed",      "contiguous",    "sameBlock", "otherBlock",
                                    "calculated", "calculatedAlt", "kls"};
const char* const kUnionFormats[] = {"fixed",          "fixedSplit",    "variable",
                                     "variablePadded", "variableSplit", "variableSplitPadded"};

std::string quoted(const std::string& name) { return "'" + name + "'"; }

class TreeWriter {
 public:
  explicit TreeWriter(const CKovJsonLayout& layout)
      : layout(layout), byID(layout.GetFieldsByID()) {}

  std::string Write() {
    text = kovFormat("Layout: %zu partition%s, %zu block%s, images up to %u bytes\n",
                     layout.GetNumPartitions(), layout.GetNumPartitions() == 1 ? "" : "s",
                     layout.GetBlocks().size(), layout.GetBlocks().size() == 1 ? "" : "s",
                     layout.GetMaxImageSize());
    bool first = true;
    uint16_t partition = 0;
    for (const KovJsonBlock& blk : layout.GetBlocks()) {
      if (first || blk.partition != partition) text += kovFormat("Partition %u\n", blk.partition);
      first = false;
      partition = blk.partition;
      Block(blk);
    }
    return text;
  }

 private:
  void Block(const KovJsonBlock& blk) {
    static const char* const kinds[] = {"", "header", "KOV List Structure",
                                        "distributed KOV List Structure"};
    std::string name = blk.multi || blk.kind == KovJsonBlkKind::DistKls
                           ? kovFormat("KOV type 0x%04X", blk.kovType)
                           : kovFormat("KOV name 0x%04X%04X", blk.kovType, blk.kovID);
    std::string traits;
    if (blk.kind != KovJsonBlkKind::Standard) traits += std::string(", ") + kinds[int(blk.kind)];
    if (blk.multi) traits += ", multi-instance";
    if (blk.padded) traits += ", padded";
    if (blk.kind == KovJsonBlkKind::DistKls) {
      traits += kovFormat(", %u entries a listlet", blk.listletMax);
    }
    uint64_t cfg = kovJsonCfgBits(blk) / 8;
    text += kovFormat("  Block '%s' (id %u): %s, maxDataSize %u bytes%s%s\n", blk.name.c_str(),
                      blk.id, name.c_str(), blk.maxDataSize,
                      cfg != 0 ? kovFormat(" behind %llu bytes of configuration",
                                           static_cast<unsigned long long>(cfg))
                                     .c_str()
                               : "",
                      traits.c_str());
    text += "    byte MSB  width    size  field\n";
    Fields(blk.fields, kovJsonCfgBits(blk),
           blk.kind == KovJsonBlkKind::DistKls ? blk.listletMax : 0, "");
  }

  void Fields(const std::vector<KovJsonField>& fields, uint64_t firstBit, uint32_t listletMax,
              const std::string& indent) {
    for (const KovJsonPlaced& p : kovJsonPlaceFields(fields, firstBit, listletMax)) {
      const KovJsonField& f = *p.field;
      bool exactSz = f.kind != KovJsonKind::List || f.listFormat == FixedSzNoLeq;
      if (f.kind == KovJsonKind::Union) {
        exactSz = CKovUnionFieldLayout::IsFixedSzFormat(f.unionFormat);
      }
      std::string where =
          p.exact ? kovFormat("%6llu %3llu", static_cast<unsigned long long>(p.start / 8),
                              static_cast<unsigned long long>(7 - p.start % 8))
                  : "     -   -";
      std::string size = (exactSz ? "" : "<=") + std::to_string(p.end - p.start);
      text += kovFormat("  %s %6s %7s  %s%s (%u): %s\n", where.c_str(), Width(f).c_str(),
                        size.c_str(), indent.c_str(), f.name.c_str(), f.id, Type(f).c_str());
      if (f.kind == KovJsonKind::List) Fields(f.entry, 0, 0, indent + "  ");
      for (const KovJsonOption& o : f.options) {
        text += kovFormat("  %s %6s %7s  %s  option '%s' (%u)\n", "          ",
                          o.bits != 0 ? std::to_string(o.bits).c_str() : "", "", indent.c_str(),
                          o.name.c_str(), o.id);
        Fields(o.fields, 0, 0, indent + "    ");
      }
    }
  }

  std::string Width(const KovJsonField& f) {
    switch (f.kind) {
      case KovJsonKind::String:
        return std::to_string(f.charType);
      case KovJsonKind::List:
        return std::to_string(f.entryBits);
      case KovJsonKind::Union:
        return CKovUnionFieldLayout::IsFixedSzFormat(f.unionFormat) ? std::to_string(f.bits) : "";
      default:
        return std::to_string(f.bits);
    }
  }

  std::string FieldName(uint32_t id) {
    auto it = byID.find(id);
    return it != byID.end() ? quoted(it->second->name) : std::to_string(id);
  }

  std::string Type(const KovJsonField& f) {
    std::string t;
    switch (f.kind) {
      case KovJsonKind::Number:
        t = "number" + Format(f.format);
        break;
      case KovJsonKind::Char:
        t = kovFormat("char of %u bits", static_cast<unsigned>(f.charType));
        break;
      case KovJsonKind::String:
        t = kovFormat("string of %u chars of %u bits", f.chars, static_cast<unsigned>(f.charType));
        break;
      case KovJsonKind::Name: {
        const KovJsonBlock* ref = layout.FindBlock(f.refBlkID);
        t = "KOV name of block " +
            (ref != nullptr ? quoted(ref->name) : std::to_string(f.refBlkID));
        break;
      }
      case KovJsonKind::List:
        t = kovFormat("list %s, up to %u entries", kListFormats[f.listFormat], f.maxEntries);
        if (f.qtyIsConstant) {
          t += kovFormat(", always %u", f.qtyConstant);
        } else if (f.listFormat == VarSzCalcLeq || f.listFormat == VarSzCalcLeqAlt) {
          t += ", quantity " + FieldName(f.qtyFieldID) +
               kovFormat(" x %lld + %lld", static_cast<long long>(f.qtyScale),
                         static_cast<long long>(f.qtyOffset));
        } else if (f.listFormat != FixedSzNoLeq && f.listFormat != VarSzCfgLeq) {
          t += ", quantity " + FieldName(f.leqID);
        }
        break;
      case KovJsonKind::Union: {
        t = std::string("union ") + kUnionFormats[f.unionFormat - UnionFixedPadded];
        std::string by;
        for (const KovJsonDiscr& d : f.discrs)
          by += (by.empty() ? "" : ", ") + FieldName(d.fieldID);
        if (!by.empty()) t += ", option by " + by;
        break;
      }
    }
    if (!f.fixed) {
      t += f.gap == 0   ? ", floats"
           : f.gap == 1 ? ", floats 1 bit behind"
                        : kovFormat(", floats %u bits behind", f.gap);
    }
    if (!f.quantityOf.empty()) t += ", quantity of " + quoted(f.quantityOf);
    return t;
  }

  static std::string Format(const KovJsonNumberFormat& format) {
    std::string t;
    auto names = [](const std::vector<std::pair<std::string, uint32_t>>& list, const char* unit) {
      std::string out;
      for (const auto& [name, value] : list) {
        out += (out.empty() ? "" : ", ") + name + " " + unit + std::to_string(value);
      }
      return out;
    };
    if (!format.enumNames.empty()) t += ", enum " + names(format.enumNames, "");
    if (!format.flagNames.empty()) t += ", flags " + names(format.flagNames, "bit ");
    if (format.isSigned) t += ", signed";
    if (format.scaled) {
      t += ", x " + kovJsonDecimalText(format.scaleUnits, format.decimals) + " + " +
           kovJsonDecimalText(format.offsetUnits, format.decimals);
    }
    return t;
  }

  const CKovJsonLayout& layout;
  std::unordered_map<uint32_t, const KovJsonField*> byID;
  std::string text;
};

}  // namespace

std::string kovJsonTreeDetail(const CKovJsonLayout& layout) { return TreeWriter(layout).Write(); }
