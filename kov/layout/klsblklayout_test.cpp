#include "kov/layout/klsblklayout.h"

#include <list>
#include <memory>
#include <string>

#include "kov/kovtest.h"
#include "kov/layout/datalayout.h"
#include "kov/layout/namefieldlayout.h"
#include "kov/platform/mevgenexception.h"

namespace {

constexpr LayoutType kBlkLevel = static_cast<LayoutType>(0);

CKovDataLayout* blkDataLayout() { return new CKovDataLayout(kBlkLevel, 0, 7, 0, true); }

std::unique_ptr<CKovKLSBlkLayout> makeKls(int dist, uint16_t maxLLEQ, KovCalcMaxLEQFunc func) {
  return std::make_unique<CKovKLSBlkLayout>(21, KovBlkLayoutAttrib(0x30, 5, 0, 1), "Zones",
                                            blkDataLayout(), 100, dist, maxLLEQ, 22, func);
}

// What the last call of a callback was given.
struct Call {
  int count = 0;
  uint32_t listID = 0;
  const CKovBlkLayout* blk = nullptr;
  uint16_t instance = 0;
  int wantMaxLLEQ = -1;
};
Call lastCall;
CMevGenException* thrownByCallback = nullptr;

uint16_t recordingMaxLeq(uint32_t listID, const CKovBlkLayout* blk, uint16_t instance,
                         int wantMaxLLEQ) {
  lastCall.count++;
  lastCall.listID = listID;
  lastCall.blk = blk;
  lastCall.instance = instance;
  lastCall.wantMaxLLEQ = wantMaxLLEQ;
  return 37;
}

uint16_t throwsWithoutText(uint32_t, const CKovBlkLayout*, uint16_t, int) {
  thrownByCallback = new CMevGenException("", 0);
  throw thrownByCallback;
}

uint16_t throwsWithText(uint32_t, const CKovBlkLayout*, uint16_t, int) {
  thrownByCallback = new CMevGenException("quota table missing", 0);
  throw thrownByCallback;
}

struct CfgRow {
  uint32_t id, byteOffset, bits, prev;
};

void expectCfgFields(const CKovKLSBlkLayout& kls, const CfgRow* rows, int n) {
  std::list<uint32_t> ids;
  for (int i = 0; i < n; ++i) {
    const CfgRow& r = rows[i];
    SCOPED_TRACE(r.id);
    ids.push_back(r.id);
    const CKovFieldLayout* f = kls.GetFieldLayout(r.id);
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->GetByteOffset(), r.byteOffset);
    EXPECT_EQ(f->GetLengthInBits(), r.bits);
    EXPECT_EQ(f->GetMsbStart(), 7);
    EXPECT_TRUE(f->HasFixedAddr());
    EXPECT_EQ(kls.GetDataLayout()->GetPrevFieldID(r.id), r.prev);
    int32_t position = -1;
    kls.GetDataLayout()->GetFieldPositionInLayout(r.id, position);
    EXPECT_EQ(position, i);
  }
  EXPECT_EQ(kls.GetDataLayout()->GetOrderedFieldIDsList(), ids);
}

TEST(KLSBlkLayout, NonDistributedFormHasEightConfigurationBytes) {
  auto kls = makeKls(0, 0, nullptr);
  EXPECT_EQ(kls->GetMaxDataSzInBytes(), 108);
  EXPECT_EQ(kls->GetNumCfgBytes(), 8);
  EXPECT_EQ(kls->GetNumCfgFields(), 4);
  EXPECT_EQ(kls->PadBlk(), 0);
  EXPECT_EQ(kls->IsDistKLS(), 0);
  EXPECT_NE(kls->IsKLSBlk(), 0);
  EXPECT_EQ(kls->GetListTypeValue(), 0);
  EXPECT_EQ(kls->GetKovID(), 5);
  const CfgRow rows[] = {
      {28521, 0, 16, 28521}, {28524, 2, 16, 28521}, {28523, 4, 16, 28524}, {28522, 6, 16, 28523}};
  expectCfgFields(*kls, rows, 4);
  EXPECT_EQ(kls->GetLeqFldLayout()->GetByteOffset(), 6u);
  EXPECT_EQ(kls->GetLinkFldLayout(), nullptr);
  EXPECT_EQ(kls->GetMaxLLeqFldLayout(), nullptr);
}

