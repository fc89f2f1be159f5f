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

#include <string>
#include <vector>

#include "kovjson/jsonlayout.h"

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
