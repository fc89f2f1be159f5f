#include "kov/layout/cplayout.h"

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "kov/kovtest.h"
#include "kov/layout/charfieldlayout.h"
#include "kov/layout/datalayout.h"
#include "kov/layout/klsblklayout.h"
#include "kov/layout/listfieldlayout.h"
#include "kov/layout/numfieldlayout.h"
#include "kov/layout/partitionlayout.h"

namespace {

constexpr LayoutType kBlkLevel = static_cast<LayoutType>(0);

// Opens the protected look-ups that serve the verification of lists.
class TestCpLayout : public CKovCpLayout {
 public:
  TestCpLayout() : CKovCpLayout(1, 2, 4096, 0) {}
  using CKovCpLayout::GetLeqBlkLayout;
  using CKovCpLayout::GetLeqFieldLayout;
};

CKovDataLayout* blkDataLayout() { return new CKovDataLayout(kBlkLevel, 0, 7, 0, true); }

std::unique_ptr<CKovBlkLayout> makeBlk(uint16_t blkID, uint16_t kovType, uint16_t kovID, int multi,
                                       uint16_t partitionNum, const std::string& name = "blk") {
  auto blk = std::make_unique<CKovBlkLayout>(blkID, KovBlkLayoutAttrib(kovType, kovID, multi, 1),
                                             name, 0, blkDataLayout(), 16, 0);
  blk->SetPartitionNum(partitionNum);
  return blk;
}

// Names the block and files it; the layout owns it afterwards.
CKovBlkLayout* registerBlk(CKovCpLayout& cp, std::unique_ptr<CKovBlkLayout> blk) {
  EXPECT_EQ(cp.HasUniqueKovName(blk.get()), 1);
  cp.AddBlkLayout(blk.get());
  return blk.release();
}

TEST(CpLayoutPartitions, OrderOfAddingIsImageOrderAndASecondAddIsRefused) {
  MessageBoxRecorder boxes;
  CKovCpLayout cp(1, 2, 4096, 0);
  // 0x110 lands in bucket 0 and so iterates before 16: the list keeps the order of adding.
  EXPECT_EQ(cp.AddPartition(16, ReadOnly), 1);
  EXPECT_EQ(cp.AddPartition(0x110, ReadWriteLocked), 1);
  EXPECT_EQ(cp.AddPartition(2, ReadWrite), 1);
  EXPECT_EQ(cp.AddPartition(16, ReadWrite), 0);
  EXPECT_EQ(boxes.Texts(), std::vector<std::string>{"Partition 16 already registered."});
  EXPECT_EQ(cp.GetPartitionNumList(), (std::list<uint16_t>{16, 0x110, 2}));
  EXPECT_EQ(cp.GetAccessRights(16), ReadOnly);
  struct Row {
    uint16_t num;
    int ro, rw, locked;
  } rows[] = {{16, 1, 0, 0}, {0x110, 0, 0, 1}, {2, 0, 1, 0}};
  for (const Row& r : rows) {
    SCOPED_TRACE(r.num);
    EXPECT_EQ(cp.IsROPartition(r.num), r.ro);
    EXPECT_EQ(cp.IsRWPartition(r.num), r.rw);
    EXPECT_EQ(cp.IsRWLockedPartition(r.num), r.locked);
  }
}

TEST(CpLayoutPartitions, UnknownPartitionThrowsFromEveryQuery) {
  CKovCpLayout cp(1, 2, 4096, 0);
  cp.AddPartition(1, ReadWrite);
  EXPECT_EQ(cp.GetPartitionLayout(9), nullptr);
  EXPECT_KOV_THROW(cp.GetAccessRights(9), "Partition #9 not found.");
  EXPECT_KOV_THROW(cp.IsRWPartition(9), "Partition #9 not found.");
  EXPECT_KOV_THROW(cp.IsRWLockedPartition(9), "Partition #9 not found.");
  EXPECT_KOV_THROW(cp.IsROPartition(9), "Partition #9 not found.");
  EXPECT_KOV_THROW(cp.GetNumberOfBlks(uint16_t{9}),
                   "Error getting block count in partition 9.\nNo such partition exists.");
  EXPECT_KOV_THROW(cp.GetBlkLayoutList(9),
                   "Error getting block layout list for partition 9.\nNo such partition exists.");
}

TEST(CpLayoutBlocks, BlocksAreFiledUnderTheirPartitionInOrderOfAdding) {
  CKovCpLayout cp(1, 2, 4096, 0);
  cp.AddPartition(1, ReadOnly);
  cp.AddPartition(2, ReadWrite);
  CKovBlkLayout* b30 = registerBlk(cp, makeBlk(30, 0x30, 0, 0, 2));
  CKovBlkLayout* b10 = registerBlk(cp, makeBlk(10, 0x10, 0, 0, 1, "Channels"));
  b10->AddField(5, 0, new CKovNumFieldLayout(5, 0, 8, 7, true, 0, b10->GetDataLayout()), 0);
  CKovBlkLayout* b20 = registerBlk(cp, makeBlk(20, 0x20, 0, 0, 2));
  EXPECT_EQ(cp.GetBlkLayoutList(2), (std::list<CKovBlkLayout*>{b30, b20}));
  EXPECT_EQ(cp.GetBlkLayoutList(1), std::list<CKovBlkLayout*>{b10});
  EXPECT_EQ(cp.GetNumberOfBlks(uint16_t{2}), 2);
  EXPECT_EQ(cp.GetNumberOfBlks(), 3);
  EXPECT_EQ(cp.GetBlkLayout(20), b20);
  EXPECT_EQ(cp.DoesBlkExist(10), 1);
  EXPECT_EQ(cp.GetBlkName(10), "Channels");
  EXPECT_NE(cp.GetFieldLayout(10, 5), nullptr);
  // Unknown blocks and fields answer empty.
  EXPECT_EQ(cp.DoesBlkExist(11), 0);
  EXPECT_EQ(cp.GetBlkName(11), "");
  EXPECT_EQ(cp.GetBlkLayout(11), nullptr);
  EXPECT_EQ(cp.GetFieldLayout(10, 6), nullptr);
  EXPECT_EQ(cp.GetFieldLayout(11, 5), nullptr);
  // A block keeps its own rights in a read-only partition.
  EXPECT_EQ(b10->GetAccessRights(), ReadWrite);
}

TEST(CpLayoutBlocks, BlockOfUnknownPartitionOrTakenIdIsRefusedAndStaysTheCallers) {
  CKovCpLayout cp(1, 2, 4096, 0);
  cp.AddPartition(1, ReadWrite);
  CKovBlkLayout* first = registerBlk(cp, makeBlk(10, 0x10, 0, 0, 1, "Channels"));
  auto unknownPartition = makeBlk(11, 0x11, 0, 0, 4, "Limits");
  EXPECT_KOV_THROW(cp.AddBlkLayout(unknownPartition.get()),
                   "Error adding block Limits to partition 4.\nNo such partition exists.");
  auto takenID = makeBlk(10, 0x12, 0, 0, 1, "Zones");
  EXPECT_KOV_THROW(cp.AddBlkLayout(takenID.get()), "Block Zones already defined in image.");
  EXPECT_EQ(cp.GetBlkLayout(10), first);
  EXPECT_EQ(cp.DoesBlkExist(11), 0);
  EXPECT_EQ(cp.GetNumberOfBlks(), 1);
  EXPECT_EQ(cp.GetNumberOfBlks(uint16_t{1}), 1);
}  // the refused blocks are deleted here: the layout did not take them

TEST(KovNames, ValidityByTypeAndIdRanges) {
  struct Row {
    uint16_t type, id;
    int valid;
  } rows[] = {{0, 5, 0}, {0xFFFE, 5, 0},      {0xFFFF, 5, 0}, {5, 0xFFFF, 0},
              {1, 0, 1}, {0xFFFD, 0xFFFE, 1}, {7, 12, 1}};
  for (const Row& r : rows) {
    SCOPED_TRACE(testing::Message() << r.type << "/" << r.id);
    EXPECT_EQ(CKovCpLayout::ValidKovName(r.type, r.id), r.valid);
    EXPECT_EQ(CKovCpLayout::ValidKovName((uint32_t{r.type} << 16) | r.id), r.valid);
  }
}

TEST(KovNames, SecondBlockOfOneTypeIsRefusedWhateverItsId) {
  MessageBoxRecorder boxes;
  CKovCpLayout cp(1, 2, 4096, 0);
  auto a = makeBlk(10, 7, 1, 0, 1);
  auto b = makeBlk(11, 7, 2, 0, 1);
  EXPECT_EQ(cp.HasUniqueKovName(a.get()), 1);
  EXPECT_EQ(cp.HasUniqueKovName(b.get()), 0);
  EXPECT_EQ(boxes.Texts(),
            std::vector<std::string>{"KOV Type of 7 specified for block with ID 11 but\nthat type "
                                     "value is already in use by another block."});
  // Nothing of the refused block was registered.
  EXPECT_EQ(cp.GetBlkIDFromKovName(7, 1), 10);
  EXPECT_KOV_THROW(cp.GetBlkIDFromKovName(7, 2),
                   "Unable to find blkID for item with KOV Name = 0x70000.");
}

TEST(KovNames, BlockIdByInstanceKindInBothForms) {
  CKovCpLayout cp(1, 2, 4096, 0);
  cp.AddPartition(1, ReadWrite);
  registerBlk(cp, makeBlk(40, 7, 9, 1, 1));
  registerBlk(cp, makeBlk(41, 0xB, 3, 0, 1));
  registerBlk(cp, makeBlk(42, 9, 0, 0, 1));  // single instance registered under id 0
  auto kls = std::make_unique<CKovKLSBlkLayout>(50, KovBlkLayoutAttrib(0x21, 4, 0, 0), "Zones",
                                                blkDataLayout(), 64, 1, 8, 51, nullptr);
  kls->SetPartitionNum(1);
  registerBlk(cp, std::move(kls));
  registerBlk(cp, makeBlk(60, 0xFFFE, 0, 1, 1));  // 0xFFFE is no valid type
  auto unfiled = makeBlk(61, 0x44, 0, 1, 1);      // named but never filed: no instance kind
  EXPECT_EQ(cp.HasUniqueKovName(unfiled.get()), 1);
  // A multi-instance or distributed block answers for every id of its type, a single-instance
  // block for its own id only; the fallback to id 0 needs a valid type and a filed block.
  const struct {
    uint16_t type, id, blkID;
    const char* error;
  } cases[] = {
      {7, 0, 40, nullptr},      {7, 12, 40, nullptr},         {8, 12, 0, "0x80000"},
      {0xB, 3, 41, nullptr},    {0xB, 4, 0, "0xb0000"},       {9, 0, 42, nullptr},
      {9, 1, 0, "0x90000"},     {0x21, 0, 50, nullptr},       {0x21, 5, 50, nullptr},
      {0xFFFE, 0, 60, nullptr}, {0xFFFE, 3, 0, "0xfffe0000"}, {0x44, 3, 0, "0x440000"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << c.type << "/" << c.id);
    const uint32_t name = (uint32_t{c.type} << 16) | c.id;
    if (c.error == nullptr) {
      EXPECT_EQ(cp.GetBlkIDFromKovName(c.type, c.id), c.blkID);
      EXPECT_EQ(cp.GetBlkIDFromKovName(name), c.blkID);
    } else {
      const std::string text =
          std::string("Unable to find blkID for item with KOV Name = ") + c.error + ".";
      EXPECT_KOV_THROW(cp.GetBlkIDFromKovName(c.type, c.id), text);
      EXPECT_KOV_THROW(cp.GetBlkIDFromKovName(name), text);
    }
  }
}

// One layout with an ordinary block 1, a distributed KLS block 2 and a list owned by the test.
struct LeqFixture {
  LeqFixture() {
    cp.AddPartition(1, ReadWrite);
    own = registerBlk(cp, makeBlk(1, 0x10, 0, 0, 1, "Channels"));
    other = registerBlk(cp, makeBlk(3, 0x30, 0, 0, 1, "Limits"));
    auto kls = std::make_unique<CKovKLSBlkLayout>(2, KovBlkLayoutAttrib(0x20, 0, 0, 0), "Zones",
                                                  blkDataLayout(), 64, 1, 8, 5, nullptr);
    kls->SetPartitionNum(1);
    registerBlk(cp, std::move(kls));
  }
  std::unique_ptr<CKovListFieldLayout> list(ListFormat format, uint16_t leqBlkID,
                                            uint32_t maxEntryQty = 10) {
    KovListAttribStruct attrib(77, format, maxEntryQty, 0, 8, leqBlkID, nullptr);
    return std::make_unique<CKovListFieldLayout>(
        700, 1, 7, attrib, true, 0, own->GetDataLayout(),
        new CKovDataLayout(ListEntryLayout, 0, 7, 700, false));
  }
  TestCpLayout cp;
  CKovBlkLayout* own = nullptr;
  CKovBlkLayout* other = nullptr;
};

TEST(LeqBlkLayout, FollowsTheFormatOfTheList) {
  LeqFixture f;
  EXPECT_EQ(f.cp.GetLeqBlkLayout(f.list(VarSzCalcLeq, 0).get(), f.own), nullptr);
  EXPECT_EQ(f.cp.GetLeqBlkLayout(f.list(VarSzContigLeq, 3).get(), f.own), f.own);
  EXPECT_EQ(f.cp.GetLeqBlkLayout(f.list(VarSzSameBlkLeq, 3).get(), f.own), f.own);
  EXPECT_EQ(f.cp.GetLeqBlkLayout(f.list(VarSzSplitLeq, 3).get(), f.own), f.other);
}

TEST(LeqBlkLayout, SplitLeqMustLieInAnExistingUndistributedBlock) {
  LeqFixture f;
  EXPECT_KOV_THROW(f.cp.GetLeqBlkLayout(f.list(VarSzSplitLeq, 9).get(), f.own),
                   "List 700 references LEQ in block 9 but block does not exist.");
  EXPECT_KOV_THROW(f.cp.GetLeqBlkLayout(f.list(VarSzSplitLeq, 2).get(), f.own),
                   "List field 700 in block 1 references an LEQ field in\ndistributed block 2. "
                   "'Split-across' LEQ fields may\nnot live in distributed blocks.");
}

TEST(LeqFieldLayout, RefusesMissingWrongKindOrForeignLeqField) {
  LeqFixture f;
  auto list = f.list(VarSzContigLeq, 0);
  const CKovDataLayout* parent = f.own->GetDataLayout();
  KovListAttribStruct attrib(77, VarSzContigLeq, 10, 0, 8, 0, nullptr);
  CKovNumFieldLayout leq(77, 0, 8, 7, true, 0, parent);

  KovListAttribStruct noLeqID = attrib;
  noLeqID.leqID = 0;
  EXPECT_KOV_THROW(f.cp.GetLeqFieldLayout(list.get(), parent, &leq, f.own, noLeqID, true),
                   "LEQ field ID not specified for List field 700 in block Channels");
  EXPECT_KOV_THROW(f.cp.GetLeqFieldLayout(list.get(), parent, nullptr, f.own, attrib, true),
                   "LEQ field referenced by List field 700 not found in block Channels)");
  CKovCharFieldLayout charLeq(77, 0, 7, CKovCharFieldLayout::Char8Bit, true, 0, parent);
  EXPECT_KOV_THROW(f.cp.GetLeqFieldLayout(list.get(), parent, &charLeq, f.own, attrib, true),
                   "LEQ field for List field 700 must be numeric (see block Channels)");

  CKovNumFieldLayout foreignLeq(77, 0, 8, 7, true, 0, f.other->GetDataLayout());
  EXPECT_KOV_THROW(f.cp.GetLeqFieldLayout(list.get(), parent, &foreignLeq, f.own, attrib, true),
                   "LEQ field must live in same entry layout as List field 700 in block Channels");
  EXPECT_TRUE(f.cp.GetLeqFieldLayout(list.get(), parent, &foreignLeq, f.own, attrib, false));
  EXPECT_TRUE(f.cp.GetLeqFieldLayout(list.get(), parent, &leq, f.own, attrib, true));
}

TEST(LeqFieldLayout, LeqFieldMustHoldTheMaximumQuantity) {
  LeqFixture f;
  auto list = f.list(VarSzSameBlkLeq, 0);
  const CKovDataLayout* parent = f.own->GetDataLayout();
  const std::string tooNarrow =
      "LEQ field not large enough to hold max quantity specified for List field 700 (see block "
      "Channels)";
  struct Row {
    uint32_t maxEntryQty, leastBits;
  } rows[] = {{256, 9}, {255, 8}, {0, 1}, {1, 1}, {0xFFFFFFFF, 32}};
  for (const Row& r : rows) {
    SCOPED_TRACE(r.maxEntryQty);
    KovListAttribStruct attrib(77, VarSzSameBlkLeq, r.maxEntryQty, 0, 8, 0, nullptr);
    CKovNumFieldLayout wide(77, 0, r.leastBits, 7, true, 0, parent);
    CKovNumFieldLayout narrow(77, 0, r.leastBits - 1, 7, true, 0, parent);
    EXPECT_TRUE(f.cp.GetLeqFieldLayout(list.get(), parent, &wide, f.own, attrib, false));
    EXPECT_KOV_THROW(f.cp.GetLeqFieldLayout(list.get(), parent, &narrow, f.own, attrib, false),
                     tooNarrow);
  }
}

}  // namespace