TEST(KLSBlkLayout, DistributedFormHasLinkAndLeqOnly) {
  auto kls = makeKls(1, 10, nullptr);
  EXPECT_EQ(kls->GetMaxDataSzInBytes(), 106);
  EXPECT_EQ(kls->GetNumCfgBytes(), 6);
  EXPECT_EQ(kls->GetNumCfgFields(), 2);
  EXPECT_NE(kls->IsDistKLS(), 0);
  EXPECT_EQ(kls->GetListTypeValue(), 1);
  EXPECT_EQ(kls->GetKovID(), 0);  // the attribute said 5
  EXPECT_EQ(kls->GetHdrBlkID(), 22u);
  const CfgRow rows[] = {{28525, 0, 32, 28525}, {28522, 4, 16, 28525}};
  expectCfgFields(*kls, rows, 2);
  const CKovFieldLayout* link = kls->GetLinkFldLayout();
  ASSERT_TRUE(link->IsKindOf(KOV_RUNTIME_CLASS(CKovNameFieldLayout)));
  EXPECT_EQ(static_cast<const CKovNameFieldLayout*>(link)->GetReferencedBlkID(), 21);
  EXPECT_EQ(kls->GetLeqFldLayout()->GetByteOffset(), 4u);
  for (CKovFieldLayout* absent : {kls->GetKLSTypeFldLayout(), kls->GetMaxLeqFldLayout(),
                                  kls->GetLedSzFldLayout(), kls->GetMaxLLeqFldLayout()}) {
    EXPECT_EQ(absent, nullptr);
  }
}

TEST(KLSBlkLayout, MaxLleqComesFromTheLayoutOrElseFromTheFunction) {
  lastCall = Call();
  EXPECT_EQ(makeKls(1, 10, recordingMaxLeq)->GetMaxLLEQ(700, 2), 10);
  EXPECT_EQ(lastCall.count, 0);

  auto kls = makeKls(1, 0, recordingMaxLeq);
  EXPECT_EQ(kls->GetMaxLLEQ(700, 2), 37);
  EXPECT_EQ(lastCall.count, 1);
  EXPECT_EQ(lastCall.listID, 700u);
  EXPECT_EQ(lastCall.blk, kls.get());
  EXPECT_EQ(lastCall.instance, 2);
  EXPECT_EQ(lastCall.wantMaxLLEQ, 1);
  EXPECT_EQ(kls->GetCalcMaxEntryQty(701, 3, 0), 37);
  EXPECT_EQ(lastCall.wantMaxLLEQ, 0);
}

TEST(KLSBlkLayout, MissingFunctionThrowsWithLabelOfTheQuantity) {
  auto kls = makeKls(1, 0, nullptr);
  EXPECT_KOV_THROW(kls->GetMaxLLEQ(700, 1),
                   "No user-defined max LLEQ calculation function found\nfor KLS block Zones");
  EXPECT_KOV_THROW(kls->GetCalcMaxEntryQty(700, 1, 0),
                   "No user-defined max LEQ calculation function found\nfor KLS block Zones");
}

TEST(KLSBlkLayout, SilentFailureOfTheFunctionGetsTextNamingBlockAndInstance) {
  auto kls = makeKls(1, 0, throwsWithoutText);
  EXPECT_KOV_THROW(kls->GetMaxLLEQ(700, 3),
                   "Unknown error occurred while attempting to calculate\n"
                   "max LLEQ for block Zones [3].");
  EXPECT_KOV_THROW(kls->GetCalcMaxEntryQty(700, 4, 0),
                   "Unknown error occurred while attempting to calculate\n"
                   "max LEQ for block Zones [4].");
}

TEST(KLSBlkLayout, FunctionsOwnTextAndObjectReachTheCaller) {
  auto kls = makeKls(1, 0, throwsWithText);
  thrownByCallback = nullptr;
  CMevGenException* caught = nullptr;
  try {
    kls->GetMaxLLEQ(700, 3);
  } catch (CMevGenException* e) {
    caught = e;
  }
  ASSERT_NE(caught, nullptr);
  EXPECT_EQ(caught, thrownByCallback);
  EXPECT_EQ(caught->GetMessage(), "quota table missing");
  delete caught;
}

}  // namespace
