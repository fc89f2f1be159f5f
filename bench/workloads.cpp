#include "bench/workloads.h"

#include <string>

namespace {

enum : uint16_t { kHdrBlkID = 2, kDistBlkID = 3, kABlkID = 4, kBBlkID = 5 };
enum : uint32_t {
  kContactList = 200,
  kContactID,
  kCallType,
  kContactName,
  kAHead = 300,
  kAList,
  kAEntryHi,
  kAEntryLo,
  kATail,
  kBLeq = 310,
  kBOther,
};
constexpr uint32_t kListletLeq = 100;
constexpr uint32_t kDeferredEntries = 4;

CKovDataLayout* blockData() {
  return new CKovDataLayout(static_cast<LayoutType>(1), 0, 7, 0, true);
}

void addBlk(CKovCpLayout* cp, CKovBlkLayout* blk) {
  blk->SetPartitionNum(1);
  cp->HasUniqueKovName(blk);
  cp->AddBlkLayout(blk);
}

void put(CKovPkEntry* e, CKovField* value, int position) {
  e->AddPkField(value->GetFieldID(), new CKovPkField(value), position);
}

void addPkBlk(KovBenchWorkload& w, uint16_t blkID, CKovPkEntryList* entries,
              std::vector<uint16_t> sizes) {
  w.blks.emplace_back(new CKovPkStdBlk(w.layout->GetBlkLayout(blkID), entries, sizes));
  w.pkBlks.SetAt(blkID, w.blks.back().get());
}

}  // namespace

std::unique_ptr<KovBenchWorkload> kovBenchDistList(uint32_t entries) {
  auto w = std::make_unique<KovBenchWorkload>();
  w->layout = std::make_unique<CKovCpLayout>(1, 1, 0x7FFFFFFF, 0);
  CKovCpLayout* cp = w->layout.get();
  cp->AddPartition(1, ReadWrite);
  auto* hdr = new CKovBlkLayout(kHdrBlkID, KovBlkLayoutAttrib(0x0041, 0, 0, 0), "ContactHeader", 0,
                                blockData(), 0, 1);
  hdr->SetDistKLSBlkID(kDistBlkID);
  auto* dist =
      new CKovKLSBlkLayout(kDistBlkID, KovBlkLayoutAttrib(0x0042, 0, 0, 0), "Contacts", blockData(),
                           kListletLeq * 10, 1, kListletLeq, kHdrBlkID, nullptr);
  auto* contact = new CKovDataLayout(ListEntryLayout, 0, 7, kContactList, false);
  contact->AddField(kContactID, 0, new CKovNumFieldLayout(kContactID, 0, 24, 7, true, 0, contact),
                    0);
  contact->AddField(kCallType, kContactID,
                    new CKovNumFieldLayout(kCallType, 3, 8, 7, true, 0, contact), 1);
  contact->AddField(kContactName, kCallType,
                    new CKovStrFieldLayout(kContactName, 4, 7, CKovCharFieldLayout::Char8Bit, 6,
                                           true, 0, contact),
                    2);
  KovListAttribStruct list(CKovKLSBlkLayout::m_leqFldID, VarSzCfgLeq, 0xFFFF, 0, 80, 0, nullptr);
  dist->AddField(
      kContactList, CKovKLSBlkLayout::m_leqFldID,
      new CKovListFieldLayout(kContactList, 6, 7, list, true, 0, dist->GetDataLayout(), contact),
      2);
  addBlk(cp, hdr);
  addBlk(cp, dist);

  auto* values = new CKovListField(kContactList, entries, 0xFFFF, nullptr);
  for (uint32_t i = 0; i < entries; ++i) {
    auto* e = new CKovPkEntry(3);
    put(e, new CKovNumField(1000 + 7 * i, kContactID, 24), 0);
    put(e, new CKovNumField(i % 3, kCallType, 8), 1);
    put(e, new CKovStrField(("C" + std::to_string(i)).c_str(), kContactName, 48), 2);
    values->AddEntryToList(e);
  }
  auto* instances = new CKovPkEntryList();
  auto* holder = new CKovPkEntry(1);
  put(holder, values, 0);
  instances->AddTail(holder);
  addPkBlk(*w, kDistBlkID, instances, {0});
  uint32_t listlets = entries == 0 ? 1 : (entries + kListletLeq - 1) / kListletLeq;
  w->imageSz = (6 + 12 + 2) + listlets * (6 + 6 + 2) + entries * 10;
  w->numFields = 1 + entries * 3;
  return w;
}

