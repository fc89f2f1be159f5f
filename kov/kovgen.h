// Generated codeplugs for the round-trip property test and the layout fuzz target: random
// layouts with the values of every instance, and the helpers that build, pack and compare them.
// Used by tests and fuzz targets only; neither installed nor included by library code, and free
// of any test framework.
//
// KovGenCase draws everything from a KovGenSource: a seeded generator for the tests, the bytes
// of a fuzz input for the fuzz target (which reads 0 once they run out, so every input gives a
// case). A case holds 1 to 4 blocks, single or multi-instance (1 to 3 instances), whose data
// layouts mix number, character, string and KOV name fields, fixed or floating (also behind
// lists and unions), lists of every format but the KLS ones (fixed, contiguous, same-block,
// split into another block, calculated), fixed padded unions whose discriminant stands in front
// of them or, split, in another block, lists nested in list entries and union options, unions in
// list entries, a KLS block and a distributed KLS block with its header block (one instance
// each, their lists of whole-byte numbers). A split or same-block LEQ may stand in a list entry
// of its block; such a field,
// shared by every entry of that list, and every quantity behind one LEQ field get one value for
// the case. Split references go between single-instance blocks only.
#ifndef KOV_KOVGEN_H
#define KOV_KOVGEN_H

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <list>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kov/fields/charfield.h"
#include "kov/fields/listfield.h"
#include "kov/fields/namefield.h"
#include "kov/fields/numfield.h"
#include "kov/fields/strfield.h"
#include "kov/fields/unionfield.h"
#include "kov/image/checksum.h"
#include "kov/image/image.h"
#include "kov/layout/blklayout.h"
#include "kov/layout/charfieldlayout.h"
#include "kov/layout/cplayout.h"
#include "kov/layout/datalayout.h"
#include "kov/layout/klsblklayout.h"
#include "kov/layout/listfieldlayout.h"
#include "kov/layout/namefieldlayout.h"
#include "kov/layout/numfieldlayout.h"
#include "kov/layout/strfieldlayout.h"
#include "kov/layout/unionfieldlayout.h"
#include "kov/layout/unionlayoutopt.h"
#include "kov/pack/pk.h"
#include "kov/pack/pkentrylist.h"
#include "kov/pack/pkstdblk.h"
#include "kov/unpack/up.h"
#include "kov/unpack/upblkinstance.h"
#include "kov/unpack/upentry.h"
#include "kov/unpack/upentrylist.h"
#include "kov/unpack/upstdblk.h"

using Bytes = std::vector<uint8_t>;

// One block instance: KOV type and id, size, the data and its CRC (whose own check values are
// tested with the checksum).
inline Bytes blockInstance(uint16_t kovType, uint16_t kovID, const Bytes& data) {
  size_t size = data.size() + 2;
  Bytes b(6 + size);
  b[0] = static_cast<uint8_t>(kovType >> 8);
  b[1] = static_cast<uint8_t>(kovType);
  b[2] = static_cast<uint8_t>(kovID >> 8);
  b[3] = static_cast<uint8_t>(kovID);
  b[4] = static_cast<uint8_t>(size >> 8);
  b[5] = static_cast<uint8_t>(size);
  std::copy(data.begin(), data.end(), b.begin() + 6);
  uint16_t crc = 0;
  kovCalculateChecksum(data, crc);
  b[6 + data.size()] = static_cast<uint8_t>(crc >> 8);
  b[7 + data.size()] = static_cast<uint8_t>(crc);
  return b;
}

// Builds a codeplug layout block by block.
class LayoutBuilder {
 public:
  LayoutBuilder() : cp(new CKovCpLayout(1, 2, 0x10000, 0)) { cp->AddPartition(1, ReadWrite); }

  CKovBlkLayout* Block(uint16_t blkID, const char* name, uint16_t type, uint16_t id, int multi,
                       int pad, uint16_t maxSize, uint16_t partition = 1) {
    auto* blk = new CKovBlkLayout(blkID, KovBlkLayoutAttrib(type, id, multi, pad), name, 0,
                                  new CKovDataLayout(static_cast<LayoutType>(1), 0, 7, 0, true),
                                  maxSize, 0);
    blk->SetPartitionNum(partition);
    cp->HasUniqueKovName(blk);
    cp->AddBlkLayout(blk);
    return blk;
  }
  static void Num(CKovBlkLayout* blk, uint32_t id, uint32_t prev, uint32_t byteOffset, uint8_t msb,
                  uint32_t bits, int position, bool fixed = true, uint32_t gap = 0) {
    blk->AddField(id, prev,
                  new CKovNumFieldLayout(id, byteOffset, bits, msb, fixed, gap, blk->GetDataLayout()),
                  position);
  }

  std::unique_ptr<CKovCpLayout> cp;
};

