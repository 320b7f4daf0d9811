// A typed reference to at most one partner.

#pragma once

#include <type_traits>

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/Instance.h>
#include <kes/OneAssociatedInstance.h>

namespace Kes {

/// Stores what One<T> refers to, for every T alike.
class KES_EXPORT OneReference : public OneAssociatedInstance {
public:
    /// `itsOwner` is the instance that reports the reference; borrowed.
    explicit OneReference(Instance* itsOwner) : owner(itsOwner) {}
    OneReference(const OneReference&) = delete;
    OneReference& operator=(const OneReference&) = delete;

    void setInstance(Instance* instance) override;
    Instance* getInstance() override;

protected:
    ~OneReference() = default;

    Instance* fetch() const {
        if (!isFetched())
            owner->get(const_cast<OneReference&>(*this));
        return held;
    }
    void link(Instance* partner) { owner->set(*this, partner); }

private:
    Instance* owner;
    Instance* held = nullptr;
};

/// A member of a persistent class that refers to one `T` or none.
///
/// Made with its owner (`One<Company> employer{this};`). Reading loads the
/// partner when it is not in memory; assigning links or, with null, unlinks
/// both sides in the current transaction. `T` may be incomplete until used.
template <class T>
class One final : public OneReference {
public:
    explicit One(Instance* itsOwner) : OneReference(itsOwner) {}

    /// The partner, borrowed from the model; null when there is none.
    T* get() const { return static_cast<T*>(fetch()); }
    operator T*() const { return get(); }
    T* operator->() const { return get(); }

    One& operator=(T* partner) {
        link(partner);
        return *this;
    }

    /// Refers to the other reference's partner.
    One& operator=(const One& other) { return *this = other.get(); }
};

}  // namespace Kes
