// The Python module `kov`: the declarative layer (kovjson/) with Python types at the edge.
//
// A Layout is a JSON layout file loaded into the library; it packs dicts (the values files'
// shape: block name -> instance dict or list of them) into image bytes and unpacks bytes,
// bytearrays and memoryviews back into such dicts. Failures raise subclasses of kov.Error that
// carry the library's text and where it happened: LayoutError and ValuesError the file name and
// the JSON pointer, ImageError the byte offset when one is known. unpack and dump read an image
// as kovtool does (kovJsonUnpackFileValues): faults in the layout's words, strict unless lenient.
// Pack copies the dict into a value tree of the library's own, and unpacked values become Python
// objects from such a tree, through pyvalues.h. The library's exception pointers are caught and
// deleted here; nothing but a Python exception leaves a call.
//
// Threads: the GIL is released while the library loads, packs, unpacks and walks, so threads
// working on different images run in parallel over one shared Layout. A call reads its input
// from Python objects (the values dict, the buffer) while it still holds the GIL: pack copies the
// dict, unpack the buffer; so another thread changing them meanwhile can't reach the library.
// Unpacked values become Python objects once the GIL is held again. The library's message boxes are
// collected per thread and become warnings (load, unpack) or a ValuesError (pack: a value the
// library could not store).
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdio>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "kov/kov.h"
#include "kovjson/fieldwalk.h"
#include "kovjson/imagecheck.h"
#include "kovjson/imagewalk.h"
#include "kovjson/jsonlayout.h"
#include "kovjson/jsonread.h"
#include "kovjson/jsonvalues.h"
#include "python/pyvalues.h"

namespace py = pybind11;

namespace {

// Message boxes of the library go to the collector of the calling thread; a thread without one
// (a load or pack outside this module) gets the library's default, standard error.
thread_local std::vector<std::string>* tlMessages = nullptr;

// The handler must not throw: a text that can't be kept for want of memory is lost.
void collectMessage(const std::string& text) {
  if (tlMessages == nullptr) {
    std::fprintf(stderr, "%s\n", text.c_str());
    return;
  }
  try {
    tlMessages->push_back(text);
  } catch (const std::bad_alloc&) {
  }
}

class MessageCapture {
 public:
  MessageCapture() : previous(tlMessages) { tlMessages = &texts; }
  ~MessageCapture() { tlMessages = previous; }
  MessageCapture(const MessageCapture&) = delete;
  MessageCapture& operator=(const MessageCapture&) = delete;
  std::vector<std::string> texts;

 private:
  std::vector<std::string>* previous;
};

// The exception classes, made once when the module is imported and kept for its life.
PyObject* gError = nullptr;
PyObject* gLayoutError = nullptr;
PyObject* gValuesError = nullptr;
PyObject* gImageError = nullptr;

enum class FailKind { None, Layout, Values, Image, Memory, Other };

// A failure met without the GIL, raised once it is held again.
struct Failure {
  FailKind kind = FailKind::None;
  std::string text;
  std::string file;
  std::string pointer;
  bool hasPointer = false;
  long long offset = -1;

  explicit operator bool() const { return kind != FailKind::None; }
};

Failure textFailure(FailKind kind, std::string text, long long offset = -1) {
  return Failure{kind, std::move(text), "", "", false, offset};
}

// A library text as a str. A file name may hold any bytes, and texts may quote them: bytes that
// are not UTF-8 become escapes (file names: surrogates, which os.fsencode turns back into them).
py::str textOf(const std::string& text, const char* errors = "backslashreplace") {
  PyObject* o = PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), errors);
  if (o == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(o);
}

// Raises failure as its Python exception: str() is the whole message ("file: pointer: text" for
// the JSON files), the attributes text, file, pointer and offset the parts (None when absent).
[[noreturn]] void raise(const Failure& failure) {
  if (failure.kind == FailKind::Memory) throw std::bad_alloc();
  PyObject* cls = failure.kind == FailKind::Layout   ? gLayoutError
                  : failure.kind == FailKind::Values ? gValuesError
                  : failure.kind == FailKind::Image  ? gImageError
                                                     : gError;
  std::string message = failure.text;
  if (failure.hasPointer) {
    message = failure.file + ": " + (failure.pointer.empty() ? "" : failure.pointer + ": ") +
              failure.text;
  }
  py::object exc = py::reinterpret_borrow<py::object>(cls)(textOf(message));
  exc.attr("text") = textOf(failure.text);
  exc.attr("file") =
      failure.hasPointer ? py::object(textOf(failure.file, "surrogateescape")) : py::none();
  exc.attr("pointer") = failure.hasPointer ? py::object(textOf(failure.pointer)) : py::none();
  exc.attr("offset") = failure.offset >= 0 ? py::object(py::int_(failure.offset)) : py::none();
  PyErr_SetObject(cls, exc.ptr());
  throw py::error_already_set();
}

