// kovtool dump: every value of an image in image order with its path, place, width, raw bits
// and value, between the header and the checksum of its block instance.
#include "tools/cmd_dump.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <queue>

#include "tools/cmd_salvage.h"
#include "tools/cmd_shared.h"
#include "tools/cmd_stream.h"
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

// The values of a walk handed over one instance at a time (kovToolEachInstance in image order),
// written in image order between marks (headers, checksums) that stand at given bits: a mark
// follows every value before its bit and precedes the others. A value waits in a heap until
// no instance still to come can hold one before it; each instance's values lie behind its
// header, so the heap holds about one instance. Ties keep the order of the walk.
class ImageOrder {
 public:
  // With json, the values are the elements of a JSON array that the first one opens.
  ImageOrder(KovToolStream& out, bool json) : out(out), json(json) {}

  void Mark(uint64_t bitIndex, std::string text) {
    marks.push_back({bitIndex, 0, std::move(text)});
  }
  void Value(uint64_t bitIndex, std::string text) { heap.push({bitIndex, seq++, std::move(text)}); }
  // No value still to come lies before bit from: writes everything before it.
  void Known(uint64_t from) {
    for (; next < marks.size() && marks[next].bitIndex <= from; ++next) {
      Flush(marks[next].bitIndex);
      out << marks[next].text;
    }
    Flush(from);
  }
  void Finish() {
    for (; next < marks.size(); ++next) {
      Flush(marks[next].bitIndex);
      out << marks[next].text;
    }
    Flush(UINT64_MAX);
  }
  uint64_t Written() const { return seqOut; }

  // The first bit that the instance of walk and those after it can hold a value at: its
  // header's when its node stands at one, else 0 (the walk hands those over first). A walk of
  // several instances (a salvaged image's, handed over whole) may hold values anywhere: 0.
  static uint64_t StartOf(const KovJsonFieldWalk& walk) {
    for (size_t k = 1; k < walk.nodes.size(); ++k) {
      if (walk.nodes[k].parent < 0) return 0;
    }
    const KovJsonNode& root = walk.nodes.front();
    bool atHdr = root.kind == KovJsonNodeKind::Instance && root.placed && root.hdr >= 0 &&
                 root.bitIndex == uint64_t{walk.hdrs[root.hdr].at.offset} * 8;
    return atHdr ? root.bitIndex : 0;
  }

 private:
  struct Item {
    uint64_t bitIndex, seq;
    std::string text;
  };
  struct Later {
    bool operator()(const Item& a, const Item& b) const {
      return a.bitIndex != b.bitIndex ? a.bitIndex > b.bitIndex : a.seq > b.seq;
    }
  };
  void Flush(uint64_t before) {
    while (!heap.empty() && heap.top().bitIndex < before) {
      if (json) out << (seqOut == 0 ? "[\n" : ",\n");
      ++seqOut;
      out << heap.top().text;
      heap.pop();
    }
  }

  KovToolStream& out;
  std::vector<Item> marks;
  size_t next = 0;
  std::priority_queue<Item, std::vector<Item>, Later> heap;
  uint64_t seq = 0, seqOut = 0;
  bool json;
};

// The header and checksum lines of each instance, as marks.
void markHdrs(const KovJsonFieldWalk& walk, ImageOrder& order) {
  for (const KovJsonHdr& h : walk.hdrs) {
    std::string text;
    if (walk.prefixes) {
      text = line(h.at.offset - 2, "", 16, kovFormat("%04X", h.at.partition),
                  kovFormat("partition prefix: %u", h.at.partition));
    }
    text += line(h.at.offset, "", 48, hdrRaw(h),
                 kovFormat("header %s: KOV name 0x%04X%04X, size %u", h.label.c_str(), h.at.kovType,
                           h.at.kovID, h.at.size));
    order.Mark(uint64_t{h.at.offset} * 8, std::move(text));
    uint32_t crcAt = h.at.offset + 6 + h.at.size - 2;
    bool good = h.at.storedCrc == h.at.dataCrc;
    order.Mark(uint64_t{crcAt} * 8, line(crcAt, "", 16, kovFormat("%04X", h.at.storedCrc),
                                         good ? "checksum " + h.label + ": good"
                                              : kovFormat("checksum %s: BAD, the data gives 0x%04X",
                                                          h.label.c_str(), h.at.dataCrc)));
  }
}

