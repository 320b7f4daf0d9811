// Selections that need no cast.

#pragma once

#include <cstddef>
#include <iterator>

#include <kes/Selection.h>

namespace Kes {

/// A Selection whose instances are of class `T`, with iteration by range-for:
/// `for (Person* p : people) …`. Like every selection it is iterated once.
template <class T>
class SelectionOf final : public Selection {
public:
    explicit SelectionOf(Class* selectedClass) : Selection(selectedClass) {}
    SelectionOf(const SelectionOf&) = delete;
    SelectionOf& operator=(const SelectionOf&) = delete;

    /// As Selection::value: null before the first next, borrowed from the model.
    T* value() { return static_cast<T*>(Selection::value()); }

    /// Advances and returns the object delivered, null at the end.
    T* nextValue() { return next() ? value() : nullptr; }

    class Iterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = T*;
        using difference_type = std::ptrdiff_t;
        using pointer = T**;
        using reference = T*;

        Iterator() = default;
        explicit Iterator(SelectionOf* of) : selection(of), current(of->nextValue()) {}

        T* operator*() const { return current; }
        Iterator& operator++() {
            current = selection->nextValue();
            return *this;
        }
        void operator++(int) { ++*this; }
        bool operator==(std::default_sentinel_t) const { return current == nullptr; }

    private:
        SelectionOf* selection = nullptr;
        T* current = nullptr;
    };

    /// Raises SELERR (ERROR) for a selection that was gone through before.
    Iterator begin() {
        requireRows();
        return Iterator(this);
    }

    std::default_sentinel_t end() const { return {}; }
};

}  // namespace Kes
