#include "python/pyvalues.h"

#include <string>
#include <utility>
#include <vector>

#include "kovjson/jsonlayout.h"

namespace py = pybind11;

namespace {

using Json = nlohmann::ordered_json;

[[noreturn]] void failValue(const std::string& at, const std::string& text) {
  throw KovJsonError("<values>", at, text);
}

// Where a value sits, built into a JSON pointer only when a value is refused.
struct Place {
  const Place* parent = nullptr;
  PyObject* key = nullptr;  // a member name (borrowed), or null for an array index
  size_t index = 0;
  int depth = 0;

  std::string Pointer() const {
    if (parent == nullptr) return "";
    std::string up = parent->Pointer();
    if (key == nullptr) return kovJsonPointerTo(up, index);
    return kovJsonPointerTo(up, py::reinterpret_borrow<py::str>(key).cast<std::string>());
  }
};

std::string typeName(PyObject* o) { return Py_TYPE(o)->tp_name; }

// decimal.Decimal, looked up once: pack takes it for a scaled field's value.
bool isDecimal(PyObject* o) {
  static PyObject* decimalType =
      py::object(py::module_::import("decimal").attr("Decimal")).release().ptr();
  return PyObject_IsInstance(o, decimalType) == 1;
}

// o as JSON when build is true; with build false, only the checks, in the same order and with the
// same texts, and a null result.
template <bool build>
Json toJson(PyObject* o, const Place& at) {
  // The layout format nests lists and unions 8 deep; 64 leaves room and stops a cycle.
  if (at.depth > 64)
    failValue(at.Pointer(), "nested too deep (a dict or list that contains itself?)");
  if (o == Py_None) return Json();
  if (PyBool_Check(o)) return build ? Json(o == Py_True) : Json();
  if (PyLong_Check(o)) {
    int overflow = 0;
    long long n = PyLong_AsLongLongAndOverflow(o, &overflow);
    if (overflow == 0) {
      if (n == -1 && PyErr_Occurred()) throw py::error_already_set();
      // Non-negative numbers as the parser gives them: unsigned, which the reader expects.
      if (!build) return Json();
      if (n >= 0) return Json(static_cast<uint64_t>(n));
      return Json(static_cast<int64_t>(n));
    }
    unsigned long long u = overflow > 0 ? PyLong_AsUnsignedLongLong(o) : 0;
    if (overflow < 0 || (u == static_cast<unsigned long long>(-1) && PyErr_Occurred())) {
      PyErr_Clear();
      failValue(at.Pointer(), "the number " + py::str(o).cast<std::string>() + " is out of range");
    }
    return build ? Json(static_cast<uint64_t>(u)) : Json();
  }
  // A fraction goes on to the reader, which refuses it where a whole number belongs.
  if (PyFloat_Check(o)) return build ? Json(PyFloat_AS_DOUBLE(o)) : Json();
  if (PyUnicode_Check(o)) {
    Py_ssize_t size = 0;
    const char* text = PyUnicode_AsUTF8AndSize(o, &size);
    if (text == nullptr) {
      PyErr_Clear();
      failValue(at.Pointer(), "the string can't be encoded as UTF-8");
    }
    return build ? Json(std::string(text, static_cast<size_t>(size))) : Json();
  }
  if (PyDict_Check(o)) {
    Json obj = Json::object();
    // A dict's keys are unique: members go straight to the end of the ordered map, without
    // its search for an existing key.
    using Members = std::vector<std::pair<const std::string, Json>>;
    Members& members = static_cast<Members&>(*obj.get_ptr<Json::object_t*>());
    members.reserve(static_cast<size_t>(PyDict_Size(o)));
    PyObject* key;
    PyObject* value;
    Py_ssize_t pos = 0;
    while (PyDict_Next(o, &pos, &key, &value)) {
      if (!PyUnicode_Check(key)) {
        failValue(at.Pointer(), "a key must be a string, not " + typeName(key));
      }
      Py_ssize_t size = 0;
      const char* name = PyUnicode_AsUTF8AndSize(key, &size);
      if (name == nullptr) {
        PyErr_Clear();
        failValue(at.Pointer(), "a key can't be encoded as UTF-8");
      }
      Place inner{&at, key, 0, at.depth + 1};
      Json member = toJson<build>(value, inner);
      if (build)
        members.emplace_back(std::string(name, static_cast<size_t>(size)), std::move(member));
    }
    return obj;
  }
  if (PyList_Check(o) || PyTuple_Check(o)) {
    Json arr = Json::array();
    Json::array_t& items = *arr.get_ptr<Json::array_t*>();
    // The conversion runs no Python code that could change the list; the size is read each
    // step all the same.
    bool isList = PyList_Check(o);
    for (Py_ssize_t i = 0; i < (isList ? PyList_GET_SIZE(o) : PyTuple_GET_SIZE(o)); ++i) {
      PyObject* item = isList ? PyList_GET_ITEM(o, i) : PyTuple_GET_ITEM(o, i);
      Place inner{&at, nullptr, static_cast<size_t>(i), at.depth + 1};
      Json element = toJson<build>(item, inner);
      if (build) items.push_back(std::move(element));
    }
    return arr;
  }
  // A decimal.Decimal is its exact text, as a scaled field's value is written in a values file.
  if (isDecimal(o)) {
    if (!build) return Json();
    // Fixed-point notation: str() would write Decimal("1E+2") with an exponent.
    py::str text =
        py::module_::import("builtins").attr("format")(py::reinterpret_borrow<py::object>(o), "f");
    return Json(text.cast<std::string>());
  }
  failValue(at.Pointer(),
            "a value must be a dict, list, str, int, float, decimal.Decimal, bool "
            "or None, not " +
                typeName(o));
}

}  // namespace

