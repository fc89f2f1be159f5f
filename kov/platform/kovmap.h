// CKovMap<K, V>: the library's map, with the iteration order that its behaviour shows.
//
// Keys are unsigned integers. A key lives in bucket (key >> 4) % 17; a key new to the map goes to
// the front of its bucket; iteration runs through buckets 0 to 16, each from front to back, so the
// newest key of a bucket comes first. Replacing the value of a key keeps its place; removing a key
// keeps the order of the others. Example: keys added 1, 2, 17 iterate as 2, 1, 17 (1 and 2 share
// bucket 0, 17 is in bucket 1).
//
// Lookup, SetAt, operator[] and RemoveKey are O(1) on average, whatever the number of keys;
// iteration is O(count + 17). Values are held by value: a map of pointers does not own what they
// point at. Never throws but for exhausted memory, which leaves the map as it was.
//
// Most maps of the library hold a few keys each (the fields of one entry), and there are many of
// them, so a map has two forms:
//  - compact, for trivially copyable keys and values while the map holds up to ScanLimit keys: one
//    array of key-value pairs, kept in the reverse of the iteration order, that a lookup scans. The
//    map object is 24 bytes and a pair of a 32-bit key and a pointer 16 bytes.
//  - large, for more keys or other values: the keys in nodes that never move, allocated many at a
//    time, linked in bucket order, with a hash index beside them once there are more than
//    ScanLimit keys. Removing keys does not bring a map back to the compact form.
// In the large form, iterators and references stay valid until their key is removed. In the
// compact form any insertion or removal of a key may move the values, and so may the growth into
// the large form: take no reference or iterator across them.
//
// A map told UseCurrentArena while an arena's scope is open (see kov/platform/arena.h) takes all
// its memory from that arena and frees none of it: the maps of an unpack's results, which only
// grow while the unpack runs and go with its arena.
#ifndef KOV_PLATFORM_KOVMAP_H
#define KOV_PLATFORM_KOVMAP_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <new>
#include <tuple>
#include <type_traits>
#include <utility>

#include "kov/platform/arena.h"

// ScanLimit is the most keys that a lookup walks rather than keep an index, and the most keys a
// compact map holds; 16 unless chosen.
template <class K, class V, uint32_t ScanLimit = 16>
class CKovMap;

namespace kov_detail {

// The memory of a map: from the arena of the open scope when the map is arena-backed and a scope
// is open, else from the heap; arena memory is never freed one piece at a time.
inline void* allocateFor(bool inArena, size_t size) {
  CKovArena* arena = inArena ? kovCurrentArena() : nullptr;
  return arena != nullptr ? arena->Allocate(size) : ::operator new(size);
}
inline void deallocateFor(bool inArena, void* p) noexcept {
  if (!inArena || kovCurrentArena() == nullptr) ::operator delete(p);
}

// The large form of CKovMap: its keys in nodes that never move, linked in bucket order, with a
// hash index once there are more than ScanLimit keys. Its behaviour is CKovMap's.
template <class K, class V, uint32_t ScanLimit>
class KovBucketMap {
 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = std::pair<const K, V>;
  static constexpr size_t kNumBuckets = 17;

 private:
  struct Node {
    template <class... Args>
    explicit Node(Args&&... args) : kv(std::forward<Args>(args)...) {}
    value_type kv;
    Node* next = nullptr;      // the next key of the bucket, front to back
    Node* prev = nullptr;      // the key before it in the bucket
    Node* hashNext = nullptr;  // the next key of the index slot; of a free node, the next free
  };

  // A block of nodes: this header, then capacity nodes, of which the first used have been handed
  // out (and are live or on the free list).
  struct Block {
    Block* newer;
    uint32_t capacity;
    uint32_t used;
  };
  static constexpr size_t kBlockHdrSz =
      (sizeof(Block) + alignof(Node) - 1) / alignof(Node) * alignof(Node);
  static_assert(alignof(Node) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__, "node alignment");
  static constexpr uint32_t kFirstBlockNodes = 4;
  static constexpr uint32_t kMaxBlockNodes = 1024;
  // Up to this many keys a lookup walks the bucket of the key; beyond it the index is kept.
  static constexpr uint32_t kScanLimit = ScanLimit;
  static constexpr uint32_t kFirstIndexBits = 4;

