#include "kov/platform/strresource.h"

#include <atomic>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>
#include <unordered_set>

#include "kov/platform/arena.h"

namespace {

struct LibraryString {
  uint32_t id;
  const char* text;
};

constexpr LibraryString kLibraryStrings[] = {
    {28520, "KOV List Structure ID"},
    {28521, "KOV List Structure type"},
    {28522, "LEQ field"},
    {28523, "Max LEQ field"},
    {28524, "LED size"},
    {28525, "Listlet link"},
    {28526, "Max listlet LEQ"},
};

// The texts and the registrations, behind one lock: lookups (every field an unpack makes) share
// it, registrations and texts not seen before take it alone.
//
// pool holds every text ever handed out, each once for the life of the process: a field keeps a
// pointer to its name, so a text must outlive every field made with it, whatever is registered
// or cleared later. It grows only by texts not seen before, and a node-based set never moves
// what it holds, so the references handed out stay valid while other threads add to it.
struct Strings {
  std::shared_mutex lock;
  std::unordered_set<std::string> pool;
  std::unordered_map<uint32_t, const std::string*> registered;  // id -> its text, in the pool
  const std::string* library[sizeof kLibraryStrings / sizeof kLibraryStrings[0]] = {};
  const std::string* empty = nullptr;

  Strings() {
    for (const LibraryString& s : kLibraryStrings) library[&s - kLibraryStrings] = Intern(s.text);
    empty = Intern(std::string());
  }
  // Callers hold lock exclusively (or are the constructor).
  const std::string* Intern(const std::string& text) { return &*pool.insert(text).first; }
};

Strings& strings() {
  static Strings s;
  return s;
}

std::atomic<KovStringResolver> g_resolver{nullptr};

// Every field a pack or unpack makes looks its name up, so threads keep what they looked up in a
// cache of their own instead of taking the shared lock each time (its counter would bounce
// between the cores). Any registration or clear moves the generation on, and a thread drops its
// cache when it sees the generation move: a look-up begun after a registration has returned sees
// it.
std::atomic<uint64_t> g_generation{1};

struct ThreadCache {
  uint64_t generation = 0;
  std::unordered_map<uint32_t, const std::string*> registered;  // null: none registered
};

// The registered text of id (null: none), from the cache of the calling thread.
const std::string* registeredText(Strings& s, uint32_t id) {
  thread_local ThreadCache cache;
  uint64_t generation = g_generation.load(std::memory_order_acquire);
  if (cache.generation != generation) {
    // A fresh map, not clear(): clear() would sweep every bucket the map ever grew to, each time
    // a layout being loaded on another thread registers one more name.
    std::unordered_map<uint32_t, const std::string*>().swap(cache.registered);
    cache.generation = generation;
  }
  auto hit = cache.registered.find(id);
  if (hit != cache.registered.end()) return hit->second;
  const std::string* text = nullptr;
  {
    std::shared_lock<std::shared_mutex> read(s.lock);
    auto it = s.registered.find(id);
    if (it != s.registered.end()) text = it->second;
  }
  cache.registered.emplace(id, text);
  return text;
}

// The registered texts a thread looked up last, one slot for each value of an id's low bits, good
// while the generation is the one they were found in. An unpack names every field it makes, from a
// handful of ids: this answers those without the cache's hash table or the shared texts.
constexpr size_t kRecentSlots = 16;
struct RecentTexts {
  uint64_t generation;  // 0: none yet (the generation starts at 1)
  uint32_t ids[kRecentSlots];
  const std::string* texts[kRecentSlots];  // null: the slot is empty
};
thread_local RecentTexts t_recentTexts;
// The calling thread's RecentTexts, found through the static thread-local block in one load; the
// texts themselves stay in the library's own block, whose look-up is a call.
__attribute__((tls_model("initial-exec"))) thread_local RecentTexts* t_recent = nullptr;

RecentTexts& recentTexts() {
  RecentTexts* recent = t_recent;
  if (recent == nullptr) recent = t_recent = &t_recentTexts;
  return *recent;
}

}  // namespace

const std::string& kovLoadInternedString(uint32_t id) {
  RecentTexts& recent = recentTexts();
  const uint64_t generation = g_generation.load(std::memory_order_acquire);
  const size_t slot = id & (kRecentSlots - 1);
  if (recent.generation == generation && recent.ids[slot] == id && recent.texts[slot] != nullptr) {
    return *recent.texts[slot];
  }
  Strings& s = strings();
  if (const std::string* text = registeredText(s, id)) {
    // A text found after a later registration is kept under the earlier generation, which the
    // next look-up finds stale.
    if (recent.generation != generation) {
      recent = RecentTexts{};
      recent.generation = generation;
    }
    recent.ids[slot] = id;
    recent.texts[slot] = text;
    return *text;
  }
  // The resolver is the application's code: it runs without the lock, and outside any unpack's
  // arena.
  KovStringResolver resolver = g_resolver.load();
  if (resolver != nullptr) {
    std::string text;
    bool resolved;
    {
      KovArenaPause pause;
      resolved = resolver(id, text);
    }
    if (resolved) {
      std::unique_lock<std::shared_mutex> write(s.lock);
      return *s.Intern(text);
    }
  }
  for (const LibraryString& ls : kLibraryStrings) {
    if (ls.id == id) return *s.library[&ls - kLibraryStrings];
  }
  return *s.empty;
}

std::string kovLoadString(uint32_t id) { return kovLoadInternedString(id); }

void kovRegisterString(uint32_t id, const std::string& text) {
  Strings& s = strings();
  std::unique_lock<std::shared_mutex> write(s.lock);
  s.registered[id] = s.Intern(text);
  g_generation.fetch_add(1, std::memory_order_release);
}

void kovClearRegisteredStrings() {
  Strings& s = strings();
  std::unique_lock<std::shared_mutex> write(s.lock);
  s.registered.clear();
  g_generation.fetch_add(1, std::memory_order_release);
}

KovStringResolver kovSetStringResolver(KovStringResolver resolver) {
  return g_resolver.exchange(resolver);
}
