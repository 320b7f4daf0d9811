// A growable array of values.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

#include <kes/Export.h>

namespace Kes {

/// An array of values that grows by a fixed number of elements.
///
/// Positions count from 0 and are not checked; -1 stands for "not found". `T`
/// needs a default constructor, assignment and ==. A reference or pointer to an
/// element is good until the next operation that adds, removes or resizes.
template <class T>
class ValVector {
public:
    /// Room for `firstCapacity` elements when the first one comes, and for
    /// `growth` more each time it is full, but at least 1.
    ValVector(int firstCapacity, int growth) : capacity(firstCapacity), increment(growth) {}

    ValVector(const ValVector& other) : ValVector(0, 0) { *this = other; }
    ValVector& operator=(const ValVector& other);
    virtual ~ValVector() { delete[] elements; }

    /// `v` may be an element of this vector.
    void add(const T& v);
    /// Puts `v` before the element at `i`; `i` may be size().
    void insert(const T& v, int i);
    void removeAt(int i);
    /// Removes the first element equal to `v`, if there is one.
    void remove(const T& v);

    /// The first position from `start` on whose element equals `v`, or -1.
    int find(const T& v, int start = 0) const;
    bool contains(const T& v) const { return find(v) != -1; }

    T& at(int i) const { return elements[i]; }
    T& operator[](int i) const { return elements[i]; }

    /// Makes room for exactly `n` elements, but never fewer than there are.
    void setCapacity(int n);
    /// Removes the elements and their memory.
    void clear();
    int size() const { return used; }

    T* begin() const { return elements; }
    T* end() const { return elements + used; }

    /// Whether `other` is this very object. Equal contents do not count.
    bool operator==(const ValVector& other) const { return this == &other; }
    /// The object's address.
    static long hash(const ValVector& vector) {
        return static_cast<long>(reinterpret_cast<std::intptr_t>(&vector));
    }

protected:
    static void copy(T* dst, int dstStart, T* src, int srcStart, int n) {
        std::copy(src + srcStart, src + srcStart + n, dst + dstStart);
    }
    /// Copies from the last element to the first, for a move upwards.
    static void reverseCopy(T* dst, int dstStart, T* src, int srcStart, int n) {
        std::copy_backward(src + srcStart, src + srcStart + n, dst + dstStart + n);
    }
    void increaseCapacity();

    int capacity = 0;
    int increment = 0;
    T* elements = nullptr;  // owned; null until the first element comes
    int used = 0;

private:
    bool isFull() const { return elements == nullptr || used == capacity; }
    void moveTo(int newCapacity);
};

template <class T>
ValVector<T>& ValVector<T>::operator=(const ValVector& other) {
    if (this == &other)
        return *this;

    std::unique_ptr<T[]> fresh(new T[static_cast<std::size_t>(other.capacity)]);
    if (other.used > 0)
        copy(fresh.get(), 0, other.elements, 0, other.used);
    delete[] elements;
    elements = fresh.release();
    capacity = other.capacity;
    increment = other.increment;
    used = other.used;
    return *this;
}

template <class T>
void ValVector<T>::add(const T& v) {
    if (!isFull()) {
        elements[used++] = v;
        return;
    }
    const T kept(v);  // growing may free the element that v refers to
    while (isFull())
        increaseCapacity();
    elements[used++] = kept;
}

template <class T>
void ValVector<T>::insert(const T& v, int i) {
    const T kept(v);  // growing and shifting may change what v refers to
    while (isFull())
        increaseCapacity();
    reverseCopy(elements, i + 1, elements, i, used - i);
    elements[i] = kept;
    ++used;
}

template <class T>
void ValVector<T>::removeAt(int i) {
    copy(elements, i, elements, i + 1, used - i - 1);
    --used;
}

template <class T>
void ValVector<T>::remove(const T& v) {
    const int i = find(v);
    if (i != -1)
        removeAt(i);
}

template <class T>
int ValVector<T>::find(const T& v, int start) const {
    for (int i = start; i < used; ++i)
        if (elements[i] == v)
            return i;
    return -1;
}

template <class T>
void ValVector<T>::setCapacity(int n) {
    const int newCapacity = std::max(n, used);
    if (newCapacity != capacity)
        moveTo(newCapacity);
}

template <class T>
void ValVector<T>::clear() {
    delete[] elements;
    elements = nullptr;
    used = 0;
}

template <class T>
void ValVector<T>::increaseCapacity() {
    // The first array has the size that the constructor was given.
    moveTo(elements == nullptr ? capacity : capacity + std::max(increment, 1));
}

template <class T>
void ValVector<T>::moveTo(int newCapacity) {
    std::unique_ptr<T[]> fresh(new T[static_cast<std::size_t>(newCapacity)]);
    if (used > 0)
        std::move(elements, elements + used, fresh.get());
    delete[] elements;
    elements = fresh.release();
    capacity = newCapacity;
}

extern template class KES_EXPORT ValVector<int>;
extern template class KES_EXPORT ValVector<bool>;

}  // namespace Kes
