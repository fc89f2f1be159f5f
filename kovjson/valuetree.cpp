#include "kovjson/valuetree.h"

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
