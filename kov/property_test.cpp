// Round-trip properties over random layouts: values packed and unpacked come back the same, and
// an unpacked image packs back to the same bytes. Fixed seeds; a failing case names its seed,
// and RunPropertyCase(seed) in a test of its own replays it.
#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "kov/fields/listfield.h"
#include "kov/fields/unionfield.h"
#include "kov/kovtest.h"
#include "kov/layout/charfieldlayout.h"
#include "kov/layout/listfieldlayout.h"
#include "kov/layout/namefieldlayout.h"
#include "kov/layout/unionfieldlayout.h"
#include "kov/layout/unionlayoutopt.h"
#include "kov/unpack/upblkinstance.h"
#include "kov/unpack/upentrylist.h"
#include "kov/unpack/upstdblk.h"

namespace {

// The quantities of calculated lists, per list id and instance, for the case in hand.
std::map<std::pair<uint32_t, uint16_t>, uint32_t>& calcQuantities() {
  static std::map<std::pair<uint32_t, uint16_t>, uint32_t> quantities;
  return quantities;
}

uint32_t calcQuantity(const CKovUp*, const CKovBlkLayout*, uint32_t listID, uint16_t instance) {
  return calcQuantities()[{listID, instance}];
}

uint32_t selectByFirstDiscr(const CKovUp*, uint32_t, uint16_t, const CKovBlkLayout*,
                            const std::list<const KovDiscrInfo*>& discrs) {
  return discrs.empty() ? 0 : static_cast<const CKovNumField*>(discrs.front()->discrField)->GetValue();
}

// One generated case: a layout and the values of every instance.
class PropertyCase {
 public:
  explicit PropertyCase(uint32_t seed) : rng(seed) {
    calcQuantities().clear();
    int blocks = pick(1, 3);
    for (int i = 0; i < blocks; ++i) MakeBlock(static_cast<uint16_t>(i + 1));
  }

  LayoutBuilder b;
  PackData data;

 private:
  int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }
  uint32_t bitsValue(uint32_t bits) {
    uint32_t v = std::uniform_int_distribution<uint32_t>(0, UINT32_MAX)(rng);
    return bits >= 32 ? v : v & ((1u << bits) - 1);
  }

  // The fields of one data layout, placed from bit 0 on: each fixed at the running cursor or
  // floating behind the field before it; returns the bits reserved.
  struct Placed {
    uint32_t id;
    CKovFieldLayout* layout;
  };

  void MakeBlock(uint16_t blkID) {
    currentBlkID = blkID;
    toVerify.clear();
    int multi = pick(0, 1);
    int instances = multi ? pick(1, 3) : 1;
    int pad = pick(0, 3) == 0;
    auto* dl = new CKovDataLayout(static_cast<LayoutType>(1), 0, 7, 0, true);
    uint32_t cursor = 0;
    std::vector<Placed> fields;
    uint32_t nextID = 100 * blkID;
    int count = pick(1, 6);
    for (int f = 0; f < count; ++f) AddField(dl, fields, nextID, cursor, true);
    uint16_t maxSize = static_cast<uint16_t>((cursor + 7) / 8 + pick(0, 2));
    auto* blk = new CKovBlkLayout(blkID, KovBlkLayoutAttrib(static_cast<uint16_t>(0x40 + blkID),
                                                            blkID, multi, pad),
                                  "B" + std::to_string(blkID), 0, dl, maxSize, 0);
    blk->SetPartitionNum(1);
    b.cp->HasUniqueKovName(blk);
    b.cp->AddBlkLayout(blk);
    for (const Placed& p : toVerify) blk->AddFieldToVerificationMap(p.id, p.layout);
    std::vector<CKovPkEntry*> entries;
    for (int n = 1; n <= instances; ++n) entries.push_back(Values(dl, fields, blkID, n));
    data.Add(blk, entries, std::vector<uint16_t>(static_cast<size_t>(instances), maxSize));
  }

