#include "kov/report/xmldata.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "examples/sample.h"
#include "kov/fields/charfield.h"
#include "kov/fields/namefield.h"
#include "kov/fields/numfield.h"
#include "kov/fields/strfield.h"
#include "kov/kovtest.h"
#include "kov/layout/charfieldlayout.h"
#include "kov/layout/datalayout.h"
#include "kov/layout/namefieldlayout.h"
#include "kov/layout/numfieldlayout.h"
#include "kov/layout/strfieldlayout.h"
#include "kov/platform/strresource.h"

namespace {

const char kProlog[] =
    "<?xml version=\"1.0\"?>\n"
    "<!DOCTYPE CodeplugData [\n"
    "<!ELEMENT CodeplugData (Block+)>\n"
    "<!ELEMENT Block (BlockName, Listlet*, Field*, List*, Union*)>\n"
    "<!ELEMENT Field (Name, ByteOffset, BitOffset, Length, Value)>\n"
    "<!ELEMENT Name (#PCDATA)>\n"
    "<!ELEMENT ByteOffset (#PCDATA)>\n"
    "<!ELEMENT BitOffset (#PCDATA)>\n"
    "<!ELEMENT Length (#PCDATA)>\n"
    "<!ELEMENT Value (#PCDATA)>\n"
    "<!ELEMENT BlockName (#PCDATA)>\n"
    "<!ELEMENT List (LED*)>\n"
    "<!ELEMENT LED (Field*, Union*)>\n"
    "<!ELEMENT Union (Field*, List*)>\n"
    "<!ELEMENT ListLet (Union* | List*)>\n"
    "]>\n"
    "<CodeplugData>\n";

std::string joined(const CKovXmlData& xml) {
  std::string all;
  for (const std::string& line : xml.GetLines()) all += line;
  return all;
}

// The fields of the report example, with their layouts.
struct SettingsFields {
  SettingsFields() {
    kovRegisterString(1, "Volume");
    kovRegisterString(2, "Mode");
    kovRegisterString(3, "Owner");
    kovRegisterString(4, "Alias");
    kovRegisterString(5, "Zone");
  }
  ~SettingsFields() { kovClearRegisteredStrings(); }
  CKovDataLayout dl{static_cast<LayoutType>(1), 0, 7, 0, true};
  CKovNumFieldLayout volumeLayout{1, 0, 8, 7, true, 0, &dl};
  CKovCharFieldLayout modeLayout{2, 1, 7, CKovCharFieldLayout::Char8Bit, true, 0, &dl};
  CKovNameFieldLayout ownerLayout{3, 2, 32, 7, true, 0, &dl, 9};
  CKovStrFieldLayout aliasLayout{4, 6, 7, CKovCharFieldLayout::Char8Bit, 3, true, 0, &dl};
  CKovNumFieldLayout zoneLayout{5, 0, 8, 7, true, 0, &dl};
};

TEST(XmlReport, WorkedExampleByteExact) {
  SettingsFields f;
  CKovXmlData xml;
  CKovNumField volume(5, 1, 8);
  CKovCharField mode('A', 2, 8);
  CKovNameField owner(0x00100002, 3, 32, 0);
  CKovStrField alias("R&D", 4, 24);
  CKovNumField zone(3, 5, 8);
  xml.StartBlkInstance("Settings", 1);
  xml.AddPrimitiveField(&volume, &f.volumeLayout);
  xml.AddPrimitiveField(&mode, &f.modeLayout);
  xml.AddPrimitiveField(&owner, &f.ownerLayout);
  xml.AddPrimitiveField(&alias, &f.aliasLayout);
  xml.AddStartTagLine("<List>");
  xml.AddStartTagLine("<LED>");
  xml.AddPrimitiveField(&zone, &f.zoneLayout);
  xml.AddEndTagLine("</LED>");
  xml.AddEndTagLine("</List>");
  xml.AddEndTagLine("</Block>");
  xml.AddEndTagLine("</CodeplugData>");
  EXPECT_EQ(joined(xml), kProlog + kovTestWorkedReport);
}

TEST(XmlReport, EscapesOnlyAmpersandsAndFormatsZeroValues) {
  SettingsFields f;
  CKovXmlData xml;
  size_t prolog = xml.GetLines().size();
  CKovStrField alias("a&b&&c &amp; <x>", 4, 24);
  CKovNumField zero(0, 1, 8);
  CKovNameField noName(0, 3, 32, 0);
  xml.AddPrimitiveField(&alias, &f.aliasLayout);
  xml.AddPrimitiveField(&zero, &f.volumeLayout);
  xml.AddPrimitiveField(&noName, &f.ownerLayout);
  const auto& lines = xml.GetLines();
  EXPECT_EQ(lines[prolog + 5], "\t\t<Value> a&amp;b&amp;&amp;c &amp;amp; <x> </Value>\n");
  EXPECT_EQ(lines[prolog + 12], "\t\t<Value> 0x0 </Value>\n");
  EXPECT_EQ(lines[prolog + 19], "\t\t<Value> 0x00000000 </Value>\n");
}

TEST(XmlReport, EveryCharacterValueLeavesTheFileWellFormed) {
  // Codes XML 1.0 holds only as references, codes it can't hold at all, and the ASCII around.
  struct Case {
    uint16_t code;
    const char* value;
  } chars[] = {
      {0x00, "<Char code=\"0x0\"/>"},
      {0x01, "<Char code=\"0x1\"/>"},
      {0x09, "&#x9;"},
      {0x0A, "&#xA;"},
      {0x0D, "&#xD;"},
      {0x1F, "<Char code=\"0x1F\"/>"},
      {0x20, " "},
      {0x26, "&amp;"},
      {0x41, "A"},
      {0x7E, "~"},
      {0x7F, "&#x7F;"},
      {0xE9, "&#xE9;"},
      {0xFF, "&#xFF;"},
      {0x4E2D, "&#x4E2D;"},
      {0xD800, "<Char code=\"0xD800\"/>"},
      {0xFFFD, "&#xFFFD;"},
      {0xFFFE, "<Char code=\"0xFFFE\"/>"},
      {0xFFFF, "<Char code=\"0xFFFF\"/>"},
  };
  SettingsFields f;
  // A name that is not UTF-8 is written byte by byte; one that is goes through.
  kovRegisterString(2, "Mode\x01\xFF");
  kovRegisterString(4, "Alias \xC3\xA9");
  CKovXmlData xml;
  xml.StartBlkInstance("Chars", 1);
  const auto& lines = xml.GetLines();
  for (const Case& c : chars) {
    SCOPED_TRACE(c.code);
    CKovCharField field(c.code, 2, 8);
    xml.AddPrimitiveField(&field, &f.modeLayout);
    EXPECT_EQ(lines[lines.size() - 6], "\t\t\t<Name> Mode<Char code=\"0x1\"/>&#xFF; </Name>\n");
    EXPECT_EQ(lines[lines.size() - 2], std::string("\t\t\t<Value> ") + c.value + " </Value>\n");
  }
  CKovStrField text("\x01\xE9&", 4, 24);
  xml.AddPrimitiveField(&text, &f.aliasLayout);
  EXPECT_EQ(lines[lines.size() - 6], "\t\t\t<Name> Alias \xC3\xA9 </Name>\n");
  EXPECT_EQ(lines[lines.size() - 2], "\t\t\t<Value> <Char code=\"0x1\"/>&#xE9;&amp; </Value>\n");
  xml.AddEndTagLine("</Block>");
  xml.AddEndTagLine("</CodeplugData>");
  std::string path = testing::TempDir() + "kov_report_chars.xml";
  xml.CreateXmlFile(path);
  kovTestReadXmlReport(path);
}

TEST(XmlReport, EndTagAtDepthZeroStaysAtTheMargin) {
  CKovXmlData xml;
  xml.AddEndTagLine("</CodeplugData>");
  xml.AddEndTagLine("</Extra>");
  EXPECT_EQ(xml.GetLines().back(), "</Extra>\n");
}

TEST(XmlReport, WritesFileOnceAndPassesOverUnwritablePath) {
  std::string path = testing::TempDir() + "kov_report_test.xml";
  std::remove(path.c_str());
  CKovXmlData xml;
  xml.StartBlkInstance("Zone", 3);
  xml.AddEndTagLine("</Block>");
  xml.AddEndTagLine("</CodeplugData>");
  xml.CreateXmlFile(path);
  EXPECT_EQ(kovTestReadXmlReport(path),
            std::string(kProlog) +
                "\t<Block>\n\t\t<BlockName> Zone_3 </BlockName>\n\t</Block>\n"
                "</CodeplugData>\n");
  EXPECT_TRUE(xml.GetLines().empty());
  xml.CreateXmlFile(path);  // a second call empties the file
  EXPECT_EQ(kovTestReadFile(path), "");
  std::remove(path.c_str());

  CKovXmlData lost;
  lost.CreateXmlFile(testing::TempDir() + "no/such/directory/report.xml");
  EXPECT_TRUE(lost.GetLines().empty());
}

TEST(XmlReport, FailedWriteLeavesWhatStoodAtThePathAndSaysWhy) {
  // Write n fails, for n = 1, 2, ... until none does: each time the earlier file stays as it
  // was, no part file is left and a message box says why. 1000 fields take more than one write,
  // so a failure falls between two writes as well as on the first.
  SettingsFields f;
  const std::string path = testing::TempDir() + "kov_report_writefail.xml";
  const std::string enospc = std::generic_category().message(ENOSPC);
  CKovNumField volume(5, 1, 8);
  int n = 0;
  for (;; ++n) {
    SCOPED_TRACE(n + 1);
    std::ofstream(path) << "earlier report\n";
    CKovXmlData xml;
    xml.StartBlkInstance("Zone", 1);
    for (int i = 0; i < 1000; ++i) xml.AddPrimitiveField(&volume, &f.volumeLayout);
    xml.AddEndTagLine("</Block>");
    xml.AddEndTagLine("</CodeplugData>");
    MessageBoxRecorder boxes;
    FailingWrite failing(n);
    xml.CreateXmlFile(path);
    EXPECT_TRUE(xml.GetLines().empty());
    EXPECT_FALSE(std::ifstream(path + kovXmlPartSuffix).is_open());
    if (!failing.Failed()) {
      EXPECT_TRUE(boxes.Texts().empty());
      EXPECT_EQ(kovTestCount(kovTestReadXmlReport(path), "<Field>"), 1000u);
      break;
    }
    EXPECT_EQ(failing.FailedPath(), path + kovXmlPartSuffix);
    EXPECT_EQ(kovTestReadFile(path), "earlier report\n");
    EXPECT_EQ(boxes.Texts(),
              (std::vector<std::string>{"Error writing to file " + path + ".\nReason: " + enospc}));
  }
  std::printf("report: %d writes tried\n", n + 1);
  EXPECT_GE(n, 2);
  std::remove(path.c_str());
}

TEST(XmlReport, ReportThatCannotTakeThePlaceOfAFileLeavesIt) {
  // The rename into place fails on a directory: it stays, the part file goes, and a message
  // box says why.
  const std::string dir = testing::TempDir() + "kov_report_is_a_dir";
  std::filesystem::create_directory(dir);
  CKovXmlData xml;
  MessageBoxRecorder boxes;
  xml.CreateXmlFile(dir);
  EXPECT_TRUE(std::filesystem::is_directory(dir));
  EXPECT_FALSE(std::filesystem::exists(dir + kovXmlPartSuffix));
  EXPECT_EQ(boxes.Texts(),
            (std::vector<std::string>{"Error writing to file " + dir +
                                      ".\nReason: " + std::generic_category().message(EISDIR)}));
  std::filesystem::remove(dir);
}

TEST(XmlReport, UnpackWhoseReportCannotBeWrittenKeepsItsValues) {
  // The sample's report fails at its first write: the unpack succeeds, and no report stands.
  std::unique_ptr<CKovCpLayout> layout = kovSampleLayout();
  KovSamplePackData data = kovSamplePackData(layout.get());
  CKovImage packed(4096);
  CKovPk pk(&data.pkBlks, 0);
  uint32_t used = 0;
  pk.FillImage(layout.get(), &packed, used, nullptr, 0, 0, 0);
  Bytes image(packed.GetBytesArray(), packed.GetBytesArray() + used);
  const std::string path = testing::TempDir() + "kov_report_unpack_writefail.xml";
  std::remove(path.c_str());
  MessageBoxRecorder boxes;
  FailingWrite failing(0);
  CKovUp up(layout.get(), image, path);
  EXPECT_KOV_NO_THROW(up.FullUnpack());
  EXPECT_TRUE(failing.Failed());
  EXPECT_NE(up.GetUnpackedBlk(data.blocks.front()->GetBlkID()), nullptr);
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_FALSE(std::filesystem::exists(path + kovXmlPartSuffix));
  EXPECT_EQ(boxes.Texts().size(), 1u);
  kovClearRegisteredStrings();
}

}  // namespace
