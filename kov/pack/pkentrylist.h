// CKovPkEntryList: the entries of a block (one per instance) or of a list value, in order.
//
// Owns its entries and deletes them with itself. Index access is O(1). A list made while an
// arena's scope is open keeps its array in that arena (see kov/platform/arena.h).
#ifndef KOV_PACK_PKENTRYLIST_H
#define KOV_PACK_PKENTRYLIST_H

#include <memory>
#include <vector>

#include "kov/pack/pkentry.h"

class CKovPkEntryList {
 public:
  CKovPkEntryList() = default;
  virtual ~CKovPkEntryList();
  // Made in the arena of an open scope, or on the heap (see kov/platform/arena.h).
  static void* operator new(size_t size) { return kovArenaNew(size); }
  static void operator delete(void* p, size_t size) noexcept { kovArenaDelete(p, size); }
  CKovPkEntryList(const CKovPkEntryList&) = delete;
  CKovPkEntryList& operator=(const CKovPkEntryList&) = delete;

  // Appends entry and takes ownership of it.
  void AddTail(CKovPkEntry* entry);
  int GetCount() const { return static_cast<int>(entries.size()); }
  bool IsEmpty() const { return entries.empty(); }
  // The entry at index (from 0), or null outside the list.
  const CKovPkEntry* GetAt(int index) const {
    return index >= 0 && static_cast<size_t>(index) < entries.size() ? entries[index] : nullptr;
  }

  using Entries = std::vector<CKovPkEntry*, KovArenaAllocator<CKovPkEntry*>>;
  Entries::const_iterator begin() const { return entries.begin(); }
  Entries::const_iterator end() const { return entries.end(); }

 private:
  Entries entries;
};

#endif  // KOV_PACK_PKENTRYLIST_H
