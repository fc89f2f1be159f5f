#include "kov/layout/blklayout.h"

#include <list>
#include <memory>

#include "kov/kovtest.h"
#include "kov/layout/datalayout.h"
#include "kov/layout/namefieldlayout.h"
#include "kov/layout/numfieldlayout.h"

namespace {

constexpr LayoutType kBlkLevel = static_cast<LayoutType>(0);

CKovDataLayout* blkDataLayout() { return new CKovDataLayout(kBlkLevel, 0, 7, 0, true); }

TEST(BlkLayout, AttributesGiveKovIdPaddingAndInstanceKind) {
  KovBlkLayoutAttrib unnamed;  // unnamed, padded, single instance
  EXPECT_EQ(unnamed.kovType, 0xFFFF);
  EXPECT_EQ(unnamed.kovID, 0xFFFF);
  EXPECT_EQ(unnamed.padBlk, 1);
  EXPECT_EQ(unnamed.multiInstanceBlk, 0);
  // The attribute takes the instance kind before the padding; a multi-instance block has KOV id
  // 0 and a KLS block is never padded.
  const struct {
    int multi, pad, kls;
    uint16_t kovID;
    bool padded;
  } cases[] = {{1, 1, 0, 0, true}, {1, 0, 0, 0, false}, {0, 0, 0, 9, false}, {0, 1, 1, 9, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.multi << c.pad << c.kls);
    CKovBlkLayout blk(3, KovBlkLayoutAttrib(7, 9, c.multi, c.pad), "blk", c.kls, blkDataLayout(),
                      50, 0);
    EXPECT_EQ(blk.GetKovType(), 7);
    EXPECT_EQ(blk.GetKovID(), c.kovID);
    EXPECT_EQ(blk.IsMultiInstanceBlk() != 0, c.multi != 0);
    EXPECT_EQ(blk.IsSglInstanceBlk() != 0, c.multi == 0);
    EXPECT_EQ(blk.PadBlk() != 0, c.padded);
    EXPECT_EQ(blk.GetMaxDataSzInBytes(), 50);
    EXPECT_EQ(blk.GetNumCfgBytes(), 0);
    EXPECT_TRUE(blk.GetDataLayout()->GetOrderedFieldIDsList().empty());
  }
}

TEST(HdrBlkLayout, ConfigurationAreaLeadsTheApplicationFields) {
  CKovBlkLayout blk(4, KovBlkLayoutAttrib(8, 0, 0, 1), "header", 0, blkDataLayout(), 100, 1);
  EXPECT_EQ(blk.GetMaxDataSzInBytes(), 112);
  EXPECT_EQ(blk.GetNumCfgBytes(), 12);
  EXPECT_EQ(blk.GetNumCfgFields(), 5);

  struct Row {
    uint32_t id, byteOffset, bits, prev;
  } rows[] = {{28521, 0, 16, 28521},
              {28524, 2, 16, 28521},
              {28523, 4, 16, 28524},
              {28526, 6, 16, 28523},
              {28525, 8, 32, 28526}};
  const CKovDataLayout* dl = blk.GetDataLayout();
  EXPECT_EQ(dl->GetOrderedFieldIDsList(), (std::list<uint32_t>{28521, 28524, 28523, 28526, 28525}));
  int32_t expectedPosition = 0;
  for (const Row& r : rows) {
    SCOPED_TRACE(r.id);
    const CKovFieldLayout* f = blk.GetFieldLayout(r.id);
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->IsKindOf(KOV_RUNTIME_CLASS(CKovNumFieldLayout)), r.id != 28525);
    EXPECT_EQ(f->GetByteOffset(), r.byteOffset);
    EXPECT_EQ(f->GetLengthInBits(), r.bits);
    EXPECT_EQ(f->GetMsbStart(), 7);
    EXPECT_TRUE(f->HasFixedAddr());
    EXPECT_EQ(f->GetNumBitsOffsetFromPrevFieldEnd(), 0u);
    EXPECT_EQ(f->GetParentDataLayout(), dl);
    EXPECT_EQ(dl->GetPrevFieldID(r.id), r.prev);
    int32_t position = -1;
    EXPECT_EQ(dl->GetFieldPositionInLayout(r.id, position), 1);
    EXPECT_EQ(position, expectedPosition++);
  }
  const CKovFieldLayout* link = blk.GetFieldLayout(28525);
  ASSERT_TRUE(link->IsKindOf(KOV_RUNTIME_CLASS(CKovNameFieldLayout)));
  EXPECT_EQ(static_cast<const CKovNameFieldLayout*>(link)->GetReferencedBlkID(), 0);
  // A header block has no LEQ field of its own.
  EXPECT_EQ(blk.GetFieldLayout(28522), nullptr);
  EXPECT_EQ(kovCalculateDataLayoutSzInBits(dl, nullptr, 1), 96u);
  // Application fields follow the configuration area.
  blk.AddField(900, 28525, new CKovNumFieldLayout(900, 12, 8, 7, true, 0, blk.GetDataLayout()), 5);
  EXPECT_EQ(dl->GetIDOfLastFieldInLayout(), 900u);
  EXPECT_EQ(kovCalculateDataLayoutSzInBits(dl, nullptr, 1), 104u);
}

TEST(HdrBlkLayout, DistributedBlockIdSticksOnlyToHeaderBlocks) {
  CKovBlkLayout hdr(4, KovBlkLayoutAttrib(8, 0, 0, 1), "header", 0, blkDataLayout(), 10, 1);
  CKovBlkLayout plain(5, KovBlkLayoutAttrib(9, 0, 0, 1), "plain", 0, blkDataLayout(), 10, 0);
  EXPECT_EQ(hdr.GetDistKLSBlkID(), 0);
  hdr.SetDistKLSBlkID(6);
  plain.SetDistKLSBlkID(6);
  EXPECT_EQ(hdr.GetDistKLSBlkID(), 6);
  EXPECT_EQ(plain.GetDistKLSBlkID(), 0);
}

TEST(BlkLayout, VerificationMapKeepsOneEntryPerId) {
  CKovDataLayout* dl = blkDataLayout();
  CKovBlkLayout blk(3, KovBlkLayoutAttrib(7, 9, 0, 1), "blk", 0, dl, 10, 0);
  auto* a = new CKovNumFieldLayout(1, 0, 8, 7, true, 0, dl);
  auto* b = new CKovNumFieldLayout(2, 1, 8, 7, true, 0, dl);
  blk.AddField(1, 0, a, 0);
  blk.AddField(2, 1, b, 1);
  blk.AddFieldToVerificationMap(1, a);
  blk.AddFieldToVerificationMap(1, b);
  ASSERT_EQ(blk.GetFieldVerificationMap().GetCount(), 1);
  EXPECT_EQ(blk.GetFieldVerificationMap().begin()->second, b);
}

}  // namespace
