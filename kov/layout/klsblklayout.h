// CKovKLSBlkLayout: a KOV List Structure block, a block built to hold one list together with the
// facts about that list at the start of its data.
//
// Non-distributed: all entries in one instance, behind 8 bytes of configuration. Distributed: the
// list is cut into listlets, one instance each with at most GetMaxLLEQ entries, behind 6 bytes
// of configuration; the list as a whole is described by a header block (see CKovBlkLayout), whose
// id is hdrBlkID. The constructor adds the configuration fields at the front of the data layout,
// all fixed at MSB 7, and maxDataSzInBytes covers them:
//   non-distributed                        distributed
//   byte bits  id     field                byte bits  id     field
//      0   16  28521  KLS type (0)            0   32  28525  listlet link (name, own block)
//      2   16  28524  LED size                4   16  28522  LEQ of the listlet
//      4   16  28523  max LEQ
//      6   16  28522  LEQ
// A KLS block is never padded, and a distributed one gets kovID 0: it is found by type alone.
//
// Only GetCalcMaxEntryQty (and GetMaxLLEQ through it) throws, CMevGenException code 0:
//   no function: "No user-defined max %s calculation function found\nfor KLS block %s"
//     (label "LLEQ" when the maximum listlet LEQ is asked, else "LEQ"; block name);
//   an exception of the function with an empty text gets "Unknown error occurred while
//     attempting to calculate\nmax %s for block %s [%d]." (label, block name, instance number,
//     one text) and is thrown on, the same object; one with a text is thrown on unchanged.
#ifndef KOV_LAYOUT_KLSBLKLAYOUT_H
#define KOV_LAYOUT_KLSBLKLAYOUT_H

#include <cstdint>
#include <string>

#include "kov/layout/blklayout.h"

// The application's maximum quantities of a KOV List Structure: the list's field id, the KLS
// block, the block instance number (from 1), and 0 for the maximum LEQ of the list or non-zero
// for the maximum LEQ of one listlet.
using KovCalcMaxLEQFunc = uint16_t (*)(uint32_t listID, const CKovBlkLayout* blkLayout,
                                       uint16_t instance, int wantMaxLLEQ);

class CKovKLSBlkLayout : public CKovBlkLayout {
 public:
  // Ids of the configuration fields, which are also the string resource ids of their names.
  static constexpr uint32_t m_listTypeFldID = 28521;
  static constexpr uint32_t m_leqFldID = 28522;
  static constexpr uint32_t m_maxLeqFldID = 28523;
  static constexpr uint32_t m_ledSzFldID = 28524;
  static constexpr uint32_t m_linkFldID = 28525;
  static constexpr uint32_t m_maxLLeqFldID = 28526;

  // A KLS block over dataLayout (ownership passes); maxDataSzInBytes excludes the configuration
  // area. distKLS non-zero: the distributed form, with maxLLEQ entries a listlet (0: ask
  // calcMaxLEQFunc) and header block hdrBlkID. attrib.padBlk has no effect.
  CKovKLSBlkLayout(uint16_t blkID, KovBlkLayoutAttrib attrib, std::string blkName,
                   CKovDataLayout* dataLayout, uint16_t maxDataSzInBytes, int distKLS,
                   uint16_t maxLLEQ, uint16_t hdrBlkID, KovCalcMaxLEQFunc calcMaxLEQFunc);
  ~CKovKLSBlkLayout() override;

  // distKLS.
  int IsDistKLS() const override { return distKLS; }
  // The header block of the distributed form, widened.
  uint32_t GetHdrBlkID() const { return hdrBlkID; }
  // The value of the KLS type field: 1 for the distributed form, 0 otherwise.
  uint16_t GetListTypeValue() const { return distKLS != 0 ? 1 : 0; }
  // maxLLEQ when it is not 0, without calling the function; else GetCalcMaxEntryQty(listID,
  // instance, 1), which may throw.
  uint16_t GetMaxLLEQ(uint32_t listID, uint16_t instance) const;
  // The function's answer for (listID, this block, instance, wantMaxLLEQ); throws as above.
  uint16_t GetCalcMaxEntryQty(uint32_t listID, uint16_t instance, int wantMaxLLEQ) const;
  // The application's function; may be null.
  KovCalcMaxLEQFunc GetCalcMaxLEQFuncPtr() const { return calcMaxLEQFunc; }

  // The configuration field ids.
  static uint32_t GetKLSTypeFldID() { return m_listTypeFldID; }
  static uint32_t GetLeqFldID() { return m_leqFldID; }
  static uint32_t GetMaxLeqFldID() { return m_maxLeqFldID; }
  static uint32_t GetLedSzFldID() { return m_ledSzFldID; }
  static uint32_t GetLinkFldID() { return m_linkFldID; }
  static uint32_t GetMaxLLeqFldID() { return m_maxLLeqFldID; }

  // The configuration fields' layouts in this block; null for a field the form lacks.
  CKovFieldLayout* GetKLSTypeFldLayout() const { return GetFieldLayout(m_listTypeFldID); }
  CKovFieldLayout* GetLeqFldLayout() const { return GetFieldLayout(m_leqFldID); }
  CKovFieldLayout* GetMaxLeqFldLayout() const { return GetFieldLayout(m_maxLeqFldID); }
  CKovFieldLayout* GetLedSzFldLayout() const { return GetFieldLayout(m_ledSzFldID); }
  CKovFieldLayout* GetLinkFldLayout() const { return GetFieldLayout(m_linkFldID); }
  CKovFieldLayout* GetMaxLLeqFldLayout() const { return GetFieldLayout(m_maxLLeqFldID); }

 protected:
  KovCalcMaxLEQFunc calcMaxLEQFunc;
  int distKLS;
  uint16_t hdrBlkID;
  uint16_t maxLLEQ;

 private:
  void AddCfgFieldsToLayout();
};

#endif  // KOV_LAYOUT_KLSBLKLAYOUT_H
