#include "kov/fields/listfield.h"

#include "kov/fields/fieldcopy.h"
#include "kov/fields/numfield.h"
#include "kov/fields/primitiveio.h"
#include "kov/image/image.h"
#include "kov/layout/blklayout.h"
#include "kov/layout/cplayout.h"
#include "kov/layout/datalayout.h"
#include "kov/layout/klsblklayout.h"
#include "kov/layout/listfieldlayout.h"
#include "kov/pack/pk.h"
#include "kov/pack/pkentrylist.h"
#include "kov/pack/pkpatchmap.h"
#include "kov/platform/format.h"
#include "kov/platform/mevgenexception.h"
#include "kov/unpack/up.h"
#include "kov/unpack/upblkinstance.h"
#include "kov/unpack/upentrylist.h"

namespace {

const CKovListFieldLayout* asListLayout(const CKovFieldLayout* layout) {
  return layout != nullptr && layout->IsKindOf(KOV_RUNTIME_CLASS(CKovListFieldLayout))
             ? static_cast<const CKovListFieldLayout*>(layout)
             : nullptr;
}

const CKovField* placedField(const KovFieldsMap& fieldsMap, uint32_t id) {
  const CKovField* const* found = fieldsMap.PLookup(id);
  return found != nullptr ? *found : nullptr;
}

uint64_t linearIndex(uint32_t byte, uint8_t msb) { return uint64_t{byte} * 8 + 7 - msb; }

}  // namespace

void kovCheckKLSListQty(const char* listName, uint32_t listEntryQty, uint16_t maxLeq) {
  if (listEntryQty > maxLeq) {
    throw new CMevGenException(
        kovFormat("List %s holds %u entries, more than the maximum of %u its pack data gives.",
                  listName, listEntryQty, static_cast<unsigned>(maxLeq)),
        0);
  }
}

CKovListField::CKovListField(uint32_t fieldID, uint32_t listEntryQty, uint16_t maxLeq,
                             CKovPkEntryList* pkEntryList)
    : CKovComplexField(fieldID),
      listID(fieldID),
      listEntryQty(listEntryQty),
      maxLeq(maxLeq),
      pkEntryList(pkEntryList != nullptr ? pkEntryList : new CKovPkEntryList()) {}

CKovListField::CKovListField(uint32_t fieldID, uint32_t listEntryQty,
                             CKovUpEntryList* upEntryList)
    : CKovComplexField(fieldID),
      listID(fieldID),
      listEntryQty(listEntryQty),
      upEntryList(upEntryList != nullptr ? upEntryList : new CKovUpEntryList()) {}

CKovListField::CKovListField(const CKovUp* up, const CKovBlkLayout* blkLayout,
                             uint32_t entryStartByte, uint8_t entryMsbStart,
                             CKovUpPatchMap* patchMap, const CKovFieldLayout* layout,
                             uint32_t lastBit, KovFieldsMap& fieldsMap, UpStatus& status,
                             uint32_t fieldID, uint16_t instance)
    : CKovComplexField(fieldID), listID(fieldID), upEntryList(new CKovUpEntryList()) {
  status = UpDone;
  const CKovListFieldLayout* listLayout = asListLayout(layout);
  if (listLayout == nullptr) {
    status = UpFailed;
    return;
  }
  if (!UnpackLEQ(up, listLayout, blkLayout, fieldsMap, instance)) {
    status = UpDeferred;
    return;
  }
  up->XmlAddStartTagLine("<List>");
  UnpackListField(up, listLayout, blkLayout, entryStartByte, entryMsbStart, lastBit, patchMap,
                  instance, fieldsMap, status);
  up->XmlAddEndTagLine("</List>");
}