// Runs work (without the GIL) and turns what it throws into a Failure of kind: the library's
// exception pointers (deleted here), a KovJsonError, exhausted memory, any other standard
// exception.
template <typename Work>
Failure guarded(FailKind kind, Work&& work) {
  try {
    work();
    return Failure();
  } catch (CMevGenException* e) {
    Failure f = textFailure(kind, e->GetMessage());
    delete e;
    return f;
  } catch (CException* e) {
    char text[512] = "";
    e->GetErrorMessage(text, sizeof text);
    delete e;
    return textFailure(kind, text);
  } catch (const KovJsonError& e) {
    return Failure{kind, e.GetText(), e.GetFile(), e.GetPointer(), true, -1};
  } catch (const std::bad_alloc&) {
    return textFailure(FailKind::Memory, "");
  } catch (const std::exception& e) {
    return textFailure(FailKind::Other, e.what());
  }
}

void warnAll(const std::vector<std::string>& texts) {
  for (const std::string& text : texts) {
    if (PyErr_WarnEx(PyExc_UserWarning, textOf(text).cast<std::string>().c_str(), 1) != 0) {
      throw py::error_already_set();
    }
  }
}

// A value tree for one call, taken from the thread's spare so that its room (pages the kernel
// has already mapped and zeroed) serves the next call; a tree beyond kSpareValues values goes
// back to the heap instead of being kept.
constexpr size_t kSpareValues = size_t{1} << 23;
thread_local std::unique_ptr<KovValueTape> tlSpareTape;

std::unique_ptr<KovValueTape> takeTape() {
  if (tlSpareTape == nullptr) return std::make_unique<KovValueTape>();
  std::unique_ptr<KovValueTape> tape = std::move(tlSpareTape);
  tape->Clear();
  return tape;
}

void keepTape(std::unique_ptr<KovValueTape> tape) {
  if (tape != nullptr && tape->Capacity() <= kSpareValues) tlSpareTape = std::move(tape);
}

// A C-contiguous buffer (bytes, bytearray, memoryview, ...), held while this object lives.
class BufferView {
 public:
  explicit BufferView(const py::buffer& data) {
    if (PyObject_GetBuffer(data.ptr(), &view, PyBUF_C_CONTIGUOUS) != 0) {
      throw py::error_already_set();
    }
  }
  ~BufferView() { PyBuffer_Release(&view); }
  BufferView(const BufferView&) = delete;
  BufferView& operator=(const BufferView&) = delete;
  const uint8_t* begin() const { return static_cast<const uint8_t*>(view.buf); }
  const uint8_t* end() const { return begin() + view.len; }

 private:
  Py_buffer view;
};

// The bytes of a buffer, read in place while the GIL is held. The library keeps a copy of its
// own, so the caller's buffer may change once the call has begun without reaching it.
std::vector<uint8_t> bytesOf(const py::buffer& data) {
  BufferView view(data);
  return std::vector<uint8_t>(view.begin(), view.end());
}

Failure imageFailure(const KovJsonImageError& e) {
  return textFailure(
      FailKind::Image, e.GetText(),
      e.GetOffset() == kKovJsonNoOffset ? -1 : static_cast<long long>(e.GetOffset()));
}

class Layout {
 public:
  static std::unique_ptr<Layout> Load(const std::string& text, const std::string& file,
                                      bool fromFile) {
    auto out = std::make_unique<Layout>();
    std::vector<std::string> warnings;
    Failure fail;
    {
      py::gil_scoped_release nogil;
      MessageCapture capture;
      fail = guarded(FailKind::Layout, [&] {
        out->layout = fromFile ? CKovJsonLayout::LoadFile(text, false)
                               : CKovJsonLayout::Load(text, file, false);
      });
      warnings = std::move(capture.texts);
    }
    if (fail) raise(fail);
    warnAll(warnings);
    return out;
  }

