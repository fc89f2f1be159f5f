// Reading JSON files of the tool: parsing with the place of a syntax error, and checked access to
// members, each failure a KovJsonError that names the file and the JSON pointer of the value.
//
// Whole numbers are JSON integers or strings of hexadecimal digits after "0x" ("0x0011"); a
// fraction, a negative number where none is allowed or a value outside its range is refused.
// Every object may carry a "comment" member, which is not read.
#ifndef KOVJSON_JSONREAD_H
#define KOVJSON_JSONREAD_H

#include <cstdint>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

// The bytes of the file at path ("-": standard input). Only a regular file is read: a folder, a
// device, a FIFO or a missing path throws KovJsonError "PATH: can't be read: why".
std::string kovJsonReadFile(const std::string& path);

// The document in text, members in file order; a syntax error throws KovJsonError with its line
// and column.
nlohmann::ordered_json kovJsonParse(const std::string& text, const std::string& file);

class KovJsonReader {
 public:
  using Json = nlohmann::ordered_json;

  explicit KovJsonReader(std::string file) : file(std::move(file)) {}

  // Throws KovJsonError(file, at, text).
  [[noreturn]] void Fail(const std::string& at, const std::string& text) const;

  // v at at must be an object / array.
  void Object(const Json& v, const std::string& at) const;
  // Refuses a member of o not in allowed (and not "comment").
  void Keys(const Json& o, const std::string& at, std::initializer_list<const char*> allowed) const;
  void Keys(const Json& o, const std::string& at, const std::vector<const char*>& allowed) const;

  // Member key of object o (at at), which must be there.
  const Json& Member(const Json& o, const std::string& at, const char* key) const;
  // An array member; with optional, a missing member is an empty array.
  const Json& Array(const Json& o, const std::string& at, const char* key,
                    bool optional = false) const;
  // A whole number in [min, max], required or with a default.
  uint64_t ToUInt(const Json& v, const std::string& at, uint64_t min, uint64_t max) const;
  uint64_t UInt(const Json& o, const std::string& at, const char* key, uint64_t min,
                uint64_t max) const;
  uint64_t UInt(const Json& o, const std::string& at, const char* key, uint64_t min, uint64_t max,
                uint64_t def) const;
  int64_t Int(const Json& o, const std::string& at, const char* key, int64_t min, int64_t max,
              int64_t def) const;
  bool Bool(const Json& o, const std::string& at, const char* key, bool def) const;
  // The non-empty string member "name".
  std::string Name(const Json& o, const std::string& at) const;
  // A string member that must be one of choices; required, or with a default.
  std::string Choice(const Json& o, const std::string& at, const char* key,
                     const std::vector<const char*>& choices) const;
  std::string Choice(const Json& o, const std::string& at, const char* key,
                     const std::vector<const char*>& choices, const char* def) const;

  const std::string& GetFile() const { return file; }

 private:
  std::string file;
};

// The name of a JSON value's type for messages: "an object", "a string", ...
std::string kovJsonTypeName(const nlohmann::ordered_json& v);

#endif  // KOVJSON_JSONREAD_H