  void Place(CKovDataLayout* dl, std::vector<Placed>& fields, uint32_t id, CKovFieldLayout* layout) {
    uint32_t prev = fields.empty() ? 0 : fields.back().id;
    dl->AddField(id, prev, layout, static_cast<int>(fields.size()));
    fields.push_back({id, layout});
  }

  void AddField(CKovDataLayout* dl, std::vector<Placed>& fields, uint32_t& nextID,
                uint32_t& cursor, bool complexAllowed) {
    uint32_t id = ++nextID;
    int kind = pick(0, complexAllowed ? 5 : 3);
    if (kind >= 4) {
      cursor = (cursor + 7) / 8 * 8;  // lists and unions start on a byte
      if (kind == 4) {
        AddList(dl, fields, nextID, cursor, id);
      } else {
        AddUnion(dl, fields, nextID, cursor, id);
      }
      return;
    }
    bool floating = !fields.empty() && fields.back().layout->IsFixedSz() && pick(0, 2) == 0;
    uint32_t gap = floating ? static_cast<uint32_t>(pick(0, 3)) : 0;
    cursor += gap;
    uint32_t byte = floating ? 0 : cursor / 8;
    uint8_t msb = floating ? 0 : static_cast<uint8_t>(7 - cursor % 8);
    CKovFieldLayout* layout;
    if (kind == 0) {
      uint32_t bits = static_cast<uint32_t>(pick(1, 32));
      layout = new CKovNumFieldLayout(id, byte, bits, msb, !floating, gap, dl);
    } else if (kind == 1) {
      const CKovCharFieldLayout::CharType types[] = {CKovCharFieldLayout::Char4Bit,
                                                     CKovCharFieldLayout::Char8Bit,
                                                     CKovCharFieldLayout::Char16Bit};
      layout = new CKovCharFieldLayout(id, byte, msb, types[pick(0, 2)], !floating, gap, dl);
    } else if (kind == 2) {
      auto type = pick(0, 1) ? CKovCharFieldLayout::Char8Bit : CKovCharFieldLayout::Char4Bit;
      layout = new CKovStrFieldLayout(id, byte, msb, type, static_cast<uint32_t>(pick(1, 5)),
                                      !floating, gap, dl);
    } else {
      layout = new CKovNameFieldLayout(id, byte, 32, msb, !floating, gap, dl, 1);
    }
    cursor += layout->GetLengthInBits();
    Place(dl, fields, id, layout);
  }

  void AddList(CKovDataLayout* dl, std::vector<Placed>& fields, uint32_t& nextID,
               uint32_t& cursor, uint32_t id) {
    const ListFormat formats[] = {FixedSzNoLeq, VarSzContigLeq, VarSzCalcLeq};
    ListFormat format = formats[pick(0, 2)];
    uint32_t leqID = 0;
    if (format == VarSzContigLeq) {
      leqID = id;
      id = ++nextID;
      Place(dl, fields, leqID, new CKovNumFieldLayout(leqID, cursor / 8, 8, 7, true, 0, dl));
      cursor += 8;
    }
    uint32_t entryBits = 8 * static_cast<uint32_t>(pick(1, 4));
    auto* entry = new CKovDataLayout(ListEntryLayout, 0, 7, id, false);
    std::vector<Placed> entryFields;
    uint32_t entryCursor = 0;
    while (entryCursor < entryBits) {
      uint32_t fid = ++nextID;
      uint32_t bits = std::min<uint32_t>(entryBits - entryCursor, static_cast<uint32_t>(pick(1, 16)));
      Place(entry, entryFields, fid,
            new CKovNumFieldLayout(fid, entryCursor / 8, bits,
                                   static_cast<uint8_t>(7 - entryCursor % 8), true, 0, entry));
      entryCursor += bits;
    }
    uint32_t maxQty = static_cast<uint32_t>(pick(format == FixedSzNoLeq ? 1 : 0, 4));
    KovListAttribStruct attribs(leqID, format, maxQty, 0, entryBits, 0, calcQuantity);
    bool verify = false;
    kovValidateSglListParms(id, attribs, currentBlkID, verify);
    Place(dl, fields, id, new CKovListFieldLayout(id, cursor / 8, 7, attribs, true, 0, dl, entry));
    if (verify) toVerify.push_back(fields.back());
    cursor += maxQty * entryBits;
  }

