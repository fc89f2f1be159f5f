#include <algorithm>
#include <string>
#include <vector>

#include "kov/kovtest.h"
#include "kov/platform/format.h"
#include "kov/platform/kovmap.h"
#include "kov/platform/mainwnd.h"
#include "kov/platform/strresource.h"

namespace {

template <class K, class V, uint32_t S>
std::vector<K> keysInOrder(const CKovMap<K, V, S>& map) {
  std::vector<K> keys;
  for (const auto& kv : map) keys.push_back(kv.first);
  return keys;
}

// The keys and values of map in the order it visits them.
std::vector<std::pair<uint32_t, int>> contents(const CKovMap<uint32_t, int>& map) {
  return std::vector<std::pair<uint32_t, int>>(map.begin(), map.end());
}

TEST(KovMap, EditsKeepBucketOrderAndCopiesApart) {
  // A key's bucket is (key >> 4) % 17; buckets are visited in order, the newest key of each
  // first. Past 16 keys a map leaves its compact form.
  using Map = CKovMap<uint32_t, int>;
  struct Case {
    const char* what;
    void (*edit)(Map&);
    std::vector<std::pair<uint32_t, int>> contents;
  } cases[] = {
      {"0x110 >> 4 = 17 is bucket 0, before 16 and the newer 300 (>> 4 = 18) of bucket 1",
       [](Map& m) {
         m.SetAt(16, 1);
         m.SetAt(0x110, 2);
         m.SetAt(300, 3);
       },
       {{0x110, 2}, {300, 3}, {16, 1}}},
      {"subscript inserts a default at the front",
       [](Map& m) {
         m.SetAt(5, 1);
         m[6] += 7;
       },
       {{6, 7}, {5, 1}}},
      {"a miss leaves the value given, a hit sets it",
       [](Map& m) {
         int v = -1;
         m.SetAt(40, 40);
         EXPECT_FALSE(m.Lookup(3, v));
         EXPECT_EQ(v, -1);
         EXPECT_TRUE(m.Lookup(40, v));
         m.SetAt(1, v);
       },
       {{1, 40}, {40, 40}}},
      {"edits of a copy, or of the map assigned from, stay in it",
       [](Map& m) {
         Map from;
         for (uint32_t k = 0; k < 100; ++k) from.SetAt(k * 7, static_cast<int>(k));
         Map copy(from);
         copy.RemoveKey(0);
         copy.SetAt(7, -1);
         EXPECT_EQ(from.GetCount(), 100);
         EXPECT_EQ(*from.PLookup(7), 1);
         m = copy;
         copy.SetAt(14, -2);
         for (uint32_t k = 3; k < 100; ++k) m.RemoveKey(k * 7);
       },
       {{14, 2}, {7, -1}}},
      {"remove all, then a refill over the blocks of a larger first fill",
       [](Map& m) {
         for (uint32_t k = 0; k < 300; ++k) m.SetAt(k * 3, 1);
         m.RemoveAll();
         EXPECT_TRUE(m.IsEmpty());
         EXPECT_EQ(m.begin(), m.end());
         for (uint32_t k = 0; k < 40; ++k) m.SetAt(k * 5, static_cast<int>(k));
         for (uint32_t k = 20; k < 40; ++k) m.RemoveKey(k * 5);
       },
       {{15, 3}, {10, 2}, {5, 1},   {0, 0},   {30, 6},  {25, 5},  {20, 4},
        {45, 9}, {40, 8}, {35, 7},  {60, 12}, {55, 11}, {50, 10}, {75, 15},
        {70, 14}, {65, 13}, {95, 19}, {90, 18}, {85, 17}, {80, 16}}},
      {"a map moved from is left empty and usable",
       [](Map& m) {
         Map from;
         for (uint32_t k = 0; k < 50; ++k) from.SetAt(k * 16, static_cast<int>(k));
         auto order = contents(from);
         Map moved(std::move(from));
         EXPECT_EQ(contents(moved), order);
         EXPECT_TRUE(from.IsEmpty());
         from.SetAt(16, -1);
         m = from;
         m.SetAt(0, *moved.PLookup(0));
         m.SetAt(17 * 16, *moved.PLookup(17 * 16));
       },
       {{17 * 16, 17}, {0, 0}, {16, -1}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Map map;
    c.edit(map);
    EXPECT_EQ(contents(map), c.contents);
    EXPECT_EQ(map.GetCount(), static_cast<int>(c.contents.size()));
  }
}

// Inserts and removes keys drawn from 0, stride, 2 * stride, ... below keyRange * stride; at every
// check the order and the values, and those of a copy, must match a model of the buckets.
template <class Map>
void checkAgainstBucketModel(int steps, uint32_t keyRange, int checkEvery, uint32_t stride = 1) {
  Map map;
  std::vector<std::vector<uint32_t>> model(17);
  uint32_t x = 12345;
  for (int i = 0; i < steps; ++i) {
    x = x * 1103515245u + 12345u;
    uint32_t key = (x >> 8) % keyRange * stride;
    auto& chain = model[(key >> 4) % 17];
    auto pos = std::find(chain.begin(), chain.end(), key);
    if (i % 3 == 2) {
      ASSERT_EQ(map.RemoveKey(key), pos != chain.end()) << "step " << i;
      if (pos != chain.end()) chain.erase(pos);
    } else {
      map.SetAt(key, key + 1);
      if (pos == chain.end()) chain.insert(chain.begin(), key);
    }
    if (i % checkEvery == checkEvery - 1 || i == steps - 1) {
      std::vector<uint32_t> expected;
      for (const auto& c : model) expected.insert(expected.end(), c.begin(), c.end());
      ASSERT_EQ(keysInOrder(map), expected) << "step " << i;
      ASSERT_EQ(keysInOrder(Map(map)), expected) << "copy at step " << i;
      ASSERT_EQ(map.size(), expected.size());
      for (uint32_t k : expected) {
        const uint32_t* v = map.PLookup(k);
        ASSERT_TRUE(v != nullptr && *v == k + 1) << "key " << k << " at step " << i;
      }
    }
  }
}

TEST(KovMap, OrderAndValuesFollowABucketModelThroughEveryForm) {
  {
    SCOPED_TRACE("tens of thousands of keys: the map lives on its index");
    checkAgainstBucketModel<CKovMap<uint32_t, uint32_t>>(40000, 50000, 40000);
  }
  {
    // A few dozen keys, most in three buckets: the maps outgrow their compact form (at 4 keys,
    // and at 16) and go on in the large one, checked at every step.
    SCOPED_TRACE("a few dozen keys, crossing the scan limit both ways");
    checkAgainstBucketModel<CKovMap<uint32_t, uint32_t, 4>>(3000, 40, 1);
    checkAgainstBucketModel<CKovMap<uint32_t, uint32_t>>(3000, 40, 1);
  }
  {
    // At most 12 keys over nine buckets: the array of a compact map must be shifted the right
    // way on every insertion and removal.
    SCOPED_TRACE("compact map");
    checkAgainstBucketModel<CKovMap<uint32_t, uint32_t>>(3000, 12, 1, 13);
  }
}

TEST(KovMap, LargeMapsKeepTheAddressOfAValueWhileTheyGrowAndShrink) {
  // Past its compact form, the entries' blocks and the index grow beneath a value taken early; it
  // must not move. A map of values that are not trivially copyable is large from its first key.
  CKovMap<uint32_t, uint32_t> map;
  for (uint32_t k = 10; k < 30; ++k) map.SetAt(k, k);
  uint32_t& first = map[5];
  first = 55;
  for (uint32_t k = 100; k < 5000; ++k) map.SetAt(k, k);
  for (uint32_t k = 100; k < 5000; k += 2) map.RemoveKey(k);
  for (uint32_t k = 6000; k < 7000; ++k) map.SetAt(k, k);  // into the space of removed keys
  EXPECT_EQ(map.PLookup(5), &first);
  EXPECT_EQ(first, 55u);
  EXPECT_EQ(map.GetCount(), 20 + 1 + 2450 + 1000);

  CKovMap<uint32_t, std::string> texts;
  std::string& text = texts[1];
  text = "kept";
  for (uint32_t k = 2; k < 100; ++k) texts.SetAt(k, "x");
  EXPECT_EQ(texts.PLookup(1), &text);
  EXPECT_EQ(text, "kept");
}

TEST(Exception, CarriesTextCodeAndRuntimeClass) {
  CException* e = new CMevGenException("bad thing at 0x10", 0);
  EXPECT_TRUE(e->IsKindOf(KOV_RUNTIME_CLASS(CException)));
  EXPECT_TRUE(e->IsKindOf(KOV_RUNTIME_CLASS(CMevGenException)));
  EXPECT_STREQ(e->GetRuntimeClass()->m_className, "CMevGenException");
  char buf[8];
  unsigned help = 7;
  EXPECT_TRUE(e->GetErrorMessage(buf, sizeof buf, &help));
  EXPECT_STREQ(buf, "bad thi");  // cut to the buffer, terminated
  EXPECT_EQ(help, 0u);
  EXPECT_FALSE(e->GetErrorMessage(buf, 0));
  delete e;

  CException plain;
  EXPECT_FALSE(plain.IsKindOf(KOV_RUNTIME_CLASS(CMevGenException)));
  EXPECT_FALSE(plain.IsKindOf(nullptr));
}

TEST(Format, FormatsShortAndLongTexts) {
  EXPECT_EQ(kovFormat("Block %s [%d] at 0x%08X", "A", 2, 0x70000u), "Block A [2] at 0x00070000");
  std::string longText(1000, 'x');
  EXPECT_EQ(kovFormat("<%s>", longText.c_str()), "<" + longText + ">");
}

TEST(MessageBox, RecordingHandlerSeesTextsAndDefaultIsRestored) {
  {
    MessageBoxRecorder recorder;
    kovMessageBox("first");
    kovMessageBox("second");
    EXPECT_EQ(recorder.Texts(), (std::vector<std::string>{"first", "second"}));
  }
  KovMessageBoxHandler current = kovSetMessageBoxHandler(nullptr);
  EXPECT_NE(current, nullptr);
  EXPECT_EQ(kovSetMessageBoxHandler(current), current);  // null installed the default
}

TEST(StringResources, InternedTextsOutliveTheirRegistrationAndResolver) {
  // A field points at the text it was named with: the text must stay when the id is registered
  // again, cleared, or its resolver removed.
  kovRegisterString(900010, "First");
  const std::string& first = kovLoadInternedString(900010);
  kovRegisterString(900010, "Second");
  const std::string& second = kovLoadInternedString(900010);
  kovClearRegisteredStrings();
  KovStringResolver previous =
      kovSetStringResolver([](uint32_t, std::string& text) { return text = "Resolved", true; });
  const std::string& resolved = kovLoadInternedString(900011);
  kovSetStringResolver(previous);
  EXPECT_EQ(first, "First");
  EXPECT_EQ(second, "Second");
  EXPECT_EQ(resolved, "Resolved");
  EXPECT_EQ(kovLoadString(900010), "");
  // The same text is kept once, whichever road gave it.
  kovRegisterString(900012, "Resolved");
  EXPECT_EQ(&kovLoadInternedString(900012), &resolved);
  kovClearRegisteredStrings();
}

TEST(StringResources, LibraryTableApplicationTextsAndResolver) {
  const char* const library[] = {
      "KOV List Structure ID", "KOV List Structure type", "LEQ field", "Max LEQ field", "LED size",
      "Listlet link",          "Max listlet LEQ",         ""};
  for (uint32_t id = 28520; id < 28528; ++id) EXPECT_EQ(kovLoadString(id), library[id - 28520]);
  EXPECT_EQ(kovLoadString(0), "");

  kovRegisterString(900001, "Channel name");
  EXPECT_EQ(kovLoadString(900001), "Channel name");
  KovStringResolver previous = kovSetStringResolver([](uint32_t id, std::string& text) {
    if (id != 900002) return false;
    text = "Resolved";
    return true;
  });
  EXPECT_EQ(kovLoadString(900002), "Resolved");
  EXPECT_EQ(kovLoadString(900003), "");
  kovSetStringResolver(previous);
  kovClearRegisteredStrings();
  EXPECT_EQ(kovLoadString(900001), "");
  EXPECT_EQ(kovLoadString(28525), "Listlet link");
}

class RecordingWnd : public KovMainWnd {
 public:
  void BeginWaitCursor() override { calls += "B"; }
  void RestoreWaitCursor() override { calls += "R"; }
  void EndWaitCursor() override { calls += "E"; }
  void SendMessage(uint32_t message, uint32_t wParam, uint32_t lParam) override {
    calls += kovFormat("M%u,%u,%u", message, wParam, lParam);
  }
  std::string calls;
};

TEST(MainWnd, CallsReachInstalledWindowAndNothingHappensWithout) {
  kovBeginWaitCursor();  // no window: no effect, no crash
  kovSendMessageToMainWnd(1, 2, 3);
  RecordingWnd wnd;
  EXPECT_EQ(kovSetMainWnd(&wnd), nullptr);
  {
    KovWaitCursor cursor;
    kovSendMessageToMainWnd(0x400, 0x6FAD, 8);
    kovRestoreWaitCursor();
  }
  EXPECT_EQ(wnd.calls, "BM1024,28589,8RE");
  EXPECT_EQ(kovSetMainWnd(nullptr), &wnd);
}

}  // namespace
