#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "kov/fields/listfield.h"
#include "kov/fields/unionfield.h"
#include "kov/kovtest.h"
#include "kov/layout/charfieldlayout.h"
#include "kov/layout/listfieldlayout.h"
#include "kov/layout/namefieldlayout.h"
#include "kov/layout/unionfieldlayout.h"
#include "kov/layout/unionlayoutopt.h"
#include "kov/platform/strresource.h"
#include "kov/unpack/upentrylist.h"
#include "kov/unpack/upstdblk.h"

namespace {

CKovUnionFieldLayout* addUnion(CKovBlkLayout* blk, uint32_t id, uint32_t prev, int pos,
                               uint32_t byteOffset, UnionFormat format, uint32_t lengthInBits,
                               std::vector<uint32_t> discrIDs, std::vector<uint16_t> discrBlkIDs,
                               std::vector<std::pair<uint32_t, CKovDataLayout*>> options,
                               uint32_t optionSzInBits = 0, CKovDataLayout* parent = nullptr,
                               bool fixed = true) {
  KovUnionAttribStruct attribs;
  attribs.unionFormat = format;
  attribs.lengthInBits = lengthInBits;
  attribs.upLayoutSelectionFunc = kovGenSelectByFirstDiscr;
  attribs.discrIDArr = discrIDs;
  attribs.discrBlkIDArr = discrBlkIDs;
  if (parent == nullptr) parent = blk->GetDataLayout();
  auto* u = new CKovUnionFieldLayout(id, byteOffset, 7, attribs, fixed, 0, parent,
                                     blk->GetBlkID());
  for (auto& [optID, dl] : options) {
    u->AddToUnionMap(optID, new CKovUnionLayoutOpt(dl, 0, 0, optID, optionSzInBits, 0));
  }
  parent->AddField(id, prev, u, pos);
  return u;
}

TEST(ListField, ContigLeqIsWrittenBehindEntriesAndReadFirst) {
  // N (id 40, 8 bits, byte 0) holds the LEQ of a list at byte 1 with 16-bit entries.
  CKovDataLayout dl(static_cast<LayoutType>(1), 0, 7, 0, true);
  dl.AddField(40, 0, new CKovNumFieldLayout(40, 0, 8, 7, true, 0, &dl), 0);
  CKovBlkLayout blk(1, KovBlkLayoutAttrib(0x61, 1, 0, 0), "L", 0,
                    new CKovDataLayout(static_cast<LayoutType>(1), 0, 7, 0, true), 8, 0);
  KovListAttribStruct attribs(40, VarSzContigLeq, 4, 0, 16, 0, nullptr);
  auto* listLayout =
      new CKovListFieldLayout(41, 1, 7, attribs, true, 0, &dl, numbers(41, {{{42, 0, 16}}}));
  dl.AddField(41, 40, listLayout, 1);

  CKovListField list(41, 2, 4, nullptr);
  list.AddEntryToList(entryOf({new CKovNumField(0x1234, 42, 16)}));
  list.AddEntryToList(entryOf({new CKovNumField(0x5678, 42, 16)}));
  KovPkBlkMap none;
  CKovPk pk(&none, 0);
  CKovImage image(9);
  KovFieldsMap placed;
  ASSERT_EQ(list.WriteToImage(&pk, &image, 4, 7, &placed, listLayout, nullptr, 1, 1), PkDone);
  Bytes bytes(image.GetBytesArray(), image.GetBytesArray() + 9);
  EXPECT_EQ(bytes, (Bytes{0, 0, 0, 0, 0x02, 0x12, 0x34, 0x56, 0x78}));

  CKovUp up(nullptr, bytes, "");
  KovFieldsMap read;
  UpStatus status = UpFailed;
  CKovNumField leq(&up, 4, 7, read, dl.GetFieldLayout(40), 40, 1, 71, status);
  read.SetAt(40, &leq);
  CKovListField back(&up, &blk, 4, 7, nullptr, listLayout, 71, read, status, 41, 1);
  ASSERT_EQ(status, UpDone);
  EXPECT_EQ(back.GetListEntryQty(), 2u);
  EXPECT_EQ(back.GetImageSize(), 32u);
  ASSERT_EQ(back.GetUpEntryList()->GetCount(), 2);
  EXPECT_EQ(static_cast<const CKovNumField*>(
                back.GetUpEntryList()->GetAt(1)->GetUpField(42)->GetData())
                ->GetValue(),
            0x5678u);
}

TEST(ListField, EntryMayNotReachIntoTheNextEntry) {
  // Entries of 16 bits whose one field is 17 bits long: the first entry may touch bits 48..63
  // only, so it stops, and the list with it, although the block has room.
  LayoutBuilder b;
  CKovBlkLayout* blk = b.Block(1, "L", 0x61, 1, 0, 0, 8);
  addList(blk, 41, 0, 0, 0, FixedSzNoLeq, 2, 16, numbers(41, {{{42, 0, 17}}}));
  Bytes image = blockInstance(0x61, 1, {1, 2, 3, 4, 5, 6, 7, 8});
  CKovUp up(b.cp.get(), image, "");
  ASSERT_EQ(up.FullUnpack(), 1);
  EXPECT_EQ(up.GetUnpackedBlk(1)->GetUpEntry(1)->GetUpField(41), nullptr);
}

TEST(ListField, PackRefusesCountOtherThanItsQuantityAndAnUnfitLeq) {
  LayoutBuilder b;
  CKovBlkLayout* blk = b.Block(1, "L", 0x61, 1, 0, 0, 8);
  LayoutBuilder::Num(blk, 40, 0, 0, 7, 2, 0);
  addList(blk, 41, 40, 1, 1, VarSzContigLeq, 4, 8, numbers(41, {{{42, 0, 8}}}), 40);
  kovRegisterString(41, "Channels");
  PackData wrong;
  CKovListField* two = listValue(41, {1, 2});
  two->SetListEntryQty(3);
  wrong.Add(blk, {entryOf({two})}, {8});
  EXPECT_KOV_THROW(packImage(b.cp.get(), wrong),
                   "Number of entries in List field Channels does not match pack quantity of 3.");
  // Four entries need 3 bits; the LEQ field has 2: the write fails rather than cut the quantity.
  PackData wide;
  wide.Add(blk, {entryOf({listValue(41, {1, 2, 3, 4})})}, {8});
  EXPECT_KOV_THROW(packImage(b.cp.get(), wide),
                   "Failed trying to write field 41 in block L [1] to image.");
  // Five entries would run past the four the layout has room for.
  PackData more;
  more.Add(blk, {entryOf({listValue(41, {1, 2, 3, 4, 5})})}, {8});
  EXPECT_KOV_THROW(packImage(b.cp.get(), more),
                   "List Channels holds 5 entries, more than the 4 its layout allows.");
  kovClearRegisteredStrings();
}

TEST(ListField, SplitLeqIsPatchedIntoEarlierBlockAndReadBack) {
  // X (0x0021/1, 2 bytes) holds the 16-bit LEQ; Y (0x0022/1, 3 bytes) the list of three 8-bit
  // entries 0A 0B 0C.
  LayoutBuilder b;
  CKovBlkLayout* x = b.Block(1, "X", 0x0021, 1, 0, 0, 2);
  LayoutBuilder::Num(x, 5, 0, 0, 7, 16, 0);
  CKovBlkLayout* y = b.Block(2, "Y", 0x0022, 1, 0, 0, 3);
  addList(y, 30, 0, 0, 0, VarSzSplitLeq, 3, 8, numbers(30, {{{31, 0, 8}}}), 5, 1);
  PackData data;
  data.Add(x, {new CKovPkEntry(1)}, {2});
  data.Add(y, {entryOf({listValue(30, {0x0A, 0x0B, 0x0C})})}, {3});
  Bytes image = packImage(b.cp.get(), data);
  EXPECT_EQ(image, (Bytes{0x00, 0x21, 0x00, 0x01, 0x00, 0x04, 0x00, 0x03, 0x30, 0x63, 0x00, 0x22,
                          0x00, 0x01, 0x00, 0x05, 0x0A, 0x0B, 0x0C, 0xDA, 0xB7}));
  ExpectUnpacksToPackedValues(b.cp.get(), data, image);
}

TEST(ListField, SplitLeqFromSingleToMultiInstanceBlockIsRefused) {
  LayoutBuilder b;
  CKovBlkLayout* x = b.Block(1, "X", 0x0021, 0, 1, 0, 2);
  LayoutBuilder::Num(x, 5, 0, 0, 7, 16, 0);
  CKovBlkLayout* y = b.Block(2, "Y", 0x0022, 1, 0, 0, 3);
  addList(y, 30, 0, 0, 0, VarSzSplitLeq, 3, 8, numbers(30, {{{31, 0, 8}}}), 5, 1);
  kovRegisterString(30, "Scan");
  PackData data;
  data.Add(x, {new CKovPkEntry(1)}, {2});
  data.Add(y, {entryOf({listValue(30, {7})})}, {3});
  EXPECT_KOV_THROW(packImage(b.cp.get(), data),
                   "Anchor field (Scan) in Single Instance block references split field in "
                   "Multiple Instance block.");
  kovClearRegisteredStrings();
}

// Block 7 holds 10, a list 20 whose LEQ (30) is in block 40 behind it, and 21 floating behind
// the list. With waitingLeq, 30 itself floats behind 31, listed after it, so it waits too.
std::string patchExampleReport(bool waitingLeq) {
  LayoutBuilder b;
  CKovBlkLayout* b7 = b.Block(7, "B7", 0x0071, 1, 0, 0, 6);
  CKovBlkLayout* b40 = b.Block(40, "B40", 0x0072, 1, 0, 0, 2);
  LayoutBuilder::Num(b7, 10, 0, 0, 7, 8, 0);
  addList(b7, 20, 10, 1, 1, VarSzSplitLeq, 4, 8, numbers(20, {{{22, 0, 8}}}), 30, 40);
  LayoutBuilder::Num(b7, 21, 20, 0, 0, 8, 2, false, 0);
  if (waitingLeq) {
    LayoutBuilder::Num(b40, 30, 31, 0, 0, 8, 0, false, 0);
    LayoutBuilder::Num(b40, 31, 0, 0, 7, 8, 1);
  } else {
    LayoutBuilder::Num(b40, 30, 0, 1, 7, 8, 0);
  }
  auto* list = new CKovListField(20, 2, 0, nullptr);
  list->AddEntryToList(entryOf({new CKovNumField(0xA1, 22, 8)}));
  list->AddEntryToList(entryOf({new CKovNumField(0xA2, 22, 8)}));
  list->SetImageSize(16);
  PackData data;
  data.Add(b7, {entryOf({new CKovNumField(0x10, 10, 8), list, new CKovNumField(0x21, 21, 8)})},
           {6});
  data.Add(b40, {waitingLeq ? entryOf({new CKovNumField(0x31, 31, 8)}) : new CKovPkEntry(1)},
           {2});
  Bytes image;
  EXPECT_KOV_NO_THROW(image = packImage(b.cp.get(), data));
  std::string path = testing::TempDir() + "kov_patch_example.xml";
  CKovUp up(b.cp.get(), image, path);
  EXPECT_KOV_NO_THROW(up.FullUnpack());
  ExpectUnpacksToPackedValues(b.cp.get(), data, image);
  std::string report = kovTestReadXmlReport(path);
  return report;
}

TEST(UpPatchMap, SplitLeqBehindTheListResolvesInOneSweepOrTwo) {
  // One section of block 7 from the walk, then one per sweep that reached it.
  EXPECT_EQ(kovTestCount(patchExampleReport(false), "<BlockName> B7_1 </BlockName>"), 2u);
  EXPECT_EQ(kovTestCount(patchExampleReport(true), "<BlockName> B7_1 </BlockName>"), 3u);
}

TEST(UnionField, DiscriminantAheadOrBehindGivesTheSameUnion) {
  // N (8 bits) selects the option of U, a UnionVarSz union: option 1 one 16-bit number, option 2
  // one 8-bit number; F floats behind U. Data: 02 AB CD.
  for (bool discrBehind : {false, true}) {
    SCOPED_TRACE(discrBehind ? "N behind U" : "N ahead of U");
    LayoutBuilder b;
    CKovBlkLayout* blk = b.Block(1, "Blk", 0x0081, 1, 0, 0, 3);
    kovRegisterString(50, "N");
    if (!discrBehind) LayoutBuilder::Num(blk, 50, 0, 0, 7, 8, 0);
    addUnion(blk, 51, discrBehind ? 0 : 50, 1, 1, UnionVarSz, 0, {50}, {},
             {{1, numbers(51, {{{52, 0, 16}}}, static_cast<LayoutType>(3))},
              {2, numbers(51, {{{53, 0, 8}}}, static_cast<LayoutType>(3))}});
    if (discrBehind) LayoutBuilder::Num(blk, 50, 51, 0, 7, 8, 0);
    LayoutBuilder::Num(blk, 54, 51, 0, 0, 8, 2, false, 0);
    Bytes image = blockInstance(0x81, 1, {0x02, 0xAB, 0xCD});
    std::string path = testing::TempDir() + "kov_union_example.xml";
    CKovUp up(b.cp.get(), image, path);
    ASSERT_EQ(up.FullUnpack(), 1);
    const CKovUpEntry* e = up.GetUnpackedBlk(1)->GetUpEntry(1);
    auto* u = static_cast<const CKovUnionField*>(e->GetUpField(51)->GetData());
    EXPECT_EQ(u->GetLayoutID(), 2u);
    EXPECT_EQ(u->GetImageSize(), 8u);
    EXPECT_EQ(kovGenValueText(e->GetUpField(53)->GetData()), "number 0xab");  // through U
    EXPECT_EQ(kovGenValueText(e->GetUpField(54)->GetData()), "number 0xcd");
    std::string report = kovTestReadXmlReport(path);
    EXPECT_EQ(kovTestCount(report, "<Name> N </Name>"), discrBehind ? 2u : 1u);
    EXPECT_LT(report.find("<Name> N </Name>"), report.find("<Union>"));
    kovClearRegisteredStrings();
  }
}

TEST(UnionField, SelectionFailuresAreReported) {
  LayoutBuilder b;
  CKovBlkLayout* blk = b.Block(1, "Blk", 0x0081, 1, 0, 0, 3);
  LayoutBuilder::Num(blk, 50, 0, 0, 7, 8, 0);
  addUnion(blk, 51, 50, 1, 1, UnionFixedPadded, 16, {50}, {}, {{1, numbers(51, {{{52, 0, 16}}})}});
  kovRegisterString(51, "Payload");
  Bytes image = blockInstance(0x81, 1, {0x07, 0x00, 0x00});
  CKovUp up(b.cp.get(), image, "");
  EXPECT_KOV_THROW(up.FullUnpack(), "Layout selection function for union Payload returned layout "
                                    "7 but\nno exchange defined for that layout.");
  kovClearRegisteredStrings();
}

// A calculated quantity: always 3.
uint32_t threeEntries(const CKovUp*, const CKovBlkLayout*, uint32_t, uint16_t) { return 3; }

TEST(RoundTrip, EveryListFormatReadsBackAsPackedUpToTheLayoutMaximum) {
  struct Case {
    ListFormat format;
    uint32_t qty;
  } cases[] = {{FixedSzNoLeq, 4},    {VarSzContigLeq, 2},  {VarSzSameBlkLeq, 3}, {VarSzSplitLeq, 1},
               {VarSzCalcLeq, 3},    {VarSzCalcLeqAlt, 3}, {VarSzContigLeq, 0},  {FixedSzNoLeq, 5},
               {VarSzContigLeq, 5},  {VarSzSameBlkLeq, 5}, {VarSzSplitLeq, 5},   {VarSzCalcLeq, 5},
               {VarSzCalcLeqAlt, 5}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << static_cast<int>(c.format) << " qty " << c.qty);
    LayoutBuilder b;
    // Block K holds the LEQ of a split list; it comes after the list's block in the image.
    CKovBlkLayout* blk = b.Block(1, "Lists", 0x0091, 0, 1, 0, 12);
    CKovBlkLayout* k = b.Block(2, "K", 0x0092, 0, 1, 0, 1);
    LayoutBuilder::Num(k, 70, 0, 0, 7, 8, 0);
    // Same-block LEQ behind the list, at byte 11; contiguous LEQ in front, at byte 0.
    uint32_t leqID = c.format == VarSzSplitLeq ? 70 : 60;
    uint32_t leqOffset = c.format == VarSzSameBlkLeq ? 11 : 0;
    if (c.format != VarSzSameBlkLeq) LayoutBuilder::Num(blk, 60, 0, leqOffset, 7, 8, 0);
    addList(blk, 61, c.format == VarSzSameBlkLeq ? 0 : 60, 1, 1, c.format, 4, 16,
            numbers(61, {{{62, 0, 12}, {63, 1, 4}}}), leqID, 2, threeEntries);
    if (c.format == VarSzSameBlkLeq) LayoutBuilder::Num(blk, 60, 61, leqOffset, 7, 8, 0);
    std::vector<CKovPkEntry*> instances;
    for (int inst = 0; inst < 2; ++inst) {
      auto* list = new CKovListField(61, c.qty, 0, nullptr);
      for (uint32_t i = 0; i < c.qty; ++i) {
        list->AddEntryToList(entryOf({new CKovNumField(0xA00 + i + 0x10 * inst, 62, 12),
                                      new CKovNumField(i, 63, 4)}));
      }
      auto* e = new CKovPkEntry(2);
      e->AddPkField(61, new CKovPkField(list), 0);
      instances.push_back(e);
    }
    PackData data;
    data.Add(blk, instances, {12, 12});
    data.Add(k, {new CKovPkEntry(1), new CKovPkEntry(1)}, {1, 1});
    if (c.qty > 4) {
      // Every format here is bound by the layout's maximum of 4.
      EXPECT_KOV_THROW(packImage(b.cp.get(), data),
                       "List  holds 5 entries, more than the 4 its layout allows.");
      continue;
    }
    ExpectUnpacksToPackedValues(b.cp.get(), data, packImage(b.cp.get(), data));
  }
}

