#include "kovjson/salvage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "kov/kovtest.h"
#include "kovjson/jsonread.h"
#include "kovjson/jsonvalues.h"

namespace {

using Json = nlohmann::ordered_json;

struct Radio {
  std::unique_ptr<CKovJsonLayout> layout;
  Bytes image;
  KovJsonWalk hdrs;
  KovJsonFieldWalk walk;
};

// The sample packed plain, or with the partition number in front of each instance.
Radio* makeRadio(bool prefixes) {
  auto* r = new Radio;
  std::string dir = KOV_RADIO_DIR;
  r->layout = CKovJsonLayout::LoadFile(dir + "/layout.json", false);
  Json values = kovJsonParse(kovJsonReadFile(dir + "/values.json"), "values.json");
  r->image = kovJsonPackImage(*r->layout, *kovJsonPackData(*r->layout, values, "values.json"),
                              prefixes, "");
  r->hdrs = kovJsonWalkImage(r->image, prefixes);
  CKovUp up(r->layout->GetCpLayout(), kovJsonWithoutPrefixes(r->image, r->hdrs), "");
  up.FullUnpack();
  r->walk = prefixes ? kovJsonWalkFieldsWithPrefixes(*r->layout, up, r->hdrs)
                     : kovJsonWalkFields(*r->layout, up);
  return r;
}

const Radio& radio(bool prefixes = false) {
  static Radio* plain = makeRadio(false);
  static Radio* prefixed = makeRadio(true);
  return prefixes ? *prefixed : *plain;
}

std::string faults(const KovJsonSalvage& s) {
  std::string text;
  for (const KovJsonFault& f : s.faults) {
    text += kovFormat("0x%06X %s: %s\n", f.offset, kovJsonFaultName(f.kind), f.text.c_str());
  }
  return text;
}

// Damage to the sample and the faults it gives, offsets from tools/testdata/radio.headers.txt
// (with prefixes: 2 more bytes in front of each instance).
TEST(Salvage, NamesEachFaultWithItsOffsetAndKind) {
  struct Case {
    const char* name;
    std::function<void(Bytes&)> damage;
    const char* faults;
    size_t read;
    bool prefixes = false;
  } cases[] = {
      {"whole", [](Bytes&) {}, "", 13},
      {"data bit of Channel bank[1]", [](Bytes& b) { b[0x40] ^= 1; },
       "0x000032 bad checksum: Channel bank[1]: checksum 0x535F, but the data gives 0x346A\n", 12},
      {"size of General", [](Bytes& b) { b[0x1D] = 0x40; },
       // The size is 64: the checksum is read from the wrong place, and the next header is
       // found by the search. The lists whose quantities General holds are lost with it.
       "0x000018 bad checksum: General: checksum 0x0000, but the data gives 0x0833\n"
       "0x0000B4 unreadable: Scan list: 1 sound instance left out: Unable to determine address "
       "of one or more fields in the image.\n"
       "0x0000C3 unreadable: Rx groups: 1 sound instance left out: List 'Rx group list' in "
       "block 'Rx groups' [1] takes its quantity from block 'General' [1], which the image does "
       "not hold before it.\n",
       10},
      {"KOV type of Zone[2]", [](Bytes& b) { b[0x9D] = 0x44; },
       "0x00009D unknown KOV name: KOV name 0x44010001 is not one of the layout\n", 12},
      {"KOV id of Channel bank[1] made 1", [](Bytes& b) { b[0x35] = 1; },
       "0x000032 duplicate: Channel bank[2]: KOV name 0x03010001 is also at offset 0x000065\n", 12},
      {"size below 2",
       [](Bytes& b) {
         b[0xC7] = 0;
         b[0xC8] = 1;
       },
       "0x0000C3 size below 2: Rx groups: size 1 cannot hold the 2 bytes of its checksum\n", 12},
      {"size past the end", [](Bytes& b) { b[0x1C] = 0xFF; },
       "0x000018 size past the end: General: size 65300 runs past the end of the image (392 "
       "bytes left)\n"
       "0x0000B4 unreadable: Scan list: 1 sound instance left out: Unable to determine address "
       "of one or more fields in the image.\n"
       "0x0000C3 unreadable: Rx groups: 1 sound instance left out: List 'Rx group list' in "
       "block 'Rx groups' [1] takes its quantity from block 'General' [1], which the image does "
       "not hold before it.\n",
       10},
      {"empty", [](Bytes& b) { b.clear(); }, "0x000000 truncated: the image is empty\n", 0},
      {"truncated inside an instance", [](Bytes& b) { b.resize(0x9D + 10); },
       "0x00009D truncated: Zone[2]: the image ends 4 bytes into its size of 17\n", 5},
      {"truncated inside a header", [](Bytes& b) { b.resize(0x118 + 3); },
       "0x000118 truncated: header cut short: 3 bytes left where a header needs 6\n", 10},
      {"listlet 1 of Contacts", [](Bytes& b) { b[0x160] ^= 0x80; },
       "0x000104 broken listlet chain: Contact header: 3 sound instances left out: Unable to "
       "determine instance # of Distributed KLS item Contacts in the image.\n"
       "0x00014E bad checksum: Contacts, listlet 1: checksum 0x5666, but the data gives 0xEDEC\n",
       9},
      // Size 18 made 19: the checksum of the data and E3, the checksum's high byte, is F500,
      // which the checksum's low byte and the 00 of General's prefix read as.
      {"size of Device info one larger, with prefixes", [](Bytes& b) { b[7] = 0x13; },
       "0x000002 overlap: Device info: size 19 reaches into the instance at 0x00001C\n", 12, true},
      {"truncated inside a prefix", [](Bytes& b) { b.resize(0x1A + 1); },
       "0x00001A truncated: header cut short: 1 bytes left where a header needs 8\n", 1, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Radio& r = radio(c.prefixes);
    Bytes b = r.image;
    c.damage(b);
    auto s = kovJsonSalvage(*r.layout, b, c.prefixes);
    EXPECT_EQ(faults(*s), c.faults);
    EXPECT_EQ(s->read.size(), c.read);
    EXPECT_EQ(s->LostSomething(), std::string(c.faults) != "");
  }
}

TEST(Salvage, ValuesKeepTheirInstanceNumbersAcrossALostInstance) {
  const Radio& r = radio();
  struct Case {
    const char* name;
    uint32_t at;  // the byte to change
    uint8_t to;
    const char* banks;  // channel names of the Channel bank instances salvaged, per instance
  } cases[] = {
      // The checksum of Channel bank[1] broken: instance 2 stays second, behind a gap.
      {"Channel bank[1] lost", 0x63, 0x00, "- Marine"},
      // The KOV id of Channel bank[2] made 0x8001: out of sequence, it follows, not 32769th.
      {"KOV id far out", 0x67, 0x80, "Calling Marine"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Bytes b = r.image;
    b[c.at] = c.to;
    Json banks = kovJsonSalvagedValues(*kovJsonSalvage(*r.layout, b))["Channel bank"];
    std::string shown;
    for (const Json& bank : banks) {
      shown += (shown.empty() ? "" : " ") +
               (bank.contains("Channels") ? bank["Channels"][0]["Channel name"].get<std::string>()
                                          : std::string("-"));
    }
    EXPECT_EQ(shown, c.banks);
  }
}

// Which instances of the sample each one needs to be read: a list whose quantity or a union
// whose discriminant lies in another block needs that block; a distributed list and its header
// block need each other.
std::vector<std::set<size_t>> needs(const Radio& r) {
  const auto& ins = r.hdrs.instances;
  auto blkOf = [&](size_t i) {
    for (const KovJsonBlock& b : r.layout->GetBlocks()) {
      if (b.kovType == ins[i].kovType) return &b;
    }
    return static_cast<const KovJsonBlock*>(nullptr);
  };
  std::vector<std::set<size_t>> out(ins.size());
  std::function<void(const std::vector<KovJsonField>&, std::set<uint16_t>&)> scan =
      [&](const std::vector<KovJsonField>& fields, std::set<uint16_t>& blks) {
        for (const KovJsonField& f : fields) {
          if (f.kind == KovJsonKind::List) {
            blks.insert(f.leqBlkID);
            if (!f.qtyIsConstant) blks.insert(f.qtyBlkID);
          }
          for (const KovJsonDiscr& d : f.discrs) blks.insert(d.blkID);
          scan(f.entry, blks);
          for (const KovJsonOption& o : f.options) scan(o.fields, blks);
        }
      };
  for (size_t i = 0; i < ins.size(); ++i) {
    const KovJsonBlock* b = blkOf(i);
    std::set<uint16_t> blks;
    scan(b->fields, blks);
    if (b->pairBlkID != 0) blks.insert(b->pairBlkID);
    if (b->kind == KovJsonBlkKind::DistKls) blks.insert(b->id);
    for (size_t j = 0; j < ins.size(); ++j) {
      if (j != i && blks.count(blkOf(j)->id) != 0) out[i].insert(j);
    }
  }
  return out;
}

void sweep(const Radio& r, bool prefixes);

// Every truncation and every single-bit flip of the sample, plain and with partition prefixes:
// each instance the damage leaves alone, with all it needs, comes back with every value at the
// same path, place and raw bits. Damage to a KOV name (the first 4 bytes of a header) can make an
// instance pass for another of its block or of the block it now names, so those blocks count as
// damaged then. A prefix is no part of its instance: damage to it loses nothing.
TEST(SalvageSweep, EveryTruncationAndBitFlipOfTheSample) {
  for (bool prefixes : {false, true}) {
    SCOPED_TRACE(prefixes ? "with partition prefixes" : "plain");
    sweep(radio(prefixes), prefixes);
    if (HasFatalFailure()) return;
  }
}

void sweep(const Radio& r, bool prefixes) {
  const uint32_t pre = prefixes ? 2 : 0;
  const auto& ins = r.hdrs.instances;
  std::vector<std::set<size_t>> need = needs(r);
  size_t cases = 0, recovered = 0, lost = 0, checkedValues = 0;

  auto check = [&](const Bytes& damaged, uint32_t from, uint32_t to, const std::string& what) {
    SCOPED_TRACE(what);
    ++cases;
    std::vector<bool> hit(ins.size(), false);
    for (size_t i = 0; i < ins.size(); ++i) {
      uint32_t start = ins[i].offset, end = start + 6 + ins[i].size;
      if (from < end && start < to) hit[i] = true;
      // A changed KOV name: every instance of the old block and of the block now named.
      if (from >= start && from < start + 4 && to == from + 1) {
        uint16_t type = static_cast<uint16_t>(damaged[start] << 8 | damaged[start + 1]);
        for (size_t j = 0; j < ins.size(); ++j) {
          if (ins[j].kovType == ins[i].kovType || ins[j].kovType == type) hit[j] = true;
        }
      }
    }
    // What an instance needs is damaged: so is it (to a fixed point; the chains are short).
    for (bool changed = true; changed;) {
      changed = false;
      for (size_t i = 0; i < ins.size(); ++i) {
        for (size_t j : need[i]) {
          if (hit[j] && !hit[i]) hit[i] = changed = true;
        }
      }
    }
    auto s = kovJsonSalvage(*r.layout, damaged, prefixes);
    std::set<uint32_t> readAt;
    for (const KovJsonInstance& in : s->read) readAt.insert(in.offset);
    std::map<std::string, const KovJsonNode*> byPath;
    for (const KovJsonNode& n : s->walk.nodes) byPath[n.path] = &n;
    for (size_t i = 0; i < ins.size(); ++i) {
      if (readAt.count(ins[i].offset) != 0 && !hit[i]) ++recovered;
      if (readAt.count(ins[i].offset) == 0) ++lost;
      if (hit[i]) continue;
      EXPECT_EQ(readAt.count(ins[i].offset), 1u) << "instance at " << ins[i].offset;
    }
    for (const KovJsonNode& n : r.walk.nodes) {
      if (n.kind != KovJsonNodeKind::Value || hit[n.hdr]) continue;
      ++checkedValues;
      auto it = byPath.find(n.path);
      ASSERT_NE(it, byPath.end()) << n.path;
      EXPECT_EQ(it->second->bitIndex, n.bitIndex) << n.path;
      EXPECT_EQ(it->second->raw, n.raw) << n.path;
      // A reference reads as {"block", "instance"} only while its instance is there.
      if (n.field->kind != KovJsonKind::Name) {
        EXPECT_EQ(it->second->value, n.value) << n.path;
      }
    }
    // A cut between two instances leaves an image that is whole as far as its bytes tell.
    bool cut = to == UINT32_MAX;
    bool detectable = (cut && from == 0) || std::count(hit.begin(), hit.end(), true) != 0;
    if (std::none_of(ins.begin(), ins.end(),
                     [&](const KovJsonInstance& in) { return in.offset - pre == from; }) ||
        !cut) {
      EXPECT_EQ(s->LostSomething(), detectable);
    }
    // Every header found whole carries the partition in front of it.
    for (const KovJsonHdr& h : s->walk.hdrs) {
      if (!prefixes) break;
      EXPECT_EQ(h.at.partition, damaged[h.at.offset - 2] << 8 | damaged[h.at.offset - 1])
          << "header at " << h.at.offset;
    }
    EXPECT_EQ(s->walk.prefixes, prefixes);
  };

  for (uint32_t len = 0; len < r.image.size(); ++len) {
    Bytes cut(r.image.begin(), r.image.begin() + len);
    check(cut, len, UINT32_MAX, kovFormat("cut to %u bytes", len));
    if (testing::Test::HasFatalFailure()) return;
  }
  for (uint32_t bit = 0; bit < r.image.size() * 8; ++bit) {
    Bytes flipped = r.image;
    flipped[bit / 8] ^= static_cast<uint8_t>(0x80 >> (bit % 8));
    check(flipped, bit / 8, bit / 8 + 1, kovFormat("bit %u flipped (byte 0x%X)", bit, bit / 8));
    if (testing::Test::HasFatalFailure()) return;
  }
  std::printf(
      "salvage sweep%s: %zu cases, %zu instances recovered untouched, %zu lost, %zu values "
      "checked\n",
      prefixes ? " with prefixes" : "", cases, recovered, lost, checkedValues);
  // 422 bytes, and 2 more for each of the 13 instances with prefixes.
  EXPECT_EQ(cases, (prefixes ? 448u : 422u) * 9);
}

}  // namespace
