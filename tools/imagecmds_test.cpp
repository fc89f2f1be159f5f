// The image commands of kovtool as a user runs them: dump, get, set, diff and salvage on the
// sample radio, their golden outputs, exit statuses and failure texts.
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/tooltest.h"

namespace {

using Json = nlohmann::ordered_json;

// The text table is a golden file of kovtool_test.cpp; here its JSON form, read from "-".
TEST(Dump, JsonFormHoldsEveryValueWithItsPlace) {
  std::string image = packSample(scratch());
  ToolRun json = kovtool("dump --json " + q(kLayout) + " - <" + q(image));
  ASSERT_EQ(json.status, 0) << json.err;
  Json j = Json::parse(json.out);
  EXPECT_EQ(j["imageSize"], 422);
  EXPECT_EQ(j["headers"].size(), 13u);
  ASSERT_EQ(j["values"].size(), 93u);
  // General.Key lock floats behind Beep: byte 0x1F, MSB 2 (hand-read from the layout).
  Json keyLock;
  for (const Json& v : j["values"]) {
    if (v["path"] == "General.Key lock") keyLock = v;
  }
  EXPECT_EQ(keyLock.dump(), R"({"path":"General.Key lock","block":"General","instance":1,)"
                            R"("offset":31,"msb":2,"bitIndex":253,"bits":1,"raw":"0","value":0})");
}

TEST(GetSet, GetPrintsValuesAndSetRepacksWithQuantitiesAndChecksums) {
  std::string dir = scratch();
  std::string image = packSample(dir);
  struct Case {
    const char* args;
    int status;
    const char* out;  // standard output, or the error line
  } cases[] = {
      {"get L I 'General.Volume'", 0, "9\n"},
      {"get L I 'Device info.Model'", 0, "\"HT-2\"\n"},
      {"get L I 'Zone[2].Members[1].Bank'", 0,
       "{\n  \"block\": \"Channel bank\",\n  \"instance\": 2\n}\n"},
      {"get L I 'Channel bank[2].Channels[1].Mode'", 0,
       "{\n  \"Analog\": {\n    \"Rx frequency\": \"156.800\",\n    \"Power\": 3,\n    "
       "\"Wide\": 0,\n    \"Frequency trim\": 0\n  }\n}\n"},
      {"get L I 'Channel bank[1].Channels[1].Mode.Analog.Power'", 0, "\"High\"\n"},
      {"get L V 'Scan list.Hang time'", 0, "\"15.0\"\n"},
      {"get L I 'General.Volum'", 1, "kovtool: I: no value at 'General.Volum'\n"},
      {"set L I 'General.Volume=16' -o O", 2,
       "kovtool: I: /General/Volume: must be a whole number from 0 to 15, not 16\n"},
      {"set L I 'General.Volum=1' -o O", 2,
       "kovtool: General.Volum: block 'General' has no field 'Volum'\n"},
      {"set L I 'General.Scan count=1' -o O", 2,
       "kovtool: General.Scan count: 'Scan count' holds the quantity of list 'Scan members', "
       "which the list writes: add or remove entries instead\n"},
      {"set L I 'Zone[3].Zone scan=1' -o O", 2,
       "kovtool: Zone[3].Zone scan: block 'Zone' has 2 instances: give one of [1] to [2]\n"},
      {"set L I 'Zone[1].Members[5].Slot=1' -o O", 2,
       "kovtool: Zone[1].Members[5].Slot: list 'Members' has 3 entries: entry 5 is neither one "
       "of them nor the next\n"},
      {"set L I 'Channel bank[1].Channels[1].Mode.FM.Power=1' -o O", 2,
       "kovtool: Channel bank[1].Channels[1].Mode.FM.Power: union 'Mode' has no option 'FM'; it "
       "has 'Analog', 'Digital'\n"},
      {"set L I 'General.Volume' -o O", 2, "kovtool: 'General.Volume': give PATH=VALUE\n"},
      {"set L I 'General.Volume=10' 'Messages.Message list[3].Text=Late' "
       "'Channel bank[1].Channels[2].Kind=Analog' "
       "'Channel bank[1].Channels[2].Mode.Analog.Rx frequency=146.520' "
       "'Channel bank[1].Channels[2].Mode.Analog.Frequency trim=-2' "
       "'Zone[2].Zone options=[\"Priority\"]' -o O",
       0,
       "General.Volume: 9 -> 10\n"
       "Messages.Message list[3].Text: (none) -> \"Late\"\n"
       "Channel bank[1].Channels[2].Kind: Digital -> Analog\n"
       "Channel bank[1].Channels[2].Mode.Analog.Rx frequency: (none) -> 146.520\n"
       "Channel bank[1].Channels[2].Mode.Analog.Frequency trim: (none) -> -2\n"
       "Zone[2].Zone options: [] -> [\"Priority\"]\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args);
    std::string args = c.args;
    auto put = [&](const std::string& from, const std::string& to) {
      for (size_t at; (at = args.find(from)) != std::string::npos;)
        args.replace(at, from.size(), to);
    };
    put(" L ", " " + q(kLayout) + " ");
    put(" I ", " " + q(image) + " ");
    put(" V ", " " + q(kValues) + " ");
    put(" O", " " + q(dir + "out.kov"));
    fs::remove(dir + "out.kov");
    ToolRun run = kovtool(args);
    EXPECT_EQ(run.status, c.status) << run.err;
    std::string expected = c.out;
    for (size_t at; (at = expected.find("kovtool: I:")) != std::string::npos;) {
      expected.replace(at + 9, 1, image);
    }
    EXPECT_EQ(c.status == 0 ? run.out : run.err, expected);
    // A refused set leaves no output behind.
    EXPECT_EQ(fs::exists(dir + "out.kov"),
              std::string(c.args).rfind("set", 0) == 0 && c.status == 0);
  }
  // The changed image reads back whole: the list's quantity and the checksums follow.
  ToolRun text =
      kovtool("get " + q(kLayout) + " " + q(dir + "out.kov") + " 'Messages.Message list[3].Text'");
  EXPECT_EQ(text.out, "\"Late\"\n") << text.err;
  ToolRun inspect = kovtool("inspect " + q(dir + "out.kov"));
  EXPECT_EQ(inspect.status, 0) << inspect.out;
}

TEST(Diff, ReportsChangesAddedAndRemovedEntriesAndInstances) {
  std::string dir = scratch();
  std::string image = packSample(dir);
  Json values = Json::parse(readText(kValues));
  values["Zone"].erase(1);
  values["Messages"]["Message list"].erase(1);
  values["Channel bank"][0]["Channels"][0]["Channel name"] = "Call";
  values["Channel bank"][0]["Channels"][0]["Mode"]["Analog"]["Rx frequency"] = "146.520";
  values["Channel bank"][0]["Channels"][1]["Kind"] = "Analog";
  values["Channel bank"][0]["Channels"][1]["Mode"] = {{"Analog", {{"Rx frequency", "145.5"}}}};
  values["Rx groups"]["Rx group list"].push_back({{"Group talkgroup", 7}});
  values["General"]["Rx groups less one"] = 3;
  std::ofstream(dir + "b.json") << values.dump();
  std::ofstream(dir + "cut.kov") << "\x01\x01";

  std::string a = q(image), b = q(dir + "b.json");
  ToolRun run = kovtool("diff " + q(kLayout) + " " + a + " " + b);
  EXPECT_EQ(run.status, 1) << run.err;
  EXPECT_EQ(run.out,
            "General.Rx groups less one: 2 -> 3\n"
            "Channel bank[1].Channels[1].Channel name: \"Calling\" -> \"Call\"\n"
            "Channel bank[1].Channels[1].Mode.Analog.Rx frequency: 145.500 -> 146.520\n"
            "Channel bank[1].Channels[2].Kind: Digital -> Analog\n"
            "Channel bank[1].Channels[2].Mode: {\"Digital\":{\"Color code\":7,\"Time slot\":1,"
            "\"Talkgroup\":91}} -> {\"Analog\":{\"Rx frequency\":\"145.500\",\"Power\":\"Low\","
            "\"Wide\":0,\"Frequency trim\":0}}\n"
            "Zone[2]: only in " +
                image +
                " {\"Zone name\":\"Boat\",\"Zone options\":[],\"Members\":"
                "[{\"Bank\":{\"block\":\"Channel bank\",\"instance\":2},\"Slot\":1}]}\n"
                "Rx groups.Rx group list[4]: added {\"Group talkgroup\":7}\n"
                "Messages.Message list[2]: removed {\"Text\":\"Call me back\"}\n");

  ToolRun json = kovtool("diff --json " + q(kLayout) + " " + b + " " + a);
  EXPECT_EQ(json.status, 1) << json.err;
  Json j = Json::parse(json.out);
  EXPECT_EQ(j["same"], false);
  ASSERT_EQ(j["differences"].size(), 8u);
  EXPECT_EQ(j["differences"][2].dump(),
            R"({"path":"Channel bank[1].Channels[1].Mode.Analog.Rx frequency","change":"changed",)"
            R"("before":"146.520","after":"145.500"})");
  EXPECT_EQ(j["differences"][5].dump(),
            R"({"path":"Zone[2]","change":"added","after":{"Zone name":"Boat","Zone options":[],)"
            R"("Members":[{"Bank":{"block":"Channel bank","instance":2},"Slot":1}]}})");

  struct Case {
    std::string a, b;
    int status;
    std::string out, err;
  } cases[] = {
      {a, q(kValues), 0, "", ""},
      {a, a, 0, "", ""},
      {a, q(dir + "cut.kov"), 2, "",
       "kovtool: Block header at offset 0 is cut short: 2 bytes left where a header needs 6.\n"},
      {a, q(dir + "none.kov"), 2, "",
       "kovtool: " + dir + "none.kov: can't be read: No such file or directory\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.b);
    ToolRun r = kovtool("diff " + q(kLayout) + " " + c.a + " " + c.b);
    EXPECT_EQ(r.status, c.status);
    EXPECT_EQ(r.out, c.out);
    EXPECT_EQ(r.err, c.err);
  }
}

TEST(Salvage, WritesWhatCanBeReadListsFaultsAndExitsOneOnLoss) {
  std::string dir = scratch();
  std::string image = packSample(dir);
  ToolRun whole = kovtool("salvage " + q(kLayout) + " " + q(image) + " -o " + q(dir + "w.json"));
  EXPECT_EQ(whole.status, 0) << whole.err;
  EXPECT_EQ(whole.out, image + ": 13 block instances read, 0 found whole but lost, 0 faults\n");
  EXPECT_EQ(readText(dir + "w.json"), readText(kTestData + "/radio.values.json"));

  // A bit of Channel bank[1]'s data (0x32 + 6 + 8) and the KOV type of Zone[2] (0x9D).
  Bytes bad = readBytes(image);
  bad[0x40] ^= 1;
  bad[0x9D] = 0x44;
  writeBytes(dir + "bad.kov", bad);
  std::string b = dir + "bad.kov";
  ToolRun run = kovtool("salvage " + q(kLayout) + " " + q(b) + " -o -");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err,
            b +
                ": 0x000032: bad checksum: Channel bank[1]: checksum 0x535F, but the data gives "
                "0x346A\n" +
                b + ": 0x00009D: unknown KOV name: KOV name 0x44010001 is not one of the layout\n" +
                b + ": 11 block instances read, 1 found whole but lost, 2 faults\n");
  Json values = Json::parse(run.out);
  Json expected = Json::parse(readText(kTestData + "/radio.values.json"));
  // The lost instance keeps its place, so Channel bank[2] stays the second.
  expected["Channel bank"][0] = Json::object();
  expected["Zone"].erase(1);
  EXPECT_EQ(values.dump(1), expected.dump(1));

  // dump shows what can be read, every header with its checksum, and the faults; exit 1.
  ToolRun dump = kovtool("dump " + q(kLayout) + " " + q(b));
  EXPECT_EQ(dump.status, 1);
  EXPECT_EQ(dump.err, "kovtool: " + b +
                          ": damaged (Block Channel bank [1] has an invalid "
                          "checksum.): showing what can be read\n");
  EXPECT_NE(dump.out.find("0x000063         16  535F              checksum Channel bank[1]: BAD, "
                          "the data gives 0x346A\n"
                          "0x000065         48  030100010011      header Channel bank[2]"),
            std::string::npos)
      << dump.out;
  EXPECT_NE(dump.out.find("0x00006B  7       8  01                Channel bank[2].Channel "
                          "count = 1\n"),
            std::string::npos);

  // General in front of Device info: the values of a salvaged image, walked in layout order,
  // still stand in image order between their header and checksum.
  Bytes swapped(bad.begin() + 0x18, bad.begin() + 0x32);
  swapped.insert(swapped.end(), bad.begin(), bad.begin() + 0x18);
  swapped.insert(swapped.end(), bad.begin() + 0x32, bad.end());
  writeBytes(dir + "swapped.kov", swapped);
  dump = kovtool("dump " + q(kLayout) + " " + q(dir + "swapped.kov"));
  EXPECT_EQ(dump.status, 1);
  EXPECT_NE(dump.out.find("0x000000         48  020100010014      header General: KOV name "
                          "0x02010001, size 20\n"
                          "0x000006  7       4  9                 General.Volume = 9\n"),
            std::string::npos)
      << dump.out;
}

// The page itself is tested in a browser (tools/browser/view_test.cjs); here, what the tool
// writes: one file, nothing it would fetch, the data in place of the mark.
TEST(View, WritesOneSelfContainedFileWithTheWalkEmbedded) {
  std::string dir = scratch();
  std::string image = packSample(dir);
  ToolRun run = kovtool("view " + q(kLayout) + " " + q(image) + " -o " + q(dir + "v.html"));
  EXPECT_EQ(run.status, 0) << run.err;
  std::string html = readText(dir + "v.html");
  for (const char* absent :
       {"http:", "https:", "<script src", "<link", "/*KOV_DATA*/", "@import"}) {
    EXPECT_EQ(html.find(absent), std::string::npos) << absent;
  }
  size_t at = html.find("<script type=\"application/json\" id=\"kov-data\">");
  ASSERT_NE(at, std::string::npos);
  size_t from = html.find('>', at) + 1;
  Json d = Json::parse(html.substr(from, html.find("</script>", from) - from));
  EXPECT_EQ(d["file"], "radio.kov");
  EXPECT_EQ(d["hdrs"].size(), 13u);
  EXPECT_EQ(d["hdrs"][3].dump(), R"([101,17,769,1,61383,61383,"Channel bank[2]"])");
  // Each value's node: its step, from the table of steps, its place, width and readable text;
  // its parent a distance back, its header the third (Channel bank[1] at 0x32).
  bool found = false;
  for (size_t i = 0; i < d["nodes"].size(); ++i) {
    const Json& n = d["nodes"][i];
    if (d["steps"][n[2].get<size_t>()] != ".Rx frequency" || n[3] != 0x42 * 8) continue;
    EXPECT_EQ(n.dump(), R"([1,1,)" + n[2].dump() + R"(,528,16,2,"145.500",2])");
    EXPECT_EQ(d["steps"][d["nodes"][i - 1][2].get<size_t>()], ".Analog");
    found = true;
  }
  EXPECT_TRUE(found);
  EXPECT_EQ(d["image"].get<std::string>().substr(0, 8), "AQEAAQAS");  // 01 01 00 01 00 12
  EXPECT_EQ(d["damage"], "");

  // A value whose text holds "</script>" can't end the element early.
  Json values = Json::parse(readText(kValues));
  values["Messages"]["Message list"][0]["Text"] = "</script><b>";
  std::ofstream(dir + "tricky.json") << values.dump();
  run = kovtool("view " + q(kLayout) + " " + q(dir + "tricky.json") + " -o " + q(dir + "t.html"));
  EXPECT_EQ(run.status, 0) << run.err;
  html = readText(dir + "t.html");
  EXPECT_NE(html.find(R"(\"<\/script><b>\")"), std::string::npos);
}

// With partition prefixes every place moves behind the prefixes in front of it: the raw bits
// read at each reported place of the prefixed image are the value's, and the values and their
// order are those of the plain image.
TEST(Dump, PartitionPrefixesMoveEveryPlace) {
  std::string dir = scratch();
  std::string plain = packSample(dir), prefixed = dir + "p.kov";
  ToolRun pack =
      kovtool("pack --partition-prefix " + q(kLayout) + " " + q(kValues) + " -o " + q(prefixed));
  ASSERT_EQ(pack.status, 0) << pack.err;
  ToolRun a = kovtool("dump --json " + q(kLayout) + " " + q(plain));
  ToolRun b = kovtool("dump --json --partition-prefix " + q(kLayout) + " " + q(prefixed));
  ASSERT_EQ(b.status, 0) << b.err;
  Json ja = Json::parse(a.out), jb = Json::parse(b.out);
  Bytes bytes = readBytes(prefixed);
  ASSERT_EQ(ja["values"].size(), jb["values"].size());
  for (size_t i = 0; i < jb["values"].size(); ++i) {
    const Json& v = jb["values"][i];
    SCOPED_TRACE(v["path"].get<std::string>());
    EXPECT_EQ(v["path"], ja["values"][i]["path"]);
    EXPECT_EQ(v["value"], ja["values"][i]["value"]);
    uint64_t bit = v["bitIndex"], bits = v["bits"];
    std::string raw;
    unsigned digit = 0, taken = 0, lead = bits % 4 == 0 ? 4 : bits % 4;
    for (uint64_t k = bit; k < bit + bits; ++k) {
      digit = digit << 1 | ((bytes[k / 8] >> (7 - k % 8)) & 1u);
      if (++taken == (raw.empty() ? lead : 4)) {
        raw += "0123456789ABCDEF"[digit];
        digit = taken = 0;
      }
    }
    EXPECT_EQ(raw, v["raw"].get<std::string>());
  }
  EXPECT_EQ(jb["headers"][1]["partition"], 2);
  EXPECT_EQ(jb["headers"][1]["offset"], 0x1C);

  // A damaged one is salvaged with its prefixes: a data bit of Channel bank[1] (header 0x38).
  bytes[0x48] ^= 1;
  writeBytes(dir + "d.kov", bytes);
  ToolRun d = kovtool("dump --partition-prefix " + q(kLayout) + " " + q(dir + "d.kov"));
  EXPECT_EQ(d.status, 1);
  EXPECT_NE(d.out.find("0x000069         16  535F              checksum Channel bank[1]: BAD, "
                       "the data gives 0xDE83\n"
                       "0x00006B         16  0002              partition prefix: 2\n"),
            std::string::npos)
      << d.out;
}

}  // namespace
