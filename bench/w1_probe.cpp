// One W1 operation, for profilers: `kov_w1_probe pack|unpack|copy B` builds what the operation
// needs (`pack-whole` and `unpack-whole` build, run and free it all inside the call), then runs it once inside w1ProbePack or w1ProbeUnpack, so that a profiler can collect
// just that call (valgrind --tool=callgrind --toggle-collect='w1ProbePack*').
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench/w1.h"
#include "bench/workloads.h"

// Outside any namespace and never inlined: the profiler finds them by these names.
__attribute__((noinline)) void w1ProbePack(const CKovCpLayout* layout, const w1::PackTree& tree,
                                           CKovImage* image) {
  CKovPk pk(&tree.blks, 0);
  uint32_t used = 0;
  pk.FillImage(layout, image, used, nullptr, 0, 0, 0);
}

// The unpack is freed by the caller, outside the call, as the benchmark frees it untimed.
__attribute__((noinline)) void w1ProbeUnpack(const CKovCpLayout* layout,
                                             const std::vector<uint8_t>& image, bool copy,
                                             std::unique_ptr<CKovUp>& up,
                                             std::vector<w1::Bank>& banks) {
  up = std::make_unique<CKovUp>(layout, image, "");
  up->FullUnpack();
  if (copy) w1::copyOut(*up, banks);
}

// What a user pays, as the whole-cost benchmarks time it: the pack tree built, packed and freed;
// the CKovUp made, unpacked and freed.
__attribute__((noinline)) void w1ProbePackWhole(const CKovCpLayout* layout,
                                                const std::vector<w1::Bank>& banks,
                                                std::vector<uint8_t>& image) {
  auto tree = w1::makePackTree(layout, banks);
  image = w1::kovPack(layout, *tree);
}
__attribute__((noinline)) void w1ProbeUnpackWhole(const CKovCpLayout* layout,
                                                  const std::vector<uint8_t>& image) {
  CKovUp up(layout, image, "");
  up.FullUnpack();
}

// The deferred workload of workloads.h, pack or unpack, with `instances` instances a block.
__attribute__((noinline)) void deferredProbePack(const KovBenchWorkload& w,
                                                 std::vector<uint8_t>& image) {
  image = kovBenchPack(w);
}
__attribute__((noinline)) void deferredProbeUnpack(const KovBenchWorkload& w,
                                                   const std::vector<uint8_t>& image,
                                                   std::unique_ptr<CKovUp>& up) {
  up = std::make_unique<CKovUp>(w.layout.get(), image, "");
  up->FullUnpack();
}

// The deferred workload's probe; the exit status.
int runDeferred(const std::string& mode, uint32_t n) {
  auto w = kovBenchDeferred(n);
  std::vector<uint8_t> image;
  std::unique_ptr<CKovUp> up;
  if (mode == "deferred-pack") {
    deferredProbePack(*w, image);
  } else {
    image = kovBenchPack(*w);
    deferredProbeUnpack(*w, image, up);
  }
  std::printf("kov_w1_probe: %s of N=%u done\n", mode.c_str(), n);
  return 0;
}

// W1's probes, each checked against the W1 image or values; the exit status.
int runW1(const std::string& mode, uint32_t b) {
  if (b < 1 || b > w1::kMaxInstances) {
    std::fprintf(stderr, "kov_w1_probe: B must be 1 to %u\n", w1::kMaxInstances);
    return 2;
  }
  auto layout = w1::makeLayout();
  std::vector<w1::Bank> banks = w1::makeBanks(b);
  std::vector<uint8_t> image;
  w1::handPack(banks, image);
  if (mode == "pack") {
    auto tree = w1::makePackTree(layout.get(), banks);
    CKovImage packed(b * w1::kInstanceSz);
    w1ProbePack(layout.get(), *tree, &packed);
    if (std::memcmp(packed.GetBytesArray(), image.data(), image.size()) != 0) {
      std::fprintf(stderr, "kov_w1_probe: the pack differs from the W1 image\n");
      return 1;
    }
  } else if (mode == "pack-whole") {
    std::vector<uint8_t> packed;
    w1ProbePackWhole(layout.get(), banks, packed);
    if (packed != image) {
      std::fprintf(stderr, "kov_w1_probe: the pack differs from the W1 image\n");
      return 1;
    }
  } else if (mode == "unpack-whole") {
    w1ProbeUnpackWhole(layout.get(), image);
  } else if (mode == "unpack" || mode == "copy") {
    std::vector<w1::Bank> read;
    std::unique_ptr<CKovUp> up;
    w1ProbeUnpack(layout.get(), image, mode == "copy", up, read);
    if (mode == "copy" && read != banks) {
      std::fprintf(stderr, "kov_w1_probe: the unpack differs from the W1 values\n");
      return 1;
    }
  } else {
    std::fprintf(stderr, "kov_w1_probe: unknown operation %s\n", mode.c_str());
    return 2;
  }
  std::printf("kov_w1_probe: %s of B=%u done\n", mode.c_str(), b);
  return 0;
}

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr,
                 "usage: kov_w1_probe pack|pack-whole|unpack|unpack-whole|copy|deferred-pack|"
                 "deferred-unpack B\n");
    return 2;
  }
  std::string mode = argv[1];
  uint32_t size = static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10));
  try {
    return mode == "deferred-pack" || mode == "deferred-unpack" ? runDeferred(mode, size)
                                                                : runW1(mode, size);
  } catch (CMevGenException* e) {
    std::fprintf(stderr, "kov_w1_probe: %s\n", e->GetMessage().c_str());
    delete e;
    return 1;
  }
}
