// Test helpers: exception assertions, a recording message box, byte-vector literals.
// Used by the *_test.cpp files only; neither installed nor included by library code.
#ifndef KOV_KOVTEST_H
#define KOV_KOVTEST_H

#include <expat.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
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
#include "kov/layout/listfieldlayout.h"
#include "kov/layout/numfieldlayout.h"
#include "kov/layout/strfieldlayout.h"
#include "kov/pack/pk.h"
#include "kov/platform/fhmevfilehandler.h"
#include "kov/platform/mevgenexception.h"
#include "kov/platform/msgbox.h"
#include "kov/unpack/up.h"
#include "kov/unpack/upblkinstance.h"
#include "kov/unpack/upentry.h"
#include "kov/unpack/upentrylist.h"
#include "kov/kovgen.h"

// Bytes allocated through operator new so far in this process (kov/allocfail_test.cpp counts).
long long kovTestBytesAllocated();

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

// While alive, write n (from 0) through CFhMevFile fails with ENOSPC, and every write after it
// goes ahead; Failed() says whether one failed, FailedPath() on which file.
class FailingWrite {
 public:
  explicit FailingWrite(int n) : m_previous(CFhMevFileHandler::SetWriteFailureHook(&hook)) {
    left() = n;
    failedPath().clear();
  }
  ~FailingWrite() { CFhMevFileHandler::SetWriteFailureHook(m_previous); }
  FailingWrite(const FailingWrite&) = delete;
  FailingWrite& operator=(const FailingWrite&) = delete;

  bool Failed() const { return !failedPath().empty(); }
  const std::string& FailedPath() const { return failedPath(); }

 private:
  static int& left() {
    static int writesLeft = -1;
    return writesLeft;
  }
  static std::string& failedPath() {
    static std::string path;
    return path;
  }
  static int hook(const std::string& path) {
    if (left() < 0 || left()-- != 0) return 0;
    failedPath() = path;
    return ENOSPC;
  }
  KovFileWriteFailureHook m_previous;
};

// Expects every field of a pack entry to read back the same in an unpacked entry.
inline void ExpectSameEntry(const CKovPkEntry* pkEntry, const CKovUpEntry* upEntry) {
  EXPECT_EQ(kovGenEntryDiff(pkEntry, upEntry), "");
}

// Unpacks image against layout and expects every value of data to read back the same, instance by
// instance, and no instance more than was packed.
inline void ExpectUnpacksToPackedValues(const CKovCpLayout* layout, const PackData& data,
                                        const Bytes& image) {
  CKovUp up(layout, image, "");
  EXPECT_KOV_NO_THROW(up.FullUnpack());
  EXPECT_EQ(kovGenUnpackDiff(up, data), "");
}

// The bytes of the file at path as text; "" when it can't be read.
inline std::string kovTestReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