TEST(RoundTrip, EveryUnionFormatReadsBackAsPacked) {
  // Discriminant 80 in the union's block (byte 0) or, for split formats, in block D before it.
  UnionFormat formats[] = {UnionFixedPadded, UnionFixedSplitPadded, UnionVarSz,
                           UnionVarSzPadded, UnionVarSzSplit,       UnionVarSzSplitPadded};
  for (UnionFormat format : formats) {
    for (uint32_t option : {1u, 2u}) {
      SCOPED_TRACE(static_cast<int>(format) * 10 + static_cast<int>(option));
      bool split = CKovUnionFieldLayout::IsSplitFormat(format);
      LayoutBuilder b;
      CKovBlkLayout* d = b.Block(1, "D", 0x00A1, 1, 0, 0, 1);
      CKovBlkLayout* blk = b.Block(2, "U", 0x00A2, 1, 0, 0, 6);
      LayoutBuilder::Num(split ? d : blk, 80, 0, 0, 7, 8, 0);
      addUnion(blk, 81, split ? 0 : 80, 1, 1, format, 32, {80},
               split ? std::vector<uint16_t>{1} : std::vector<uint16_t>{},
               {{1, numbers(81, {{{82, 0, 16}}}, static_cast<LayoutType>(3))},
                {2, numbers(81, {{{83, 0, 8}, {84, 1, 24}}}, static_cast<LayoutType>(3))}},
               32);
      auto* value = new CKovUnionField(
          81, option,
          option == 1 ? entryOf({new CKovNumField(0xBEEF, 82, 16)})
                      : entryOf({new CKovNumField(0x5A, 83, 8), new CKovNumField(0x123456, 84, 24)}));
      value->SetImageSize(32);
      PackData data;
      auto* discr = entryOf({new CKovNumField(option, 80, 8)});
      if (split) {
        data.Add(d, {discr}, {1});
        data.Add(blk, {entryOf({value})}, {6});
      } else {
        auto* e = new CKovPkEntry(2);
        e->AddPkField(80, new CKovPkField(new CKovNumField(option, 80, 8)), 0);
        e->AddPkField(81, new CKovPkField(value), 1);
        delete discr;
        data.Add(blk, {e}, {6});
      }
      ExpectUnpacksToPackedValues(b.cp.get(), data, packImage(b.cp.get(), data));
    }
  }
}

