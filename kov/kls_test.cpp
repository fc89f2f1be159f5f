#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kov/fields/listfield.h"
#include "kov/fields/unionfield.h"
#include "kov/kovtest.h"
#include "kov/layout/klsblklayout.h"
#include "kov/layout/listfieldlayout.h"
#include "kov/layout/unionfieldlayout.h"
#include "kov/layout/unionlayoutopt.h"
#include "kov/unpack/updistklsblkinst.h"
#include "kov/unpack/upentrylist.h"
#include "kov/unpack/upstdblk.h"

namespace {

constexpr uint32_t kCfgLeq = CKovKLSBlkLayout::m_leqFldID;

// A list layout of VarSzCfgLeq format at byte 'at' of blk's data, entries of one number.
CKovListFieldLayout* cfgList(CKovBlkLayout* blk, uint32_t id, uint32_t at, uint32_t maxQty,
                             uint32_t entryBits, CKovDataLayout* parent = nullptr) {
  CKovDataLayout* entry = numbers(id, {{{id + 1, 0, entryBits}}});
  KovListAttribStruct attribs(kCfgLeq, VarSzCfgLeq, maxQty, 0, entryBits, 0, nullptr);
  if (parent == nullptr) parent = blk->GetDataLayout();
  auto* list = new CKovListFieldLayout(id, at, 7, attribs, true, 0, parent, entry);
  parent->AddField(id, parent->GetIDOfLastFieldInLayout(), list,
                   static_cast<int>(parent->GetOrderedFieldIDsList().size()));
  return list;
}

// Adds blk to partition 1 of cp.
template <typename Blk>
Blk* place(CKovCpLayout* cp, Blk* blk) {
  blk->SetPartitionNum(1);
  cp->HasUniqueKovName(blk);
  cp->AddBlkLayout(blk);
  return blk;
}

CKovDataLayout* blkData() { return new CKovDataLayout(static_cast<LayoutType>(1), 0, 7, 0, true); }

// Header block blkID, KOV type type, of distributed block distID; multi-instance if multi.
CKovBlkLayout* addHeader(CKovCpLayout* cp, uint16_t blkID, uint16_t type, const char* name,
                         uint16_t distID, int multi = 0) {
  auto* hdr = new CKovBlkLayout(blkID, KovBlkLayoutAttrib(type, 0, multi, 0), name, 0, blkData(),
                                0, 1);
  hdr->SetDistKLSBlkID(distID);
  return place(cp, hdr);
}

// Distributed KLS block blkID of maxSize data bytes, maxLLEQ entries a listlet, header hdrID.
CKovKLSBlkLayout* addDist(CKovCpLayout* cp, uint16_t blkID, uint16_t type, const char* name,
                          uint16_t maxSize, uint16_t maxLLEQ, uint16_t hdrID,
                          KovCalcMaxLEQFunc calc = nullptr, int multi = 0) {
  return place(cp, new CKovKLSBlkLayout(blkID, KovBlkLayoutAttrib(type, 0, multi, 0), name,
                                        blkData(), maxSize, 1, maxLLEQ, hdrID, calc));
}

// Blocks A to E of the image-format example: C a KLS block, D the header of the distributed
// KLS block E (max LLEQ 2).
struct FormatExample {
  explicit FormatExample(bool giveHeaderData = true, uint16_t maxLLEQ = 2, uint32_t cLayoutMax = 4,
                         uint16_t cMaxLeq = 4) {
    CKovCpLayout* cp = ab.b.cp.get();
    auto* c = place(cp, new CKovKLSBlkLayout(3, KovBlkLayoutAttrib(0x0013, 0, 0, 0), "C",
                                             blkData(), 4, 0, 0, 0, nullptr));
    cfgList(c, 30, 8, cLayoutMax, 16);
    hdr = addHeader(cp, 4, 0x0015, "D", 5);
    dist = addDist(cp, 5, 0x0014, "E", 10, maxLLEQ, 4);
    cfgList(dist, 50, 6, 5, 8);
    ab.data.Add(c, {entryOf({listValue(30, {0x0101, 0x0202}, 16, cMaxLeq)})}, {12});
    if (giveHeaderData) ab.data.Add(hdr, {new CKovPkEntry(0)}, {12});
  }
  void Lists(std::vector<std::vector<uint32_t>> lists, uint16_t maxLeq = 5) {
    std::vector<CKovPkEntry*> entries;
    for (auto& values : lists) entries.push_back(entryOf({listValue(50, values, 8, maxLeq)}));
    ab.data.Add(dist, entries, std::vector<uint16_t>(lists.size(), 0));
  }
  const CKovCpLayout* Layout() const { return ab.b.cp.get(); }