  std::vector<std::string> Verify() const {
    Failure fail;
    std::vector<std::string> warnings;
    {
      py::gil_scoped_release nogil;
      MessageCapture capture;
      fail = guarded(FailKind::Layout, [&] { layout->GetCpLayout()->DoPostLayoutVerification(); });
      warnings = std::move(capture.texts);
    }
    if (fail) {
      fail.text = "the layout fails verification: " + fail.text;
      fail.file = layout->GetFile();
      fail.hasPointer = true;
      raise(fail);
    }
    return warnings;
  }

  // Under the GIL: the tree is quick to make, and the layout view keeps state of its own.
  std::string Tree() const { return CKovCpLayoutView::GetLayoutTreeText(layout->GetCpLayout()); }

  py::bytes Pack(py::handle values, bool prefixes) const {
    // The values are copied under the GIL into a tree of the library's own, which the pack then
    // reads without it: threads packing different images run in parallel.
    std::unique_ptr<KovValueTape> tree = takeTape();
    Failure fail = guarded(FailKind::Values, [&] {
      if (!PyDict_Check(values.ptr())) {
        throw KovJsonError("<values>", "", "the values must be a dict of blocks");
      }
      kovPyCopyValues(values.ptr(), *tree);
    });
    std::vector<uint8_t> bytes;
    if (!fail) {
      py::gil_scoped_release nogil;
      MessageCapture capture;
      fail = guarded(FailKind::Values, [&] {
        std::unique_ptr<KovJsonPackData> data = kovJsonPackTree(*layout, *tree, "<values>");
        keepTape(std::move(tree));
        bytes = kovJsonPackImage(*layout, *data, prefixes, "");
      });
      // The library shows a value it can't store in a message box and goes on.
      if (!fail && !capture.texts.empty()) {
        std::string text = "the library refused a value while packing:";
        for (const std::string& t : capture.texts) text += " " + t;
        fail = textFailure(FailKind::Values, text);
      }
      keepTape(std::move(tree));
    }
    if (fail) raise(fail);
    return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  }

  // The unpack of kovtool: faults in the layout's words at the offset of their block instance,
  // and, unless lenient, the refusal of an image that breaks its own layout.
  py::object Unpack(const py::buffer& data, bool prefixes, bool lenient) const {
    std::vector<uint8_t> bytes = bytesOf(data);
    // Unpacked and checked without the GIL into a tree whose values then become Python objects.
    std::unique_ptr<KovValueTape> values = takeTape();
    runOnImage([&] {
      kovJsonUnpackFileValues(*layout, bytes, prefixes, "<image>", "", !lenient, *values);
    });
    py::object out = kovPyFromTape(*values);
    keepTape(std::move(values));
    return out;
  }

  // Runs work on an image without the GIL, its message boxes captured: a refusal of the image
  // (KovJsonImageError) or any other failure is raised as the module's error, the messages are
  // given to Python as warnings.
  template <typename Work>
  void runOnImage(Work work) const {
    Failure fail, refused;
    std::vector<std::string> warnings;
    {
      py::gil_scoped_release nogil;
      MessageCapture capture;
      fail = guarded(FailKind::Image, [&] {
        try {
          work();
        } catch (const KovJsonImageError& e) {
          refused = imageFailure(e);
        }
      });
      if (!fail) fail = refused;
      warnings = std::move(capture.texts);
    }
    if (fail) raise(fail);
    warnAll(warnings);
  }

  // Every value of an image with its place, from the field walk of a lenient unpack.
  py::list Dump(const py::buffer& data, bool prefixes) const {
    std::vector<uint8_t> bytes = bytesOf(data);
    KovJsonFieldWalk walk;
    runOnImage([&] {
      // Refuses what the library refuses, in the layout's words.
      KovValueTape unused;
      kovJsonUnpackFileValues(*layout, bytes, prefixes, "<image>", "", false, unused);
      KovJsonWalk hdrWalk = kovJsonWalkImage(bytes, prefixes);
      CKovUp up(layout->GetCpLayout(), prefixes ? kovJsonWithoutPrefixes(bytes, hdrWalk) : bytes,
                "");
      up.FullUnpack();
      walk = prefixes ? kovJsonWalkFieldsWithPrefixes(*layout, up, hdrWalk)
                      : kovJsonWalkFields(*layout, up);
    });
    KovPyToPy toPy;
    py::list out;
    for (int i : kovJsonValuesInImageOrder(walk)) {
      const KovJsonNode& n = walk.nodes[i];
      py::dict r;
      r["path"] = textOf(n.path);
      r["block"] = textOf(n.blk->name);
      r["instance"] = n.instance;
      r["offset"] = n.bitIndex / 8;
      r["msb"] = 7 - n.bitIndex % 8;
      r["bits"] = n.bits;
      r["raw"] = n.raw;
      r["value"] = toPy.Convert(n.value);
      out.append(std::move(r));
    }
    return out;
  }

