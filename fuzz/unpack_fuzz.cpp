// Unpacks arbitrary bytes against the sample layout: every input must end in a good unpack or
// the library's exception, with no crash, leak, hang or unbounded allocation.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz/fuzzcommon.h"

#ifndef KOV_FUZZ_REPORT_PATH
#define KOV_FUZZ_REPORT_PATH ""
#endif

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const CKovCpLayout* layout = fuzzSampleLayout();
  CKovUp up(layout, std::vector<uint8_t>(data, data + size), KOV_FUZZ_REPORT_PATH);
  try {
    up.FullUnpack();
  } catch (CMevGenException* e) {
    delete e;
  }
  return 0;
}
