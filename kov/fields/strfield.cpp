#include "kov/fields/strfield.h"

#include <cstring>

#include "kov/image/image.h"
#include "kov/layout/charfieldlayout.h"
#include "kov/layout/strfieldlayout.h"
#include "kov/platform/format.h"
#include "kov/platform/msgbox.h"
#include "kov/unpack/up.h"

namespace {

constexpr uint8_t kDigitZero = 0x30;

const CKovStrFieldLayout* asStrLayout(const CKovFieldLayout* layout) {
  return layout->IsKindOf(KOV_RUNTIME_CLASS(CKovStrFieldLayout))
             ? static_cast<const CKovStrFieldLayout*>(layout)
             : nullptr;
}

bool isPackableCharType(uint32_t charType) {
  return charType == CKovCharFieldLayout::Char8Bit || charType == CKovCharFieldLayout::Char4Bit;
}

}  // namespace

CKovStrField::CKovStrField(const char* text, uint32_t fieldID, uint32_t imageSize)
    : CKovField(fieldID), charType(CKovCharFieldLayout::Char8Bit), text(text != nullptr ? text : "") {
  this->imageSize = imageSize;
}

CKovStrField::CKovStrField(const CKovUp* up, uint32_t entryStartByte, uint8_t entryMsbStart,
                           const KovFieldsMap& fieldsMap, const CKovFieldLayout* layout,
                           uint32_t fieldID, uint16_t, uint32_t lastBit, UpStatus& status)
    : CKovField(fieldID), charType(0) {
  const CKovStrFieldLayout* strLayout = asStrLayout(layout);
  if (strLayout == nullptr) {
    status = UpFailed;
    return;
  }
  charType = strLayout->GetCharType();
  maxNumOfChars = strLayout->GetNumberOfChars();
  if (!GetUnpackAddr(layout, entryStartByte, entryMsbStart, fieldsMap, byteOffsetInImage,
                     startMsbInImage)) {
    status = UpDeferred;
    return;
  }
  if (!isPackableCharType(charType)) {
    status = UpFailed;
    return;
  }
  uint32_t t = charType;
  uint32_t n = maxNumOfChars;
  imageSize = t * n;
  status = UpDone;
  uint32_t byte = byteOffsetInImage;
  uint8_t msb = startMsbInImage;
  const CKovImage* image = up->GetImage();
  if (t == CKovCharFieldLayout::Char8Bit && msb == 7) {
    // Whole bytes: slot i ends at bit (byte + i) × 8 + 7, so the slots up to lastBit are the
    // bytes up to (lastBit − 7) / 8; where those lie inside the image they are taken as they are.
    uint64_t lastByte = lastBit >= 7 ? (uint64_t{lastBit} - 7) / 8 : 0;
    uint64_t fit = lastBit < 7 || lastByte < byte ? 0 : lastByte - byte + 1;
    if (fit > n) fit = n;
    if (byte <= image->GetSize() && fit <= image->GetSize() - byte) {
      text.assign(reinterpret_cast<const char*>(image->GetBytesArray()) + byte,
                  static_cast<size_t>(fit));
      if (text.empty()) {
        status = UpOutsideBlkData;
        return;
      }
      up->XmlAddPrimitiveField(this, layout);
      return;
    }
  }
  // Bounded by n, and by lastBit: a slot that would end behind it ends the string.
  for (uint32_t i = 0; i < n; ++i) {
    uint64_t slotLastBit = uint64_t{byte} * 8 + 7 - msb + t - 1;
    if (slotLastBit > lastBit) break;
    uint8_t c = 0;
    if (!image->GetBytes(byte, msb, t, c)) {
      status = UpFailed;
      return;
    }
    if (t == CKovCharFieldLayout::Char4Bit) c = static_cast<uint8_t>(c + kDigitZero);
    text.push_back(static_cast<char>(c));
    kovUpdateAsPerByteSpread(byte, msb, t);
  }
  if (text.empty()) {
    status = UpOutsideBlkData;
    return;
  }
  up->XmlAddPrimitiveField(this, layout);
}

