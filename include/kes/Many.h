// A typed reference to many partners.

#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <type_traits>
#include <vector>

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/Instance.h>
#include <kes/ManyAssociatedInstances.h>
#include <kes/Pointer.h>
#include <kes/Ref.h>

namespace Kes {

/// Stores what Many<T> refers to, for every T alike: a set that remembers the
/// order in which its members came. Those that are loaded come by their ids.
///
/// Adding, removing and looking a member up take constant time. A removed
/// member leaves a gap that is closed while nobody iterates, so members may be
/// added and removed inside a loop: a removed one that was not reached yet is
/// skipped, an added one is reached last.
class KES_EXPORT ManyReference : public ManyAssociatedInstances {
public:
    /// `itsOwner` is the instance that reports the reference; borrowed.
    explicit ManyReference(Instance* itsOwner) : owner(itsOwner) {}

    /// For members of described classes, as with OneReference.
    ManyReference() = default;
    ManyReference(const ManyReference&) = delete;
    ManyReference& operator=(const ManyReference&) = delete;

    void add(Instance* instance) final;
    void remove(Instance* instance) final;
    void reset() final;
    bool next() final;
    Instance* value() final;
    bool contains(Instance* instance) const final;
    void clear() final;

    /// False for one that was made without its owner and belongs to nobody.
    bool hasOwner() const { return owner != nullptr; }

protected:
    ~ManyReference();

    void fetch() const {
        if (!isFetched())
            load();
    }
    void link(Instance* partner);
    void unlink(Instance* partner);
    std::size_t count() const { return used; }

    /// Walks the members; keeps gaps open while it lives.
    class Cursor {
    public:
        Cursor() = default;
        Cursor(const ManyReference* reference, std::size_t start);
        Cursor(const Cursor& other);
        Cursor& operator=(const Cursor& other);
        ~Cursor();

        Instance* current() const { return of->members[position]; }
        Instance* owner() const { return of->owner; }
        bool atEnd() const;
        void advance();

        /// The members are gone; the walk is at its end.
        void abandon() { of = nullptr; }

    private:
        const ManyReference* of = nullptr;
        std::size_t position = 0;
    };

    class KeepingCursor;

private:
    friend class Cursor;
    friend class ReferenceState;
    friend class KeepingCursor;
    friend class SweepAccess;

    void load() const;
    std::size_t find(const Instance* instance) const;
    void reindex();
    void closeGaps();
    void sort();

    Instance* owner = nullptr;
    std::vector<Instance*> members;    // null marks a gap
    std::vector<std::uint32_t> index;  // open addressing: 1 + position; empty while small
    std::size_t used = 0;
    std::size_t cursor = 0;  // of reset/next: 1 + position
    mutable std::uint32_t iterating = 0;
};

/// Walks members that nobody else may keep alive: it keeps the owner and the
/// current member.
class KES_EXPORT ManyReference::KeepingCursor : public ManyReference::Cursor {
public:
    /// Stands at the first member. `reference` is borrowed; its owner is kept.
    explicit KeepingCursor(const ManyReference* reference);
    ~KeepingCursor();
    KeepingCursor(const KeepingCursor&) = default;
    KeepingCursor& operator=(const KeepingCursor&) = default;

    /// Null at the end. Kept until the cursor advances.
    const Instance* current() const { return member.getInstance(); }
    bool atEnd() const { return member == nullptr; }

    /// Goes to the next member, which is kept in place of this one; where the
    /// owner is gone meanwhile, as when the model was closed, to the end.
    void advance();

private:
    void take();

    Pointer<Instance> keeper;
    Pointer<Instance> member;
};

/// A member of a persistent class that refers to many `T`.
///
/// Made with its owner (`Many<Person> staff{this};`), or, as a member of a
/// described class, without. Reading loads the members when they are not
/// fetched; add and remove link and unlink both sides in the current
/// transaction. Members come in the order in which they were added or loaded,
/// each once. `T` may be incomplete until used.
///
/// A loop over members of a described class delivers constant references, which
/// live for the turn of the loop: `for (const Person& p : staff)`.
template <class T>
class Many final : public ManyReference {
public:
    Many() = default;
    explicit Many(Instance* itsOwner) : ManyReference(itsOwner) {}

    /// Links `partner`, an object or a Ref of one, which is not null. Does nothing
    /// in memory for a member.
    template <class P>
    void add(const P& partner) {
        link(instanceOf(partner));
    }
    template <class P>
    void add(const P&) const {
        static_assert(!std::is_same_v<P, P>,
                      "the object is constant here: Transaction::edit gives one to change");
    }

    /// Dissolves the link with `partner`.
    template <class P>
    void remove(const P& partner) {
        unlink(instanceOf(partner));
    }
    template <class P>
    void remove(const P&) const {
        static_assert(!std::is_same_v<P, P>,
                      "the object is constant here: Transaction::edit gives one to change");
    }

    /// Constant time once the members are fetched.
    template <std::convertible_to<const T*> P>
    bool contains(P partner) const {
        fetch();
        return ManyReference::contains(const_cast<T*>(static_cast<const T*>(partner)));
    }

    /// The same of an object or a Ref of one. A template, for another overload
    /// would hide the operation of the base.
    template <class P>
    requires(!std::convertible_to<P, const T*> &&
             std::convertible_to<const P&, Ref<T>>) bool contains(const P& partner) const {
        fetch();
        return ManyReference::contains(Ref<T>(partner).getInstance());
    }

    /// The number of members. They are loaded first when they are not fetched;
    /// constant time afterwards.
    std::size_t size() const {
        fetch();
        return count();
    }
    bool empty() const { return size() == 0; }

    /// A forward iterator over the members, borrowed from the model.
    class Iterator : private Cursor {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = T*;
        using difference_type = std::ptrdiff_t;
        using pointer = T**;
        using reference = T*;

        Iterator() = default;
        explicit Iterator(const ManyReference* members) : Cursor(members, 0) {}

        T* operator*() const { return castToPlain<T>(this->current()); }
        Iterator& operator++() {
            this->advance();
            return *this;
        }
        void operator++(int) { this->advance(); }
        bool operator==(std::default_sentinel_t) const { return this->atEnd(); }
    };

    /// The same for members of a described class.
    class ObjectIterator : private KeepingCursor {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = const T*;
        using reference = const T&;

        explicit ObjectIterator(const ManyReference* members) : KeepingCursor(members) {}

        const T& operator*() const { return *static_cast<const T*>(this->current()); }
        const T* operator->() const { return static_cast<const T*>(this->current()); }
        ObjectIterator& operator++() {
            this->advance();
            return *this;
        }
        void operator++(int) { this->advance(); }
        bool operator==(std::default_sentinel_t) const { return this->atEnd(); }
    };

    auto begin() const {
        fetch();
        if constexpr (isKnownAsDescribed<T>())
            return ObjectIterator(this);
        else
            return Iterator(this);
    }
    std::default_sentinel_t end() const { return {}; }

private:
    template <class P>
    static Instance* instanceOf(const P& partner) {
        if constexpr (std::is_convertible_v<const P&, Ref<T>>) {
            return Ref<T>(partner).getInstance();
        } else {
            constexpr bool fits = std::is_convertible_v<const P&, T*>;
            static_assert(fits, "this Kes::Many refers to objects of another class");
            if constexpr (fits)
                return static_cast<T*>(partner);
            else
                return nullptr;
        }
    }
};

}  // namespace Kes
