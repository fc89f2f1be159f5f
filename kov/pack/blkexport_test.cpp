#include "kov/pack/blkexport.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "kov/kovtest.h"
#include "kov/layout/klsblklayout.h"
#include "kov/pack/idvector.h"
#include "kov/pack/pkpatchmap.h"

namespace fs = std::filesystem;

namespace {

// Opens the steps of the export.
class BlkExportSteps : public CKovBlkExport {
 public:
  using CKovBlkExport::WriteBlkToFile;
};

// A number that also hands the pack a patch: value 3 for field 5 of block 1, instance 1, as a
// list does for an LEQ field in a block written earlier.
class PatchingNumField : public CKovNumField {
 public:
  using CKovNumField::CKovNumField;
  PkStatus WriteToImage(const CKovPk* pk, CKovImage* image, uint32_t entryStartByte,
                        uint8_t entryMsbStart, KovFieldsMap* fieldsMap,
                        const CKovFieldLayout* layout, const CKovCpLayout* cpLayout, uint16_t blkID,
                        int instance) const override {
    pk->GetPatchMap()->AddField(pk, new CKovNumField(3, 5, 16), cpLayout->GetFieldLayout(1, 5), 1,
                                1, true);
    return CKovNumField::WriteToImage(pk, image, entryStartByte, entryMsbStart, fieldsMap, layout,
                                      cpLayout, blkID, instance);
  }
};

Bytes readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeFile(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

// Each test works in a directory of its own under the test temporary directory, which goes
// with the test. The image file is <root>/radio.img; its blocks go to <root>/radio - Blocks.
class BlkExport : public testing::Test {
 protected:
  void SetUp() override {
    root = fs::path(testing::TempDir()) /
           ("kov_blkexport_" + std::to_string(getpid()) + "_" +
            testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(root);
    fs::create_directories(root);
  }
  void TearDown() override {
    std::error_code ec;
    fs::remove_all(root, ec);
  }

  std::string ImageFile() const { return (root / "radio.img").string(); }
  fs::path BlksDir() const { return root / "radio - Blocks"; }

  // The files of the blocks directory by name; sub-directories left out.
  std::map<std::string, Bytes> Files() const {
    std::map<std::string, Bytes> files;
    for (const auto& entry : fs::directory_iterator(BlksDir())) {
      if (entry.is_regular_file()) files[entry.path().filename().string()] = readFile(entry.path());
    }
    return files;
  }

  // X (0x0021/1) holds LEQ field 5, patched to 3 by Y (0x0022/1), whose 24-bit field is 0A 0B 0C;
  // B (0x0012, multi-instance, padded to 3 bytes) has 0x1234 and 0x5678. Packed in that order,
  // with partition prefixes, into a layout that asks for separate files when saveToSeparateFiles.
  void Pack(int saveToSeparateFiles, const char* fileName, bool withY = true) {
    LayoutBuilder b;
    b.cp = std::make_unique<CKovCpLayout>(1, 2, 0x10000, saveToSeparateFiles);
    b.cp->AddPartition(1, ReadWrite);
    CKovBlkLayout* x = b.Block(1, "X", 0x0021, 1, 0, 0, 2);
    LayoutBuilder::Num(x, 5, 0, 0, 7, 16, 0);
    CKovBlkLayout* y = b.Block(2, "Y", 0x0022, 1, 0, 0, 3);
    LayoutBuilder::Num(y, 30, 0, 0, 7, 24, 0);
    CKovBlkLayout* bb = b.Block(3, "B", 0x0012, 0, 1, 1, 3);
    LayoutBuilder::Num(bb, 20, 0, 0, 7, 16, 0);
    PackData data;
    data.Add(x, {new CKovPkEntry(1)}, {2});
    if (withY) data.Add(y, {entryOf({new PatchingNumField(0x0A0B0C, 30, 24)})}, {3});
    data.Add(
        bb,
        {entryOf({new CKovNumField(0x1234, 20, 16)}), entryOf({new CKovNumField(0x5678, 20, 16)})},
        {3, 3});
    CKovImage image(128);
    CKovPk pk(&data.map, 1);
    uint32_t used = 0;
    EXPECT_KOV_NO_THROW(pk.FillImage(b.cp.get(), &image, used, fileName, 0, 0, 0));
  }

  fs::path root;
};

// The instances of the pack tests' vectors, behind the 2-byte prefix of partition 1; X holds
// the patched LEQ 3 and its patched checksum.
const std::map<std::string, Bytes> kXYBFiles = {
    {"B_1", {0x00, 0x01, 0x00, 0x12, 0x00, 0x00, 0x00, 0x05, 0x12, 0x34, 0x00, 0xE4, 0x52}},
    {"B_2", {0x00, 0x01, 0x00, 0x12, 0x00, 0x01, 0x00, 0x05, 0x56, 0x78, 0x00, 0x6D, 0x9E}},
    {"X_1", {0x00, 0x01, 0x00, 0x21, 0x00, 0x01, 0x00, 0x04, 0x00, 0x03, 0x30, 0x63}},
    {"Y_1", {0x00, 0x01, 0x00, 0x22, 0x00, 0x01, 0x00, 0x05, 0x0A, 0x0B, 0x0C, 0xDA, 0xB7}},
};

TEST_F(BlkExport, FillImageLeavesEachInstanceWithItsFinalBytes) {
  MessageBoxRecorder boxes;
  Pack(1, ImageFile().c_str());
  EXPECT_EQ(Files(), kXYBFiles);
  EXPECT_TRUE(boxes.Texts().empty());
  EXPECT_EQ(CKovBlkExport::GetBlksDirPath(ImageFile().c_str()), BlksDir().string());
}

TEST_F(BlkExport, RunsOnlyForAFileNameAndALayoutThatAsks) {
  Pack(0, ImageFile().c_str());
  Pack(1, nullptr);
  EXPECT_TRUE(fs::is_empty(root));
}

TEST_F(BlkExport, FailedWriteLosesOnlyItsOwnFile) {
  // Write n fails, for n = 1, 2, ... until an export meets no failure: that file is reported
  // twice and not left behind cut short, and every other file is written.
  const std::map<std::string, int> blkIDs = {{"X_1", 1}, {"Y_1", 2}, {"B_1", 3}, {"B_2", 3}};
  std::set<std::string> failedNames;
  for (int n = 0;; ++n) {
    SCOPED_TRACE(n + 1);
    MessageBoxRecorder boxes;
    FailingWrite failing(n);
    Pack(1, ImageFile().c_str());
    if (!failing.Failed()) {
      EXPECT_EQ(Files(), kXYBFiles);
      EXPECT_TRUE(boxes.Texts().empty());
      std::printf("export: %d writes tried\n", n + 1);
      break;
    }
    const std::string name = fs::path(failing.FailedPath()).filename().string();
    ASSERT_EQ(blkIDs.count(name), 1u) << name;
    failedNames.insert(name);
    std::map<std::string, Bytes> rest = kXYBFiles;
    rest.erase(name);
    EXPECT_EQ(Files(), rest);
    EXPECT_EQ(boxes.Texts(),
              (std::vector<std::string>{"Error writing to file " + failing.FailedPath() +
                                            ".\nReason: " + std::generic_category().message(ENOSPC),
                                        "Unable to save block " + std::to_string(blkIDs.at(name)) +
                                            " (name " + name + ")."}));
  }
  EXPECT_EQ(failedNames.size(), kXYBFiles.size());
}

TEST_F(BlkExport, SecondExportLeavesOnlyItsOwnFilesAndTheSubDirectories) {
  Pack(1, ImageFile().c_str());
  writeFile(BlksDir() / "Stale_1", "left over");
  fs::permissions(BlksDir() / "Stale_1", fs::perms::owner_read | fs::perms::group_read);
  fs::create_directory(BlksDir() / "notes");
  writeFile(BlksDir() / "notes" / "keep.txt", "mine");

  MessageBoxRecorder boxes;
  Pack(1, ImageFile().c_str(), false);  // without Y, so X stays unpatched
  EXPECT_EQ(Files(),
            (std::map<std::string, Bytes>{
                {"B_1", kXYBFiles.at("B_1")},
                {"B_2", kXYBFiles.at("B_2")},
                {"X_1", {0x00, 0x01, 0x00, 0x21, 0x00, 0x01, 0x00, 0x04, 0x00, 0x00, 0x00, 0x00}},
            }));
  EXPECT_EQ(readFile(BlksDir() / "notes" / "keep.txt"), (Bytes{'m', 'i', 'n', 'e'}));
  EXPECT_TRUE(boxes.Texts().empty());
}

TEST_F(BlkExport, OneFilePerNotedInstanceAndARefusedNameIsReported) {
  // Block 7 is distributed: its vector counts 3 listlets. Block 8 has a name no file system
  // takes; block 9 noted no instance.
  LayoutBuilder b;
  auto* kls = new CKovKLSBlkLayout(7, KovBlkLayoutAttrib(0x70, 0, 0, 0), "Zones",
                                   new CKovDataLayout(static_cast<LayoutType>(1), 0, 7, 0, true), 8,
                                   1, 2, 0, nullptr);
  kls->SetPartitionNum(1);
  b.cp->AddBlkLayout(kls);
  const std::string longName(300, 'n');
  b.Block(8, longName.c_str(), 0x80, 1, 0, 0, 1);
  b.Block(9, "Empty", 0x90, 1, 0, 0, 1);
  CKovImage image(16);
  for (uint32_t i = 0; i < 16; ++i) image.SetAt(i, static_cast<uint8_t>(0xA0 + i));
  KovIDVectorMap vectors;
  CKovIDVector listlets(7, 0), refused(8, 0), empty(9, 0);
  listlets.SetInstanceInfo(1, 0, 2);
  listlets.SetInstanceInfo(2, 2, 3);
  listlets.SetInstanceInfo(3, 5, 1);
  refused.SetInstanceInfo(1, 6, 10);  // the last byte of the image
  vectors.SetAt(7, &listlets);
  vectors.SetAt(8, &refused);
  vectors.SetAt(9, &empty);

  MessageBoxRecorder boxes;
  CKovBlkExport::SplitBlksInFile(vectors, &image, b.cp.get(), ImageFile().c_str());
  EXPECT_EQ(Files(),
            (std::map<std::string, Bytes>{
                {"Zones_1", {0xA0, 0xA1}}, {"Zones_2", {0xA2, 0xA3, 0xA4}}, {"Zones_3", {0xA5}}}));
  EXPECT_EQ(boxes.Texts(),
            (std::vector<std::string>{"Unable to save block 8 (name " + longName + "_1)."}));
}

TEST_F(BlkExport, DirectoryThatCannotBeMadeEndsTheExport) {
  MessageBoxRecorder boxes;
  const std::string imageFile = (root / "missing" / "radio.img").string();
  Pack(1, imageFile.c_str());
  EXPECT_EQ(boxes.Texts(),
            (std::vector<std::string>{std::generic_category().message(ENOENT),
                                      "Unable to create directory in which to store blocks."}));
  EXPECT_TRUE(fs::is_empty(root));
}

TEST_F(BlkExport, WriteOfAnInstanceKeepsToTheImageAndReportsAFailedWrite) {
  CKovImage image(4);
  image.SetAt(0, uint32_t{0x01020304}, uint8_t{4});
  MessageBoxRecorder boxes;
  EXPECT_EQ(BlkExportSteps::WriteBlkToFile((root / "beyond").c_str(), 1, 4, &image), 0);
  EXPECT_FALSE(fs::exists(root / "beyond"));
  if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full to fail a write";
  EXPECT_EQ(BlkExportSteps::WriteBlkToFile("/dev/full", 0, 3, &image), 0);
  EXPECT_EQ(boxes.Texts(), (std::vector<std::string>{"Error writing to file /dev/full.\nReason: " +
                                                     std::generic_category().message(ENOSPC)}));
}

}  // namespace