CKovListField::CKovListField(const CKovListField& other)
    : CKovComplexField(other),
      listID(other.listID),
      listEntryQty(other.listEntryQty),
      maxLeq(other.maxLeq) {
  if (other.pkEntryList) {
    pkEntryList = std::make_unique<CKovPkEntryList>();
    for (const CKovPkEntry* entry : *other.pkEntryList) {
      pkEntryList->AddTail(kovCopyPkEntry(entry));
    }
  }
  if (other.upEntryList) {
    upEntryList = std::make_unique<CKovUpEntryList>();
    for (const CKovUpEntry* entry : *other.upEntryList) {
      upEntryList->AddTail(kovCopyUpEntry(entry));
    }
  }
}

CKovListField& CKovListField::operator=(const CKovListField& other) {
  if (this == &other) return *this;
  CKovListField copy(other);
  CKovComplexField::operator=(other);
  listID = copy.listID;
  listEntryQty = copy.listEntryQty;
  maxLeq = copy.maxLeq;
  pkEntryList.swap(copy.pkEntryList);
  upEntryList.swap(copy.upEntryList);
  return *this;
}

CKovListField::~CKovListField() { Cleanup(); }

void CKovListField::Cleanup() {
  pkEntryList.reset();
  upEntryList.reset();
}

void CKovListField::AddEntryToList(CKovPkEntry* entry) {
  if (!pkEntryList) pkEntryList.reset(new CKovPkEntryList());
  pkEntryList->AddTail(entry);
}

CKovUpEntryList* CKovListField::GetUpEntryList(const CKovUpDistKLSBlkInst*) {
  if (!upEntryList) upEntryList.reset(new CKovUpEntryList());
  return upEntryList.get();
}


PkStatus CKovListField::WriteToImage(const CKovPk* pk, CKovImage* image, uint32_t entryStartByte,
                                     uint8_t entryMsbStart, KovFieldsMap* fieldsMap,
                                     const CKovFieldLayout* layout, const CKovCpLayout* cpLayout,
                                     uint16_t blkID, int instance) const {
  const CKovListFieldLayout* listLayout = asListLayout(layout);
  if (listLayout == nullptr) return PkFailed;
  if (!GetPackAddr(layout, fieldsMap, entryStartByte, entryMsbStart, blkID, byteOffsetInImage,
                   startMsbInImage)) {
    return PkDeferred;
  }
  if (!WriteFieldDataToImage(pk, image, fieldsMap, listLayout, cpLayout, blkID, instance)) {
    return PkFailed;
  }
  if (!listLayout->HasConstLEQ() || !listLayout->HasPresentLEQ() ||
      listLayout->GetListFormat() == VarSzCfgLeq) {
    return PkDone;
  }
  return WriteLeqToImage(pk, image, cpLayout, entryStartByte, entryMsbStart, fieldsMap, blkID,
                         listLayout, instance)
             ? PkDone
             : PkFailed;
}

PkStatus CKovListField::PatchFieldInImage(const CKovPk* pk, CKovImage* image,
                                          KovFieldsMap* fieldsMap, const CKovFieldLayout* layout,
                                          const CKovCpLayout* cpLayout, uint16_t blkID,
                                          int instance, uint32_t byte, uint8_t msbStart) const {
  const CKovListFieldLayout* listLayout = asListLayout(layout);
  if (listLayout == nullptr) return PkFailed;
  return WriteAtAddr(byte, msbStart, [&] {
    return WriteFieldDataToImage(pk, image, fieldsMap, listLayout, cpLayout, blkID, instance);
  });
}

