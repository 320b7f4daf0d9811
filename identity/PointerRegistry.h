// Registry of the pointers that keep a model's instances alive: the roots of its
// collection, in the order of their registration.
//
// A ring through the pointers themselves: registering and unregistering touch
// two neighbours and allocate nothing.

#pragma once

#include <kes/Pointer.h>

namespace Kes {

class PointerRegistry {
public:
    PointerRegistry() {
        PointerBase& base = anchor;
        base.previous = base.next = &anchor;
    }
    PointerRegistry(const PointerRegistry&) = delete;
    PointerRegistry& operator=(const PointerRegistry&) = delete;

    void add(PointerBase* pointer) {
        if (pointer->next != nullptr)
            return;
        PointerBase& base = anchor;
        pointer->previous = base.previous;
        pointer->next = &base;
        base.previous->next = pointer;
        base.previous = pointer;
    }

    void remove(PointerBase* pointer) {
        if (pointer->next == nullptr)
            return;
        pointer->previous->next = pointer->next;
        pointer->next->previous = pointer->previous;
        pointer->previous = pointer->next = nullptr;
    }

    /// Null when empty.
    PointerBase* first() const {
        const PointerBase& base = anchor;
        return base.next == &base ? nullptr : base.next;
    }

    /// Null after the last.
    PointerBase* after(const PointerBase* pointer) const {
        return pointer->next == &anchor ? nullptr : pointer->next;
    }

private:
    class Anchor final : public PointerBase {
    public:
        void makeNull() override {}
        Instance* getInstance() const override { return nullptr; }
    };

    Anchor anchor;
};

}  // namespace Kes
