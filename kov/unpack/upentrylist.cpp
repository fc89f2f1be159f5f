#include "kov/unpack/upentrylist.h"

CKovUpEntryList::~CKovUpEntryList() {
  for (CKovUpEntry* entry : entries) delete entry;
}

void CKovUpEntryList::AddTail(CKovUpEntry* entry) {
  try {
    entries.push_back(entry);
  } catch (...) {
    delete entry;
    throw;
  }
}

void CKovUpEntryList::MoveAllTo(CKovUpEntryList* target) {
  // No exact reserve: the vector's own growth keeps a long chain of joins linear.
  target->entries.insert(target->entries.end(), entries.begin(), entries.end());
  entries.clear();
}
