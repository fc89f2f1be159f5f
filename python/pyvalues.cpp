#include "python/pyvalues.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kovjson/jsonlayout.h"

namespace py = pybind11;

namespace {

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

// Copies Python values into a tape, refusing what the pack can't take with the JSON pointer of
// the value.
class PyToTape {
 public:
  explicit PyToTape(KovValueTape& out) : out(out) {}

  void Copy(PyObject* o, const Place& at) {
    // The layout format nests lists and unions 8 deep; 64 leaves room and stops a cycle.
    if (at.depth > 64)
      failValue(at.Pointer(), "nested too deep (a dict or list that contains itself?)");
    // Most values are ints and strs; an exact int is never a bool.
    if (PyLong_CheckExact(o)) {
      int overflow = 0;
      long long n = PyLong_AsLongLongAndOverflow(o, &overflow);
      if (overflow == 0 && n >= 0) return out.AddUnsigned(static_cast<uint64_t>(n));
    }
    if (o == Py_None) return out.AddNull();
    if (PyBool_Check(o)) return out.AddBool(o == Py_True);
    if (PyLong_Check(o)) {
      int overflow = 0;
      long long n = PyLong_AsLongLongAndOverflow(o, &overflow);
      if (overflow == 0) {
        if (n == -1 && PyErr_Occurred()) throw py::error_already_set();
        // Non-negative numbers as the JSON parser gives them: unsigned, which the reader expects.
        if (n >= 0) return out.AddUnsigned(static_cast<uint64_t>(n));
        return out.AddInteger(static_cast<int64_t>(n));
      }
      unsigned long long u = overflow > 0 ? PyLong_AsUnsignedLongLong(o) : 0;
      if (overflow < 0 || (u == static_cast<unsigned long long>(-1) && PyErr_Occurred())) {
        PyErr_Clear();
        failValue(at.Pointer(),
                  "the number " + py::str(o).cast<std::string>() + " is out of range");
      }
      return out.AddUnsigned(static_cast<uint64_t>(u));
    }
    // A fraction goes on to the reader, which refuses it where a whole number belongs.
    if (PyFloat_Check(o)) return out.AddFloat(PyFloat_AS_DOUBLE(o));
    if (PyUnicode_Check(o)) {
      Py_ssize_t size = 0;
      const char* text = PyUnicode_AsUTF8AndSize(o, &size);
      if (text == nullptr) {
        PyErr_Clear();
        failValue(at.Pointer(), "the string can't be encoded as UTF-8");
      }
      return out.AddString(std::string_view(text, static_cast<size_t>(size)));
    }
    if (PyDict_Check(o)) {
      out.BeginObject();
      PyObject* key;
      PyObject* value;
      Py_ssize_t pos = 0;
      while (PyDict_Next(o, &pos, &key, &value)) {
        if (!PyUnicode_Check(key)) {
          failValue(at.Pointer(), "a key must be a string, not " + typeName(key));
        }
        out.AddKeyIndex(KeyIndex(key, at));
        Copy(value, Place{&at, key, 0, at.depth + 1});
      }
      return out.End();
    }
    if (PyList_Check(o) || PyTuple_Check(o)) {
      out.BeginArray();
      // The copy runs no Python code that could change the list; the size is read each step all
      // the same.
      bool isList = PyList_Check(o);
      for (Py_ssize_t i = 0; i < (isList ? PyList_GET_SIZE(o) : PyTuple_GET_SIZE(o)); ++i) {
        PyObject* item = isList ? PyList_GET_ITEM(o, i) : PyTuple_GET_ITEM(o, i);
        Copy(item, Place{&at, nullptr, static_cast<size_t>(i), at.depth + 1});
      }
      return out.End();
    }
    // A decimal.Decimal is its exact text, as a scaled field's value is written in a values file,
    // in fixed-point notation: str() would write Decimal("1E+2") with an exponent.
    // Both the test and the text may run Python code, which could free a key whose address a
    // later key then takes: the keys seen are forgotten.
    bool decimal = isDecimal(o);
    std::fill(std::begin(seen), std::end(seen), SeenKey());
    if (decimal) {
      py::str text = py::module_::import("builtins")
                         .attr("format")(py::reinterpret_borrow<py::object>(o), "f");
      std::fill(std::begin(seen), std::end(seen), SeenKey());
      return out.AddOther(text.cast<std::string>());
    }
    failValue(at.Pointer(),
              "a value must be a dict, list, str, int, float, decimal.Decimal, bool "
              "or None, not " +
                  typeName(o));
  }