// The pack data of several blocks, owned for the test.
class PackData {
 public:
  // Makes the pack block of layout from entries (owned from here) and data sizes.
  void Add(const CKovBlkLayout* layout, std::vector<CKovPkEntry*> entries,
           std::vector<uint16_t> sizes) {
    auto* list = new CKovPkEntryList();
    for (CKovPkEntry* e : entries) list->AddTail(e);
    blocks.emplace_back(new CKovPkStdBlk(layout, list, sizes));
    map.SetAt(layout->GetBlkID(), blocks.back().get());
  }
  KovPkBlkMap map;
  std::vector<std::unique_ptr<CKovPkStdBlk>> blocks;
};

inline CKovPkEntry* entryOf(std::vector<CKovField*> values) {
  auto* e = new CKovPkEntry(static_cast<int>(values.size()));
  int pos = 0;
  for (CKovField* v : values) {
    e->AddPkField(v->GetFieldID(), new CKovPkField(v), pos++);
  }
  return e;
}

// Packs data over layout into a zeroed image of imageSize bytes and returns the bytes used.
inline Bytes packImage(const CKovCpLayout* layout, const PackData& data, int prefixes = 0,
                       uint32_t imageSize = 512) {
  CKovImage image(imageSize);
  CKovPk pk(&data.map, prefixes);
  uint32_t used = 0;
  pk.FillImage(layout, &image, used, nullptr, 0, 0, 0);
  return Bytes(image.GetBytesArray(), image.GetBytesArray() + used);
}


// Where a generated case draws its choices from.
class KovGenSource {
 public:
  virtual ~KovGenSource() = default;
  // The next 8 bits.
  virtual uint8_t NextByte() = 0;
  // A number from lo to hi (lo <= hi), from one byte where the range allows.
  int Pick(int lo, int hi) {
    uint32_t span = static_cast<uint32_t>(hi - lo) + 1;
    uint32_t raw = span <= 256 ? NextByte() : Next32();
    return lo + static_cast<int>(raw % span);
  }
  uint32_t Next32() {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v = (v << 8) | NextByte();
    return v;
  }
  // A value of bits bits (1 to 32).
  uint32_t Bits(uint32_t bits) {
    uint32_t v = Next32();
    return bits >= 32 ? v : v & ((1u << bits) - 1);
  }
};

class KovGenRandom : public KovGenSource {
 public:
  explicit KovGenRandom(uint32_t seed) : rng(seed) {}
  uint8_t NextByte() override { return static_cast<uint8_t>(rng() >> 24); }

 private:
  std::mt19937 rng;
};

// The bytes of a fuzz input, then zeros.
class KovGenBytes : public KovGenSource {
 public:
  KovGenBytes(const uint8_t* data, size_t size) : data(data), size(size) {}
  uint8_t NextByte() override { return pos < size ? data[pos++] : 0; }
  size_t Used() const { return pos; }

 private:
  const uint8_t* data;
  size_t size;
  size_t pos = 0;
};

// The quantities of calculated lists, per list id and instance, for the case in hand.
inline std::map<std::pair<uint32_t, uint16_t>, uint32_t>& kovGenCalcQuantities() {
  static std::map<std::pair<uint32_t, uint16_t>, uint32_t> quantities;
  return quantities;
}

inline uint32_t kovGenCalcQuantity(const CKovUp*, const CKovBlkLayout*, uint32_t listID,
                                   uint16_t instance) {
  auto found = kovGenCalcQuantities().find({listID, instance});
  return found != kovGenCalcQuantities().end() ? found->second : 0;
}

inline uint32_t kovGenSelectByFirstDiscr(const CKovUp*, uint32_t, uint16_t, const CKovBlkLayout*,
                                         const std::list<const KovDiscrInfo*>& discrs) {
  if (discrs.empty() || !discrs.front()->discrField->IsNumber()) return 1;
  return static_cast<const CKovNumField*>(discrs.front()->discrField)->GetValue();
}

