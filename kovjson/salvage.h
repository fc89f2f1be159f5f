// Salvage: everything that can still be read from a damaged image, and a list of what is wrong.
//
// kovJsonSalvage scans the image (the format is in kov/pack/stdblk.h) from byte 0. With prefixes
// each instance has its partition number (2 bytes) in front of its header, as a pack with
// partition prefixes writes it; faults of an instance stand at the offset of its header, behind
// the prefix, and the headers of the walk carry their partitions. An instance is
// taken when its KOV name is one the layout knows (the block's own for a single-instance block),
// its size holds the checksum and fits the bytes left, and its checksum holds. Anything else is a
// fault at its offset:
//   truncated           the image ends inside a header, or inside an instance of a plausible size
//   size past the end   a size beyond what is left and beyond the block's largest data
//   size below 2        a size that cannot hold the checksum
//   unknown KOV name    a name the layout does not know
//   bad checksum        a whole instance whose data does not give its checksum
//   overlap             a sound instance inside which another one starts, found when a fault
//                       stands right behind it: its size, not the other, is taken as damaged
//                       (a size one larger still gives a good checksum when the byte behind is
//                       0x00, as a partition prefix's first byte often is)
//   duplicate           a KOV name seen before; of a multi-instance block or a listlet the one
//                       whose id is its rank is kept (ids count from 0 in image order), else the
//                       first
//   KOV id out of sequence
//                       an instance of a multi-instance block or a listlet whose id is not its
//                       rank; its values are read, but may belong to another instance
//   broken listlet chain, unreadable
//                       whole, sound instances the library still refuses (a distributed list
//                       whose listlets no longer chain, a list whose quantity was in a lost block)
// After a fault the scan goes on at the next plausible header from the byte behind the faulty
// one's start: a known KOV name, a size that fits and a checksum that holds (a bad checksum may
// come from a damaged size, so its size is not trusted). Each step of the scan moves on by at
// least one byte and a checksum is computed only where a known KOV name stands, so the scan is
// linear in the image for a given layout.
//
// The sound instances are packed into an image of their own and unpacked; when the library
// refuses that, the blocks are added one by one (a distributed list with its header block as one)
// and each one the library refuses is left out with its instances, as a fault. The field walk of
// what was read has its places mapped back into the damaged image, and the instances of a
// multi-instance block keep their numbers from their KOV ids (id + 1), so paths name the same
// values as in the whole image. Its headers are every instance the scan found whole, sound or not.
//
// Throws std::bad_alloc only; the library's refusals are faults.
#ifndef KOVJSON_SALVAGE_H
#define KOVJSON_SALVAGE_H

#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "kov/kov.h"
#include "kovjson/fieldwalk.h"
#include "kovjson/jsonlayout.h"

enum class KovJsonFaultKind {
  Truncated,
  SizePastEnd,
  SizeBelow2,
  UnknownName,
  BadChecksum,
  Duplicate,
  OutOfSequence,
  BrokenChain,
  Unreadable,
  Overlap
};

// "truncated", "size past the end", ...
const char* kovJsonFaultName(KovJsonFaultKind kind);

struct KovJsonFault {
  uint32_t offset = 0;
  KovJsonFaultKind kind = KovJsonFaultKind::Unreadable;
  std::string text;  // what was found, for people
};

struct KovJsonSalvage {
  std::vector<KovJsonFault> faults;   // in image order
  std::vector<KovJsonInstance> read;  // the instances whose values came back
  std::vector<KovJsonInstance> lost;  // instances found whole whose values did not
  std::unique_ptr<CKovUp> up;  // the unpack of the sound instances; null when none could be read
  KovJsonFieldWalk walk;       // places in the damaged image
  bool LostSomething() const { return !faults.empty(); }
};

std::unique_ptr<KovJsonSalvage> kovJsonSalvage(const CKovJsonLayout& layout,
                                               const std::vector<uint8_t>& bytes,
                                               bool prefixes = false);

// The values that came back, as a values file: a lost instance of a multi-instance block is an
// empty object in its place (no more such gaps in a row than there are faults; an instance
// numbered further out comes next in its array).
nlohmann::ordered_json kovJsonSalvagedValues(const KovJsonSalvage& salvage);

#endif  // KOVJSON_SALVAGE_H
