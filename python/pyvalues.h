// Python values for the module kov (kovmodule.cpp): dicts read in place as a value tree by the
// pack, and conversions to and from the JSON of values files.
#ifndef KOV_PYTHON_PYVALUES_H
#define KOV_PYTHON_PYVALUES_H

#include <pybind11/pybind11.h>

#include <nlohmann/json.hpp>
#include <string>
#include <unordered_map>

#include "kovjson/valuetree.h"

// Python values to JSON. Dict keys must be strings; ints become JSON integers, floats numbers, a
// decimal.Decimal its exact text in fixed-point notation (a scaled field's value), bools
// booleans, None null; lists and tuples arrays. Anything else throws
// KovJsonError("<values>", its JSON pointer, text). Needs the GIL.
nlohmann::ordered_json kovPyToJson(PyObject* o);

// Python values read in place by the pack (kovJsonPackTree): dicts are objects, lists and tuples
// arrays, and every other value is read as kovPyToJson gives it. The constructor checks the whole
// tree as kovPyToJson would and throws its KovJsonError, so that the reading itself meets only
// values it can take. The tree and the values must stay unchanged while it is read, and every
// call needs the GIL.
class KovPyValueTree : public KovValueTree {
 public:
  explicit KovPyValueTree(PyObject* root);

  KovValueNode Root() const override { return {root, 0}; }
  Type TypeOf(KovValueNode n) const override;
  uint64_t Unsigned(KovValueNode n) const override;
  std::string_view String(KovValueNode n) const override;
  size_t Size(KovValueNode n) const override;
  bool NextMember(KovValueNode n, KovValueIter& it, std::string_view& key,
                  KovValueNode& value) const override;
  bool NextElement(KovValueNode n, KovValueIter& it, KovValueNode& value) const override;
  KovValueNode Find(KovValueNode n, std::string_view key) const override;
  KovValueNode At(KovValueNode n, size_t i) const override;
  nlohmann::ordered_json ToJson(KovValueNode n) const override;

 private:
  static PyObject* obj(KovValueNode n) {
    return const_cast<PyObject*>(static_cast<const PyObject*>(n.p));
  }

  PyObject* root;
};

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