// One generated case: a layout and the values of every instance.
class KovGenCase {
 public:
  explicit KovGenCase(KovGenSource& source) : src(source) {
    kovGenCalcQuantities().clear();
    int blocks = src.Pick(1, 4);
    for (int i = 0; i < blocks; ++i) {
      Block blk;
      blk.id = static_cast<uint16_t>(i + 1);
      blk.multi = src.Pick(0, 2) == 0;
      blk.instances = blk.multi ? src.Pick(1, 3) : 1;
      blk.dl = new CKovDataLayout(static_cast<LayoutType>(1), 0, 7, 0, true);
      blks.push_back(blk);
    }
    for (size_t i = 0; i < blks.size(); ++i) {
      current = i;
      int count = src.Pick(1, 6);
      for (int f = 0; f < count; ++f) AddField(blks[i].dl, blks[i].fields, blks[i].cursor, 0);
    }
    // Fields other layouts asked for: LEQs and discriminants at the end of their block.
    for (Block& blk : blks) {
      for (const Requested& r : blk.requested) {
        uint32_t bits = 8;
        blk.cursor = (blk.cursor + 7) / 8 * 8;
        Place(blk.dl, blk.fields,
              new CKovNumFieldLayout(r.id, blk.cursor / 8, bits, 7, true, 0, blk.dl));
        blk.cursor += bits;
      }
    }
    for (Block& blk : blks) {
      uint16_t maxSize = static_cast<uint16_t>((blk.cursor + 7) / 8 + src.Pick(0, 2));
      int pad = src.Pick(0, 3) == 0;
      auto* layout = new CKovBlkLayout(
          blk.id, KovBlkLayoutAttrib(static_cast<uint16_t>(0x40 + blk.id), blk.id, blk.multi, pad),
          "B" + std::to_string(blk.id), 0, blk.dl, maxSize, 0);
      blk.dl = nullptr;
      layout->SetPartitionNum(1);
      b.cp->HasUniqueKovName(layout);
      b.cp->AddBlkLayout(layout);
      for (const Placed& p : blk.toVerify) layout->AddFieldToVerificationMap(p.id, p.layout);
      std::vector<CKovPkEntry*> entries;
      for (int n = 1; n <= blk.instances; ++n) {
        entries.push_back(Values(layout->GetDataLayout(), static_cast<uint16_t>(n)));
      }
      data.Add(layout, entries, std::vector<uint16_t>(static_cast<size_t>(blk.instances), maxSize));
    }
    uint16_t nextBlkID = static_cast<uint16_t>(blks.size() + 1);
    if (src.Pick(0, 2) == 0) AddKLSBlock(nextBlkID++);
    if (src.Pick(0, 2) == 0) AddDistBlock(nextBlkID, static_cast<uint16_t>(nextBlkID + 1));
  }
  ~KovGenCase() {
    for (Block& blk : blks) delete blk.dl;
  }
  KovGenCase(const KovGenCase&) = delete;
  KovGenCase& operator=(const KovGenCase&) = delete;

  LayoutBuilder b;
  PackData data;

 private:
  struct Placed {
    uint32_t id;
    CKovFieldLayout* layout;
  };
  struct Requested {
    uint32_t id;
  };
  struct Block {
    uint16_t id = 0;
    bool multi = false;
    int instances = 1;
    CKovDataLayout* dl = nullptr;  // until the block layout takes it
    std::vector<Placed> fields;
    uint32_t cursor = 0;
    std::vector<Requested> requested;
    std::vector<Placed> toVerify;  // the lists and unions of the block, at any depth
    // 8-bit numbers in entries of fixed lists, free to serve as a split LEQ.
    std::vector<uint32_t> entryNumbers;
  };

  uint32_t NewID() { return ++nextID; }

  // A KLS list layout (VarSzCfgLeq) at byte 'at' of blk's data, of 1 or 2 whole-byte numbers an
  // entry; maxQty is the layout's, entryBytes gets the entry size.
  uint32_t AddCfgList(CKovBlkLayout* blk, uint32_t at, uint32_t& entryBytes) {
    uint32_t id = NewID();
    auto* entry = new CKovDataLayout(ListEntryLayout, 0, 7, id, false);
    std::vector<Placed> entryFields;
    entryBytes = 0;
    for (int f = src.Pick(1, 2); f > 0; --f) {
      uint32_t bytes = static_cast<uint32_t>(src.Pick(1, 3));
      Place(entry, entryFields, new CKovNumFieldLayout(NewID(), entryBytes, bytes * 8, 7, true, 0,
                                                       entry));
      entryBytes += bytes;
    }
    KovListAttribStruct attribs(CKovKLSBlkLayout::m_leqFldID, VarSzCfgLeq,
                                static_cast<uint32_t>(src.Pick(0, 4)), 0, entryBytes * 8, 0,
                                nullptr);
    CKovDataLayout* parent = blk->GetDataLayout();
    parent->AddField(id, parent->GetIDOfLastFieldInLayout(),
                     new CKovListFieldLayout(id, at, 7, attribs, true, 0, parent, entry),
                     static_cast<int>(parent->GetOrderedFieldIDsList().size()));
    return id;
  }

  // The pack entry of a KLS block: its list of qty entries, with the pack data's maximum maxLeq.
  CKovPkEntry* KLSEntry(const CKovBlkLayout* blk, uint32_t listID, uint32_t qty, uint16_t maxLeq) {
    auto* ll = static_cast<const CKovListFieldLayout*>(blk->GetFieldLayout(listID));
    auto* list = new CKovListField(listID, qty, maxLeq, nullptr);
    for (uint32_t q = 0; q < qty; ++q) list->AddEntryToList(Values(ll->GetDataLayout(), 1));
    list->SetImageSize(qty * ll->GetEntrySzInBits());
    auto* e = new CKovPkEntry(1);
    e->AddPkField(listID, new CKovPkField(list), 0);
    return e;
  }

  void AddKLSBlock(uint16_t blkID) {
    auto* blk = new CKovKLSBlkLayout(
        blkID, KovBlkLayoutAttrib(static_cast<uint16_t>(0x40 + blkID), blkID, 0, 0),
        "K" + std::to_string(blkID), new CKovDataLayout(static_cast<LayoutType>(1), 0, 7, 0, true),
        0, 0, 0, 0, nullptr);
    uint32_t entryBytes = 0;
    uint32_t listID = AddCfgList(blk, blk->GetNumCfgBytes(), entryBytes);
    blk->SetPartitionNum(1);
    b.cp->HasUniqueKovName(blk);
    b.cp->AddBlkLayout(blk);
    uint32_t qty = static_cast<uint32_t>(src.Pick(0, 4));
    uint16_t maxLeq = static_cast<uint16_t>(qty + static_cast<uint32_t>(src.Pick(0, 2)));
    data.Add(blk, {KLSEntry(blk, listID, qty, maxLeq)},
             {static_cast<uint16_t>(blk->GetNumCfgBytes() + qty * entryBytes)});
  }