  const CKovJsonLayout& Get() const { return *layout; }

 private:
  std::unique_ptr<CKovJsonLayout> layout;
};

py::list inspect(const py::buffer& data, const Layout* layout, bool prefixes) {
  std::vector<uint8_t> bytes = bytesOf(data);
  KovJsonWalk walk;
  {
    py::gil_scoped_release nogil;
    walk = kovJsonWalkImage(bytes, prefixes);
  }
  py::list records;
  std::vector<int> seen;  // per layout block, in GetBlocks() order: instances met so far
  if (layout != nullptr) seen.assign(layout->Get().GetBlocks().size(), 0);
  for (const KovJsonInstance& inst : walk.instances) {
    py::dict r;
    r["offset"] = inst.offset;
    if (prefixes) r["partition"] = inst.partition;
    r["kov_type"] = inst.kovType;
    r["kov_id"] = inst.kovID;
    r["size"] = inst.size;
    r["data_size"] = inst.size - 2;
    r["stored_crc"] = inst.storedCrc;
    r["data_crc"] = inst.dataCrc;
    r["crc_ok"] = inst.storedCrc == inst.dataCrc;
    if (layout != nullptr) {
      const CKovJsonLayout& l = layout->Get();
      const KovJsonBlock* blk = l.FindBlockByKovType(inst.kovType);
      bool known = blk != nullptr &&
                   (blk->multi || blk->kind == KovJsonBlkKind::DistKls || blk->kovID == inst.kovID);
      r["block"] = known ? py::object(py::str(blk->name)) : py::none();
      if (!known) {
        r["instance"] = py::none();
      } else if (blk->kind == KovJsonBlkKind::DistKls) {
        r["instance"] = py::none();
        r["listlet"] = inst.kovID;
      } else {
        r["instance"] = ++seen[blk - l.GetBlocks().data()];
      }
    }
    records.append(std::move(r));
  }
  if (!walk.damage.empty()) {
    py::dict r;
    r["offset"] = walk.damageOffset;
    r["damage"] = walk.damage;
    records.append(std::move(r));
  }
  return records;
}

int crc16(const py::buffer& data) {
  BufferView view(data);
  uint16_t crc = 0;
  kovCalculateChecksum(view.begin(), static_cast<size_t>(view.end() - view.begin()), crc);
  return crc;
}

PyObject* newError(const char* name, PyObject* base, const char* doc) {
  PyObject* cls = PyErr_NewExceptionWithDoc(name, doc, base, nullptr);
  if (cls == nullptr) throw py::error_already_set();
  return cls;
}

}  // namespace

