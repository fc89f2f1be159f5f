// kovtool: packs codeplug images from JSON layout and values files, and unpacks them again.
//
// Exit status: 0 on success; 1 when an image is damaged or breaks its layout, when the library
// refused values, when an output can't be written, or when lint finds a mistake; 2 for a bad
// command line, an input that can't be read, an output whose folder does not exist, or a layout or
// values file that is not right. Errors are one line each, "kovtool: FILE: WHERE: what is wrong";
// the library's message boxes are printed to standard error as notes, in the layout's names.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kov/kov.h"
#include "kovjson/imagecheck.h"
#include "kovjson/imagewalk.h"
#include "kovjson/jsonlayout.h"
#include "kovjson/jsonread.h"
#include "kovjson/jsonvalues.h"
#include "tools/commands.h"
#include "tools/layoutcmds.h"
#include "tools/toolio.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr int kRefused = kKovToolRefused;
constexpr int kBadInput = kKovToolBadInput;
using ToolError = KovToolError;

std::vector<uint8_t> readImage(const std::string& path) { return kovToolReadBytes(path); }

// The name of a file in messages.
std::string shown(const std::string& path) { return path == "-" ? "standard input" : path; }

Json readValues(const std::string& path) {
  return kovJsonParse(kovJsonReadFile(path), shown(path));
}

std::vector<uint8_t> packValues(const CKovJsonLayout& layout, const Json& values,
                                const std::string& valuesFile, bool prefixes) {
  std::unique_ptr<KovJsonPackData> data = kovJsonPackData(layout, values, valuesFile);
  kovToolResetNotes();
  std::vector<uint8_t> bytes;
  try {
    bytes = kovJsonPackImage(layout, *data, prefixes, "");
  } catch (CMevGenException* e) {
    std::string text = kovToolInNames(e->GetMessage());
    delete e;
    throw ToolError{kRefused, valuesFile + ": " + text};
  }
  // The patch stage shows its failures in message boxes and goes on.
  if (kovToolNoteCount() != 0) {
    throw ToolError{kRefused, "the library reported a problem while packing (see the notes above)"};
  }
  return bytes;
}

// Every block instance of the packed image in a file of its own, "<block name>_<n>" (a
// distributed block's n counts listlets), in the folder "<image> - Blocks" beside the image, as
// the library's export names them; files an earlier export left there are deleted first. Each
// file is written whole or not at all.
void writeBlockFiles(const CKovJsonLayout& layout, const std::vector<uint8_t>& bytes, bool prefixes,
                     const std::string& imagePath) {
  std::string dir = CKovBlkExport::GetBlksDirPath(imagePath.c_str());
  std::error_code ec;
  fs::create_directory(dir, ec);
  if (ec) throw ToolError{kRefused, dir + ": can't be made: " + ec.message()};
  for (const fs::directory_entry& entry : fs::directory_iterator(dir, ec)) {
    if (entry.is_regular_file(ec) && !fs::remove(entry.path(), ec)) break;
  }
  if (ec) throw ToolError{kRefused, dir + ": can't be emptied: " + ec.message()};
  std::map<uint16_t, int> counts;
  for (const KovJsonInstance& inst : kovJsonWalkImage(bytes, prefixes).instances) {
    const KovJsonBlock* blk = layout.FindBlockByKovType(inst.kovType);
    if (blk == nullptr) continue;
    uint32_t first = inst.offset - (prefixes ? 2 : 0);
    uint32_t end = inst.offset + 6 + inst.size;
    kovToolWriteOutput(
        (fs::path(dir) / (blk->name + "_" + std::to_string(++counts[blk->id]))).string(),
        std::vector<uint8_t>(bytes.begin() + first, bytes.begin() + end));
  }
}

