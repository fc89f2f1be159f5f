// kovtool: packs codeplug images from JSON layout and values files, and unpacks them again.
//
// Exit status: 0 on success; 1 when the library refused an image or values (its text is
// printed), when an image is damaged (inspect), or when an output can't be written; 2 for a bad
// command line, an input that can't be read, or a layout or values file that is not right.
// The library's message boxes are printed to standard error as notes.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "kov/kov.h"
#include "kovjson/imagewalk.h"
#include "kovjson/jsonlayout.h"
#include "kovjson/jsonread.h"
#include "kovjson/jsonvalues.h"
#include "tools/commands.h"
#include "tools/toolio.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr int kRefused = kKovToolRefused;
constexpr int kBadInput = kKovToolBadInput;
using ToolError = KovToolError;

int messageCount = 0;

void printMessageBox(const std::string& text) {
  ++messageCount;
  std::string shown;
  for (char c : text) shown += c == '\n' ? std::string("\n      ") : std::string(1, c);
  std::fprintf(stderr, "note: %s\n", shown.c_str());
}

std::vector<uint8_t> readImage(const std::string& path) { return kovToolReadBytes(path); }

void writeFile(const std::string& path, const std::string& text) {
  kovToolWriteOutput(path, text);
}

void writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
  kovToolWriteOutput(path, bytes);
}

Json readValues(const std::string& path) { return kovJsonParse(kovJsonReadFile(path), path); }

std::vector<uint8_t> packValues(const CKovJsonLayout& layout, const Json& values,
                                const std::string& valuesFile, bool prefixes,
                                const std::string& exportPath) {
  std::unique_ptr<KovJsonPackData> data = kovJsonPackData(layout, values, valuesFile);
  messageCount = 0;
  std::vector<uint8_t> bytes = kovJsonPackImage(layout, *data, prefixes, exportPath);
  // The patch stage and the export show their failures in message boxes and go on.
  if (messageCount != 0) {
    throw ToolError{kRefused, "the library reported a problem while packing (see the notes above)"};
  }
  return bytes;
}

// The values of image, read with layout; reportPath "" for no report.
Json unpackImage(const CKovJsonLayout& layout, std::vector<uint8_t> bytes, bool prefixes,
                 const std::string& imagePath, const std::string& reportPath) {
  if (prefixes) {
    KovJsonWalk walk = kovJsonWalkImage(bytes, true);
    if (!walk.damage.empty()) {
      throw ToolError{kRefused, kovFormat("%s: at offset %u: %s", imagePath.c_str(),
                                          walk.damageOffset, walk.damage.c_str())};
    }
    bytes = kovJsonWithoutPrefixes(bytes, walk);
  }
  if (bytes.empty()) throw ToolError{kRefused, imagePath + ": the image is empty"};
  CKovUp up(layout.GetCpLayout(), bytes, reportPath);
  up.FullUnpack();
  return kovJsonUnpackedValues(layout, up);
}

std::string dump(const Json& values) { return values.dump(2) + "\n"; }

int cmdPack(const std::string& layoutPath, const std::string& valuesPath,
            const std::string& imagePath, bool prefixes, bool exportBlocks) {
  auto layout = CKovJsonLayout::LoadFile(layoutPath, exportBlocks);
  std::vector<uint8_t> bytes = packValues(*layout, readValues(valuesPath), valuesPath, prefixes,
                                          exportBlocks ? imagePath : "");
  writeFile(imagePath, bytes);
  std::printf("%s: %zu bytes\n", imagePath.c_str(), bytes.size());
  if (exportBlocks) {
    std::printf("%s: one file a block instance\n",
                CKovBlkExport::GetBlksDirPath(imagePath.c_str()).c_str());
  }
  return 0;
}

int cmdUnpack(const std::string& layoutPath, const std::string& imagePath,
              const std::string& valuesPath, const std::string& reportPath, bool prefixes) {
  auto layout = CKovJsonLayout::LoadFile(layoutPath, false);
  Json values = unpackImage(*layout, readImage(imagePath), prefixes, imagePath, reportPath);
  if (valuesPath.empty()) {
    std::fputs(dump(values).c_str(), stdout);
  } else {
    writeFile(valuesPath, dump(values));
  }
  return 0;
}

