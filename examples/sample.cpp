#include "examples/sample.h"

#include <array>
#include <list>
#include <string>
#include <vector>

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
  kChannelQty = 4001,
  kChannelList = 4002,
  kChannelKind = 4003,
  kChannelBody = 4004,
  kAnalogStep = 4005,
  kAnalogPower = 4006,
  kColorCode = 4007,
  kTimeSlot = 4008,
  kTalkgroup = 4009,
  kContactList = 6001,
  kContactID = 6002,
  kCallType = 6003,
  kContactName = 6004,
};

// The kinds of channel, which are also the ids of the union's options.
enum : uint32_t { kAnalog = 1, kDigital = 2 };

// The union of a channel entry takes the option its kind names.
uint32_t selectChannelKind(const CKovUp*, uint32_t, uint16_t, const CKovBlkLayout*,
                           const std::list<const KovDiscrInfo*>& discrs) {
  if (discrs.empty() || !discrs.front()->discrField->IsNumber()) return kAnalog;
  return static_cast<const CKovNumField*>(discrs.front()->discrField)->GetValue();
}

// A data layout of fixed numbers (id, byte offset, MSB, bits), inside the complex field ownerID.
CKovDataLayout* numberLayout(uint32_t ownerID, LayoutType type,
                             std::vector<std::array<uint32_t, 4>> fields) {
  auto* dl = new CKovDataLayout(type, 0, 7, ownerID, false);
  uint32_t prev = 0;
  int position = 0;
  for (const auto& f : fields) {
    dl->AddField(f[0], prev,
                 new CKovNumFieldLayout(f[0], f[1], f[3], static_cast<uint8_t>(f[2]), true, 0, dl),
                 position++);
    prev = f[0];
  }
  return dl;
}

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
  kovRegisterString(kChannelQty, "Channel count");
  kovRegisterString(kChannelList, "Channel list");
  kovRegisterString(kChannelKind, "Kind");
  kovRegisterString(kChannelBody, "Channel");
  kovRegisterString(kAnalogStep, "Step");
  kovRegisterString(kAnalogPower, "Power");
  kovRegisterString(kColorCode, "Color code");
  kovRegisterString(kTimeSlot, "Time slot");
  kovRegisterString(kTalkgroup, "Talkgroup");
  kovRegisterString(kContactList, "Contact list");
  kovRegisterString(kContactID, "Contact id");
  kovRegisterString(kCallType, "Call type");
  kovRegisterString(kContactName, "Name");

  auto cp = std::make_unique<CKovCpLayout>(1, 1, 4096, 1);
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

  // Channels: the count at byte 0, then up to 16 entries of 6 bytes: the kind at byte 0 and a
  // 40-bit union at byte 1.
  CKovBlkLayout* channels =
      addBlock(cp.get(), kSampleChannelsBlkID, "Channels", 0x0014, 1, 0, 0, 1 + 16 * 6);
  addNum(channels, kChannelQty, 0, 0, 7, 8, 0);
  auto* led = numberLayout(kChannelList, ListEntryLayout, {{{kChannelKind, 0, 7, 8}}});
  KovUnionAttribStruct body;
  body.unionFormat = UnionFixedPadded;
  body.lengthInBits = 40;
  body.upLayoutSelectionFunc = selectChannelKind;
  body.discrIDArr = {kChannelKind};
  kovValidateUnionParms(kChannelBody, body, kSampleChannelsBlkID);
  auto* bodyLayout =
      new CKovUnionFieldLayout(kChannelBody, 1, 7, body, true, 0, led, kSampleChannelsBlkID);
  bodyLayout->AddToUnionMap(
      kAnalog, new CKovUnionLayoutOpt(numberLayout(kChannelBody, static_cast<LayoutType>(3),
                                                   {{{kAnalogStep, 0, 7, 16},
                                                     {kAnalogPower, 2, 7, 5}}}),
                                      0, 0, kAnalog, 40, 0));
  bodyLayout->AddToUnionMap(
      kDigital, new CKovUnionLayoutOpt(numberLayout(kChannelBody, static_cast<LayoutType>(3),
                                                    {{{kColorCode, 0, 7, 4},
                                                      {kTimeSlot, 0, 3, 1},
                                                      {kTalkgroup, 1, 7, 24}}}),
                                       0, 0, kDigital, 40, 0));
  led->AddField(kChannelBody, kChannelKind, bodyLayout, 1);
  channels->AddFieldToVerificationMap(kChannelBody, bodyLayout);
  KovListAttribStruct list(kChannelQty, VarSzContigLeq, 16, 0, 48, 0, nullptr);
  bool verify = false;
  kovValidateSglListParms(kChannelList, list, kSampleChannelsBlkID, verify);
  auto* channelList = new CKovListFieldLayout(kChannelList, 1, 7, list, true, 0,
                                              channels->GetDataLayout(), led);
  channels->AddField(kChannelList, kChannelQty, channelList, 1);
  if (verify) channels->AddFieldToVerificationMap(kChannelList, channelList);

  // Contacts: a distributed list of 10-byte entries, at most 4 a listlet, at byte 6 of each
  // listlet behind its link and quantity; the header block holds the list's configuration.
  auto* contactHdr = new CKovBlkLayout(kSampleContactHdrBlkID, KovBlkLayoutAttrib(0x0015, 0, 0, 0),
                                       "Contact header", 0,
                                       new CKovDataLayout(static_cast<LayoutType>(1), 0, 7, 0, true),
                                       0, 1);
  contactHdr->SetDistKLSBlkID(kSampleContactsBlkID);
  auto* contacts = new CKovKLSBlkLayout(
      kSampleContactsBlkID, KovBlkLayoutAttrib(0x0016, 0, 0, 0), "Contacts",
      new CKovDataLayout(static_cast<LayoutType>(1), 0, 7, 0, true), 4 * 10, 1, 4,
      kSampleContactHdrBlkID, nullptr);
  auto* contact = new CKovDataLayout(ListEntryLayout, 0, 7, kContactList, false);
  contact->AddField(kContactID, 0, new CKovNumFieldLayout(kContactID, 0, 24, 7, true, 0, contact),
                    0);
  contact->AddField(kCallType, kContactID,
                    new CKovNumFieldLayout(kCallType, 3, 8, 7, true, 0, contact), 1);
  contact->AddField(kContactName, kCallType,
                    new CKovStrFieldLayout(kContactName, 4, 7, CKovCharFieldLayout::Char8Bit, 6,
                                           true, 0, contact),
                    2);
  KovListAttribStruct contactList(CKovKLSBlkLayout::m_leqFldID, VarSzCfgLeq, 64, 0, 80, 0,
                                  nullptr);
  contacts->AddField(kContactList, CKovKLSBlkLayout::m_leqFldID,
                     new CKovListFieldLayout(kContactList, 6, 7, contactList, true, 0,
                                             contacts->GetDataLayout(), contact),
                     2);
  for (CKovBlkLayout* blk : {contactHdr, static_cast<CKovBlkLayout*>(contacts)}) {
    blk->SetPartitionNum(1);
    cp->HasUniqueKovName(blk);
    cp->AddBlkLayout(blk);
  }
  channel->AddFieldToVerificationMap(kZoneRef, channel->GetFieldLayout(kZoneRef));
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

  struct Channel {
    uint32_t kind, a, b, c;
  } const kChannels[] = {
      {kAnalog, 125, 20, 0}, {kDigital, 7, 1, 91}, {kDigital, 1, 0, 3100}, {kAnalog, 625, 31, 0}};
  auto* list = new CKovListField(kChannelList, 4, 16, nullptr);
  for (const Channel& ch : kChannels) {
    CKovPkEntry* option = entry(3);
    if (ch.kind == kAnalog) {
      put(option, new CKovNumField(ch.a, kAnalogStep, 16), 0);
      put(option, new CKovNumField(ch.b, kAnalogPower, 5), 1);
    } else {
      put(option, new CKovNumField(ch.a, kColorCode, 4), 0);
      put(option, new CKovNumField(ch.b, kTimeSlot, 1), 1);
      put(option, new CKovNumField(ch.c, kTalkgroup, 24), 2);
    }
    auto* body = new CKovUnionField(kChannelBody, ch.kind, option);
    body->SetImageSize(40);
    CKovPkEntry* led = entry(2);
    put(led, new CKovNumField(ch.kind, kChannelKind, 8), 0);
    put(led, body, 1);
    list->AddEntryToList(led);
  }
  list->SetImageSize(4 * 48);
  auto* channelsList = new CKovPkEntryList();
  CKovPkEntry* c = entry(2);
  put(c, list, 1);
  channelsList->AddTail(c);
  addPkBlk(kSampleChannelsBlkID, channelsList, {1 + 4 * 6});

  const char* const kNames[] = {"Base", "Dispatch", "Alpha", "Bravo", "Charlie",
                                "Delta", "Echo", "Foxtrot", "Yard", "All call"};
  auto* contactList = new CKovListField(kContactList, 10, 64, nullptr);
  for (uint32_t i = 0; i < 10; ++i) {
    CKovPkEntry* c = entry(3);
    put(c, new CKovNumField(1000 + 7 * i, kContactID, 24), 0);
    put(c, new CKovNumField(i % 3 == 0 ? 0 : 1, kCallType, 8), 1);
    std::string name = std::string(kNames[i]).substr(0, 6);
    put(c, new CKovStrField(name.c_str(), kContactName, 48), 2);
    contactList->AddEntryToList(c);
  }
  auto* contactEntries = new CKovPkEntryList();
  CKovPkEntry* listHolder = entry(1);
  put(listHolder, contactList, 0);
  contactEntries->AddTail(listHolder);
  addPkBlk(kSampleContactsBlkID, contactEntries, {0});
  return data;
}
