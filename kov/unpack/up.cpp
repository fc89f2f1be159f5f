#include "kov/unpack/up.h"

#include <new>

#include "kov/image/image.h"
#include "kov/layout/blklayout.h"
#include "kov/layout/cplayout.h"
#include "kov/platform/format.h"
#include "kov/platform/mevgenexception.h"
#include "kov/report/xmldata.h"
#include "kov/layout/klsblklayout.h"
#include "kov/unpack/upblkinstance.h"
#include "kov/unpack/updistklsblkinst.h"
#include "kov/unpack/uppatchmap.h"

namespace {

[[noreturn]] void throwUp(const std::string& text) { throw new CMevGenException(text, 0); }

// The most instances of one block id an image may hold: the largest 16-bit instance number.
constexpr unsigned kMaxInstances = 65535;

}  // namespace

CKovUp::CKovUp(const CKovCpLayout* cpLayout, const std::vector<uint8_t>& imageBytes,
               std::string xmlPath)
    : xmlPath(std::move(xmlPath)), cpLayout(cpLayout) {
  try {
    if (!this->xmlPath.empty()) xmlData = new CKovXmlData();
    image = new CKovImage(imageBytes);
    patchMap = new CKovUpPatchMap();
  } catch (const std::bad_alloc&) {
    upCleanup();
    throwUp("Unable to unpack image - out of memory!");
  }
}

CKovUp::~CKovUp() { upCleanup(); }

int CKovUp::FullUnpack() {
  // Refused before the guard below: the results of the call before stay as they are.
  if (fullUnpackCalled || image == nullptr) {
    throwUp("This unpack has been used: make a new CKovUp for another image.");
  }
  // What the unpack makes from here on lives in its arena, the cleanup of a failure included.
  KovArenaScope scope(&arena);
  try {
    if (cpLayout == nullptr) throwUp("No image layout found.");
    fullUnpackCalled = true;
    CreateUpBlkInstances();
    if (xmlData != nullptr) {
      xmlData->AddEndTagLine("</CodeplugData>");
      xmlData->CreateXmlFile(xmlPath);
    }
    CreateUpBlks();
  } catch (CMevGenException* e) {
    upCleanup();
    if (e->GetMessage().empty()) e->SetMessage("Unknown error occurred while trying to unpack image.");
    throw;
  } catch (...) {
    upCleanup();
    throw;
  }
  return 1;
}

int CKovUp::CreateUpBlkInstances() {
  std::list<uint16_t> distBlkIDs;
  CKovMap<uint16_t, bool> seenDistBlkIDs;
  CKovMap<uint32_t, uint16_t> kovNameToInstNum;
  uint32_t address = 0;
  const uint32_t limit = image->GetSize();
  // Each step moves the address on by 8 bytes at least (a header and a checksum), or throws.
  while (address < limit) {
    UnpackBlkInstance(address, distBlkIDs, seenDistBlkIDs, kovNameToInstNum);
  }
  for (uint16_t blkID : distBlkIDs) {
    try {
      UnpackDistributedKLSBlk(blkID, kovNameToInstNum);
    } catch (CMevGenException* e) {
      if (e->GetMessage().empty()) {
        e->SetMessage(
            "Unknown error occurred while attempting to unpack distributed KOV List Structures.");
      }
      throw;
    }
  }
  // Each sweep resolves a field, gives one up, or counts one more attempt of every field left,
  // and a field has at most 11 attempts: the loop ends.
  while (!patchMap->IsEmpty()) {
    if (!patchMap->UnpackPatchFields(this)) {
      throwUp("Unable to determine address of one or more fields in the image.");
    }
  }
  return 1;
}

