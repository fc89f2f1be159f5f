#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "kov/kovtest.h"
#include "kov/platform/strresource.h"
#include "kov/unpack/upblkinstance.h"
#include "kov/unpack/upentry.h"
#include "kov/unpack/uppatchmap.h"
#include "kov/unpack/upstdblk.h"

namespace {

uint32_t numberOf(const CKovUpEntry* entry, uint32_t id) {
  const CKovUpField* f = entry != nullptr ? entry->GetUpField(id) : nullptr;
  return f != nullptr ? static_cast<const CKovNumField*>(f->GetData())->GetValue() : 0xDEADBEEF;
}

bool fileExists(const std::string& path) { return static_cast<bool>(std::ifstream(path)); }

// Blocks A (0x0101, single) and B (0x0102, multi-instance) of the walk example, each with one
// 8-bit number at byte 0.
struct WalkLayout {
  WalkLayout() {
    a = b.Block(1, "A", 0x0101, 0, 0, 0, 2);
    bb = b.Block(2, "B", 0x0102, 0, 1, 0, 4);
    LayoutBuilder::Num(a, 10, 0, 0, 7, 8, 0);
    LayoutBuilder::Num(bb, 20, 0, 0, 7, 8, 0);
  }
  LayoutBuilder b;
  CKovBlkLayout* a;
  CKovBlkLayout* bb;
};

// The 34-byte walk example: all data 0, so every checksum is 0.
const Bytes kWalkImage = {0x01, 0x01, 0x00, 0x00, 0x00, 0x04, 0, 0, 0, 0,
                          0x01, 0x02, 0x00, 0x00, 0x00, 0x06, 0, 0, 0, 0, 0, 0,
                          0x01, 0x02, 0x00, 0x01, 0x00, 0x06, 0, 0, 0, 0, 0, 0};

TEST(FullUnpack, WalksHeadersAndNumbersInstances) {
  WalkLayout w;
  CKovUp up(w.b.cp.get(), kWalkImage, "");
  ASSERT_EQ(up.FullUnpack(), 1);
  const auto& addrs = up.GetBlockAddrMap();
  EXPECT_EQ(**addrs.PLookup(1), (std::vector<uint32_t>{0, 0}));
  EXPECT_EQ(**addrs.PLookup(2), (std::vector<uint32_t>{0, 10, 22}));
  EXPECT_EQ((*up.GetUpBlksList().PLookup(1))->at(0), nullptr);  // element 0 stays empty
  uint32_t address = 0;
  EXPECT_EQ(up.GetImageIndex(2, 1, address, 2), 1);
  EXPECT_EQ(address, 29u);
  address = 7;
  EXPECT_EQ(up.GetImageIndex(2, 1, address, 3), 0);
  EXPECT_EQ(address, 7u);
  EXPECT_EQ(up.GetImageIndex(2, 6, address, 2), 0);  // 22 + 6 + 6 = 34: the image's end
  EXPECT_EQ(address, 34u);
  EXPECT_EQ(up.GetUnpackedBlk(1)->GetBlkInstanceQty(), 1);
  EXPECT_EQ(up.GetUnpackedBlk(2)->GetBlkInstanceQty(), 2);
  EXPECT_EQ(up.GetUnpackedBlk(3), nullptr);
  EXPECT_EQ(up.GetImageCpStdVersion(), "01.00");
}

TEST(FullUnpack, InstancesAreCountedInImageOrderAndMappedByKovID) {
  WalkLayout w;
  // B's instance with KOV id 1 first, then A, then KOV id 0.
  Bytes image = {0x01, 0x02, 0x00, 0x01, 0x00, 0x06, 0x11, 0, 0, 0, 0x6D, 0x13,
                 0x01, 0x01, 0x00, 0x00, 0x00, 0x04, 0x05, 0x77, 0xF1, 0x85,
                 0x01, 0x02, 0x00, 0x00, 0x00, 0x06, 0x22, 0, 0, 0, 0xDA, 0x26};
  // Checksums worked out bit by bit: 11 00 00 00 -> 6D13, 05 77 -> F185, 22 00 00 00 -> DA26.
  CKovUp up(w.b.cp.get(), image, "");
  ASSERT_EQ(up.FullUnpack(), 1);
  const CKovUpStdBlk* b = up.GetUnpackedBlk(2);
  ASSERT_EQ(b->GetBlkInstanceQty(), 2);
  EXPECT_EQ(numberOf(b->GetUpEntry(1), 20), 0x11u);
  EXPECT_EQ(numberOf(b->GetUpEntry(2), 20), 0x22u);
  int n = 0;
  EXPECT_TRUE(b->GetKovIdToInstNumMap().Lookup(1, n));
  EXPECT_EQ(n, 1);
  EXPECT_TRUE(b->GetKovIdToInstNumMap().Lookup(0, n));
  EXPECT_EQ(n, 2);
  // The instances have handed their entries over and keep their field maps.
  CKovUpBlkInstance* first = (*up.GetUpBlksList().PLookup(2))->at(1);
  EXPECT_EQ(first->GetUpEntry(), nullptr);
  EXPECT_TRUE(first->GetUpFieldMap().Contains(20));
  EXPECT_TRUE(first->IsKindOf(KOV_RUNTIME_CLASS(CKovUpNonDistBlkInst)));
  EXPECT_EQ(b->IsUnpack(), 1);
  EXPECT_EQ(b->IsPack(), 0);
}

TEST(UpEntry, BlockAReadsWholeAndCutShort) {
  BlocksAB ab;
  // Block A with its 4 bytes of data: 0xABC, 5 and "Hi".
  Bytes whole = {0x00, 0x11, 0x00, 0x02, 0x00, 0x06, 0xAB, 0xCA, 0x48, 0x69, 0x6C, 0xB5};
  CKovUp up(ab.b.cp.get(), whole, "");
  ASSERT_EQ(up.FullUnpack(), 1);
  const CKovUpEntry* e = up.GetUnpackedBlk(1)->GetUpEntry(1);
  EXPECT_EQ(numberOf(e, 10), 0xABCu);
  EXPECT_EQ(numberOf(e, 11), 5u);
  EXPECT_EQ(kovGenValueText(e->GetUpField(12)->GetData()), "string \"Hi\"");

  // The same block stored with 2 bytes of data (size 4; CRC of AB CA is B982): the string would
  // end past the last bit, so the entry holds the two numbers and nothing fails.
  Bytes cut = {0x00, 0x11, 0x00, 0x02, 0x00, 0x04, 0xAB, 0xCA, 0xB9, 0x82};
  CKovUp up2(ab.b.cp.get(), cut, "");
  ASSERT_EQ(up2.FullUnpack(), 1);
  const CKovUpEntry* c = up2.GetUnpackedBlk(1)->GetUpEntry(1);
  EXPECT_EQ(numberOf(c, 10), 0xABCu);
  EXPECT_EQ(numberOf(c, 11), 5u);
  EXPECT_EQ(c->GetUpField(12), nullptr);
  EXPECT_EQ(c->GetUpFieldMap().GetCount(), 2);
}

TEST(FullUnpack, FailuresSpendTheObject) {
  BlocksAB ab;
  Bytes good = packImage(ab.b.cp.get(), ab.data);
  struct Case {
    const char* what;
    Bytes image;
    const char* text;
  } cases[] = {
      {"bad checksum in the last block", [&] {
         Bytes b = good;
         b[b.size() - 1] ^= 1;
         return b;
       }(),
       "Block B [2] has an invalid checksum."},
      {"flipped data bit", [&] {
         Bytes b = good;
         b[7] ^= 0x10;
         return b;
       }(),
       "Block A [1] has an invalid checksum."},
      {"block runs past the image", Bytes(good.begin(), good.end() - 1),
       "Block B [2] has an invalid checksum."},
      {"trailing zero bytes", [&] {
         Bytes b = good;
         b.resize(b.size() + 8, 0);
         return b;
       }(),
       "Unable to find blkID for item with KOV Name = 0x0."},
      {"unknown block type", Bytes{0x00, 0x99, 0x00, 0x03, 0x00, 0x02, 0x00, 0x00},
       "Unable to find blkID for item with KOV Name = 0x990000."},
      {"header cut short", [&] {
         Bytes b = good;
         b.insert(b.end(), {0x00, 0x11, 0x00});
         return b;
       }(),
       "Block header at offset 34 is cut short: 3 bytes left where a header needs 6."},
      {"size below the checksum", Bytes{0x00, 0x12, 0x00, 0x00, 0x00, 0x01, 0x00},
       "Block header at offset 0 (KOV name 0x00120000) has size 1, below the 2 bytes of its "
       "checksum."},
      // 65536 instances of B (11 bytes each, data 0): the 16-bit instance number would wrap.
      {"more instances than an instance number counts", [] {
         Bytes b;
         for (uint32_t n = 0; n < 65536; ++n) {
           b.insert(b.end(), {0x00, 0x12, static_cast<uint8_t>(n >> 8), static_cast<uint8_t>(n),
                              0x00, 0x05, 0, 0, 0, 0, 0});
         }
         return b;
       }(),
       "Block B at offset 720885 would be its instance 65536: a block holds at most 65535 "
       "instances."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::string report = testing::TempDir() + "kov_failed_unpack.xml";
    std::remove(report.c_str());
    CKovUp up(ab.b.cp.get(), c.image, report);
    EXPECT_KOV_THROW(up.FullUnpack(), c.text);
    EXPECT_EQ(up.GetImage(), nullptr);
    EXPECT_EQ(up.GetUnpackedBlk(1), nullptr);
    EXPECT_TRUE(up.GetBlockAddrMap().IsEmpty());
    EXPECT_TRUE(up.GetUpBlksList().IsEmpty());
    EXPECT_FALSE(fileExists(report));
    EXPECT_KOV_THROW(up.FullUnpack(),
                     "This unpack has been used: make a new CKovUp for another image.");
  }
}

TEST(FullUnpack, SecondCallIsRefusedAndKeepsTheResults) {
  WalkLayout w;
  CKovUp up(w.b.cp.get(), kWalkImage, "");
  ASSERT_EQ(up.FullUnpack(), 1);
  const CKovUpEntry* taken = up.GetUnpackedBlk(2)->GetUpEntry(2);
  EXPECT_KOV_THROW(up.FullUnpack(),
                   "This unpack has been used: make a new CKovUp for another image.");
  ASSERT_NE(up.GetUnpackedBlk(2), nullptr);
  EXPECT_EQ(up.GetUnpackedBlk(2)->GetUpEntry(2), taken);
  EXPECT_EQ(numberOf(taken, 20), 0u);
  EXPECT_NE(up.GetImage(), nullptr);
}

TEST(FullUnpack, TruncationAtEveryLengthEndsInResultOrItsException) {
  BlocksAB ab;
  Bytes good = packImage(ab.b.cp.get(), ab.data);
  for (size_t n = 1; n < good.size(); ++n) {
    SCOPED_TRACE(n);
    CKovUp up(ab.b.cp.get(), Bytes(good.begin(), good.begin() + static_cast<long>(n)), "");
    bool ok = false;
    try {
      ok = up.FullUnpack() == 1;
    } catch (CMevGenException* e) {
      EXPECT_FALSE(e->GetMessage().empty());
      delete e;
    }
    // Only a cut on an instance boundary leaves a whole image.
    EXPECT_EQ(ok, n == 12 || n == 23);
  }
}

TEST(FullUnpack, EmptyImageUnpacksToNothing) {
  BlocksAB ab;
  MessageBoxRecorder boxes;
  CKovUp up(ab.b.cp.get(), Bytes{}, "");
  EXPECT_EQ(up.FullUnpack(), 1);
  EXPECT_TRUE(up.GetUpBlksMap().IsEmpty());
  EXPECT_EQ(boxes.Texts(),
            (std::vector<std::string>{"Error - Attempting to read 0-length codeplug image!"}));
}

TEST(FullUnpack, WritesReportOfPrimitiveFields) {
  BlocksAB ab;
  kovRegisterString(10, "Power");
  kovRegisterString(11, "Mode");
  kovRegisterString(12, "Alias");
  kovRegisterString(20, "Step");
  Bytes image = packImage(ab.b.cp.get(), ab.data);
  std::string path = testing::TempDir() + "kov_unpack_report.xml";
  CKovUp up(ab.b.cp.get(), image, path);
  ASSERT_EQ(up.FullUnpack(), 1);
  kovClearRegisteredStrings();
  std::string report = kovTestReadXmlReport(path);
  auto field = [](const char* name, int byteOffset, int msb, int length, const char* value) {
    char buf[512];
    std::snprintf(buf, sizeof buf,
                  "\t\t<Field>\n\t\t\t<Name> %s </Name>\n\t\t\t<ByteOffset> 0x%x </ByteOffset>\n"
                  "\t\t\t<BitOffset> 0x%x </BitOffset>\n\t\t\t<Length> 0x%x </Length>\n"
                  "\t\t\t<Value> %s </Value>\n\t\t</Field>\n",
                  name, byteOffset, msb, length, value);
    return std::string(buf);
  };
  std::string body = "\t<Block>\n\t\t<BlockName> A_1 </BlockName>\n" +
                     field("Power", 0, 7, 12, "0xabc") + field("Mode", 1, 3, 3, "0x5") +
                     field("Alias", 2, 7, 16, "Hi") + "\t</Block>\n" +
                     "\t<Block>\n\t\t<BlockName> B_1 </BlockName>\n" +
                     field("Step", 0, 7, 16, "0x1234") + "\t</Block>\n" +
                     "\t<Block>\n\t\t<BlockName> B_2 </BlockName>\n" +
                     field("Step", 0, 7, 16, "0x5678") + "\t</Block>\n</CodeplugData>\n";
  ASSERT_GT(report.size(), body.size());
  EXPECT_EQ(report.substr(0, 22), "<?xml version=\"1.0\"?>\n");
  EXPECT_EQ(report.substr(report.size() - body.size()), body);
}

TEST(UpBlocks, RefuseABlockTheLayoutLacks) {
  // Block 9 is not in the layout of blocks A and B.
  BlocksAB ab;
  CKovUp up(ab.b.cp.get(), packImage(ab.b.cp.get(), ab.data), "");
  CKovUpPatchMap patchMap;
  EXPECT_KOV_THROW(
      CKovUpNonDistBlkInst(&up, &patchMap, 0u, uint16_t{2}, uint16_t{6}, uint16_t{9}, uint16_t{1}),
      "Block layout not found for block with ID = 9.");
  EXPECT_KOV_THROW(CKovUpStdBlk(nullptr, nullptr, 9),
                   "No block layout for block 9. Can not unpack.\n");
}

// A block whose floating field 2 is listed before the fixed field 1 it follows: the walk defers
// field 2, and the first sweep reads it.
TEST(UpPatchMap, DeferredFieldIsReadBySweepInEveryInstance) {
  LayoutBuilder b;
  CKovBlkLayout* m = b.Block(1, "M", 0x0031, 0, 1, 0, 2);
  LayoutBuilder::Num(m, 2, 1, 0, 0, 8, 0, false, 0);
  LayoutBuilder::Num(m, 1, 0, 0, 7, 8, 1);
  // Two instances: 11 22 and 05 77 (checksums 3462 and F185, worked out bit by bit).
  Bytes image = {0x00, 0x31, 0x00, 0x00, 0x00, 0x04, 0x11, 0x22, 0x34, 0x62,
                 0x00, 0x31, 0x00, 0x01, 0x00, 0x04, 0x05, 0x77, 0xF1, 0x85};
  std::string path = testing::TempDir() + "kov_deferred.xml";
  CKovUp up(b.cp.get(), image, path);
  ASSERT_EQ(up.FullUnpack(), 1);
  const CKovUpStdBlk* blk = up.GetUnpackedBlk(1);
  EXPECT_EQ(numberOf(blk->GetUpEntry(1), 2), 0x22u);
  EXPECT_EQ(numberOf(blk->GetUpEntry(2), 2), 0x77u);
  // The sweep reports each instance's late field under a block section of its own, behind the
  // blocks of the walk.
  std::string report = kovTestReadXmlReport(path);
  size_t late1 = report.find("<BlockName> M_1 </BlockName>", report.find("M_2"));
  size_t late2 = report.find("<BlockName> M_2 </BlockName>", late1);
  EXPECT_NE(late1, std::string::npos);
  EXPECT_NE(late2, std::string::npos);
  EXPECT_NE(report.find("<Value> 0x77 </Value>", late2), std::string::npos);
}

TEST(UpPatchMap, FieldThatNeverResolvesGivesUpAfterElevenAttempts) {
  LayoutBuilder b;
  CKovBlkLayout* m = b.Block(1, "M", 0x0031, 1, 0, 0, 2);
  LayoutBuilder::Num(m, 1, 0, 0, 7, 8, 0);
  LayoutBuilder::Num(m, 2, 99, 0, 0, 8, 1, false, 0);  // follows a field that does not exist
  Bytes image = {0x00, 0x31, 0x00, 0x01, 0x00, 0x04, 0x11, 0x22, 0x34, 0x62};
  MessageBoxRecorder boxes;
  CKovUp up(b.cp.get(), image, "");
  EXPECT_KOV_THROW(up.FullUnpack(),
                   "Unable to determine address of one or more fields in the image.");
  EXPECT_EQ(boxes.Texts(),
            (std::vector<std::string>{"Unable to unpack field 2 in block 1 after 11 attempts."}));
  EXPECT_EQ(up.GetImage(), nullptr);
}

TEST(UpPatchMap, FieldPastItsBlockOnRetryIsDroppedWithoutFailure) {
  // Field 2 floats behind field 3, which is listed after it; field 3 ends at the block's last
  // bit, so field 2 lands past it on the retry and is given up.
  LayoutBuilder b;
  CKovBlkLayout* m = b.Block(1, "M", 0x0031, 1, 0, 0, 2);
  LayoutBuilder::Num(m, 2, 3, 0, 0, 8, 0, false, 0);
  LayoutBuilder::Num(m, 3, 0, 1, 7, 8, 1);
  Bytes image = {0x00, 0x31, 0x00, 0x01, 0x00, 0x04, 0x11, 0x22, 0x34, 0x62};
  CKovUp up(b.cp.get(), image, "");
  ASSERT_EQ(up.FullUnpack(), 1);
  const CKovUpEntry* e = up.GetUnpackedBlk(1)->GetUpEntry(1);
  EXPECT_EQ(numberOf(e, 3), 0x22u);
  EXPECT_EQ(e->GetUpField(2), nullptr);
}

}  // namespace
