// The kov demo: a small channel-settings codeplug, packed into an image and read back.
//
// Part 1 lays single fields (fixed and floating numbers and characters) into a data area and
// reads them back with the unpack constructors. Part 2 packs a sample codeplug of three blocks
// (a settings block, a multi-instance channel block and a padded block) with FillImage and
// prints the image with its block boundaries. Part 3 unpacks that image again, prints the values
// read back and writes the image and the XML report of its unpack side by side.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "examples/sample.h"
#include "kov/kov.h"

namespace {

void printHex(const uint8_t* bytes, uint32_t size) {
  for (uint32_t i = 0; i < size; ++i) std::printf("%02X%s", bytes[i], i + 1 < size ? " " : "\n");
}

int fieldDemo() {
  std::printf("== Fields at bit positions ==\n");
  // One entry of 4 bytes: a 12-bit number at byte 0, MSB 7; a 3-bit number floating 1 bit
  // behind it; a 4-bit digit floating directly behind that; an 8-bit character at byte 3.
  CKovDataLayout layout(static_cast<LayoutType>(1), 0, 7, 0, true);
  auto* power = new CKovNumFieldLayout(1, 0, 12, 7, true, 0, &layout);
  auto* mode = new CKovNumFieldLayout(2, 0, 3, 0, false, 1, &layout);
  auto* digit = new CKovCharFieldLayout(3, 0, 0, CKovCharFieldLayout::Char4Bit, false, 0, &layout);
  auto* letter = new CKovCharFieldLayout(4, 3, 7, CKovCharFieldLayout::Char8Bit, true, 0, &layout);
  layout.AddField(1, 0, power, 0);
  layout.AddField(2, 1, mode, 1);
  layout.AddField(3, 2, digit, 2);
  layout.AddField(4, 3, letter, 3);

  CKovImage image(4);
  KovFieldsMap placed;
  CKovNumField powerValue(0xABC, 1, 12);
  CKovNumField modeValue(5, 2, 3);
  CKovCharField digitValue('7', 3, 4);
  CKovCharField letterValue('K', 4, 8);
  const std::pair<const CKovField*, const CKovFieldLayout*> fields[] = {
      {&powerValue, power}, {&modeValue, mode}, {&digitValue, digit}, {&letterValue, letter}};
  for (const auto& [value, fieldLayout] : fields) {
    if (value->WriteToImage(nullptr, &image, 0, 7, &placed, fieldLayout, nullptr, 1, 1) != PkDone) {
      std::printf("field %u was not written\n", value->GetFieldID());
      return 1;
    }
    placed.SetAt(value->GetFieldID(), value);
    std::printf("field %u at byte %u, MSB %u, %u bits\n", value->GetFieldID(),
                value->GetByteOffsetInImage(), value->GetStartMsbInImage(), value->GetImageSize());
  }
  std::printf("data area: ");
  printHex(image.GetBytesArray(), image.GetSize());

  std::vector<uint8_t> bytes(image.GetBytesArray(), image.GetBytesArray() + image.GetSize());
  CKovUp up(nullptr, bytes, "");
  KovFieldsMap read;
  UpStatus status = UpFailed;
  uint32_t lastBit = 4 * 8 - 1;
  CKovNumField powerBack(&up, 0, 7, read, power, 1, 1, lastBit, status);
  read.SetAt(1, &powerBack);
  CKovNumField modeBack(&up, 0, 7, read, mode, 2, 1, lastBit, status);
  read.SetAt(2, &modeBack);
  CKovCharField digitBack(&up, 0, 7, read, digit, 3, 1, lastBit, status);
  read.SetAt(3, &digitBack);
  CKovCharField letterBack(&up, 0, 7, read, letter, 4, 1, lastBit, status);
  std::printf("read back: power 0x%X, mode %u, digit '%c', letter '%c'\n\n", powerBack.GetValue(),
              modeBack.GetValue(), digitBack.GetValue(), letterBack.GetValue());
  return status == UpDone ? 0 : 1;
}

std::string entryText(const CKovUpEntry* entry);

// The value of a field as a person reads it; lists and unions with their entries.
std::string valueText(const CKovField* f) {
  if (f->IsNumber()) return kovFormat("%u", static_cast<const CKovNumField*>(f)->GetValue());
  if (f->IsChar()) return kovFormat("'%c'", static_cast<const CKovCharField*>(f)->GetValue());
  if (f->IsKovName()) return kovFormat("KOV 0x%08X", static_cast<const CKovNameField*>(f)->GetValue());
  if (f->IsString()) return "\"" + static_cast<const CKovStrField*>(f)->GetValue() + "\"";
  if (f->IsUnion()) {
    auto* u = static_cast<const CKovUnionField*>(f);
    return kovFormat("option %u ", u->GetLayoutID()) + entryText(u->GetUpEntry());
  }
  std::string text = "[";
  for (const CKovUpEntry* entry : *static_cast<const CKovListField*>(f)->GetUpEntryList()) {
    text += (text.size() > 1 ? ", " : "") + entryText(entry);
  }
  return text + "]";
}

// The fields of an entry in the order of its layout.
std::string entryText(const CKovUpEntry* entry) {
  if (entry == nullptr) return "{}";
  std::string text = "{";
  for (uint32_t id : entry->GetDataLayout()->GetOrderedFieldIDsList()) {
    CKovUpField* const* field = entry->GetUpFieldMap().PLookup(id);
    if (field == nullptr) continue;
    text += (text.size() > 1 ? ", " : "") + (*field)->GetData()->GetFieldName() + " = " +
            valueText((*field)->GetData());
  }
  return text + "}";
}

int unpackDemo(const CKovCpLayout* layout, const std::vector<uint8_t>& image,
               const std::string& reportPath) {
  std::printf("\n== Unpacking it again ==\n");
  CKovUp up(layout, image, reportPath);
  up.FullUnpack();
  for (uint16_t partition : layout->GetPartitionNumList()) {
    for (const CKovBlkLayout* blk : layout->GetBlkLayoutList(partition)) {
      const CKovUpStdBlk* read = up.GetUnpackedBlk(blk->GetBlkID());
      if (read == nullptr) continue;
      for (int instance = 1; instance <= read->GetBlkInstanceQty(); ++instance) {
        std::printf("%s [%d]: %s\n", blk->GetBlkName().c_str(), instance,
                    entryText(read->GetUpEntry(instance)).c_str());
      }
    }
  }
  std::printf("report written to %s\n", reportPath.c_str());
  return 0;
}

int packDemo(const std::string& outDir) {
  std::printf("== Packing the sample codeplug ==\n");
  std::unique_ptr<CKovCpLayout> layout = kovSampleLayout();
  layout->DoPostLayoutVerification();
  std::printf("layout verified; its tree:\n%s\n", CKovCpLayoutView::GetLayoutTreeText(layout.get()).c_str());
  KovSamplePackData data = kovSamplePackData(layout.get());
  CKovImage image(1024);
  CKovPk pk(&data.pkBlks, 0);
  uint32_t used = 0;
  // With a file name and a layout that asks for it, every instance also goes to a file.
  std::string imagePath = outDir + "/sample.kov";
  pk.FillImage(layout.get(), &image, used, imagePath.c_str(), 0, 0, 0);
  std::printf("used %u bytes\n", used);
  // Walk the headers to mark where each instance starts.
  uint32_t offset = 0;
  while (offset + 6 <= used) {
    uint16_t type = 0, id = 0, size = 0;
    image.GetBytes(offset, type, 2);
    image.GetBytes(offset + 2, id, 2);
    image.GetBytes(offset + 4, size, 2);
    uint32_t kovName = kovGetKovName(type, id);
    std::string name = layout->GetBlkName(layout->GetBlkIDFromKovName(kovName));
    std::printf("0x%04X  %-14s KOV 0x%08X  size %-3u | ", offset, name.c_str(), kovName, size);
    printHex(image.GetBytesArray() + offset, 6u + size);
    offset += 6u + size;
  }
  for (const auto& kv : pk.GetPartitionPkInfo()) {
    std::printf("partition %u: start %u, %u bytes\n", kv.first, kv.second->startAddr,
                kv.second->size);
  }
  std::vector<uint8_t> bytes(image.GetBytesArray(), image.GetBytesArray() + used);
  std::printf("block files written to %s\n", CKovBlkExport::GetBlksDirPath(imagePath.c_str()).c_str());
  if (std::FILE* file = std::fopen(imagePath.c_str(), "wb")) {
    std::fwrite(bytes.data(), 1, bytes.size(), file);
    std::fclose(file);
    std::printf("image written to %s\n", imagePath.c_str());
  }
  return unpackDemo(layout.get(), bytes, outDir + "/sample.xml");
}

}  // namespace

// Writes sample.kov and its report sample.xml into the directory given (default: the current
// one).
int main(int argc, char** argv) {
  std::string outDir = argc > 1 ? argv[1] : ".";
  try {
    int rc = fieldDemo();
    if (rc == 0) rc = packDemo(outDir);
    return rc;
  } catch (CMevGenException* e) {
    std::fprintf(stderr, "kov: %s\n", e->GetMessage().c_str());
    delete e;
    return 1;
  }
}