int CKovUp::UnpackBlkInstance(uint32_t& address, std::list<uint16_t>& distBlkIDs,
                              CKovMap<uint16_t, bool>& seenDistBlkIDs,
                              CKovMap<uint32_t, uint16_t>& kovNameToInstNum) {
  const uint32_t start = address;
  const uint32_t hdrSz = CKovStdBlk::GetHdrSz();
  // A header cut off by the end of the image can't be read: refuse before reading any of it.
  if (image->GetSize() - start < hdrSz) {
    throwUp(kovFormat("Block header at offset %u is cut short: %u bytes left where a header needs %u.",
                      start, image->GetSize() - start, hdrSz));
  }
  uint16_t kovType = 0, kovID = 0, size = 0;
  image->GetBytes(start, kovType, 2);
  image->GetBytes(start + 2, kovID, 2);
  image->GetBytes(start + 4, size, 2);
  address = start + hdrSz;

  uint16_t blkID = cpLayout->GetBlkIDFromKovName(kovType, kovID);
  // A size below 2 cannot hold the checksum: refuse before the data is touched.
  if (size < CKovStdBlk::GetChecksumSz()) {
    throwUp(kovFormat("Block header at offset %u (KOV name 0x%08X) has size %u, below the 2 bytes "
                      "of its checksum.",
                      start, kovGetKovName(kovType, kovID), static_cast<unsigned>(size)));
  }
  const CKovBlkLayout* blkLayout = cpLayout->GetBlkLayout(blkID);
  uint16_t instance = StoreBlkInstAddr(blkID, start);
  try {
    if (blkLayout != nullptr && blkLayout->IsDistKLS()) {
      kovNameToInstNum.SetAt(kovGetKovName(kovType, kovID), instance);
      if (!seenDistBlkIDs.Contains(blkID)) {
        distBlkIDs.push_back(blkID);
        seenDistBlkIDs.SetAt(blkID, true);
      }
    } else {
      UnpackNonDistKLSBlk(start, kovID, size, blkID, instance);
    }
  } catch (CMevGenException* e) {
    if (e->GetMessage().empty()) {
      e->SetMessage(kovFormat("Failed trying to unpack block %s, instance #%d.",
                              cpLayout->GetBlkName(blkID).c_str(), instance));
    }
    throw;
  }
  // The next header follows the size field, whatever the layout says of the block's length; past
  // the end of the image the walk simply stops.
  uint64_t next = uint64_t{address} + size;
  address = next > image->GetSize() ? image->GetSize() : static_cast<uint32_t>(next);
  return 1;
}

uint16_t CKovUp::StoreBlkInstAddr(uint16_t blkID, uint32_t startAddr) {
  std::vector<uint32_t>*& addresses = blockAddrMap[blkID];
  if (addresses == nullptr) addresses = new std::vector<uint32_t>(1, 0);
  size_t n = addresses->size();
  // Instance numbers are 16 bits wide: one more would wrap and replace an instance read before.
  if (n > kMaxInstances) {
    throwUp(kovFormat("Block %s at offset %u would be its instance %zu: a block holds at most %u "
                      "instances.",
                      cpLayout->GetBlkName(blkID).c_str(), startAddr, n, kMaxInstances));
  }
  addresses->push_back(startAddr);
  return static_cast<uint16_t>(n);
}

int CKovUp::UnpackNonDistKLSBlk(uint32_t startAddr, uint16_t kovID, uint16_t size, uint16_t blkID,
                                uint16_t instance) {
  auto* blkInst =
      new CKovUpNonDistBlkInst(this, patchMap, startAddr, kovID, size, blkID, instance);
  AddUpBlkInstToInstanceArr(blkID, instance, blkInst);
  return 1;
}

void CKovUp::AddUpBlkInstToInstanceArr(uint16_t blkID, uint16_t instance,
                                       CKovUpBlkInstance* blkInst) {
  try {
    KovUpBlkInstArr*& instances = upBlksList[blkID];
    if (instances == nullptr) instances = new KovUpBlkInstArr();
    if (instances->size() <= instance) instances->resize(size_t{instance} + 1, nullptr);
    delete (*instances)[instance];
    (*instances)[instance] = blkInst;
  } catch (...) {
    delete blkInst;
    throw;
  }
}

int CKovUp::UnpackDistributedKLSBlk(uint16_t blkID,
                                    const CKovMap<uint32_t, uint16_t>& kovNameToInstNum) {
  const CKovBlkLayout* blkLayout = cpLayout->GetBlkLayout(blkID);
  uint16_t hdrID =
      static_cast<uint16_t>(static_cast<const CKovKLSBlkLayout*>(blkLayout)->GetHdrBlkID());
  KovUpBlkInstArr* headers = nullptr;
  if (!upBlksList.Lookup(hdrID, headers) || headers == nullptr) {
    throwUp(kovFormat("Attempting to unpack Distributed KLS block %s\nbut no corresponding header "
                      "block found in image.",
                      blkLayout->GetBlkName().c_str()));
  }
  std::vector<uint32_t>* addresses = nullptr;
  blockAddrMap.Lookup(blkID, addresses);
  auto instances = std::make_unique<KovUpBlkInstArr>(headers->size(), nullptr);
  // Each listlet belongs to the one chain that reaches it: every listlet is read once in all.
  listletClaims.assign(addresses != nullptr ? addresses->size() : 0, 0);
  try {
    for (size_t n = 1; n < headers->size(); ++n) {
      CKovUpBlkInstance* header = (*headers)[n];
      if (header == nullptr) continue;
      (*instances)[n] = new CKovUpDistKLSBlkInst(this, patchMap, blkLayout,
                                                 header->GetUpFieldMap(), addresses, blkID,
                                                 static_cast<uint16_t>(n), kovNameToInstNum);
    }
  } catch (...) {
    for (CKovUpBlkInstance* made : *instances) delete made;
    throw;
  }
  upBlksList.SetAt(blkID, instances.get());
  instances.release();
  return 1;
}

