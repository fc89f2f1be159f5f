#include "kov/platform/strresource.h"

#include <unordered_map>
#include <vector>

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

using SharedText = std::shared_ptr<const std::string>;

// Each registered text is shared by every field named by it; registering again makes a new text
// and leaves the old one to the fields that hold it.
std::unordered_map<uint32_t, SharedText>& registeredStrings() {
  static std::unordered_map<uint32_t, SharedText> strings;
  return strings;
}

// The library's texts, then the empty text, made once.
const SharedText& libraryString(size_t index) {
  static const std::vector<SharedText> texts = [] {
    std::vector<SharedText> made;
    for (const LibraryString& s : kLibraryStrings) {
      made.push_back(std::make_shared<const std::string>(s.text));
    }
    made.push_back(std::make_shared<const std::string>());
    return made;
  }();
  return texts[index];
}

KovStringResolver g_resolver = nullptr;

}  // namespace

std::shared_ptr<const std::string> kovLoadSharedString(uint32_t id) {
  const auto& strings = registeredStrings();
  auto it = strings.find(id);
  if (it != strings.end()) return it->second;
  if (g_resolver != nullptr) {
    std::string text;
    if (g_resolver(id, text)) return std::make_shared<const std::string>(std::move(text));
  }
  for (size_t i = 0; i < kNumLibraryStrings; ++i) {
    if (kLibraryStrings[i].id == id) return libraryString(i);
  }
  return libraryString(kNumLibraryStrings);
}

std::string kovLoadString(uint32_t id) { return *kovLoadSharedString(id); }

void kovRegisterString(uint32_t id, const std::string& text) {
  registeredStrings()[id] = std::make_shared<const std::string>(text);
}

void kovClearRegisteredStrings() { registeredStrings().clear(); }

KovStringResolver kovSetStringResolver(KovStringResolver resolver) {
  KovStringResolver previous = g_resolver;
  g_resolver = resolver;
  return previous;
}