// How many times what occurs in text, overlaps included.
inline size_t kovTestCount(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

// The report's worked example from its first block on: Settings, first instance, holds Volume 5,
// Mode 'A', Owner 0x00100002, Alias "R&D" (its ampersand escaped) and a list of one entry whose
// number Zone is 3, each field a byte offset, MSB, length and value.
inline const std::string kovTestWorkedReport =
    "\t<Block>\n"
    "\t\t<BlockName> Settings_1 </BlockName>\n"
    "\t\t<Field>\n\t\t\t<Name> Volume </Name>\n\t\t\t<ByteOffset> 0x0 </ByteOffset>\n"
    "\t\t\t<BitOffset> 0x7 </BitOffset>\n\t\t\t<Length> 0x8 </Length>\n"
    "\t\t\t<Value> 0x5 </Value>\n\t\t</Field>\n"
    "\t\t<Field>\n\t\t\t<Name> Mode </Name>\n\t\t\t<ByteOffset> 0x1 </ByteOffset>\n"
    "\t\t\t<BitOffset> 0x7 </BitOffset>\n\t\t\t<Length> 0x8 </Length>\n"
    "\t\t\t<Value> A </Value>\n\t\t</Field>\n"
    "\t\t<Field>\n\t\t\t<Name> Owner </Name>\n\t\t\t<ByteOffset> 0x2 </ByteOffset>\n"
    "\t\t\t<BitOffset> 0x7 </BitOffset>\n\t\t\t<Length> 0x20 </Length>\n"
    "\t\t\t<Value> 0x00100002 </Value>\n\t\t</Field>\n"
    "\t\t<Field>\n\t\t\t<Name> Alias </Name>\n\t\t\t<ByteOffset> 0x6 </ByteOffset>\n"
    "\t\t\t<BitOffset> 0x7 </BitOffset>\n\t\t\t<Length> 0x18 </Length>\n"
    "\t\t\t<Value> R&amp;D </Value>\n\t\t</Field>\n"
    "\t\t<List>\n"
    "\t\t\t<LED>\n"
    "\t\t\t\t<Field>\n\t\t\t\t\t<Name> Zone </Name>\n\t\t\t\t\t<ByteOffset> 0x0 </ByteOffset>\n"
    "\t\t\t\t\t<BitOffset> 0x7 </BitOffset>\n\t\t\t\t\t<Length> 0x8 </Length>\n"
    "\t\t\t\t\t<Value> 0x3 </Value>\n\t\t\t\t</Field>\n"
    "\t\t\t</LED>\n"
    "\t\t</List>\n"
    "\t</Block>\n"
    "</CodeplugData>\n";

// Reads the report at path, expects an XML parser to find it well-formed, removes the file and
// returns its text.
inline std::string kovTestReadXmlReport(const std::string& path) {
  std::string text = kovTestReadFile(path);
  std::remove(path.c_str());
  XML_Parser parser = XML_ParserCreate(nullptr);
  bool ok = XML_Parse(parser, text.data(), static_cast<int>(text.size()), 1) == XML_STATUS_OK;
  EXPECT_TRUE(ok) << path << ":" << XML_GetCurrentLineNumber(parser) << ": "
                  << XML_ErrorString(XML_GetErrorCode(parser));
  XML_ParserFree(parser);
  return text;
}

// Expects the fields map of every block instance of a finished unpack to hold only fields that
// its blocks still own.
inline void ExpectFieldsMapsHoldLiveFields(const CKovUp& up) { EXPECT_EQ(kovGenStrayField(up), ""); }

// A data layout of numbers, each (id, byte offset, bits) at MSB 7, one after the other, for the
// list entries (or, with type 3, a union option) of the list or union ownerID.
inline CKovDataLayout* numbers(uint32_t ownerID, std::vector<std::array<uint32_t, 3>> fields,
                               LayoutType type = ListEntryLayout) {
  auto* dl = new CKovDataLayout(type, 0, 7, ownerID, false);
  uint32_t prev = 0;
  int pos = 0;
  for (const auto& f : fields) {
    dl->AddField(f[0], prev, new CKovNumFieldLayout(f[0], f[1], f[2], 7, true, 0, dl), pos++);
    prev = f[0];
  }
  return dl;
}

// Adds list id at byteOffset, MSB 7, fixed, to parent behind field prev at position pos: at most
// maxQty entries of entryBits laid out by entry (owned from here), its LEQ field leqID of block
// leqBlkID or the function calc, as format wants.
inline CKovListFieldLayout* addList(CKovDataLayout* parent, uint32_t id, uint32_t prev, int pos,
                                    uint32_t byteOffset, ListFormat format, uint32_t maxQty,
                                    uint32_t entryBits, CKovDataLayout* entry, uint32_t leqID = 0,
                                    uint16_t leqBlkID = 0, KovCalcUnpackLEQFunc calc = nullptr) {
  KovListAttribStruct attribs(leqID, format, maxQty, 0, entryBits, leqBlkID, calc);
  auto* list = new CKovListFieldLayout(id, byteOffset, 7, attribs, true, 0, parent, entry);
  parent->AddField(id, prev, list, pos);
  return list;
}

// The same at the top level of blk's data.
template <typename... Rest>
CKovListFieldLayout* addList(CKovBlkLayout* blk, uint32_t id, Rest... rest) {
  return addList(blk->GetDataLayout(), id, rest...);
}

// A list value id of one entry a value, each a number id + 1 of bits, its quantity the count of
// values and its size set as the application sets it.
inline CKovListField* listValue(uint32_t id, std::vector<uint32_t> values, uint32_t bits = 8,
                                uint16_t maxLeq = 0) {
  auto* list = new CKovListField(id, static_cast<uint32_t>(values.size()), maxLeq, nullptr);
  for (uint32_t v : values) list->AddEntryToList(entryOf({new CKovNumField(v, id + 1, bits)}));
  list->SetImageSize(static_cast<uint32_t>(values.size()) * bits);
  return list;
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