std::string CKovStrField::GetValue() const {
  const char* chars = nullptr;
  size_t numChars = ValueChars(chars);
  return std::string(chars, numChars);
}

size_t CKovStrField::ValueChars(const char*& chars) const {
  if (!isPackableCharType(charType)) {
    kovMessageBox("Unicode not supportted");
    chars = "";
    return 0;
  }
  chars = text.c_str();
  return std::strlen(chars);
}

PkStatus CKovStrField::WriteToImage(const CKovPk*, CKovImage* image, uint32_t entryStartByte,
                                    uint8_t entryMsbStart, KovFieldsMap* fieldsMap,
                                    const CKovFieldLayout* layout, const CKovCpLayout*,
                                    uint16_t blkID, int) const {
  return WriteAtPackAddr(layout, fieldsMap, entryStartByte, entryMsbStart, blkID,
                         [&] { return WriteFieldDataToImage(image, layout); });
}

PkStatus CKovStrField::PatchFieldInImage(const CKovPk*, CKovImage* image,
                                         const CKovFieldLayout* layout, uint32_t byte,
                                         uint8_t msbStart) const {
  return WriteAtAddr(byte, msbStart, [&] { return WriteFieldDataToImage(image, layout); });
}

int CKovStrField::CanValueFitAsPerLayout(const CKovFieldLayout* layout) const {
  const CKovStrFieldLayout* strLayout = asStrLayout(layout);
  if (strLayout == nullptr) return 0;
  uint32_t t = strLayout->GetCharType();
  const char* chars = nullptr;
  size_t numChars = ValueChars(chars);
  // The texts are built only for a value that does not fit.
  auto tooLong = [&]() {
    return kovFormat("Str %s (with charLength = %d) can not be stored in %d bits",
                     std::string(chars, numChars).c_str(), static_cast<int>(t),
                     layout->GetLengthInBits());
  };
  if (uint64_t{numChars} * t > layout->GetLengthInBits()) {
    kovMessageBox(tooLong());
    return 0;
  }
  // A slot of 8 bits or more holds any character.
  for (size_t i = 0; t < 8 && i < numChars; ++i) {
    uint8_t c = static_cast<uint8_t>(chars[i]);
    if (t == CKovCharFieldLayout::Char4Bit) c = static_cast<uint8_t>(c - kDigitZero);
    if (kovNumBitsRequiredToStoreValue(c) > t) {
      kovMessageBox(kovFormat("Str %s has char %c that can not be stored in %d bits",
                              std::string(chars, numChars).c_str(), c, static_cast<int>(t)));
      kovMessageBox(tooLong());
      return 0;
    }
  }
  return 1;
}

int CKovStrField::WriteFieldDataToImage(CKovImage* image, const CKovFieldLayout* layout) const {
  const CKovStrFieldLayout* strLayout = asStrLayout(layout);
  if (strLayout == nullptr) return 0;
  uint32_t t = strLayout->GetCharType();
  if (!isPackableCharType(t)) return 0;
  uint32_t n = strLayout->GetNumberOfChars();
  imageSize = n * t;
  const char* chars = nullptr;
  size_t numChars = ValueChars(chars);
  uint32_t byte = byteOffsetInImage;
  uint8_t msb = startMsbInImage;
  size_t toWrite = numChars < n ? numChars : n;
  // Whole bytes inside the image: the characters go in as they are.
  if (t == CKovCharFieldLayout::Char8Bit && msb == 7 &&
      image->SetBytes(byte, reinterpret_cast<const uint8_t*>(chars), toWrite)) {
    return 1;
  }
  for (size_t i = 0; i < numChars && i < n; ++i) {
    uint8_t c = static_cast<uint8_t>(chars[i]);
    if (t == CKovCharFieldLayout::Char4Bit) c = static_cast<uint8_t>(c - kDigitZero);
    if (!kovWriteBitsToImage(image, byte, msb, c, static_cast<uint8_t>(t))) return 0;
    kovUpdateAsPerByteSpread(byte, msb, t);
  }
  return 1;
}
