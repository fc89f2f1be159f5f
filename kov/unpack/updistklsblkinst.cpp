#include "kov/unpack/updistklsblkinst.h"

#include <memory>

#include "kov/fields/listfield.h"
#include "kov/fields/namefield.h"
#include "kov/fields/numfield.h"
#include "kov/fields/primitiveio.h"
#include "kov/fields/unionfield.h"
#include "kov/image/image.h"
#include "kov/layout/blklayout.h"
#include "kov/layout/datalayout.h"
#include "kov/layout/klsblklayout.h"
#include "kov/layout/unionfieldlayout.h"
#include "kov/layout/unionlayoutopt.h"
#include "kov/pack/stdblk.h"
#include "kov/platform/format.h"
#include "kov/platform/mevgenexception.h"
#include "kov/unpack/up.h"
#include "kov/unpack/upentry.h"
#include "kov/unpack/upentrylist.h"

KOV_IMPLEMENT_RUNTIME_CLASS(CKovUpDistKLSBlkInst, CKovUpBlkInstance)

namespace {

[[noreturn]] void throwDist(const std::string& text) { throw new CMevGenException(text, 0); }

}  // namespace

CKovUpDistKLSBlkInst::CKovUpDistKLSBlkInst(const CKovUp* up, CKovUpPatchMap* patchMap,
                                           const CKovBlkLayout* blkLayout,
                                           const KovFieldsMap& hdrFields,
                                           const std::vector<uint32_t>* addresses, uint16_t blkID,
                                           uint16_t instance,
                                           const CKovMap<uint32_t, uint16_t>& kovNameToInstNum)
    : CKovUpBlkInstance(instance, blkID, 0), blkLayout(blkLayout) {
  const std::string name = blkLayout->GetBlkName();
  up->XmlStartBlkInstance(name, instance);
  kovID = blkLayout->IsMultiInstanceBlk() ? static_cast<uint16_t>(instance - 1)
                                          : blkLayout->GetKovID();
  upEntry = new CKovUpEntry(blkLayout->GetDataLayout());
  uint32_t next = GetKovNameOfNextListlet(hdrFields);
  // The pack writes at least one listlet per instance; a chain of none has no list to give.
  if (next == 0) {
    throwDist(kovFormat("Distributed KLS block %s [%d]: its header links to no listlet.",
                        name.c_str(), instance));
  }
  std::list<CKovUpBlkInstance*> listlets;
  try {
    // Each listlet of the walk is read at most once, so the chain ends within the number of
    // listlets the image holds.
    std::vector<bool> visited(addresses != nullptr ? addresses->size() : 0, false);
    while (next != 0) {
      up->XmlAddStartTagLine("<Listlet>");
      uint32_t address = GetAddrOfListlet(addresses, next, kovNameToInstNum);
      uint16_t n = 0;
      kovNameToInstNum.Lookup(next, n);
      if (visited[n]) {
        throwDist(kovFormat("Distributed KLS block %s [%d]: the chain of listlets returns to "
                            "listlet 0x%08X.",
                            name.c_str(), instance, next));
      }
      visited[n] = true;
      // A listlet on the chain of another header instance too: the chains cross, and reading it
      // again for every header would make a small image cost without bound.
      if (uint16_t other = up->ClaimListlet(n, instance)) {
        throwDist(kovFormat("Distributed KLS block %s: listlet 0x%08X is on the chains of header "
                            "instances %d and %d.",
                            name.c_str(), next, other, instance));
      }
      std::unique_ptr<CKovUpBlkInstance> listlet(
          UnpackListlet(up, up->GetImage(), patchMap, address, next));
      if (!listlet) throwDist("");
      listlets.push_back(listlet.get());
      listlet.release();
      up->XmlAddEndTagLine("</Listlet>");
    }
  } catch (CMevGenException* e) {
    if (e->GetMessage().empty()) {
      e->SetMessage(kovFormat("Unknown error occurred while attempting to unpack listlet with\nKOV "
                              "name 0x%x for Distributed KLS block %s [%d].",
                              next, name.c_str(), instance));
    }
    DeleteListletBlkInstances(listlets);
    throw;
  } catch (...) {
    DeleteListletBlkInstances(listlets);
    throw;
  }
  try {
    // The joined list is owned here until the instance's entry takes it.
    std::unique_ptr<const CKovField> listField(CreateSglListFldFromListlets(listlets));
    AddLinkFieldToBlkInstance();
    AddLeqFieldToBlkInstance(listField.get());
    AddListFieldToDistKLSBlkInst(listField.release());
  } catch (...) {
    DeleteListletBlkInstances(listlets);
    throw;
  }
  DeleteListletBlkInstances(listlets);
  up->XmlAddEndTagLine("</Block>");
}

