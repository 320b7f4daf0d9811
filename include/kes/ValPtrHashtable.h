// Hash tables from values to pointers.

#pragma once

#include <cstdlib>
#include <ostream>

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/ValList.h>

namespace Kes {

/// One entry of a table.
template <class K, class V>
class ValPtrAssoc {
public:
    ValPtrAssoc(const K& itsKey, V* itsValue) : key(itsKey), value(itsValue) {}

    bool operator==(const ValPtrAssoc& other) const { return key == other.key; }

    K key;
    V* value;
};

/// A chained hash table. It owns its keys, and the values in clearAndDelete
/// only. Six entries per bucket on average make it grow by a fixed number of
/// buckets.
template <class K, class V>
class ValPtrHashtable {
public:
    using Assoc = ValPtrAssoc<K, V>;
    using Bucket = ValList<Assoc>;

    ValPtrHashtable(long (*keyHash)(const K&), int initialBuckets, int growth)
        : hashFunction(keyHash),
          nrOfBuckets(initialBuckets),
          increment(growth),
          buckets(new Bucket[static_cast<unsigned>(initialBuckets)]) {}
    ValPtrHashtable(const ValPtrHashtable& other)
        : ValPtrHashtable(other.hashFunction, other.nrOfBuckets, other.increment) {
        *this = other;
    }
    ValPtrHashtable& operator=(const ValPtrHashtable& other) {
        if (this == &other)
            return *this;
        auto* fresh = new Bucket[static_cast<unsigned>(other.nrOfBuckets)];
        for (int i = 0; i < other.nrOfBuckets; ++i)
            fresh[i] = other.buckets[i];
        delete[] buckets;
        buckets = fresh;
        hashFunction = other.hashFunction;
        nrOfBuckets = other.nrOfBuckets;
        increment = other.increment;
        entries = other.entries;
        return *this;
    }
    virtual ~ValPtrHashtable() { delete[] buckets; }

    /// Returns the value that was replaced, or null.
    V* set(const K& key, V* value) {
        Bucket& bucket = buckets[myHash(key)];
        if (const Assoc* known = findIn(bucket, key)) {
            V* replaced = known->value;
            const_cast<Assoc*>(known)->value = value;
            return replaced;
        }
        if (++entries > 6 * nrOfBuckets)
            increaseNrOfBuckets();
        buckets[myHash(key)].add(Assoc(key, value));
        return nullptr;
    }

    /// Null when absent.
    V* get(const K& key) const {
        const Assoc* known = findIn(buckets[myHash(key)], key);
        return known != nullptr ? known->value : nullptr;
    }

    /// Returns the value that was removed, or null.
    V* remove(const K& key) {
        Bucket& bucket = buckets[myHash(key)];
        const Assoc* known = findIn(bucket, key);
        if (known == nullptr)
            return nullptr;
        V* removed = known->value;
        bucket.remove(Assoc(key, nullptr));
        --entries;
        return removed;
    }

    bool contains(const K& key) const { return findIn(buckets[myHash(key)], key) != nullptr; }

    void clear() {
        for (int i = 0; i < nrOfBuckets; ++i)
            buckets[i].clear();
        entries = 0;
    }

    void clearAndDelete() {
        for (int i = 0; i < nrOfBuckets; ++i)
            for (const Assoc& entry : buckets[i])
                delete entry.value;
        clear();
    }

    /// One line per bucket: its index, " => " and the number of its entries.
    void dump(std::ostream& out) const {
        for (int i = 0; i < nrOfBuckets; ++i)
            out << i << " => " << buckets[i].size() << std::endl;
    }

    /// Identity: true only for the same object.
    bool operator==(const ValPtrHashtable& other) const { return this == &other; }
    static long hash(const ValPtrHashtable& table) { return reinterpret_cast<long>(&table); }

protected:
    int myHash(const K& key) const {
        return static_cast<int>(std::labs(hashFunction(key) % nrOfBuckets));
    }

    void increaseNrOfBuckets() {
        const int before = nrOfBuckets;
        Bucket* old = buckets;
        nrOfBuckets += increment;
        buckets = new Bucket[static_cast<unsigned>(nrOfBuckets)];
        for (int i = 0; i < before; ++i)
            for (const Assoc& entry : old[i])
                buckets[myHash(entry.key)].add(entry);
        delete[] old;
    }

private:
    static const Assoc* findIn(const Bucket& bucket, const K& key) {
        for (const Assoc& entry : bucket)
            if (entry.key == key)
                return &entry;
        return nullptr;
    }

    long (*hashFunction)(const K&);
    int nrOfBuckets;
    int increment;
    Bucket* buckets;
    int entries = 0;
};

}  // namespace Kes