std::unique_ptr<KovBenchWorkload> kovBenchDeferred(uint32_t instances) {
  auto w = std::make_unique<KovBenchWorkload>();
  w->layout = std::make_unique<CKovCpLayout>(1, 1, 0x7FFFFFFF, 0);
  CKovCpLayout* cp = w->layout.get();
  cp->AddPartition(1, ReadWrite);
  auto* a =
      new CKovBlkLayout(kABlkID, KovBlkLayoutAttrib(0x0051, 0, 1, 0), "A", 0, blockData(), 10, 0);
  CKovDataLayout* ad = a->GetDataLayout();
  ad->AddField(kAHead, 0, new CKovNumFieldLayout(kAHead, 0, 8, 7, true, 0, ad), 0);
  auto* entry = new CKovDataLayout(ListEntryLayout, 0, 7, kAList, false);
  entry->AddField(kAEntryHi, 0, new CKovNumFieldLayout(kAEntryHi, 0, 8, 7, true, 0, entry), 0);
  entry->AddField(kAEntryLo, kAEntryHi, new CKovNumFieldLayout(kAEntryLo, 1, 8, 7, true, 0, entry),
                  1);
  KovListAttribStruct list(kBLeq, VarSzSplitLeq, kDeferredEntries, 0, 16, kBBlkID, nullptr);
  ad->AddField(kAList, kAHead, new CKovListFieldLayout(kAList, 1, 7, list, true, 0, ad, entry), 1);
  ad->AddField(kATail, kAList, new CKovNumFieldLayout(kATail, 0, 8, 0, false, 0, ad), 2);
  auto* b =
      new CKovBlkLayout(kBBlkID, KovBlkLayoutAttrib(0x0052, 0, 1, 0), "B", 0, blockData(), 2, 0);
  CKovDataLayout* bd = b->GetDataLayout();
  bd->AddField(kBLeq, 0, new CKovNumFieldLayout(kBLeq, 0, 8, 7, true, 0, bd), 0);
  bd->AddField(kBOther, kBLeq, new CKovNumFieldLayout(kBOther, 1, 8, 7, true, 0, bd), 1);
  addBlk(cp, a);
  addBlk(cp, b);

  auto* aEntries = new CKovPkEntryList();
  auto* bEntries = new CKovPkEntryList();
  for (uint32_t n = 0; n < instances; ++n) {
    auto* values = new CKovListField(kAList, kDeferredEntries, kDeferredEntries, nullptr);
    for (uint32_t e = 0; e < kDeferredEntries; ++e) {
      auto* le = new CKovPkEntry(2);
      put(le, new CKovNumField((n + e) & 0xFF, kAEntryHi, 8), 0);
      put(le, new CKovNumField(e, kAEntryLo, 8), 1);
      values->AddEntryToList(le);
    }
    values->SetImageSize(kDeferredEntries * 16);
    auto* ae = new CKovPkEntry(3);
    // The floating number comes first: its place is known only once the list is written.
    put(ae, new CKovNumField(0xEE, kATail, 8), 0);
    put(ae, new CKovNumField(n & 0xFF, kAHead, 8), 1);
    put(ae, values, 2);
    aEntries->AddTail(ae);
    auto* be = new CKovPkEntry(1);
    put(be, new CKovNumField(0x5A, kBOther, 8), 0);
    bEntries->AddTail(be);
  }
  addPkBlk(*w, kABlkID, aEntries, std::vector<uint16_t>(instances, 10));
  addPkBlk(*w, kBBlkID, bEntries, std::vector<uint16_t>(instances, 2));
  w->imageSz = instances * (18 + 10);
  w->numFields = instances * (3 + 2 * kDeferredEntries + 2);
  return w;
}

std::vector<uint8_t> kovBenchPack(const KovBenchWorkload& w) {
  CKovImage image(w.imageSz);
  CKovPk pk(&w.pkBlks, 0);
  uint32_t used = 0;
  pk.FillImage(w.layout.get(), &image, used, nullptr, 0, 0, 0);
  return std::vector<uint8_t>(image.GetBytesArray(), image.GetBytesArray() + used);
}
