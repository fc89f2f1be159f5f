#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kov/kovtest.h"
#include "kov/layout/charfieldlayout.h"
#include "kov/layout/datalayout.h"
#include "kov/layout/listfieldlayout.h"
#include "kov/layout/numfieldlayout.h"
#include "kov/layout/unionfieldlayout.h"
#include "kov/layout/unionlayoutopt.h"

namespace {

uint32_t calcLeqStub(const CKovUp*, const CKovBlkLayout*, uint32_t, uint16_t) { return 3; }

std::unique_ptr<CKovListFieldLayout> makeList(const KovListAttribStruct& attrib) {
  return std::make_unique<CKovListFieldLayout>(
      50, 0, 7, attrib, true, 0, nullptr, new CKovDataLayout(ListEntryLayout, 0, 7, 50, false));
}

TEST(ListFormat, PredicatesFollowTheFormatTable) {
  struct Row {
    ListFormat format;
    bool fixedSz, present, constLeq, split;
  } rows[] = {
      {FixedSzNoLeq, true, false, true, false},    {VarSzContigLeq, false, true, true, false},
      {VarSzSameBlkLeq, false, true, true, false}, {VarSzSplitLeq, false, true, true, true},
      {VarSzCalcLeq, false, true, false, false},   {VarSzCalcLeqAlt, false, true, false, false},
      {VarSzCfgLeq, false, true, true, false},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(static_cast<int>(r.format));
    EXPECT_EQ(CKovListFieldLayout::IsFixedSzFormat(r.format), r.fixedSz);
    EXPECT_EQ(CKovListFieldLayout::IsVarSzFormat(r.format), !r.fixedSz);
    EXPECT_EQ(CKovListFieldLayout::IsPresentFormat(r.format), r.present);
    EXPECT_EQ(CKovListFieldLayout::IsConstFormat(r.format), r.constLeq);
    EXPECT_EQ(CKovListFieldLayout::IsCalculatedFormat(r.format), !r.constLeq);
    EXPECT_EQ(CKovListFieldLayout::IsSplitFormat(r.format), r.split);

    // The layout's flags are the predicates of its format.
    auto list = makeList(KovListAttribStruct(9, r.format, 10, 0, 24, 4, calcLeqStub));
    EXPECT_EQ(list->IsFixedSz(), r.fixedSz);
    EXPECT_EQ(list->HasPresentLEQ(), r.present);
    EXPECT_EQ(list->HasAbsentLEQ(), !r.present);
    EXPECT_EQ(list->HasConstLEQ(), r.constLeq);
    EXPECT_EQ(list->HasCalcLEQ(), !r.constLeq);
    EXPECT_EQ(list->HasSplitLEQ(), r.split);
    EXPECT_EQ(list->GetLengthInBits(), r.fixedSz ? 240u : 0u);
  }
}

TEST(ListValidation, OutValueAndMessagesFollowFormat) {
  const std::string badFormat = "Invalid format specified for list 50 (see block 7.";
  const std::string noFunc =
      "Function to calculate LEQ must be specified for list 50 (see block 7)";
  const std::string noSize = "Invalid entry size specified for list field 50 (see block 7)";
  struct Case {
    int format;
    uint32_t entrySz;
    KovCalcUnpackLEQFunc func;
    bool outBefore, outAfter;
    std::vector<std::string> texts;
  } cases[] = {
      {0, 8, nullptr, true, false, {}},        {1, 8, nullptr, false, true, {}},
      {2, 8, nullptr, false, true, {}},        {3, 8, nullptr, false, true, {}},
      {4, 8, calcLeqStub, true, false, {}},    {5, 8, calcLeqStub, true, false, {}},
      {4, 8, nullptr, true, true, {noFunc}},   {5, 8, nullptr, false, false, {noFunc}},
      {6, 8, nullptr, true, false, {}},        {7, 8, nullptr, true, true, {badFormat}},
      {3, 0, nullptr, false, false, {noSize}}, {9, 0, nullptr, true, true, {noSize}},
  };
  MessageBoxRecorder boxes;
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "format " << c.format << " size " << c.entrySz);
    boxes.Clear();
    KovListAttribStruct attrib(9, static_cast<ListFormat>(c.format), 4, 0, c.entrySz, 0, c.func);
    bool out = c.outBefore;
    kovValidateSglListParms(50, attrib, 7, out);
    EXPECT_EQ(out, c.outAfter);
    EXPECT_EQ(boxes.Texts(), c.texts);
  }
}

