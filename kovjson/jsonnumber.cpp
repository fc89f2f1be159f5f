#include "kovjson/jsonnumber.h"

#include <set>

#include "kov/kov.h"
#include "kovjson/jsonlayout.h"
#include "kovjson/jsonread.h"

namespace {

using Json = nlohmann::ordered_json;

// Scale and offset stay below this many units: stored (below 2^32) × scale + offset fits 63 bits.
constexpr int64_t kMaxUnits = 1000000000;
constexpr int kMaxDecimals = 9;
// A decimal text holds at most 18 digits, which an int64_t always holds.
constexpr int kMaxDigits = 18;

int64_t pow10(int n) {
  int64_t p = 1;
  while (n-- > 0) p *= 10;
  return p;
}

// A decimal text ("-145.500", "7") as the whole number of its digits and the count of digits
// behind the point; false when it is not one.
bool parseDecimal(const std::string& text, int64_t& digits, int& decimals) {
  size_t i = 0;
  bool negative = !text.empty() && text[0] == '-';
  if (negative) ++i;
  digits = 0;
  decimals = 0;
  int count = 0;
  bool point = false;
  bool any = false;
  for (; i < text.size(); ++i) {
    char c = text[i];
    if (c == '.' && !point && any) {
      point = true;
      continue;
    }
    if (c < '0' || c > '9' || ++count > kMaxDigits) return false;
    digits = digits * 10 + (c - '0');
    any = true;
    if (point) ++decimals;
  }
  if (!any || (point && decimals == 0)) return false;
  if (negative) digits = -digits;
  return true;
}

// value (a decimal text or a whole JSON number) in units of 10^-decimals; false with why.
bool toUnits(const Json& v, int decimals, int64_t& units, std::string& why) {
  int64_t digits = 0;
  int have = 0;
  if (v.is_number_integer()) {
    if (v.is_number_unsigned() && v.get<uint64_t>() > static_cast<uint64_t>(kMaxUnits) * 1000) {
      why = "is out of range";
      return false;
    }
    digits = v.get<int64_t>();
  } else if (v.is_string()) {
    if (!parseDecimal(v.get<std::string>(), digits, have)) {
      why = "must be a decimal number such as \"12.5\", not " + v.dump();
      return false;
    }
  } else if (v.is_number_float()) {
    why = "a decimal is written as a string (\"" + v.dump() +
          "\"): a JSON number with a fraction is not exact";
    return false;
  } else {
    why = "must be a decimal number such as \"12.5\", not " + kovJsonTypeName(v);
    return false;
  }
  // Digits behind the field's step must be zeros.
  for (; have > decimals; --have) {
    if (digits % 10 != 0) {
      why = "has more digits behind the point than the field's step: " + v.dump();
      return false;
    }
    digits /= 10;
  }
  for (; have < decimals; ++have) {
    if (digits > INT64_MAX / 10 || digits < INT64_MIN / 10) {
      why = "is out of range";
      return false;
    }
    digits *= 10;
  }
  units = digits;
  return true;
}

std::string unitsText(int64_t units, int decimals) {
  std::string sign = units < 0 ? "-" : "";
  uint64_t magnitude =
      units < 0 ? static_cast<uint64_t>(-(units + 1)) + 1 : static_cast<uint64_t>(units);
  uint64_t p = static_cast<uint64_t>(pow10(decimals));
  std::string text = sign + std::to_string(magnitude / p);
  if (decimals > 0) {
    std::string frac = std::to_string(magnitude % p);
    text += "." + std::string(static_cast<size_t>(decimals) - frac.size(), '0') + frac;
  }
  return text;
}

uint64_t maxForBits(uint32_t bits) { return bits >= 32 ? 0xFFFFFFFFu : (uint64_t{1} << bits) - 1; }

// The range of the stored number as a whole number: [lo, hi].
void storedRange(const KovJsonNumberFormat& format, uint32_t bits, int64_t& lo, int64_t& hi) {
  if (format.isSigned) {
    lo = -(int64_t{1} << (bits - 1));
    hi = (int64_t{1} << (bits - 1)) - 1;
  } else {
    lo = 0;
    hi = static_cast<int64_t>(maxForBits(bits));
  }
}

std::string namesOf(const std::vector<std::pair<std::string, uint32_t>>& names) {
  std::string text;
  for (const auto& [name, value] : names) text += (text.empty() ? "'" : ", '") + name + "'";
  return text;
}

}  // namespace

