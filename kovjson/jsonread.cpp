#include "kovjson/jsonread.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <unordered_set>
#include <utility>

#include "kovjson/jsonlayout.h"

namespace {

using Json = nlohmann::ordered_json;

// nlohmann's texts start with "[json.exception.parse_error.101] "; the file name says the rest.
std::string withoutExceptionTag(const std::string& text) {
  size_t end = text.rfind("] ", 40);
  return text.rfind("[json.exception.", 0) == 0 && end != std::string::npos ? text.substr(end + 2)
                                                                            : text;
}

// Reads fd to its end; false on a read error (errno set).
bool readAll(int fd, std::string& bytes) {
  char buf[65536];
  for (;;) {
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n == 0) return true;
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes.append(buf, static_cast<size_t>(n));
  }
}

// A SAX reader that builds the document and finds the first key given twice in one object,
// keeping its JSON pointer. nlohmann keeps the last of two equal keys without a word; a file that
// says two things about one member is refused instead. A syntax error anywhere is told before a
// repeated key, so after one the reading goes on without building. One pass over the text; a
// key is looked for among the members before it, through a set once an object has many, so the
// reading stays linear in the text.
class DomBuilder {
 public:
  using number_integer_t = Json::number_integer_t;
  using number_unsigned_t = Json::number_unsigned_t;
  using number_float_t = Json::number_float_t;
  using string_t = Json::string_t;
  using binary_t = Json::binary_t;

  Json doc;
  std::string pointer;   // of the first repeated key
  std::string repeated;  // its name; empty when no key repeats
  std::string syntax;    // the text of a syntax error; empty when there is none

  bool null() { return Value(Json()); }
  bool boolean(bool v) { return Value(Json(v)); }
  bool number_integer(number_integer_t v) { return Value(Json(v)); }
  bool number_unsigned(number_unsigned_t v) { return Value(Json(v)); }
  bool number_float(number_float_t v, const string_t&) { return Value(Json(v)); }
  bool string(string_t& v) { return Value(Json(std::move(v))); }
  bool binary(binary_t& v) { return Value(Json::binary(std::move(v))); }
  bool start_object(std::size_t) { return Open(Json::object()); }
  bool key(string_t& name) {
    if (!repeated.empty()) return true;
    Frame& top = frames.back();
    Json::object_t& members = *top.value->get_ptr<Json::object_t*>();
    bool twice = false;
    if (members.size() < kLinearKeys) {
      for (const auto& member : members) twice = twice || member.first == name;
    } else {
      if (top.keys.empty()) {
        for (const auto& member : members) top.keys.insert(member.first);
      }
      twice = !top.keys.insert(name).second;
    }
    top.name = name;
    if (twice) {
      repeated = name;
      pointer = Pointer();
      return true;
    }
    members.emplace_back(std::move(name), Json());
    top.member = &members.back().second;
    return true;
  }
  bool end_object() { return Close(); }
  bool start_array(std::size_t) { return Open(Json::array()); }
  bool end_array() { return Close(); }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& e) {
    syntax = withoutExceptionTag(e.what());
    return false;
  }

 private:
  // Objects with fewer members look a key up among them; larger ones keep a set.
  static constexpr size_t kLinearKeys = 16;

  struct Frame {
    Json* value;                           // the object or array
    Json* member = nullptr;                // object: where the member being read goes
    std::string name;                      // object: the name of the member being read
    size_t next = 0;                       // array: the index of the next element
    std::unordered_set<std::string> keys;  // object: its keys, once it has many
  };

  // The place of the next value: the document, an array's end or the member of the last key.
  // An array counts the value, for the pointer.
  Json* Slot() {
    if (frames.empty()) return &doc;
    Frame& top = frames.back();
    if (top.value->is_object()) return top.member;
    ++top.next;
    Json::array_t& items = *top.value->get_ptr<Json::array_t*>();
    items.emplace_back();
    return &items.back();
  }
  // Once a key repeated, the rest is only read for a syntax error.
  bool Value(Json&& v) {
    if (repeated.empty()) *Slot() = std::move(v);
    return true;
  }
  bool Open(Json&& container) {
    if (!repeated.empty()) return true;
    Json* slot = Slot();
    *slot = std::move(container);
    frames.push_back(Frame{slot, nullptr, "", 0, {}});
    return true;
  }
  bool Close() {
    if (repeated.empty()) frames.pop_back();
    return true;
  }
  std::string Pointer() const {
    std::string at;
    for (const Frame& f : frames) {
      at = f.value->is_object() ? kovJsonPointerTo(at, f.name) : kovJsonPointerTo(at, f.next - 1);
    }
    return at;
  }

  std::vector<Frame> frames;
};

}  // namespace

