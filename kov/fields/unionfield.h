// CKovUnionField: a union value: the id of its selected option and that option's entry.
//
// Nothing in the image says which option a union holds. Pack: the application names the option
// and gives its entry (owned from then on) and the union's size in bits (SetImageSize); a union of
// size 0 writes nothing. Unpack: the discriminants are collected first: from the fields already
// read, by reading one of the union's own entry ahead of its turn (it then stands in the report
// twice), or from the first instance read of another block. A discriminant that can't be had yet
// makes the union wait (UpDeferred). The application's selection function then names the option.
// The union's size is the layout's for a fixed union, the option's for a padded variable one, and
// for an unpadded variable one the bits from its start to the end of the last field read.
//
// Throws "No user function found for selecting layout ID for union field %d" and
// "Layout selection function for union %s returned layout %d but\nno exchange defined for that
// layout.", and passes on what the selection function throws.
#ifndef KOV_FIELDS_UNIONFIELD_H
#define KOV_FIELDS_UNIONFIELD_H

#include <cstdint>
#include <list>
#include <memory>

#include "kov/fields/complexfield.h"
#include "kov/fields/discrinfo.h"

class CKovBlkLayout;
class CKovDataLayout;
class CKovPkEntry;
class CKovUnionFieldLayout;
class CKovUnionLayoutOpt;
class CKovUpEntry;
class CKovUpPatchMap;

class CKovUnionField : public CKovComplexField {
 public:
  // Pack role: the selected option and its entry (owned from then on; may be null).
  CKovUnionField(uint32_t fieldID, uint32_t layoutID, CKovPkEntry* pkEntry);
  // An unpacked union made by hand: takes upEntry over.
  CKovUnionField(uint32_t fieldID, uint32_t layoutID, CKovUpEntry* upEntry);
  // Unpack role; see the header comment.
  CKovUnionField(const CKovUp* up, const CKovBlkLayout* blkLayout, uint32_t entryStartByte,
                 uint8_t entryMsbStart, CKovUpPatchMap* patchMap, const CKovFieldLayout* layout,
                 uint32_t lastBit, KovFieldsMap& fieldsMap, UpStatus& status, uint32_t fieldID,
                 uint16_t instance);
  ~CKovUnionField() override;
  // Deep copies: the copy has an option entry (and values) of its own. Assignment gives the
  // strong guarantee. Throw what kovCopyField throws.
  CKovUnionField(const CKovUnionField& other);
  CKovUnionField& operator=(const CKovUnionField& other);

  int IsUnion() const override { return 1; }
  uint32_t GetLayoutID() const { return layoutID; }
  const CKovPkEntry* GetPkEntry() const { return pkEntry.get(); }
  // The option's fields; null for an option of size 0.
  const CKovUpEntry* GetUpEntry() const { return upEntry.get(); }
  // A union has no value of its own: always 0.
  uint32_t GetValue() const { return 0; }

  using CKovComplexField::WriteToImage;
  PkStatus WriteToImage(const CKovPk* pk, CKovImage* image, uint32_t entryStartByte,
                        uint8_t entryMsbStart, KovFieldsMap* fieldsMap,
                        const CKovFieldLayout* layout, const CKovCpLayout* cpLayout,
                        uint16_t blkID, int instance) const override;
  // Writes the option's entry at (byte, msbStart) and records the address.
  PkStatus PatchFieldInImage(const CKovPk* pk, CKovImage* image, KovFieldsMap* fieldsMap,
                             const CKovFieldLayout* layout, const CKovCpLayout* cpLayout,
                             uint16_t blkID, int instance, uint32_t byte, uint8_t msbStart) const;
  using CKovComplexField::PatchFieldInImage;

 protected:
  // 1 when the union, by its own address and size, ends behind lastBit.
  int FieldOutsideBlkData(const CKovFieldLayout* layout, uint32_t lastBit) const;
  using CKovComplexField::FieldOutsideBlkData;

  bool GetUnionLayoutID(const CKovUp* up, const CKovBlkLayout* blkLayout,
                        const CKovUnionFieldLayout* layout, uint32_t entryStartByte,
                        uint8_t entryMsbStart, const KovFieldsMap& fieldsMap, uint16_t instance,
                        uint32_t lastBit);
  bool GetSameBlkDiscrField(const CKovUp* up, const CKovBlkLayout* blkLayout,
                            uint32_t entryStartByte, uint8_t entryMsbStart,
                            const KovFieldsMap& fieldsMap, const CKovUnionFieldLayout* layout,
                            uint32_t lastBit, uint32_t discrID,
                            std::list<const KovDiscrInfo*>& discrs) const;
  bool GetSplitBlkDiscrField(const CKovUp* up, uint16_t instance, uint32_t discrID,
                             uint16_t discrBlkID, std::list<const KovDiscrInfo*>& discrs) const;
  CKovField* UnpackDiscrField(const CKovUp* up, uint32_t entryStartByte, uint8_t entryMsbStart,
                              const KovFieldsMap& fieldsMap, const CKovFieldLayout* discrLayout,
                              uint32_t discrID, uint16_t blkID, uint32_t lastBit) const;
  static void CleanupDiscrInfo(std::list<const KovDiscrInfo*>& discrs);
  const CKovUnionLayoutOpt* GetSelectedUnionLayout(const CKovUnionFieldLayout* layout) const;
  uint32_t CalculateUpEntrySzInBits(const CKovDataLayout* optionLayout) const;
  int WriteFieldDataToImage(const CKovPk* pk, CKovImage* image, KovFieldsMap* fieldsMap,
                            const CKovUnionFieldLayout* layout, const CKovCpLayout* cpLayout,
                            uint16_t blkID, int instance) const;
  void Cleanup();

 private:
  uint32_t layoutID = 0;
  std::unique_ptr<CKovPkEntry> pkEntry;
  std::unique_ptr<CKovUpEntry> upEntry;
};

#endif  // KOV_FIELDS_UNIONFIELD_H
