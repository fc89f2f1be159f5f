// Test helpers: exception assertions, a recording message box, byte-vector literals.
// Used by the *_test.cpp files only; neither installed nor included by library code.
#ifndef KOV_KOVTEST_H
#define KOV_KOVTEST_H

#include <expat.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "kov/fields/charfield.h"
#include "kov/fields/listfield.h"
#include "kov/fields/namefield.h"
#include "kov/fields/numfield.h"
#include "kov/fields/strfield.h"
#include "kov/fields/unionfield.h"
#include "kov/image/checksum.h"
#include "kov/image/image.h"
#include "kov/layout/blklayout.h"
#include "kov/layout/cplayout.h"
#include "kov/layout/datalayout.h"
#include "kov/layout/numfieldlayout.h"
#include "kov/layout/strfieldlayout.h"
#include "kov/pack/pk.h"
#include "kov/platform/mevgenexception.h"
#include "kov/platform/msgbox.h"
#include "kov/unpack/up.h"
#include "kov/unpack/upblkinstance.h"
#include "kov/unpack/upentry.h"
#include "kov/unpack/upentrylist.h"

// Runs statement, which must throw a CMevGenException* whose text is text; deletes it.
#define EXPECT_KOV_THROW(statement, text)                                             \
  do {                                                                                \
    bool kovThrew_ = false;                                                           \
    try {                                                                             \
      statement;                                                                      \
    } catch (CMevGenException * kovE_) {                                              \
      kovThrew_ = true;                                                               \
      EXPECT_EQ(kovE_->GetMessage(), std::string(text)) << "from " #statement;        \
      delete kovE_;                                                                   \
    } catch (...) {                                                                   \
      kovThrew_ = true;                                                               \
      ADD_FAILURE() << "foreign exception from " #statement;                          \
    }                                                                                 \
    if (!kovThrew_) ADD_FAILURE() << "no exception from " #statement;                 \
  } while (0)

// Runs statement, which must not throw; reports the text of a CMevGenException* if it does.
#define EXPECT_KOV_NO_THROW(statement)                                                \
  do {                                                                                \
    try {                                                                             \
      statement;                                                                      \
    } catch (CMevGenException * kovE_) {                                              \
      ADD_FAILURE() << "unexpected exception from " #statement ": " << kovE_->GetMessage(); \
      delete kovE_;                                                                   \
    }                                                                                 \
  } while (0)

// While alive, message boxes are recorded instead of shown.
class MessageBoxRecorder {
 public:
  MessageBoxRecorder() : m_previous(kovSetMessageBoxHandler(&record)) { texts().clear(); }
  ~MessageBoxRecorder() { kovSetMessageBoxHandler(m_previous); }
  MessageBoxRecorder(const MessageBoxRecorder&) = delete;
  MessageBoxRecorder& operator=(const MessageBoxRecorder&) = delete;

  const std::vector<std::string>& Texts() const { return texts(); }
  void Clear() { texts().clear(); }

 private:
  static std::vector<std::string>& texts() {
    static std::vector<std::string> recorded;
    return recorded;
  }
  static void record(const std::string& text) { texts().push_back(text); }
  KovMessageBoxHandler m_previous;
};

using Bytes = std::vector<uint8_t>;

// One block instance: KOV type and id, size, the data and its CRC (whose own check values are
// tested with the checksum).
inline Bytes blockInstance(uint16_t kovType, uint16_t kovID, const Bytes& data) {
  size_t size = data.size() + 2;
  Bytes b(6 + size);
  b[0] = static_cast<uint8_t>(kovType >> 8);
  b[1] = static_cast<uint8_t>(kovType);
  b[2] = static_cast<uint8_t>(kovID >> 8);
  b[3] = static_cast<uint8_t>(kovID);
  b[4] = static_cast<uint8_t>(size >> 8);
  b[5] = static_cast<uint8_t>(size);
  std::copy(data.begin(), data.end(), b.begin() + 6);
  uint16_t crc = 0;
  kovCalculateChecksum(data, crc);
  b[6 + data.size()] = static_cast<uint8_t>(crc >> 8);
  b[7 + data.size()] = static_cast<uint8_t>(crc);
  return b;
}

// Builds a codeplug layout block by block.
class LayoutBuilder {
 public:
  LayoutBuilder() : cp(new CKovCpLayout(1, 2, 0x10000, 0)) { cp->AddPartition(1, ReadWrite); }

  CKovBlkLayout* Block(uint16_t blkID, const char* name, uint16_t type, uint16_t id, int multi,
                       int pad, uint16_t maxSize, uint16_t partition = 1) {
    auto* blk = new CKovBlkLayout(blkID, KovBlkLayoutAttrib(type, id, multi, pad), name, 0,
                                  new CKovDataLayout(static_cast<LayoutType>(1), 0, 7, 0, true),
                                  maxSize, 0);
    blk->SetPartitionNum(partition);
    cp->HasUniqueKovName(blk);
    cp->AddBlkLayout(blk);
    return blk;
  }
  static void Num(CKovBlkLayout* blk, uint32_t id, uint32_t prev, uint32_t byteOffset, uint8_t msb,
                  uint32_t bits, int position, bool fixed = true, uint32_t gap = 0) {
    blk->AddField(id, prev,
                  new CKovNumFieldLayout(id, byteOffset, bits, msb, fixed, gap, blk->GetDataLayout()),
                  position);
  }

