// CKovListField: a list value, the entries of one list field, in the pack or the unpack role.
//
// In the image the entries stand one behind the other from the list's address, entry i at
// i × entry size bits behind the first; a list has no bytes of its own. The quantity (LEQ) comes
// by the list's format: the layout's maximum (FixedSzNoLeq), a number field of the same block
// (VarSzContigLeq, VarSzSameBlkLeq, and VarSzCfgLeq, the configuration LEQ of a KLS block), a
// number field of another block (VarSzSplitLeq) or the application's function (VarSzCalcLeq,
// VarSzCalcLeqAlt). The entry size is the layout's, or, in a KLS block, the LED size field × 8.
//
// Pack: the application gives the LEQ and the entries (owned from then on). The entries are
// written first; the LEQ goes behind them into its field when that lies in the list's own data
// layout at a known address, otherwise through the pack's patch map. The pack does not measure a
// list: a floating field behind it goes by the size the application sets with SetImageSize.
// Worked example: N (8 bits, byte 0), then a VarSzContigLeq list at byte 1 of two 16-bit entries
// 0x1234 and 0x5678, entry start at image byte 4 -> from byte 4: 02 12 34 56 78.
//
// Unpack: the LEQ first (a list whose LEQ is not read yet answers UpDeferred), then the entries,
// each limited to its own bits. An entry of an ordinary block that does not end in UpDone is
// dropped and ends the list with its status; the report still closes its <LED>, so that it stays
// well-formed XML. The first entry must end within the surrounding data; a list
// whose entries would run past the end of the image is refused with
// "List %d in block %s [%d] holds %u entries of %u bits, which run past the end of the image.".
// Other failures: "Number of entries in List field %s does not match pack quantity of %d.",
// "List %s holds %u entries, more than the %u its layout allows." (the layout's maximum bounds
// every list but one of a KLS block, VarSzCfgLeq, whose maximum is the pack data's maxLeq that
// the configuration records: "List %s holds %u entries, more than the maximum of %u its pack data
// gives."),
// "Field layout for LEQ field referenced by list %s not found",
// "Anchor field (%s) in Single Instance block references split field in Multiple Instance
// block.", "LEQ %u of list %s does not fit in the %u bits of its LEQ field." (deliberate: a
// quantity wider than its field would be cut to the field's bits and read back as another
// quantity; an LEQ field in the list's own entry refuses the same way, with PkFailed),
// "Not user function found for calculating entry quantity for list %d in block %s",
// "Unable to determine LED size for list %d in\nblock %s".
#ifndef KOV_FIELDS_LISTFIELD_H
#define KOV_FIELDS_LISTFIELD_H

#include <cstdint>
#include <memory>

#include "kov/fields/complexfield.h"

class CKovBlkLayout;
class CKovListFieldLayout;
class CKovPkEntryList;
class CKovPkEntry;
class CKovUpDistKLSBlkInst;
class CKovUpEntryList;
class CKovUpPatchMap;

class CKovListField : public CKovComplexField {
 public:
  // Pack role: takes pkEntryList over (null: an empty list).
  CKovListField(uint32_t fieldID, uint32_t listEntryQty, uint16_t maxLeq,
                CKovPkEntryList* pkEntryList);
  // An unpacked list made by hand: takes upEntryList over (null: an empty list).
  CKovListField(uint32_t fieldID, uint32_t listEntryQty, CKovUpEntryList* upEntryList);
  // Unpack role; see the header comment.
  CKovListField(const CKovUp* up, const CKovBlkLayout* blkLayout, uint32_t entryStartByte,
                uint8_t entryMsbStart, CKovUpPatchMap* patchMap, const CKovFieldLayout* layout,
                uint32_t lastBit, KovFieldsMap& fieldsMap, UpStatus& status, uint32_t fieldID,
                uint16_t instance);
  ~CKovListField() override;
  // Deep copies: the copy has entries (and values) of its own. Assignment gives the strong
  // guarantee. Throw what kovCopyField throws.
  CKovListField(const CKovListField& other);
  CKovListField& operator=(const CKovListField& other);

  int IsList() const override { return 1; }