PYBIND11_MODULE(kov, m) {
  m.doc() =
      "Codeplug images: pack configuration values into flat, checksummed, bit-packed images and "
      "unpack images back into values, as described by a JSON layout file.";
  m.attr("__version__") = KOV_VERSION;
  kovSetMessageBoxHandler(collectMessage);

  gError = newError("kov.Error", PyExc_Exception,
                    "A failure of the library. Attributes: text (what is wrong), file and pointer "
                    "(the JSON file and the JSON pointer of the value, or None), offset (the byte "
                    "offset in the image, or None).");
  gLayoutError = newError("kov.LayoutError", gError,
                          "A layout that is not JSON, breaks a rule of the format or fails "
                          "the library's verification.");
  gValuesError = newError("kov.ValuesError", gError,
                          "Values that the layout does not describe or the library can't pack.");
  gImageError = newError("kov.ImageError", gError,
                         "An image the library refuses to unpack: damaged, cut short, or not "
                         "of this layout.");
  m.add_object("Error", py::handle(gError));
  m.add_object("LayoutError", py::handle(gLayoutError));
  m.add_object("ValuesError", py::handle(gValuesError));
  m.add_object("ImageError", py::handle(gImageError));

  py::class_<Layout>(m, "Layout",
                     "A codeplug layout loaded from a JSON layout file. Safe to share between "
                     "threads: pack and unpack only read it.")
      .def_static(
          "load",
          [](py::object path) {
            // The path's bytes as the file system takes them (str, bytes or os.PathLike).
            std::string p = py::bytes(py::module_::import("os").attr("fsencode")(path));
            return Layout::Load(p, p, true);
          },
          py::arg("path"),
          "Loads the layout file at path (str or os.PathLike). Raises LayoutError (with file and "
          "pointer) when it can't be read, is not JSON, breaks a rule of the format or fails "
          "verification; the verification's warnings are issued as UserWarning.")
      .def_static(
          "from_json",
          [](py::object doc) {
            std::string text =
                py::isinstance<py::str>(doc)
                    ? doc.cast<std::string>()
                    : py::module_::import("json").attr("dumps")(doc).cast<std::string>();
            return Layout::Load(text, "<string>", false);
          },
          py::arg("text_or_dict"),
          "Loads a layout from its JSON text or from the dict that text would give; the file "
          "name in errors is '<string>'. Raises LayoutError as load() does.")
      .def("verify", &Layout::Verify,
           "Runs the library's verification of the layout again and returns its warnings as a "
           "list of str (empty when there are none). Raises LayoutError on a fault.")
      .def("tree", &Layout::Tree,
           "The layout's partitions, blocks and fields as an indented text tree.")
      .def("pack", &Layout::Pack, py::arg("values"), py::kw_only(), py::arg("prefixes") = false,
           "Packs values, a dict shaped like a values file (block name -> dict of fields, or a "
           "list of them for a multi-instance block), into image bytes. A scaled decimal may be "
           "a str or a decimal.Decimal (taken as its exact text). With prefixes, every "
           "block instance has its partition number (2 bytes) in front. Raises ValuesError with "
           "the JSON pointer of the first wrong value. Releases the GIL while packing.")
      .def("unpack", &Layout::Unpack, py::arg("data"), py::kw_only(), py::arg("prefixes") = false,
           py::arg("lenient") = false,
           "Unpacks an image (bytes, bytearray, memoryview or any C-contiguous buffer) into a "
           "dict shaped like a values file, in layout order; pack() of that dict gives the same "
           "bytes. Values are as a values file writes them: int, an enum's name (str), a list of "
           "flag names, a scaled decimal as its exact text (str, such as '145.500'; "
           "decimal.Decimal(text) reads it exactly), a one-character str, {'block', 'instance'} "
           "for a reference. Raises ImageError (text in the layout's words, offset of the block "
           "instance at fault when one is known) for an image the library refuses and, unless "
           "lenient, for one that breaks its own layout (a KOV name given twice, values that do "
           "not pack back to the same bytes). Releases the GIL while unpacking.")
      .def("dump", &Layout::Dump, py::arg("data"), py::kw_only(), py::arg("prefixes") = false,
           "Every value of an image in image order, as a list of dicts: path ('Channel bank[2]."
           "Channels[1].Kind'), block, instance (from 1), offset (of the value's first byte), msb "
           "(of its first bit there, 7 the top), bits, raw (the bits as hex digits) and value (as "
           "unpack() gives it). Raises ImageError as a lenient unpack() does. Releases the GIL "
           "while unpacking.")
      .def_property_readonly(
          "file", [](const Layout& l) { return textOf(l.Get().GetFile(), "surrogateescape"); },
          "The file the layout was loaded from ('<string>' for from_json).")
      .def_property_readonly(
          "blocks",
          [](const Layout& l) {
            std::vector<std::string> names;
            for (const KovJsonBlock& blk : l.Get().GetBlocks()) names.push_back(blk.name);
            return names;
          },
          "The block names in image order.");

  m.def("inspect", &inspect, py::arg("data"), py::arg("layout") = nullptr, py::kw_only(),
        py::arg("prefixes") = false,
        "Walks the block headers of an image without unpacking it and returns one dict per "
        "block instance: offset, kov_type, kov_id, size, data_size, stored_crc, data_crc, "
        "crc_ok (and partition with prefixes; block and instance, or listlet, with a layout; "
        "block None for a KOV name the layout lacks). When the walk ends early (a header cut "
        "short, a size below 2, an instance past the end), a last dict holds offset and damage "
        "(the text). Never raises for any bytes.");
  m.def("crc16", &crc16, py::arg("data"),
        "The CRC-16/XMODEM of data (polynomial 0x1021, initial value 0), the checksum of a "
        "block's data area: crc16(b'123456789') == 0x31C3.");
}
