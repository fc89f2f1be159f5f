// kovtool as a user runs it: golden outputs of the sample, round trips through files, and the
// exit status and text of every kind of failure.
#include <string>
#include <vector>

#include "tools/tooltest.h"

namespace {

// Every command answers --help; a command line it can't take exits 2 saying why.
TEST(Kovtool, HelpVersionAndBadCommandLines) {
  for (const char* command : {"", "pack ", "unpack ", "inspect ", "verify ", "lint ", "tree ",
                              "demo ", "dump ", "view ", "get ", "set ", "diff ", "salvage "}) {
    SCOPED_TRACE(command);
    ToolRun run = kovtool(std::string(command) + "--help");
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.out.find("Usage:"), std::string::npos) << run.out;
  }
  ToolRun version = kovtool("--version");
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out.rfind("kovtool ", 0), 0u) << version.out;
  struct Case {
    const char* args;
    const char* error;
  } cases[] = {
      {"", "A subcommand is required"},
      {"pack a.json b.json", "--output is required"},
      {"unpack a.json", "IMAGE is required"},
      {"inspect x.kov --colour", "The following argument was not expected: --colour"},
      {"frob x",
       "kovtool: 'frob' is not a command; the commands are pack, unpack, inspect, "
       "verify, lint, tree, demo, dump, get, set, diff, salvage, view (see kovtool --help)\n"},
      {"dump", "LAYOUT is required"},
      {"view", "LAYOUT is required"},
      {"get", "LAYOUT is required"},
      {"set", "LAYOUT is required"},
      {"diff", "LAYOUT is required"},
      {"salvage", "LAYOUT is required"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args);
    ToolRun run = kovtool(c.args);
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find(c.error), std::string::npos) << run.err;
  }
}

TEST(Kovtool, SampleOutputsMatchTheirGoldenFiles) {
  std::string dir = scratch();
  std::string image = q(packSample(dir));
  struct Case {
    std::string args;
    const char* golden;
  } cases[] = {
      {"inspect " + image + " --layout " + q(kLayout), "radio.headers.txt"},
      {"tree " + q(kLayout), "radio.tree.txt"},
      {"tree --detail " + q(kLayout), "radio.tree-detail.txt"},
      {"unpack " + q(kLayout) + " " + image + " --report " + q(dir + "radio.xml"),
       "radio.values.json"},
      {"dump " + q(kLayout) + " " + image, "radio.dump.txt"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args);
    ToolRun run = kovtool(c.args);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, readText(kTestData + "/" + c.golden));
  }
  EXPECT_EQ(readText(dir + "radio.xml"), readText(kTestData + "/radio.xml"));
}

TEST(Kovtool, UnpackedSamplePacksToTheSameBytes) {
  for (bool prefixes : {false, true}) {
    SCOPED_TRACE(prefixes ? "with partition prefixes" : "plain");
    std::string dir = scratch();
    std::string flag = prefixes ? " --partition-prefix" : "";
    ToolRun pack =
        kovtool("pack " + q(kLayout) + " " + q(kValues) + " -o " + q(dir + "a.kov") + flag);
    ASSERT_EQ(pack.status, 0) << pack.err;
    EXPECT_EQ(pack.out,
              dir + "a.kov: " + std::to_string(readBytes(dir + "a.kov").size()) + " bytes\n");
    ToolRun unpack = kovtool("unpack " + q(kLayout) + " " + q(dir + "a.kov") + " -o " +
                             q(dir + "a.json") + flag);
    ASSERT_EQ(unpack.status, 0) << unpack.err;
    EXPECT_EQ(readText(dir + "a.json"), readText(kTestData + "/radio.values.json"));
    ASSERT_EQ(
        kovtool("pack " + q(kLayout) + " " + q(dir + "a.json") + " -o " + q(dir + "b.kov") + flag)
            .status,
        0);
    EXPECT_EQ(readBytes(dir + "b.kov"), readBytes(dir + "a.kov"));
    // 13 instances of 2 bytes of prefix each.
    EXPECT_EQ(readBytes(dir + "a.kov").size(), prefixes ? 422u + 26u : 422u);
  }
  // "-" is standard input or output, on either side of a pipe.
  std::string dir = scratch();
  const std::string tool = KOVTOOL_PATH;
  std::string script = tool + " pack " + q(kLayout) + " - -o - <" + q(kValues) + " | " + tool +
                       " unpack " + q(kLayout) + " - >" + q(dir + "v.json");
  ASSERT_EQ(std::system(("sh -c " + q(script)).c_str()), 0);
  EXPECT_EQ(readText(dir + "v.json"), readText(kTestData + "/radio.values.json"));
}

