#include "bench/w1.h"

#include <cstring>
#include <stdexcept>

namespace w1 {

namespace {

struct FieldName {
  uint32_t id;
  const char* text;
};

const FieldName kFieldNames[] = {
    {kCount, "count"},         {kEntriesList, "entries"},
    {kRxFreq, "rx_freq"},      {kTxFreq, "tx_freq"},
    {kPower, "power"},         {kWide, "wide"},
    {kScan, "scan"},           {kTalkaround, "talkaround"},
    {kReserved, "reserved"},   {kColorCode, "color_code"},
    {kTalkgroup, "talkgroup"}, {kName, "name"},
};

// MSB-first bits of value, width bits, from linear bit index bit (byte × 8 + 7 − MSB).
void putBits(std::vector<uint8_t>& image, size_t bit, uint64_t value, unsigned width) {
  for (unsigned i = 0; i < width; ++i) {
    size_t at = bit + i;
    uint8_t mask = static_cast<uint8_t>(0x80u >> (at & 7));
    if ((value >> (width - 1 - i)) & 1) {
      image[at >> 3] |= mask;
    } else {
      image[at >> 3] &= static_cast<uint8_t>(~mask);
    }
  }
}

uint16_t crcBitwise(const uint8_t* data, size_t numBytes) {
  uint16_t crc = 0;
  for (size_t i = 0; i < numBytes; ++i) {
    crc ^= static_cast<uint16_t>(data[i] << 8);
    for (int b = 0; b < 8; ++b) {
      crc = (crc & 0x8000) != 0 ? static_cast<uint16_t>((crc << 1) ^ 0x1021)
                                : static_cast<uint16_t>(crc << 1);
    }
  }
  return crc;
}

// The hand codec's CRC: one table look-up a byte.
struct CrcTable {
  uint16_t entry[256];
  CrcTable() {
    for (unsigned i = 0; i < 256; ++i) {
      unsigned crc = i << 8;
      for (int b = 0; b < 8; ++b) crc = (crc & 0x8000) != 0 ? (crc << 1) ^ 0x1021 : crc << 1;
      entry[i] = static_cast<uint16_t>(crc);
    }
  }
};
const CrcTable kCrc;

uint16_t crcTable(const uint8_t* data, size_t numBytes) {
  uint16_t crc = 0;
  for (size_t i = 0; i < numBytes; ++i) {
    crc = static_cast<uint16_t>((crc << 8) ^ kCrc.entry[(crc >> 8) ^ data[i]]);
  }
  return crc;
}

void store16(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v >> 8);
  p[1] = static_cast<uint8_t>(v);
}
void store32(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v >> 24);
  p[1] = static_cast<uint8_t>(v >> 16);
  p[2] = static_cast<uint8_t>(v >> 8);
  p[3] = static_cast<uint8_t>(v);
}
uint32_t load16(const uint8_t* p) { return uint32_t{p[0]} << 8 | p[1]; }
uint32_t load24(const uint8_t* p) { return uint32_t{p[0]} << 16 | uint32_t{p[1]} << 8 | p[2]; }
uint32_t load32(const uint8_t* p) { return uint32_t{p[0]} << 24 | load24(p + 1); }

std::string stripped(const char* chars, size_t n) {
  while (n > 0 && chars[n - 1] == ' ') --n;
  return std::string(chars, n);
}

const CKovField* valueOf(const CKovUpEntry* entry, uint32_t id) {
  const CKovUpField* field = entry->GetUpField(id);
  if (field == nullptr || field->GetData() == nullptr) {
    throw std::runtime_error("W1: field " + std::to_string(id) + " was not read");
  }
  return field->GetData();
}

uint32_t numberOf(const CKovUpEntry* entry, uint32_t id) {
  const CKovField* value = valueOf(entry, id);
  if (!value->IsNumber()) throw std::runtime_error("W1: field " + std::to_string(id) + " kind");
  return static_cast<const CKovNumField*>(value)->GetValue();
}

CKovNumFieldLayout* num(CKovDataLayout* dl, uint32_t id, uint32_t byte, uint8_t msb,
                        uint32_t bits) {
  return new CKovNumFieldLayout(id, byte, bits, msb, true, 0, dl);
}

}  // namespace

bool operator==(const Channel& a, const Channel& b) {
  return a.rxFreq == b.rxFreq && a.txFreq == b.txFreq && a.power == b.power && a.wide == b.wide &&
         a.scan == b.scan && a.talkaround == b.talkaround && a.colorCode == b.colorCode &&
         a.talkgroup == b.talkgroup && a.name == b.name;
}

bool operator==(const Bank& a, const Bank& b) {
  return a.count == b.count && a.entries == b.entries;
}

