// Deep copies of field values and of the entries below them.
//
// The copy operations of CKovListField, CKovUnionField and KovDiscrInfo use these, so that a copy
// owns objects of its own and no two objects delete the same entry or value. Each function
// returns a new object that the caller owns, of the same class as its argument, with every list
// entry, union option and value below it copied in turn; null gives null. A value of a class the
// library does not know throws "Field %u is of a kind that can't be copied.". Running out of
// memory throws std::bad_alloc and leaves nothing behind.
#ifndef KOV_FIELDS_FIELDCOPY_H
#define KOV_FIELDS_FIELDCOPY_H

class CKovField;
class CKovPkEntry;
class CKovUpEntry;

CKovField* kovCopyField(const CKovField* field);
CKovPkEntry* kovCopyPkEntry(const CKovPkEntry* entry);
CKovUpEntry* kovCopyUpEntry(const CKovUpEntry* entry);

#endif  // KOV_FIELDS_FIELDCOPY_H
