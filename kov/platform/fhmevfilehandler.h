// CFhMevFileHandler: the files the library writes for the application, over standard C++ streams.
//
// GetFile opens a file and hands out a CFhMevFile, or null when the file can't be had (no such
// directory, a name the file system refuses, no permission). ReleaseFile closes the file and takes
// the object back; nothing else deletes it. Paths are the host's, as given.
//
// A CFhMevFile reports a seek, write or close that fails by throwing a CFhMevFileException by
// pointer, as every exception of the library is thrown; the catcher deletes it. The exception
// holds the file's path and the system's words for the cause, which GetFileExceptionCause gives.
// Writes are flushed at once, so a full disk shows at the Write that met it.
//
// SetWriteFailureHook lets a test fail any write on purpose: the hook sees the path of every
// Write before it happens and answers 0 to let it go ahead, or an errno value to make it fail as
// the system would, with that cause and nothing written. No hook is installed by default.
#ifndef KOV_PLATFORM_FHMEVFILEHANDLER_H
#define KOV_PLATFORM_FHMEVFILEHANDLER_H

#include <cstdint>
#include <fstream>
#include <string>

#include "kov/platform/exception.h"

class CFhMevFileException : public CException {
  KOV_DECLARE_RUNTIME_CLASS(CFhMevFileException)

 public:
  CFhMevFileException(std::string fileName, std::string cause);
  ~CFhMevFileException() override = default;

  // The path of the file the operation was on.
  const std::string& GetFileName() const { return m_fileName; }
  // "<path>: <cause>", cut to fit buffer and terminated. False only for a null or empty buffer.
  bool GetErrorMessage(char* buffer, unsigned size, unsigned* helpContext = nullptr) const override;

 private:
  friend class CFhMevFileHandler;
  std::string m_fileName;
  std::string m_cause;
};

class CFhMevFile {
 public:
  // Closes the stream without a word; ReleaseFile is the way to give a file back.
  ~CFhMevFile();
  CFhMevFile(const CFhMevFile&) = delete;
  CFhMevFile& operator=(const CFhMevFile&) = delete;

  // Moves the write position to offset bytes from the start; throws CFhMevFileException.
  void Seek(uint64_t offset);
  void SeekToBegin() { Seek(0); }
  // Writes count bytes of buffer at the position and flushes them; throws CFhMevFileException.
  void Write(const void* buffer, uint32_t count);
  const std::string& GetFilePath() const { return m_path; }

 private:
  friend class CFhMevFileHandler;
  CFhMevFile(std::string path, std::ofstream stream);
  [[noreturn]] void ThrowFailure(const char* what, int error) const;

  std::string m_path;
  std::ofstream m_stream;
};

// Decides whether the write to path goes ahead (0) or fails with the errno value returned.
using KovFileWriteFailureHook = int (*)(const std::string& path);

class CFhMevFileHandler {
 public:
  // Open flags. modeWrite opens for writing, at the start of a file that must exist; with
  // modeCreate a missing file is made and an existing one cut to length 0.
  static constexpr uint32_t modeWrite = 0x0001;
  static constexpr uint32_t modeCreate = 0x1000;

  CFhMevFileHandler() = delete;

  // The file at path, opened by openFlags, or null when it can't be had or the flags lack
  // modeWrite (a CFhMevFile only writes). Never throws but for exhausted memory.
  static CFhMevFile* GetFile(const char* path, uint32_t openFlags);
  // Closes file and deletes it. afterFailure 0: a close that fails throws CFhMevFileException and
  // leaves file alive, to be released again with afterFailure 1, which closes without a word and
  // never throws. A null file is ignored.
  static void ReleaseFile(CFhMevFile* file, int afterFailure);
  // Why the operation failed, in the system's words ("No space left on device").
  static std::string GetFileExceptionCause(const CFhMevFileException* e);
  // Installs hook (null: none), asked before every CFhMevFile::Write; returns the one it
  // replaces. For tests of failed writes. Never throws.
  static KovFileWriteFailureHook SetWriteFailureHook(KovFileWriteFailureHook hook);
};

#endif  // KOV_PLATFORM_FHMEVFILEHANDLER_H