// The values of image, read with layout, and the text of its XML report when withReport. The
// library writes the report itself, so it writes to a temporary file that is read back here.
Json unpackImage(const CKovJsonLayout& layout, const std::vector<uint8_t>& bytes, bool prefixes,
                 const std::string& imagePath, bool withReport, bool lenient,
                 std::string& reportText) {
  struct Temporary {
    std::string path;
    ~Temporary() {
      if (!path.empty()) ::unlink(path.c_str());
    }
  } report;
  if (withReport) {
    std::string tmpl = (fs::temp_directory_path() / "kovtool-report.XXXXXX").string();
    std::vector<char> name(tmpl.begin(), tmpl.end());
    name.push_back('\0');
    int fd = ::mkstemp(name.data());
    if (fd < 0) throw ToolError{kRefused, tmpl + ": can't be made: " + std::strerror(errno)};
    ::close(fd);
    report.path = name.data();
  }
  Json values = kovJsonUnpackFile(layout, bytes, prefixes, imagePath, report.path, !lenient);
  if (withReport) {
    reportText = kovToolReadInput(report.path);
    // The library writes nothing when it can't write its file; a report always has its prolog.
    if (reportText.empty()) {
      throw ToolError{kRefused, report.path + ": can't be written: the report was not made"};
    }
  }
  return values;
}

std::string dump(const Json& values) { return values.dump(2) + "\n"; }

int cmdPack(const std::string& layoutPath, const std::string& valuesPath,
            const std::string& imagePath, bool prefixes, bool exportBlocks) {
  kovToolCheckOutput(imagePath);
  auto layout = kovToolLoadLayout(layoutPath, exportBlocks);
  bool exporting = exportBlocks || layout->GetCpLayout()->SaveToSeparateFiles() != 0;
  if (exporting && imagePath == "-") {
    throw ToolError{kBadInput,
                    "the block files are written beside the image: give -o a file, not '-'"};
  }
  std::vector<uint8_t> bytes =
      packValues(*layout, readValues(valuesPath), shown(valuesPath), prefixes);
  kovToolWriteOutput(imagePath, bytes);
  if (exporting) writeBlockFiles(*layout, bytes, prefixes, imagePath);
  if (imagePath == "-") return 0;
  kovToolPrint(kovFormat("%s: %zu bytes\n", imagePath.c_str(), bytes.size()));
  if (exporting) {
    kovToolPrint(kovFormat("%s: one file a block instance\n",
                           CKovBlkExport::GetBlksDirPath(imagePath.c_str()).c_str()));
  }
  return 0;
}

int cmdUnpack(const std::string& layoutPath, const std::string& imagePath,
              const std::string& valuesPath, const std::string& reportPath, bool prefixes,
              bool lenient) {
  if (!valuesPath.empty()) kovToolCheckOutput(valuesPath);
  if (!reportPath.empty()) kovToolCheckOutput(reportPath);
  auto layout = kovToolLoadLayout(layoutPath, false);
  std::string report;
  Json values = unpackImage(*layout, readImage(imagePath), prefixes, shown(imagePath),
                            !reportPath.empty(), lenient, report);
  kovToolWriteOutput(valuesPath.empty() ? "-" : valuesPath, dump(values));
  if (!reportPath.empty()) kovToolWriteOutput(reportPath, report);
  return 0;
}

