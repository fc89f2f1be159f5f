// kovtool's files and failures: reading inputs, writing outputs whole or not at all, and the
// failure a command ends with.
//
// A path "-" is standard input (kovToolReadInput) or standard output (kovToolWriteOutput).
// Inputs must be regular files (or "-"): a folder, a device or a missing path is refused with a
// KovToolError of status kKovToolBadInput naming the path. Outputs go to a temporary file beside
// the target, which is renamed over it only once every byte is written and the file is closed,
// so a failure part-way (disk full, file-size limit, a signal) leaves the file that was there
// before. A failed write to standard output is a failure too. Write failures are KovToolError of
// status kKovToolRefused naming the path.
#ifndef KOV_TOOLS_TOOLIO_H
#define KOV_TOOLS_TOOLIO_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
}
class CKovJsonLayout;

constexpr int kKovToolRefused = 1;   // the library refused the image or values, or a write failed
constexpr int kKovToolBadInput = 2;  // a bad command line, or an input that can't be read

// A failure of the tool's own, with its exit status; text is printed after "kovtool: ".
struct KovToolError {
  int status;
  std::string text;
};

// The bytes of path ("-": standard input).
std::string kovToolReadInput(const std::string& path);
std::vector<uint8_t> kovToolReadBytes(const std::string& path);

// Writes bytes to path ("-": standard output) whole, or throws and leaves path as it was.
void kovToolWriteOutput(const std::string& path, const std::string& bytes);
void kovToolWriteOutput(const std::string& path, const std::vector<uint8_t>& bytes);

// Refuses, before any work is done, an output path that can't be written: one whose folder does
// not exist or that is a folder. KovToolError of status kKovToolBadInput naming the path.
void kovToolCheckOutput(const std::string& path);

// Prints text to standard output and throws KovToolError when the write fails (a closed pipe,
// a full disk behind a redirection).
void kovToolPrint(const std::string& text);

// The layout file at path ("-": standard input), loaded with CKovJsonLayout::Load. The library's
// message boxes raised while it loads are printed once it has loaded, in its names, as
// "note: PATH: text"; later ones in the names of the layout loaded last. Throws KovJsonError.
std::unique_ptr<CKovJsonLayout> kovToolLoadLayout(const std::string& path, bool exportBlocks);
// text, a text of the library, in the names of the layout loaded last (kovJsonNamedText).
std::string kovToolInNames(const std::string& text);
// Installs the message box handler that prints notes to standard error and counts them.
void kovToolInstallNotes();
void kovToolResetNotes();
int kovToolNoteCount();
// "1 block", "2 blocks".
std::string kovToolPlural(size_t n, const char* word);

// One subcommand: made by its module on the application, run when the command line chose it.
struct KovToolCommand {
  CLI::App* sub = nullptr;
  std::function<int()> run;
};

#endif  // KOV_TOOLS_TOOLIO_H
