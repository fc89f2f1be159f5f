// The sample codeplug of the demo: a layout and values to pack into it.
//
// Partition 1 holds "Settings" (single instance: a 12-bit power level, a 3-bit mode floating
// behind it, a 6-digit radio id as Char4Bit string, an 8-character alias), "Channel" (multi-
// instance: a 16-bit frequency step, a 5-bit power, a name field that refers to the zone) and
// "Zone" (single instance, padded to 8 bytes: a 4-character zone name) and "Channels" (a quantity
// field and a list of channel entries behind it; each entry has a kind, which selects one of two
// kinds of channel in a union: analog, with a frequency step and a power level, or digital, with
// a color code, a time slot and a talkgroup), and "Contacts", a distributed KOV List Structure:
// a long list of contacts (id, call type, name) cut into listlets of at most 4, whose header block
// "Contact header" the pack generates in front of them.
#ifndef KOV_EXAMPLES_SAMPLE_H
#define KOV_EXAMPLES_SAMPLE_H

#include <memory>
#include <vector>

#include "kov/kov.h"

// Block ids of the sample.
constexpr uint16_t kSampleSettingsBlkID = 1;
constexpr uint16_t kSampleChannelBlkID = 2;
constexpr uint16_t kSampleZoneBlkID = 3;
constexpr uint16_t kSampleChannelsBlkID = 4;
constexpr uint16_t kSampleContactHdrBlkID = 5;
constexpr uint16_t kSampleContactsBlkID = 6;

std::unique_ptr<CKovCpLayout> kovSampleLayout();

// The pack blocks of the sample, and the map the pack is made over.
struct KovSamplePackData {
  std::vector<std::unique_ptr<CKovPkStdBlk>> blocks;
  KovPkBlkMap pkBlks;
};

KovSamplePackData kovSamplePackData(const CKovCpLayout* layout);

#endif  // KOV_EXAMPLES_SAMPLE_H
