// The sample codeplug of the demo, the tests and the fuzzers: a layout that uses every feature of
// the library, and values to pack into it.
//
// Partition 1, in image order:
//   Settings  (0x0011/2)  power level (12 bits) and a 3-bit mode floating behind it, a 6-digit
//                         radio id (4-bit digits), an 8-character alias, the quantity of Scan's
//                         split list and the discriminant of Scan's remote union
//   Channel   (0x0012)    multi-instance: frequency step, power, a KOV name referring to Zone
//   Zone      (0x0013/0)  padded to 8 bytes: a 4-character name
//   Channels  (0x0014/1)  a quantity, then a list of channels, each a kind and a union of an
//                         analog or a digital channel chosen by the kind (discriminant ahead)
//   Scan      (0x0017/0)  a fixed list; a list whose quantity stands behind it; a variable union
//                         whose discriminant stands behind it; two lists whose quantity is
//                         calculated (the mode of Settings); a list whose quantity is in Settings;
//                         a padded union whose discriminant is in Settings
//   Groups    (0x0018/0)  a KOV List Structure: configuration area and a list of group ids
//   Contact header (0x0015/0) and Contacts (0x0016): a distributed KOV List Structure of
//                         contacts (id, call type, name), at most 4 a listlet
#ifndef KOV_EXAMPLES_SAMPLE_H
#define KOV_EXAMPLES_SAMPLE_H

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "kov/kov.h"

// Block ids of the sample.
constexpr uint16_t kSampleSettingsBlkID = 1;
constexpr uint16_t kSampleChannelBlkID = 2;
constexpr uint16_t kSampleZoneBlkID = 3;
constexpr uint16_t kSampleChannelsBlkID = 4;
constexpr uint16_t kSampleContactHdrBlkID = 5;
constexpr uint16_t kSampleContactsBlkID = 6;
constexpr uint16_t kSampleScanBlkID = 7;
constexpr uint16_t kSampleGroupsBlkID = 8;

// The values of a sample codeplug. The defaults are the demo's; tests and fuzzers change them.
// Lists whose quantity is calculated take the mode as their quantity, so extras and alternates
// must hold mode entries for the image to read back the same.
struct KovSampleValues {
  uint32_t powerLevel = 0xABC;
  uint32_t mode = 3;
  std::string radioID = "240117";
  std::string alias = "Base";
  uint32_t scanType = 1;  // option of Scan's remote union

  struct Channel {
    uint32_t step, power, zoneRef;
    int checkReference;
  };
  std::vector<Channel> channelBlk = {{125, 10, 0x00130000, 1},
                                     {250, 11, 0x00130000, 1},
                                     {625, 12, 0x00130000, 1}};
  bool hasZone = true;
  std::string zoneName = "City";

  // kind 1: analog (a = step, b = power); kind 2: digital (a = color code, b = slot,
  // c = talkgroup). The union takes the option its kind names.
  struct ChannelEntry {
    uint32_t kind, a, b, c;
  };
  std::vector<ChannelEntry> channels = {
      {1, 125, 20, 0}, {2, 7, 1, 91}, {2, 1, 0, 3100}, {1, 625, 31, 0}};

  std::array<uint32_t, 3> priorities = {{3, 1, 2}};
  std::vector<uint32_t> members = {101, 102, 205};
  uint32_t bodyKind = 2;  // 1: hold time; 2: dwell and resume
  uint32_t holdTime = 500, dwell = 4, resume = 9;
  std::vector<uint32_t> extras = {7, 8, 9};
  std::vector<uint32_t> alternates = {1, 2, 3};
  std::vector<uint32_t> split = {0x11, 0x22};
  uint32_t remoteA = 0xBEEF, remoteB = 0x5A;  // option 1 holds remoteA, option 2 remoteB

  std::vector<uint32_t> groups = {9, 99, 999};

  struct Contact {
    uint32_t id, callType;
    std::string name;
  };
  std::vector<Contact> contacts = {{1000, 0, "Base"},  {1007, 1, "Dispat"}, {1014, 1, "Alpha"},
                                   {1021, 0, "Bravo"}, {1028, 1, "Charli"}, {1035, 1, "Delta"},
                                   {1042, 0, "Echo"},  {1049, 1, "Foxtro"}, {1056, 1, "Yard"},
                                   {1063, 0, "All ca"}};
};

// The layout, verified; registers the names of its fields.
std::unique_ptr<CKovCpLayout> kovSampleLayout();

// The pack blocks of the sample, and the map the pack is made over.
struct KovSamplePackData {
  std::vector<std::unique_ptr<CKovPkStdBlk>> blocks;
  KovPkBlkMap pkBlks;
};

KovSamplePackData kovSamplePackData(const CKovCpLayout* layout,
                                    const KovSampleValues& values = KovSampleValues());

#endif  // KOV_EXAMPLES_SAMPLE_H
