// Values by path: the value at a path of the field walk (kovjson/fieldwalk.h), as a values file
// would write it, and the change of one value of a values file by path.
//
// kovJsonNodeValues gives the values under a node of a walk: a Value's value, a list's array of
// entries, an entry's or instance's object of fields, a union's {"option": {...}}. Quantity
// fields, which a values file leaves out, are left out here too.
//
// kovJsonSetPath changes a values file (the JSON of kovjson/jsonvalues.h) in place. The path is one
// of the field walk: "Channel bank[2].Channels[1].Mode.Analog.Rx frequency". Its steps are checked
// against the layout: the block, its instance (a multi-instance block needs one; its instances must
// exist in the values), each field, the entry of a list (existing, or the one just behind the last,
// which is added), the option of a union (another option than the one there replaces it, with no
// fields). The last step names a field whose value becomes value; it is not checked here: packing
// the values checks it. Failures throw KovJsonError(path, "", text) with texts like
//   "block 'General' has no field 'Volum'"
//   "list 'Channels' has 3 entries: entry 5 is neither one of them nor the next"
#ifndef KOVJSON_VALUEPATH_H
#define KOVJSON_VALUEPATH_H

#include <nlohmann/json.hpp>
#include <string>

#include "kovjson/fieldwalk.h"
#include "kovjson/jsonlayout.h"

nlohmann::ordered_json kovJsonNodeValues(const KovJsonFieldWalk& walk, int node);

// The index of the node with that path in walk; -1 when there is none.
int kovJsonFindPath(const KovJsonFieldWalk& walk, const std::string& path);

void kovJsonSetPath(const CKovJsonLayout& layout, nlohmann::ordered_json& values,
                    const std::string& path, const nlohmann::ordered_json& value);

#endif  // KOVJSON_VALUEPATH_H