int CKovListField::WriteFieldDataToImage(const CKovPk* pk, CKovImage* image,
                                         KovFieldsMap* fieldsMap,
                                         const CKovListFieldLayout* layout,
                                         const CKovCpLayout* cpLayout, uint16_t blkID,
                                         int instance) const {
  int count = pkEntryList ? pkEntryList->GetCount() : 0;
  if (static_cast<uint32_t>(count) != listEntryQty) {
    throw new CMevGenException(
        kovFormat("Number of entries in List field %s does not match pack quantity of %d.",
                  fieldName->c_str(), static_cast<int>(listEntryQty)),
        0);
  }
  // A KLS list is bound by the maximum its configuration records, the pack data's.
  if (layout->GetListFormat() == VarSzCfgLeq) {
    kovCheckKLSListQty(fieldName->c_str(), listEntryQty, maxLeq);
  } else if (listEntryQty > layout->GetMaxEntryQty()) {
    // Entries beyond the layout's maximum would run into the fields that follow the list.
    throw new CMevGenException(
        kovFormat("List %s holds %u entries, more than the %u its layout allows.",
                  fieldName->c_str(), listEntryQty, layout->GetMaxEntryQty()),
        0);
  }
  if (!pkEntryList) return 1;
  uint32_t byte = byteOffsetInImage;
  uint8_t msb = startMsbInImage;
  for (const CKovPkEntry* entry : *pkEntryList) {
    entry->WriteToImage(pk, image, byte, msb, fieldsMap, layout->GetDataLayout(), cpLayout, blkID,
                        instance);
    kovUpdateAsPerByteSpread(byte, msb, layout->GetEntrySzInBits());
  }
  return 1;
}

int CKovListField::WriteLeqToImage(const CKovPk* pk, CKovImage* image,
                                   const CKovCpLayout* cpLayout, uint32_t entryStartByte,
                                   uint8_t entryMsbStart, KovFieldsMap* fieldsMap, uint16_t blkID,
                                   const CKovListFieldLayout* layout, int instance) const {
  if (!layout->HasSplitLEQ()) {
    const CKovDataLayout* parent = layout->GetParentDataLayout();
    CKovFieldLayout* const* leqLayout =
        parent != nullptr ? parent->GetFieldMap().PLookup(layout->GetLeqID()) : nullptr;
    uint32_t byte = 0;
    uint8_t msb = 0;
    if (leqLayout != nullptr && *leqLayout != nullptr &&
        GetPackAddr(*leqLayout, fieldsMap, entryStartByte, entryMsbStart, blkID, byte, msb)) {
      uint32_t bits = (*leqLayout)->GetLengthInBits();
      // A quantity wider than its field would be cut silently and read back wrong.
      if (bits > 32 || kovNumBitsRequiredToStoreValue(listEntryQty) > bits) return 0;
      return kovWriteBitsToImage(image, byte, msb, listEntryQty, static_cast<uint8_t>(bits));
    }
  }
  AddLeqFieldToPatchMap(pk, cpLayout, layout, blkID, instance);
  return 1;
}

void CKovListField::AddLeqFieldToPatchMap(const CKovPk* pk, const CKovCpLayout* cpLayout,
                                          const CKovListFieldLayout* layout, uint16_t blkID,
                                          int instance) const {
  uint16_t leqBlkID = layout->HasSplitLEQ() ? layout->GetLeqBlkID() : blkID;
  const CKovFieldLayout* leqLayout =
      cpLayout != nullptr ? cpLayout->GetFieldLayout(leqBlkID, layout->GetLeqID()) : nullptr;
  if (leqLayout == nullptr) {
    throw new CMevGenException(
        kovFormat("Field layout for LEQ field referenced by list %s not found", fieldName->c_str()),
        0);
  }
  const CKovBlkLayout* leqBlk = cpLayout->GetBlkLayout(leqBlkID);
  const CKovBlkLayout* ownBlk = cpLayout->GetBlkLayout(blkID);
  int leqInstance = 1;
  if (leqBlk != nullptr && leqBlk->IsMultiInstanceBlk()) {
    if (ownBlk == nullptr || !ownBlk->IsMultiInstanceBlk()) {
      throw new CMevGenException(kovFormat("Anchor field (%s) in Single Instance block references "
                                           "split field in Multiple Instance block.",
                                           fieldName->c_str()),
                                 0);
    }
    leqInstance = instance;
  }
  uint32_t bits = leqLayout->GetLengthInBits();
  if (bits > 32 || kovNumBitsRequiredToStoreValue(listEntryQty) > bits) {
    throw new CMevGenException(kovFormat("LEQ %u of list %s does not fit in the %u bits of its "
                                         "LEQ field.",
                                         listEntryQty, fieldName->c_str(), bits),
                               0);
  }
  auto leq = std::make_unique<CKovNumField>(listEntryQty, layout->GetLeqID(), bits);
  pk->GetPatchMap()->AddField(pk, leq.get(), leqLayout, leqBlkID,
                              static_cast<uint16_t>(leqInstance), true);
  leq.release();
}


