// CKovField: one value of one field of one entry, in the pack role or the unpack role.
//
// Pack role: the application constructs a value and hands it to the pack, which asks it to write
// itself (WriteToImage) at the place its field layout gives. Unpack role: the engine constructs it
// with a CKovUp and a position; the constructor finds the address, reads the image and reports an
// UpStatus. After either role the object records where the field went (byte, MSB start) and how
// many bits it takes there; WriteToImage is const and updates only that record.
//
// Addresses. A position is a byte and an MSB start (7 = the byte's top bit); its linear bit index
// is byte × 8 + 7 − MSB start. A fixed field lies byteOffset × 8 − msbStart + m bits behind an
// entry start with MSB start m, which always lands on (entry byte + byteOffset, msbStart):
//   entry (100, 7), field byteOffset 2 msbStart 5  ->  (102, 5), whatever the entry's MSB.
// A floating field lies numBitsOffsetFromPrevFieldEnd bits behind the end of its previous field
// (the entry start for the first field of its layout). The fields map holds the fields already
// placed for one block instance; a floating field finds its predecessor there. On the pack side a
// predecessor not yet placed but of fixed size is placed from the layouts instead.
//
// The name of a field is the string resource whose id is the field id ("" when there is none).
// Ownership: a CKovPkField or CKovUpField owns the value; the layouts are never owned.
#ifndef KOV_FIELDS_FIELD_H
#define KOV_FIELDS_FIELD_H

#include <cstdint>
#include <string>

#include "kov/layout/fieldlayout.h"
#include "kov/platform/arena.h"
#include "kov/platform/kovmap.h"

class CKovCpLayout;
class CKovField;
class CKovImage;
class CKovPk;
class CKovUp;

// The result of writing a field.
enum PkStatus : int {
  PkDone = 0,      // the field stands in the image
  PkDeferred = 1,  // its address can't be known yet; nothing was written
  PkFailed = 2,    // the write failed
};

// The result of unpacking a field.
enum UpStatus : int {
  UpDone = 0,            // the value is read
  UpOutsideBlkData = 1,  // the field lies past the last bit that may be read
  UpDeferred = 2,        // something it depends on is not unpacked yet
  UpFailed = 3,          // the image could not be read there
};

// Field id -> the field placed last under that id, for one block instance. Not owning.
using KovFieldsMap = CKovMap<uint32_t, const CKovField*>;

class CKovField {
 public:
  // Loads the field's name from the string resources.
  explicit CKovField(uint32_t fieldID);
  CKovField(const CKovField&) = default;
  CKovField& operator=(const CKovField&) = default;
  virtual ~CKovField() = default;
  // Made in the arena of an unpack's scope, or on the heap (see kov/platform/arena.h).
  static void* operator new(size_t size) { return kovArenaNew(size); }
  static void operator delete(void* p, size_t size) noexcept { kovArenaDelete(p, size); }

  virtual int IsString() const { return 0; }
  virtual int IsChar() const { return 0; }
  virtual int IsNumber() const { return 0; }
  virtual int IsList() const { return 0; }
  virtual int IsUnion() const { return 0; }
  virtual int IsKovName() const { return 0; }

  // Writes the value at its place in the entry that starts at (entryStartByte, entryMsbStart).
  // PkDeferred when the place can't be known yet. May throw only what the address rules throw.
  virtual PkStatus WriteToImage(const CKovPk* pk, CKovImage* image, uint32_t entryStartByte,
                                uint8_t entryMsbStart, KovFieldsMap* fieldsMap,
                                const CKovFieldLayout* layout, const CKovCpLayout* cpLayout,
                                uint16_t blkID, int instance) const = 0;

  // 1 when the value can be stored in the bits the layout gives, else 0.
  virtual int CanValueFitAsPerLayout(const CKovFieldLayout* layout) const = 0;