 private:
  // The tape's index of the name of key, a str: the dicts of a values tree share a few key
  // objects, which are remembered by address while no Python code runs, so that each is read
  // as UTF-8 and looked up in the tape once.
  uint32_t KeyIndex(PyObject* key, const Place& at) {
    SeenKey& s = seen[(reinterpret_cast<uintptr_t>(key) >> 4) % std::size(seen)];
    if (s.key == key) return s.index;
    Py_ssize_t size = 0;
    const char* name = PyUnicode_AsUTF8AndSize(key, &size);
    if (name == nullptr) {
      PyErr_Clear();
      failValue(at.Pointer(), "a key can't be encoded as UTF-8");
    }
    s = {key, out.KeyIndex(std::string_view(name, static_cast<size_t>(size)))};
    return s.index;
  }

  struct SeenKey {
    PyObject* key = nullptr;
    uint32_t index = 0;
  };

  KovValueTape& out;
  SeenKey seen[64];
};

// A new reference; null (Python failed, out of memory) throws.
PyObject* checked(PyObject* o) {
  if (o == nullptr) throw py::error_already_set();
  return o;
}

// Python objects of a tape, each member name made a str once.
class TapeToPy {
 public:
  explicit TapeToPy(const KovValueTape& tape) : tape(tape), keys(tape.KeyCount()) {}

  // A new reference to the value of node n.
  PyObject* Convert(uint32_t n) {
    const KovValueTape::Item& item = tape.ItemOf(tape.NodeAt(n));
    switch (KovValueTape::TypeOfItem(item)) {
      case Type::Object: {
        py::object d = py::reinterpret_steal<py::object>(checked(PyDict_New()));
        const uint32_t* kids = tape.Children(item);
        for (uint32_t k = 0; k < item.size; ++k) {
          py::object value = py::reinterpret_steal<py::object>(Convert(kids[k]));
          uint32_t key = KovValueTape::KeyOfItem(tape.ItemOf(tape.NodeAt(kids[k])));
          if (PyDict_SetItem(d.ptr(), Key(key), value.ptr()) != 0) throw py::error_already_set();
        }
        return d.release().ptr();
      }
      case Type::Array: {
        py::object l = py::reinterpret_steal<py::object>(
            checked(PyList_New(static_cast<Py_ssize_t>(item.size))));
        const uint32_t* kids = tape.Children(item);
        for (uint32_t k = 0; k < item.size; ++k) {
          PyList_SET_ITEM(l.ptr(), static_cast<Py_ssize_t>(k), Convert(kids[k]));
        }
        return l.release().ptr();
      }
      case Type::String:
      case Type::Other: {
        std::string_view text = tape.Text(item);
        return checked(
            PyUnicode_FromStringAndSize(text.data(), static_cast<Py_ssize_t>(text.size())));
      }
      case Type::Unsigned:
        // PyLong_FromLong makes a number of up to 30 bits without counting its digits.
        return checked(item.data <= static_cast<uint64_t>(LONG_MAX)
                           ? PyLong_FromLong(static_cast<long>(item.data))
                           : PyLong_FromUnsignedLongLong(item.data));
      case Type::Integer:
        return checked(PyLong_FromLongLong(static_cast<long long>(item.data)));
      case Type::Float: {
        double d = 0;
        std::memcpy(&d, &item.data, sizeof d);
        return checked(PyFloat_FromDouble(d));
      }
      case Type::Bool:
        return py::bool_(item.data != 0).release().ptr();
      default:
        return py::none().release().ptr();
    }
  }

 private:
  using Type = KovValueTree::Type;

  // A borrowed reference to the str of member name key, interned: a key the caller writes in
  // its code is the same object, which a dict look-up recognizes without comparing text.
  PyObject* Key(uint32_t key) {
    if (!keys[key]) {
      const std::string& name = tape.KeyName(key);
      PyObject* s =
          checked(PyUnicode_DecodeUTF8(name.data(), static_cast<Py_ssize_t>(name.size()), nullptr));
      PyUnicode_InternInPlace(&s);
      keys[key] = py::reinterpret_steal<py::object>(s);
    }
    return keys[key].ptr();
  }

  const KovValueTape& tape;
  std::vector<py::object> keys;
};

}  // namespace

void kovPyCopyValues(PyObject* root, KovValueTape& out) { PyToTape(out).Copy(root, Place()); }

py::object kovPyFromTape(const KovValueTape& values) {
  if (values.Root().IsNull()) return py::none();
  return py::reinterpret_steal<py::object>(TapeToPy(values).Convert(0));
}
