// Test helpers of the kovtool suites: the sample's paths, files read and written whole, and
// kovtool run as a user runs it. Used by tools/*_test.cpp only.
#ifndef KOV_TOOLS_TOOLTEST_H
#define KOV_TOOLS_TOOLTEST_H

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "kov/image/checksum.h"

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

inline const std::string kSample = KOVTOOL_SAMPLE_DIR;
inline const std::string kLayout = kSample + "/layout.json";
inline const std::string kValues = kSample + "/values.json";
inline const std::string kTestData = KOVTOOL_TESTDATA;

inline std::string readText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

inline Bytes readBytes(const std::string& path) {
  std::string s = readText(path);
  return Bytes(s.begin(), s.end());
}

inline void writeBytes(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

// path quoted for the shell.
inline std::string q(const std::string& path) { return "'" + path + "'"; }

// The running test's own name, suite and test, for the files it makes.
inline std::string testFileStem() {
  const testing::TestInfo* info = testing::UnitTest::GetInstance()->current_test_info();
  return testing::TempDir() + "kovtool_" + info->test_suite_name() + "_" + info->name();
}

// A folder of the test's own, made empty; its path ends in '/'.
inline std::string scratch() {
  std::string dir = testFileStem();
  fs::remove_all(dir);
  fs::create_directories(dir);
  return dir + "/";
}

struct ToolRun {
  int status;
  std::string out;
  std::string err;
};

// Runs kovtool with args (quoted by the caller) and gathers its exit status and both streams.
inline ToolRun kovtool(const std::string& args) {
  std::string base = testFileStem() + "_run";
  std::string command =
      std::string(KOVTOOL_PATH) + " " + args + " >" + q(base + ".out") + " 2>" + q(base + ".err");
  int raw = std::system(command.c_str());
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, readText(base + ".out"), readText(base + ".err")};
}

// The sample packed into dir/radio.kov; returns that path.
inline std::string packSample(const std::string& dir) {
  ToolRun run = kovtool("pack " + q(kLayout) + " " + q(kValues) + " -o " + q(dir + "radio.kov"));
  EXPECT_EQ(run.status, 0) << run.err;
  return dir + "radio.kov";
}

// Recomputes the checksum of the instance whose header is at offset.
inline void fixChecksum(Bytes& image, size_t offset) {
  size_t dataSize = (image[offset + 4] << 8 | image[offset + 5]) - 2u;
  uint16_t crc = 0;
  kovCalculateChecksum(image.data() + offset + 6, dataSize, crc);
  image[offset + 6 + dataSize] = static_cast<uint8_t>(crc >> 8);
  image[offset + 7 + dataSize] = static_cast<uint8_t>(crc);
}

#endif  // KOV_TOOLS_TOOLTEST_H
