#include "kovjson/jsonlayout.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kov/kovtest.h"
#include "kovjson/jsonvalues.h"

namespace {

// A layout of one partition and one block "B" (KOV type 16, 16 bytes) holding fields; extra
// goes into the block's object, more behind it in the partition's blocks.
std::string oneBlock(const std::string& fields, const std::string& extra = "",
                     const std::string& more = "") {
  return R"({"partitions": [{"number": 1, "blocks": [{"name": "B", "kovType": 16, )"
         R"("maxDataSize": 16)" +
         extra + R"(, "fields": [)" + fields + "]}" + more + "]}]}";
}

const char* const kNum = R"({"name": "N", "type": "number", "bits": 8, "byteOffset": 0})";

std::string loadError(const std::string& text) {
  try {
    CKovJsonLayout::Load(text, "t.json", false);
  } catch (const KovJsonError& e) {
    return e.what();
  }
  return "(loaded)";
}

TEST(JsonLayout, RefusesEachFaultWithFilePointerAndText) {
  const std::string f0 = "t.json: /partitions/0/blocks/0/fields/0";
  struct Case {
    std::string text;
    std::string error;
  } cases[] = {
      {"{\"partitions\": [}",
       "t.json: not valid JSON: parse error at line 1, column 17: syntax "
       "error while parsing value - unexpected '}'; expected '[', '{', or "
       "a literal"},
      {"[]", "t.json: must be an object, not an array"},
      {R"({"partitions": []})", "t.json: /partitions: a layout needs at least one partition"},
      {R"({"partitions": [{"number": 1, "blocks": []}, {"number": 1, "blocks": []}]})",
       "t.json: /partitions/1/number: partition 1 is declared twice"},
      {R"({"partition": []})", "t.json: /partition: unknown member 'partition'"},
      {oneBlock("", "", R"(, {"name": "B", "kovType": 17, "maxDataSize": 1})"),
       "t.json: /partitions/0/blocks/1/name: block name 'B' is used twice"},
      {oneBlock("", "", R"(, {"name": "C", "kovType": "0x10", "maxDataSize": 1})"),
       "t.json: /partitions/0/blocks/1/kovType: KOV type 0x0010 is used by another block"},
      {oneBlock("", R"(, "kovId": 2, "multiInstance": true)"),
       "t.json: /partitions/0/blocks/0/kovId: a multi-instance or distributed block has no KOV "
       "id: its instances are numbered"},
      {oneBlock("", R"(, "kind": "kls", "padded": true)"),
       "t.json: /partitions/0/blocks/0/padded: a KOV List Structure block is never padded"},
      {R"({"partitions": [{"number": 1, "blocks": [{"name": "B", "kovType": 0, "fields": []}]}]})",
       "t.json: /partitions/0/blocks/0/kovType: must be a whole number from 1 to 65533, not 0"},
      {oneBlock(R"({"name": "N", "type": "float"})"),
       f0 + "/type: must be one of number, char, string, name, list, union; not \"float\""},
      {oneBlock(R"({"name": "N", "type": "number", "bits": 40})"),
       f0 + "/bits: must be a whole number from 1 to 32, not 40"},
      {oneBlock(R"({"name": "N", "type": "number", "bits": -1})"),
       f0 + "/bits: must be a whole number from 1 to 32, not -1"},
      {oneBlock(R"({"name": "N", "type": "number", "bits": 8, "msbStart": 3})"),
       f0 + "/msbStart: msbStart needs a byteOffset: a floating field starts where the one "
            "before ends"},
      {oneBlock(R"({"name": "N", "type": "number", "bits": 8, "byteOffset": 0, "gap": 1})"),
       f0 + "/gap: a field at a byteOffset has no gap: only a floating field follows the one "
            "before"},
      {oneBlock(R"({"name": "S", "type": "string", "charBits": 16, "chars": 2})"),
       f0 + "/charBits: strings of 16-bit characters can't be packed or read: use 4 or 8"},
      {oneBlock(R"({"name": "N", "id": 28522, "type": "number", "bits": 8})"),
       f0 + "/id: ids 28520 to 28526 belong to the KOV List Structure configuration fields"},
      {oneBlock(std::string(kNum) + R"(, {"name": "M", "id": 1, "type": "number", "bits": 8},
                                        {"name": "L", "id": 1, "type": "number", "bits": 8})"),
       "t.json: /partitions/0/blocks/0/fields/2/id: field id 1 is used twice (also at "
       "/partitions/0/blocks/0/fields/1)"},
      {oneBlock(std::string(kNum) + ", " + kNum),
       "t.json: /partitions/0/blocks/0/fields/1/name: field name 'N' is used twice in one entry"},
      {oneBlock(R"({"name": "N", "type": "number", "bits": 8, "byteOffset": 16})"),
       f0 + ": the field ends at bit 136, beyond the block's 16 bytes"},
      {oneBlock(R"({"name": "N", "type": "name", "block": "Nowhere", "byteOffset": 0})"),
       f0 + "/block: no block named 'Nowhere'"},
      {oneBlock(std::string(kNum) + R"(, {"name": "L", "type": "list", "format": "contiguous",
                  "maxEntries": 2, "entryBits": 8, "entry": [)" +
                kNum + "]}"),
       "t.json: /partitions/0/blocks/0/fields/1: a list of format 'contiguous' needs its "
       "'quantity'"},
      {oneBlock(R"({"name": "L", "type": "list", "format": "fixed", "maxEntries": 2,
                    "entryBits": 12, "entry": [)" +
                std::string(kNum) + "]}"),
       f0 + "/entryBits: an entry with fields at a byteOffset is whole bytes: each entry starts "
            "on the same bit of its byte"},
      {oneBlock(std::string(kNum) + R"(, {"name": "L", "type": "list", "format": "contiguous",
                  "maxEntries": 2, "entryBits": 8, "quantity": {"field": "Q"}, "entry": [)" +
                kNum + "]}"),
       "t.json: /partitions/0/blocks/0/fields/1/quantity/field: no field named 'Q' in the "
       "list's entry, in front of it"},
      {oneBlock(R"({"name": "C", "type": "char", "byteOffset": 0}, {"name": "L", "type": "list",
                  "format": "sameBlock", "maxEntries": 2, "entryBits": 8,
                  "quantity": {"field": "C"}, "entry": [)" +
                std::string(kNum) + "]}"),
       "t.json: /partitions/0/blocks/0/fields/1/quantity/field: the quantity field must be a "
       "number"},
      {oneBlock(R"({"name": "L", "type": "list", "format": "calculated", "maxEntries": 2,
                    "entryBits": 8, "quantity": {"block": "B", "field": "N"}, "entry": [)" +
                std::string(kNum) + "]}"),
       f0 + "/quantity/block: the quantity must come from a block that stands before block 'B' "
            "in the image, where it has been read when the list is"},
      {oneBlock(R"({"name": "U", "type": "union", "format": "variable", "bits": 8,
                    "select": {"default": "A"}, "options": [{"name": "A"}]})"),
       f0 + "/bits: a variable union takes the size of its option: give 'bits' to padded "
            "options"},
      {oneBlock(R"({"name": "U", "type": "union", "format": "fixed", "bits": 8,
                    "select": {"default": "Z"}, "options": [{"name": "A"}]})"),
       f0 + "/select/default: no such option in union 'U'"},
      {oneBlock(std::string(kNum) + R"(, {"name": "U", "type": "union", "format": "fixed",
                  "bits": 8, "discriminants": [{"field": "N"}],
                  "select": {"cases": [{"when": [1, 2], "option": "A"}]}, "options": [{"name": "A"}]})"),
       "t.json: /partitions/0/blocks/0/fields/1/select/cases/0/when: give one value for each of "
       "the 1 discriminants"},
      {oneBlock(R"({"name": "L", "type": "list", "format": "fixed", "maxEntries": 1,
                    "entryBits": 8, "entry": [)" +
                std::string(kNum) + R"(]},
                  {"name": "U", "type": "union", "format": "fixed", "bits": 8,
                   "discriminants": [{"field": "L"}], "select": {"default": "A"},
                   "options": [{"name": "A"}]})"),
       "t.json: /partitions/0/blocks/0/fields/1/discriminants/0/field: a discriminant is a "
       "number, char or string, not a list"},
      {oneBlock(std::string(kNum) + R"(, {"name": "U", "type": "union", "format": "fixedSplit",
                  "bits": 8, "discriminants": [{"field": "N"}], "select": {"default": "A"},
                  "options": [{"name": "A"}]})"),
       "t.json: /partitions/0/blocks/0/fields/1/discriminants/0: a split union takes its "
       "discriminants from another block: give its 'block'"},
      {oneBlock(R"({"name": "L", "type": "list", "format": "kls", "byteOffset": 0,
                    "maxEntries": 1, "entryBits": 8, "entry": [)" +
                std::string(kNum) + "]}"),
       f0 + "/format: a list of format 'kls' belongs in a kls or distributedKls block"},
      {oneBlock(std::string(kNum) + ", " + R"({"name": "M", "type": "number", "bits": 8})",
                R"(, "kind": "kls")"),
       "t.json: /partitions/0/blocks/0/fields/0/byteOffset: the field starts at bit 0, inside "
       "the 8 bytes of configuration in front of the block's own fields"},
      {oneBlock(R"({"name": "M", "type": "number", "bits": 8})", R"(, "kind": "kls")"),
       f0 + ": a KOV List Structure block holds one field: a "
            "list of format 'kls', or a union whose every option holds such a list alone"},
      {oneBlock(R"({"name": "L", "type": "list", "format": "kls", "maxEntries": 4,
                    "entryBits": 8, "entry": [)" +
                    std::string(kNum) + "]}",
                R"(, "kind": "distributedKls", "headerBlock": "B", "listletMax": 2)"),
       "t.json: /partitions/0/blocks/0/headerBlock: block 'B' is not of kind 'header'"},
      {oneBlock(R"({"name": "N", "type": "name", "block": 99, "byteOffset": 0})", "",
                R"(, {"name": "H", "kind": "header", "kovType": 17, "maxDataSize": 0})"),
       "t.json: /partitions/0/blocks/1: the layout fails verification: No layout found for the "
       "KOV List Structure referenced by Header block 'H'."},
      {oneBlock(R"({"name": "Q", "type": "number", "bits": 8, "byteOffset": 0},
                   {"name": "L", "type": "list", "format": "contiguous", "byteOffset": 2,
                    "maxEntries": 2, "entryBits": 8, "quantity": {"field": "Q"}, "entry": [)" +
                std::string(kNum) + "]}"),
       f0 + ": the layout fails verification: Field 'Q' must immediately precede field 'L' (see "
            "block B)"},
      {R"({"partitions": [{"number": 1, "number": 2, "blocks": []}]})",
       "t.json: /partitions/0/number: member 'number' is given twice"},
      {oneBlock(R"({"name": "N", "type": "list", "format": "fixed", "maxEntries": 1,
                    "entryBits": 8, "entry": [{"name": "E", "type": "number", "bits": 8,
                    "bits": 4}]})"),
       f0 + "/entry/0/bits: member 'bits' is given twice"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(loadError(c.text), c.error);
  }
}

