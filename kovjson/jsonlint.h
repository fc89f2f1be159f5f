// Layout mistakes that load and verify but can't work as meant, each named with the JSON
// pointer of the layout item, and the map of the bits of each block that no field claims.
//
// kovJsonLint reports, in layout order:
//   - fixed fields of one entry whose bits overlap, counting a list at its most entries and a
//     union at its largest option;
//   - a field (a list or a union at their largest, or a field floating behind one) that can run
//     past its block's maxDataSize, its list entry's entryBits or its padded union's bits;
//   - a distributed block whose maxDataSize is below one listlet of listletMax entries;
//   - a union case value that its discriminant can never hold (a number too wide, a text longer
//     than its string);
//   - a cycle of fields that wait for each other: a floating field waits for the one before it,
//     a field inside a list entry or a union option for its list or union, a union for its
//     discriminants, a list for its quantity field.
// Extents are in bits from the start of the entry (the block's data with its configuration
// area). A floating field behind a field of variable size is placed behind that field at its
// largest. Linear in the number of fields but for the overlap check (n log n a scope).
#ifndef KOVJSON_JSONLINT_H
#define KOVJSON_JSONLINT_H

#include <cstdint>
#include <string>
#include <vector>

#include "kovjson/jsonlayout.h"

// Where a field of an entry starts and ends at its largest, in bits from the entry's start;
// exact when the start is where the field always stands (a floating field behind one of
// variable size stands further back when that one is smaller).
struct KovJsonPlaced {
  const KovJsonField* field;
  uint64_t start;
  uint64_t end;
  bool exact;
};

// The fields of one entry placed one behind the other from firstBit; listletMax, when not 0,
// caps its lists (a distributed block's instance is one listlet).
std::vector<KovJsonPlaced> kovJsonPlaceFields(const std::vector<KovJsonField>& fields,
                                              uint64_t firstBit, uint32_t listletMax = 0);
// The most bits a field can take: a list at its most entries, a union at its largest option.
uint64_t kovJsonMaxBits(const KovJsonField& f);
// The bits of configuration in front of a block's own fields (KOV List Structures, headers).
uint64_t kovJsonCfgBits(const KovJsonBlock& blk);

struct KovJsonLintFinding {
  std::string pointer;  // in the layout file
  std::string text;
};

std::vector<KovJsonLintFinding> kovJsonLint(const CKovJsonLayout& layout);

// One line a block with bits that no top-level field claims, its fields at their largest:
// "Zone: bits 74 to 79 (byte 9), 392 to 399 (byte 49)". Blocks whose every bit is claimed are
// left out.
std::vector<std::string> kovJsonUnclaimedBits(const CKovJsonLayout& layout);

#endif  // KOVJSON_JSONLINT_H