TEST(RoundTrip, UnionInListEntryAndListInUnionOption) {
  LayoutBuilder b;
  CKovBlkLayout* blk = b.Block(1, "Nested", 0x00B1, 1, 0, 0, 16);
  // A fixed list of 2 entries of 3 bytes: a discriminant 91 and a union 92 of 16 bits.
  CKovDataLayout* led = numbers(90, {{{91, 0, 8}}});
  addList(blk, 90, 0, 0, 0, FixedSzNoLeq, 2, 24, led);
  addUnion(blk, 92, 91, 1, 1, UnionFixedPadded, 16, {91}, {},
           {{1, numbers(92, {{{93, 0, 16}}}, static_cast<LayoutType>(3))},
            {2, numbers(92, {{{94, 0, 8}}}, static_cast<LayoutType>(3))}},
           0, led);
  // A union 96 at byte 6 chosen by 95 (byte 15); option 1 holds a contiguous-LEQ list.
  LayoutBuilder::Num(blk, 95, 90, 15, 7, 8, 1);
  CKovDataLayout* opt1 = new CKovDataLayout(static_cast<LayoutType>(3), 0, 7, 96, false);
  opt1->AddField(97, 0, new CKovNumFieldLayout(97, 0, 8, 7, true, 0, opt1), 0);
  addList(opt1, 98, 97, 1, 1, VarSzContigLeq, 4, 16, numbers(98, {{{99, 0, 16}}}), 97);
  addUnion(blk, 96, 95, 2, 6, UnionFixedPadded, 72, {95}, {}, {{1, opt1}});

  auto* outer = new CKovListField(90, 2, 0, nullptr);
  for (uint32_t opt : {1u, 2u}) {
    auto* led1 = new CKovPkEntry(2);
    led1->AddPkField(91, new CKovPkField(new CKovNumField(opt, 91, 8)), 0);
    auto* u = new CKovUnionField(92, opt, opt == 1 ? entryOf({new CKovNumField(0x7777, 93, 16)})
                                                   : entryOf({new CKovNumField(0x42, 94, 8)}));
    u->SetImageSize(16);
    led1->AddPkField(92, new CKovPkField(u), 1);
    outer->AddEntryToList(led1);
  }
  auto* inner = new CKovListField(98, 3, 0, nullptr);
  for (uint32_t v : {0x1111u, 0x2222u, 0x3333u}) {
    inner->AddEntryToList(entryOf({new CKovNumField(v, 99, 16)}));
  }
  auto* optEntry = new CKovPkEntry(1);
  optEntry->AddPkField(98, new CKovPkField(inner), 0);
  auto* u96 = new CKovUnionField(96, 1, optEntry);
  u96->SetImageSize(72);
  PackData data;
  data.Add(blk, {entryOf({outer, new CKovNumField(1, 95, 8), u96})}, {16});
  ExpectUnpacksToPackedValues(b.cp.get(), data, packImage(b.cp.get(), data));
}