std::vector<Bank> makeBanks(uint32_t b) {
  std::vector<Bank> banks(b);
  for (uint32_t i = 0; i < b; ++i) {
    banks[i].count = kEntries;
    for (uint32_t e = 0; e < kEntries; ++e) {
      uint32_t k = kEntries * i + e;
      Channel& c = banks[i].entries[e];
      c.rxFreq = 400000000u + 2500u * k;
      c.txFreq = k % 2 == 0 ? c.rxFreq : c.rxFreq + 5000000u;
      c.power = static_cast<uint8_t>(k % 8);
      c.wide = (k >> 1) & 1;
      c.scan = (k >> 2) & 1;
      c.talkaround = (k >> 3) & 1;
      c.colorCode = static_cast<uint8_t>((i + e) % 16);
      c.talkgroup = (7919u * k) & 0xFFFFF;
      c.name = "CH" + std::to_string(k);
    }
  }
  return banks;
}

std::vector<uint8_t> referenceImage(const std::vector<Bank>& banks) {
  std::vector<uint8_t> image(banks.size() * kInstanceSz, 0);
  for (size_t i = 0; i < banks.size(); ++i) {
    size_t at = i * kInstanceSz;
    putBits(image, at * 8, kKovType, 16);
    putBits(image, (at + 2) * 8, i, 16);
    putBits(image, (at + 4) * 8, kDataSz + 2, 16);
    size_t data = (at + 6) * 8;
    putBits(image, data, banks[i].count, 16);
    for (uint32_t e = 0; e < kEntries; ++e) {
      const Channel& c = banks[i].entries[e];
      size_t entry = data + (2 + kEntrySz * e) * 8;
      // Position (byte, MSB) lies at bit byte × 8 + 7 − MSB of the entry.
      putBits(image, entry + 0 * 8 + 0, c.rxFreq, 32);
      putBits(image, entry + 4 * 8 + 0, c.txFreq, 32);
      putBits(image, entry + 8 * 8 + 0, c.power, 3);
      putBits(image, entry + 8 * 8 + 3, c.wide, 1);
      putBits(image, entry + 8 * 8 + 4, c.scan, 1);
      putBits(image, entry + 8 * 8 + 5, c.talkaround, 1);
      putBits(image, entry + 8 * 8 + 6, 0, 2);
      putBits(image, entry + 9 * 8 + 0, c.colorCode, 4);
      putBits(image, entry + 9 * 8 + 4, c.talkgroup, 20);
      for (size_t ch = 0; ch < 8; ++ch) {
        uint8_t byte = ch < c.name.size() ? static_cast<uint8_t>(c.name[ch]) : 0x20;
        putBits(image, entry + (12 + ch) * 8, byte, 8);
      }
    }
    uint16_t crc = crcBitwise(&image[at + 6], kDataSz);
    putBits(image, (at + 6 + kDataSz) * 8, crc, 16);
  }
  return image;
}

bool handPack(const std::vector<Bank>& banks, std::vector<uint8_t>& image) {
  if (banks.empty() || banks.size() > kMaxInstances) return false;
  image.resize(banks.size() * kInstanceSz);
  uint8_t* p = image.data();
  for (size_t i = 0; i < banks.size(); ++i, p += kInstanceSz) {
    const Bank& bank = banks[i];
    if (bank.count != kEntries) return false;
    store16(p, kKovType);
    store16(p + 2, static_cast<uint32_t>(i));
    store16(p + 4, kDataSz + 2);
    store16(p + 6, bank.count);
    uint8_t* q = p + 8;
    for (const Channel& c : bank.entries) {
      if (c.power > 7 || c.colorCode > 15 || c.talkgroup > 0xFFFFF || c.name.size() > 8) {
        return false;
      }
      store32(q, c.rxFreq);
      store32(q + 4, c.txFreq);
      q[8] = static_cast<uint8_t>(c.power << 5 | c.wide << 4 | c.scan << 3 | c.talkaround << 2);
      store32(q + 8, uint32_t{q[8]} << 24 | uint32_t{c.colorCode} << 20 | c.talkgroup);
      std::memset(q + 12, ' ', 8);
      std::memcpy(q + 12, c.name.data(), c.name.size());
      q += kEntrySz;
    }
    store16(p + 6 + kDataSz, crcTable(p + 6, kDataSz));
  }
  return true;
}

