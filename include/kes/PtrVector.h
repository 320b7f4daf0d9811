// Growable arrays of pointers.

#pragma once

#include <algorithm>
#include <limits>

#include <kes/Export.h>
#include <kes/Forward.h>

namespace Kes {

/// An array of borrowed pointers that grows by a fixed increment. It owns what
/// they point to in clearAndDelete only. Positions are not checked.
template <class T>
class PtrVector {
public:
    /// Both in entries; below 0 counts as 0.
    PtrVector(int initialCapacity, int growth)
        : capacity(initialCapacity > 0 ? initialCapacity : 0),
          increment(growth),
          items(new T*[static_cast<unsigned>(capacity)]) {}
    PtrVector(const PtrVector& other) : PtrVector(other.capacity, other.increment) {
        *this = other;
    }
    PtrVector& operator=(const PtrVector& other) {
        if (this == &other)
            return *this;
        T** fresh = new T*[static_cast<unsigned>(other.capacity)];
        copy(fresh, 0, other.items, 0, other.used);
        delete[] items;
        items = fresh;
        capacity = other.capacity;
        increment = other.increment;
        used = other.used;
        return *this;
    }
    virtual ~PtrVector() { delete[] items; }

    /// Appends the pointer. A full array is copied into one that is larger by the
    /// increment, or by 1 where that is 0.
    void add(T* p) {
        if (used == capacity)
            increaseCapacity();
        items[used++] = p;
    }

    /// Inserts before the element at `i`, and moves those from there on. Grows as
    /// add() does.
    void insert(T* p, int i) {
        if (used == capacity)
            increaseCapacity();
        reverseCopy(items, i + 1, items, i, used - i);
        items[i] = p;
        ++used;
    }

    /// Returns the pointer that was removed.
    T* removeAt(int i) {
        T* removed = items[i];
        copy(items, i, items, i + 1, used - i - 1);
        --used;
        return removed;
    }

    /// Null when the pointer is not there.
    T* remove(T* p) {
        const int i = find(p);
        return i != -1 ? removeAt(i) : nullptr;
    }

    /// Returns the pointer that was replaced.
    T* setAt(T* p, int i) {
        T* replaced = items[i];
        items[i] = p;
        return replaced;
    }

    /// The first position from `start` on that holds the pointer; -1 when there is
    /// none. Linear, as contains.
    int find(T* p, int start = 0) const {
        for (int i = start; i < used; ++i)
            if (items[i] == p)
                return i;
        return -1;
    }

    /// Whether find() has a position for it.
    bool contains(T* p) const { return find(p) != -1; }

    /// The pointer at `i`, which may be assigned. Constant time.
    T*& at(int i) const { return items[i]; }
    T*& operator[](int i) const { return items[i]; }

    /// Makes room for `n` entries in all, or for those that there are where that is
    /// more: it may shrink the array. Copies it, but where nothing changes.
    void setCapacity(int n) {
        const int wanted = n > used ? n : used;
        if (wanted != capacity)
            reallocate(wanted);
    }

    /// Keeps the array.
    void clear() { used = 0; }

    /// What is deleted is not in the array any more, and may take others out.
    void clearAndDelete() {
        std::reverse(items, items + used);  // the first goes first
        while (used > 0)
            delete items[--used];
    }

    int size() const { return used; }

    /// Identity: true only for the same object.
    bool operator==(const PtrVector& other) const { return this == &other; }
    static long hash(const PtrVector& v) { return reinterpret_cast<long>(&v); }

protected:
    static void copy(T** dst, int dstStart, T** src, int srcStart, int n) {
        for (int i = 0; i < n; ++i)
            dst[dstStart + i] = src[srcStart + i];
    }
    static void reverseCopy(T** dst, int dstStart, T** src, int srcStart, int n) {
        for (int i = n - 1; i >= 0; --i)
            dst[dstStart + i] = src[srcStart + i];
    }
    // Room for one more even when the increment is 0.
    void increaseCapacity() {
        const int step = increment > 0 ? increment : 1;
        constexpr int most = std::numeric_limits<int>::max();
        reallocate(step > most - capacity ? most : capacity + step);
    }

private:
    void reallocate(int newCapacity) {
        T** fresh = new T*[static_cast<unsigned>(newCapacity)];
        copy(fresh, 0, items, 0, used);
        delete[] items;
        items = fresh;
        capacity = newCapacity;
    }

    int capacity;
    int increment;
    T** items;
    int used = 0;
};

}  // namespace Kes
