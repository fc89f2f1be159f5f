// The image commands of kovtool as a user runs them: dump, get, set, diff and salvage on the
// sample radio, their golden outputs, exit statuses and failure texts.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "kov/image/checksum.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;
using Json = nlohmann::ordered_json;

const std::string kSample = KOVTOOL_SAMPLE_DIR;
const std::string kLayout = kSample + "/layout.json";
const std::string kValues = kSample + "/values.json";
const std::string kTestData = KOVTOOL_TESTDATA;

std::string readText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

std::string q(const std::string& path) { return "'" + path + "'"; }

struct ToolRun {
  int status;
  std::string out;
  std::string err;
};

// A folder of the test's own, made empty.
std::string scratch() {
  std::string dir = testing::TempDir() + "imagecmds_" +
                    testing::UnitTest::GetInstance()->current_test_info()->name();
  fs::remove_all(dir);
  fs::create_directories(dir);
  return dir + "/";
}

ToolRun kovtool(const std::string& args) {
  std::string base = testing::TempDir() + "imagecmds_run_" +
                     testing::UnitTest::GetInstance()->current_test_info()->name();
  std::string command =
      std::string(KOVTOOL_PATH) + " " + args + " >" + q(base + ".out") + " 2>" + q(base + ".err");
  int raw = std::system(command.c_str());
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, readText(base + ".out"), readText(base + ".err")};
}

// The sample packed into dir/radio.kov; returns its path.
std::string packSample(const std::string& dir) {
  ToolRun run = kovtool("pack " + q(kLayout) + " " + q(kValues) + " -o " + q(dir + "radio.kov"));
  EXPECT_EQ(run.status, 0) << run.err;
  return dir + "radio.kov";
}

TEST(Dump, SampleMatchesItsGoldenTableAndJsonAgrees) {
  std::string image = packSample(scratch());
  ToolRun text = kovtool("dump " + q(kLayout) + " " + q(image));
  EXPECT_EQ(text.status, 0) << text.err;
  EXPECT_EQ(text.out, readText(kTestData + "/radio.dump.txt"));
  ToolRun json = kovtool("dump --json " + q(kLayout) + " - <" + q(image));
  ASSERT_EQ(json.status, 0) << json.err;
  Json j = Json::parse(json.out);
  EXPECT_EQ(j["imageSize"], 422);
  EXPECT_EQ(j["headers"].size(), 13u);
  ASSERT_EQ(j["values"].size(), 91u);
  // General.Key lock floats behind Beep: byte 0x1F, MSB 2 (hand-read from the layout).
  Json keyLock;
  for (const Json& v : j["values"]) {
    if (v["path"] == "General.Key lock") keyLock = v;
  }
  EXPECT_EQ(keyLock.dump(), R"({"path":"General.Key lock","block":"General","instance":1,)"
                            R"("offset":31,"msb":2,"bitIndex":253,"bits":1,"raw":"0","value":0})");
}

}  // namespace