TEST(Kovtool, ExportBlocksWritesOneFilePerInstance) {
  // --export-blocks, or saveToSeparateFiles in the layout: either exports.
  std::string dir = scratch();
  std::string layout = readText(kLayout);
  std::ofstream(dir + "save.json")
      << layout.replace(layout.find("\"maxImageSize\""), 0, "\"saveToSeparateFiles\": true, ");
  for (const std::string& way : {q(kLayout) + " " + q(kValues) + " --export-blocks",
                                 q(dir + "save.json") + " " + q(kValues)}) {
    SCOPED_TRACE(way);
    fs::remove_all(dir + "r - Blocks");
    ToolRun run = kovtool("pack " + way + " -o " + q(dir + "r.kov"));
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find(dir + "r - Blocks: one file a block instance"), std::string::npos)
        << run.out;
    size_t files = 0, bytes = 0;
    for (const auto& entry : fs::directory_iterator(dir + "r - Blocks")) {
      ++files;
      bytes += fs::file_size(entry.path());
    }
    EXPECT_EQ(files, 13u);
    EXPECT_EQ(bytes, readBytes(dir + "r.kov").size());
    EXPECT_EQ(readBytes(dir + "r - Blocks/General_1").size(), 26u);
  }
}

TEST(Kovtool, DemoWritesEverythingAndSaysWhere) {
  std::string dir = scratch();
  ToolRun run = kovtool("demo --out " + q(dir + "out"));
  ASSERT_EQ(run.status, 0) << run.err;
  for (const char* name : {"radio.kov", "radio.inspect.txt", "radio.values.json", "radio.xml",
                           "radio.tree.txt", "radio - Blocks/Contacts_3"}) {
    SCOPED_TRACE(name);
    EXPECT_TRUE(fs::exists(dir + "out/" + name));
    if (std::string(name).find('/') == std::string::npos) {
      EXPECT_NE(run.out.find(dir + "out/" + name), std::string::npos) << run.out;
    }
  }
  EXPECT_NE(run.out.find("round trip: the unpacked values pack to the same bytes"),
            std::string::npos);
  EXPECT_EQ(readText(dir + "out/radio.inspect.txt"), readText(kTestData + "/radio.headers.txt"));
  EXPECT_EQ(readBytes(dir + "out/radio.kov"), readBytes(packSample(dir)));
  // Another layout names the outputs; its values pack to the 105 bytes of the format example.
  ToolRun other = kovtool("demo --out " + q(dir + "o2") + " --layout " +
                          q(kTestData + "/format-example.layout.json") + " --values " +
                          q(kTestData + "/format-example.values.json"));
  ASSERT_EQ(other.status, 0) << other.err;
  EXPECT_EQ(fs::file_size(dir + "o2/format-example.layout.kov"), 105u);
  EXPECT_TRUE(fs::exists(dir + "o2/format-example.layout.values.json"));
  EXPECT_NE(other.out.find("(5 blocks in 1 partition)"), std::string::npos) << other.out;
  EXPECT_NE(other.out.find("round trip: the unpacked values pack to the same bytes"),
            std::string::npos);
}