uint32_t CKovUpDistKLSBlkInst::GetKovNameOfNextListlet(const KovFieldsMap& fields) const {
  const CKovField* const* link = fields.PLookup(CKovKLSBlkLayout::m_linkFldID);
  uint32_t value = 0;
  if (link == nullptr || !kovNumericValueOf(*link, value)) {
    throwDist(kovFormat("Attempting to unpack distributed block %s but link\nfield not found in "
                        "unpacked header block.",
                        blkLayout->GetBlkName().c_str()));
  }
  return value;
}

uint32_t CKovUpDistKLSBlkInst::GetAddrOfListlet(
    const std::vector<uint32_t>* addresses, uint32_t kovName,
    const CKovMap<uint32_t, uint16_t>& kovNameToInstNum) const {
  uint16_t n = 0;
  // The numbers of kovNameToInstNum count per block: a name of another block's listlet is no
  // listlet of this block.
  if ((kovName >> 16) != blkLayout->GetKovType() || !kovNameToInstNum.Lookup(kovName, n) ||
      addresses == nullptr || n == 0 || n >= addresses->size()) {
    throwDist(kovFormat("Unable to determine instance # of Distributed KLS item\n%s in the image.",
                        blkLayout->GetBlkName().c_str()));
  }
  return (*addresses)[n];
}

CKovUpBlkInstance* CKovUpDistKLSBlkInst::UnpackListlet(const CKovUp* up, const CKovImage* image,
                                                       CKovUpPatchMap* patchMap, uint32_t address,
                                                       uint32_t& kovName) const {
  uint16_t kovType = 0, id = 0, size = 0;
  image->GetBytes(address, kovType, 2);
  image->GetBytes(address + 2, id, 2);
  image->GetBytes(address + 4, size, 2);
  uint32_t found = kovGetKovName(kovType, id);
  if (found != kovName) {
    throwDist(kovFormat("Attempting to unpack Distributed KLS block %s [%d] which\nreferences "
                        "listlet with KOV name 0x%x at address 0x%x. However,\nblock at that "
                        "address has KOV name 0x%x.\n",
                        blkLayout->GetBlkName().c_str(), blkInstanceNum, kovName, address, found));
  }
  if (uint64_t{address} + CKovStdBlk::GetHdrSz() + size > image->GetSize()) {
    throwDist(kovFormat("Listlet 0x%08X of Distributed KLS block %s [%d] at offset %u runs past "
                        "the end of the image.",
                        kovName, blkLayout->GetBlkName().c_str(), blkInstanceNum, address));
  }
  auto listlet = std::make_unique<CKovUpNonDistBlkInst>(up, patchMap, blkLayout, address, id, size,
                                                        blkInstanceNum);
  kovName = GetKovNameOfNextListlet(listlet->GetUpFieldMap());
  return listlet.release();
}

const CKovField* CKovUpDistKLSBlkInst::GetKLSListField(const CKovUpEntry* entry) const {
  auto refuse = [this]() {
    throwDist(kovFormat("Attempting to unpack Distributed KLS block %s [%d] but\nencountered "
                        "invalid data.",
                        blkLayout->GetBlkName().c_str(), blkInstanceNum));
  };
  if (entry == nullptr ||
      entry->GetUpFieldMap().GetCount() != blkLayout->GetNumCfgFields() + 1) {
    refuse();
  }
  CKovUpField* const* last =
      entry->GetUpFieldMap().PLookup(blkLayout->GetDataLayout()->GetIDOfLastFieldInLayout());
  if (last == nullptr || *last == nullptr) refuse();
  const CKovField* f = (*last)->GetData();
  if (f->IsList()) return f;
  if (!f->IsUnion()) refuse();
  const CKovUpEntry* option = static_cast<const CKovUnionField*>(f)->GetUpEntry();
  if (option == nullptr || option->GetUpFieldMap().GetCount() != 1) refuse();
  const CKovField* inner = option->GetUpFieldMap().begin()->second->GetData();
  if (!inner->IsList()) refuse();
  return inner;
}

const CKovField* CKovUpDistKLSBlkInst::CreateSglListFldFromListlets(
    const std::list<CKovUpBlkInstance*>& listlets) const {
  auto joined = std::make_unique<CKovUpEntryList>();
  uint32_t fieldID = 0;
  for (CKovUpBlkInstance* listlet : listlets) {
    // The reader owns the listlets, and with them their lists, which it empties here.
    auto* list = const_cast<CKovListField*>(
        static_cast<const CKovListField*>(GetKLSListField(listlet->GetUpEntry())));
    fieldID = list->GetFieldID();
    list->GetUpEntryList(this)->MoveAllTo(joined.get());
  }
  uint16_t qty = static_cast<uint16_t>(joined->GetCount());
  auto list = std::make_unique<CKovListField>(fieldID, qty, joined.get());
  joined.release();
  return list.release();
}

