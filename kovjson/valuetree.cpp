#include "kovjson/valuetree.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <stdexcept>

namespace {

using Json = nlohmann::ordered_json;

const Json& json(KovValueNode n) { return *static_cast<const Json*>(n.p); }

}  // namespace

KovValueTree::Type KovJsonValueTree::TypeOf(KovValueNode n) const {
  switch (json(n).type()) {
    case Json::value_t::null:
      return Type::Null;
    case Json::value_t::boolean:
      return Type::Bool;
    case Json::value_t::number_unsigned:
      return Type::Unsigned;
    case Json::value_t::number_integer:
      return Type::Integer;
    case Json::value_t::number_float:
      return Type::Float;
    case Json::value_t::string:
      return Type::String;
    case Json::value_t::object:
      return Type::Object;
    case Json::value_t::array:
      return Type::Array;
    default:
      return Type::Other;
  }
}

uint64_t KovJsonValueTree::Unsigned(KovValueNode n) const { return json(n).get<uint64_t>(); }

std::string_view KovJsonValueTree::String(KovValueNode n) const {
  return json(n).get_ref<const std::string&>();
}

size_t KovJsonValueTree::Size(KovValueNode n) const { return json(n).size(); }

bool KovJsonValueTree::NextMember(KovValueNode n, KovValueIter& it, std::string_view& key,
                                  KovValueNode& value) const {
  const Json::object_t& members = *json(n).get_ptr<const Json::object_t*>();
  if (it.pos >= members.size()) return false;
  const auto& member = *(members.begin() + static_cast<std::ptrdiff_t>(it.pos++));
  key = member.first;
  value = {&member.second, 0};
  return true;
}

bool KovJsonValueTree::NextElement(KovValueNode n, KovValueIter& it, KovValueNode& value) const {
  const Json::array_t& items = *json(n).get_ptr<const Json::array_t*>();
  if (it.pos >= items.size()) return false;
  value = {&items[it.pos++], 0};
  return true;
}

KovValueNode KovJsonValueTree::Find(KovValueNode n, std::string_view key) const {
  for (const auto& member : *json(n).get_ptr<const Json::object_t*>()) {
    if (member.first == key) return {&member.second, 0};
  }
  return {};
}

KovValueNode KovJsonValueTree::At(KovValueNode n, size_t i) const {
  return {&(*json(n).get_ptr<const Json::array_t*>())[i], 0};
}

Json KovJsonValueTree::ToJson(KovValueNode n) const { return json(n); }

uint32_t KovValueTape::KeyIndex(std::string_view name) {
  KeyHint& hint = hints[(reinterpret_cast<uintptr_t>(name.data()) >> 3) % std::size(hints)];
  if (hint.text == name.data() && hint.size == name.size() &&
      std::string_view(keys[hint.key]) == name) {
    return hint.key;
  }
  auto it = keyIndex.find(std::string(name));
  if (it == keyIndex.end()) {
    if (keys.size() >= kNoKey) throw std::length_error("more than 16777214 distinct member names");
    keys.emplace_back(name);
    it = keyIndex.emplace(keys.back(), static_cast<uint32_t>(keys.size() - 1)).first;
  }
  hint = {name.data(), name.size(), it->second};
  return it->second;
}

void KovValueTape::AddFloat(double d) {
  uint64_t bits = 0;
  std::memcpy(&bits, &d, sizeof bits);
  Push(Type::Float, 0, bits);
}

void KovValueTape::Reserve(size_t values) {
  items.reserve(values);
  kids.reserve(values);
  pending.reserve(64);
}

void KovValueTape::Clear() {
  items.clear();
  kids.clear();
  chars.clear();
  pending.clear();
  open.clear();
  keys.clear();
  keyIndex.clear();
  std::fill(std::begin(hints), std::end(hints), KeyHint());
  nextKey = kNoKey;
}

void KovValueTape::PushText(Type type, std::string_view text) {
  if (text.size() > 0xFFFFFFFFu) throw std::length_error("a string of 4 GiB or more");
  uint64_t at = chars.size();
  chars.append(text);
  Push(type, static_cast<uint32_t>(text.size()), at);
}