  BlocksAB ab;
  CKovBlkLayout* hdr;
  CKovKLSBlkLayout* dist;
};

// The 105 bytes of the image-format example.
const Bytes kFormatExample = {
    0x00, 0x11, 0x00, 0x02, 0x00, 0x06, 0xAB, 0xCA, 0x48, 0x69, 0x6C, 0xB5, 0x00, 0x12, 0x00, 0x00,
    0x00, 0x05, 0x12, 0x34, 0x00, 0xE4, 0x52, 0x00, 0x12, 0x00, 0x01, 0x00, 0x05, 0x56, 0x78, 0x00,
    0x6D, 0x9E, 0x00, 0x13, 0x00, 0x00, 0x00, 0x0E, 0x00, 0x00, 0x00, 0x02, 0x00, 0x04, 0x00, 0x02,
    0x01, 0x01, 0x02, 0x02, 0x44, 0x86, 0x00, 0x15, 0x00, 0x00, 0x00, 0x0E, 0x00, 0x01, 0x00, 0x01,
    0x00, 0x05, 0x00, 0x02, 0x00, 0x14, 0x00, 0x00, 0x91, 0xED, 0x00, 0x14, 0x00, 0x00, 0x00, 0x0A,
    0x00, 0x14, 0x00, 0x01, 0x00, 0x02, 0xA1, 0xA2, 0x89, 0x6B, 0x00, 0x14, 0x00, 0x01, 0x00, 0x09,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0xA3, 0xB6, 0xB8};

// Instance starts of the example: A, B1, B2, C, D, E listlet 0, E listlet 1.
const size_t kExampleStarts[] = {0x00, 0x0C, 0x17, 0x22, 0x36, 0x4A, 0x5A, 0x69};

Bytes slice(const Bytes& b, size_t from, size_t to) {
  return Bytes(b.begin() + static_cast<long>(from), b.begin() + static_cast<long>(to));
}

TEST(KlsPack, FormatExampleByteExactWithOrWithoutHeaderData) {
  for (bool giveHeader : {true, false}) {
    SCOPED_TRACE(giveHeader ? "header packed by the application" : "header generated");
    FormatExample ex(giveHeader);
    ex.Lists({{0xA1, 0xA2, 0xA3}});
    EXPECT_EQ(packImage(ex.Layout(), ex.ab.data), kFormatExample);
  }
}

TEST(KlsPack, QuantityIsBoundByTheMaximumOfThePackData) {
  // A KLS list's maximum is the one its configuration records (the pack data's), whatever the
  // layout's: C's layout says 0 or 1 here, E's 5.
  const std::string overC = "List  holds 2 entries, more than the maximum of 1 its pack data gives.";
  const std::string overE = "List  holds 3 entries, more than the maximum of 2 its pack data gives.";
  struct Case {
    uint32_t cLayoutMax;
    uint16_t cMaxLeq, eMaxLeq;
    std::string text;
  } cases[] = {
      {0, 4, 5, ""}, {1, 2, 3, ""}, {4, 1, 5, overC}, {0, 4, 2, overE},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.cLayoutMax << " " << c.cMaxLeq << " " << c.eMaxLeq);
    FormatExample ex(true, 2, c.cLayoutMax, c.cMaxLeq);
    ex.Lists({{0xA1, 0xA2, 0xA3}}, c.eMaxLeq);
    if (c.text.empty()) {
      Bytes image;
      EXPECT_KOV_NO_THROW(image = packImage(ex.Layout(), ex.ab.data));
      ExpectUnpacksToPackedValues(ex.Layout(), ex.ab.data, image);
    } else {
      EXPECT_KOV_THROW(packImage(ex.Layout(), ex.ab.data), c.text);
    }
  }
}