  template <class MapT, class NodeT, class Ref, class Ptr>
  class Iter {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = KovBucketMap::value_type;
    using difference_type = std::ptrdiff_t;
    using reference = Ref;
    using pointer = Ptr;

    Iter() = default;
    reference operator*() const { return m_node->kv; }
    pointer operator->() const { return &m_node->kv; }
    Iter& operator++() {
      m_node = m_node->next;
      if (m_node == nullptr) skipToBucketFrom(m_bucket + 1);
      return *this;
    }
    Iter operator++(int) {
      Iter old = *this;
      ++*this;
      return old;
    }
    bool operator==(const Iter& o) const { return m_node == o.m_node; }
    bool operator!=(const Iter& o) const { return !(*this == o); }

   private:
    friend class KovBucketMap;
    Iter(MapT* map, size_t bucket) : m_map(map) { skipToBucketFrom(bucket); }
    void skipToBucketFrom(size_t bucket) {
      for (m_bucket = bucket; m_bucket < kNumBuckets; ++m_bucket) {
        m_node = m_map->m_heads[m_bucket];
        if (m_node != nullptr) return;
      }
      m_node = nullptr;
    }
    MapT* m_map = nullptr;
    size_t m_bucket = kNumBuckets;
    NodeT* m_node = nullptr;
  };

 public:
  using iterator = Iter<KovBucketMap, Node, value_type&, value_type*>;
  using const_iterator = Iter<const KovBucketMap, const Node, const value_type&, const value_type*>;

  KovBucketMap() = default;
  // An empty map whose memory comes from the arena of the open scope when inArena.
  explicit KovBucketMap(bool inArena) : m_inArena(inArena) {
    static_assert(alignof(Node) <= 8, "arena memory is 8-byte aligned");
  }
  // A copy takes its memory from the heap.
  KovBucketMap(const KovBucketMap& other) {
    try {
      copyFrom(other);
    } catch (...) {
      release();
      throw;
    }
  }
  KovBucketMap& operator=(const KovBucketMap& other) {
    if (this != &other) copyFrom(other);
    return *this;
  }
  KovBucketMap(KovBucketMap&& other) noexcept { takeFrom(other); }
  KovBucketMap& operator=(KovBucketMap&& other) noexcept {
    if (this != &other) {
      release();
      takeFrom(other);
    }
    return *this;
  }
  ~KovBucketMap() { release(); }

  // The bucket a key belongs to.
  static size_t BucketOf(K key) { return (static_cast<uint32_t>(key) >> 4) % kNumBuckets; }

  // Stores value under key: replaces the value of a present key in its place, or puts a new key
  // at the front of its bucket.
  void SetAt(K key, const V& value) { (*this)[key] = value; }

  // The value of key, inserted default-constructed at the front of its bucket when absent.
  V& operator[](K key) {
    Node* found = find(key);
    if (found != nullptr) return found->kv.second;
    return insertFront(key)->kv.second;
  }

  // Copies the value of key into value and returns true, or returns false and leaves value alone.
  bool Lookup(K key, V& value) const {
    const Node* found = find(key);
    if (found == nullptr) return false;
    value = found->kv.second;
    return true;
  }

  // A pointer to the value of key, or null.
  V* PLookup(K key) {
    Node* found = find(key);
    return found == nullptr ? nullptr : &found->kv.second;
  }
  const V* PLookup(K key) const {
    const Node* found = find(key);
    return found == nullptr ? nullptr : &found->kv.second;
  }

  bool Contains(K key) const { return find(key) != nullptr; }

  // Removes key; false when it was absent.
  bool RemoveKey(K key) {
    Node* found = find(key);
    if (found == nullptr) return false;
    unlinkFromBucket(found);
    unlinkFromIndex(found);
    destroyNode(found);
    --m_count;
    return true;
  }