std::string kovJsonReadFile(const std::string& path) {
  auto fail = [&](const std::string& why) -> KovJsonError {
    return KovJsonError(path == "-" ? "standard input" : path, "", "can't be read: " + why);
  };
  std::string bytes;
  if (path == "-") {
    if (!readAll(STDIN_FILENO, bytes)) throw fail(std::strerror(errno));
    return bytes;
  }
  // O_NONBLOCK: opening a FIFO without a writer must not hang before it is refused.
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) throw fail(std::strerror(errno));
  struct stat st;
  bool ok = ::fstat(fd, &st) == 0;
  int err = errno;
  if (ok && !S_ISREG(st.st_mode)) {
    ::close(fd);
    throw fail(S_ISDIR(st.st_mode) ? "it is a folder" : "not a regular file");
  }
  ok = ok && readAll(fd, bytes);
  if (!ok) err = errno;
  ::close(fd);
  if (!ok) throw fail(std::strerror(err));
  return bytes;
}

Json kovJsonParse(const std::string& text, const std::string& file) {
  DomBuilder builder;
  Json::sax_parse(text, &builder);
  if (!builder.syntax.empty()) throw KovJsonError(file, "", "not valid JSON: " + builder.syntax);
  if (!builder.repeated.empty()) {
    throw KovJsonError(file, builder.pointer, "member '" + builder.repeated + "' is given twice");
  }
  return std::move(builder.doc);
}

std::string kovJsonTypeName(const Json& v) {
  if (v.is_object()) return "an object";
  if (v.is_array()) return "an array";
  if (v.is_string()) return "a string";
  if (v.is_boolean()) return "true or false";
  if (v.is_null()) return "null";
  return "a number";
}

void KovJsonReader::Fail(const std::string& at, const std::string& text) const {
  throw KovJsonError(file, at, text);
}

void KovJsonReader::Object(const Json& v, const std::string& at) const {
  if (!v.is_object()) Fail(at, "must be an object, not " + kovJsonTypeName(v));
}

void KovJsonReader::Keys(const Json& o, const std::string& at,
                         std::initializer_list<const char*> allowed) const {
  Keys(o, at, std::vector<const char*>(allowed));
}

void KovJsonReader::Keys(const Json& o, const std::string& at,
                         const std::vector<const char*>& allowed) const {
  for (const auto& item : o.items()) {
    bool known = item.key() == "comment";
    for (const char* key : allowed) known = known || item.key() == key;
    if (!known) Fail(kovJsonPointerTo(at, item.key()), "unknown member '" + item.key() + "'");
  }
}

const Json& KovJsonReader::Member(const Json& o, const std::string& at, const char* key) const {
  auto it = o.find(key);
  if (it == o.end()) Fail(at, std::string("missing member '") + key + "'");
  return *it;
}

const Json& KovJsonReader::Array(const Json& o, const std::string& at, const char* key,
                                 bool optional) const {
  static const Json empty = Json::array();
  if (optional && !o.contains(key)) return empty;
  const Json& v = Member(o, at, key);
  if (!v.is_array()) Fail(kovJsonPointerTo(at, key), "must be an array, not " + kovJsonTypeName(v));
  return v;
}

