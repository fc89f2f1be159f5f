// A tree of values in the shape of a values file (kovjson/jsonvalues.h), read by the pack through
// this interface whatever holds it: a JSON document, or the objects of a scripting language.
//
// A KovValueTree hands out nodes, two words that only the tree itself reads (a pointer to the
// value and, where the tree needs it, an index). A node stays valid as long as the tree and the
// values under it are not changed. The hot questions (the type of a node, an unsigned number, a
// string, the members of an object, the elements of an array) are answered without copying; any
// other value is read through ToJson, which gives the node as JSON so that the rare cases (enum
// names, decimals, references, refusals) take one road whatever the tree. The pack builds a
// node's JSON pointer only when it refuses the value.
//
// Cost: TypeOf, Unsigned, String, Size and the two Next calls are O(1); Find is linear in the
// members of the object; At is O(1) for the JSON tree.
#ifndef KOVJSON_VALUETREE_H
#define KOVJSON_VALUETREE_H

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

struct KovValueNode {
  const void* p = nullptr;
  size_t i = 0;

  bool IsNull() const { return p == nullptr; }
};

// Where an iteration over an object's members or an array's elements stands; starts at 0.
struct KovValueIter {
  size_t pos = 0;
};

class KovValueTree {
 public:
  // Unsigned: a whole number >= 0 that Unsigned reads. Integer: any other whole number. Other: a
  // value that only ToJson reads (a decimal number object of a scripting language, say).
  enum class Type { Null, Bool, Unsigned, Integer, Float, String, Object, Array, Other };

  virtual ~KovValueTree() = default;

  virtual KovValueNode Root() const = 0;
  virtual Type TypeOf(KovValueNode n) const = 0;
  // The number of a node of type Unsigned.
  virtual uint64_t Unsigned(KovValueNode n) const = 0;
  // The UTF-8 text of a node of type String; valid as long as the node.
  virtual std::string_view String(KovValueNode n) const = 0;
  // The members of an object, the elements of an array.
  virtual size_t Size(KovValueNode n) const = 0;
  // The next member of object n in its order: false after the last.
  virtual bool NextMember(KovValueNode n, KovValueIter& it, std::string_view& key,
                          KovValueNode& value) const = 0;
  // The next element of array n: false after the last.
  virtual bool NextElement(KovValueNode n, KovValueIter& it, KovValueNode& value) const = 0;
  // Member key of object n; a null node when there is none.
  virtual KovValueNode Find(KovValueNode n, std::string_view key) const = 0;
  // Element i of array n (i < Size(n)).
  virtual KovValueNode At(KovValueNode n, size_t i) const = 0;
  // The value of n as JSON. Never throws but for exhausted memory.
  virtual nlohmann::ordered_json ToJson(KovValueNode n) const = 0;
};

// The tree of a JSON document, which must outlive it and stay unchanged while it is read.
class KovJsonValueTree : public KovValueTree {
 public:
  explicit KovJsonValueTree(const nlohmann::ordered_json& root) : root(&root) {}

  KovValueNode Root() const override { return {root, 0}; }
  Type TypeOf(KovValueNode n) const override;
  uint64_t Unsigned(KovValueNode n) const override;
  std::string_view String(KovValueNode n) const override;
  size_t Size(KovValueNode n) const override;
  bool NextMember(KovValueNode n, KovValueIter& it, std::string_view& key,
                  KovValueNode& value) const override;
  bool NextElement(KovValueNode n, KovValueIter& it, KovValueNode& value) const override;
  KovValueNode Find(KovValueNode n, std::string_view key) const override;
  KovValueNode At(KovValueNode n, size_t i) const override;
  nlohmann::ordered_json ToJson(KovValueNode n) const override;

 private:
  const nlohmann::ordered_json* root;
};

#endif  // KOVJSON_VALUETREE_H