bool CKovListField::UnpackLEQ(const CKovUp* up, const CKovListFieldLayout* layout,
                              const CKovBlkLayout* blkLayout, const KovFieldsMap& fieldsMap,
                              uint16_t instance) {
  if (!layout->HasConstLEQ()) {
    GetCalculatedLeq(up, layout, blkLayout, instance);
    return true;
  }
  if (layout->HasSplitLEQ() && layout->GetLeqBlkID() != blkLayout->GetBlkID()) {
    return GetSplitBlockLeq(up, layout, instance);
  }
  return GetSameBlockLeq(layout, fieldsMap);
}

void CKovListField::GetCalculatedLeq(const CKovUp* up, const CKovListFieldLayout* layout,
                                     const CKovBlkLayout* blkLayout, uint16_t instance) {
  KovCalcUnpackLEQFunc calc = layout->GetCalcUnpackLEQ();
  if (calc == nullptr) {
    throw new CMevGenException(
        kovFormat("Not user function found for calculating entry quantity for list %d in block %s",
                  fieldID, blkLayout->GetBlkName().c_str()),
        0);
  }
  // The application's function runs outside the unpack's arena: what it makes is its own.
  KovArenaPause pause;
  listEntryQty = calc(up, blkLayout, fieldID, instance);
}

bool CKovListField::GetSameBlockLeq(const CKovListFieldLayout* layout,
                                    const KovFieldsMap& fieldsMap) {
  if (!layout->HasPresentLEQ()) {
    listEntryQty = layout->GetMaxEntryQty();
    return true;
  }
  return kovNumericValueOf(placedField(fieldsMap, layout->GetLeqID()), listEntryQty);
}

bool CKovListField::GetSplitBlockLeq(const CKovUp* up, const CKovListFieldLayout* layout,
                                     uint16_t instance) {
  const KovUpBlkInstArr* const* instances = up->GetUpBlksList().PLookup(layout->GetLeqBlkID());
  if (instances == nullptr || *instances == nullptr || (*instances)->empty()) return false;
  const CKovBlkLayout* leqBlk = up->GetBlkLayout(layout->GetLeqBlkID());
  uint16_t n = leqBlk != nullptr && leqBlk->IsMultiInstanceBlk() ? instance : 1;
  if (n == 0 || n >= (*instances)->size() || (**instances)[n] == nullptr) return false;
  return kovNumericValueOf(placedField((**instances)[n]->GetUpFieldMap(), layout->GetLeqID()),
                           listEntryQty);
}

void CKovListField::UnpackListField(const CKovUp* up, const CKovListFieldLayout* layout,
                                    const CKovBlkLayout* blkLayout, uint32_t entryStartByte,
                                    uint8_t entryMsbStart, uint32_t lastBit,
                                    CKovUpPatchMap* patchMap, uint16_t instance,
                                    KovFieldsMap& fieldsMap, UpStatus& status) {
  if (!GetUnpackAddr(layout, entryStartByte, entryMsbStart, fieldsMap, byteOffsetInImage,
                     startMsbInImage)) {
    status = UpDeferred;
    return;
  }
  if (listEntryQty == 0) {
    imageSize = 0;
    return;
  }
  UnpackListEntries(up, layout, blkLayout, lastBit, patchMap, instance, fieldsMap, status);
}