// Each run's exit status and both streams, whole: bad input exits 2 with one line naming the
// file and place, a refusal of the library exits 1, findings and notes keep their words.
TEST(Kovtool, EachRunSaysWhatItFoundAndExitsAsDocumented) {
  std::string dir = scratch();
  std::string bad = kTestData + "/bad-layout.json";
  std::string image = packSample(dir);
  fs::create_directories(dir + "folder");
  std::ofstream(dir + "e - Blocks") << "";
  std::ofstream(dir + "two.json") << R"({"General": [{"Volume": 1}, {"Volume": 2}]})";
  std::ofstream(dir + "dup.json") << R"({"General": {"Volume": 1, "Squelch": 2, "Volume": 3}})";
  std::ofstream(dir + "o.json") << R"({"partitions": [{"number": 1, "blocks": [{"name": "B",
      "kovType": 16, "maxDataSize": 2, "fields": [
        {"name": "N", "type": "number", "bits": 8, "byteOffset": 0},
        {"name": "M", "type": "number", "bits": 4, "byteOffset": 0, "msbStart": 3}]}]}]})";
  std::string layout = readText(kLayout);
  std::ofstream(dir + "small.json")
      << layout.replace(layout.find("\"maxImageSize\": 8192"), 20, "\"maxImageSize\": 64");
  // Without General the rule gives 0 × 1 + 1 = 1 entry, which packs; the image has no General
  // to read that quantity from again.
  std::ofstream(dir + "rx.json") << R"({"Rx groups": {"Rx group list": [{"Group talkgroup": 1}]}})";
  ASSERT_EQ(
      kovtool("pack " + q(kLayout) + " " + q(dir + "rx.json") + " -o " + q(dir + "rx.kov")).status,
      0);
  // One instance of 0x0011/2 holding 0xABC, then 3 bytes of a header.
  writeBytes(dir + "short.kov",
             {0x00, 0x11, 0x00, 0x02, 0x00, 0x04, 0xAB, 0xC0, 0x18, 0xC8, 0x00, 0x12, 0x00});
  const std::string overlap =
      dir + "o.json: /partitions/0/blocks/0/fields/1: fields 'N' and 'M' overlap at bits 4 to 7";
  const std::string packTo = " -o " + q(dir + "x.kov");
  struct Case {
    std::string args;
    int status;
    std::string out, err;
  } cases[] = {
      {"verify " + q(bad), 2, "",
       bad + ": /partitions/0/blocks/0/fields/1/bits: must be a whole number from 1 to 32, not 33"},
      {"tree " + q(dir + "none.json"), 2, "",
       dir + "none.json: can't be read: No such file or directory"},
      {"pack " + q(kLayout) + " " + q(kTestData + "/bad-values.json") + packTo, 2, "",
       kTestData +
           "/bad-values.json: /Zone/1/Members/0/Bank/instance: multi-instance block 'Channel "
           "bank' has 2 instances in this file"},
      {"unpack " + q(kLayout) + " " + q(dir + "none.kov"), 2, "",
       dir + "none.kov: can't be read: No such file or directory"},
      {"verify " + q(kTestData + "/unverifiable-layout.json"), 2, "",
       kTestData + "/unverifiable-layout.json: /partitions/0/blocks/0/fields/0: the layout fails "
                   "verification: Field 'Q' must immediately precede field 'L' (see block B)"},
      // Folders as inputs, on each side of a command.
      {"inspect " + q(dir + "folder"), 2, "", dir + "folder: can't be read: it is a folder"},
      {"unpack " + q(dir + "folder") + " " + q(image), 2, "",
       dir + "folder: can't be read: it is a folder"},
      {"pack " + q(kLayout) + " " + q(dir + "folder") + packTo, 2, "",
       dir + "folder: can't be read: it is a folder"},
      // Two instances of a single-instance block would pack one KOV name twice.
      {"pack " + q(kLayout) + " " + q(dir + "two.json") + packTo, 2, "",
       dir + "two.json: /General: block 'General' is not multi-instance: give one instance, not 2"},
      {"pack " + q(kLayout) + " " + q(dir + "dup.json") + packTo, 2, "",
       dir + "dup.json: /General/Volume: member 'Volume' is given twice"},
      {"unpack " + q(kLayout) + " " + q(image) + " --report /no/such/dir/r.xml", 2, "",
       "/no/such/dir/r.xml: can't be written: no folder /no/such/dir"},
      {"pack " + q(kLayout) + " " + q(kValues) + " -o " + q(dir + "none/x.kov"), 2, "",
       dir + "none/x.kov: can't be written: no folder " + dir + "none"},
      // A file where the export's folder goes.
      {"pack " + q(kLayout) + " " + q(kValues) + " -o " + q(dir + "e.kov") + " --export-blocks", 1,
       "", dir + "e - Blocks: can't be made: File exists"},
      {"pack " + q(dir + "small.json") + " " + q(kValues) + packTo, 1, "",
       kValues + ": Block Channel bank [1] is too large to fit in the image. Image size: 64, blk "
                 "Start: 50, blk Size 51."},
      {"unpack " + q(kLayout) + " " + q(dir + "rx.kov"), 1, "",
       dir + "rx.kov: offset 0x000000: List 'Rx group list' in block 'Rx groups' [1] takes its "
             "quantity from block 'General' [1], which the image does not hold before it."},
      // lint fails on a mistake that verify only warns about.
      {"lint " + q(dir + "o.json"), 1,
       overlap + "\nBits that no field claims:\n  B: bits 8 to 15 (byte 1)\n" + dir +
           "o.json: 1 mistake\n",
       ""},
      {"verify " + q(dir + "o.json"), 0, dir + "o.json: verified: 1 partition, 1 block, 2 fields\n",
       "warning: " + overlap},
      {"verify " + q(kLayout), 0, kLayout + ": verified: 2 partitions, 9 blocks, 43 fields\n", ""},
      {"verify " + q(kTestData + "/over-max.layout.json"), 0,
       kTestData + "/over-max.layout.json: verified: 1 partition, 2 blocks, 4 fields\n", ""},
      {"inspect " + q(dir + "short.kov"), 1,
       "offset   KOV type  KOV id  size   data  checksum\n"
       "0x000000 0x0011    0x0002  4      2     good 0x18C8\n"
       "0x00000A header cut short: 3 bytes left where a header needs 6\n"
       "1 block instance in 13 bytes; the walk ends early\n",
       ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args);
    ToolRun run = kovtool(c.args);
    EXPECT_EQ(run.status, c.status);
    EXPECT_EQ(run.out, c.out);
    EXPECT_EQ(run.err, c.err.empty() ? "" : "kovtool: " + c.err + "\n");
    EXPECT_FALSE(fs::exists(dir + "x.kov"));
  }
  // The library's advice goes to standard error as a note, in the layout's names.
  ToolRun advice = kovtool("verify " + q(kTestData + "/advice-layout.json"));
  EXPECT_EQ(advice.status, 0);
  EXPECT_EQ(advice.err, "note: " + kTestData +
                            "/advice-layout.json: WARNING: KOV Name field 'Owner' in block B "
                            "references block 99 but no layout for that block exists.\n");
  ToolRun sample = kovtool("lint " + q(kLayout));
  EXPECT_EQ(sample.status, 0);
  EXPECT_NE(sample.out.find("  General: bit 12 (byte 1), bits 14 to 15 (byte 1), "),
            std::string::npos)
      << sample.out;
}

