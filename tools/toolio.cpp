#include "tools/toolio.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "kovjson/jsonlayout.h"
#include "kovjson/jsonread.h"

namespace {

namespace fs = std::filesystem;

[[noreturn]] void failOutput(const std::string& path, const std::string& why) {
  throw KovToolError{kKovToolRefused, path + ": can't be written: " + why};
}

// Writes all of bytes to fd; false on a write error (errno set).
bool writeAll(int fd, const std::string& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    done += static_cast<size_t>(n);
  }
  return true;
}

int noteCount = 0;
// The layout whose names the notes use; null while none is loaded.
const CKovJsonLayout* namingLayout = nullptr;
// Message boxes raised while a layout loads, printed once its names are known.
bool holdNotes = false;
std::vector<std::string> heldNotes;

void printNote(const std::string& text) {
  ++noteCount;
  if (holdNotes) {
    heldNotes.push_back(text);
    return;
  }
  std::fprintf(stderr, "note: %s\n", kovToolInNames(text).c_str());
}

}  // namespace

std::unique_ptr<CKovJsonLayout> kovToolLoadLayout(const std::string& path, bool exportBlocks) {
  std::string text = kovJsonReadFile(path);
  std::string file = path == "-" ? "standard input" : path;
  holdNotes = true;
  heldNotes.clear();
  std::unique_ptr<CKovJsonLayout> layout;
  try {
    layout = CKovJsonLayout::Load(text, file, exportBlocks);
  } catch (...) {
    holdNotes = false;
    throw;
  }
  holdNotes = false;
  namingLayout = layout.get();
  for (const std::string& note : heldNotes) {
    std::fprintf(stderr, "note: %s: %s\n", file.c_str(), kovToolInNames(note).c_str());
  }
  return layout;
}

std::string kovToolInNames(const std::string& text) {
  static const std::vector<KovJsonBlock> none;
  return kovJsonNamedText(namingLayout != nullptr ? namingLayout->GetBlocks() : none, text);
}

void kovToolInstallNotes() { kovSetMessageBoxHandler(printNote); }
void kovToolResetNotes() { noteCount = 0; }
int kovToolNoteCount() { return noteCount; }

std::string kovToolPlural(size_t n, const char* word) {
  return std::to_string(n) + " " + word + (n == 1 ? "" : "s");
}

void kovToolCheckOutput(const std::string& path) {
  if (path == "-") return;
  fs::path target(path);
  fs::path folder = target.parent_path().empty() ? fs::path(".") : target.parent_path();
  std::error_code ec;
  if (fs::is_directory(target, ec)) {
    throw KovToolError{kKovToolBadInput, path + ": can't be written: it is a folder"};
  }
  if (!fs::is_directory(folder, ec)) {
    throw KovToolError{kKovToolBadInput, path + ": can't be written: no folder " + folder.string()};
  }
}

std::string kovToolReadInput(const std::string& path) {
  try {
    return kovJsonReadFile(path);
  } catch (const KovJsonError& e) {
    throw KovToolError{kKovToolBadInput, e.what()};
  }
}

std::vector<uint8_t> kovToolReadBytes(const std::string& path) {
  std::string bytes = kovToolReadInput(path);
  return std::vector<uint8_t>(bytes.begin(), bytes.end());
}

void kovToolPrint(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    failOutput("standard output", std::strerror(errno));
  }
}

void kovToolWriteOutput(const std::string& path, const std::string& bytes) {
  if (path == "-") {
    kovToolPrint(bytes);
    return;
  }
  // The temporary file sits in the target's folder so that the rename stays on one file system.
  fs::path target(path);
  std::string tmpl =
      (target.parent_path() / ("." + target.filename().string() + ".XXXXXX")).string();
  std::vector<char> name(tmpl.begin(), tmpl.end());
  name.push_back('\0');
  int fd = ::mkstemp(name.data());
  if (fd < 0) failOutput(path, std::strerror(errno));
  // mkstemp makes the file 0600; give it what a plain create would (0666 less the umask).
  mode_t mask = ::umask(0);
  ::umask(mask);
  bool ok = writeAll(fd, bytes) && ::fchmod(fd, 0666 & ~mask) == 0 && ::fsync(fd) == 0;
  int err = ok ? 0 : errno;
  if (::close(fd) != 0 && ok) {
    ok = false;
    err = errno;
  }
  if (ok && ::rename(name.data(), path.c_str()) != 0) {
    ok = false;
    err = errno;
  }
  if (!ok) {
    ::unlink(name.data());
    failOutput(path, std::strerror(err));
  }
}

void kovToolWriteOutput(const std::string& path, const std::vector<uint8_t>& bytes) {
  kovToolWriteOutput(path, std::string(bytes.begin(), bytes.end()));
}
