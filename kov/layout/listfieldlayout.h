// CKovListFieldLayout: a run of like entries, each laid out by one entry data layout.
//
// The format (ListFormat) says where the entry quantity (LEQ) comes from. A FixedSzNoLeq list is
// always maxEntryQty entries of entrySzInBits and GetLengthInBits is their product; every other
// list has GetLengthInBits 0 and takes entrySzInBits × its quantity in an image. The list owns its
// entry data layout (ListEntryLayout, not block level, dataLayoutID = the list's id) and deletes
// it. The constructor checks nothing; kovValidateSglListParms advises through message boxes.
// Nothing here throws.
#ifndef KOV_LAYOUT_LISTFIELDLAYOUT_H
#define KOV_LAYOUT_LISTFIELDLAYOUT_H

#include <cstdint>

#include "kov/layout/fieldlayout.h"
#include "kov/layout/listattrib.h"

class CKovListFieldLayout : public CKovFieldLayout {
  KOV_DECLARE_RUNTIME_CLASS(CKovListFieldLayout)

 public:
  // A list with the format, quantities and callback of attrib; entryDataLayout passes to it.
  CKovListFieldLayout(uint32_t fieldID, uint32_t byteOffset, uint8_t msbStart,
                      const KovListAttribStruct& attrib, bool hasFixedAddr,
                      uint32_t numBitsOffsetFromPrevFieldEnd,
                      const CKovDataLayout* parentDataLayout, CKovDataLayout* entryDataLayout);
  // Deletes the entry data layout.
  ~CKovListFieldLayout() override;

  // True only for FixedSzNoLeq.
  bool IsFixedSz() const override { return isFixedSz; }

  // The members as constructed.
  uint32_t GetListID() const { return listID; }
  uint32_t GetLeqID() const { return leqID; }
  ListFormat GetListFormat() const { return listFormat; }
  uint32_t GetMaxEntryQty() const { return maxEntryQty; }
  uint32_t GetEntrySzInBits() const { return entrySzInBits; }
  // The block of the LEQ field; meaningful only when HasSplitLEQ (0 otherwise).
  uint16_t GetLeqBlkID() const { return leqBlkID; }
  // The entry data layout.
  CKovDataLayout* GetDataLayout() const { return entryDataLayout; }
  KovCalcUnpackLEQFunc GetCalcUnpackLEQ() const { return calcUnpackLEQ; }
  // True when the quantity is not simply maxEntryQty (also for the calculated formats).
  bool HasPresentLEQ() const { return hasPresentLeq; }
  bool HasAbsentLEQ() const { return !hasPresentLeq; }
  // True when the quantity is constant or read from a field, not calculated.
  bool HasConstLEQ() const { return hasConstLeq; }
  bool HasCalcLEQ() const { return !hasConstLeq; }
  // True when the LEQ field lies in another block (leqBlkID).
  bool HasSplitLEQ() const { return hasSplitLeq; }

  // Format predicates, by the table of ListFormat. Every one answers false for a value outside
  // 0 to 6 except the two negations IsVarSzFormat and IsCalculatedFormat.
  static bool IsFixedSzFormat(ListFormat format);
  static bool IsVarSzFormat(ListFormat format);
  static bool IsPresentFormat(ListFormat format);
  static bool IsConstFormat(ListFormat format);
  static bool IsCalculatedFormat(ListFormat format);
  static bool IsSplitFormat(ListFormat format);

 protected:
  bool hasPresentLeq;
  bool hasConstLeq;
  bool hasSplitLeq;
  bool isFixedSz;
  ListFormat listFormat;
  uint32_t listID;
  uint32_t leqID;
  uint32_t maxEntryQty;
  uint32_t entrySzInBits;
  uint16_t leqBlkID;
  CKovDataLayout* entryDataLayout;
  KovCalcUnpackLEQFunc calcUnpackLEQ;
};

// Advises on a list's attributes before the list is made, through message boxes only:
//   entry size 0: "Invalid entry size specified for list field %d (see block %d)", and nothing
//     else is looked at;
//   format 4 or 5 without calcUnpackLEQ: "Function to calculate LEQ must be specified for list %d
//     (see block %d)" (one line);
//   any format outside 0 to 6: "Invalid format specified for list %d (see block %d.".
// addToVerificationMap becomes true for formats 1 to 3 (the list's LEQ field must be verified),
// false for 0, 6 and a calculated format with its function; it is left alone after a message.
void kovValidateSglListParms(uint32_t listID, const KovListAttribStruct& attrib, uint16_t blkID,
                             bool& addToVerificationMap);

#endif  // KOV_LAYOUT_LISTFIELDLAYOUT_H
