// kovtool salvage: the values that can still be read from a damaged image, and its faults.
// Exit 0 when nothing was lost, 1 when something was, 2 when an input can't be read.
#include "tools/cmd_salvage.h"

#include <CLI/CLI.hpp>

#include "kovjson/salvage.h"
#include "tools/cmd_shared.h"
#include "tools/toolio.h"

std::string kovToolSalvageReport(const KovJsonSalvage& s, const std::string& image) {
  std::string text;
  for (const KovJsonFault& f : s.faults) {
    text += kovFormat("%s: 0x%06X: %s: %s\n", image.c_str(), f.offset, kovJsonFaultName(f.kind),
                      f.text.c_str());
  }
  text += kovFormat("%s: %zu block instance%s read, %zu found whole but lost, %zu fault%s\n",
                    image.c_str(), s.read.size(), s.read.size() == 1 ? "" : "s", s.lost.size(),
                    s.faults.size(), s.faults.size() == 1 ? "" : "s");
  return text;
}

KovToolCommand kovToolAddSalvage(CLI::App& app) {
  struct Args {
    std::string layout, image, out;
    bool prefixes = false;
  };
  auto args = std::make_shared<Args>();
  CLI::App* sub = app.add_subcommand(
      "salvage",
      "Read what can be read from a damaged image into a values file and list each fault "
      "(exit 0 nothing lost, 1 something lost)");
  sub->add_option("LAYOUT", args->layout, "The layout file (JSON)")->required();
  sub->add_option("IMAGE", args->image, "The image file ('-': standard input)")->required();
  sub->add_option("-o,--output", args->out, "The values file to write ('-': standard output)")
      ->required();
  sub->add_flag("--partition-prefix", args->prefixes,
                "The image has the partition number in front of every block instance");
  return {sub, [args]() {
            auto layout = kovToolLoadLayout(args->layout);
            std::vector<uint8_t> bytes = kovToolReadBytes(args->image);
            auto s = kovJsonSalvage(*layout, bytes, args->prefixes);
            kovToolWriteOutput(args->out, kovJsonSalvagedValues(*s).dump(2) + "\n");
            std::string report = kovToolSalvageReport(*s, args->image);
            if (args->out == "-") {
              std::fputs(report.c_str(), stderr);
            } else {
              kovToolPrint(report);
            }
            return s->LostSomething() ? kKovToolRefused : 0;
          }};
}
