#include "kov/platform/fhmevfilehandler.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace fs = std::filesystem;

namespace {

std::string readText(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Failed writes are reached through the block export (blkexport_test.cpp).
TEST(FileHandler, CreateCutsAFileAndPlainWriteKeepsItsBytes) {
  const fs::path path = fs::path(testing::TempDir()) / ("kov_fh_" + std::to_string(getpid()));
  std::ofstream(path) << "abcdef";
  const uint32_t create = CFhMevFileHandler::modeCreate | CFhMevFileHandler::modeWrite;

  CFhMevFile* file = CFhMevFileHandler::GetFile(path.c_str(), create);
  ASSERT_NE(file, nullptr);
  file->Write("xy", 2);
  CFhMevFileHandler::ReleaseFile(file, 0);
  EXPECT_EQ(readText(path), "xy");

  file = CFhMevFileHandler::GetFile(path.c_str(), CFhMevFileHandler::modeWrite);
  ASSERT_NE(file, nullptr);
  file->Seek(1);
  file->Write("Z", 1);
  CFhMevFileHandler::ReleaseFile(file, 0);
  EXPECT_EQ(readText(path), "xZ");

  fs::remove(path);
  EXPECT_EQ(CFhMevFileHandler::GetFile(path.c_str(), CFhMevFileHandler::modeWrite), nullptr);
  EXPECT_EQ(CFhMevFileHandler::GetFile(path.c_str(), CFhMevFileHandler::modeCreate), nullptr);
  EXPECT_FALSE(fs::exists(path));
}

}  // namespace