  // A distributed KLS block and its header block, one instance, the header's data given or left
  // to the pack.
  void AddDistBlock(uint16_t hdrID, uint16_t distID) {
    auto* hdr = new CKovBlkLayout(
        hdrID, KovBlkLayoutAttrib(static_cast<uint16_t>(0x40 + hdrID), hdrID, 0, 0),
        "H" + std::to_string(hdrID), 0,
        new CKovDataLayout(static_cast<LayoutType>(1), 0, 7, 0, true), 0, 1);
    hdr->SetDistKLSBlkID(distID);
    uint16_t maxLLEQ = static_cast<uint16_t>(src.Pick(1, 3));
    auto* dist = new CKovKLSBlkLayout(
        distID, KovBlkLayoutAttrib(static_cast<uint16_t>(0x40 + distID), distID, 0, 0),
        "D" + std::to_string(distID),
        new CKovDataLayout(static_cast<LayoutType>(1), 0, 7, 0, true), 0, 1, maxLLEQ, hdrID,
        nullptr);
    uint32_t entryBytes = 0;
    uint32_t listID = AddCfgList(dist, dist->GetNumCfgBytes(), entryBytes);
    for (CKovBlkLayout* blk : {static_cast<CKovBlkLayout*>(hdr), static_cast<CKovBlkLayout*>(dist)}) {
      blk->SetPartitionNum(1);
      b.cp->HasUniqueKovName(blk);
      b.cp->AddBlkLayout(blk);
    }
    uint32_t qty = static_cast<uint32_t>(src.Pick(0, 7));
    uint16_t maxLeq = static_cast<uint16_t>(qty + static_cast<uint32_t>(src.Pick(0, 2)));
    if (src.Pick(0, 1) == 0) data.Add(hdr, {new CKovPkEntry(0)}, {hdr->GetMaxDataSzInBytes()});
    data.Add(dist, {KLSEntry(dist, listID, qty, maxLeq)}, {0});
  }

  void Place(CKovDataLayout* dl, std::vector<Placed>& fields, CKovFieldLayout* layout) {
    uint32_t id = layout->GetFieldID();
    uint32_t prev = fields.empty() ? 0 : fields.back().id;
    dl->AddField(id, prev, layout, static_cast<int>(fields.size()));
    fields.push_back({id, layout});
  }

  // Another single-instance block for a split reference, or -1.
  int OtherSingleBlock() {
    if (blks[current].multi) return -1;
    std::vector<int> others;
    for (size_t i = 0; i < blks.size(); ++i) {
      if (i != current && !blks[i].multi) others.push_back(static_cast<int>(i));
    }
    if (others.empty()) return -1;
    return others[static_cast<size_t>(src.Pick(0, static_cast<int>(others.size()) - 1))];
  }

  // A field of a data layout at depth (0: the block's own), placed at cursor (in bits).
  void AddField(CKovDataLayout* dl, std::vector<Placed>& fields, uint32_t& cursor, int depth) {
    int kind = src.Pick(0, depth < 2 ? 6 : 3);
    if (kind >= 4) {
      cursor = (cursor + 7) / 8 * 8;  // lists and unions start on a byte
      if (kind == 6) {
        AddUnion(dl, fields, cursor, depth);
      } else {
        AddList(dl, fields, cursor, depth);
      }
      return;
    }
    uint32_t id = NewID();
    bool floating = !fields.empty() && src.Pick(0, 2) == 0;
    uint32_t gap = floating ? static_cast<uint32_t>(src.Pick(0, 3)) : 0;
    cursor += gap;
    uint32_t byte = floating ? 0 : cursor / 8;
    uint8_t msb = floating ? 0 : static_cast<uint8_t>(7 - cursor % 8);
    CKovFieldLayout* layout;
    if (kind == 0) {
      uint32_t bits = static_cast<uint32_t>(src.Pick(1, 32));
      layout = new CKovNumFieldLayout(id, byte, bits, msb, !floating, gap, dl);
    } else if (kind == 1) {
      const CKovCharFieldLayout::CharType types[] = {CKovCharFieldLayout::Char4Bit,
                                                     CKovCharFieldLayout::Char8Bit,
                                                     CKovCharFieldLayout::Char16Bit};
      layout = new CKovCharFieldLayout(id, byte, msb, types[src.Pick(0, 2)], !floating, gap, dl);
    } else if (kind == 2) {
      auto type = src.Pick(0, 1) ? CKovCharFieldLayout::Char8Bit : CKovCharFieldLayout::Char4Bit;
      layout = new CKovStrFieldLayout(id, byte, msb, type, static_cast<uint32_t>(src.Pick(1, 5)),
                                      !floating, gap, dl);
    } else {
      layout = new CKovNameFieldLayout(id, byte, 32, msb, !floating, gap, dl, 1);
    }
    cursor += layout->GetLengthInBits();
    Place(dl, fields, layout);
  }

