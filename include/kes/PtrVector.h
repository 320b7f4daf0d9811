// A growable array of pointers.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace Kes {

/// An array of borrowed pointers that grows by a fixed number of elements.
///
/// Positions count from 0 and are not checked; -1 and null stand for "not
/// found". The vector owns what its elements point to in clearAndDelete() only.
template <class T>
class PtrVector {
public:
    /// Room for `firstCapacity` pointers at once, and for `growth` more each time
    /// it is full, but at least 1.
    PtrVector(int firstCapacity, int growth)
        : capacity(firstCapacity), increment(growth), elements(allocate(firstCapacity)) {}

    PtrVector(const PtrVector& other) : PtrVector(0, 0) { *this = other; }
    PtrVector& operator=(const PtrVector& other);
    virtual ~PtrVector() { delete[] elements; }

    void add(T* p);
    /// Puts `p` before the element at `i`; `i` may be size().
    void insert(T* p, int i);
    /// Both return the pointer they removed; remove() null when `p` is absent.
    T* removeAt(int i);
    T* remove(T* p);
    /// Replaces the element at `i` and returns what stood there.
    T* setAt(T* p, int i) { return std::exchange(elements[i], p); }

    /// The first position from `start` on that holds `p`, or -1.
    int find(T* p, int start = 0) const;
    bool contains(T* p) const { return find(p) != -1; }

    T*& at(int i) const { return elements[i]; }
    T*& operator[](int i) const { return elements[i]; }

    /// Makes room for exactly `n` pointers, but never fewer than there are.
    void setCapacity(int n);
    /// Removes the pointers and keeps their memory.
    void clear() { used = 0; }
    /// Deletes what the elements point to and removes them.
    void clearAndDelete();
    int size() const { return used; }

    T** begin() const { return elements; }
    T** end() const { return elements + used; }

    /// Whether `other` is this very object. Equal contents do not count.
    bool operator==(const PtrVector& other) const { return this == &other; }
    /// The object's address.
    static long hash(const PtrVector& vector) {
        return static_cast<long>(reinterpret_cast<std::intptr_t>(&vector));
    }

protected:
    static void copy(T** dst, int dstStart, T** src, int srcStart, int n) {
        std::copy(src + srcStart, src + srcStart + n, dst + dstStart);
    }
    /// Copies from the last pointer to the first, for a move upwards.
    static void reverseCopy(T** dst, int dstStart, T** src, int srcStart, int n) {
        std::copy_backward(src + srcStart, src + srcStart + n, dst + dstStart + n);
    }
    void increaseCapacity() { moveTo(capacity + std::max(increment, 1)); }

    int capacity = 0;
    int increment = 0;
    T** elements = nullptr;  // owned array of borrowed pointers
    int used = 0;

private:
    static T** allocate(int n) { return new T*[static_cast<std::size_t>(n)]; }
    void moveTo(int newCapacity);
};

template <class T>
PtrVector<T>& PtrVector<T>::operator=(const PtrVector& other) {
    if (this == &other)
        return *this;

    T** const fresh = allocate(other.capacity);
    copy(fresh, 0, other.elements, 0, other.used);
    delete[] elements;
    elements = fresh;
    capacity = other.capacity;
    increment = other.increment;
    used = other.used;
    return *this;
}

template <class T>
void PtrVector<T>::add(T* p) {
    if (used == capacity)
        increaseCapacity();
    elements[used++] = p;
}

template <class T>
void PtrVector<T>::insert(T* p, int i) {
    if (used == capacity)
        increaseCapacity();
    reverseCopy(elements, i + 1, elements, i, used - i);
    elements[i] = p;
    ++used;
}

template <class T>
T* PtrVector<T>::removeAt(int i) {
    T* const removed = elements[i];
    copy(elements, i, elements, i + 1, used - i - 1);
    --used;
    return removed;
}

template <class T>
T* PtrVector<T>::remove(T* p) {
    const int i = find(p);
    return i != -1 ? removeAt(i) : nullptr;
}

template <class T>
int PtrVector<T>::find(T* p, int start) const {
    for (int i = start; i < used; ++i)
        if (elements[i] == p)
            return i;
    return -1;
}

template <class T>
void PtrVector<T>::setCapacity(int n) {
    const int newCapacity = std::max(n, used);
    if (newCapacity != capacity)
        moveTo(newCapacity);
}

template <class T>
void PtrVector<T>::clearAndDelete() {
    const int n = used;
    used = 0;
    for (int i = 0; i < n; ++i)
        delete elements[i];
}

template <class T>
void PtrVector<T>::moveTo(int newCapacity) {
    T** const fresh = allocate(newCapacity);
    copy(fresh, 0, elements, 0, used);
    delete[] elements;
    elements = fresh;
    capacity = newCapacity;
}

}  // namespace Kes
