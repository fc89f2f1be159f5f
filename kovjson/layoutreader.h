// The reading of a layout document into a CKovJsonLayout, shared by the files that do it:
// layoutblocks.cpp (the document, its partitions and blocks, their ids and references),
// layoutfields.cpp (fields, lists and unions, their places and references), layoutbuild.cpp
// (the library's objects) and layoutrules.cpp (the rules the library calls back for during packs
// and unpacks). Internal to kovjson: include kovjson/jsonlayout.h instead.
#ifndef KOVJSON_LAYOUTREADER_H
#define KOVJSON_LAYOUTREADER_H

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kov/kov.h"
#include "kovjson/jsonlayout.h"
#include "kovjson/jsonread.h"

// Lists and unions inside lists and unions: deeper than this is refused, which also bounds the
// recursion of the reader and of the library's searches through complex fields.
inline constexpr int kMaxNesting = 8;
// The largest image a layout may announce; the pack allocates that much.
inline constexpr uint64_t kMaxImageSize = 16u << 20;
// The data area of one block instance, from the two bytes of its size field less the checksum.
inline constexpr uint64_t kMaxBlkDataSz = 65533;
// The configuration fields of the library: their ids are not the application's.
inline constexpr uint32_t kFirstCfgID = 28520;
inline constexpr uint32_t kLastCfgID = 28526;
// Layout types of the data layouts the loader makes; the library only tests ListEntryLayout.
inline constexpr LayoutType kBlkLayoutType = static_cast<LayoutType>(1);
inline constexpr LayoutType kOptionLayoutType = static_cast<LayoutType>(3);

// The callbacks of the library, answered from the rules of the layouts loaded (layoutrules.cpp):
// the quantity of a calculated list, the option of a union, the maxima of a distributed list.
uint32_t kovJsonRuleQuantity(const CKovUp* up, const CKovBlkLayout* blkLayout, uint32_t listID,
                             uint16_t instance);
uint32_t kovJsonRuleOption(const CKovUp* up, uint32_t unionID, uint16_t instance,
                           const CKovBlkLayout* blkLayout,
                           const std::list<const KovDiscrInfo*>& discrs);
uint16_t kovJsonRuleListletMax(uint32_t listID, const CKovBlkLayout* blkLayout, uint16_t instance,
                               int wantMaxLLEQ);

// The word of a field kind in a layout file: "number", "list", ...
const char* kovJsonKindName(KovJsonKind kind);

// Calls visit for each field of fields and of the entries and options under them, depth first.
void kovJsonVisitFields(std::vector<KovJsonField>& fields,
                        const std::function<void(KovJsonField&)>& visit);

// Reads a layout document into a CKovJsonLayout in three passes: the description with its own
// checks, the references between fields and blocks, then the library's objects.
class KovJsonLayoutReader {
  using Json = nlohmann::ordered_json;

 public:
  KovJsonLayoutReader(CKovJsonLayout& out, bool exportBlocks)
      : out(out), in(out.file), exportBlocks(exportBlocks) {}
  void Read(const Json& doc);

 private:
  // Pass 1: the description.

  void ReadDocument(const Json& doc);
  AccessRights ReadAccess(const Json& o, const std::string& at);
  KovJsonBlock ReadBlock(const Json& o, const std::string& at, uint16_t partition);
  // A KOV List Structure block holds its one list, directly or as the one field of each option of
  // one union, behind its configuration area.
  void CheckKlsFields(const KovJsonBlock& blk, const std::string& at);
  std::vector<KovJsonField> ReadFields(const Json& arr, const std::string& at, int depth);
  KovJsonField ReadField(const Json& o, const std::string& at, int depth);
  CKovCharFieldLayout::CharType CharTypeOf(const Json& o, const std::string& at, bool allow16);
  void ReadList(KovJsonField& f, const Json& o, const std::string& at, int depth);
  void ReadUnion(KovJsonField& f, const Json& o, const std::string& at, int depth);
  // The end of the fixed fields of fixed size, in bits from the entry start: the nominal size of an
  // option whose file gives none.
  uint64_t NominalBits(const std::vector<KovJsonField>& fields);
  static bool IsFixedSz(const KovJsonField& f);
  // bit index = byte × 8 + 7 − MSB, in an entry whose start has MSB 7.
  static uint64_t StartBits(const KovJsonField& f);
  static uint64_t SizeBits(const KovJsonField& f);
  // Fixed fields of fixed size must lie within [firstBit, limitBits) of their entry or block.
  void CheckFieldsFit(const std::vector<KovJsonField>& fields, uint64_t firstBit,
                      uint64_t limitBits, const std::string& what);
  // Ids left out in the file get the lowest free numbers, in document order.
  void AssignIDs();

  // Pass 2: references by name or id.

  KovJsonBlock& BlockRef(const Json& v, const std::string& at);
  // The field named (or numbered) v among fields at any depth; exactly one must answer.
  KovJsonField& FieldRef(std::vector<KovJsonField>& fields, bool anyDepth, const Json& v,
                         const std::string& at, const std::string& where);
  void ResolveBlock(KovJsonBlock& blk, const Json& node);
  void ResolveFields(KovJsonBlock& blk, std::vector<KovJsonField>& fields, const Json& arr);
  void ResolveList(KovJsonBlock& blk, std::vector<KovJsonField>& siblings, KovJsonField& f,
                   const Json& o);
  void ResolveUnion(KovJsonBlock& blk, KovJsonField& f, const Json& o);
  uint32_t OptionRef(const KovJsonField& u, const Json& v, const std::string& at);

  // Pass 3: the library's objects.

  void Build();
  void BuildObjects();
  void collectAll(const std::function<void(KovJsonField&)>& visit);
  std::unique_ptr<CKovBlkLayout> MakeBlock(const KovJsonBlock& blk);
  void AddFields(CKovBlkLayout* blk, CKovDataLayout* dl, std::vector<KovJsonField>& fields);
  std::unique_ptr<CKovFieldLayout> MakeField(CKovBlkLayout* blk, CKovDataLayout* dl,
                                             KovJsonField& f);

  CKovJsonLayout& out;
  KovJsonReader in;
  bool exportBlocks;
  int8_t versionIndex = 0;
  int8_t modelIndex = 0;
  bool saveToSeparateFiles = false;
  std::vector<std::pair<uint16_t, AccessRights>> partitionList;
  std::vector<const Json*> blockNodes;
  std::set<uint64_t> blockIDs;
  std::set<uint16_t> kovTypes;
  std::map<uint32_t, std::string> fieldIDs;
};

#endif  // KOVJSON_LAYOUTREADER_H
