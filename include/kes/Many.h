// A typed reference to many partners.

#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <vector>

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/Instance.h>
#include <kes/ManyAssociatedInstances.h>

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
    ManyReference(const ManyReference&) = delete;
    ManyReference& operator=(const ManyReference&) = delete;

    void add(Instance* instance) final;
    void remove(Instance* instance) final;
    void reset() final;
    bool next() final;
    Instance* value() final;
    bool contains(Instance* instance) const final;
    void clear() final;

protected:
    ~ManyReference();

    void fetch() const {
        if (!isFetched())
            owner->get(const_cast<ManyReference&>(*this));
    }
    void link(Instance* partner) { owner->add(*this, partner); }
    void unlink(Instance* partner) { owner->remove(*this, partner); }
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
        bool atEnd() const;
        void advance();

    private:
        const ManyReference* of = nullptr;
        std::size_t position = 0;
    };

private:
    friend class Cursor;
    friend class ReferenceState;

    std::size_t find(const Instance* instance) const;
    void reindex();
    void closeGaps();
    void sort();

    Instance* owner;
    std::vector<Instance*> members;    // null marks a gap
    std::vector<std::uint32_t> index;  // open addressing: 1 + position; empty while small
    std::size_t used = 0;
    std::size_t cursor = 0;  // of reset/next: 1 + position
    mutable std::uint32_t iterating = 0;
};

/// A member of a persistent class that refers to many `T`.
///
/// Made with its owner (`Many<Person> staff{this};`). Reading loads the members
/// when they are not fetched; add and remove link and unlink both sides in the
/// current transaction. Members come in the order in which they were added or
/// loaded, each once. `T` may be incomplete until used.
template <class T>
class Many final : public ManyReference {
public:
    explicit Many(Instance* itsOwner) : ManyReference(itsOwner) {}

    /// Links `partner`, which is not null. Does nothing in memory for a member.
    template <std::convertible_to<T*> P>
    void add(P partner) {
        link(static_cast<T*>(partner));
    }

    /// Dissolves the link with `partner`.
    template <std::convertible_to<T*> P>
    void remove(P partner) {
        unlink(static_cast<T*>(partner));
    }

    /// Constant time once the members are fetched.
    template <std::convertible_to<const T*> P>
    bool contains(P partner) const {
        fetch();
        return ManyReference::contains(const_cast<T*>(static_cast<const T*>(partner)));
    }

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

        T* operator*() const { return static_cast<T*>(this->current()); }
        Iterator& operator++() {
            this->advance();
            return *this;
        }
        void operator++(int) { this->advance(); }
        bool operator==(std::default_sentinel_t) const { return this->atEnd(); }
    };

    Iterator begin() const {
        fetch();
        return Iterator(this);
    }
    std::default_sentinel_t end() const { return {}; }
};

}  // namespace Kes