bool handUnpack(const uint8_t* image, size_t numBytes, std::vector<Bank>& banks) {
  if (numBytes % kInstanceSz != 0) return false;
  size_t b = numBytes / kInstanceSz;
  banks.resize(b);
  const uint8_t* p = image;
  for (size_t i = 0; i < b; ++i, p += kInstanceSz) {
    if (load16(p) != kKovType || load16(p + 4) != kDataSz + 2) return false;
    if (crcTable(p + 6, kDataSz) != load16(p + 6 + kDataSz)) return false;
    Bank& bank = banks[i];
    bank.count = static_cast<uint16_t>(load16(p + 6));
    if (bank.count != kEntries) return false;
    const uint8_t* q = p + 8;
    for (Channel& c : bank.entries) {
      c.rxFreq = load32(q);
      c.txFreq = load32(q + 4);
      c.power = static_cast<uint8_t>(q[8] >> 5);
      c.wide = (q[8] >> 4) & 1;
      c.scan = (q[8] >> 3) & 1;
      c.talkaround = (q[8] >> 2) & 1;
      uint32_t ccTg = load24(q + 9);
      c.colorCode = static_cast<uint8_t>(ccTg >> 20);
      c.talkgroup = ccTg & 0xFFFFF;
      c.name = stripped(reinterpret_cast<const char*>(q + 12), 8);
      q += kEntrySz;
    }
  }
  return true;
}

std::unique_ptr<CKovCpLayout> makeLayout() {
  for (const FieldName& name : kFieldNames) kovRegisterString(name.id, name.text);
  auto cp = std::make_unique<CKovCpLayout>(1, 1, kMaxInstances * kInstanceSz, 0);
  cp->AddPartition(1, ReadWrite);
  auto* blk =
      new CKovBlkLayout(kBlkID, KovBlkLayoutAttrib(kKovType, 0, 1, 0), "ChannelBank", 0,
                        new CKovDataLayout(static_cast<LayoutType>(1), 0, 7, 0, true), kDataSz, 0);
  blk->SetPartitionNum(1);
  cp->HasUniqueKovName(blk);
  cp->AddBlkLayout(blk);
  CKovDataLayout* data = blk->GetDataLayout();
  data->AddField(kCount, 0, num(data, kCount, 0, 7, 16), 0);

  auto* entry = new CKovDataLayout(ListEntryLayout, 0, 7, kEntriesList, false);
  entry->AddField(kRxFreq, 0, num(entry, kRxFreq, 0, 7, 32), 0);
  entry->AddField(kTxFreq, kRxFreq, num(entry, kTxFreq, 4, 7, 32), 1);
  entry->AddField(kPower, kTxFreq, num(entry, kPower, 8, 7, 3), 2);
  entry->AddField(kWide, kPower, num(entry, kWide, 8, 4, 1), 3);
  entry->AddField(kScan, kWide, num(entry, kScan, 8, 3, 1), 4);
  entry->AddField(kTalkaround, kScan, num(entry, kTalkaround, 8, 2, 1), 5);
  entry->AddField(kReserved, kTalkaround, num(entry, kReserved, 8, 1, 2), 6);
  entry->AddField(kColorCode, kReserved, num(entry, kColorCode, 9, 7, 4), 7);
  entry->AddField(kTalkgroup, kColorCode, num(entry, kTalkgroup, 9, 3, 20), 8);
  entry->AddField(
      kName, kTalkgroup,
      new CKovStrFieldLayout(kName, 12, 7, CKovCharFieldLayout::Char8Bit, 8, true, 0, entry), 9);
  KovListAttribStruct list(kCount, VarSzContigLeq, kEntries, 0, kEntrySz * 8, 0, nullptr);
  bool verify = false;
  kovValidateSglListParms(kEntriesList, list, kBlkID, verify);
  data->AddField(kEntriesList, kCount,
                 new CKovListFieldLayout(kEntriesList, 2, 7, list, true, 0, data, entry), 1);
  return cp;
}

std::unique_ptr<PackTree> makePackTree(const CKovCpLayout* layout, const std::vector<Bank>& banks) {
  auto tree = std::make_unique<PackTree>();
  auto instancesOwner = std::make_unique<CKovPkEntryList>();
  CKovPkEntryList* instances = instancesOwner.get();
  auto put = [](CKovPkEntry* e, CKovField* value, int position) {
    e->AddPkField(value->GetFieldID(), new CKovPkField(value), position);
  };
  for (const Bank& bank : banks) {
    auto* list = new CKovListField(kEntriesList, bank.count, kEntries, nullptr);
    for (const Channel& c : bank.entries) {
      auto* e = new CKovPkEntry(10);
      put(e, new CKovNumField(c.rxFreq, kRxFreq, 32), 0);
      put(e, new CKovNumField(c.txFreq, kTxFreq, 32), 1);
      put(e, new CKovNumField(c.power, kPower, 3), 2);
      put(e, new CKovNumField(c.wide, kWide, 1), 3);
      put(e, new CKovNumField(c.scan, kScan, 1), 4);
      put(e, new CKovNumField(c.talkaround, kTalkaround, 1), 5);
      put(e, new CKovNumField(0, kReserved, 2), 6);
      put(e, new CKovNumField(c.colorCode, kColorCode, 4), 7);
      put(e, new CKovNumField(c.talkgroup, kTalkgroup, 20), 8);
      std::string padded = c.name;
      padded.resize(8, ' ');
      put(e, new CKovStrField(padded.c_str(), kName, 64), 9);
      list->AddEntryToList(e);
    }
    list->SetImageSize(kEntries * kEntrySz * 8);
    auto* instance = new CKovPkEntry(2);
    put(instance, list, 1);
    instances->AddTail(instance);
  }
  // The block sizes its table of placed fields by the entries it is given: make it last.
  std::vector<uint16_t> sizes(banks.size(), kDataSz);
  tree->blk =
      std::make_unique<CKovPkStdBlk>(layout->GetBlkLayout(kBlkID), instancesOwner.release(), sizes);
  tree->blks.SetAt(kBlkID, tree->blk.get());
  return tree;
}

