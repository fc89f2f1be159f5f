#include "kov/platform/strresource.h"

#include <unordered_map>
#include <unordered_set>

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
constexpr size_t kNumLibraryStrings = sizeof kLibraryStrings / sizeof kLibraryStrings[0];

// Every text ever handed out, each held once for the life of the process: a field keeps a pointer
// to its name, so a text must outlive every field made with it, whatever is registered or cleared
// later. The pool grows only by texts not seen before.
const std::string& intern(const std::string& text) {
  static std::unordered_set<std::string> pool;
  return *pool.insert(text).first;
}

// id -> its registered text, in the pool.
std::unordered_map<uint32_t, const std::string*>& registeredStrings() {
  static std::unordered_map<uint32_t, const std::string*> strings;
  return strings;
}

KovStringResolver g_resolver = nullptr;

}  // namespace

const std::string& kovLoadInternedString(uint32_t id) {
  const auto& strings = registeredStrings();
  auto it = strings.find(id);
  if (it != strings.end()) return *it->second;
  if (g_resolver != nullptr) {
    std::string text;
    if (g_resolver(id, text)) return intern(text);
  }
  for (const LibraryString& s : kLibraryStrings) {
    if (s.id == id) {
      static const std::string* texts[kNumLibraryStrings] = {};
      const std::string*& text = texts[&s - kLibraryStrings];
      if (text == nullptr) text = &intern(s.text);
      return *text;
    }
  }
  static const std::string& empty = intern(std::string());
  return empty;
}

std::string kovLoadString(uint32_t id) { return kovLoadInternedString(id); }

void kovRegisterString(uint32_t id, const std::string& text) {
  registeredStrings()[id] = &intern(text);
}

void kovClearRegisteredStrings() { registeredStrings().clear(); }

KovStringResolver kovSetStringResolver(KovStringResolver resolver) {
  KovStringResolver previous = g_resolver;
  g_resolver = resolver;
  return previous;
}