  void RemoveAll() {
    destroyAllNodes();
    for (Block* block = m_firstBlock; block != nullptr; block = block->newer) block->used = 0;
    m_block = m_firstBlock;
    m_free = nullptr;
    if (m_index != nullptr) std::memset(m_index, 0, indexSize() * sizeof(Node*));
  }

  // Makes room for count keys in all, so that the keys up to that many take their space in one
  // block; a map that already holds keys, or has held them, is left alone. Never throws but for
  // exhausted memory.
  void Reserve(size_t count) {
    if (m_firstBlock != nullptr || count == 0) return;
    reserveIndexFor(count);
    size_t capacity = count < kFirstBlockNodes ? kFirstBlockNodes : count;
    addBlock(static_cast<uint32_t>(capacity < kMaxBlockNodes ? capacity : kMaxBlockNodes));
  }

  int GetCount() const { return static_cast<int>(m_count); }
  size_t size() const { return m_count; }
  bool IsEmpty() const { return m_count == 0; }

  iterator begin() { return iterator(this, 0); }
  iterator end() { return iterator(); }
  const_iterator begin() const { return const_iterator(this, 0); }
  const_iterator end() const { return const_iterator(); }

 private:
  size_t indexSize() const { return size_t{1} << m_indexBits; }
  // Fibonacci hashing: the top bits of the key times 2^64 / golden ratio.
  size_t slotOf(K key) const {
    return static_cast<size_t>((static_cast<uint64_t>(key) * 0x9E3779B97F4A7C15ull) >>
                               (64 - m_indexBits));
  }

  Node* find(K key) const {
    if (m_index != nullptr) {
      for (Node* n = m_index[slotOf(key)]; n != nullptr; n = n->hashNext) {
        if (n->kv.first == key) return n;
      }
      return nullptr;
    }
    // Without an index the map holds at most kScanLimit keys: the walk is that short.
    for (Node* n = m_heads[BucketOf(key)]; n != nullptr; n = n->next) {
      if (n->kv.first == key) return n;
    }
    return nullptr;
  }

  // A fresh node holding key and a default value, linked at the front of its bucket.
  Node* insertFront(K key) {
    return linkFront(
        newNode(std::piecewise_construct, std::forward_as_tuple(key), std::forward_as_tuple()));
  }

  // Everything that may throw happens before the node is linked: the index first, then the node.
  template <class... Args>
  Node* newNode(Args&&... args) {
    reserveIndexFor(m_count + 1);
    void* slot = takeSlot();
    try {
      return new (slot) Node(std::forward<Args>(args)...);
    } catch (...) {
      giveBackSlot(slot);
      throw;
    }
  }

  Node* linkFront(Node* n) {
    Node*& head = m_heads[BucketOf(n->kv.first)];
    n->next = head;
    if (head != nullptr) head->prev = n;
    head = n;
    linkIntoIndex(n);
    ++m_count;
    return n;
  }

  void linkIntoIndex(Node* n) {
    if (m_index == nullptr) return;
    Node*& slot = m_index[slotOf(n->kv.first)];
    n->hashNext = slot;
    slot = n;
  }

  void unlinkFromBucket(Node* n) {
    if (n->prev != nullptr) {
      n->prev->next = n->next;
    } else {
      m_heads[BucketOf(n->kv.first)] = n->next;
    }
    if (n->next != nullptr) n->next->prev = n->prev;
  }

  void unlinkFromIndex(Node* n) {
    if (m_index == nullptr) return;
    // The chain of a slot holds one key on average.
    for (Node** link = &m_index[slotOf(n->kv.first)]; *link != nullptr; link = &(*link)->hashNext) {
      if (*link == n) {
        *link = n->hashNext;
        return;
      }
    }
  }

  // Builds the index once the map outgrows a walk of one bucket, and doubles it whenever the keys
  // would outnumber its slots.
  void reserveIndexFor(size_t count) {
    if (m_index == nullptr ? count <= kScanLimit : count <= indexSize()) return;
    uint32_t bits = m_index == nullptr ? kFirstIndexBits : m_indexBits + 1;
    while ((size_t{1} << bits) < count) ++bits;
    const size_t slots = size_t{1} << bits;
    Node** index = static_cast<Node**>(allocateFor(m_inArena, slots * sizeof(Node*)));
    std::memset(index, 0, slots * sizeof(Node*));
    deallocateFor(m_inArena, m_index);
    m_index = index;
    m_indexBits = bits;
    for (Node* head : m_heads) {
      for (Node* n = head; n != nullptr; n = n->next) linkIntoIndex(n);
    }
  }

