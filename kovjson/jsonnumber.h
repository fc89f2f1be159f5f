// The values of a number field as people read them: names for values (enum), names for bits
// (flags), two's complement (signed), and a scale and offset with decimal text.
//
// A number field of a layout file may carry one of (docs/layout-format.md):
//   "enum":  {"Low": 0, "High": 1}       a value is a name or a number; an unpack writes the
//                                         name, or the number when no name has it
//   "flags": {"Scan": 0, "Lock": 3}      bit 0 is the least significant; a value is a list of
//                                         names or a number; an unpack writes the names of the
//                                         set bits, or the number when a set bit has no name
//   "signed": true                       two's complement in the field's width
//   "scale": "0.005", "offset": "100"    value = stored × scale + offset, written as a decimal
//                                         text with the digits of scale and offset behind the
//                                         point ("145.500"); with "signed", stored is signed
// Decimals are exact: a text is read digit by digit into a whole number of the smallest unit
// (10^-decimals), never into binary floating point. A value that is not a whole number of
// steps, or whose stored number does not fit the field, is refused. Scale and offset have at
// most 9 digits behind the point and stay below 10^9 in units, so that stored × scale fits 63
// bits.
#ifndef KOVJSON_JSONNUMBER_H
#define KOVJSON_JSONNUMBER_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

class KovJsonReader;

struct KovJsonNumberFormat {
  std::vector<std::pair<std::string, uint32_t>> enumNames;  // name, value, in file order
  std::vector<std::pair<std::string, uint32_t>> flagNames;  // name, bit, in file order
  bool isSigned = false;
  bool scaled = false;  // scale or offset given: the value is a decimal
  int decimals = 0;     // digits behind the point
  int64_t scaleUnits = 1;
  int64_t offsetUnits = 0;

  bool IsPlain() const { return enumNames.empty() && flagNames.empty() && !isSigned && !scaled; }
};

// Reads "enum", "flags", "signed", "scale" and "offset" of the number field o (at at) of width
// bits; throws KovJsonError through in.
KovJsonNumberFormat kovJsonReadNumberFormat(const KovJsonReader& in,
                                            const nlohmann::ordered_json& o, const std::string& at,
                                            uint32_t bits);

// The stored number of value v for a field of width bits; false with why set when v is not a
// value of the field ("must be ...", "is not a multiple of ...").
bool kovJsonNumberToStored(const KovJsonNumberFormat& format, uint32_t bits,
                           const nlohmann::ordered_json& v, uint32_t& stored, std::string& why);

// The value of stored as the format shows it.
nlohmann::ordered_json kovJsonNumberFromStored(const KovJsonNumberFormat& format, uint32_t bits,
                                               uint32_t stored);

// units of 10^-decimals as a decimal text: 145500 with 3 decimals is "145.500".
std::string kovJsonDecimalText(int64_t units, int decimals);

#endif  // KOVJSON_JSONNUMBER_H