  // Writes the value at an address found by the pack's patch stage and records that address.
  // Numbers and KOV names override it; every other kind answers PkFailed. Never throws.
  virtual PkStatus PatchFieldInImage(const CKovPk* pk, CKovImage* image,
                                     const CKovFieldLayout* layout, uint32_t byte,
                                     uint8_t msbStart, uint16_t blkID, int instance) const;

  // 1 when the field, placed at (byte, msbStart), would end behind the linear bit lastBit.
  virtual int FieldOutsideBlkData(const CKovFieldLayout* layout, uint32_t byte, uint8_t msbStart,
                                  uint32_t lastBit) const;

  std::string GetFieldName() const { return *fieldName; }
  uint32_t GetFieldID() const { return fieldID; }
  uint32_t GetByteOffsetInImage() const { return byteOffsetInImage; }
  uint8_t GetStartMsbInImage() const { return startMsbInImage; }
  uint32_t GetImageSize() const { return imageSize; }
  void SetImageSize(uint32_t sizeInBits) { imageSize = sizeInBits; }
  void SetAddressInImage(uint32_t byte, uint8_t msbStart) {
    byteOffsetInImage = byte;
    startMsbInImage = msbStart;
  }

  // Bits from an entry's first bit (MSB start entryMsbStart) to a fixed field's first bit.
  uint32_t GetNumBitsOffsetFromEntryStart(uint8_t entryMsbStart,
                                          const CKovFieldLayout* layout) const;
  // Byte and MSB start of a fixed field in an entry.
  uint32_t GetFieldStartByte(uint32_t entryStartByte, uint8_t entryMsbStart,
                             const CKovFieldLayout* layout) const;
  uint8_t GetFieldStartMsb(uint32_t entryStartByte, uint8_t entryMsbStart,
                           const CKovFieldLayout* layout) const;

  // Linear bit index of a floating field, unpack side: 0 when its predecessor is not in the
  // fields map. Throws only for a field layout without a parent data layout.
  int GetFieldUpBitOffsetFromImageStart(const CKovFieldLayout* layout, uint32_t entryStartByte,
                                        uint8_t entryMsbStart, const KovFieldsMap& fieldsMap,
                                        uint32_t& bitIndex) const;
  // Linear bit index of a floating field, pack side: a predecessor not in the fields map is
  // placed from the layouts when it and those before it have fixed sizes; else 0. Throws
  // "Field layout for field %d not found. Unable to determine byteOffset/startBit for floating
  // field %d in block %d." when a predecessor has no layout.
  int GetFieldPkBitOffsetFromImageStart(const CKovFieldLayout* layout,
                                        const KovFieldsMap* fieldsMap, uint32_t entryStartByte,
                                        uint8_t entryMsbStart, uint16_t blkID,
                                        uint32_t& bitIndex) const;

  // The address of the field, fixed or floating; 1 when it is known, else 0 with the out values
  // untouched. The fixed case is inline: nearly every field takes it.
  int GetUnpackAddr(const CKovFieldLayout* layout, uint32_t entryStartByte, uint8_t entryMsbStart,
                    const KovFieldsMap& fieldsMap, uint32_t& byte, uint8_t& msbStart) const {
    if (!layout->HasFixedAddr()) {
      return GetFloatingUnpackAddr(layout, entryStartByte, entryMsbStart, fieldsMap, byte,
                                   msbStart);
    }
    FixedAddrOf(layout, entryStartByte, entryMsbStart, byte, msbStart);
    return 1;
  }
  int GetPackAddr(const CKovFieldLayout* layout, const KovFieldsMap* fieldsMap,
                  uint32_t entryStartByte, uint8_t entryMsbStart, uint16_t blkID, uint32_t& byte,
                  uint8_t& msbStart) const {
    if (!layout->HasFixedAddr()) {
      return GetFloatingPackAddr(layout, fieldsMap, entryStartByte, entryMsbStart, blkID, byte,
                                 msbStart);
    }
    FixedAddrOf(layout, entryStartByte, entryMsbStart, byte, msbStart);
    return 1;
  }

