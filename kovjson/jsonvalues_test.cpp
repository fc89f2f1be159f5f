#include "kovjson/jsonvalues.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kov/kovtest.h"
#include "kovjson/jsonread.h"

namespace {

using Json = nlohmann::ordered_json;

Bytes pack(const CKovJsonLayout& layout, const Json& values) {
  return kovJsonPackImage(layout, *kovJsonPackData(layout, values, "v.json"), false, "");
}

Json unpack(const CKovJsonLayout& layout, const Bytes& image) {
  CKovUp up(layout.GetCpLayout(), image, "");
  up.FullUnpack();
  return kovJsonUnpackedValues(layout, up);
}

// Packs values, unpacks the image and expects the same values back, and the values read back to
// pack to the same bytes. Returns the image.
Bytes expectRoundTrip(const std::string& layoutText, const std::string& valuesText) {
  auto layout = CKovJsonLayout::Load(layoutText, "l.json", false);
  Json values = kovJsonParse(valuesText, "v.json");
  Bytes image;
  EXPECT_KOV_NO_THROW(image = pack(*layout, values));
  Json back;
  EXPECT_KOV_NO_THROW(back = unpack(*layout, image));
  EXPECT_EQ(back.dump(), values.dump());
  EXPECT_KOV_NO_THROW(EXPECT_EQ(pack(*layout, back), image));
  return image;
}

// Blocks A to E of the image-format example of kov/kls_test.cpp, as a layout file: A single
// 0x0011/2, B multi-instance padded to 3 bytes, C a KLS block, D the header of the distributed
// KLS block E (at most 2 entries a listlet).
const char* const kFormatExampleLayout = R"({
  "partitions": [{"number": 1, "blocks": [
    {"name": "A", "id": 1, "kovType": 17, "kovId": 2, "maxDataSize": 4, "fields": [
      {"name": "a", "id": 10, "type": "number", "bits": 12, "byteOffset": 0},
      {"name": "b", "id": 11, "type": "number", "bits": 3, "byteOffset": 1, "msbStart": 3},
      {"name": "s", "id": 12, "type": "string", "chars": 2, "byteOffset": 2}]},
    {"name": "B", "id": 2, "kovType": 18, "multiInstance": true, "padded": true,
     "maxDataSize": 3, "fields": [{"name": "w", "id": 20, "type": "number", "bits": 16,
                                   "byteOffset": 0}]},
    {"name": "C", "id": 3, "kind": "kls", "kovType": 19, "maxDataSize": 4, "fields": [
      {"name": "L", "id": 30, "type": "list", "format": "kls", "byteOffset": 8,
       "maxEntries": 4, "entryBits": 16,
       "entry": [{"name": "v", "id": 31, "type": "number", "bits": 16, "byteOffset": 0}]}]},
    {"name": "D", "id": 4, "kind": "header", "kovType": 21, "maxDataSize": 0, "fields": []},
    {"name": "E", "id": 5, "kind": "distributedKls", "kovType": 20, "headerBlock": "D",
     "listletMax": 2, "maxDataSize": 10, "fields": [
      {"name": "L", "id": 50, "type": "list", "format": "kls", "byteOffset": 6,
       "maxEntries": 5, "entryBits": 8,
       "entry": [{"name": "v", "id": 51, "type": "number", "bits": 8, "byteOffset": 0}]}]}]}]})";

const char* const kFormatExampleValues = R"({"A":{"a":2748,"b":5,"s":"Hi"},"B":[{"w":4660},)"
                                         R"({"w":22136}],"C":{"L":[{"v":257},{"v":514}]},)"
                                         R"("E":{"L":[{"v":161},{"v":162},{"v":163}]}})";