  void AddList(CKovDataLayout* dl, std::vector<Placed>& fields, uint32_t& cursor, int depth) {
    const ListFormat formats[] = {FixedSzNoLeq,    VarSzContigLeq, VarSzSameBlkLeq,
                                  VarSzSplitLeq,   VarSzCalcLeq,   VarSzCalcLeqAlt};
    ListFormat format = formats[src.Pick(0, 5)];
    int other = -1;
    if (format == VarSzSplitLeq) {
      other = OtherSingleBlock();
      if (other < 0) format = VarSzContigLeq;
    }
    if (format == VarSzSameBlkLeq && blks[current].multi && depth > 0) format = VarSzContigLeq;
    uint32_t id = NewID();
    uint32_t leqID = 0;
    uint32_t maxQty = static_cast<uint32_t>(src.Pick(format == FixedSzNoLeq ? 1 : 0, 3));
    if (format == VarSzContigLeq) {
      leqID = id;
      id = NewID();
      Place(dl, fields, new CKovNumFieldLayout(leqID, cursor / 8, 8, 7, true, 0, dl));
      cursor += 8;
    }
    // A quantity fixed for the case: one LEQ field, or one calculated value per instance, serves
    // every copy of a nested list.
    bool shared = format == VarSzSplitLeq || format == VarSzSameBlkLeq ||
                  ((format == VarSzCalcLeq || format == VarSzCalcLeqAlt) && depth > 0);
    if (shared) forcedQty[id] = static_cast<uint32_t>(src.Pick(0, static_cast<int>(maxQty)));
    uint16_t leqBlkID = 0;
    if (format == VarSzSplitLeq || format == VarSzSameBlkLeq) {
      Block& target = format == VarSzSplitLeq ? blks[static_cast<size_t>(other)] : blks[current];
      leqBlkID = target.id;
      // An LEQ in a list entry of an earlier block, or a field of its own at the block's end.
      if (format == VarSzSplitLeq && !target.entryNumbers.empty() && src.Pick(0, 1) == 0) {
        leqID = target.entryNumbers.back();
        target.entryNumbers.pop_back();
      } else {
        leqID = NewID();
        target.requested.push_back({leqID});
      }
      forcedValue[leqID] = forcedQty[id];
    }
    auto* entry = new CKovDataLayout(ListEntryLayout, 0, 7, id, false);
    std::vector<Placed> entryFields;
    uint32_t entryCursor = 0;
    if (format == FixedSzNoLeq && depth == 0 && !blks[current].multi) {
      // An 8-bit number first in every entry, for a split LEQ of a later block to point into,
      // while a field behind it may wait.
      uint32_t n = NewID();
      Place(entry, entryFields, new CKovNumFieldLayout(n, 0, 8, 7, true, 0, entry));
      entryCursor += 8;
      blks[current].entryNumbers.push_back(n);
    }
    int count = src.Pick(1, 3);
    for (int f = 0; f < count; ++f) AddField(entry, entryFields, entryCursor, depth + 1);
    uint32_t entryBits = std::max<uint32_t>(8, (entryCursor + 7) / 8 * 8);
    KovListAttribStruct attribs(leqID, format, maxQty, 0, entryBits, leqBlkID, kovGenCalcQuantity);
    bool verify = false;
    kovValidateSglListParms(id, attribs, blks[current].id, verify);
    auto* layout = new CKovListFieldLayout(id, cursor / 8, 7, attribs, true, 0, dl, entry);
    Place(dl, fields, layout);
    if (verify) blks[current].toVerify.push_back(fields.back());
    cursor += maxQty * entryBits;
  }

