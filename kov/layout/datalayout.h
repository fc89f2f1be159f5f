// CKovDataLayout: the ordered set of field layouts that describes one entry, and its measuring.
//
// An entry is the data of a block, one entry of a list or the content of a union option. Fields
// are keyed by their 32-bit id; each field also records the id of the field before it (the first
// field records its own id) and the position the caller gave. Ids must be unique within a data
// layout; nothing checks that. All maps iterate in CKovMap order.
//
// Ownership: AddField hands the field layout to the data layout, whose destructor deletes every
// layout in the field map (each distinct object once). A layout displaced by a second AddField of
// its id is no longer the data layout's: it returns to the caller. A field only points back at
// its data layout. Lookups are const and hand out plain pointers: layouts are
// read-only once verified, and readers hold them as const.
//
// Measuring, in bits from the entry start (bit index = byte × 8 + 7 − MSB):
//   start of a fixed field    = byteOffset × 8 + (layout msbStart − field msbStart)
//   start of a floating field = start of the previous field + its measured size + the gap;
//                               for the first field of the layout, the gap alone
//   size of a layout          = start of the field added last + its measured size (0 if empty)
// The measured size of a field is the image size of its value in the map of field values when
// there is one of 0 bits or more, else GetLengthInBits for a fixed-size layout, else 0.
// Example: A 12 bits fixed at byte 0 MSB 7, B 3 bits floating gap 1 after A, C two Char8Bit
// characters floating gap 0 after B: A 0..12, B 13..16, C 16..32, size 32 bits.
#ifndef KOV_LAYOUT_DATALAYOUT_H
#define KOV_LAYOUT_DATALAYOUT_H

#include <cstdint>
#include <list>
#include <utility>
#include <vector>

#include "kov/platform/kovmap.h"

class CKovFieldLayout;

// The kind of a data layout. The application chooses its values; the library only tests
// ListEntryLayout, the data layout of one list entry. Any int is a valid value.
enum LayoutType : int { ListEntryLayout = 2 };

// A data layout is itself the map of its own fields, field id -> field layout (owned).
class CKovDataLayout : public CKovMap<uint32_t, CKovFieldLayout*> {
 public:
  // Stores its arguments. dataLayoutID is the id of the complex field that owns a layout that is
  // not block level; startByteOffset is only handed back.
  CKovDataLayout(LayoutType layoutType, uint32_t startByteOffset, uint8_t msbStart,
                 uint32_t dataLayoutID, bool blockLevel);
  // Deletes every field layout added.
  virtual ~CKovDataLayout();

  CKovDataLayout(const CKovDataLayout&) = delete;
  CKovDataLayout& operator=(const CKovDataLayout&) = delete;

  // Adds fieldLayout (ownership passes) under fieldID, after prevFieldID (0: fieldID is the first
  // field of the layout and is recorded as its own predecessor), with the caller's position.
  // Appends fieldID to the order of adding. Checks nothing; a second add of one id replaces its
  // map entries, appends it again and hands the displaced layout back to the caller. Never throws
  // but for exhausted memory.
  void AddField(uint32_t fieldID, uint32_t prevFieldID, CKovFieldLayout* fieldLayout,
                int32_t position);

  // The layout of fieldID in this layout; else the first hit of a search through the complex
  // fields in map order (every option of a union, the entry of a list), at any depth; else null.
  CKovFieldLayout* GetFieldLayout(uint32_t fieldID) const {
    CKovFieldLayout* const* found = PLookup(fieldID);
    return found != nullptr && *found != nullptr ? *found : FindInComplexFields(fieldID);
  }

  // The id of the field before fieldID. fieldID itself when it is the first field or unknown.
  uint32_t GetPrevFieldID(uint32_t fieldID) const;

  // The id added last; 0 for an empty layout.
  uint32_t GetIDOfLastFieldInLayout() const;

  // 1 and the position given to AddField; 0, position untouched, when fieldID is not here.
  int GetFieldPositionInLayout(uint32_t fieldID, int32_t& position) const;

  // The field ids in the order of AddField.
  const std::list<uint32_t>& GetOrderedFieldIDsList() const { return orderedFieldIDs; }
  // The same ids with the layout each has in the map, in one array for the walks of an unpack;
  // kept by AddField. Whether no id was added twice.
  using OrderedField = std::pair<uint32_t, CKovFieldLayout*>;
  const std::vector<OrderedField>& GetOrderedFields() const { return orderedFields; }
  bool HasUniqueFieldIDs() const { return uniqueFieldIDs; }

  // The fields directly in this layout, by id.
  const CKovMap<uint32_t, CKovFieldLayout*>& GetFieldMap() const { return *this; }

  // The constructor's arguments.
  LayoutType GetLayoutType() const { return layoutType; }
  bool IsBlockLevel() const { return blockLevel; }
  uint32_t GetDataLayoutID() const { return dataLayoutID; }
  uint32_t GetStartByteOffset() const { return startByteOffset; }
  uint8_t GetMsbStart() const { return msbStart; }

 protected:
  // The search of GetFieldLayout through the complex fields, for an id not directly here.
  CKovFieldLayout* FindInComplexFields(uint32_t fieldID) const;

  CKovMap<uint32_t, int32_t> positionMap;
  std::list<uint32_t> orderedFieldIDs;
  std::vector<OrderedField> orderedFields;
  CKovMap<uint32_t, uint32_t> prevFieldMap;
  LayoutType layoutType;
  bool blockLevel;
  uint32_t dataLayoutID;
  uint32_t startByteOffset;
  uint8_t msbStart;
  bool uniqueFieldIDs = true;
};

// The size of dataLayout in bits from the entry start: the end of the field added last, measured
// against fieldValueMap (a map of pack or unpack fields of kind mapKind, or null for the nominal
// size). 0 for an empty layout. Throws the text of kovCalcFloatingFldBitOffsetFromEntryStart.
uint32_t kovCalculateDataLayoutSzInBits(const CKovDataLayout* dataLayout, const void* fieldValueMap,
                                        int mapKind);

// The start of floating field fieldLayout in bits from the entry start of dataLayout, following
// the chain of previous fields back to the first field or the nearest fixed one. A previous id
// that the layout cannot find counts as a field that ends at the entry start. A chain of previous
// fields that loops throws CMevGenException (code 0) "Previous fields of field %u in a data
// layout form a loop."
uint32_t kovCalcFloatingFldBitOffsetFromEntryStart(const void* fieldValueMap,
                                                   const CKovDataLayout* dataLayout,
                                                   const CKovFieldLayout* fieldLayout, int mapKind);

#endif  // KOV_LAYOUT_DATALAYOUT_H
