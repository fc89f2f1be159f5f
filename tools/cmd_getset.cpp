// kovtool get and set: read or change values of an image by path.
//
// get prints the value at a path as JSON: a value as in a values file, a list, entry, union or
// block instance as the values under it. set unpacks the image into values, changes each
// PATH=VALUE, packs the values again, so sizes, quantities, links and checksums follow, and
// prints each change as the image now reads. A VALUE is written as in a values file: a number,
// an enum name (Power=High), a decimal text (Rx frequency=146.520), a list of flags
// (Zone options='["Scan"]'), a string.
#include "tools/cmd_getset.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "kovjson/jsonvalues.h"
#include "kovjson/valuepath.h"
#include "tools/cmd_shared.h"
#include "tools/toolio.h"

namespace {

using Json = nlohmann::ordered_json;

int notes = 0;

void countNote(const std::string& text) {
  ++notes;
  std::fprintf(stderr, "note: %s\n", text.c_str());
}

// A VALUE is JSON when it parses as JSON, else a string. A number with a fraction is kept as its
// text, the exact decimal a scaled field takes ("146.520"); no field takes a binary fraction.
Json parseValue(const std::string& text) {
  Json v = Json::parse(text, nullptr, false);
  return v.is_discarded() || v.is_number_float() ? Json(text) : v;
}

std::string shown(const KovJsonFieldWalk& walk, const std::string& path) {
  int i = kovJsonFindPath(walk, path);
  if (i < 0) return "(none)";
  const KovJsonNode& n = walk.nodes[i];
  return n.kind == KovJsonNodeKind::Value ? n.text : kovJsonNodeValues(walk, i).dump();
}

}  // namespace

std::vector<uint8_t> kovToolSetValues(const CKovJsonLayout& layout, const KovToolSource& src,
                                      const std::vector<std::string>& assignments, bool prefixes) {
  Json values = kovJsonUnpackedValues(layout, *src.up);
  for (const std::string& a : assignments) {
    size_t eq = a.find('=');
    if (eq == std::string::npos) {
      throw KovToolError{kKovToolBadInput, "'" + a + "': give PATH=VALUE"};
    }
    kovJsonSetPath(layout, values, a.substr(0, eq), parseValue(a.substr(eq + 1)));
  }
  auto data = kovJsonPackData(layout, values, src.path);
  notes = 0;
  KovMessageBoxHandler previous = kovSetMessageBoxHandler(countNote);
  std::vector<uint8_t> bytes;
  try {
    bytes = kovJsonPackImage(layout, *data, prefixes, "");
  } catch (...) {
    kovSetMessageBoxHandler(previous);
    throw;
  }
  kovSetMessageBoxHandler(previous);
  if (notes != 0) {
    throw KovToolError{kKovToolRefused,
                       "the library reported a problem while packing (see the notes above)"};
  }
  return bytes;
}

std::vector<KovToolCommand> kovToolAddGetSet(CLI::App& app) {
  struct Args {
    std::string layout, image, path, out;
    std::vector<std::string> assignments;
    bool prefixes = false;
  };
  auto args = std::make_shared<Args>();
  CLI::App* get = app.add_subcommand("get", "Print the value at a path of an image, as JSON");
  get->add_option("LAYOUT", args->layout, "The layout file (JSON)")->required();
  get->add_option("IMAGE", args->image, "The image file, or a values file")->required();
  get->add_option("PATH", args->path, "The path, as 'Channel bank[2].Channels[1].Kind'")
      ->required();
  get->add_flag("--partition-prefix", args->prefixes,
                "The image has the partition number in front of every block instance");
  CLI::App* set = app.add_subcommand(
      "set",
      "Change values of an image by path and pack it again (exit 2 for a bad path or value)");
  set->add_option("LAYOUT", args->layout, "The layout file (JSON)")->required();
  set->add_option("IMAGE", args->image, "The image file")->required();
  set->add_option(
         "ASSIGNMENTS", args->assignments,
         "PATH=VALUE, VALUE as in a values file: JSON, a name, a decimal or a plain string")
      ->required();
  set->add_option("-o,--output", args->out, "The image file to write ('-': standard output)")
      ->required();
  set->add_flag("--partition-prefix", args->prefixes,
                "The image has the partition number in front of every block instance, and so "
                "will the one written");

  KovToolCommand runGet{
      get, [args]() {
        auto layout = kovToolLoadLayout(args->layout);
        auto src = kovToolReadSource(*layout, args->image, true, false, args->prefixes);
        int i = kovJsonFindPath(src->walk, args->path);
        if (i < 0) {
          throw KovToolError{kKovToolRefused, args->image + ": no value at '" + args->path + "'"};
        }
        Json v = kovJsonNodeValues(src->walk, i);
        kovToolPrint((v.is_structured() ? v.dump(2) : v.dump()) + "\n");
        return 0;
      }};
  KovToolCommand runSet{
      set, [args]() {
        auto layout = kovToolLoadLayout(args->layout);
        auto src = kovToolReadSource(*layout, args->image, false, false, args->prefixes);
        std::vector<uint8_t> bytes =
            kovToolSetValues(*layout, *src, args->assignments, args->prefixes);
        auto after = kovToolUnpackBytes(*layout, args->out, bytes, false, args->prefixes);
        kovToolWriteOutput(args->out, bytes);
        if (args->out == "-") return 0;
        std::string report;
        for (const std::string& a : args->assignments) {
          std::string path = a.substr(0, a.find('='));
          report += path + ": " + shown(src->walk, path) + " -> " + shown(after->walk, path) + "\n";
        }
        kovToolPrint(report);
        return 0;
      }};
  return {runGet, runSet};
}
