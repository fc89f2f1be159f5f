// Writes seed inputs for the fuzz targets into the directories given: images packed from the
// sample (for the unpack targets) and byte strings of a few shapes (for the pack target).
#include <cstdio>
#include <string>
#include <vector>

#include "fuzz/fuzzcommon.h"

namespace {

void writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
  if (std::FILE* f = std::fopen(path.c_str(), "wb")) {
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
  }
}

std::vector<uint8_t> packSample(const KovSampleValues& values) {
  const CKovCpLayout* layout = fuzzSampleLayout();
  KovSamplePackData data = kovSamplePackData(layout, values);
  CKovImage image(4096);
  CKovPk pk(&data.pkBlks, 0);
  uint32_t used = 0;
  pk.FillImage(layout, &image, used, nullptr, 0, 0, 0);
  return std::vector<uint8_t>(image.GetBytesArray(), image.GetBytesArray() + used);
}

}  // namespace

// Usage: kov_make_seeds UNPACK_DIR PACK_DIR
int main(int argc, char** argv) {
  if (argc < 3) return 2;
  try {
    KovSampleValues values;
    writeFile(std::string(argv[1]) + "/sample", packSample(values));
    values.contacts.resize(1);
    values.channels.clear();
    values.bodyKind = 1;
    values.scanType = 2;
    writeFile(std::string(argv[1]) + "/small", packSample(values));
    values.contacts.clear();
    values.members.clear();
    writeFile(std::string(argv[1]) + "/empty_lists", packSample(values));
  } catch (CMevGenException* e) {
    std::fprintf(stderr, "%s\n", e->GetMessage().c_str());
    delete e;
    return 1;
  }
  for (int i = 0; i < 8; ++i) {
    std::vector<uint8_t> bytes(64 + 97 * static_cast<size_t>(i));
    for (size_t k = 0; k < bytes.size(); ++k) bytes[k] = static_cast<uint8_t>((k * 37 + i) ^ (k >> 3));
    writeFile(std::string(argv[2]) + "/shape" + std::to_string(i), bytes);
  }
  return 0;
}