  void* takeSlot() {
    if (m_free != nullptr) {
      Node* n = m_free;
      m_free = n->hashNext;
      return n;
    }
    while (m_block != nullptr && m_block->used == m_block->capacity && m_block->newer != nullptr) {
      m_block = m_block->newer;
    }
    if (m_block == nullptr || m_block->used == m_block->capacity) {
      uint32_t capacity = m_block == nullptr ? kFirstBlockNodes : m_block->capacity * 2;
      addBlock(capacity < kMaxBlockNodes ? capacity : kMaxBlockNodes);
    }
    return nodesOf(m_block) + m_block->used++;
  }

  // Appends an empty block of capacity nodes and takes new nodes from it.
  void addBlock(uint32_t capacity) {
    void* memory = allocateFor(m_inArena, kBlockHdrSz + size_t{capacity} * sizeof(Node));
    Block* block = new (memory) Block{nullptr, capacity, 0};
    if (m_block == nullptr) {
      m_firstBlock = block;
    } else {
      m_block->newer = block;
    }
    m_block = block;
  }

  // Returns the slot of a node whose construction failed; it was the last one taken.
  void giveBackSlot(void* slot) {
    if (m_block != nullptr && m_block->used > 0 && slot == nodesOf(m_block) + m_block->used - 1) {
      --m_block->used;
      return;
    }
    Node* n = static_cast<Node*>(slot);
    n->hashNext = m_free;
    m_free = n;
  }

  // Ends the life of a node and puts its slot on the free list.
  void destroyNode(Node* n) {
    n->~Node();
    n->hashNext = m_free;
    m_free = n;
  }

  void destroyAllNodes() {
    for (Node*& head : m_heads) {
      for (Node* n = head; n != nullptr;) {
        Node* next = n->next;
        n->~Node();
        n = next;
      }
      head = nullptr;
    }
    m_count = 0;
  }

  static Node* nodesOf(Block* block) {
    return reinterpret_cast<Node*>(reinterpret_cast<unsigned char*>(block) + kBlockHdrSz);
  }

  void release() {
    destroyAllNodes();
    for (Block* block = m_firstBlock; block != nullptr;) {
      Block* newer = block->newer;
      block->~Block();
      deallocateFor(m_inArena, block);
      block = newer;
    }
    m_firstBlock = m_block = nullptr;
    m_free = nullptr;
    deallocateFor(m_inArena, m_index);
    m_index = nullptr;
    m_indexBits = 0;
  }

  void takeFrom(KovBucketMap& other) {
    std::memcpy(m_heads, other.m_heads, sizeof m_heads);
    std::memset(other.m_heads, 0, sizeof other.m_heads);
    m_index = std::exchange(other.m_index, nullptr);
    m_indexBits = std::exchange(other.m_indexBits, 0);
    m_count = std::exchange(other.m_count, 0);
    m_firstBlock = std::exchange(other.m_firstBlock, nullptr);
    m_block = std::exchange(other.m_block, nullptr);
    m_free = std::exchange(other.m_free, nullptr);
    m_inArena = other.m_inArena;
  }

  // Each bucket is rebuilt back to back in the order of the other map.
  void copyFrom(const KovBucketMap& other) {
    RemoveAll();
    for (size_t b = 0; b < kNumBuckets; ++b) {
      Node* tail = nullptr;
      for (const Node* from = other.m_heads[b]; from != nullptr; from = from->next) {
        Node* n = newNode(from->kv);
        n->prev = tail;
        if (tail != nullptr) {
          tail->next = n;
        } else {
          m_heads[b] = n;
        }
        tail = n;
        linkIntoIndex(n);
        ++m_count;
      }
    }
  }