TEST(KlsPack, PartitionPrefixesGiveTheSameInstancesTwoBytesOnEach) {
  Bytes expected;
  for (size_t i = 0; i + 1 < std::size(kExampleStarts); ++i) {
    expected.insert(expected.end(), {0x00, 0x01});
    Bytes inst = slice(kFormatExample, kExampleStarts[i], kExampleStarts[i + 1]);
    expected.insert(expected.end(), inst.begin(), inst.end());
  }
  ASSERT_EQ(expected.size(), 119u);
  for (bool giveHeader : {true, false}) {
    SCOPED_TRACE(giveHeader);
    FormatExample ex(giveHeader);
    ex.Lists({{0xA1, 0xA2, 0xA3}});
    EXPECT_EQ(packImage(ex.Layout(), ex.ab.data, 1), expected);
  }
}

// The listlets of block E in an image, each as (KOV id, link, LLEQ, entries).
struct Listlet {
  uint16_t id;
  uint32_t link;
  uint16_t lleq;
  Bytes entries;
  bool operator==(const Listlet& o) const {
    return id == o.id && link == o.link && lleq == o.lleq && entries == o.entries;
  }
};

std::vector<Listlet> listletsOf(const Bytes& image, std::vector<uint32_t>* headerLinks) {
  std::vector<Listlet> found;
  for (size_t at = 0; at + 6 <= image.size();) {
    uint16_t type = static_cast<uint16_t>(image[at] << 8 | image[at + 1]);
    uint16_t id = static_cast<uint16_t>(image[at + 2] << 8 | image[at + 3]);
    size_t size = static_cast<size_t>(image[at + 4] << 8 | image[at + 5]);
    const uint8_t* d = &image[at + 6];
    if (type == 0x0014) {
      found.push_back({id, uint32_t{d[0]} << 24 | uint32_t{d[1]} << 16 | uint32_t{d[2]} << 8 | d[3],
                       static_cast<uint16_t>(d[4] << 8 | d[5]), Bytes(d + 6, d + size - 2)});
    } else if (type == 0x0015) {
      headerLinks->push_back(uint32_t{d[8]} << 24 | uint32_t{d[9]} << 16 | uint32_t{d[10]} << 8 |
                             d[11]);
    }
    at += 6 + size;
  }
  return found;
}

TEST(KlsPack, ListletsOfTwoInstancesAndFullLastListlets) {
  struct Case {
    const char* what;
    std::vector<std::vector<uint32_t>> lists;
    std::vector<Listlet> listlets;
    std::vector<uint32_t> headerLinks;
  } cases[] = {
      {"5 and 0 entries",
       {{1, 2, 3, 4, 5}, {}},
       {{0, 0x00140001, 2, {1, 2}}, {1, 0x00140002, 2, {3, 4}}, {2, 0, 1, {5}}, {3, 0, 0, {}}},
       {0x00140000, 0x00140003}},
      {"Q = M", {{7, 8}}, {{0, 0, 2, {7, 8}}}, {0x00140000}},
      {"Q = 2M", {{7, 8, 9, 10}}, {{0, 0x00140001, 2, {7, 8}}, {1, 0, 2, {9, 10}}}, {0x00140000}},
  };
  for (const Case& c : cases) {
    for (bool giveHeader : {true, false}) {
      SCOPED_TRACE(std::string(c.what) + (giveHeader ? ", header given" : ", header generated"));
      FormatExample ex(false);
      if (giveHeader) {
        std::vector<CKovPkEntry*> headers;
        for (size_t i = 0; i < c.lists.size(); ++i) headers.push_back(new CKovPkEntry(0));
        ex.ab.data.Add(ex.hdr, headers, std::vector<uint16_t>(c.lists.size(), 12));
      }
      ex.Lists(c.lists);
      Bytes image = packImage(ex.Layout(), ex.ab.data);
      std::vector<uint32_t> links;
      EXPECT_EQ(listletsOf(image, &links), c.listlets);
      EXPECT_EQ(links, c.headerLinks);
      ExpectUnpacksToPackedValues(ex.Layout(), ex.ab.data, image);
    }
  }
}