TEST(Kovtool, FailedWritesLeaveTheOldFile) {
  std::string dir = scratch();
  const Bytes image = readBytes(packSample(dir));
  std::ofstream(dir + "old.json") << "old";
  const std::string tool = KOVTOOL_PATH;
  struct Case {
    std::string script;
    std::string error;
  } cases[] = {
      // RLIMIT_FSIZE: the write fails part-way.
      {"ulimit -f 0; " + tool + " pack " + q(kLayout) + " " + q(kValues) + " -o " +
           q(dir + "radio.kov"),
       dir + "radio.kov: can't be written: File too large"},
      {"ulimit -f 0; " + tool + " unpack " + q(kLayout) + " " + q(dir + "radio.kov") + " -o " +
           q(dir + "old.json"),
       dir + "old.json: can't be written: File too large"},
      {tool + " tree " + q(kLayout) + " >/dev/full",
       "standard output: can't be written: No space left on device"},
      {tool + " unpack " + q(kLayout) + " " + q(dir + "radio.kov") + " >/dev/full",
       "standard output: can't be written: No space left on device"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.script);
    std::string out = dir + "run.txt";
    int raw = std::system(("(" + c.script + "; echo \"exit $?\") 2>&1 | cat >" + q(out)).c_str());
    ASSERT_TRUE(WIFEXITED(raw));
    EXPECT_EQ(readText(out), "kovtool: " + c.error + "\nexit 1\n");
    EXPECT_EQ(readBytes(dir + "radio.kov"), image);
    EXPECT_EQ(readText(dir + "old.json"), "old");
    size_t files = 0;
    for (const auto& entry : fs::directory_iterator(dir)) files += entry.is_regular_file();
    EXPECT_EQ(files, 3u) << "a temporary file is left behind";
  }
}

