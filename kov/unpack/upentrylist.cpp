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