  std::unique_ptr<CKovCpLayout> cp;
};

// The pack data of several blocks, owned for the test.
class PackData {
 public:
  // Makes the pack block of layout from entries (owned from here) and data sizes.
  void Add(const CKovBlkLayout* layout, std::vector<CKovPkEntry*> entries,
           std::vector<uint16_t> sizes) {
    auto* list = new CKovPkEntryList();
    for (CKovPkEntry* e : entries) list->AddTail(e);
    blocks.emplace_back(new CKovPkStdBlk(layout, list, sizes));
    map.SetAt(layout->GetBlkID(), blocks.back().get());
  }
  KovPkBlkMap map;
  std::vector<std::unique_ptr<CKovPkStdBlk>> blocks;
};

inline CKovPkEntry* entryOf(std::vector<CKovField*> values) {
  auto* e = new CKovPkEntry(static_cast<int>(values.size()));
  int pos = 0;
  for (CKovField* v : values) {
    e->AddPkField(v->GetFieldID(), new CKovPkField(v), pos++);
  }
  return e;
}

// Packs data over layout into a zeroed image of imageSize bytes and returns the bytes used.
inline Bytes packImage(const CKovCpLayout* layout, const PackData& data, int prefixes = 0,
                       uint32_t imageSize = 512) {
  CKovImage image(imageSize);
  CKovPk pk(&data.map, prefixes);
  uint32_t used = 0;
  pk.FillImage(layout, &image, used, nullptr, 0, 0, 0);
  return Bytes(image.GetBytesArray(), image.GetBytesArray() + used);
}

// The value of a field as text, with its kind: "number 0xabc", "char 'H'", "string \"Hi\"",
// "name 0x00120001"; for comparing what was packed with what was read.
inline std::string kovTestValueText(const CKovField* f) {
  char buf[64];
  if (f == nullptr) return "absent";
  if (f->IsNumber()) {
    std::snprintf(buf, sizeof buf, "number 0x%x", static_cast<const CKovNumField*>(f)->GetValue());
  } else if (f->IsChar()) {
    std::snprintf(buf, sizeof buf, "char 0x%x", static_cast<const CKovCharField*>(f)->GetValue());
  } else if (f->IsKovName()) {
    std::snprintf(buf, sizeof buf, "name 0x%08x", static_cast<const CKovNameField*>(f)->GetValue());
  } else if (f->IsString()) {
    return "string \"" + static_cast<const CKovStrField*>(f)->GetValue() + "\"";
  } else {
    return "complex";
  }
  return buf;
}

// Expects every field of a pack entry to read back the same in an unpacked entry, lists and
// unions entry by entry. Fields the pack did not give (an LEQ the list wrote) are not compared.
inline void ExpectSameEntry(const CKovPkEntry* pkEntry, const CKovUpEntry* upEntry) {
  ASSERT_NE(upEntry, nullptr);
  for (const auto& kv : pkEntry->GetPkFieldMap()) {
    SCOPED_TRACE("field " + std::to_string(kv.first));
    const CKovField* packed = kv.second->GetData();
    const CKovUpField* upField = upEntry->GetUpField(kv.first);
    const CKovField* read = upField != nullptr ? upField->GetData() : nullptr;
    ASSERT_NE(read, nullptr) << kovTestValueText(packed) << " was not read back";
    if (packed->IsList()) {
      ASSERT_TRUE(read->IsList());
      auto* pkList = static_cast<const CKovListField*>(packed);
      auto* upList = static_cast<const CKovListField*>(read);
      EXPECT_EQ(upList->GetListEntryQty(), pkList->GetListEntryQty());
      ASSERT_EQ(upList->GetUpEntryList()->GetCount(), pkList->GetPkEntryList()->GetCount());
      for (int i = 0; i < pkList->GetPkEntryList()->GetCount(); ++i) {
        SCOPED_TRACE("entry " + std::to_string(i));
        ExpectSameEntry(pkList->GetPkEntryList()->GetAt(i), upList->GetUpEntryList()->GetAt(i));
      }
    } else if (packed->IsUnion()) {
      ASSERT_TRUE(read->IsUnion());
      auto* pkUnion = static_cast<const CKovUnionField*>(packed);
      auto* upUnion = static_cast<const CKovUnionField*>(read);
      EXPECT_EQ(upUnion->GetLayoutID(), pkUnion->GetLayoutID());
      if (pkUnion->GetPkEntry() != nullptr && pkUnion->GetImageSize() != 0) {
        ExpectSameEntry(pkUnion->GetPkEntry(), upUnion->GetUpEntry());
      }
    } else {
      EXPECT_EQ(kovTestValueText(read), kovTestValueText(packed));
    }
  }
}

