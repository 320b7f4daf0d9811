// References that keep objects alive.

#pragma once

#include <concepts>
#include <cstddef>
#include <type_traits>

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/Instance.h>
#include <kes/Pointer.h>

namespace Kes {

/// Whether objects of the class, which is complete, are handed out by Ref and
/// are constant until they are edited.
template <class T>
inline constexpr bool IsDescribed = std::is_base_of_v<Described, T>;

/// The same of a class that may be incomplete: one that is not known yet is taken
/// for one that is not described, and castToPlain finds out.
template <class T>
consteval bool isKnownAsDescribed() {
    if constexpr (requires { sizeof(T); })
        return IsDescribed<T>;
    else
        return false;
}

/// Instantiated where `T` is complete, which may be after its use.
template <class T>
T* castToPlain(Instance* instance) {
    static_assert(!IsDescribed<T>,
                  "an object of a described class is handed out by Kes::Ref and never by a plain "
                  "pointer");
    return static_cast<T*>(instance);
}

/// What Ref<T> does for every T alike.
class KES_EXPORT RefBase {
public:
    /// Borrowed; null when empty. For code that uses the classes below this
    /// interface: what holds no Ref may be freed by the next load.
    Instance* getInstance() const { return pointer.getInstance(); }

    /// The object's id; 0 when empty.
    unsigned long getObjectID() const;

    /// Whether there is an object. It is gone, too, once its database is closed.
    explicit operator bool() const { return getInstance() != nullptr; }

protected:
    RefBase() = default;
    explicit RefBase(Instance* instance) : pointer(instance) {}

    /// Raises Error (Misuse) for an object that belongs to no database.
    explicit RefBase(const Instance& instance) : pointer(require(instance)) {}
    ~RefBase() = default;

    /// Never null: raises Error (Misuse) when empty.
    Instance* require() const {
        Instance* instance = getInstance();
        if (instance == nullptr)
            failEmpty();
        return instance;
    }

private:
    static Instance* require(const Instance& instance);
    [[noreturn]] static void failEmpty();

    Pointer<Instance> pointer;
};

/// Refers to an object of class `T` and keeps it alive, or is empty.
///
/// The object is constant; Transaction::edit gives one to assign to. A Ref is
/// empty once its database is closed or destroyed. It belongs to the thread of
/// its database. Making, assigning and destroying take constant time.
template <class T>
class Ref final : public RefBase {
public:
    Ref() = default;
    Ref(std::nullptr_t) {}                     // NOLINT: null stands for an empty one
    Ref(const T& object) : RefBase(object) {}  // NOLINT: an object stands for itself
    template <std::derived_from<T> U>
    requires(!std::same_as<U, T>) Ref(const Ref<U>& other)
        : RefBase(other.getInstance()) {}  // NOLINT

    /// Of an instance that is null or of class `T`, which nothing checks.
    static Ref to(Instance* instance) { return Ref(instance, Plain()); }

    const T* operator->() const { return static_cast<const T*>(require()); }
    const T& operator*() const { return *operator->(); }

    /// The same object as one of a sub class; empty when it is none.
    template <std::derived_from<T> U>
    Ref<U> as() const {
        return Ref<U>::to(dynamic_cast<U*>(getInstance()));
    }

private:
    struct Plain {};
    Ref(Instance* instance, Plain) : RefBase(instance) {}
};

/// Whether both refer to the same object.
template <class T, class U>
bool operator==(const Ref<T>& a, const Ref<U>& b) {
    static_assert(std::is_base_of_v<T, U> || std::is_base_of_v<U, T>,
                  "objects of these two classes are never the same");
    return a.getInstance() == b.getInstance();
}
template <class T>
bool operator==(const Ref<T>& a, std::nullptr_t) {
    return a.getInstance() == nullptr;
}

}  // namespace Kes
