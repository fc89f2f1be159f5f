#include "examples/sample.h"

#include <string>

namespace {

// Field ids double as string resource ids, which give the names.
enum : uint32_t {
  kPowerLevel = 1001,
  kMode = 1002,
  kRadioID = 1003,
  kAlias = 1004,
  kFreqStep = 2001,
  kChannelPower = 2002,
  kZoneRef = 2003,
  kZoneName = 3001,
};

CKovBlkLayout* addBlock(CKovCpLayout* cp, uint16_t blkID, const char* name, uint16_t type,
                        uint16_t id, int multi, int pad, uint16_t maxSize) {
  auto* blk = new CKovBlkLayout(blkID, KovBlkLayoutAttrib(type, id, multi, pad), name, 0,
                                new CKovDataLayout(static_cast<LayoutType>(1), 0, 7, 0, true),
                                maxSize, 0);
  blk->SetPartitionNum(1);
  cp->HasUniqueKovName(blk);
  cp->AddBlkLayout(blk);
  return blk;
}

void addNum(CKovBlkLayout* blk, uint32_t id, uint32_t prev, uint32_t byteOffset, uint8_t msb,
            uint32_t bits, int position, bool fixed = true, uint32_t gap = 0) {
  blk->AddField(id, prev,
                new CKovNumFieldLayout(id, byteOffset, bits, msb, fixed, gap, blk->GetDataLayout()),
                position);
}

void addStr(CKovBlkLayout* blk, uint32_t id, uint32_t prev, uint32_t byteOffset,
            CKovCharFieldLayout::CharType type, uint32_t chars, int position) {
  blk->AddField(id, prev,
                new CKovStrFieldLayout(id, byteOffset, 7, type, chars, true, 0, blk->GetDataLayout()),
                position);
}

CKovPkEntry* entry(int numFields) { return new CKovPkEntry(numFields); }

void put(CKovPkEntry* e, CKovField* value, int position) {
  e->AddPkField(value->GetFieldID(), new CKovPkField(value), position);
}

}  // namespace

std::unique_ptr<CKovCpLayout> kovSampleLayout() {
  kovRegisterString(kPowerLevel, "Power level");
  kovRegisterString(kMode, "Mode");
  kovRegisterString(kRadioID, "Radio id");
  kovRegisterString(kAlias, "Alias");
  kovRegisterString(kFreqStep, "Frequency step");
  kovRegisterString(kChannelPower, "Channel power");
  kovRegisterString(kZoneRef, "Zone");
  kovRegisterString(kZoneName, "Zone name");

  auto cp = std::make_unique<CKovCpLayout>(1, 1, 4096, 0);
  cp->AddPartition(1, ReadWrite);

  CKovBlkLayout* settings = addBlock(cp.get(), kSampleSettingsBlkID, "Settings", 0x0011, 2, 0, 0, 14);
  addNum(settings, kPowerLevel, 0, 0, 7, 12, 0);
  addNum(settings, kMode, kPowerLevel, 0, 0, 3, 1, false, 1);
  addStr(settings, kRadioID, kMode, 2, CKovCharFieldLayout::Char4Bit, 6, 2);
  addStr(settings, kAlias, kRadioID, 5, CKovCharFieldLayout::Char8Bit, 8, 3);

  CKovBlkLayout* channel = addBlock(cp.get(), kSampleChannelBlkID, "Channel", 0x0012, 0, 1, 0, 7);
  addNum(channel, kFreqStep, 0, 0, 7, 16, 0);
  addNum(channel, kChannelPower, kFreqStep, 2, 7, 5, 1);
  channel->AddField(kZoneRef, kChannelPower,
                    new CKovNameFieldLayout(kZoneRef, 3, 32, 7, true, 0, channel->GetDataLayout(),
                                            kSampleZoneBlkID),
                    2);

  CKovBlkLayout* zone = addBlock(cp.get(), kSampleZoneBlkID, "Zone", 0x0013, 0, 0, 1, 8);
  addStr(zone, kZoneName, 0, 0, CKovCharFieldLayout::Char8Bit, 4, 0);
  return cp;
}

KovSamplePackData kovSamplePackData(const CKovCpLayout* layout) {
  KovSamplePackData data;
  auto addPkBlk = [&](uint16_t blkID, CKovPkEntryList* list, std::vector<uint16_t> sizes) {
    data.blocks.emplace_back(new CKovPkStdBlk(layout->GetBlkLayout(blkID), list, sizes));
    data.pkBlks.SetAt(blkID, data.blocks.back().get());
  };

  auto* settings = new CKovPkEntryList();
  CKovPkEntry* s = entry(4);
  put(s, new CKovNumField(0xABC, kPowerLevel, 12), 0);
  put(s, new CKovNumField(5, kMode, 3), 1);
  put(s, new CKovStrField("240117", kRadioID, 24), 2);
  put(s, new CKovStrField("Base", kAlias, 64), 3);
  settings->AddTail(s);
  addPkBlk(kSampleSettingsBlkID, settings, {13});

  const uint32_t zoneName = kovGetKovName(0x0013, 0);
  auto* channels = new CKovPkEntryList();
  const uint16_t steps[] = {125, 250, 625};
  for (int i = 0; i < 3; ++i) {
    CKovPkEntry* c = entry(3);
    put(c, new CKovNumField(steps[i], kFreqStep, 16), 0);
    put(c, new CKovNumField(static_cast<uint32_t>(10 + i), kChannelPower, 5), 1);
    put(c, new CKovNameField(zoneName, kZoneRef, 32, 1), 2);
    channels->AddTail(c);
  }
  addPkBlk(kSampleChannelBlkID, channels, {7, 7, 7});

  auto* zone = new CKovPkEntryList();
  CKovPkEntry* z = entry(1);
  put(z, new CKovStrField("City", kZoneName, 32), 0);
  zone->AddTail(z);
  addPkBlk(kSampleZoneBlkID, zone, {8});
  return data;
}