int CKovUp::CreateUpBlks() {
  for (auto& kv : upBlksList) {
    const CKovBlkLayout* blkLayout = cpLayout->GetBlkLayout(kv.first);
    // The slot first, so that the block made next has its owner at once.
    CKovUpStdBlk*& slot = upBlksMap[kv.first];
    delete slot;
    slot = nullptr;
    slot = new CKovUpStdBlk(blkLayout, kv.second, kv.first);
  }
  return 1;
}

uint16_t CKovUp::ClaimListlet(uint16_t n, uint16_t hdrInstance) const {
  if (n >= listletClaims.size()) return 0;
  uint16_t before = listletClaims[n];
  if (before == 0) listletClaims[n] = hdrInstance;
  return before;
}

const CKovUpStdBlk* CKovUp::GetUnpackedBlk(uint16_t blkID) const {
  CKovUpStdBlk* blk = nullptr;
  return upBlksMap.Lookup(blkID, blk) ? blk : nullptr;
}

int CKovUp::GetImageIndex(uint16_t blkID, uint32_t byteOffset, uint32_t& address,
                          int instance) const {
  std::vector<uint32_t>* addresses = nullptr;
  if (!blockAddrMap.Lookup(blkID, addresses) || addresses == nullptr || instance < 1 ||
      static_cast<size_t>(instance) >= addresses->size()) {
    return 0;
  }
  address = (*addresses)[static_cast<size_t>(instance)] + CKovStdBlk::GetHdrSz() + byteOffset;
  return image != nullptr && address < image->GetSize() ? 1 : 0;
}

void CKovUp::upCleanup() {
  // The blocks, instances and everything below them live in the arena and go with it, without a
  // destructor each: nothing of theirs is on the heap. The arrays of addresses and instances,
  // the patch map, the image and the report are on the heap.
  KovArenaScope scope(&arena);
  upBlksMap.RemoveAll();
  for (auto& kv : blockAddrMap) delete kv.second;
  blockAddrMap.RemoveAll();
  for (auto& kv : upBlksList) delete kv.second;
  upBlksList.RemoveAll();
  delete patchMap;
  patchMap = nullptr;
  delete image;
  image = nullptr;
  delete xmlData;
  xmlData = nullptr;
  arena.Release();
}

std::string CKovUp::GetImageCpStdVersion() const {
  return cpLayout != nullptr ? cpLayout->GetCpLayoutStdVersion() : std::string();
}

const CKovBlkLayout* CKovUp::GetBlkLayout(uint16_t blkID) const {
  return cpLayout != nullptr ? cpLayout->GetBlkLayout(blkID) : nullptr;
}

const CKovFieldLayout* CKovUp::GetFieldLayout(uint16_t blkID, uint32_t fieldID) const {
  return cpLayout != nullptr ? cpLayout->GetFieldLayout(blkID, fieldID) : nullptr;
}

void CKovUp::XmlStartBlkInstance(const std::string& blkName, uint16_t instance) const {
  if (xmlData != nullptr) xmlData->StartBlkInstance(blkName, instance);
}

void CKovUp::XmlAddStartTagLine(const std::string& tag) const {
  if (xmlData != nullptr) xmlData->AddStartTagLine(tag);
}

void CKovUp::XmlAddEndTagLine(const std::string& tag) const {
  if (xmlData != nullptr) xmlData->AddEndTagLine(tag);
}

void CKovUp::XmlAddPrimitiveField(const CKovField* field, const CKovFieldLayout* layout) const {
  if (xmlData != nullptr) xmlData->AddPrimitiveField(field, layout);
}
