#include "kov/platform/strresource.h"

#include <unordered_map>

namespace {

struct LibraryString {
  uint32_t id;
  const char* text;
};

constexpr LibraryString kLibraryStrings[] = {
    {28520, "KOV List Structure ID"}, {28521, "KOV List Structure type"},
    {28522, "LEQ field"},             {28523, "Max LEQ field"},
    {28524, "LED size"},              {28525, "Listlet link"},
    {28526, "Max listlet LEQ"},
};

std::unordered_map<uint32_t, std::string>& registeredStrings() {
  static std::unordered_map<uint32_t, std::string> strings;
  return strings;
}

KovStringResolver g_resolver = nullptr;

}  // namespace

std::string kovLoadString(uint32_t id) {
  const auto& strings = registeredStrings();
  auto it = strings.find(id);
  if (it != strings.end()) return it->second;
  if (g_resolver != nullptr) {
    std::string text;
    if (g_resolver(id, text)) return text;
  }
  for (const LibraryString& s : kLibraryStrings) {
    if (s.id == id) return s.text;
  }
  return std::string();
}

void kovRegisterString(uint32_t id, const std::string& text) { registeredStrings()[id] = text; }

void kovClearRegisteredStrings() { registeredStrings().clear(); }

KovStringResolver kovSetStringResolver(KovStringResolver resolver) {
  KovStringResolver previous = g_resolver;
  g_resolver = resolver;
  return previous;
}
