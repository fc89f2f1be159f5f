#include "tools/cmd_stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

#include "tools/toolio.h"

namespace {

[[noreturn]] void failWrite(const std::string& path, int err) {
  throw KovToolError{kKovToolRefused, path + ": can't be written: " + std::strerror(err)};
}

}  // namespace

KovToolStream::KovToolStream(const std::string& path) : path(path) {
  if (path == "-") return;
  // The temporary file sits in the target's folder so that the rename stays on one file system.
  std::filesystem::path target(path);
  std::string tmpl =
      (target.parent_path() / ("." + target.filename().string() + ".XXXXXX")).string();
  std::vector<char> name(tmpl.begin(), tmpl.end());
  name.push_back('\0');
  fd = ::mkstemp(name.data());
  if (fd < 0) failWrite(path, errno);
  tmp = name.data();
}

KovToolStream::~KovToolStream() {
  if (fd >= 0) {
    ::close(fd);
    ::unlink(tmp.c_str());
  }
}

void KovToolStream::Flush() {
  if (fd < 0) {
    kovToolPrint(buf);
    buf.clear();
    return;
  }
  size_t done = 0;
  // Bound: each step writes at least one byte or fails.
  while (done < buf.size()) {
    ssize_t n = ::write(fd, buf.data() + done, buf.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) failWrite(path, n < 0 ? errno : EIO);
    done += static_cast<size_t>(n);
  }
  buf.clear();
}

void KovToolStream::Close() {
  Flush();
  if (fd < 0) return;
  // mkstemp makes the file 0600; give it what a plain create would (0666 less the umask).
  mode_t mask = ::umask(0);
  ::umask(mask);
  int err = 0;
  if (::fchmod(fd, 0666 & ~mask) != 0 || ::fsync(fd) != 0) err = errno;
  if (::close(fd) != 0 && err == 0) err = errno;
  fd = -1;
  if (err == 0 && ::rename(tmp.c_str(), path.c_str()) != 0) err = errno;
  if (err != 0) {
    ::unlink(tmp.c_str());
    failWrite(path, err);
  }
}

std::string kovToolJsonItem(const nlohmann::ordered_json& j, int depth) {
  std::string text = j.dump(1);
  std::string indent(static_cast<size_t>(depth), ' ');
  std::string out = indent;
  out.reserve(text.size() + text.size() / 8);
  // A JSON string holds no raw line break, so every one in the text starts a line of its own.
  for (char c : text) {
    out += c;
    if (c == '\n') out += indent;
  }
  return out;
}
