// CKovJsonLayout: a codeplug layout read from a JSON layout file, with the rules that stand in for
// the application's callbacks.
//
// Load reads the text of a layout file (docs/layout-format.md), checks it, builds the
// CKovCpLayout through the public API (partitions, blocks, fields, lists, unions, KOV List
// Structures, string resources for every field and block name) and runs
// DoPostLayoutVerification. The object owns the CKovCpLayout and the description it was built
// from (KovJsonBlock, KovJsonField), which the values reader and writer walk.
//
// Callbacks. The library's callbacks are plain function pointers without user data, so the
// rules of a layout (a calculated list quantity, the option table of a union, the listlet
// maximum of a distributed KOV List Structure) are filed in a process-wide registry under the
// CKovBlkLayout that holds them; every callback is handed that block and looks its rule up there.
// Each loaded layout registers its own blocks and removes them in its destructor, so several
// layouts can be loaded at once. The registry is locked: layouts may be loaded and destroyed on
// any thread while others pack and unpack. A loaded layout is only read by packs and unpacks, so
// any number of threads may pack and unpack different images over one layout at once.
//
// Failures: a file that is not JSON, that breaks a rule of the format, or whose layout the
// library's verification refuses throws KovJsonError (by value) naming the file, the JSON pointer
// of the offending value ("" for the whole document) and what is wrong. Nothing is left
// registered then. Field names also become string resources (kovRegisterString), which are
// process-wide: two layouts that give one field id two names share the name loaded last.
#ifndef KOVJSON_JSONLAYOUT_H
#define KOVJSON_JSONLAYOUT_H

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "kov/kov.h"
#include "kovjson/jsonnumber.h"

// A fault in a layout or values file: the file, the JSON pointer of the place ("" for the whole
// document) and the text. what() gives "file: pointer: text" (the pointer left out when empty).
class KovJsonError : public std::runtime_error {
 public:
  KovJsonError(const std::string& file, const std::string& pointer, const std::string& text);
  const std::string& GetFile() const { return file; }
  const std::string& GetPointer() const { return pointer; }
  const std::string& GetText() const { return text; }

 private:
  std::string file;
  std::string pointer;
  std::string text;
};

// The JSON pointer of member name of the value at pointer ('~' and '/' escaped as ~0 and ~1).
std::string kovJsonPointerTo(const std::string& pointer, const std::string& name);
std::string kovJsonPointerTo(const std::string& pointer, size_t index);

enum class KovJsonKind { Number, Char, String, Name, List, Union };

// The value a discriminant must have for a case of a union's option table: a number (number and
// character discriminants) or a text (string discriminants).
struct KovJsonDiscrValue {
  bool isText = false;
  uint32_t number = 0;
  std::string text;
};

// One case of an option table: the discriminants' values, in discriminant order, and the option.
struct KovJsonCase {
  std::vector<KovJsonDiscrValue> when;
  uint32_t optionID = 0;
};

struct KovJsonField;

// One option of a union.
struct KovJsonOption {
  std::string name;
  uint32_t id = 0;
  uint32_t bits = 0;  // the option's size in a padded union
  std::vector<KovJsonField> fields;
  const CKovDataLayout* dataLayout = nullptr;
};

// A discriminant of a union: its block and field ids, and its kind.
struct KovJsonDiscr {
  uint16_t blkID = 0;
  uint32_t fieldID = 0;
  KovJsonKind kind = KovJsonKind::Number;
};

// One field of a data layout as the file describes it, with its ids resolved.
struct KovJsonField {
  std::string name;
  std::string at;  // JSON pointer in the layout file
  uint32_t id = 0;
  KovJsonKind kind = KovJsonKind::Number;
  bool fixed = false;
  uint32_t byteOffset = 0;
  uint8_t msbStart = 7;
  uint32_t gap = 0;
  uint32_t bits = 0;           // number, name: width; union: fixed length
  KovJsonNumberFormat format;  // number: how its values read (kovjson/jsonnumber.h)
  CKovCharFieldLayout::CharType charType = CKovCharFieldLayout::Char8Bit;
  uint32_t chars = 0;  // string

  uint16_t refBlkID = 0;  // name field: the block referred to

