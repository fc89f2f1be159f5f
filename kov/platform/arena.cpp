#include "kov/platform/arena.h"

#include <algorithm>
#include <mutex>

namespace {

constexpr size_t kFirstChunkSz = 4 * 1024;
constexpr size_t kLargestChunkSz = 256 * 1024;
[[maybe_unused]] constexpr size_t kCacheLimit = size_t{64} * 1024 * 1024;

// Chunks of the largest size that released arenas left for the next ones, up to kCacheLimit in
// all. Without them each unpack of a long-running program would take fresh pages from the system
// and fault every one of them in again: the allocator gives the memory of a released arena back
// when it lies at the top of the heap, and a chunk of the largest size is mapped on its own.
// Under AddressSanitizer nothing is kept, so that a read through a dangling pointer into a
// released arena meets freed memory rather than the results of a later unpack.
struct ChunkCache {
  std::mutex mutex;
  void* head = nullptr;  // each cached chunk's first word links to the next
  size_t bytes = 0;
};

ChunkCache& chunkCache() {
  // Never destroyed: an arena may be released by a static destructor after this one would run.
  static ChunkCache* cache = new ChunkCache;
  return *cache;
}

void* takeCachedChunk() {
#if defined(KOV_ARENA_ASAN)
  return nullptr;
#else
  ChunkCache& cache = chunkCache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  void* chunk = cache.head;
  if (chunk != nullptr) {
    cache.head = *static_cast<void**>(chunk);
    cache.bytes -= kLargestChunkSz;
  }
  return chunk;
#endif
}

// Keeps chunk (of the largest size) for a later arena if the cache has room; else false.
bool cacheChunk(void* chunk) noexcept {
#if defined(KOV_ARENA_ASAN)
  (void)chunk;
  return false;
#else
  ChunkCache& cache = chunkCache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  if (cache.bytes + kLargestChunkSz > kCacheLimit) return false;
  *static_cast<void**>(chunk) = cache.head;
  cache.head = chunk;
  cache.bytes += kLargestChunkSz;
  return true;
#endif
}

}  // namespace

void* CKovArena::AllocateSlow(size_t size) {
  const size_t hdrSz = (sizeof(Chunk) + kAlign - 1) & ~(kAlign - 1);
  // Chunks grow with what was handed out, so a small unpack holds little and a large one takes
  // few chunks; a request too large for a quarter of a chunk gets one of its own, and the chunk
  // being filled stays current.
  const size_t grown = std::min(std::max(m_held, kFirstChunkSz), kLargestChunkSz);
  const bool alone = size > grown / 4;
  if (size > std::numeric_limits<size_t>::max() - hdrSz) throw std::bad_alloc();
  const size_t chunkSz = alone ? hdrSz + size : grown;
  void* memory = chunkSz == kLargestChunkSz ? takeCachedChunk() : nullptr;
  Chunk* chunk = static_cast<Chunk*>(memory != nullptr ? memory : ::operator new(chunkSz));
  chunk->size = chunkSz;
  m_held += chunkSz;
  char* data = reinterpret_cast<char*>(chunk) + hdrSz;
  if (alone && m_chunks != nullptr) {
    // Behind the current chunk in the list: the current one keeps its place at the head.
    chunk->prev = m_chunks->prev;
    m_chunks->prev = chunk;
    m_used += size;
    return data;
  }
  chunk->prev = m_chunks;
  m_chunks = chunk;
  m_used += static_cast<size_t>(m_next - m_chunkData);
  m_chunkData = data;
  m_next = data + size;
  m_end = reinterpret_cast<char*>(chunk) + chunkSz;
  return data;
}

void CKovArena::Release() noexcept {
  // Each step frees one chunk: the walk ends with the list.
  while (m_chunks != nullptr) {
    Chunk* prev = m_chunks->prev;
    // What was deleted inside the arena was marked freed for the sanitizer: give it back whole.
    kovArenaUnpoison(m_chunks, m_chunks->size);
    if (m_chunks->size != kLargestChunkSz || !cacheChunk(m_chunks)) ::operator delete(m_chunks);
    m_chunks = prev;
  }
  m_chunkData = m_next = m_end = nullptr;
  m_used = 0;
  m_held = 0;
}

void kovArenaTrimCache() noexcept {
  ChunkCache& cache = chunkCache();
  void* head = nullptr;
  {
    std::lock_guard<std::mutex> lock(cache.mutex);
    head = cache.head;
    cache.head = nullptr;
    cache.bytes = 0;
  }
  while (head != nullptr) {
    void* next = *static_cast<void**>(head);
    ::operator delete(head);
    head = next;
  }
}

size_t kovArenaCachedBytes() noexcept {
  ChunkCache& cache = chunkCache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  return cache.bytes;
}

__attribute__((tls_model("initial-exec"))) thread_local CKovArena* t_kovArena = nullptr;

CKovArena* kovCurrentArena() noexcept { return t_kovArena; }

KovArenaScope::KovArenaScope(CKovArena* arena) noexcept : m_previous(t_kovArena) {
  t_kovArena = arena;
}

KovArenaScope::~KovArenaScope() { t_kovArena = m_previous; }