TEST(LayoutEnums, HoldValuesOutsideTheirNames) {
  // Each value lies outside the range an enumeration without a fixed type could hold: the
  // sanitizer build aborts on loading one there.
  MessageBoxRecorder boxes;
  for (int value : {-1, 1000, INT32_MAX}) {
    SCOPED_TRACE(value);
    CKovDataLayout dl(static_cast<LayoutType>(value), 0, 7, 0, true);
    EXPECT_EQ(static_cast<int>(dl.GetLayoutType()), value);
    boxes.Clear();
    KovListAttribStruct list(9, static_cast<ListFormat>(value), 4, 0, 8, 0, nullptr);
    bool out = false;
    kovValidateSglListParms(50, list, 7, out);
    EXPECT_EQ(boxes.Texts(),
              std::vector<std::string>{"Invalid format specified for list 50 (see block 7."});
    auto format = static_cast<UnionFormat>(value);
    EXPECT_FALSE(CKovUnionFieldLayout::IsSplitFormat(format));
    EXPECT_FALSE(CKovUnionFieldLayout::IsVarSzFormat(format));
    EXPECT_FALSE(CKovUnionFieldLayout::IsPaddedFormat(format));
    EXPECT_KOV_THROW(new CKovCharFieldLayout(77, 0, 7,
                                             static_cast<CKovCharFieldLayout::CharType>(value),
                                             true, 0, nullptr),
                     "Invalid character type specified for field 77.");
  }
}

TEST(UnionFormat, PredicatesFollowTheFormatTable) {
  struct Row {
    UnionFormat format;
    bool split, varSz, padded;
  } rows[] = {
      {UnionFixedPadded, false, false, true}, {UnionFixedSplitPadded, true, false, true},
      {UnionVarSz, false, true, false},       {UnionVarSzPadded, false, true, true},
      {UnionVarSzSplit, true, true, false},   {UnionVarSzSplitPadded, true, true, true},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(static_cast<int>(r.format));
    EXPECT_EQ(CKovUnionFieldLayout::IsSplitFormat(r.format), r.split);
    EXPECT_EQ(CKovUnionFieldLayout::IsVarSzFormat(r.format), r.varSz);
    EXPECT_EQ(CKovUnionFieldLayout::IsFixedSzFormat(r.format), !r.varSz);
    EXPECT_EQ(CKovUnionFieldLayout::IsPaddedFormat(r.format), r.padded);

    KovUnionAttribStruct attrib;
    attrib.unionFormat = r.format;
    attrib.lengthInBits = 64;
    CKovUnionFieldLayout layout(60, 0, 7, attrib, true, 0, nullptr, 7);
    EXPECT_EQ(layout.HasSplitDiscr(), r.split);
    EXPECT_EQ(layout.IsVarSzUnion(), r.varSz);
    EXPECT_EQ(layout.IsFixedSz(), !r.varSz);
    EXPECT_EQ(layout.PadUnion(), r.padded);
    // A variable union's width depends on its option, whatever the attribute says.
    EXPECT_EQ(layout.GetLengthInBits(), r.varSz ? 0u : 64u);
  }
}