TEST(JsonLayout, RefusesBlockNamesThatAreNoFileNames) {
  // A block's name names its file in a per-block export: none may leave the export's folder.
  for (const char* name : {"../../x", "A/B", "A\\\\B", "..", "a\\u0001b", "tab\\there"}) {
    SCOPED_TRACE(name);
    std::string text = R"({"partitions": [{"number": 1, "blocks": [{"name": ")" +
                       std::string(name) + R"(", "kovType": 16, "maxDataSize": 1}]}]})";
    EXPECT_EQ(loadError(text),
              "t.json: /partitions/0/blocks/0/name: a block name names files: it can't hold '/', "
              "'\\', '..' or control characters");
  }
  EXPECT_EQ(loadError(R"({"partitions": [{"number": 1, "blocks": [{"name": "a.b c",)"
                      R"( "kovType": 16, "maxDataSize": 1}]}]})"),
            "(loaded)");
}

TEST(JsonLayout, NamedTextNamesFieldsAndBlocksById) {
  auto layout = CKovJsonLayout::Load(
      oneBlock(std::string(kNum) + R"(, {"name": "U", "id": 17, "type": "union",
               "format": "fixed", "bits": 8, "select": {"default": "A"},
               "options": [{"name": "A"}]})"),
      "t.json", false);
  struct Case {
    const char* text;
    const char* named;
    const char* pointer;
  } cases[] = {
      {"Field 1 must immediately precede field 17 (see block B)",
       "Field 'N' must immediately precede field 'U' (see block B)",
       "/partitions/0/blocks/0/fields/0"},
      {"See Union 17\nin block 1.", "See Union 'U' in block 'B'.",
       "/partitions/0/blocks/0/fields/1"},
      {"Block layout not found for block with ID = 1.",
       "Block layout not found for block with "
       "ID = 1.",
       ""},
      {"Header block 1 and\n\nfield 99 and list 7.", "Header block 'B' and field 99 and list 7.",
       "/partitions/0/blocks/0"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    std::string pointer = "?";
    EXPECT_EQ(kovJsonNamedText(layout->GetBlocks(), c.text, &pointer), c.named);
    EXPECT_EQ(pointer, c.pointer);
  }
}

