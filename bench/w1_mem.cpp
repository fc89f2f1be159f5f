// Peak heap of a W1 unpack: `kov_w1_mem [B]` (default 30000) counts every byte the program holds
// on the heap through its own operator new, and prints the most held at once while CKovUp is
// made and FullUnpack runs, above what was held before (the caller's image), against the image
// size. Sizes are what the allocator handed out (malloc_usable_size); its own bookkeeping of
// about 8 bytes a block is not counted. Also prints the process's peak resident size, which
// includes the program, the values the image was made from and that image.
#include <malloc.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <new>
#include <vector>

#include "bench/w1.h"

namespace {

size_t g_held = 0;
size_t g_peak = 0;

void* allocate(size_t size) {
  void* p = std::malloc(size == 0 ? 1 : size);
  if (p == nullptr) throw std::bad_alloc();
  g_held += malloc_usable_size(p);
  if (g_held > g_peak) g_peak = g_held;
  return p;
}

void release(void* p) {
  if (p == nullptr) return;
  g_held -= malloc_usable_size(p);
  std::free(p);
}

}  // namespace

void* operator new(size_t size) { return allocate(size); }
void* operator new[](size_t size) { return allocate(size); }
void operator delete(void* p) noexcept { release(p); }
void operator delete[](void* p) noexcept { release(p); }
void operator delete(void* p, size_t) noexcept { release(p); }
void operator delete[](void* p, size_t) noexcept { release(p); }

int main(int argc, char** argv) {
  uint32_t b = argc > 1 ? static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 10)) : 30000;
  if (b < 1 || b > w1::kMaxInstances) {
    std::fprintf(stderr, "kov_w1_mem: B must be 1 to %u\n", w1::kMaxInstances);
    return 2;
  }
  auto layout = w1::makeLayout();
  std::vector<uint8_t> image;
  {
    std::vector<w1::Bank> banks = w1::makeBanks(b);
    w1::handPack(banks, image);
  }
  size_t before = g_held;
  g_peak = g_held;
  size_t peak = 0;
  try {
    CKovUp up(layout.get(), image, "");
    up.FullUnpack();
    peak = g_peak - before;
  } catch (CMevGenException* e) {
    std::fprintf(stderr, "kov_w1_mem: %s\n", e->GetMessage().c_str());
    delete e;
    return 1;
  }
  struct rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  double ratio = static_cast<double>(peak) / static_cast<double>(image.size());
  std::printf(
      "W1 unpack peak heap at B=%u: %zu bytes for an image of %zu bytes = %.2f x the "
      "image (target <= 30 x)\n",
      b, peak, image.size(), ratio);
  std::printf("peak resident size of the whole process: %ld KiB\n", usage.ru_maxrss);
  return 0;
}
