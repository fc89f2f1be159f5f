#include "kov/platform/fhmevfilehandler.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

KOV_IMPLEMENT_RUNTIME_CLASS(CFhMevFileException, CException)

namespace {

std::atomic<KovFileWriteFailureHook> g_writeFailureHook{nullptr};

// The stream library leaves the cause of a failed operation in errno on this platform; when it
// has none, the operation is named instead.
std::string causeOf(const char* what, int error) {
  if (error != 0) return std::generic_category().message(error);
  return std::string("the file could not be ") + what;
}

}  // namespace

CFhMevFileException::CFhMevFileException(std::string fileName, std::string cause)
    : m_fileName(std::move(fileName)), m_cause(std::move(cause)) {}

bool CFhMevFileException::GetErrorMessage(char* buffer, unsigned size,
                                          unsigned* helpContext) const {
  if (helpContext != nullptr) *helpContext = 0;
  if (buffer == nullptr || size == 0) return false;
  const std::string text = m_fileName + ": " + m_cause;
  const size_t n = text.size() < size - 1 ? text.size() : size - 1;
  std::memcpy(buffer, text.data(), n);
  buffer[n] = '\0';
  return true;
}

CFhMevFile::CFhMevFile(std::string path, std::ofstream stream)
    : m_path(std::move(path)), m_stream(std::move(stream)) {}

CFhMevFile::~CFhMevFile() = default;

void CFhMevFile::ThrowFailure(const char* what, int error) const {
  throw new CFhMevFileException(m_path, causeOf(what, error));
}

void CFhMevFile::Seek(uint64_t offset) {
  errno = 0;
  if (!m_stream.seekp(static_cast<std::streamoff>(offset))) ThrowFailure("positioned", errno);
}

void CFhMevFile::Write(const void* buffer, uint32_t count) {
  const KovFileWriteFailureHook hook = g_writeFailureHook.load();
  if (hook != nullptr) {
    const int error = hook(m_path);
    if (error != 0) ThrowFailure("written", error);
  }
  errno = 0;
  m_stream.write(static_cast<const char*>(buffer), static_cast<std::streamsize>(count));
  if (!m_stream.flush()) ThrowFailure("written", errno);
}

CFhMevFile* CFhMevFileHandler::GetFile(const char* path, uint32_t openFlags) {
  if (path == nullptr || (openFlags & modeWrite) == 0) return nullptr;
  std::ios::openmode mode = std::ios::binary | std::ios::out;
  // Without modeCreate the file must exist and keeps its bytes: opening for reading too makes
  // the stream refuse a missing file instead of making it.
  mode |= (openFlags & modeCreate) != 0 ? std::ios::trunc : std::ios::in;
  std::ofstream stream(path, mode);
  if (!stream.is_open()) return nullptr;
  return new CFhMevFile(path, std::move(stream));
}

void CFhMevFileHandler::ReleaseFile(CFhMevFile* file, int afterFailure) {
  if (file == nullptr) return;
  if (afterFailure == 0) {
    errno = 0;
    file->m_stream.close();
    if (file->m_stream.fail()) file->ThrowFailure("closed", errno);
  }
  delete file;
}

std::string CFhMevFileHandler::GetFileExceptionCause(const CFhMevFileException* e) {
  return e == nullptr ? std::string() : e->m_cause;
}

KovFileWriteFailureHook CFhMevFileHandler::SetWriteFailureHook(KovFileWriteFailureHook hook) {
  return g_writeFailureHook.exchange(hook);
}
