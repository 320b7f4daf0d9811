// A hash table from values to pointers.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <ostream>
#include <utility>

#include <kes/ValList.h>

namespace Kes {

/// One entry of a ValPtrHashtable.
template <class K, class V>
class ValPtrAssoc {
public:
    ValPtrAssoc(const K& k, V* v) : key(k), value(v) {}

    bool operator==(const ValPtrAssoc& other) const {
        return key == other.key && value == other.value;
    }

    K key;
    V* value;  // borrowed
};

/// Finds a borrowed pointer by a key, which is held by copy.
///
/// Entries hang in buckets, in the order in which they came. When the table
/// holds more than six entries per bucket, it grows by a fixed number of
/// buckets. The table owns its values in clearAndDelete() only. Null stands for
/// "not found".
template <class K, class V>
class ValPtrHashtable {
public:
    using HashFunction = long (*)(const K&);
    using Entry = ValPtrAssoc<K, V>;

    /// Walks the entries bucket by bucket; good until the table changes.
    class Iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = Entry;
        using difference_type = std::ptrdiff_t;
        using pointer = const Entry*;
        using reference = const Entry&;

        Iterator() = default;
        Iterator(const ValList<Entry>* firstBucket, const ValList<Entry>* endBucket);

        reference operator*() const { return *entry; }
        pointer operator->() const { return &*entry; }
        Iterator& operator++();
        Iterator operator++(int) {
            const Iterator before = *this;
            ++*this;
            return before;
        }
        bool operator==(const Iterator& other) const { return entry == other.entry; }

    private:
        void skipEmptyBuckets();

        const ValList<Entry>* bucket = nullptr;
        const ValList<Entry>* pastBuckets = nullptr;
        typename ValList<Entry>::Iterator entry;
    };

    /// Starts with `firstBuckets` buckets and grows by `growth` of them, both at
    /// least 1.
    ValPtrHashtable(HashFunction function, int firstBuckets, int growth);
    /// Copies keys and pointers, not what they point to.
    ValPtrHashtable(const ValPtrHashtable& other);
    ValPtrHashtable& operator=(const ValPtrHashtable& other);
    virtual ~ValPtrHashtable() { delete[] buckets; }

    /// Files `value` and returns the value that it replaces, or null.
    V* set(const K& key, V* value);
    V* get(const K& key) const;
    /// Returns the removed value, or null.
    V* remove(const K& key);
    bool contains(const K& key) const { return nodeOf(buckets[myHash(key)], key) != nullptr; }

    void clear();
    /// Deletes the values, too. While it does, the table is already empty.
    void clearAndDelete();
    /// The number of entries.
    int size() const { return entries; }

    /// Writes one line for each bucket: its index and the length of its chain.
    void dump(std::ostream& out) const;

    Iterator begin() const { return Iterator(buckets, buckets + nrOfBuckets); }
    Iterator end() const { return Iterator(); }

    /// Whether `other` is this very object. Equal contents do not count.
    bool operator==(const ValPtrHashtable& other) const { return this == &other; }
    /// The object's address.
    static long hash(const ValPtrHashtable& table) {
        return static_cast<long>(reinterpret_cast<std::intptr_t>(&table));
    }

protected:
    /// The bucket that `key` belongs to.
    int myHash(const K& key) const {
        return static_cast<int>(std::labs(hashFunction(key) % nrOfBuckets));
    }
    void increaseNrOfBuckets();

    HashFunction hashFunction;
    int nrOfBuckets;
    int increment;
    ValList<Entry>* buckets;  // owned array
    int entries = 0;

private:
    static ValList<Entry>* allocate(int n) {
        return new ValList<Entry>[static_cast<std::size_t>(n)];
    }
    static ValListNode<Entry>* nodeOf(const ValList<Entry>& bucket, const K& key);
};

template <class K, class V>
ValPtrHashtable<K, V>::Iterator::Iterator(const ValList<Entry>* firstBucket,
                                          const ValList<Entry>* endBucket)
    : bucket(firstBucket), pastBuckets(endBucket), entry(firstBucket->begin()) {
    skipEmptyBuckets();
}

template <class K, class V>
typename ValPtrHashtable<K, V>::Iterator& ValPtrHashtable<K, V>::Iterator::operator++() {
    ++entry;
    skipEmptyBuckets();
    return *this;
}

