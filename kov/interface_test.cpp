// The interface as code written from the design uses it: maps by derivation, deep copies of the
// owning values, the virtual and const operations, the counts after an unpack.
#include <list>
#include <string>
#include <type_traits>

#include "kov/fields/discrinfo.h"
#include "kov/kovtest.h"
#include "kov/layout/listfieldlayout.h"
#include "kov/pack/pkpatchmap.h"
#include "kov/pack/pkstdblk.h"
#include "kov/unpack/upblkinstance.h"
#include "kov/unpack/updistklsblkinst.h"
#include "kov/unpack/uppatchmap.h"
#include "kov/unpack/upstdblk.h"

namespace {

static_assert(std::is_base_of_v<CKovMap<uint32_t, CKovFieldLayout*>, CKovDataLayout>);
static_assert(std::is_base_of_v<KovPkFieldMap, CKovPkEntry>);
static_assert(std::is_base_of_v<KovUpFieldMap, CKovUpEntry>);
static_assert(std::is_base_of_v<CKovMap<uint32_t, CKovPkPatchMap::RecordList>, CKovPkPatchMap>);
static_assert(std::is_base_of_v<CKovMap<uint16_t, CKovUpPatchMap::PendingList>, CKovUpPatchMap>);
static_assert(std::is_copy_constructible_v<CKovListField> && std::is_copy_assignable_v<CKovListField>);
static_assert(std::is_copy_constructible_v<CKovUnionField> &&
              std::is_copy_assignable_v<CKovUnionField>);
static_assert(std::is_copy_assignable_v<KovDiscrInfo>);
// The signatures the design gives (the pack block's is protected).
struct PkStdBlkProbe : CKovPkStdBlk {
  using CKovPkStdBlk::GetKLSListField;
};
[[maybe_unused]] const CKovField* (CKovPkStdBlk::*kPkKlsList)(const CKovPkEntry*) const =
    &PkStdBlkProbe::GetKLSListField;
[[maybe_unused]] const CKovField* (CKovUpDistKLSBlkInst::*kUpKlsList)(const CKovUpEntry*) const =
    &CKovUpDistKLSBlkInst::GetKLSListField;
[[maybe_unused]] void (CKovUpDistKLSBlkInst::*kDeleteListlets)(std::list<CKovUpBlkInstance*>&)
    const = &CKovUpDistKLSBlkInst::DeleteListletBlkInstances;

// Overrides compile only where the base operation is virtual.
class CheckingInstance : public CKovUpNonDistBlkInst {
 protected:
  int ValidateBlockCheckSum(const CKovImage*, uint32_t, uint32_t) const override { return 1; }
  void Cleanup() override { CKovUpBlkInstance::Cleanup(); }
};

TEST(Interface, LayoutsAndEntriesAreTheirMaps) {
  CKovDataLayout dl(static_cast<LayoutType>(1), 0, 7, 0, true);
  dl.AddField(5, 0, new CKovNumFieldLayout(5, 0, 8, 7, true, 0, &dl), 0);
  CKovFieldLayout* found = nullptr;
  EXPECT_TRUE(dl.Lookup(5, found));
  EXPECT_EQ(found, dl.GetFieldLayout(5));
  EXPECT_EQ(dl.GetCount(), 1);

  CKovPkEntry pk(1);
  pk.AddPkField(5, new CKovPkField(new CKovNumField(7, 5, 8)), 0);
  CKovPkField* pkField = nullptr;
  EXPECT_TRUE(pk.Lookup(5, pkField));
  EXPECT_EQ(pkField->GetFieldID(), 5u);

  CKovUpEntry up(&dl);
  up.AddUpField(5, new CKovUpField(new CKovNumField(7, 5, 8), found));
  EXPECT_EQ(up.GetCount(), 1);
  EXPECT_EQ(up[5], up.GetUpField(5));

  CKovUpPatchMap waiting;
  waiting.AddField(nullptr, 6, 7, 5, found, 3, 1);
  EXPECT_EQ(waiting.GetCount(), 1);
  EXPECT_TRUE(waiting.Contains(3));
}

uint32_t numberIn(const CKovPkEntry* entry, uint32_t id) {
  CKovPkField* f = nullptr;
  return entry->Lookup(id, f) ? static_cast<const CKovNumField*>(f->GetData())->GetValue() : 0;
}

TEST(Interface, ListUnionAndDiscriminantCopiesOwnWhatTheyHold) {
  // Each copy must hold objects of its own: the sanitizer build reports a second delete.
  CKovListField list(61, 2, 4, nullptr);
  list.AddEntryToList(entryOf({new CKovNumField(0xA1, 62, 8)}));
  list.AddEntryToList(entryOf({new CKovNumField(0xA2, 62, 8)}));
  list.SetImageSize(16);
  auto copy = std::make_unique<CKovListField>(list);
  ASSERT_EQ(copy->GetPkEntryList()->GetCount(), 2);
  EXPECT_NE(copy->GetPkEntryList()->GetAt(1), list.GetPkEntryList()->GetAt(1));
  EXPECT_EQ(numberIn(copy->GetPkEntryList()->GetAt(1), 62), 0xA2u);
  EXPECT_EQ(copy->GetMaxLeq(), 4);
  EXPECT_EQ(copy->GetImageSize(), 16u);
  CKovListField assigned(1, 0, 0, nullptr);
  assigned = *copy;
  copy.reset();
  EXPECT_EQ(numberIn(assigned.GetPkEntryList()->GetAt(0), 62), 0xA1u);
  EXPECT_EQ(assigned.GetFieldID(), 61u);

  CKovDataLayout option(static_cast<LayoutType>(3), 0, 7, 70, false);
  auto* upEntry = new CKovUpEntry(&option);
  upEntry->AddUpField(71, new CKovUpField(new CKovStrField("Hi", 71, 16), nullptr));
  CKovUnionField u(70, 2, upEntry);
  auto uCopy = std::make_unique<CKovUnionField>(u);
  CKovUnionField uAssigned(1, 1, static_cast<CKovPkEntry*>(nullptr));
  uAssigned = *uCopy;
  uCopy.reset();
  ASSERT_NE(uAssigned.GetUpEntry(), nullptr);
  EXPECT_NE(uAssigned.GetUpEntry(), u.GetUpEntry());
  EXPECT_EQ(kovGenValueText(uAssigned.GetUpEntry()->GetUpField(71)->GetData()), "string \"Hi\"");
  EXPECT_EQ(uAssigned.GetLayoutID(), 2u);

  KovDiscrInfo owned(new CKovNumField(3, 80, 8), nullptr, true);
  KovDiscrInfo borrowed(upEntry->GetUpField(71)->GetData(), nullptr, false);
  borrowed = owned;
  EXPECT_NE(borrowed.discrField, owned.discrField);
  EXPECT_TRUE(borrowed.ownsField);
  EXPECT_EQ(kovGenValueText(borrowed.discrField), "number 0x3");
}

TEST(Interface, TotalNumberOfFieldsOutlivesTheHandOverOfTheEntry) {
  BlocksAB ab;
  CKovUp up(ab.b.cp.get(), packImage(ab.b.cp.get(), ab.data), "");
  ASSERT_EQ(up.FullUnpack(), 1);
  auto* a = static_cast<const CKovUpNonDistBlkInst*>((*up.GetUpBlksList().PLookup(1))->at(1));
  EXPECT_EQ(a->GetUpEntry(), nullptr);
  EXPECT_EQ(a->GetTotNumFields(), 3u);
}

// A data layout's second AddField of an id: the pack and the unpack both take the layout the map
// holds last (the first lies outside the block's data, where a read ends the entry), and the
// unpacked entry holds the id once.
TEST(Interface, IdAddedTwiceIsReadWithItsLastLayoutIntoOneKey) {
  LayoutBuilder b;
  CKovBlkLayout* a = b.Block(1, "A", 0x0011, 0x0002, 0, 0, 4);
  CKovDataLayout* dl = a->GetDataLayout();
  std::unique_ptr<CKovNumFieldLayout> displaced(new CKovNumFieldLayout(10, 5, 12, 7, true, 0, dl));
  dl->AddField(10, 0, displaced.get(), 0);
  LayoutBuilder::Num(a, 11, 10, 1, 3, 3, 1);
  dl->AddField(10, 11, new CKovNumFieldLayout(10, 2, 8, 7, true, 0, dl), 2);
  ASSERT_FALSE(dl->HasUniqueFieldIDs());
  PackData data;
  data.Add(a, {entryOf({new CKovNumField(0xAB, 10, 8), new CKovNumField(5, 11, 3)})}, {3});
  Bytes image = packImage(b.cp.get(), data);
  ExpectUnpacksToPackedValues(b.cp.get(), data, image);
  CKovUp up(b.cp.get(), image, "");
  ASSERT_EQ(up.FullUnpack(), 1);
  const CKovUpEntry* entry = up.GetUnpackedBlk(1)->GetUpEntry(1);
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->GetCount(), 2);
  EXPECT_EQ(kovGenValueText(entry->GetUpField(10)->GetData()), "number 0xab");
}

}  // namespace
