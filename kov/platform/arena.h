// CKovArena: the memory of one unpack's results, handed out in runs and given back in one piece.
//
// An unpack makes about three objects a value (the value, its CKovUpField, a key in its entry's
// map) and used to free them one by one, which cost more than reading the image. A CKovUp owns
// an arena instead and makes everything it keeps for its results there; when the CKovUp goes,
// the arena's chunks go with it, and no destructor of a result object runs.
//
// Which allocations come from the arena: while a KovArenaScope is open on a thread, the objects
// of the value classes (CKovField and its kinds, CKovUpField, CKovUpEntry, CKovUpEntryList,
// CKovUpBlkInstance and its kinds, CKovUpStdBlk, CKovPkField, CKovPkEntry, CKovPkEntryList)
// that the thread makes with new come from that scope's arena (kovArenaNew), and a delete of one
// of them frees nothing (kovArenaDelete): the arena takes it back with the rest. The containers
// inside those objects follow their owner: a CKovMap told UseCurrentArena, and a container with a
// KovArenaAllocator made in the scope, take their memory from the same arena. Outside a scope all
// of these use the ordinary heap, as they always did.
//
// The library opens a scope around its own work in an unpack and closes it around the
// application's functions that an unpack calls (KovArenaPause), so an object the application
// makes there is never in an arena. An application may open one of its own around the building
// of a pack tree, so that making the tree costs a pointer bump a value.
//
// The rule that follows, for the library and the application alike: whatever is made inside a
// scope is deleted inside a scope of the same arena, or not at all, before the arena goes; a
// delete outside any scope of memory from an arena is undefined. An unpack's results are const
// to the application, so it never deletes or grows them.
//
// Cost: an allocation is a pointer bump, 8-byte aligned; chunks grow from 4 KiB to 256 KiB
// with what was handed out, and a request above a quarter of a chunk gets a chunk of its own.
// Allocate throws std::bad_alloc when a chunk can't be had, and leaves the arena as it was.
//
// Released chunks of 256 KiB are kept for the arenas that follow, in one cache for the process
// of at most 64 MiB, so that a program unpacking image after image reuses pages it has already
// touched instead of having the system map and clear new ones each time; the rest go back to the
// heap. kovArenaTrimCache gives the cache back. Builds with AddressSanitizer keep nothing.
#ifndef KOV_PLATFORM_ARENA_H
#define KOV_PLATFORM_ARENA_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#define KOV_ARENA_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KOV_ARENA_ASAN 1
#endif
#endif
#if defined(KOV_ARENA_ASAN)
#include <sanitizer/asan_interface.h>
#endif

// Marks size bytes at p as freed for AddressSanitizer, so that a read of an object deleted
// inside an arena is reported as a read of freed memory; nothing without the sanitizer.
inline void kovArenaPoison(void* p, size_t size) noexcept {
#if defined(KOV_ARENA_ASAN)
  ASAN_POISON_MEMORY_REGION(p, size);
#else
  (void)p;
  (void)size;
#endif
}

// Undoes kovArenaPoison over size bytes at p.
inline void kovArenaUnpoison(void* p, size_t size) noexcept {
#if defined(KOV_ARENA_ASAN)
  ASAN_UNPOISON_MEMORY_REGION(p, size);
#else
  (void)p;
  (void)size;
#endif
}

class CKovArena {
 public:
  CKovArena() = default;
  ~CKovArena() { Release(); }
  CKovArena(const CKovArena&) = delete;
  CKovArena& operator=(const CKovArena&) = delete;

  // size bytes, 8-byte aligned, valid until Release. Throws std::bad_alloc.
  void* Allocate(size_t size) {
    size = (size + kAlign - 1) & ~(kAlign - 1);
    if (size <= static_cast<size_t>(m_end - m_next)) {
      void* p = m_next;
      m_next += size;
      return p;
    }
    return AllocateSlow(size);
  }
  // Gives every chunk back. Never throws.
  void Release() noexcept;
  // Bytes handed out since the last Release, and bytes held in chunks.
  size_t GetBytesUsed() const { return m_used + static_cast<size_t>(m_next - m_chunkData); }
  size_t GetBytesHeld() const { return m_held; }

