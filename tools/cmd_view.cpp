// kovtool view: one self-contained HTML file that shows an image annotated by its field walk.
#include "tools/cmd_view.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "tools/cmd_shared.h"
#include "tools/toolio.h"

extern const char kKovViewHtml[];

namespace {

using Json = nlohmann::ordered_json;

std::string base64(const std::vector<uint8_t>& bytes) {
  static const char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 2 < bytes.size(); i += 3) {
    uint32_t v = uint32_t{bytes[i]} << 16 | uint32_t{bytes[i + 1]} << 8 | bytes[i + 2];
    out += kDigits[v >> 18];
    out += kDigits[v >> 12 & 63];
    out += kDigits[v >> 6 & 63];
    out += kDigits[v & 63];
  }
  if (i < bytes.size()) {
    uint32_t v =
        uint32_t{bytes[i]} << 16 | (i + 1 < bytes.size() ? uint32_t{bytes[i + 1]} << 8 : 0);
    out += kDigits[v >> 18];
    out += kDigits[v >> 12 & 63];
    out += i + 1 < bytes.size() ? kDigits[v >> 6 & 63] : '=';
    out += '=';
  }
  return out;
}

}  // namespace

std::string kovToolViewData(const CKovJsonLayout& layout, const KovToolSource& src,
                            const std::string& file, const std::string& layoutFile) {
  const KovJsonFieldWalk& walk = src.walk;
  Json d = Json::object();
  d["file"] = file;
  d["layout"] = layoutFile;
  d["image"] = base64(src.bytes);
  Json blocks = Json::array();
  for (const KovJsonBlock& b : layout.GetBlocks()) blocks.push_back(b.name);
  d["blocks"] = std::move(blocks);
  Json hdrs = Json::array();
  for (const KovJsonHdr& h : walk.hdrs) {
    hdrs.push_back(Json::array(
        {h.at.offset, h.at.size, h.at.kovType, h.at.kovID, h.at.storedCrc, h.at.dataCrc, h.label}));
  }
  d["hdrs"] = std::move(hdrs);
  Json nodes = Json::array();
  const KovJsonBlock* first = layout.GetBlocks().data();
  for (const KovJsonNode& n : walk.nodes) {
    // The step that the node adds to its parent's path.
    std::string step = n.path;
    if (n.parent >= 0) step = n.path.substr(walk.nodes[n.parent].path.size());
    nodes.push_back(Json::array({static_cast<int>(n.kind), n.parent, step,
                                 n.placed ? static_cast<int64_t>(n.bitIndex) : -1, n.bits,
                                 n.blk - first, n.text, n.raw, n.hdr}));
  }
  d["nodes"] = std::move(nodes);
  Json faults = Json::array();
  if (src.salvage != nullptr) {
    for (const KovJsonFault& f : src.salvage->faults) {
      faults.push_back(Json::array({f.offset, kovJsonFaultName(f.kind), f.text}));
    }
  }
  d["faults"] = std::move(faults);
  d["damage"] = src.damage;
  return d.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string kovToolViewHtml(const std::string& data) {
  std::string html = kKovViewHtml;
  // Inside a script element the text "</" could end it: JSON may write it as "<\/".
  std::string safe;
  safe.reserve(data.size());
  for (size_t i = 0; i < data.size(); ++i) {
    safe += data[i];
    if (data[i] == '<' && i + 1 < data.size() && data[i + 1] == '/') safe += '\\';
  }
  const std::string mark = "/*KOV_DATA*/";
  size_t at = html.find(mark);
  html.replace(at, mark.size(), safe);
  return html;
}

KovToolCommand kovToolAddView(CLI::App& app) {
  struct Args {
    std::string layout, image, out;
    bool prefixes = false;
  };
  auto args = std::make_shared<Args>();
  CLI::App* sub = app.add_subcommand(
      "view",
      "Write one self-contained HTML file that shows the image's bytes and fields side by side "
      "(exit 1 for a damaged image, of which what can be read is shown)");
  sub->add_option("LAYOUT", args->layout, "The layout file (JSON)")->required();
  sub->add_option("IMAGE", args->image, "The image file, or a values file")->required();
  sub->add_option("-o,--output", args->out, "The HTML file to write ('-': standard output)")
      ->required();
  sub->add_flag("--partition-prefix", args->prefixes,
                "The image has the partition number in front of every block instance");
  return {sub, [args]() {
            auto layout = kovToolLoadLayout(args->layout);
            auto src = kovToolReadSource(*layout, args->image, true, true, args->prefixes);
            std::string name = args->image == "-" ? "standard input" : args->image;
            name = name.substr(name.find_last_of('/') + 1);
            std::string lname = args->layout.substr(args->layout.find_last_of('/') + 1);
            kovToolWriteOutput(args->out,
                               kovToolViewHtml(kovToolViewData(*layout, *src, name, lname)));
            return src->damage.empty() ? 0 : kKovToolRefused;
          }};
}
