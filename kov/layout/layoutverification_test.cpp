#include <memory>
#include <string>
#include <vector>

#include "kov/kovtest.h"
#include "kov/layout/klsblklayout.h"
#include "kov/layout/listfieldlayout.h"
#include "kov/layout/namefieldlayout.h"
#include "kov/layout/unionfieldlayout.h"

namespace {

// A layout of one partition; block n gets KOV type 0x100 + n.
struct Layout {
  Layout() : cp(1, 2, 0x10000, 0) { cp.AddPartition(1, ReadWrite); }
  CKovBlkLayout* Add(CKovBlkLayout* blk) {
    blk->SetPartitionNum(1);
    cp.AddBlkLayout(blk);
    return blk;
  }
  CKovBlkLayout* Blk(uint16_t id, const std::string& name, int multi = 0, int hdr = 0) {
    return Add(new CKovBlkLayout(id, KovBlkLayoutAttrib(0x100 + id, 1, multi, 0), name, 0,
                                 new CKovDataLayout(static_cast<LayoutType>(0), 0, 7, 0, true), 32,
                                 hdr));
  }
  void Kls(uint16_t id, uint16_t hdrID, int dist = 1, int multi = 0) {
    Add(new CKovKLSBlkLayout(id, KovBlkLayoutAttrib(0x100 + id, 0, multi, 0), "Zones",
                             new CKovDataLayout(static_cast<LayoutType>(0), 0, 7, 0, true), 32,
                             dist, 4, hdrID, nullptr));
  }
  void Verify(const std::string& expected) {
    if (expected.empty()) EXPECT_KOV_NO_THROW(cp.DoPostLayoutVerification());
    if (!expected.empty()) EXPECT_KOV_THROW(cp.DoPostLayoutVerification(), expected);
  }
  CKovCpLayout cp;
};

CKovFieldLayout* addNum(CKovDataLayout* dl, uint32_t id, uint32_t byte, uint8_t msb, uint32_t bits,
                        bool fixed = true, uint32_t prev = 0, uint32_t gap = 0) {
  auto* f = new CKovNumFieldLayout(id, byte, bits, msb, fixed, gap, dl);
  dl->AddField(id, prev, f, 0);
  return f;
}

// A list of at most 10 entries of 8 bits.
CKovFieldLayout* addList(CKovDataLayout* dl, uint32_t id, ListFormat format, uint32_t leqID,
                         uint16_t leqBlkID = 0, uint32_t byte = 8, uint8_t msb = 7,
                         bool fixed = true, uint32_t prev = 0, uint32_t gap = 0) {
  auto* list = new CKovListFieldLayout(
      id, byte, msb, KovListAttribStruct(leqID, format, 10, 0, 8, leqBlkID, nullptr), fixed, gap,
      dl, numbers(id, {{{id + 1, 0, 8}}}));
  dl->AddField(id, prev, list, 0);
  return list;
}

// A union with discriminants discr (and discr2 unless 0) in block discrBlk (none given if 0).
CKovFieldLayout* addUnion(CKovDataLayout* dl, uint32_t id, UnionFormat format, uint32_t discr,
                          uint32_t discr2, uint16_t discrBlk, uint32_t byte, uint8_t msb) {
  KovUnionAttribStruct attrib;
  attrib.unionFormat = format;
  attrib.discrIDArr = {discr};
  if (discr2 != 0) attrib.discrIDArr.push_back(discr2);
  if (discrBlk != 0) attrib.discrBlkIDArr = {discrBlk};
  auto* u = new CKovUnionFieldLayout(id, byte, msb, attrib, true, 0, dl, 1);
  dl->AddField(id, 0, u, 0);
  return u;
}

TEST(PostLayoutVerification, ContiguousLeqMustEndWhereTheListBegins) {
  // LEQ field 10: 8 bits at byte 3, behind field 5. List 20 follows.
  struct Case {
    bool leqFixed, listFixed;
    uint32_t listByte;
    uint8_t listMsb;
    uint32_t listPrev, gap;
    bool passes;
  } cases[] = {
      {true, true, 4, 7, 10, 0, true},    // fixed, at the next bit
      {true, true, 4, 6, 10, 0, false},   // fixed, one bit late
      {true, false, 0, 7, 10, 0, true},   // floating behind the LEQ
      {true, false, 0, 7, 10, 1, false},  // floating one bit behind it
      {true, false, 0, 7, 5, 0, false},   // floating behind another field
      {false, true, 9, 2, 10, 0, true},   // floating LEQ: a fixed list anywhere
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(&c - cases);
    Layout l;
    CKovBlkLayout* blk = l.Blk(1, "Chan");
    addNum(blk->GetDataLayout(), 5, 0, 7, 8);
    addNum(blk->GetDataLayout(), 10, 3, 7, 8, c.leqFixed, 5);
    blk->AddFieldToVerificationMap(
        20, addList(blk->GetDataLayout(), 20, VarSzContigLeq, 10, 0, c.listByte, c.listMsb,
                    c.listFixed, c.listPrev, c.gap));
    l.Verify(c.passes ? "" : "Field 10 must immediately precede field 20 (see block Chan)");
  }
}

TEST(PostLayoutVerification, EachListFormatLooksForItsLeqWhereItMayLie) {
  // Field 31 is the entry of list 30 beside list 20; field 51 of block Other is 3 bits wide,
  // too narrow for 10 entries. The texts name the list's block, not the LEQ's.
  struct Case {
    ListFormat format;
    uint32_t leqID;
    std::string expected;
  } cases[] = {
      {VarSzContigLeq, 31, "LEQ field referenced by List field 20 not found in block Chan)"},
      {VarSzSameBlkLeq, 31, ""},
      {VarSzSplitLeq, 50, ""},
      {VarSzSplitLeq, 51,
       "LEQ field not large enough to hold max quantity specified for List field 20 (see block "
       "Chan)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.leqID);
    Layout l;
    CKovBlkLayout* chan = l.Blk(1, "Chan");
    CKovBlkLayout* other = l.Blk(2, "Other");
    addNum(other->GetDataLayout(), 50, 0, 7, 8);
    addNum(other->GetDataLayout(), 51, 1, 7, 3);
    addList(chan->GetDataLayout(), 30, FixedSzNoLeq, 0, 0, 0);
    chan->AddFieldToVerificationMap(20, addList(chan->GetDataLayout(), 20, c.format, c.leqID, 2));
    l.Verify(c.expected);
  }
}

TEST(PostLayoutVerification, UnionDiscriminantsByFormatAndKind) {
  // Radio (1): number 7, string 8, list 12. Other (2): number 70. Block 3 is distributed.
  struct Case {
    UnionFormat format;
    uint32_t discr, discr2;
    uint16_t discrBlk;
    std::string expected;
  } cases[] = {
      {UnionVarSz, 7, 0, 0, ""},
      {UnionVarSz, 8, 0, 0, ""},
      {UnionVarSzSplit, 70, 0, 2, ""},
      {UnionVarSz, 7, 0, 2,
       "Union 40 in block 1 has split-within format\nbut discriminant resides in different block."},
      {UnionVarSzSplit, 7, 0, 1,
       "Union 40 in block 1 has split-across format\nbut discriminant resides in same block."},
      {UnionVarSzSplit, 70, 0, 9,
       "Union field 40 references discriminant in block with ID 9\nbut no layout for that block "
       "exists."},
      {UnionVarSzSplit, 70, 0, 3,
       "Union field 40 in block 1 references discriminant in\ndistributed block 3. 'Split-across' "
       "discriminants may\nnot live in distributed blocks."},
      {UnionVarSzSplit, 70, 71, 2,
       "Union 40 in block 1 names 2 discriminants but 1 discriminant blocks."},
      {UnionVarSz, 99, 0, 0, "Discriminant field referenced by Union field 40 does not exist"},
      {UnionVarSz, 7, 12, 0,
       "Invalid field type specified for discriminant field 12 (see block Radio)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(&c - cases);
    Layout l;
    CKovBlkLayout* radio = l.Blk(1, "Radio");
    CKovDataLayout* dl = radio->GetDataLayout();
    addNum(dl, 7, 0, 7, 8);
    dl->AddField(8, 7,
                 new CKovStrFieldLayout(8, 1, 7, CKovCharFieldLayout::Char8Bit, 2, true, 0, dl), 0);
    addList(dl, 12, FixedSzNoLeq, 0);
    addNum(l.Blk(2, "Other")->GetDataLayout(), 70, 0, 7, 8);
    l.Kls(3, 4);
    l.Blk(4, "ZoneHdr", 0, 1);
    radio->AddFieldToVerificationMap(
        40, addUnion(dl, 40, c.format, c.discr, c.discr2, c.discrBlk, 20, 7));
    l.Verify(c.expected);
  }
}

TEST(PostLayoutVerification, UnionInAListEntryTakesItsDiscriminantFromThatEntryBeforeIt) {
  // Union 22 starts at byte 0, MSB 3 of the entry of list 20; field 5 lies in the block.
  struct Case {
    uint32_t discrID;
    uint8_t discrMsb;
    std::string expected;
  } cases[] = {
      {21, 3, ""},
      {21, 2,
       "For unions embedded inside list fields, the discriminant field must precede\nthe union "
       "field within the list entry data layout. See union field\n22 in block Chan."},
      {5, 7, "Discriminant field referenced by Union field 22 does not exist"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(&c - cases);
    Layout l;
    CKovBlkLayout* chan = l.Blk(1, "Chan");
    addNum(chan->GetDataLayout(), 5, 0, 7, 8);
    auto* entry = new CKovDataLayout(ListEntryLayout, 0, 7, 20, false);
    addNum(entry, 21, 0, c.discrMsb, 2);
    chan->AddFieldToVerificationMap(22, addUnion(entry, 22, UnionVarSz, c.discrID, 0, 0, 0, 3));
    chan->AddField(20, 5,
                   new CKovListFieldLayout(20, 1, 7, KovListAttribStruct(), true, 0,
                                           chan->GetDataLayout(), entry),
                   1);
    l.Verify(c.expected);
  }
}

TEST(PostLayoutVerification, DistributedBlocksAndHeaderBlocksPairOneToOne) {
  // Distributed block 30 names header block 31.
  struct Case {
    int distributed, secondKls, klsMulti, hdrExists, hdrDeclared, hdrMulti, strayHdr;
    std::string expected;
  } cases[] = {
      {1, 0, 1, 1, 1, 1, 0, ""},
      {0, 0, 0, 0, 0, 0, 0, ""},  // a KLS block that is not distributed names no header
      {1, 1, 0, 1, 1, 0, 0,
       "Multiple Distributed KOV List Structure blocks\nreference Header block 31."},
      {1, 0, 0, 0, 0, 0, 0,
       "KOV List Structure block 30 references Header\nblock 31 but no layout exists for that "
       "block."},
      {1, 0, 0, 1, 0, 0, 0,
       "KOV List Structure block 30 references Header\nblock 31 but that block was not declared "
       "as a header block."},
      {1, 0, 1, 1, 1, 0, 0,
       "Header block 31 has different instance type than\nKOV List Structure block 30."},
      {1, 0, 0, 1, 1, 1, 0,
       "Header block 31 has different instance type than\nKOV List Structure block 30."},
      {1, 0, 0, 1, 1, 0, 1,
       "No layout found for the KOV List Structure referenced\nby Header block 32."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(&c - cases);
    Layout l;
    l.Kls(30, 31, c.distributed, c.klsMulti);
    if (c.secondKls) l.Kls(33, 31);
    if (c.hdrExists) l.Blk(31, "ZoneHdr", c.hdrMulti, c.hdrDeclared);
    if (c.strayHdr) l.Blk(32, "StrayHdr", 0, 1);
    l.Verify(c.expected);
  }
}

TEST(PostLayoutVerification, FirstFaultInMapOrderEndsThePass) {
  Layout l;
  l.Verify("");
  // Blocks added 1, 2, 17, 3 iterate 3, 2, 1, 17. Block 3's faulty list was not entered for
  // verification; the stray header block 5 would fail the KLS steps, which come last.
  for (uint16_t id : {1, 2, 17, 3}) {
    CKovBlkLayout* blk = l.Blk(id, "B" + std::to_string(id));
    CKovFieldLayout* list = addList(blk->GetDataLayout(), 20, VarSzSameBlkLeq, 99);
    if (id != 3) blk->AddFieldToVerificationMap(20, list);
  }
  l.Blk(5, "Hdr", 0, 1);
  l.Verify("LEQ field referenced by List field 20 not found in block B2)");
}

TEST(PostLayoutVerification, AdviceIsShownAndThePassGoesOn) {
  // Field ids in buckets 0 to 4, so the map gives them in this order.
  Layout l;
  CKovBlkLayout* blk = l.Blk(1, "Chan");
  CKovDataLayout* dl = blk->GetDataLayout();
  auto* known = new CKovNameFieldLayout(0x05, 0, 32, 7, true, 0, dl, 1);
  auto* dangling = new CKovNameFieldLayout(0x10, 4, 32, 7, true, 0, dl, 9);
  dl->AddField(0x05, 0, known, 0);
  dl->AddField(0x10, 0x05, dangling, 1);
  blk->AddFieldToVerificationMap(0x05, known);
  blk->AddFieldToVerificationMap(0x10, dangling);
  blk->AddFieldToVerificationMap(0x20, addList(dl, 0x20, FixedSzNoLeq, 0));
  blk->AddFieldToVerificationMap(0x30, addList(dl, 0x30, VarSzCalcLeq, 0));
  blk->AddFieldToVerificationMap(0x40, addUnion(dl, 0x40, UnionVarSz, 0x99, 0, 0, 20, 7));
  MessageBoxRecorder boxes;
  l.Verify("Discriminant field referenced by Union field 64 does not exist");
  EXPECT_EQ(boxes.Texts(),
            (std::vector<std::string>{
                "WARNING: KOV Name field 16 in block Chan references block 9\nbut "
                "no layout for that block exists.",
                "Invalid list format specified.", "Invalid list format specified."}));
}

}  // namespace
