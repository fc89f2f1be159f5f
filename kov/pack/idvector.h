// CKovIDVector: where the instances of one written block went in the image.
//
// At index n − 1, the first byte of instance n (partition prefix included) and its whole length
// (prefix, header, data, checksum). For a distributed block the instances are its listlets.
// Reading an instance that was never noted gives 0.
#ifndef KOV_PACK_IDVECTOR_H
#define KOV_PACK_IDVECTOR_H

#include <cstdint>
#include <vector>

#include "kov/platform/arena.h"

class CKovIDVector {
 public:
  // A vector for block id with numSlots instances, all at 0.
  CKovIDVector(uint16_t id, int numSlots);
  // Made in the arena of the pack's scope (see kov/platform/arena.h).
  static void* operator new(size_t size) { return kovArenaNew(size); }
  static void operator delete(void* p, size_t size) noexcept { kovArenaDelete(p, size); }

  // Notes instance n (from 1); grows the vector when n is beyond it. n below 1 is ignored.
  void SetInstanceInfo(int n, uint32_t start, uint32_t length);
  uint32_t GetInstanceStart(int n) const;
  uint32_t GetInstanceSize(int n) const;
  int GetNumInstances() const { return static_cast<int>(instanceStarts.size()); }
  uint16_t GetID() const { return id; }

 private:
  uint16_t id;
  std::vector<uint32_t, KovArenaAllocator<uint32_t>> instanceStarts;
  std::vector<uint32_t, KovArenaAllocator<uint32_t>> instanceSizes;
};

#endif  // KOV_PACK_IDVECTOR_H
