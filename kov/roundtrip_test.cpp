#include "examples/sample.h"
#include "kov/kovtest.h"
#include "kov/layout/charfieldlayout.h"
#include "kov/layout/namefieldlayout.h"
#include "kov/platform/strresource.h"

namespace {

TEST(RoundTrip, StringsNamesAndCharactersReadBackAsPacked) {
  LayoutBuilder b;
  CKovBlkLayout* blk = b.Block(1, "Mixed", 0x0041, 0, 1, 0, 12);
  blk->AddField(1, 0,
                new CKovStrFieldLayout(1, 0, 7, CKovCharFieldLayout::Char4Bit, 5, true, 0,
                                       blk->GetDataLayout()),
                0);
  blk->AddField(2, 1,
                new CKovCharFieldLayout(2, 0, 0, CKovCharFieldLayout::Char8Bit, false, 4,
                                        blk->GetDataLayout()),
                1);
  blk->AddField(3, 2,
                new CKovNameFieldLayout(3, 0, 32, 0, false, 0, blk->GetDataLayout(), 1), 2);
  blk->AddField(4, 3,
                new CKovStrFieldLayout(4, 0, 0, CKovCharFieldLayout::Char8Bit, 3, false, 3,
                                       blk->GetDataLayout()),
                3);
  PackData data;
  std::vector<CKovPkEntry*> entries;
  const char* digits[] = {"12345", "90210", "00000"};
  const char* words[] = {"abc", "x&y", "<>"};
  for (int i = 0; i < 3; ++i) {
    entries.push_back(entryOf({new CKovStrField(digits[i], 1, 20),
                               new CKovCharField(static_cast<uint16_t>('A' + i), 2, 8),
                               new CKovNameField(kovGetKovName(0x41, static_cast<uint16_t>(i)), 3,
                                                 32, 1),
                               new CKovStrField(words[i], 4, 24)}));
  }
  data.Add(blk, entries, {12, 12, 12});
  ExpectUnpacksToPackedValues(b.cp.get(), data, packImage(b.cp.get(), data));
}

TEST(RoundTrip, SampleCodeplugReadsBackAsPacked) {
  std::unique_ptr<CKovCpLayout> layout = kovSampleLayout();
  KovSamplePackData sample = kovSamplePackData(layout.get());
  PackData data;
  for (auto& blk : sample.blocks) {
    data.map.SetAt(blk->GetBlkID(), blk.get());
    data.blocks.push_back(std::move(blk));
  }
  ExpectUnpacksToPackedValues(layout.get(), data, packImage(layout.get(), data, 0, 4096));
  kovClearRegisteredStrings();
}

}  // namespace