  // Appends entry to the pack entries, which take ownership.
  void AddEntryToList(CKovPkEntry* entry);
  uint32_t GetListID() const { return listID; }
  uint32_t GetListEntryQty() const { return listEntryQty; }
  uint16_t GetMaxLeq() const { return maxLeq; }
  const CKovPkEntryList* GetPkEntryList() const { return pkEntryList.get(); }
  const CKovUpEntryList* GetUpEntryList() const { return upEntryList.get(); }
  // The same list, for the reader of distributed lists to add to.
  CKovUpEntryList* GetUpEntryList(const CKovUpDistKLSBlkInst* reader);
  void SetListEntryQty(uint32_t qty) { listEntryQty = qty; }

  using CKovComplexField::WriteToImage;
  PkStatus WriteToImage(const CKovPk* pk, CKovImage* image, uint32_t entryStartByte,
                        uint8_t entryMsbStart, KovFieldsMap* fieldsMap,
                        const CKovFieldLayout* layout, const CKovCpLayout* cpLayout,
                        uint16_t blkID, int instance) const override;
  // Writes the entries at (byte, msbStart), not the LEQ; records the address.
  PkStatus PatchFieldInImage(const CKovPk* pk, CKovImage* image, KovFieldsMap* fieldsMap,
                             const CKovFieldLayout* layout, const CKovCpLayout* cpLayout,
                             uint16_t blkID, int instance, uint32_t byte, uint8_t msbStart) const;
  using CKovComplexField::PatchFieldInImage;

 protected:
  bool UnpackLEQ(const CKovUp* up, const CKovListFieldLayout* layout,
                 const CKovBlkLayout* blkLayout, const KovFieldsMap& fieldsMap, uint16_t instance);
  void GetCalculatedLeq(const CKovUp* up, const CKovListFieldLayout* layout,
                        const CKovBlkLayout* blkLayout, uint16_t instance);
  bool GetSameBlockLeq(const CKovListFieldLayout* layout, const KovFieldsMap& fieldsMap);
  bool GetSplitBlockLeq(const CKovUp* up, const CKovListFieldLayout* layout, uint16_t instance);
  void UnpackListField(const CKovUp* up, const CKovListFieldLayout* layout,
                       const CKovBlkLayout* blkLayout, uint32_t entryStartByte,
                       uint8_t entryMsbStart, uint32_t lastBit, CKovUpPatchMap* patchMap,
                       uint16_t instance, KovFieldsMap& fieldsMap, UpStatus& status);
  void UnpackListEntries(const CKovUp* up, const CKovListFieldLayout* layout,
                         const CKovBlkLayout* blkLayout, uint32_t lastBit,
                         CKovUpPatchMap* patchMap, uint16_t instance, KovFieldsMap& fieldsMap,
                         UpStatus& status);
  int WriteFieldDataToImage(const CKovPk* pk, CKovImage* image, KovFieldsMap* fieldsMap,
                            const CKovListFieldLayout* layout, const CKovCpLayout* cpLayout,
                            uint16_t blkID, int instance) const;
  int WriteLeqToImage(const CKovPk* pk, CKovImage* image, const CKovCpLayout* cpLayout,
                      uint32_t entryStartByte, uint8_t entryMsbStart, KovFieldsMap* fieldsMap,
                      uint16_t blkID, const CKovListFieldLayout* layout, int instance) const;
  void AddLeqFieldToPatchMap(const CKovPk* pk, const CKovCpLayout* cpLayout,
                             const CKovListFieldLayout* layout, uint16_t blkID,
                             int instance) const;
  void Cleanup();

 private:
  uint32_t listID;
  uint32_t listEntryQty = 0;
  uint16_t maxLeq = 0;
  std::unique_ptr<CKovPkEntryList> pkEntryList;
  std::unique_ptr<CKovUpEntryList> upEntryList;
};

// Throws the refusal of a KLS list of listEntryQty entries above its pack data's maxLeq.
void kovCheckKLSListQty(const char* listName, uint32_t listEntryQty, uint16_t maxLeq);

#endif  // KOV_FIELDS_LISTFIELD_H
