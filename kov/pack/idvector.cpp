#include "kov/pack/idvector.h"

#include <cstddef>

CKovIDVector::CKovIDVector(uint16_t id, int numSlots)
    : id(id),
      instanceStarts(static_cast<size_t>(numSlots > 0 ? numSlots : 0), 0),
      instanceSizes(static_cast<size_t>(numSlots > 0 ? numSlots : 0), 0) {}

void CKovIDVector::SetInstanceInfo(int n, uint32_t start, uint32_t length) {
  if (n < 1) return;
  size_t index = static_cast<size_t>(n) - 1;
  if (instanceStarts.size() <= index) instanceStarts.resize(index + 1, 0);
  if (instanceSizes.size() <= index) instanceSizes.resize(index + 1, 0);
  instanceStarts[index] = start;
  instanceSizes[index] = length;
}

uint32_t CKovIDVector::GetInstanceStart(int n) const {
  return n >= 1 && static_cast<size_t>(n) <= instanceStarts.size() ? instanceStarts[n - 1] : 0;
}

uint32_t CKovIDVector::GetInstanceSize(int n) const {
  return n >= 1 && static_cast<size_t>(n) <= instanceSizes.size() ? instanceSizes[n - 1] : 0;
}
