// Observers: the listener lists of classes, associations and instances.
//
// A list exists only while it holds a listener, so that the many objects that
// nobody listens to pay one null pointer each.

#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <exception>
#include <memory>
#include <vector>

#include <kes/Listener.h>
#include <kes/PtrList.h>

namespace Kes {

inline void addToListeners(PtrList<Listener>*& list, Listener* listener) {
    if (listener == nullptr)
        return;
    if (list != nullptr) {
        if (!list->contains(listener))
            list->add(listener);
        return;
    }
    auto fresh = std::make_unique<PtrList<Listener>>();
    fresh->add(listener);
    list = fresh.release();
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
///
/// A commit that stands is told without memory: only long lists need some.
template <class Notify>
void tellListeners(const PtrList<Listener>* list, Notify notify) {
    if (list == nullptr)
        return;
    std::array<Listener*, 32> few;
    std::vector<Listener*> many;
    const auto count = static_cast<std::size_t>(list->size());
    if (count > few.size())
        many.resize(count);
    Listener** const copy = count > few.size() ? many.data() : few.data();
    std::copy(list->begin(), list->end(), copy);
    FirstFailure failure;
    for (std::size_t i = 0; i < count; ++i)
        failure.attempt([&] { notify(copy[i]); });
    failure.rethrow();
}

}  // namespace Kes
