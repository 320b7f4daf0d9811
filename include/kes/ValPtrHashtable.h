// Hash tables from values to pointers.

#pragma once

#include <cstdlib>
#include <limits>
#include <memory>
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

    /// A table of 0 buckets takes its first ones when it gets its first entry;
    /// below 0 counts as 0.
    ValPtrHashtable(long (*keyHash)(const K&), int initialBuckets, int growth)
        : hashFunction(keyHash),
          nrOfBuckets(initialBuckets > 0 ? initialBuckets : 0),
          increment(growth > 0 ? growth : 0),
          buckets(new Bucket[static_cast<unsigned>(nrOfBuckets)]) {}
    ValPtrHashtable(const ValPtrHashtable& other)
        : ValPtrHashtable(other.hashFunction, other.nrOfBuckets, other.increment) {
        *this = other;
    }
    ValPtrHashtable& operator=(const ValPtrHashtable& other) {
        if (this == &other)
            return *this;
        std::unique_ptr<Bucket[]> fresh(new Bucket[static_cast<unsigned>(other.nrOfBuckets)]);
        for (int i = 0; i < other.nrOfBuckets; ++i)
            fresh[static_cast<unsigned>(i)] = other.buckets[i];
        delete[] buckets;
        buckets = fresh.release();
        hashFunction = other.hashFunction;
        nrOfBuckets = other.nrOfBuckets;
        increment = other.increment;
        entries = other.entries;
        return *this;
    }
    virtual ~ValPtrHashtable() { delete[] buckets; }

    /// Returns the value that was replaced, or null.
    V* set(const K& key, V* value) {
        if (const Assoc* known = find(key)) {
            V* replaced = known->value;
            const_cast<Assoc*>(known)->value = value;
            return replaced;
        }
        if (entries + 1L > 6L * nrOfBuckets)
            increaseNrOfBuckets();
        buckets[myHash(key)].add(Assoc(key, value));
        ++entries;
        return nullptr;
    }

    /// Null when absent.
    V* get(const K& key) const {
        const Assoc* known = find(key);
        return known != nullptr ? known->value : nullptr;
    }

    /// Returns the value that was removed, or null.
    V* remove(const K& key) {
        const Assoc* known = find(key);
        if (known == nullptr)
            return nullptr;
        V* removed = known->value;
        buckets[myHash(key)].remove(Assoc(key, nullptr));
        --entries;
        return removed;
    }

    /// Whether the table has an entry for the key, be its value null or not.
    bool contains(const K& key) const { return find(key) != nullptr; }

    /// Takes all entries out; what the values point to stays, and so do the buckets.
    void clear() {
        for (int i = 0; i < nrOfBuckets; ++i)
            buckets[i].clear();
        entries = 0;
    }

    /// What is deleted is not in the table any more, and may take others out.
    void clearAndDelete() {
        for (int i = 0; i < nrOfBuckets; ++i)
            while (buckets[i].size() > 0) {
                V* value = buckets[i][0].value;
                buckets[i].removeAt(0);
                --entries;
                delete value;
            }
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
    int myHash(const K& key) const { return bucketOf(key, nrOfBuckets); }

    void increaseNrOfBuckets() {
        constexpr int most = std::numeric_limits<int>::max();
        const int sum = increment > most - nrOfBuckets ? most : nrOfBuckets + increment;
        const int wanted = sum > 0 ? sum : 1;
        if (wanted == nrOfBuckets)
            return;
        std::unique_ptr<Bucket[]> fresh(new Bucket[static_cast<unsigned>(wanted)]);
        for (int i = 0; i < nrOfBuckets; ++i)
            for (const Assoc& entry : buckets[i])
                fresh[static_cast<unsigned>(bucketOf(entry.key, wanted))].add(entry);
        delete[] buckets;
        buckets = fresh.release();
        nrOfBuckets = wanted;
    }

private:
    int bucketOf(const K& key, int count) const {
        return static_cast<int>(std::labs(hashFunction(key) % count));
    }

    const Assoc* find(const K& key) const {
        if (nrOfBuckets == 0)
            return nullptr;
        for (const Assoc& entry : buckets[myHash(key)])
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
