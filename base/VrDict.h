#pragma once
// VrDict: a chained hash dictionary keyed by C strings. Its iteration order is part of the
// file format (objects are saved in dictionary order), so the hashing, growth and chaining rules
// below are fixed:
//  - hash h = h * 33 + byte over the key's bytes read as signed chars, 32-bit wrap;
//  - the first insert allocates 16 buckets; the table doubles whenever count * 2 >= buckets,
//    relinking each old bucket from index 0 upward, each chain from its head;
//  - a new entry goes to the head of its bucket's chain;
//  - iteration walks buckets from index 0 upward and each chain from its head.
// Not thread-safe; readers may share a dictionary that nobody modifies.

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

template <class T>
class VrDict {
 public:
  struct Entry {
    Entry* next;
    uint32_t hash;
    uint32_t length;
    T value;
    std::string key;
  };

  template <class EntryT>
  class Iter {
   public:
    Iter(Entry* const* buckets, uint32_t bucketCount, uint32_t index, EntryT* entry)
        : buckets(buckets), bucketCount(bucketCount), index(index), entry(entry) {}
    EntryT& operator*() const { return *entry; }
    EntryT* operator->() const { return entry; }
    const std::string& key() const { return entry->key; }
    auto& value() const { return entry->value; }
    Iter& operator++() {
      entry = entry->next;
      while (!entry && ++index < bucketCount) entry = buckets[index];
      return *this;
    }
    bool operator==(const Iter& o) const { return entry == o.entry; }
    bool operator!=(const Iter& o) const { return entry != o.entry; }

   private:
    Entry* const* buckets;
    uint32_t bucketCount;
    uint32_t index;
    EntryT* entry;
  };
  using iterator = Iter<Entry>;
  using const_iterator = Iter<const Entry>;

  VrDict() = default;
  VrDict(const VrDict& other) { copyFrom(other); }
  VrDict& operator=(const VrDict& other) {
    if (this != &other) {
      clear();
      copyFrom(other);
    }
    return *this;
  }
  ~VrDict() { clear(); }

  /// The dictionary's hash of a key.
  static uint32_t hashKey(const char* key, uint32_t* lengthOut = nullptr) {
    uint32_t h = 0;
    const char* p = key;
    for (; *p; ++p) h = h * 33u + static_cast<uint32_t>(static_cast<int>(static_cast<signed char>(*p)));
    if (lengthOut) *lengthOut = static_cast<uint32_t>(p - key);
    return h;
  }

  uint32_t size() const { return count; }
  bool empty() const { return count == 0; }
  uint32_t numBuckets() const { return bucketCount; }

  T* find(const char* key) {
    Entry* e = findEntry(key);
    return e ? &e->value : nullptr;
  }
  const T* find(const char* key) const {
    Entry* e = findEntry(key);
    return e ? &e->value : nullptr;
  }
  T* find(const std::string& key) { return find(key.c_str()); }
  const T* find(const std::string& key) const { return find(key.c_str()); }
  bool contains(const char* key) const { return findEntry(key) != nullptr; }
  bool contains(const std::string& key) const { return contains(key.c_str()); }

  /// Inserts `value` under `key` unless the key is present. Returns the stored value and whether
  /// it was inserted; an existing value is left unchanged.
  std::pair<T*, bool> insert(const char* key, T value) {
    if (Entry* e = findEntry(key)) return {&e->value, false};
    return {&insertNew(key, std::move(value))->value, true};
  }
  std::pair<T*, bool> insert(const std::string& key, T value) {
    return insert(key.c_str(), std::move(value));
  }

  /// The value under `key`, inserting a default value when the key is missing.
  T& operator[](const char* key) {
    if (Entry* e = findEntry(key)) return e->value;
    return insertNew(key, T())->value;
  }
  T& operator[](const std::string& key) { return (*this)[key.c_str()]; }

  /// Removes the entry under `key`; false when there is none.
  bool erase(const char* key) {
    if (!buckets) return false;
    uint32_t length = 0;
    const uint32_t h = hashKey(key, &length);
    Entry** link = &buckets[h & mask];
    for (Entry* e = *link; e; link = &e->next, e = e->next) {
      if (matches(e, h, length, key)) {
        *link = e->next;
        delete e;
        --count;
        return true;
      }
    }
    return false;
  }
  bool erase(const std::string& key) { return erase(key.c_str()); }

  void clear() {
    for (uint32_t i = 0; i < bucketCount; ++i) {
      for (Entry* e = buckets[i]; e;) {
        Entry* next = e->next;
        delete e;
        e = next;
      }
    }
    delete[] buckets;
    buckets = nullptr;
    bucketCount = 0;
    mask = 0;
    count = 0;
  }

  iterator begin() { return makeBegin<iterator, Entry>(); }
  iterator end() { return iterator(buckets, bucketCount, bucketCount, nullptr); }
  const_iterator begin() const { return makeBegin<const_iterator, const Entry>(); }
  const_iterator end() const { return const_iterator(buckets, bucketCount, bucketCount, nullptr); }

 private:
  static bool matches(const Entry* e, uint32_t h, uint32_t length, const char* key) {
    return e->hash == h && e->length == length && std::memcmp(e->key.data(), key, length) == 0;
  }

  Entry* findEntry(const char* key) const {
    if (!buckets) return nullptr;
    uint32_t length = 0;
    const uint32_t h = hashKey(key, &length);
    for (Entry* e = buckets[h & mask]; e; e = e->next)
      if (matches(e, h, length, key)) return e;
    return nullptr;
  }

  Entry* insertNew(const char* key, T value) {
    uint32_t length = 0;
    const uint32_t h = hashKey(key, &length);
    ++count;
    if (count * 2 >= bucketCount) grow();
    Entry* e = new Entry{buckets[h & mask], h, length, std::move(value), std::string(key, length)};
    buckets[h & mask] = e;
    return e;
  }

  void grow() {
    const uint32_t newCount = bucketCount ? bucketCount * 2 : 16;
    Entry** fresh = new Entry*[newCount]();
    const uint32_t newMask = newCount - 1;
    for (uint32_t i = 0; i < bucketCount; ++i) {
      for (Entry* e = buckets[i]; e;) {
        Entry* next = e->next;
        e->next = fresh[e->hash & newMask];
        fresh[e->hash & newMask] = e;
        e = next;
      }
    }
    delete[] buckets;
    buckets = fresh;
    bucketCount = newCount;
    mask = newMask;
  }

  template <class It, class E>
  It makeBegin() const {
    for (uint32_t i = 0; i < bucketCount; ++i)
      if (buckets[i]) return It(buckets, bucketCount, i, buckets[i]);
    return It(buckets, bucketCount, bucketCount, nullptr);
  }

  // Copies entries so that the copy iterates in the same order as the original.
  void copyFrom(const VrDict& other) {
    if (!other.buckets) return;
    buckets = new Entry*[other.bucketCount]();
    bucketCount = other.bucketCount;
    mask = other.mask;
    count = other.count;
    for (uint32_t i = 0; i < bucketCount; ++i) {
      Entry** tail = &buckets[i];
      for (const Entry* e = other.buckets[i]; e; e = e->next) {
        *tail = new Entry{nullptr, e->hash, e->length, e->value, e->key};
        tail = &(*tail)->next;
      }
    }
  }

  uint32_t count = 0;
  uint32_t bucketCount = 0;
  uint32_t mask = 0;
  Entry** buckets = nullptr;
};