 protected:
  // Byte and MSB start of a fixed field: the entry's start moved on by
  // GetNumBitsOffsetFromEntryStart on the linear bit index (kovUpdateAsPerByteSpread's step).
  static void FixedAddrOf(const CKovFieldLayout* layout, uint32_t entryStartByte,
                          uint8_t entryMsbStart, uint32_t& byte, uint8_t& msbStart) {
    const uint32_t offsetInBits =
        layout->GetByteOffset() * 8 - layout->GetMsbStart() + entryMsbStart;
    const uint64_t index = uint64_t{entryStartByte} * 8 + (7u - entryMsbStart) + offsetInBits;
    byte = static_cast<uint32_t>(index >> 3);
    msbStart = static_cast<uint8_t>(7 - (index & 7));
  }
  // GetUnpackAddr and GetPackAddr of a floating field.
  int GetFloatingUnpackAddr(const CKovFieldLayout* layout, uint32_t entryStartByte,
                            uint8_t entryMsbStart, const KovFieldsMap& fieldsMap, uint32_t& byte,
                            uint8_t& msbStart) const;
  int GetFloatingPackAddr(const CKovFieldLayout* layout, const KovFieldsMap* fieldsMap,
                          uint32_t entryStartByte, uint8_t entryMsbStart, uint16_t blkID,
                          uint32_t& byte, uint8_t& msbStart) const;

  // Linear bit index just behind a placed field.
  static uint64_t EndBitIndexOf(const CKovField* field);

  // The road of WriteToImage: PkDeferred while the address can't be known; otherwise the address
  // is recorded and writeData() (1 or 0) makes it PkDone or PkFailed.
  template <class WriteData>
  PkStatus WriteAtPackAddr(const CKovFieldLayout* layout, const KovFieldsMap* fieldsMap,
                           uint32_t entryStartByte, uint8_t entryMsbStart, uint16_t blkID,
                           WriteData writeData) const {
    if (!GetPackAddr(layout, fieldsMap, entryStartByte, entryMsbStart, blkID, byteOffsetInImage,
                     startMsbInImage)) {
      return PkDeferred;
    }
    return writeData() ? PkDone : PkFailed;
  }
  // The road of PatchFieldInImage: records (byte, msbStart), then writes.
  template <class WriteData>
  PkStatus WriteAtAddr(uint32_t byte, uint8_t msbStart, WriteData writeData) const {
    byteOffsetInImage = byte;
    startMsbInImage = msbStart;
    return writeData() ? PkDone : PkFailed;
  }
  // The road of an unpack constructor that reads the field whole: finds the address (UpDeferred
  // without one), tests it against lastBit (UpOutsideBlkData), then reads the layout's width into
  // value (UpFailed when the image can't give it). The caller reports a field read with UpDone.
  UpStatus ReadWhole(const CKovUp* up, const CKovFieldLayout* layout, uint32_t entryStartByte,
                     uint8_t entryMsbStart, const KovFieldsMap& fieldsMap, uint32_t lastBit,
                     uint32_t& value);
  UpStatus ReadWhole(const CKovUp* up, const CKovFieldLayout* layout, uint32_t entryStartByte,
                     uint8_t entryMsbStart, const KovFieldsMap& fieldsMap, uint32_t lastBit,
                     uint16_t& value);

  // The name as it was when the field was made, kept by the string resources.
  const std::string* fieldName;
  uint32_t fieldID;
  // Where the field went and how many bits it takes: a record kept by the const writers. The
  // byte-wide member comes last, so that a derived class's members fill the space behind it.
  mutable uint32_t byteOffsetInImage = 0;
  mutable uint32_t imageSize = 0;
  mutable uint8_t startMsbInImage = 0;
};

#endif  // KOV_FIELDS_FIELD_H