std::string kovJsonDecimalText(int64_t units, int decimals) { return unitsText(units, decimals); }

KovJsonNumberFormat kovJsonReadNumberFormat(const KovJsonReader& in, const Json& o,
                                            const std::string& at, uint32_t bits) {
  KovJsonNumberFormat format;
  const char* chosen = nullptr;
  for (const char* key : {"enum", "flags", "signed", "scale", "offset"}) {
    if (!o.contains(key)) continue;
    bool named = std::string(key) == "enum" || std::string(key) == "flags";
    bool chosenNamed =
        chosen != nullptr && (std::string(chosen) == "enum" || std::string(chosen) == "flags");
    if (chosen != nullptr && (named || chosenNamed)) {
      in.Fail(kovJsonPointerTo(at, key),
              std::string("a field with '") + chosen + "' can't also have '" + key + "'");
    }
    if (chosen == nullptr) chosen = key;
  }
  for (const char* key : {"enum", "flags"}) {
    if (!o.contains(key)) continue;
    bool isEnum = std::string(key) == "enum";
    std::string kat = kovJsonPointerTo(at, key);
    const Json& names = o[key];
    in.Object(names, kat);
    if (names.empty()) in.Fail(kat, "give at least one name");
    std::set<uint32_t> seen;
    auto& list = isEnum ? format.enumNames : format.flagNames;
    for (const auto& item : names.items()) {
      std::string nat = kovJsonPointerTo(kat, item.key());
      if (item.key().empty()) in.Fail(nat, "a name can't be empty");
      auto value = static_cast<uint32_t>(
          in.ToUInt(item.value(), nat, 0, isEnum ? maxForBits(bits) : bits - 1));
      if (!seen.insert(value).second) {
        in.Fail(nat, kovFormat(isEnum ? "value %u has a name already" : "bit %u has a name already",
                               value));
      }
      list.emplace_back(item.key(), value);
    }
  }
  format.isSigned = in.Bool(o, at, "signed", false);
  if (format.isSigned && bits < 2) {
    in.Fail(kovJsonPointerTo(at, "signed"), "a signed field needs 2 bits at least");
  }
  if (o.contains("scale") || o.contains("offset")) {
    format.scaled = true;
    int64_t scale = 1, offset = 0;
    int scaleDecimals = 0, offsetDecimals = 0;
    for (const char* key : {"scale", "offset"}) {
      if (!o.contains(key)) continue;
      bool isScale = std::string(key) == "scale";
      const Json& v = o[key];
      std::string kat = kovJsonPointerTo(at, key);
      int64_t& digits = isScale ? scale : offset;
      int& decimals = isScale ? scaleDecimals : offsetDecimals;
      bool ok = v.is_number_integer()
                    ? (digits = v.get<int64_t>(),
                       !v.is_number_unsigned() || v.get<uint64_t>() < uint64_t{kMaxUnits})
                : v.is_string() ? parseDecimal(v.get<std::string>(), digits, decimals)
                                : false;
      if (!ok || decimals > kMaxDecimals || digits >= kMaxUnits || digits <= -kMaxUnits ||
          (isScale && digits <= 0)) {
        in.Fail(kat,
                std::string(isScale ? "a scale is a decimal above 0" : "an offset is a decimal") +
                    kovFormat(" with at most %d digits behind the point and 9 in all, such "
                              "as \"0.005\"; not ",
                              kMaxDecimals) +
                    v.dump());
      }
    }
    format.decimals = std::max(scaleDecimals, offsetDecimals);
    format.scaleUnits = scale * pow10(format.decimals - scaleDecimals);
    format.offsetUnits = offset * pow10(format.decimals - offsetDecimals);
    if (format.scaleUnits >= kMaxUnits || format.offsetUnits >= kMaxUnits ||
        format.offsetUnits <= -kMaxUnits) {
      in.Fail(at, "scale and offset together need more than 9 digits");
    }
  }
  return format;
}

