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
#include <string>
#include <vector>

namespace CLI {
class App;
}

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

// Prints text to standard output and throws KovToolError when the write fails (a closed pipe,
// a full disk behind a redirection).
void kovToolPrint(const std::string& text);

// One subcommand: made by its module on the application, run when the command line chose it.
struct KovToolCommand {
  CLI::App* sub = nullptr;
  std::function<int()> run;
};

#endif  // KOV_TOOLS_TOOLIO_H