std::vector<uint8_t> kovPack(const CKovCpLayout* layout, const PackTree& tree) {
  uint32_t size = tree.blk->GetBlkInstanceQty() * kInstanceSz;
  CKovImage image(size);
  CKovPk pk(&tree.blks, 0);
  uint32_t used = 0;
  pk.FillImage(layout, &image, used, nullptr, 0, 0, 0);
  return std::vector<uint8_t>(image.GetBytesArray(), image.GetBytesArray() + used);
}

void copyOut(const CKovUp& up, std::vector<Bank>& banks) {
  const CKovUpStdBlk* blk = up.GetUnpackedBlk(kBlkID);
  const KovUpBlkInstArr* const* instances = up.GetUpBlksList().PLookup(kBlkID);
  if (blk == nullptr || instances == nullptr || *instances == nullptr) {
    throw std::runtime_error("W1: no channel bank was read");
  }
  const CKovUpEntryList* entries = blk->GetUnpackedEntryList();
  size_t b = static_cast<size_t>(entries->GetCount());
  if ((*instances)->size() != b + 1) throw std::runtime_error("W1: instances and entries differ");
  banks.resize(b);
  for (size_t n = 0; n < b; ++n) {
    const CKovUpBlkInstance* instance = (**instances)[n + 1];
    if (instance == nullptr || !instance->IsKindOf(KOV_RUNTIME_CLASS(CKovUpNonDistBlkInst)) ||
        static_cast<const CKovUpNonDistBlkInst*>(instance)->GetDataSize() != kDataSz) {
      throw std::runtime_error("W1: instance " + std::to_string(n + 1) + " is not 322 bytes");
    }
    const CKovUpEntry* entry = entries->GetAt(static_cast<int>(n));
    if (entry == nullptr) throw std::runtime_error("W1: an instance without entry");
    Bank& bank = banks[n];
    bank.count = static_cast<uint16_t>(numberOf(entry, kCount));
    const CKovField* listValue = valueOf(entry, kEntriesList);
    const CKovUpEntryList* list =
        listValue->IsList() ? static_cast<const CKovListField*>(listValue)->GetUpEntryList()
                            : nullptr;
    if (bank.count != kEntries || list == nullptr || list->GetCount() != int{kEntries}) {
      throw std::runtime_error("W1: instance " + std::to_string(n + 1) + " count is not 16");
    }
    for (uint32_t e = 0; e < kEntries; ++e) {
      const CKovUpEntry* le = list->GetAt(static_cast<int>(e));
      Channel& c = bank.entries[e];
      c.rxFreq = numberOf(le, kRxFreq);
      c.txFreq = numberOf(le, kTxFreq);
      c.power = static_cast<uint8_t>(numberOf(le, kPower));
      c.wide = numberOf(le, kWide) != 0;
      c.scan = numberOf(le, kScan) != 0;
      c.talkaround = numberOf(le, kTalkaround) != 0;
      c.colorCode = static_cast<uint8_t>(numberOf(le, kColorCode));
      c.talkgroup = numberOf(le, kTalkgroup);
      const CKovField* name = valueOf(le, kName);
      if (!name->IsString()) throw std::runtime_error("W1: name kind");
      std::string text = static_cast<const CKovStrField*>(name)->GetValue();
      c.name = stripped(text.data(), text.size());
    }
  }
}

std::string publishedSha256(uint32_t b) {
  switch (b) {
    case 3:
      return "1fa39ffb2ba37b3f34198d072b151a1cc79358f4753ba67d11015aba5bf2c1f1";
    case 300:
      return "520433d96cdc1440fe4500ddce182112bf603ba10f41c28924a46c3f5b3313bb";
    case 3000:
      return "6bfeadf56df98fbf1701c239279239af632215ddb5c5f1a44731eb6ab83aa477";
    case 30000:
      return "205a424caddbc54e22c9dde2dd44fd12dbda06e30cc168249026bf3935e8098c";
    default:
      return "";
  }
}

}  // namespace w1