  // List.
  ListFormat listFormat = FixedSzNoLeq;
  uint32_t maxEntries = 0;
  uint32_t entryBits = 0;
  uint16_t leqBlkID = 0;       // the block of the quantity field (VarSzContigLeq to VarSzSplitLeq)
  uint32_t leqID = 0;          // the quantity field
  bool qtyIsConstant = false;  // VarSzCalcLeq, VarSzCalcLeqAlt: the rule
  uint32_t qtyConstant = 0;
  uint16_t qtyBlkID = 0;
  uint32_t qtyFieldID = 0;
  int64_t qtyScale = 1;
  int64_t qtyOffset = 0;
  std::vector<KovJsonField> entry;

  // Union.
  UnionFormat unionFormat = UnionFixedPadded;
  std::vector<KovJsonDiscr> discrs;
  std::vector<KovJsonCase> cases;
  bool hasDefault = false;
  uint32_t defaultOptionID = 0;
  std::vector<KovJsonOption> options;

  // The list whose quantity this field holds (a field the list itself writes), or "".
  std::string quantityOf;
  const CKovFieldLayout* layout = nullptr;

  // The option with that id or name; null when there is none.
  const KovJsonOption* FindOption(uint32_t optionID) const;
  const KovJsonOption* FindOption(const std::string& optionName) const;
};

enum class KovJsonBlkKind { Standard, Header, Kls, DistKls };

// One block as the file describes it.
struct KovJsonBlock {
  std::string name;
  std::string at;
  uint16_t id = 0;
  KovJsonBlkKind kind = KovJsonBlkKind::Standard;
  uint16_t kovType = 0;
  uint16_t kovID = 0;
  bool multi = false;
  bool padded = false;
  uint16_t maxDataSize = 0;
  uint16_t partition = 0;
  AccessRights access = ReadWrite;
  bool variableSize = false;
  uint16_t pairBlkID = 0;   // header: its KLS block; distributed KLS: its header block
  uint16_t listletMax = 0;  // distributed KLS: the rule's maximum LEQ of a listlet
  std::vector<KovJsonField> fields;
  const CKovBlkLayout* layout = nullptr;
};

class CKovJsonLayout {
 public:
  // Reads the layout file at path; throws KovJsonError.
  static std::unique_ptr<CKovJsonLayout> LoadFile(const std::string& path, bool exportBlocks);
  // Reads text as the layout file named file; throws KovJsonError.
  static std::unique_ptr<CKovJsonLayout> Load(const std::string& text, const std::string& file,
                                              bool exportBlocks);
  ~CKovJsonLayout();
  CKovJsonLayout(const CKovJsonLayout&) = delete;
  CKovJsonLayout& operator=(const CKovJsonLayout&) = delete;

  const CKovCpLayout* GetCpLayout() const { return cpLayout.get(); }
  const std::string& GetFile() const { return file; }
  // The blocks in image order: partitions in order, blocks in order within each.
  const std::vector<KovJsonBlock>& GetBlocks() const { return blocks; }
  // The block of that id or name; null when there is none.
  const KovJsonBlock* FindBlock(uint16_t blkID) const;
  const KovJsonBlock* FindBlock(const std::string& name) const;
  // The block with that KOV type; null when there is none.
  const KovJsonBlock* FindBlockByKovType(uint16_t kovType) const;
  // Every field of every block at any depth (list entries, union options), by field id.
  std::unordered_map<uint32_t, const KovJsonField*> GetFieldsByID() const;
  // The maximum image size the file states, in bytes.
  uint32_t GetMaxImageSize() const { return maxImageSize; }
  size_t GetNumPartitions() const { return numPartitions; }

 private:
  CKovJsonLayout() = default;
  void Register();
  void Unregister();

  std::string file;
  std::vector<KovJsonBlock> blocks;
  std::unique_ptr<CKovCpLayout> cpLayout;
  uint32_t maxImageSize = 0;
  size_t numPartitions = 0;
  bool registered = false;

  friend class KovJsonLayoutReader;
};

// A text of the library in the layout's words: line breaks become spaces, and every field,
// list or union named by its id ("Field 10", "union field 17", "List 302") and every block named
// by its id ("block 3", "block with ID 3") is named by its name in quotes instead. pointer, when
// not null, is set to the JSON pointer of the first field or block so named ("" for none).
// Never throws but for exhausted memory.
std::string kovJsonNamedText(const std::vector<KovJsonBlock>& blocks, const std::string& text,
                             std::string* pointer = nullptr);

// The top-level field named fieldID of block blk; null when it is not a top-level field.
const KovJsonField* kovJsonTopField(const KovJsonBlock& blk, uint32_t fieldID);

#endif  // KOVJSON_JSONLAYOUT_H
