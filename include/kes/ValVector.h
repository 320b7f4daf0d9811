// Growable arrays of values.

#pragma once

#include <limits>
#include <memory>
#include <type_traits>
#include <utility>

#include <kes/Export.h>
#include <kes/Forward.h>

namespace Kes {

/// An array of values that grows by a fixed increment. Positions count from 0,
/// "not found" is -1, and no position is checked.
template <class T>
class ValVector {
public:
    /// Both in entries; below 0 counts as 0. Allocates nothing yet.
    ValVector(int initialCapacity, int growth)
        : capacity(initialCapacity > 0 ? initialCapacity : 0),
          increment(growth) {}
    ValVector(const ValVector& other) : ValVector(other.capacity, other.increment) {
        *this = other;
    }
    ValVector& operator=(const ValVector& other) {
        if (this == &other)
            return *this;
        std::unique_ptr<T[]> fresh(new T[static_cast<unsigned>(other.capacity)]);
        copy(fresh.get(), 0, other.items, 0, other.used);
        delete[] items;
        items = fresh.release();
        capacity = other.capacity;
        increment = other.increment;
        used = other.used;
        return *this;
    }
    virtual ~ValVector() { delete[] items; }

    /// Appends a copy. A full array is copied into one that is larger by the
    /// increment, or by 1 where that is 0. The array is as before when copying an
    /// element throws, as with all operations below.
    void add(const T& v) {
        // A copy, for `v` may be an element of the array that is replaced.
        const T kept(v);  // NOLINT(performance-unnecessary-copy-initialization)
        makeRoom();
        items[used] = kept;  // counted when it is there: the assignment may throw
        ++used;
    }

    /// Inserts a copy before the element at `i`, and moves those from there on.
    void insert(const T& v, int i) {
        const T kept(v);  // NOLINT(performance-unnecessary-copy-initialization): as in add()
        makeRoom();
        if constexpr (std::is_nothrow_swappable_v<T>) {
            items[used] = kept;
            for (int at = used; at > i; --at)
                std::swap(items[at], items[at - 1]);
        } else {
            std::unique_ptr<T[]> fresh = startingLike(i);
            fresh[static_cast<unsigned>(i)] = kept;
            copy(fresh.get(), i + 1, items, i, used - i);
            replaceItems(fresh);
        }
        ++used;
    }

    /// The vacated last slot keeps its value until it is overwritten.
    void removeAt(int i) {
        if constexpr (std::is_nothrow_swappable_v<T>) {
            T last(items[used - 1]);
            for (int at = i; at < used - 1; ++at)
                std::swap(items[at], items[at + 1]);
            std::swap(items[used - 1], last);
        } else {
            std::unique_ptr<T[]> fresh = startingLike(i);
            copy(fresh.get(), i, items, i + 1, used - i - 1);
            fresh[static_cast<unsigned>(used - 1)] = items[used - 1];
            replaceItems(fresh);
        }
        --used;
    }

    /// Removes the first equal element; does nothing where there is none. Linear.
    void remove(const T& v) {
        const int i = find(v);
        if (i != -1)
            removeAt(i);
    }

    /// The first position from `start` on that holds an equal value; -1 when there is
    /// none. Linear, as contains.
    int find(const T& v, int start = 0) const {
        for (int i = start; i < used; ++i)
            if (items[i] == v)
                return i;
        return -1;
    }

    /// Whether find() has a position for it.
    bool contains(const T& v) const { return find(v) != -1; }

    /// The element itself, valid until the array changes. Constant time.
    T& at(int i) const { return items[i]; }
    T& operator[](int i) const { return items[i]; }

    /// May shrink the array, down to the size.
    void setCapacity(int n) {
        const int wanted = n > used ? n : used;
        if (wanted != capacity)
            reallocate(wanted);
    }

    /// Frees the array; the capacity is kept.
    void clear() {
        delete[] items;
        items = nullptr;
        used = 0;
    }

    int size() const { return used; }

    /// Identity: true only for the same object.
    bool operator==(const ValVector& other) const { return this == &other; }
    static long hash(const ValVector& v) { return reinterpret_cast<long>(&v); }

protected:
    static void copy(T* dst, int dstStart, T* src, int srcStart, int n) {
        for (int i = 0; i < n; ++i)
            dst[dstStart + i] = src[srcStart + i];
    }
    static void reverseCopy(T* dst, int dstStart, T* src, int srcStart, int n) {
        for (int i = n - 1; i >= 0; --i)
            dst[dstStart + i] = src[srcStart + i];
    }
    void increaseCapacity() { reallocate(items == nullptr ? capacity : larger()); }

private:
    // Room for one more even when the increment is 0.
    int larger() const {
        const int step = increment > 0 ? increment : 1;
        constexpr int most = std::numeric_limits<int>::max();
        return step > most - capacity ? most : capacity + step;
    }

    // A first array of 0 elements grows at once by the increment.
    void makeRoom() {
        while (items == nullptr || used == capacity)
            increaseCapacity();
    }

    void reallocate(int newCapacity) {
        std::unique_ptr<T[]> fresh(new T[static_cast<unsigned>(newCapacity)]);
        copy(fresh.get(), 0, items, 0, used);
        replaceItems(fresh);
        capacity = newCapacity;
    }

    // Another array with the first `count` elements of this one.
    std::unique_ptr<T[]> startingLike(int count) {
        std::unique_ptr<T[]> fresh(new T[static_cast<unsigned>(capacity)]);
        copy(fresh.get(), 0, items, 0, count);
        return fresh;
    }

    void replaceItems(std::unique_ptr<T[]>& fresh) {
        delete[] items;
        items = fresh.release();
    }

    int capacity;
    int increment;
    T* items = nullptr;  // null until first needed
    int used = 0;
};

extern template class KES_EXPORT ValVector<String>;
extern template class KES_EXPORT ValVector<int>;
extern template class KES_EXPORT ValVector<bool>;

}  // namespace Kes
