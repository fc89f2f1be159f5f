// Field-level differences between two field walks (kovjson/fieldwalk.h).
//
// kovJsonDiff matches the nodes of two walks by path. A value in both with another value is
// Changed; a union in both with another option is Changed (its options' values are not compared
// further); a node in one walk only whose parent is in both (or a block instance, which has no
// parent) is Removed or Added, with everything under it. Items come in the order of the first
// walk, an added node behind the last node of its parent's subtree there (an added instance
// behind the instances of blocks before its own). Linear in the nodes of both walks, with one
// hash look-up a node.
#ifndef KOVJSON_FIELDDIFF_H
#define KOVJSON_FIELDDIFF_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "kovjson/fieldwalk.h"

enum class KovJsonChange { Changed, Added, Removed };

struct KovJsonDiffItem {
  KovJsonChange change = KovJsonChange::Changed;
  std::string path;
  KovJsonNodeKind kind = KovJsonNodeKind::Value;
  nlohmann::ordered_json before, after;  // values (null on the side that lacks the node)
  std::string beforeText, afterText;     // the short forms (Changed only)
};

std::vector<KovJsonDiffItem> kovJsonDiff(const CKovJsonLayout& layout, const KovJsonFieldWalk& a,
                                         const KovJsonFieldWalk& b);

#endif  // KOVJSON_FIELDDIFF_H