TEST(ListField, UnpackFailuresNameListAndBlock) {
  // A contiguous quantity of 200 entries of 8 bits in a block of 4 bytes at the image's end.
  LayoutBuilder b;
  CKovBlkLayout* blk = b.Block(1, "Lists", 0x00C1, 1, 0, 0, 4);
  LayoutBuilder::Num(blk, 40, 0, 0, 7, 8, 0);
  addList(blk, 41, 40, 1, 1, VarSzContigLeq, 255, 8, numbers(41, {{{42, 0, 8}}}), 40);
  CKovUp up(b.cp.get(), blockInstance(0xC1, 1, {200, 1, 2, 3}), "");
  EXPECT_KOV_THROW(up.FullUnpack(), "List 41 in block Lists [1] holds 200 entries of 8 bits, "
                                    "which run past the end of the image.");

  LayoutBuilder noCalc;
  CKovBlkLayout* c = noCalc.Block(1, "Calc", 0x00C2, 1, 0, 0, 4);
  addList(c, 41, 0, 0, 0, VarSzCalcLeq, 4, 8, numbers(41, {{{42, 0, 8}}}));
  CKovUp up2(noCalc.cp.get(), blockInstance(0xC2, 1, {1, 2, 3, 4}), "");
  EXPECT_KOV_THROW(up2.FullUnpack(), "Not user function found for calculating entry quantity for "
                                     "list 41 in block Calc");

  LayoutBuilder noSelect;
  CKovBlkLayout* u = noSelect.Block(1, "Sel", 0x00C3, 1, 0, 0, 4);
  addUnion(u, 51, 0, 0, 0, UnionFixedPadded, 16, {}, {}, {{1, numbers(51, {{{52, 0, 16}}})}});
  KovUnionAttribStruct plain;
  plain.unionFormat = UnionFixedPadded;
  plain.lengthInBits = 16;
  auto* bare = new CKovUnionFieldLayout(53, 2, 7, plain, true, 0, u->GetDataLayout(), 1);
  u->AddField(53, 51, bare, 1);
  CKovUp up3(noSelect.cp.get(), blockInstance(0xC3, 1, {1, 2, 3, 4}), "");
  EXPECT_KOV_THROW(up3.FullUnpack(),
                   "No user function found for selecting layout ID for union field 53");
}