TEST(KlsPack, HeaderDataWithOtherInstanceCountIsRefused) {
  // D comes first in the layout: one header instance packs, then E with two lists refuses.
  FormatExample ex(false);
  ex.ab.data.Add(ex.hdr, {new CKovPkEntry(0)}, {12});
  ex.Lists({{1, 2}, {3}});
  EXPECT_KOV_THROW(packImage(ex.Layout(), ex.ab.data),
                   "Header block D does not have the same number of\nblock instances as does "
                   "Distributed KOV List Structure E.");
}

TEST(KlsPack, RefusesDataItCannotWriteWithTheBlockAndInstance) {
  // A, B and C take bytes 0 to 53, D (generated) 54 to 73; E's first listlet would take 15
  // bytes from 74: header 6, configuration 6, one entry, checksum 2.
  struct Case {
    const char* what;
    bool header;  // D's data given by the application
    uint16_t distID;  // the block D heads
    uint16_t maxLLEQ;
    uint32_t imageSize;
    std::function<CKovPkEntry*()> entry;  // of E
    const char* text;
  } cases[] = {
      {"header without its distributed data", true, 5, 2, 512, nullptr,
       "Attempting to pack header block D, instance 1\nbut no corresponding Distributed KLS "
       "block found."},
      {"maximum listlet LEQ 0 without a function to give it", false, 5, 0, 512,
       [] { return entryOf({listValue(50, {1}, 8, 5)}); },
       "No user-defined max LLEQ calculation function found\nfor KLS block E"},
      {"entry without its list", false, 5, 2, 512,
       [] { return entryOf({new CKovNumField(1, 51, 8)}); },
       "Block E [1]: a KOV List Structure entry must hold its list as its one field."},
      {"list the layout lacks", false, 5, 2, 512,
       [] { return entryOf({listValue(90, {}, 8, 5)}); },
       "Block D: no list layout for list field 90."},
      {"generated header past the image", false, 5, 2, 60,
       [] { return entryOf({listValue(50, {1}, 8, 5)}); },
       "Block D [1] is too large to fit in the image.\nImage size: 60, blk Start: 54, blk Size "
       "20.\n"},
      {"listlet past the image", false, 5, 2, 80,
       [] { return entryOf({listValue(50, {1}, 8, 5)}); },
       "Block E [1] is too large to fit in the image.\nImage size: 80, blk Start: 74, blk Size "
       "15.\n"},
      {"header of a block that is not distributed", true, 3, 2, 512, nullptr,
       "Header block D belongs to no distributed KOV List Structure."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    FormatExample ex(c.header, c.maxLLEQ);
    ex.hdr->SetDistKLSBlkID(c.distID);
    if (c.entry) ex.ab.data.Add(ex.dist, {c.entry()}, {0});
    EXPECT_KOV_THROW(packImage(ex.Layout(), ex.ab.data, 0, c.imageSize), c.text);
  }
}

TEST(KlsPack, DistributedBlockWithoutAHeaderOrRoomForEntriesIsRefused) {
  // E's header is block 4 (D), 9, which the layout lacks, the ordinary block 1, without pack
  // data or with, or the distributed block 6, which has no KLS type field; its maximum listlet
  // LEQ comes from a function that answers 0.
  struct Case {
    uint16_t hdrID;
    bool hdrData;
    const char* text;
  } cases[] = {
      {9, false, "Distributed KOV List Structure E has no header block in the layout."},
      {4, false,
       "Block E [1]: a listlet may hold no entries, so the 1 entries of its list can't be "
       "written."},
      {1, false,
       "Attempting to write KLS configuration info but block A is\nnot an KLS block nor a header "
       "block."},
      {1, true, "Header block 1 has no listlet link field."},
      {6, false, "Block F has no configuration field 28521."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.hdrID << (c.hdrData ? " with data" : ""));
    LayoutBuilder b;
    CKovBlkLayout* a = b.Block(1, "A", 0x0011, 1, 0, 0, 2);
    addHeader(b.cp.get(), 4, 0x0015, "D", 5);
    auto* dist = addDist(
        b.cp.get(), 5, 0x0014, "E", 10, 0, c.hdrID,
        [](uint32_t, const CKovBlkLayout*, uint16_t, int) -> uint16_t { return 0; });
    cfgList(dist, 50, 6, 5, 8);
    addDist(b.cp.get(), 6, 0x0016, "F", 10, 2, 4);
    PackData data;
    if (c.hdrData) data.Add(a, {new CKovPkEntry(0)}, {2});
    data.Add(dist, {entryOf({listValue(50, {1}, 8, 5)})}, {0});
    EXPECT_KOV_THROW(packImage(b.cp.get(), data), c.text);
  }
}

TEST(KlsUnpack, HeaderTooShortForItsLinkIsRefused) {
  // D's data (bytes 0x3C to 0x47 of the example, its link the last 4) cut by 1, 4 and all 12
  // bytes, the size and checksum made good: no link field is read, and no chain can start.
  FormatExample ex;
  for (uint8_t cut : {1, 4, 12}) {
    SCOPED_TRACE(static_cast<int>(cut));
    Bytes image = slice(kFormatExample, 0, 0x48 - cut);
    image[0x3B] = static_cast<uint8_t>(image[0x3B] - cut);
    Bytes rest = slice(kFormatExample, 0x48, kFormatExample.size());
    image.insert(image.end(), rest.begin(), rest.end());
    kovGenRecomputeChecksums(image);
    CKovUp up(ex.Layout(), image, "");
    EXPECT_KOV_THROW(up.FullUnpack(),
                     "Attempting to unpack distributed block E but link\nfield not found in "
                     "unpacked header block.");
  }
}

TEST(KlsUnpack, FormatExampleJoinsTheListletsOfE) {
  FormatExample ex;
  CKovUp up(ex.Layout(), kFormatExample, "");
  ASSERT_EQ(up.FullUnpack(), 1);
  const CKovUpStdBlk* e = up.GetUnpackedBlk(5);
  ASSERT_NE(e, nullptr);
  ASSERT_EQ(e->GetBlkInstanceQty(), 1);
  const CKovUpEntry* entry = e->GetUpEntry(1);
  EXPECT_EQ(kovGenValueText(entry->GetUpField(kCfgLeq)->GetData()), "number 0x3");
  EXPECT_EQ(kovGenValueText(entry->GetUpField(CKovKLSBlkLayout::m_linkFldID)->GetData()),
            "name 0x00000000");
  auto* list = static_cast<const CKovListField*>(entry->GetUpField(50)->GetData());
  ASSERT_EQ(list->GetUpEntryList()->GetCount(), 3);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(kovGenValueText(list->GetUpEntryList()->GetAt(i)->GetUpField(51)->GetData()),
              kovGenValueText(std::make_unique<CKovNumField>(0xA1 + i, 51, 8).get()));
  }
  EXPECT_EQ(**up.GetBlockAddrMap().PLookup(5), (std::vector<uint32_t>{0, 0x4A, 0x5A}));
  EXPECT_TRUE((*up.GetUpBlksList().PLookup(5))->at(1)->IsKindOf(
      KOV_RUNTIME_CLASS(CKovUpDistKLSBlkInst)));
  // C's list takes its quantity and entry size from its configuration area.
  auto* c = static_cast<const CKovListField*>(up.GetUnpackedBlk(3)->GetUpEntry(1)->GetUpField(30)->GetData());
  EXPECT_EQ(c->GetListEntryQty(), 2u);
  EXPECT_EQ(c->GetImageSize(), 32u);
}