 private:
  static constexpr size_t kAlign = 8;
  struct Chunk {
    Chunk* prev;
    size_t size;
  };
  void* AllocateSlow(size_t size);

  Chunk* m_chunks = nullptr;
  char* m_chunkData = nullptr;  // the start of the current chunk's space
  char* m_next = nullptr;
  char* m_end = nullptr;
  size_t m_used = 0;  // bytes handed out from the chunks before the current one
  size_t m_held = 0;
};

// Frees the chunks kept for later arenas (see the header comment), and tells how many bytes are
// kept. Safe from any thread.
void kovArenaTrimCache() noexcept;
size_t kovArenaCachedBytes() noexcept;

// The arena of the scope open on this thread, or null.
CKovArena* kovCurrentArena() noexcept;

// Opens arena's scope on this thread for its life (null closes any scope: see KovArenaPause),
// and gives back the scope that was open before.
class KovArenaScope {
 public:
  explicit KovArenaScope(CKovArena* arena) noexcept;
  ~KovArenaScope();
  KovArenaScope(const KovArenaScope&) = delete;
  KovArenaScope& operator=(const KovArenaScope&) = delete;

 private:
  CKovArena* m_previous;
};

// Closes any scope while the application's own code runs inside an unpack.
class KovArenaPause : public KovArenaScope {
 public:
  KovArenaPause() noexcept : KovArenaScope(nullptr) {}
};

// The scope open on this thread (see kovCurrentArena). Initial-exec: every allocation of an
// unpack reads it, and it takes one load from the static thread-local block, without a call.
extern __attribute__((tls_model("initial-exec"))) thread_local CKovArena* t_kovArena;

// The operator new and delete of the result classes: from the scope's arena, or the heap.
inline void* kovArenaNew(size_t size) {
  CKovArena* arena = t_kovArena;
  return arena != nullptr ? arena->Allocate(size) : ::operator new(size);
}
inline void kovArenaDelete(void* p, size_t size) noexcept {
  if (t_kovArena == nullptr) {
    ::operator delete(p);
  } else {
    kovArenaPoison(p, size);
  }
}

// A standard allocator that takes its memory from the arena of the scope open where it was
// made, or from the heap when none was; deallocating arena memory frees nothing. A copy of a
// container starts from the scope open where the copy is made.
template <class T>
class KovArenaAllocator {
 public:
  using value_type = T;

  KovArenaAllocator() noexcept : m_arena(kovCurrentArena()) {}
  template <class U>
  KovArenaAllocator(const KovArenaAllocator<U>& other) noexcept : m_arena(other.GetArena()) {}

  T* allocate(size_t n) {
    if (n > std::numeric_limits<size_t>::max() / sizeof(T)) throw std::bad_alloc();
    if (m_arena != nullptr) return static_cast<T*>(m_arena->Allocate(n * sizeof(T)));
    return static_cast<T*>(::operator new(n * sizeof(T)));
  }
  void deallocate(T* p, size_t n) noexcept {
    if (m_arena == nullptr) {
      ::operator delete(p);
    } else {
      kovArenaPoison(p, n * sizeof(T));
    }
  }
  KovArenaAllocator select_on_container_copy_construction() const { return KovArenaAllocator(); }

  CKovArena* GetArena() const noexcept { return m_arena; }
  template <class U>
  bool operator==(const KovArenaAllocator<U>& other) const noexcept {
    return m_arena == other.GetArena();
  }
  template <class U>
  bool operator!=(const KovArenaAllocator<U>& other) const noexcept {
    return m_arena != other.GetArena();
  }

 private:
  CKovArena* m_arena;
};

#endif  // KOV_PLATFORM_ARENA_H
