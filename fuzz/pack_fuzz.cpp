// Packs values the fuzzer chooses into the sample layout: every outcome must be an image that
// unpacks to the same values, or the library's exception.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/fuzzcommon.h"

namespace {

std::vector<uint32_t> numbers(FuzzedDataProvider& in, size_t maxCount, uint32_t maxValue) {
  std::vector<uint32_t> v(in.ConsumeIntegralInRange<size_t>(0, maxCount));
  for (uint32_t& x : v) x = in.ConsumeIntegralInRange<uint32_t>(0, maxValue);
  return v;
}

// Mostly values that fit, sometimes any 32-bit value.
uint32_t value(FuzzedDataProvider& in, uint32_t bits) {
  if (in.ConsumeIntegralInRange<int>(0, 15) == 0) return in.ConsumeIntegral<uint32_t>();
  return in.ConsumeIntegralInRange<uint32_t>(0, bits >= 32 ? UINT32_MAX : (1u << bits) - 1);
}

KovSampleValues valuesFrom(FuzzedDataProvider& in) {
  KovSampleValues v;
  v.powerLevel = value(in, 12);
  v.mode = in.ConsumeIntegralInRange<uint32_t>(0, 8);
  v.radioID = in.ConsumeRandomLengthString(8);
  v.alias = in.ConsumeRandomLengthString(10);
  v.scanType = in.ConsumeIntegralInRange<uint32_t>(0, 3);
  v.channelBlk.resize(in.ConsumeIntegralInRange<size_t>(0, 4));
  for (auto& ch : v.channelBlk) {
    ch = {value(in, 16), value(in, 5),
          in.ConsumeBool() ? kovGetKovName(0x0013, in.ConsumeIntegralInRange<uint16_t>(0, 2))
                           : in.ConsumeIntegral<uint32_t>(),
          in.ConsumeBool() ? 1 : 0};
  }
  v.hasZone = in.ConsumeBool();
  v.zoneName = in.ConsumeRandomLengthString(5);
  v.channels.resize(in.ConsumeIntegralInRange<size_t>(0, 17));
  for (auto& ch : v.channels) {
    ch = {in.ConsumeIntegralInRange<uint32_t>(0, 3), value(in, 16), value(in, 5), value(in, 24)};
  }
  for (uint32_t& p : v.priorities) p = value(in, 8);
  v.members = numbers(in, 9, 0xFFFF);
  v.bodyKind = in.ConsumeIntegralInRange<uint32_t>(0, 3);
  v.holdTime = value(in, 16);
  v.dwell = value(in, 8);
  v.resume = value(in, 8);
  // The calculated lists hold as many entries as the mode says.
  v.extras.assign(v.mode, in.ConsumeIntegral<uint8_t>());
  v.alternates.assign(v.mode, in.ConsumeIntegral<uint8_t>());
  v.split = numbers(in, 9, 0xFF);
  v.remoteA = value(in, 16);
  v.remoteB = value(in, 8);
  v.groups = numbers(in, 11, 0xFFFF);
  v.contacts.resize(in.ConsumeIntegralInRange<size_t>(0, 65));
  for (auto& c : v.contacts) c = {value(in, 24), value(in, 8), in.ConsumeRandomLengthString(7)};
  return v;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const CKovCpLayout* layout = fuzzSampleLayout();
  KovSamplePackData pkData = kovSamplePackData(layout, valuesFrom(in));
  CKovImage image(4096);
  CKovPk pk(&pkData.pkBlks, 0);
  uint32_t used = 0;
  try {
    pk.FillImage(layout, &image, used, nullptr, 0, 0, 0);
  } catch (CMevGenException* e) {
    delete e;
    return 0;
  }
  CKovUp up(layout, std::vector<uint8_t>(image.GetBytesArray(), image.GetBytesArray() + used), "");
  try {
    up.FullUnpack();
  } catch (CMevGenException* e) {
    fuzzMismatch("a packed image does not unpack: " + e->GetMessage());
  }
  for (const auto& blk : pkData.blocks) {
    const CKovUpStdBlk* read = up.GetUnpackedBlk(blk->GetBlkID());
    int count = blk->GetPackEntryList()->GetCount();
    if (count == 0) continue;
    if (read == nullptr || read->GetBlkInstanceQty() != count) {
      fuzzMismatch(blk->GetBlkName() + ": instances differ");
    }
    for (int i = 0; i < count; ++i) {
      fuzzCheckEntry(blk->GetPackEntryList()->GetAt(i), read->GetUpEntry(i + 1),
                     blk->GetBlkLayout()->GetDataLayout(), &pk,
                     blk->GetBlkName() + "[" + std::to_string(i + 1) + "]");
    }
  }
  return 0;
}
