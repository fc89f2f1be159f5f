// Exhausted memory at the allocations of the declarative layer's pack (values text to image bytes)
// and unpack (image bytes to values text) of the radio example, as kovtool does them. Each try
// ends in its result, the library's exception, the layer's error or std::bad_alloc; the
// sanitizer build, with leak checking, turns a leak or a second free on any road into a failure.
// The operator new here replaces the global one for this test program alone.
#include <execinfo.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "kov/kovtest.h"
#include "kovjson/imagecheck.h"
#include "kovjson/jsonlayout.h"
#include "kovjson/jsonread.h"
#include "kovjson/jsonvalues.h"

namespace {

using Json = nlohmann::ordered_json;

// Allocations left before the one that fails; below 0, none fails.
long long gAllocsLeft = -1;
bool gFailed = false;

// Allocations that must not fail here, each named by frames that its stack holds (all of one
// rule). Destructors are noexcept, so a failed allocation inside one ends the process whoever
// calls it: the JSON library's value destructor allocates a stack to free nested values. Such an
// allocation is let through and the next one fails instead. Frames are named through the
// program's exported symbols.
using Rule = std::vector<const char*>;
const Rule kJsonValueDestructor = {"json_value7destroy"};
std::vector<Rule> gSpared;

bool inSparedFrame() {
  void* frames[32];
  int n = backtrace(frames, 32);
  char** names = backtrace_symbols(frames, n);
  bool found = false;
  for (const Rule& rule : gSpared) {
    bool all = names != nullptr;
    for (const char* frame : rule) {
      bool here = false;
      for (int i = 0; all && i < n && !here; ++i) here = std::strstr(names[i], frame) != nullptr;
      all = all && here;
    }
    found = found || all;
  }
  std::free(names);
  return found;
}

void* allocate(std::size_t size) {
  if (gAllocsLeft == 0 && !inSparedFrame()) {
    gAllocsLeft = -1;
    gFailed = true;
    throw std::bad_alloc();
  }
  if (gAllocsLeft > 0) --gAllocsLeft;
  void* p = std::malloc(size == 0 ? 1 : size);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}

// Every allocation up to kEveryUpTo fails in its turn, then one in kStride: the radio's pack
// makes about 1500 allocations and its unpack 2000, and failing each of them in turn takes some
// 25 s in the sanitizer build; this way about 1600 runs take 6 s.
constexpr int kEveryUpTo = 500;
constexpr int kStride = 4;

// Runs attempt with allocation n failing, for the n above, until a run meets no failure; each
// failed run must end in one of the expected exceptions. Returns the number of runs.
template <typename Attempt>
int failAllocations(Attempt attempt) {
  int runs = 0;
  for (int n = 0;; n += n < kEveryUpTo ? 1 : kStride) {
    ++runs;
    gFailed = false;
    gAllocsLeft = n;
    std::string foreign;
    try {
      attempt();
    } catch (CMevGenException* e) {
      gAllocsLeft = -1;
      delete e;
    } catch (const KovJsonError&) {
    } catch (const KovJsonImageError&) {
    } catch (const std::bad_alloc&) {
    } catch (const std::exception& e) {
      gAllocsLeft = -1;
      foreign = e.what();
    }
    gAllocsLeft = -1;
    EXPECT_EQ(foreign, "") << "allocation " << n;
    if (!gFailed) {
      std::printf("%d runs, the last at allocation %d\n", runs, n);
      return runs;
    }
    if (testing::Test::HasFailure()) return runs;
  }
}

struct Radio {
  Radio()
      : layout(CKovJsonLayout::LoadFile(std::string(KOV_RADIO_DIR) + "/layout.json", false)),
        valuesText(kovJsonReadFile(std::string(KOV_RADIO_DIR) + "/values.json")),
        image(kovJsonPackImage(
            *layout, *kovJsonPackData(*layout, kovJsonParse(valuesText, "v"), "v"), false, "")) {}
  std::unique_ptr<CKovJsonLayout> layout;
  std::string valuesText;
  Bytes image;
};

void packAndUnpackTheRadio() {
  Radio radio;
  MessageBoxRecorder boxes;
  Bytes packed;
  {
    SCOPED_TRACE("pack");
    failAllocations([&] {
      packed.clear();
      Json values = kovJsonParse(radio.valuesText, "values.json");
      packed = kovJsonPackImage(*radio.layout,
                                *kovJsonPackData(*radio.layout, values, "values.json"), false, "");
    });
    EXPECT_EQ(packed, radio.image);
  }
  std::string text;
  {
    SCOPED_TRACE("unpack");
    failAllocations([&] {
      text.clear();
      text = kovJsonUnpackFile(*radio.layout, radio.image, false, "radio.kov", "", true).dump(2);
    });
    EXPECT_EQ(kovJsonParse(text, "back"), kovJsonParse(radio.valuesText, "values.json"));
  }
}

TEST(AllocationFailure, JsonPackAndUnpackOfTheRadioFailCleanly) {
  gSpared = {kJsonValueDestructor};
  packAndUnpackTheRadio();
  gSpared.clear();
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
