#include "kov/fields/field.h"

#include "kov/image/image.h"
#include "kov/layout/datalayout.h"
#include "kov/layout/fieldlayout.h"
#include "kov/platform/format.h"
#include "kov/platform/mevgenexception.h"
#include "kov/platform/strresource.h"
#include "kov/unpack/up.h"

namespace {

// A chain of previous fields longer than this can only be a loop in a broken layout.
constexpr unsigned kMaxPrevFieldChain = 1u << 20;

uint32_t linearIndexOf(uint32_t byte, uint8_t msbStart) { return byte * 8 + 7 - msbStart; }

// The id of the field before layout's field in its data layout; the field's own id when it is
// the first one.
uint32_t prevFieldIDOf(const CKovFieldLayout* layout) {
  const CKovDataLayout* parent = layout->GetParentDataLayout();
  if (parent == nullptr) {
    throw new CMevGenException(
        kovFormat("Floating field %u has no data layout to find its previous field in.",
                  layout->GetFieldID()),
        0);
  }
  return parent->GetPrevFieldID(layout->GetFieldID());
}

const CKovField* placedField(const KovFieldsMap* fieldsMap, uint32_t id) {
  if (fieldsMap == nullptr) return nullptr;
  const CKovField* const* found = fieldsMap->PLookup(id);
  return found != nullptr ? *found : nullptr;
}

}  // namespace

CKovField::CKovField(uint32_t fieldID)
    : fieldName(&kovLoadInternedString(fieldID)), fieldID(fieldID) {}

PkStatus CKovField::PatchFieldInImage(const CKovPk*, CKovImage*, const CKovFieldLayout*, uint32_t,
                                      uint8_t, uint16_t, int) const {
  return PkFailed;
}

int CKovField::FieldOutsideBlkData(const CKovFieldLayout* layout, uint32_t byte, uint8_t msbStart,
                                   uint32_t lastBit) const {
  // Index of the field's last bit: byte × 8 − msb + length + 6 (one less than the bit behind it).
  uint64_t fieldLastBit = uint64_t{byte} * 8 + 6 + layout->GetLengthInBits() - msbStart;
  return uint64_t{lastBit} < fieldLastBit ? 1 : 0;
}

uint64_t CKovField::EndBitIndexOf(const CKovField* field) {
  return uint64_t{field->byteOffsetInImage} * 8 + 7 - field->startMsbInImage + field->imageSize;
}

uint32_t CKovField::GetNumBitsOffsetFromEntryStart(uint8_t entryMsbStart,
                                                   const CKovFieldLayout* layout) const {
  return layout->GetByteOffset() * 8 - layout->GetMsbStart() + entryMsbStart;
}

uint32_t CKovField::GetFieldStartByte(uint32_t entryStartByte, uint8_t entryMsbStart,
                                      const CKovFieldLayout* layout) const {
  uint32_t byte = entryStartByte;
  uint8_t msb = entryMsbStart;
  kovUpdateAsPerByteSpread(byte, msb, GetNumBitsOffsetFromEntryStart(entryMsbStart, layout));
  return byte;
}

uint8_t CKovField::GetFieldStartMsb(uint32_t entryStartByte, uint8_t entryMsbStart,
                                    const CKovFieldLayout* layout) const {
  uint32_t byte = entryStartByte;
  uint8_t msb = entryMsbStart;
  kovUpdateAsPerByteSpread(byte, msb, GetNumBitsOffsetFromEntryStart(entryMsbStart, layout));
  return msb;
}

int CKovField::GetFieldUpBitOffsetFromImageStart(const CKovFieldLayout* layout,
                                                 uint32_t entryStartByte, uint8_t entryMsbStart,
                                                 const KovFieldsMap& fieldsMap,
                                                 uint32_t& bitIndex) const {
  uint32_t gap = layout->GetNumBitsOffsetFromPrevFieldEnd();
  uint32_t prevID = prevFieldIDOf(layout);
  if (prevID == layout->GetFieldID()) {
    bitIndex = linearIndexOf(entryStartByte, entryMsbStart) + gap;
    return 1;
  }
  const CKovField* prev = placedField(&fieldsMap, prevID);
  if (prev == nullptr) return 0;
  bitIndex = static_cast<uint32_t>(EndBitIndexOf(prev)) + gap;
  return 1;
}

