#include "kov/layout/listfieldlayout.h"

#include "kov/layout/datalayout.h"
#include "kov/platform/format.h"
#include "kov/platform/msgbox.h"

KOV_IMPLEMENT_RUNTIME_CLASS(CKovListFieldLayout, CKovFieldLayout)

CKovListFieldLayout::CKovListFieldLayout(uint32_t fieldID, uint32_t byteOffset, uint8_t msbStart,
                                         const KovListAttribStruct& attrib, bool hasFixedAddr,
                                         uint32_t numBitsOffsetFromPrevFieldEnd,
                                         const CKovDataLayout* parentDataLayout,
                                         CKovDataLayout* entryDataLayout)
    : CKovFieldLayout(fieldID, byteOffset, 0, msbStart, hasFixedAddr, true,
                      numBitsOffsetFromPrevFieldEnd, parentDataLayout),
      hasPresentLeq(IsPresentFormat(attrib.listFormat)),
      hasConstLeq(IsConstFormat(attrib.listFormat)),
      hasSplitLeq(IsSplitFormat(attrib.listFormat)),
      isFixedSz(IsFixedSzFormat(attrib.listFormat)),
      listFormat(attrib.listFormat),
      listID(fieldID),
      leqID(attrib.leqID),
      maxEntryQty(attrib.maxEntryQty),
      entrySzInBits(attrib.entrySzInBits),
      leqBlkID(hasSplitLeq ? attrib.leqBlkID : 0),
      entryDataLayout(entryDataLayout),
      calcUnpackLEQ(attrib.calcUnpackLEQ) {
  if (isFixedSz) lengthInBits = entrySzInBits * maxEntryQty;
}

CKovListFieldLayout::~CKovListFieldLayout() { delete entryDataLayout; }

bool CKovListFieldLayout::IsFixedSzFormat(ListFormat format) { return format == FixedSzNoLeq; }

bool CKovListFieldLayout::IsVarSzFormat(ListFormat format) { return !IsFixedSzFormat(format); }

bool CKovListFieldLayout::IsPresentFormat(ListFormat format) {
  return format >= VarSzContigLeq && format <= VarSzCfgLeq;
}

bool CKovListFieldLayout::IsConstFormat(ListFormat format) {
  switch (format) {
    case FixedSzNoLeq:
    case VarSzContigLeq:
    case VarSzSameBlkLeq:
    case VarSzSplitLeq:
    case VarSzCfgLeq:
      return true;
    default:
      return false;
  }
}

bool CKovListFieldLayout::IsCalculatedFormat(ListFormat format) { return !IsConstFormat(format); }

bool CKovListFieldLayout::IsSplitFormat(ListFormat format) { return format == VarSzSplitLeq; }

void kovValidateSglListParms(uint32_t listID, const KovListAttribStruct& attrib, uint16_t blkID,
                             bool& addToVerificationMap) {
  const int id = static_cast<int>(listID);
  if (attrib.entrySzInBits == 0) {
    kovMessageBox(
        kovFormat("Invalid entry size specified for list field %d (see block %d)", id, blkID));
    return;
  }
  switch (attrib.listFormat) {
    case FixedSzNoLeq:
    case VarSzCfgLeq:
      addToVerificationMap = false;
      break;
    case VarSzContigLeq:
    case VarSzSameBlkLeq:
    case VarSzSplitLeq:
      addToVerificationMap = true;
      break;
    case VarSzCalcLeq:
    case VarSzCalcLeqAlt:
      if (attrib.calcUnpackLEQ == nullptr) {
        kovMessageBox(kovFormat(
            "Function to calculate LEQ must be specified for list %d (see block %d)", id, blkID));
      } else {
        addToVerificationMap = false;
      }
      break;
    default:
      kovMessageBox(kovFormat("Invalid format specified for list %d (see block %d.", id, blkID));
      break;
  }
}