  void AddUnion(CKovDataLayout* dl, std::vector<Placed>& fields, uint32_t& nextID,
                uint32_t& cursor, uint32_t discrID) {
    Place(dl, fields, discrID, new CKovNumFieldLayout(discrID, cursor / 8, 8, 7, true, 0, dl));
    cursor += 8;
    uint32_t id = ++nextID;
    KovUnionAttribStruct attribs;
    attribs.unionFormat = UnionFixedPadded;
    attribs.upLayoutSelectionFunc = selectByFirstDiscr;
    attribs.discrIDArr = {discrID};
    uint32_t longest = 0;
    std::vector<std::pair<CKovDataLayout*, uint32_t>> options;
    for (int o = 0; o < 2; ++o) {
      auto* option = new CKovDataLayout(static_cast<LayoutType>(3), 0, 7, id, false);
      std::vector<Placed> optionFields;
      uint32_t optionCursor = 0;
      for (int f = pick(0, 2); f > 0; --f) AddField(option, optionFields, nextID, optionCursor, false);
      longest = std::max(longest, optionCursor);
      options.push_back({option, optionCursor});
    }
    attribs.lengthInBits = longest;
    auto* u = new CKovUnionFieldLayout(id, cursor / 8, 7, attribs, true, 0, dl, currentBlkID);
    for (size_t o = 0; o < options.size(); ++o) {
      u->AddToUnionMap(static_cast<uint32_t>(o + 1),
                       new CKovUnionLayoutOpt(options[o].first, 0, 0, static_cast<uint32_t>(o + 1),
                                              options[o].second, 0));
    }
    Place(dl, fields, id, u);
    toVerify.push_back(fields.back());
    cursor += longest;
  }

  // A value for every field of dl that the pack is given (LEQ fields are the list's to write).
  CKovPkEntry* Values(const CKovDataLayout* dl, const std::vector<Placed>& fields, uint16_t blkID,
                      int instance) {
    auto* e = new CKovPkEntry(static_cast<int>(fields.size()));
    std::map<uint32_t, uint32_t> discrOf;  // union id -> option chosen
    for (size_t i = 0; i < fields.size(); ++i) {
      const CKovFieldLayout* l = fields[i].layout;
      uint32_t id = fields[i].id;
      CKovField* value = nullptr;
      if (l->IsKindOf(KOV_RUNTIME_CLASS(CKovListFieldLayout))) {
        auto* ll = static_cast<const CKovListFieldLayout*>(l);
        uint32_t qty = ll->GetListFormat() == FixedSzNoLeq
                           ? ll->GetMaxEntryQty()
                           : static_cast<uint32_t>(pick(0, static_cast<int>(ll->GetMaxEntryQty())));
        if (ll->GetListFormat() == VarSzCalcLeq) {
          calcQuantities()[{id, static_cast<uint16_t>(instance)}] = qty;
        }
        auto* list = new CKovListField(id, qty, 0, nullptr);
        for (uint32_t q = 0; q < qty; ++q) list->AddEntryToList(EntryValues(ll->GetDataLayout()));
        list->SetImageSize(qty * ll->GetEntrySzInBits());
        value = list;
      } else if (l->IsKindOf(KOV_RUNTIME_CLASS(CKovUnionFieldLayout))) {
        auto* ul = static_cast<const CKovUnionFieldLayout*>(l);
        uint32_t option = discrOf[id];
        auto* u = new CKovUnionField(id, option, EntryValues(ul->GetDataLayout(static_cast<uint16_t>(option))));
        u->SetImageSize(ul->GetLengthInBits());
        value = u;
      } else if (i + 1 < fields.size() &&
                 fields[i + 1].layout->IsKindOf(KOV_RUNTIME_CLASS(CKovUnionFieldLayout))) {
        uint32_t option = static_cast<uint32_t>(pick(1, 2));
        discrOf[fields[i + 1].id] = option;
        value = new CKovNumField(option, id, 8);
      } else if (i + 1 < fields.size() &&
                 fields[i + 1].layout->IsKindOf(KOV_RUNTIME_CLASS(CKovListFieldLayout)) &&
                 static_cast<const CKovListFieldLayout*>(fields[i + 1].layout)->GetLeqID() == id) {
        continue;  // the list writes its quantity
      } else {
        if (pick(0, 9) == 0) continue;  // a field may be left out
        value = PrimitiveValue(l, id);
      }
      e->AddPkField(id, new CKovPkField(value), static_cast<int>(i));
    }
    (void)dl;
    (void)blkID;
    return e;
  }