int CKovField::GetFieldPkBitOffsetFromImageStart(const CKovFieldLayout* layout,
                                                 const KovFieldsMap* fieldsMap,
                                                 uint32_t entryStartByte, uint8_t entryMsbStart,
                                                 uint16_t blkID, uint32_t& bitIndex) const {
  // Walks back through predecessors that are not placed yet, adding up their fixed lengths and
  // gaps, until one is placed, fixed, or the first of its layout.
  const CKovFieldLayout* current = layout;
  uint32_t behind = 0;  // bits from the end of the predecessor in hand to the wanted field
  for (unsigned step = 0; step < kMaxPrevFieldChain; ++step) {
    behind += current->GetNumBitsOffsetFromPrevFieldEnd();
    uint32_t prevID = prevFieldIDOf(current);
    if (prevID == current->GetFieldID()) {
      bitIndex = linearIndexOf(entryStartByte, entryMsbStart) + behind;
      return 1;
    }
    if (const CKovField* prev = placedField(fieldsMap, prevID)) {
      bitIndex = static_cast<uint32_t>(EndBitIndexOf(prev)) + behind;
      return 1;
    }
    const CKovFieldLayout* prevLayout =
        current->GetParentDataLayout()->GetFieldLayout(prevID);
    if (prevLayout == nullptr) {
      throw new CMevGenException(
          kovFormat("Field layout for field %d not found. Unable to determine "
                    "byteOffset/startBit for floating field %d in block %d.",
                    prevID, current->GetFieldID(), blkID),
          0);
    }
    if (!prevLayout->IsFixedSz()) return 0;
    behind += prevLayout->GetLengthInBits();
    if (prevLayout->HasFixedAddr()) {
      bitIndex = linearIndexOf(entryStartByte, entryMsbStart) +
                 GetNumBitsOffsetFromEntryStart(entryMsbStart, prevLayout) + behind;
      return 1;
    }
    current = prevLayout;
  }
  throw new CMevGenException(
      kovFormat("The previous fields of floating field %d in block %d form a loop.",
                layout->GetFieldID(), blkID),
      0);
}

int CKovField::GetFloatingUnpackAddr(const CKovFieldLayout* layout, uint32_t entryStartByte,
                                     uint8_t entryMsbStart, const KovFieldsMap& fieldsMap,
                                     uint32_t& byte, uint8_t& msbStart) const {
  uint32_t index = 0;
  if (!GetFieldUpBitOffsetFromImageStart(layout, entryStartByte, entryMsbStart, fieldsMap, index)) {
    return 0;
  }
  byte = index >> 3;
  msbStart = static_cast<uint8_t>(7 - (index & 7));
  return 1;
}

int CKovField::GetFloatingPackAddr(const CKovFieldLayout* layout, const KovFieldsMap* fieldsMap,
                                   uint32_t entryStartByte, uint8_t entryMsbStart, uint16_t blkID,
                                   uint32_t& byte, uint8_t& msbStart) const {
  uint32_t index = 0;
  if (!GetFieldPkBitOffsetFromImageStart(layout, fieldsMap, entryStartByte, entryMsbStart, blkID,
                                         index)) {
    return 0;
  }
  byte = index >> 3;
  msbStart = static_cast<uint8_t>(7 - (index & 7));
  return 1;
}

namespace {

template <class Value>
UpStatus readWhole(CKovField* field, const CKovUp* up, const CKovFieldLayout* layout,
                   uint32_t entryStartByte, uint8_t entryMsbStart, const KovFieldsMap& fieldsMap,
                   uint32_t lastBit, Value& value) {
  uint32_t byte = 0;
  uint8_t msb = 0;
  if (!field->GetUnpackAddr(layout, entryStartByte, entryMsbStart, fieldsMap, byte, msb)) {
    return UpDeferred;
  }
  field->SetAddressInImage(byte, msb);
  if (field->FieldOutsideBlkData(layout, byte, msb, lastBit)) return UpOutsideBlkData;
  field->SetImageSize(layout->GetLengthInBits());
  return up->GetImage()->GetBytes(byte, msb, layout->GetLengthInBits(), value) ? UpDone : UpFailed;
}

}  // namespace

UpStatus CKovField::ReadWhole(const CKovUp* up, const CKovFieldLayout* layout,
                              uint32_t entryStartByte, uint8_t entryMsbStart,
                              const KovFieldsMap& fieldsMap, uint32_t lastBit, uint32_t& value) {
  return readWhole(this, up, layout, entryStartByte, entryMsbStart, fieldsMap, lastBit, value);
}

UpStatus CKovField::ReadWhole(const CKovUp* up, const CKovFieldLayout* layout,
                              uint32_t entryStartByte, uint8_t entryMsbStart,
                              const KovFieldsMap& fieldsMap, uint32_t lastBit, uint16_t& value) {
  return readWhole(this, up, layout, entryStartByte, entryMsbStart, fieldsMap, lastBit, value);
}