// The 105 bytes of the image-format example, as kov/kls_test.cpp holds them.
const Bytes kFormatExample = {
    0x00, 0x11, 0x00, 0x02, 0x00, 0x06, 0xAB, 0xCA, 0x48, 0x69, 0x6C, 0xB5, 0x00, 0x12, 0x00,
    0x00, 0x00, 0x05, 0x12, 0x34, 0x00, 0xE4, 0x52, 0x00, 0x12, 0x00, 0x01, 0x00, 0x05, 0x56,
    0x78, 0x00, 0x6D, 0x9E, 0x00, 0x13, 0x00, 0x00, 0x00, 0x0E, 0x00, 0x00, 0x00, 0x02, 0x00,
    0x04, 0x00, 0x02, 0x01, 0x01, 0x02, 0x02, 0x44, 0x86, 0x00, 0x15, 0x00, 0x00, 0x00, 0x0E,
    0x00, 0x01, 0x00, 0x01, 0x00, 0x05, 0x00, 0x02, 0x00, 0x14, 0x00, 0x00, 0x91, 0xED, 0x00,
    0x14, 0x00, 0x00, 0x00, 0x0A, 0x00, 0x14, 0x00, 0x01, 0x00, 0x02, 0xA1, 0xA2, 0x89, 0x6B,
    0x00, 0x14, 0x00, 0x01, 0x00, 0x09, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0xA3, 0xB6, 0xB8};

// Block K holds Q and R, block B (12 bytes) the list L, of entries V (12 bits) and W (4 bits),
// and T floating behind the list.
std::string listLayout(const std::string& format, const std::string& quantity,
                       const std::string& before, const std::string& after) {
  return R"({"partitions": [{"number": 1, "blocks": [
    {"name": "K", "kovType": 32, "maxDataSize": 2, "fields": [
      {"name": "Q", "type": "number", "bits": 8, "byteOffset": 0},
      {"name": "R", "type": "number", "bits": 8, "byteOffset": 1}]},
    {"name": "B", "kovType": 33, "maxDataSize": 12, "fields": [)" +
         before + R"({"name": "L", "type": "list", "format": ")" + format +
         R"(", "byteOffset": 1, "maxEntries": 3, "entryBits": 16)" + quantity +
         R"(, "entry": [{"name": "V", "type": "number", "bits": 12, "byteOffset": 0},
                     {"name": "W", "type": "number", "bits": 4, "byteOffset": 1, "msbStart": 3}]},
      {"name": "T", "type": "number", "bits": 8})" +
         after + "]}]}]}";
}

TEST(JsonValues, EveryListFormatRoundTrips) {
  const std::string n = R"({"name": "N", "type": "number", "bits": 8, "byteOffset": 0}, )";
  const std::string m = R"(, {"name": "M", "type": "number", "bits": 8, "byteOffset": 11})";
  const std::string entries = R"([{"V":2561,"W":1},{"V":2562,"W":2},{"V":2563,"W":3}])";
  struct Case {
    std::string layout;
    std::string values;
  } cases[] = {
      {listLayout("fixed", "", "", ""), R"({"B":{"L":)" + entries + R"(,"T":7}})"},
      {listLayout("contiguous", R"(, "quantity": {"field": "N"})", n, ""),
       R"({"B":{"L":)" + entries + R"(,"T":7}})"},
      {listLayout("contiguous", R"(, "quantity": {"field": "N"})", n, ""),
       R"({"B":{"L":[],"T":7}})"},
      {listLayout("sameBlock", R"(, "quantity": {"field": "M"})", "", m),
       R"({"B":{"L":[{"V":1,"W":15}],"T":7}})"},
      {listLayout("otherBlock", R"(, "quantity": {"block": "K", "field": "Q"})", "", ""),
       R"({"K":{"R":9},"B":{"L":)" + entries + R"(,"T":7}})"},
      {listLayout("calculated",
                  R"(, "quantity": {"block": "K", "field": "R", "scale": 2, "offset": -1})", "",
                  ""),
       R"({"K":{"Q":0,"R":2},"B":{"L":)" + entries + R"(,"T":7}})"},
      {listLayout("calculatedAlt", R"(, "quantity": {"constant": 2})", "", ""),
       R"({"B":{"L":[{"V":5,"W":6},{"V":7,"W":8}],"T":7}})"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.values);
    expectRoundTrip(c.layout, c.values);
  }
}

