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

Json toJson(PyObject* o, const Place& at) {
  // The layout format nests lists and unions 8 deep; 64 leaves room and stops a cycle.
  if (at.depth > 64)
    failValue(at.Pointer(), "nested too deep (a dict or list that contains itself?)");
  if (o == Py_None) return Json();
  if (PyBool_Check(o)) return Json(o == Py_True);
  if (PyLong_Check(o)) {
    int overflow = 0;
    long long n = PyLong_AsLongLongAndOverflow(o, &overflow);
    if (overflow == 0) {
      if (n == -1 && PyErr_Occurred()) throw py::error_already_set();
      // Non-negative numbers as the parser gives them: unsigned, which the reader expects.
      if (n >= 0) return Json(static_cast<uint64_t>(n));
      return Json(static_cast<int64_t>(n));
    }
    unsigned long long u = overflow > 0 ? PyLong_AsUnsignedLongLong(o) : 0;
    if (overflow < 0 || (u == static_cast<unsigned long long>(-1) && PyErr_Occurred())) {
      PyErr_Clear();
      failValue(at.Pointer(), "the number " + py::str(o).cast<std::string>() + " is out of range");
    }
    return Json(static_cast<uint64_t>(u));
  }
  // A fraction goes on to the reader, which refuses it where a whole number belongs.
  if (PyFloat_Check(o)) return Json(PyFloat_AS_DOUBLE(o));
  if (PyUnicode_Check(o)) {
    Py_ssize_t size = 0;
    const char* text = PyUnicode_AsUTF8AndSize(o, &size);
    if (text == nullptr) {
      PyErr_Clear();
      failValue(at.Pointer(), "the string can't be encoded as UTF-8");
    }
    return Json(std::string(text, static_cast<size_t>(size)));
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
      members.emplace_back(std::string(name, static_cast<size_t>(size)), toJson(value, inner));
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
      items.push_back(toJson(item, inner));
    }
    return arr;
  }
  // A decimal.Decimal is its exact text, as a scaled field's value is written in a values file.
  if (isDecimal(o)) {
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

Json kovPyToJson(PyObject* o) { return toJson(o, Place()); }