  CKovPkEntry* EntryValues(const CKovDataLayout* dl) {
    std::vector<Placed> fields;
    for (uint32_t id : dl->GetOrderedFieldIDsList()) {
      fields.push_back({id, *dl->GetFieldMap().PLookup(id)});
    }
    auto* e = new CKovPkEntry(static_cast<int>(fields.size()));
    for (size_t i = 0; i < fields.size(); ++i) {
      e->AddPkField(fields[i].id, new CKovPkField(PrimitiveValue(fields[i].layout, fields[i].id)),
                    static_cast<int>(i));
    }
    return e;
  }

  CKovField* PrimitiveValue(const CKovFieldLayout* l, uint32_t id) {
    if (l->IsKindOf(KOV_RUNTIME_CLASS(CKovCharFieldLayout))) {
      auto type = static_cast<const CKovCharFieldLayout*>(l)->GetCharType();
      uint16_t c = type == CKovCharFieldLayout::Char4Bit
                       ? static_cast<uint16_t>('0' + pick(0, 15))
                       : static_cast<uint16_t>(bitsValue(type));
      return new CKovCharField(c, id, l->GetLengthInBits());
    }
    if (l->IsKindOf(KOV_RUNTIME_CLASS(CKovStrFieldLayout))) {
      auto* sl = static_cast<const CKovStrFieldLayout*>(l);
      std::string s;
      // Digit slots behind a short string read back as '0': digit strings fill their slots.
      int length = sl->GetCharType() == CKovCharFieldLayout::Char4Bit
                       ? static_cast<int>(sl->GetNumberOfChars())
                       : pick(0, static_cast<int>(sl->GetNumberOfChars()));
      for (int i = 0; i < length; ++i) {
        s.push_back(static_cast<char>(sl->GetCharType() == CKovCharFieldLayout::Char4Bit
                                          ? '0' + pick(0, 15)
                                          : pick(1, 255)));
      }
      return new CKovStrField(s.c_str(), id, l->GetLengthInBits());
    }
    if (l->IsKindOf(KOV_RUNTIME_CLASS(CKovNameFieldLayout))) {
      return new CKovNameField(bitsValue(32), id, 32, 0);
    }
    return new CKovNumField(bitsValue(l->GetLengthInBits()), id, l->GetLengthInBits());
  }

  std::mt19937 rng;
  uint16_t currentBlkID = 0;
  std::vector<Placed> toVerify;  // the lists and unions of the block in hand
};