int cmdInspect(const std::string& imagePath, const std::string& layoutPath, bool prefixes) {
  std::unique_ptr<CKovJsonLayout> layout;
  if (!layoutPath.empty()) layout = kovToolLoadLayout(layoutPath, false);
  std::vector<uint8_t> bytes = readImage(imagePath);
  bool bad = false;
  KovJsonWalk walk = kovJsonWalkImage(bytes, prefixes);
  std::string text = kovJsonInspectText(walk, bytes.size(), layout.get(), bad);
  if (layout != nullptr) {
    // The table marks names no block has; a name met twice is told below it.
    for (const KovJsonWalkFault& fault : kovJsonWalkFaults(*layout, walk, true)) {
      if (!fault.twice) continue;
      text += kovFormat("0x%06X %s\n", fault.offset, fault.text.c_str());
      bad = true;
    }
  }
  kovToolPrint(text);
  return bad ? kRefused : 0;
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
  // The outputs are named after the layout: radio.kov for the sample, x.kov for --layout x.json.
  std::string stem = layoutPath.empty() ? "radio" : fs::path(layoutPath).stem().string();
  if (stem.empty() || stem == "-") stem = "layout";
  if (layoutPath.empty()) layoutPath = dir + "/layout.json";
  if (valuesPath.empty()) valuesPath = dir + "/values.json";
  std::error_code ec;
  fs::create_directories(outDir, ec);
  if (ec) throw ToolError{kRefused, outDir + ": can't be made: " + ec.message()};
  std::string base = (fs::path(outDir) / stem).string();
  std::string image = base + ".kov", inspect = base + ".inspect.txt";
  std::string unpacked = base + ".values.json", report = base + ".xml", tree = base + ".tree.txt";

  auto layout = kovToolLoadLayout(layoutPath, true);
  std::vector<uint8_t> bytes =
      packValues(*layout, readValues(valuesPath), shown(valuesPath), false);
  kovToolWriteOutput(image, bytes);
  writeBlockFiles(*layout, bytes, false, image);
  bool bad = false;
  KovJsonWalk walk = kovJsonWalkImage(bytes, false);
  std::string inspectText = kovJsonInspectText(walk, bytes.size(), layout.get(), bad);
  kovToolWriteOutput(inspect, inspectText);
  std::string reportText;
  Json values = unpackImage(*layout, bytes, false, image, true, false, reportText);
  kovToolWriteOutput(unpacked, dump(values));
  kovToolWriteOutput(report, reportText);
  std::vector<uint8_t> again = packValues(*layout, values, unpacked, false);
  kovToolWriteOutput(tree, CKovCpLayoutView::GetLayoutTreeText(layout->GetCpLayout()));

  std::string text = layoutPath == dir + "/layout.json"
                         ? "kovtool demo: the sample codeplug of a handheld radio\n\n"
                         : "kovtool demo: the codeplug of " + layoutPath + "\n\n";
  text += kovFormat("  layout    %s (%s in %s)\n", layoutPath.c_str(),
                    kovToolPlural(layout->GetBlocks().size(), "block").c_str(),
                    kovToolPlural(layout->GetNumPartitions(), "partition").c_str());
  text += kovFormat("  values    %s\n\n", valuesPath.c_str());
  text += kovFormat("  image     %s: %zu bytes, %s\n", image.c_str(), bytes.size(),
                    kovToolPlural(walk.instances.size(), "block instance").c_str());
  text += kovFormat("  blocks    %s/: the same instances, one file each\n",
                    CKovBlkExport::GetBlksDirPath(image.c_str()).c_str());
  text += kovFormat("  inspect   %s: every block header, its size and checksum\n", inspect.c_str());
  text += kovFormat("  unpacked  %s: the values read back from the image\n", unpacked.c_str());
  text += kovFormat("  report    %s: the XML report of that unpack\n", report.c_str());
  text += kovFormat("  tree      %s: the layout's blocks and fields\n\n", tree.c_str());
  text += kovFormat("  round trip: the unpacked values pack to %s\n",
                    again == bytes ? "the same bytes" : "OTHER BYTES");
  text += kovFormat("\nNext: %s inspect '%s' --layout '%s'\n", self.c_str(), image.c_str(),
                    layoutPath.c_str());
  kovToolPrint(text);
  return again == bytes && !bad ? 0 : kRefused;
}