// A damaged image, or one that breaks its layout, exits 1 naming the file and the offset. What
// only breaks the layout the strict unpack refuses and --lenient reads; inspect, which reads
// headers alone, names the place in its table.
TEST(Kovtool, DamagedImagesExitOneNamingFileAndOffset) {
  std::string dir = scratch();
  const Bytes image = readBytes(packSample(dir));
  // General [1] starts at 0x18, Channel bank [1] at 0x32: its first channel's Kind at data byte 1.
  Bytes badCrc = image;
  badCrc[0x18 + 6] ^= 0x01;
  Bytes cut(image.begin(), image.begin() + 0x30);
  Bytes unknown = image;
  unknown[0x18] = 0x7E;
  Bytes kind3 = image;
  kind3[0x32 + 7] = 3;
  fixChecksum(kind3, 0x32);
  // General [1] (0x18, 26 bytes) once more behind itself: one KOV name twice.
  Bytes twice(image.begin(), image.begin() + 0x32);
  twice.insert(twice.end(), image.begin() + 0x18, image.end());
  // A quantity of 3 for a list of at most 2: the library reads the third entry from the
  // checksum. A: 00 10 00 00 00 05, N = 3, entries 07 08, checksum; B: 00 11 00 00 00 03, 09.
  Bytes over = {0x00, 0x10, 0x00, 0x00, 0x00, 0x05, 0x03, 0x07, 0x08, 0x00,
                0x00, 0x00, 0x11, 0x00, 0x00, 0x00, 0x03, 0x09, 0x91, 0x29};
  fixChecksum(over, 0);
  // A byte that no field holds: the padding of Device info behind its last field.
  Bytes spare = image;
  spare[6 + 15] = 0x5A;
  fixChecksum(spare, 0);
  // Zone [1] (0x7C) numbered 5 instead of 0; General [1] (0x18) with a zero byte more of data.
  Bytes renumbered = image;
  renumbered[0x7C + 3] = 5;
  Bytes longer = image;
  longer.insert(longer.begin() + 0x18 + 6 + 18, 0x00);
  longer[0x18 + 5] = 21;
  fixChecksum(longer, 0x18);
  const std::string overLayout = kTestData + "/over-max.layout.json";
  // The format example's E list in one listlet of 2 (listletMax 2) behind its header D (20
  // bytes), then a third entry put into that listlet: size 10 -> 11, quantity 2 -> 3.
  const std::string example = kTestData + "/format-example.layout.json";
  std::ofstream(dir + "e.json") << R"({"E": {"L": [{"v": 161}, {"v": 162}]}})";
  ASSERT_EQ(
      kovtool("pack " + q(example) + " " + q(dir + "e.json") + " -o " + q(dir + "e.kov")).status,
      0);
  Bytes listlet = readBytes(dir + "e.kov");
  ASSERT_EQ(listlet.size(), 20u + 16u);
  listlet.insert(listlet.begin() + 20 + 6 + 8, 0xA3);
  listlet[20 + 5] = 11;
  listlet[20 + 6 + 5] = 3;
  fixChecksum(listlet, 20);
  const char* const kNoInspect = nullptr;
  struct Case {
    const char* what;
    std::string layout;
    Bytes bytes;
    std::string error;
    bool strict;          // only the strict unpack refuses it
    const char* inspect;  // a line of inspect's table, which then exits 1; "": inspect exits 0
  } cases[] = {
      {"bad checksum", kLayout, badCrc,
       "offset 0x000018: block 'General' [1] has checksum 0xEB5C, but its data gives 0x1B6D", false,
       "0x000018 0x0201    0x0001  20     18    BAD  0xEB5C  General [1] (data gives 0x1B6D)\n"},
      // Cut inside an instance: told as such, not as a wrong checksum.
      {"cut short", kLayout, cut,
       "offset 0x000018: KOV name 0x02010001 of size 20 runs 2 bytes past the end of the image",
       false, "0x000018 KOV name 0x02010001 of size 20 runs 2 bytes past the end of the image\n"},
      {"unknown KOV name", kLayout, unknown,
       "offset 0x000018: KOV name 0x7E010001 belongs to no block of " + kLayout, false,
       "0x000018 0x7E01    0x0001  20     18    good 0xEB5C  (no block of the layout has this KOV "
       "name)\n"},
      {"no option for a discriminant", kLayout, kind3,
       "offset 0x000032: Union 'Mode' in block 'Channel bank' [1]: no option for discriminant "
       "value(s) 3.",
       false, ""},
      {"KOV name twice", kLayout, twice,
       "offset 0x000032: KOV name 0x02010001 of block 'General' is given twice (first at offset "
       "0x000018)",
       true, "0x000032 KOV name 0x02010001 of block 'General' is given twice"},
      {"list above its maximum", overLayout, over,
       "offset 0x000000: block 'A' [1] breaks its layout: /A/L: 3 entries, but list 'L' holds "
       "at most 2",
       true, kNoInspect},
      {"listlet above its listletMax", example, listlet,
       "offset 0x000014: block 'E', listlet 0 holds 3 entries, above the listletMax of 2", true,
       kNoInspect},
      {"instances not numbered from 0", kLayout, renumbered,
       "offset 0x00007C: block 'Zone' [1]: the image breaks its layout: its header has KOV id "
       "0x0005 and size 27, its values give KOV id 0x0000 and size 27",
       true, kNoInspect},
      {"data behind the last value", kLayout, longer,
       "offset 0x000018: block 'General' [1]: the image breaks its layout: its header has KOV id "
       "0x0001 and size 21, its values give KOV id 0x0001 and size 20",
       true, kNoInspect},
      {"bits no field holds", kLayout, spare,
       "offset 0x000015: block 'Device info' [1] (at offset 0x000000): the image breaks its "
       "layout: the image holds 0x5A where its values pack to 0x00",
       true, kNoInspect},
  };
  const std::string bad = q(dir + "bad.kov");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    writeBytes(dir + "bad.kov", c.bytes);
    ToolRun unpack = kovtool("unpack " + q(c.layout) + " " + bad);
    EXPECT_EQ(unpack.status, 1);
    EXPECT_EQ(unpack.err, "kovtool: " + dir + "bad.kov: " + c.error +
                              (c.strict ? " (--lenient reads it as it stands)" : "") + "\n");
    EXPECT_EQ(unpack.out, "");
    if (c.strict) {
      ToolRun lenient = kovtool("unpack " + q(c.layout) + " " + bad + " --lenient");
      EXPECT_EQ(lenient.status, 0) << lenient.err;
    }
    if (c.inspect == kNoInspect) continue;
    ToolRun inspect = kovtool("inspect " + bad + " --layout " + q(c.layout));
    EXPECT_EQ(inspect.status, *c.inspect == '\0' ? 0 : 1);
    EXPECT_NE(inspect.out.find(c.inspect), std::string::npos) << inspect.out;
  }
}

}  // namespace