TEST(UnionFieldLayout, DiscriminantBlocksFilledWithOwnBlockUnlessSplit) {
  struct Case {
    UnionFormat format;
    std::vector<uint16_t> given, expected;
  } cases[] = {
      {UnionVarSz, {}, {7, 7}},
      {UnionFixedPadded, {5}, {5, 7}},
      {UnionVarSzSplit, {5}, {5}},
      {UnionVarSzSplit, {}, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(static_cast<int>(c.format));
    KovUnionAttribStruct attrib;
    attrib.unionFormat = c.format;
    attrib.discrIDArr = {100, 101};
    attrib.discrBlkIDArr = c.given;
    CKovUnionFieldLayout layout(60, 0, 7, attrib, true, 0, nullptr, 7);
    EXPECT_EQ(layout.GetDiscrBlkIDArr(), c.expected);
    EXPECT_EQ(layout.GetDiscrIDArr(), (std::vector<uint32_t>{100, 101}));
  }
}

TEST(UnionValidation, ReportsMissingDiscriminantsAndArraysOfUnequalLength) {
  const std::string noDiscr = "No discriminant ID(s) specified for Union\n60 in block 7.";
  const std::string mismatch =
      "The number of discriminant IDs must match the\nnumber of discriminant block IDs. See Union "
      "60\nin block 7.";
  struct Case {
    UnionFormat format;
    std::vector<uint32_t> ids;
    std::vector<uint16_t> blks;
    std::vector<std::string> texts;
  } cases[] = {
      {UnionVarSzSplit, {100, 101}, {3}, {mismatch}},
      {UnionVarSzSplit, {100, 101}, {3, 4}, {}},
      {UnionVarSz, {100, 101}, {}, {}},
      {UnionVarSz, {}, {}, {noDiscr}},
      {UnionFixedSplitPadded, {}, {3}, {noDiscr, mismatch}},  // both tests run
  };
  MessageBoxRecorder boxes;
  for (const Case& c : cases) {
    SCOPED_TRACE(static_cast<int>(c.format));
    boxes.Clear();
    KovUnionAttribStruct attrib;
    attrib.unionFormat = c.format;
    attrib.discrIDArr = c.ids;
    attrib.discrBlkIDArr = c.blks;
    kovValidateUnionParms(60, attrib, 7);
    EXPECT_EQ(boxes.Texts(), c.texts);
  }
}

TEST(UnionFieldLayout, OptionsAreFoundByIdAndReplacedBySameId) {
  KovUnionAttribStruct attrib;
  attrib.unionFormat = UnionVarSz;
  CKovUnionFieldLayout layout(60, 0, 7, attrib, true, 0, nullptr, 7);
  auto* first =
      new CKovUnionLayoutOpt(new CKovDataLayout(ListEntryLayout, 0, 7, 60, false), 0, 0, 1, 16, 0);
  auto* second =
      new CKovUnionLayoutOpt(new CKovDataLayout(ListEntryLayout, 0, 7, 60, false), 0, 0, 1, 16, 0);
  EXPECT_TRUE(layout.AddToUnionMap(1, first));
  EXPECT_EQ(layout.GetDataLayout(1), first->GetDataLayout());
  EXPECT_EQ(layout.GetDataLayout(2), nullptr);
  EXPECT_TRUE(layout.AddToUnionMap(1, second));
  EXPECT_EQ(layout.GetDataLayout(1), second->GetDataLayout());
  EXPECT_EQ(layout.GetUnionMap()->GetCount(), 1);
  delete first;  // displaced: the caller's again
}

TEST(UnionLayoutOpt, EmptyLayoutSelectsNothing) {
  auto* dl = new CKovDataLayout(ListEntryLayout, 0, 7, 60, false);
  CKovUnionLayoutOpt opt(dl, 0, 0, 1, 8, 0);
  EXPECT_EQ(opt.IsEmptyLayout(), 1);
  dl->AddField(1, 0, new CKovNumFieldLayout(1, 0, 8, 7, true, 0, dl), 0);
  EXPECT_EQ(opt.IsEmptyLayout(), 0);
  // An option without a data layout is empty too; its id is the fourth argument.
  CKovUnionLayoutOpt none(nullptr, 11, 22, 33, 44, 55);
  EXPECT_EQ(none.IsEmptyLayout(), 1);
  EXPECT_EQ(none.GetLayoutOptID(), 33u);
}

}  // namespace