void CKovUpDistKLSBlkInst::AddLinkFieldToBlkInstance() {
  const CKovFieldLayout* layout = blkLayout->GetFieldLayout(CKovKLSBlkLayout::m_linkFldID);
  auto link = std::make_unique<CKovNameField>(
      0, CKovKLSBlkLayout::m_linkFldID, layout != nullptr ? layout->GetLengthInBits() : 32, 0);
  const CKovField* placed = link.get();
  auto upField = std::make_unique<CKovUpField>(placed, layout);
  link.release();
  upEntry->AddUpField(CKovKLSBlkLayout::m_linkFldID, upField.release());
  upFieldMap.SetAt(CKovKLSBlkLayout::m_linkFldID, placed);
}

void CKovUpDistKLSBlkInst::AddLeqFieldToBlkInstance(const CKovField* listField) {
  auto* list = static_cast<const CKovListField*>(listField);
  auto leq = std::make_unique<CKovNumField>(list->GetListEntryQty() & 0xFFFF,
                                            CKovKLSBlkLayout::m_leqFldID, list->GetImageSize());
  const CKovField* placed = leq.get();
  auto upField = std::make_unique<CKovUpField>(
      placed, blkLayout->GetFieldLayout(CKovKLSBlkLayout::m_leqFldID));
  leq.release();
  upEntry->AddUpField(CKovKLSBlkLayout::m_leqFldID, upField.release());
  upFieldMap.SetAt(CKovKLSBlkLayout::m_leqFldID, placed);
}

void CKovUpDistKLSBlkInst::AddListFieldToDistKLSBlkInst(const CKovField* listField) {
  uint32_t id = listField->GetFieldID();
  const CKovFieldLayout* layout = blkLayout->GetFieldLayout(id);
  std::unique_ptr<CKovUpField> upField;
  try {
    upField = std::make_unique<CKovUpField>(listField, layout);
  } catch (...) {
    delete listField;
    throw;
  }
  const CKovDataLayout* blockData = blkLayout->GetDataLayout();
  if (layout != nullptr && layout->GetParentDataLayout() == blockData) {
    upEntry->AddUpField(id, upField.release());
    upFieldMap.SetAt(id, listField);
    return;
  }
  uint32_t unionID = blockData->GetIDOfLastFieldInLayout();
  const CKovFieldLayout* unionLayout = blkLayout->GetFieldLayout(unionID);
  if (unionLayout == nullptr || !unionLayout->IsKindOf(KOV_RUNTIME_CLASS(CKovUnionFieldLayout))) {
    throwDist(kovFormat("Attempting to unpack Distributed KLS block %s [%d] but\nblock layout "
                        "contains invalid data.",
                        blkLayout->GetBlkName().c_str(), blkInstanceNum));
  }
  try {
    uint32_t optionID = 0;
    const CKovDataLayout* optionLayout = GetUnionDataLayout(
        static_cast<const CKovUnionFieldLayout*>(unionLayout), optionID, id);
    auto unionEntry = std::make_unique<CKovUpEntry>(optionLayout);
    unionEntry->AddUpField(id, upField.release());
    auto unionField = std::make_unique<CKovUnionField>(unionID, optionID, unionEntry.get());
    unionEntry.release();
    const CKovField* placed = unionField.get();
    auto unionUpField = std::make_unique<CKovUpField>(placed, unionLayout);
    unionField.release();
    upEntry->AddUpField(unionID, unionUpField.release());
    upFieldMap.SetAt(id, listField);
    upFieldMap.SetAt(unionID, placed);
  } catch (CMevGenException* e) {
    if (e->GetMessage().empty()) {
      e->SetMessage(kovFormat("Unknown error occurred while unpacking Distributed KLS block %s "
                              "[%d].\n",
                              blkLayout->GetBlkName().c_str(), blkInstanceNum));
    }
    throw;
  }
}

const CKovDataLayout* CKovUpDistKLSBlkInst::GetUnionDataLayout(
    const CKovUnionFieldLayout* unionLayout, uint32_t& optionID, uint32_t fieldID) const {
  for (const auto& kv : *unionLayout->GetUnionMap()) {
    optionID = kv.first;
    const CKovDataLayout* dl = kv.second != nullptr ? kv.second->GetDataLayout() : nullptr;
    if (dl != nullptr && dl->GetFieldMap().Contains(fieldID)) return dl;
  }
  throwDist(kovFormat("Attempting to unpack Distributed KLS block %s [%d] but layout\nfor List "
                      "field %d not found in any of the Union field options.",
                      blkLayout->GetBlkName().c_str(), blkInstanceNum, fieldID));
}

void CKovUpDistKLSBlkInst::DeleteListletBlkInstances(
    std::list<CKovUpBlkInstance*>& listlets) const {
  for (CKovUpBlkInstance* listlet : listlets) delete listlet;
  listlets.clear();
}
