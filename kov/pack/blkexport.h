// CKovBlkExport: the per-block export of a pack, every block instance in a file of its own.
//
// For an image file <parent>/<title>.<ext> the files go to the directory
// "<parent>/<title> - Blocks" beside it, made when missing (its parent is not). Each instance n
// (from 1) of a block is the file "<block name>_<n>", without extension, holding the instance's
// bytes as they stand in the image and nothing else: partition prefix when the pack wrote one,
// header, data and checksum. Instances are what the pack noted in its vector map: for a
// distributed KLS block n counts listlets, not lists. Blocks come in map order. Files left in the
// directory by an earlier export are deleted first, read-only ones too, so that only this pack's
// files stand there; sub-directories stay with all they hold.
//
// CKovPk::FillImage runs the export when it is given a file name and the layout's
// SaveToSeparateFiles is set, after its patch stage, so that the files hold the final bytes.
//
// Nothing here throws but for exhausted memory. Failures are shown in message boxes and the
// export goes on with the next file:
//   "Error writing to file %s.\nReason: %s" (path, the system's words), when a write fails,
//   which also removes the file so that no block stands there cut short;
//   "Unable to save block %d (name %s)." (block id, file name), for every file not written;
//   a left-over file that can't be deleted stops the deleting only, silently.
// A directory that can't be made ends the export: the system's words, then "Unable to create
// directory in which to store blocks." Cost: one pass over the directory and one write a file.
#ifndef KOV_PACK_BLKEXPORT_H
#define KOV_PACK_BLKEXPORT_H

#include <cstdint>
#include <string>

#include "kov/pack/pkstdblk.h"

class CKovCpLayout;
class CKovImage;

class CKovBlkExport {
 public:
  CKovBlkExport() = delete;

  // Writes every instance noted in vectorMap from image into the directory of fileName, naming
  // blocks by cpLayout. Does nothing when fileName, image or cpLayout is null.
  static void SplitBlksInFile(const KovIDVectorMap& vectorMap, const CKovImage* image,
                              const CKovCpLayout* cpLayout, const char* fileName);

  // The directory that the export for image file fileName writes to; "" for null.
  static std::string GetBlksDirPath(const char* fileName);

 protected:
  // The steps of SplitBlksInFile.

  // 1 when anything of that name stands in parentPath, directory or not; else 0.
  static int DoesDirExist(const char* dirName, const char* parentPath);
  // Deletes every entry of dirPath but its sub-directories, making each writable first. 1 when
  // all went; 0 when the directory can't be read or an entry can't be deleted, which stops the
  // walk there.
  static int DeleteFilesFromDir(const std::string& dirPath);
  // Makes dirPath; 1 when it is there afterwards, else the two message boxes and 0.
  static int CreateDirectoryToStoreBlks(const char* dirPath);
  // Writes image bytes firstByte to lastByte, both included, to the file filePath, made or cut to
  // length 0. 1 on success; 0 when the file can't be had, a range that is not in the image, or a
  // failed write, which is also shown and removes the file if it is a plain one.
  static int WriteBlkToFile(const char* filePath, uint32_t firstByte, uint32_t lastByte,
                            const CKovImage* image);
};

#endif  // KOV_PACK_BLKEXPORT_H
