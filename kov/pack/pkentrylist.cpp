#include "kov/pack/pkentrylist.h"

CKovPkEntryList::~CKovPkEntryList() {
  for (CKovPkEntry* entry : entries) delete entry;
}

void CKovPkEntryList::AddTail(CKovPkEntry* entry) {
  try {
    entries.push_back(entry);
  } catch (...) {
    delete entry;
    throw;
  }
}