uint64_t KovJsonReader::ToUInt(const Json& v, const std::string& at, uint64_t min,
                               uint64_t max) const {
  uint64_t value = 0;
  std::string range = "a whole number from " + std::to_string(min) + " to " + std::to_string(max);
  if (v.is_number_unsigned()) {
    value = v.get<uint64_t>();
  } else if (v.is_number_integer()) {
    Fail(at, "must be " + range + ", not " + v.dump());
  } else if (v.is_string()) {
    const std::string& s = v.get_ref<const std::string&>();
    bool hex = s.size() > 2 && s.size() <= 18 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X');
    for (size_t i = 2; hex && i < s.size(); ++i)
      hex = std::isxdigit(static_cast<unsigned char>(s[i]));
    if (!hex || s.size() > 10)
      Fail(at, "must be " + range + " (or \"0x\" and hex digits), not " + v.dump());
    value = std::stoull(s.substr(2), nullptr, 16);
  } else {
    Fail(at, "must be " + range + ", not " + kovJsonTypeName(v));
  }
  if (value < min || value > max) Fail(at, "must be " + range + ", not " + std::to_string(value));
  return value;
}

uint64_t KovJsonReader::UInt(const Json& o, const std::string& at, const char* key, uint64_t min,
                             uint64_t max) const {
  return ToUInt(Member(o, at, key), kovJsonPointerTo(at, key), min, max);
}

uint64_t KovJsonReader::UInt(const Json& o, const std::string& at, const char* key, uint64_t min,
                             uint64_t max, uint64_t def) const {
  return o.contains(key) ? UInt(o, at, key, min, max) : def;
}

int64_t KovJsonReader::Int(const Json& o, const std::string& at, const char* key, int64_t min,
                           int64_t max, int64_t def) const {
  if (!o.contains(key)) return def;
  const Json& v = o[key];
  std::string vat = kovJsonPointerTo(at, key);
  std::string range = "a whole number from " + std::to_string(min) + " to " + std::to_string(max);
  if (!v.is_number_integer()) Fail(vat, "must be " + range + ", not " + kovJsonTypeName(v));
  if (v.is_number_unsigned() && v.get<uint64_t>() > static_cast<uint64_t>(max)) {
    Fail(vat, "must be " + range + ", not " + v.dump());
  }
  int64_t value = v.get<int64_t>();
  if (value < min || value > max) Fail(vat, "must be " + range + ", not " + v.dump());
  return value;
}

bool KovJsonReader::Bool(const Json& o, const std::string& at, const char* key, bool def) const {
  if (!o.contains(key)) return def;
  const Json& v = o[key];
  if (!v.is_boolean()) {
    Fail(kovJsonPointerTo(at, key), "must be true or false, not " + kovJsonTypeName(v));
  }
  return v.get<bool>();
}

std::string KovJsonReader::Name(const Json& o, const std::string& at) const {
  const Json& v = Member(o, at, "name");
  if (!v.is_string() || v.get_ref<const std::string&>().empty()) {
    Fail(kovJsonPointerTo(at, "name"), "must be a non-empty string");
  }
  return v.get<std::string>();
}

std::string KovJsonReader::Choice(const Json& o, const std::string& at, const char* key,
                                  const std::vector<const char*>& choices) const {
  const Json& v = Member(o, at, key);
  std::string list;
  for (const char* c : choices) {
    if (v.is_string() && v.get_ref<const std::string&>() == c) return c;
    list += std::string(list.empty() ? "" : ", ") + c;
  }
  Fail(kovJsonPointerTo(at, key),
       "must be one of " + list + "; not " + (v.is_string() ? v.dump() : kovJsonTypeName(v)));
}

std::string KovJsonReader::Choice(const Json& o, const std::string& at, const char* key,
                                  const std::vector<const char*>& choices, const char* def) const {
  return o.contains(key) ? Choice(o, at, key, choices) : def;
}