// Block D holds the discriminant S of a split union; block U the union X (and S when it is not
// split) and T floating behind it. Option A is one 16-bit number, option B an 8-bit and a
// 24-bit one.
std::string unionLayout(const std::string& format, bool split, bool padded, bool fixedSz) {
  std::string s = R"({"name": "S", "type": "number", "bits": 8, "byteOffset": 0})";
  std::string bits = padded ? R"(, "bits": 32)" : "";
  return R"({"partitions": [{"number": 1, "blocks": [
    {"name": "D", "kovType": 48, "maxDataSize": 1, "fields": [)" +
         (split ? s : "") + R"(]},
    {"name": "U", "kovType": 49, "maxDataSize": 6, "fields": [)" +
         (split ? "" : s + ", ") + R"({"name": "X", "type": "union", "format": ")" + format +
         R"(", "byteOffset": 1)" + (fixedSz ? R"(, "bits": 32)" : "") + R"(, "discriminants": [{)" +
         (split ? R"("block": "D", )" : "") + R"("field": "S"}],
       "select": {"cases": [{"when": 1, "option": "A"}, {"when": 2, "option": "B"}]},
       "options": [
         {"name": "A", "fields": [{"name": "x", "type": "number", "bits": 16, "byteOffset": 0}])" +
         (fixedSz ? "" : bits) + R"(},
         {"name": "B", "fields": [{"name": "y", "type": "number", "bits": 8, "byteOffset": 0},
                                  {"name": "z", "type": "number", "bits": 24, "byteOffset": 1}])" +
         (fixedSz ? "" : bits) + R"(}]},
      {"name": "T", "type": "number", "bits": 8}]}]}]})";
}

TEST(JsonValues, EveryUnionFormatRoundTrips) {
  struct Format {
    const char* name;
    bool split, padded, fixedSz;
  } formats[] = {{"fixed", false, true, true},          {"fixedSplit", true, true, true},
                 {"variable", false, false, false},     {"variablePadded", false, true, false},
                 {"variableSplit", true, false, false}, {"variableSplitPadded", true, true, false}};
  for (const Format& f : formats) {
    for (int option : {1, 2}) {
      SCOPED_TRACE(std::string(f.name) + " option " + std::to_string(option));
      std::string s = "\"S\":" + std::to_string(option);
      std::string x = option == 1 ? R"({"A":{"x":48879}})" : R"({"B":{"y":90,"z":1193046}})";
      std::string values = f.split ? "{\"D\":{" + s + "},\"U\":{\"X\":" + x + ",\"T\":7}}"
                                   : "{\"U\":{" + s + ",\"X\":" + x + ",\"T\":7}}";
      expectRoundTrip(unionLayout(f.name, f.split, f.padded, f.fixedSz), values);
    }
  }
}

// Values whose bytes are known pack to them and read back: the format example's whole image,
// the others' data area (the bytes between the one header and its checksum).
TEST(JsonValues, ValuesPackToTheirBytesAndBack) {
  struct Case {
    const char* what;
    std::string layout, values;
    Bytes bytes;
  } cases[] = {
      {"format example", kFormatExampleLayout, kFormatExampleValues, kFormatExample},
      // N = 2 at byte 0, two entries at bytes 1-4, T at byte 5: the block takes 6 bytes.
      {"floating field behind a list",
       listLayout("contiguous", R"(, "quantity": {"field": "N"})",
                  R"({"name": "N", "type": "number", "bits": 8, "byteOffset": 0}, )", ""),
       R"({"B":{"L":[{"V":291,"W":4},{"V":1383,"W":8}],"T":153}})",
       {0x02, 0x12, 0x34, 0x56, 0x78, 0x99}},
      // Option A: S, x (2 bytes) and T; option B would take 4 bytes.
      {"unpadded union",
       unionLayout("variable", false, false, false),
       R"({"U":{"S":1,"X":{"A":{"x":48879}},"T":7}})",
       {0x01, 0xBE, 0xEF, 0x07}},
      // é is the byte 0xE9; a character outside 0x20-0x7E reads back as its code.
      {"characters and 8-bit strings",
       R"({"partitions": [{"number": 1, "blocks": [{"name": "B", "kovType": 1,
          "maxDataSize": 8, "fields": [
            {"name": "S", "type": "string", "chars": 4, "byteOffset": 0},
            {"name": "C", "type": "char", "byteOffset": 4},
            {"name": "D", "type": "char", "byteOffset": 5},
            {"name": "G", "type": "char", "charBits": 4, "byteOffset": 6}]}]}]})",
       R"({"B":{"S":"Café","C":"K","D":7,"G":"9"}})",
       {'C', 'a', 'f', 0xE9, 'K', 0x07, 0x90}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Bytes image = expectRoundTrip(c.layout, c.values);
    EXPECT_EQ(c.bytes.size() == image.size() ? image : Bytes(image.begin() + 6, image.end() - 2),
              c.bytes);
  }
}

