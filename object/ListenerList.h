// The listener lists of classes, associations and instances.
//
// A list exists only while it holds a listener, so that the many objects that
// nobody listens to pay one null pointer each.

#pragma once

#include <memory>

#include <kes/Listener.h>
#include <kes/PtrList.h>

namespace Kes {

inline void addToListeners(PtrList<Listener>*& list, Listener* listener) {
    if (listener == nullptr)
        return;
    if (list == nullptr)
        list = new PtrList<Listener>;
    if (!list->contains(listener))
        list->add(listener);
}

inline void removeFromListeners(PtrList<Listener>*& list, Listener* listener) {
    if (list == nullptr)
        return;
    list->remove(listener);
    if (list->size() != 0)
        return;
    delete list;
    list = nullptr;
}

/// Calls `notify` for each listener of a copy, so that listeners may register
/// and leave meanwhile.
template <class Notify>
void tellListeners(const PtrList<Listener>* list, Notify notify) {
    if (list == nullptr)
        return;
    const PtrList<Listener> copy(*list);
    for (Listener* listener : copy)
        notify(listener);
}

}  // namespace Kes
