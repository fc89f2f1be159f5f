#include "examples/sample.h"

#include <array>
#include <list>
#include <string>
#include <vector>

namespace {

// Field ids double as string resource ids, which give the names.
enum : uint32_t {
  kPowerLevel = 1001, kMode, kRadioID, kAlias, kScanSize, kScanType,
  kFreqStep = 2001, kChannelPower, kZoneRef,
  kZoneName = 3001,
  kChannelQty = 4001, kChannelList, kChannelKind, kChannelBody, kAnalogStep, kAnalogPower,
  kColorCode, kTimeSlot, kTalkgroup,
  kContactList = 6001, kContactID, kCallType, kContactName,
  kPriorities = 7001, kPriority, kMembers, kMember, kMemberQty, kBody, kHoldTime, kDwell, kResume,
  kBodyKind, kExtras, kExtra, kAlternates, kAlternate, kSplit, kSplitValue, kRemote, kRemoteA,
  kRemoteB,
  kGroups = 8001, kGroup,
};

const std::pair<uint32_t, const char*> kNames[] = {
    {kPowerLevel, "Power level"}, {kMode, "Mode"}, {kRadioID, "Radio id"}, {kAlias, "Alias"},
    {kScanSize, "Scan size"}, {kScanType, "Scan type"}, {kFreqStep, "Frequency step"},
    {kChannelPower, "Channel power"}, {kZoneRef, "Zone"}, {kZoneName, "Zone name"},
    {kChannelQty, "Channel count"}, {kChannelList, "Channel list"}, {kChannelKind, "Kind"},
    {kChannelBody, "Channel"}, {kAnalogStep, "Step"}, {kAnalogPower, "Power"},
    {kColorCode, "Color code"}, {kTimeSlot, "Time slot"}, {kTalkgroup, "Talkgroup"},
    {kContactList, "Contact list"}, {kContactID, "Contact id"}, {kCallType, "Call type"},
    {kContactName, "Name"}, {kPriorities, "Priorities"}, {kPriority, "Priority"},
    {kMembers, "Members"}, {kMember, "Member"}, {kMemberQty, "Member count"}, {kBody, "Body"},
    {kHoldTime, "Hold time"}, {kDwell, "Dwell"}, {kResume, "Resume"}, {kBodyKind, "Body kind"},
    {kExtras, "Extras"}, {kExtra, "Extra"}, {kAlternates, "Alternates"},
    {kAlternate, "Alternate"}, {kSplit, "Split list"}, {kSplitValue, "Split value"},
    {kRemote, "Remote"}, {kRemoteA, "Remote A"}, {kRemoteB, "Remote B"}, {kGroups, "Groups"},
    {kGroup, "Group"}};

constexpr LayoutType kPlainLayout = static_cast<LayoutType>(1);
constexpr LayoutType kOptionLayout = static_cast<LayoutType>(3);

// A union takes the option its first discriminant names.
uint32_t selectByFirstDiscr(const CKovUp*, uint32_t, uint16_t, const CKovBlkLayout*,
                            const std::list<const KovDiscrInfo*>& discrs) {
  if (discrs.empty() || !discrs.front()->discrField->IsNumber()) return 0;
  return static_cast<const CKovNumField*>(discrs.front()->discrField)->GetValue();
}

// The calculated lists of Scan hold as many entries as the mode of Settings says.
uint32_t modeOfSettings(const CKovUp* up, const CKovBlkLayout*, uint32_t, uint16_t) {
  KovUpBlkInstArr* const* settings = up->GetUpBlksList().PLookup(kSampleSettingsBlkID);
  if (settings == nullptr || (*settings)->size() < 2 || (**settings)[1] == nullptr) return 0;
  const CKovField* const* mode = (**settings)[1]->GetUpFieldMap().PLookup(kMode);
  if (mode == nullptr || !(*mode)->IsNumber()) return 0;
  return static_cast<const CKovNumField*>(*mode)->GetValue();
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

void registerBlock(CKovCpLayout* cp, CKovBlkLayout* blk) {
  blk->SetPartitionNum(1);
  cp->HasUniqueKovName(blk);
  cp->AddBlkLayout(blk);
}

CKovBlkLayout* addBlock(CKovCpLayout* cp, uint16_t blkID, const char* name, uint16_t type,
                        uint16_t id, int multi, int pad, uint16_t maxSize) {
  auto* blk = new CKovBlkLayout(blkID, KovBlkLayoutAttrib(type, id, multi, pad), name, 0,
                                new CKovDataLayout(kPlainLayout, 0, 7, 0, true), maxSize, 0);
  registerBlock(cp, blk);
  return blk;
}

// Appends a field to blk's data layout behind the field added last.
void append(CKovBlkLayout* blk, uint32_t id, CKovFieldLayout* layout) {
  const CKovDataLayout* dl = blk->GetDataLayout();
  blk->AddField(id, dl->GetIDOfLastFieldInLayout(), layout,
                static_cast<int>(dl->GetOrderedFieldIDsList().size()));
}

CKovFieldLayout* num(const CKovBlkLayout* blk, uint32_t id, uint32_t byteOffset, uint8_t msb,
                     uint32_t bits) {
  return new CKovNumFieldLayout(id, byteOffset, bits, msb, true, 0, blk->GetDataLayout());
}

CKovFieldLayout* str(const CKovBlkLayout* blk, uint32_t id, uint32_t byteOffset,
                     CKovCharFieldLayout::CharType type, uint32_t chars) {
  return new CKovStrFieldLayout(id, byteOffset, 7, type, chars, true, 0, blk->GetDataLayout());
}

// A list at byteOffset of blk with entries of entryBits whose first field is the number entryID
// (at most 32 bits of them), checked by the validate function and entered in the verification
// map when it asks for that.
CKovListFieldLayout* list(CKovBlkLayout* blk, uint32_t id, uint32_t byteOffset, ListFormat format,
                          uint32_t maxQty, uint32_t entryID, uint32_t entryBits, uint32_t leqID = 0,
                          uint16_t leqBlkID = 0, KovCalcUnpackLEQFunc calc = nullptr) {
  KovListAttribStruct attribs(leqID, format, maxQty, 0, entryBits, leqBlkID, calc);
  bool verify = false;
  kovValidateSglListParms(id, attribs, blk->GetBlkID(), verify);
  auto* layout = new CKovListFieldLayout(
      id, byteOffset, 7, attribs, true, 0, blk->GetDataLayout(),
      numberLayout(id, ListEntryLayout, {{{entryID, 0, 7, entryBits < 32 ? entryBits : 8}}}));
  append(blk, id, layout);
  if (verify) blk->AddFieldToVerificationMap(id, layout);
  return layout;
}

// A union with one discriminant and two options of numbers, entered in the verification map.
CKovUnionFieldLayout* unionOf(CKovBlkLayout* blk, CKovDataLayout* parent, uint32_t id,
                              uint32_t byteOffset, UnionFormat format, uint32_t lengthInBits,
                              uint32_t discrID, uint16_t discrBlkID, CKovDataLayout* option1,
                              CKovDataLayout* option2, uint32_t optionSzInBits) {
  KovUnionAttribStruct attribs;
  attribs.unionFormat = format;
  attribs.lengthInBits = lengthInBits;
  attribs.upLayoutSelectionFunc = selectByFirstDiscr;
  attribs.discrIDArr = {discrID};
  if (discrBlkID != 0) attribs.discrBlkIDArr = {discrBlkID};
  kovValidateUnionParms(id, attribs, blk->GetBlkID());
  auto* layout =
      new CKovUnionFieldLayout(id, byteOffset, 7, attribs, true, 0, parent, blk->GetBlkID());
  layout->AddToUnionMap(1, new CKovUnionLayoutOpt(option1, 0, 0, 1, optionSzInBits, 0));
  layout->AddToUnionMap(2, new CKovUnionLayoutOpt(option2, 0, 0, 2, optionSzInBits, 0));
  blk->AddFieldToVerificationMap(id, layout);
  return layout;
}

CKovPkEntry* entry(int numFields) { return new CKovPkEntry(numFields); }

void put(CKovPkEntry* e, CKovField* value, int position) {
  e->AddPkField(value->GetFieldID(), new CKovPkField(value), position);
}

// A list value of one number per entry.
CKovListField* numberList(uint32_t id, uint32_t entryID, uint32_t bits,
                          const std::vector<uint32_t>& values, uint16_t maxLeq = 0) {
  auto* l = new CKovListField(id, static_cast<uint32_t>(values.size()), maxLeq, nullptr);
  for (uint32_t v : values) {
    CKovPkEntry* e = entry(1);
    put(e, new CKovNumField(v, entryID, bits), 0);
    l->AddEntryToList(e);
  }
  l->SetImageSize(static_cast<uint32_t>(values.size()) * bits);
  return l;
}

}  // namespace

std::unique_ptr<CKovCpLayout> kovSampleLayout() {
  for (const auto& [id, name] : kNames) kovRegisterString(id, name);
  auto cp = std::make_unique<CKovCpLayout>(1, 1, 4096, 1);
  cp->AddPartition(1, ReadWrite);

  CKovBlkLayout* settings = addBlock(cp.get(), kSampleSettingsBlkID, "Settings", 0x0011, 2, 0, 0, 15);
  append(settings, kPowerLevel, num(settings, kPowerLevel, 0, 7, 12));
  append(settings, kMode,
         new CKovNumFieldLayout(kMode, 0, 3, 0, false, 1, settings->GetDataLayout()));
  append(settings, kRadioID, str(settings, kRadioID, 2, CKovCharFieldLayout::Char4Bit, 6));
  append(settings, kAlias, str(settings, kAlias, 5, CKovCharFieldLayout::Char8Bit, 8));
  append(settings, kScanSize, num(settings, kScanSize, 13, 7, 8));
  append(settings, kScanType, num(settings, kScanType, 14, 7, 8));

  CKovBlkLayout* channel = addBlock(cp.get(), kSampleChannelBlkID, "Channel", 0x0012, 0, 1, 0, 7);
  append(channel, kFreqStep, num(channel, kFreqStep, 0, 7, 16));
  append(channel, kChannelPower, num(channel, kChannelPower, 2, 7, 5));
  auto* zoneRef = new CKovNameFieldLayout(kZoneRef, 3, 32, 7, true, 0, channel->GetDataLayout(),
                                          kSampleZoneBlkID);
  append(channel, kZoneRef, zoneRef);
  channel->AddFieldToVerificationMap(kZoneRef, zoneRef);

  CKovBlkLayout* zone = addBlock(cp.get(), kSampleZoneBlkID, "Zone", 0x0013, 0, 0, 1, 8);
  append(zone, kZoneName, str(zone, kZoneName, 0, CKovCharFieldLayout::Char8Bit, 4));

  // Channels: the count at byte 0, then up to 16 entries of 6 bytes: the kind at byte 0 and a
  // 40-bit union at byte 1 that the kind selects.
  CKovBlkLayout* channels =
      addBlock(cp.get(), kSampleChannelsBlkID, "Channels", 0x0014, 1, 0, 0, 1 + 16 * 6);
  append(channels, kChannelQty, num(channels, kChannelQty, 0, 7, 8));
  CKovListFieldLayout* channelList =
      list(channels, kChannelList, 1, VarSzContigLeq, 16, kChannelKind, 48, kChannelQty);
  CKovDataLayout* led = channelList->GetDataLayout();
  led->AddField(kChannelBody, kChannelKind,
                unionOf(channels, led, kChannelBody, 1, UnionFixedPadded, 40, kChannelKind, 0,
                        numberLayout(kChannelBody, kOptionLayout,
                                     {{{kAnalogStep, 0, 7, 16}, {kAnalogPower, 2, 7, 5}}}),
                        numberLayout(kChannelBody, kOptionLayout,
                                     {{{kColorCode, 0, 7, 4}, {kTimeSlot, 0, 3, 1},
                                       {kTalkgroup, 1, 7, 24}}}),
                        40),
                1);

  // Scan: one list or union of every other kind.
  CKovBlkLayout* scan = addBlock(cp.get(), kSampleScanBlkID, "Scan", 0x0017, 0, 0, 0, 64);
  list(scan, kPriorities, 0, FixedSzNoLeq, 3, kPriority, 8);
  list(scan, kMembers, 3, VarSzSameBlkLeq, 8, kMember, 16, kMemberQty);
  append(scan, kMemberQty, num(scan, kMemberQty, 19, 7, 8));
  append(scan, kBody,
         unionOf(scan, scan->GetDataLayout(), kBody, 20, UnionVarSz, 0, kBodyKind, 0,
                 numberLayout(kBody, kOptionLayout, {{{kHoldTime, 0, 7, 16}}}),
                 numberLayout(kBody, kOptionLayout, {{{kDwell, 0, 7, 8}, {kResume, 1, 7, 8}}}),
                 0));
  append(scan, kBodyKind, num(scan, kBodyKind, 28, 7, 8));  // behind the union it selects
  list(scan, kExtras, 29, VarSzCalcLeq, 7, kExtra, 8, 0, 0, modeOfSettings);
  list(scan, kAlternates, 36, VarSzCalcLeqAlt, 7, kAlternate, 8, 0, 0, modeOfSettings);
  list(scan, kSplit, 43, VarSzSplitLeq, 8, kSplitValue, 8, kScanSize, kSampleSettingsBlkID);
  append(scan, kRemote,
         unionOf(scan, scan->GetDataLayout(), kRemote, 51, UnionVarSzSplitPadded, 0, kScanType,
                 kSampleSettingsBlkID,
                 numberLayout(kRemote, kOptionLayout, {{{kRemoteA, 0, 7, 16}}}),
                 numberLayout(kRemote, kOptionLayout, {{{kRemoteB, 0, 7, 8}}}), 32));

  // Groups: a KOV List Structure with up to 10 group ids behind its configuration area.
  auto* groups = new CKovKLSBlkLayout(kSampleGroupsBlkID, KovBlkLayoutAttrib(0x0018, 0, 0, 0),
                                      "Groups", new CKovDataLayout(kPlainLayout, 0, 7, 0, true),
                                      20, 0, 0, 0, nullptr);
  registerBlock(cp.get(), groups);
  list(groups, kGroups, 8, VarSzCfgLeq, 10, kGroup, 16, CKovKLSBlkLayout::m_leqFldID);

  // Contacts: a distributed list of 10-byte entries, at most 4 a listlet, at byte 6 of each
  // listlet behind its link and quantity; the header block holds the list's configuration.
  auto* contactHdr = new CKovBlkLayout(kSampleContactHdrBlkID, KovBlkLayoutAttrib(0x0015, 0, 0, 0),
                                       "Contact header", 0,
                                       new CKovDataLayout(kPlainLayout, 0, 7, 0, true), 0, 1);
  contactHdr->SetDistKLSBlkID(kSampleContactsBlkID);
  registerBlock(cp.get(), contactHdr);
  auto* contacts = new CKovKLSBlkLayout(
      kSampleContactsBlkID, KovBlkLayoutAttrib(0x0016, 0, 0, 0), "Contacts",
      new CKovDataLayout(kPlainLayout, 0, 7, 0, true), 4 * 10, 1, 4, kSampleContactHdrBlkID,
      nullptr);
  registerBlock(cp.get(), contacts);
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
  append(contacts, kContactList,
         new CKovListFieldLayout(kContactList, 6, 7, contactList, true, 0,
                                 contacts->GetDataLayout(), contact));

  cp->DoPostLayoutVerification();
  return cp;
}

KovSamplePackData kovSamplePackData(const CKovCpLayout* layout, const KovSampleValues& v) {
  KovSamplePackData data;
  auto addPkBlk = [&](uint16_t blkID, std::vector<CKovPkEntry*> entries,
                      std::vector<uint16_t> sizes) {
    auto* list = new CKovPkEntryList();
    for (CKovPkEntry* e : entries) list->AddTail(e);
    data.blocks.emplace_back(new CKovPkStdBlk(layout->GetBlkLayout(blkID), list, sizes));
    data.pkBlks.SetAt(blkID, data.blocks.back().get());
  };

  CKovPkEntry* s = entry(6);
  put(s, new CKovNumField(v.powerLevel, kPowerLevel, 12), 0);
  put(s, new CKovNumField(v.mode, kMode, 3), 1);
  put(s, new CKovStrField(v.radioID.c_str(), kRadioID, 24), 2);
  put(s, new CKovStrField(v.alias.c_str(), kAlias, 64), 3);
  put(s, new CKovNumField(v.scanType, kScanType, 8), 5);
  addPkBlk(kSampleSettingsBlkID, {s}, {15});

  std::vector<CKovPkEntry*> channelBlk;
  for (const auto& ch : v.channelBlk) {
    CKovPkEntry* c = entry(3);
    put(c, new CKovNumField(ch.step, kFreqStep, 16), 0);
    put(c, new CKovNumField(ch.power, kChannelPower, 5), 1);
    put(c, new CKovNameField(ch.zoneRef, kZoneRef, 32, ch.checkReference), 2);
    channelBlk.push_back(c);
  }
  addPkBlk(kSampleChannelBlkID, channelBlk, std::vector<uint16_t>(channelBlk.size(), 7));

  if (v.hasZone) {
    CKovPkEntry* z = entry(1);
    put(z, new CKovStrField(v.zoneName.c_str(), kZoneName, 32), 0);
    addPkBlk(kSampleZoneBlkID, {z}, {8});
  }

  auto* channels = new CKovListField(kChannelList, static_cast<uint32_t>(v.channels.size()), 16,
                                     nullptr);
  for (const auto& ch : v.channels) {
    CKovPkEntry* option = entry(3);
    if (ch.kind == 1) {
      put(option, new CKovNumField(ch.a, kAnalogStep, 16), 0);
      put(option, new CKovNumField(ch.b, kAnalogPower, 5), 1);
    } else {
      put(option, new CKovNumField(ch.a, kColorCode, 4), 0);
      put(option, new CKovNumField(ch.b, kTimeSlot, 1), 1);
      put(option, new CKovNumField(ch.c, kTalkgroup, 24), 2);
    }
    auto* body = new CKovUnionField(kChannelBody, ch.kind, option);
    body->SetImageSize(40);
    CKovPkEntry* e = entry(2);
    put(e, new CKovNumField(ch.kind, kChannelKind, 8), 0);
    put(e, body, 1);
    channels->AddEntryToList(e);
  }
  channels->SetImageSize(static_cast<uint32_t>(v.channels.size()) * 48);
  CKovPkEntry* c = entry(2);
  put(c, channels, 1);
  addPkBlk(kSampleChannelsBlkID, {c},
           {static_cast<uint16_t>(1 + 6 * v.channels.size())});

  CKovPkEntry* scan = entry(10);
  put(scan, numberList(kPriorities, kPriority, 8, {v.priorities.begin(), v.priorities.end()}), 0);
  put(scan, numberList(kMembers, kMember, 16, v.members), 1);
  CKovPkEntry* body = entry(2);
  if (v.bodyKind == 1) {
    put(body, new CKovNumField(v.holdTime, kHoldTime, 16), 0);
  } else {
    put(body, new CKovNumField(v.dwell, kDwell, 8), 0);
    put(body, new CKovNumField(v.resume, kResume, 8), 1);
  }
  auto* bodyUnion = new CKovUnionField(kBody, v.bodyKind, body);
  bodyUnion->SetImageSize(16);  // both options take 16 bits
  put(scan, bodyUnion, 3);
  put(scan, new CKovNumField(v.bodyKind, kBodyKind, 8), 4);
  put(scan, numberList(kExtras, kExtra, 8, v.extras), 5);
  put(scan, numberList(kAlternates, kAlternate, 8, v.alternates), 6);
  put(scan, numberList(kSplit, kSplitValue, 8, v.split), 7);
  CKovPkEntry* remote = entry(1);
  if (v.scanType == 1) {
    put(remote, new CKovNumField(v.remoteA, kRemoteA, 16), 0);
  } else {
    put(remote, new CKovNumField(v.remoteB, kRemoteB, 8), 0);
  }
  auto* remoteUnion = new CKovUnionField(kRemote, v.scanType, remote);
  remoteUnion->SetImageSize(32);
  put(scan, remoteUnion, 8);
  addPkBlk(kSampleScanBlkID, {scan}, {55});

  addPkBlk(kSampleGroupsBlkID, {[&] {
             CKovPkEntry* g = entry(1);
             put(g, numberList(kGroups, kGroup, 16, v.groups, 10), 0);
             return g;
           }()},
           {static_cast<uint16_t>(8 + 2 * v.groups.size())});

  auto* contactList = new CKovListField(kContactList, static_cast<uint32_t>(v.contacts.size()), 64,
                                        nullptr);
  for (const auto& ct : v.contacts) {
    CKovPkEntry* e = entry(3);
    put(e, new CKovNumField(ct.id, kContactID, 24), 0);
    put(e, new CKovNumField(ct.callType, kCallType, 8), 1);
    put(e, new CKovStrField(ct.name.c_str(), kContactName, 48), 2);
    contactList->AddEntryToList(e);
  }
  CKovPkEntry* holder = entry(1);
  put(holder, contactList, 0);
  addPkBlk(kSampleContactsBlkID, {holder}, {0});
  return data;
}
