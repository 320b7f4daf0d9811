// A typed reference to at most one partner.

#pragma once

#include <cstddef>
#include <type_traits>

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/Instance.h>
#include <kes/OneAssociatedInstance.h>
#include <kes/Ref.h>

namespace Kes {

/// Stores what One<T> refers to, for every T alike.
class KES_EXPORT OneReference : public OneAssociatedInstance {
public:
    /// `itsOwner` is the instance that reports the reference; borrowed.
    explicit OneReference(Instance* itsOwner) : owner(itsOwner) {}

    /// For members of described classes: whoever makes such an object tells its
    /// references whose they are.
    OneReference() = default;
    OneReference(const OneReference&) = delete;
    OneReference& operator=(const OneReference&) = delete;

    void setInstance(Instance* instance) override;
    Instance* getInstance() override;

    /// False for one that was made without its owner and belongs to nobody.
    bool hasOwner() const { return owner != nullptr; }

protected:
    ~OneReference() = default;

    Instance* fetch() const {
        if (!isFetched())
            load();
        return held;
    }

    /// As fetch, for whoever is going to look at the partner: of a described
    /// class, none is an Error.
    Instance* require() const;
    void link(Instance* partner);

private:
    friend class ReferenceState;

    void load() const;

    Instance* owner = nullptr;
    Instance* held = nullptr;
};

/// A member of a persistent class that refers to one `T` or none.
///
/// Made with its owner (`One<Company> employer{this};`), or, as a member of a
/// described class, without. Reading loads the partner when it is not in memory;
/// assigning links or, with null, unlinks both sides in the current transaction.
/// `T` may be incomplete until used.
///
/// A partner of a described class is handed out as a Ref, or constant behind
/// `->`, which raises Error (Misuse) where there is none.
template <class T>
class One final : public OneReference {
public:
    One() = default;
    explicit One(Instance* itsOwner) : OneReference(itsOwner) {}

    /// The partner, borrowed from the model; null when there is none. Not for
    /// described classes.
    T* get() const { return castToPlain<T>(fetch()); }
    operator T*() const { return castToPlain<T>(fetch()); }

    auto operator->() const {
        if constexpr (IsDescribed<T>)
            return static_cast<const T*>(require());
        else
            return static_cast<T*>(fetch());
    }

    /// Whether there is a partner.
    explicit operator bool() const { return fetch() != nullptr; }

    /// The partner, kept alive; an empty Ref when there is none. Also the way to
    /// one of a described class.
    operator Ref<T>() const { return Ref<T>::to(fetch()); }

    /// `partner` is an object, a Ref of one, another reference, or null.
    One& operator=(T* partner) {
        link(partner);
        return *this;
    }
    template <class P>
    requires(!std::is_arithmetic_v<P>) One& operator=(const P& partner) {
        if constexpr (std::is_convertible_v<const P&, Ref<T>>) {
            link(Ref<T>(partner).getInstance());
        } else {
            constexpr bool fits = std::is_convertible_v<const P&, T*>;
            static_assert(fits, "this Kes::One refers to objects of another class");
            if constexpr (fits)
                link(static_cast<T*>(partner));
        }
        return *this;
    }
    template <class P>
    // NOLINTNEXTLINE(misc-unconventional-assign-operator): only says why there is none.
    void operator=(const P&) const {
        static_assert(!std::is_same_v<P, P>,
                      "the object is constant here: Transaction::edit gives one to change");
    }

    /// Refers to the other reference's partner.
    One& operator=(const One& other) {
        link(other.fetch());
        return *this;
    }

    friend bool operator==(const One& one, std::nullptr_t) { return one.fetch() == nullptr; }
    friend bool operator==(const One& one, const One& other) {
        return one.fetch() == other.fetch();
    }
    template <class U>
    friend bool operator==(const One& one, const Ref<U>& other) {
        static_assert(std::is_base_of_v<T, U> || std::is_base_of_v<U, T>,
                      "objects of these two classes are never the same");
        return one.fetch() == other.getInstance();
    }
};

}  // namespace Kes