int cmdInspect(const std::string& imagePath, const std::string& layoutPath, bool prefixes) {
  std::unique_ptr<CKovJsonLayout> layout;
  if (!layoutPath.empty()) layout = CKovJsonLayout::LoadFile(layoutPath, false);
  std::vector<uint8_t> bytes = readImage(imagePath);
  bool bad = false;
  std::fputs(kovJsonInspectText(kovJsonWalkImage(bytes, prefixes), bytes.size(), layout.get(), bad)
                 .c_str(),
             stdout);
  return bad ? kRefused : 0;
}

int cmdVerify(const std::string& layoutPath) {
  auto layout = CKovJsonLayout::LoadFile(layoutPath, false);
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
  std::printf("%s: verified: %zu partition%s, %zu blocks, %zu fields\n", layoutPath.c_str(),
              layout->GetNumPartitions(), layout->GetNumPartitions() == 1 ? "" : "s",
              layout->GetBlocks().size(), fields);
  return 0;
}

int cmdTree(const std::string& layoutPath) {
  auto layout = CKovJsonLayout::LoadFile(layoutPath, false);
  std::fputs(CKovCpLayoutView::GetLayoutTreeText(layout->GetCpLayout()).c_str(), stdout);
  return 0;
}

// The sample's folder: beside an installed tool (<prefix>/share/kov/radio), else in the source tree
// the tool was built from.
std::string sampleDir() {
  std::error_code ec;
  fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  if (!ec) {
    fs::path installed = exe.parent_path().parent_path() / "share" / "kov" / "radio";
    if (fs::exists(installed / "layout.json", ec)) return installed.string();
  }
  return KOVTOOL_SAMPLE_DIR;
}

