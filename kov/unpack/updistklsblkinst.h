// CKovUpDistKLSBlkInst: one instance of a distributed KOV List Structure, joined from its listlets.
//
// Made after the walk over the image, one per instance n of the header block. It follows the
// chain from the header's link field: each link is the KOV name of the next listlet (0 ends the
// chain), found by the walk anywhere in the image; each listlet is read as a block of its own
// (checksum first), and its list's entries are moved, in chain order, into one list. The result
// holds a link field of value 0, an LEQ field with the total quantity (cut to 16 bits) and the
// joined list, inside the union that surrounds it in the layout, if any. The listlets are then
// destroyed; the report shows them as <Listlet> sections of the instance's block.
//
// A damaged chain is refused, naming the block and the instance:
//   "Distributed KLS block %s [%d]: its header links to no listlet."
//   "Distributed KLS block %s [%d]: the chain of listlets returns to listlet 0x%08X."
//   "Distributed KLS block %s: listlet 0x%08X is on the chains of header instances %d and %d."
//     (deliberate: a listlet belongs to the one chain that reaches it; reading a shared chain
//     again for every header would let a small image take memory and time without bound)
//   "Listlet 0x%08X of Distributed KLS block %s [%d] at offset %u runs past the end of the image."
//   "Unable to determine instance # of Distributed KLS item\n%s in the image."  (a link the walk
//    did not meet, or one naming a listlet of another block)
// besides the texts of a listlet's checksum and form. Nothing of the instance remains then.
#ifndef KOV_UNPACK_UPDISTKLSBLKINST_H
#define KOV_UNPACK_UPDISTKLSBLKINST_H

#include <cstdint>
#include <list>
#include <vector>

#include "kov/unpack/upblkinstance.h"
#include "kov/platform/kovmap.h"

class CKovDataLayout;
class CKovUnionFieldLayout;

class CKovUpDistKLSBlkInst : public CKovUpBlkInstance {
  KOV_DECLARE_RUNTIME_CLASS(CKovUpDistKLSBlkInst)

 public:
  // Reads and joins the listlets of instance n; see the header comment.
  CKovUpDistKLSBlkInst(const CKovUp* up, CKovUpPatchMap* patchMap, const CKovBlkLayout* blkLayout,
                       const KovFieldsMap& hdrFields, const std::vector<uint32_t>* addresses,
                       uint16_t blkID, uint16_t instance,
                       const CKovMap<uint32_t, uint16_t>& kovNameToInstNum);

  // The KOV name in the link field of fields; throws when there is none.
  uint32_t GetKovNameOfNextListlet(const KovFieldsMap& fields) const;
  // The address of the header of the listlet named kovName.
  uint32_t GetAddrOfListlet(const std::vector<uint32_t>* addresses, uint32_t kovName,
                            const CKovMap<uint32_t, uint16_t>& kovNameToInstNum) const;
  // Reads the listlet at address, which must bear kovName; kovName becomes the next link.
  CKovUpBlkInstance* UnpackListlet(const CKovUp* up, const CKovImage* image,
                                   CKovUpPatchMap* patchMap, uint32_t address,
                                   uint32_t& kovName) const;
  // The list of a listlet's entry: its last field, or the one field of that union's option.
  const CKovField* GetKLSListField(const CKovUpEntry* entry) const;
  // A list holding the entries of every listlet, in order; the listlets' lists are left empty.
  const CKovField* CreateSglListFldFromListlets(
      const std::list<CKovUpBlkInstance*>& listlets) const;
  // The data layout of the option of unionLayout that holds fieldID; optionID gets its id.
  const CKovDataLayout* GetUnionDataLayout(const CKovUnionFieldLayout* unionLayout,
                                           uint32_t& optionID, uint32_t fieldID) const;
  void AddLinkFieldToBlkInstance();
  void AddLeqFieldToBlkInstance(const CKovField* listField);
  // Takes ownership of listField, also when it throws (it is then deleted).
  void AddListFieldToDistKLSBlkInst(const CKovField* listField);
  // Deletes every listlet and empties the list.
  void DeleteListletBlkInstances(std::list<CKovUpBlkInstance*>& listlets) const;

 private:
  const CKovBlkLayout* blkLayout;
};

#endif  // KOV_UNPACK_UPDISTKLSBLKINST_H
