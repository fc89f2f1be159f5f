// The detailed tree of a layout: every block and field in layout order, with where each field
// stands and how wide it is, for someone checking a layout against a memory map.
//
// One line a block (its id, KOV name, size and kind) and a table of its fields: the byte offset
// and MSB of the field's first bit (from the start of its entry: the block's data with its
// configuration area, a list entry, a union option), its width (bits of one value, one
// character, one list entry; a union's fixed size), its size in bits ("<=" before the most a
// list or variable union can take), then its name, id and type. A floating field behind one of
// variable size has no fixed place: "-". List entries and union options follow their field,
// indented. Never throws but for exhausted memory.
#ifndef KOVJSON_JSONTREE_H
#define KOVJSON_JSONTREE_H

#include <string>

#include "kovjson/jsonlayout.h"

std::string kovJsonTreeDetail(const CKovJsonLayout& layout);

#endif  // KOVJSON_JSONTREE_H
