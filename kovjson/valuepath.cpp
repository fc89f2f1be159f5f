#include "kovjson/valuepath.h"

#include <unordered_map>
#include <vector>

namespace {

using Json = nlohmann::ordered_json;

[[noreturn]] void fail(const std::string& path, const std::string& text) {
  throw KovJsonError(path, "", text);
}

const KovJsonField* fieldNamed(const std::vector<KovJsonField>& fields, const std::string& name) {
  for (const KovJsonField& f : fields) {
    if (f.name == name) return &f;
  }
  return nullptr;
}

}  // namespace

Json kovJsonNodeValues(const KovJsonFieldWalk& walk, int node) {
  const KovJsonNode& n = walk.nodes[node];
  if (n.kind == KovJsonNodeKind::Value) return n.value;
  // The children follow their parent in the depth-first order and stop at the first node no
  // deeper than it.
  std::vector<int> children;
  for (size_t i = node + 1; i < walk.nodes.size() && walk.nodes[i].depth > n.depth; ++i) {
    if (walk.nodes[i].parent == node) children.push_back(static_cast<int>(i));
  }
  if (n.kind == KovJsonNodeKind::List) {
    Json a = Json::array();
    for (int c : children) a.push_back(kovJsonNodeValues(walk, c));
    return a;
  }
  Json o = Json::object();
  for (int c : children) {
    const KovJsonNode& child = walk.nodes[c];
    if (child.field != nullptr && !child.field->quantityOf.empty()) continue;
    o[child.kind == KovJsonNodeKind::Option ? child.option->name : child.field->name] =
        kovJsonNodeValues(walk, c);
  }
  return o;
}

int kovJsonFindPath(const KovJsonFieldWalk& walk, const std::string& path) {
  for (size_t i = 0; i < walk.nodes.size(); ++i) {
    if (walk.nodes[i].path == path) return static_cast<int>(i);
  }
  return -1;
}

void kovJsonSetPath(const CKovJsonLayout& layout, Json& values, const std::string& path,
                    const Json& value) {
  std::vector<KovJsonPathStep> steps;
  if (!kovJsonSplitPath(path, steps)) {
    fail(path, "a path is names joined by '.', with instances and entries as [1], [2], ...");
  }
  const KovJsonBlock* blk = layout.FindBlock(steps[0].name);
  if (blk == nullptr) fail(path, "the layout has no block '" + steps[0].name + "'");
  if (!values.is_object()) values = Json::object();
  Json* at = &values[blk->name];
  if (at->is_null()) {
    if (blk->multi) {
      fail(path, "the values have no instance of block '" + blk->name + "'");
    }
    *at = Json::object();
  }
  if (at->is_array()) {
    uint32_t i = steps[0].index;
    if (i == 0 || i > at->size()) {
      fail(path, kovFormat("block '%s' has %zu instance%s: give one of [1] to [%zu]",
                           blk->name.c_str(), at->size(), at->size() == 1 ? "" : "s", at->size()));
    }
    at = &(*at)[i - 1];
  } else if (steps[0].index > 1) {
    fail(path, "block '" + blk->name + "' has one instance");
  }
  if (steps.size() == 1) fail(path, "the path names a block instance, not a field");

  const std::vector<KovJsonField>* fields = &blk->fields;
  std::string where = "block '" + blk->name + "'";
  for (size_t s = 1; s < steps.size(); ++s) {
    const KovJsonPathStep& step = steps[s];
    const KovJsonField* f = fieldNamed(*fields, step.name);
    if (f == nullptr) fail(path, where + " has no field '" + step.name + "'");
    if (!f->quantityOf.empty()) {
      fail(path, "'" + f->name + "' holds the quantity of list '" + f->quantityOf +
                     "', which the list writes: add or remove entries instead");
    }
    if (!at->is_object()) *at = Json::object();
    Json& member = (*at)[f->name];
    bool last = s + 1 == steps.size();
    if (f->kind == KovJsonKind::List) {
      if (step.index == 0) {
        if (last) {
          member = value;
          return;
        }
        fail(path, "list '" + f->name + "' needs an entry number, as " + f->name + "[1]");
      }
      if (!member.is_array()) member = Json::array();
      if (step.index > member.size() + 1) {
        fail(path, kovFormat("list '%s' has %zu entries: entry %u is neither one of them nor the "
                             "next",
                             f->name.c_str(), member.size(), step.index));
      }
      if (step.index == member.size() + 1) member.push_back(Json::object());
      at = &member[step.index - 1];
      if (last) {
        *at = value;
        return;
      }
      fields = &f->entry;
      where = "the entries of list '" + f->name + "'";
      continue;
    }
    if (step.index != 0) fail(path, "'" + f->name + "' is not a list: it takes no [n]");
    if (last) {
      member = value;
      return;
    }
    if (f->kind != KovJsonKind::Union) {
      fail(path, "'" + f->name + "' is a value: the path can't go on behind it");
    }
    const KovJsonPathStep& opt = steps[++s];
    const KovJsonOption* option = f->FindOption(opt.name);
    if (option == nullptr || opt.index != 0) {
      std::string names;
      for (const KovJsonOption& o : f->options)
        names += (names.empty() ? "'" : ", '") + o.name + "'";
      fail(path, "union '" + f->name + "' has no option '" + opt.name + "'; it has " + names);
    }
    if (!member.is_object() || !member.contains(option->name)) {
      member = Json::object();
      member[option->name] = Json::object();
    }
    at = &member[option->name];
    if (s + 1 == steps.size()) {
      *at = value;
      return;
    }
    fields = &option->fields;
    where = "option '" + option->name + "'";
  }
}