void KovValueTape::Open(Type type) {
  open.push_back(static_cast<uint32_t>(items.size()));
  Push(type, 0, 0);
  open.push_back(static_cast<uint32_t>(pending.size()));
}

void KovValueTape::End() {
  uint32_t from = open.back();
  Item& item = items[open[open.size() - 2]];
  open.resize(open.size() - 2);
  item.data = kids.size();
  item.size = static_cast<uint32_t>(pending.size() - from);
  kids.insert(kids.end(), pending.begin() + from, pending.end());
  pending.resize(from);
}

void KovValueTape::AddJson(const Json& j) {
  switch (j.type()) {
    case Json::value_t::object:
      BeginObject();
      for (auto it = j.begin(); it != j.end(); ++it) {
        AddKey(it.key());
        AddJson(it.value());
      }
      End();
      break;
    case Json::value_t::array:
      BeginArray();
      for (const Json& e : j) AddJson(e);
      End();
      break;
    case Json::value_t::string:
      AddString(j.get_ref<const std::string&>());
      break;
    case Json::value_t::number_unsigned:
      AddUnsigned(j.get<uint64_t>());
      break;
    case Json::value_t::number_integer:
      AddInteger(j.get<int64_t>());
      break;
    case Json::value_t::number_float:
      AddFloat(j.get<double>());
      break;
    case Json::value_t::boolean:
      AddBool(j.get<bool>());
      break;
    default:
      AddNull();
      break;
  }
}

bool KovValueTape::NextMember(KovValueNode n, KovValueIter& it, std::string_view& key,
                              KovValueNode& value) const {
  const Item& item = items[n.i];
  if (it.pos >= item.size) return false;
  value = NodeAt(Children(item)[it.pos++]);
  key = keys[items[value.i].typeAndKey >> 8];
  return true;
}

bool KovValueTape::NextElement(KovValueNode n, KovValueIter& it, KovValueNode& value) const {
  const Item& item = items[n.i];
  if (it.pos >= item.size) return false;
  value = NodeAt(Children(item)[it.pos++]);
  return true;
}

KovValueNode KovValueTape::Find(KovValueNode n, std::string_view key) const {
  const Item& item = items[n.i];
  for (uint32_t k = 0; k < item.size; ++k) {
    uint32_t child = Children(item)[k];
    if (keys[items[child].typeAndKey >> 8] == key) return NodeAt(child);
  }
  return {};
}

Json KovValueTape::ToJson(KovValueNode n) const {
  const Item& item = items[n.i];
  switch (TypeOfItem(item)) {
    case Type::Null:
      return nullptr;
    case Type::Bool:
      return item.data != 0;
    case Type::Unsigned:
      return item.data;
    case Type::Integer:
      return static_cast<int64_t>(item.data);
    case Type::Float: {
      double d = 0;
      std::memcpy(&d, &item.data, sizeof d);
      return d;
    }
    case Type::String:
    case Type::Other:
      return std::string(Text(item));
    case Type::Object: {
      Json obj = Json::object();
      // Member names are unique: each goes straight to the end, without a search.
      using Members = std::vector<std::pair<const std::string, Json>>;
      Members& members = static_cast<Members&>(*obj.get_ptr<Json::object_t*>());
      members.reserve(item.size);
      for (uint32_t k = 0; k < item.size; ++k) {
        uint32_t child = Children(item)[k];
        members.emplace_back(keys[items[child].typeAndKey >> 8], ToJson(NodeAt(child)));
      }
      return obj;
    }
    case Type::Array: {
      Json arr = Json::array();
      Json::array_t& elements = *arr.get_ptr<Json::array_t*>();
      elements.reserve(item.size);
      for (uint32_t k = 0; k < item.size; ++k)
        elements.push_back(ToJson(NodeAt(Children(item)[k])));
      return arr;
    }
  }
  return nullptr;
}
