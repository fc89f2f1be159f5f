// Exhausted memory at every allocation of a pack and an unpack of the sample codeplug: each try
// ends in its result, the library's exception or std::bad_alloc, in the documented state (a
// pack's used size 0, an unpack spent), and frees what it made. The sanitizer build, with leak
// checking, turns a leak or a second free on any of these roads into a failure. The operator new
// here also counts the bytes allocated, for the tests that bound an unpack by its image.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <new>
#include <string>

#include "examples/sample.h"
#include "kov/kovtest.h"
#include "kov/platform/strresource.h"
#include "kov/report/xmldata.h"

namespace {

// Allocations left before the one that fails; below 0, none fails. Atomic, as other tests of
// this program allocate from several threads; the failing runs allocate from one.
std::atomic<long long> gAllocsLeft{-1};
std::atomic<bool> gFailed{false};
std::atomic<long long> gBytesAllocated{0};

void* allocate(std::size_t size) {
  gBytesAllocated.fetch_add(static_cast<long long>(size), std::memory_order_relaxed);
  if (gAllocsLeft.load(std::memory_order_relaxed) >= 0 && gAllocsLeft.fetch_sub(1) == 0) {
    gFailed = true;
    throw std::bad_alloc();
  }
  void* p = std::malloc(size == 0 ? 1 : size);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}

enum Outcome { kDone, kKovException, kBadAlloc };

// Runs attempt with allocation n failing, for n = 0, 1, ... until a run meets no failure; check
// sees each failed run's outcome. Returns the number of allocations tried.
template <typename Attempt, typename Check>
int failEachAllocation(Attempt attempt, Check check) {
  for (int n = 0;; ++n) {
    gFailed = false;
    gAllocsLeft = n;
    Outcome outcome = kDone;
    try {
      attempt();
    } catch (CMevGenException* e) {
      gAllocsLeft = -1;
      delete e;
      outcome = kKovException;
    } catch (const std::bad_alloc&) {
      outcome = kBadAlloc;
    }
    gAllocsLeft = -1;
    if (!gFailed) {
      EXPECT_EQ(outcome, kDone) << "allocation " << n;
      return n;
    }
    check(n, outcome);
    if (testing::Test::HasFailure()) return n;
  }
}

struct Sample {
  Sample() : layout(kovSampleLayout()), data(kovSamplePackData(layout.get())) {
    CKovImage image(4096);
    CKovPk pk(&data.pkBlks, 0);
    uint32_t used = 0;
    pk.FillImage(layout.get(), &image, used, nullptr, 0, 0, 0);
    bytes.assign(image.GetBytesArray(), image.GetBytesArray() + used);
  }
  ~Sample() { kovClearRegisteredStrings(); }
  std::unique_ptr<CKovCpLayout> layout;
  KovSamplePackData data;
  Bytes bytes;
};

TEST(AllocationFailure, PackOfTheSampleFailsCleanlyAtEveryAllocation) {
  Sample s;
  uint32_t used = 0;
  bool filling = false;
  int tried = failEachAllocation(
      [&] {
        filling = false;
        CKovImage image(4096);
        CKovPk pk(&s.data.pkBlks, 0);
        used = 7;
        filling = true;
        pk.FillImage(s.layout.get(), &image, used, nullptr, 0, 0, 0);
      },
      [&](int n, Outcome) {
        // After a failure of FillImage the used size is 0.
        if (filling) {
          EXPECT_EQ(used, 0u) << "allocation " << n;
        }
      });
  std::printf("pack: %d allocations tried\n", tried);
  EXPECT_GT(tried, 10);
  EXPECT_EQ(used, s.bytes.size());
}

TEST(AllocationFailure, UnpackOfTheSampleFailsCleanlyAtEveryAllocation) {
  Sample s;
  for (bool report : {false, true}) {
    SCOPED_TRACE(report ? "with a report" : "without a report");
    std::string path = report ? testing::TempDir() + "kov_allocfail.xml" : "";
    std::unique_ptr<CKovUp> up;
    int tried = failEachAllocation(
        [&] {
          up.reset();
          up = std::make_unique<CKovUp>(s.layout.get(), s.bytes, path);
          up->FullUnpack();
        },
        [&](int n, Outcome) {
          // The report is whole or not there: no part file stays behind.
          if (report) {
            EXPECT_FALSE(std::ifstream(path + kovXmlPartSuffix).is_open()) << "allocation " << n;
          }
          // A failed FullUnpack leaves the object spent; a failed constructor leaves none.
          if (up) {
            EXPECT_EQ(up->GetImage(), nullptr) << "allocation " << n;
            EXPECT_TRUE(up->GetUpBlksMap().IsEmpty()) << "allocation " << n;
          }
        });
    std::printf("unpack%s: %d allocations tried\n", report ? " with report" : "", tried);
    EXPECT_GT(tried, 50);
    ASSERT_NE(up, nullptr);
    EXPECT_NE(up->GetUnpackedBlk(s.data.blocks.front()->GetBlkID()), nullptr);
    up.reset();
    if (report) kovTestReadXmlReport(path);
  }
}

}  // namespace

long long kovTestBytesAllocated() { return gBytesAllocated; }

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