int cmdDemo(const std::string& self, std::string outDir, std::string layoutPath,
            std::string valuesPath) {
  std::string dir = sampleDir();
  if (layoutPath.empty()) layoutPath = dir + "/layout.json";
  if (valuesPath.empty()) valuesPath = dir + "/values.json";
  std::error_code ec;
  fs::create_directories(outDir, ec);
  if (ec) throw ToolError{kRefused, outDir + ": can't be made: " + ec.message()};
  std::string base = (fs::path(outDir) / "radio").string();
  std::string image = base + ".kov", inspect = base + ".inspect.txt";
  std::string unpacked = base + ".values.json", report = base + ".xml", tree = base + ".tree.txt";

  auto layout = CKovJsonLayout::LoadFile(layoutPath, true);
  std::vector<uint8_t> bytes =
      packValues(*layout, readValues(valuesPath), valuesPath, false, image);
  writeFile(image, bytes);
  bool bad = false;
  KovJsonWalk walk = kovJsonWalkImage(bytes, false);
  std::string inspectText = kovJsonInspectText(walk, bytes.size(), layout.get(), bad);
  writeFile(inspect, inspectText);
  Json values = unpackImage(*layout, bytes, false, image, report);
  writeFile(unpacked, dump(values));
  std::vector<uint8_t> again = packValues(*layout, values, unpacked, false, "");
  writeFile(tree, CKovCpLayoutView::GetLayoutTreeText(layout->GetCpLayout()));

  std::printf("kovtool demo: the sample codeplug of a handheld radio\n\n");
  std::printf("  layout    %s (%zu blocks in %zu partitions)\n", layoutPath.c_str(),
              layout->GetBlocks().size(), layout->GetNumPartitions());
  std::printf("  values    %s\n\n", valuesPath.c_str());
  std::printf("  image     %s: %zu bytes, %zu block instances\n", image.c_str(), bytes.size(),
              walk.instances.size());
  std::printf("  blocks    %s/: the same instances, one file each\n",
              CKovBlkExport::GetBlksDirPath(image.c_str()).c_str());
  std::printf("  inspect   %s: every block header, its size and checksum\n", inspect.c_str());
  std::printf("  unpacked  %s: the values read back from the image\n", unpacked.c_str());
  std::printf("  report    %s: the XML report of that unpack\n", report.c_str());
  std::printf("  tree      %s: the layout's blocks and fields\n\n", tree.c_str());
  std::printf("  round trip: the unpacked values pack to %s\n",
              again == bytes ? "the same bytes" : "OTHER BYTES");
  std::printf("\nNext: %s inspect '%s' --layout '%s'\n", self.c_str(), image.c_str(),
              layoutPath.c_str());
  return again == bytes && !bad ? 0 : kRefused;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "kovtool: packs codeplug images from JSON layout and values files, and back.\n"
      "Exit status: 0 success, 1 the library refused the image or values, 2 bad "
      "command line or input file."};
  app.require_subcommand(1);
  std::string layoutPath, valuesPath, imagePath, outPath, reportPath, outDir = "out";
  bool prefixes = false, exportBlocks = false;

  CLI::App* pack = app.add_subcommand("pack", "Pack a values file into an image");
  pack->add_option("LAYOUT", layoutPath, "The layout file (JSON)")->required();
  pack->add_option("VALUES", valuesPath, "The values file (JSON)")->required();
  pack->add_option("-o,--output", imagePath, "The image file to write")->required();
  pack->add_flag("--partition-prefix", prefixes,
                 "Put the partition number (2 bytes) in front of every block instance");
  pack->add_flag("--export-blocks", exportBlocks,
                 "Also write every block instance to a file of its own, in '<image> - Blocks'");

  CLI::App* unpack = app.add_subcommand("unpack", "Unpack an image into a values file");
  unpack->add_option("LAYOUT", layoutPath, "The layout file (JSON)")->required();
  unpack->add_option("IMAGE", imagePath, "The image file")->required();
  unpack->add_option("-o,--output", outPath, "The values file to write (default: standard output)");
  unpack->add_option("--report", reportPath, "Also write the XML report of the unpack here");
  unpack->add_flag("--partition-prefix", prefixes,
                   "The image has the partition number in front of every block instance");

  CLI::App* inspect =
      app.add_subcommand("inspect", "List the block headers of an image, with their checksums");
  inspect->add_option("IMAGE", imagePath, "The image file")->required();
  inspect->add_option("--layout", layoutPath, "A layout file, to name the blocks");
  inspect->add_flag("--partition-prefix", prefixes,
                    "The image has the partition number in front of every block instance");

  CLI::App* verify = app.add_subcommand("verify", "Load and verify a layout file");
  verify->add_option("LAYOUT", layoutPath, "The layout file (JSON)")->required();

  CLI::App* tree = app.add_subcommand("tree", "Print the blocks and fields of a layout as a tree");
  tree->add_option("LAYOUT", layoutPath, "The layout file (JSON)")->required();

  CLI::App* demo = app.add_subcommand(
      "demo", "Pack, inspect, unpack and report the built-in sample radio codeplug");
  demo->add_option("--out", outDir, "The folder to write into (default: out)");
  demo->add_option("--layout", layoutPath, "Another layout file instead of the sample's");
  demo->add_option("--values", valuesPath, "Another values file instead of the sample's");

  std::vector<KovToolCommand> commands = kovToolAddCommands(app);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : kBadInput;
  }

  kovSetMessageBoxHandler(printMessageBox);
  try {
    if (*pack) return cmdPack(layoutPath, valuesPath, imagePath, prefixes, exportBlocks);
    if (*unpack) return cmdUnpack(layoutPath, imagePath, outPath, reportPath, prefixes);
    if (*inspect) return cmdInspect(imagePath, layoutPath, prefixes);
    if (*verify) return cmdVerify(layoutPath);
    if (*tree) return cmdTree(layoutPath);
    for (const KovToolCommand& command : commands) {
      if (*command.sub) return command.run();
    }
    return cmdDemo(argv[0], outDir, layoutPath, valuesPath);
  } catch (const KovJsonError& e) {
    std::fprintf(stderr, "kovtool: %s\n", e.what());
    return kBadInput;
  } catch (const ToolError& e) {
    std::fprintf(stderr, "kovtool: %s\n", e.text.c_str());
    return e.status;
  } catch (CMevGenException* e) {
    std::fprintf(stderr, "kovtool: %s\n", e->GetMessage().c_str());
    delete e;
    return kRefused;
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "kovtool: out of memory\n");
    return kRefused;
  }
}
