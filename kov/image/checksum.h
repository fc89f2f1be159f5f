// CRC-16 checksum of a byte range: the check value that closes every block instance.
//
// kovCalculateChecksum computes CRC-16/XMODEM (width 16, polynomial 0x1021, initial value 0,
// no reflection of input or output, no final XOR) over exactly the bytes it is given and reads
// nothing else. An empty range gives 0. Check values: the ASCII digits "123456789" give 0x31C3,
// the two bytes FF FF give 0x1D0F. In the image the checksum stands as 2 bytes, high byte first.
//
// It takes eight bytes a step through eight 256-entry tables built at compile time (table k, entry
// i: the CRC of byte i followed by k zero bytes; see checksum.cpp) and the bytes left over one at
// a time through table 0, where entry i is the CRC of the single byte i (entry 1 is 0x1021,
// entry 2 is 0x2042, entry 255 is 0x1EF0):
//   crc = (crc << 8) ^ table[(crc >> 8) ^ byte], kept to 16 bits, for each byte in order.
#ifndef KOV_IMAGE_CHECKSUM_H
#define KOV_IMAGE_CHECKSUM_H

#include <cstddef>
#include <cstdint>
#include <vector>

// Stores the CRC-16/XMODEM of bytes in checksum and returns 1. Never throws.
int kovCalculateChecksum(const std::vector<uint8_t>& bytes, uint16_t& checksum);

// The same over numBytes bytes from data, for callers that hold the bytes elsewhere; data may be
// null when numBytes is 0. Returns 1. Never throws.
int kovCalculateChecksum(const uint8_t* data, size_t numBytes, uint16_t& checksum);

// Entry index of the look-up table: the CRC of the single byte index. Never throws.
uint16_t kovChecksumTableEntry(uint8_t index);

#endif  // KOV_IMAGE_CHECKSUM_H
