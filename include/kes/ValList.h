// A singly linked list of values.

#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

namespace Kes {

/// One node of a ValList. For ValList and who derives from it.
template <class T>
class ValListNode {
public:
    explicit ValListNode(const T& v) : value(v) {}

    ValListNode* next = nullptr;
    T value;
};

/// A list of values, which are copied in and compared with ==.
///
/// Positions count from 0 and are not checked; -1 stands for "not found".
/// Adding at either end and merging take constant time; at(i) walks from the
/// head, so loops use begin() and end(). A reference to an element is good
/// until that element is removed.
template <class T>
class ValList {
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
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = const T*;
        using reference = const T&;

        Iterator() = default;
        explicit Iterator(const ValListNode<T>* first) : node(first) {}

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
        const ValListNode<T>* node = nullptr;  // null past the tail
    };

    ValList() = default;
    ValList(const ValList& other) : ValList() { *this += other; }
    ValList& operator=(const ValList& other);
    virtual ~ValList() { clear(); }

    /// Appends. `v` may be an element of this list.
    void add(const T& v);
    /// Puts `v` before the element at `i`; `i` may be size().
    void insert(const T& v, int i);
    /// Appends the other list's elements, as many as it has now.
    void operator+=(const ValList& other);
    /// Moves all nodes of `other` to the end of this list and leaves it empty.
    void merge(ValList* other);

    const T& at(int i) const { return pos(i)->value; }
    const T& operator[](int i) const { return at(i); }

    /// The first position from `start` on whose element equals `v`, or -1.
    int find(const T& v, int start = 0) const;
    bool contains(const T& v) const { return find(v) != -1; }

    void removeAt(int i);
    /// Removes the first element equal to `v`, if there is one.
    void remove(const T& v);

    void clear();
    int size() const { return count; }

    Iterator begin() const { return Iterator(head); }
    Iterator end() const { return Iterator(); }

    /// Whether `other` is this very object. Equal contents do not count.
    bool operator==(const ValList& other) const { return this == &other; }
    /// The object's address.
    static long hash(const ValList& list) {
        return static_cast<long>(reinterpret_cast<std::intptr_t>(&list));
    }

protected:
    template <class K, class V>
    friend class ValPtrHashtable;

    /// Walks `i` steps from the head.
    ValListNode<T>* pos(int i) const;

    ValListNode<T>* head = nullptr;  // owned, with all that follow it
    ValListNode<T>* tail = nullptr;  // null exactly when head is
    int count = 0;

private:
    void append(ValListNode<T>* node);
    /// Unlinks the node behind `previous`, or the head; it is for the caller.
    ValListNode<T>* detachAfter(ValListNode<T>* previous);
};

template <class T>
ValList<T>& ValList<T>::operator=(const ValList& other) {
    if (this != &other) {
        clear();
        *this += other;
    }
    return *this;
}

template <class T>
void ValList<T>::add(const T& v) {
    append(new ValListNode<T>(v));
}

template <class T>
void ValList<T>::insert(const T& v, int i) {
    if (i == count) {
        add(v);
        return;
    }
    auto* const node = new ValListNode<T>(v);
    ValListNode<T>*& link = i == 0 ? head : pos(i - 1)->next;
    node->next = link;
    link = node;
    ++count;
}

template <class T>
void ValList<T>::operator+=(const ValList& other) {
    // Counted, because a list may be appended to itself.
    int left = other.count;
    for (const ValListNode<T>* node = other.head; left > 0; --left, node = node->next)
        add(node->value);
}

template <class T>
void ValList<T>::merge(ValList* other) {
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
int ValList<T>::find(const T& v, int start) const {
    if (start >= count)
        return -1;
    int i = start;
    for (const ValListNode<T>* node = pos(start); node != nullptr; node = node->next, ++i)
        if (node->value == v)
            return i;
    return -1;
}

template <class T>
void ValList<T>::removeAt(int i) {
    delete detachAfter(i == 0 ? nullptr : pos(i - 1));
}

template <class T>
void ValList<T>::remove(const T& v) {
    ValListNode<T>* previous = nullptr;
    for (ValListNode<T>* node = head; node != nullptr; previous = node, node = node->next)
        if (node->value == v) {
            delete detachAfter(previous);
            return;
        }
}

template <class T>
void ValList<T>::clear() {
    while (head != nullptr)
        delete detachAfter(nullptr);
}

template <class T>
ValListNode<T>* ValList<T>::pos(int i) const {
    ValListNode<T>* node = head;
    while (i-- > 0)
        node = node->next;
    return node;
}

template <class T>
void ValList<T>::append(ValListNode<T>* node) {
    (tail == nullptr ? head : tail->next) = node;
    tail = node;
    ++count;
}

template <class T>
ValListNode<T>* ValList<T>::detachAfter(ValListNode<T>* previous) {
    ValListNode<T>*& link = previous == nullptr ? head : previous->next;
    ValListNode<T>* const detached = link;
    link = detached->next;
    if (detached == tail)
        tail = previous;
    --count;
    detached->next = nullptr;
    return detached;
}

}  // namespace Kes
