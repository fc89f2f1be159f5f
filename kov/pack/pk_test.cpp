#include <memory>
#include <string>
#include <vector>

#include "kov/fields/listfield.h"
#include "kov/fields/namefield.h"
#include "kov/fields/numfield.h"
#include "kov/fields/strfield.h"
#include "kov/image/image.h"
#include "kov/kovtest.h"
#include "kov/layout/blklayout.h"
#include "kov/layout/cplayout.h"
#include "kov/layout/datalayout.h"
#include "kov/layout/listfieldlayout.h"
#include "kov/layout/namefieldlayout.h"
#include "kov/layout/numfieldlayout.h"
#include "kov/layout/strfieldlayout.h"
#include "kov/pack/idvector.h"
#include "kov/pack/pk.h"
#include "kov/pack/pkpatchmap.h"
#include "kov/platform/mainwnd.h"
#include "kov/platform/strresource.h"

namespace {

TEST(FillImage, WorkedExamplesByteExact) {
  // One 12-bit field 0xABC at byte 0 of block 0x0011/2; then blocks A and B of the format
  // example, plain and with partition prefixes before every instance, checksums unchanged.
  LayoutBuilder one;
  CKovBlkLayout* blk = one.Block(1, "Settings", 0x0011, 2, 0, 0, 2);
  LayoutBuilder::Num(blk, 100, 0, 0, 7, 12, 0);
  PackData oneData;
  oneData.Add(blk, {entryOf({new CKovNumField(0xABC, 100, 12)})}, {2});
  BlocksAB ab;
  const struct {
    const CKovCpLayout* layout;
    const PackData& data;
    int prefixes;
    Bytes image;
  } cases[] = {
      {one.cp.get(), oneData, 0, {0x00, 0x11, 0x00, 0x02, 0x00, 0x04, 0xAB, 0xC0, 0x18, 0xC8}},
      {ab.b.cp.get(), ab.data, 0,
       {0x00, 0x11, 0x00, 0x02, 0x00, 0x06, 0xAB, 0xCA, 0x48, 0x69, 0x6C, 0xB5,
        0x00, 0x12, 0x00, 0x00, 0x00, 0x05, 0x12, 0x34, 0x00, 0xE4, 0x52,
        0x00, 0x12, 0x00, 0x01, 0x00, 0x05, 0x56, 0x78, 0x00, 0x6D, 0x9E}},
      {ab.b.cp.get(), ab.data, 1,
       {0x00, 0x01, 0x00, 0x11, 0x00, 0x02, 0x00, 0x06, 0xAB, 0xCA, 0x48, 0x69, 0x6C,
        0xB5, 0x00, 0x01, 0x00, 0x12, 0x00, 0x00, 0x00, 0x05, 0x12, 0x34, 0x00, 0xE4,
        0x52, 0x00, 0x01, 0x00, 0x12, 0x00, 0x01, 0x00, 0x05, 0x56, 0x78, 0x00, 0x6D,
        0x9E}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.image.size() << " bytes");
    EXPECT_EQ(packImage(c.layout, c.data, c.prefixes), c.image);
  }
}

TEST(FillImage, PartitionRecordsIncludeEmptyPartitionAndSkipUnknownIds) {
  LayoutBuilder b;
  b.cp->AddPartition(2, ReadOnly);
  b.cp->AddPartition(3, ReadWrite);
  CKovBlkLayout* first = b.Block(1, "First", 0x21, 1, 0, 0, 1, 1);
  CKovBlkLayout* unpacked = b.Block(2, "Unpacked", 0x22, 1, 0, 0, 1, 2);
  CKovBlkLayout* last = b.Block(3, "Last", 0x23, 1, 0, 0, 1, 3);
  for (CKovBlkLayout* blk : {first, unpacked, last}) LayoutBuilder::Num(blk, 1, 0, 0, 7, 8, 0);
  PackData data;
  data.Add(first, {entryOf({new CKovNumField(1, 1, 8)})}, {1});
  data.Add(last, {entryOf({new CKovNumField(3, 1, 8)})}, {1});
  // A block the layout does not know: its data is never looked at.
  CKovBlkLayout stray(99, KovBlkLayoutAttrib(0x50, 0, 0, 0), "Stray", 0,
                      new CKovDataLayout(static_cast<LayoutType>(1), 0, 7, 0, true), 1, 0);
  data.Add(&stray, {entryOf({new CKovNumField(9, 1, 8)})}, {1});

  CKovImage image(64);
  CKovPk pk(&data.map, 0);
  uint32_t used = 0;
  ASSERT_EQ(pk.FillImage(b.cp.get(), &image, used, nullptr, 0, 0, 0), 1);
  EXPECT_EQ(used, 18u);
  std::vector<std::pair<uint16_t, std::pair<uint32_t, uint32_t>>> records;
  for (const auto& kv : pk.GetPartitionPkInfo()) {
    records.push_back({kv.first, {kv.second->startAddr, kv.second->size}});
  }
  // Partitions 1 to 3 share bucket 0 of the map, newest first.
  EXPECT_EQ(records, (decltype(records){{3, {9, 9}}, {2, {9, 0}}, {1, {0, 9}}}));
  EXPECT_EQ(pk.GetPatchMap(), nullptr);
}

TEST(FillImage, EmptyPackUsesNothingAndRecordsEveryPartition) {
  BlocksAB ab;
  PackData none;
  CKovImage image(16);
  CKovPk pk(&none.map, 0);
  uint32_t used = 7;
  ASSERT_EQ(pk.FillImage(ab.b.cp.get(), &image, used, nullptr, 0, 0, 0), 1);
  EXPECT_EQ(used, 0u);
  ASSERT_EQ(pk.GetPartitionPkInfo().GetCount(), 1);
  EXPECT_EQ(pk.GetPartitionPkInfo().begin()->second->size, 0u);
}

class RecordingWnd : public KovMainWnd {
 public:
  void BeginWaitCursor() override { calls += "B "; }
  void RestoreWaitCursor() override { calls += "R "; }
  void EndWaitCursor() override { calls += "E "; }
  void SendMessage(uint32_t message, uint32_t wParam, uint32_t lParam) override {
    calls += std::to_string(message) + ":" + std::to_string(wParam) + ":" +
             std::to_string(lParam) + " ";
  }
  std::string calls;
};

TEST(FillImage, SendsItsThreeMessagesInsideTheWaitCursor) {
  BlocksAB ab;  // two blocks in the layout: lParam of the start message is 3
  RecordingWnd wnd;
  kovSetMainWnd(&wnd);
  CKovImage image(64);
  CKovPk pk(&ab.data.map, 0);
  uint32_t used = 0;
  pk.FillImage(ab.b.cp.get(), &image, used, "ignored.bin", 0x401, 0x402, 0x403);
  EXPECT_EQ(wnd.calls, "B 1025:28589:3 R 1026:0:0 R 1027:0:0 E ");

  wnd.calls.clear();
  CKovPk quiet(&ab.data.map, 0);
  quiet.FillImage(ab.b.cp.get(), &image, used, nullptr, 0, 0, 0);
  EXPECT_EQ(wnd.calls, "B R E ");
  kovSetMainWnd(nullptr);
}

TEST(FillImage, RefusesMissingLayoutOrImageBeforeSendingAndASecondUse) {
  BlocksAB ab;
  RecordingWnd wnd;
  kovSetMainWnd(&wnd);
  CKovPk pk(&ab.data.map, 0);
  uint32_t used = 5;
  CKovImage image(64);
  EXPECT_KOV_THROW(pk.FillImage(nullptr, &image, used, nullptr, 1, 2, 3), "No image layout found.");
  EXPECT_EQ(used, 0u);
  EXPECT_KOV_THROW(pk.FillImage(ab.b.cp.get(), nullptr, used, nullptr, 1, 2, 3),
                   "No image object to write to!");
  EXPECT_EQ(wnd.calls, "B E B E ");
  EXPECT_NE(pk.GetPatchMap(), nullptr);
  kovSetMainWnd(nullptr);

  ASSERT_EQ(pk.FillImage(ab.b.cp.get(), &image, used, nullptr, 0, 0, 0), 1);
  EXPECT_KOV_THROW(pk.FillImage(ab.b.cp.get(), &image, used, nullptr, 0, 0, 0),
                   "This pack has been used: make a new CKovPk for another FillImage.");
}

TEST(FillImage, InstanceTooLargeWritesNothingOfItAndUsesZero) {
  BlocksAB ab;
  // A needs 12 bytes, B's first instance 11: 22 leaves B's first instance one byte short.
  CKovImage image(22);
  CKovPk pk(&ab.data.map, 0);
  uint32_t used = 99;
  EXPECT_KOV_THROW(pk.FillImage(ab.b.cp.get(), &image, used, nullptr, 0, 0, 0),
                   "Block B [1] is too large to fit in the image.\nImage size: 22, blk Start: 12, "
                   "blk Size 11.\n");
  EXPECT_EQ(used, 0u);
  EXPECT_EQ(image.GetBytesArray()[12], 0);
  EXPECT_EQ(pk.GetPatchMap(), nullptr);
  // With 23 bytes the same instance ends exactly at the last byte and fits.
  CKovImage exact(23);
  CKovPk again(&ab.data.map, 0);
  EXPECT_KOV_THROW(again.FillImage(ab.b.cp.get(), &exact, used, nullptr, 0, 0, 0),
                   "Block B [2] is too large to fit in the image.\nImage size: 23, blk Start: 23, "
                   "blk Size 11.\n");
}

TEST(FillImage, RefusesSizesAndValuesItCannotWrite) {
  // Padded pads its instances to 4 bytes; a size field holds the data size + 2 in 16 bits, so
  // Plain's 65534 bytes of data can't be told; Radio's field 1, Volume, holds 4 bits; Wide's
  // 33 bits are more than a number is written in.
  LayoutBuilder b;
  CKovBlkLayout* radio = b.Block(1, "Radio", 0x21, 1, 0, 0, 2);
  CKovBlkLayout* padded = b.Block(2, "Padded", 0x22, 0, 1, 1, 4);
  CKovBlkLayout* plain = b.Block(3, "Plain", 0x23, 1, 0, 0, 4);
  CKovBlkLayout* wide = b.Block(4, "Wide", 0x24, 1, 0, 0, 8);
  LayoutBuilder::Num(radio, 1, 0, 0, 7, 4, 0);
  LayoutBuilder::Num(padded, 1, 0, 0, 7, 8, 0);
  LayoutBuilder::Num(plain, 1, 0, 0, 7, 8, 0);
  LayoutBuilder::Num(wide, 1, 0, 0, 7, 33, 0);
  kovRegisterString(1, "Volume");
  const struct {
    const CKovBlkLayout* blk;
    std::vector<uint32_t> values;  // of field id, one instance each
    uint32_t id;
    std::vector<uint16_t> sizes;
    const char* text;
  } cases[] = {
      {padded, {1, 2}, 1, {4, 2},
       "Block Padded [2] is padded to 4 bytes but was given a data size of 2."},
      {padded, {1, 2}, 1, {4}, "Block Padded has 2 instances but 1 data sizes."},
      {plain, {1}, 1, {65534},
       "Block Plain [1] has 65534 bytes of data; an instance holds at most 65533."},
      {radio, {16}, 1, {2}, "Field Volume can not be fit as per the layout\n(see block Radio)."},
      {radio, {1}, 77, {2}, "Layout not found for field 77 in block 1."},
      {wide, {1}, 1, {8}, "Failed trying to write field 1 in block Wide [1] to image."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    PackData data;
    std::vector<CKovPkEntry*> entries;
    for (uint32_t v : c.values) {
      entries.push_back(entryOf({new CKovNumField(v, c.id, c.blk == radio ? 4 : 8)}));
    }
    data.Add(c.blk, entries, c.sizes);
    CKovImage image(64);
    CKovPk pk(&data.map, 0);
    uint32_t used = 0;
    EXPECT_KOV_THROW(pk.FillImage(b.cp.get(), &image, used, nullptr, 0, 0, 0), c.text);
    if (c.blk == radio) {
      EXPECT_EQ(image.GetBytesArray()[6], 0);  // nothing of the value was written
    }
  }
  kovClearRegisteredStrings();
}

TEST(PkEntry, SkipsEmptySlotsAndWritesBothValuesGivenOneId) {
  LayoutBuilder b;
  CKovBlkLayout* blk = b.Block(1, "Radio", 0x21, 1, 0, 0, 3);
  LayoutBuilder::Num(blk, 1, 0, 0, 7, 8, 0);
  LayoutBuilder::Num(blk, 2, 1, 1, 7, 8, 1);
  auto* e = new CKovPkEntry(4);
  e->AddPkField(1, new CKovPkField(new CKovNumField(0x11, 1, 8)), 0);
  e->AddPkField(1, new CKovPkField(new CKovNumField(0x22, 1, 8)), 3);  // same id, later slot
  EXPECT_EQ(e->GetPkFieldMap().GetCount(), 1);
  EXPECT_KOV_THROW(e->AddPkField(2, new CKovPkField(new CKovNumField(1, 2, 8)), 4),
                   "Position 4 of field 2 is outside the 4 fields of its pack entry.");
  PackData data;
  data.Add(blk, {e, new CKovPkEntry(0)}, {3, 0});
  Bytes image = packImage(b.cp.get(), data);
  // Both values of id 1 went to byte 0: the later slot wins. Byte 1 stays 0 (empty slots).
  ASSERT_EQ(image.size(), 19u);
  EXPECT_EQ(image[6], 0x22);
  EXPECT_EQ(image[7], 0x00);
  // The second instance has data size 0: size field 2, checksum 0.
  EXPECT_EQ(Bytes(image.begin() + 11, image.end()), (Bytes{0, 0x21, 0, 1, 0, 2, 0, 0}));
}

// Counts the pack fields alive, to show that an entry deletes each it was given exactly once.
struct CountedPkField : CKovPkField {
  explicit CountedPkField(uint32_t id) : CKovPkField(new CKovNumField(0, id, 8)) { ++alive; }
  ~CountedPkField() override { --alive; }
  static int alive;
};
int CountedPkField::alive = 0;

TEST(PkEntry, DeletesDisplacedAndRepeatedFieldsOnce) {
  // Slot 0 is given five fields, each pushing the one before out; the shared field is made amid
  // them, so the destructor's merge of placed and displaced fields draws from both sides
  // whichever way the heap orders their addresses.
  auto* entry = new CKovPkEntry(3);
  CountedPkField* shared = nullptr;
  for (int i = 0; i < 5; ++i) {
    if (i == 2) shared = new CountedPkField(2);
    entry->AddPkField(1, new CountedPkField(1), 0);
  }
  entry->AddPkField(2, shared, 1);
  entry->AddPkField(3, shared, 2);  // the same field in a second slot, under another id
  entry->AddPkField(2, shared, 1);  // and once more where it already is
  EXPECT_EQ((*entry->GetOrderedPkEntryArr())[2], shared);
  EXPECT_EQ(CountedPkField::alive, 6);
  delete entry;
  EXPECT_EQ(CountedPkField::alive, 0);
}

// List id of at most 10 entries of one 8-bit number at byte 0 of blk, position pos: its quantity
// in field leqID of block leqBlkID (split) or calculated when leqBlkID is 0.
void addByteList(CKovBlkLayout* blk, uint32_t id, int pos, uint16_t leqBlkID = 0,
                 uint32_t leqID = 0) {
  addList(blk, id, 0, pos, 0, leqBlkID != 0 ? VarSzSplitLeq : VarSzCalcLeq, 10, 8,
          numbers(id, {{{id + 1, 0, 8}}}), leqID, leqBlkID);
}

TEST(PkPatchMap, FloatingFieldBehindLaterWrittenListChangesOnlyItsInstanceChecksum) {
  // Block M, 3 instances of 4 bytes: a list (3 bytes in instance 2) and a floating 8-bit field
  // behind it, placed before the list in the order of writing, so it must wait.
  LayoutBuilder b;
  CKovBlkLayout* m = b.Block(1, "M", 0x0031, 0, 1, 0, 4);
  addByteList(m, 40, 1);
  LayoutBuilder::Num(m, 50, 40, 0, 0, 8, 0, false, 0);
  auto* waiting = new CKovPkEntry(2);
  waiting->AddPkField(50, new CKovPkField(new CKovNumField(0x77, 50, 8)), 0);
  waiting->AddPkField(40, new CKovPkField(listValue(40, {1, 2, 3})), 1);
  PackData data;
  // Instances 1 and 3 have no list value: their field 50 would wait for ever, so they hold a
  // list of no entries, written first.
  auto emptyList = [] {
    auto* e = new CKovPkEntry(2);
    e->AddPkField(40, new CKovPkField(listValue(40, {})), 0);
    e->AddPkField(50, new CKovPkField(new CKovNumField(0x66, 50, 8)), 1);
    return e;
  };
  data.Add(m, {emptyList(), waiting, emptyList()}, {4, 4, 4});
  Bytes image = packImage(b.cp.get(), data);
  ASSERT_EQ(image.size(), 36u);
  // Instance 2 at byte 12: list 01 02 03 then the patched 0x77; its checksum covers the patch.
  // Checksums here were worked out bit by bit: CRC(01 02 03 77) = 43F7, CRC(66 00 00 00) = 7E4B.
  EXPECT_EQ(Bytes(image.begin() + 12, image.begin() + 24),
            (Bytes{0x00, 0x31, 0x00, 0x01, 0x00, 0x06, 0x01, 0x02, 0x03, 0x77, 0x43, 0xF7}));
  // Instances 1 and 3: 66 00 00 00 with the checksum of the first pass.
  EXPECT_EQ(Bytes(image.begin() + 6, image.begin() + 12),
            (Bytes{0x66, 0x00, 0x00, 0x00, 0x7E, 0x4B}));
  EXPECT_EQ(Bytes(image.begin() + 30, image.end()), (Bytes{0x66, 0x00, 0x00, 0x00, 0x7E, 0x4B}));
}

TEST(PkPatchMap, PatchForUnpackedBlockIsReportedAndOthersStillPatched) {
  LayoutBuilder b;
  CKovBlkLayout* x = b.Block(1, "X", 0x0021, 1, 0, 0, 2);
  LayoutBuilder::Num(x, 5, 0, 0, 7, 16, 0);
  CKovBlkLayout* y = b.Block(2, "Y", 0x0022, 1, 0, 0, 3);
  addByteList(y, 30, 0, 1, 5);
  CKovBlkLayout* absent = b.Block(3, "Absent", 0x0023, 1, 0, 0, 2);
  LayoutBuilder::Num(absent, 6, 0, 0, 7, 16, 0);
  CKovBlkLayout* z = b.Block(4, "Z", 0x0024, 1, 0, 0, 3);
  addByteList(z, 31, 0, 3, 6);
  PackData data;
  data.Add(x, {new CKovPkEntry(1)}, {2});
  data.Add(y, {entryOf({listValue(30, {0x0A, 0x0B, 0x0C})})}, {3});
  data.Add(z, {entryOf({listValue(31, {0x01})})}, {3});
  MessageBoxRecorder boxes;
  Bytes image = packImage(b.cp.get(), data);
  EXPECT_EQ(boxes.Texts(), (std::vector<std::string>{
                               "Failed to patch 1 or more fields. Check that\nblocks for all "
                               "split-across fields are being packed."}));
  EXPECT_EQ(Bytes(image.begin(), image.begin() + 10),
            (Bytes{0x00, 0x21, 0x00, 0x01, 0x00, 0x04, 0x00, 0x03, 0x30, 0x63}));
}

TEST(PkPatchMap, UndeterminedAddressAndUnpatchableKindAreShownNotThrown) {
  LayoutBuilder b;
  CKovBlkLayout* m = b.Block(1, "M", 0x0031, 1, 0, 0, 4);
  kovRegisterString(50, "Tail");
  addByteList(m, 40, 0);
  LayoutBuilder::Num(m, 50, 40, 0, 0, 8, 0, false, 0);
  PackData data;
  data.Add(m, {entryOf({new CKovNumField(0x77, 50, 8)})}, {4});  // the list never comes
  MessageBoxRecorder boxes;
  Bytes image = packImage(b.cp.get(), data);
  EXPECT_EQ(image.size(), 12u);
  EXPECT_EQ(boxes.Texts(),
            (std::vector<std::string>{"Unable to determine pack address for field Tail in block M."}));
  kovClearRegisteredStrings();

  LayoutBuilder b2;
  CKovBlkLayout* s = b2.Block(1, "S", 0x0032, 1, 0, 0, 6);
  addByteList(s, 40, 1);
  s->AddField(51, 40, new CKovStrFieldLayout(51, 0, 0, CKovCharFieldLayout::Char8Bit, 2, false, 0,
                                             s->GetDataLayout()),
              0);
  auto* e = new CKovPkEntry(2);
  e->AddPkField(51, new CKovPkField(new CKovStrField("ok", 51, 16)), 0);
  e->AddPkField(40, new CKovPkField(listValue(40, {9})), 1);
  PackData strData;
  strData.Add(s, {e}, {6});
  boxes.Clear();
  packImage(b2.cp.get(), strData);
  EXPECT_EQ(boxes.Texts(), (std::vector<std::string>{
                               "Attempting to patch field 51 in block 1 but only\nknow how to "
                               "patch Numeric fields and KovName fields."}));
}

TEST(PkPatchMap, PatchForMissingInstanceThrows) {
  LayoutBuilder b;
  CKovBlkLayout* x = b.Block(1, "X", 0x0021, 1, 0, 0, 2);
  LayoutBuilder::Num(x, 5, 0, 0, 7, 16, 0);
  CKovBlkLayout* y = b.Block(2, "Y", 0x0022, 0, 1, 0, 1);
  addByteList(y, 30, 0, 1, 5);
  // The list aims its quantity at instance 1 of X; an X without instances has none.
  PackData noX;
  noX.Add(x, {}, {});
  noX.Add(y, {entryOf({listValue(30, {1})})}, {1});
  CKovImage image(64);
  CKovPk pk(&noX.map, 0);
  uint32_t used = 0;
  EXPECT_KOV_THROW(pk.FillImage(b.cp.get(), &image, used, nullptr, 0, 0, 0),
                   "Attempting to patch field(s) in block X-1, but\nthat block instance number "
                   "does not exist.");
  EXPECT_EQ(used, 0u);
}

// Opens the steps of the patch stage.
class PatchSteps : public CKovPkPatchMap {
 public:
  using CKovPkPatchMap::GetParentDataStartPosInImage;
  using CKovPkPatchMap::GetPatchAddrForFloatingField;
  using CKovPkPatchMap::PatchBlk;
};

TEST(PkPatchMap, StepsRefuseWhatTheirLayoutOrFieldsLack) {
  // Block 9 is not in the layout; field 12 of M lies in the entry of list 40, which the fields
  // map does not hold; floating field 2 follows field 77, which M lacks.
  LayoutBuilder b;
  CKovBlkLayout* m = b.Block(1, "M", 0x0031, 1, 0, 0, 4);
  auto entry = std::make_unique<CKovDataLayout>(ListEntryLayout, 0, 7, 40, false);
  CKovNumFieldLayout inEntry(12, 0, 8, 7, true, 0, entry.get());
  addByteList(m, 40, 0);
  LayoutBuilder::Num(m, 2, 77, 0, 0, 8, 1, false, 0);
  PatchSteps steps;
  KovFieldsMap fields;
  KovIDVectorMap vectors;
  CKovMap<uint32_t, bool> patched;
  uint32_t byte = 0;
  uint8_t msb = 0;
  EXPECT_KOV_THROW(steps.PatchBlk(nullptr, {}, b.cp.get(), nullptr, nullptr, vectors, nullptr,
                                  patched, 9),
                   "Attempting to patch block with absolute ID 9 but no layout found for that "
                   "block");
  EXPECT_KOV_THROW(steps.GetParentDataStartPosInImage(&inEntry, 0, &fields),
                   "Attempting to patch field 12 in parent complex field 40 but unable to locate "
                   "parent field in image.");
  EXPECT_KOV_THROW(
      steps.GetPatchAddrForFloatingField(m->GetFieldLayout(2), &fields, 0, byte, msb),
      "Field layout for field 77 not found. Unable to determine byteOffset/startBit for floating "
      "field 2");
}

TEST(StrField, Char8BitAndChar4BitStringsPackTheirCharactersOnly) {
  LayoutBuilder b;
  CKovBlkLayout* blk = b.Block(1, "Names", 0x0041, 1, 0, 0, 6);
  blk->AddField(1, 0, new CKovStrFieldLayout(1, 0, 7, CKovCharFieldLayout::Char8Bit, 4, true, 0,
                                             blk->GetDataLayout()),
                0);
  blk->AddField(2, 1, new CKovStrFieldLayout(2, 4, 7, CKovCharFieldLayout::Char4Bit, 4, true, 0,
                                             blk->GetDataLayout()),
                1);
  PackData data;
  data.Add(blk, {entryOf({new CKovStrField("AB", 1, 32), new CKovStrField("12", 2, 16)})}, {6});
  CKovImage image(32);
  image.SetAt(8, uint8_t{0xEE});  // behind "AB": untouched
  CKovPk pk(&data.map, 0);
  uint32_t used = 0;
  pk.FillImage(b.cp.get(), &image, used, nullptr, 0, 0, 0);
  EXPECT_EQ(Bytes(image.GetBytesArray() + 6, image.GetBytesArray() + 12),
            (Bytes{'A', 'B', 0xEE, 0x00, 0x12, 0x00}));
}

TEST(StrField, RefusesTooLongStringsAndNonDigitsInChar4Bit) {
  LayoutBuilder b;
  CKovBlkLayout* blk = b.Block(1, "Names", 0x0041, 1, 0, 0, 2);
  auto* digits = new CKovStrFieldLayout(2, 0, 7, CKovCharFieldLayout::Char4Bit, 3, true, 0,
                                        blk->GetDataLayout());
  blk->AddField(2, 0, digits, 0);
  MessageBoxRecorder boxes;
  EXPECT_EQ(CKovStrField("1 2", 2, 12).CanValueFitAsPerLayout(digits), 0);
  EXPECT_EQ(CKovStrField("1234", 2, 12).CanValueFitAsPerLayout(digits), 0);
  EXPECT_EQ(CKovStrField("12?", 2, 12).CanValueFitAsPerLayout(digits), 1);  // '?' is 0x3F
  EXPECT_EQ(boxes.Texts(), (std::vector<std::string>{
                               "Str 1 2 has char \xF0 that can not be stored in 4 bits",
                               "Str 1 2 (with charLength = 4) can not be stored in 12 bits",
                               "Str 1234 (with charLength = 4) can not be stored in 12 bits"}));
}

TEST(NameField, CheckReferenceDecidesWhatIsPacked) {
  LayoutBuilder b;
  CKovBlkLayout* refs = b.Block(1, "Refs", 0x0051, 1, 0, 0, 4);
  CKovBlkLayout* multi = b.Block(2, "Multi", 0x0052, 0, 1, 0, 1);
  CKovBlkLayout* single = b.Block(3, "Single", 0x0053, 7, 0, 0, 1);
  LayoutBuilder::Num(multi, 1, 0, 0, 7, 8, 0);
  LayoutBuilder::Num(single, 1, 0, 0, 7, 8, 0);
  auto* toMulti = new CKovNameFieldLayout(60, 0, 32, 7, true, 0, refs->GetDataLayout(), 2);
  auto* toAbsent = new CKovNameFieldLayout(61, 0, 32, 7, true, 0, refs->GetDataLayout(), 9);
  auto* toSingle = new CKovNameFieldLayout(62, 0, 32, 7, true, 0, refs->GetDataLayout(), 3);
  refs->AddField(60, 0, toMulti, 0);
  refs->AddField(61, 60, toAbsent, 1);
  refs->AddField(62, 61, toSingle, 2);
  PackData data;
  data.Add(multi, {entryOf({new CKovNumField(1, 1, 8)}), entryOf({new CKovNumField(2, 1, 8)}),
                   entryOf({new CKovNumField(3, 1, 8)})},
           {1, 1, 1});
  data.Add(single, {entryOf({new CKovNumField(1, 1, 8)})}, {1});
  CKovPk pk(&data.map, 0);
  struct Case {
    const CKovFieldLayout* layout;
    uint32_t value;
    int check;
    uint32_t packed;
  } cases[] = {
      {toAbsent, 0x00590001, 0, 0x00590001},  // unchecked: packed as given
      {toAbsent, 0x00590001, 1, 0},           // referenced block not packed
      {toMulti, 0x00520003, 1, 0},            // id 3 is no instance of three
      {toMulti, 0x00520002, 1, 0x00520002},   // id 2 is instance 3
      {toSingle, 0x00530063, 1, 0x00530063},  // single instance: any id
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.value);
    CKovNameField f(c.value, c.layout->GetFieldID(), 32, c.check);
    EXPECT_EQ(f.GetKovNameToPack(&pk, c.layout), c.packed);
  }
}

}  // namespace
