// ListFormat and KovListAttribStruct: how a list finds its entry quantity, and the attributes the
// application fills to make a list field layout.
//
// The constructor of CKovListFieldLayout copies what it needs; the structure is not kept. Copying
// and assigning copy every member. Never throws.
#ifndef KOV_LAYOUT_LISTATTRIB_H
#define KOV_LAYOUT_LISTATTRIB_H

#include <cstdint>

class CKovUp;
class CKovBlkLayout;

// Where a list's entry quantity (LEQ) comes from. Values outside 0 to 6 are no format, and
// kovValidateSglListParms reports them: the fixed underlying type keeps them defined.
enum ListFormat : int {
  FixedSzNoLeq = 0,     // always maxEntryQty entries; no LEQ field
  VarSzContigLeq = 1,   // LEQ field directly in front of the list, in the same data layout
  VarSzSameBlkLeq = 2,  // LEQ field anywhere in the list's block
  VarSzSplitLeq = 3,    // LEQ field in block leqBlkID
  VarSzCalcLeq = 4,     // the application's calcUnpackLEQ
  VarSzCalcLeqAlt = 5,  // as 4
  VarSzCfgLeq = 6       // the configuration LEQ of a KOV List Structure block
};

// The entry quantity of a calculated list (formats 4 and 5), asked by an unpack: the unpack at
// work, the list's block, the list's field id, the block instance number (from 1).
using KovCalcUnpackLEQFunc = uint32_t (*)(const CKovUp* up, const CKovBlkLayout* blkLayout,
                                          uint32_t listID, uint16_t instance);

struct KovListAttribStruct {
  // Every member 0 (format FixedSzNoLeq), calcUnpackLEQ null.
  KovListAttribStruct() = default;
  // The members in their order of declaration.
  KovListAttribStruct(uint32_t leqID, ListFormat listFormat, uint32_t maxEntryQty,
                      uint32_t auxValue, uint32_t entrySzInBits, uint16_t leqBlkID,
                      KovCalcUnpackLEQFunc calcUnpackLEQ)
      : leqID(leqID),
        listFormat(listFormat),
        maxEntryQty(maxEntryQty),
        auxValue(auxValue),
        entrySzInBits(entrySzInBits),
        leqBlkID(leqBlkID),
        calcUnpackLEQ(calcUnpackLEQ) {}
  KovListAttribStruct(const KovListAttribStruct&) = default;
  KovListAttribStruct& operator=(const KovListAttribStruct&) = default;
  virtual ~KovListAttribStruct() = default;

  uint32_t leqID = 0;  // field id of the LEQ field; 0: none
  ListFormat listFormat = FixedSzNoLeq;
  uint32_t maxEntryQty = 0;
  uint32_t auxValue = 0;       // carried along, read by nothing
  uint32_t entrySzInBits = 0;  // must not be 0
  uint16_t leqBlkID = 0;       // VarSzSplitLeq: the block of the LEQ field
  KovCalcUnpackLEQFunc calcUnpackLEQ = nullptr;
};

#endif  // KOV_LAYOUT_LISTATTRIB_H
