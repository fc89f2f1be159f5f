// The layout reader, pass 1 and 2 for the document: partitions and blocks, their ids, and the
// references between blocks (kovjson/layoutreader.h).
#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kovjson/layoutreader.h"

using Json = nlohmann::ordered_json;

const char* kovJsonKindName(KovJsonKind kind) {
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

void kovJsonVisitFields(std::vector<KovJsonField>& fields,
                        const std::function<void(KovJsonField&)>& visit) {
  for (KovJsonField& f : fields) {
    visit(f);
    kovJsonVisitFields(f.entry, visit);
    for (KovJsonOption& o : f.options) kovJsonVisitFields(o.fields, visit);
  }
}

void KovJsonLayoutReader::Read(const Json& doc) {
  ReadDocument(doc);
  AssignIDs();
  for (size_t i = 0; i < out.blocks.size(); ++i) ResolveBlock(out.blocks[i], *blockNodes[i]);
  Build();
}

void KovJsonLayoutReader::ReadDocument(const Json& doc) {
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

AccessRights KovJsonLayoutReader::ReadAccess(const Json& o, const std::string& at) {
  std::string access =
      in.Choice(o, at, "access", {"readOnly", "readWrite", "readWriteLocked"}, "readWrite");
  if (access == "readOnly") return ReadOnly;
  return access == "readWrite" ? ReadWrite : ReadWriteLocked;
}

KovJsonBlock KovJsonLayoutReader::ReadBlock(const Json& o, const std::string& at,
                                            uint16_t partition) {
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
      in.Fail(kovJsonPointerTo(at, "id"), "block id " + std::to_string(blk.id) + " is used twice");
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
  CheckFieldsFit(blk.fields, cfgBytes * 8, maxBits,
                 kovFormat("the block's %llu bytes", static_cast<unsigned long long>(maxBits / 8)));
  if (blk.kind == KovJsonBlkKind::Kls || blk.kind == KovJsonBlkKind::DistKls) {
    CheckKlsFields(blk, fat);
  } else {
    kovJsonVisitFields(blk.fields, [&](KovJsonField& f) {
      if (f.kind == KovJsonKind::List && f.listFormat == VarSzCfgLeq) {
        in.Fail(kovJsonPointerTo(f.at, "format"),
                "a list of format 'kls' belongs in a kls or distributedKls block");
      }
    });
  }
  return blk;
}

void KovJsonLayoutReader::CheckKlsFields(const KovJsonBlock& blk, const std::string& at) {
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

void KovJsonLayoutReader::AssignIDs() {
  uint16_t nextBlk = 1;
  for (KovJsonBlock& blk : out.blocks) {
    if (blk.id != 0) continue;
    while (blockIDs.count(nextBlk) != 0) ++nextBlk;
    blk.id = nextBlk++;
    blockIDs.insert(blk.id);
  }
  uint32_t next = 1;
  for (KovJsonBlock& blk : out.blocks) {
    kovJsonVisitFields(blk.fields, [&](KovJsonField& f) {
      if (f.id != 0) return;
      while (fieldIDs.count(next) != 0 || (next >= kFirstCfgID && next <= kLastCfgID)) ++next;
      f.id = next++;
      fieldIDs.emplace(f.id, f.at);
    });
  }
}

KovJsonBlock& KovJsonLayoutReader::BlockRef(const Json& v, const std::string& at) {
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

KovJsonField& KovJsonLayoutReader::FieldRef(std::vector<KovJsonField>& fields, bool anyDepth,
                                            const Json& v, const std::string& at,
                                            const std::string& where) {
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

void KovJsonLayoutReader::ResolveBlock(KovJsonBlock& blk, const Json& node) {
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