  Node* m_heads[kNumBuckets] = {};
  Node** m_index = nullptr;  // 2^m_indexBits slots, or null for a map of up to kScanLimit keys
  uint32_t m_indexBits = 0;
  uint32_t m_count = 0;
  Block* m_firstBlock = nullptr;
  Block* m_block = nullptr;  // the block new nodes come from
  Node* m_free = nullptr;
  bool m_inArena = false;  // the memory comes from an arena (see allocateFor)
};

}  // namespace kov_detail

template <class K, class V, uint32_t ScanLimit>
class CKovMap {
  using Large = kov_detail::KovBucketMap<K, V, ScanLimit>;

 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = std::pair<const K, V>;
  static constexpr size_t kNumBuckets = 17;

 private:
  static constexpr bool kCompact = ScanLimit > 0 && std::is_trivially_copyable<K>::value &&
                                   std::is_trivially_copyable<V>::value &&
                                   std::is_default_constructible<V>::value;
  static constexpr uint32_t kFirstCapacity = 4;
  static_assert(ScanLimit <= 0xFFFF, "a compact map's capacity is 16 bits wide");

  // Walks a compact map's array from its last pair down to its first, or a large map's nodes.
  template <class Slot, class LargeIter, class Ref, class Ptr>
  class Iter {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = CKovMap::value_type;
    using difference_type = std::ptrdiff_t;
    using reference = Ref;
    using pointer = Ptr;

    Iter() = default;
    reference operator*() const { return m_slot != nullptr ? *m_slot : *m_large; }
    pointer operator->() const { return m_slot != nullptr ? m_slot : m_large.operator->(); }
    Iter& operator++() {
      if (m_slot != nullptr) {
        m_slot = m_slot == m_first ? nullptr : m_slot - 1;
      } else {
        ++m_large;
      }
      return *this;
    }
    Iter operator++(int) {
      Iter old = *this;
      ++*this;
      return old;
    }
    bool operator==(const Iter& o) const { return m_slot == o.m_slot && m_large == o.m_large; }
    bool operator!=(const Iter& o) const { return !(*this == o); }

   private:
    friend class CKovMap;
    Iter(Slot* first, Slot* slot) : m_first(first), m_slot(slot) {}
    explicit Iter(LargeIter large) : m_large(large) {}
    Slot* m_first = nullptr;
    Slot* m_slot = nullptr;  // the current pair of a compact map
    LargeIter m_large;
  };

 public:
  using iterator =
      Iter<value_type, typename Large::iterator, value_type&, value_type*>;
  using const_iterator = Iter<const value_type, typename Large::const_iterator,
                              const value_type&, const value_type*>;

  CKovMap() = default;
  CKovMap(const CKovMap& other) { copyFrom(other); }
  CKovMap& operator=(const CKovMap& other) {
    if (this != &other) copyFrom(other);
    return *this;
  }
  CKovMap(CKovMap&& other) noexcept { takeFrom(other); }
  CKovMap& operator=(CKovMap&& other) noexcept {
    if (this != &other) {
      release();
      takeFrom(other);
    }
    return *this;
  }
  ~CKovMap() { release(); }

  // The bucket a key belongs to.
  static size_t BucketOf(K key) { return Large::BucketOf(key); }

  // Stores value under key: replaces the value of a present key in its place, or puts a new key
  // at the front of its bucket.
  void SetAt(K key, const V& value) { (*this)[key] = value; }

  // The value of key, inserted default-constructed at the front of its bucket when absent.
  // A compact map looks first in the slot after the one it found or made last, which is where
  // the next key stands when keys are stored in the order of the array (the fields of one entry
  // after another into the same map): only that look is inline, the rest is a call.
  V& operator[](K key) {
    if constexpr (kCompact) {
      if (m_large == nullptr) {
        const uint32_t hint = m_hint < m_count ? m_hint : 0;
        if (m_count != 0 && m_slots[hint].first == key) {
          m_hint = static_cast<uint8_t>(hint + 1);
          return m_slots[hint].second;
        }
      }
    }
    return subscript(key);
  }

  // The value of key, which the map must not hold, inserted default-constructed at the front of
  // its bucket without a look for it first: for a caller that knows its keys are new.
  V& InsertNew(K key) {
    if constexpr (kCompact) {
      if (m_large == nullptr && m_count < ScanLimit) return insertCompact(key)->second;
    }
    return (*this)[key];
  }

