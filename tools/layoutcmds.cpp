#include "tools/layoutcmds.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "kov/kov.h"
#include "kovjson/jsonlayout.h"
#include "kovjson/jsonlint.h"
#include "kovjson/jsontree.h"

namespace {

struct LayoutArgs {
  std::string layoutPath;
  bool detail = false;
};

std::string findingText(const CKovJsonLayout& layout, const KovJsonLintFinding& finding) {
  return layout.GetFile() + ": " + (finding.pointer.empty() ? "" : finding.pointer + ": ") +
         finding.text;
}

int cmdVerify(const std::string& layoutPath) {
  auto layout = kovToolLoadLayout(layoutPath, false);
  for (const KovJsonLintFinding& finding : kovJsonLint(*layout)) {
    std::fprintf(stderr, "kovtool: warning: %s\n", findingText(*layout, finding).c_str());
  }
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

int cmdLint(const std::string& layoutPath) {
  auto layout = kovToolLoadLayout(layoutPath, false);
  std::vector<KovJsonLintFinding> findings = kovJsonLint(*layout);
  std::string text;
  for (const KovJsonLintFinding& finding : findings) text += findingText(*layout, finding) + "\n";
  std::vector<std::string> unclaimed = kovJsonUnclaimedBits(*layout);
  if (!unclaimed.empty()) text += "Bits that no field claims:\n";
  for (const std::string& line : unclaimed) text += "  " + line + "\n";
  text += layout->GetFile() + ": " +
          (findings.empty() ? std::string("no mistakes found")
                            : kovToolPlural(findings.size(), "mistake")) +
          "\n";
  kovToolPrint(text);
  return findings.empty() ? 0 : kKovToolRefused;
}

int cmdTree(const std::string& layoutPath, bool detail) {
  auto layout = kovToolLoadLayout(layoutPath, false);
  kovToolPrint(detail ? kovJsonTreeDetail(*layout)
                      : CKovCpLayoutView::GetLayoutTreeText(layout->GetCpLayout()));
  return 0;
}

}  // namespace

std::vector<KovToolCommand> kovToolAddLayoutCommands(CLI::App& app) {
  auto args = std::make_shared<LayoutArgs>();
  std::vector<KovToolCommand> commands;
  CLI::App* verify = app.add_subcommand("verify", "Load and verify a layout file");
  verify->add_option("LAYOUT", args->layoutPath, "The layout file (JSON)")->required();
  commands.push_back({verify, [args] { return cmdVerify(args->layoutPath); }});
  CLI::App* lint = app.add_subcommand(
      "lint", "Find layout mistakes that verify lets pass; exit 1 when there are any");
  lint->add_option("LAYOUT", args->layoutPath, "The layout file (JSON)")->required();
  commands.push_back({lint, [args] { return cmdLint(args->layoutPath); }});
  CLI::App* tree = app.add_subcommand("tree", "Print the blocks and fields of a layout as a tree");
  tree->add_option("LAYOUT", args->layoutPath, "The layout file (JSON)")->required();
  tree->add_flag("--detail", args->detail,
                 "Every field in layout order: byte offset, MSB, width, size, name, id, type");
  commands.push_back({tree, [args] { return cmdTree(args->layoutPath, args->detail); }});
  return commands;
}
