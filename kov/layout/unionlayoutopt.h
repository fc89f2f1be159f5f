// CKovUnionLayoutOpt: one selectable option of a union, with the data layout of its fields.
//
// The option owns its data layout (not block level, dataLayoutID = the union's id) and deletes it.
// Copying and assigning copy the pointer, so that two options share one data layout: a copy must
// not outlive its source, and only one of the two may be deleted. An option whose data layout
// holds no field is allowed and selects nothing. Never throws.
#ifndef KOV_LAYOUT_UNIONLAYOUTOPT_H
#define KOV_LAYOUT_UNIONLAYOUTOPT_H

#include <cstdint>

class CKovDataLayout;

class CKovUnionLayoutOpt {
 public:
  // Option layoutOptID with dataLayout (ownership passes); layoutSzInBits is its size in a padded
  // union. The second, third and last arguments are accepted for the application and unused.
  CKovUnionLayoutOpt(CKovDataLayout* dataLayout, uint32_t unused1, uint8_t unused2,
                     uint32_t layoutOptID, uint32_t layoutSzInBits, uint32_t unused3);
  CKovUnionLayoutOpt(const CKovUnionLayoutOpt& other) = default;
  CKovUnionLayoutOpt& operator=(const CKovUnionLayoutOpt& other) = default;
  // Deletes the data layout.
  virtual ~CKovUnionLayoutOpt();

  // The members as constructed.
  CKovDataLayout* GetDataLayout() const { return dataLayout; }
  uint32_t GetLayoutOptID() const { return layoutOptID; }
  uint32_t GetLayoutSzInBits() const { return layoutSzInBits; }
  // 1 when the data layout holds no field (or there is none), else 0.
  int IsEmptyLayout() const;

 protected:
  uint32_t layoutOptID;
  uint32_t layoutSzInBits;
  CKovDataLayout* dataLayout;
};

#endif  // KOV_LAYOUT_UNIONLAYOUTOPT_H
