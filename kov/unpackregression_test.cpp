// Unpacks of images that once broke the library: each names what it exercises.
#include <string>
#include <vector>

#include "kov/kovtest.h"
#include "kov/unpack/upstdblk.h"

namespace {

// Block P (1) holds list 10 of one 16-bit entry: number 11 at byte 0, then list 12 at byte 1
// whose LEQ is field 21 of block Q (3), behind P in the image. Block R (2), between them, holds
// list 30 whose LEQ is field 11 of P's list entry. The entry of list 10 must wait for Q.
struct WaitingEntry {
  explicit WaitingEntry(KovCalcUnpackLEQFunc calc = nullptr) {
    CKovBlkLayout* p = b.Block(1, "P", 0x61, 1, 0, 0, 2);
    CKovBlkLayout* r = b.Block(2, "R", 0x62, 1, 0, 0, 4);
    CKovBlkLayout* q = b.Block(3, "Q", 0x63, 1, 0, 0, 1);
    CKovDataLayout* outer = numbers(10, {{{11, 0, 8}}});
    addList(outer, 12, 11, 1, 1, VarSzSplitLeq, 1, 8, numbers(12, {{{13, 0, 8}}}), 21, 3);
    addList(p, 10, 0, 0, 0, calc != nullptr ? VarSzCalcLeq : FixedSzNoLeq, 1, 16, outer, 0, 0,
            calc);
    addList(r, 30, 0, 0, 0, VarSzSplitLeq, 4, 8, numbers(30, {{{31, 0, 8}}}), 11, 1);
    LayoutBuilder::Num(q, 21, 0, 0, 7, 8, 0);
    p->AddFieldToVerificationMap(12, *outer->GetFieldMap().PLookup(12));
    r->AddFieldToVerificationMap(30, r->GetFieldLayout(30));
    image = blockInstance(0x61, 1, {0x01, 0xAA});
    // R would wait for field 11 for ever where the second read of list 10 has no entry.
    Bytes rBlk = calc != nullptr ? Bytes() : blockInstance(0x62, 1, {0x55, 0, 0, 0});
    Bytes qBlk = blockInstance(0x63, 1, {0x01});
    image.insert(image.end(), rBlk.begin(), rBlk.end());
    image.insert(image.end(), qBlk.begin(), qBlk.end());
  }
  LayoutBuilder b;
  Bytes image;
};

uint32_t valueOf(const CKovUpEntry* entry, uint32_t id) {
  const CKovUpField* f = entry != nullptr ? entry->GetUpField(id) : nullptr;
  return f != nullptr && f->GetData()->IsNumber()
             ? static_cast<const CKovNumField*>(f->GetData())->GetValue()
             : 0xDEADu;
}

TEST(UnpackRegression, SplitLeqIntoAnEntryThatWaitsReadsNoFreedField) {
  // The first try of list 10 drops its entry; R's list must not read field 11 of that entry
  // but wait for the sweep that reads it again.
  WaitingEntry w;
  EXPECT_KOV_NO_THROW(w.b.cp->DoPostLayoutVerification());
  std::string path = testing::TempDir() + "kov_waiting_entry.xml";
  CKovUp up(w.b.cp.get(), w.image, path);
  EXPECT_KOV_NO_THROW(up.FullUnpack());
  ExpectFieldsMapsHoldLiveFields(up);
  const CKovUpField* list30 = up.GetUnpackedBlk(2)->GetUpEntry(1)->GetUpField(30);
  ASSERT_NE(list30, nullptr);
  auto* entries = static_cast<const CKovListField*>(list30->GetData())->GetUpEntryList();
  ASSERT_EQ(entries->GetCount(), 1);
  EXPECT_EQ(valueOf(entries->GetAt(0), 31), 0x55u);
  const CKovUpField* list10 = up.GetUnpackedBlk(1)->GetUpEntry(1)->GetUpField(10);
  ASSERT_NE(list10, nullptr);
  auto* outer = static_cast<const CKovListField*>(list10->GetData())->GetUpEntryList();
  ASSERT_EQ(outer->GetCount(), 1);
  EXPECT_EQ(valueOf(outer->GetAt(0), 11), 1u);
  // R is read in the walk, in sweep 1 (before P, as block 2 waits since later) and in sweep 2.
  EXPECT_EQ(kovTestCount(kovTestReadXmlReport(path), "<BlockName> R_1 </BlockName>"), 3u);
}

uint32_t oneThenNone(const CKovUp*, const CKovBlkLayout*, uint32_t, uint16_t) {
  static int calls = 0;
  return calls++ == 0 ? 1 : 0;
}

TEST(UnpackRegression, ListThatWaitsAndRereadsEmptyLeavesNoFreedField) {
  // The calculated quantity is 1 in the walk and 0 in the sweep: the entry of the walk, dropped
  // while it waited, must not stay in P's fields map.
  WaitingEntry w(oneThenNone);
  CKovUp up(w.b.cp.get(), w.image, "");
  EXPECT_KOV_NO_THROW(up.FullUnpack());
  ExpectFieldsMapsHoldLiveFields(up);
}

// A generated layout (kov/kovgen.h) whose list entry waits for a same-block LEQ behind it: the
// first found by the layout fuzz target with the fields map fix taken out (39 s).
const uint8_t kWaitingEntryLayout[] = {0x1c, 0xff, 0x98, 0x00, 0xec, 0xdb, 0xa3, 0xff, 0x04,
                                       0x14, 0x98, 0xf0, 0x2a, 0x00, 0x14, 0x24, 0x5d, 0xff,
                                       0x04, 0x04, 0x50, 0x50, 0x50, 0x10, 0x98, 0x1e, 0x04};

TEST(UnpackRegression, GeneratedLayoutWhoseEntryWaitsLeavesNoFreedField) {
  KovGenBytes source(kWaitingEntryLayout, sizeof kWaitingEntryLayout);
  KovGenCase c(source);
  Bytes image = packImage(c.b.cp.get(), c.data, 0, 8192);
  {
    CKovUp up(c.b.cp.get(), image, "");
    EXPECT_KOV_NO_THROW(up.FullUnpack());
    EXPECT_EQ(kovGenUnpackDiff(up, c.data), "");
    ExpectFieldsMapsHoldLiveFields(up);
  }
  kovGenDamage(image, kWaitingEntryLayout, source.Used(), sizeof kWaitingEntryLayout);
  kovGenRecomputeChecksums(image);
  CKovUp damaged(c.b.cp.get(), image, "");
  try {
    damaged.FullUnpack();
    ExpectFieldsMapsHoldLiveFields(damaged);
  } catch (CMevGenException* e) {
    delete e;
  }
}

}  // namespace