TEST(KlsUnpack, ListletsInReverseOrderReadBackInChainOrder) {
  FormatExample ex;
  Bytes image = slice(kFormatExample, 0, 0x4A);
  Bytes second = slice(kFormatExample, 0x5A, 0x69);
  Bytes first = slice(kFormatExample, 0x4A, 0x5A);
  image.insert(image.end(), second.begin(), second.end());
  image.insert(image.end(), first.begin(), first.end());
  ex.Lists({{0xA1, 0xA2, 0xA3}});
  ExpectUnpacksToPackedValues(ex.Layout(), ex.ab.data, image);
}

// A listlet of block E: KOV id, link, LLEQ and entries, with its checksum.
Bytes listlet(uint16_t id, uint32_t link, Bytes entries) {
  Bytes data = {static_cast<uint8_t>(link >> 24), static_cast<uint8_t>(link >> 16),
                static_cast<uint8_t>(link >> 8),  static_cast<uint8_t>(link),
                0x00,                             static_cast<uint8_t>(entries.size())};
  data.insert(data.end(), entries.begin(), entries.end());
  return blockInstance(0x0014, id, data);
}

Bytes withHeaderLink(uint32_t link) {
  return blockInstance(0x0015, 0,
                       {0x00, 0x01, 0x00, 0x01, 0x00, 0x05, 0x00, 0x02,
                        static_cast<uint8_t>(link >> 24), static_cast<uint8_t>(link >> 16),
                        static_cast<uint8_t>(link >> 8), static_cast<uint8_t>(link)});
}

