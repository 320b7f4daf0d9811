// A singly linked list of pointers.

#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

namespace Kes {

/// One node of a PtrList. For PtrList and who derives from it.
template <class T>
class PtrListNode {
public:
    explicit PtrListNode(T* v) : value(v) {}

    PtrListNode* next = nullptr;
    T* value;  // borrowed
};

/// A list of borrowed pointers.
///
/// Positions count from 0 and are not checked; -1 and null stand for "not
/// found". Adding at either end and merging take constant time; at(i) walks
/// from the head, so loops use begin() and end(). The list owns what its
/// elements point to in clearAndDelete() only.
template <class T>
class PtrList {
public:
    /// Walks a list from head to tail.
    ///
    /// An iterator refers to a node: it is good until that node is removed or
    /// the list is cleared, whatever happens to the others. A loop that removes
    /// the element it stands on steps forward first. It meets what is added
    /// behind it in the list.
    class Iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = T*;
        using difference_type = std::ptrdiff_t;
        using pointer = T* const*;
        using reference = T* const&;

        Iterator() = default;
        explicit Iterator(const PtrListNode<T>* first) : node(first) {}

        reference operator*() const { return node->value; }
        pointer operator->() const { return &node->value; }
        Iterator& operator++() {
            node = node->next;
            return *this;
        }
        Iterator operator++(int) {
            const Iterator before = *this;
            node = node->next;
            return before;
        }
        bool operator==(const Iterator& other) const { return node == other.node; }

    private:
        const PtrListNode<T>* node = nullptr;  // null past the tail
    };

    PtrList() = default;
    /// Copies the pointers, not what they point to.
    PtrList(const PtrList& other) : PtrList() { *this += other; }
    PtrList& operator=(const PtrList& other);
    virtual ~PtrList() { clear(); }

    /// Appends.
    void add(T* p);
    /// Puts `p` before the element at `i`; `i` may be size().
    void insert(T* p, int i);
    /// Appends the other list's elements, as many as it has now.
    void operator+=(const PtrList& other);
    /// Moves all nodes of `other` to the end of this list and leaves it empty.
    void merge(PtrList* other);

    T* at(int i) const { return pos(i)->value; }
    T* operator[](int i) const { return at(i); }

    /// The first position from `start` on that holds `p`, or -1.
    int find(T* p, int start = 0) const;
    bool contains(T* p) const { return find(p) != -1; }

    /// Both return the pointer they removed; remove() null when `p` is absent.
    T* removeAt(int i);
    T* remove(T* p);

    void clear();
    /// Deletes what the elements point to, in order, and removes them. While it
    /// does, the list is already empty.
    void clearAndDelete();
    int size() const { return count; }

    Iterator begin() const { return Iterator(head); }
    Iterator end() const { return Iterator(); }

    /// Whether `other` is this very object. Equal contents do not count.
    bool operator==(const PtrList& other) const { return this == &other; }
    /// The object's address.
    static long hash(const PtrList& list) {
        return static_cast<long>(reinterpret_cast<std::intptr_t>(&list));
    }

protected:
    /// Walks `i` steps from the head.
    PtrListNode<T>* pos(int i) const;

    PtrListNode<T>* head = nullptr;  // owned, with all that follow it
    PtrListNode<T>* tail = nullptr;  // null exactly when head is
    int count = 0;

private:
    T* removeAfter(PtrListNode<T>* previous);
};

template <class T>
PtrList<T>& PtrList<T>::operator=(const PtrList& other) {
    if (this != &other) {
        clear();
        *this += other;
    }
    return *this;
}

template <class T>
void PtrList<T>::add(T* p) {
    auto* const node = new PtrListNode<T>(p);
    (tail == nullptr ? head : tail->next) = node;
    tail = node;
    ++count;
}

template <class T>
void PtrList<T>::insert(T* p, int i) {
    if (i == count) {
        add(p);
        return;
    }
    auto* const node = new PtrListNode<T>(p);
    PtrListNode<T>*& link = i == 0 ? head : pos(i - 1)->next;
    node->next = link;
    link = node;
    ++count;
}

template <class T>
void PtrList<T>::operator+=(const PtrList& other) {
    // Counted, because a list may be appended to itself.
    int left = other.count;
    for (const PtrListNode<T>* node = other.head; left > 0; --left, node = node->next)
        add(node->value);
}

template <class T>
void PtrList<T>::merge(PtrList* other) {
    if (other == this || other->head == nullptr)
        return;

    (tail == nullptr ? head : tail->next) = other->head;
    tail = other->tail;
    count += other->count;
    other->head = nullptr;
    other->tail = nullptr;
    other->count = 0;
}

template <class T>
int PtrList<T>::find(T* p, int start) const {
    if (start >= count)
        return -1;
    int i = start;
    for (const PtrListNode<T>* node = pos(start); node != nullptr; node = node->next, ++i)
        if (node->value == p)
            return i;
    return -1;
}

template <class T>
T* PtrList<T>::removeAt(int i) {
    return removeAfter(i == 0 ? nullptr : pos(i - 1));
}

template <class T>
T* PtrList<T>::remove(T* p) {
    PtrListNode<T>* previous = nullptr;
    for (PtrListNode<T>* node = head; node != nullptr; previous = node, node = node->next)
        if (node->value == p)
            return removeAfter(previous);
    return nullptr;
}

template <class T>
T* PtrList<T>::removeAfter(PtrListNode<T>* previous) {
    PtrListNode<T>*& link = previous == nullptr ? head : previous->next;
    PtrListNode<T>* const removed = link;
    link = removed->next;
    if (removed == tail)
        tail = previous;
    --count;

    T* const value = removed->value;
    delete removed;
    return value;
}

template <class T>
void PtrList<T>::clear() {
    while (head != nullptr)
        removeAfter(nullptr);
}

template <class T>
void PtrList<T>::clearAndDelete() {
    PtrList detached;
    detached.merge(this);
    while (detached.head != nullptr)
        delete detached.removeAfter(nullptr);
}

template <class T>
PtrListNode<T>* PtrList<T>::pos(int i) const {
    PtrListNode<T>* node = head;
    while (i-- > 0)
        node = node->next;
    return node;
}

}  // namespace Kes
