#include "kov/layout/datalayout.h"

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "kov/kovtest.h"
#include "kov/layout/charfieldlayout.h"
#include "kov/layout/fieldvaluesize.h"
#include "kov/layout/listfieldlayout.h"
#include "kov/layout/namefieldlayout.h"
#include "kov/layout/numfieldlayout.h"
#include "kov/layout/strfieldlayout.h"
#include "kov/layout/unionfieldlayout.h"
#include "kov/layout/unionlayoutopt.h"

namespace {

constexpr LayoutType kBlkLevel = static_cast<LayoutType>(0);

std::unique_ptr<CKovDataLayout> makeLayout(uint8_t msbStart = 7) {
  return std::make_unique<CKovDataLayout>(kBlkLevel, 0, msbStart, 0, true);
}

CKovNumFieldLayout* fixedNum(const CKovDataLayout* dl, uint32_t id, uint32_t byteOffset,
                             uint32_t bits, uint8_t msb = 7) {
  return new CKovNumFieldLayout(id, byteOffset, bits, msb, true, 0, dl);
}

CKovNumFieldLayout* floatingNum(const CKovDataLayout* dl, uint32_t id, uint32_t bits,
                                uint32_t gap) {
  return new CKovNumFieldLayout(id, 0, bits, 7, false, gap, dl);
}

// The worked example of the data layout: A 12 bits fixed at byte 0 MSB 7; B 3 bits floating,
// gap 1, after A; C two 8-bit characters floating, gap 0, after B.
struct WorkedExample {
  WorkedExample() : dl(makeLayout()) {
    dl->AddField(1, 0, fixedNum(dl.get(), 1, 0, 12), 0);
    dl->AddField(2, 1, floatingNum(dl.get(), 2, 3, 1), 1);
    dl->AddField(
        3, 2, new CKovStrFieldLayout(3, 0, 7, CKovCharFieldLayout::Char8Bit, 2, false, 0, dl.get()),
        2);
  }
  std::unique_ptr<CKovDataLayout> dl;
};

TEST(DataLayoutMeasuring, WorkedExampleIs32BitsAndPlacesCAtByte102Msb7) {
  WorkedExample ex;
  EXPECT_EQ(kovCalculateDataLayoutSzInBits(ex.dl.get(), nullptr, kKovPkFieldMapKind), 32u);
  EXPECT_EQ(kovCalcFloatingFldBitOffsetFromEntryStart(nullptr, ex.dl.get(),
                                                      ex.dl->GetFieldLayout(2), kKovPkFieldMapKind),
            13u);
  // Entry at byte 100, MSB 7: bit index 800; C at 816 = byte 102, MSB 7.
  EXPECT_EQ(kovCalcFloatingFldBitOffsetFromEntryStart(nullptr, ex.dl.get(),
                                                      ex.dl->GetFieldLayout(3), kKovPkFieldMapKind),
            16u);
}

TEST(DataLayoutMeasuring, SizeIsTheEndOfTheFieldAddedLast) {
  struct Fld {
    uint32_t id, prev;
    bool fixed;
    uint32_t byteOffset, bits, gap;
  };
  const struct {
    const char* what;
    uint8_t msbStart;
    std::vector<Fld> fields;
    uint32_t bits;
  } cases[] = {
      {"empty", 7, {}, 0},
      // 8 + (3 - 7) + 8: a fixed start counts from the layout's MSB start.
      {"fixed start", 3, {{5, 0, true, 1, 8, 0}}, 12},
      // Bits 32..48 then bits 0..8: the field added last counts, not the one ending last.
      {"added last", 7, {{1, 0, true, 4, 16, 0}, {2, 1, true, 0, 8, 0}}, 8},
      {"unknown predecessor ends at entry start", 7, {{1, 99, false, 0, 8, 3}}, 3 + 8},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    auto dl = makeLayout(c.msbStart);
    int position = 0;
    for (const Fld& f : c.fields) {
      dl->AddField(f.id, f.prev,
                   new CKovNumFieldLayout(f.id, f.byteOffset, f.bits, 7, f.fixed, f.gap, dl.get()),
                   position++);
    }
    EXPECT_EQ(kovCalculateDataLayoutSzInBits(dl.get(), nullptr, kKovPkFieldMapKind), c.bits);
    EXPECT_EQ(dl->GetIDOfLastFieldInLayout(), c.fields.empty() ? 0u : c.fields.back().id);
  }
}

TEST(DataLayoutMeasuring, ListWithoutValueMeasuresZeroUnlessFixedSize) {
  // A floating number behind a list: the list counts 0 bits when variable, entries × size when
  // of fixed size (10 × 24 = 240).
  for (ListFormat format : {VarSzCalcLeq, FixedSzNoLeq}) {
    SCOPED_TRACE(static_cast<int>(format));
    auto dl = makeLayout();
    KovListAttribStruct attrib(0, format, 10, 0, 24, 0, nullptr);
    auto entry = std::make_unique<CKovDataLayout>(ListEntryLayout, 0, 7, 20, false);
    dl->AddField(10, 0, fixedNum(dl.get(), 10, 0, 8), 0);
    dl->AddField(20, 10,
                 new CKovListFieldLayout(20, 0, 7, attrib, false, 0, dl.get(), entry.release()), 1);
    dl->AddField(30, 20, floatingNum(dl.get(), 30, 4, 2), 2);
    const uint32_t listBits = format == FixedSzNoLeq ? 240 : 0;
    EXPECT_EQ(kovCalculateDataLayoutSzInBits(dl.get(), nullptr, kKovPkFieldMapKind),
              8 + listBits + 2 + 4);
  }
}

TEST(DataLayoutMeasuring, PredecessorChainThatLoopsThrows) {
  auto dl = makeLayout();
  dl->AddField(1, 2, floatingNum(dl.get(), 1, 8, 0), 0);
  dl->AddField(2, 1, floatingNum(dl.get(), 2, 8, 0), 1);
  EXPECT_KOV_THROW(kovCalculateDataLayoutSzInBits(dl.get(), nullptr, kKovPkFieldMapKind),
                   "Previous fields of field 2 in a data layout form a loop.");
}

TEST(DataLayoutFields, LookupsOfFirstAndUnknownFields) {
  // Prev id 0 makes a field its own predecessor; an unknown id answers itself and leaves the
  // position alone.
  auto dl = makeLayout();
  dl->AddField(40, 0, fixedNum(dl.get(), 40, 0, 8), -3);
  dl->AddField(41, 40, fixedNum(dl.get(), 41, 1, 8), 1);
  EXPECT_EQ(dl->GetPrevFieldID(40), 40u);
  EXPECT_EQ(dl->GetPrevFieldID(41), 40u);
  EXPECT_EQ(dl->GetPrevFieldID(777), 777u);
  EXPECT_EQ(dl->GetIDOfLastFieldInLayout(), 41u);
  int32_t position = 55;
  EXPECT_EQ(dl->GetFieldPositionInLayout(777, position), 0);
  EXPECT_EQ(position, 55);
  EXPECT_EQ(dl->GetFieldPositionInLayout(40, position), 1);
  EXPECT_EQ(position, -3);
}

TEST(DataLayoutFields, SecondAddOfIdReplacesEntriesAndAppendsAgain) {
  auto dl = makeLayout();
  CKovNumFieldLayout* first = fixedNum(dl.get(), 40, 0, 8);
  dl->AddField(40, 0, first, 0);
  dl->AddField(41, 40, fixedNum(dl.get(), 41, 1, 8), 1);
  dl->AddField(40, 41, fixedNum(dl.get(), 40, 2, 4), 2);
  EXPECT_EQ(dl->GetOrderedFieldIDsList(), (std::list<uint32_t>{40, 41, 40}));
  EXPECT_EQ(dl->GetPrevFieldID(40), 41u);
  EXPECT_EQ(dl->GetFieldLayout(40)->GetLengthInBits(), 4u);
  delete first;  // displaced: the caller's again
}

TEST(DataLayoutFields, OneLayoutUnderTwoIdsIsDeletedOnce) {
  auto dl = makeLayout();
  CKovNumFieldLayout* shared = fixedNum(dl.get(), 40, 0, 8);
  dl->AddField(40, 0, shared, 0);
  dl->AddField(41, 40, shared, 1);
  dl.reset();  // the sanitizer build reports a second delete
}

// Block layout 1 holds list 300 then list 301; entry of 300 holds union 400, whose options hold
// fields 410 and 420.
struct NestedLayouts {
  NestedLayouts() : dl(makeLayout()) {
    auto entry = std::make_unique<CKovDataLayout>(ListEntryLayout, 0, 7, 300, false);
    KovUnionAttribStruct unionAttrib;
    unionAttrib.unionFormat = UnionVarSz;
    unionAttrib.discrIDArr = {1};
    auto unionLayout =
        std::make_unique<CKovUnionFieldLayout>(400, 0, 7, unionAttrib, true, 0, entry.get(), 1);
    for (uint32_t opt : {1u, 2u}) {
      auto optLayout = std::make_unique<CKovDataLayout>(kBlkLevel, 0, 7, 400, false);
      const uint32_t fieldID = 400 + opt * 10;
      optLayout->AddField(fieldID, 0, fixedNum(optLayout.get(), fieldID, 0, 8), 0);
      unionLayout->AddToUnionMap(opt, new CKovUnionLayoutOpt(optLayout.release(), 0, 0, opt, 8, 0));
    }
    entry->AddField(400, 0, unionLayout.release(), 0);
    addList(dl.get(), 300, 0, 0, 0, FixedSzNoLeq, 2, 16, entry.release());
  }
  std::unique_ptr<CKovDataLayout> dl;
};

TEST(DataLayoutLookup, FindsFieldInUnionOptionInsideListEntryUnlessADirectOneHasTheId) {
  NestedLayouts nested;
  const CKovFieldLayout* found = nested.dl->GetFieldLayout(420);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->GetFieldID(), 420u);
  EXPECT_NE(nested.dl->GetFieldLayout(410), nullptr);
  EXPECT_EQ(nested.dl->GetFieldLayout(999), nullptr);
  nested.dl->AddField(420, 300, fixedNum(nested.dl.get(), 420, 9, 3), 1);
  EXPECT_EQ(nested.dl->GetFieldLayout(420)->GetByteOffset(), 9u);
}