  void AddUnion(CKovDataLayout* dl, std::vector<Placed>& fields, uint32_t& cursor, int depth) {
    KovUnionAttribStruct attribs;
    attribs.upLayoutSelectionFunc = kovGenSelectByFirstDiscr;
    // A union in a list entry takes its discriminant from that entry.
    bool inEntry = dl->GetLayoutType() == ListEntryLayout;
    int other = src.Pick(0, 2) == 0 && !inEntry ? OtherSingleBlock() : -1;
    uint32_t discrID = NewID();
    uint32_t id = NewID();
    if (other >= 0) {
      // The discriminant in another block: one option for every copy of the union.
      attribs.unionFormat = UnionFixedSplitPadded;
      attribs.discrBlkIDArr = {blks[static_cast<size_t>(other)].id};
      blks[static_cast<size_t>(other)].requested.push_back({discrID});
      forcedOption[id] = static_cast<uint32_t>(src.Pick(1, 2));
      forcedValue[discrID] = forcedOption[id];
    } else {
      attribs.unionFormat = UnionFixedPadded;
      Place(dl, fields, new CKovNumFieldLayout(discrID, cursor / 8, 8, 7, true, 0, dl));
      cursor += 8;
    }
    attribs.discrIDArr = {discrID};
    uint32_t longest = 0;
    std::vector<std::pair<CKovDataLayout*, uint32_t>> options;
    for (int o = 0; o < 2; ++o) {
      auto* option = new CKovDataLayout(static_cast<LayoutType>(3), 0, 7, id, false);
      std::vector<Placed> optionFields;
      uint32_t optionCursor = 0;
      for (int f = src.Pick(0, 2); f > 0; --f) {
        AddField(option, optionFields, optionCursor, depth + 1);
      }
      optionCursor = (optionCursor + 7) / 8 * 8;
      longest = std::max(longest, optionCursor);
      options.push_back({option, optionCursor});
    }
    attribs.lengthInBits = longest;
    auto* u = new CKovUnionFieldLayout(id, cursor / 8, 7, attribs, true, 0, dl, blks[current].id);
    for (size_t o = 0; o < options.size(); ++o) {
      u->AddToUnionMap(static_cast<uint32_t>(o + 1),
                       new CKovUnionLayoutOpt(options[o].first, 0, 0, static_cast<uint32_t>(o + 1),
                                              options[o].second, 0));
    }
    Place(dl, fields, u);
    blks[current].toVerify.push_back(fields.back());
    cursor += longest;
  }

  // A value for every field of dl that the pack is given (a contiguous LEQ is the list's to
  // write).
  CKovPkEntry* Values(const CKovDataLayout* dl, uint16_t instance) {
    std::vector<Placed> fields;
    for (uint32_t id : dl->GetOrderedFieldIDsList()) fields.push_back({id, *dl->PLookup(id)});
    auto* e = new CKovPkEntry(static_cast<int>(fields.size()));
    std::map<uint32_t, uint32_t> optionOf;  // union id -> option, from its discriminant
    for (size_t i = 0; i < fields.size(); ++i) {
      const CKovFieldLayout* l = fields[i].layout;
      uint32_t id = fields[i].id;
      const CKovFieldLayout* next = i + 1 < fields.size() ? fields[i + 1].layout : nullptr;
      CKovField* value = nullptr;
      if (l->IsKindOf(KOV_RUNTIME_CLASS(CKovListFieldLayout))) {
        auto* ll = static_cast<const CKovListFieldLayout*>(l);
        uint32_t qty;
        if (forcedQty.count(id) != 0) {
          qty = forcedQty[id];
        } else if (ll->GetListFormat() == FixedSzNoLeq) {
          qty = ll->GetMaxEntryQty();
        } else {
          qty = static_cast<uint32_t>(src.Pick(0, static_cast<int>(ll->GetMaxEntryQty())));
        }
        if (ll->HasCalcLEQ()) kovGenCalcQuantities()[{id, instance}] = qty;
        auto* list = new CKovListField(id, qty, 0, nullptr);
        for (uint32_t q = 0; q < qty; ++q) {
          list->AddEntryToList(Values(ll->GetDataLayout(), instance));
        }
        list->SetImageSize(qty * ll->GetEntrySzInBits());
        value = list;
      } else if (l->IsKindOf(KOV_RUNTIME_CLASS(CKovUnionFieldLayout))) {
        auto* ul = static_cast<const CKovUnionFieldLayout*>(l);
        uint32_t option = forcedOption.count(id) != 0 ? forcedOption[id] : optionOf[id];
        auto* u = new CKovUnionField(
            id, option, Values(ul->GetDataLayout(static_cast<uint16_t>(option)), instance));
        u->SetImageSize(ul->GetLengthInBits());
        value = u;
      } else if (forcedValue.count(id) != 0) {
        value = new CKovNumField(forcedValue[id], id, 8);
      } else if (next != nullptr && next->IsKindOf(KOV_RUNTIME_CLASS(CKovUnionFieldLayout)) &&
                 forcedOption.count(fields[i + 1].id) == 0 &&
                 static_cast<const CKovUnionFieldLayout*>(next)->GetDiscrIDArr().front() == id) {
        uint32_t option = static_cast<uint32_t>(src.Pick(1, 2));
        optionOf[fields[i + 1].id] = option;
        value = new CKovNumField(option, id, 8);
      } else if (next != nullptr && next->IsKindOf(KOV_RUNTIME_CLASS(CKovListFieldLayout)) &&
                 static_cast<const CKovListFieldLayout*>(next)->GetListFormat() ==
                     VarSzContigLeq &&
                 static_cast<const CKovListFieldLayout*>(next)->GetLeqID() == id) {
        continue;  // the list writes its quantity
      } else {
        // A field of a block may be left out. In an entry, a floating field behind it would go
        // by the field of the entry before, still in the fields map: every field is given there.
        if (dl->IsBlockLevel() && src.Pick(0, 9) == 0) continue;
        value = PrimitiveValue(l, id);
      }
      e->AddPkField(id, new CKovPkField(value), static_cast<int>(i));
    }
    return e;
  }

