// The listener lists of classes, associations and instances.
//
// A list exists only while it holds a listener, so that the many objects that
// nobody listens to pay one null pointer each.

#pragma once

#include <exception>

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

/// Keeps the first exception of several calls until all of them were made: a
/// listener that throws keeps nobody else from hearing.
class FirstFailure {
public:
    template <class Call>
    void attempt(Call call) {
        try {
            call();
        } catch (...) {
            if (thrown == nullptr)
                thrown = std::current_exception();
        }
    }

    /// Null when nothing was thrown.
    const std::exception_ptr& get() const { return thrown; }

    void rethrow() const {
        if (thrown != nullptr)
            std::rethrow_exception(thrown);
    }

private:
    std::exception_ptr thrown;
};

/// Calls `notify` for each listener of a copy, so that listeners may register
/// and leave meanwhile. What the first of them throws is thrown at the end.
template <class Notify>
void tellListeners(const PtrList<Listener>* list, Notify notify) {
    if (list == nullptr)
        return;
    const PtrList<Listener> copy(*list);
    FirstFailure failure;
    for (Listener* listener : copy)
        failure.attempt([&] { notify(listener); });
    failure.rethrow();
}

}  // namespace Kes