// A pack tree that holds the values of an unpacked entry, field by field in layout order.
CKovPkEntry* packEntryOf(const CKovUpEntry* read, const CKovDataLayout* dl) {
  auto* e = new CKovPkEntry(static_cast<int>(dl->GetOrderedFieldIDsList().size()));
  int position = 0;
  for (uint32_t id : dl->GetOrderedFieldIDsList()) {
    int slot = position++;
    CKovUpField* const* found = read->GetUpFieldMap().PLookup(id);
    if (found == nullptr) continue;
    const CKovField* f = (*found)->GetData();
    const CKovFieldLayout* l = (*found)->GetUnPackFieldLayout();
    CKovField* copy;
    if (f->IsList()) {
      auto* list = static_cast<const CKovListField*>(f);
      auto* ll = static_cast<const CKovListFieldLayout*>(l);
      auto* c = new CKovListField(id, list->GetListEntryQty(), 0, nullptr);
      for (const CKovUpEntry* le : *list->GetUpEntryList()) {
        c->AddEntryToList(packEntryOf(le, ll->GetDataLayout()));
      }
      copy = c;
    } else if (f->IsUnion()) {
      auto* u = static_cast<const CKovUnionField*>(f);
      auto* ul = static_cast<const CKovUnionFieldLayout*>(l);
      const CKovDataLayout* option = ul->GetDataLayout(static_cast<uint16_t>(u->GetLayoutID()));
      copy = new CKovUnionField(id, u->GetLayoutID(),
                                u->GetUpEntry() != nullptr ? packEntryOf(u->GetUpEntry(), option)
                                                           : new CKovPkEntry(0));
    } else if (f->IsNumber()) {
      copy = new CKovNumField(static_cast<const CKovNumField*>(f)->GetValue(), id, 0);
    } else if (f->IsChar()) {
      copy = new CKovCharField(static_cast<const CKovCharField*>(f)->GetValue(), id, 0);
    } else if (f->IsKovName()) {
      copy = new CKovNameField(static_cast<const CKovNameField*>(f)->GetValue(), id, 0, 0);
    } else {
      copy = new CKovStrField(static_cast<const CKovStrField*>(f)->GetValue().c_str(), id, 0);
    }
    copy->SetImageSize(f->GetImageSize());
    e->AddPkField(id, new CKovPkField(copy), slot);
  }
  return e;
}

// Packs what an unpack of image read, with the data sizes of its instances.
Bytes repack(const CKovCpLayout* layout, const Bytes& image) {
  CKovUp up(layout, image, "");
  up.FullUnpack();
  PackData again;
  for (const auto& kv : up.GetUpBlksMap()) {
    const CKovUpStdBlk* blk = kv.second;
    std::vector<CKovPkEntry*> entries;
    std::vector<uint16_t> sizes;
    KovUpBlkInstArr* const* instances = up.GetUpBlksList().PLookup(kv.first);
    for (int n = 1; n <= blk->GetBlkInstanceQty(); ++n) {
      entries.push_back(packEntryOf(blk->GetUpEntry(n), blk->GetBlkLayout()->GetDataLayout()));
      auto* inst = static_cast<const CKovUpNonDistBlkInst*>((**instances)[static_cast<size_t>(n)]);
      sizes.push_back(static_cast<uint16_t>(inst->GetDataSize()));
    }
    again.Add(blk->GetBlkLayout(), entries, sizes);
  }
  return packImage(layout, again, 0, 8192);
}

void RunPropertyCase(uint32_t seed) {
  SCOPED_TRACE("replay with RunPropertyCase(" + std::to_string(seed) + ");");
  PropertyCase c(seed);
  EXPECT_KOV_NO_THROW(c.b.cp->DoPostLayoutVerification());
  Bytes image;
  EXPECT_KOV_NO_THROW(image = packImage(c.b.cp.get(), c.data, 0, 8192));
  ExpectUnpacksToPackedValues(c.b.cp.get(), c.data, image);
  Bytes again;
  EXPECT_KOV_NO_THROW(again = repack(c.b.cp.get(), image));
  EXPECT_EQ(again, image);
}

TEST(RoundTripProperty, RandomLayoutsPackUnpackAndRepackTheSame) {
  for (uint32_t seed = 1; seed <= 3000; ++seed) {
    RunPropertyCase(seed);
    if (testing::Test::HasFailure()) break;
  }
}

}  // namespace