// Unpacks image against layout and expects every value of data to read back the same, instance by
// instance, and no instance more than was packed.
inline void ExpectUnpacksToPackedValues(const CKovCpLayout* layout, const PackData& data,
                                        const Bytes& image) {
  CKovUp up(layout, image, "");
  EXPECT_KOV_NO_THROW(up.FullUnpack());
  for (const auto& blk : data.blocks) {
    SCOPED_TRACE(blk->GetBlkName());
    const CKovUpStdBlk* read = up.GetUnpackedBlk(blk->GetBlkID());
    int packed = blk->GetPackEntryList()->GetCount();
    if (packed == 0) continue;
    ASSERT_NE(read, nullptr);
    ASSERT_EQ(read->GetBlkInstanceQty(), packed);
    for (int i = 0; i < packed; ++i) {
      SCOPED_TRACE("instance " + std::to_string(i + 1));
      ExpectSameEntry(blk->GetPackEntryList()->GetAt(i), read->GetUnpackedEntryList()->GetAt(i));
    }
  }
}

// Reads the report at path, expects an XML parser to find it well-formed, removes the file and
// returns its text.
inline std::string kovTestReadXmlReport(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  std::string text = s.str();
  in.close();
  std::remove(path.c_str());
  XML_Parser parser = XML_ParserCreate(nullptr);
  bool ok = XML_Parse(parser, text.data(), static_cast<int>(text.size()), 1) == XML_STATUS_OK;
  EXPECT_TRUE(ok) << path << ":" << XML_GetCurrentLineNumber(parser) << ": "
                  << XML_ErrorString(XML_GetErrorCode(parser));
  XML_ParserFree(parser);
  return text;
}

// Adds every field of entry, at any depth, to out.
inline void kovTestCollectFields(const CKovUpEntry* entry, std::set<const CKovField*>& out) {
  if (entry == nullptr) return;
  for (const auto& kv : entry->GetUpFieldMap()) {
    const CKovField* f = kv.second != nullptr ? kv.second->GetData() : nullptr;
    if (f == nullptr) continue;
    out.insert(f);
    if (f->IsList()) {
      const CKovUpEntryList* entries = static_cast<const CKovListField*>(f)->GetUpEntryList();
      if (entries != nullptr) {
        for (const CKovUpEntry* e : *entries) kovTestCollectFields(e, out);
      }
    } else if (f->IsUnion()) {
      kovTestCollectFields(static_cast<const CKovUnionField*>(f)->GetUpEntry(), out);
    }
  }
}

// Expects the fields map of every block instance of a finished unpack to hold only fields that
// its blocks still own: a pointer to any other (freed) field is reported by id, without reading it.
inline void ExpectFieldsMapsHoldLiveFields(const CKovUp& up) {
  std::set<const CKovField*> live;
  for (const auto& kv : up.GetUpBlksMap()) {
    const CKovUpEntryList* entries = kv.second->GetUnpackedEntryList();
    for (const CKovUpEntry* e : *entries) kovTestCollectFields(e, live);
  }
  for (const auto& kv : up.GetUpBlksList()) {
    if (kv.second == nullptr) continue;
    for (const CKovUpBlkInstance* inst : *kv.second) {
      if (inst == nullptr) continue;
      for (const auto& placed : inst->GetUpFieldMap()) {
        EXPECT_TRUE(live.count(placed.second) != 0)
            << "block " << kv.first << " [" << inst->GetBlkInstanceNum() << "]: field "
            << placed.first << " in the fields map is owned by no entry";
      }
    }
  }
}

// Blocks A and B of the image-format example: A single 0x0011/2 with 0xABC, 5 and "Hi"; B
// multi-instance, padded to 3 bytes, 0x1234 and 0x5678.
struct BlocksAB {
  BlocksAB() {
    CKovBlkLayout* a = b.Block(1, "A", 0x0011, 0x0002, 0, 0, 4);
    LayoutBuilder::Num(a, 10, 0, 0, 7, 12, 0);
    LayoutBuilder::Num(a, 11, 10, 1, 3, 3, 1);
    a->AddField(12, 11, new CKovStrFieldLayout(12, 2, 7, CKovCharFieldLayout::Char8Bit, 2, true, 0,
                                               a->GetDataLayout()),
                2);
    CKovBlkLayout* bb = b.Block(2, "B", 0x0012, 0, 1, 1, 3);
    LayoutBuilder::Num(bb, 20, 0, 0, 7, 16, 0);
    data.Add(a, {entryOf({new CKovNumField(0xABC, 10, 12), new CKovNumField(5, 11, 3),
                          new CKovStrField("Hi", 12, 16)})},
             {4});
    data.Add(bb, {entryOf({new CKovNumField(0x1234, 20, 16)}),
                  entryOf({new CKovNumField(0x5678, 20, 16)})},
             {3, 3});
  }
  LayoutBuilder b;
  PackData data;
};

#endif  // KOV_KOVTEST_H
