// Random layouts from the fuzz input (kov/kovgen.h): a layout and values are drawn from the
// first bytes, packed and unpacked; the values must come back and no fields map may keep a freed
// field. Then the image is unpacked again with bytes changed as the rest of the input says and
// the checksums made right, so that the damage reaches the readers behind the checksum: that
// unpack must end in its result or the library's exception, with no crash or leak.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "kov/kovgen.h"
#include "kov/platform/mevgenexception.h"
#include "kov/platform/msgbox.h"

namespace {

int boxesShown = 0;

void countBox(const std::string&) { ++boxesShown; }

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "layout round trip: %s\n", what.c_str());
  std::abort();
}

// Reads every field the fields maps of a finished unpack hold, so that the address sanitizer sees
// a freed one, and stops on one that no entry owns.
void checkFieldsMaps(const CKovUp& up) {
  unsigned sum = 0;
  for (const auto& kv : up.GetUpBlksList()) {
    if (kv.second == nullptr) continue;
    for (const CKovUpBlkInstance* inst : *kv.second) {
      if (inst == nullptr) continue;
      for (const auto& placed : inst->GetUpFieldMap()) sum += placed.second->GetImageSize();
    }
  }
  (void)sum;
  std::string stray = kovGenStrayField(up);
  if (!stray.empty()) fail(stray);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kovSetMessageBoxHandler(countBox);
  boxesShown = 0;
  KovGenBytes source(data, size);
  KovGenCase c(source);
  try {
    c.b.cp->DoPostLayoutVerification();
  } catch (CMevGenException* e) {
    fail("verification refused a generated layout: " + e->GetMessage());
  }
  if (boxesShown != 0) fail("verification showed a message for a generated layout");
  Bytes image;
  try {
    image = packImage(c.b.cp.get(), c.data, 0, 8192);
  } catch (CMevGenException* e) {
    fail("the pack refused a generated case: " + e->GetMessage());
  }
  {
    CKovUp up(c.b.cp.get(), image, "");
    try {
      up.FullUnpack();
    } catch (CMevGenException* e) {
      fail("the unpack refused a packed image: " + e->GetMessage());
    }
    std::string diff = kovGenUnpackDiff(up, c.data);
    if (!diff.empty()) fail(diff);
    checkFieldsMaps(up);
  }
  // The rest of the input changes the image.
  size_t from = source.Used();
  if (image.empty() || from >= size) return 0;
  kovGenDamage(image, data, from, size);
  kovGenRecomputeChecksums(image);
  CKovUp damaged(c.b.cp.get(), image, "/dev/null");
  try {
    damaged.FullUnpack();
    checkFieldsMaps(damaged);
  } catch (CMevGenException* e) {
    delete e;
  }
  return 0;
}
