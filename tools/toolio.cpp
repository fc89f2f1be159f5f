#include "tools/toolio.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

[[noreturn]] void failInput(const std::string& path, const std::string& why) {
  throw KovToolError{kKovToolBadInput, path + ": can't be read: " + why};
}

[[noreturn]] void failOutput(const std::string& path, const std::string& why) {
  throw KovToolError{kKovToolRefused, path + ": can't be written: " + why};
}

// Reads fd to its end; false on a read error (errno set).
bool readAll(int fd, std::string& bytes) {
  char buf[65536];
  for (;;) {
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n == 0) return true;
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes.append(buf, static_cast<size_t>(n));
  }
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

}  // namespace

std::string kovToolReadInput(const std::string& path) {
  std::string bytes;
  if (path == "-") {
    if (!readAll(STDIN_FILENO, bytes)) failInput("standard input", std::strerror(errno));
    return bytes;
  }
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) failInput(path, std::strerror(errno));
  struct stat st;
  if (::fstat(fd, &st) != 0) {
    int err = errno;
    ::close(fd);
    failInput(path, std::strerror(err));
  }
  if (!S_ISREG(st.st_mode)) {
    ::close(fd);
    failInput(path, S_ISDIR(st.st_mode) ? "it is a folder" : "not a regular file");
  }
  bool ok = readAll(fd, bytes);
  int err = errno;
  ::close(fd);
  if (!ok) failInput(path, std::strerror(err));
  return bytes;
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
  std::string tmpl = (target.parent_path() / ("." + target.filename().string() + ".XXXXXX")).string();
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
