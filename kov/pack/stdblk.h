// CKovStdBlk: the base of a block's data in a pack (CKovPkStdBlk) or an unpack, and the home of
// the codeplug image format.
//
// An image is a plain run of block instances from byte 0, with no gap, no alignment, no header,
// directory or checksum of its own. Partitions follow in layout order, blocks in layout order
// within a partition, instances in ascending order within a block. Every multi-byte item is
// big-endian. One block instance:
//
//   offset  width  field
//        0      2  KOV type, big-endian (upper half of the KOV name)
//        2      2  KOV id (lower half): the block's id, instance − 1 for a multi-instance block,
//                  the running listlet number for a listlet
//        4      2  size = data size + 2: the bytes after this field
//        6      n  data area, bit-packed fields, covered by the checksum
//      6+n      2  CRC-16/XMODEM of the data area, big-endian
//
// A padded block's data size is its layout's maxDataSzInBytes; otherwise it is what the
// application gave for the instance. A pack with partition prefixes puts the partition number
// (2 bytes) in front of every instance, outside size and checksum. One 12-bit field 0xABC at
// byte 0, MSB 7, in block 0x0011/2:
//   00 11 00 02 00 04 AB C0 18 C8     (used length 10)
#ifndef KOV_PACK_STDBLK_H
#define KOV_PACK_STDBLK_H

#include <cstdint>
#include <string>

class CKovBlkLayout;

class CKovStdBlk {
 public:
  explicit CKovStdBlk(const CKovBlkLayout* blkLayout) : blkLayout(blkLayout) {}
  CKovStdBlk(const CKovStdBlk&) = default;
  CKovStdBlk& operator=(const CKovStdBlk&) = default;
  virtual ~CKovStdBlk() = default;

  virtual int IsPack() const { return 0; }
  virtual int IsUnpack() const { return 0; }
  // The number of instances of the block.
  virtual uint16_t GetBlkInstanceQty() const = 0;
  virtual int GetNumberOfFields(int instance) const = 0;

  // Bytes of a block header (KOV name and size) and of a checksum.
  static uint8_t GetHdrSz() { return 6; }
  static uint8_t GetChecksumSz() { return 2; }

  const CKovBlkLayout* GetBlkLayout() const { return blkLayout; }
  uint16_t GetBlkID() const;
  std::string GetBlkName() const;

 protected:
  const CKovBlkLayout* blkLayout;
};

#endif  // KOV_PACK_STDBLK_H
