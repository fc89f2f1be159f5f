// CKovMap<K, V>: the library's map, with the iteration order that its behaviour shows.
//
// Keys are unsigned integers. A key lives in bucket (key >> 4) % 17; a key new to the map goes to
// the front of its bucket; iteration runs through buckets 0 to 16, each from front to back, so the
// newest key of a bucket comes first. Replacing the value of a key keeps its place; removing a key
// keeps the order of the others. Example: keys added 1, 2, 17 iterate as 2, 1, 17 (1 and 2 share
// bucket 0, 17 is in bucket 1).
//
// An index beside the buckets makes Lookup, SetAt, operator[] and RemoveKey O(1) on average,
// whatever the number of keys; iteration is O(count + 17). Values are held by value: a map of
// pointers does not own what they point at. Iterators and references stay valid until their key
// is removed. Never throws but for exhausted memory.
#ifndef KOV_PLATFORM_KOVMAP_H
#define KOV_PLATFORM_KOVMAP_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <list>
#include <unordered_map>
#include <utility>

template <class K, class V>
class CKovMap {
 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = std::pair<const K, V>;
  static constexpr size_t kNumBuckets = 17;

 private:
  using Chain = std::list<value_type>;
  using Buckets = std::array<Chain, kNumBuckets>;

  template <class BucketsT, class ChainIt, class Ref, class Ptr>
  class Iter {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = CKovMap::value_type;
    using difference_type = std::ptrdiff_t;
    using reference = Ref;
    using pointer = Ptr;

    Iter() = default;
    Iter(BucketsT* buckets, size_t bucket, ChainIt it) : m_buckets(buckets), m_bucket(bucket), m_it(it) {
      skipEmpty();
    }
    reference operator*() const { return *m_it; }
    pointer operator->() const { return &*m_it; }
    Iter& operator++() {
      ++m_it;
      skipEmpty();
      return *this;
    }
    Iter operator++(int) {
      Iter old = *this;
      ++*this;
      return old;
    }
    bool operator==(const Iter& o) const {
      return m_bucket == o.m_bucket && (m_bucket == kNumBuckets || m_it == o.m_it);
    }
    bool operator!=(const Iter& o) const { return !(*this == o); }

   private:
    friend class CKovMap;
    void skipEmpty() {
      while (m_bucket < kNumBuckets && m_it == (*m_buckets)[m_bucket].end()) {
        if (++m_bucket < kNumBuckets) m_it = (*m_buckets)[m_bucket].begin();
      }
    }
    BucketsT* m_buckets = nullptr;
    size_t m_bucket = kNumBuckets;
    ChainIt m_it{};
  };

 public:
  using iterator = Iter<Buckets, typename Chain::iterator, value_type&, value_type*>;
  using const_iterator =
      Iter<const Buckets, typename Chain::const_iterator, const value_type&, const value_type*>;

  CKovMap() = default;
  CKovMap(const CKovMap& other) { copyFrom(other); }
  CKovMap& operator=(const CKovMap& other) {
    if (this != &other) copyFrom(other);
    return *this;
  }
  CKovMap(CKovMap&&) = default;
  CKovMap& operator=(CKovMap&&) = default;

  // The bucket a key belongs to.
  static size_t BucketOf(K key) { return (static_cast<uint32_t>(key) >> 4) % kNumBuckets; }

  // Stores value under key: replaces the value of a present key in its place, or puts a new key
  // at the front of its bucket.
  void SetAt(K key, const V& value) { (*this)[key] = value; }

  // The value of key, inserted default-constructed at the front of its bucket when absent.
  V& operator[](K key) {
    auto found = m_index.find(key);
    if (found != m_index.end()) return found->second->second;
    Chain& chain = m_buckets[BucketOf(key)];
    chain.emplace_front(key, V());
    m_index.emplace(key, chain.begin());
    return chain.front().second;
  }

  // Copies the value of key into value and returns true, or returns false and leaves value alone.
  bool Lookup(K key, V& value) const {
    auto found = m_index.find(key);
    if (found == m_index.end()) return false;
    value = found->second->second;
    return true;
  }

  // A pointer to the value of key, or null.
  V* PLookup(K key) {
    auto found = m_index.find(key);
    return found == m_index.end() ? nullptr : &found->second->second;
  }
  const V* PLookup(K key) const {
    auto found = m_index.find(key);
    return found == m_index.end() ? nullptr : &found->second->second;
  }

  bool Contains(K key) const { return m_index.find(key) != m_index.end(); }

  // Removes key; false when it was absent.
  bool RemoveKey(K key) {
    auto found = m_index.find(key);
    if (found == m_index.end()) return false;
    m_buckets[BucketOf(key)].erase(found->second);
    m_index.erase(found);
    return true;
  }

  void RemoveAll() {
    for (Chain& chain : m_buckets) chain.clear();
    m_index.clear();
  }

  int GetCount() const { return static_cast<int>(m_index.size()); }
  size_t size() const { return m_index.size(); }
  bool IsEmpty() const { return m_index.empty(); }

  iterator begin() { return iterator(&m_buckets, 0, m_buckets[0].begin()); }
  iterator end() { return iterator(&m_buckets, kNumBuckets, typename Chain::iterator()); }
  const_iterator begin() const { return const_iterator(&m_buckets, 0, m_buckets[0].begin()); }
  const_iterator end() const {
    return const_iterator(&m_buckets, kNumBuckets, typename Chain::const_iterator());
  }

 private:
  // Chains are rebuilt element by element: their pairs have const keys and cannot be assigned.
  void copyFrom(const CKovMap& other) {
    RemoveAll();
    for (size_t b = 0; b < kNumBuckets; ++b) {
      Chain& chain = m_buckets[b];
      chain.insert(chain.end(), other.m_buckets[b].begin(), other.m_buckets[b].end());
      for (auto it = chain.begin(); it != chain.end(); ++it) m_index.emplace(it->first, it);
    }
  }

  Buckets m_buckets;
  std::unordered_map<K, typename Chain::iterator> m_index;
};

#endif  // KOV_PLATFORM_KOVMAP_H