template <class K, class V>
void ValPtrHashtable<K, V>::Iterator::skipEmptyBuckets() {
    while (entry == bucket->end() && ++bucket != pastBuckets)
        entry = bucket->begin();
}

template <class K, class V>
ValPtrHashtable<K, V>::ValPtrHashtable(HashFunction function, int firstBuckets, int growth)
    : hashFunction(function),
      nrOfBuckets(std::max(firstBuckets, 1)),
      increment(growth),
      buckets(allocate(nrOfBuckets)) {}

template <class K, class V>
ValPtrHashtable<K, V>::ValPtrHashtable(const ValPtrHashtable& other)
    : ValPtrHashtable(other.hashFunction, other.nrOfBuckets, other.increment) {
    std::copy(other.buckets, other.buckets + nrOfBuckets, buckets);
    entries = other.entries;
}

template <class K, class V>
ValPtrHashtable<K, V>& ValPtrHashtable<K, V>::operator=(const ValPtrHashtable& other) {
    if (this == &other)
        return *this;

    ValPtrHashtable fresh(other);
    std::swap(hashFunction, fresh.hashFunction);
    std::swap(nrOfBuckets, fresh.nrOfBuckets);
    std::swap(increment, fresh.increment);
    std::swap(buckets, fresh.buckets);
    std::swap(entries, fresh.entries);
    return *this;
}

template <class K, class V>
V* ValPtrHashtable<K, V>::set(const K& key, V* value) {
    ValListNode<Entry>* const known = nodeOf(buckets[myHash(key)], key);
    if (known != nullptr)
        return std::exchange(known->value.value, value);

    ++entries;
    if (entries > 6L * nrOfBuckets)
        increaseNrOfBuckets();
    buckets[myHash(key)].add(Entry(key, value));
    return nullptr;
}

template <class K, class V>
V* ValPtrHashtable<K, V>::get(const K& key) const {
    const ValListNode<Entry>* const node = nodeOf(buckets[myHash(key)], key);
    return node != nullptr ? node->value.value : nullptr;
}

template <class K, class V>
V* ValPtrHashtable<K, V>::remove(const K& key) {
    ValList<Entry>& bucket = buckets[myHash(key)];
    ValListNode<Entry>* previous = nullptr;
    for (ValListNode<Entry>* node = bucket.head; node != nullptr; node = node->next) {
        if (node->value.key == key) {
            const std::unique_ptr<ValListNode<Entry>> removed(bucket.detachAfter(previous));
            --entries;
            return removed->value.value;
        }
        previous = node;
    }
    return nullptr;
}

template <class K, class V>
void ValPtrHashtable<K, V>::clear() {
    for (int i = 0; i < nrOfBuckets; ++i)
        buckets[i].clear();
    entries = 0;
}

template <class K, class V>
void ValPtrHashtable<K, V>::clearAndDelete() {
    ValList<Entry> detached;
    for (int i = 0; i < nrOfBuckets; ++i)
        detached.merge(&buckets[i]);
    entries = 0;
    for (const Entry& entry : detached)
        delete entry.value;
}

template <class K, class V>
void ValPtrHashtable<K, V>::dump(std::ostream& out) const {
    for (int i = 0; i < nrOfBuckets; ++i)
        out << i << " => " << buckets[i].size() << std::endl;
}

template <class K, class V>
void ValPtrHashtable<K, V>::increaseNrOfBuckets() {
    const int oldNumber = nrOfBuckets;
    ValList<Entry>* const fresh = allocate(oldNumber + std::max(increment, 1));
    const std::unique_ptr<ValList<Entry>[]> old(std::exchange(buckets, fresh));
    nrOfBuckets += std::max(increment, 1);

    // The nodes move over as they are, so that growing allocates one array only.
    for (int i = 0; i < oldNumber; ++i)
        while (old[static_cast<std::size_t>(i)].head != nullptr) {
            ValListNode<Entry>* const node = old[static_cast<std::size_t>(i)].detachAfter(nullptr);
            buckets[myHash(node->value.key)].append(node);
        }
}

template <class K, class V>
ValListNode<ValPtrAssoc<K, V>>* ValPtrHashtable<K, V>::nodeOf(const ValList<Entry>& bucket,
                                                              const K& key) {
    for (ValListNode<Entry>* node = bucket.head; node != nullptr; node = node->next)
        if (node->value.key == key)
            return node;
    return nullptr;
}

}  // namespace Kes