  // Copies the value of key into value and returns true, or returns false and leaves value alone.
  bool Lookup(K key, V& value) const {
    const V* found = PLookup(key);
    if (found == nullptr) return false;
    value = *found;
    return true;
  }

  // A pointer to the value of key, or null.
  V* PLookup(K key) {
    if (m_large != nullptr) return m_large->PLookup(key);
    value_type* found = findCompact(key);
    return found == nullptr ? nullptr : &found->second;
  }
  const V* PLookup(K key) const { return const_cast<CKovMap*>(this)->PLookup(key); }

  bool Contains(K key) const { return PLookup(key) != nullptr; }

  // Removes key; false when it was absent.
  bool RemoveKey(K key) {
    if (m_large != nullptr) return m_large->RemoveKey(key);
    value_type* found = findCompact(key);
    if (found == nullptr) return false;
    value_type* end = m_slots + m_count;
    std::memmove(static_cast<void*>(found), found + 1,
                 static_cast<size_t>(end - found - 1) * sizeof(value_type));
    --m_count;
    return true;
  }

  // Removes every key; the space stays for the keys to come.
  void RemoveAll() {
    if (m_large != nullptr) {
      m_large->RemoveAll();
    } else {
      m_count = 0;
    }
  }

  // Makes room for count keys in all, so that the keys up to that many take their space in one
  // allocation; a map that already holds keys, or has held them, is left alone. Never throws but
  // for exhausted memory.
  void Reserve(size_t count) {
    if (m_large != nullptr) {
      m_large->Reserve(count);
      return;
    }
    if (m_slots != nullptr || count == 0) return;
    if (kCompact && count <= ScanLimit) {
      m_slots = allocateSlots(static_cast<uint32_t>(count));
      m_capacity = static_cast<uint16_t>(count);
      return;
    }
    Large* large = newLarge();
    try {
      large->Reserve(count);
    } catch (...) {
      deleteLarge(large);
      throw;
    }
    m_large = large;
  }

  int GetCount() const { return static_cast<int>(size()); }
  size_t size() const { return m_large != nullptr ? m_large->size() : m_count; }
  bool IsEmpty() const { return size() == 0; }

  iterator begin() {
    if (m_large != nullptr) return iterator(m_large->begin());
    return m_count == 0 ? iterator() : iterator(m_slots, m_slots + m_count - 1);
  }
  iterator end() { return iterator(); }
  const_iterator begin() const {
    if (m_large != nullptr) return const_iterator(static_cast<const Large*>(m_large)->begin());
    return m_count == 0 ? const_iterator() : const_iterator(m_slots, m_slots + m_count - 1);
  }
  const_iterator end() const { return const_iterator(); }

  // Makes an empty map take its memory from the arena of the scope open on this thread, if any,
  // for as long as it lives (see the header comment). Never throws.
  void UseCurrentArena() {
    static_assert(alignof(value_type) <= 8, "arena memory is 8-byte aligned");
    if (m_slots == nullptr && m_large == nullptr) m_inArena = kovCurrentArena() != nullptr;
  }

 private:
  // operator[] past its hint.
  __attribute__((noinline)) V& subscript(K key) {
    if (m_large == nullptr) {
      if constexpr (kCompact) {
        value_type* found = findCompact(key);
        if (found != nullptr) {
          m_hint = static_cast<uint8_t>(found - m_slots + 1);
          return found->second;
        }
        if (m_count < ScanLimit) return insertCompact(key)->second;
        growLarge();
      } else {
        m_large = newLarge();
      }
    }
    return (*m_large)[key];
  }

  value_type* allocateSlots(uint32_t capacity) const {
    return static_cast<value_type*>(
        kov_detail::allocateFor(m_inArena, size_t{capacity} * sizeof(value_type)));
  }
  void freeSlots(value_type* slots) const { kov_detail::deallocateFor(m_inArena, slots); }
  Large* newLarge() const {
    void* memory = kov_detail::allocateFor(m_inArena, sizeof(Large));
    return new (memory) Large(m_inArena);
  }
  void deleteLarge(Large* large) const {
    if (large == nullptr) return;
    large->~Large();
    kov_detail::deallocateFor(m_inArena, large);
  }