void CKovListField::UnpackListEntries(const CKovUp* up, const CKovListFieldLayout* layout,
                                      const CKovBlkLayout* blkLayout, uint32_t lastBit,
                                      CKovUpPatchMap* patchMap, uint16_t instance,
                                      KovFieldsMap& fieldsMap, UpStatus& status) {
  uint32_t entrySzInBits = 0;
  if (!blkLayout->IsKLSBlk()) {
    entrySzInBits = layout->GetEntrySzInBits();
  } else {
    uint32_t ledSz = 0;
    const KovFieldsMap* ledFields = &fieldsMap;
    if (blkLayout->IsDistKLS()) {
      // A listlet has no LED size of its own: it stands in the list's header block instance.
      ledFields = nullptr;
      uint16_t hdrID = static_cast<uint16_t>(
          static_cast<const CKovKLSBlkLayout*>(blkLayout)->GetHdrBlkID());
      const KovUpBlkInstArr* const* hdrs = up->GetUpBlksList().PLookup(hdrID);
      if (hdrs != nullptr && *hdrs != nullptr && instance < (*hdrs)->size() &&
          (**hdrs)[instance] != nullptr) {
        ledFields = &(**hdrs)[instance]->GetUpFieldMap();
      }
    }
    if (ledFields != nullptr &&
        kovNumericValueOf(placedField(*ledFields, CKovKLSBlkLayout::m_ledSzFldID), ledSz)) {
      entrySzInBits = ledSz * 8;
    }
  }
  if (entrySzInBits == 0) {
    throw new CMevGenException(kovFormat("Unable to determine LED size for list %d in\nblock %s",
                                         fieldID, blkLayout->GetBlkName().c_str()),
                               0);
  }
  uint64_t first = linearIndex(byteOffsetInImage, startMsbInImage);
  uint64_t listBits = uint64_t{listEntryQty} * entrySzInBits;
  imageSize = listBits > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(listBits);
  uint64_t entryLast = first + entrySzInBits - 1;
  if (entryLast > lastBit) {
    status = UpOutsideBlkData;
    return;
  }
  // The entries may read on past the block's data, but never past the image: a quantity read
  // from a damaged image must not drive the loop beyond what the image holds.
  uint64_t imageBits = uint64_t{up->GetImage()->GetSize()} * 8;
  if (first + listBits > imageBits) {
    throw new CMevGenException(
        kovFormat("List %d in block %s [%d] holds %u entries of %u bits, which run past the end "
                  "of the image.",
                  fieldID, blkLayout->GetBlkName().c_str(), instance, listEntryQty,
                  entrySzInBits),
        0);
  }
  uint32_t byte = byteOffsetInImage;
  uint8_t msb = startMsbInImage;
  // Bounded by listEntryQty, which the test above holds to the bits of the image.
  for (uint32_t i = 0; i < listEntryQty; ++i) {
    up->XmlAddStartTagLine("<LED>");
    std::unique_ptr<CKovUpEntry> entry(new CKovUpEntry(up, byte, msb, patchMap, instance,
                                                       layout->GetDataLayout(), blkLayout,
                                                       static_cast<uint32_t>(entryLast), fieldsMap,
                                                       status));
    if (status != UpDone) {
      if (!blkLayout->IsKLSBlk()) {
        // The entry goes, and with it the fields it placed in the instance's map. Its <LED> is
        // closed all the same, so that the report stays well-formed XML.
        kovForgetFields(entry.get(), fieldsMap);
        up->XmlAddEndTagLine("</LED>");
        return;
      }
      // The entries of a KLS list may be shorter than their layout.
      status = UpDone;
    }
    upEntryList->AddTail(entry.release());
    kovUpdateAsPerByteSpread(byte, msb, entrySzInBits);
    entryLast = linearIndex(byte, msb) + entrySzInBits - 1;
    up->XmlAddEndTagLine("</LED>");
  }
}
