#include "kov/pack/blkexport.h"

#include <filesystem>
#include <memory>
#include <system_error>
#include <vector>

#include "kov/image/image.h"
#include "kov/layout/cplayout.h"
#include "kov/pack/idvector.h"
#include "kov/platform/fhmevfilehandler.h"
#include "kov/platform/format.h"
#include "kov/platform/msgbox.h"

namespace fs = std::filesystem;

namespace {

// Joins by string, not by fs::path's operator/, which would let a block name that starts with a
// separator replace the directory.
std::string joinPath(const std::string& dir, const std::string& name) {
  if (dir.empty()) return name;
  return dir + static_cast<char>(fs::path::preferred_separator) + name;
}

std::string blksDirName(const fs::path& file) { return file.stem().string() + " - Blocks"; }

}  // namespace

std::string CKovBlkExport::GetBlksDirPath(const char* fileName) {
  if (fileName == nullptr) return std::string();
  const fs::path file(fileName);
  return joinPath(file.parent_path().string(), blksDirName(file));
}

void CKovBlkExport::SplitBlksInFile(const KovIDVectorMap& vectorMap, const CKovImage* image,
                                    const CKovCpLayout* cpLayout, const char* fileName) {
  if (fileName == nullptr || image == nullptr || cpLayout == nullptr) return;
  const fs::path file(fileName);
  const std::string parentPath = file.parent_path().string();
  const std::string dirName = blksDirName(file);
  const std::string dirPath = joinPath(parentPath, dirName);

  // Left-overs that stay are overwritten when they bear a name of this pack: no reason to stop.
  if (DoesDirExist(dirName.c_str(), parentPath.c_str()) != 0) {
    DeleteFilesFromDir(dirPath);
  } else if (CreateDirectoryToStoreBlks(dirPath.c_str()) == 0) {
    return;
  }

  for (const auto& idAndVector : vectorMap) {
    const CKovIDVector* vector = idAndVector.second;
    if (vector == nullptr) continue;
    const std::string blkName = cpLayout->GetBlkName(idAndVector.first);
    for (int n = 1; n <= vector->GetNumInstances(); ++n) {
      const std::string name = kovFormat("%s_%d", blkName.c_str(), n);
      const uint32_t first = vector->GetInstanceStart(n);
      const uint32_t last = first + vector->GetInstanceSize(n) - 1;
      if (WriteBlkToFile(joinPath(dirPath, name).c_str(), first, last, image) == 0) {
        kovMessageBox(
            kovFormat("Unable to save block %d (name %s).", idAndVector.first, name.c_str()));
      }
    }
  }
}

int CKovBlkExport::DoesDirExist(const char* dirName, const char* parentPath) {
  std::error_code ec;
  return fs::exists(fs::symlink_status(joinPath(parentPath, dirName), ec)) ? 1 : 0;
}

int CKovBlkExport::DeleteFilesFromDir(const std::string& dirPath) {
  std::error_code ec;
  fs::directory_iterator it(dirPath, ec);
  if (ec) return 0;
  // Collected first: the directory is not changed while it is being read.
  std::vector<fs::path> doomed;
  for (; it != fs::directory_iterator(); it.increment(ec)) {
    // A link is deleted as a link, whatever it points at; only a real directory stays.
    if (it->symlink_status(ec).type() != fs::file_type::directory) doomed.push_back(it->path());
  }
  if (ec) return 0;
  for (const fs::path& path : doomed) {
    // Owner read and write, so that a read-only file goes too. A link has no mode of its own.
    if (!fs::is_symlink(fs::symlink_status(path, ec))) {
      fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write,
                      fs::perm_options::replace, ec);
    }
    fs::remove(path, ec);
    if (ec) return 0;
  }
  return 1;
}

int CKovBlkExport::CreateDirectoryToStoreBlks(const char* dirPath) {
  std::error_code ec;
  fs::create_directory(dirPath, ec);
  if (!ec) return 1;
  kovMessageBox(ec.message());
  kovMessageBox("Unable to create directory in which to store blocks.");
  return 0;
}

int CKovBlkExport::WriteBlkToFile(const char* filePath, uint32_t firstByte, uint32_t lastByte,
                                  const CKovImage* image) {
  // Counted from firstByte so that no sum can wrap: the bytes must lie in the image. An empty
  // range is an instance the pack never placed, and no file.
  const uint32_t count = lastByte - firstByte + 1;
  if (count == 0 || firstByte >= image->GetSize() || count > image->GetSize() - firstByte) {
    return 0;
  }
  CFhMevFile* file = CFhMevFileHandler::GetFile(
      filePath, CFhMevFileHandler::modeCreate | CFhMevFileHandler::modeWrite);
  if (file == nullptr) return 0;
  try {
    file->SeekToBegin();
    file->Write(image->GetBytesArray() + firstByte, count);
    CFhMevFileHandler::ReleaseFile(file, 0);
  } catch (CFhMevFileException* e) {
    std::unique_ptr<CFhMevFileException> owned(e);
    CFhMevFileHandler::ReleaseFile(file, 1);
    // What was written is cut short and would pass for the block: it goes. Only a plain file,
    // never a device or what a link points at.
    std::error_code ec;
    if (fs::symlink_status(filePath, ec).type() == fs::file_type::regular) fs::remove(filePath, ec);
    kovMessageBox(kovFormat("Error writing to file %s.\nReason: %s", e->GetFileName().c_str(),
                            CFhMevFileHandler::GetFileExceptionCause(e).c_str()));
    return 0;
  }
  return 1;
}