  value_type* findCompact(K key) const {
    for (uint32_t i = 0; i < m_count; ++i) {
      if (m_slots[i].first == key) return m_slots + i;
    }
    return nullptr;
  }

  // The array runs from the last key of the iteration to the first: a new key goes behind the
  // keys of its bucket and of the buckets after it, in front of those of the buckets before it.
  value_type* insertCompact(K key) {
    if (m_count == m_capacity) {
      uint32_t capacity = m_capacity == 0 ? kFirstCapacity : m_capacity * 2;
      if (capacity > ScanLimit) capacity = ScanLimit;
      value_type* slots = allocateSlots(capacity);
      if (m_count != 0) std::memcpy(static_cast<void*>(slots), m_slots, m_count * sizeof(value_type));
      freeSlots(m_slots);
      m_slots = slots;
      m_capacity = capacity;
    }
    const size_t bucket = BucketOf(key);
    uint32_t at = m_count;
    while (at > 0 && BucketOf(m_slots[at - 1].first) < bucket) --at;
    // Keys come mostly in the order of the array, so that one pair moves up or none: that one
    // is copied here, more through a call.
    if (at + 1 == m_count) {
      std::memcpy(static_cast<void*>(m_slots + m_count), m_slots + at, sizeof(value_type));
    } else if (at != m_count) {
      std::memmove(static_cast<void*>(m_slots + at + 1), m_slots + at,
                   (m_count - at) * sizeof(value_type));
    }
    ++m_count;
    m_hint = static_cast<uint8_t>(at + 1);
    return new (m_slots + at) value_type(std::piecewise_construct, std::forward_as_tuple(key),
                                         std::forward_as_tuple());
  }

  // Moves a full compact map into the large form. Pushing each key to the front of its bucket,
  // from the last of the iteration to the first, gives the same order.
  void growLarge() {
    Large* large = newLarge();
    try {
      large->Reserve(size_t{m_count} * 2);
      for (uint32_t i = 0; i < m_count; ++i) (*large)[m_slots[i].first] = m_slots[i].second;
    } catch (...) {
      deleteLarge(large);
      throw;
    }
    freeSlots(m_slots);
    m_slots = nullptr;
    m_count = m_capacity = 0;
    m_large = large;
  }

  void release() {
    deleteLarge(m_large);
    m_large = nullptr;
    freeSlots(m_slots);
    m_slots = nullptr;
    m_count = m_capacity = 0;
  }

  void takeFrom(CKovMap& other) {
    m_slots = std::exchange(other.m_slots, nullptr);
    m_count = std::exchange(other.m_count, 0);
    m_capacity = std::exchange(other.m_capacity, 0);
    m_large = std::exchange(other.m_large, nullptr);
    m_inArena = other.m_inArena;
  }

  // The copy is made first, so that running out of memory leaves this map as it was.
  void copyFrom(const CKovMap& other) {
    CKovMap copy;
    if (other.m_large != nullptr) {
      copy.m_large = new Large(*other.m_large);
    } else if (other.m_count != 0) {
      copy.m_slots = allocateSlots(other.m_count);
      copy.m_count = copy.m_capacity = other.m_count;
      std::memcpy(static_cast<void*>(copy.m_slots), other.m_slots,
                  other.m_count * sizeof(value_type));
    }
    release();
    takeFrom(copy);
  }

  value_type* m_slots = nullptr;  // the compact form's pairs, or null
  uint32_t m_count = 0;           // of the compact form
  uint16_t m_capacity = 0;
  bool m_inArena = false;    // the memory comes from an arena (see UseCurrentArena)
  uint8_t m_hint = 0;        // where operator[] looks first; any value
  Large* m_large = nullptr;  // the large form, or null
};

static_assert(sizeof(CKovMap<uint32_t, void*>) == 24, "a map object is 24 bytes");

#endif  // KOV_PLATFORM_KOVMAP_H
