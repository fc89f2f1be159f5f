#include "kovjson/jsonnumber.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kov/kovtest.h"
#include "kovjson/jsonlayout.h"
#include "kovjson/jsonread.h"
#include "kovjson/jsonvalues.h"

namespace {

using Json = nlohmann::ordered_json;

// Block B (KOV type 16, 5 bytes): E enum and F flags share byte 0, S signed at byte 1, R counts
// steps of 0.005 at bytes 2-3, T signed halves from -10 at byte 4.
std::string layoutWith(const std::string& more = "") {
  return R"({"partitions": [{"number": 1, "blocks": [{"name": "B", "kovType": 16,
    "maxDataSize": 5, "fields": [
      {"name": "E", "type": "number", "bits": 4, "byteOffset": 0,
       "enum": {"Off": 0, "Low": 1, "High": 2}},
      {"name": "F", "type": "number", "bits": 4, "byteOffset": 0, "msbStart": 3,
       "flags": {"Scan": 0, "Lock": 3}},
      {"name": "S", "type": "number", "bits": 8, "byteOffset": 1, "signed": true},
      {"name": "R", "type": "number", "bits": 16, "byteOffset": 2, "scale": "0.005"},
      {"name": "T", "type": "number", "bits": 8, "byteOffset": 4, "signed": true,
       "scale": "0.5", "offset": -10})" +
         more + "]}]}]}";
}

Bytes dataOf(const Bytes& image) { return Bytes(image.begin() + 6, image.end() - 2); }

TEST(JsonNumber, ValuesPackToTheirStoredBitsAndBack) {
  auto layout = CKovJsonLayout::Load(layoutWith(), "l.json", false);
  struct Case {
    const char* values;
    Bytes data;        // by hand: E in the high nibble, F's bit 0 lowest of the low nibble
    const char* back;  // the values an unpack writes, when not the same text
  } cases[] = {
      // E 2, F bits 0 and 3 (1001); -3 = 0xFD; 145.5 / 0.005 = 29100 = 0x71AC;
      // (-12.5 + 10) / 0.5 = -5 = 0xFB.
      {R"({"B":{"E":"High","F":["Scan","Lock"],"S":-3,"R":"145.500","T":"-12.5"}})",
       {0x29, 0xFD, 0x71, 0xAC, 0xFB},
       nullptr},
      // Numbers are taken too; a number no name has stays a number, and so do flags with a bit
      // no name has (0110). The limits: 127 = 0x7F, 327.675 = 65535 steps, 53.5 = 127 halves.
      {R"({"B":{"E":5,"F":6,"S":127,"R":"327.675","T":"53.5"}})",
       {0x56, 0x7F, 0xFF, 0xFF, 0x7F},
       nullptr},
      {R"({"B":{"E":1,"F":[],"S":-128,"R":0,"T":-74}})",
       {0x10, 0x80, 0x00, 0x00, 0x80},
       R"({"B":{"E":"Low","F":[],"S":-128,"R":"0.000","T":"-74.0"}})"},
      // Trailing zeros beyond the step are exact; the order of flags is the bits'.
      {R"({"B":{"E":"Off","F":["Lock","Scan","Lock"],"S":0,"R":"0.0050000","T":"-10"}})",
       {0x09, 0x00, 0x00, 0x01, 0x00},
       R"({"B":{"E":"Off","F":["Scan","Lock"],"S":0,"R":"0.005","T":"-10.0"}})"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.values);
    Json values = kovJsonParse(c.values, "v.json");
    Bytes image;
    EXPECT_KOV_NO_THROW(
        image = kovJsonPackImage(*layout, *kovJsonPackData(*layout, values, "v.json"), false, ""));
    EXPECT_EQ(dataOf(image), c.data);
    CKovUp up(layout->GetCpLayout(), image, "");
    EXPECT_KOV_NO_THROW(up.FullUnpack());
    EXPECT_EQ(kovJsonUnpackedValues(*layout, up).dump(),
              kovJsonParse(c.back != nullptr ? c.back : c.values, "x").dump());
  }
}

// Values a field can't hold, and formats that can't hold for a field, each with its pointer.
TEST(JsonNumber, RefusesValuesAndFormatsThatCanNotHold) {
  auto layout = CKovJsonLayout::Load(layoutWith(), "l.json", false);
  struct Case {
    const char* values;   // packed against the layout, or
    const char* members;  // of a field X put behind T, which the load refuses
    std::string error;    // behind "v.json: ", or behind X's pointer
  } cases[] = {
      {R"({"B":{"E":"Medium"}})", nullptr,
       "/B/E: must be one of 'Off', 'Low', 'High' or a number; not "
       "\"Medium\""},
      {R"({"B":{"E":16}})", nullptr, "/B/E: must be a name or a whole number from 0 to 15; not 16"},
      {R"({"B":{"F":["Scan","Fast"]}})", nullptr,
       "/B/F: holds \"Fast\", which is not one of the flags 'Scan', 'Lock'"},
      {R"({"B":{"F":"Scan"}})", nullptr,
       "/B/F: must be a list of flags or a whole number from 0 to 15; not \"Scan\""},
      {R"({"B":{"S":-129}})", nullptr, "/B/S: must be a whole number from -128 to 127; not -129"},
      {R"({"B":{"S":"1"}})", nullptr,
       "/B/S: must be a whole number from -128 to 127; not a string"},
      {R"({"B":{"R":"145.5001"}})", nullptr,
       "/B/R: has more digits behind the point than the field's step: \"145.5001\""},
      {R"({"B":{"R":"145.502"}})", nullptr,
       "/B/R: must be a decimal from 0.000 to 327.675 in steps of 0.005; \"145.502\" is not a "
       "whole number of steps"},
      {R"({"B":{"R":"327.680"}})", nullptr,
       "/B/R: must be a decimal from 0.000 to 327.675 in steps of 0.005; not \"327.680\""},
      {R"({"B":{"R":145.5}})", nullptr,
       "/B/R: a decimal is written as a string (\"145.5\"): a JSON number with a fraction is not "
       "exact"},
      {R"({"B":{"T":"1x"}})", nullptr,
       "/B/T: must be a decimal number such as \"12.5\", not \"1x\""},
      {R"({"B":{"T":"-74.5"}})", nullptr,
       "/B/T: must be a decimal from -74.0 to 53.5 in steps of 0.5; not \"-74.5\""},
      {nullptr, R"("enum": {"A": 16})", "/enum/A: must be a whole number from 0 to 15, not 16"},
      {nullptr, R"("enum": {"A": 1, "B": 1})", "/enum/B: value 1 has a name already"},
      {nullptr, R"("enum": {})", "/enum: give at least one name"},
      {nullptr, R"("flags": {"A": 4})", "/flags/A: must be a whole number from 0 to 3, not 4"},
      {nullptr, R"("enum": {"A": 1}, "scale": 2)",
       "/scale: a field with 'enum' can't also have 'scale'"},
      {nullptr, R"("flags": {"A": 1}, "enum": {"B": 1})",
       "/flags: a field with 'enum' can't also have 'flags'"},
      {nullptr, R"("scale": "0")",
       "/scale: a scale is a decimal above 0 with at most 9 digits behind the point and 9 in "
       "all, such as \"0.005\"; not \"0\""},
      {nullptr, R"("scale": "0.0000000001")",
       "/scale: a scale is a decimal above 0 with at most 9 digits behind the point and 9 in "
       "all, such as \"0.005\"; not \"0.0000000001\""},
      {nullptr, R"("offset": 1.5)",
       "/offset: an offset is a decimal with at most 9 digits behind the "
       "point and 9 in all, such as \"0.005\"; not 1.5"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.values != nullptr ? c.values : c.members);
    std::string error = "(no error)";
    try {
      if (c.values != nullptr) {
        kovJsonPackData(*layout, kovJsonParse(c.values, "v.json"), "v.json");
      } else {
        CKovJsonLayout::Load(layoutWith(R"(, {"name": "X", "type": "number", "bits": 4, )"
                                        R"("byteOffset": 4, )" +
                                        std::string(c.members) + "}"),
                             "l.json", false);
      }
    } catch (const KovJsonError& e) {
      error = e.what();
    }
    EXPECT_EQ(
        error,
        (c.values != nullptr ? "v.json: " : "l.json: /partitions/0/blocks/0/fields/5") + c.error);
  }
}

}  // namespace