bool kovJsonNumberToStored(const KovJsonNumberFormat& format, uint32_t bits, const Json& v,
                           uint32_t& stored, std::string& why) {
  const uint64_t max = maxForBits(bits);
  if (!format.enumNames.empty() && v.is_string()) {
    for (const auto& [name, value] : format.enumNames) {
      if (name == v.get_ref<const std::string&>()) {
        stored = value;
        return true;
      }
    }
    why = "must be one of " + namesOf(format.enumNames) + " or a number; not " + v.dump();
    return false;
  }
  if (!format.flagNames.empty() && v.is_array()) {
    stored = 0;
    for (const Json& name : v) {
      bool found = false;
      for (const auto& [flag, bit] : format.flagNames) {
        if (name.is_string() && flag == name.get_ref<const std::string&>()) {
          stored |= uint32_t{1} << bit;
          found = true;
        }
      }
      if (!found) {
        why =
            "holds " + name.dump() + ", which is not one of the flags " + namesOf(format.flagNames);
        return false;
      }
    }
    return true;
  }
  if (!format.scaled && !format.isSigned) {
    // A name list or a plain number: as a field without names.
    if (v.is_number_unsigned() && v.get<uint64_t>() <= max) {
      stored = static_cast<uint32_t>(v.get<uint64_t>());
      return true;
    }
    why = kovFormat("must be %s or a whole number from 0 to %llu; not ",
                    format.enumNames.empty() ? "a list of flags" : "a name",
                    static_cast<unsigned long long>(max)) +
          (v.is_number() || v.is_string() ? v.dump() : kovJsonTypeName(v));
    return false;
  }
  int64_t lo = 0, hi = 0;
  storedRange(format, bits, lo, hi);
  int64_t number = 0;
  if (!format.scaled) {
    if (!v.is_number_integer() ||
        (v.is_number_unsigned() && v.get<uint64_t>() > uint64_t{1} << 32) ||
        v.get<int64_t>() < lo || v.get<int64_t>() > hi) {
      why = kovFormat("must be a whole number from %lld to %lld; not ", static_cast<long long>(lo),
                      static_cast<long long>(hi)) +
            (v.is_number() ? v.dump() : kovJsonTypeName(v));
      return false;
    }
    number = v.get<int64_t>();
  } else {
    int64_t units = 0;
    if (!toUnits(v, format.decimals, units, why)) return false;
    std::string range = "a decimal from " +
                        unitsText(lo * format.scaleUnits + format.offsetUnits, format.decimals) +
                        " to " +
                        unitsText(hi * format.scaleUnits + format.offsetUnits, format.decimals) +
                        " in steps of " + unitsText(format.scaleUnits, format.decimals);
    // units and offsetUnits are below 10^18 and 10^9 in size: the difference fits.
    if (units > INT64_MAX / 2 || units < INT64_MIN / 2) {
      why = "must be " + range + "; not " + v.dump();
      return false;
    }
    int64_t steps = units - format.offsetUnits;
    if (steps % format.scaleUnits != 0) {
      why = "must be " + range + "; " + v.dump() + " is not a whole number of steps";
      return false;
    }
    number = steps / format.scaleUnits;
    if (number < lo || number > hi) {
      why = "must be " + range + "; not " + v.dump();
      return false;
    }
  }
  stored = static_cast<uint32_t>(static_cast<uint64_t>(number) & max);
  return true;
}

Json kovJsonNumberFromStored(const KovJsonNumberFormat& format, uint32_t bits, uint32_t stored) {
  for (const auto& [name, value] : format.enumNames) {
    if (value == stored) return name;
  }
  if (!format.flagNames.empty()) {
    Json names = Json::array();
    uint32_t named = 0;
    // In bit order, lowest first, whatever the order of the file.
    for (uint32_t bit = 0; bit < bits; ++bit) {
      for (const auto& [flag, b] : format.flagNames) {
        if (b == bit && (stored >> bit & 1u) != 0) {
          names.push_back(flag);
          named |= uint32_t{1} << bit;
        }
      }
    }
    return named == stored ? names : Json(stored);
  }
  if (!format.isSigned && !format.scaled) return stored;
  int64_t number = stored;
  // Two's complement: the top bit of the field's width counts −2^(bits−1).
  if (format.isSigned && (stored >> (bits - 1) & 1u) != 0) number -= int64_t{1} << bits;
  // A whole number that is not negative is a JSON unsigned number, as every other field's.
  auto whole = [](int64_t n) { return n < 0 ? Json(n) : Json(static_cast<uint64_t>(n)); };
  if (!format.scaled) return whole(number);
  int64_t units = number * format.scaleUnits + format.offsetUnits;
  if (format.decimals == 0) return whole(units);
  return unitsText(units, format.decimals);
}
