// The field walk: every value of an unpacked image with its path, block, instance, place in the
// image, width, raw bits and value, and every block header and checksum.
//
// kovJsonWalkFields is given a layout and a CKovUp whose FullUnpack succeeded (both must outlive
// the walk, whose nodes point at the layout's descriptions). It returns the tree of what the
// unpack read, in layout order, depth first: one Instance node a block instance, under it one
// node a field; a list has one Entry node an entry, a union one Option node for the option read.
// Quantity fields, which a values file leaves out because the list writes them, are walked too:
// their bits are in the image.
//
// Paths speak the user's words: block and field names joined by '.', instances and list entries
// counted from 1 in brackets, the option of a union as one more name:
//   General.Volume                      a block with one instance
//   Channel bank[2].Channels[1].Mode.Analog.Rx frequency
// A multi-instance block always carries its instance number, even with one instance.
//
// Places. bitIndex is the linear bit index in the image of the first bit (byte × 8 + 7 − MSB),
// taken from the address the core recorded for the field when it read it, floating fields
// included; bits is the width. A Value's raw bits are those bits as hex digits, most significant
// first, ceil(bits / 4) digits (a 12-bit field at byte 6, MSB 7 holding 0xABC: "ABC"). A
// container's place spans its children (placed = false when it has none); an Instance spans its
// header and checksum. The headers are the layout-free walk of kovjson/imagewalk.h; hdr of a node
// is the index of the header whose instance holds the node's first bit (-1 for none).
//
// Cost: linear in the values read, plus a binary search over the headers a node; about 200 bytes
// a node, so kovJsonWalkFieldsEach hands a large image over one instance at a time. Throws only
// std::bad_alloc.
#ifndef KOVJSON_FIELDWALK_H
#define KOVJSON_FIELDWALK_H

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "kov/kov.h"
#include "kovjson/imagewalk.h"
#include "kovjson/jsonlayout.h"

enum class KovJsonNodeKind { Instance, Value, List, Entry, Union, Option };

struct KovJsonNode {
  KovJsonNodeKind kind = KovJsonNodeKind::Value;
  std::string path;
  std::string name;  // the last step of the path: "Rx frequency", "Channels[1]", "Analog"
  int parent = -1;   // index of the parent node; -1 for an Instance
  int depth = 0;     // 0 for an Instance
  const KovJsonBlock* blk = nullptr;
  uint16_t instance = 0;                  // of blk, from 1
  const KovJsonField* field = nullptr;    // Value, List, Union: its field; Entry: the list's
  const KovJsonOption* option = nullptr;  // Option
  bool placed = false;
  uint64_t bitIndex = 0;
  uint32_t bits = 0;
  int hdr = -1;
  std::string raw;               // Value: the raw bits in hex
  nlohmann::ordered_json value;  // Value: as a values file writes it (kovJsonUnpackedValue)
  std::string text;              // a short form of the value for people (kovJsonValueText)
};

// Every header of the image, named from the layout.
struct KovJsonHdr {
  KovJsonInstance at;
  const KovJsonBlock* blk = nullptr;  // null: a KOV name the layout does not know
  uint16_t instance = 0;              // of blk, from 1; 0 for a listlet
  int listlet = -1;                   // a listlet of a distributed KOV List Structure: its number
  std::string label;                  // "Channel bank[2]", "Contacts, listlet 0", "0x09990001"
};

struct KovJsonFieldWalk {
  bool prefixes = false;         // the image has a partition prefix in front of each instance
  std::vector<KovJsonHdr> hdrs;  // in image order
  std::string hdrDamage;         // what ended the header walk early, "" when nothing did
  uint32_t hdrDamageOffset = 0;
  std::vector<KovJsonNode> nodes;  // the tree, depth first in layout order
  uint64_t imageBits = 0;
};

KovJsonFieldWalk kovJsonWalkFields(const CKovJsonLayout& layout, const CKovUp& up);

// Moves the places of a walk made over the instances of from packed one behind the other (as
// kovJsonWithoutPrefixes and a salvage pack them) to where those instances stand in the image
// they came from; the nodes' header indexes become indexes into from. Linear, with a binary
// search a node.
void kovJsonMapWalk(KovJsonFieldWalk& walk, const std::vector<KovJsonInstance>& from);

// The walk of an image with partition prefixes: up unpacked the image without them
// (kovJsonWithoutPrefixes of hdrWalk); places and headers are those of the image with them.
KovJsonFieldWalk kovJsonWalkFieldsWithPrefixes(const CKovJsonLayout& layout, const CKovUp& up,
                                               const KovJsonWalk& hdrWalk);

// The walk of kovJsonWalkFields (of kovJsonWalkFieldsWithPrefixes when hdrWalk is not null)
// handed over one block instance at a time, so that a large image is never held as one tree.
// Each call of each finds in walk.nodes the nodes of one instance, its Instance node first and
// parents as indexes into walk.nodes, with the headers of the whole image in walk.hdrs; base is
// the number of nodes handed over before. The nodes are dropped when each returns; at the end
// walk holds the headers and no nodes. In layout order the instances come as in the whole walk
// (base + index is then the index there); in image order, the instances the walk finds no
// header of their own for (a distributed list's) come first, the others by their header's
// offset, so that no value of a later instance lies before the header of an earlier one.
using KovJsonEachInstance = std::function<void(const KovJsonFieldWalk& walk, size_t base)>;
void kovJsonWalkFieldsEach(const CKovJsonLayout& layout, const CKovUp& up,
                           const KovJsonWalk* hdrWalk, bool imageOrder, KovJsonFieldWalk& walk,
                           const KovJsonEachInstance& each);

// The Value nodes' indexes sorted by their first bit (ties in tree order).
std::vector<int> kovJsonValuesInImageOrder(const KovJsonFieldWalk& walk);

// The short form of a value of field f for people: an enum name or decimal text bare
// ("High", "145.500"), a list of flags as JSON (["Scan"]), a character quoted ('U', or 0x07
// when it does not print), a string as JSON ("Charly"), a reference as "Channel bank[2]" (else
// 0x00090001), a number as its digits.
std::string kovJsonValueText(const KovJsonField& f, const nlohmann::ordered_json& value);

// The raw bits [bitIndex, bitIndex + bits) of bytes as hex digits; "" when they run past the end.
std::string kovJsonRawBits(const std::vector<uint8_t>& bytes, uint64_t bitIndex, uint32_t bits);

// Splits a path into its steps ("Zone[2]" -> name "Zone", index 2; index 0 when none). False
// when the path is empty or a bracket is not a whole number from 1.
struct KovJsonPathStep {
  std::string name;
  uint32_t index = 0;
};
bool kovJsonSplitPath(const std::string& path, std::vector<KovJsonPathStep>& steps);

#endif  // KOVJSON_FIELDWALK_H