TEST(KlsUnpack, RefusesDamagedChainsWithoutHangingOrLeaking) {
  FormatExample ex;
  // A second distributed block F (0x0016) with its own header G (0x0017), to link into.
  addHeader(ex.ab.b.cp.get(), 6, 0x0017, "G", 7);
  cfgList(addDist(ex.ab.b.cp.get(), 7, 0x0016, "F", 10, 2, 6), 60, 6, 5, 8);
  auto cat = [](std::vector<Bytes> parts) {
    Bytes all;
    for (const Bytes& p : parts) all.insert(all.end(), p.begin(), p.end());
    return all;
  };
  Bytes fListlet = blockInstance(0x0016, 0, {0, 0, 0, 0, 0, 1, 0x99});
  Bytes cut = listlet(1, 0, {0xA3});
  cut.resize(cut.size() - 3);
  struct Case {
    const char* what;
    Bytes image;
    const char* text;
  } cases[] = {
      {"listlet links to itself",
       cat({withHeaderLink(0x00140000), listlet(0, 0x00140000, {1})}),
       "Distributed KLS block E [1]: the chain of listlets returns to listlet 0x00140000."},
      {"two listlets link to each other",
       cat({withHeaderLink(0x00140000), listlet(0, 0x00140001, {1}), listlet(1, 0x00140000, {2})}),
       "Distributed KLS block E [1]: the chain of listlets returns to listlet 0x00140000."},
      {"link names a listlet of another distributed block",
       cat({withHeaderLink(0x00140000), listlet(0, 0x00160000, {1}),
            blockInstance(0x0017, 0, {0, 1, 0, 1, 0, 5, 0, 2, 0, 0x16, 0, 0}), fListlet}),
       "Unable to determine instance # of Distributed KLS item\nE in the image."},
      {"header links to no listlet", cat({withHeaderLink(0), listlet(0, 0, {1})}),
       "Distributed KLS block E [1]: its header links to no listlet."},
      {"listlet runs past the image",
       cat({withHeaderLink(0x00140000), listlet(0, 0x00140001, {1, 2}), cut}),
       "Listlet 0x00140001 of Distributed KLS block E [1] at offset 36 runs past the end of the "
       "image."},
      {"two headers link to one chain",
       cat({withHeaderLink(0x00140000), withHeaderLink(0x00140001), listlet(0, 0x00140001, {1}),
            listlet(1, 0, {2})}),
       "Distributed KLS block E: listlet 0x00140001 is on the chains of header instances 1 and "
       "2."},
      {"no header block", listlet(0, 0, {1}),
       "Attempting to unpack Distributed KLS block E\nbut no corresponding header block found in "
       "image."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    CKovUp up(ex.Layout(), c.image, "");
    EXPECT_KOV_THROW(up.FullUnpack(), c.text);
    EXPECT_EQ(up.GetImage(), nullptr);
    EXPECT_TRUE(up.GetUpBlksList().IsEmpty());
  }
}

TEST(KlsRoundTrip, ListUnderAUnionComesBackAroundTheJoinedList) {
  LayoutBuilder b;
  addHeader(b.cp.get(), 1, 0x0031, "H", 2, 1);
  auto* dist = addDist(b.cp.get(), 2, 0x0032, "L", 40, 3, 1, nullptr, 1);
  // The union at byte 6 has one option, which holds the list of 16-bit entries.
  auto* option = new CKovDataLayout(static_cast<LayoutType>(3), 0, 7, 70, false);
  cfgList(dist, 71, 0, 9, 16, option);
  KovUnionAttribStruct attribs;
  attribs.unionFormat = UnionVarSz;
  attribs.upLayoutSelectionFunc = [](const CKovUp*, uint32_t, uint16_t, const CKovBlkLayout*,
                                     const std::list<const KovDiscrInfo*>&) -> uint32_t {
    return 4;
  };
  auto* u = new CKovUnionFieldLayout(70, 6, 7, attribs, true, 0, dist->GetDataLayout(), 2);
  u->AddToUnionMap(4, new CKovUnionLayoutOpt(option, 0, 0, 4, 0, 0));
  dist->AddField(70, kCfgLeq, u, 2);
  PackData data;
  std::vector<CKovPkEntry*> instances;
  for (std::vector<uint32_t> values : {std::vector<uint32_t>{0x1001, 0x1002, 0x1003, 0x1004},
                                       std::vector<uint32_t>{0x2001}}) {
    auto* unionValue = new CKovUnionField(70, 4, entryOf({listValue(71, values, 16, 9)}));
    unionValue->SetImageSize(static_cast<uint32_t>(values.size()) * 16);
    instances.push_back(entryOf({unionValue}));
  }
  data.Add(dist, instances, {0, 0});
  ExpectUnpacksToPackedValues(b.cp.get(), data, packImage(b.cp.get(), data));
}

TEST(KlsUnpack, MemoryStaysWithinAMultipleOfTheImage) {
  // A chain of 1500 listlets of one entry each (19 KB), read by one header, then by 1500
  // headers that all link to it: every listlet is read once, and an unpack allocates at most
  // 64 bytes per byte of the image and 1 MB besides.
  FormatExample ex;
  Bytes chain;
  const uint16_t kListlets = 1500;
  for (uint16_t i = 0; i < kListlets; ++i) {
    uint32_t link = i + 1 < kListlets ? 0x00140000u + i + 1 : 0;
    Bytes l = listlet(i, link, {static_cast<uint8_t>(i)});
    chain.insert(chain.end(), l.begin(), l.end());
  }
  Bytes header = withHeaderLink(0x00140000);
  for (int headers : {1, 1500}) {
    SCOPED_TRACE(headers);
    Bytes image;
    for (int h = 0; h < headers; ++h) image.insert(image.end(), header.begin(), header.end());
    image.insert(image.end(), chain.begin(), chain.end());
    long long before = kovTestBytesAllocated();
    {
      CKovUp up(ex.Layout(), image, "");
      try {
        up.FullUnpack();
        EXPECT_EQ(headers, 1);
        auto* list = up.GetUnpackedBlk(5)->GetUpEntry(1)->GetUpField(50);
        ASSERT_NE(list, nullptr);
        EXPECT_EQ(static_cast<const CKovListField*>(list->GetData())->GetListEntryQty(), 1500u);
      } catch (CMevGenException* e) {
        EXPECT_EQ(e->GetMessage(), "Distributed KLS block E: listlet 0x00140000 is on the chains "
                                   "of header instances 1 and 2.");
        delete e;
      }
    }
    long long used = kovTestBytesAllocated() - before;
    std::printf("%d headers, image %zu bytes: %lld bytes allocated\n", headers, image.size(), used);
    EXPECT_LE(used, 64LL * static_cast<long long>(image.size()) + (1 << 20));
  }
}

// Bytes an unpack of image allocates, all told; the outcome's text in text ("" when it read).
long long unpackAllocates(const CKovCpLayout* layout, const Bytes& image, std::string& text) {
  long long before = kovTestBytesAllocated();
  {
    CKovUp up(layout, image, "");
    try {
      up.FullUnpack();
      text.clear();
    } catch (CMevGenException* e) {
      text = e->GetMessage();
      delete e;
    }
  }
  return kovTestBytesAllocated() - before;
}

Bytes withWord(Bytes image, size_t at, uint16_t value) {
  image[at] = static_cast<uint8_t>(value >> 8);
  image[at + 1] = static_cast<uint8_t>(value);
  kovGenRecomputeChecksums(image);
  return image;
}

TEST(KlsUnpack, QuantitiesThatClaimMoreThanTheImageHoldsStayWithinTheBound) {
  // A 16-bit quantity or instance number of the format example set to 65535 (checksums made
  // good again) is refused with its text or read, and the unpack allocates at most 64 bytes per
  // byte of the image and 64 KiB besides: never by the count claimed (65535 entries of a
  // pointer each would be 512 KiB). Then every word of the image, set to three values, for the
  // bound alone.
  FormatExample ex;
  const long long bound = 64LL * static_cast<long long>(kFormatExample.size()) + (64 << 10);
  std::string text;
  struct Case {
    const char* what;
    size_t at;  // of a big-endian 16-bit word of kFormatExample
    const char* text;
  } cases[] = {
      {"C's LEQ", 0x2E,
       "List 30 in block C [1] holds 65535 entries of 16 bits, which run past the end of the "
       "image."},
      {"C's max LEQ", 0x2A, ""},
      {"D's max listlet LEQ", 0x42, ""},
      {"D's LED size", 0x3E,
       "Attempting to unpack Distributed KLS block E [1] but\nencountered invalid data."},
      {"listlet 0's LEQ", 0x54,
       "List 50 in block E [1] holds 65535 entries of 8 bits, which run past the end of the "
       "image."},
      {"listlet 1's LEQ", 0x64,
       "List 50 in block E [1] holds 65535 entries of 8 bits, which run past the end of the "
       "image."},
      {"B's second instance number", 0x19, ""},
      {"listlet 1's instance number", 0x5C,
       "Unable to determine instance # of Distributed KLS item\nE in the image."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    long long used = unpackAllocates(ex.Layout(), withWord(kFormatExample, c.at, 0xFFFF), text);
    EXPECT_EQ(text, c.text);
    EXPECT_LE(used, bound);
  }
  long long most = 0;
  for (size_t at = 0; at + 1 < kFormatExample.size(); ++at) {
    for (uint16_t value : {0xFFFF, 0x8000, 0x0100}) {
      long long used = unpackAllocates(ex.Layout(), withWord(kFormatExample, at, value), text);
      EXPECT_LE(used, bound) << "word at " << at << " set to " << value << ": " << text;
      most = std::max(most, used);
    }
  }
  std::printf("image %zu bytes: at most %lld bytes allocated\n", kFormatExample.size(), most);
}

}  // namespace