Json kovPyToJson(PyObject* o) { return toJson<true>(o, Place()); }

KovPyValueTree::KovPyValueTree(PyObject* root) : root(root) { toJson<false>(root, Place()); }

KovValueTree::Type KovPyValueTree::TypeOf(KovValueNode n) const {
  PyObject* o = obj(n);
  if (PyDict_Check(o)) return Type::Object;
  if (PyUnicode_Check(o)) return Type::String;
  if (PyBool_Check(o)) return Type::Bool;
  if (PyLong_Check(o)) {
    // The checks made sure that it fits 64 bits, signed or unsigned.
    int overflow = 0;
    long long value = PyLong_AsLongLongAndOverflow(o, &overflow);
    return overflow > 0 || value >= 0 ? Type::Unsigned : Type::Integer;
  }
  if (PyList_Check(o) || PyTuple_Check(o)) return Type::Array;
  if (o == Py_None) return Type::Null;
  if (PyFloat_Check(o)) return Type::Float;
  return Type::Other;
}

uint64_t KovPyValueTree::Unsigned(KovValueNode n) const {
  PyObject* o = obj(n);
  int overflow = 0;
  long long value = PyLong_AsLongLongAndOverflow(o, &overflow);
  if (overflow == 0) return static_cast<uint64_t>(value);
  return PyLong_AsUnsignedLongLong(o);
}

std::string_view KovPyValueTree::String(KovValueNode n) const {
  // The checks encoded every str, so the UTF-8 is cached in the object.
  Py_ssize_t size = 0;
  const char* text = PyUnicode_AsUTF8AndSize(obj(n), &size);
  return std::string_view(text, static_cast<size_t>(size));
}

size_t KovPyValueTree::Size(KovValueNode n) const {
  PyObject* o = obj(n);
  if (PyDict_Check(o)) return static_cast<size_t>(PyDict_GET_SIZE(o));
  if (PyList_Check(o)) return static_cast<size_t>(PyList_GET_SIZE(o));
  if (PyTuple_Check(o)) return static_cast<size_t>(PyTuple_GET_SIZE(o));
  return 0;
}

bool KovPyValueTree::NextMember(KovValueNode n, KovValueIter& it, std::string_view& key,
                                KovValueNode& value) const {
  auto pos = static_cast<Py_ssize_t>(it.pos);
  PyObject* k = nullptr;
  PyObject* v = nullptr;
  if (!PyDict_Next(obj(n), &pos, &k, &v)) return false;
  it.pos = static_cast<size_t>(pos);
  Py_ssize_t size = 0;
  const char* text = PyUnicode_AsUTF8AndSize(k, &size);
  key = std::string_view(text, static_cast<size_t>(size));
  value = {v, 0};
  return true;
}

bool KovPyValueTree::NextElement(KovValueNode n, KovValueIter& it, KovValueNode& value) const {
  if (it.pos >= Size(n)) return false;
  value = At(n, it.pos++);
  return true;
}

KovValueNode KovPyValueTree::Find(KovValueNode n, std::string_view key) const {
  PyObject* name = PyUnicode_FromStringAndSize(key.data(), static_cast<Py_ssize_t>(key.size()));
  if (name == nullptr) throw std::bad_alloc();
  PyObject* v = PyDict_GetItemWithError(obj(n), name);
  Py_DECREF(name);
  if (v == nullptr && PyErr_Occurred()) {
    PyErr_Clear();
    throw std::bad_alloc();
  }
  return {v, 0};
}

KovValueNode KovPyValueTree::At(KovValueNode n, size_t i) const {
  PyObject* o = obj(n);
  auto k = static_cast<Py_ssize_t>(i);
  return {PyList_Check(o) ? PyList_GET_ITEM(o, k) : PyTuple_GET_ITEM(o, k), 0};
}

Json KovPyValueTree::ToJson(KovValueNode n) const { return toJson<true>(obj(n), Place()); }