TEST(ListField, PackWithoutLeqLayoutIsRefused) {
  LayoutBuilder b;
  CKovBlkLayout* x = b.Block(1, "X", 0x00D1, 1, 0, 0, 1);
  CKovBlkLayout* y = b.Block(2, "Y", 0x00D2, 1, 0, 0, 2);
  addList(y, 30, 0, 0, 0, VarSzSplitLeq, 2, 8, numbers(30, {{{31, 0, 8}}}), 99, 1);
  kovRegisterString(30, "Scan");
  PackData data;
  data.Add(x, {new CKovPkEntry(0)}, {1});
  data.Add(y, {entryOf({listValue(30, {7})})}, {2});
  EXPECT_KOV_THROW(packImage(b.cp.get(), data),
                   "Field layout for LEQ field referenced by list Scan not found");
  kovClearRegisteredStrings();
}

TEST(XmlReport, WholeWorkedExampleFromAnUnpack) {
  // The worked example packed, then unpacked with its report.
  LayoutBuilder b;
  CKovBlkLayout* s = b.Block(1, "Settings", 0x00E1, 0, 0, 0, 10);
  LayoutBuilder::Num(s, 1, 0, 0, 7, 8, 0);
  s->AddField(2, 1,
              new CKovCharFieldLayout(2, 1, 7, CKovCharFieldLayout::Char8Bit, true, 0,
                                      s->GetDataLayout()),
              1);
  s->AddField(3, 2, new CKovNameFieldLayout(3, 2, 32, 7, true, 0, s->GetDataLayout(), 9), 2);
  s->AddField(4, 3,
              new CKovStrFieldLayout(4, 6, 7, CKovCharFieldLayout::Char8Bit, 3, true, 0,
                                     s->GetDataLayout()),
              3);
  addList(s, 6, 4, 4, 9, FixedSzNoLeq, 1, 8, numbers(6, {{{5, 0, 8}}}));
  const char* names[] = {"", "Volume", "Mode", "Owner", "Alias", "Zone"};
  for (uint32_t id = 1; id <= 5; ++id) kovRegisterString(id, names[id]);
  auto* list = new CKovListField(6, 1, 0, nullptr);
  list->AddEntryToList(entryOf({new CKovNumField(3, 5, 8)}));
  PackData data;
  data.Add(s, {entryOf({new CKovNumField(5, 1, 8), new CKovCharField('A', 2, 8),
                        new CKovNameField(0x00100002, 3, 32, 0), new CKovStrField("R&D", 4, 24),
                        list})},
           {10});
  std::string path = testing::TempDir() + "kov_worked_report.xml";
  CKovUp up(b.cp.get(), packImage(b.cp.get(), data), path);
  ASSERT_EQ(up.FullUnpack(), 1);
  kovClearRegisteredStrings();
  std::string report = kovTestReadXmlReport(path);
  const std::string block = "<CodeplugData>\n" + kovTestWorkedReport;
  ASSERT_GE(report.size(), block.size());
  EXPECT_EQ(report.substr(report.size() - block.size()), block);
  EXPECT_EQ(report.find("<CodeplugData>\n\t<Block>"), report.size() - block.size());
}

}  // namespace
