// CKovUpEntryList: the unpacked entries of a block (one per instance) or of a list, in order.
// Owns its entries. Index access is O(1). A list made while an unpack runs keeps its array in
// that unpack's arena (see kov/platform/arena.h).
#ifndef KOV_UNPACK_UPENTRYLIST_H
#define KOV_UNPACK_UPENTRYLIST_H

#include <vector>

#include "kov/platform/arena.h"
#include "kov/unpack/upentry.h"

class CKovUpEntryList {
 public:
  CKovUpEntryList() = default;
  virtual ~CKovUpEntryList();
  // Made in the arena of an unpack's scope, or on the heap (see kov/platform/arena.h).
  static void* operator new(size_t size) { return kovArenaNew(size); }
  static void operator delete(void* p, size_t size) noexcept { kovArenaDelete(p, size); }
  CKovUpEntryList(const CKovUpEntryList&) = delete;
  CKovUpEntryList& operator=(const CKovUpEntryList&) = delete;

  // Appends entry (may be null) and takes ownership of it.
  void AddTail(CKovUpEntry* entry);
  int GetCount() const { return static_cast<int>(entries.size()); }
  bool IsEmpty() const { return entries.empty(); }
  // The entry at index (from 0), or null outside the list.
  const CKovUpEntry* GetAt(int index) const {
    return index >= 0 && static_cast<size_t>(index) < entries.size() ? entries[index] : nullptr;
  }
  // Appends every entry of this list to target, in order, and leaves this list empty.
  void MoveAllTo(CKovUpEntryList* target);

  using Entries = std::vector<CKovUpEntry*, KovArenaAllocator<CKovUpEntry*>>;
  Entries::const_iterator begin() const { return entries.begin(); }
  Entries::const_iterator end() const { return entries.end(); }

 private:
  Entries entries;
};

#endif  // KOV_UNPACK_UPENTRYLIST_H