TEST(JsonValues, NameFieldToAnInstanceNotInTheImageReadsAsTheNumber) {
  const char* layoutText = R"({"partitions": [{"number": 1, "blocks": [
      {"name": "Z", "kovType": 5, "multiInstance": true, "maxDataSize": 1, "fields": []},
      {"name": "R", "kovType": 6, "maxDataSize": 4, "fields": [
        {"name": "To", "type": "name", "block": "Z", "byteOffset": 0}]}]}]})";
  expectRoundTrip(layoutText, R"({"Z":[{},{}],"R":{"To":{"block":"Z","instance":2}}})");
  expectRoundTrip(layoutText, R"({"Z":[{}],"R":{"To":327681}})");
  expectRoundTrip(layoutText, R"({"R":{"To":0}})");
}

std::string valuesError(const CKovJsonLayout& layout, const std::string& text) {
  try {
    kovJsonPackData(layout, kovJsonParse(text, "v.json"), "v.json");
  } catch (const KovJsonError& e) {
    return e.what();
  }
  return "(accepted)";
}

TEST(JsonValues, RefusesEachFaultOfTheSampleWithPointerAndText) {
  std::string sample = std::string(KOV_RADIO_DIR) + "/layout.json";
  auto layout = CKovJsonLayout::LoadFile(sample, false);
  std::string seventeen = "[";
  for (int i = 0; i < 17; ++i) seventeen += std::string(i ? "," : "") + "{}";
  // An object with more members than the parse compares one by one, then one of them again.
  std::string many = R"({"General": {)";
  for (int i = 0; i < 20; ++i) many += "\"m" + std::to_string(i) + "\": 0, ";
  many += R"("m3": 1}})";
  const std::string ch = R"({"Channel bank": [{"Channels": [{"Kind": )";
  struct Case {
    std::string values;
    std::string error;
  } cases[] = {
      {R"({"Nope": {}})", "v.json: /Nope: no block named 'Nope' in " + sample},
      {R"({"General": 5})",
       "v.json: /General: a block's value is an object (one instance) or an array of them, not a "
       "number"},
      {R"({"General": {"Volume": 16}})",
       "v.json: /General/Volume: must be a whole number from 0 to 15, not 16"},
      {R"({"General": {"Volume": 1.5}})",
       "v.json: /General/Volume: must be a whole number from 0 to 15, not a number"},
      {R"({"Scan list": {"Hang tme": 1}})",
       "v.json: /Scan list/Hang tme: no field 'Hang tme' here; the fields are 'Scan members', "
       "'Hang time'"},
      {R"({"General": {"Radio alias": "Much too long"}})",
       "v.json: /General/Radio alias: 13 characters do not fit the field's 10"},
      {R"({"Device info": {"Serial": "12A"}})",
       "v.json: /Device info/Serial: a string of 4-bit characters holds digits only, '0' to '9'"},
      {R"({"Device info": {"Model": "Ω"}})",
       "v.json: /Device info/Model: character U+03A9 is not an 8-bit character (U+0001 to U+00FF)"},
      {R"({"Device info": {"Model": "a\u0000"}})",
       "v.json: /Device info/Model: a string can't hold the character 0, which ends it"},
      {R"({"Device info": {"Band": "UV"}})",
       "v.json: /Device info/Band: a character is a string of one character or its code, not "
       "\"UV\""},
      {R"({"General": {"Scan count": 1}})",
       "v.json: /General/Scan count: 'Scan count' holds the quantity of list 'Scan members', "
       "which the pack writes from the list's entries: leave it out"},
      {R"({"Scan list": {"Scan members": )" + seventeen + "]}}",
       "v.json: /Scan list/Scan members: 17 entries, but list 'Scan members' holds at most 16"},
      {R"({"Rx groups": {"Rx group list": []}})",
       "v.json: /Rx groups/Rx group list: 0 entries, but the quantity of list 'Rx group list' is "
       "1: 'Rx groups less one' of block 'General' [1] is 0 (times 1 plus 1)"},
      {ch + R"(1, "Mode": {}}]}]})",
       "v.json: /Channel bank/0/Channels/0/Mode: a union is an object with one member, named for "
       "its option (Analog, Digital)"},
      {ch + R"(1, "Mode": {"FM": {}}}]}]})",
       "v.json: /Channel bank/0/Channels/0/Mode/FM: union 'Mode' has no option 'FM'; it has "
       "Analog, Digital"},
      // Refused inside a union's option.
      {ch + R"(1, "Mode": {"Analog": {"Power": "Max"}}}]}]})",
       "v.json: /Channel bank/0/Channels/0/Mode/Analog/Power: must be one of 'Low', 'Mid', 'High' "
       "or a number; not \"Max\""},
      {ch + R"(2, "Mode": {"Analog": {}}}]}]})",
       "v.json: /Channel bank/0/Channels/0/Mode: option 'Analog' is given, but the discriminant "
       "value 2 selects option 'Digital'"},
      {ch + R"(3, "Mode": {"Analog": {}}}]}]})",
       "v.json: /Channel bank/0/Channels/0/Mode: option 'Analog' is given, but the discriminant "
       "value 3 selects no option"},
      {R"({"Channel bank": [{}], "General": {"Startup bank": {"block": "Channel bank",
                                                               "instance": 2}}})",
       "v.json: /General/Startup bank/instance: multi-instance block 'Channel bank' has 1 "
       "instance in this file"},
      {R"({"General": {"Startup bank": {"block": "Nope", "instance": 1}}})",
       "v.json: /General/Startup bank/block: no block named \"Nope\" in " + sample},
      {many, "v.json: /General/m3: member 'm3' is given twice"},
      {R"({"Channel bank": [{}, {"Channels": [], "Channels": []}]})",
       "v.json: /Channel bank/1/Channels: member 'Channels' is given twice"},
      // A syntax error is told before a key given twice ahead of it.
      {R"({"General": {"Volume": 1, "Volume": 2}, })",
       "v.json: not valid JSON: parse error at line 1, column 41: syntax error while parsing "
       "object key - unexpected '}'; expected string literal"},
      {"{\"General\": }",
       "v.json: not valid JSON: parse error at line 1, column 13: syntax error "
       "while parsing value - unexpected '}'; expected '[', '{', or a literal"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.values);
    EXPECT_EQ(valuesError(*layout, c.values), c.error);
  }
}

TEST(JsonValues, PaddedBlockRefusesValuesBeyondItsPaddedSize) {
  auto layout = CKovJsonLayout::Load(
      R"({"partitions": [{"number": 1, "blocks": [{"name": "P", "kovType": 1, "padded": true,
          "maxDataSize": 2, "fields": [
            {"name": "N", "type": "number", "bits": 8, "byteOffset": 0},
            {"name": "L", "type": "list", "format": "contiguous", "byteOffset": 1,
             "maxEntries": 4, "entryBits": 8, "quantity": {"field": "N"},
             "entry": [{"name": "V", "type": "number", "bits": 8, "byteOffset": 0}]}]}]}]})",
      "l.json", false);
  EXPECT_EQ(valuesError(*layout, R"({"P": {"L": [{"V": 1}]}})"), "(accepted)");
  EXPECT_EQ(valuesError(*layout, R"({"P": {"L": [{"V": 1}, {"V": 2}]}})"),
            "v.json: /P: the values reach 3 bytes, beyond the 2 bytes the block is padded to");
}

}  // namespace
