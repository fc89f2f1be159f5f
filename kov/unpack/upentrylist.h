// CKovUpEntryList: the unpacked entries of a block (one per instance) or of a list, in order.
// Owns its entries. Index access is O(1).
#ifndef KOV_UNPACK_UPENTRYLIST_H
#define KOV_UNPACK_UPENTRYLIST_H

#include <vector>

#include "kov/unpack/upentry.h"

class CKovUpEntryList {
 public:
  CKovUpEntryList() = default;
  virtual ~CKovUpEntryList();
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

  std::vector<CKovUpEntry*>::const_iterator begin() const { return entries.begin(); }
  std::vector<CKovUpEntry*>::const_iterator end() const { return entries.end(); }

 private:
  std::vector<CKovUpEntry*> entries;
};

#endif  // KOV_UNPACK_UPENTRYLIST_H
