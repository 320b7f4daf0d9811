// Singly linked lists of pointers.

#pragma once

#include <cstddef>
#include <iterator>

#include <kes/Export.h>
#include <kes/Forward.h>

namespace Kes {

/// A node of a PtrList.
template <class T>
class PtrListNode {
public:
    explicit PtrListNode(T* v) : value(v) {}
    virtual ~PtrListNode() = default;

    PtrListNode* next = nullptr;
    T* value;
};

/// A list of pointers. Appending takes constant time, at(i) walks from the head; use
/// range-for to visit all. Positions count from 0, "not found" is -1, and no
/// position is checked.
template <class T>
class PtrList {
public:
    using Node = PtrListNode<T>;

    class Iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = T*;
        using difference_type = std::ptrdiff_t;
        using pointer = const value_type*;
        using reference = T*;

        Iterator() = default;
        explicit Iterator(const Node* at) : node(at) {}

        reference operator*() const { return node->value; }
        Iterator& operator++() {
            node = node->next;
            return *this;
        }
        Iterator operator++(int) {
            Iterator before(*this);
            node = node->next;
            return before;
        }
        bool operator==(const Iterator& other) const { return node == other.node; }

    private:
        const Node* node = nullptr;
    };

    PtrList() = default;
    PtrList(const PtrList& other) : PtrList() { *this = other; }
    PtrList& operator=(const PtrList& other) {
        if (this == &other)
            return *this;
        clear();
        *this += other;
        return *this;
    }
    virtual ~PtrList() { clear(); }

    Iterator begin() const { return Iterator(head); }
    Iterator end() const { return Iterator(); }

    /// Appends the pointer, which is borrowed; constant time.
    void add(T* v) {
        Node* node = new Node(v);
        if (tail == nullptr)
            head = node;
        else
            tail->next = node;
        tail = node;
        ++count;
    }

    /// Inserts before the element at `i`; at the end for a position that equals the
    /// size. Walks to it from the head.
    void insert(T* v, int i) {
        if (i == count) {
            add(v);
            return;
        }
        Node* node = new Node(v);
        Node*& link = i == 0 ? head : pos(i - 1)->next;
        node->next = link;
        link = node;
        ++count;
    }

    /// Appends the other list's elements; the other is unchanged.
    void operator+=(const PtrList& other) {
        int left = other.count;  // its own end moves when a list is appended to itself
        for (const Node* node = other.head; left > 0; node = node->next, --left)
            add(node->value);
    }

    /// Moves the other list's nodes to the end of this one in constant time.
    void merge(PtrList* other) {
        if (other == this || other->head == nullptr)
            return;
        if (tail == nullptr)
            head = other->head;
        else
            tail->next = other->head;
        tail = other->tail;
        count += other->count;
        other->head = other->tail = nullptr;
        other->count = 0;
    }

    /// Walk from the head.
    T* at(int i) const { return pos(i)->value; }
    T* operator[](int i) const { return pos(i)->value; }

    /// The first position from `start` on that holds the pointer; -1 when there is none.
    /// Linear, as contains.
    int find(T* v, int start = 0) const {
        if (start >= count)
            return -1;
        int i = start;
        for (const Node* node = pos(start); node != nullptr; node = node->next, ++i)
            if (node->value == v)
                return i;
        return -1;
    }

    /// Whether find() has a position for it.
    bool contains(T* v) const { return find(v) != -1; }

    /// Returns the pointer that was removed; what it points to stays.
    T* removeAt(int i) {
        Node* node = unlink(i);
        T* removed = node->value;
        delete node;
        return removed;
    }

    /// Null when the pointer is not there.
    T* remove(T* p) {
        const int i = find(p);
        return i != -1 ? removeAt(i) : nullptr;
    }

    /// Takes all elements out; what they point to stays.
    void clear() {
        while (head != nullptr) {
            Node* next = head->next;
            delete head;
            head = next;
        }
        tail = nullptr;
        count = 0;
    }

    /// Deletes what the pointers point to as well. What is deleted is not in the
    /// list any more, and may take others out.
    void clearAndDelete() {
        while (count > 0)
            delete removeAt(0);
    }

    /// Identity: true only for the same object.
    bool operator==(const PtrList& other) const { return this == &other; }
    static long hash(const PtrList& list) { return reinterpret_cast<long>(&list); }

    int size() const { return count; }

protected:
    /// Walks from the head.
    Node* pos(int i) const {
        Node* node = head;
        while (i-- > 0)
            node = node->next;
        return node;
    }

private:
    Node* unlink(int i) {
        Node* before = i == 0 ? nullptr : pos(i - 1);
        Node*& link = before == nullptr ? head : before->next;
        Node* node = link;
        link = node->next;
        if (node == tail)
            tail = before;
        --count;
        return node;
    }

    Node* head = nullptr;
    Node* tail = nullptr;
    int count = 0;
};

}  // namespace Kes