TEST(DataLayoutLookup, NestedSearchFollowsMapOrderNotOrderOfAdding) {
  // Lists 17 (bucket 1) and 1 (bucket 0) both hold field 500; list 1 comes first in map order.
  auto dl = makeLayout();
  for (uint32_t listID : {17u, 1u}) {
    addList(dl.get(), listID, 0, 0, 0, FixedSzNoLeq, 1, 8, numbers(listID, {{{500, listID, 8}}}));
  }
  EXPECT_EQ(dl->GetFieldLayout(500)->GetByteOffset(), 1u);
}

TEST(FieldLayoutKinds, EachKindIsItselfAndAFieldLayoutOnly) {
  auto dl = makeLayout();
  auto entry = new CKovDataLayout(ListEntryLayout, 0, 7, 6, false);
  KovListAttribStruct listAttrib;
  KovUnionAttribStruct unionAttrib;
  std::unique_ptr<CKovFieldLayout> layouts[] = {
      std::make_unique<CKovNumFieldLayout>(1, 0, 8, 7, true, 0, dl.get()),
      std::make_unique<CKovCharFieldLayout>(2, 0, 7, CKovCharFieldLayout::Char8Bit, true, 0,
                                            dl.get()),
      std::make_unique<CKovStrFieldLayout>(3, 0, 7, CKovCharFieldLayout::Char8Bit, 2, true, 0,
                                           dl.get()),
      std::make_unique<CKovNameFieldLayout>(4, 0, 32, 7, true, 0, dl.get(), 9),
      std::make_unique<CKovListFieldLayout>(5, 0, 7, listAttrib, true, 0, dl.get(), entry),
      std::make_unique<CKovUnionFieldLayout>(6, 0, 7, unionAttrib, true, 0, dl.get(), 1),
  };
  const KovRuntimeClass* classes[] = {
      KOV_RUNTIME_CLASS(CKovNumFieldLayout),  KOV_RUNTIME_CLASS(CKovCharFieldLayout),
      KOV_RUNTIME_CLASS(CKovStrFieldLayout),  KOV_RUNTIME_CLASS(CKovNameFieldLayout),
      KOV_RUNTIME_CLASS(CKovListFieldLayout), KOV_RUNTIME_CLASS(CKovUnionFieldLayout),
  };
  for (int i = 0; i < 6; ++i) {
    SCOPED_TRACE(classes[i]->m_className);
    EXPECT_TRUE(layouts[i]->IsKindOf(KOV_RUNTIME_CLASS(CKovFieldLayout)));
    for (int j = 0; j < 6; ++j) EXPECT_EQ(layouts[i]->IsKindOf(classes[j]), i == j) << j;
    const bool complex = i >= 4;
    EXPECT_EQ(layouts[i]->IsComplexFieldLayout(), complex);
    EXPECT_EQ(layouts[i]->IsPrimitiveFieldLayout(), !complex);
  }
}

TEST(CharFieldLayout, RefusesOtherCharacterTypes) {
  // The sanitizer build checks that the refused object is freed.
  for (int type : {0, 12}) {
    auto charType = static_cast<CKovCharFieldLayout::CharType>(type);
    EXPECT_KOV_THROW(new CKovCharFieldLayout(77, 0, 7, charType, true, 0, nullptr),
                     "Invalid character type specified for field 77.");
  }
}

TEST(StrFieldLayout, WidthIsCharsTimesCharacterBits) {
  struct Case {
    int type;
    uint32_t chars;
    uint32_t bits;
  } cases[] = {{4, 5, 20}, {8, 5, 40}, {16, 5, 80}, {8, 0, 0}, {5, 5, 1}};  // 5: not a type
  for (const Case& c : cases) {
    SCOPED_TRACE(c.type);
    CKovStrFieldLayout layout(1, 0, 7, static_cast<CKovCharFieldLayout::CharType>(c.type), c.chars,
                              true, 0, nullptr);
    EXPECT_EQ(layout.GetLengthInBits(), c.bits);
    EXPECT_TRUE(layout.IsFixedSz());
  }
}

}  // namespace