  CKovField* PrimitiveValue(const CKovFieldLayout* l, uint32_t id) {
    if (l->IsKindOf(KOV_RUNTIME_CLASS(CKovCharFieldLayout))) {
      auto type = static_cast<const CKovCharFieldLayout*>(l)->GetCharType();
      uint16_t c = type == CKovCharFieldLayout::Char4Bit
                       ? static_cast<uint16_t>('0' + src.Pick(0, 15))
                       : static_cast<uint16_t>(src.Bits(static_cast<uint32_t>(type)));
      return new CKovCharField(c, id, l->GetLengthInBits());
    }
    if (l->IsKindOf(KOV_RUNTIME_CLASS(CKovStrFieldLayout))) {
      auto* sl = static_cast<const CKovStrFieldLayout*>(l);
      bool digits = sl->GetCharType() == CKovCharFieldLayout::Char4Bit;
      // Digit slots behind a short string read back as '0': digit strings fill their slots.
      int length = digits ? static_cast<int>(sl->GetNumberOfChars())
                          : src.Pick(0, static_cast<int>(sl->GetNumberOfChars()));
      std::string s;
      for (int i = 0; i < length; ++i) {
        s.push_back(static_cast<char>(digits ? '0' + src.Pick(0, 15) : src.Pick(1, 255)));
      }
      return new CKovStrField(s.c_str(), id, l->GetLengthInBits());
    }
    if (l->IsKindOf(KOV_RUNTIME_CLASS(CKovNameFieldLayout))) {
      return new CKovNameField(src.Bits(32), id, 32, 0);
    }
    return new CKovNumField(src.Bits(l->GetLengthInBits()), id, l->GetLengthInBits());
  }

  KovGenSource& src;
  std::vector<Block> blks;
  size_t current = 0;
  uint32_t nextID = 0;
  std::map<uint32_t, uint32_t> forcedQty;     // list id -> its one quantity
  std::map<uint32_t, uint32_t> forcedValue;   // LEQ or discriminant id -> its one value
  std::map<uint32_t, uint32_t> forcedOption;  // union id -> its one option
};

// The value of a field as text, with its kind: "number 0xabc", "char 0x48", "string \"Hi\"",
// "name 0x00120001"; for comparing what was packed with what was read.
inline std::string kovGenValueText(const CKovField* f) {
  char buf[64];
  if (f == nullptr) return "absent";
  if (f->IsNumber()) {
    std::snprintf(buf, sizeof buf, "number 0x%x", static_cast<const CKovNumField*>(f)->GetValue());
  } else if (f->IsChar()) {
    std::snprintf(buf, sizeof buf, "char 0x%x", static_cast<const CKovCharField*>(f)->GetValue());
  } else if (f->IsKovName()) {
    std::snprintf(buf, sizeof buf, "name 0x%08x", static_cast<const CKovNameField*>(f)->GetValue());
  } else if (f->IsString()) {
    return "string \"" + static_cast<const CKovStrField*>(f)->GetValue() + "\"";
  } else {
    return "complex";
  }
  return buf;
}

// The first difference between the values a pack entry gave and those an unpacked entry holds,
// lists and unions entry by entry, as text; "" when there is none. Fields the pack did not give
// (an LEQ the list wrote) are not compared. A field that had to wait inside a list entry or a
// union option is read again by the sweeps into the block's own entry (blockEntry), where its
// entry lacks it: such a field counts as read when blockEntry holds its id, and sets *waited.
inline std::string kovGenEntryDiff(const CKovPkEntry* pkEntry, const CKovUpEntry* upEntry,
                                   const std::string& where = "",
                                   const CKovUpEntry* blockEntry = nullptr,
                                   bool* waited = nullptr) {
  if (upEntry == nullptr) return where + ": no entry read";
  if (blockEntry == nullptr) blockEntry = upEntry;
  for (const auto& kv : pkEntry->GetPkFieldMap()) {
    std::string at = where + "/" + std::to_string(kv.first);
    const CKovField* packed = kv.second->GetData();
    const CKovUpField* upField = upEntry->GetUpField(kv.first);
    const CKovField* read = upField != nullptr ? upField->GetData() : nullptr;
    if (read == nullptr && upEntry != blockEntry && blockEntry->GetUpField(kv.first) != nullptr) {
      if (waited != nullptr) *waited = true;
      continue;
    }
    if (read == nullptr) return at + ": " + kovGenValueText(packed) + " was not read back";
    if (packed->IsList()) {
      if (!read->IsList()) return at + ": not a list";
      auto* pkList = static_cast<const CKovListField*>(packed);
      auto* upList = static_cast<const CKovListField*>(read);
      int count = pkList->GetPkEntryList()->GetCount();
      if (upList->GetUpEntryList()->GetCount() != count) {
        return at + ": " + std::to_string(upList->GetUpEntryList()->GetCount()) + " entries for " +
               std::to_string(count);
      }
      for (int i = 0; i < count; ++i) {
        std::string d = kovGenEntryDiff(pkList->GetPkEntryList()->GetAt(i),
                                        upList->GetUpEntryList()->GetAt(i),
                                        at + "[" + std::to_string(i) + "]", blockEntry, waited);
        if (!d.empty()) return d;
      }
    } else if (packed->IsUnion()) {
      if (!read->IsUnion()) return at + ": not a union";
      auto* pkUnion = static_cast<const CKovUnionField*>(packed);
      auto* upUnion = static_cast<const CKovUnionField*>(read);
      if (upUnion->GetLayoutID() != pkUnion->GetLayoutID()) return at + ": other option";
      if (pkUnion->GetPkEntry() != nullptr && pkUnion->GetImageSize() != 0) {
        std::string d =
            kovGenEntryDiff(pkUnion->GetPkEntry(), upUnion->GetUpEntry(), at, blockEntry, waited);
        if (!d.empty()) return d;
      }
    } else if (kovGenValueText(read) != kovGenValueText(packed)) {
      return at + ": " + kovGenValueText(read) + " for " + kovGenValueText(packed);
    }
  }
  return "";
}