Json hdrJson(const KovJsonFieldWalk& walk, const KovJsonHdr& h) {
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
  return j;
}

}  // namespace

void kovToolDumpText(const CKovJsonLayout& layout, const KovToolSource& src, KovToolStream& out) {
  out << "offset    msb  bits  raw               what\n";
  ImageOrder order(out, false);
  KovJsonFieldWalk walk;
  bool marked = false;
  kovToolEachInstance(layout, src, true, walk, [&](const KovJsonFieldWalk& w, size_t) {
    if (!marked) markHdrs(w, order);
    marked = true;
    order.Known(ImageOrder::StartOf(w));
    for (const KovJsonNode& n : w.nodes) {
      if (n.kind != KovJsonNodeKind::Value) continue;
      order.Value(n.bitIndex, line(n.bitIndex / 8, std::to_string(7 - n.bitIndex % 8), n.bits,
                                   n.raw, n.path + " = " + n.text));
    }
  });
  if (!marked) markHdrs(walk, order);
  order.Finish();
  if (!walk.hdrDamage.empty()) {
    out << kovFormat("0x%06X  the header walk ends: %s\n", walk.hdrDamageOffset,
                     walk.hdrDamage.c_str());
  }
}

void kovToolDumpJson(const CKovJsonLayout& layout, const KovToolSource& src, KovToolStream& out) {
  // The document of dump(1): imageSize, headers, damage when there is some, values.
  out << kovFormat("{\n \"imageSize\": %zu,\n \"headers\": ", src.bytes.size());
  ImageOrder order(out, true);
  KovJsonFieldWalk walk;
  bool started = false;
  auto start = [&](const KovJsonFieldWalk& w) {
    started = true;
    std::string hdrs;
    for (const KovJsonHdr& h : w.hdrs) {
      hdrs += (hdrs.empty() ? "[\n" : ",\n") + kovToolJsonItem(hdrJson(w, h), 2);
    }
    out << (hdrs.empty() ? "[]" : hdrs + "\n ]") << ",\n";
    if (!w.hdrDamage.empty()) {
      Json damage = {{"offset", w.hdrDamageOffset}, {"text", w.hdrDamage}};
      out << " \"damage\": " << kovToolJsonItem(damage, 1).substr(1) << ",\n";
    }
    out << " \"values\": ";
  };
  kovToolEachInstance(layout, src, true, walk, [&](const KovJsonFieldWalk& w, size_t) {
    if (!started) start(w);
    order.Known(ImageOrder::StartOf(w));
    for (const KovJsonNode& n : w.nodes) {
      if (n.kind != KovJsonNodeKind::Value) continue;
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
      order.Value(n.bitIndex, kovToolJsonItem(j, 2));
    }
  });
  if (!started) start(walk);
  order.Finish();
  out << (order.Written() == 0 ? "[]" : "\n ]") << "\n}\n";
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
            auto src = kovToolReadSource(*layout, args->image, false, true, args->prefixes, false);
            KovToolStream out("-");
            if (args->json) {
              kovToolDumpJson(*layout, *src, out);
            } else {
              kovToolDumpText(*layout, *src, out);
            }
            // The faults of a salvaged image follow the table.
            if (!args->json && src->salvage != nullptr) {
              out << kovToolSalvageReport(*src->salvage, args->image);
            }
            out.Close();
            return src->damage.empty() ? 0 : kKovToolRefused;
          }};
}
