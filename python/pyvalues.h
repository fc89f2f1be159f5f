// Python values for the module kov (kovmodule.cpp): dicts copied into a value tree for the pack,
// unpacked values made Python objects, and single JSON values (of the field walk) as Python.
#ifndef KOV_PYTHON_PYVALUES_H
#define KOV_PYTHON_PYVALUES_H

#include <pybind11/pybind11.h>

#include <nlohmann/json.hpp>
#include <string>
#include <unordered_map>

#include "kovjson/valuetree.h"

// Python values copied into a tree of the library's own (kovjson/valuetree.h), which the pack
// then reads without the GIL: dicts become objects (keys must be str), lists and tuples arrays,
// ints numbers (unsigned when not negative; beyond 64 bits refused), floats numbers, str
// strings, bools and None themselves, a decimal.Decimal its exact text in fixed-point notation
// (a scaled field's value, Type::Other). Anything else, or a str that can't be UTF-8, throws
// KovJsonError("<values>", its JSON pointer, text) at the first such value in dict order. Needs
// the GIL.
void kovPyCopyValues(PyObject* root, KovValueTape& out);

// The values of a tree as Python objects: objects become dicts in their order, arrays lists,
// numbers ints (floats for fractions), strings and Other str, booleans bools, null None. Each
// member name is made an interned str once. Needs the GIL.
pybind11::object kovPyFromTape(const KovValueTape& values);

// JSON to Python: objects become dicts in their order, arrays lists, numbers ints, strings str.
// Member names repeat in every instance and entry, so each distinct name is made a str once per
// converter. Needs the GIL.
class KovPyToPy {
 public:
  pybind11::object Convert(const nlohmann::ordered_json& j) {
    using Json = nlohmann::ordered_json;
    switch (j.type()) {
      case Json::value_t::object: {
        pybind11::object d = checked(PyDict_New());
        for (auto it = j.begin(); it != j.end(); ++it) {
          pybind11::object value = Convert(it.value());
          if (PyDict_SetItem(d.ptr(), Key(it.key()), value.ptr()) != 0) {
            throw pybind11::error_already_set();
          }
        }
        return d;
      }
      case Json::value_t::array: {
        pybind11::object l = checked(PyList_New(static_cast<Py_ssize_t>(j.size())));
        Py_ssize_t i = 0;
        for (const nlohmann::ordered_json& e : j)
          PyList_SET_ITEM(l.ptr(), i++, Convert(e).release().ptr());
        return l;
      }
      case Json::value_t::string: {
        const std::string& s = j.get_ref<const std::string&>();
        return checked(PyUnicode_FromStringAndSize(s.data(), static_cast<Py_ssize_t>(s.size())));
      }
      case Json::value_t::number_unsigned:
        return checked(PyLong_FromUnsignedLongLong(j.get<uint64_t>()));
      case Json::value_t::number_integer:
        return checked(PyLong_FromLongLong(j.get<int64_t>()));
      case Json::value_t::number_float:
        return checked(PyFloat_FromDouble(j.get<double>()));
      case Json::value_t::boolean:
        return pybind11::bool_(j.get<bool>());
      default:
        return pybind11::none();
    }
  }

 private:
  // Takes a new reference; null (Python failed, out of memory) throws.
  static pybind11::object checked(PyObject* o) {
    if (o == nullptr) throw pybind11::error_already_set();
    return pybind11::reinterpret_steal<pybind11::object>(o);
  }

  // A borrowed reference to the str of name, kept in keys.
  PyObject* Key(const std::string& name) {
    auto it = keys.find(name);
    if (it == keys.end()) it = keys.emplace(name, pybind11::str(name)).first;
    return it->second.ptr();
  }

  std::unordered_map<std::string, pybind11::object> keys;
};

#endif  // KOV_PYTHON_PYVALUES_H
