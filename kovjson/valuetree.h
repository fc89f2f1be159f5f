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
#include <unordered_map>
#include <vector>

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

// A tree of values of its own, held in a few flat arrays: what a front end copies its values into
// so that the pack can read them without the front end's lock, and what an unpack writes once
// for every reader of its values (a JSON document, the objects of a scripting language, the
// strict check that packs them again).
//
// It is written in document order: Add* appends a value, BeginObject/BeginArray open a container
// that End closes, and inside an object AddKey names the member whose value comes next. Member
// names are kept once each (a values file repeats a few names many times), looked up first by
// the address of the text, then by the text. Strings are copied. Type::Other holds a text that
// ToJson gives as a JSON string (a decimal number object of a scripting language). The writer
// trusts its caller's order (a key before every member's value, End matching a Begin); the tree
// is read once End closed the root. A writer that names the same members again and again (one
// per field of a layout) takes each name's index once with KeyIndex and names members by it;
// a reader that knows it reads a tape maps each index to its own meaning once, by KeyOfItem.
//
// Cost: every value is an item of 16 bytes and an index entry in its container; Add* is O(1)
// amortized, End copies the container's child indices once. All reads are O(1) but Find, which
// is linear in the members of the object.
class KovValueTape final : public KovValueTree {
 public:
  struct Item {
    uint32_t typeAndKey;  // Type in the low 8 bits, the member name's index above (kNoKey: none)
    uint32_t size;        // the length of a string, the children of a container
    uint64_t data;        // a number's bits, a string's offset in the text, a container's first
                          // child in the child index
  };
  static constexpr uint32_t kNoKey = 0xFFFFFF;

  void AddKey(std::string_view name) { nextKey = KeyIndex(name); }
  // The index of member name name, made at its first use; valid until Clear. Throws
  // std::length_error past the distinct names an item can index (kNoKey of them).
  uint32_t KeyIndex(std::string_view name);
  // Names the member whose value comes next by an index from KeyIndex, as AddKey does.
  void AddKeyIndex(uint32_t key) { nextKey = key; }
  void AddNull() { Push(Type::Null, 0, 0); }
  void AddBool(bool b) { Push(Type::Bool, 0, b ? 1 : 0); }
  void AddUnsigned(uint64_t u) { Push(Type::Unsigned, 0, u); }
  void AddInteger(int64_t i) { Push(Type::Integer, 0, static_cast<uint64_t>(i)); }
  void AddFloat(double d);
  void AddString(std::string_view s) { PushText(Type::String, s); }
  void AddOther(std::string_view text) { PushText(Type::Other, text); }
  void BeginObject() { Open(Type::Object); }
  void BeginArray() { Open(Type::Array); }
  void End();
  // Appends j, containers and all.
  void AddJson(const nlohmann::ordered_json& j);
  // Room for about values values without growing; never throws but for exhausted memory.
  void Reserve(size_t values);
  // Empties the tree for writing again, keeping the room it has; never throws.
  void Clear();
  // The values the tree has room for without growing.
  size_t Capacity() const { return items.capacity(); }

  // Direct reading, for a reader that walks the whole tree: the item of a node, the children of
  // a container (their node indices), a member name, the text of a string or Other.
  const Item& ItemOf(KovValueNode n) const { return items[n.i]; }
  static Type TypeOfItem(const Item& item) { return static_cast<Type>(item.typeAndKey & 0xFF); }
  // The member name index of an item (kNoKey outside an object).
  static uint32_t KeyOfItem(const Item& item) { return item.typeAndKey >> 8; }
  const uint32_t* Children(const Item& item) const { return kids.data() + item.data; }
  size_t KeyCount() const { return keys.size(); }
  const std::string& KeyName(uint32_t key) const { return keys[key]; }
  std::string_view Text(const Item& item) const {
    return std::string_view(chars.data() + item.data, item.size);
  }
  KovValueNode NodeAt(uint32_t index) const { return {this, index}; }

  KovValueNode Root() const override { return items.empty() ? KovValueNode() : NodeAt(0); }
  Type TypeOf(KovValueNode n) const override { return TypeOfItem(items[n.i]); }
  uint64_t Unsigned(KovValueNode n) const override { return items[n.i].data; }
  std::string_view String(KovValueNode n) const override { return Text(items[n.i]); }
  size_t Size(KovValueNode n) const override {
    Type type = TypeOf(n);
    return type == Type::Object || type == Type::Array ? items[n.i].size : 0;
  }
  bool NextMember(KovValueNode n, KovValueIter& it, std::string_view& key,
                  KovValueNode& value) const override;
  bool NextElement(KovValueNode n, KovValueIter& it, KovValueNode& value) const override;
  KovValueNode Find(KovValueNode n, std::string_view key) const override;
  KovValueNode At(KovValueNode n, size_t i) const override {
    return NodeAt(Children(items[n.i])[i]);
  }
  nlohmann::ordered_json ToJson(KovValueNode n) const override;

 private:
  void Push(Type type, uint32_t size, uint64_t data) {
    // The first value is the root; every later one is a child of the innermost open container.
    if (!items.empty()) pending.push_back(static_cast<uint32_t>(items.size()));
    items.push_back({static_cast<uint32_t>(type) | nextKey << 8, size, data});
    nextKey = kNoKey;
  }
  void PushText(Type type, std::string_view text);
  void Open(Type type);

  std::vector<Item> items;
  std::vector<uint32_t> kids;     // the children of every container, each container's together
  std::string chars;              // the text of every string
  std::vector<std::string> keys;  // member names by index
  std::unordered_map<std::string, uint32_t> keyIndex;
  // The last names seen by the address of their text: a hit still compares the text.
  struct KeyHint {
    const char* text = nullptr;
    size_t size = 0;
    uint32_t key = 0;
  };
  KeyHint hints[256];
  uint32_t nextKey = kNoKey;
  std::vector<uint32_t> pending;  // the children of the open containers so far, outermost first
  std::vector<uint32_t> open;     // the open containers: item index, then where its children
                                  // start in pending
};

#endif  // KOVJSON_VALUETREE_H
