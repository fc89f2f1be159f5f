#include "tools/layoutcmds.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>

#include "kov/kov.h"
#include "kovjson/jsonlayout.h"

namespace {

struct LayoutArgs {
  std::string layoutPath;
};

int cmdVerify(const std::string& layoutPath) {
  auto layout = kovToolLoadLayout(layoutPath, false);
  size_t fields = 0;
  std::function<void(const std::vector<KovJsonField>&)> count =
      [&](const std::vector<KovJsonField>& fs) {
        for (const KovJsonField& f : fs) {
          ++fields;
          count(f.entry);
          for (const KovJsonOption& o : f.options) count(o.fields);
        }
      };
  for (const KovJsonBlock& blk : layout->GetBlocks()) count(blk.fields);
  kovToolPrint(layoutPath +
               ": verified: " + kovToolPlural(layout->GetNumPartitions(), "partition") + ", " +
               kovToolPlural(layout->GetBlocks().size(), "block") + ", " +
               kovToolPlural(fields, "field") + "\n");
  return 0;
}

int cmdTree(const std::string& layoutPath) {
  auto layout = kovToolLoadLayout(layoutPath, false);
  kovToolPrint(CKovCpLayoutView::GetLayoutTreeText(layout->GetCpLayout()));
  return 0;
}

}  // namespace

std::vector<KovToolCommand> kovToolAddLayoutCommands(CLI::App& app) {
  auto args = std::make_shared<LayoutArgs>();
  std::vector<KovToolCommand> commands;
  CLI::App* verify = app.add_subcommand("verify", "Load and verify a layout file");
  verify->add_option("LAYOUT", args->layoutPath, "The layout file (JSON)")->required();
  commands.push_back({verify, [args] { return cmdVerify(args->layoutPath); }});
  CLI::App* tree = app.add_subcommand("tree", "Print the blocks and fields of a layout as a tree");
  tree->add_option("LAYOUT", args->layoutPath, "The layout file (JSON)")->required();
  commands.push_back({tree, [args] { return cmdTree(args->layoutPath); }});
  return commands;
}