// The first difference between the values of data and what up read, instance by instance; ""
// when there is none. *waited as kovGenEntryDiff sets it.
inline std::string kovGenUnpackDiff(const CKovUp& up, const PackData& data,
                                    bool* waited = nullptr) {
  for (const auto& blk : data.blocks) {
    const CKovUpStdBlk* read = up.GetUnpackedBlk(blk->GetBlkID());
    int packed = blk->GetPackEntryList()->GetCount();
    if (packed == 0) continue;
    std::string name = blk->GetBlkName();
    if (read == nullptr) return name + ": not read";
    if (read->GetBlkInstanceQty() != packed) return name + ": other number of instances";
    for (int i = 0; i < packed; ++i) {
      std::string d = kovGenEntryDiff(blk->GetPackEntryList()->GetAt(i),
                                      read->GetUnpackedEntryList()->GetAt(i),
                                      name + "[" + std::to_string(i + 1) + "]", nullptr, waited);
      if (!d.empty()) return d;
    }
  }
  return "";
}

// Adds every field of entry, at any depth, to out.
inline void kovGenCollectFields(const CKovUpEntry* entry, std::set<const CKovField*>& out) {
  if (entry == nullptr) return;
  for (const auto& kv : entry->GetUpFieldMap()) {
    const CKovField* f = kv.second != nullptr ? kv.second->GetData() : nullptr;
    if (f == nullptr) continue;
    out.insert(f);
    if (f->IsList()) {
      const CKovUpEntryList* entries = static_cast<const CKovListField*>(f)->GetUpEntryList();
      if (entries != nullptr) {
        for (const CKovUpEntry* e : *entries) kovGenCollectFields(e, out);
      }
    } else if (f->IsUnion()) {
      kovGenCollectFields(static_cast<const CKovUnionField*>(f)->GetUpEntry(), out);
    }
  }
}

// The first field in the fields map of a block instance of a finished unpack that its blocks do
// not own (a freed field), as text; "" when every one is owned. Reads no field it reports.
inline std::string kovGenStrayField(const CKovUp& up) {
  std::set<const CKovField*> live;
  for (const auto& kv : up.GetUpBlksMap()) {
    for (const CKovUpEntry* e : *kv.second->GetUnpackedEntryList()) kovGenCollectFields(e, live);
  }
  for (const auto& kv : up.GetUpBlksList()) {
    if (kv.second == nullptr) continue;
    for (const CKovUpBlkInstance* inst : *kv.second) {
      if (inst == nullptr) continue;
      for (const auto& placed : inst->GetUpFieldMap()) {
        if (live.count(placed.second) == 0) {
          return "block " + std::to_string(kv.first) + " [" +
                 std::to_string(inst->GetBlkInstanceNum()) + "]: field " +
                 std::to_string(placed.first) + " is owned by no entry";
        }
      }
    }
  }
  return "";
}

// Changes image as the bytes from..size of a fuzz input say, in pairs of (position, XOR mask).
inline void kovGenDamage(Bytes& image, const uint8_t* data, size_t from, size_t size) {
  if (image.empty()) return;
  for (size_t i = from; i + 1 < size; i += 2) {
    size_t at = (size_t{data[i]} * 7919u + i) % image.size();
    image[at] ^= data[i + 1] != 0 ? data[i + 1] : 1;
  }
}

// Recomputes the checksum of every block instance of image whose header can be read, walking the
// headers from byte 0 (see kov/pack/stdblk.h); stops at the first that does not fit.
inline void kovGenRecomputeChecksums(Bytes& image) {
  size_t at = 0;
  // Each step moves on by at least 8 bytes.
  while (image.size() - at >= 8) {
    size_t size = (size_t{image[at + 4]} << 8) | image[at + 5];
    if (size < 2 || size > image.size() - at - 6) return;
    uint16_t crc = 0;
    kovCalculateChecksum(image.data() + at + 6, size - 2, crc);
    image[at + 4 + size] = static_cast<uint8_t>(crc >> 8);
    image[at + 5 + size] = static_cast<uint8_t>(crc);
    at += 6 + size;
  }
}

#endif  // KOV_KOVGEN_H
