#include <memory>
#include <vector>

#include "kov/fields/charfield.h"
#include "kov/fields/numfield.h"
#include "kov/image/image.h"
#include "kov/kovtest.h"
#include "kov/layout/charfieldlayout.h"
#include "kov/layout/datalayout.h"
#include "kov/layout/listfieldlayout.h"
#include "kov/layout/numfieldlayout.h"
#include "kov/platform/strresource.h"
#include "kov/unpack/up.h"

namespace {

constexpr LayoutType kAnyLayoutType = static_cast<LayoutType>(1);

// A data layout that owns its fields, with helpers to add fixed and floating numbers.
struct Entry {
  std::unique_ptr<CKovDataLayout> layout{new CKovDataLayout(kAnyLayoutType, 0, 7, 0, true)};
  int next = 0;

  const CKovFieldLayout* Fixed(uint32_t id, uint32_t prev, uint32_t byteOffset, uint8_t msb,
                               uint32_t bits) {
    auto* f = new CKovNumFieldLayout(id, byteOffset, bits, msb, true, 0, layout.get());
    layout->AddField(id, prev, f, next++);
    return f;
  }
  const CKovFieldLayout* Floating(uint32_t id, uint32_t prev, uint32_t gap, uint32_t bits) {
    auto* f = new CKovNumFieldLayout(id, 0, bits, 0, false, gap, layout.get());
    layout->AddField(id, prev, f, next++);
    return f;
  }
  const CKovFieldLayout* Chars(uint32_t id, uint32_t prev, uint32_t byteOffset, uint8_t msb,
                               CKovCharFieldLayout::CharType type) {
    auto* f = new CKovCharFieldLayout(id, byteOffset, msb, type, true, 0, layout.get());
    layout->AddField(id, prev, f, next++);
    return f;
  }
};

uint32_t linear(const CKovField& f) {
  return f.GetByteOffsetInImage() * 8 + 7 - f.GetStartMsbInImage();
}

TEST(FieldAddress, FixedFieldKeepsItsMsbWhateverTheEntryMsb) {
  Entry e;
  const CKovFieldLayout* f = e.Fixed(1, 0, 2, 5, 4);
  CKovNumField v(0, 1, 4);
  // Entry at byte 10, MSB 7 or MSB 3: the field is at byte 12, MSB 5 either way.
  EXPECT_EQ(v.GetFieldStartByte(10, 7, f), 12u);
  EXPECT_EQ(v.GetFieldStartMsb(10, 7, f), 5);
  EXPECT_EQ(v.GetFieldStartByte(10, 3, f), 12u);
  EXPECT_EQ(v.GetFieldStartMsb(10, 3, f), 5);
  EXPECT_EQ(v.GetNumBitsOffsetFromEntryStart(7, f), 18u);
}

TEST(FieldAddress, FloatingFieldsByRoleAndPredecessor) {
  Entry e;
  e.Floating(1, 0, 3, 8);  // first of its layout
  e.Fixed(2, 0, 0, 7, 8);  // placed at linear 25 with 13 bits: the recorded size counts
  e.Floating(3, 2, 1, 8);
  e.Fixed(4, 0, 1, 3, 6);  // never placed: linear 12..18
  e.Floating(5, 4, 2, 5);  // never placed: 20..25
  e.Floating(6, 5, 1, 4);
  CKovNumField placed(0, 2, 0);
  placed.SetAddressInImage(3, 6);
  placed.SetImageSize(13);
  KovFieldsMap map;
  map.SetAt(2, &placed);
  const struct {
    uint32_t id, entryByte;
    uint8_t entryMsb;
    int pack, unpack;  // linear bit index, -1 for none
  } cases[] = {
      {1, 4, 2, 40, 40},  // entry at linear 32 + 5 = 37, + gap 3
      {3, 0, 7, 39, 39},  // 25 + 13 + gap 1
      // The pack adds up unwritten fixed-size predecessors from their layouts: 25 + gap 1. The
      // unpack never guesses: the predecessor must have been read.
      {6, 0, 7, 26, -1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.id);
    const CKovFieldLayout* f = e.layout->GetFieldLayout(c.id);
    CKovNumField v(0, c.id, 8);
    uint32_t byte = 0;
    uint8_t msb = 0;
    ASSERT_EQ(v.GetPackAddr(f, &map, c.entryByte, c.entryMsb, 1, byte, msb), c.pack >= 0 ? 1 : 0);
    if (c.pack >= 0) {
      EXPECT_EQ(byte * 8 + 7 - msb, uint32_t(c.pack));
    }
    ASSERT_EQ(v.GetUnpackAddr(f, c.entryByte, c.entryMsb, map, byte, msb), c.unpack >= 0 ? 1 : 0);
    if (c.unpack >= 0) {
      EXPECT_EQ(byte * 8 + 7 - msb, uint32_t(c.unpack));
    } else {
      CKovUp up(nullptr, Bytes(8, 0), "");
      UpStatus status = UpDone;
      CKovNumField read(&up, c.entryByte, c.entryMsb, map, f, c.id, 1, 63, status);
      EXPECT_EQ(status, UpDeferred);
    }
  }
}

TEST(FieldAddress, PackDefersBehindUnwrittenListAndRefusesMissingOrLoopingPredecessors) {
  Entry e;
  addList(e.layout.get(), 10, 0, e.next++, 0, VarSzCalcLeq, 4, 8, numbers(10, {{{11, 0, 8}}}));
  const CKovFieldLayout* behindList = e.Floating(20, 10, 0, 8);
  const CKovFieldLayout* orphan = e.Floating(21, 99, 0, 8);
  e.Floating(30, 31, 0, 4);
  const CKovFieldLayout* looping = e.Floating(31, 30, 0, 4);
  CKovNumField v(0, 20, 8);
  KovFieldsMap empty;
  uint32_t byte = 77;
  uint8_t msb = 3;
  EXPECT_EQ(v.GetPackAddr(behindList, &empty, 0, 7, 5, byte, msb), 0);
  EXPECT_EQ(byte, 77u);  // untouched
  EXPECT_EQ(msb, 3);
  CKovImage image(8);
  EXPECT_EQ(v.WriteToImage(nullptr, &image, 0, 7, &empty, behindList, nullptr, 5, 1), PkDeferred);
  EXPECT_EQ(image.GetBytesArray()[0], 0);
  CKovNumField o(0, 21, 8);
  EXPECT_KOV_THROW(o.GetPackAddr(orphan, &empty, 0, 7, 5, byte, msb),
                   "Field layout for field 99 not found. Unable to determine byteOffset/startBit "
                   "for floating field 21 in block 5.");
  EXPECT_KOV_THROW(CKovNumField(0, 31, 4).GetPackAddr(looping, &empty, 0, 7, 3, byte, msb),
                   "The previous fields of floating field 31 in block 3 form a loop.");
}

TEST(FieldOutside, LastBitIsInclusive) {
  Entry e;
  const CKovFieldLayout* f = e.Fixed(1, 0, 0, 7, 12);
  CKovNumField v(0, 1, 12);
  // 12 bits at (6, 7): bits 48..59.
  EXPECT_EQ(v.FieldOutsideBlkData(f, 6, 7, 59), 0);
  EXPECT_EQ(v.FieldOutsideBlkData(f, 6, 7, 58), 1);
}

TEST(NumField, WritesAndReadsBackOneFieldEndToEnd) {
  // 12-bit 0xABC at byte 0, MSB 7 of a data area starting at byte 6: AB C0.
  Entry e;
  const CKovFieldLayout* f = e.Fixed(100, 0, 0, 7, 12);
  CKovImage image(10);
  CKovNumField v(0xABC, 100, 16);
  KovFieldsMap map;
  ASSERT_EQ(v.CanValueFitAsPerLayout(f), 1);
  ASSERT_EQ(v.WriteToImage(nullptr, &image, 6, 7, &map, f, nullptr, 1, 1), PkDone);
  std::vector<uint8_t> bytes(image.GetBytesArray(), image.GetBytesArray() + image.GetSize());
  EXPECT_EQ(bytes, (Bytes{0, 0, 0, 0, 0, 0, 0xAB, 0xC0, 0, 0}));
  EXPECT_EQ(v.GetByteOffsetInImage(), 6u);
  EXPECT_EQ(v.GetStartMsbInImage(), 7);
  EXPECT_EQ(v.GetImageSize(), 12u);  // the layout's width replaces the size given

  CKovUp up(nullptr, bytes, "");
  UpStatus status = UpFailed;
  CKovNumField back(&up, 6, 7, map, f, 100, 1, 6 * 8 + 15, status);
  EXPECT_EQ(status, UpDone);
  EXPECT_EQ(back.GetValue(), 0xABCu);
  EXPECT_EQ(back.GetImageSize(), 12u);
  // One bit less of data and the field no longer fits.
  CKovNumField cut(&up, 6, 7, map, f, 100, 1, 6 * 8 + 10, status);
  EXPECT_EQ(status, UpOutsideBlkData);
}

TEST(NumField, FitsByBitsNeeded) {
  Entry e;
  const CKovFieldLayout* five = e.Fixed(1, 0, 0, 7, 5);
  const CKovFieldLayout* one = e.Fixed(2, 1, 1, 7, 1);
  EXPECT_EQ(CKovNumField(31, 1, 5).CanValueFitAsPerLayout(five), 1);
  EXPECT_EQ(CKovNumField(32, 1, 5).CanValueFitAsPerLayout(five), 0);
  EXPECT_EQ(CKovNumField(0, 2, 1).CanValueFitAsPerLayout(one), 1);
}

TEST(NumField, LayoutWiderThan32BitsOrPastTheImageFailsInBothRoles) {
  const struct {
    const char* what;
    uint32_t byteOffset;
    uint8_t msb;
    uint32_t bits, imageSize;
  } cases[] = {
      {"40 bits", 0, 7, 40, 40},
      // 264 bits would wrap to 8 in the bit writer's 8-bit width: it must fail, not write a byte.
      {"264 bits", 0, 7, 264, 40},
      {"bits 12..19 of 2 bytes", 1, 3, 8, 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Entry e;
    const CKovFieldLayout* f = e.Fixed(1, 0, c.byteOffset, c.msb, c.bits);
    CKovImage image(c.imageSize);
    KovFieldsMap map;
    EXPECT_EQ(CKovNumField(0xFF, 1, 8).WriteToImage(nullptr, &image, 0, 7, &map, f, nullptr, 1, 1),
              PkFailed);
    EXPECT_EQ(image.GetBytesArray()[0], 0);
    CKovUp up(nullptr, Bytes(c.imageSize, 0xFF), "");
    UpStatus status = UpDone;
    CKovNumField back(&up, 0, 7, map, f, 1, 1, 8 * 40 - 1, status);  // lastBit allows it
    EXPECT_EQ(status, UpFailed);
  }
}

TEST(NumField, PatchWritesAtGivenAddressAndRecordsIt) {
  Entry e;
  e.Fixed(1, 0, 0, 7, 8);
  const CKovFieldLayout* f = e.Floating(2, 1, 0, 16);
  CKovImage image(4);
  CKovNumField v(0x0003, 2, 16);
  ASSERT_EQ(v.PatchFieldInImage(nullptr, &image, f, 1, 3, 1, 1), PkDone);
  // 0x0003 in 16 bits from byte 1, MSB 3: bits 12..27 -> 00 00 00 30.
  std::vector<uint8_t> bytes(image.GetBytesArray(), image.GetBytesArray() + 4);
  EXPECT_EQ(bytes, (Bytes{0x00, 0x00, 0x00, 0x30}));
  EXPECT_EQ(v.GetByteOffsetInImage(), 1u);
  EXPECT_EQ(v.GetStartMsbInImage(), 3);
  EXPECT_EQ(linear(v), 12u);
}

TEST(CharField, Char4BitDigitIsStoredAsCodeLess0x30) {
  Entry e;
  const CKovFieldLayout* digit = e.Chars(1, 0, 0, 7, CKovCharFieldLayout::Char4Bit);
  const CKovFieldLayout* letter = e.Chars(2, 1, 1, 7, CKovCharFieldLayout::Char8Bit);
  CKovImage image(2);
  KovFieldsMap map;
  CKovCharField seven('7', 1, 4);
  ASSERT_EQ(seven.CanValueFitAsPerLayout(digit), 1);
  ASSERT_EQ(seven.WriteToImage(nullptr, &image, 0, 7, &map, digit, nullptr, 1, 1), PkDone);
  ASSERT_EQ(
      CKovCharField('H', 2, 8).WriteToImage(nullptr, &image, 0, 7, &map, letter, nullptr, 1, 1),
      PkDone);
  std::vector<uint8_t> bytes(image.GetBytesArray(), image.GetBytesArray() + 2);
  EXPECT_EQ(bytes, (Bytes{0x70, 'H'}));

  CKovUp up(nullptr, bytes, "");
  UpStatus status = UpFailed;
  CKovCharField back(&up, 0, 7, map, digit, 1, 1, 15, status);
  EXPECT_EQ(status, UpDone);
  EXPECT_EQ(back.GetValue(), '7');
  EXPECT_EQ(back.GetImageSize(), 4u);
  // A space is 0x20 - 0x30 = 0xFFF0 in 16 bits: it does not fit in a digit.
  EXPECT_EQ(CKovCharField(' ', 1, 4).CanValueFitAsPerLayout(digit), 0);
}

TEST(Field, NameComesFromStringResources) {
  EXPECT_EQ(CKovNumField(0, 424242, 8).GetFieldName(), "");
  kovRegisterString(424243, "Squelch level");
  CKovNumField named(0, 424243, 8);
  EXPECT_EQ(named.GetFieldName(), "Squelch level");
  // The name is the one the field was made with, whatever the table holds later.
  kovRegisterString(424243, "Squelch");
  kovClearRegisteredStrings();
  EXPECT_EQ(named.GetFieldName(), "Squelch level");
  EXPECT_EQ(CKovNumField(named).GetFieldName(), "Squelch level");
  EXPECT_EQ(CKovNumField(0, 424243, 8).GetFieldName(), "");
}

}  // namespace
