// Pointers that keep instances alive.

#pragma once

#include <cstddef>

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/Instance.h>

namespace Kes {

/// What a model knows of a pointer: whom it keeps alive.
///
/// A registered pointer is a link of its model's list, so registering and
/// unregistering take constant time.
class KES_EXPORT PointerBase {
public:
    /// Forgets the instance and unregisters.
    virtual void makeNull() = 0;

    /// Borrowed; null when empty.
    virtual Instance* getInstance() const = 0;
    virtual ~PointerBase();

protected:
    PointerBase() = default;
    PointerBase(const PointerBase&) {}  // a copy registers for itself

    /// Unregisters a pointer that is destroyed, from the model of the instance.
    void unregister(const Instance* from) noexcept;
    PointerBase& operator=(const PointerBase&) { return *this; }

private:
    friend class PointerRegistry;

    PointerBase* previous = nullptr;  // both null while unregistered
    PointerBase* next = nullptr;
};

/// Keeps an instance of class `T` alive across collections.
///
/// Empty and unknown to every model, or set and registered exactly once with
/// the model of its instance, which empties it when the model is closed. For
/// the model's thread: on another one, making and assigning raise MTERR (FATAL).
/// Making, assigning and destroying take constant time.
template <class T>
class Pointer final : public PointerBase {
public:
    Pointer() = default;
    Pointer(T* p) { assign(p); }  // NOLINT: an instance stands for a pointer to it
    Pointer(const Pointer& other) : PointerBase() { assign(other.instance); }

    /// On another thread than the model's, raises nothing: the exception handler
    /// is told of MTERR, and when it throws, the model's next operation raises it.
    ~Pointer() override {
        if (instance != nullptr)
            unregister(instance);
    }

    Pointer& operator=(T* p) {
        assign(p);
        return *this;
    }
    Pointer& operator=(const Pointer& other) {
        assign(other.instance);
        return *this;
    }

    void makeNull() override {
        if (instance != nullptr)
            static_cast<Instance*>(instance)->removePointer(this);
        instance = nullptr;
    }
    Instance* getInstance() const override { return instance; }

    operator T*() const { return instance; }
    T* operator->() const { return instance; }
    T& operator*() const { return *instance; }

    template <class U>
    bool operator==(U* p) const {
        return instance == p;
    }
    template <class U>
    bool operator!=(U* p) const {
        return instance != p;
    }
    bool operator==(std::nullptr_t) const { return instance == nullptr; }
    bool operator!=(std::nullptr_t) const { return instance != nullptr; }

private:
    // A pointer is registered with a model and not with an instance, so moving
    // within one model leaves the registration alone.
    void assign(T* p) {
        Instance* current = instance;
        Instance* fresh = p;
        if (current == nullptr || fresh == nullptr) {
            if (current != nullptr)
                current->removePointer(this);
            else if (fresh != nullptr)
                fresh->addPointer(this);
        } else if (!current->inSameModel(fresh)) {
            current->removePointer(this);
            fresh->addPointer(this);
        }
        instance = p;
    }

    T* instance = nullptr;
};

extern template class KES_EXPORT Pointer<Instance>;

}  // namespace Kes
