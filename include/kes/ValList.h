// Singly linked lists of values.

#pragma once

#include <cstddef>
#include <iterator>

#include <kes/Export.h>
#include <kes/Forward.h>

namespace Kes {

/// A node of a ValList.
template <class T>
class ValListNode {
public:
    explicit ValListNode(const T& v) : value(v) {}
    virtual ~ValListNode() = default;

    ValListNode* next = nullptr;
    T value;
};

/// A list of values. Appending takes constant time, at(i) walks from the head; use
/// range-for to visit all. Positions count from 0, "not found" is -1, and no
/// position is checked.
template <class T>
class ValList {
public:
    using Node = ValListNode<T>;

    class Iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = const value_type*;
        using reference = const T&;

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

    ValList() = default;
    ValList(const ValList& other) : ValList() { *this = other; }
    ValList& operator=(const ValList& other) {
        if (this == &other)
            return *this;
        clear();
        *this += other;
        return *this;
    }
    virtual ~ValList() { clear(); }

    Iterator begin() const { return Iterator(head); }
    Iterator end() const { return Iterator(); }

    /// Appends a copy; constant time.
    void add(const T& v) {
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
    void insert(const T& v, int i) {
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
    void operator+=(const ValList& other) {
        int left = other.count;  // its own end moves when a list is appended to itself
        for (const Node* node = other.head; left > 0; node = node->next, --left)
            add(node->value);
    }

    /// Moves the other list's nodes to the end of this one in constant time.
    void merge(ValList* other) {
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
    const T& at(int i) const { return pos(i)->value; }
    const T& operator[](int i) const { return pos(i)->value; }

    /// The first position from `start` on that holds an equal value; -1 when there is none.
    /// Linear, as contains.
    int find(const T& v, int start = 0) const {
        if (start >= count)
            return -1;
        int i = start;
        for (const Node* node = pos(start); node != nullptr; node = node->next, ++i)
            if (node->value == v)
                return i;
        return -1;
    }

    /// Whether find() has a position for it.
    bool contains(const T& v) const { return find(v) != -1; }

    /// Deletes the element at `i`. Walks to it from the head.
    void removeAt(int i) { delete unlink(i); }

    /// Deletes the first equal element; does nothing where there is none. Linear.
    void remove(const T& v) {
        const int i = find(v);
        if (i != -1)
            removeAt(i);
    }

    /// Takes all elements out and deletes them.
    void clear() {
        while (head != nullptr) {
            Node* next = head->next;
            delete head;
            head = next;
        }
        tail = nullptr;
        count = 0;
    }

    /// Identity: true only for the same object.
    bool operator==(const ValList& other) const { return this == &other; }
    static long hash(const ValList& list) { return reinterpret_cast<long>(&list); }

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
