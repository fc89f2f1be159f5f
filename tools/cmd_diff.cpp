// kovtool diff: the field-level differences between two images, two values files, or an image
// and a values file. Exit 0 when they hold the same, 1 when they differ, 2 on trouble (a file
// that can't be read, a layout or values file that is not right, an image the library refuses),
// like diff.
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "kovjson/fielddiff.h"
#include "tools/cmd_shared.h"
#include "tools/toolio.h"

namespace {

using Json = nlohmann::ordered_json;

const char* changeName(KovJsonChange c) {
  switch (c) {
    case KovJsonChange::Changed:
      return "changed";
    case KovJsonChange::Added:
      return "added";
    default:
      return "removed";
  }
}

struct Args {
  std::string layout, a, b;
  bool json = false, prefixes = false;
};

int run(const Args& args) {
  auto layout = kovToolLoadLayout(args.layout);
  auto a = kovToolReadSource(*layout, args.a, true, false, args.prefixes);
  auto b = kovToolReadSource(*layout, args.b, true, false, args.prefixes);
  std::vector<KovJsonDiffItem> items = kovJsonDiff(*layout, a->walk, b->walk);
  // Bytes that differ where no value lies: padding, unclaimed bits, text behind a NUL.
  size_t bytesDiffer = 0, firstAt = 0;
  if (items.empty()) {
    size_t n = std::max(a->bytes.size(), b->bytes.size());
    for (size_t i = 0; i < n; ++i) {
      bool same = i < a->bytes.size() && i < b->bytes.size() && a->bytes[i] == b->bytes[i];
      if (!same && bytesDiffer++ == 0) firstAt = i;
    }
  }
  bool same = items.empty() && bytesDiffer == 0;
  if (args.json) {
    Json out = Json::object();
    out["same"] = same;
    Json diffs = Json::array();
    for (const KovJsonDiffItem& d : items) {
      Json j = Json::object();
      j["path"] = d.path;
      j["change"] = changeName(d.change);
      if (d.change != KovJsonChange::Added) j["before"] = d.before;
      if (d.change != KovJsonChange::Removed) j["after"] = d.after;
      diffs.push_back(std::move(j));
    }
    out["differences"] = std::move(diffs);
    if (bytesDiffer != 0) out["bytesOutsideValues"] = {{"count", bytesDiffer}, {"first", firstAt}};
    kovToolPrint(out.dump(2) + "\n");
    return same ? 0 : 1;
  }
  std::string text;
  for (const KovJsonDiffItem& d : items) {
    bool instance = d.kind == KovJsonNodeKind::Instance;
    switch (d.change) {
      case KovJsonChange::Changed:
        text += d.path + ": " +
                (d.kind == KovJsonNodeKind::Union ? d.before.dump() + " -> " + d.after.dump()
                                                  : d.beforeText + " -> " + d.afterText) +
                "\n";
        break;
      case KovJsonChange::Added:
        text +=
            d.path + (instance ? ": only in " + args.b + " " : ": added ") + d.after.dump() + "\n";
        break;
      case KovJsonChange::Removed:
        text += d.path + (instance ? ": only in " + args.a + " " : ": removed ") + d.before.dump() +
                "\n";
        break;
    }
  }
  if (bytesDiffer != 0) {
    text += kovFormat(
        "no value differs, but %zu byte%s outside the values do%s, the first at "
        "offset 0x%06zX\n",
        bytesDiffer, bytesDiffer == 1 ? "" : "s", bytesDiffer == 1 ? "es" : "", firstAt);
  }
  kovToolPrint(text);
  return same ? 0 : 1;
}

}  // namespace

KovToolCommand kovToolAddDiff(CLI::App& app) {
  auto args = std::make_shared<Args>();
  CLI::App* sub =
      app.add_subcommand("diff",
                         "Show the field-level differences between two images or values files "
                         "(exit 0 same, 1 different, 2 trouble)");
  sub->add_option("LAYOUT", args->layout, "The layout file (JSON)")->required();
  sub->add_option("A", args->a, "An image or values file")->required();
  sub->add_option("B", args->b, "Another image or values file")->required();
  sub->add_flag("--json", args->json, "Write JSON for programs");
  sub->add_flag("--partition-prefix", args->prefixes,
                "The images have the partition number in front of every block instance");
  return {sub, [args]() {
            // Every failure of diff exits 2, a refused image included.
            try {
              return run(*args);
            } catch (CMevGenException* e) {
              std::string text = e->GetMessage();
              delete e;
              throw KovToolError{kKovToolBadInput, text};
            } catch (const KovToolError& e) {
              throw KovToolError{kKovToolBadInput, e.text};
            }
          }};
}
