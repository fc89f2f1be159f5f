#include "kovjson/jsonlint.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// One partition; block B (KOV type 16) of maxDataSize bytes holding fields, then more blocks.
std::string layoutOf(const std::string& fields, int maxDataSize = 16,
                     const std::string& more = "") {
  return R"({"partitions": [{"number": 1, "blocks": [{"name": "B", "kovType": 16, "maxDataSize": )" +
         std::to_string(maxDataSize) + R"(, "fields": [)" + fields + "]}" + more + "]}]}";
}

std::string findings(const std::string& text) {
  std::string out;
  try {
    auto layout = CKovJsonLayout::Load(text, "l.json", false);
    for (const KovJsonLintFinding& f : kovJsonLint(*layout))
      out += f.pointer + ": " + f.text + "\n";
  } catch (const KovJsonError& e) {
    out = std::string("(refused) ") + e.what();
  }
  return out;
}

const std::string kF = "/partitions/0/blocks/0/fields/";

TEST(JsonLint, NamesEachMistakeWithItsPointer) {
  struct Case {
    const char* what;
    std::string layout;
    std::string findings;
  } cases[] = {
      {"overlap", layoutOf(R"({"name": "N", "type": "number", "bits": 8, "byteOffset": 0},
                             {"name": "M", "type": "number", "bits": 4, "byteOffset": 0,
                              "msbStart": 3})"),
       kF + "1: fields 'N' and 'M' overlap at bits 4 to 7\n"},
      {"list past the block",
       layoutOf(R"({"name": "Q", "type": "number", "bits": 8, "byteOffset": 0},
                   {"name": "L", "type": "list", "format": "sameBlock", "byteOffset": 1,
                    "maxEntries": 20, "entryBits": 8, "quantity": {"field": "Q"},
                    "entry": [{"name": "E", "type": "number", "bits": 8, "byteOffset": 0}]},
                   {"name": "T", "type": "number", "bits": 8, "byteOffset": 15})"),
       kF + "1: the field can reach bit 168, beyond the block's 16 bytes\n" + kF +
           "2: fields 'L' and 'T' overlap at bits 120 to 127 when the first is at its largest\n"},
      {"option past its union",
       layoutOf(R"({"name": "U", "type": "union", "format": "fixed", "bits": 8, "byteOffset": 0,
                    "select": {"default": "A"}, "options": [{"name": "A", "fields": [
                      {"name": "X", "type": "number", "bits": 8},
                      {"name": "Y", "type": "number", "bits": 4}]}]})"),
       kF + "0/options/0/fields/1: the field can reach bit 12, beyond the union's 8 bits\n"},
      {"case values no discriminant holds",
       layoutOf(R"({"name": "S", "type": "string", "chars": 2, "byteOffset": 0},
                   {"name": "N", "type": "number", "bits": 4, "byteOffset": 2},
                   {"name": "U", "type": "union", "format": "fixed", "bits": 8, "byteOffset": 3,
                    "discriminants": [{"field": "S"}, {"field": "N"}],
                    "select": {"cases": [{"when": ["ABC", 1], "option": "A"},
                                         {"when": ["AB", 16], "option": "A"}]},
                    "options": [{"name": "A"}]})"),
       kF +
           "2/select/cases/0/when/0: this case can never match: 3 characters, but string 'S' "
           "holds 2\n" +
           kF +
           "2/select/cases/1/when/1: this case can never match: 16 needs more than the 4 "
           "bits of 'N'\n"},
      {"a union and its discriminant wait for each other",
       layoutOf(R"({"name": "U", "type": "union", "format": "fixed", "bits": 8, "byteOffset": 0,
                    "discriminants": [{"field": "D"}], "select": {"default": "A"},
                    "options": [{"name": "A"}]},
                   {"name": "D", "type": "number", "bits": 8})"),
       kF + "0: fields wait for each other: 'U' takes its option from 'D', 'D' floats behind "
            "'U'\n"},
      {"listlet above the block",
       layoutOf("", 16,
                R"(, {"name": "H", "kind": "header", "kovType": 17, "maxDataSize": 0},
                     {"name": "D", "kind": "distributedKls", "kovType": 18, "headerBlock": "H",
                      "listletMax": 4, "maxDataSize": 6, "fields": [
                        {"name": "L", "type": "list", "format": "kls", "byteOffset": 6,
                         "maxEntries": 8, "entryBits": 16, "entry": [
                           {"name": "E", "type": "number", "bits": 16, "byteOffset": 0}]}]})"),
       "/partitions/0/blocks/2/maxDataSize: a listlet of 4 entries of 2 bytes needs 8 bytes, "
       "above the block's 6\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(findings(c.layout), c.findings);
  }
}

TEST(JsonLint, MapsTheBitsNoFieldClaims) {
  // Bits 0-3 and 5 claimed; 4 and 6-7 free, byte 1 free, byte 2 a list of at most 1 byte.
  auto layout =
      CKovJsonLayout::Load(layoutOf(R"({"name": "A", "type": "number", "bits": 4, "byteOffset": 0},
                  {"name": "B", "type": "number", "bits": 1, "gap": 1},
                  {"name": "L", "type": "list", "format": "fixed", "byteOffset": 2,
                   "maxEntries": 1, "entryBits": 8,
                   "entry": [{"name": "E", "type": "number", "bits": 8, "byteOffset": 0}]})",
                                    4),
                           "l.json", false);
  EXPECT_EQ(kovJsonUnclaimedBits(*layout),
            std::vector<std::string>{
                "B: bit 4 (byte 0), bits 6 to 15 (bytes 0 to 1), bits 24 to 31 (byte 3)"});
}

}  // namespace
