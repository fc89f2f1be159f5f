// Feeds arbitrary bytes to the layout loader of kovtool: every input ends in a loaded layout or in
// a KovJsonError, never in a crash, a hang, a leak or another exception.
#include <cstddef>
#include <cstdint>
#include <string>

#include "kov/kov.h"
#include "kovjson/jsonlayout.h"

namespace {

// Verification advice goes to message boxes; the fuzzer has no one to show them to.
void ignoreMessageBox(const std::string&) {}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kovSetMessageBoxHandler(ignoreMessageBox);
  try {
    CKovJsonLayout::Load(std::string(reinterpret_cast<const char*>(data), size), "fuzz.json",
                         false);
  } catch (const KovJsonError&) {
    // The loader's answer to a bad file.
  }
  return 0;
}
