// The base class of every persistent object.

#pragma once

#include <cstdint>

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/PtrList.h>

namespace Kes {

/// A persistent object: its class, identity, version and listeners. The version
/// is an optimistic lock: a write demands that the stored one is still the same.
///
/// Applications derive from it and override handle. An instance belongs to its
/// model, which keeps each stored object once in memory and frees instances
/// that no Pointer reaches, directly or through references. Everything here is
/// for the model's thread.
class KES_EXPORT Instance {
public:
    /// `itsClass` is borrowed and is never null for an object that is used.
    explicit Instance(Class* itsClass);

    /// Copies share the listener list; at most one of them may be destroyed
    /// while listeners are registered.
    Instance(const Instance& other) = default;
    Instance& operator=(const Instance& other) = default;

    virtual ~Instance();

    /// Reports the persistent fields to `handler`: the base's fields first (in
    /// the end "KesObjectID" and "KesVersion"), then each own field once, with
    /// the same name and kind and in the same order on every call. It does
    /// nothing else. Builds of the library without NDEBUG compare every walk
    /// with the class's first one and raise DECLERR (ERROR), naming class and
    /// field, when they differ or a field is reported twice.
    virtual void handle(Handler* handler);

    /// Makes the object persistent in the current transaction. It gets its
    /// object id at once and is stored by the commit.
    virtual void add();

    /// Tells the model that fields were or will be assigned before the commit;
    /// calling it before or after the assignment makes no difference, but that
    /// after it the driver is asked for the stored state. Where that fails it
    /// raises REFFAIL (ERROR) and records nothing. The commit fails then unless
    /// a later call succeeded, and the rollback takes what was assigned back.
    /// Several calls in one transaction cost no more than one.
    virtual void change();

    /// Removes the object, and the partners that its associations cascade to,
    /// in the current transaction. A second call does nothing; one that was
    /// never added raises INSTERR (ERROR).
    virtual void remove();

    /// Brings the fields up to date with the database and fires the change that
    /// was found, by this call or by a query since the last event. An object
    /// that is not stored any more is marked as removed, which is told once. One
    /// with pending changes is left alone; what was found is told all the same.
    virtual void refresh();

    /// Locks the stored object until the end of the transaction. Raises
    /// LOCKFAIL (ERROR), after a rollback, when it is not to be had.
    virtual void lock();

    /// Identity: true only for the same object.
    bool operator==(const Instance& other) const { return this == &other; }

    Class* getClass() const { return cls; }

    /// 0 until the object is added to its model.
    unsigned long getObjectID() const { return objectID; }
    void setObjectID(unsigned long id) { objectID = id; }

    /// The count of stored changes; 2^63 - 2 while a change was refused and the
    /// object has not been read again.
    unsigned long getVersion() const { return version; }
    void nextVersion() { ++version; }
    void previousVersion() { --version; }

    /// True from remove() on, and for an object that a refresh did not find any
    /// more; false again after a rollback. The setter is for the library and for
    /// drivers.
    bool isRemoved() const { return flag(Removed); }
    void setRemoved(bool on) {
        setFlag(Removed, on);
        if (!on)
            setFlag(Gone, false);
    }

    /// Used by the collection only.
    bool isVisited() const { return flag(Visited); }
    void setVisited(bool on) { setFlag(Visited, on); }

    /// True while an add, a change or a removal of this object is pending.
    bool inTransaction() const { return flag(InTransaction); }
    void setInTransaction(bool on) { setFlag(InTransaction, on); }

    /// Whether both instances' classes belong to one model.
    bool inSameModel(const Instance* other) const;

    /// Registers with, or takes out of, the model's list of pointers.
    void addPointer(PointerBase* pointer) const;
    void removePointer(PointerBase* pointer) const;

    /// Registers a borrowed listener; a second registration does nothing.
    void addListener(Listener* listener);
    void removeListener(Listener* listener);

    /// Loads a reference that is not fetched yet, or any with `force`. `ref`
    /// has to be one that this instance reports, here and below. Where loading
    /// fails and the exception handler returns, it stays unfetched, shows no
    /// partner, and is not changed by the operations below.
    void get(OneAssociatedInstance& ref, bool force = false);

    /// With `force`, members that are gone from the database leave the
    /// collection, unless a pending change added them.
    void get(ManyAssociatedInstances& ref, bool force = false);

    /// Links this instance with `partner`, or dissolves the link for null. Both
    /// sides in memory agree afterwards; the database follows at the commit.
    void set(OneAssociatedInstance& ref, Instance* partner);
    void add(ManyAssociatedInstances& ref, Instance* partner);
    void remove(ManyAssociatedInstances& ref, Instance* partner);

protected:
    void fireInstanceChanged();

    /// Forgets all listeners after they have heard.
    void fireInstanceRemoved();
    void fireAssociationAdded(Association* association, Instance* other);
    void fireAssociationRemoved(Association* association, Instance* other);

private:
    friend class InstanceState;

    // Linked: a link of this instance is pending. Raised: the commit under way
    // has raised its version for a link. Gone: the removal was committed, or a
    // refresh has found it. Untold: brought up to date since the last event; of
    // one that is Gone, that it was a refresh. Ahead: read ahead for a sibling,
    // and the application has not had it yet.
    enum Flag : std::uint32_t {
        Removed = 1,
        Visited = 2,
        InTransaction = 4,
        Linked = 8,
        Raised = 16,
        Gone = 32,
        Untold = 64,
        Ahead = 128
    };

    Model* modelFor(const char* operation) const;
    Model* ownModel(const char* operation) const;
    const Model* checkedModel() const;

    bool flag(Flag which) const { return (flags & which) != 0; }
    void setFlag(Flag which, bool on) {
        flags = on ? (flags | which) & 0xFFU : flags & ~static_cast<std::uint32_t>(which) & 0xFFU;
    }

    Class* cls;
    unsigned long objectID = 0;
    unsigned long version = 0;
    std::uint32_t flags : 8 = 0;

    // The group of instances that came from the same selection; see
    // fetch/ReferenceLoader.h. 0 while the instance belongs to none.
    std::uint32_t siblings : 24 = 0;

    // 1 + the position of this instance's entry in the pending transaction, so
    // that it is found without a search; 0 while nothing is pending.
    std::uint32_t pending = 0;
    PtrList<Listener>* listeners = nullptr;  // owned; null while empty

    // Digest of the fields as the database holds them. It tells change()
    // whether members were already assigned.
    std::uint64_t fingerprint = 0;
};

}  // namespace Kes
