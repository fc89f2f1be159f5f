// kovtool dump: every value of an image in image order with its path, place, width, raw bits
// and value, between the header and the checksum of its block instance.
#include "tools/cmd_dump.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "tools/cmd_salvage.h"
#include "tools/cmd_shared.h"
#include "tools/toolio.h"

namespace {

using Json = nlohmann::ordered_json;

std::string hdrRaw(const KovJsonHdr& h) {
  return kovFormat("%04X%04X%04X", h.at.kovType, h.at.kovID, h.at.size);
}

std::string line(uint64_t byte, const std::string& msb, uint64_t bits, const std::string& raw,
                 const std::string& what) {
  std::string r = raw.size() > 16 ? raw : raw + std::string(16 - raw.size(), ' ');
  return kovFormat("0x%06llX  %-3s %5llu  %s  %s\n", static_cast<unsigned long long>(byte),
                   msb.c_str(), static_cast<unsigned long long>(bits), r.c_str(), what.c_str());
}

}  // namespace

std::string kovToolDumpText(const KovJsonFieldWalk& walk) {
  std::string out = "offset    msb  bits  raw               what\n";
  std::vector<int> order = kovJsonValuesInImageOrder(walk);
  size_t next = 0;
  // Values before, inside and after each instance; bits of a value lie inside its instance.
  auto valuesBefore = [&](uint64_t bitIndex) {
    for (; next < order.size() && walk.nodes[order[next]].bitIndex < bitIndex; ++next) {
      const KovJsonNode& n = walk.nodes[order[next]];
      out += line(n.bitIndex / 8, std::to_string(7 - n.bitIndex % 8), n.bits, n.raw,
                  n.path + " = " + n.text);
    }
  };
  for (const KovJsonHdr& h : walk.hdrs) {
    uint64_t start = uint64_t{h.at.offset} * 8;
    valuesBefore(start);
    if (walk.prefixes) {
      out += line(h.at.offset - 2, "", 16, kovFormat("%04X", h.at.partition),
                  kovFormat("partition prefix: %u", h.at.partition));
    }
    out += line(h.at.offset, "", 48, hdrRaw(h),
                kovFormat("header %s: KOV name 0x%04X%04X, size %u", h.label.c_str(), h.at.kovType,
                          h.at.kovID, h.at.size));
    uint32_t crcAt = h.at.offset + 6 + h.at.size - 2;
    valuesBefore(uint64_t{crcAt} * 8);
    bool good = h.at.storedCrc == h.at.dataCrc;
    out += line(
        crcAt, "", 16, kovFormat("%04X", h.at.storedCrc),
        good ? "checksum " + h.label + ": good"
             : kovFormat("checksum %s: BAD, the data gives 0x%04X", h.label.c_str(), h.at.dataCrc));
  }
  valuesBefore(UINT64_MAX);
  if (!walk.hdrDamage.empty()) {
    out += kovFormat("0x%06X  the header walk ends: %s\n", walk.hdrDamageOffset,
                     walk.hdrDamage.c_str());
  }
  return out;
}

std::string kovToolDumpJson(const KovJsonFieldWalk& walk, size_t imageSize) {
  Json root = Json::object();
  root["imageSize"] = imageSize;
  Json hdrs = Json::array();
  for (const KovJsonHdr& h : walk.hdrs) {
    Json j = Json::object();
    j["offset"] = h.at.offset;
    j["kovType"] = h.at.kovType;
    j["kovId"] = h.at.kovID;
    j["size"] = h.at.size;
    if (walk.prefixes) j["partition"] = h.at.partition;
    j["block"] = h.blk != nullptr ? Json(h.blk->name) : Json(nullptr);
    if (h.listlet >= 0) {
      j["listlet"] = h.listlet;
    } else {
      j["instance"] = h.instance;
    }
    j["label"] = h.label;
    Json crc = Json::object();
    crc["offset"] = h.at.offset + 6 + h.at.size - 2;
    crc["stored"] = h.at.storedCrc;
    crc["computed"] = h.at.dataCrc;
    crc["good"] = h.at.storedCrc == h.at.dataCrc;
    j["checksum"] = std::move(crc);
    hdrs.push_back(std::move(j));
  }
  root["headers"] = std::move(hdrs);
  if (!walk.hdrDamage.empty()) {
    root["damage"] = {{"offset", walk.hdrDamageOffset}, {"text", walk.hdrDamage}};
  }
  Json values = Json::array();
  for (int i : kovJsonValuesInImageOrder(walk)) {
    const KovJsonNode& n = walk.nodes[i];
    Json j = Json::object();
    j["path"] = n.path;
    j["block"] = n.blk->name;
    j["instance"] = n.instance;
    j["offset"] = n.bitIndex / 8;
    j["msb"] = 7 - n.bitIndex % 8;
    j["bitIndex"] = n.bitIndex;
    j["bits"] = n.bits;
    j["raw"] = n.raw;
    j["value"] = n.value;
    values.push_back(std::move(j));
  }
  root["values"] = std::move(values);
  return root.dump(1) + "\n";
}

KovToolCommand kovToolAddDump(CLI::App& app) {
  struct Args {
    std::string layout, image;
    bool json = false, prefixes = false;
  };
  auto args = std::make_shared<Args>();
  CLI::App* sub = app.add_subcommand(
      "dump",
      "Print every value of an image with its place, width and raw bits, in image order "
      "(exit 1 for a damaged image, of which what can be read is shown)");
  sub->add_option("LAYOUT", args->layout, "The layout file (JSON)")->required();
  sub->add_option("IMAGE", args->image, "The image file ('-': standard input)")->required();
  sub->add_flag("--json", args->json, "Write JSON for programs instead of the table");
  sub->add_flag("--partition-prefix", args->prefixes,
                "The image has the partition number in front of every block instance");
  return {sub, [args]() {
            auto layout = kovToolLoadLayout(args->layout);
            auto src = kovToolReadSource(*layout, args->image, false, true, args->prefixes);
            std::string out = args->json ? kovToolDumpJson(src->walk, src->bytes.size())
                                         : kovToolDumpText(src->walk);
            // The faults of a salvaged image follow the table.
            if (!args->json && src->salvage != nullptr) {
              out += kovToolSalvageReport(*src->salvage, args->image);
            }
            kovToolPrint(out);
            return src->damage.empty() ? 0 : kKovToolRefused;
          }};
}
