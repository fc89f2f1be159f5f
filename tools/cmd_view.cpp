// kovtool view: one self-contained HTML file that shows an image annotated by its field walk.
#include "tools/cmd_view.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "tools/cmd_shared.h"
#include "tools/cmd_stream.h"
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

// Inside a script element the text "</" could end it: JSON may write it as "<\/".
std::string safe(const std::string& data) {
  std::string out;
  out.reserve(data.size());
  for (size_t i = 0; i < data.size(); ++i) {
    out += data[i];
    if (data[i] == '<' && i + 1 < data.size() && data[i + 1] == '/') out += '\\';
  }
  return out;
}

}  // namespace

void kovToolWriteView(const CKovJsonLayout& layout, const KovToolSource& src,
                      const std::string& file, const std::string& layoutFile, KovToolStream& out) {
  const std::string html = kKovViewHtml;
  const std::string mark = "/*KOV_DATA*/";
  size_t at = html.find(mark);
  out << html.substr(0, at);
  auto put = [&](const Json& j) {
    out << safe(j.dump(-1, ' ', false, Json::error_handler_t::replace));
  };
  out << "{\"file\":";
  put(file);
  out << ",\"layout\":";
  put(layoutFile);
  out << ",\"image\":\"" << base64(src.bytes) << "\",\"blocks\":";
  Json blocks = Json::array();
  for (const KovJsonBlock& b : layout.GetBlocks()) blocks.push_back(b.name);
  put(blocks);
  const KovJsonBlock* first = layout.GetBlocks().data();
  std::unordered_map<std::string, size_t> stepIndex;
  Json steps = Json::array();
  bool started = false;
  KovJsonFieldWalk walk;
  auto start = [&](const KovJsonFieldWalk& w) {
    started = true;
    Json hdrs = Json::array();
    for (const KovJsonHdr& h : w.hdrs) {
      hdrs.push_back(Json::array({h.at.offset, h.at.size, h.at.kovType, h.at.kovID, h.at.storedCrc,
                                  h.at.dataCrc, h.label}));
    }
    out << ",\"hdrs\":";
    put(hdrs);
    out << ",\"nodes\":[";
  };
  kovToolEachInstance(layout, src, false, walk, [&](const KovJsonFieldWalk& w, size_t base) {
    if (!started) start(w);
    for (size_t k = 0; k < w.nodes.size(); ++k) {
      const KovJsonNode& n = w.nodes[k];
      // The step that the node adds to its parent's path, once in the table of steps.
      std::string step = n.parent >= 0 ? n.path.substr(w.nodes[n.parent].path.size()) : n.path;
      auto it = stepIndex.emplace(std::move(step), steps.size());
      if (it.second) steps.push_back(it.first->first);
      Json node = Json::array({static_cast<int>(n.kind), n.parent >= 0 ? k - n.parent : 0,
                               it.first->second, n.placed ? static_cast<int64_t>(n.bitIndex) : -1,
                               n.bits, n.blk - first, n.text, n.hdr});
      out << (base + k == 0 ? "" : ",");
      put(node);
    }
  });
  if (!started) start(walk);
  out << "],\"steps\":";
  put(steps);
  Json faults = Json::array();
  if (src.salvage != nullptr) {
    for (const KovJsonFault& f : src.salvage->faults) {
      faults.push_back(Json::array({f.offset, kovJsonFaultName(f.kind), f.text}));
    }
  }
  out << ",\"faults\":";
  put(faults);
  out << ",\"damage\":";
  put(src.damage);
  out << "}" << html.substr(at + mark.size());
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
            auto src = kovToolReadSource(*layout, args->image, true, true, args->prefixes, false);
            std::string name = args->image == "-" ? "standard input" : args->image;
            name = name.substr(name.find_last_of('/') + 1);
            std::string lname = args->layout.substr(args->layout.find_last_of('/') + 1);
            KovToolStream out(args->out);
            kovToolWriteView(*layout, *src, name, lname, out);
            out.Close();
            return src->damage.empty() ? 0 : kKovToolRefused;
          }};
}
