// CKovPkEntryList: the entries of a block (one per instance) or of a list value, in order.
//
// Owns its entries and deletes them with itself. Index access is O(1).
#ifndef KOV_PACK_PKENTRYLIST_H
#define KOV_PACK_PKENTRYLIST_H

#include <memory>
#include <vector>

#include "kov/pack/pkentry.h"

class CKovPkEntryList {
 public:
  CKovPkEntryList() = default;
  virtual ~CKovPkEntryList();
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

  std::vector<CKovPkEntry*>::const_iterator begin() const { return entries.begin(); }
  std::vector<CKovPkEntry*>::const_iterator end() const { return entries.end(); }

 private:
  std::vector<CKovPkEntry*> entries;
};

#endif  // KOV_PACK_PKENTRYLIST_H
