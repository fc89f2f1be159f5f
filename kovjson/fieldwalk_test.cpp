#include "kovjson/fieldwalk.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "kov/kovtest.h"
#include "kovjson/jsonread.h"
#include "kovjson/jsonvalues.h"

namespace {

using Json = nlohmann::ordered_json;

std::unique_ptr<CKovJsonLayout> radioLayout() {
  return CKovJsonLayout::LoadFile(std::string(KOV_RADIO_DIR) + "/layout.json", false);
}

Bytes radioImage(const CKovJsonLayout& layout) {
  std::string file = std::string(KOV_RADIO_DIR) + "/values.json";
  Json values = kovJsonParse(kovJsonReadFile(file), file);
  return kovJsonPackImage(layout, *kovJsonPackData(layout, values, file), false, "");
}

// Ids of the fields whose value shapes others: list quantities and union discriminants.
std::set<uint32_t> structuralFieldIDs(const CKovJsonLayout& layout) {
  std::set<uint32_t> ids;
  std::function<void(const std::vector<KovJsonField>&)> scan =
      [&](const std::vector<KovJsonField>& fields) {
        for (const KovJsonField& f : fields) {
          if (!f.quantityOf.empty()) ids.insert(f.id);
          if (f.kind == KovJsonKind::List) {
            ids.insert(f.leqID);
            if (!f.qtyIsConstant) ids.insert(f.qtyFieldID);
          }
          for (const KovJsonDiscr& d : f.discrs) ids.insert(d.fieldID);
          scan(f.entry);
          for (const KovJsonOption& o : f.options) scan(o.fields);
        }
      };
  for (const KovJsonBlock& b : layout.GetBlocks()) scan(b.fields);
  return ids;
}

// Rewrites the checksum of the instance whose header is at offset.
void reseal(Bytes& image, uint32_t offset) {
  uint32_t size = image[offset + 4] << 8 | image[offset + 5];
  uint16_t crc = 0;
  kovCalculateChecksum(image.data() + offset + 6, size - 2, crc);
  image[offset + 4 + size] = static_cast<uint8_t>(crc >> 8);
  image[offset + 5 + size] = static_cast<uint8_t>(crc);
}

// The place the walk reports for each value is where its bits are: inverting exactly those bits
// (and resealing the block) changes that value to its complement and leaves every other value's
// bits as they were. Catches a walk that reports the layout's place instead of the one the core
// used (floating fields), a wrong width, or an offset relative to the block instead of the image.
TEST(FieldWalk, ReportedBitsAreExactlyWhereEachValueLies) {
  auto layout = radioLayout();
  Bytes image = radioImage(*layout);
  CKovUp up(layout->GetCpLayout(), image, "");
  up.FullUnpack();
  KovJsonFieldWalk walk = kovJsonWalkFields(*layout, up);
  std::set<uint32_t> structural = structuralFieldIDs(*layout);

  size_t tested = 0, values = 0;
  for (const KovJsonNode& n : walk.nodes) {
    if (n.kind != KovJsonNodeKind::Value) continue;
    ++values;
    if (structural.count(n.field->id) != 0) continue;
    SCOPED_TRACE(n.path);
    ASSERT_GE(n.hdr, 0);
    Bytes flipped = image;
    for (uint64_t b = n.bitIndex; b < n.bitIndex + n.bits; ++b) {
      flipped[b / 8] ^= static_cast<uint8_t>(0x80 >> (b % 8));
    }
    reseal(flipped, walk.hdrs[n.hdr].at.offset);
    CKovUp up2(layout->GetCpLayout(), flipped, "");
    EXPECT_KOV_NO_THROW(up2.FullUnpack());
    KovJsonFieldWalk after = kovJsonWalkFields(*layout, up2);
    ASSERT_EQ(after.nodes.size(), walk.nodes.size());
    for (size_t i = 0; i < walk.nodes.size(); ++i) {
      const KovJsonNode& a = walk.nodes[i];
      const KovJsonNode& b = after.nodes[i];
      ASSERT_EQ(a.path, b.path);
      if (a.kind != KovJsonNodeKind::Value) continue;
      if (&a != &n) {
        EXPECT_EQ(a.raw, b.raw) << a.path;
        EXPECT_EQ(a.value, b.value) << a.path;
        continue;
      }
      EXPECT_NE(a.value, b.value);
      // The bits read are the complement of those before; a plain number is its raw bits.
      if (a.bits <= 32) {
        uint64_t mask = (uint64_t{1} << a.bits) - 1;
        EXPECT_EQ(std::stoull(b.raw, nullptr, 16), std::stoull(a.raw, nullptr, 16) ^ mask);
        if (a.field->kind == KovJsonKind::Number && a.field->format.IsPlain()) {
          EXPECT_EQ(std::stoull(a.raw, nullptr, 16), a.value.get<uint64_t>());
        }
      }
    }
    ++tested;
  }
  // All but the 10 quantity and discriminant values of the sample (2 channel counts, 4 kinds,
  // 2 member counts, the scan count and the rx groups less one).
  EXPECT_EQ(values, 93u);
  EXPECT_EQ(tested, 83u);
}

TEST(FieldWalk, PathsInstancesAndSpans) {
  auto layout = radioLayout();
  Bytes image = radioImage(*layout);
  CKovUp up(layout->GetCpLayout(), image, "");
  up.FullUnpack();
  KovJsonFieldWalk walk = kovJsonWalkFields(*layout, up);
  auto find = [&](const std::string& path) -> const KovJsonNode* {
    for (const KovJsonNode& n : walk.nodes) {
      if (n.path == path) return &n;
    }
    return nullptr;
  };
  // Hand-read from tools/testdata/radio.headers.txt and the layout: Channel bank[2] has its
  // header at 0x65, its data at 0x6B; Channels[1] starts at data byte 1, its union at entry
  // byte 9. The places and texts of the values are the golden dump's (tools/testdata).
  struct Case {
    const char* path;
    KovJsonNodeKind kind;
    uint64_t bitIndex;
    uint32_t bits;
    const char* text;
  } cases[] = {
      {"Channel bank[2]", KovJsonNodeKind::Instance, 0x65 * 8, (6 + 17) * 8, "instance 2"},
      {"Channel bank[2].Channels", KovJsonNodeKind::List, 0x6C * 8, 13 * 8, "1 entry"},
      {"Channel bank[2].Channels[1]", KovJsonNodeKind::Entry, 0x6C * 8, 13 * 8, ""},
      {"Channel bank[2].Channels[1].Kind", KovJsonNodeKind::Value, 0x6C * 8, 8, "Analog"},
      {"Channel bank[2].Channels[1].Mode", KovJsonNodeKind::Union, 0x75 * 8, 32, "Analog"},
      {"Zone[1].Zone options", KovJsonNodeKind::Value, 0x8B * 8, 8, "[\"Scan\"]"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    const KovJsonNode* n = find(c.path);
    ASSERT_NE(n, nullptr);
    EXPECT_EQ(n->kind, c.kind);
    EXPECT_TRUE(n->placed);
    EXPECT_EQ(n->bitIndex, c.bitIndex);
    EXPECT_EQ(n->bits, c.bits);
    EXPECT_EQ(n->text, c.text);
  }
  // The listlet that holds entry 5 is the second one.
  const KovJsonNode* charly = find("Contacts.Contact list[5].Contact name");
  ASSERT_NE(charly, nullptr);
  EXPECT_EQ(walk.hdrs[charly->hdr].label, "Contacts, listlet 1");
  EXPECT_EQ(walk.hdrs.size(), 13u);
  EXPECT_EQ(walk.hdrs[3].label, "Channel bank[2]");
}

TEST(FieldWalk, RawBitsAndPathSteps) {
  // 0xABC at bit 0 and 0x5 (3 bits) at bit 13: AB C5 -> 1010 1011 1100 0101.
  Bytes bytes = {0xAB, 0xC5};
  EXPECT_EQ(kovJsonRawBits(bytes, 0, 12), "ABC");
  EXPECT_EQ(kovJsonRawBits(bytes, 13, 3), "5");
  EXPECT_EQ(kovJsonRawBits(bytes, 1, 5), "0A");  // 01010
  EXPECT_EQ(kovJsonRawBits(bytes, 0, 16), "ABC5");
  EXPECT_EQ(kovJsonRawBits(bytes, 16, 0), "");
  EXPECT_EQ(kovJsonRawBits(bytes, 9, 8), "");  // one bit past the end

  struct Case {
    const char* path;
    bool ok;
    const char* steps;  // name/index pairs
  } cases[] = {
      {"General.Volume", true, "General/0 Volume/0"},
      {"Channel bank[2].Channels[11].Mode.Analog.Rx frequency", true,
       "Channel bank/2 Channels/11 Mode/0 Analog/0 Rx frequency/0"},
      {"", false, ""},
      {"A..B", false, ""},
      {"A[0]", false, ""},
      {"A[x]", false, ""},
      {"A[1", false, ""},
      {"[1]", false, ""},
      {"A.", false, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    std::vector<KovJsonPathStep> steps;
    ASSERT_EQ(kovJsonSplitPath(c.path, steps), c.ok);
    if (!c.ok) continue;
    std::string shown;
    for (const KovJsonPathStep& s : steps) {
      shown += (shown.empty() ? "" : " ") + s.name + "/" + std::to_string(s.index);
    }
    EXPECT_EQ(shown, c.steps);
  }
}

// The walk handed over one instance at a time holds the same nodes as the whole walk, with and
// without prefixes: in layout order at the same indexes (base + index, parents within the
// instance), in image order with every header's instance before the values behind the next.
TEST(FieldWalk, EachInstanceHandsOverTheWholeWalk) {
  auto layout = radioLayout();
  std::string file = std::string(KOV_RADIO_DIR) + "/values.json";
  Json values = kovJsonParse(kovJsonReadFile(file), file);
  for (bool prefixes : {false, true}) {
    Bytes image = kovJsonPackImage(*layout, *kovJsonPackData(*layout, values, file), prefixes, "");
    KovJsonWalk hdrWalk = kovJsonWalkImage(image, prefixes);
    CKovUp up(layout->GetCpLayout(), kovJsonWithoutPrefixes(image, hdrWalk), "");
    up.FullUnpack();
    KovJsonFieldWalk whole = prefixes ? kovJsonWalkFieldsWithPrefixes(*layout, up, hdrWalk)
                                      : kovJsonWalkFields(*layout, up);
    for (bool imageOrder : {false, true}) {
      SCOPED_TRACE(std::string(prefixes ? "prefixes, " : "") +
                   (imageOrder ? "image order" : "layout order"));
      auto key = [](const KovJsonNode& n) {
        return n.path +
               kovFormat(" %llu %u %d ", static_cast<unsigned long long>(n.bitIndex), n.bits,
                         n.hdr) +
               n.raw + n.text;
      };
      std::multiset<std::string> seen, want;
      for (const KovJsonNode& n : whole.nodes) want.insert(key(n));
      uint64_t lastStart = 0;
      KovJsonFieldWalk walk;
      kovJsonWalkFieldsEach(*layout, up, prefixes ? &hdrWalk : nullptr, imageOrder, walk,
                            [&](const KovJsonFieldWalk& w, size_t base) {
                              ASSERT_EQ(w.hdrs.size(), whole.hdrs.size());
                              EXPECT_EQ(w.hdrs.back().at.offset, whole.hdrs.back().at.offset);
                              ASSERT_EQ(w.nodes.front().kind, KovJsonNodeKind::Instance);
                              for (size_t k = 0; k < w.nodes.size(); ++k) {
                                const KovJsonNode& n = w.nodes[k];
                                seen.insert(key(n));
                                if (k > 0) {
                                  EXPECT_EQ(n.path.rfind(w.nodes[n.parent].path, 0), 0u) << n.path;
                                }
                                if (!imageOrder) {
                                  EXPECT_EQ(whole.nodes[base + k].path, n.path);
                                }
                              }
                              const KovJsonNode& root = w.nodes.front();
                              if (imageOrder && root.hdr >= 0 && root.placed &&
                                  root.bitIndex == w.hdrs[root.hdr].at.offset * 8ull) {
                                EXPECT_GE(root.bitIndex, lastStart) << root.path;
                                lastStart = root.bitIndex;
                              }
                            });
      EXPECT_EQ(seen, want);
      EXPECT_TRUE(walk.nodes.empty());
      EXPECT_EQ(walk.hdrs.size(), whole.hdrs.size());
    }
  }
}

}  // namespace
