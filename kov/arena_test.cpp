// The arena of an unpack: what it hands out, which allocations it takes, and that results made
// in it read back the same however other unpacks come and go beside them.
#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kov/kovgen.h"
#include "kov/kovtest.h"
#include "kov/platform/arena.h"

namespace {

TEST(Arena, HandsOutAlignedRunsThatDoNotOverlapAndReleasesThemAll) {
  CKovArena arena;
  // Sizes around the chunk steps: small runs, one that fills past the first 4 KiB chunk, and
  // runs above a quarter of a chunk, which take chunks of their own.
  const std::vector<size_t> sizes = {1, 7, 8, 9, 24, 4000, 1, 1100, 70000, 16, 300000, 5};
  std::vector<std::pair<uintptr_t, size_t>> runs;
  size_t asked = 0;
  for (size_t size : sizes) {
    SCOPED_TRACE(size);
    auto* p = static_cast<unsigned char*>(arena.Allocate(size));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 8, 0u);
    for (size_t i = 0; i < size; ++i) p[i] = static_cast<unsigned char>(size);
    runs.emplace_back(reinterpret_cast<uintptr_t>(p), size);
    asked += (size + 7) / 8 * 8;
  }
  // Every run kept what was written into it: none overlaps another.
  for (const auto& run : runs) {
    const auto* p = reinterpret_cast<const unsigned char*>(run.first);
    for (size_t i = 0; i < run.second; ++i) ASSERT_EQ(p[i], static_cast<unsigned char>(run.second));
  }
  EXPECT_EQ(arena.GetBytesUsed(), asked);
  EXPECT_GE(arena.GetBytesHeld(), asked);
  // The two large runs are held alone; the small ones share chunks of at most 256 KiB.
  EXPECT_LT(arena.GetBytesHeld(), asked + 2 * 256 * 1024);
  arena.Release();
  EXPECT_EQ(arena.GetBytesUsed(), 0u);
  EXPECT_EQ(arena.GetBytesHeld(), 0u);
  // Usable again after a release.
  EXPECT_NE(arena.Allocate(32), nullptr);
}

TEST(Arena, KeepsReleasedLargestChunksForTheNextArenaUpToItsTrim) {
  kovArenaTrimCache();
  EXPECT_EQ(kovArenaCachedBytes(), 0u);
  {
    CKovArena arena;
    // Runs until the arena has grown chunks of the largest size, 256 KiB.
    while (arena.GetBytesHeld() < 4 * 256 * 1024) arena.Allocate(64 * 1024);
  }
#if defined(KOV_ARENA_ASAN)
  EXPECT_EQ(kovArenaCachedBytes(), 0u);
#else
  const size_t kept = kovArenaCachedBytes();
  ASSERT_GE(kept, 2u * 256 * 1024);
  EXPECT_EQ(kept % (256 * 1024), 0u);
  // A second arena grown as far takes the kept chunks before asking the heap.
  {
    CKovArena arena;
    while (arena.GetBytesHeld() < 4 * 256 * 1024) arena.Allocate(64 * 1024);
    EXPECT_LT(kovArenaCachedBytes(), kept);
  }
  EXPECT_EQ(kovArenaCachedBytes(), kept);
#endif
  kovArenaTrimCache();
  EXPECT_EQ(kovArenaCachedBytes(), 0u);
}

TEST(Arena, ThreadsTakingKeptChunksNeverShareOne) {
  // Two threads each fill arenas past several 256 KiB chunks with their own byte, check every
  // byte, and release them to the kept chunks for the other to take: a chunk handed to two arenas
  // at once shows as a byte of the other thread's.
  auto work = [](unsigned char mark, bool& clean) {
    for (int round = 0; round < 20 && clean; ++round) {
      CKovArena arena;
      std::vector<unsigned char*> runs;
      while (arena.GetBytesHeld() < 6 * 256 * 1024) {
        auto* p = static_cast<unsigned char*>(arena.Allocate(48 * 1024));
        std::fill(p, p + 48 * 1024, mark);
        runs.push_back(p);
      }
      for (unsigned char* p : runs) {
        if (std::count(p, p + 48 * 1024, mark) != 48 * 1024) clean = false;
      }
    }
  };
  bool clean1 = true;
  bool clean2 = true;
  std::thread first(work, 0x5A, std::ref(clean1));
  std::thread second(work, 0xA5, std::ref(clean2));
  first.join();
  second.join();
  EXPECT_TRUE(clean1);
  EXPECT_TRUE(clean2);
}

TEST(Arena, ScopesChooseWhereResultObjectsAndArenaMapsLive) {
  CKovArena arena;
  std::unique_ptr<CKovNumField> outside(new CKovNumField(1, 1, 8));
  EXPECT_EQ(arena.GetBytesUsed(), 0u);
  {
    KovArenaScope scope(&arena);
    EXPECT_EQ(kovCurrentArena(), &arena);
    // A result object and an arena map made in the scope take the arena's memory; a delete
    // inside the scope frees nothing (the leak check of the sanitizer build sees no heap block).
    auto* inside = new CKovNumField(2, 2, 8);
    const size_t afterField = arena.GetBytesUsed();
    EXPECT_GE(afterField, sizeof(CKovNumField));
    KovUpFieldMap map;
    map.UseCurrentArena();
    for (uint32_t key = 0; key < 100; ++key) map.SetAt(key, nullptr);  // into the large form
    EXPECT_GT(arena.GetBytesUsed(), afterField);
    delete inside;
    {
      // The application's code runs with no scope: what it makes is on the heap.
      KovArenaPause pause;
      EXPECT_EQ(kovCurrentArena(), nullptr);
      const size_t before = arena.GetBytesUsed();
      std::unique_ptr<CKovNumField> own(new CKovNumField(3, 3, 8));
      KovUpFieldMap plain;
      plain.UseCurrentArena();
      plain.SetAt(1, nullptr);
      EXPECT_EQ(arena.GetBytesUsed(), before);
    }
    EXPECT_EQ(kovCurrentArena(), &arena);
  }
  EXPECT_EQ(kovCurrentArena(), nullptr);
  // The object made before the scope is still the heap's to free.
  outside.reset();
}

// Unpacks of generated layouts that stand beside one another: the results of the first read back
// the same after later unpacks, one of them failing on a damaged image, were made and freed.
TEST(Arena, ResultsReadBackAfterOtherUnpacksAreFreed) {
  for (uint32_t seed = 1; seed <= 300; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    KovGenRandom source(seed);
    KovGenCase c(source);
    Bytes image;
    EXPECT_KOV_NO_THROW(image = packImage(c.b.cp.get(), c.data, 0, 8192));
    auto kept = std::make_unique<CKovUp>(c.b.cp.get(), image, "");
    EXPECT_KOV_NO_THROW(kept->FullUnpack());
    {
      CKovUp again(c.b.cp.get(), image, "");
      EXPECT_KOV_NO_THROW(again.FullUnpack());
      Bytes damaged = image;
      if (damaged.size() > 8) damaged[damaged.size() - 1] ^= 0x5A;
      CKovUp failing(c.b.cp.get(), damaged, "");
      try {
        failing.FullUnpack();
      } catch (CMevGenException* e) {
        delete e;
      }
    }
    std::thread other([&] {
      CKovUp elsewhere(c.b.cp.get(), image, "");
      elsewhere.FullUnpack();
    });
    other.join();
    EXPECT_EQ(kovGenUnpackDiff(*kept, c.data), "");
    EXPECT_EQ(kovGenStrayField(*kept), "");
    if (testing::Test::HasFailure()) break;
  }
}

}  // namespace