TEST(JsonLayout, RefusesNestingBeyondEightLevels) {
  // Each level a fixed list of one entry holding the next; the library searches them
  // recursively, so depth is bounded before anything is built.
  std::string field = kNum;
  for (int depth = 0; depth < 9; ++depth) {
    field = R"({"name": "L", "type": "list", "format": "fixed", "maxEntries": 1, "entryBits": 8,
                "entry": [)" +
            field + "]}";
  }
  std::string error = loadError(oneBlock(field));
  EXPECT_NE(error.find(": lists and unions nest at most 8 deep"), std::string::npos) << error;
}

// A layout whose block "B" (KOV type 0x31) holds a list of 8-bit entries whose quantity is the
// constant qty.
std::unique_ptr<CKovJsonLayout> constantQuantity(int qty) {
  return CKovJsonLayout::Load(
      oneBlock(R"({"name": "L", "type": "list", "format": "calculated", "byteOffset": 0,
                   "maxEntries": 4, "entryBits": 8, "quantity": {"constant": )" +
               std::to_string(qty) + R"(}, "entry": [)" + kNum + "]}"),
      "q.json", false);
}

TEST(JsonLayout, RulesOfTwoLoadedLayoutsStayApart) {
  // One image, 4 data bytes; each layout's rule gives its own quantity, also after the other
  // layout is gone.
  std::vector<uint8_t> image = {0x00, 0x10, 0x00, 0x00, 0x00, 0x06, 1, 2, 3, 4, 0, 0};
  uint16_t crc = 0;
  kovCalculateChecksum(image.data() + 6, 4, crc);
  image[10] = static_cast<uint8_t>(crc >> 8);
  image[11] = static_cast<uint8_t>(crc);
  auto two = constantQuantity(2);
  auto three = constantQuantity(3);
  auto entriesRead = [&](const CKovJsonLayout& layout) {
    CKovUp up(layout.GetCpLayout(), image, "");
    up.FullUnpack();
    return kovJsonUnpackedValues(layout, up)["B"]["L"].size();
  };
  EXPECT_EQ(entriesRead(*two), 2u);
  EXPECT_EQ(entriesRead(*three), 3u);
  two.reset();
  EXPECT_EQ(entriesRead(*three), 3u);
}

}  // namespace