// A first argument that is neither an option nor a command: say which commands there are.
bool unknownCommand(CLI::App& app, int argc, char** argv) {
  if (argc < 2 || argv[1][0] == '-') return false;
  std::string names;
  for (const CLI::App* sub : app.get_subcommands({})) {
    if (sub->get_name() == argv[1]) return false;
    names += (names.empty() ? "" : ", ") + sub->get_name();
  }
  std::fprintf(stderr, "kovtool: '%s' is not a command; the commands are %s (see kovtool --help)\n",
               argv[1], names.c_str());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "kovtool: packs codeplug images from JSON layout and values files, and back.\n"
      "A file name '-' is standard input or output.\n"
      "Exit status: 0 success; 1 a damaged image, an image that breaks its layout, values the\n"
      "library refused, an output that can't be written, or a lint finding; 2 a bad command\n"
      "line, an input that can't be read, or a layout or values file that is not right."};
  app.require_subcommand(1);
  app.set_version_flag("--version", "kovtool " KOVTOOL_VERSION);
  std::string layoutPath, valuesPath, imagePath, outPath, reportPath, outDir = "out";
  bool prefixes = false, exportBlocks = false, lenient = false;

  CLI::App* pack = app.add_subcommand("pack", "Pack a values file into an image");
  pack->add_option("LAYOUT", layoutPath, "The layout file (JSON)")->required();
  pack->add_option("VALUES", valuesPath, "The values file (JSON)")->required();
  pack->add_option("-o,--output", imagePath, "The image file to write ('-': standard output)")
      ->required();
  pack->add_flag("--partition-prefix", prefixes,
                 "Put the partition number (2 bytes) in front of every block instance");
  pack->add_flag("--export-blocks", exportBlocks,
                 "Also write every block instance to a file of its own, in '<image> - Blocks' "
                 "(as the layout's saveToSeparateFiles does)");

  CLI::App* unpack = app.add_subcommand("unpack", "Unpack an image into a values file");
  unpack->add_option("LAYOUT", layoutPath, "The layout file (JSON)")->required();
  unpack->add_option("IMAGE", imagePath, "The image file ('-': standard input)")->required();
  unpack->add_option("-o,--output", outPath, "The values file to write (default: standard output)");
  unpack->add_option("--report", reportPath, "Also write the XML report of the unpack here");
  unpack->add_flag("--partition-prefix", prefixes,
                   "The image has the partition number in front of every block instance");
  unpack->add_flag("--lenient", lenient,
                   "Read an image that breaks its own layout as the library does (a list above "
                   "its maximum, a KOV name given twice, bytes that no value holds)");

  CLI::App* inspect =
      app.add_subcommand("inspect", "List the block headers of an image, with their checksums");
  inspect->add_option("IMAGE", imagePath, "The image file ('-': standard input)")->required();
  inspect->add_option("--layout", layoutPath, "A layout file, to name the blocks");
  inspect->add_flag("--partition-prefix", prefixes,
                    "The image has the partition number in front of every block instance");

  std::vector<KovToolCommand> layoutCommands = kovToolAddLayoutCommands(app);

  CLI::App* demo = app.add_subcommand(
      "demo", "Pack, inspect, unpack and report the built-in sample radio codeplug");
  demo->add_option("--out", outDir, "The folder to write into (default: out)");
  demo->add_option("--layout", layoutPath,
                   "Another layout file instead of the sample's; the outputs take its name");
  demo->add_option("--values", valuesPath, "Another values file instead of the sample's");

  std::vector<KovToolCommand> commands = kovToolAddCommands(app);

  if (unknownCommand(app, argc, argv)) return kBadInput;
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : kBadInput;
  }

  kovToolInstallNotes();
  // A write past the file-size limit fails with EFBIG instead of ending the process, so that the
  // temporary file is removed and the error said.
  std::signal(SIGXFSZ, SIG_IGN);
  try {
    if (*pack) return cmdPack(layoutPath, valuesPath, imagePath, prefixes, exportBlocks);
    if (*unpack) return cmdUnpack(layoutPath, imagePath, outPath, reportPath, prefixes, lenient);
    if (*inspect) return cmdInspect(imagePath, layoutPath, prefixes);
    for (const KovToolCommand& command : layoutCommands) {
      if (*command.sub) return command.run();
    }
    for (const KovToolCommand& command : commands) {
      if (*command.sub) return command.run();
    }
    return cmdDemo(argv[0], outDir, layoutPath, valuesPath);
  } catch (const KovJsonError& e) {
    std::fprintf(stderr, "kovtool: %s\n", e.what());
    return kBadInput;
  } catch (const KovJsonImageError& e) {
    std::fprintf(stderr, "kovtool: %s%s\n", e.what(),
                 e.IsStrictOnly() ? " (--lenient reads it as it stands)" : "");
    return kRefused;
  } catch (const ToolError& e) {
    std::fprintf(stderr, "kovtool: %s\n", e.text.c_str());
    return e.status;
  } catch (CMevGenException* e) {
    std::fprintf(stderr, "kovtool: %s\n", kovToolInNames(e->GetMessage()).c_str());
    delete e;
    return kRefused;
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "kovtool: out of memory\n");
    return kRefused;
  }
}
